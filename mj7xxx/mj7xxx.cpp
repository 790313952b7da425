// MJ7XXX over the HD8XXX sentence layer: only what differs is here (the
// failure wordings, the aiding mode value, the silent-receiver rule, the
// restart check and the initial-aiding sentence).
#include "mj7xxx/mj7xxx.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/log.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/hd8xxx_nmea.h"
#include "toolkit/session.h"

namespace {

const HdReplyWords kReplyWords = {
    .not_ok = "[ERROR] [*]Send %s failed,err_code:%d\n",
    .no_field = "[ERROR] [x]Send %s failed,err_code:%d\n",
};

// The Type of -l or -A when its two low bits say something, else 1.
int aiding_mode(int type) { return (type & 3) != 0 ? type : 1; }

uint32_t check_reply(const char *buf, uint32_t len, const char *name, uint32_t) {
    return MJ7XXX_CheckNmeaCmdRsp(buf, len, name);
}

// The time reply's reads are also shown in hex.
uint32_t check_time_reply(const char *buf, uint32_t len, const char *name, uint32_t current) {
    printf("\r\n");
    for (uint32_t i = 0; i < len; ++i) printf("%02X ", uint8_t(buf[i]));
    printf("\r\n");
    fflush(stdout);
    return check_reply(buf, len, name, current);
}

uint32_t check_restart(const char *buf, uint32_t len, const char *name, uint32_t) {
    return MJ7XXX_CheckCmdContain(buf, len, name, "V");
}

const VkSessionRules kOnline = {
    .entry_line = "[INFO] enter MJ7XXX Agnss Online\n",
    .options = {.optstring = "m:o:p:b:s:u:l:R:T:A:f:",
                .pos_enable_format = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n",
                .location_type = true,
                .location_accuracy = "Accuracy"},
    .usage =
        "./vk_agnss -m MJ7XXX -p COM3 -b 115200 -o online -sCOLD "
        "-A1,31.2304,121.4737,10.5,2026-01-08-09:59:17,18",
    .opened = nullptr,
};

}  // namespace

uint32_t MJ7XXX_SendStartWay(SerialPort port, int start_way) {
    return hd8xxx_start_way(port, start_way, 0, VK_SHORT_WRITE_START);
}

uint32_t MJ7XXX_CheckCmdContain(const char *buf, uint32_t len, const char *name,
                                const char *field) {
    std::vector<std::string> fields;
    uint32_t r = hd8xxx_reply_fields(buf, len, name, &fields);
    if (r != VK_OK) return r;
    for (const std::string &f : fields) {
        if (f == field) {
            vk_log("[INFO] send %s ok, found field=%s\n", name, field);
            return VK_OK;
        }
    }
    vk_log("[ERROR] Send %s failed, not found field=%s\n", name, field);
    return HD8XXX_ERR_REPLY;
}

uint32_t MJ7XXX_CheckCmdRsp(SerialPort port) {
    // A restarted receiver reports "no fix yet" (status V) in its RMC sentences.
    return Vk_WaitReply(port, "$GNRMC", check_restart, hd8xxx_reply_wait(VK_ERR_NO_REPLY));
}

uint32_t MJ7XXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name) {
    return hd8xxx_check_reply(buf, len, name, kReplyWords);
}

uint32_t MJ7XXX_SendAidPosByNmea(SerialPort port, const VkPosAid *pos) {
    double v[4];
    if (!hd8xxx_read_position(pos, v)) return VK_ERR_PARAM;
    vk_log("[INFO] lat: %0.6f,lon: %0.6f,altitude:%0.6f\n", v[0], v[1], v[2]);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%0.6f,%0.6f,%0.6f,%0.1f", "$PVNKAIDPOS",
             aiding_mode(pos->type), v[0], v[1], v[2], v[3]);
    // A receiver that stays silent is taken as having accepted it.
    return Vk_SendSentence(port, body,
                           hd8xxx_aid_sentence(" cmd: %s", VK_SHORT_WRITE_UART, HD8XXX_ERR_REPLY,
                                               "$PVNKAIDPOS", check_reply, VK_OK));
}

uint32_t MJ7XXX_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time) {
    char body[VK_SENTENCE_SIZE];
    hd8xxx_time_body(body, sizeof body, time);
    return Vk_SendSentence(
        port, body,
        hd8xxx_aid_sentence("[INFO] cmd: %s", VK_SHORT_WRITE_TIME, HD8XXX_ERR_WRITE, "$PVNKAIDTIME",
                            check_time_reply, VK_ERR_NO_REPLY));
}

uint32_t MJ7XXX_SendAidInfoByNmea(SerialPort port, const VkAidInit *aidi) {
    double lat = strtod(aidi->lat, nullptr);
    double lon = strtod(aidi->lon, nullptr);
    if (lat == 0.0 || lon == 0.0) {
        vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", lat, lon);
        return VK_ERR_PARAM;
    }
    // The date and time are always the computer's, whatever UTC0 says.
    VkDateTime t{};
    Vk_GetCurrentDateTime(&t);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%0.6f,%0.6f,%0.6f,%0.1f,%d,%d,%d,%d,%d,%d,%d,%d,%d,%0.1f",
             "$PVNKAIDINI", aiding_mode(aidi->type), lat, lon, strtod(aidi->alt, nullptr),
             strtod(aidi->pos_acc, nullptr), 1, aidi->leap, t.year, t.month, t.day, t.hour,
             t.minute, t.second, t.millisecond, strtod(aidi->time_acc, nullptr));
    return Vk_SendSentence(port, body,
                           hd8xxx_aid_sentence(" cmd: %s", VK_SHORT_WRITE_UART, HD8XXX_ERR_REPLY,
                                               "$PVNKAIDINI", check_reply, VK_OK));
}

// Every aiding step asked for runs; a failed restart check ends the run at once.
uint32_t MJ7XXX_AgnssOnline(int argc, char **argv) {
    vk_log("%s", kOnline.entry_line);
    VkSession s;
    uint32_t result = vk_parse_options(argc, argv, &kOnline.options, &s.opts);
    if (result != VK_OK) return result;
    const VkOptions &o = s.opts;
    if (!vk_options_complete(&o)) {
        vk_print_usage(kOnline.usage);
        return VK_ERR_PARAM;
    }
    result = vk_open_port(kOnline, &s);
    if (result != VK_OK) return result;
    if (o.start_way != 0) {
        result = MJ7XXX_SendStartWay(s.port, o.start_way);
        if (result == VK_OK) {
            result = MJ7XXX_CheckCmdRsp(s.port);
            if (result != VK_OK) {
                // The port stays open here, as it always has; the process ends right after.
                vk_log("[ERROR] Check  Locked-out state 'V' failed ret: 0x%x\n", result);
                return result;
            }
        }
    }
    if (o.time.enable) {
        result = MJ7XXX_SendAidTimeByNmea(s.port, &o.time);
        platform_sleep(200000);
    }
    if (o.pos.enable) {
        result = MJ7XXX_SendAidPosByNmea(s.port, &o.pos);
        platform_sleep(200000);
    }
    if (o.aidi.type != 0) {
        result = MJ7XXX_SendAidInfoByNmea(s.port, &o.aidi);
        platform_sleep(200000);
    }
    serial_close(s.port);
    return result;
}
