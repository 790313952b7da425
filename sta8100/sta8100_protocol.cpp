// The two STA8100 dialects: "$PSTM" sentences and RTCM 3 message-999
// frames for restart, time and position, the acknowledgement and reply
// checks, and the two ephemeris senders.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "core/number.h"
#include "core/result.h"
#include "sta8100/sta8100.h"
#include "toolkit/checksum.h"
#include "toolkit/exchange.h"
#include "toolkit/frame.h"
#include "toolkit/gnss_time.h"
#include "toolkit/line_reply.h"
#include "toolkit/reply.h"
#include "toolkit/summary.h"

namespace {

constexpr char kColdStartNmea[] = "$PSTMCOLD,15*36\r\n";

// Bytes written so far by each ephemeris sender, for the progress lines.
uint32_t g_nmea_sent = 0;
uint32_t g_rtcm_sent = 0;

void put_crc24(uint8_t *frame, uint32_t covered) {
    uint32_t crc = Vk_Check_CRC24Q(0, frame, covered);
    frame[covered] = uint8_t(crc >> 16);
    frame[covered + 1] = uint8_t(crc >> 8);
    frame[covered + 2] = uint8_t(crc);
}

void log_bytes(const char *caption, const uint8_t *bytes, uint32_t n) {
    vk_log(" %s", caption);
    for (uint32_t i = 0; i < n; ++i) printf("%02X ", bytes[i]);
    printf("\n");
    fflush(stdout);
}

struct DateTime6 {
    int year, month, day, hour, minute, second;
};

DateTime6 time_of(const StTime *t) {
    DateTime6 d{};
    if (t->use_clock == 1) {
        VkDateTime now{};
        Vk_GetCurrentDateTime(&now);
        d = {now.year, now.month, now.day, now.hour, now.minute, now.second};
    } else {
        vk_scan_ints(t->text, "%d-%d-%d-%d:%d:%d", &d.year, &d.month, &d.day, &d.hour, &d.minute,
                     &d.second);
    }
    return d;
}

float percent(uint32_t sent, uint32_t total) {
    // An empty file has nothing to show; 0 % rather than a division by zero.
    return total == 0 ? 0.0f : float(sent) * 100.0f / float(total);
}

uint32_t judge_reply(const char *buf, uint32_t, const char *name, uint32_t) {
    return STA8100_CheckNmeaCmdRsp(buf, VK_REPLY_BUFFER, name);
}

VkSentence sentence(const char *short_write, uint32_t code, const char *name) {
    return {.log = " cmd: %s",
            .short_write = short_write,
            .short_write_code = code,
            .expected = name,
            .check = judge_reply,
            .wait = {.timeout_ms = 5000,
                     .initial = VK_ERR_COMMAND,
                     .no_memory = VK_ERR_COMMAND,
                     .join_partial = true}};
}

uint32_t report_ack(SerialPort port, uint32_t id) {
    uint32_t r = STA8100_CheckBinCmdRsp(port, id);
    if (r != 0)
        vk_log("[ERROR] recv ACK-ACK failed,err:0x%x\n", r);
    else
        vk_log(" recv ACK-ACK ok\n");
    return VK_OK;  // the acknowledgement is only reported
}

}  // namespace

const uint8_t kSta8100ColdStartRtcm[13] = {0xD3, 0x00, 0x07, 0x3E, 0x71, 0x00, 0x00,
                                           0x00, 0x00, 0xF0, 0x47, 0x9E, 0xEE};

void sta8100_ack_frame(uint32_t id, uint8_t out[12]) {
    const uint8_t head[9] = {
        0xD3, 0x00, 0x06, 0x3E, 0x71, uint8_t((id >> 6) | 0x30), uint8_t((id << 2) & 0xFF),
        0x00, 0x00};
    memcpy(out, head, sizeof head);
    put_crc24(out, 9);
}

