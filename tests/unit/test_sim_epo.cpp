// The AG33XX and RZ610MXXXX receiver models of the virtual receiver, driven
// through the pseudo-terminal with plain POSIX calls (sim_test_util.h). Every
// expected answer is either written out literally or built here independently
// of the sim.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "sim/sim.h"
#include "tests/support/epo_frames.h"
#include "tests/unit/sim_test_util.h"

using namespace sim_test;

namespace {

// The receiver's acknowledgement of a frame, as bytes on the wire.
const Bytes kAckBegin = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB0,
                         0x04, 0x00, 0x00, 0x5B, 0xAA, 0x44};
const Bytes kAckData = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB1,
                        0x04, 0x00, 0x00, 0x5A, 0xAA, 0x44};
const Bytes kAckEnd = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB2,
                       0x04, 0x00, 0x00, 0x59, 0xAA, 0x44};
const Bytes kNakBegin = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB0,
                         0x04, 0x01, 0x00, 0x5A, 0xAA, 0x44};
const Bytes kNakData = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB1,
                        0x04, 0x01, 0x00, 0x5B, 0xAA, 0x44};
const Bytes kNakEnd = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, 0xB2,
                       0x04, 0x01, 0x00, 0x58, 0xAA, 0x44};

const uint16_t kBegin = 1200, kData = 1201, kEnd = 1202;

// A 72-byte record: 24-bit GPS hour, SVID, then a fill that gives words with
// leading zero digits, an all-zero word and words with every digit used.
Bytes record(uint32_t hour, uint8_t svid, uint8_t seed) {
    Bytes r(72);
    r[0] = uint8_t(hour);
    r[1] = uint8_t(hour >> 8);
    r[2] = uint8_t(hour >> 16);
    r[3] = svid;
    for (size_t i = 4; i < 72; ++i) r[i] = uint8_t(seed * 31 + i * 17);
    for (size_t i = 8; i < 12; ++i) r[i] = 0;  // word 2: 0
    r[12] = 0x0A;                              // word 3: A
    r[13] = r[14] = r[15] = 0;
    r[16] = 0x34, r[17] = 0x12, r[18] = 0, r[19] = 0;  // word 4: 1234
    return r;
}

uint32_t word(const Bytes &r, int w) {
    const uint8_t *p = r.data() + 4 * w;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// The record as the AG33XX sentence carries it: 20 "%X" fields.
std::string pair471(uint32_t mode, uint32_t prn, const Bytes &r) {
    char buf[400];
    int n = std::snprintf(buf, sizeof buf, "$PAIR471,%X,%X", mode, prn);
    for (int w = 0; w < 18; ++w)
        n += std::snprintf(buf + n, sizeof buf - size_t(n), ",%X", word(r, w));
    return nmea(buf);
}

// The record as the RZ610MXXXX sentence carries it: mode, PRN, 18 x "%08X".
std::string pvnkepo(int mode, int prn, const Bytes &r) {
    char buf[400];
    int n = std::snprintf(buf, sizeof buf, "$PVNKEPO,%d,%d", mode, prn);
    for (int w = 0; w < 18; ++w)
        n += std::snprintf(buf + n, sizeof buf - size_t(n), ",%08X", word(r, w));
    return nmea(buf);
}

const std::string kTime590 = nmea("$PAIR590,2026,1,8,9,59,17");
const std::string kPos600 = nmea("$PAIR600,31.500000,121.400000,10.0,50.0,50.0,0.0,100.0");

}  // namespace

// --- the test's own helpers ------------------------------------------------------

TEST(SimEpoHelpers, AcknowledgementBytesFollowTheFrameLayout) {
    // An acknowledgement is itself a frame: id 1000, four payload bytes.
    EXPECT_EQ(epo_frame(1000, {0xB0, 0x04, 0x00, 0x00}), kAckBegin);
    EXPECT_EQ(epo_frame(1000, {0xB1, 0x04, 0x00, 0x00}), kAckData);
    EXPECT_EQ(epo_frame(1000, {0xB2, 0x04, 0x00, 0x00}), kAckEnd);
    EXPECT_EQ(epo_frame(1000, {0xB0, 0x04, 0x01, 0x00}), kNakBegin);
    EXPECT_EQ(epo_frame(1000, {0xB1, 0x04, 0x01, 0x00}), kNakData);
    EXPECT_EQ(epo_frame(1000, {0xB2, 0x04, 0x01, 0x00}), kNakEnd);
    EXPECT_EQ(epo_ack(1200), kAckBegin);
    EXPECT_EQ(epo_ack(1201, 1), kNakData);
}

TEST(SimEpoHelpers, TrailersOfTheAnswers) {
    EXPECT_EQ(nmea("$PAIR001,590,0"), "$PAIR001,590,0*37\r\n");
    EXPECT_EQ(nmea("$PVNKHOT,OK"), "$PVNKHOT,OK*78\r\n");
    EXPECT_EQ(nmea("$GNGGA,000001.00,,,,,0,00,99.99,,,,,,"),
              "$GNGGA,000001.00,,,,,0,00,99.99,,,,,,*79\r\n");
}

