// Summaries of STA8100 ephemeris files: "PSTMEPHEM" text lines and RTCM 3
// frames, printed as "[AGNSS INFO]" lines before anything is sent.
#include <cstdio>
#include <cstring>
#include <string>

#include "core/log.h"
#include "core/result.h"
#include "sta8100/sta8100.h"
#include "toolkit/gnss_time.h"
#include "toolkit/summary.h"

namespace {

// Four characters read as the week and toe fields have always been read:
// low byte first, each character's value its code minus '0' (letters are
// not given their hexadecimal values).
int32_t four_chars(const char *p) {
    auto v = [&](int i) { return int32_t(p[i]) - '0'; };
    return (v(0) << 4) + v(1) + (v(2) << 12) + (v(3) << 8);
}

}  // namespace

uint32_t ST_GetNmeaEphInfo(const char *path) {
    VkEphSummary s{};
    FILE *f = vk_open_summary_file(path, ".txt", &s.file_size);
    if (f == nullptr) return VK_ERR_COMMAND;
    char line[1024];
    bool have_time = false;
    while (fgets(line, sizeof line, f) != nullptr) {
        int commas = 0;
        const char *third = nullptr;
        for (const char *p = line; *p; ++p)
            if (*p == ',' && ++commas == 3) third = p;
        if (strstr(line, "PSTMEPHEM") == nullptr || third == nullptr) {
            vk_log("[ERROR] The ephemeris data is incorrect\n");
            fclose(f);
            return VK_ERR_COMMAND;
        }
        ++s.segments;
        if (have_time) continue;
        have_time = true;
        // The fields are read whatever the line's length; past its end the
        // characters are the terminating zero's.
        char fields[9] = {0};
        strncpy(fields, third + 1, 8);
        s.start_week = uint32_t(four_chars(fields));
        s.start_tow = uint32_t(four_chars(fields + 4) * 16);
        vk_log("[DEBUG] weeknum: %d, toe: %d\n", int(s.start_week), int(s.start_tow));
        s.start_time = gps_to_utc(s.start_week, int32_t(s.start_tow), 18);
        s.end_time = s.start_time + 7200;
        // The seconds in all 64 bits on every OS (long has 32 on Windows).
        vk_log("[DEBUG] GpsTimeStartSec: %llu\n", (unsigned long long)s.start_time);
        vk_log("[DEBUG] GpsTimeEndSec: %llu\n", (unsigned long long)s.end_time);
    }
    fclose(f);
    snprintf(s.type, sizeof s.type, "GPS");
    s.valid_days = 1.0f / 12.0f;
    s.end_week = s.start_week;
    s.end_tow = s.start_tow + 7200;
    vk_print_eph_summary(s);
    return VK_OK;
}

namespace {

void append_once(char *type, size_t size, const char *name) {
    if (strstr(type, name) != nullptr) return;
    size_t len = strlen(type);
    snprintf(type + len, size - len, "+%s", name);
}

}  // namespace

uint32_t ST_GetRtcmEphInfo(const char *path) {
    VkEphSummary s{};
    FILE *f = vk_open_summary_file(path, ".rtcm", &s.file_size);
    if (f == nullptr) return VK_ERR_COMMAND;
    uint64_t consumed = 0;
    while (consumed < s.file_size) {
        uint8_t header[3] = {0};
        if (fread(header, 1, 3, f) != 3 || header[0] != 0xD3 || header[1] > 3) {
            vk_log("[ERROR] The ephemeris data is incorrect\n");
            fclose(f);
            return VK_ERR_COMMAND;
        }
        const uint32_t len = uint32_t(header[1]) << 8 | header[2];
        uint8_t msg[1023 + 3] = {0};
        fread(msg, 1, len + 3, f);  // a frame cut short ends the walk below
        consumed += 3 + len + 3;
        ++s.segments;
        const uint32_t number = uint32_t(gnss_getbitu(msg, 0, 12));
        switch (number) {
            case 1019: {
                // GPS replaces the whole text.
                if (strstr(s.type, "GPS") == nullptr) snprintf(s.type, sizeof s.type, "GPS");
                const uint32_t week = uint32_t(gnss_getbitu(msg, 18, 10)) + 2048;
                const uint32_t toe = (uint32_t(msg[36]) << 8 | msg[37]) * 16;
                const int64_t time = gps_to_utc(week, int32_t(toe), 18);
                vk_summary_time(s, week, week, toe, time);
                break;
            }
            case 1046: append_once(s.type, sizeof s.type, "GAL"); break;
            case 1042: append_once(s.type, sizeof s.type, "BDS"); break;
            case 1044: append_once(s.type, sizeof s.type, "QZS"); break;
            default: vk_log("[ERROR] Unrecognized msg id: %02X\n", number); break;
        }
    }
    fclose(f);
    s.valid_days = float(s.end_time - s.start_time) / 60.0f / 60.0f / 24.0f;
    vk_print_eph_summary(s);
    return VK_OK;
}
