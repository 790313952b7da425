// The TQ934N ephemeris file: where its RTCM data starts, its summary and the
// transfer mode its size sets, and the transfer in raw 4096-byte blocks.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "core/result.h"
#include "toolkit/gnss_time.h"
#include "toolkit/reply.h"
#include "toolkit/summary.h"
#include "tq934n/tq934n.h"

int32_t rtcm_start_pos = -1;
uint8_t RecvBuff_time[100];
int AGNSS_MODE = 1;
uint32_t already_send = 0;

namespace {

struct NameRule {
    uint32_t number;
    const char *name;
    bool sets_time;
};

constexpr NameRule kNames[] = {
    {1019, "GPS", true},    {1045, "GAL", false},   {1046, "GAL", false},
    {1020, "GOL", false},   {1042, "BDS", false},   {1919, "EXGPS", true},
    {1946, "EXGAL", false}, {1920, "EXGLO", false}, {1942, "EXBDS", false},
};

void add_name(char *type, size_t size, const char *name) {
    if (strcmp(name, "GPS") == 0) {
        // GPS replaces the whole text.
        if (strstr(type, "GPS") == nullptr) snprintf(type, size, "GPS");
        return;
    }
    if (strstr(type, name) != nullptr) return;
    size_t len = strlen(type);
    snprintf(type + len, size - len, "%s%s", len > 0 ? "+" : "", name);
}

// Finds the first RTCM frame in 100-byte blocks; false when there is none.
bool find_start(FILE *f, uint32_t size, uint8_t *last_block) {
    uint64_t consumed = 0;
    while (consumed < size && rtcm_start_pos == -1) {
        uint8_t block[100] = {0};
        size_t n = fread(block, 1, sizeof block, f);
        if (n == 0) break;
        memcpy(last_block, block, 2);
        for (size_t i = 0; i + 2 < n; ++i) {
            if (block[i] != 0xD3 || (block[i + 1] & 0xFC) != 0) continue;
            rtcm_start_pos = int32_t(i);
            memset(RecvBuff_time, 0, sizeof RecvBuff_time);
            memcpy(RecvBuff_time, block, i);
            for (int k = 0; k < 21; ++k) printf("%02X ", RecvBuff_time[k]);
            printf("\n");
            vk_log(" Found RTCM message at position: %d\n", rtcm_start_pos);
            // The index within its block serves as the file offset, as it
            // always has; for a start in the first block the two agree.
            fseek(f, long(i), SEEK_SET);
            return true;
        }
        consumed += n;
    }
    return false;
}

}  // namespace

uint32_t TQ934N_GetRtcmEphInfo(const char *path) {
    VkEphSummary s{};
    FILE *f = vk_open_summary_file(path, ".rtcm3", &s.file_size);
    if (f == nullptr) return VK_ERR_COMMAND;
    AGNSS_MODE = s.file_size > 3999 ? 2 : 1;
    uint8_t last_block[2] = {0};
    if (!find_start(f, s.file_size, last_block)) {
        vk_log("[INFO] No RTCM message found in file\n");
        if (last_block[0] == 'B' && last_block[1] == 'K') {
            rtcm_start_pos = 0;
            vk_log(" Found TIME message at position: %d\n", rtcm_start_pos);
            vk_log(" cmd: %x\n", unsigned(last_block[0] | last_block[1] << 8));
        }
        fclose(f);
        return VK_OK;
    }
    while (ftell(f) < long(s.file_size)) {
        uint8_t header[3];
        if (fread(header, 1, 3, f) < 3) break;
        // A broken header is passed over three bytes at a time.
        if (header[0] != 0xD3 || (header[1] & 0xFC) != 0) continue;
        const uint32_t len = ((uint32_t(header[1]) << 8) & 0x300) + header[2];
        if (len + 3 > 4093) {
            vk_log("[ERROR] Message too large for buffer\n");
            fclose(f);
            return VK_ERR_COMMAND;
        }
        uint8_t msg[4096] = {0};
        if (fread(msg, 1, len + 3, f) < len + 3) {
            vk_log("[ERROR] Incomplete RTCM message\n");
            fclose(f);
            return VK_ERR_COMMAND;
        }
        ++s.segments;
        const uint32_t number = uint32_t(gnss_getbitu(msg, 0, 12));
        const NameRule *rule = nullptr;
        for (const NameRule &r : kNames)
            if (r.number == number) rule = &r;
        if (rule == nullptr) {
            vk_log("[ERROR] Unrecognized msg id: %02X\n", number);
            continue;
        }
        add_name(s.type, sizeof s.type, rule->name);
        if (!rule->sets_time) continue;
        const uint32_t week = uint32_t(gnss_getbitu(msg, 18, 10)) + 2048;
        const uint32_t toe = (uint32_t(msg[36]) << 8 | msg[37]) * 16;
        const int64_t time = gps_to_utc(week, int32_t(toe), 18);
        vk_summary_time(s, week, week, toe, time);
    }
    fclose(f);
    s.valid_days = float(s.end_time - s.start_time) / 60.0f / 60.0f / 24.0f;
    vk_print_eph_summary(s);
    return VK_OK;
}

