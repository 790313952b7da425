// The offline path: RTCM ephemeris files summarised, classified by name,
// divided into one file per system, and downloaded into the receiver's flash
// by YMODEM under the names "LTEPHGPS" and "LTEPHBDS".
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "core/file.h"
#include "core/log.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/hd8xxx_files.h"
#include "hd8xxx/hd8xxx_nmea.h"
#include "hd8xxx/ymodem.h"
#include "toolkit/gnss_time.h"
#include "toolkit/tempfile.h"
#include "toolkit/text.h"

namespace {

uint32_t g_total_size = 0;  // the size of the file the user gave, for the progress lines

void add_system(char *type, size_t size, const char *name) {
    if (strstr(type, name) != nullptr) return;
    size_t len = strlen(type);
    snprintf(type + len, size - len, "%s%s", len > 0 ? "+" : "", name);
}

}  // namespace

void HD8XXX_SetOffEphTotalSize(uint32_t size) { g_total_size = size; }
uint32_t HD8XXX_GetOffEphTotalSize() { return g_total_size; }

uint32_t HD8XXX_GetOfflineEphInfo(const char *path) {
    VkEphSummary s{};
    FILE *f = vk_open_summary_file(path, ".rtcm", &s.file_size);
    if (f == nullptr) return VK_ERR_COMMAND;
    uint64_t consumed = 0;
    uint32_t result = VK_OK;
    while (consumed < s.file_size) {
        uint8_t header[3] = {0};
        size_t n = fread(header, 1, 3, f);
        if (n < 3 || header[0] != 0xD3 || header[1] > 3) {
            vk_log("[ERROR] The ephemeris data is incorrect\n");
            result = VK_ERR_COMMAND;
            break;
        }
        uint32_t len = uint32_t(header[1]) << 8 | header[2];
        uint8_t msg[1023 + 3] = {0};
        if (fread(msg, 1, len + 3, f) != len + 3) {
            // A frame cut short ends the file; what it holds is not read as a message.
            consumed = s.file_size;
        }
        consumed += 3 + len + 3;
        ++s.segments;
        uint32_t number = uint32_t(gnss_getbitu(msg, 0, 12));
        uint32_t week = 0, tow = 0, start_week = 0;
        int64_t time = 0;
        switch (number) {
            case 1019:
                // Written over the front of the text, not appended.
                if (strstr(s.type, "GPS") == nullptr) memcpy(s.type, "GPS", 3);
                week = uint32_t(gnss_getbitu(msg, 18, 10)) + 2048;
                tow = uint32_t(gnss_getbitu(msg, 288, 16)) * 16;
                time = gps_to_utc(week, int32_t(tow), 18);
                start_week = week;
                break;
            case 1042:
                add_system(s.type, sizeof s.type, "BDS");
                week = uint32_t(gnss_getbitu(msg, 18, 13));
                tow = uint32_t(gnss_getbitu(msg, 54, 17)) * 8;
                time = bdt_to_unix(week, int32_t(tow));
                start_week = week + 1356;
                break;
            case 1046: add_system(s.type, sizeof s.type, "GAL"); continue;
            case 1044: add_system(s.type, sizeof s.type, "QZS"); continue;
            default: vk_log("[ERROR] Unrecognized msg id: %02X\n", number); continue;
        }
        vk_summary_time(s, start_week, week, tow, time);
    }
    fclose(f);
    if (result != VK_OK) return result;
    s.valid_days = float(s.end_time - s.start_time) / 60.0f / 60.0f / 24.0f;
    vk_print_eph_summary(s);
    return VK_OK;
}

int HD8XXX_GetOfflineEphType(const char *name) {
    if (strstr(name, ".rtcm") == nullptr) return 0;
    bool gps = strstr(name, "GPS") != nullptr;
    bool bds = strstr(name, "BDS") != nullptr;
    return gps && bds ? 3 : gps ? 1 : bds ? 2 : 0;
}

int HD8XXX_DivideOfflineEphFile(const char *src, const char *gps, const char *bds) {
    if (src == nullptr || gps == nullptr || bds == nullptr) {
        vk_log(" param error\n");
        return -1;
    }
    FILE *in = vk_fopen_regular(src);
    FILE *out_gps = fopen(gps, "wb");
    FILE *out_bds = fopen(bds, "wb");
    int result = 0;
    if (in == nullptr || out_gps == nullptr || out_bds == nullptr) {
        // Reported and passed as success: the transfer then fails on the missing file.
        vk_log(" open file error: %p, %p, %p\n", static_cast<void *>(in),
               static_cast<void *>(out_gps), static_cast<void *>(out_bds));
    } else {
        static const uint8_t kGps[4] = {0xD3, 0x00, 0x3D, 0x3F};  // 1019 frame, 67 bytes
        static const uint8_t kBds[4] = {0xD3, 0x00, 0x40, 0x41};  // 1042 frame, 70 bytes
        for (;;) {
            uint8_t frame[70];
            size_t n = fread(frame, 1, 4, in);
            if (n == 0) break;
            FILE *out;
            const char *out_path;
            size_t rest;
            if (n == 4 && memcmp(frame, kGps, 4) == 0) {
                out = out_gps, out_path = gps, rest = 63;
            } else if (n == 4 && memcmp(frame, kBds, 4) == 0) {
                out = out_bds, out_path = bds, rest = 66;
            } else {
                result = -1;  // only GPS and BDS ephemeris frames can be divided
                break;
            }
            size_t got = fread(frame + 4, 1, rest, in);
            if (got != rest) {
                if (ferror(in)) vk_log(" %s read ret = 0x%x\n", src, unsigned(got));
                break;  // a frame cut short ends the division; it is not passed on
            }
            size_t wrote = fwrite(frame, 1, rest + 4, out);
            if (wrote != rest + 4) {
                vk_log(" %s write error = 0x%x", out_path, unsigned(wrote));
                result = -1;
                break;
            }
        }
    }
    for (FILE *f : {in, out_gps, out_bds})
        if (f != nullptr) fclose(f);
    return result;
}

