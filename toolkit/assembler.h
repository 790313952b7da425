// Byte-at-a-time reply assemblers: two for NMEA-style sentences, two for
// binary frames with the sync bytes 0xF1 0xD9. Each keeps one static state.
#pragma once

#include <cstdint>

enum : uint32_t {
    VK_ASM_PENDING = 0,      // byte taken (or ignored), frame not complete
    VK_ASM_FRAME_ERROR = 1,  // state reset
    VK_ASM_CHECKSUM = 2,     // checksum mismatch, state reset (binary only)
    VK_ASM_COMPLETE = 3,     // frame complete, *len_out set, state reset
};

// buf must hold 202 bytes (text) or 65543 bytes (binary); not NUL-terminated.
uint32_t Vk_NMEA_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out);
uint32_t Vk_PVNK_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out);
uint32_t Vk_NAV_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out);
uint32_t Vk_NAV_EPH_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out);