// --- AG33XX sentences ----------------------------------------------------------------

TEST(SimAg33xx, EachRestartIsAcknowledgedThenReported) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    const char *numbers[] = {"004", "005", "006", "007"};
    for (const char *n : numbers) {
        std::string want =
            nmea(std::string("$PAIR001,") + n + ",0") + nmea(std::string("$PAIR011,") + n + ",0");
        EXPECT_EQ(rig.ask(nmea(std::string("$PAIR") + n), want.size()), want) << n;
    }
    EXPECT_EQ(nmea("$PAIR001,004,0") + nmea("$PAIR011,004,0"),
              "$PAIR001,004,0*3F\r\n$PAIR011,004,0*3E\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 4u);
    EXPECT_EQ(rec.replies, 4u);
    EXPECT_EQ(rec.refusals, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimAg33xx, TimePositionClearAndStatusAreAnswered) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, kTime590, "$PAIR001,590,0*37\r\n");
    EXPECT_ANSWER(rig, kPos600, "$PAIR001,600,0*3D\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR472"), "$PAIR001,472,0*3A\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), "$PAIR470,0,0*39\r\n");
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 4u);
    EXPECT_EQ(rec.sentences[0], kTime590);
    EXPECT_EQ(rec.sentences[1], kPos600);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.epo_clears, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimAg33xx, RecordSentenceIsRebuiltByteForByte) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    Bytes r1 = record(0x06A1B2, 5, 1);
    Bytes r2 = record(0xFFFFFF, 32, 2);
    r2[70] = 0xFF, r2[71] = 0xFF;  // top bytes of the last word
    std::string s1 = pair471(0, 5, r1);
    // Fields carry no leading zeros: the all-zero word is "0", word 3 is "A".
    EXPECT_NE(s1.find(",0,A,1234,"), std::string::npos) << s1;
    EXPECT_ANSWER(rig, s1, "$PAIR001,471,0*39\r\n");
    EXPECT_ANSWER(rig, pair471(0, 32, r2), "$PAIR001,471,0*39\r\n");
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.epo_records.size(), 2u);
    EXPECT_EQ(rec.epo_records[0], r1);
    EXPECT_EQ(rec.epo_records[1], r2);
    EXPECT_EQ(rec.epo_stored, 2u);
    EXPECT_EQ(rec.prn_errors, 0u);
    EXPECT_TRUE(rec.epo_markers.empty());
}

TEST(SimAg33xx, StatusCountsRecordsPerSystemAndClearForgetsThem) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    const std::string ack471 = nmea("$PAIR001,471,0");
    for (uint8_t sv = 1; sv <= 3; ++sv)
        EXPECT_ANSWER(rig, pair471(0, sv, record(100, sv, sv)), ack471);
    for (uint8_t sv = 65; sv <= 66; ++sv)
        EXPECT_ANSWER(rig, pair471(1, sv - 64, record(100, sv, sv)), ack471);
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), nmea("$PAIR470,0,3"));
    EXPECT_ANSWER(rig, nmea("$PAIR470,1"), nmea("$PAIR470,1,2"));
    EXPECT_ANSWER(rig, nmea("$PAIR470,2"), nmea("$PAIR470,2,0"));
    EXPECT_ANSWER(rig, nmea("$PAIR472"), nmea("$PAIR001,472,0"));
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), nmea("$PAIR470,0,0"));
    EXPECT_ANSWER(rig, nmea("$PAIR470,1"), nmea("$PAIR470,1,0"));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_records.size(), 5u);  // the log of what came stays
    EXPECT_EQ(rec.epo_stored, 0u);
    EXPECT_EQ(rec.epo_clears, 1u);
}

TEST(SimAg33xx, PrnFieldIsCheckedByTheRuleOfTheMode) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    const std::string ack471 = nmea("$PAIR001,471,0");
    struct Case {
        uint32_t mode;
        uint8_t svid;
        uint32_t prn;
        bool right;
    } cases[] = {
        {0, 7, 7, true},   {0, 7, 8, false},    {1, 70, 6, true},     {1, 5, uint32_t(-59), true},
        {2, 105, 5, true}, {2, 255, 255, true}, {2, 255, 155, false}, {3, 195, 60, true},
        {3, 205, 5, true}, {3, 205, 70, false}, {3, 255, 255, true},  {4, 9, 0, true},
        {4, 9, 9, false},
    };
    uint32_t wrong = 0;
    for (const Case &c : cases) {
        EXPECT_ANSWER(rig, pair471(c.mode, c.prn, record(7, c.svid, 3)), ack471);
        if (!c.right) ++wrong;
    }
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.prn_errors, wrong);
    EXPECT_EQ(rec.epo_records.size(), sizeof cases / sizeof cases[0]);  // still taken
}