namespace {

float percent(uint32_t sent, uint32_t total) {
    return total == 0 ? 0.0f : float(sent) * 100.0f / float(total);
}

// Up to 1000 ms for 'B' 'K' .. 3C 00|01 at one of the first nine positions.
uint32_t wait_block_ack(SerialPort port, char *buf) {
    const uint64_t start = Vk_ClockGetTimeMs();
    uint64_t elapsed = 0;
    do {
        memset(buf, 0, VK_REPLY_BUFFER);
        uint32_t n = serial_read(port, buf, VK_REPLY_BUFFER, 200);
        if (n == 0 && serial_port_gone(port)) break;  // nothing will ever come
        const uint8_t *b = reinterpret_cast<const uint8_t *>(buf);
        for (uint32_t i = 0; i <= 8 && i + 6 <= n; ++i)
            if (b[i] == 'B' && b[i + 1] == 'K' && b[i + 4] == 0x3C && b[i + 5] <= 0x01)
                return VK_OK;
    } while (!Vk_CalculateElapsedTime(start, 1000, &elapsed));
    return VK_ERR_NO_REPLY;
}

uint32_t TQ934N_SendEphDataByBP_Internal(SerialPort port, const char *path, uint32_t total,
                                         int mode) {
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
        return TQ934N_ERR_EPH_OPEN;
    }
    uint32_t result = VK_ERR_COMMAND;
    if (already_send >= total) already_send = 0;
    if (already_send == 0)
        vk_log("[PROGRESS] %.2f%%\r\n", 0.0);
    else
        fseek(f, long(already_send), SEEK_SET);
    char *reply = static_cast<char *>(malloc(VK_REPLY_BUFFER));
    if (reply == nullptr) {
        perror("malloc");
        fclose(f);
        return VK_ERR_COMMAND;
    }
    uint8_t block[TQ934N_BLOCK] = {};
    for (;;) {
        size_t n = fread(block, 1, sizeof block, f);
        if (n == 0) break;
        const uint64_t asked = vk_clock_us();
        uint32_t sent = serial_write(port, block, uint32_t(n));
        if (sent < n) {
            // The block did not go out whole (the port went away, or the
            // receiver stopped taking data): the file stays unfinished.
            already_send += sent;
            vk_log("[PROGRESS] %.2f%%\r\n", double(percent(already_send, total)));
            result = VK_ERR_COMMAND;
            break;
        }
        // A missing acknowledgement only costs its wait: the transfer goes on.
        result = wait_block_ack(port, reply);
        already_send += sent;
        vk_log("[PROGRESS] %.2f%%\r\n", double(percent(already_send, total)));
        if (already_send == total) {
            result = VK_OK;
            break;
        }
        if (mode == 2) vk_pause_after_reply(port, asked, 1000000);
    }
    fclose(f);
    free(reply);
    if (result != VK_OK) vk_log("[ERROR] send [%s] to module failed\n", path);
    if (result != VK_OK || already_send == total) already_send = 0;
    return result;
}

}  // namespace

uint32_t TQ934N_SendEphDataByBP(SerialPort port, const char *path, int mode) {
    uint32_t total = 0;
    if (!vk_path_size(path, &total)) return TQ934N_ERR_EPH_OPEN;
    vk_log("[INFO] Enter send eph...\n");
    return TQ934N_SendEphDataByBP_Internal(port, path, total, mode);
}
