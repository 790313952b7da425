// The STA8100 receiver model of the virtual receiver, driven through the
// pseudo-terminal with plain POSIX calls (sim_test_util.h): the "$PSTM"
// sentences with their replies, the "$PSTMEPHEM" lines, the RTCM message-999
// command frames with their acknowledgements and the RTCM ephemeris frames.
// Every expected answer is either written out literally or built here
// independently of the sim; the 999 frames are packed here bit by bit.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "sim/model.h"
#include "sim/sim.h"
#include "tests/unit/sim_test_util.h"

using namespace sim_test;

namespace {

// CRC-24Q, bit by bit.
uint32_t crc24q(const Bytes &b, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(b[i]) << 16;
        for (int k = 0; k < 8; ++k) {
            crc <<= 1;
            if (crc & 0x1000000) crc ^= 0x1864CFB;
        }
    }
    return crc & 0xFFFFFF;
}

// Packs fields most significant bit first, one bit at a time.
struct BitPacker {
    Bytes bytes;
    size_t used = 0;  // bits written
    void put(uint64_t value, unsigned width) {
        for (unsigned i = width; i-- > 0;) {
            if (used % 8 == 0) bytes.push_back(0);
            if ((value >> i) & 1) bytes.back() |= uint8_t(0x80 >> (used % 8));
            ++used;
        }
    }
};

Bytes rtcm(const Bytes &payload) {
    Bytes f = {0xD3, uint8_t(payload.size() >> 8), uint8_t(payload.size() & 0xFF)};
    f.insert(f.end(), payload.begin(), payload.end());
    uint32_t crc = crc24q(f, f.size());
    f.push_back(uint8_t(crc >> 16));
    f.push_back(uint8_t(crc >> 8));
    f.push_back(uint8_t(crc));
    return f;
}

Bytes aid_time(int day, int month, int year, int hour, int minute, int second) {
    BitPacker p;
    p.put(999, 12);
    p.put(0, 4);
    p.put(0xC0, 8);
    p.put(12, 6);
    p.put(uint64_t(day), 5);
    p.put(uint64_t(month), 4);
    p.put(uint64_t(year), 12);
    p.put(uint64_t(hour), 5);
    p.put(uint64_t(minute), 6);
    p.put(uint64_t(second), 6);
    p.put(0, 4);
    return rtcm(p.bytes);
}

Bytes aid_position(int32_t lat, int32_t lon, int32_t alt) {
    BitPacker p;
    p.put(999, 12);
    p.put(2, 4);
    p.put(0x90, 8);
    p.put(41, 6);
    p.put(uint32_t(lat), 32);
    p.put(uint32_t(lon), 32);
    p.put(uint32_t(alt) & 0xFFFFF, 20);
    p.put(0, 6);
    return rtcm(p.bytes);
}

// The receiver's acknowledgement of a command id, packed field by field.
Bytes ack_of(uint8_t id) {
    BitPacker p;
    p.put(999, 12);
    p.put(1, 4);
    p.put(0x3, 4);
    p.put(0, 2);
    p.put(id, 8);
    p.put(0, 2);
    p.put(0, 16);
    return rtcm(p.bytes);
}

// The frames on the wire, as the host sends and the receiver answers them.
const Bytes kColdStart = {0xD3, 0x00, 0x07, 0x3E, 0x71, 0x00, 0x00,
                          0x00, 0x00, 0xF0, 0x47, 0x9E, 0xEE};
const Bytes kAckTime = {0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0x30, 0x00, 0x00, 0x24, 0x06, 0x88};
const Bytes kAckPosition = {0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0xA4, 0x00, 0x00, 0x28, 0xEC, 0x39};

// The start command as the host writes it: in a 20-byte buffer, zero-filled.
Bytes padded20(const Bytes &cmd) {
    Bytes b = cmd;
    b.resize(20, 0x00);
    return b;
}

// An RTCM frame of another message number, as an ephemeris file holds them.
Bytes ephemeris_frame(unsigned message, size_t len, uint8_t seed) {
    BitPacker p;
    p.put(message, 12);
    for (size_t i = 0; p.bytes.size() < len; ++i) p.put(uint8_t(seed + i * 29), 8);
    p.bytes.resize(len);
    return rtcm(p.bytes);
}