TEST(SimAg33xx, BadChecksumIsCountedAndRefused) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    std::string bad = kTime590;
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    EXPECT_ANSWER(rig, bad, "$PAIR001,590,1*36\r\n");
    std::string bad_record = pair471(0, 5, record(1, 5, 1));
    bad_record[bad_record.size() - 4] ^= 0x01;  // the high digit of the checksum
    EXPECT_ANSWER(rig, bad_record, "$PAIR001,471,1*38\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, 2u);
    EXPECT_EQ(rec.refusals, 2u);
    ASSERT_EQ(rec.sentences.size(), 2u);
    EXPECT_EQ(rec.sentences[0], bad);
    EXPECT_TRUE(rec.epo_records.empty());
}

TEST(SimAg33xx, MalformedAndUnknownCommandsAreRefusedOtherTalkersIgnored) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    Bytes r = record(1, 5, 1);
    std::string short_record = pair471(0, 5, r);
    short_record = nmea(short_record.substr(0, short_record.rfind(',')));  // 19 fields
    EXPECT_ANSWER(rig, short_record, "$PAIR001,471,1*38\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR590,2026,1,8,9,59"), "$PAIR001,590,1*36\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR600,31.5x,121.400000,10.0,50.0,50.0,0.0,100.0"),
                  "$PAIR001,600,1*3C\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR600,31.5,121.4,,50.0,50.0,0.0,100.0"), "$PAIR001,600,1*3C\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR999"), nmea("$PAIR001,999,1"));
    // Sentences of other talkers get nothing: the next answer is the first byte back.
    ASSERT_TRUE(write_all(rig.port, nmea("$GPGGA,1,2,3") + nmea("$PVNKHOT")));
    EXPECT_ANSWER(rig, kTime590, "$PAIR001,590,0*37\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 8u);
    EXPECT_EQ(rec.refusals, 5u);
    EXPECT_EQ(rec.replies, 6u);
    EXPECT_TRUE(rec.epo_records.empty());
    EXPECT_FALSE(input_pending(rig.port));
}

// --- binary EPO frames -----------------------------------------------------------------

TEST(SimAg33xx, BinaryBeginDataEndAreAcknowledgedExactly) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    Bytes r1 = record(300, 1, 1), r2 = record(300, 2, 2);
    Bytes begin = epo_frame(kBegin, {'G', 0}), d1 = epo_frame(kData, r1), d2 = epo_frame(kData, r2),
          end = epo_frame(kEnd, {'G', 0});
    EXPECT_EQ(rig.ask(begin, 13), kAckBegin);
    EXPECT_EQ(rig.ask(d1, 13), kAckData);
    EXPECT_EQ(rig.ask(d2, 13), kAckData);
    EXPECT_EQ(rig.ask(end, 13), kAckEnd);
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), nmea("$PAIR470,0,2"));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[0], begin);
    EXPECT_EQ(rec.frames[1], d1);
    EXPECT_EQ(rec.frames[3], end);
    ASSERT_EQ(rec.epo_records.size(), 2u);
    EXPECT_EQ(rec.epo_records[0], r1);
    EXPECT_EQ(rec.epo_records[1], r2);
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G", "end G"}));
    EXPECT_EQ(rec.epo_marker_records, (std::vector<uint32_t>{0, 2}));
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimAg33xx, OneByteMarkersOfAGpsGlonassFileCountPerSystem) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'G'}), 13), kAckBegin);
    EXPECT_EQ(rig.ask(epo_frame(kData, record(1, 1, 1)), 13), kAckData);
    EXPECT_EQ(rig.ask(epo_frame(kEnd, {'G'}), 13), kAckEnd);
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'R'}), 13), kAckBegin);
    for (uint8_t sv = 65; sv < 68; ++sv)
        EXPECT_EQ(rig.ask(epo_frame(kData, record(1, sv, sv)), 13), kAckData);
    EXPECT_EQ(rig.ask(epo_frame(kEnd, {'R'}), 13), kAckEnd);
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), nmea("$PAIR470,0,1"));
    EXPECT_ANSWER(rig, nmea("$PAIR470,1"), nmea("$PAIR470,1,3"));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G", "end G", "begin R", "end R"}));
    EXPECT_EQ(rec.epo_marker_records, (std::vector<uint32_t>{0, 1, 0, 3}));
}

