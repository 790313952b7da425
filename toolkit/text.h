// Text and hex utilities, and the assistance-file summary print.
#pragma once

#include <cstdint>

// Summary of an assistance file, printed as "[EPO INFO]" lines.
struct VkAgnssInfo {
    uint32_t sys_mask;  // bit 0 GPS, 1 GLONASS, 2 GALILEO, 3 BDS
    uint32_t file_size;
    uint32_t segment_count;
    float valid_days;
    uint64_t start_gps_s;  // seconds since the GPS epoch
    uint64_t end_gps_s;
};

char HexToASCII(uint8_t n);
void Vk_HexGroupToString(char *dst, const uint8_t *src, uint16_t count);
void _hex2str(const uint8_t *src, uint16_t count, char *dst);
void printf_raw_data(const char *tag, const uint8_t *data, uint32_t count);
// dir and name must each hold strlen(path) + 1 bytes.
void Vk_SplitFilenameAndPath(const char *path, char *dir, char *name);
void Vk_PrintfAgnssInfo(const VkAgnssInfo *info);
// The six "[EPO INFO]" lines at a level ("INFO", "DEBUG"), each flushed or not.
void vk_print_epo_summary(const char *level, bool flush, const char *type_text, uint32_t file_size,
                          uint32_t segment_count, float valid_days, uint64_t start_gps_s,
                          uint64_t end_gps_s);
