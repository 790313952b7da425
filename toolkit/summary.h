// The "[AGNSS INFO]" summary of an ephemeris file, printed the same way by
// every platform that reads RTCM or its own ephemeris files, and the opening
// of such a file for it.
#pragma once

#include <cstdint>
#include <cstdio>

struct VkEphSummary {
    char type[96] = "";
    uint32_t file_size = 0;
    uint32_t segments = 0;
    float valid_days = 0;
    uint32_t start_week = 0, start_tow = 0;
    uint32_t end_week = 0, end_tow = 0;
    int64_t start_time = 0, end_time = 0;  // Unix seconds
    bool timed = false;                    // a record with a time was seen
};

// Takes one timed record: the first sets the start (start_week may differ
// from week, e.g. a BDS week shown on the GPS scale), every one the end, the
// end time 7200 s after the record's own.
void vk_summary_time(VkEphSummary &s, uint32_t start_week, uint32_t week, uint32_t tow,
                     int64_t time);
// The size of the file at path; false after the "fopen" report when it cannot be opened.
bool vk_path_size(const char *path, uint32_t *size);

// The six "[AGNSS INFO]" lines at level INFO.
void vk_print_eph_summary(const VkEphSummary &s);
// The size of an open file (the position goes back to its start), or -1.
long vk_file_size(FILE *f);
// Opens a file for its summary: its path must hold ext ("File format error"
// otherwise) and it must open ("fopen" report otherwise); *size gets its size.
FILE *vk_open_summary_file(const char *path, const char *ext, uint32_t *size);
