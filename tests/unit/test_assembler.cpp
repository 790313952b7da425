// Byte-at-a-time reply assemblers. They keep static state for the life of
// the process, so every test starts from a fixture that drives all four back
// to their hunting step, and every test ends on a complete frame or an error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "toolkit/assembler.h"

namespace {

using AsmFn = uint32_t (*)(uint8_t, uint8_t *, uint32_t *);

constexpr size_t kTextBuf = 202;
constexpr size_t kBinBuf = 65543;

std::vector<uint32_t> feed(AsmFn fn, const std::vector<uint8_t> &in, uint8_t *buf, uint32_t *len) {
    std::vector<uint32_t> out;
    out.reserve(in.size());
    for (uint8_t b : in) out.push_back(fn(b, buf, len));
    return out;
}

std::vector<uint8_t> text(const std::string &s) { return std::vector<uint8_t>(s.begin(), s.end()); }

std::vector<uint32_t> results(std::initializer_list<uint32_t> r) {
    return std::vector<uint32_t>(r);
}

// Fletcher sum over the given span, written out here as the frames' checksum.
uint16_t fletcher(const std::vector<uint8_t> &v, size_t from, size_t to) {
    uint8_t a = 0, b = 0;
    for (size_t i = from; i < to; ++i) {
        a = uint8_t(a + v[i]);
        b = uint8_t(b + a);
    }
    return uint16_t(b << 8 | a);
}

// F1 D9 class id lenL lenH payload A B
std::vector<uint8_t> nav_frame(uint8_t cls, uint8_t id, const std::vector<uint8_t> &payload) {
    std::vector<uint8_t> f = {
        0xF1, 0xD9, cls, id, uint8_t(payload.size() & 0xFF), uint8_t(payload.size() >> 8)};
    for (uint8_t b : payload) f.push_back(b);
    uint16_t c = fletcher(f, 2, f.size());
    f.push_back(uint8_t(c & 0xFF));
    f.push_back(uint8_t(c >> 8));
    return f;
}

// The ephemeris variant frames from the 0xD9: D9 class id lenL lenH,
// then N + 1 payload bytes, then A B summed over id .. last payload byte.
std::vector<uint8_t> eph_frame(uint8_t cls, uint8_t id, uint16_t n, uint8_t fill_from) {
    std::vector<uint8_t> f = {0xD9, cls, id, uint8_t(n & 0xFF), uint8_t(n >> 8)};
    if (n != 0) {
        for (uint32_t i = 0; i < uint32_t(n) + 1; ++i) f.push_back(uint8_t(fill_from + i));
    }
    uint16_t c = fletcher(f, 2, f.size());
    f.push_back(uint8_t(c & 0xFF));
    f.push_back(uint8_t(c >> 8));
    return f;
}

class AssemblerTest : public ::testing::Test {
protected:
    void SetUp() override {
        text_buf_.assign(kTextBuf, 0);
        bin_buf_.assign(kBinBuf, 0);
        uint32_t len = 0;
        // A control byte is a frame error in any state of the text assemblers.
        testing::internal::CaptureStdout();
        Vk_NMEA_CMD_Composite(0x01, text_buf_.data(), &len);
        testing::internal::GetCapturedStdout();
        Vk_PVNK_CMD_Composite(0x01, text_buf_.data(), &len);
        // Zeros run any partial binary frame to its end (at most 65543 bytes)
        // and are ignored once the command assembler hunts again.
        for (size_t i = 0; i < kBinBuf + 1; ++i) Vk_NAV_CMD_Composite(0x00, bin_buf_.data(), &len);
        // The ephemeris variant refuses a zero while hunting: stop on the first refusal.
        for (size_t i = 0; i < kBinBuf + 1; ++i) {
            if (Vk_NAV_EPH_Composite(0x00, bin_buf_.data(), &len) == VK_ASM_FRAME_ERROR) break;
        }
    }

    std::vector<uint8_t> text_buf_;
    std::vector<uint8_t> bin_buf_;
};

using NmeaAssembler = AssemblerTest;
using PvnkAssembler = AssemblerTest;
using NavCmdAssembler = AssemblerTest;
using NavEphAssembler = AssemblerTest;

// ---- text sentences ---------------------------------------------------------------

TEST_F(NmeaAssembler, ShortestSentence) {
    uint32_t len = 99;
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("$A\r\n"), text_buf_.data(), &len),
              results({0, 0, 0, 3}));
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + 4), "$A\r\n");
}

