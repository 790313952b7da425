// What the offline (RTCM) and online (".hdb") file handling share: the
// "[AGNSS INFO]" summary and the temporary files of a divided transfer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

struct HdSummary {
    char type[32] = "";
    uint32_t file_size = 0;
    uint32_t segments = 0;
    float valid_days = 0;
    uint32_t start_week = 0, start_tow = 0;
    uint32_t end_week = 0, end_tow = 0;
    int64_t start_time = 0, end_time = 0;  // Unix seconds
};

// The six "[AGNSS INFO]" lines at level INFO.
void hd8xxx_print_summary(const HdSummary &s);
// The size of an open file (the position goes back to its start), or -1.
long hd8xxx_file_size(FILE *f);
// Opens a file for its summary: its path must hold ext ("File format error"
// otherwise) and it must open ("fopen" report otherwise); *size gets its size.
FILE *hd8xxx_open_summary(const char *path, const char *ext, uint32_t *size);
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
