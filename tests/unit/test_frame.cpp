// Frames described as data: the four formats, building, the incremental parser and the
// acknowledgement matcher. Expected frames are written out byte by byte; where a check value
// is not written out, it is computed here by a bit-at-a-time routine of the test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/ref_crc16.h"
#include "toolkit/checksum.h"
#include "toolkit/frame.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes text(const std::string &s) { return Bytes(s.begin(), s.end()); }

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Builds into a buffer with room to spare and returns exactly the frame's bytes.
Bytes build(const VkFrameFormat &f, uint32_t id, const Bytes &payload) {
    Bytes out(payload.size() + 64, 0xEE);
    uint32_t n = vk_frame_build(f, id, payload, out);
    EXPECT_NE(n, 0u);
    out.resize(n);
    return out;
}

struct Event {
    VkFrameEvent ev;
    Bytes frame;  // buf[0 .. len) as reported
    size_t at;    // index of the byte that ended it
};

bool operator==(const Event &a, const Event &b) {
    return a.ev == b.ev && a.frame == b.frame && a.at == b.at;
}

// Feeds in[from .. to) and collects every event other than Pending.
void feed_range(VkFrameParser &p, const Bytes &in, size_t from, size_t to,
                std::vector<Event> &events) {
    for (size_t i = from; i < to; ++i) {
        uint32_t len = 0xDEADBEEFu;
        VkFrameEvent ev = vk_frame_feed(p, in[i], &len);
        if (ev == VkFrameEvent::Pending) continue;
        EXPECT_LE(len, p.buf.size());
        events.push_back(
            {ev, Bytes(p.buf.begin(), p.buf.begin() + std::min<size_t>(len, p.buf.size())), i});
    }
}

std::vector<Event> feed_all(VkFrameParser &p, const Bytes &in) {
    std::vector<Event> events;
    feed_range(p, in, 0, in.size(), events);
    return events;
}

// Feeds the whole input and returns the indices at which the match completed.
std::vector<size_t> match_all(VkFrameMatch &m, const Bytes &in) {
    std::vector<size_t> at;
    for (size_t i = 0; i < in.size(); ++i)
        if (vk_frame_match_feed(m, in[i])) at.push_back(i);
    return at;
}

// The frames of the tests, as they appear on the wire.
const Bytes kEpoData = {0x04, 0x24, 0xB1, 0x04, 0x02, 0x00, 0x47, 0x00, 0xF0, 0xAA, 0x44};
// 5A = E8 ^ 03 ^ 04 ^ 00 ^ B1 ^ 04 ^ 00 ^ 00
const Bytes kEpoAck = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB1,
                       0x04, 0x00, 0x00, 0x5A, 0xAA, 0x44};
const Bytes kHdCold = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x01, 0x48, 0x22};
const Bytes kHdWarm = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x02, 0x49, 0x23};
const Bytes kHdHot = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x03, 0x4A, 0x24};
const Bytes kHdClearEph = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                           0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x21, 0x23};
const Bytes kHdFactory = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                          0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0x15, 0x01};
const Bytes kHdDownload = {0xF1, 0xD9, 0x02, 0x41, 0x00, 0x00, 0x43, 0xCB};
// ACK (05 01) and NAK (05 00) of class 06 id 40; A and B summed by hand from 05.
const Bytes kHdAck = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x06, 0x40, 0x4E, 0x77};
const Bytes kHdNak = {0xF1, 0xD9, 0x05, 0x00, 0x02, 0x00, 0x06, 0x40, 0x4D, 0x72};
const Bytes kRtcm = {0xD3, 0x00, 0x07, 0x3E, 0x71, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x47, 0x9E, 0xEE};
const Bytes kRtcmAck12 = {0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0x30, 0x00, 0x00, 0x24, 0x06, 0x88};
const Bytes kRtcmAck41 = {0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0xA4, 0x00, 0x00, 0x28, 0xEC, 0x39};

// A 'B' 'K' command of class 18 id 03 carrying three 32-bit words, CRC filled in by the test's
// own CRC over class, id, length and payload (16 bytes).
Bytes bk_command() {
    Bytes f = {0x42, 0x4B, 0x00, 0x00, 0x18, 0x03, 0x00, 0x0C, 0x12, 0x34,
               0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x00, 0x00, 0x00, 0x2A};
    uint16_t crc = ref_crc16_xmodem(f.data() + 4, 16);
    f[2] = uint8_t(crc >> 8);
    f[3] = uint8_t(crc & 0xFF);
    return f;
}

Bytes payload_of(const Bytes &frame, size_t header, size_t tail) {
    return Bytes(frame.begin() + long(header), frame.end() - long(tail));
}

}  // namespace

// ---- the Fletcher sum -------------------------------------------------------------------

