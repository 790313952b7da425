#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "dw2207b/dw2207b.h"
#include "serial/serial.h"
#include "toolkit/checksum.h"
#include "toolkit/exchange.h"

namespace {

const char kAck[] = "$OK*04";

uint32_t check_contains(const char *buf, uint32_t len, const char *expected, uint32_t current) {
    if (!Vk_ContainsText(buf, len, expected)) return current;  // other text: keep the result
    vk_log(" RECV ACK ok\n");
    return 0;
}

// Every command is acknowledged by "$OK*04"; other text keeps the wait going.
VkSentence command(const char *log, const char *short_write, uint32_t code, uint32_t timeout_ms) {
    return {.log = log,
            .short_write = short_write,
            .short_write_code = code,
            .expected = kAck,
            .check = check_contains,
            .wait = {.timeout_ms = timeout_ms}};
}

enum { RTCM_MAX_FRAME = 1024 };

}  // namespace

uint32_t DW2207B_SendStartWay(SerialPort port, int start_way) {
    const char *body;
    switch (start_way) {
        case 0: vk_log(" no start way\n"); return 0;
        case 1: body = "$RESET,0,h00"; break;
        case 2: body = "$RESET,0,h01"; break;
        case 3: body = "$RESET,0,hFF"; break;
        default: return VK_ERR_COMMAND;
    }
    return Vk_SendSentence(port, body,
                           command(" Start cmd:%s", VK_SHORT_WRITE_START, VK_ERR_COMMAND, 2000));
}

uint32_t DW2207B_SendAidTime(SerialPort port, const VkTimeAid *time) {
    VkDateTime t;
    vk_aid_time(time, &t);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%d,%d,%d,%d,%d,%d", "$AIDTIME", t.year, t.month, t.day,
             t.hour, t.minute, t.second, 0);
    return Vk_SendSentence(
        port, body,
        command(" AID TIME cmd: %s", VK_SHORT_WRITE_TIME, DW2207B_ERR_WRITE_TIME, 3000));
}

uint32_t DW2207B_SendAidPos(SerialPort port, const VkPosAid *pos) {
    // The module takes decimal degrees scaled by 100, not degree-minutes.
    double lat = strtod(pos->lat, nullptr) * 100;
    double lon = strtod(pos->lon, nullptr) * 100;
    double alt = strtod(pos->alt, nullptr);
    if (lat == 0 || lon == 0) {
        vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", lat, lon);
        return VK_ERR_PARAM;
    }
    char lat_dir = 'N', lon_dir = 'E';
    if (lat < 0) {
        lat_dir = 'S';
        lat = -lat;
    }
    if (lon < 0) {
        lon_dir = 'W';
        lon = -lon;
    }
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%0.6f,%c,%0.6f,%c,%0.1f", "$AIDPOS", lat, lat_dir, lon, lon_dir,
             alt);
    return Vk_SendSentence(
        port, body, command(" AID POS cmd: %s", VK_SHORT_WRITE_UART, DW2207B_ERR_WRITE_POS, 3000));
}

uint32_t DW2207B_SendEphData(SerialPort port, const char *path) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return DW2207B_ERR_EPH_OPEN;
    }
    fseek(f, 0, SEEK_END);
    long size_l = ftell(f);
    fseek(f, 0, SEEK_SET);
    int size = int(size_l < 0 ? 0 : size_l);
    int sent = 0;
    uint32_t result = VK_ERR_COMMAND;
    uint8_t frame[RTCM_MAX_FRAME + 6];
    uint32_t crc = 0;

    vk_log("[INFO] Enter send eph...\n");
    vk_log("[PROGRESS] %.2f%%,%d,%d\r\n", 0.0, 0, size);
    for (;;) {
        memset(frame, 0, sizeof frame);
        size_t got = fread(frame, 1, 3, f);
        if (got == 0) break;  // end of file
        if (got < 3 || frame[0] != 0xD3 || (frame[1] & 0xFC) != 0) {
            vk_log("[ERROR] There is an issue with the ephemeris file.\n");
            result = DW2207B_ERR_EPH_FILE;
            break;
        }
        uint32_t length = uint32_t(frame[1] & 3) * 256 + frame[2];
        size_t want = length + 3;
        got = fread(frame + 3, 1, want, f);
        // A short read keeps the previous frame's CRC for the comparison.
        if (got == want) crc = Vk_Check_CRC24Q(0, frame, length + 3);
        uint32_t stored = uint32_t(frame[length + 3]) << 16 | uint32_t(frame[length + 4]) << 8 |
                          frame[length + 5];
        if (got != want || crc != stored) {
            vk_log("[ERROR] EPH file crc failed.\n");
            vk_log("[ERROR] errror: %02X %02X %02X\n", frame[length + 3], frame[length + 4],
                   frame[length + 5]);
            result = DW2207B_ERR_EPH_FILE;
            break;
        }
        uint32_t written = serial_write(port, frame, length + 6);
        // The 5 ms pause counts from the moment the write returned (on a
        // serial port the port layer drains, so the frame has left by then):
        // the progress line goes out inside the pause rather than before it,
        // and the wait ends on that deadline, not a wake-up latency after it.
        const uint64_t resume_at_us = vk_clock_us() + 5000;
        sent += int(written);
        float progress = float(100LL * sent) / float(size);
        vk_log("[PROGRESS] %.2f%%,%d,%d\r\n", progress, sent, size);
        if (sent == size) result = 0;
        // A frame that did not go out whole (the port went away, or the
        // receiver stopped taking data) leaves the file unfinished whatever
        // follows: streaming the rest would only feed nothing.
        if (written < length + 6) break;
        platform_sleep_until(resume_at_us);
    }
    fclose(f);
    if (result == 0) return 0;
    vk_log("[ERROR] send [%s] to module failed\n", path);
    return result;
}
