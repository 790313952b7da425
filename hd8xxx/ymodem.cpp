#include "hd8xxx/ymodem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "hd8xxx/hd8xxx.h"
#include "toolkit/text.h"

uint32_t ymodem_debug = 0;

namespace {

struct YmodemIo {
    YmodemSendFn send = nullptr;
    YmodemRecvFn recv = nullptr;
    YmodemCrcFn crc = nullptr;
    YmodemDelayFn delay = nullptr;
};
YmodemIo g_io;

// Bytes of file data acknowledged so far. It survives a successful STX run,
// so the second file of a divided download goes on from the first one's
// percentage toward the whole input file.
uint32_t g_progress = 0;

enum : uint32_t { kSohBlock = 128, kStxBlock = 1024, kWireBuffer = 2048 };

// --- the installed operations -------------------------------------------------------------

int ymodem_send(const uint8_t *data, uint32_t len) {
    if (g_io.send == nullptr) {
        vk_log(" ymodem: Need: ymodem_io_init()\n");
        return 0;
    }
    int n = g_io.send(data, len);
    if (n != int(len)) {
        vk_log(" ymodem: send %d error(%d)\n", int(len), n);
        printf_raw_data("TX", data, len);
    } else if (ymodem_debug & 1u) {
        printf_raw_data("TX", data, len);
    }
    return n;
}

int ymodem_recv(uint8_t *buf, uint32_t len) {
    if (g_io.recv == nullptr) {
        vk_log(" ymodem: Need: ymodem_io_init()\n");
        return -1;
    }
    int n = g_io.recv(buf, len);
    if ((ymodem_debug & 2u) && n > 0) printf_raw_data("RX", buf, uint32_t(n));
    return n;
}

uint16_t ymodem_crc16(const uint8_t *data, uint32_t len) {
    if (g_io.crc == nullptr) {
        vk_log(" ymodem: \r\n Need: ymodem_io_init()\n");
        return 0;
    }
    return g_io.crc(data, len);
}

void ymodem_delay(uint32_t ms) {
    if (g_io.delay == nullptr) {
        vk_log(" ymodem: \r\n Need: ymodem_io_init()\n");
        return;
    }
    g_io.delay(ms);
}

// --- one packet ---------------------------------------------------------------------------

// Polls one byte at a time for either awaited byte (0: none) or CAN, which
// counts as an answer too. Only the 40 ms pauses count toward the time-out,
// not the time each receive call blocks. A receive that fails (the line is
// gone) ends the wait as a time-out at once: no answer can come.
int ymodem_pkt_wait_resp(uint8_t first, uint8_t second, uint32_t timeout_ms) {
    uint32_t elapsed = 0;
    do {
        uint8_t b = 0;
        int n = ymodem_recv(&b, 1);
        if (n < 0) break;
        if (n == 1 &&
            ((first != 0 && b == first) || (second != 0 && b == second) || b == YMODEM_CAN))
            return 0;
        ymodem_delay(40);
        elapsed += 40;
    } while (elapsed <= timeout_ms);
    vk_log(" ymodem: wait ACK or C = 0x%02X or 0x%02X timeout\n", first, second);
    return -1;
}

int ymodem_pkt_tx(const YmodemPacket *pkt) {
    int result = 0;
    if (pkt->mode == YMODEM_EOT) {
        if (ymodem_send(&pkt->mode, 1) != 1) result = -1;
    } else {
        uint8_t buf[kWireBuffer];
        int len = ymodem_pkt2buf(pkt, buf);
        if (len <= 0) return -1;
        if (ymodem_send(buf, uint32_t(len)) != len) result = -1;
    }
    ymodem_delay(100);
    return result;
}

// NAK is never looked for: a receiver's NAK only lets the wait run on.
int ymodem_pkt_ack(const YmodemPacket *pkt) {
    if (pkt->mode == YMODEM_SOH && pkt->number == 0 && pkt->data[0] != 0) {
        ymodem_pkt_wait_resp(YMODEM_ACK, 0, 2000);  // the header's ACK may go unseen
        return ymodem_pkt_wait_resp(YMODEM_C, 0, 2000);
    }
    if (pkt->mode == YMODEM_EOT) {
        ymodem_pkt_wait_resp(YMODEM_ACK, 0, 200);
        int r = ymodem_pkt_wait_resp(YMODEM_C, 0, 2000);
        if (r == 0) return 0;
        // Receivers commonly refuse the first EOT; the second one ends the file.
        ymodem_pkt_tx(pkt);
        ymodem_pkt_wait_resp(YMODEM_ACK, 0, 200);
        return ymodem_pkt_wait_resp(YMODEM_C, 0, 2000);
    }
    return ymodem_pkt_wait_resp(YMODEM_ACK, YMODEM_C, 2000);
}

int ymodem_pkt_transfer(uint8_t mode, int number, const uint8_t *data, int len) {
    if (number < 0 || len < 0 || data == nullptr) return -1;
    YmodemPacket *pkt = static_cast<YmodemPacket *>(malloc(sizeof(YmodemPacket)));
    if (pkt == nullptr) {
        vk_log(" ymodem: malloc error\n");
        return -1;
    }
    *pkt = YmodemPacket{};
    if (ymodem_pkt_fill(pkt, mode, number, data, uint32_t(len)) != 0) {
        vk_log(" ymodem: ymodem_pkt_fill error\n");
        free(pkt);
        return -3;
    }
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (ymodem_pkt_tx(pkt) == 0 && ymodem_pkt_ack(pkt) == 0) {
            if (ymodem_debug & 1u) vk_log(" ymodem: recv ack ok! (%d)\n", attempt);
            free(pkt);
            return 0;
        }
    }
    vk_log(" ymodem: retry end, error\n");
    free(pkt);
    return -4;
}