TEST(FrameFletcher, SumsEveryByteFromTheFirst) {
    // F1: a = F1, b = F1; D9: a = 1CA -> CA, b = F1 + CA = 1BB -> BB.
    const uint8_t d[] = {0xF1, 0xD9};
    EXPECT_EQ(Vk_Fletcher8(d, 2), 0xBBCA);
    // 06 40 01 00 01: a = 06 46 47 47 48, b = 06 4C 93 DA 122 -> 22.
    const uint8_t start[] = {0x06, 0x40, 0x01, 0x00, 0x01};
    EXPECT_EQ(Vk_Fletcher8(start, 5), 0x2248);
}

TEST(FrameFletcher, WrapsModulo256) {
    // a = FF FE FD FC, b = FF FD FA F6.
    const uint8_t d[] = {0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(Vk_Fletcher8(d, 4), 0xF6FC);
}

TEST(FrameFletcher, EmptyOrNullIsZero) {
    const uint8_t d[] = {0x12};
    EXPECT_EQ(Vk_Fletcher8(d, 0), 0);
    EXPECT_EQ(Vk_Fletcher8(nullptr, 5), 0);
}

TEST(FrameFletcher, TwoSumIsTheSumAfterTheSyncBytes) {
    const uint8_t d[] = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x01, 0x99};
    for (uint32_t n = 4; n <= sizeof d; ++n)
        EXPECT_EQ(Vk_Check_Varnok(d, n), Vk_Fletcher8(d + 2, n - 2)) << n;
    EXPECT_EQ(Vk_Check_Varnok(d, 7), 0x2248);
    EXPECT_EQ(Vk_Check_Varnok(d, 3), 0);
}

// ---- the formats ------------------------------------------------------------------------

TEST(FrameFormat, TheFourFormatsAreUsable) {
    EXPECT_TRUE(vk_frame_format_ok(kVkFrameEpo));
    EXPECT_TRUE(vk_frame_format_ok(kVkFrameHd));
    EXPECT_TRUE(vk_frame_format_ok(kVkFrameRtcm));
    EXPECT_TRUE(vk_frame_format_ok(kVkFrameBk));
}

TEST(FrameFormat, Sizes) {
    EXPECT_EQ(vk_frame_size(kVkFrameEpo, 2), 11u);   // 6 + 2 + 1 + 2
    EXPECT_EQ(vk_frame_size(kVkFrameEpo, 72), 81u);  // one EPO record
    EXPECT_EQ(vk_frame_size(kVkFrameHd, 0), 8u);     // 6 + 2
    EXPECT_EQ(vk_frame_size(kVkFrameRtcm, 7), 13u);  // 3 + 7 + 3
    EXPECT_EQ(vk_frame_size(kVkFrameBk, 12), 20u);   // 8 + 12, the CRC is in the header
    EXPECT_EQ(vk_frame_size(kVkFrameEpo, 65535), 65544u);
    EXPECT_EQ(vk_frame_size(kVkFrameEpo, 0xFFFFFFFFu), 0u);  // beyond 32 bits
}

TEST(FrameFormat, UnusableFormatsAreRecognised) {
    EXPECT_FALSE(vk_frame_format_ok(VkFrameFormat{}));  // no sync

    VkFrameFormat f = kVkFrameEpo;
    f.header_size = 1;  // shorter than the sync
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.id.offset = 1;  // over the sync
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.length.offset = 5;  // past the header's end
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.length.offset = 3;  // over the id
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.id.size = 5;
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameRtcm;
    f.length.mask = 0x03F0u;  // not the low bits
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameRtcm;
    f.max_payload = 1024;  // more than ten bits hold
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.check = nullptr;  // a check field without a check
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.check_field.size = 0;  // a check without a place for it
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameEpo;
    f.check_field.offset = 1;  // after the payload, the check value has no offset of its own
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameBk;
    f.check_from = 2;  // the stored value would cover itself
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameBk;
    f.check_from = 9;  // coverage starts past the header
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameBk;
    f.check_field.offset = 5;  // over the id
    f.check_from = 8;
    EXPECT_FALSE(vk_frame_format_ok(f));

    f = kVkFrameRtcm;
    f.length.size = 0;  // no length field, yet payloads allowed
    EXPECT_FALSE(vk_frame_format_ok(f));
    f.max_payload = 0;  // a format of empty frames
    EXPECT_TRUE(vk_frame_format_ok(f));
}

// ---- building ---------------------------------------------------------------------------

TEST(FrameBuild, EpoDataFrameAndAcknowledgement) {
    EXPECT_EQ(build(kVkFrameEpo, 1201, {0x47, 0x00}), kEpoData);
    EXPECT_EQ(build(kVkFrameEpo, 1000, {0xB1, 0x04, 0x00, 0x00}), kEpoAck);
}

TEST(FrameBuild, HdStartCommands) {
    EXPECT_EQ(build(kVkFrameHd, 0x0640, {0x01}), kHdCold);
    EXPECT_EQ(build(kVkFrameHd, 0x0640, {0x02}), kHdWarm);
    EXPECT_EQ(build(kVkFrameHd, 0x0640, {0x03}), kHdHot);
}