// How the host judges a text reply: the first line that holds the command's
// name decides; "OK" takes it (0), "ERROR" rejects it (0x107), anything else
// is neither (-1); no name at all is 0x200.
long judge(const std::string &buffer, const std::string &name) {
    size_t at = buffer.find(name);
    if (at == std::string::npos) return 0x200;
    std::string line = buffer.substr(at, buffer.find_first_of("\r\n", at) - at);
    if (line.find("OK") != std::string::npos) return 0;
    if (line.find("ERROR") != std::string::npos) return 0x107;
    return -1;
}

// Waits until the receiver has read n bytes in all (what the tool writes is
// not at once readable on the receiver's side), then until the line is quiet.
SimRecord settle_after(Rig &rig, uint64_t n) {
    auto end = Clock::now() + std::chrono::seconds(5);
    while (sim_bytes_received(rig.sim) < n && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return rig.settle();
}

const std::string kColdText = "$PSTMCOLD,15*36\r\n";
const std::string kInitTime = nmea("$PSTMINITTIME,8,1,2026,9,59,17");
const std::string kInitGps = nmea("$PSTMINITGPS,3130.000,N,12115.000,E,12.0,08,01,2026,09,59,17");

}  // namespace

// --- the test's own helpers ------------------------------------------------------

TEST(SimSta8100Helpers, LiteralFramesCarryTheirCrcAndFields) {
    const std::string check = "123456789";
    EXPECT_EQ(crc24q(bytes_of(check), check.size()), 0xCDE703u);  // the catalogued check value
    EXPECT_EQ(rtcm({0x3E, 0x71, 0x00, 0x00, 0x00, 0x00, 0xF0}), kColdStart);
    EXPECT_EQ(ack_of(12), kAckTime);
    EXPECT_EQ(ack_of(41), kAckPosition);
    EXPECT_EQ(aid_time(1, 1, 2000, 0, 0, 0).size(), 15u);
    EXPECT_EQ(aid_position(0, 0, 0).size(), 21u);
    // 999 and subtype 0, then C0 and id 12 (001100) from bit 24.
    Bytes t = aid_time(31, 12, 4095, 23, 59, 59);
    EXPECT_EQ(t[3], 0x3E);
    EXPECT_EQ(t[4], 0x70);
    EXPECT_EQ(t[5], 0xC0);
    EXPECT_EQ(t[6] >> 2, 12);
    EXPECT_EQ(nmea("$PSTMCOLD,15"), kColdText);
    EXPECT_EQ(nmea("$PSTMINITTIMEOK"), "$PSTMINITTIMEOK*11\r\n");
}

TEST(SimSta8100Helpers, JudgeReadsTheLineWithTheName) {
    EXPECT_EQ(judge("$PSTMINITTIMEOK*11\r\n", "$PSTMINITTIME"), 0);
    EXPECT_EQ(judge("$PSTMINITTIMEERROR*4D\r\n", "$PSTMINITTIME"), 0x107);
    EXPECT_EQ(judge("$PSTMINITTIMEBUSY*08\r\n", "$PSTMINITTIME"), -1);
    EXPECT_EQ(judge("$PSTMCOLDOK*1A\r\n", "$PSTMINITTIME"), 0x200);
}

// --- text dialect ----------------------------------------------------------------