TEST(SimAg33xx, BadFramesAreCountedAndRefused) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    Bytes bad_xor = epo_frame(kData, record(1, 1, 1));
    bad_xor[6 + 72] ^= 0x5A;
    EXPECT_EQ(rig.ask(bad_xor, 13), kNakData);
    Bytes bad_tail = epo_frame(kEnd, {'G', 0});
    bad_tail[bad_tail.size() - 1] = 0x45;
    EXPECT_EQ(rig.ask(bad_tail, 13), kNakEnd);
    EXPECT_EQ(rig.ask(epo_frame(kData, Bytes()), 13), kNakData);     // no record at all
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'J', 0}), 13), kNakBegin);  // no such system here
    Bytes nak_1300 = epo_frame(1000, {0x14, 0x05, 0x01, 0x00});
    EXPECT_EQ(rig.ask(epo_frame(1300, {1, 2, 3}), 13), nak_1300);  // unknown message
    // A stray 0x04 is no frame: counted, not answered; the frame after it is taken.
    Bytes good = epo_frame(kData, record(2, 2, 2));
    Bytes stray = {0x04, 'x'};
    stray.insert(stray.end(), good.begin(), good.end());
    EXPECT_EQ(rig.ask(stray, 13), kAckData);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_frames, 3u);  // bad XOR, bad tail, stray 0x04
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[3], good);
    ASSERT_EQ(rec.epo_records.size(), 1u);
    EXPECT_EQ(rec.epo_records[0], record(2, 2, 2));
    EXPECT_TRUE(rec.epo_markers.empty());
    EXPECT_EQ(rec.refusals, 5u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimAg33xx, ShortTailOfAnOddSizedFileIsTakenAsItCame) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    Bytes tail(17, 0x5C);
    EXPECT_EQ(rig.ask(epo_frame(kData, record(9, 9, 9)), 13), kAckData);
    EXPECT_EQ(rig.ask(epo_frame(kData, tail), 13), kAckData);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.epo_records.size(), 2u);
    EXPECT_EQ(rec.epo_records[1], tail);
}

TEST(SimAg33xx, PositionNumbersAreReadAsTheFirmwareReadsThem) {
    Rig rig("ag33xx");
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, nmea("$PAIR600,nan,121.250000,10.0,50.0,50.0,0.0,100.0"),
                  "$PAIR001,600,0*3D\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR600,-31.5,-121.25,-10.0,5e1,50.0,0.0,100.0"),
                  "$PAIR001,600,0*3D\r\n");
}

// --- RZ610MXXXX sentences ------------------------------------------------------------------

TEST(SimRz610mxxxx, EachRestartAnswersOkThenAPositionSentence) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    const std::string gga = "$GNGGA,000001.00,,,,,0,00,99.99,,,,,,*79\r\n";
    EXPECT_ANSWER(rig, nmea("$PVNKHOT"), "$PVNKHOT,OK*78\r\n" + gga);
    EXPECT_ANSWER(rig, nmea("$PVNKWARM"), "$PVNKWARM,OK*22\r\n" + gga);
    EXPECT_ANSWER(rig, nmea("$PVNKCOLD"), "$PVNKCOLD,OK*2F\r\n" + gga);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 3u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimRz610mxxxx, TimePositionClearAndStatusAreAnswered) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    // The tenth field of the time is empty, as the tool writes it.
    EXPECT_ANSWER(rig, nmea("$PVNKAIDTIME,1,18,2026,1,8,9,59,17,0,,0"), "$PVNKAIDTIME,OK*72\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDTIME,1,-1,2026,1,8,9,59,17,0,,0"), "$PVNKAIDTIME,OK*72\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDPOS,1,31.500000,121.400000,10.0,0.0"),
                  "$PVNKAIDPOS,OK*2B\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,OK*2C\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,1"), "$PVNKEPOGETSTATUS,1,0*1A\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 5u);
    EXPECT_EQ(rec.epo_clears, 1u);
    EXPECT_EQ(rec.refusals, 0u);
}

TEST(SimRz610mxxxx, RecordSentenceIsRebuiltAndCountedPerMode) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    const std::string ok = "$PVNKEPO,OK*71\r\n";
    Bytes g1 = record(0x0A0B0C, 1, 9), g2 = record(0x0A0B0C, 2, 10), r1 = record(0x0A0B0C, 65, 11);
    std::string s1 = pvnkepo(1, 1, g1);
    EXPECT_NE(s1.find(",00000000,0000000A,00001234,"), std::string::npos) << s1;
    EXPECT_EQ(rig.ask(s1, ok.size()), ok);
    EXPECT_ANSWER(rig, pvnkepo(1, 2, g2), ok);
    EXPECT_ANSWER(rig, pvnkepo(2, 1, r1), ok);
    EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,1"), nmea("$PVNKEPOGETSTATUS,1,2"));
    EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,2"), nmea("$PVNKEPOGETSTATUS,2,1"));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.epo_records.size(), 3u);
    EXPECT_EQ(rec.epo_records[0], g1);
    EXPECT_EQ(rec.epo_records[1], g2);
    EXPECT_EQ(rec.epo_records[2], r1);
    EXPECT_EQ(rec.prn_errors, 0u);
}

