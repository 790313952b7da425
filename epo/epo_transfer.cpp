// EPO file transfer: binary frames (offline) and record sentences (online).
#include <cstdio>
#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "epo/epo.h"
#include "serial/serial.h"
#include "toolkit/frame.h"
#include "toolkit/reply.h"

namespace {

enum { BIN_BEGIN = 0, BIN_DATA = 1, BIN_END = 2 };

float percent(uint32_t sent, uint32_t total) { return float(100.0f * float(sent) / float(total)); }

void print_progress(float p) { vk_log("[PROGRESS] %.2f%%\r\n", double(p)); }

// Prints the file's summary before it is sent; its decoded type becomes the
// current EPO type.
void summarize_file(const char *path) {
    EpoInfo info;
    epo_decode_file(&info, path);
    epo_print_info(&info);
    epo_set_type(info.type);
}

// Opens the file to send, takes its size and says it is being sent; null
// (after the system's reason) when it cannot be opened.
FILE *open_to_send(const char *path, const char *name, uint32_t *size) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return nullptr;
    }
    fseek(f, 0, SEEK_END);
    *size = uint32_t(ftell(f));
    fseek(f, 0, SEEK_SET);
    vk_log("[INFO] Sending %s to module ...\n", name);
    print_progress(0.0f);
    return f;
}

// Reads the next record. A read that brings less than a whole record (none
// left, or a file cut short inside its last record) sends nothing of it: the
// file ends there with a read failure, after its message.
bool read_record(FILE *f, uint8_t rec[EPO_RECORD_SIZE]) {
    memset(rec, 0, EPO_RECORD_SIZE);
    size_t n = fread(rec, 1, EPO_RECORD_SIZE, f);
    if (n == EPO_RECORD_SIZE) return true;
    vk_log("[ERROR] actual_read_len = %d,is wrong\n", int(n));
    return false;
}

// Frames one record and sends it; prints nothing.
uint32_t send_data_frame(SerialPort port, const uint8_t *record, uint32_t len) {
    uint8_t frame[EPO_FRAME_CAPACITY] = {};
    uint32_t frame_len = EPO_FRAME_CAPACITY;
    uint16_t id = epo_msg_id(BIN_DATA);
    uint32_t ret = epo_package_frame(id, record, len, frame, &frame_len);
    if (ret != 0) return ret;
    return epo_send_frame(port, frame, frame_len, id);
}

uint32_t send_marker(SerialPort port, const char *letter, uint32_t len, int bin_type) {
    uint8_t payload[2] = {uint8_t(letter[0]), 0};
    return epo_send_begin_end(port, payload, len, bin_type);
}

// Sends count records from offset as data frames, with progress against size
// after each. A frame that fails ends the batch with its code (after its
// message). A read that brings nothing, a frame that fails on a port that is
// gone, or a failed end frame (sent, when end_letter is given, as soon as the
// progress is exactly 100), ends the whole file: *fatal is then set.
uint32_t send_records(SerialPort port, FILE *f, long offset, int count, const char *name,
                      uint32_t size, uint32_t *sent, const char *end_letter, bool *fatal) {
    uint8_t rec[EPO_RECORD_SIZE] = {};
    *fatal = false;
    fseek(f, offset, SEEK_SET);
    for (int r = 0; r < count; ++r) {
        if (!read_record(f, rec)) {
            *fatal = true;
            return EPO_ERR_READ;
        }
        uint32_t ret = send_data_frame(port, rec, EPO_RECORD_SIZE);
        if (ret != 0) {
            vk_log("[ERROR] send %s failed\n", name);
            // A port that went away takes no later segment either: the file
            // ends here instead of being read out into nothing.
            *fatal = serial_port_gone(port);
            return ret;
        }
        *sent += EPO_RECORD_SIZE;
        float p = percent(*sent, size);
        if (end_letter && p == 100.0f && (ret = send_marker(port, end_letter, 1, BIN_END)) != 0) {
            *fatal = true;
            return ret;
        }
        print_progress(p);
    }
    return 0;
}