void sta8100_time_frame(int year, int month, int day, int hour, int minute, int second,
                        uint8_t out[15]) {
    memset(out, 0, 15);
    out[0] = 0xD3;
    out[2] = 9;
    uint8_t *p = out + 3;
    uint32_t at = 0;
    const struct {
        uint32_t bits;
        uint64_t value;
    } fields[] = {{12, 999},
                  {4, 0},
                  {8, 0xC0},
                  {6, 12},
                  {5, uint64_t(day)},
                  {4, uint64_t(month)},
                  {12, uint64_t(year)},
                  {5, uint64_t(hour)},
                  {6, uint64_t(minute)},
                  {6, uint64_t(second)}};
    for (const auto &f : fields) {
        gnss_setbitu(p, at, f.bits, f.value);
        at += f.bits;
    }
    put_crc24(out, 12);
}

void sta8100_pos_frame(int32_t lat_arcsec, int32_t lon_arcsec, int32_t alt_m, uint8_t out[21]) {
    memset(out, 0, 21);
    out[0] = 0xD3;
    out[2] = 15;
    uint8_t *p = out + 3;
    gnss_setbitu(p, 0, 12, 999);
    gnss_setbitu(p, 12, 4, 2);
    gnss_setbitu(p, 16, 8, 0x90);
    gnss_setbitu(p, 24, 6, 41);
    gnss_setbitu(p, 30, 32, uint32_t(lat_arcsec));
    gnss_setbitu(p, 62, 32, uint32_t(lon_arcsec));
    gnss_setbitu(p, 94, 20, uint32_t(alt_m) & 0xFFFFFu);
    put_crc24(out, 18);
}

uint32_t STA8100_SendStartWay(SerialPort port, int type) {
    uint32_t result = VK_OK;
    uint8_t cmd[20] = {0};
    if (type == STA8100_NMEA) {
        memcpy(cmd, kColdStartNmea, strlen(kColdStartNmea));
    } else if (type == STA8100_RTCM) {
        memcpy(cmd, kSta8100ColdStartRtcm, sizeof kSta8100ColdStartRtcm);
    } else if (type == 0) {
        vk_log(" no start way\n");
    } else {
        vk_log("[ERROR] unknown start way\n");
        result = VK_ERR_COMMAND;
    }
    // 19 bytes are shown and all 20 are written, trailing zeros included, as
    // the receivers have always been sent it.
    log_bytes("Start cmd:", cmd, 19);
    if (serial_write(port, cmd, sizeof cmd) == sizeof cmd) result = VK_OK;
    return result;
}

uint32_t STA8100_CheckBinCmdRsp(SerialPort port, uint32_t id) {
    uint8_t expected[12];
    sta8100_ack_frame(id, expected);
    // The third check byte is never compared; a byte that breaks the match is
    // not tried again as its start; the match survives from read to read.
    uint8_t got[12];
    VkAckWait w{.match = {.value = expected, .accept_at = 11}, .out = got};
    uint32_t r = Vk_WaitReply(port,
                              {.timeout_ms = 5000,
                               .initial = VK_ERR_NO_REPLY,
                               .nothing_read = VK_ERR_COMMAND,
                               .read_size = 1024,
                               .slice_ms = 3000,
                               .stop_when_silent = true,
                               .frame_start = expected},
                              vk_judge_ack, &w);
    if (r == VK_ERR_COMMAND) vk_log("[ERROR] Without response.\n");
    return r;
}

uint32_t STA8100_SendAidTimeByBP(SerialPort port, const StTime *time) {
    DateTime6 d = time_of(time);
    vk_log(" get time: %d, %d, %d, %d, %d, %d\n", d.day, d.month, d.year, d.hour, d.minute,
           d.second);
    DateTime6 m = {d.year & 0xFFF, d.month & 0xF,   d.day & 0x1F,
                   d.hour & 0x1F,  d.minute & 0x3F, d.second & 0x3F};
    vk_log(" get time: %d, %d, %d, %d, %d, %d\n", m.day, m.month, m.year, m.hour, m.minute,
           m.second);
    uint8_t frame[15];
    sta8100_time_frame(m.year, m.month, m.day, m.hour, m.minute, m.second, frame);
    log_bytes("AID TIME cmd: ", frame, sizeof frame);
    uint32_t sent = serial_write(port, frame, sizeof frame);
    if (sent != sizeof frame) {
        vk_log("[ERROR] send time failed,actual_send:%d,len:%d\n", int(sent), int(sizeof frame));
        return STA8100_ERR_WRITE_TIME;
    }
    return report_ack(port, 12);
}

