// The HD binary protocol (F1 D9 frames, ACK/NAK), the restart, time and
// position aiding in both families (binary frames and "$PVNK" sentences), and
// the port adapters the YMODEM sender is given.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "core/log.h"
#include "core/number.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/hd8xxx_nmea.h"
#include "toolkit/exchange.h"
#include "toolkit/frame.h"
#include "toolkit/reply.h"

// --- the fixed frames ---------------------------------------------------------------------

namespace {

constexpr uint8_t kStartCold[9] = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x01, 0x48, 0x22};
constexpr uint8_t kStartWarm[9] = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x02, 0x49, 0x23};
constexpr uint8_t kStartHot[9] = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x03, 0x4A, 0x24};

// The start sentences are kept with their terminating NUL, which the write leaves out.
constexpr char kNmeaCold[] = "$PVNKCOLD*07\r\n";
constexpr char kNmeaWarm[] = "$PVNKWARM*0A\r\n";
constexpr char kNmeaHot[] = "$PVNKHOT*50\r\n";

SerialPort g_port = SERIAL_NO_PORT;  // the YMODEM adapters' port

}  // namespace

const uint8_t kHd8xxxClearFrame[16] = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                                       0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x21, 0x23};
const uint8_t kHd8xxxFactoryResetFrame[16] = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                                              0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0x15, 0x01};
const uint8_t kHd8xxxYmodemFrame[8] = {0xF1, 0xD9, 0x02, 0x41, 0x00, 0x00, 0x43, 0xCB};

std::span<const uint8_t> hd8xxx_start_frame(int start_way) {
    switch (start_way) {
        case 1: return kStartHot;
        case 2: return kStartWarm;
        case 3: return kStartCold;
        default: return {};
    }
}

// --- acknowledgements ---------------------------------------------------------------------

VkFrameMatch hd8xxx_ack_match(uint8_t cls, uint8_t id, uint8_t (&value)[10], uint8_t (&mask)[10]) {
    const uint8_t acked[2] = {cls, id};
    vk_frame_pattern(kVkFrameHd, 0x0501, acked, false, value, mask);
    value[3] = 0x00;
    mask[3] = 0xFE;  // ACK and NAK alike
    return {.value = value, .mask = mask, .on_mismatch = VkOnMismatch::Restart};
}

uint32_t HD8XXX_CheckBinCmdRsp(SerialPort port, uint8_t *out, uint8_t cls, uint8_t id) {
    uint8_t value[HD8XXX_ACK_SIZE], mask[HD8XXX_ACK_SIZE];
    // What follows the frame in the same read is not part of the answer.
    VkAckWait w{.match = hd8xxx_ack_match(cls, id, value, mask), .out = out};
    return Vk_WaitReply(port,
                        {.timeout_ms = 5000,
                         .initial = VK_ERR_NO_REPLY,
                         .read_size = 256,
                         .slice_ms = 1000,
                         .frame_start = value},
                        vk_judge_ack, &w);
}

uint32_t hd8xxx_evaluate_ack(SerialPort port, uint8_t cls, uint8_t id, const HdAckWords &words) {
    uint8_t msg[HD8XXX_ACK_SIZE] = {0};
    uint32_t r = HD8XXX_CheckBinCmdRsp(port, msg, cls, id);
    uint32_t result = VK_ERR_COMMAND;
    if (r != 0) {
        vk_log("[ERROR] recv ACK-ACK failed,err:0x%x\n", r);
    } else if (msg[3] != 1) {
        vk_log(words.nak, msg[3]);
    } else if (msg[6] != cls || msg[7] != id) {
        vk_log(words.other, msg[6], msg[7]);
    } else {
        if (words.name != nullptr)
            vk_log(" %s: recv ACK-ACK ok", words.name);
        else
            vk_log(" recv ACK-ACK ok\n");
        result = VK_OK;
    }
    if (words.purge && r == 0) HD8XXX_CleatSerialRecvBuff(port);
    return result;
}

