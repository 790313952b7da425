// The TQ934N "$PVNK" commands, their reply check, and the binary time frame.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/number.h"
#include "toolkit/exchange.h"
#include "toolkit/frame.h"
#include "toolkit/gnss_time.h"
#include "toolkit/line_reply.h"
#include "tq934n/tq934n.h"

uint8_t gCmd[TQ934N_CMD_SIZE];

void polGenCmd(const uint32_t *words, uint32_t count, uint32_t extra) {
    memset(gCmd, 0, sizeof gCmd);
    uint8_t payload[TQ934N_CMD_SIZE - 8] = {0};
    uint32_t n = 0;
    for (uint32_t w = 0; w < count && n + 4 <= sizeof payload; ++w)
        for (int b = 0; b < 4; ++b) payload[n++] = uint8_t(words[w] >> (8 * b));
    for (uint32_t b = 0; b < extra && b < 4 && n < sizeof payload; ++b)
        payload[n++] = uint8_t(words[count] >> (24 - 8 * b));
    // 'B' 'K' | CRC-16/XMODEM of class .. payload, high byte first | 18 03 | length
    vk_frame_build(kVkFrameBk, 0x1803, std::span(payload, n), gCmd);
}

namespace {

uint32_t judge_reply(const char *buf, uint32_t, const char *name, uint32_t) {
    return TQ934N_CheckNmeaCmdRsp(buf, VK_REPLY_BUFFER, name);
}

VkSentence command(const char *log, const char *short_write, uint32_t code, const char *expected) {
    return {.log = log,
            .short_write = short_write,
            .short_write_code = code,
            .expected = expected,
            .check = judge_reply,
            .wait = {.timeout_ms = 10000, .initial = VK_ERR_COMMAND, .join_partial = true}};
}

struct Date7 {
    int year, month, day, hour, minute, second, millisecond;
};

}  // namespace

uint32_t TQ934N_CheckNmeaCmdRsp(const char *buf, uint32_t, const char *name) {
    // A refused aid time is deliberately not an error.
    static const VkLineReplyRules kRules = {.error_line = " Send %s error.\n",
                                            .error_is_done_for = "$PVNKAIDTIME"};
    return vk_check_line_reply(buf, name, kRules);
}

uint32_t TQ934N_SendStartWay(SerialPort port, int way) {
    static const char *const kBodies[4] = {"", "$PVNKHOT", "$PVNKWARM", "$PVNKCOLD"};
    if (way < 0 || way > 3) return VK_ERR_COMMAND;
    // Way 0 still writes the trailer of the empty text.
    if (way == 0) vk_log(" no start way\n");
    return Vk_SendSentence(
        port, kBodies[way],
        command("[INFO] send cmd:%s ", VK_SHORT_WRITE_START, VK_ERR_COMMAND, nullptr));
}

uint32_t TQ934N_Send_CLRADAT(SerialPort port) {
    return Vk_SendSentence(
        port, "$PVNKCLRADAT",
        command("[INFO] send cmd:%s ", VK_SHORT_WRITE_START, VK_ERR_COMMAND, "$PVNKCLRADAT"));
}

uint32_t TQ934N_SendAidPosByNmea(SerialPort port, const VkPosAid *pos) {
    const double lat = strtod(pos->lat, nullptr), lon = strtod(pos->lon, nullptr);
    const double alt = strtod(pos->alt, nullptr), acc = strtod(pos->acc, nullptr);
    vk_log("[INFO] lat:%s,Lon:%s,Altitude:%s,PosAcc:%s\n", pos->lat, pos->lon, pos->alt, pos->acc);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%0.6f,%0.6f,%0.2f,%0.3f", "$PVNKAIDPOS", 1, lat, lon, alt,
             acc);
    return Vk_SendSentence(
        port, body, command(" cmd: %s", VK_SHORT_WRITE_UART, TQ934N_ERR_WRITE_POS, "$PVNKAIDPOS"));
}