namespace {

// Latitude and longitude texts as numbers; false (after its message) when either is 0.
bool position_given(double lat, double lon) {
    if (lat != 0.0 && lon != 0.0) return true;
    vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", lat, lon);
    return false;
}

void log_position(double lat, char lat_dir, double lon, char lon_dir, double alt,
                  const DateTime6 &d) {
    vk_log(
        "[INFO] lat:%0.3f,Lat direction:%c,Lon:%0.3f,Lon direction:%c,Altitude:%0.1f,"
        "Time:%d,%d,%d,%d,%d,%d\n",
        lat, lat_dir, lon, lon_dir, alt, d.year, d.month, d.day, d.hour, d.minute, d.second);
}

}  // namespace

uint32_t STA8100_SendAidPosByBP(SerialPort port, const StPos *pos, const StTime *time) {
    float lat = strtof(pos->lat, nullptr);
    float lon = strtof(pos->lon, nullptr);
    float alt = strtof(pos->alt, nullptr);
    if (!position_given(lat, lon)) return VK_ERR_PARAM;
    log_position(lat, pos->lat_dir, lon, pos->lon_dir, alt, time_of(time));
    int32_t lat_as = degrees_to_arcseconds(lat);
    int32_t lon_as = degrees_to_arcseconds(lon);
    if (pos->lat_dir == 'S') lat_as = -lat_as;
    if (pos->lon_dir == 'W') lon_as = -lon_as;
    const int32_t alt_m = int32_t(alt);
    vk_log(" Lat:%d, Lon:%d, Alt:%d\n", lat_as, lon_as, alt_m);
    uint8_t frame[21];
    sta8100_pos_frame(lat_as, lon_as, alt_m, frame);
    log_bytes("AID POS cmd: ", frame, sizeof frame);
    uint32_t sent = serial_write(port, frame, sizeof frame);
    if (sent != sizeof frame) {
        vk_log("[ERROR] send pos failed,actual_send:%d,len:%d\n", int(sent), int(sizeof frame));
        return STA8100_ERR_WRITE_POS;
    }
    return report_ack(port, 41);
}

uint32_t STA8100_SendAidTimeByNmea(SerialPort port, const StTime *time) {
    DateTime6 d = time_of(time);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%d,%d,%d,%d,%d", "$PSTMINITTIME", d.day, d.month, d.year,
             d.hour, d.minute, d.second);
    return Vk_SendSentence(port, body,
                           sentence(VK_SHORT_WRITE_TIME, STA8100_ERR_WRITE_TIME, "$PSTMINITTIME"));
}

uint32_t STA8100_SendAidPosByNmea(SerialPort port, const StPos *pos, const StTime *time) {
    double lat = degrees_to_dmm(pos->lat);
    double lon = degrees_to_dmm(pos->lon);
    double alt = strtod(pos->alt, nullptr);
    if (!position_given(lat, lon)) return VK_ERR_PARAM;
    DateTime6 d = time_of(time);
    log_position(lat, pos->lat_dir, lon, pos->lon_dir, alt, d);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%0.3f,%c,%0.3f,%c,%0.1f,%02d,%02d,%04d,%02d,%02d,%02d",
             "$PSTMINITGPS", lat, pos->lat_dir, lon, pos->lon_dir, alt, d.day, d.month, d.year,
             d.hour, d.minute, d.second);
    return Vk_SendSentence(port, body,
                           sentence(VK_SHORT_WRITE_UART, STA8100_ERR_WRITE_POS, "$PSTMINITGPS"));
}

uint32_t STA8100_CheckNmeaCmdRsp(const char *buf, uint32_t, const char *name) {
    static const VkLineReplyRules kRules = {.error_line = "[ERROR] Send %s error.\n"};
    return vk_check_line_reply(buf, name, kRules);
}

// --- ephemeris --------------------------------------------------------------------------

