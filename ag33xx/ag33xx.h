// AG33XX platform: EPO files sent as "$PAIR471" sentences (online) or binary
// frames (offline), aided by "$PAIR" sentences.
#pragma once

#include "epo/epo_names.h"

extern const EpoDialect AG33XX_Dialect;
extern const EpoTypeValue AG33XX_EpoInfoTable[4];

EPO_DECLARE_NAMES(AG33XX)

// The information entry: decodes and summarises up to three EPO files
// without opening a port.
uint32_t AG33XX_AgnssGetFileInfo(int argc, char **argv);
