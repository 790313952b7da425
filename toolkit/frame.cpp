#include "toolkit/frame.h"

#include <cstring>

#include "toolkit/checksum.h"

namespace {

// The checksum functions in the shape VkFrameCheck wants.
uint32_t check_xor(const uint8_t *data, uint32_t len) { return Vk_Check_XOR(data, len); }
uint32_t check_fletcher8(const uint8_t *data, uint32_t len) { return Vk_Fletcher8(data, len); }
uint32_t check_crc24q(const uint8_t *data, uint32_t len) { return Vk_Check_CRC24Q(0, data, len); }
uint32_t check_crc16(const uint8_t *data, uint32_t len) { return Vk_CRC16_Calc(data, len); }

constexpr uint8_t kEpoSync[] = {0x04, 0x24};
constexpr uint8_t kEpoTrailer[] = {0xAA, 0x44};
constexpr uint8_t kHdSync[] = {0xF1, 0xD9};
constexpr uint8_t kRtcmSync[] = {0xD3};
constexpr uint8_t kBkSync[] = {0x42, 0x4B};

// The bits a field can carry: its mask cut to its width.
uint32_t field_bits(const VkFrameField &field) {
    if (field.size == 0) return 0;
    if (field.size >= 4) return field.mask;
    return field.mask & ((1u << (8u * field.size)) - 1u);
}

// The field's bytes as one number, mask not applied. The caller has checked the bounds.
uint32_t read_raw(const VkFrameField &field, const uint8_t *frame) {
    uint32_t v = 0;
    for (uint32_t i = 0; i < field.size; ++i) {
        uint32_t at = field.order == VkByteOrder::Big ? i : field.size - 1u - i;
        v = v << 8 | frame[field.offset + at];
    }
    return v;
}

// Stores the low field.size bytes of v at the field's place, starting at frame.
void write_raw(const VkFrameField &field, uint32_t v, uint8_t *frame) {
    for (uint32_t i = 0; i < field.size; ++i) {
        uint32_t at = field.order == VkByteOrder::Big ? field.size - 1u - i : i;
        frame[field.offset + at] = uint8_t(v >> (8u * i));
    }
}

// A header field: at most 4 bytes, clear of the sync, inside the header.
bool header_field_ok(const VkFrameField &field, const VkFrameFormat &f) {
    if (field.size > 4) return false;
    if (field.size == 0) return true;
    return field.offset >= f.sync.size() && uint32_t(field.offset) + field.size <= f.header_size;
}

bool overlap(const VkFrameField &a, const VkFrameField &b) {
    if (a.size == 0 || b.size == 0) return false;
    return a.offset < b.offset + b.size && b.offset < a.offset + a.size;
}

// Where the check value of a frame with payload_len payload bytes starts.
uint32_t check_offset(const VkFrameFormat &f, uint32_t payload_len) {
    return f.check_at_end ? uint32_t(f.header_size) + payload_len : f.check_field.offset;
}

// Whether the whole frame in buf (payload_len payload bytes) carries the right check value and
// trailer.
bool frame_intact(const VkFrameFormat &f, const uint8_t *buf, uint32_t payload_len) {
    uint32_t end = uint32_t(f.header_size) + payload_len;
    if (f.check != nullptr) {
        uint32_t at = check_offset(f, payload_len);
        VkFrameField stored = f.check_field;
        stored.offset = 0;
        uint32_t want = f.check(buf + f.check_from, end - f.check_from);
        uint32_t width =
            f.check_field.size >= 4 ? 0xFFFFFFFFu : (1u << (8u * f.check_field.size)) - 1u;
        if (read_raw(stored, buf + at) != (want & width)) return false;
    }
    uint32_t trailer_at = end + (f.check_at_end ? f.check_field.size : 0u);
    return f.trailer.empty() || memcmp(buf + trailer_at, f.trailer.data(), f.trailer.size()) == 0;
}

VkFrameEvent finish(VkFrameParser &p, VkFrameEvent ev, uint32_t frame_len, uint32_t *len) {
    if (len != nullptr) *len = frame_len;
    p.have = 0;
    p.need = 0;
    return ev;
}

}  // namespace

// EPO transfer frames. The receiver acknowledges each with a frame of id 1000 whose payload is
// the acknowledged id followed by a 16-bit result.
constexpr VkFrameFormat kVkFrameEpo = {
    .sync = kEpoSync,
    .header_size = 6,
    .id = {.offset = 2, .size = 2, .order = VkByteOrder::Little},
    .length = {.offset = 4, .size = 2, .order = VkByteOrder::Little},
    .check = check_xor,
    .check_from = 2,
    .check_field = {.offset = 0, .size = 1},
    .check_at_end = true,
    .trailer = kEpoTrailer,
    .max_payload = 65535,
};