namespace {

// Opens the file for its size, waits half a second and announces the transfer.
bool eph_total(const char *path, uint32_t *total) {
    if (!vk_path_size(path, total)) return false;
    platform_sleep(500000);
    vk_log("[INFO] Enter send eph...\n");
    return true;
}

uint32_t STA8100_SendEphData_Internal(SerialPort port, const char *path, uint32_t total) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return STA8100_ERR_EPH_OPEN;
    }
    uint32_t result = VK_ERR_COMMAND;
    if (g_nmea_sent == 0) vk_log("[PROGRESS] %.2f%%\r\n", double(percent(g_nmea_sent, total)));
    char line[200];
    int previous = 0;
    for (;;) {
        memset(line, 0, sizeof line);
        if (fgets(line, sizeof line, f) == nullptr) break;
        // The length shown is the previous line's, as it always has been.
        vk_log("[INFO] Read EPH: %d,%s", previous, line);
        previous = int(strlen(line));
        if (line[0] != '$') {
            vk_log("[ERROR] There is an issue with the EPH file: %s", line);
            result = STA8100_ERR_EPH_FILE;
            break;
        }
        const uint32_t written = serial_write(port, line, strlen(line));
        g_nmea_sent += written;
        vk_log("[PROGRESS] %.2f%%\r\n", double(percent(g_nmea_sent, total)));
        if (g_nmea_sent == total) result = VK_OK;
        if (written < strlen(line)) break;  // the line did not go out whole: unfinished
        platform_sleep(15000);
    }
    fclose(f);
    if (result != VK_OK) {
        vk_log("[ERROR] send [%s] to module failed\n", path);
        g_nmea_sent = 0;
    }
    return result;
}

uint32_t STA8100_SendEphDataByBP_Internal(SerialPort port, const char *path, uint32_t total) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return STA8100_ERR_EPH_OPEN;
    }
    uint32_t result = VK_ERR_COMMAND;
    if (g_rtcm_sent == 0)
        vk_log("[PROGRESS] %.2f%%,%d,%d\r\n", double(percent(g_rtcm_sent, total)), int(g_rtcm_sent),
               int(total));
    uint8_t frame[1024];
    for (;;) {
        memset(frame, 0, sizeof frame);
        size_t n = fread(frame, 1, 3, f);
        if (n == 0) break;
        if (n < 3 || frame[0] != 0xD3 || (frame[1] & 0xFC) != 0) {
            vk_log("[ERROR] There is an issue with the ephemeris file.\n");
            result = STA8100_ERR_EPH_FILE;
            break;
        }
        // "x 4", not "x 256": a frame longer than 255 bytes is mis-sized, as
        // the receivers have always been sent it.
        const uint32_t len = uint32_t(frame[1]) * 4 + frame[2];
        // A frame cut short by the end of the file fails as a wrong CRC would:
        // none of it is sent.
        const size_t got = fread(frame + 3, 1, len + 3, f);
        const uint32_t crc = Vk_Check_CRC24Q(0, frame, len + 3);
        const uint8_t *stored = frame + len + 3;
        if (got != len + 3 || stored[0] != uint8_t(crc >> 16) || stored[1] != uint8_t(crc >> 8) ||
            stored[2] != uint8_t(crc)) {
            vk_log("[ERROR] EPH file crc failed.\n");
            vk_log("[ERROR] errror: %02X %02X %02X\n", stored[0], stored[1], stored[2]);
            result = STA8100_ERR_EPH_FILE;
            break;
        }
        const uint32_t written = serial_write(port, frame, len + 6);
        g_rtcm_sent += written;
        vk_log("[PROGRESS] %.2f%%,%d,%d\r\n", double(percent(g_rtcm_sent, total)), int(g_rtcm_sent),
               int(total));
        if (g_rtcm_sent == total) result = VK_OK;
        if (written < len + 6) break;  // the frame did not go out whole: unfinished
        platform_sleep(15000);
    }
    fclose(f);
    if (result != VK_OK) vk_log("[ERROR] send [%s] to module failed\n", path);
    if (result != VK_OK || g_rtcm_sent == total) g_rtcm_sent = 0;
    return result;
}

}  // namespace

uint32_t STA8100_SendEphData(SerialPort port, const char *path) {
    uint32_t total = 0;
    if (!eph_total(path, &total)) return STA8100_ERR_EPH_OPEN;
    return STA8100_SendEphData_Internal(port, path, total);
}

uint32_t STA8100_SendEphDataByBP(SerialPort port, const char *path) {
    uint32_t total = 0;
    if (!eph_total(path, &total)) return STA8100_ERR_EPH_OPEN;
    return STA8100_SendEphDataByBP_Internal(port, path, total);
}
