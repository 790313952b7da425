// Integrity checks: NMEA checksum and trailer, XOR, the two-sum frame
// checksum and the three table-driven CRCs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ref_crc16.h"
#include "toolkit/checksum.h"

namespace {

const uint8_t *bytes(const char *s) { return reinterpret_cast<const uint8_t *>(s); }

// Bit-at-a-time reference CRCs, written from the polynomials alone, to check
// the table-driven versions over arbitrary data.
uint32_t ref_crc24q(const uint8_t *p, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(p[i]) << 16;
        for (int k = 0; k < 8; ++k) {
            crc <<= 1;
            if (crc & 0x1000000u) crc ^= 0x1864CFBu;
        }
    }
    return crc & 0xFFFFFFu;
}

std::vector<uint8_t> random_bytes(uint32_t seed, size_t n) {
    std::mt19937 gen(seed);
    std::vector<uint8_t> v(n);
    for (auto &b : v) b = uint8_t(gen() & 0xFF);
    return v;
}

}  // namespace

// ---- NMEA checksum and trailer --------------------------------------------

TEST(NmeaChecksum, CoversTheCharactersAfterTheDollar) {
    const char *body = "$RESET,0,h00";
    uint8_t x = 0;
    for (const char *p = body + 1; *p; ++p) x ^= uint8_t(*p);
    EXPECT_EQ(Vk_NMEA_Support_Checksum(body), int(x));
    EXPECT_EQ(Vk_NMEA_Support_Checksum(body), 0x0D);
}

TEST(NmeaChecksum, KnownSentences) {
    EXPECT_EQ(Vk_NMEA_Support_Checksum("$GPGLL,4916.45,N,12311.12,W,225444,A"), 0x31);
    EXPECT_EQ(Vk_NMEA_Support_Checksum("$PAIR001,002,0"), 0x39);
}

TEST(NmeaChecksum, FirstCharacterIsNotCounted) {
    // Whatever the first character is, it stays outside the sum.
    EXPECT_EQ(Vk_NMEA_Support_Checksum("$AB"), Vk_NMEA_Support_Checksum("!AB"));
    EXPECT_EQ(Vk_NMEA_Support_Checksum("$AB"), 'A' ^ 'B');
}

TEST(NmeaChecksum, DollarAloneIsZero) { EXPECT_EQ(Vk_NMEA_Support_Checksum("$"), 0); }

TEST(NmeaChecksum, EmptyTextDoesNotWrapTheSpan) {
    // An empty text has no characters after '$'; it must not read past its end.
    EXPECT_EQ(Vk_NMEA_Support_Checksum(""), 0);
    EXPECT_EQ(Vk_NMEA_Support_Checksum(nullptr), 0);
}

TEST(NmeaTrailer, AppendsStarTwoUpperHexDigitsAndCrLf) {
    char buf[64] = "$RESET,0,h00";
    uint32_t n = Vk_NMEA_AppendTrailer(buf, sizeof buf);
    EXPECT_EQ(std::string(buf), "$RESET,0,h00*0D\r\n");
    EXPECT_EQ(n, strlen("$RESET,0,h00*0D\r\n"));
}

TEST(NmeaTrailer, HexDigitsAreUpperCase) {
    char buf[64] = "$GPGLL,4916.45,N,12311.12,W,225444,A";
    ASSERT_NE(Vk_NMEA_AppendTrailer(buf, sizeof buf), 0u);
    EXPECT_EQ(std::string(buf), "$GPGLL,4916.45,N,12311.12,W,225444,A*31\r\n");
    char buf2[16] = "$Z";  // 'Z' = 0x5A
    ASSERT_NE(Vk_NMEA_AppendTrailer(buf2, sizeof buf2), 0u);
    EXPECT_EQ(std::string(buf2), "$Z*5A\r\n");
}