TEST(SimSta8100, TextCommandsAreAnsweredWithTheirNameAndOk) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    // The start command as the host writes it, three zero bytes behind.
    Bytes cold = padded20(bytes_of(kColdText));
    EXPECT_EQ(text_of(rig.ask(cold, 16)), "$PSTMCOLDOK*1A\r\n");
    std::string time_reply = rig.ask(kInitTime, 20);
    EXPECT_EQ(time_reply, "$PSTMINITTIMEOK*11\r\n");
    EXPECT_EQ(judge(time_reply, "$PSTMINITTIME"), 0);
    std::string pos_reply = rig.ask(kInitGps, 19);
    EXPECT_EQ(pos_reply, "$PSTMINITGPSOK*40\r\n");
    EXPECT_EQ(judge(pos_reply, "$PSTMINITGPS"), 0);
    // Any other command of the family is answered the same way.
    EXPECT_ANSWER(rig, nmea("$PSTMSAVEPAR"), nmea("$PSTMSAVEPAROK"));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 4u);
    EXPECT_EQ(rec.sentences[0], kColdText);
    EXPECT_EQ(rec.sentences[1], kInitTime);
    EXPECT_EQ(rec.sentences[2], kInitGps);
    EXPECT_EQ(rec.sta_cold_starts, 1u);
    EXPECT_EQ(rec.replies, 4u);
    EXPECT_EQ(rec.refusals, 0u);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.raw.size(), cold.size() + kInitTime.size() + kInitGps.size() + 17);
    // Text commands are not decoded into the RTCM fields.
    EXPECT_TRUE(rec.sta_times.empty());
    EXPECT_TRUE(rec.sta_positions.empty());
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100, BadChecksumGetsTheErrorAndOtherTalkersNothing) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    std::string bad = kInitTime;
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    const std::string error = "$PSTMINITTIMEERROR*4D\r\n";
    std::string reply = rig.ask(bad, error.size());
    EXPECT_EQ(reply, error);
    EXPECT_EQ(judge(reply, "$PSTMINITTIME"), 0x107);
    // A bad cold start is no cold start.
    EXPECT_ANSWER(rig, "$PSTMCOLD,15*37\r\n", "$PSTMCOLDERROR*46\r\n");
    // Not the family: recorded, not answered (the next answer is the first byte back).
    ASSERT_TRUE(write_all(rig.port, nmea("$GPGGA,1,2,3") + nmea("$PSTM")));
    EXPECT_ANSWER(rig, kInitGps, "$PSTMINITGPSOK*40\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 5u);
    EXPECT_EQ(rec.bad_checksums, 2u);
    EXPECT_EQ(rec.refusals, 2u);
    EXPECT_EQ(rec.replies, 3u);
    EXPECT_EQ(rec.sta_cold_starts, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100, EphemerisLinesAreKeptAndNeverAnswered) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    const std::vector<std::string> lines = {nmea("$PSTMEPHEM,1,64,0a0b0c0d0e0f"),
                                            nmea("$PSTMEPHEM,2,64,1a1b1c1d1e1f"),
                                            nmea("$PSTMEPHEM,3,64,2a2b2c2d2e2f")};
    std::string bad = nmea("$PSTMEPHEM,4,64,3a3b");
    bad[bad.size() - 4] ^= 0x01;
    ASSERT_TRUE(write_all(rig.port, lines[0] + lines[1] + bad + lines[2]));
    // The first answer back is the one to the command after the lines.
    EXPECT_ANSWER(rig, kInitTime, "$PSTMINITTIMEOK*11\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sta_ephemeris_lines, lines);
    EXPECT_EQ(text_of(rec.ephemeris_bytes), lines[0] + lines[1] + lines[2]);
    EXPECT_EQ(rec.sentences.size(), 5u);
    EXPECT_EQ(rec.bad_checksums, 1u);
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

// --- RTCM dialect ----------------------------------------------------------------

TEST(SimSta8100, RtcmCommandsAreAcknowledgedAndDecodedFieldByField) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    const Bytes time = aid_time(8, 1, 2026, 9, 59, 17);
    const Bytes pos = aid_position(113400, 436500, 12);
    // The cold start takes no answer: the first bytes back acknowledge the time.
    ASSERT_TRUE(write_all(rig.port, padded20(kColdStart)));
    EXPECT_EQ(rig.ask(time, 12), kAckTime);
    EXPECT_EQ(rig.ask(pos, 12), kAckPosition);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 3u);
    EXPECT_EQ(rec.frames[0], kColdStart);
    EXPECT_EQ(rec.frames[1], time);
    EXPECT_EQ(rec.frames[2], pos);
    EXPECT_EQ(rec.sta_cold_starts, 1u);
    ASSERT_EQ(rec.sta_times.size(), 1u);
    EXPECT_EQ(rec.sta_times[0].day, 8);
    EXPECT_EQ(rec.sta_times[0].month, 1);
    EXPECT_EQ(rec.sta_times[0].year, 2026);
    EXPECT_EQ(rec.sta_times[0].hour, 9);
    EXPECT_EQ(rec.sta_times[0].minute, 59);
    EXPECT_EQ(rec.sta_times[0].second, 17);
    ASSERT_EQ(rec.sta_positions.size(), 1u);
    EXPECT_EQ(rec.sta_positions[0].latitude, 113400);
    EXPECT_EQ(rec.sta_positions[0].longitude, 436500);
    EXPECT_EQ(rec.sta_positions[0].altitude, 12);
    EXPECT_EQ(rec.replies, 2u);
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_TRUE(rec.ephemeris_bytes.empty());
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100, SouthWestAndBelowSeaLevelAndTheWidestFields) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(aid_position(-121906, -541000, -28), 12), kAckPosition);
    EXPECT_EQ(rig.ask(aid_position(INT32_MIN, INT32_MAX, 524287), 12), kAckPosition);
    EXPECT_EQ(rig.ask(aid_time(31, 15, 4095, 31, 63, 63), 12), kAckTime);
    EXPECT_EQ(rig.ask(aid_time(0, 0, 0, 0, 0, 0), 12), kAckTime);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sta_positions.size(), 2u);
    EXPECT_EQ(rec.sta_positions[0], (SimStaPosition{-121906, -541000, -28}));
    EXPECT_EQ(rec.sta_positions[1], (SimStaPosition{INT32_MIN, INT32_MAX, 524287}));
    ASSERT_EQ(rec.sta_times.size(), 2u);
    EXPECT_EQ(rec.sta_times[0], (SimStaTime{31, 15, 4095, 31, 63, 63}));
    EXPECT_EQ(rec.sta_times[1], (SimStaTime{}));
}

