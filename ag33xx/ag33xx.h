// AG33XX platform: EPO files sent as "$PAIR471" sentences (online) or binary
// frames (offline), aided by "$PAIR" sentences.
#pragma once

#include "epo/epo.h"

extern const EpoDialect AG33XX_Dialect;

uint32_t AG33XX_AgnssOnline(int argc, char **argv);
uint32_t AG33XX_AgnssOffline(int argc, char **argv);
// The information entry: decodes and summarises up to three EPO files
// without opening a port.
uint32_t AG33XX_AgnssGetFileInfo(int argc, char **argv);

// The acknowledgement ("$PAIR001,<command>,<result>") and report checks.
uint32_t AG33XX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *address,
                                uint32_t current);
uint32_t AG33XX_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected, uint32_t current);