namespace {

const HdAckWords kYmodemReadyWords = {
    .nak = kHdAckMsg.nak,
    .other = kHdAckMsg.other,
    .name = "HD8XXX_WaitYmodemReady",
};

}  // namespace

uint32_t HD8XXX_WaitYmodemReady(SerialPort port, uint32_t timeout_ms) {
    HD8XXX_CleatSerialRecvBuff(port);
    if (hd8xxx_send_frame(port, "start ymodem cmd: ", kHd8xxxYmodemFrame, sizeof kHd8xxxYmodemFrame,
                          kYmodemReadyWords) != VK_OK)
        return VK_ERR_COMMAND;
    uint64_t start = Vk_ClockGetTimeMs();
    for (;;) {
        uint8_t b = 0;
        if (serial_read(port, &b, 1, 50) == 1) {
            vk_log(" uart get data : 0x%02X\n", b);
            if (b == YMODEM_C) {
                vk_log(" ymodem start\n");
                return VK_OK;
            }
        }
        uint64_t now = Vk_ClockGetTimeMs();
        if (now - start > timeout_ms) {
            vk_log(" wait ymodem ready timeout (%lld-%lld, %u)\n", (long long)now, (long long)start,
                   timeout_ms);
            return HD8XXX_ERR_YMODEM_READY;
        }
        platform_sleep(50000);
    }
}

uint32_t HD8XXX_EphYmodemTransfer(const char *path, const char *flash_name) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return HD8XXX_ERR_FILE_OPEN;
    }
    long size = vk_file_size(f);
    if (size < 0) size = 0;
    vk_log(" %s,size = %u", path, unsigned(size));
    uint8_t *data = static_cast<uint8_t *>(malloc(size_t(size) + 1));
    if (data == nullptr) {
        vk_log("[ERROR] malloc failed!\n");
        fclose(f);
        return VK_ERR_MEMORY;
    }
    uint32_t result = VK_OK;
    size_t n = fread(data, 1, size_t(size), f);
    if (n != size_t(size)) {
        vk_log("[ERROR] read_len = %d,is wrong\n", int(n));
        result = HD8XXX_ERR_FILE_READ;
    } else {
        int r = ymodem_file_transfer(flash_name, data, int32_t(size));
        if (r != 0) {
            vk_log("[ERROR] ymodem_file_transfer error= %d\n", r);
            result = HD8XXX_ERR_TRANSFER;
        }
    }
    free(data);
    fclose(f);
    return result;
}

namespace {

uint32_t download(SerialPort port, const char *path, const char *flash_name) {
    uint32_t r = HD8XXX_WaitYmodemReady(port, 5000);
    return r != VK_OK ? r : HD8XXX_EphYmodemTransfer(path, flash_name);
}

}  // namespace

uint32_t HD8XXX_DownloadOfflineEph(SerialPort port, const char *path) {
    if (path == nullptr || path[0] == '\0') {
        vk_log(" param error\n");
        return VK_ERR_PARAM;
    }
    uint32_t size = 0;
    std::vector<char> dir(strlen(path) + 1), name(strlen(path) + 1);
    if (!hd8xxx_size_and_name(path, &size, dir.data(), name.data())) return HD8XXX_ERR_FILE_OPEN;
    HD8XXX_SetOffEphTotalSize(size);
    switch (HD8XXX_GetOfflineEphType(name.data())) {
        case 1: return download(port, path, "LTEPHGPS");
        case 2: return download(port, path, "LTEPHBDS");
        case 3: break;
        default: vk_log("[ERROR] Invalid file name [%s]\n", name.data()); return VK_ERR_PARAM;
    }
    HdTempPair tmp(dir.data(), "GPS_TMP.rtcm", "BDS_TMP.rtcm");
    int divided = HD8XXX_DivideOfflineEphFile(path, tmp.gps.c_str(), tmp.bds.c_str());
    if (divided != 0) {
        vk_log("[ERROR] devide [%s] to [%s] & [%s] failed,ret[0x%x]\n", path, tmp.gps.c_str(),
               tmp.bds.c_str(), unsigned(divided));
        return uint32_t(divided);
    }
    vk_log(" Divide Eph File OK\n");
    uint32_t result = download(port, tmp.gps.c_str(), "LTEPHGPS");
    if (result == VK_OK) result = download(port, tmp.bds.c_str(), "LTEPHBDS");
    return result;
}
