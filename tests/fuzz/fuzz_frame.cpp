// Byte streams of any content through parsers and matchers of the four frame formats. Every
// frame a parser completes must come out of vk_frame_build again, byte for byte, from its id
// and payload; every frame built from the input must parse back whole; a matcher that restarts
// on a wrong byte may only complete on the pattern's last bytes in a row.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "toolkit/frame.h"

namespace {

const VkFrameFormat *const kFormats[] = {&kVkFrameEpo, &kVkFrameHd, &kVkFrameRtcm, &kVkFrameBk};
constexpr size_t kCount = sizeof kFormats / sizeof kFormats[0];

void require(bool ok) {
    if (!ok) __builtin_trap();
}

// Room for the largest frame of a format; allocated once, the parser state is not.
std::span<uint8_t> room(size_t i) {
    static std::vector<uint8_t> bufs[kCount];
    if (bufs[i].empty()) bufs[i].resize(vk_frame_size(*kFormats[i], kFormats[i]->max_payload));
    return bufs[i];
}

std::span<uint8_t> scratch(size_t i) {
    static std::vector<uint8_t> bufs[kCount];
    if (bufs[i].empty()) bufs[i].resize(vk_frame_size(*kFormats[i], kFormats[i]->max_payload));
    return bufs[i];
}

void check_complete(const VkFrameFormat &f, std::span<const uint8_t> frame,
                    std::span<uint8_t> out) {
    uint32_t id = vk_frame_get(f.id, frame);
    std::span<const uint8_t> payload = vk_frame_payload(f, frame);
    require(vk_frame_size(f, uint32_t(payload.size())) == frame.size());
    uint32_t n = vk_frame_build(f, id, payload, out);
    require(n == frame.size());
    require(memcmp(out.data(), frame.data(), n) == 0);
}

// Feeds the input to a parser of format i, checking every event it reports.
void parse_stream(size_t i, const uint8_t *data, size_t size) {
    const VkFrameFormat &f = *kFormats[i];
    VkFrameParser p{.format = &f, .buf = room(i)};
    for (size_t k = 0; k < size; ++k) {
        uint32_t len = 0;
        VkFrameEvent ev = vk_frame_feed(p, data[k], &len);
        require(p.have <= p.buf.size());
        if (ev == VkFrameEvent::Pending) continue;
        require(p.have == 0 && p.need == 0 && len <= p.buf.size());
        if (ev == VkFrameEvent::Complete) check_complete(f, p.buf.first(len), scratch(i));
        if (ev == VkFrameEvent::BadLength) require(len == f.header_size);
    }
}

// Builds a frame of format i around the input and parses it back.
void round_trip(size_t i, const uint8_t *data, size_t size) {
    const VkFrameFormat &f = *kFormats[i];
    size_t n = size < f.max_payload ? size : f.max_payload;
    uint32_t id = 0;
    if (f.id.size != 0 && size >= 2) id = uint32_t(data[0]) << 8 | data[1];
    std::span<uint8_t> frame = scratch(i);
    uint32_t len = vk_frame_build(f, id, std::span(data, n), frame);
    require(len == vk_frame_size(f, uint32_t(n)));

    VkFrameParser p{.format = &f, .buf = room(i)};
    for (uint32_t k = 0; k < len; ++k) {
        uint32_t got = 0;
        VkFrameEvent ev = vk_frame_feed(p, frame[k], &got);
        if (k + 1 < len) {
            require(ev == VkFrameEvent::Pending);
        } else {
            require(ev == VkFrameEvent::Complete && got == len);
            require(memcmp(p.buf.data(), frame.data(), len) == 0);
        }
    }
}

// Matchers from acknowledgement patterns, one each way of treating a wrong byte.
void match_stream(const uint8_t *data, size_t size) {
    uint8_t value[32], mask[32];
    const uint8_t epo_ack[] = {0xB1, 0x04, 0x00, 0x00};
    uint32_t n = vk_frame_pattern(kVkFrameEpo, 1000, epo_ack, false, value, mask);
    require(n == 13);
    VkFrameMatch keep{.value = std::span(value, n),
                      .mask = std::span(mask, n),
                      .on_mismatch = VkOnMismatch::KeepState};

    uint8_t hd_value[16], hd_mask[16];
    const uint8_t hd_ack[] = {0x06, 0x40};
    uint32_t h = vk_frame_pattern(kVkFrameHd, 0x0501, hd_ack, false, hd_value, hd_mask);
    require(h == 10);
    hd_mask[3] = 0xFE;
    VkFrameMatch restart{.value = std::span(hd_value, h), .mask = std::span(hd_mask, h)};

    uint8_t rt_value[16], rt_mask[16];
    const uint8_t rt_ack[] = {0x3E, 0x71, 0x30, 0x30, 0x00, 0x00};
    uint32_t r = vk_frame_pattern(kVkFrameRtcm, 0, rt_ack, true, rt_value, rt_mask);
    require(r == 12);
    VkFrameMatch early{
        .value = std::span(rt_value, r), .mask = std::span(rt_mask, r), .accept_at = 11};

    uint32_t kept_taken = 0;
    for (size_t k = 0; k < size; ++k) {
        bool taken = false;
        bool done = vk_frame_match_feed(keep, data[k], &taken);
        if (taken) ++kept_taken;
        if (done) {
            require(kept_taken == n);
            kept_taken = 0;
        }
        require(keep.state == kept_taken);

        if (vk_frame_match_feed(restart, data[k])) {
            require(k + 1 >= h);
            for (uint32_t j = 0; j < h; ++j)
                require(((data[k + 1 - h + j] ^ hd_value[j]) & hd_mask[j]) == 0);
        }
        if (vk_frame_match_feed(early, data[k])) {
            require(k + 1 >= 11);
            require(memcmp(data + k + 1 - 11, rt_value, 11) == 0);
        }
        require(restart.state < h && early.state < 11);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (size_t i = 0; i < kCount; ++i) {
        parse_stream(i, data, size);
        round_trip(i, data, size);
    }
    match_stream(data, size);
    return 0;
}