TEST(SimRz610mxxxx, PrnIsCheckedByTheRuleOfTheMode) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    const std::string ok = "$PVNKEPO,OK*71\r\n";
    struct Case {
        int mode;
        uint8_t svid;
        int prn;
        bool right;
    } cases[] = {
        {1, 7, 7, true},    {1, 7, 6, false},     {2, 70, 6, true},     {2, 70, 70, false},
        {3, 136, 36, true}, {3, 255, 255, true},  {3, 255, 155, false}, {4, 193, 58, true},
        {4, 254, 54, true}, {4, 254, 119, false}, {5, 193, 0, true},    {5, 193, 1, false},
        {0, 3, 0, true},
    };
    uint32_t wrong = 0;
    for (const Case &c : cases) {
        EXPECT_EQ(rig.ask(pvnkepo(c.mode, c.prn, record(7, c.svid, 3)), ok.size()), ok);
        if (!c.right) ++wrong;
    }
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.prn_errors, wrong);
}

TEST(SimRz610mxxxx, RefusalsOfBadMalformedAndUnknownCommands) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    std::string bad = nmea("$PVNKAIDPOS,1,31.500000,121.400000,10.0,0.0");
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    EXPECT_ANSWER(rig, bad, "$PVNKAIDPOS,FAIL*2D\r\n");
    // Words must be eight digits each.
    char buf[300];
    int n = std::snprintf(buf, sizeof buf, "$PVNKEPO,1,1");
    for (int w = 0; w < 18; ++w)
        n += std::snprintf(buf + n, sizeof buf - size_t(n), ",%X", unsigned(w));
    EXPECT_ANSWER(rig, nmea(buf), "$PVNKEPO,FAIL*77\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDTIME,1,18,2026,1,8,9,59,17,0"), "$PVNKAIDTIME,FAIL*74\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKFULL"), nmea("$PVNKFULL,FAIL"));
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,OK*2C\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, 1u);
    EXPECT_EQ(rec.refusals, 4u);
    EXPECT_TRUE(rec.epo_records.empty());
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimRz610mxxxx, BinaryFramesWithItsOwnLetters) {
    Rig rig("rz610mxxxx");
    REQUIRE_RIG(rig);
    Bytes q = record(5, 193, 4);
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'J', 0}), 13), kAckBegin);
    EXPECT_EQ(rig.ask(epo_frame(kData, q), 13), kAckData);
    EXPECT_EQ(rig.ask(epo_frame(kEnd, {'J', 0}), 13), kAckEnd);
    EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,5"), nmea("$PVNKEPOGETSTATUS,5,1"));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin J", "end J"}));
    ASSERT_EQ(rec.epo_records.size(), 1u);
    EXPECT_EQ(rec.epo_records[0], q);
}

// --- faults ------------------------------------------------------------------------------

TEST(SimEpoFaults, RefuseAnswersEachPlatformsRefusal) {
    SimFaults f;
    f.refuse = true;
    {
        Rig rig("ag33xx", f);
        REQUIRE_RIG(rig);
        EXPECT_ANSWER(rig, nmea("$PAIR004"), "$PAIR001,004,1*3E\r\n");  // no restart report
        EXPECT_ANSWER(rig, nmea("$PAIR470,0"), "$PAIR001,470,1*39\r\n");
        EXPECT_EQ(rig.ask(epo_frame(kBegin, {'G', 0}), 13), kNakBegin);
        EXPECT_EQ(rig.ask(epo_frame(kData, record(1, 1, 1)), 13), kNakData);
        EXPECT_ANSWER(rig, pair471(0, 1, record(1, 1, 1)), "$PAIR001,471,1*38\r\n");
        SimRecord rec = rig.settle();
        EXPECT_TRUE(rec.epo_records.empty());  // a refused record is not kept
        EXPECT_TRUE(rec.epo_markers.empty());
        EXPECT_EQ(rec.refusals, 5u);
        EXPECT_FALSE(input_pending(rig.port));
    }
    {
        Rig rig("rz610mxxxx", f);
        REQUIRE_RIG(rig);
        EXPECT_ANSWER(rig, nmea("$PVNKHOT"), "$PVNKHOT,FAIL*7E\r\n");  // no GGA
        EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,1"), "$PVNKEPOGETSTATUS,FAIL*35\r\n");
        EXPECT_ANSWER(rig, pvnkepo(1, 1, record(1, 1, 1)), "$PVNKEPO,FAIL*77\r\n");
        EXPECT_EQ(rig.ask(epo_frame(kEnd, {'C', 0}), 13), kNakEnd);
        SimRecord rec = rig.settle();
        EXPECT_TRUE(rec.epo_records.empty());
        EXPECT_FALSE(input_pending(rig.port));
    }
}