TEST(FrameBuild, HdClearEphemerisAndFactoryReset) {
    EXPECT_EQ(build(kVkFrameHd, 0x0609, {0x02, 0x00, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00}),
              kHdClearEph);
    EXPECT_EQ(build(kVkFrameHd, 0x0609, {0x02, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}),
              kHdFactory);
}

TEST(FrameBuild, HdEmptyPayloadAndAcknowledgements) {
    EXPECT_EQ(build(kVkFrameHd, 0x0241, {}), kHdDownload);
    EXPECT_EQ(build(kVkFrameHd, 0x0501, {0x06, 0x40}), kHdAck);
    EXPECT_EQ(build(kVkFrameHd, 0x0500, {0x06, 0x40}), kHdNak);
}

TEST(FrameBuild, RtcmFrames) {
    EXPECT_EQ(build(kVkFrameRtcm, 0, {0x3E, 0x71, 0x00, 0x00, 0x00, 0x00, 0xF0}), kRtcm);
    EXPECT_EQ(build(kVkFrameRtcm, 0, {0x3E, 0x71, 0x30, 0x30, 0x00, 0x00}), kRtcmAck12);
    EXPECT_EQ(build(kVkFrameRtcm, 0, {0x3E, 0x71, 0x30, 0xA4, 0x00, 0x00}), kRtcmAck41);
}

TEST(FrameBuild, RtcmLengthUsesTenBits) {
    Bytes payload(0x2A5, 0x11);
    Bytes f = build(kVkFrameRtcm, 0, payload);
    ASSERT_EQ(f.size(), 0x2A5u + 6);
    EXPECT_EQ(f[0], 0xD3);
    EXPECT_EQ(f[1], 0x02);  // six zero bits, then the top two of the length
    EXPECT_EQ(f[2], 0xA5);
}

TEST(FrameBuild, BkCommandWithThreeWords) {
    Bytes want = bk_command();
    Bytes got = build(kVkFrameBk, 0x1803,
                      {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0, 0x00, 0x00, 0x00, 0x2A});
    EXPECT_EQ(got, want);
    ASSERT_EQ(got.size(), 20u);
    EXPECT_EQ(got[6], 0x00);
    EXPECT_EQ(got[7], 0x0C);
}

TEST(FrameBuild, BkAcknowledgementClassAndId) {
    Bytes got = build(kVkFrameBk, 0x1903, {0x00, 0x00, 0x00, 0x00});
    Bytes want = {0x42, 0x4B, 0x00, 0x00, 0x19, 0x03, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00};
    uint16_t crc = ref_crc16_xmodem(want.data() + 4, 8);
    want[2] = uint8_t(crc >> 8);
    want[3] = uint8_t(crc & 0xFF);
    EXPECT_EQ(got, want);
}

TEST(FrameBuild, RefusesTooSmallOutAndWritesNothing) {
    const Bytes payload = {0x47, 0x00};
    Bytes out(10, 0x5A);  // one short of 11
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 1201, payload, out), 0u);
    EXPECT_EQ(out, Bytes(10, 0x5A));
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 1201, payload, std::span<uint8_t>()), 0u);

    Bytes exact(11, 0x5A);
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 1201, payload, exact), 11u);
    EXPECT_EQ(exact, kEpoData);
}

TEST(FrameBuild, RefusesPayloadsTheLengthFieldCannotHold) {
    Bytes out(70000, 0);
    EXPECT_EQ(vk_frame_build(kVkFrameRtcm, 0, Bytes(1024, 1), out), 0u);
    EXPECT_EQ(vk_frame_build(kVkFrameRtcm, 0, Bytes(1023, 1), out), 1029u);
    EXPECT_EQ(out[1], 0x03);
    EXPECT_EQ(out[2], 0xFF);
    EXPECT_EQ(vk_frame_build(kVkFrameBk, 0x1803, Bytes(4096, 1), out), 0u);
    EXPECT_EQ(vk_frame_build(kVkFrameBk, 0x1803, Bytes(4095, 1), out), 4103u);
    EXPECT_EQ(out[6], 0x0F);
    EXPECT_EQ(out[7], 0xFF);
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 1201, Bytes(65536, 1), out), 0u);
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 1201, Bytes(65535, 1), out), 65544u);
    EXPECT_EQ(out[4], 0xFF);
    EXPECT_EQ(out[5], 0xFF);
}

TEST(FrameBuild, RefusesIdsTheIdFieldCannotHold) {
    Bytes out(64, 0x5A);
    EXPECT_EQ(vk_frame_build(kVkFrameEpo, 0x10000, {}, out), 0u);
    EXPECT_EQ(vk_frame_build(kVkFrameHd, 0x10641, {}, out), 0u);
    EXPECT_EQ(vk_frame_build(kVkFrameRtcm, 1, {}, out), 0u);  // no id field: only 0
    EXPECT_EQ(out, Bytes(64, 0x5A));
}

TEST(FrameBuild, RefusesAnUnusableFormat) {
    Bytes out(64, 0x5A);
    VkFrameFormat f = kVkFrameBk;
    f.check_from = 2;
    EXPECT_EQ(vk_frame_build(f, 0x1803, {}, out), 0u);
    EXPECT_EQ(vk_frame_build(VkFrameFormat{}, 0, {}, out), 0u);
    EXPECT_EQ(out, Bytes(64, 0x5A));
}