const HdAckWords kHdAckMsg = {
    .nak = "[ERROR] recv ACK-ACK failed,is ACK-NAK,msg[3] = 0x%x\n",
    .other = " recv ACK-ACK failed,msg[6] = 0x%x,msg[7] = 0x%x\n",
};

namespace {

const HdAckWords kHdAckRecv = {
    .nak = "[ERROR] recv ACK-ACK failed,is ACK-NAK,recv[3] = 0x%x\n",
    .other = " recv ACK-ACK failed,recv[6] = 0x%x,recv[7] = 0x%x\n",
    .name = "HD8XXX_ClearEph",
    .purge = true,
};

}  // namespace

uint32_t hd8xxx_send_frame(SerialPort port, const char *caption, const uint8_t *frame, uint32_t len,
                           const HdAckWords &words) {
    vk_log(" %s", caption);
    for (uint32_t i = 0; i < len; ++i) printf("%02X ", frame[i]);
    printf("\n");
    fflush(stdout);
    uint32_t sent = serial_write(port, frame, len);
    if (sent != len) {
        // The wanted length is printed as 0, as it always has been.
        vk_log("[ERROR] send time failed,actual_send:%d,len:%d\n", int(sent), 0);
        return HD8XXX_ERR_WRITE;
    }
    return hd8xxx_evaluate_ack(port, frame[2], frame[3], words);
}

namespace {

// The x86 conversion: out-of-range values and NaN become INT32_MIN.
int32_t truncate_i32(double v) {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return INT32_MIN;
    return int32_t(v);
}

void put_le(uint8_t *p, uint32_t v, int size) {
    for (int i = 0; i < size; ++i) p[i] = uint8_t(v >> (8 * i));
}

}  // namespace

// --- restart ------------------------------------------------------------------------------

uint32_t hd8xxx_start_way(SerialPort port, int start_way, int binary, const char *short_write) {
    if (start_way == 0) {
        vk_log(" no start way\n");
        return VK_OK;
    }
    if (start_way < 0 || start_way > 3) {
        vk_log("[ERROR] unknown start way\n");
        return VK_ERR_COMMAND;
    }
    const uint8_t *cmd;
    uint32_t len;
    if (binary == 1) {
        std::span<const uint8_t> f = hd8xxx_start_frame(start_way);
        cmd = f.data();
        len = uint32_t(f.size());
    } else {
        const char *s = start_way == 1 ? kNmeaHot : start_way == 2 ? kNmeaWarm : kNmeaCold;
        cmd = reinterpret_cast<const uint8_t *>(s);
        len = uint32_t(strlen(s) + 1);
    }
    // One byte less than stored goes out: the sentence's NUL, and for the
    // binary frames their last check byte, as the receivers have always been sent.
    vk_log(" Start cmd:");
    for (uint32_t i = 0; i + 1 < len; ++i) printf("%02X ", cmd[i]);
    fflush(stdout);
    uint32_t sent = serial_write(port, cmd, len - 1);
    if (short_write != nullptr && sent != len - 1) {
        vk_log(short_write, int(sent), int(len - 1));
        return VK_ERR_COMMAND;
    }
    return VK_OK;
}

uint32_t HD8XXX_SendStartWay(SerialPort port, int start_way, int binary) {
    return hd8xxx_start_way(port, start_way, binary, nullptr);
}

// --- binary aiding ------------------------------------------------------------------------

uint32_t hd8xxx_time_frame(const VkDateTime &t, int leap, uint8_t out[28]) {
    uint8_t payload[20] = {0};
    payload[2] = uint8_t(leap);
    put_le(payload + 3, uint32_t(t.year), 2);
    payload[5] = uint8_t(t.month);
    payload[6] = uint8_t(t.day);
    payload[7] = uint8_t(t.hour);
    payload[8] = uint8_t(t.minute);
    payload[9] = uint8_t(t.second);
    put_le(payload + 11, uint32_t(t.millisecond), 4);
    return vk_frame_build(kVkFrameHd, 0x0B11, payload, std::span(out, 28));
}

