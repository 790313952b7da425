#include "toolkit/summary.h"

#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "toolkit/gnss_time.h"

void vk_print_eph_summary(const VkEphSummary &s) {
    VkDateTime start{}, end{};
    vk_unix_to_utc(s.start_time, &start);
    vk_unix_to_utc(s.end_time, &end);
    vk_log("[INFO] [AGNSS INFO] Type: %s\r\n", s.type);
    vk_log("[INFO] [AGNSS INFO] File Size: %d\r\n", int(s.file_size));
    vk_log("[INFO] [AGNSS INFO] Segment: %d\r\n", int(s.segments));
    vk_log("[INFO] [AGNSS INFO] Valid Days: %.3f\r\n", double(s.valid_days));
    vk_log("[INFO] [AGNSS INFO] GPST: (Week %d Tow %d)~(Week %d Tow %d)\r\n", int(s.start_week),
           int(s.start_tow), int(s.end_week), int(s.end_tow));
    vk_log("[INFO] [AGNSS INFO] UTC: (%04d-%02d-%02d %02d:00:00)~(%04d-%02d-%02d %02d:00:00)\n",
           start.year, start.month, start.day, start.hour, end.year, end.month, end.day, end.hour);
}

long vk_file_size(FILE *f) {
    if (fseek(f, 0, SEEK_END) != 0) return -1;
    long size = ftell(f);
    rewind(f);
    return size;
}

FILE *vk_open_summary_file(const char *path, const char *ext, uint32_t *size) {
    if (strstr(path, ext) == nullptr) {
        vk_log("[ERROR] File format error\n");
        return nullptr;
    }
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return nullptr;
    }
    long n = vk_file_size(f);
    *size = uint32_t(n < 0 ? 0 : n);
    return f;
}

void vk_summary_time(VkEphSummary &s, uint32_t start_week, uint32_t week, uint32_t tow,
                     int64_t time) {
    if (!s.timed) {
        s.timed = true;
        s.start_week = start_week;
        s.start_tow = tow;
        s.start_time = time;
    }
    s.end_week = week;
    s.end_tow = tow;
    s.end_time = time + 7200;
}

bool vk_path_size(const char *path, uint32_t *size) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return false;
    }
    long n = vk_file_size(f);
    fclose(f);
    *size = uint32_t(n < 0 ? 0 : n);
    return true;
}