// The offline GPS+GLONASS file: every GPS half-segment between "G" markers,
// then every GLONASS half-segment between "R" markers.
uint32_t send_pair_offline(SerialPort port, FILE *f, const char *name, uint32_t size,
                           int32_t days) {
    const int segments = 4 * days;
    const uint32_t gps_total = uint32_t(days) * 4 * EPO_GPS_SEGMENT;
    uint32_t sent = 0;
    uint32_t result = 0;
    uint32_t cut_short = 0;  // the failure that kept a GPS segment from going out whole
    bool fatal = false;
    bool switched = false;

    for (int i = 0; i < segments && !switched; ++i) {
        if (i == 0 && (result = send_marker(port, "G", 1, BIN_BEGIN)) != 0) return result;
        result =
            send_records(port, f, long(i) * EPO_GR_SEGMENT, 32, name, size, &sent, nullptr, &fatal);
        if (fatal) return result;
        if (result != 0) {
            cut_short = result;  // the rest of this segment is abandoned
        } else if (sent == gps_total) {
            if ((result = send_marker(port, "G", 1, BIN_END)) != 0) return result;
            switched = true;
        }
    }
    // One round only: a GPS half that did not go out whole ends the file with
    // the failure that cut it short, rather than starting the round again.
    if (!switched) return cut_short != 0 ? cut_short : EPO_ERR_READ;  // or a record came short

    for (int i = 0; i < segments; ++i) {
        if (i == 0 && (result = send_marker(port, "R", 1, BIN_BEGIN)) != 0) return result;
        // A failed frame abandons its segment only; the result is the last frame's.
        result = send_records(port, f, long((i + 1) * 32 + i * 24) * EPO_RECORD_SIZE, 24, name,
                              size, &sent, "R", &fatal);
        if (fatal) return result;
    }
    return result;
}

// The offline single-system file: records between two markers of its letter.
uint32_t send_single_offline(const EpoDialect *d, SerialPort port, FILE *f, const char *name,
                             int32_t type, uint32_t size) {
    uint8_t list[EPO_MAX_SATS];
    int count = 0;
    uint32_t header = 0;
    uint32_t ret = epo_read_sv_list(d, f, type, list, EPO_MAX_SATS, &count, &header);
    if (ret != 0) {
        vk_log("[ERROR] get svid failed,err:[0X%X]", ret);
        return ret;
    }
    char letter[4];
    if (epo_system_letter(d, type, letter, sizeof letter) != 0) return EPO_ERR_FRAME;
    const uint32_t total = size - header;
    if ((ret = send_marker(port, letter, 2, BIN_BEGIN)) != 0) {
        vk_log("[ERROR] send %s failed,err:[0X%X]", name, ret);
        return ret;
    }
    uint8_t rec[EPO_RECORD_SIZE] = {};
    uint32_t sent = 0;
    for (;;) {
        if (!read_record(f, rec)) return EPO_ERR_READ;
        if ((ret = send_data_frame(port, rec, EPO_RECORD_SIZE)) != 0) {
            vk_log("[ERROR] send %s failed\n", name);
            return ret;
        }
        sent += EPO_RECORD_SIZE;
        // The end marker goes out only when the single-precision quotient is
        // exactly 100; where rounding falls short the loop still ends below.
        float p = percent(sent, total);
        if (p == 100.0f && (ret = send_marker(port, letter, 2, BIN_END)) != 0) {
            vk_log("[ERROR] send %s failed,err:[0X%X]", name, ret);
            return ret;
        }
        print_progress(p);
        if (feof(f) || sent == total) return 0;
    }
}

}  // namespace

uint16_t epo_msg_id(int bin_type) {
    switch (bin_type) {
        case BIN_BEGIN: return 1200;
        case BIN_DATA: return 1201;
        default: return 1202;
    }
}