TEST(FrameBuild, PayloadAlreadyInPlaceOrAtTheFront) {
    Bytes out(32, 0xEE);
    out[6] = 0x47;
    out[7] = 0x00;
    std::span<const uint8_t> in_place(out.data() + 6, 2);
    ASSERT_EQ(vk_frame_build(kVkFrameEpo, 1201, in_place, out), 11u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 11), kEpoData);

    Bytes front(32, 0xEE);
    front[0] = 0x47;
    front[1] = 0x00;
    std::span<const uint8_t> at_front(front.data(), 2);
    ASSERT_EQ(vk_frame_build(kVkFrameEpo, 1201, at_front, front), 11u);
    EXPECT_EQ(Bytes(front.begin(), front.begin() + 11), kEpoData);
}

TEST(FrameBuild, FieldsReadBack) {
    EXPECT_EQ(vk_frame_get(kVkFrameEpo.id, kEpoData), 1201u);
    EXPECT_EQ(vk_frame_get(kVkFrameEpo.length, kEpoData), 2u);
    EXPECT_EQ(vk_frame_get(kVkFrameHd.id, kHdClearEph), 0x0609u);
    EXPECT_EQ(vk_frame_get(kVkFrameHd.check_field, Bytes{0x48, 0x22}), 0x2248u);
    EXPECT_EQ(vk_frame_get(kVkFrameRtcm.id, kRtcm), 0u);
    EXPECT_EQ(vk_frame_get(kVkFrameRtcm.length, kRtcm), 7u);
    const Bytes reserved = {0xD3, 0xFC, 0x07};
    EXPECT_EQ(vk_frame_get(kVkFrameRtcm.length, reserved), 7u);  // the mask drops them
    Bytes bk = bk_command();
    EXPECT_EQ(vk_frame_get(kVkFrameBk.id, bk), 0x1803u);
    EXPECT_EQ(vk_frame_get(kVkFrameBk.length, bk), 12u);
    EXPECT_EQ(vk_frame_get(kVkFrameBk.check_field, bk), uint32_t(bk[2]) << 8 | bk[3]);
    EXPECT_EQ(vk_frame_get(kVkFrameBk.length, Bytes(7, 0xFF)), 0u);  // beyond the end
}

TEST(FrameBuild, PayloadReadsBack) {
    auto p = vk_frame_payload(kVkFrameEpo, kEpoAck);
    EXPECT_EQ(Bytes(p.begin(), p.end()), (Bytes{0xB1, 0x04, 0x00, 0x00}));
    EXPECT_TRUE(vk_frame_payload(kVkFrameHd, kHdDownload).empty());
    Bytes bk = bk_command();
    auto q = vk_frame_payload(kVkFrameBk, bk);
    EXPECT_EQ(Bytes(q.begin(), q.end()), payload_of(bk, 8, 0));
    // A frame cut short has no payload to give.
    EXPECT_TRUE(vk_frame_payload(kVkFrameEpo, std::span(kEpoData).first(7)).empty());
}

// ---- parsing ----------------------------------------------------------------------------

TEST(FrameParser, EveryKnownFrameCompletes) {
    struct Case {
        const VkFrameFormat *f;
        Bytes frame;
    };
    const Case cases[] = {
        {&kVkFrameEpo, kEpoData},    {&kVkFrameEpo, kEpoAck},     {&kVkFrameHd, kHdCold},
        {&kVkFrameHd, kHdWarm},      {&kVkFrameHd, kHdHot},       {&kVkFrameHd, kHdClearEph},
        {&kVkFrameHd, kHdFactory},   {&kVkFrameHd, kHdDownload},  {&kVkFrameHd, kHdAck},
        {&kVkFrameHd, kHdNak},       {&kVkFrameRtcm, kRtcm},      {&kVkFrameRtcm, kRtcmAck12},
        {&kVkFrameRtcm, kRtcmAck41}, {&kVkFrameBk, bk_command()},
    };
    for (const Case &c : cases) {
        Bytes buf(64);
        VkFrameParser p{.format = c.f, .buf = buf};
        auto events = feed_all(p, c.frame);
        ASSERT_EQ(events.size(), 1u);
        EXPECT_EQ(events[0].ev, VkFrameEvent::Complete);
        EXPECT_EQ(events[0].frame, c.frame);
        EXPECT_EQ(events[0].at, c.frame.size() - 1);
        EXPECT_EQ(p.have, 0u);
        EXPECT_EQ(p.need, 0u);
    }
}