TEST_F(NmeaAssembler, RealReplyIsCopiedWhole) {
    const std::string s = "$PAIR001,002,0*39\r\n";
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text(s), text_buf_.data(), &len);
    std::vector<uint32_t> expected(s.size(), 0);
    expected.back() = 3;
    EXPECT_EQ(r, expected);
    EXPECT_EQ(len, s.size());
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + len), s);
}

TEST_F(NmeaAssembler, BytesBeforeDollarAreIgnored) {
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text("xy*\r\n\n$B\r\n"), text_buf_.data(), &len);
    EXPECT_EQ(r, results({0, 0, 0, 0, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(len, 4u);
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + 4), "$B\r\n");
}

TEST_F(NmeaAssembler, CrWithoutLfDropsTheSentenceSilently) {
    uint32_t len = 77;
    testing::internal::CaptureStdout();
    auto r = feed(Vk_NMEA_CMD_Composite, text("$AB\rX"), text_buf_.data(), &len);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r, results({0, 0, 0, 0, 0}));
    EXPECT_EQ(out, "");
    EXPECT_EQ(len, 77u);
    // The sentence is gone: a LF now is just a byte outside any sentence.
    EXPECT_EQ(Vk_NMEA_CMD_Composite('\n', text_buf_.data(), &len), 0u);
    // And the next sentence is assembled normally.
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("$C\r\n"), text_buf_.data(), &len),
              results({0, 0, 0, 3}));
    EXPECT_EQ(len, 4u);
}

TEST_F(NmeaAssembler, DollarAfterCrDoesNotStartANewSentence) {
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text("$A\r$B\r\n"), text_buf_.data(), &len);
    EXPECT_EQ(r, results({0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(NmeaAssembler, LfAndDollarInsideTheBodyAreStored) {
    const std::string s = "$A\nB$C\r\n";
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text(s), text_buf_.data(), &len);
    EXPECT_EQ(r.back(), 3u);
    EXPECT_EQ(len, s.size());
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + len), s);
}

TEST_F(NmeaAssembler, BlankIsRefusedWithMessage) {
    uint32_t len = 0;
    ASSERT_EQ(feed(Vk_NMEA_CMD_Composite, text("$AB"), text_buf_.data(), &len), results({0, 0, 0}));
    len = 55;
    testing::internal::CaptureStdout();
    uint32_t r = Vk_NMEA_CMD_Composite(' ', text_buf_.data(), &len);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(r, 1u);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(out, "[ERR] wrong byte: 20\n");
    // State was reset: the rest of the old sentence does not complete anything.
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("C\r\n"), text_buf_.data(), &len),
              results({0, 0, 0}));
}

TEST_F(NmeaAssembler, FilterAppliesWhileHuntingToo) {
    for (uint8_t b : {uint8_t(0x00), uint8_t(0x09), uint8_t(0x1F), uint8_t(0x7F), uint8_t(0x80),
                      uint8_t(0xFF)}) {
        uint32_t len = 9;
        testing::internal::CaptureStdout();
        uint32_t r = Vk_NMEA_CMD_Composite(b, text_buf_.data(), &len);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(r, 1u) << int(b);
        EXPECT_EQ(len, 0u);
        char expected[32];
        snprintf(expected, sizeof expected, "[ERR] wrong byte: %02X\n", b);
        EXPECT_EQ(out, expected);
    }
}

TEST_F(NmeaAssembler, PrintableBoundariesAreAccepted) {
    const std::string s = std::string("$") + char(0x21) + char(0x7E) + "\r\n";
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text(s), text_buf_.data(), &len),
              results({0, 0, 0, 0, 3}));
    EXPECT_EQ(len, 5u);
}

TEST_F(NmeaAssembler, LongestSentenceIs202Bytes) {
    const std::string s = "$" + std::string(199, 'a') + "\r\n";
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text(s), text_buf_.data(), &len);
    EXPECT_EQ(r.back(), 3u);
    for (size_t i = 0; i + 1 < r.size(); ++i) ASSERT_EQ(r[i], 0u) << i;
    EXPECT_EQ(len, 202u);
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + 202), s);
}