uint32_t epo_package_frame(uint16_t msg_id, const uint8_t *payload, uint32_t len, uint8_t *out,
                           uint32_t *inout_len) {
    if (payload == nullptr || inout_len == nullptr || *inout_len < 1 || out == nullptr ||
        len == 0) {
        vk_log("[ERROR] Para is invalid\n");
        return VK_ERR_PARAM;
    }
    if (!(len + 8 < *inout_len)) {
        vk_log("[ERROR] MsgTotalLen[%u] is not enough\n", *inout_len);
        return VK_ERR_PARAM;
    }
    *inout_len = vk_frame_build(kVkFrameEpo, msg_id, {payload, len}, {out, *inout_len});
    return 0;
}

namespace {

// Text in front of the frame is the receiver's own output: it is shown as it
// is, the frame's bytes in hex. A wrong byte inside the frame is skipped.
void echo_ack_byte(uint8_t b, bool taken, uint32_t at) {
    if (taken)
        printf("%02X", b);
    else if (at == 0)
        putchar(b);
}

}  // namespace

uint32_t epo_wait_bin_ack(SerialPort port, uint8_t *reply, uint16_t msg_id) {
    // 04 24 | E8 03 | 04 00 | id (as sent) | 00 00 | checksum (not checked) | AA 44
    const uint8_t acked[4] = {uint8_t(msg_id & 0xFF), uint8_t(msg_id >> 8), 0, 0};
    uint8_t value[EPO_ACK_SIZE], mask[EPO_ACK_SIZE];
    vk_frame_pattern(kVkFrameEpo, EPO_ACK_ID, acked, false, value, mask);
    VkAckWait w{.match = {.value = value, .mask = mask, .on_mismatch = VkOnMismatch::KeepState},
                .out = reply,
                .echo = echo_ack_byte};
    printf("[%llu] ", (unsigned long long)Vk_ClockGetTimeMs());
    // Byte by byte, so that what follows the acknowledgement stays in the
    // line for the next wait.
    uint32_t result = Vk_WaitReply(port,
                                   {.timeout_ms = 5000,
                                    .initial = VK_ERR_NO_REPLY,
                                    .read_size = 1,
                                    .slice_ms = 20,
                                    .frame_start = value},
                                   vk_judge_ack, &w);
    printf("\n");
    fflush(stdout);
    return result;
}