// F1 D9 frames: the class and id bytes read as one number, the Fletcher sum stored A then B.
constexpr VkFrameFormat kVkFrameHd = {
    .sync = kHdSync,
    .header_size = 6,
    .id = {.offset = 2, .size = 2, .order = VkByteOrder::Big},
    .length = {.offset = 4, .size = 2, .order = VkByteOrder::Little},
    .check = check_fletcher8,
    .check_from = 2,
    .check_field = {.offset = 0, .size = 2, .order = VkByteOrder::Little},
    .check_at_end = true,
    .trailer = {},
    .max_payload = 65535,
};

// RTCM 3 frames: six reserved zero bits, then a 10-bit length; the CRC covers the header too.
constexpr VkFrameFormat kVkFrameRtcm = {
    .sync = kRtcmSync,
    .header_size = 3,
    .id = {},
    .length = {.offset = 1, .size = 2, .order = VkByteOrder::Big, .mask = 0x03FFu},
    .check = check_crc24q,
    .check_from = 0,
    .check_field = {.offset = 0, .size = 3, .order = VkByteOrder::Big},
    .check_at_end = true,
    .trailer = {},
    .max_payload = 1023,
};

// 'B' 'K' frames: the CRC sits right behind the sync and covers class, id, length and payload.
constexpr VkFrameFormat kVkFrameBk = {
    .sync = kBkSync,
    .header_size = 8,
    .id = {.offset = 4, .size = 2, .order = VkByteOrder::Big},
    .length = {.offset = 6, .size = 2, .order = VkByteOrder::Big, .mask = 0x0FFFu},
    .check = check_crc16,
    .check_from = 4,
    .check_field = {.offset = 2, .size = 2, .order = VkByteOrder::Big},
    .check_at_end = false,
    .trailer = {},
    .max_payload = 4095,
};

bool vk_frame_format_ok(const VkFrameFormat &f) {
    if (f.sync.empty() || f.sync.size() > f.header_size) return false;
    if (!header_field_ok(f.id, f) || !header_field_ok(f.length, f)) return false;
    if (overlap(f.id, f.length)) return false;
    uint32_t bits = field_bits(f.length);
    if ((bits & (bits + 1u)) != 0) return false;  // not a run of low bits
    if (f.max_payload > bits) return false;
    if (f.check_from > f.header_size) return false;
    if ((f.check == nullptr) != (f.check_field.size == 0)) return false;
    if (f.check_field.size > 4) return false;
    if (f.check != nullptr) {
        if (f.check_at_end) {
            if (f.check_field.offset != 0) return false;
        } else {
            if (!header_field_ok(f.check_field, f)) return false;
            if (overlap(f.check_field, f.id) || overlap(f.check_field, f.length)) return false;
            if (uint32_t(f.check_field.offset) + f.check_field.size > f.check_from) return false;
        }
    }
    return vk_frame_size(f, f.max_payload) != 0;
}

uint32_t vk_frame_size(const VkFrameFormat &f, uint32_t payload_len) {
    uint64_t n = uint64_t(f.header_size) + payload_len + f.trailer.size();
    if (f.check != nullptr && f.check_at_end) n += f.check_field.size;
    return n > 0xFFFFFFFFu ? 0 : uint32_t(n);
}

uint32_t vk_frame_build(const VkFrameFormat &f, uint32_t id, std::span<const uint8_t> payload,
                        std::span<uint8_t> out) {
    if (!vk_frame_format_ok(f)) return 0;
    if (payload.size() > f.max_payload) return 0;  // max_payload fits the length field
    uint32_t n = uint32_t(payload.size());
    if ((id & ~field_bits(f.id)) != 0) return 0;
    uint32_t total = vk_frame_size(f, n);
    if (total == 0 || total > out.size()) return 0;

    uint8_t *frame = out.data();
    // The payload goes first, so that one lying anywhere inside out survives the header.
    if (n != 0) memmove(frame + f.header_size, payload.data(), n);
    memset(frame, 0, f.header_size);
    memcpy(frame, f.sync.data(), f.sync.size());
    write_raw(f.id, id, frame);
    write_raw(f.length, n, frame);
    uint32_t end = uint32_t(f.header_size) + n;
    if (f.check != nullptr) {
        uint32_t value = f.check(frame + f.check_from, end - f.check_from);
        VkFrameField stored = f.check_field;
        stored.offset = 0;
        write_raw(stored, value, frame + check_offset(f, n));
    }
    if (!f.trailer.empty())
        memcpy(frame + total - f.trailer.size(), f.trailer.data(), f.trailer.size());
    return total;
}