TEST(FrameParser, FindsFramesAmidNoise) {
    // Text, a lone 04, 24 alone, AA 44, and a 04 right before the second frame's own 04.
    const Bytes stream = cat({text("$GNTXT,ready\r\n"),
                              {0x04, 0x11, 0x24, 0xAA, 0x44},
                              kEpoData,
                              text("noise"),
                              {0x04},
                              kEpoAck,
                              {0x24, 0x00, 0x04}});
    Bytes buf(256);
    VkFrameParser p{.format = &kVkFrameEpo, .buf = buf};
    auto events = feed_all(p, stream);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].ev, VkFrameEvent::Complete);
    EXPECT_EQ(events[0].frame, kEpoData);
    EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
    EXPECT_EQ(events[1].frame, kEpoAck);
    EXPECT_EQ(p.have, 1u);  // the trailing 04 may start a frame
}

TEST(FrameParser, SplitAtEveryByteWithTheRecordCopiedBetween) {
    const Bytes stream =
        cat({{0x00, 0xF1, 0x41}, kHdCold, text("$GNGGA,,*56\r\n"), {0xF1}, kHdAck, {0xD9, 0x01}});
    Bytes whole_buf(64);
    VkFrameParser whole{.format = &kVkFrameHd, .buf = whole_buf};
    const auto want = feed_all(whole, stream);
    ASSERT_EQ(want.size(), 2u);
    EXPECT_EQ(want[0].frame, kHdCold);
    EXPECT_EQ(want[1].frame, kHdAck);

    for (size_t k = 0; k <= stream.size(); ++k) {
        Bytes buf(64);
        VkFrameParser first{.format = &kVkFrameHd, .buf = buf};
        std::vector<Event> got;
        feed_range(first, stream, 0, k, got);
        // Everything the parser knows is in its record: a copy carries on.
        VkFrameParser second = first;
        feed_range(second, stream, k, stream.size(), got);
        EXPECT_EQ(got, want) << "split at " << k;
    }
}

TEST(FrameParser, RestartsOnTheFirstSyncByte) {
    const Bytes stream = cat({{0xF1}, kHdCold, {0x04}, {0x04}, kEpoData});
    Bytes hd_buf(64), epo_buf(64);
    VkFrameParser hd{.format = &kVkFrameHd, .buf = hd_buf};
    VkFrameParser epo{.format = &kVkFrameEpo, .buf = epo_buf};
    auto h = feed_all(hd, stream);
    ASSERT_EQ(h.size(), 1u);
    EXPECT_EQ(h[0].frame, kHdCold);
    auto e = feed_all(epo, stream);
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].frame, kEpoData);
}

TEST(FrameParser, FlippedCheckByteIsBadCheck) {
    struct Case {
        const VkFrameFormat *f;
        Bytes frame;
        size_t check_at;
    };
    const Case cases[] = {
        {&kVkFrameEpo, kEpoData, 8},    {&kVkFrameHd, kHdCold, 7},
        {&kVkFrameHd, kHdCold, 8},      {&kVkFrameRtcm, kRtcm, 10},
        {&kVkFrameRtcm, kRtcm, 12},     {&kVkFrameBk, bk_command(), 2},
        {&kVkFrameBk, bk_command(), 3}, {&kVkFrameBk, bk_command(), 19},  // a payload byte
    };
    for (const Case &c : cases) {
        Bytes bad = c.frame;
        bad[c.check_at] ^= 0x01;
        Bytes buf(64);
        VkFrameParser p{.format = c.f, .buf = buf};
        // The next good frame is found right after the bad one.
        auto events = feed_all(p, cat({bad, c.frame}));
        ASSERT_EQ(events.size(), 2u) << c.check_at;
        EXPECT_EQ(events[0].ev, VkFrameEvent::BadCheck);
        EXPECT_EQ(events[0].frame, bad);
        EXPECT_EQ(events[0].at, bad.size() - 1);
        EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
        EXPECT_EQ(events[1].frame, c.frame);
    }
}

TEST(FrameParser, WrongTrailerIsBadCheck) {
    for (size_t at : {size_t(9), size_t(10)}) {
        Bytes bad = kEpoData;
        bad[at] ^= 0x80;
        Bytes buf(64);
        VkFrameParser p{.format = &kVkFrameEpo, .buf = buf};
        auto events = feed_all(p, cat({bad, kEpoAck}));
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(events[0].ev, VkFrameEvent::BadCheck);
        EXPECT_EQ(events[0].frame, bad);
        EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
        EXPECT_EQ(events[1].frame, kEpoAck);
    }
}

TEST(FrameParser, RtcmReservedBitsAreBadLength) {
    for (uint8_t high : {uint8_t(0x04), uint8_t(0x80), uint8_t(0xFC)}) {
        Bytes buf(64);
        VkFrameParser p{.format = &kVkFrameRtcm, .buf = buf};
        auto events = feed_all(p, cat({{0xD3, high, 0x07}, kRtcm}));
        ASSERT_EQ(events.size(), 2u);
        EXPECT_EQ(events[0].ev, VkFrameEvent::BadLength);
        EXPECT_EQ(events[0].frame, (Bytes{0xD3, high, 0x07}));  // the header only
        EXPECT_EQ(events[0].at, 2u);
        EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
        EXPECT_EQ(events[1].frame, kRtcm);
    }
}

