// RZ610MXXXX platform: the EPO engine driven by "$PVNK" sentences, with its
// own file tables (ELPO files, GLONASS-only, QZSS, 7-day files), its PRN rule
// keyed by mode, its acknowledgement rule and its restart report.
#pragma once

#include "epo/epo_names.h"

extern const EpoDialect RZ610MXXXX_Dialect;
extern const EpoTypeValue RZ610MXXXX_EpoInfoTable[20];

EPO_DECLARE_NAMES(RZ610MXXXX)
