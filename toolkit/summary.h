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
};

// The six "[AGNSS INFO]" lines at level INFO.
void vk_print_eph_summary(const VkEphSummary &s);
// The size of an open file (the position goes back to its start), or -1.
long vk_file_size(FILE *f);
// Opens a file for its summary: its path must hold ext ("File format error"
// otherwise) and it must open ("fopen" report otherwise); *size gets its size.
FILE *vk_open_summary_file(const char *path, const char *ext, uint32_t *size);