TEST(FrameParser, BkReservedLengthBitsAreBadLength) {
    Bytes bad = bk_command();
    bad[6] = 0x10;  // length 0x100C: bit 12 is outside the mask
    Bytes buf(64);
    VkFrameParser p{.format = &kVkFrameBk, .buf = buf};
    auto events = feed_all(p, bad);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].ev, VkFrameEvent::BadLength);
    EXPECT_EQ(events[0].at, 7u);
}

TEST(FrameParser, OverMaxPayloadIsBadLength) {
    VkFrameFormat shorter = kVkFrameRtcm;
    shorter.max_payload = 6;
    Bytes buf(64);
    VkFrameParser p{.format = &shorter, .buf = buf};
    auto events = feed_all(p, cat({kRtcm, kRtcmAck12}));  // 7 payload bytes, then 6
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].ev, VkFrameEvent::BadLength);
    EXPECT_EQ(events[0].at, 2u);
    EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
    EXPECT_EQ(events[1].frame, kRtcmAck12);
}

TEST(FrameParser, FrameLargerThanTheBufferIsBadLength) {
    Bytes buf(12);  // holds the 12-byte acknowledgement, not the 13-byte frame
    VkFrameParser p{.format = &kVkFrameRtcm, .buf = buf};
    auto events = feed_all(p, cat({kRtcm, kRtcmAck41}));
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].ev, VkFrameEvent::BadLength);
    EXPECT_EQ(events[1].ev, VkFrameEvent::Complete);
    EXPECT_EQ(events[1].frame, kRtcmAck41);
}

TEST(FrameParser, TwoParsersKeepTheirOwnState) {
    Bytes b1(64), b2(64), b3(64);
    VkFrameParser epo{.format = &kVkFrameEpo, .buf = b1};
    VkFrameParser hd{.format = &kVkFrameHd, .buf = b2};
    // Alternate bytes of two streams between two parsers of different formats.
    const Bytes s1 = cat({text("xx"), kEpoData});
    const Bytes s2 = cat({text("y"), kHdFactory});
    std::vector<Event> e1, e2;
    for (size_t i = 0; i < std::max(s1.size(), s2.size()); ++i) {
        if (i < s1.size()) feed_range(epo, s1, i, i + 1, e1);
        if (i < s2.size()) feed_range(hd, s2, i, i + 1, e2);
    }
    ASSERT_EQ(e1.size(), 1u);
    EXPECT_EQ(e1[0].frame, kEpoData);
    ASSERT_EQ(e2.size(), 1u);
    EXPECT_EQ(e2[0].frame, kHdFactory);

    // Two parsers of one format: one stops halfway, the other takes a whole frame meanwhile.
    VkFrameParser other{.format = &kVkFrameEpo, .buf = b3};
    std::vector<Event> a, b;
    feed_range(epo, kEpoAck, 0, 5, a);
    feed_range(other, kEpoData, 0, kEpoData.size(), b);
    feed_range(epo, kEpoAck, 5, kEpoAck.size(), a);
    ASSERT_EQ(a.size(), 1u);
    EXPECT_EQ(a[0].frame, kEpoAck);
    ASSERT_EQ(b.size(), 1u);
    EXPECT_EQ(b[0].frame, kEpoData);
}

TEST(FrameParser, WithoutFormatOrRoomTakesNothing) {
    Bytes buf(64);
    VkFrameParser none{.buf = buf};
    EXPECT_TRUE(feed_all(none, kEpoData).empty());
    EXPECT_EQ(none.have, 0u);

    Bytes small(5);  // shorter than the 6-byte header
    VkFrameParser tight{.format = &kVkFrameEpo, .buf = small};
    EXPECT_TRUE(feed_all(tight, kEpoData).empty());
    EXPECT_EQ(tight.have, 0u);
}

TEST(FrameParser, LengthOutMayBeNull) {
    Bytes buf(64);
    VkFrameParser p{.format = &kVkFrameHd, .buf = buf};
    VkFrameEvent last = VkFrameEvent::Pending;
    for (uint8_t b : kHdHot) last = vk_frame_feed(p, b, nullptr);
    EXPECT_EQ(last, VkFrameEvent::Complete);
}

// ---- matching acknowledgements ---------------------------------------------------------

TEST(FrameMatch, PatternOfTheEpoAcknowledgement) {
    uint8_t value[32], mask[32];
    const uint8_t payload[] = {0xB1, 0x04, 0x00, 0x00};
    ASSERT_EQ(vk_frame_pattern(kVkFrameEpo, 1000, payload, false, value, mask), 13u);
    EXPECT_EQ(Bytes(value, value + 13), kEpoAck);
    EXPECT_EQ(Bytes(mask, mask + 13), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                                             0xFF, 0x00, 0xFF, 0xFF}));
}