TEST(NmeaTrailer, ExactFitAndOneShort) {
    // "$AB" + "*03\r\n" + NUL = 9 bytes.
    char exact[9] = "$AB";
    EXPECT_EQ(Vk_NMEA_AppendTrailer(exact, sizeof exact), 8u);
    EXPECT_EQ(std::string(exact), "$AB*03\r\n");

    char shorter[8] = "$AB";
    EXPECT_EQ(Vk_NMEA_AppendTrailer(shorter, sizeof shorter), 0u);
    EXPECT_EQ(std::string(shorter), "$AB");  // left as it was
}

TEST(NmeaTrailer, RefusesEmptyBodyAndNull) {
    char buf[16] = "";
    EXPECT_EQ(Vk_NMEA_AppendTrailer(buf, sizeof buf), 0u);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(Vk_NMEA_AppendTrailer(nullptr, 16), 0u);
}

TEST(NmeaTrailer, UnterminatedBodyWithinCapacityIsRefused) {
    char buf[4] = {'$', 'A', 'B', 'C'};
    EXPECT_EQ(Vk_NMEA_AppendTrailer(buf, sizeof buf), 0u);
}

// ---- XOR -------------------------------------------------------------------

TEST(CheckXor, NullOrEmptyIsZero) {
    const uint8_t d[] = {0x12};
    EXPECT_EQ(Vk_Check_XOR(nullptr, 5), 0);
    EXPECT_EQ(Vk_Check_XOR(d, 0), 0);
}

TEST(CheckXor, XorOfAllBytes) {
    const uint8_t d[] = {0x12, 0x34, 0x56, 0xFF};
    EXPECT_EQ(Vk_Check_XOR(d, 1), 0x12);
    EXPECT_EQ(Vk_Check_XOR(d, 2), 0x12 ^ 0x34);
    EXPECT_EQ(Vk_Check_XOR(d, 4), 0x12 ^ 0x34 ^ 0x56 ^ 0xFF);
    const uint8_t same[] = {0xA5, 0xA5};
    EXPECT_EQ(Vk_Check_XOR(same, 2), 0);
}

// ---- two-sum (Fletcher) ------------------------------------------------------

TEST(TwoSum, FourByteBufferSumsOnlyBytesTwoAndThree) {
    const uint8_t d[] = {0xF1, 0xD9, 0x01, 0x02};
    // a = 1, b = 1; a = 3, b = 4
    EXPECT_EQ(Vk_Check_Crc16(d, 4), 0x0403);
    const uint8_t other_head[] = {0x00, 0x77, 0x01, 0x02};
    EXPECT_EQ(Vk_Check_Crc16(other_head, 4), 0x0403);
}

TEST(TwoSum, ThreeBytesOrFewerOrNullIsZero) {
    const uint8_t d[] = {0xF1, 0xD9, 0x05, 0x06};
    EXPECT_EQ(Vk_Check_Crc16(d, 3), 0);
    EXPECT_EQ(Vk_Check_Crc16(d, 2), 0);
    EXPECT_EQ(Vk_Check_Crc16(d, 0), 0);
    EXPECT_EQ(Vk_Check_Crc16(nullptr, 10), 0);
    EXPECT_EQ(Vk_Check_Varnok(d, 3), 0);
    EXPECT_EQ(Vk_Check_Varnok(nullptr, 10), 0);
}

TEST(TwoSum, FrameHeaderByHand) {
    // F1 D9 | 06 01 00 00: a = 6, 7, 7, 7; b = 6, 13, 20, 27.
    const uint8_t d[] = {0xF1, 0xD9, 0x06, 0x01, 0x00, 0x00};
    EXPECT_EQ(Vk_Check_Crc16(d, 6), (27 << 8) | 7);
}