TEST_F(NmeaAssembler, ByteAfterTwoHundredIsRefusedWithLengthMessage) {
    const std::string head = "$" + std::string(199, 'a');
    uint32_t len = 0;
    auto r = feed(Vk_NMEA_CMD_Composite, text(head), text_buf_.data(), &len);
    for (uint32_t x : r) ASSERT_EQ(x, 0u);
    testing::internal::CaptureStdout();
    uint32_t res = Vk_NMEA_CMD_Composite('b', text_buf_.data(), &len);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(res, 1u);
    EXPECT_EQ(out, "[ERR] length over 200. here: 200, " + head + "\n");
    // Reset: a fresh sentence follows.
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("$Q\r\n"), text_buf_.data(), &len),
              results({0, 0, 0, 3}));
}

TEST_F(NmeaAssembler, StatePersistsBetweenCalls) {
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("$PA"), text_buf_.data(), &len), results({0, 0, 0}));
    // A caller that gave up leaves the sentence open for the next one.
    std::vector<uint8_t> other(kTextBuf, 0);
    other[0] = '$';
    other[1] = 'P';
    other[2] = 'A';
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("IR\r\n"), other.data(), &len),
              results({0, 0, 0, 3}));
    EXPECT_EQ(len, 7u);
    EXPECT_EQ(std::string(other.begin(), other.begin() + 7), "$PAIR\r\n");
}

TEST_F(PvnkAssembler, SameFramingWithoutMessages) {
    uint32_t len = 0;
    testing::internal::CaptureStdout();
    auto r = feed(Vk_PVNK_CMD_Composite, text("$A\r\n"), text_buf_.data(), &len);
    EXPECT_EQ(r, results({0, 0, 0, 3}));
    EXPECT_EQ(len, 4u);
    len = 5;
    EXPECT_EQ(Vk_PVNK_CMD_Composite(' ', text_buf_.data(), &len), 1u);
    EXPECT_EQ(len, 0u);
    const std::string head = "$" + std::string(199, 'z');
    feed(Vk_PVNK_CMD_Composite, text(head), text_buf_.data(), &len);
    EXPECT_EQ(Vk_PVNK_CMD_Composite('z', text_buf_.data(), &len), 1u);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "");
}

TEST_F(PvnkAssembler, RealReplyAndDroppedCr) {
    const std::string s = "$PVNKACK,OK*00\r\n";
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_PVNK_CMD_Composite, text("junk$X\r!"), text_buf_.data(), &len),
              results({0, 0, 0, 0, 0, 0, 0, 0}));
    auto r = feed(Vk_PVNK_CMD_Composite, text(s), text_buf_.data(), &len);
    EXPECT_EQ(r.back(), 3u);
    EXPECT_EQ(len, s.size());
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + len), s);
}

TEST_F(PvnkAssembler, StateIsSeparateFromNmea) {
    uint32_t len_n = 0, len_p = 0;
    std::vector<uint8_t> pbuf(kTextBuf, 0);
    feed(Vk_NMEA_CMD_Composite, text("$NM"), text_buf_.data(), &len_n);
    EXPECT_EQ(feed(Vk_PVNK_CMD_Composite, text("$PV\r\n"), pbuf.data(), &len_p),
              results({0, 0, 0, 0, 3}));
    EXPECT_EQ(feed(Vk_NMEA_CMD_Composite, text("EA\r\n"), text_buf_.data(), &len_n),
              results({0, 0, 0, 3}));
    EXPECT_EQ(std::string(text_buf_.begin(), text_buf_.begin() + len_n), "$NMEA\r\n");
    EXPECT_EQ(std::string(pbuf.begin(), pbuf.begin() + len_p), "$PV\r\n");
}

// ---- binary command frames ----------------------------------------------------------

TEST_F(NavCmdAssembler, EmptyPayloadCompletesAfterEightBytes) {
    auto f = nav_frame(0x06, 0x01, {});
    ASSERT_EQ(f.size(), 8u);
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, f, bin_buf_.data(), &len),
              results({0, 0, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(len, 8u);
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + 8), f);
}

TEST_F(NavCmdAssembler, PayloadFrameIsCopiedWhole) {
    auto f = nav_frame(0x0A, 0x22, {0x01, 0xF1, 0xD9, 0x00, 0xFF});
    uint32_t len = 0;
    auto r = feed(Vk_NAV_CMD_Composite, f, bin_buf_.data(), &len);
    std::vector<uint32_t> expected(f.size(), 0);
    expected.back() = 3;
    EXPECT_EQ(r, expected);
    EXPECT_EQ(len, 13u);
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + len), f);
}

