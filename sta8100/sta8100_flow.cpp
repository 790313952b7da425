// The STA8100 entry, for both modes: options, the file's summary, then cold
// start, time, position (only with a time) and the ephemeris file in the
// dialect of the firmware type.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/getopt.h"
#include "core/log.h"
#include "core/options.h"
#include "sta8100/sta8100.h"

namespace {

struct StSettings {
    char module[20];
    char port[100];
    int baud;
    char file[256];
    int type;  // 0 none, 1 nmea, 2 rtcm
    int query;
    StTime time;
    StPos pos;
};

// The next comma field (empty ones skipped), or null.
const char *next_field(char **cursor) {
    char *p = *cursor;
    while (*p == ',') ++p;
    if (*p == '\0') {
        *cursor = p;
        return nullptr;
    }
    char *start = p;
    while (*p && *p != ',') ++p;
    if (*p == ',') *p++ = '\0';
    *cursor = p;
    return start;
}

void copy17(char *dst, const char *src) { snprintf(dst, 18, "%.17s", src); }

uint32_t parse_location(const char *text, StPos *pos) {
    if (strlen(text) > 63) {
        vk_log(" Location string too long: %s\n", text);
        return VK_ERR_PARAM;
    }
    vk_log("[INFO] Ref position:%s\n", text);
    char copy[64];
    snprintf(copy, sizeof copy, "%s", text);
    int commas = 0;
    for (const char *p = copy; *p; ++p) commas += *p == ',';
    if (commas != 4) {
        vk_log("[ERROR] Invalid location format, comma count: %d\n", commas);
        return VK_ERR_PARAM;
    }
    char *cursor = copy;
    const char *lat = next_field(&cursor);
    if (lat == nullptr) {
        vk_log("[ERROR] Invalid location, missing Lat field\n");
        return VK_ERR_PARAM;
    }
    const char *lat_dir = next_field(&cursor);
    if (lat_dir == nullptr) {
        vk_log("[ERROR] Invalid location, missing Lat direction field\n");
        return VK_ERR_PARAM;
    }
    const char *rest = cursor;
    const char *lon = next_field(&cursor);
    if (lon == nullptr) {
        vk_log("[ERROR] Invalid location, missing Lon field: %s\n", rest);
        return VK_ERR_PARAM;
    }
    const char *lon_dir = next_field(&cursor);
    if (lon_dir == nullptr) {
        vk_log("[ERROR] Invalid location, missing Lon direction field\n");
        return VK_ERR_PARAM;
    }
    const char *alt = next_field(&cursor);
    if (alt == nullptr) {
        vk_log("[ERROR] Invalid location, missing Altitude field\n");
        return VK_ERR_PARAM;
    }
    copy17(pos->lat, lat);
    copy17(pos->lon, lon);
    copy17(pos->alt, alt);
    pos->lat_dir = lat_dir[0];
    pos->lon_dir = lon_dir[0];
    pos->enable = 1;
    vk_log("[INFO] Pos Enable:%d,Lat:%s,Lat direction:%c,Lon:%s,Lon direction:%c,Altitude:%s\n",
           pos->enable, pos->lat, pos->lat_dir, pos->lon, pos->lon_dir, pos->alt);
    return VK_OK;
}

uint32_t parse_time(const char *text, StTime *time) {
    if (strlen(text) > 63) {
        vk_log(" Time string too long: %s\n", text);
        return VK_ERR_PARAM;
    }
    snprintf(time->text, sizeof time->text, "%s", text);
    time->enable = 1;
    vk_log("[DEBUG] enter Vk_GetCurrentDateTime: %d\r\n", int(strlen(text)));
    // "0" alone asks for the computer's clock; anything else is the date.
    time->use_clock = strcmp(text, "0") == 0;
    vk_log("[INFO] Time Enable:%d,Time:%s\n", time->enable, time->text);
    return VK_OK;
}

uint32_t parse(int argc, char **argv, StSettings *s) {
    memset(s, 0, sizeof *s);
    vk_getopt_reset();
    int c;
    while ((c = vk_getopt(argc, argv, "m:o:p:b:f:b:s:u:l:t:R:T:q::")) != -1) {
        const char *v = vk_optarg;
        uint32_t ret = VK_OK;
        switch (c) {
            case 'b':
                s->baud = atoi(v);
                vk_log("[INFO] Baud rate:%d\n", s->baud);
                break;
            case 'f':
                snprintf(s->file, sizeof s->file, "%.255s", v);
                vk_log("[INFO] File: %s\n", s->file);
                break;
            case 'l': ret = parse_location(v, &s->pos); break;
            case 'm':
                snprintf(s->module, sizeof s->module, "%.19s", v);
                vk_log("[INFO] Module: %s\n", s->module);
                break;
            case 'p':
                snprintf(s->port, sizeof s->port, "%s", v);
                vk_log("[INFO] Port: %s\n", s->port);
                break;
            case 'q': s->query = 1; break;
            case 't':
                if (strncmp(v, "rtcm", 4) == 0) {
                    s->type = STA8100_RTCM;
                } else if (strncmp(v, "nmea", 4) == 0) {
                    s->type = STA8100_NMEA;
                } else {
                    vk_log("[ERROR] Unknow firmware type: %s\n", v);
                    return VK_ERR_PARAM;
                }
                vk_log("[INFO] Firmware type: %s\n", v);
                break;
            case 'u': ret = parse_time(v, &s->time); break;
            default: break;  // o, s, R, T: no start-way choice here, always a cold start
        }
        if (ret != VK_OK) return ret;
    }
    return VK_OK;
}

const char kUsage[] = "./vk_agnss -m STA8100 -f ephemeris.rtcm -p COM3 -b 115200 -t rtcm -o online";

}  // namespace