TEST(TwoSum, SumsWrapModulo256) {
    // Bytes 2..5 = FF FF FF FF: a = FF, FE, FD, FC; b = FF, FD, FA, F6.
    const uint8_t d[] = {0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(Vk_Check_Crc16(d, 6), 0xF6FC);
}

TEST(TwoSum, VarnokMatchesCrc16Name) {
    for (uint32_t seed = 1; seed <= 20; ++seed) {
        auto v = random_bytes(seed, 10 + seed * 37);
        for (uint32_t n = 0; n <= v.size(); n += 7)
            EXPECT_EQ(Vk_Check_Varnok(v.data(), n), Vk_Check_Crc16(v.data(), n)) << n;
    }
}

// ---- CRC-24Q -------------------------------------------------------------------

TEST(Crc24q, CheckValue) { EXPECT_EQ(Vk_Check_CRC24Q(0, bytes("123456789"), 9), 0xCDE703u); }

TEST(Crc24q, SeedIsIgnored) {
    const uint32_t expected = Vk_Check_CRC24Q(0, bytes("123456789"), 9);
    for (uint32_t seed : {1u, 0xFFFFFFu, 0xFFFFFFFFu, 0x12345678u})
        EXPECT_EQ(Vk_Check_CRC24Q(seed, bytes("123456789"), 9), expected) << seed;
    EXPECT_EQ(Vk_Check_CRC24Q(0xABCDEFu, bytes("x"), 0), 0u);
}

TEST(Crc24q, TableEntryOneIsThePolynomial) {
    const uint8_t one = 0x01;
    EXPECT_EQ(Vk_Check_CRC24Q(0, &one, 1), 0x864CFBu);
}

TEST(Crc24q, MatchesBitwiseReferenceAndStaysWithin24Bits) {
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        auto v = random_bytes(seed, seed * 13);
        uint32_t c = Vk_Check_CRC24Q(0, v.data(), uint32_t(v.size()));
        EXPECT_EQ(c, ref_crc24q(v.data(), v.size()));
        EXPECT_EQ(c & 0xFF000000u, 0u);
    }
}

TEST(Crc24q, AppendingTheCrcGivesZero) {
    // The RTCM receiver check: the CRC over frame plus its big-endian CRC is 0.
    std::vector<uint8_t> frame = {0xD3, 0x00, 0x03, 0x3E, 0xD0, 0x00};
    uint32_t c = Vk_Check_CRC24Q(0, frame.data(), uint32_t(frame.size()));
    frame.push_back(uint8_t(c >> 16));
    frame.push_back(uint8_t(c >> 8));
    frame.push_back(uint8_t(c));
    EXPECT_EQ(Vk_Check_CRC24Q(0, frame.data(), uint32_t(frame.size())), 0u);
}

// ---- CRC-16/XMODEM -----------------------------------------------------------------

TEST(Crc16Xmodem, CheckValue) { EXPECT_EQ(Vk_CRC16_Calc(bytes("123456789"), 9), 0x31C3); }

TEST(Crc16Xmodem, TableEntryOne) {
    const uint8_t one = 0x01;
    EXPECT_EQ(Vk_CRC16_Calc(&one, 1), 0x1021);
}

TEST(Crc16Xmodem, EmptyIsZero) { EXPECT_EQ(Vk_CRC16_Calc(bytes("abc"), 0), 0); }

TEST(Crc16Xmodem, LengthIsTakenAsSigned) {
    // A length of 2^31 or more is negative as a signed count: nothing is read.
    const uint8_t d[] = {0x31, 0x32};
    EXPECT_EQ(Vk_CRC16_Calc(d, 0x80000000u), 0);
    EXPECT_EQ(Vk_CRC16_Calc(d, 0xFFFFFFFFu), 0);
}

TEST(Crc16Xmodem, MatchesBitwiseReference) {
    for (uint32_t seed = 1; seed <= 30; ++seed) {
        auto v = random_bytes(seed + 100, seed * 11);
        EXPECT_EQ(Vk_CRC16_Calc(v.data(), uint32_t(v.size())),
                  ref_crc16_xmodem(v.data(), v.size()));
    }
}
