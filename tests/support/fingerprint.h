// CRC-32 (IEEE 802.3) one bit at a time: a fingerprint of generated sample
// data, so a test can pin a generator's output without storing the bytes.
#pragma once

#include <cstddef>
#include <cstdint>

inline uint32_t fingerprint_crc32(const uint8_t *p, size_t n) {
    uint32_t crc = ~0u;
    for (size_t i = 0; i < n; ++i) {
        crc ^= p[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ ((crc & 1u) ? 0xEDB88320u : 0u);
    }
    return ~crc;
}