uint32_t vk_frame_get(const VkFrameField &field, std::span<const uint8_t> frame) {
    if (field.size == 0 || field.size > 4) return 0;
    if (uint32_t(field.offset) + field.size > frame.size()) return 0;
    return read_raw(field, frame.data()) & field.mask;
}

std::span<const uint8_t> vk_frame_payload(const VkFrameFormat &f, std::span<const uint8_t> frame) {
    if (frame.size() < f.header_size) return {};
    uint32_t n = vk_frame_get(f.length, frame);
    if (frame.size() - f.header_size < n) return {};
    return frame.subspan(f.header_size, n);
}

VkFrameEvent vk_frame_feed(VkFrameParser &p, uint8_t byte, uint32_t *len) {
    if (p.format == nullptr) return VkFrameEvent::Pending;
    const VkFrameFormat &f = *p.format;

    if (p.have < f.sync.size()) {
        if (byte != f.sync[p.have]) {
            p.have = 0;
            p.need = 0;
            if (byte != f.sync[0]) return VkFrameEvent::Pending;
        }
        // A frame starts: make sure it can be held before taking anything.
        if (p.have == 0 && (p.buf.size() < f.header_size || !vk_frame_format_ok(f)))
            return VkFrameEvent::Pending;
    } else if (p.have >= p.buf.size()) {
        // Only a record changed behind the parser's back gets here.
        return finish(p, VkFrameEvent::BadLength, p.have, len);
    }
    p.buf[p.have++] = byte;

    if (p.need == 0) {
        if (p.have < f.header_size) return VkFrameEvent::Pending;
        uint32_t raw = read_raw(f.length, p.buf.data());
        uint32_t bits = field_bits(f.length);
        if ((raw & ~bits) != 0 || raw > f.max_payload)
            return finish(p, VkFrameEvent::BadLength, p.have, len);
        uint32_t total = vk_frame_size(f, raw);
        if (total == 0 || total > p.buf.size())
            return finish(p, VkFrameEvent::BadLength, p.have, len);
        p.need = total;
    }
    if (p.have < p.need) return VkFrameEvent::Pending;

    uint32_t payload_len = p.need - vk_frame_size(f, 0);
    bool ok = frame_intact(f, p.buf.data(), payload_len);
    return finish(p, ok ? VkFrameEvent::Complete : VkFrameEvent::BadCheck, p.need, len);
}

bool vk_frame_match_feed(VkFrameMatch &m, uint8_t byte, bool *taken) {
    uint32_t target = uint32_t(m.value.size());
    if (m.accept_at != 0 && m.accept_at < target) target = m.accept_at;
    if (taken != nullptr) *taken = false;
    if (target == 0) return false;
    if (m.state >= target) m.state = 0;

    uint8_t mask = m.state < m.mask.size() ? m.mask[m.state] : 0xFF;
    if (((byte ^ m.value[m.state]) & mask) != 0) {
        if (m.on_mismatch == VkOnMismatch::Restart) m.state = 0;
        return false;
    }
    if (taken != nullptr) *taken = true;
    if (++m.state < target) return false;
    m.state = 0;
    return true;
}

uint32_t vk_frame_pattern(const VkFrameFormat &f, uint32_t id, std::span<const uint8_t> payload,
                          bool check_value_checked, std::span<uint8_t> value,
                          std::span<uint8_t> mask) {
    if (payload.size() > f.max_payload) return 0;
    uint32_t total = vk_frame_size(f, uint32_t(payload.size()));
    if (total == 0 || mask.size() < total) return 0;
    uint32_t n = vk_frame_build(f, id, payload, value);
    if (n == 0) return 0;
    memset(mask.data(), 0xFF, n);
    if (!check_value_checked && f.check != nullptr)
        memset(mask.data() + check_offset(f, uint32_t(payload.size())), 0x00, f.check_field.size);
    return n;
}

uint32_t vk_judge_ack(void *ack_wait, const char *buf, uint32_t len, uint32_t current) {
    VkAckWait *w = static_cast<VkAckWait *>(ack_wait);
    for (uint32_t i = 0; i < len; ++i) {
        const uint8_t b = uint8_t(buf[i]);
        const uint32_t at = w->match.state;
        bool taken = false;
        const bool done = vk_frame_match_feed(w->match, b, &taken);
        if (taken) w->out[at] = b;
        if (w->echo != nullptr) w->echo(b, taken, at);
        if (done) return 0;
    }
    return current;
}