TEST(SimEpoFaults, GarbageBeforeABinaryAckHoldsTextAndStray04ButNoAck) {
    SimFaults f;
    f.garbage_bytes = 60;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    Bytes got = rig.ask(epo_frame(kData, record(1, 1, 1)), 60 + 13);
    ASSERT_EQ(got.size(), 73u);
    Bytes garbage(got.begin(), got.begin() + 60), tail(got.begin() + 60, got.end());
    EXPECT_EQ(tail, kAckData);
    std::string unit = std::string("\x04") + "$GNTXT,01,01,02,noise*2D\r\n";
    std::string want;
    while (want.size() < 60) want += unit;
    want.resize(60);
    EXPECT_EQ(text_of(garbage), want);
    // Receiver text with stray 0x04 bytes, and never the rest of an ack.
    EXPECT_GE(std::count(garbage.begin(), garbage.end(), uint8_t(0x04)), 2);
    EXPECT_NE(text_of(garbage).find("$GNTXT"), std::string::npos);
    EXPECT_EQ(std::count(garbage.begin(), garbage.end(), uint8_t(0xE8)), 0);
    // Sentence answers keep the plain noise.
    std::string text = rig.ask(kTime590, 60 + 19);
    EXPECT_EQ(text.substr(0, 6), "#noise");
    EXPECT_EQ(text.substr(60), "$PAIR001,590,0*37\r\n");
}

TEST(SimEpoFaults, GarbageOnlyHidesABinaryAck) {
    SimFaults f;
    f.garbage_only = true;
    Rig rig("rz610mxxxx", f);
    REQUIRE_RIG(rig);
    Bytes got = rig.ask(epo_frame(kBegin, {'G', 0}), 13);
    ASSERT_EQ(got.size(), 13u);
    EXPECT_EQ(got[0], 0x04);
    EXPECT_EQ(std::count(got.begin(), got.end(), uint8_t(0xE8)), 0);
    SimRecord rec = rig.settle();
    // The receiver took the frame; only its answer was lost in the noise.
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G"}));
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimEpoFaults, SplitAcknowledgementsArriveInTwoPieces) {
    SimFaults f;
    f.split_parts = 2;
    f.split_gap_ms = 200;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, kTime590));
    std::vector<std::string> chunks;
    EXPECT_EQ(read_n(rig.port, 19, 5000, &chunks), "$PAIR001,590,0*37\r\n");
    ASSERT_GE(chunks.size(), 2u);
    EXPECT_EQ(chunks[0], "$PAIR001,5");  // cut inside the command number
    ASSERT_TRUE(write_all(rig.port, epo_frame(kData, record(1, 1, 1))));
    chunks.clear();
    EXPECT_EQ(bytes_of(read_n(rig.port, 13, 5000, &chunks)), kAckData);
    ASSERT_GE(chunks.size(), 2u);
    EXPECT_EQ(bytes_of(chunks[0]), Bytes(kAckData.begin(), kAckData.begin() + 7));
}

TEST(SimEpoFaults, RepeatResendsTheLastAnswerUntilTheNextCommand) {
    SimFaults f;
    f.refuse = true;
    f.repeat_ms = 40;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    const std::string nak590 = "$PAIR001,590,1*36\r\n", nak600 = "$PAIR001,600,1*3C\r\n";
    EXPECT_EQ(rig.ask(kTime590, 3 * nak590.size()), nak590 + nak590 + nak590);
    SimRecord rec = rig.settle();
    EXPECT_GE(rec.repeats, 2u);
    EXPECT_EQ(rec.replies, 1u);
    // After the next command only its own answer comes again.
    ASSERT_TRUE(write_all(rig.port, kPos600));
    std::string before = read_until(rig.port, nak600, 5000);
    ASSERT_GE(before.size(), nak600.size());
    EXPECT_EQ(before.substr(before.size() - nak600.size()), nak600);
    for (size_t i = 0; i + nak600.size() < before.size(); i += nak590.size())
        EXPECT_EQ(before.substr(i, nak590.size()), nak590);  // stale repeats already on the way
    EXPECT_EQ(read_n(rig.port, 2 * nak600.size(), 3000), nak600 + nak600);
}

TEST(SimEpoFaults, RepeatOfABinaryAck) {
    SimFaults f;
    f.repeat_ms = 30;
    Rig rig("rz610mxxxx", f);
    REQUIRE_RIG(rig);
    Bytes twice = kAckData;
    twice.insert(twice.end(), kAckData.begin(), kAckData.end());
    EXPECT_EQ(rig.ask(epo_frame(kData, record(1, 1, 1)), 26), twice);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_records.size(), 1u);  // a repeat is no new record
    EXPECT_EQ(rec.frames.size(), 1u);
}

TEST(SimEpoFaults, RefuseOnlyCountsSentencesAndFrames) {
    SimFaults f;
    f.refuse_only = 3;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, kTime590, "$PAIR001,590,0*37\r\n");           // 0
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'G', 0}), 13), kAckBegin);  // 1
    // A stray 0x04 and another talker's sentence take no number.
    ASSERT_TRUE(write_all(rig.port, Bytes{0x04, 0x00}));
    ASSERT_TRUE(write_all(rig.port, nmea("$GPTXT,hello")));
    Bytes r2 = record(2, 2, 2), r3 = record(3, 3, 3), r4 = record(4, 4, 4);
    EXPECT_EQ(rig.ask(epo_frame(kData, r2), 13), kAckData);  // 2
    EXPECT_EQ(rig.ask(epo_frame(kData, r3), 13), kNakData);  // 3
    EXPECT_EQ(rig.ask(epo_frame(kData, r4), 13), kAckData);  // 4
    EXPECT_ANSWER(rig, kPos600, "$PAIR001,600,0*3D\r\n");    // 5
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_records, (std::vector<Bytes>{r2, r4}));
    EXPECT_EQ(rec.refusals, 1u);
}