TEST_F(NavCmdAssembler, GarbageBeforeSyncIsIgnored) {
    std::vector<uint8_t> in = {0x00, 0xD9, 0x55, 0xAA};
    auto f = nav_frame(0x01, 0x02, {0x10, 0x20});
    in.insert(in.end(), f.begin(), f.end());
    uint32_t len = 0;
    auto r = feed(Vk_NAV_CMD_Composite, in, bin_buf_.data(), &len);
    for (size_t i = 0; i + 1 < r.size(); ++i) EXPECT_EQ(r[i], 0u) << i;
    EXPECT_EQ(r.back(), 3u);
    EXPECT_EQ(len, f.size());
}

TEST_F(NavCmdAssembler, FirstSyncWithoutSecondIsFrameError) {
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, {0xF1, 0x00}, bin_buf_.data(), &len), results({0, 1}));
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, {0xF1, 0xF1}, bin_buf_.data(), &len), results({0, 1}));
    // Back to hunting: non-sync bytes are ignored again.
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, {0xD9, 0x00}, bin_buf_.data(), &len), results({0, 0}));
}

TEST_F(NavCmdAssembler, WrongChecksumByteBThenNextSyncStartsAfresh) {
    auto bad = nav_frame(0x06, 0x01, {0x01, 0x02, 0x03});
    bad.back() ^= 0x01;
    auto good = nav_frame(0x06, 0x02, {0x04});
    uint32_t len = 1234;
    auto r = feed(Vk_NAV_CMD_Composite, bad, bin_buf_.data(), &len);
    EXPECT_EQ(r.back(), 2u);
    EXPECT_EQ(len, 1234u);
    r = feed(Vk_NAV_CMD_Composite, good, bin_buf_.data(), &len);
    EXPECT_EQ(r, results({0, 0, 0, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(len, good.size());
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + len), good);
}

TEST_F(NavCmdAssembler, WrongChecksumByteAIsMismatch) {
    auto bad = nav_frame(0x06, 0x01, {});
    bad[6] ^= 0x80;
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, bad, bin_buf_.data(), &len),
              results({0, 0, 0, 0, 0, 0, 0, 2}));
}

TEST_F(NavCmdAssembler, LargestPayloadFillsTheWholeBuffer) {
    std::vector<uint8_t> payload(65535);
    for (size_t i = 0; i < payload.size(); ++i) payload[i] = uint8_t(i * 7);
    auto f = nav_frame(0x33, 0x44, payload);
    ASSERT_EQ(f.size(), kBinBuf);
    uint32_t len = 0;
    uint32_t last = 0;
    for (size_t i = 0; i < f.size(); ++i) {
        last = Vk_NAV_CMD_Composite(f[i], bin_buf_.data(), &len);
        if (i + 1 < f.size()) {
            ASSERT_EQ(last, 0u) << i;
        }
    }
    EXPECT_EQ(last, 3u);
    EXPECT_EQ(len, 65543u);
    EXPECT_EQ(bin_buf_, f);
}

TEST_F(NavCmdAssembler, StatePersistsBetweenCalls) {
    auto f = nav_frame(0x06, 0x01, {0xAA, 0xBB});
    uint32_t len = 0;
    std::vector<uint8_t> first(f.begin(), f.begin() + 5);
    std::vector<uint8_t> rest(f.begin() + 5, f.end());
    EXPECT_EQ(feed(Vk_NAV_CMD_Composite, first, bin_buf_.data(), &len), results({0, 0, 0, 0, 0}));
    auto r = feed(Vk_NAV_CMD_Composite, rest, bin_buf_.data(), &len);
    EXPECT_EQ(r.back(), 3u);
    EXPECT_EQ(len, f.size());
}

// ---- binary ephemeris frames (framed from the second sync byte) ----------------------

TEST_F(NavEphAssembler, AnyByteButSecondSyncIsRefusedWhileHunting) {
    uint32_t len = 0;
    for (uint8_t b : {uint8_t(0x00), uint8_t(0xF1), uint8_t(0x55), uint8_t(0xFF)})
        EXPECT_EQ(Vk_NAV_EPH_Composite(b, bin_buf_.data(), &len), 1u) << int(b);
}