// --- files --------------------------------------------------------------------------------

void print_progress() {
    float percent = float(g_progress) * 100.0f / float(HD8XXX_GetOffEphTotalSize());
    vk_log("[PROGRESS] %.2f%%\r\n", double(percent));
}

int ymodem_pkts_transfer(uint8_t mode, int first, const uint8_t *data, int32_t size) {
    if (size < 1) return -1;
    const uint32_t block = mode == YMODEM_STX ? kStxBlock : kSohBlock;
    if (mode == YMODEM_STX && g_progress == 0) print_progress();
    int number = first;
    uint32_t offset = 0;
    while (offset < uint32_t(size)) {
        uint32_t left = uint32_t(size) - offset;
        uint32_t chunk = left < block ? left : block;
        int r = ymodem_pkt_transfer(mode, number & 0xFF, data + offset, int(chunk));
        if (r != 0) {
            g_progress = 0;
            return r;
        }
        ++number;
        offset += block;
        g_progress += chunk;
        if (mode == YMODEM_STX) print_progress();
    }
    if (mode != YMODEM_STX) g_progress = 0;
    return 0;
}

int ymodem_data_transfer(uint8_t mode, const uint8_t *data, int32_t size) {
    return ymodem_pkts_transfer(mode, 1, data, size);
}

// The header (name and size), the end packet (no name) or EOT.
int ymodem_ctrl_transfer(uint8_t mode, const char *name, int32_t size) {
    uint8_t block[kSohBlock] = {0};
    if (mode == YMODEM_SOH && name != nullptr) {
        char size_text[16];
        snprintf(size_text, sizeof size_text, "%d", int(size));
        // Name, NUL, size, NUL; a name too long for the block is cut.
        size_t room = kSohBlock - strlen(size_text) - 2;
        size_t n = strlen(name) < room ? strlen(name) : room;
        memcpy(block, name, n);
        memcpy(block + n + 1, size_text, strlen(size_text));
    }
    return ymodem_pkt_transfer(mode, 0, block, mode == YMODEM_EOT ? 0 : int(kSohBlock));
}

}  // namespace

void ymodem_io_init(YmodemSendFn send, YmodemRecvFn recv, YmodemCrcFn crc, YmodemDelayFn delay) {
    g_io = {send, recv, crc, delay};
}

int ymodem_pkt_fill(YmodemPacket *pkt, uint8_t mode, int number, const uint8_t *data,
                    uint32_t len) {
    pkt->mode = mode;
    if (mode == YMODEM_EOT) return 0;
    if (mode != YMODEM_SOH && mode != YMODEM_STX) return -1;
    pkt->number = uint8_t(number);
    pkt->complement = uint8_t(~uint8_t(number));
    pkt->data_len = mode == YMODEM_STX ? kStxBlock : kSohBlock;
    memset(pkt->data, mode == YMODEM_STX ? 0x1A : 0x00, sizeof pkt->data);
    memcpy(pkt->data, data, len < pkt->data_len ? len : pkt->data_len);
    pkt->crc = ymodem_crc16(pkt->data, pkt->data_len);
    return 0;
}

int ymodem_pkt2buf(const YmodemPacket *pkt, uint8_t *buf) {
    if (pkt->data_len == 0) {
        vk_log(" ymodem: PARAM ERROR: pkt->data_buf = %p; pkt->data_len=%u\n",
               static_cast<const void *>(pkt->data), pkt->data_len);
        return -1;
    }
    buf[0] = pkt->mode;
    buf[1] = pkt->number;
    buf[2] = pkt->complement;
    memcpy(buf + 3, pkt->data, pkt->data_len);
    buf[3 + pkt->data_len] = uint8_t(pkt->crc >> 8);
    buf[4 + pkt->data_len] = uint8_t(pkt->crc & 0xFF);
    if (ymodem_debug & 1u)
        vk_log(
            " ymodem: pkt(%d): mode = 0x%02X, id = 0x%02X, id2 = 0x%02X, data_len = %d, crc = "
            "0x%04X\n",
            int(pkt->number), pkt->mode, pkt->number, pkt->complement, int(pkt->data_len),
            pkt->crc);
    return int(pkt->data_len + 5);
}

int ymodem_file_transfer(const char *name, const uint8_t *data, int32_t size) {
    if (name == nullptr || data == nullptr || size <= 0) return -1;
    int r = ymodem_ctrl_transfer(YMODEM_SOH, name, size);
    if (r != 0) {
        vk_log(" ymodem: start-SOH send failed\n");
        return r;
    }
    vk_log(" ymodem: SOH send OK\n");
    r = ymodem_data_transfer(YMODEM_STX, data, size);
    if (r != 0) {
        vk_log(" ymodem: data package send failed\n");
        return r;
    }
    vk_log(" ymodem: STX send OK\n");
    r = ymodem_ctrl_transfer(YMODEM_EOT, nullptr, 0);
    if (r != 0) {
        vk_log(" ymodem: EOT send failed\n");
        return r;
    }
    vk_log(" ymodem: EOT send OK\n");
    r = ymodem_ctrl_transfer(YMODEM_SOH, nullptr, 0);
    if (r != 0) {
        vk_log(" ymodem: end-SOH send failed\n");
        return r;
    }
    vk_log(" ymodem: end-SOH send OK\n");
    return 0;
}
