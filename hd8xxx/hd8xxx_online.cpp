// The online path: ".hdb" files that already hold the receiver's ephemeris
// frames are summarised, divided by system when combined, and sent frame by
// frame, each awaiting its acknowledgement.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "core/file.h"
#include "core/log.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/hd8xxx_files.h"
#include "toolkit/checksum.h"
#include "toolkit/gnss_time.h"
#include "toolkit/reply.h"
#include "toolkit/text.h"

namespace {

// Bytes sent and acknowledged; one scale over both parts of a divided file.
uint32_t g_sent = 0;

enum : uint32_t { kRecordsPerFrame = 5, kFrameExtra = 8, kMaxFrame = 6 + 65535 + 2 };

uint32_t le16(const uint8_t *p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }
uint32_t le32(const uint8_t *p) { return le16(p) | le16(p + 2) << 16; }

void print_progress(uint32_t total) {
    float percent = 100.0f * float(g_sent) / float(total);
    vk_log("[PROGRESS] %.2f%%\r\n", double(percent));
}

}  // namespace

uint32_t HD8XXX_GetOnlineEphInfo(const char *path) {
    VkEphSummary s{};
    FILE *f = vk_open_summary_file(path, ".hdb", &s.file_size);
    if (f == nullptr) return VK_ERR_COMMAND;
    std::vector<uint8_t> frame(kMaxFrame);
    bool gps = false, bds = false, have_time = false;
    uint64_t consumed = 0;
    uint32_t result = VK_OK;
    while (consumed < s.file_size) {
        std::fill(frame.begin(), frame.end(), 0);
        if (fread(frame.data(), 1, 6, f) != 6 || frame[0] != 0xF1 || frame[1] != 0xD9) {
            vk_log("[ERROR] The ephemeris data is incorrect\n");
            result = VK_ERR_COMMAND;
            break;
        }
        uint32_t len = uint32_t(frame[5]) << 8 | frame[4];
        if (fread(frame.data() + 6, 1, len + 2, f) != len + 2) consumed = s.file_size;
        consumed += 6 + len + 2;
        ++s.segments;
        const uint8_t *b = frame.data();
        if (b[3] == HD8XXX_GPS_ID) {
            gps = true;
            if (have_time) continue;
            have_time = true;
            // Computed exactly so: an OR, not a sum, with the high byte.
            uint32_t week = (uint32_t(b[65]) * 256) | (uint32_t(b[64]) + 2048);
            uint32_t toe = le16(b + 22) * 16;
            int64_t time = gps_to_utc(week, int32_t(toe), 18);
            vk_log("[DEBUG] weeknum: %d, toe: %d\n", int(week), int(toe));
            // The seconds in all 64 bits on every OS (long has 32 on Windows).
            vk_log("[DEBUG] gps unix timestamp: %llu\n", (unsigned long long)time);
            s.start_week = week;
            s.start_tow = toe;
            s.start_time = time;
        } else if (b[3] == HD8XXX_BDS_ID) {
            bds = true;
            if (have_time) continue;
            have_time = true;
            uint32_t week = uint32_t(b[93]) * 256 + b[92];
            uint32_t toe = le32(b + 22) * 8;
            int64_t time = bdt_to_unix(week, int32_t(toe));
            vk_log("[DEBUG] weeknum: %d, toe: %d\n", int(week), int(toe));
            vk_log("[DEBUG] bds unix timestamp: %llu\n", (unsigned long long)time);
            s.start_week = week + 1356;
            s.start_tow = toe;
            s.start_time = time;
        } else {
            vk_log("[ERROR] Unrecognized msg id: %02X\n", b[3]);
            continue;
        }
        s.end_time = s.start_time + 7200;
        vk_log("[DEBUG] GpsTimeStartSec: %llu\n", (unsigned long long)s.start_time);
        vk_log("[DEBUG] GpsTimeEndSec: %llu\n", (unsigned long long)s.end_time);
    }
    fclose(f);
    if (result != VK_OK) return result;
    snprintf(s.type, sizeof s.type, "%s",
             gps && bds ? "GPS + BDS"
             : gps      ? "GPS"
             : bds      ? "BDS"
                        : "unkown");
    s.valid_days = 0.083f;
    s.end_week = s.start_week;
    s.end_tow = s.start_tow + 7200;
    vk_print_eph_summary(s);
    return VK_OK;
}