uint32_t hd8xxx_pos_frame(const VkPosAid *pos, uint8_t out[25]) {
    uint8_t payload[17] = {0};
    payload[0] = 1;
    put_le(payload + 1, uint32_t(truncate_i32(strtod(pos->lat, nullptr) * 1e7)), 4);
    put_le(payload + 5, uint32_t(truncate_i32(strtod(pos->lon, nullptr) * 1e7)), 4);
    put_le(payload + 9, uint32_t(truncate_i32(strtod(pos->alt, nullptr) * 100.0)), 4);
    return vk_frame_build(kVkFrameHd, 0x0B10, payload, std::span(out, 25));
}

uint32_t HD8XXX_SendAidTimeByBP(SerialPort port, const VkTimeAid *time) {
    VkDateTime t;
    vk_aid_time(time, &t);
    uint8_t frame[28];
    uint32_t len = hd8xxx_time_frame(t, time->leap, frame);
    uint32_t result = hd8xxx_send_frame(port, "AID TIME cmd: ", frame, len, kHdAckMsg);
    if (result != HD8XXX_ERR_WRITE) vk_log(" return:%d\n", int(result));
    return result;
}

uint32_t HD8XXX_SendAidPosByBP(SerialPort port, const VkPosAid *pos) {
    uint8_t frame[25];
    uint32_t len = hd8xxx_pos_frame(pos, frame);
    return hd8xxx_send_frame(port, "AID POS cmd: ", frame, len, kHdAckMsg);
}

uint32_t HD8XXX_ClearEph(SerialPort port) {
    return hd8xxx_send_frame(port, "Clear Eph cmd: ", kHd8xxxClearFrame, sizeof kHd8xxxClearFrame,
                             kHdAckRecv);
}

uint32_t HD8XXX_FactoryReset(SerialPort port) {
    uint32_t sent = serial_write(port, kHd8xxxFactoryResetFrame, sizeof kHd8xxxFactoryResetFrame);
    vk_log(" write facotry_reset_cmd ret = %d\n", int(sent));
    platform_sleep(1500000);
    return VK_OK;
}

// --- "$PVNK" aiding -----------------------------------------------------------------------

uint32_t hd8xxx_reply_fields(const char *buf, uint32_t len, const char *name,
                             std::vector<std::string> *fields) {
    const char *found = Vk_FindText(buf, len, name);
    if (found == nullptr) return VK_ERR_NO_REPLY;
    std::string text = vk_reply_line(found, buf, len);
    if (text.empty()) {
        vk_log("[ERROR] format wrong,buf:%s\n", buf);
        return HD8XXX_ERR_REPLY;
    }
    std::string body;
    if (!vk_split_and_check(text, &body, "[ERROR] checksum_fix: %d,checksum_cacu:%d,is diff"))
        return HD8XXX_ERR_REPLY;
    // Comma fields; empty ones are skipped.
    fields->clear();
    for (size_t at = 0; at <= body.size();) {
        size_t comma = body.find(',', at);
        if (comma == std::string::npos) comma = body.size();
        if (comma > at) fields->push_back(body.substr(at, comma - at));
        at = comma + 1;
    }
    return VK_OK;
}

uint32_t hd8xxx_check_reply(const char *buf, uint32_t len, const char *name,
                            const HdReplyWords &words) {
    // "<name>,OK", or "<name>,<word>,<error code>"
    std::vector<std::string> fields;
    uint32_t r = hd8xxx_reply_fields(buf, len, name, &fields);
    if (r != VK_OK) return r;
    if (fields.empty()) {
        vk_log(words.no_field, name, -1);
        return HD8XXX_ERR_REPLY;
    }
    if (fields.size() > 1 && fields[1] == "OK") {
        vk_log(" send %s ok\n", name);
        return VK_OK;
    }
    int code = fields.size() > 2 ? vk_atoi(fields[2].c_str()) : 0;
    vk_log(words.not_ok, name, code);
    return HD8XXX_ERR_REPLY;
}

const HdReplyWords kHdReplyWords = {
    .not_ok = "[ERROR] Send %s failed,err_code:%d\n",
    .no_field = "[ERROR] Send %s failed,err_code:%d\n",
};

