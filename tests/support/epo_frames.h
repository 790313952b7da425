// Binary EPO frames as the tests expect them on the wire, built here
// independently of the tool: 04 24 | id | length | payload | XOR over id,
// length and payload | AA 44.
#pragma once

#include <cstdint>
#include <vector>

inline std::vector<uint8_t> epo_frame(uint16_t id, const std::vector<uint8_t> &payload) {
    std::vector<uint8_t> f;
    f.reserve(payload.size() + 9);
    for (uint8_t b : {uint8_t(0x04), uint8_t(0x24), uint8_t(id & 0xFF), uint8_t(id >> 8),
                      uint8_t(payload.size() & 0xFF), uint8_t(payload.size() >> 8)})
        f.push_back(b);
    for (uint8_t b : payload) f.push_back(b);
    uint8_t x = 0;
    for (size_t i = 2; i < f.size(); ++i) x ^= f[i];
    f.push_back(x);
    f.push_back(0xAA);
    f.push_back(0x44);
    return f;
}

// The receiver's acknowledgement of frame id: a frame of id 1000 whose
// payload is the acknowledged id as sent and a 16-bit result (0: accepted).
inline std::vector<uint8_t> epo_ack(uint16_t id, uint8_t result = 0) {
    return epo_frame(1000, {uint8_t(id & 0xFF), uint8_t(id >> 8), result, 0x00});
}