TEST(SimEpoFaults, ClearRefusedButRestartTaken) {
    SimFaults f;
    f.refuse_only = 1;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, pair471(0, 1, record(1, 1, 1)), "$PAIR001,471,0*39\r\n");
    EXPECT_ANSWER(rig, nmea("$PAIR472"), "$PAIR001,472,1*3B\r\n");
    std::string restart = nmea("$PAIR001,004,0") + nmea("$PAIR011,004,0");
    EXPECT_EQ(rig.ask(nmea("$PAIR004"), restart.size()), restart);
    EXPECT_ANSWER(rig, nmea("$PAIR470,0"), nmea("$PAIR470,0,1"));  // the clear did nothing
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_clears, 0u);
    EXPECT_EQ(rec.epo_stored, 1u);
}

TEST(SimEpoFaults, RefuseUnitsAndRefusePrefix) {
    SimFaults f;
    f.refuse_units = {0, 2};
    f.refuse_prefix = "$PVNKEPOCLR";
    Rig rig("rz610mxxxx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, nmea("$PVNKEPOGETSTATUS,1"), "$PVNKEPOGETSTATUS,FAIL*35\r\n");  // 0
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,FAIL*2A\r\n");          // 1, by prefix
    EXPECT_ANSWER(rig, pvnkepo(1, 1, record(1, 1, 1)), "$PVNKEPO,FAIL*77\r\n");  // 2
    EXPECT_ANSWER(rig, pvnkepo(1, 2, record(1, 2, 1)), "$PVNKEPO,OK*71\r\n");    // 3
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,FAIL*2A\r\n");          // 4, by prefix
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.epo_records.size(), 1u);
    EXPECT_EQ(rec.epo_records[0], record(1, 2, 1));
    EXPECT_EQ(rec.refusals, 4u);
}

TEST(SimEpoFaults, RefusePrefixOnBinaryDataFrames) {
    SimFaults f;
    f.refuse_prefix = std::string("\x04\x24\xB1\x04", 4);
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'E', 0}), 13), kAckBegin);
    EXPECT_EQ(rig.ask(epo_frame(kData, record(1, 101, 1)), 13), kNakData);
    EXPECT_EQ(rig.ask(epo_frame(kEnd, {'E', 0}), 13), kAckEnd);
}

TEST(SimEpoFaults, SilentReceiverStillTakesWhatItIsSent) {
    SimFaults f;
    f.silent = true;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, pair471(0, 1, record(1, 1, 1))));
    ASSERT_TRUE(write_all(rig.port, epo_frame(kData, record(2, 2, 2))));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.epo_records.size(), 2u);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimEpoFaults, StopAfterEndsTheAnswers) {
    SimFaults f;
    f.stop_after = 2;
    Rig rig("rz610mxxxx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,OK*2C\r\n");
    EXPECT_EQ(rig.ask(epo_frame(kBegin, {'G', 0}), 13), kAckBegin);
    ASSERT_TRUE(write_all(rig.port, epo_frame(kData, record(1, 1, 1))));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 2u);
    EXPECT_EQ(rec.frames.size(), 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimEpoFaults, CloseAfterFramesCountsRecordSentences) {
    SimFaults f;
    f.close_after_frames = 2;
    Rig rig("ag33xx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, kTime590, "$PAIR001,590,0*37\r\n");  // not a record: not counted
    EXPECT_ANSWER(rig, pair471(0, 1, record(1, 1, 1)), "$PAIR001,471,0*39\r\n");
    ASSERT_TRUE(write_all(rig.port, pair471(0, 2, record(1, 2, 1))));
    auto end = Clock::now() + std::chrono::seconds(5);
    while (!sim_hung_up(rig.sim) && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(sim_hung_up(rig.sim));
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.epo_records.size(), 2u);
    EXPECT_EQ(rec.sentences.size(), 3u);
}

TEST(SimEpoFaults, DelayAndPaceStillGiveTheExactAck) {
    SimFaults f;
    f.delay_ms = 50;
    f.pace_baud = 9600;
    Rig rig("rz610mxxxx", f);
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(epo_frame(kData, record(1, 1, 1)), 13), kAckData);
    EXPECT_ANSWER(rig, nmea("$PVNKEPOCLR"), "$PVNKEPOCLR,OK*2C\r\n");
}

