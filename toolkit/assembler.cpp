#include "toolkit/assembler.h"

#include <cstdio>

#include "toolkit/checksum.h"

namespace {

// A text sentence is '$', at most 199 further characters, CR, LF.
constexpr uint32_t kTextBodyLimit = 200;

constexpr uint8_t kSync1 = 0xF1;
constexpr uint8_t kSync2 = 0xD9;

struct TextState {
    unsigned step;
    uint32_t count;
};

struct BinaryState {
    uint8_t step;
    uint32_t count;
    uint16_t payload_len;
    uint16_t checksum;
};

// One state per assembler, alive for the whole process.
TextState g_nmea_state = {0, 0};
TextState g_pvnk_state = {0, 0};
BinaryState g_nav_cmd_state = {0, 0, 0, 0};
BinaryState g_nav_eph_state = {0, 0, 0, 0};

void reset(TextState &st) {
    st.step = 0;
    st.count = 0;
}

void reset(BinaryState &st) {
    st.step = 0;
    st.count = 0;
    st.payload_len = 0;
    st.checksum = 0;
}

// Printable ASCII, CR and LF are the only bytes a sentence may carry.
bool text_byte_allowed(uint8_t byte) {
    return (byte >= 0x21 && byte <= 0x7E) || byte == 0x0D || byte == 0x0A;
}

uint32_t text_composite(TextState &st, bool verbose, bool clear_count_while_hunting, uint8_t byte,
                        uint8_t *buf, uint32_t *len_out) {
    if (!text_byte_allowed(byte)) {
        if (verbose) {
            printf("[ERR] wrong byte: %02X\n", byte);
            fflush(stdout);
        }
        *len_out = 0;
        reset(st);
        return VK_ASM_FRAME_ERROR;
    }

    switch (st.step) {
        case 0:
            if (byte == '$') {
                buf[0] = byte;
                st.count = 1;
                st.step = 1;
            } else if (clear_count_while_hunting) {
                st.count = 0;
            }
            return VK_ASM_PENDING;

        case 1:
            if (byte == '\r') {
                buf[st.count++] = byte;
                st.step = 2;
                return VK_ASM_PENDING;
            }
            if (st.count >= kTextBodyLimit) {
                if (verbose) {
                    // The buffer is not NUL-terminated: print exactly what it holds.
                    printf("[ERR] length over 200. here: %d, %.*s\n", int(st.count), int(st.count),
                           reinterpret_cast<const char *>(buf));
                    fflush(stdout);
                }
                reset(st);
                return VK_ASM_FRAME_ERROR;
            }
            buf[st.count++] = byte;
            return VK_ASM_PENDING;

        case 2:
            if (byte == '\n') {
                buf[st.count++] = byte;
                *len_out = st.count;
                reset(st);
                return VK_ASM_COMPLETE;
            }
            // A CR not followed by LF drops the sentence without an error.
            reset(st);
            return VK_ASM_PENDING;

        default: reset(st); return VK_ASM_PENDING;
    }
}

// Binary frame F1 D9 class id lenL lenH payload[N] A B.
// With eph_variant the hunting step falls through into the second-sync test
// for the same byte, so an ephemeris reply is framed from its 0xD9 onward:
// one byte fewer before the class, one byte more of payload, and the
// checksum span shifted by one. The deviation is deliberate and is kept
// exactly, since the frames it yields are what its users expect.
uint32_t binary_composite(BinaryState &st, bool eph_variant, uint8_t byte, uint8_t *buf,
                          uint32_t *len_out) {
    switch (st.step) {
        case 0:
            if (byte == kSync1) {
                buf[0] = byte;
                st.count = 1;
                st.step = 1;
            }
            if (!eph_variant) return VK_ASM_PENDING;
            [[fallthrough]];
        case 1:
            if (byte != kSync2) {
                reset(st);
                return VK_ASM_FRAME_ERROR;
            }
            buf[st.count++] = byte;
            st.step = 2;
            return VK_ASM_PENDING;

        case 2:  // class
        case 3:  // id
            buf[st.count++] = byte;
            st.step = uint8_t(st.step + 1);
            return VK_ASM_PENDING;

        case 4:
            buf[st.count++] = byte;
            st.payload_len = byte;
            st.step = 5;
            return VK_ASM_PENDING;

        case 5:
            buf[st.count++] = byte;
            st.payload_len = uint16_t(st.payload_len + (uint16_t(byte) << 8));
            st.step = (st.payload_len == 0) ? 7 : 6;
            return VK_ASM_PENDING;

        case 6:
            buf[st.count++] = byte;
            if (st.count == uint32_t(st.payload_len) + 6u) st.step = 7;
            return VK_ASM_PENDING;

        case 7:
            buf[st.count++] = byte;
            st.checksum = byte;
            st.step = 8;
            return VK_ASM_PENDING;

        case 8: {
            buf[st.count++] = byte;
            st.checksum = uint16_t(st.checksum + (uint16_t(byte) << 8));
            // The two-sum skips the sync bytes itself; stop before the checksum.
            uint16_t calc = Vk_Check_Crc16(buf, st.count - 2);
            if (calc != st.checksum) {
                reset(st);
                return VK_ASM_CHECKSUM;
            }
            *len_out = st.count;
            reset(st);
            return VK_ASM_COMPLETE;
        }

        default: reset(st); return VK_ASM_PENDING;
    }
}

}  // namespace

uint32_t Vk_NMEA_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out) {
    return text_composite(g_nmea_state, true, false, byte, buf, len_out);
}

uint32_t Vk_PVNK_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out) {
    return text_composite(g_pvnk_state, false, true, byte, buf, len_out);
}

uint32_t Vk_NAV_CMD_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out) {
    return binary_composite(g_nav_cmd_state, false, byte, buf, len_out);
}

uint32_t Vk_NAV_EPH_Composite(uint8_t byte, uint8_t *buf, uint32_t *len_out) {
    return binary_composite(g_nav_eph_state, true, byte, buf, len_out);
}
