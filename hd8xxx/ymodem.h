// A small YMODEM sender (CRC-16 packets, one file per call). It knows nothing
// of ports: the caller installs four operations once with ymodem_io_init.
#pragma once

#include <cstdint>

enum : uint8_t {
    YMODEM_SOH = 0x01,
    YMODEM_STX = 0x02,
    YMODEM_EOT = 0x04,
    YMODEM_ACK = 0x06,
    YMODEM_NAK = 0x15,
    YMODEM_CAN = 0x18,
    YMODEM_C = 0x43,
};

using YmodemSendFn = int (*)(const uint8_t *data, uint32_t len);  // the count written
using YmodemRecvFn = int (*)(uint8_t *buf, uint32_t len);         // the count read, or < 0
using YmodemCrcFn = uint16_t (*)(const uint8_t *data, uint32_t len);
using YmodemDelayFn = void (*)(uint32_t ms);

void ymodem_io_init(YmodemSendFn send, YmodemRecvFn recv, YmodemCrcFn crc, YmodemDelayFn delay);

// Debug mask, 0 at start: bit 0 prints every packet sent and acknowledged,
// bit 1 every byte received. Nothing in the tool sets it.
extern uint32_t ymodem_debug;

// Sends one file held in memory: header packet (name and decimal size), STX
// data packets, EOT, end packet. 0 on success; -1 for a null name or data or
// a size below 1; otherwise the failing step's negative code.
int ymodem_file_transfer(const char *name, const uint8_t *data, int32_t size);

// One packet as it is built before it goes on the wire.
struct YmodemPacket {
    uint8_t mode = 0;  // SOH, STX or EOT
    uint8_t number = 0;
    uint8_t complement = 0;
    uint8_t data[1024] = {};
    uint32_t data_len = 0;  // 128 (SOH) or 1024 (STX)
    uint16_t crc = 0;
};
// Fills a packet: the data padded with 0x00 (SOH) or 0x1A (STX), the CRC over
// the whole data area. EOT sets only the mode. 0, or -1 for an unknown mode.
int ymodem_pkt_fill(YmodemPacket *pkt, uint8_t mode, int number, const uint8_t *data, uint32_t len);
// Writes the wire form into buf (2048 bytes) and returns its length, or -1
// for a packet without data.
int ymodem_pkt2buf(const YmodemPacket *pkt, uint8_t *buf);
