// What the offline (RTCM) and online (".hdb") file handling share: the size
// and name of the input and the temporary files of a divided transfer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "toolkit/summary.h"

// The size of the file at path (0 after the "fopen" report when it cannot be
// opened) and its name part split off into name (strlen(path) + 1 bytes, as dir).
bool hd8xxx_size_and_name(const char *path, uint32_t *size, char *dir, char *name);

// The two parts of a divided file, beside the input: older files of these
// names are removed first, and the parts are removed again when the transfer
// is over, whatever its outcome, and when the run is stopped by a signal.
struct HdTempPair {
    std::string gps, bds;
    HdTempPair(const char *dir, const char *gps_name, const char *bds_name);
    ~HdTempPair();
    HdTempPair(const HdTempPair &) = delete;
    HdTempPair &operator=(const HdTempPair &) = delete;
};