uint32_t STA8100_AgnssOnline(int argc, char **argv) {
    vk_log("[INFO] enter STA8100_AgnssOnline\n");
    StSettings s;
    uint32_t result = parse(argc, argv, &s);
    if (result != VK_OK) return result;
    result = vk_check_file_access(s.file);
    if (result != VK_OK) return result;
    if (s.type == STA8100_RTCM) {
        result = ST_GetRtcmEphInfo(s.file);
    } else if (s.type == STA8100_NMEA) {
        result = ST_GetNmeaEphInfo(s.file);
    } else {
        vk_log("[ERROR] Need to specify ephemeris type, such as rtcm or nmea\n");
        return VK_ERR_PARAM;
    }
    if (s.query) return result;
    if (s.port[0] == '\0' || s.baud == 0 || s.type == 0) {
        vk_print_usage(kUsage);
        return VK_ERR_PARAM;
    }
    SerialPort port = serial_open(s.port, uint32_t(s.baud));
    if (!serial_is_open(port)) {
        vk_log("[ERROR] Fail to open %s\n", s.port);
        fprintf(stderr, "vkagnss: %s\n", serial_last_error().what);
        return VK_ERR_PORT_OPEN;
    }
    const bool rtcm = s.type == STA8100_RTCM;
    result = STA8100_SendStartWay(port, s.type);
    vk_log("[INFO] STA8100_SendStartWay ret: 0x%x\n", result);
    platform_sleep(1000000);
    // A failed aid ends the run at once; the port stays open, as it always
    // has, and the process ends right after.
    if (result == VK_OK && s.time.enable) {
        result = rtcm ? STA8100_SendAidTimeByBP(port, &s.time)
                      : STA8100_SendAidTimeByNmea(port, &s.time);
        vk_log("[INFO] STA8100_SendAidTime ret: 0x%x\n", result);
        if (result != VK_OK) return VK_ERR_NO_BACKEND;
    }
    // A position is only sent with a time.
    if (result == VK_OK && s.pos.enable && s.time.enable) {
        result = rtcm ? STA8100_SendAidPosByBP(port, &s.pos, &s.time)
                      : STA8100_SendAidPosByNmea(port, &s.pos, &s.time);
        vk_log("[INFO] STA8100_SendAidPos ret: 0x%x\n", result);
        if (result != VK_OK) return VK_ERR_NO_BACKEND;
    }
    if (result != VK_OK) {
        serial_close(port);
        return result;
    }
    result = rtcm ? STA8100_SendEphDataByBP(port, s.file) : STA8100_SendEphData(port, s.file);
    vk_log("[INFO] STA8100_SendEphData ret: 0x%x\n", result);
    serial_close(port);
    return result;
}