int HD8XXX_GetOnlineEphType(const char *name) {
    if (strcmp(name, "HD_GPS.hdb") == 0) return 1;
    if (strcmp(name, "HD_BDS.hdb") == 0) return 2;
    if (strcmp(name, "HD_GPS_BDS.hdb") == 0) return 3;
    return 0;
}

namespace {

// Copies one frame (its header already read) from in to out; 0 or a code.
uint32_t divide_frame(FILE *in, const char *src, FILE *out, const char *dst,
                      const uint8_t header[6], uint32_t record) {
    size_t wrote = fwrite(header, 1, 6, out);
    if (wrote != 6) {
        vk_log("[ERROR] %s write len = %d\n", dst, int(wrote));
        return VK_ERR_PARAM;
    }
    // The length as the division has always read it: both bytes printed in
    // hexadecimal without leading zeros into four characters, read back as
    // one number. Right for the usual sizes; 04 01 (260) reads as 0x14.
    char text[8];
    snprintf(text, sizeof text, "%x%x", header[5], header[4]);
    text[3] = '\0';
    uint32_t len = uint32_t(strtoul(text, nullptr, 16));
    if (len % record != 0) {
        // The payload stays unread: the next header read falls inside it.
        vk_log("[ERROR] frame payload len[%d] is wrong", int(len));
        return VK_OK;
    }
    std::vector<uint8_t> body(len + 2);
    size_t got = fread(body.data(), 1, body.size(), in);
    if (got != body.size()) {
        vk_log("[ERROR] %d: %s read ret = %d\n", 241, src, int(got));
        return VK_ERR_COMMAND;
    }
    wrote = fwrite(body.data(), 1, body.size(), out);
    if (wrote != body.size()) {
        vk_log("[ERROR]  %s write len = %d\n", dst, int(wrote));
        return VK_ERR_COMMAND;
    }
    return VK_OK;
}

}  // namespace

uint32_t HD8XXX_DivideOnlineEphFile(const char *src, const char *gps, const char *bds) {
    if (src == nullptr || gps == nullptr || bds == nullptr) {
        vk_log(" param error\n");
        return VK_ERR_PARAM;
    }
    FILE *in = vk_fopen_regular(src);
    FILE *out_gps = fopen(gps, "wb");
    FILE *out_bds = fopen(bds, "wb");
    uint32_t result = VK_OK;
    if (in == nullptr || out_gps == nullptr || out_bds == nullptr) {
        vk_log(" open file error\n");
        result = HD8XXX_ERR_FILE_OPEN;
    }
    while (result == VK_OK) {
        uint8_t header[6] = {0};
        size_t n = fread(header, 1, 6, in);
        if (n == 0) break;
        if (n != 6) {
            vk_log(" %d:%s,read ret = %d", 195, src, int(n));
            result = HD8XXX_ERR_FILE_READ;
        } else if (header[0] != 0xF1 || header[1] != 0xD9 || header[2] != 0x0B) {
            vk_log(" head buf: %02X %02X %02X %02X %02X %02X\n", header[0], header[1], header[2],
                   header[3], header[4], header[5]);
            result = HD8XXX_ERR_FILE_FORMAT;
        } else if (header[3] == HD8XXX_GPS_ID) {
            result = divide_frame(in, src, out_gps, gps, header, HD8XXX_GPS_RECORD);
        } else if (header[3] == HD8XXX_BDS_ID) {
            result = divide_frame(in, src, out_bds, bds, header, HD8XXX_BDS_RECORD);
        } else {
            vk_log("[ERROR] HD8XXX GPS MSG_SUB_ID:0X%X is not supported\n", header[3]);
            result = HD8XXX_ERR_FILE_FORMAT;
        }
    }
    for (FILE *f : {in, out_gps, out_bds})
        if (f != nullptr) fclose(f);
    return result;
}