TEST(FrameMatch, PatternOfTheRtcmAcknowledgements) {
    uint8_t value[32], mask[32];
    const uint8_t p12[] = {0x3E, 0x71, 0x30, 0x30, 0x00, 0x00};
    ASSERT_EQ(vk_frame_pattern(kVkFrameRtcm, 0, p12, true, value, mask), 12u);
    EXPECT_EQ(Bytes(value, value + 12), kRtcmAck12);
    EXPECT_EQ(Bytes(mask, mask + 12), Bytes(12, 0xFF));

    const uint8_t p41[] = {0x3E, 0x71, 0x30, 0xA4, 0x00, 0x00};
    ASSERT_EQ(vk_frame_pattern(kVkFrameRtcm, 0, p41, false, value, mask), 12u);
    EXPECT_EQ(Bytes(value, value + 12), kRtcmAck41);
    EXPECT_EQ(Bytes(mask, mask + 12),
              (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00}));
}

TEST(FrameMatch, PatternOfTheHdAcknowledgementAndBkCheckInHeader) {
    uint8_t value[32], mask[32];
    const uint8_t payload[] = {0x06, 0x40};
    ASSERT_EQ(vk_frame_pattern(kVkFrameHd, 0x0501, payload, false, value, mask), 10u);
    EXPECT_EQ(Bytes(value, value + 10), kHdAck);
    EXPECT_EQ(Bytes(mask, mask + 10),
              (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}));

    const uint8_t words[] = {0x00, 0x00, 0x00, 0x00};
    ASSERT_EQ(vk_frame_pattern(kVkFrameBk, 0x1903, words, false, value, mask), 12u);
    EXPECT_EQ(Bytes(mask, mask + 12),
              (Bytes{0xFF, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(FrameMatch, PatternRefusesShortStorage) {
    uint8_t value[32], small[12];
    std::fill(std::begin(value), std::end(value), 0x5A);
    std::fill(std::begin(small), std::end(small), 0x5A);
    const uint8_t payload[] = {0xB1, 0x04, 0x00, 0x00};
    EXPECT_EQ(vk_frame_pattern(kVkFrameEpo, 1000, payload, false, value, small), 0u);
    EXPECT_EQ(vk_frame_pattern(kVkFrameEpo, 1000, payload, false, small, value), 0u);
    EXPECT_EQ(Bytes(std::begin(value), std::end(value)), Bytes(32, 0x5A));
    EXPECT_EQ(Bytes(std::begin(small), std::end(small)), Bytes(12, 0x5A));
}

TEST(FrameMatch, EpoKeepStateSkipsAStrayByteAndTakesAnyChecksum) {
    uint8_t value[16], mask[16];
    const uint8_t payload[] = {0xB1, 0x04, 0x00, 0x00};
    uint32_t n = vk_frame_pattern(kVkFrameEpo, 1000, payload, false, value, mask);
    ASSERT_EQ(n, 13u);
    VkFrameMatch m{.value = std::span(value, n),
                   .mask = std::span(mask, n),
                   .on_mismatch = VkOnMismatch::KeepState};
    // Text, the frame with a stray 7E after E8 03 and the checksum 99 instead of 5A.
    const Bytes lead = text("$GNTXT,waiting\r\n");
    const Bytes frame = {0x04, 0x24, 0xE8, 0x03, 0x7E, 0x04, 0x00,
                         0xB1, 0x04, 0x00, 0x00, 0x99, 0xAA, 0x44};
    const Bytes stream = cat({lead, frame});
    std::vector<size_t> taken_at;
    std::vector<size_t> done_at;
    for (size_t i = 0; i < stream.size(); ++i) {
        bool taken = false;
        if (vk_frame_match_feed(m, stream[i], &taken)) done_at.push_back(i);
        if (taken) taken_at.push_back(i);
    }
    EXPECT_EQ(done_at, std::vector<size_t>{stream.size() - 1});
    ASSERT_EQ(taken_at.size(), 13u);
    EXPECT_EQ(taken_at.front(), lead.size());
    EXPECT_EQ(std::count(taken_at.begin(), taken_at.end(), lead.size() + 4), 0);  // the stray
    EXPECT_EQ(m.state, 0u);
}

TEST(FrameMatch, HdRestartTakesAckAndNak) {
    uint8_t value[16], mask[16];
    const uint8_t payload[] = {0x06, 0x40};
    uint32_t n = vk_frame_pattern(kVkFrameHd, 0x0501, payload, false, value, mask);
    ASSERT_EQ(n, 10u);
    mask[3] = 0xFE;  // 01 ACK or 00 NAK
    VkFrameMatch m{.value = std::span(value, n), .mask = std::span(mask, n)};
    EXPECT_EQ(match_all(m, kHdAck), std::vector<size_t>{9});
    EXPECT_EQ(match_all(m, kHdNak), std::vector<size_t>{9});
    EXPECT_EQ(match_all(m, cat({text("$GNRMC\r\n"), kHdNak, kHdAck})),
              (std::vector<size_t>{17, 27}));
    // Another answer class, or the acknowledgement of another message, does not match.
    EXPECT_TRUE(match_all(m, build(kVkFrameHd, 0x0502, {0x06, 0x40})).empty());
    EXPECT_TRUE(match_all(m, build(kVkFrameHd, 0x0501, {0x06, 0x41})).empty());
}

TEST(FrameMatch, RestartDoesNotRetestTheByteThatBrokeTheMatch) {
    uint8_t value[16], mask[16];
    const uint8_t payload[] = {0x06, 0x40};
    uint32_t n = vk_frame_pattern(kVkFrameHd, 0x0501, payload, false, value, mask);
    ASSERT_EQ(n, 10u);
    mask[3] = 0xFE;
    VkFrameMatch m{.value = std::span(value, n), .mask = std::span(mask, n)};
    // The second F1 breaks state 1 (D9 expected) and is dropped; D9 then does not start a frame.
    const Bytes doubled = cat({{0xF1}, kHdAck});
    EXPECT_TRUE(match_all(m, doubled).empty());
    EXPECT_EQ(m.state, 0u);
    // A clean acknowledgement afterwards still matches.
    EXPECT_EQ(match_all(m, kHdAck), std::vector<size_t>{9});

    // Keeping the state instead, the stray F1 is skipped and the same bytes match.
    VkFrameMatch keep{.value = std::span(value, n),
                      .mask = std::span(mask, n),
                      .on_mismatch = VkOnMismatch::KeepState};
    EXPECT_EQ(match_all(keep, doubled), std::vector<size_t>{10});
}

TEST(FrameMatch, RtcmAcceptsBeforeTheLastCrcByte) {
    uint8_t value[16], mask[16];
    const uint8_t payload[] = {0x3E, 0x71, 0x30, 0x30, 0x00, 0x00};
    uint32_t n = vk_frame_pattern(kVkFrameRtcm, 0, payload, true, value, mask);
    ASSERT_EQ(n, 12u);
    VkFrameMatch m{.value = std::span(value, n), .mask = std::span(mask, n), .accept_at = 11};
    EXPECT_EQ(match_all(m, kRtcmAck12), std::vector<size_t>{10});
    Bytes last_differs = kRtcmAck12;
    last_differs[11] = 0x00;
    EXPECT_EQ(match_all(m, last_differs), std::vector<size_t>{10});
    Bytes second_last_differs = kRtcmAck12;
    second_last_differs[10] = 0x07;
    EXPECT_TRUE(match_all(m, second_last_differs).empty());
    EXPECT_TRUE(match_all(m, kRtcmAck41).empty());
    EXPECT_EQ(match_all(m, cat({kRtcm, kRtcmAck41, kRtcmAck12})), std::vector<size_t>{35});
}

TEST(FrameMatch, EdgeCases) {
    const uint8_t value[] = {0xAA, 0xBB};
    // No mask bytes: each byte is compared whole.
    VkFrameMatch whole{.value = value};
    EXPECT_EQ(match_all(whole, {0xAA, 0xBB, 0xAA, 0xBC}), std::vector<size_t>{1});
    // accept_at beyond the pattern means all of it.
    VkFrameMatch beyond{.value = value, .accept_at = 5};
    EXPECT_EQ(match_all(beyond, {0xAA, 0xBB}), std::vector<size_t>{1});
    // A mask of 0 takes anything.
    const uint8_t any[] = {0xFF, 0x00};
    VkFrameMatch wild{.value = value, .mask = any};
    EXPECT_EQ(match_all(wild, {0xAA, 0x12, 0xAA, 0xAA}), (std::vector<size_t>{1, 3}));
    // An empty pattern never completes.
    VkFrameMatch empty{};
    bool taken = true;
    EXPECT_FALSE(vk_frame_match_feed(empty, 0x00, &taken));
    EXPECT_FALSE(taken);
}

namespace {
std::string g_echoed;
void echo_byte(uint8_t b, bool taken, uint32_t at) {
    char t[16];
    snprintf(t, sizeof t, "%c%02X@%u ", taken ? '+' : '-', b, unsigned(at));
    g_echoed += t;
}
}  // namespace

TEST(FrameAckJudge, StopsAtTheMatchAndWritesOnlyThePattern) {
    const uint8_t value[3] = {0xA1, 0xB2, 0xC3};
    uint8_t out[5];
    memset(out, 0xEE, sizeof out);
    g_echoed.clear();
    VkAckWait w{.match = {.value = value}, .out = out, .echo = echo_byte};
    const char bytes[] = "\x55\xA1\xB2\xC3\xA1\xB2";
    EXPECT_EQ(vk_judge_ack(&w, bytes, 6, 0x200), 0u);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 5),
              (std::vector<uint8_t>{0xA1, 0xB2, 0xC3, 0xEE, 0xEE}));
    EXPECT_EQ(g_echoed, "-55@0 +A1@0 +B2@1 +C3@2 ");
    // A read that does not complete the match keeps the verdict so far and
    // the state for the next read.
    EXPECT_EQ(vk_judge_ack(&w, "\xA1", 1, 0x200), 0x200u);
    EXPECT_EQ(w.match.state, 1u);
    EXPECT_EQ(vk_judge_ack(&w, "\xB2\xC3", 2, 0x200), 0u);
}
