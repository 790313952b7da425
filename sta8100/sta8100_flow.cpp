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
#include "toolkit/session.h"

namespace {

struct StSettings {
    VkBasicSettings basic;
    int type;  // 0 none, 1 nmea, 2 rtcm
    StTime time;
    StPos pos;
};

void copy17(char *dst, const char *src) { snprintf(dst, 18, "%.17s", src); }

uint32_t parse_location(const char *text, StPos *pos) {
    char copy[64];
    uint32_t r =
        vk_comma_text(text, " Location string too long: %s\n", "[INFO] Ref position:%s\n", 4, copy);
    if (r != VK_OK) return r;
    static const char *const kMissing[5] = {
        "[ERROR] Invalid location, missing Lat field\n",
        "[ERROR] Invalid location, missing Lat direction field\n",
        "[ERROR] Invalid location, missing Lon field: %s\n",
        "[ERROR] Invalid location, missing Lon direction field\n",
        "[ERROR] Invalid location, missing Altitude field\n"};
    const char *f[5];
    r = vk_take_fields(copy, kMissing, f);
    if (r != VK_OK) return r;
    const char *lat = f[0], *lat_dir = f[1], *lon = f[2], *lon_dir = f[3], *alt = f[4];
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
        if (vk_basic_option(c, v, &s->basic)) continue;
        switch (c) {
            case 'l': ret = parse_location(v, &s->pos); break;
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
    result = vk_check_file_access(s.basic.file);
    if (result != VK_OK) return result;
    if (s.type == STA8100_RTCM) {
        result = ST_GetRtcmEphInfo(s.basic.file);
    } else if (s.type == STA8100_NMEA) {
        result = ST_GetNmeaEphInfo(s.basic.file);
    } else {
        vk_log("[ERROR] Need to specify ephemeris type, such as rtcm or nmea\n");
        return VK_ERR_PARAM;
    }
    if (s.basic.query) return result;
    if (s.basic.port[0] == '\0' || s.basic.baud == 0 || s.type == 0) {
        vk_print_usage(kUsage);
        return VK_ERR_PARAM;
    }
    SerialPort port;
    result = Vk_OpenPort(s.basic.port, s.basic.baud, "[ERROR] Fail to open %s\n", &port);
    if (result != VK_OK) return result;
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
    result = rtcm ? STA8100_SendEphDataByBP(port, s.basic.file)
                  : STA8100_SendEphData(port, s.basic.file);
    vk_log("[INFO] STA8100_SendEphData ret: 0x%x\n", result);
    serial_close(port);
    return result;
}