namespace {

// One slice: five records and the 8 bytes of framing, or the shorter last frame.
uint32_t send_slice(SerialPort port, const uint8_t *slice, uint32_t n, uint8_t id) {
    if (slice[0] != 0xF1 || slice[1] != 0xD9 || slice[2] != 0x0B || slice[3] != id ||
        le16(slice + 4) != n - kFrameExtra) {
        vk_log("[INFO] read_buff is wrong\n");
        return HD8XXX_ERR_FILE_FORMAT;
    }
    vk_log("[INFO] read_len = %d,is right\n", int(n));
    uint16_t sum = Vk_Check_Varnok(slice, n - 2);
    if (slice[n - 2] != (sum & 0xFF) || slice[n - 1] != (sum >> 8)) {
        vk_log("[ERROR] eph format error\n");
        return HD8XXX_ERR_FILE_FORMAT;
    }
    bool written = false;
    for (int attempt = 0; attempt < 3 && !written; ++attempt)
        written = serial_write(port, slice, n) == n;
    if (!written) {
        vk_log("[ERROR] send EPH fail\n");
        return HD8XXX_ERR_TRANSFER;
    }
    uint8_t msg[HD8XXX_ACK_SIZE] = {0};
    uint32_t r = HD8XXX_CheckBinCmdRsp(port, msg, 0x0B, id);
    if (r != 0) {
        vk_log("[ERROR] recv ACK-ACK failed\n");
        return r;
    }
    if (msg[6] != 0x0B || msg[7] != id) return VK_ERR_COMMAND;
    // A refused frame is only a warning: the transfer goes on as if it was taken.
    if (msg[3] == 0) {
        vk_log("[WARN] recv ACK-NAK\n");
    } else if (msg[3] != 1) {
        vk_log(" recv ACK-ACK failed");
        return VK_ERR_COMMAND;
    }
    return VK_OK;
}

}  // namespace

uint32_t HD8XXX_SendEphData_Internal(SerialPort port, const char *path, uint32_t total,
                                     uint32_t record_size, uint8_t id) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return HD8XXX_ERR_FILE_OPEN;
    }
    long size = vk_file_size(f);
    if (g_sent == 0) vk_log("[PROGRESS] %.2f%%\r\n", 0.0);
    const uint32_t want = record_size * kRecordsPerFrame + kFrameExtra;
    std::vector<uint8_t> slice(want);
    uint32_t result = VK_OK;
    for (;;) {
        std::fill(slice.begin(), slice.end(), 0);
        uint32_t n = uint32_t(fread(slice.data(), 1, want, f));
        if (n == 0 || n % record_size != kFrameExtra) {
            vk_log("[ERROR] read_len = %d,is wrong\n", int(n));
            result = HD8XXX_ERR_FILE_READ;
            break;
        }
        const uint64_t asked = vk_clock_us();
        result = send_slice(port, slice.data(), n, id);
        if (result != VK_OK) break;
        g_sent += n;
        print_progress(total);
        if (100.0f * float(g_sent) / float(total) == 100.0f) break;
        vk_pause_after_reply(port, asked, 5000);
        if (long(g_sent) == size) break;
    }
    fclose(f);
    if (result != VK_OK) {
        vk_log("[ERROR] send [%s] to module failed\n", path);
        g_sent = 0;
    } else if (g_sent == total) {
        g_sent = 0;
    }
    return result;
}

uint32_t HD8XXX_SendEphData(SerialPort port, const char *path) {
    uint32_t total = 0;
    std::vector<char> dir(strlen(path) + 1), name(strlen(path) + 1);
    if (!hd8xxx_size_and_name(path, &total, dir.data(), name.data())) return HD8XXX_ERR_FILE_OPEN;
    int type = HD8XXX_GetOnlineEphType(name.data());
    if (type == 0) {
        vk_log("[ERROR] Invalid file name [%s]\r\n", name.data());
        return VK_ERR_PARAM;
    }
    vk_log("[INFO] Enter send eph...\n");
    if (type == 1)
        return HD8XXX_SendEphData_Internal(port, path, total, HD8XXX_GPS_RECORD, HD8XXX_GPS_ID);
    if (type == 2)
        return HD8XXX_SendEphData_Internal(port, path, total, HD8XXX_BDS_RECORD, HD8XXX_BDS_ID);
    HdTempPair tmp(dir.data(), "GPS_TMP.hdb", "BDS_TMP.hdb");
    uint32_t divided = HD8XXX_DivideOnlineEphFile(path, tmp.gps.c_str(), tmp.bds.c_str());
    if (divided != VK_OK) {
        vk_log("[ERROR] devide [%s] to [%s] & [%s] failed,ret[0x%x]\n", path, tmp.gps.c_str(),
               tmp.bds.c_str(), divided);
        return divided;
    }
    vk_log(" Divide Eph File OK\n");
    uint32_t result =
        HD8XXX_SendEphData_Internal(port, tmp.gps.c_str(), total, HD8XXX_GPS_RECORD, HD8XXX_GPS_ID);
    if (result == VK_OK)
        result = HD8XXX_SendEphData_Internal(port, tmp.bds.c_str(), total, HD8XXX_BDS_RECORD,
                                             HD8XXX_BDS_ID);
    return result;
}