uint32_t epo_send_frame(SerialPort port, const uint8_t *frame, uint32_t len, uint16_t msg_id) {
    uint32_t sent = serial_write(port, frame, len);
    if (sent < len) {
        vk_log("[ERROR] uart send failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return EPO_ERR_WRITE_RECORD;
    }
    uint8_t reply[16];
    return epo_wait_bin_ack(port, reply, msg_id);
}

uint32_t epo_send_begin_end(SerialPort port, const uint8_t *payload, uint32_t len, int bin_type) {
    uint8_t frame[EPO_FRAME_CAPACITY] = {};
    uint32_t frame_len = EPO_FRAME_CAPACITY;
    uint16_t id = epo_msg_id(bin_type);
    if (epo_package_frame(id, payload, len, frame, &frame_len) != 0) return EPO_ERR_FRAME;
    uint32_t ret = epo_send_frame(port, frame, frame_len, id);
    if (ret != 0) {
        vk_log("[ERROR] send failed,err:[0X%X]", ret);
        return EPO_ERR_FRAME;
    }
    return 0;
}

uint32_t epo_read_sv_list(const EpoDialect *d, FILE *f, int32_t type, uint8_t *list, int size,
                          int *count, uint32_t *header_bytes) {
    *count = 0;
    *header_bytes = 0;
    if (epo_type_in(type, d->files.header_types)) {
        uint8_t header[EPO_RECORD_SIZE] = {};
        size_t n = fread(header, 1, EPO_RECORD_SIZE, f);
        if (n < EPO_RECORD_SIZE) {  // a header cut short is no header
            vk_log("[ERROR] data_head_len = %d,is wrong\n", int(n));
            return EPO_ERR_FRAME;
        }
        char hex[2 * EPO_RECORD_SIZE + 1];
        Vk_HexGroupToString(hex, header, uint16_t(n));
        epo_parse_header(hex, list, size, count);
        *header_bytes = EPO_RECORD_SIZE;
        return 0;
    }
    int plain = 32;
    for (const EpoTypeValue &p : d->files.plain_lists)
        if (p.type == type) plain = p.value;
    for (int i = 0; i < plain && i < size; ++i) list[i] = uint8_t(i + 1);
    *count = plain < size ? plain : size;
    return 0;
}

uint32_t epo_send_file_offline(const EpoDialect *d, SerialPort port, const char *path) {
    size_t path_len = strlen(path) + 1;
    char dir[1024], name[1024];
    if (path_len > sizeof dir) return VK_ERR_PARAM;
    Vk_SplitFilenameAndPath(path, dir, name);
    int32_t days = 0;
    int32_t type = epo_offline_type(d, name, &days);
    if (type == -1) {
        vk_log("[ERROR] Invalid file name [%s]\r\n", name);
        return VK_ERR_PARAM;
    }
    summarize_file(path);
    uint32_t size = 0;
    FILE *f = open_to_send(path, name, &size);
    if (f == nullptr) return EPO_ERR_OPEN;
    uint32_t ret = epo_type_in(type, d->files.pair_types)
                       ? send_pair_offline(port, f, name, size, days)
                       : send_single_offline(d, port, f, name, type, size);
    if (ret == 0) vk_log("[INFO] send %s OK\n", name);
    fclose(f);
    return ret;
}

uint32_t epo_send_file_online(const EpoDialect *d, SerialPort port, const char *path) {
    size_t path_len = strlen(path) + 1;
    char dir[1024], name[1024];
    if (path_len > sizeof dir) return VK_ERR_PARAM;
    Vk_SplitFilenameAndPath(path, dir, name);
    int32_t type = epo_online_type(d, name);
    if (type == -1) {
        vk_log("[ERROR] Invalid file name [%s]\r\n", name);
        return VK_ERR_PARAM;
    }
    summarize_file(path);
    int32_t mode = epo_mode_of_type(d, type);
    if (mode == -1) return VK_ERR_COMMAND;
    uint32_t size = 0;
    FILE *f = open_to_send(path, name, &size);
    if (f == nullptr) return EPO_ERR_OPEN;
    uint8_t rec[EPO_RECORD_SIZE] = {};
    uint32_t sent = 0;
    uint32_t ret = 0;

    if (epo_type_in(type, d->files.pair_types)) {
        // Only the first segment goes out: 32 GPS records, then 24 GLONASS.
        const int counts[2] = {32, 24};
        const int modes[2] = {mode & d->files.pair_gps_mask, mode & d->files.pair_glo_mask};
        for (int half = 0; half < 2 && ret == 0; ++half) {
            for (int r = 0; r < counts[half]; ++r) {
                if (!read_record(f, rec)) {
                    ret = EPO_ERR_READ;
                    break;
                }
                if ((ret = epo_send_record(d, port, rec, modes[half], r + 1)) != 0) {
                    vk_log("[ERROR] send %s failed\n", name);
                    break;
                }
                sent += EPO_RECORD_SIZE;
                print_progress(percent(sent, size));
            }
        }
    } else {
        uint8_t list[EPO_MAX_SATS];
        int count = 0;
        uint32_t header = 0;
        ret = epo_read_sv_list(d, f, type, list, EPO_MAX_SATS, &count, &header);
        if (ret != 0) ret = EPO_ERR_READ;
        const uint32_t total = size - header;
        for (uint32_t i = 0; ret == 0; ++i) {
            if (!read_record(f, rec)) {
                ret = EPO_ERR_READ;
                break;
            }
            int expected = count > 0 ? list[i % uint32_t(count)] : 0;
            if ((ret = epo_send_record(d, port, rec, mode, expected)) != 0) {
                vk_log("[ERROR] send %s failed", name);
                break;
            }
            sent += EPO_RECORD_SIZE;
            print_progress(percent(sent, total));
            if (feof(f) || sent == total) break;
        }
    }
    fclose(f);
    if (ret == 0) vk_log("[INFO] send %s OK\n", name);
    return ret;
}