TEST(SimSta8100, EphemerisFramesAreKeptInOrderAndNeverAnswered) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    const Bytes gps = ephemeris_frame(1019, 67, 1);
    const Bytes gal = ephemeris_frame(1046, 68, 2);
    const Bytes bds = ephemeris_frame(1042, 70, 3);
    const Bytes gps2 = ephemeris_frame(1019, 67, 4);
    Bytes bad = ephemeris_frame(1019, 67, 5);
    bad.back() ^= 0x01;
    // A 999 frame the receiver does not know (subtype 5) is not answered either.
    BitPacker odd;
    odd.put(999, 12);
    odd.put(5, 4);
    odd.put(0, 16);
    const Bytes unknown = rtcm(odd.bytes);
    Bytes all;
    for (const Bytes &f : {gps, gal, bad, unknown, bds, gps2})
        all.insert(all.end(), f.begin(), f.end());
    ASSERT_TRUE(write_all(rig.port, all));
    EXPECT_EQ(rig.ask(aid_time(1, 2, 2025, 3, 4, 5), 12), kAckTime);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sta_ephemeris_frames, (std::vector<Bytes>{gps, gal, bds, gps2}));
    Bytes want;
    for (const Bytes &f : {gps, gal, bds, gps2}) want.insert(want.end(), f.begin(), f.end());
    EXPECT_EQ(rec.ephemeris_bytes, want);
    EXPECT_EQ(rec.bad_frames, 1u);
    EXPECT_EQ(rec.frames.size(), 6u);  // the four, the unknown 999 and the time
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100, MalformedAidFramesAndBadCrcAreNotAcknowledged) {
    Rig rig("sta8100");
    REQUIRE_RIG(rig);
    Bytes bad_crc = aid_time(8, 1, 2026, 9, 59, 17);
    bad_crc[bad_crc.size() - 2] ^= 0x40;
    // The right subtype with the other command's marker and id.
    BitPacker wrong_id;
    wrong_id.put(999, 12);
    wrong_id.put(0, 4);
    wrong_id.put(0x90, 8);
    wrong_id.put(41, 6);
    wrong_id.put(0, 42);
    ASSERT_EQ(wrong_id.bytes.size(), 9u);
    // An aid position one byte short.
    Bytes short_pos = aid_position(1, 2, 3);
    Bytes payload(short_pos.begin() + 3, short_pos.end() - 4);
    ASSERT_TRUE(write_all(rig.port, bad_crc));
    ASSERT_TRUE(write_all(rig.port, rtcm(wrong_id.bytes)));
    ASSERT_TRUE(write_all(rig.port, rtcm(payload)));
    EXPECT_EQ(rig.ask(aid_position(1, 2, 3), 12), kAckPosition);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_frames, 1u);
    EXPECT_TRUE(rec.sta_times.empty());
    ASSERT_EQ(rec.sta_positions.size(), 1u);
    EXPECT_TRUE(rec.sta_ephemeris_frames.empty());
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