uint32_t TQ934N_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time) {
    VkDateTime t;
    vk_aid_time(time, &t);
    t.millisecond = 0;  // also when the clock gave some
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%d,%d,%02d,%02d,%02d,%02d,%02d,%03d,%s,%d", "$PVNKAIDTIME",
             1, time->leap, t.year, t.month, t.day, t.hour, t.minute, t.second, t.millisecond,
             time->accuracy, 0);
    vk_log(
        "[INFO] time_info.year:%d,time_info.month:%d,time_info.day:%d,time_info.hour:%d,"
        "time_info.minute:%d,time_info.second:%d,time_info.millisecond:%d\n",
        t.year, t.month, t.day, t.hour, t.minute, t.second, t.millisecond);
    return Vk_SendSentence(
        port, body,
        command(" cmd: %s", VK_SHORT_WRITE_TIME, TQ934N_ERR_WRITE_TIME, "$PVNKAIDTIME"));
}

namespace {

void log_hex(const char *caption, const uint8_t *bytes, uint32_t n) {
    vk_log(" %s", caption);
    for (uint32_t i = 0; i < n; ++i) printf("%02X ", bytes[i]);
    printf("\n");
    fflush(stdout);
}

}  // namespace

uint32_t TQ934N_SendAidTimeByBP(SerialPort port, const VkTimeAid *time) {
    VkDateTime t{};
    if (time->type == 0) {
        vk_scan_ints(time->utc, "%d-%d-%d-%d:%d:%d:%d", &t.year, &t.month, &t.day, &t.hour,
                     &t.minute, &t.second, &t.millisecond);
    } else {
        Vk_GetCurrentDateTime(&t);
    }
    int32_t leap_table[12] = {0};
    leap_table[11] = time->leap;
    uint32_t week = 0;
    double tow_ms = 0;
    convert_utc_to_gps(t, &week, &tow_ms, leap_table);
    VkDateTime back{};
    convert_gps_to_utc(week, tow_ms, uint32_t(time->leap), &back);
    vk_log(" get time: %d, %d, %d, %d, %d, %d , %d\n", back.day, back.month, back.year, back.hour,
           back.minute, back.second, back.millisecond);
    const uint32_t words[3] = {week, uint32_t(tow_ms / 1000.0), uint32_t(time->leap)};
    polGenCmd(words, 3, 0);
    if (rtcm_start_pos < 1) {
        uint32_t sent = serial_write(port, gCmd, 20);
        // One byte more is shown than is sent, as it always has been.
        log_hex("AID TIME2 cmd: ", gCmd, 21);
        vk_log(" \n");
        if (sent != 20) {
            vk_log("[ERROR] send time failed,actual_send:%d,len:%d\n", int(sent), 20);
            return TQ934N_ERR_WRITE_TIME;
        }
    } else {
        serial_write(port, RecvBuff_time, uint32_t(rtcm_start_pos));
        vk_log(" rtcm_start_pos: %d\n", rtcm_start_pos);
        log_hex("AID TIME1 cmd: ", RecvBuff_time,
                rtcm_start_pos < 21 ? uint32_t(rtcm_start_pos) : 21);
    }
    if (AGNSS_MODE == 2) platform_sleep(5000000);
    memset(gCmd, 0, sizeof gCmd);
    // Without a deadline: only an acknowledgement (or a failed resend) ends it.
    uint32_t result = VK_ERR_COMMAND;
    static char buf[VK_REPLY_BUFFER];
    for (;;) {
        uint32_t n = serial_read(port, buf, sizeof buf, 200);
        if (n == 0) {
            result = VK_ERR_NO_REPLY;
            vk_log(" No data received\n");
            if (serial_port_gone(port)) return result;  // the endless wait has nothing to wait for
            continue;
        }
        if (n <= 5) {
            vk_log(" Received data too short for processing\n");
            continue;
        }
        const uint8_t *b = reinterpret_cast<const uint8_t *>(buf);
        for (uint32_t i = 0; i + 6 <= n; ++i) {
            if (b[i] != 'B' || b[i + 1] != 'K') continue;
            if (b[i + 4] == 0x19 && b[i + 5] == 0x03) {
                result = VK_OK;
                vk_log(" ACK OK - Type 1\n");
                break;
            }
            if (result == VK_ERR_COMMAND) {
                // gCmd is all zero by now; the resend is kept as it always was.
                uint32_t sent = serial_write(port, gCmd, 20);
                if (sent != 20) {
                    vk_log("[ERROR] uart send failed,actual_send:%d,len:%d\n", int(sent), 20);
                    return TQ934N_ERR_WRITE_POS;
                }
            }
        }
        if (result == VK_OK) return VK_OK;
        vk_log(" No valid ACK found in received data\n");
    }
}