TEST(SimEpo, PlatformNamesAreFound) {
    for (const char *name : {"ag33xx", "AG33XX", "rz610mxxxx", "RZ610MXXXX"}) {
        SimConfig cfg;
        cfg.platform = name;
        std::string error;
        Sim *sim = sim_start(cfg, &error);
        EXPECT_NE(sim, nullptr) << name << ": " << error;
        sim_free(sim);
    }
    SimConfig cfg;
    cfg.platform = "ag33xx";
    cfg.faults.refuse_only = -2;
    std::string error;
    EXPECT_EQ(sim_start(cfg, &error), nullptr);
}

// --- the models on their own, without a line -------------------------------------------

TEST(SimModelEpo, SentenceCutByAFrameStartIsDamagedAndTheFrameCounts) {
    for (const char *platform : {"ag33xx", "rz610mxxxx"}) {
        Bytes data = epo_frame(kData, record(1, 1, 1));
        Bytes in = bytes_of("$PAIR59");
        in.insert(in.end(), data.begin(), data.end());
        Fed fed = feed_model(platform, in);
        ASSERT_EQ(fed.units.size(), 2u) << platform;
        EXPECT_EQ(fed.units[0].kind, SimUnitKind::Sentence);
        EXPECT_FALSE(fed.units[0].good);
        EXPECT_FALSE(fed.units[0].record);
        EXPECT_EQ(fed.units[0].bytes, bytes_of("$PAIR59"));
        EXPECT_TRUE(fed.units[0].reply.empty());
        EXPECT_TRUE(fed.units[0].refusal.empty());
        EXPECT_EQ(fed.units[1].kind, SimUnitKind::Frame);
        EXPECT_TRUE(fed.units[1].good);
        EXPECT_TRUE(fed.units[1].record);
        EXPECT_EQ(fed.units[1].bytes, data);
        EXPECT_EQ(fed.units[1].reply, text_of(kAckData));
        EXPECT_EQ(fed.units[1].refusal, text_of(kNakData));
    }
}

TEST(SimModelEpo, StrayFrameStartsAreCountedAndParsingGoesOn) {
    Bytes data = epo_frame(kData, record(2, 2, 2));
    // A stray 0x04 right before the real frame's, then a header whose length
    // no frame has, before the same frame again; a sentence after each.
    const std::string status = nmea("$PAIR470,0");
    const Bytes long_header = {0x04, 0x24, 0xB1, 0x04, 0x01, 0x02};
    Bytes in = {0x04};
    in.insert(in.end(), data.begin(), data.end());
    in.insert(in.end(), status.begin(), status.end());
    in.insert(in.end(), long_header.begin(), long_header.end());
    in.insert(in.end(), data.begin(), data.end());
    in.insert(in.end(), status.begin(), status.end());
    Fed fed = feed_model("ag33xx", in);
    ASSERT_EQ(fed.units.size(), 6u);
    EXPECT_EQ(fed.units[0].kind, SimUnitKind::Frame);
    EXPECT_FALSE(fed.units[0].record);
    EXPECT_TRUE(fed.units[0].reply.empty());
    EXPECT_EQ(fed.units[0].bytes, Bytes{0x04});
    EXPECT_TRUE(fed.units[1].good);
    EXPECT_EQ(fed.units[1].bytes, data);
    EXPECT_EQ(fed.units[2].bytes, bytes_of(status));
    EXPECT_EQ(fed.units[2].reply, "$PAIR470,0,0*39\r\n");
    EXPECT_EQ(fed.units[3].kind, SimUnitKind::Frame);
    EXPECT_FALSE(fed.units[3].record);
    EXPECT_TRUE(fed.units[3].reply.empty());
    EXPECT_EQ(fed.units[3].bytes, long_header);
    EXPECT_TRUE(fed.units[4].good);
    EXPECT_EQ(fed.units[4].bytes, data);
    EXPECT_EQ(fed.units[5].bytes, bytes_of(status));
}

TEST(SimModelEpo, RecordSentencesCountAsTransfersGoodOrBad) {
    std::string good = pvnkepo(1, 1, record(1, 1, 1));
    std::string bad = good;
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    Fed fed =
        feed_model("rz610mxxxx", bytes_of(good + bad + nmea("$PVNKEPOCLR") + nmea("$PAIR471")));
    ASSERT_EQ(fed.units.size(), 4u);
    EXPECT_TRUE(fed.units[0].transfer);
    EXPECT_TRUE(fed.units[0].good);
    EXPECT_EQ(fed.units[0].reply, "$PVNKEPO,OK*71\r\n");
    EXPECT_TRUE(fed.units[1].transfer);
    EXPECT_FALSE(fed.units[1].good);
    EXPECT_EQ(fed.units[1].reply, "$PVNKEPO,FAIL*77\r\n");
    EXPECT_FALSE(fed.units[2].transfer);
    EXPECT_FALSE(fed.units[3].transfer);  // another platform's record sentence
    EXPECT_TRUE(fed.units[3].reply.empty());
}