// --- faults ----------------------------------------------------------------------

TEST(SimSta8100Faults, RefuseAnswersErrorAndLeavesRtcmCommandsUnacknowledged) {
    SimFaults f;
    f.refuse = true;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    const std::string error = "$PSTMINITTIMEERROR*4D\r\n";
    std::string reply = rig.ask(kInitTime, error.size());
    EXPECT_EQ(reply, error);
    EXPECT_EQ(judge(reply, "$PSTMINITTIME"), 0x107);
    EXPECT_ANSWER(rig, kColdText, "$PSTMCOLDERROR*46\r\n");
    // The refused RTCM commands get nothing: the next answer is the error.
    ASSERT_TRUE(write_all(rig.port, aid_time(8, 1, 2026, 9, 59, 17)));
    ASSERT_TRUE(write_all(rig.port, aid_position(1, 2, 3)));
    EXPECT_ANSWER(rig, kInitGps, "$PSTMINITGPSERROR*1C\r\n");
    SimRecord rec = rig.settle();
    EXPECT_TRUE(rec.sta_times.empty());
    EXPECT_TRUE(rec.sta_positions.empty());
    EXPECT_EQ(rec.sta_cold_starts, 0u);
    EXPECT_EQ(rec.refusals, 3u);
    EXPECT_EQ(rec.replies, 3u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100Faults, RefuseOnlyTheAidPositionFrame) {
    SimFaults f;
    f.refuse_only = 1;  // the time is unit 0, the position unit 1
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(aid_time(8, 1, 2026, 9, 59, 17), 12), kAckTime);
    ASSERT_TRUE(write_all(rig.port, aid_position(1, 2, 3)));
    EXPECT_ANSWER(rig, kInitTime, "$PSTMINITTIMEOK*11\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sta_times.size(), 1u);
    EXPECT_TRUE(rec.sta_positions.empty());
}

TEST(SimSta8100Faults, UnknownReplyHoldsTheNameButNeitherWord) {
    SimFaults f;
    f.unknown_reply = true;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    const std::string busy = "$PSTMINITTIMEBUSY*08\r\n";
    std::string reply = rig.ask(kInitTime, busy.size());
    EXPECT_EQ(reply, busy);
    EXPECT_EQ(judge(reply, "$PSTMINITTIME"), -1);
    EXPECT_ANSWER(rig, kInitGps, nmea("$PSTMINITGPSBUSY"));
    // A damaged command is still rejected, and binary answers are left alone.
    EXPECT_ANSWER(rig, "$PSTMCOLD,15*37\r\n", "$PSTMCOLDERROR*46\r\n");
    EXPECT_EQ(rig.ask(aid_time(8, 1, 2026, 9, 59, 17), 12), kAckTime);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.refusals, 1u);
    EXPECT_EQ(rec.sta_times.size(), 1u);
}

TEST(SimSta8100Faults, RefuseWinsOverUnknownReply) {
    SimFaults f;
    f.unknown_reply = true;
    f.refuse_prefix = "$PSTMINITGPS";
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, kInitGps, "$PSTMINITGPSERROR*1C\r\n");
    EXPECT_ANSWER(rig, kInitTime, "$PSTMINITTIMEBUSY*08\r\n");
}

TEST(SimSta8100Faults, AckBadCrcInvertsTheLastCrcByte) {
    SimFaults f;
    f.ack_bad_crc = true;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    Bytes time_ack = kAckTime, pos_ack = kAckPosition;
    time_ack.back() = uint8_t(~time_ack.back());
    pos_ack.back() = uint8_t(~pos_ack.back());
    EXPECT_EQ(rig.ask(aid_time(8, 1, 2026, 9, 59, 17), 12), time_ack);
    EXPECT_EQ(rig.ask(aid_position(1, 2, 3), 12), pos_ack);
    // Text replies are left alone.
    EXPECT_ANSWER(rig, kInitTime, "$PSTMINITTIMEOK*11\r\n");
}

