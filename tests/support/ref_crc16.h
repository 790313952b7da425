// CRC-16/XMODEM one bit at a time, from the polynomial 0x1021 alone: the
// tests' own reference, independent of the table-driven code under test.
#pragma once

#include <cstddef>
#include <cstdint>

inline uint16_t ref_crc16_xmodem(const uint8_t *p, size_t n) {
    uint16_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc = uint16_t(crc ^ (uint16_t(p[i]) << 8));
        for (int k = 0; k < 8; ++k)
            crc = uint16_t((crc & 0x8000u) ? ((crc << 1) ^ 0x1021u) : (crc << 1));
    }
    return crc;
}