uint32_t HD8XXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *name) {
    return hd8xxx_check_reply(buf, len, name, kHdReplyWords);
}

namespace {

uint32_t check_reply(const char *buf, uint32_t len, const char *name, uint32_t) {
    return HD8XXX_CheckNmeaCmdRsp(buf, len, name);
}

}  // namespace

VkReplyWait hd8xxx_reply_wait(uint32_t nothing_read) {
    return {.timeout_ms = 5000,
            .nothing_read = nothing_read,
            .no_memory = VK_ERR_COMMAND,
            .read_size = HD8XXX_NMEA_BUFFER,
            .join_partial = true};
}

VkSentence hd8xxx_aid_sentence(const char *log, const char *short_write, uint32_t code,
                               const char *name, VkReplyCheck check, uint32_t nothing_read) {
    return {.log = log,
            .short_write = short_write,
            .short_write_code = code,
            .expected = name,
            .check = check,
            .wait = hd8xxx_reply_wait(nothing_read)};
}

bool hd8xxx_read_position(const VkPosAid *pos, double v[4]) {
    const char *texts[4] = {pos->lat, pos->lon, pos->alt, pos->acc};
    for (int i = 0; i < 4; ++i) v[i] = strtod(texts[i], nullptr);
    if (v[0] == 0.0 || v[1] == 0.0) {
        vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", v[0], v[1]);
        return false;
    }
    return true;
}

uint32_t HD8XXX_SendAidPosByNmea(SerialPort port, const VkPosAid *pos) {
    double v[4];
    if (!hd8xxx_read_position(pos, v)) return VK_ERR_PARAM;
    vk_log("[INFO] lat: %0.6f,lon: %0.6f,altitude:%0.6f\n", v[0], v[1], v[2]);
    char body[VK_SENTENCE_SIZE];
    snprintf(body, sizeof body, "%s,%d,%0.6f,%0.6f,%0.6f,%0.1f", "$PVNKAIDPOS", 1, v[0], v[1], v[2],
             v[3]);
    return Vk_SendSentence(port, body,
                           hd8xxx_aid_sentence(" cmd: %s", VK_SHORT_WRITE_UART, HD8XXX_ERR_REPLY,
                                               "$PVNKAIDPOS", check_reply, VK_ERR_NO_REPLY));
}

void hd8xxx_time_body(char *body, size_t size, const VkTimeAid *time) {
    VkDateTime t;
    vk_aid_time(time, &t);
    snprintf(body, size, "%s,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d", "$PVNKAIDTIME", 1, time->leap,
             t.year, t.month, t.day, t.hour, t.minute, t.second, t.millisecond,
             vk_atoi(time->accuracy), 0);
}

uint32_t HD8XXX_SendAidTimeByNmea(SerialPort port, const VkTimeAid *time) {
    char body[VK_SENTENCE_SIZE];
    hd8xxx_time_body(body, sizeof body, time);
    return Vk_SendSentence(port, body,
                           hd8xxx_aid_sentence(" cmd: %s", VK_SHORT_WRITE_TIME, HD8XXX_ERR_WRITE,
                                               "$PVNKAIDTIME", check_reply, VK_ERR_NO_REPLY));
}

// --- the YMODEM adapters ------------------------------------------------------------------

void hd8xxx_use_port(SerialPort port) { g_port = port; }

int HD8XXX_SerialSend(const uint8_t *data, uint32_t len) {
    uint32_t n = serial_write(g_port, data, len);
    if (n != len) vk_log(" serial write error ,write_bytes[%d],data_len[%u]", int(n), len);
    return int(n);
}

int HD8XXX_SerialRecv(uint8_t *buf, uint32_t len) {
    uint32_t n = serial_read(g_port, buf, len, 200);
    return n == 0 && serial_port_gone(g_port) ? -1 : int(n);
}

void HD8XXX_Delay(uint32_t ms) { platform_sleep(ms * 1000); }

void HD8XXX_CleatSerialRecvBuff(SerialPort port) {
    uint8_t scratch[1024];
    while (serial_read(port, scratch, sizeof scratch, 500) > 0) {}
}
