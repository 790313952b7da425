// RZ610MXXXX platform: the EPO engine driven by "$PVNK" sentences, with its
// own file tables (ELPO files, GLONASS-only, QZSS, 7-day files), its PRN rule
// keyed by mode, its acknowledgement rule and its restart report.
#pragma once

#include "epo/epo.h"

// A command refused, or its acknowledgement malformed.
enum : uint32_t { RZ610MXXXX_ERR_ACK = 0x110 };

extern const EpoDialect RZ610MXXXX_Dialect;

uint32_t RZ610MXXXX_AgnssOnline(int argc, char **argv);
uint32_t RZ610MXXXX_AgnssOffline(int argc, char **argv);

// The acknowledgement (the command's own name with "OK") and report checks.
uint32_t RZ610MXXXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *address,
                                    uint32_t current);
uint32_t RZ610MXXXX_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected,
                                 uint32_t current);
