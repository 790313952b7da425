#include "toolkit/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "toolkit/gnss_time.h"

char HexToASCII(uint8_t n) {
    // Not masked: values above 15 run on into the letters after 'F'.
    return char(n <= 9 ? n + '0' : n + '7');
}

void Vk_HexGroupToString(char *dst, const uint8_t *src, uint16_t count) {
    if (dst == nullptr) return;
    uint32_t j = 0;
    for (uint16_t i = 0; i < count && src != nullptr; ++i) {
        dst[j++] = HexToASCII(uint8_t(src[i] >> 4));
        dst[j++] = HexToASCII(uint8_t(src[i] & 0x0F));
    }
    dst[j] = '\0';
}

void _hex2str(const uint8_t *src, uint16_t count, char *dst) {
    static const char kDigits[] = "0123456789ABCDEF";
    if (src == nullptr || dst == nullptr) return;
    // Nothing follows the last blank: the caller hands in a zeroed buffer.
    for (uint16_t i = 0; i < count; ++i) {
        *dst++ = kDigits[src[i] >> 4];
        *dst++ = kDigits[src[i] & 0x0F];
        *dst++ = ' ';
    }
}

void printf_raw_data(const char *tag, const uint8_t *data, uint32_t count) {
    const size_t size = size_t(count) * 3u + 1u;
    char *text = static_cast<char *>(calloc(size, 1));
    if (text == nullptr) return;
    _hex2str(data, uint16_t(count), text);
    vk_log(" ymodem: [%s](%d): %s\n", tag != nullptr ? tag : "", int(count), text);
    free(text);
}

void Vk_SplitFilenameAndPath(const char *path, char *dir, char *name) {
    if (path == nullptr || dir == nullptr || name == nullptr) return;
    // A forward slash wins; a backslash counts only in a path without any.
    const char *sep = strrchr(path, '/');
    if (sep == nullptr) sep = strrchr(path, '\\');
    if (sep == nullptr) {
        dir[0] = '\0';
        memcpy(name, path, strlen(path) + 1);
        return;
    }
    const size_t dir_len = size_t(sep - path) + 1;
    memcpy(dir, path, dir_len);
    dir[dir_len] = '\0';
    memcpy(name, sep + 1, strlen(sep + 1) + 1);
}

void Vk_PrintfAgnssInfo(const VkAgnssInfo *info) {
    if (info == nullptr) return;

    static const char *const kSystemNames[4] = {"GPS + ", "GLONASS + ", "GALILEO + ", "BDS + "};
    char type[64] = {0};
    for (int bit = 0; bit < 4; ++bit) {
        if (info->sys_mask & (1u << bit)) strcat(type, kSystemNames[bit]);
    }
    // Cutting the last two characters of " + " leaves one trailing blank.
    const size_t type_len = strlen(type);
    if (type_len > 2) {
        type[type_len - 2] = '\0';
    } else {
        strcpy(type, "INVALID");
    }

    vk_print_epo_summary("INFO", true, type, info->file_size, info->segment_count, info->valid_days,
                         info->start_gps_s, info->end_gps_s);
}

void vk_print_epo_summary(const char *level, bool flush, const char *type_text, uint32_t file_size,
                          uint32_t segment_count, float valid_days, uint64_t start, uint64_t end) {
#define SUMMARY_LINE(...) (flush ? vk_log(__VA_ARGS__) : vk_log_noflush(__VA_ARGS__))
    // No leap seconds on purpose: the file's own GPS seconds, read as UTC.
    VkDateTime start_utc{};
    VkDateTime end_utc{};
    vk_unix_to_utc(int64_t(start) + VK_GPS_EPOCH_UNIX, &start_utc);
    vk_unix_to_utc(int64_t(end) + VK_GPS_EPOCH_UNIX, &end_utc);

    SUMMARY_LINE("[%s] [EPO INFO] Type: %s\r\n", level, type_text);
    SUMMARY_LINE("[%s] [EPO INFO] File Size: %d\r\n", level, int(file_size));
    SUMMARY_LINE("[%s] [EPO INFO] Segment: %d\r\n", level, int(segment_count));
    SUMMARY_LINE("[%s] [EPO INFO] Valid Days: %.2f\r\n", level, double(valid_days));
    SUMMARY_LINE("[%s] [EPO INFO] GPST: (Week %ld Tow %ld)~(Week %ld Tow %ld)\r\n", level,
                 long(start / VK_SECONDS_PER_WEEK), long(start % VK_SECONDS_PER_WEEK),
                 long(end / VK_SECONDS_PER_WEEK), long(end % VK_SECONDS_PER_WEEK));
    SUMMARY_LINE("[%s] [EPO INFO] UTC: (%04d-%02d-%02d %02d:00:00)~(%04d-%02d-%02d %02d:00:00)\n",
                 level, start_utc.year, start_utc.month, start_utc.day, start_utc.hour,
                 end_utc.year, end_utc.month, end_utc.day, end_utc.hour);
#undef SUMMARY_LINE
}