TEST_F(NavEphAssembler, FrameStartsAtSecondSyncEmptyPayload) {
    // D9 class id 00 00 A B: seven bytes, checksum over id and the length.
    auto f = eph_frame(0x06, 0x01, 0, 0);
    ASSERT_EQ(f.size(), 7u);
    // Sum over 01 00 00: a = 1, 1, 1; b = 1, 2, 3.
    EXPECT_EQ(f[5], 0x01);
    EXPECT_EQ(f[6], 0x03);
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_EPH_Composite, f, bin_buf_.data(), &len), results({0, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(len, 7u);
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + 7), f);
}

TEST_F(NavEphAssembler, PayloadTakesOneByteMore) {
    // N = 2: D9 cls id 02 00 P0 P1 P2 A B = N + 8 bytes.
    auto f = eph_frame(0x0B, 0x05, 2, 0x40);
    ASSERT_EQ(f.size(), 10u);
    uint32_t len = 0;
    auto r = feed(Vk_NAV_EPH_Composite, f, bin_buf_.data(), &len);
    EXPECT_EQ(r, results({0, 0, 0, 0, 0, 0, 0, 0, 0, 3}));
    EXPECT_EQ(len, 10u);
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + len), f);
}

TEST_F(NavEphAssembler, LeadingFirstSyncIsRefusedThenFrameFollows) {
    // A sender that puts F1 first: the F1 is refused, the frame starts at D9.
    std::vector<uint8_t> in = {0xF1};
    auto f = eph_frame(0x0B, 0x05, 3, 0x10);
    in.insert(in.end(), f.begin(), f.end());
    uint32_t len = 0;
    auto r = feed(Vk_NAV_EPH_Composite, in, bin_buf_.data(), &len);
    EXPECT_EQ(r.front(), 1u);
    EXPECT_EQ(r.back(), 3u);
    EXPECT_EQ(len, f.size());
    EXPECT_EQ(std::vector<uint8_t>(bin_buf_.begin(), bin_buf_.begin() + len), f);
}

TEST_F(NavEphAssembler, StandardFrameDoesNotCheckOut) {
    // F1 D9 06 01 00 00 07 1B is a good command frame; read from its D9 the
    // checksum span is shifted and no longer matches.
    auto f = nav_frame(0x06, 0x01, {});
    ASSERT_EQ(f[6], 0x07);
    ASSERT_EQ(f[7], 0x1B);
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_EPH_Composite, f, bin_buf_.data(), &len),
              results({1, 0, 0, 0, 0, 0, 0, 2}));
}

TEST_F(NavEphAssembler, WrongChecksumThenNextFrame) {
    auto bad = eph_frame(0x01, 0x02, 1, 0x00);
    bad.back() ^= 0xFF;
    auto good = eph_frame(0x01, 0x03, 1, 0x00);
    uint32_t len = 0;
    EXPECT_EQ(feed(Vk_NAV_EPH_Composite, bad, bin_buf_.data(), &len).back(), 2u);
    EXPECT_EQ(feed(Vk_NAV_EPH_Composite, good, bin_buf_.data(), &len).back(), 3u);
    EXPECT_EQ(len, good.size());
}

TEST_F(NavEphAssembler, StateIsSeparateFromCommandAssembler) {
    auto cmd = nav_frame(0x06, 0x01, {0x09});
    auto eph = eph_frame(0x07, 0x02, 1, 0x30);
    std::vector<uint8_t> eph_buf(kBinBuf, 0);
    uint32_t len_c = 0, len_e = 0;
    // Interleave the two streams byte by byte.
    uint32_t rc = 0, re = 0;
    for (size_t i = 0; i < std::max(cmd.size(), eph.size()); ++i) {
        if (i < cmd.size()) rc = Vk_NAV_CMD_Composite(cmd[i], bin_buf_.data(), &len_c);
        if (i < eph.size()) re = Vk_NAV_EPH_Composite(eph[i], eph_buf.data(), &len_e);
    }
    EXPECT_EQ(rc, 3u);
    EXPECT_EQ(re, 3u);
    EXPECT_EQ(len_c, cmd.size());
    EXPECT_EQ(len_e, eph.size());
}

}  // namespace
