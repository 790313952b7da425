// The TQ934N entry, for both modes: options, the file's summary, then by the
// file's size mode 1 (restart, 2 s, time, position, ephemeris) or mode 2
// (clear, 3 s, position, ephemeris, 10 s, time).
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/getopt.h"
#include "core/log.h"
#include "core/number.h"
#include "core/options.h"
#include "toolkit/session.h"
#include "tq934n/tq934n.h"

namespace {

struct TqSettings {
    VkBasicSettings basic;
    int start_way;
    VkTimeAid time;
    VkPosAid pos;
};

uint32_t parse_location(const char *text, VkPosAid *pos) {
    char copy[64];
    uint32_t r =
        vk_comma_text(text, " Location string too long: %s\n", "[INFO] Ref position:%s\n", 3, copy);
    if (r != VK_OK) return r;
    static const char *const kMissing[4] = {"[ERROR] Invalid location, missing Lat field\n",
                                            "[ERROR] Invalid location, missing Lon field: %s\n",
                                            "[ERROR] Invalid location, missing Altitude field\n",
                                            "[ERROR] Invalid location, missing PosAcc field\n"};
    const char *f[4];
    r = vk_take_fields(copy, kMissing, f);
    if (r != VK_OK) return r;
    const char *lat = f[0], *lon = f[1], *alt = f[2], *acc = f[3];
    snprintf(pos->lat, sizeof pos->lat, "%.17s", lat);
    snprintf(pos->lon, sizeof pos->lon, "%.17s", lon);
    snprintf(pos->alt, sizeof pos->alt, "%.17s", alt);
    snprintf(pos->acc, sizeof pos->acc, "%.17s", acc);
    pos->enable = 1;
    vk_log("[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,PosAcc:%s\n", pos->enable, pos->lat,
           pos->lon, pos->alt, pos->acc);
    return VK_OK;
}

// The time's messages name the location in places, as they always have.
uint32_t parse_time(const char *text, VkTimeAid *time) {
    char copy[64];
    uint32_t r =
        vk_comma_text(text, " Time string too long: %s\n", "[INFO] time data:%s\n", 3, copy);
    if (r != VK_OK) return r;
    static const char *const kMissing[4] = {"[ERROR] Invalid time, missing Type field\n",
                                            "[ERROR] Invalid location, missing DateTime field\n",
                                            "[ERROR] Invalid location, missing LeapSec field\n",
                                            "[ERROR] Invalid location, missing Accuracy field\n"};
    const char *fields[4];
    r = vk_take_fields(copy, kMissing, fields);
    if (r != VK_OK) return r;
    time->type = vk_atoi(fields[0]);
    snprintf(time->utc, sizeof time->utc, "%.32s", fields[1]);
    time->leap = vk_atoi(fields[2]);
    snprintf(time->accuracy, sizeof time->accuracy, "%.17s", fields[3]);
    time->enable = 1;
    vk_log("[INFO] Time Enable:%d,Mode:%d,Time:%s,LeapSec:%d,Accuracy:%s\n", time->enable,
           time->type, time->utc, time->leap, time->accuracy);
    return VK_OK;
}

uint32_t parse(int argc, char **argv, TqSettings *s) {
    memset(s, 0, sizeof *s);
    static const VkOptionRules kStartWays = {};
    vk_getopt_reset();
    int c;
    while ((c = vk_getopt(argc, argv, "m:o:p:b:f:b:s:u:l:t:R:T:q::")) != -1) {
        const char *v = vk_optarg;
        uint32_t ret = VK_OK;
        if (vk_basic_option(c, v, &s->basic)) continue;
        switch (c) {
            case 'l': ret = parse_location(v, &s->pos); break;
            case 's': s->start_way = vk_parse_start_way(v, &kStartWays); break;
            case 'u': ret = parse_time(v, &s->time); break;
            default: break;  // o, t, R, T belong elsewhere
        }
        if (ret != VK_OK) return ret;
    }
    return VK_OK;
}

const char kUsage[] = "./vk_agnss -m TQ934N -f ephemeris.rtcm3 -p COM3 -b 115200 -o online";

// The aid time's rule: a rejected time (0x107) lets the run go on.
bool time_failed(uint32_t result) { return result != VK_OK && result != VK_ERR_COMMAND; }

}  // namespace

uint32_t TQ934N_AgnssOnline(int argc, char **argv) {
    vk_log("[INFO] enter TQ934N_Agnss\n");
    TqSettings s;
    uint32_t result = parse(argc, argv, &s);
    if (result != VK_OK) return result;
    if (s.basic.query) return VK_OK;
    result = TQ934N_GetRtcmEphInfo(s.basic.file);
    vk_log("[INFO] Get RTCM EPH Info from %s\n", s.basic.file);
    vk_log(" rtcm_start_pos: %d\n ", rtcm_start_pos);
    if (result != VK_OK) return result;
    result = vk_check_file_access(s.basic.file);
    if (result != VK_OK) return result;
    if (s.basic.port[0] == '\0' || s.basic.baud == 0 || s.start_way == -1) {
        vk_print_usage(kUsage);
        return VK_ERR_PARAM;
    }
    SerialPort port;
    result = Vk_OpenPort(s.basic.port, s.basic.baud, "[ERROR] Fail to open %s\n", &port);
    if (result != VK_OK) return result;
    // The early 0xFFFFFFFF returns leave the port open, as they always have;
    // the process ends right after.
    const int mode = AGNSS_MODE;
    if (mode == 1) {
        if (s.start_way != 0) {
            result = TQ934N_SendStartWay(port, s.start_way);
            vk_log("[INFO] TQ934N Send StartWay ret: 0x%x\n", result);
            if (result != VK_OK) return VK_ERR_NO_BACKEND;
        }
        platform_sleep(2000000);
        if (s.time.enable) {
            result = TQ934N_SendAidTimeByNmea(port, &s.time);
            vk_log("[INFO] TQ934N_SendAidTime ret: 0x%x\n", result);
            if (time_failed(result)) return VK_ERR_NO_BACKEND;
        }
    } else {
        result = TQ934N_Send_CLRADAT(port);
        if (result != VK_OK) return result;
        vk_log(" AGNSS_MODE :%d", mode);
        platform_sleep(3000000);
    }
    if (result == VK_OK && s.pos.enable) {
        result = TQ934N_SendAidPosByNmea(port, &s.pos);
        vk_log("[INFO] TQ934N_SendAidPos ret: 0x%x\n", result);
        if (result != VK_OK) return VK_ERR_NO_BACKEND;
    }
    if (result == VK_OK || result == VK_ERR_COMMAND) {
        result = TQ934N_SendEphDataByBP(port, s.basic.file, mode);
        vk_log("[INFO] TQ934N_SendEphData ret: 0x%x\n", result);
        if (result != VK_OK) return VK_ERR_NO_BACKEND;
    }
    if (mode == 2) {
        platform_sleep(10000000);
        if (result == VK_OK && s.time.enable) {
            result = TQ934N_SendAidTimeByNmea(port, &s.time);
            vk_log("[INFO] TQ934N_SendAidTime ret: 0x%x\n", result);
            if (time_failed(result)) return VK_ERR_NO_BACKEND;
        }
    }
    serial_close(port);
    return result;
}