TEST(SimSta8100Faults, BinaryNoiseBeforeAnAcknowledgementAndSplitText) {
    SimFaults f;
    f.garbage_bytes = 30;
    f.split_parts = 2;
    f.split_gap_ms = 30;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    Bytes got = rig.ask(aid_time(8, 1, 2026, 9, 59, 17), 42);
    ASSERT_EQ(got.size(), 42u);
    EXPECT_EQ(text_of(Bytes(got.begin(), got.begin() + 30)),
              (std::string("\x04") + "$GNTXT,01,01,02,noise*2D\r\n\x04$G"));
    EXPECT_EQ(Bytes(got.begin() + 30, got.end()), kAckTime);
    std::vector<std::string> chunks;
    ASSERT_TRUE(write_all(rig.port, kInitTime));
    std::string text = read_n(rig.port, 30 + 20, 3000, &chunks);
    EXPECT_EQ(text.substr(0, 6), "#noise");
    EXPECT_EQ(text.substr(30), "$PSTMINITTIMEOK*11\r\n");
    EXPECT_GE(chunks.size(), 2u);
}

TEST(SimSta8100Faults, SilentTakesEverythingWithoutAWord) {
    SimFaults f;
    f.silent = true;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    const Bytes eph = ephemeris_frame(1019, 67, 9);
    ASSERT_TRUE(write_all(rig.port, kInitTime));
    ASSERT_TRUE(write_all(rig.port, aid_time(8, 1, 2026, 9, 59, 17)));
    ASSERT_TRUE(write_all(rig.port, eph));
    SimRecord rec = settle_after(rig, kInitTime.size() + 15 + eph.size());
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_EQ(rec.sta_times.size(), 1u);
    EXPECT_EQ(rec.ephemeris_bytes, eph);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimSta8100Faults, CloseAfterFramesCountsEphemerisLinesAndFrames) {
    SimFaults f;
    f.close_after_frames = 3;
    Rig rig("sta8100", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$PSTMEPHEM,1,2,3") + nmea("$PSTMEPHEM,4,5,6")));
    ASSERT_TRUE(write_all(rig.port, ephemeris_frame(1019, 67, 1)));
    auto end = Clock::now() + std::chrono::seconds(5);
    while (!sim_hung_up(rig.sim) && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(sim_hung_up(rig.sim));
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.sta_ephemeris_lines.size(), 2u);
    EXPECT_EQ(rec.sta_ephemeris_frames.size(), 1u);
}

// --- the model on its own, without a line -----------------------------------------

TEST(SimModelSta8100, StrayStartsAndCutSentencesAreDamagedPieces) {
    // A 0xD3 with reserved bits set in front of a real frame, and a sentence
    // cut short by a frame.
    Bytes in = {0xD3, 0xFF};
    in.insert(in.end(), kColdStart.begin(), kColdStart.end());
    const std::string cut = "$PSTMINIT";
    in.insert(in.end(), cut.begin(), cut.end());
    const Bytes time = aid_time(1, 1, 2020, 0, 0, 0);
    in.insert(in.end(), time.begin(), time.end());
    Fed fed = feed_model("sta8100", in);
    ASSERT_EQ(fed.units.size(), 4u);
    EXPECT_EQ(fed.units[0].bytes, Bytes{0xD3});
    EXPECT_FALSE(fed.units[0].record);
    EXPECT_EQ(fed.units[1].bytes, kColdStart);
    EXPECT_TRUE(fed.units[1].good);
    EXPECT_TRUE(fed.units[1].reply.empty());
    EXPECT_EQ(fed.units[2].kind, SimUnitKind::Sentence);
    EXPECT_FALSE(fed.units[2].record);
    EXPECT_EQ(fed.units[3].bytes, time);
    EXPECT_EQ(fed.units[3].reply, text_of(kAckTime));
    EXPECT_TRUE(fed.units[3].refusal.empty());
}

TEST(SimModelSta8100, PlatformNameIsFoundInAnyCase) {
    EXPECT_EQ(sim_find_model("sta8100"), &sim_model_sta8100);
    EXPECT_EQ(sim_find_model("STA8100"), &sim_model_sta8100);
}
