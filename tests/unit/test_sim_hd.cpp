// The HD8XXX and MJ7XXX receiver models of the virtual receiver, driven
// through the pseudo-terminal with plain POSIX calls (sim_test_util.h): the
// binary frames, the "$PVNK" sentences and the YMODEM download. Every
// expected answer is either written out literally or built here
// independently of the sim.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "sim/model.h"
#include "sim/sim.h"
#include "tests/unit/sim_test_util.h"

using namespace sim_test;

namespace {

const uint8_t SOH = 0x01, STX = 0x02, EOT = 0x04, ACK = 0x06, NAK = 0x15, CAN = 0x18;

// The frames the tool sends, as bytes on the wire. The restart frame comes
// without its last check byte (0x22).
const Bytes kRestartCold = {0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x01, 0x48};
const Bytes kClearEphemeris = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                               0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x21, 0x23};
const Bytes kFactoryReset = {0xF1, 0xD9, 0x06, 0x09, 0x08, 0x00, 0x02, 0x00,
                             0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0x15, 0x01};
const Bytes kStartDownload = {0xF1, 0xD9, 0x02, 0x41, 0x00, 0x00, 0x43, 0xCB};

// The receiver's answers. By hand, for 05 01 02 00 06 09:
//   A: 05 06 08 08 0E 17   B: 05 0B 13 1B 29 40
const Bytes kAckClear = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x06, 0x09, 0x17, 0x40};
const Bytes kNakClear = {0xF1, 0xD9, 0x05, 0x00, 0x02, 0x00, 0x06, 0x09, 0x16, 0x3B};
const Bytes kAckStartDownload = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x02, 0x41, 0x4B, 0x70};
const Bytes kNakStartDownload = {0xF1, 0xD9, 0x05, 0x00, 0x02, 0x00, 0x02, 0x41, 0x4A, 0x6B};
const Bytes kAckAidPos = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x0B, 0x10, 0x23, 0x51};
const Bytes kAckAidTime = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x0B, 0x11, 0x24, 0x52};
const Bytes kAckGps = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x0B, 0x32, 0x45, 0x73};
const Bytes kAckBds = {0xF1, 0xD9, 0x05, 0x01, 0x02, 0x00, 0x0B, 0x33, 0x46, 0x74};
const Bytes kNakGps = {0xF1, 0xD9, 0x05, 0x00, 0x02, 0x00, 0x0B, 0x32, 0x44, 0x6E};

const std::string kRmcNoFix = "$GNRMC,000001.00,V,,,,,,,,,,N*62\r\n";
const std::string kRmcFix = "$GNRMC,000001.00,A,,,,,,,,,,N*75\r\n";

// 8-bit Fletcher sums over the bytes: {A, B}.
Bytes fletcher(const Bytes &b, size_t from, size_t to) {
    uint8_t a = 0, s = 0;
    for (size_t i = from; i < to; ++i) {
        a = uint8_t(a + b[i]);
        s = uint8_t(s + a);
    }
    return {a, s};
}

Bytes hd_frame(uint8_t cls, uint8_t id, const Bytes &payload) {
    Bytes f = {0xF1, 0xD9, cls, id, uint8_t(payload.size() & 0xFF), uint8_t(payload.size() >> 8)};
    f.insert(f.end(), payload.begin(), payload.end());
    Bytes ck = fletcher(f, 2, f.size());
    f.insert(f.end(), ck.begin(), ck.end());
    return f;
}

Bytes hd_ack(uint8_t cls, uint8_t id, bool ok = true) {
    return hd_frame(0x05, ok ? 0x01 : 0x00, {cls, id});
}

// CRC-16/XMODEM, bit by bit.
uint16_t crc16(const uint8_t *p, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(p[i]) << 8;
        for (int k = 0; k < 8; ++k) crc = (crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1;
        crc &= 0xFFFF;
    }
    return uint16_t(crc);
}

// A YMODEM packet: SOH with 128 data bytes or STX with 1024, the data area
// padded with `pad`.
Bytes packet(uint8_t type, uint8_t number, const Bytes &data, uint8_t pad = 0x1A) {
    const size_t size = type == SOH ? 128 : 1024;
    Bytes area = data;
    area.resize(size, pad);
    Bytes p = {type, number, uint8_t(~number)};
    p.insert(p.end(), area.begin(), area.end());
    uint16_t crc = crc16(area.data(), area.size());
    p.push_back(uint8_t(crc >> 8));
    p.push_back(uint8_t(crc & 0xFF));
    return p;
}

Bytes header_packet(const std::string &name, size_t size) {
    std::string area = name + '\0' + std::to_string(size) + '\0';
    return packet(SOH, 0, bytes_of(area), 0x00);
}

const Bytes kEndPacket = packet(SOH, 0, Bytes(), 0x00);

// n deterministic bytes of a file.
Bytes file_of(size_t n, uint8_t seed) {
    Bytes f(n);
    for (size_t i = 0; i < n; ++i) f[i] = uint8_t(seed + i * 13 + (i >> 8));
    return f;
}

// The data packets of a file: STX packets numbered from 1, wrapping at 256.
std::vector<Bytes> data_packets(const Bytes &file) {
    std::vector<Bytes> out;
    uint8_t number = 1;
    for (size_t at = 0; at < file.size(); at += 1024, ++number) {
        size_t end = at + 1024 < file.size() ? at + 1024 : file.size();
        out.push_back(
            packet(STX, number, Bytes(file.begin() + long(at), file.begin() + long(end))));
    }
    return out;
}

Bytes one(uint8_t b) { return Bytes{b}; }
Bytes ack_call() { return Bytes{ACK, 'C'}; }

// A 65- or 92-byte ephemeris record.
Bytes record(size_t size, uint8_t seed) {
    Bytes r(size);
    for (size_t i = 0; i < size; ++i) r[i] = uint8_t(seed * 7 + i);
    return r;
}

Bytes join(const std::vector<Bytes> &parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Starts a download: the start frame's acknowledgement, then the receiver's
// first call for the header.
void begin_download(Rig &rig) {
    EXPECT_EQ(rig.ask(kStartDownload, 10), kAckStartDownload);
    EXPECT_EQ(bytes_of(read_n(rig.port, 1, 3000)), one('C'));
}

// Sends a whole file the healthy way and checks every answer.
void send_file(Rig &rig, const std::string &name, const Bytes &file) {
    EXPECT_EQ(rig.ask(header_packet(name, file.size()), 2), ack_call());
    for (const Bytes &p : data_packets(file)) EXPECT_EQ(rig.ask(p, 1), one(ACK));
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
}

}  // namespace

// --- the test's own helpers ------------------------------------------------------

TEST(SimHdHelpers, LiteralFramesCarryTheirFletcherSums) {
    EXPECT_EQ(hd_frame(0x06, 0x09, {0x02, 0, 0, 0, 0x00, 0x08, 0, 0}), kClearEphemeris);
    EXPECT_EQ(hd_frame(0x06, 0x09, {0x02, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}), kFactoryReset);
    EXPECT_EQ(hd_frame(0x02, 0x41, {}), kStartDownload);
    Bytes restart = hd_frame(0x06, 0x40, {0x01});
    EXPECT_EQ(restart.back(), 0x22);
    restart.pop_back();
    EXPECT_EQ(restart, kRestartCold);
    EXPECT_EQ(hd_ack(0x06, 0x09), kAckClear);
    EXPECT_EQ(hd_ack(0x06, 0x09, false), kNakClear);
    EXPECT_EQ(hd_ack(0x02, 0x41), kAckStartDownload);
    EXPECT_EQ(hd_ack(0x02, 0x41, false), kNakStartDownload);
    EXPECT_EQ(hd_ack(0x0B, 0x10), kAckAidPos);
    EXPECT_EQ(hd_ack(0x0B, 0x11), kAckAidTime);
    EXPECT_EQ(hd_ack(0x0B, 0x32), kAckGps);
    EXPECT_EQ(hd_ack(0x0B, 0x33), kAckBds);
    EXPECT_EQ(hd_ack(0x0B, 0x32, false), kNakGps);
}

TEST(SimHdHelpers, SentencesAndCrcOfTheCheckString) {
    EXPECT_EQ(nmea("$PVNKCOLD"), "$PVNKCOLD*07\r\n");
    EXPECT_EQ(nmea("$PVNKWARM"), "$PVNKWARM*0A\r\n");
    EXPECT_EQ(nmea("$PVNKHOT"), "$PVNKHOT*50\r\n");
    EXPECT_EQ(nmea("$GNRMC,000001.00,V,,,,,,,,,,N"), kRmcNoFix);
    const std::string check = "123456789";
    EXPECT_EQ(crc16(reinterpret_cast<const uint8_t *>(check.data()), check.size()), 0x31C3);
    Bytes h = header_packet("a.bin", 10);
    ASSERT_EQ(h.size(), 133u);
    EXPECT_EQ(h[1], 0x00);
    EXPECT_EQ(h[2], 0xFF);
    EXPECT_EQ(packet(STX, 255, {1}).size(), 1029u);
}

// --- binary frames ---------------------------------------------------------------

TEST(SimHd8xxx, CommandFramesAreAcknowledgedExactly) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    Bytes pos = hd_frame(0x0B, 0x10, record(17, 1));
    Bytes time = hd_frame(0x0B, 0x11, record(20, 2));
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    EXPECT_EQ(rig.ask(kFactoryReset, 10), kAckClear);
    EXPECT_EQ(rig.ask(pos, 10), kAckAidPos);
    EXPECT_EQ(rig.ask(time, 10), kAckAidTime);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[0], kClearEphemeris);
    EXPECT_EQ(rec.frames[1], kFactoryReset);
    EXPECT_EQ(rec.frames[2], pos);
    EXPECT_EQ(rec.frames[3], time);
    EXPECT_EQ(rec.replies, 4u);
    EXPECT_EQ(rec.refusals, 0u);
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHd8xxx, RestartFrameWithoutItsLastByteIsRecordedAndNeverAnswered) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, kRestartCold));
    // The next answer is the first byte back: the restart got none.
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    // Should the missing byte come after all, it is passed over.
    Bytes warm_whole = hd_frame(0x06, 0x40, {0x02});
    ASSERT_TRUE(write_all(rig.port, warm_whole));
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[0], kRestartCold);
    EXPECT_EQ(rec.frames[2], Bytes(warm_whole.begin(), warm_whole.end() - 1));
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_EQ(rec.replies, 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHd8xxx, EphemerisBlocksAreAcknowledgedAndEveryRecordKept) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    Bytes g1 = record(65, 1), g2 = record(65, 2), g3 = record(65, 3), g4 = record(65, 4);
    Bytes b1 = record(92, 5), b2 = record(92, 6);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x32, join({g1, g2, g3})), 10), kAckGps);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x33, join({b1, b2})), 10), kAckBds);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x32, g4), 10), kAckGps);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.hd_gps_records, (std::vector<Bytes>{g1, g2, g3, g4}));
    EXPECT_EQ(rec.hd_bds_records, (std::vector<Bytes>{b1, b2}));
    EXPECT_EQ(rec.frames.size(), 3u);
}

TEST(SimHd8xxx, BadChecksumIsCountedAndNotAnswered) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    Bytes bad_b = kClearEphemeris;
    bad_b.back() ^= 0x01;
    Bytes bad_a = hd_frame(0x0B, 0x32, record(65, 1));
    bad_a[bad_a.size() - 2] ^= 0x80;
    Bytes bad_restart = kRestartCold;
    bad_restart.back() ^= 0x01;
    ASSERT_TRUE(write_all(rig.port, join({bad_b, bad_a, bad_restart})));
    // A stray 0xF1 is no frame either; the frame right after it is taken.
    EXPECT_EQ(rig.ask(join({Bytes{0xF1, 'x'}, kFactoryReset}), 10), kAckClear);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_frames, 4u);
    ASSERT_EQ(rec.frames.size(), 1u);
    EXPECT_EQ(rec.frames[0], kFactoryReset);
    EXPECT_TRUE(rec.hd_gps_records.empty());
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHd8xxx, ListedFramesOfAnotherSizeAreRefusedOtherFramesAcknowledged) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x32, record(64, 1)), 10), kNakGps);
    EXPECT_EQ(rig.ask(hd_frame(0x06, 0x09, {0x02, 0, 0, 0}), 10), kNakClear);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x10, record(16, 1)), 10), hd_ack(0x0B, 0x10, false));
    EXPECT_EQ(rig.ask(hd_frame(0x02, 0x41, {0}), 10), kNakStartDownload);
    EXPECT_EQ(rig.ask(hd_frame(0x0A, 0x04, {1, 2, 3}), 10), hd_ack(0x0A, 0x04));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.frames.size(), 5u);
    EXPECT_EQ(rec.refusals, 4u);
    EXPECT_TRUE(rec.hd_gps_records.empty());
    EXPECT_EQ(rec.ymodem_c_sent, 0u);  // the refused start began no download
    EXPECT_FALSE(input_pending(rig.port));
}

// --- sentences -------------------------------------------------------------------

TEST(SimHd8xxx, AidingSentencesAreAnsweredRestartsAreNot) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, nmea("$PVNKAIDPOS,31.500000,121.400000,10.0"), "$PVNKAIDPOS,OK*2B\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDTIME,2026,1,8,9,59,17"), "$PVNKAIDTIME,OK*72\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,1,2,3"), "$PVNKAIDINI,OK*29\r\n");
    // Restarts and other sentences get nothing: the next answer is the first byte back.
    ASSERT_TRUE(write_all(rig.port, "$PVNKCOLD*07\r\n$PVNKWARM*0A\r\n$PVNKHOT*50\r\n"));
    ASSERT_TRUE(write_all(rig.port, nmea("$GPGGA,1,2,3") + nmea("$PVNKEPOCLR")));
    EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,1"), "$PVNKAIDINI,OK*29\r\n");
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 9u);
    EXPECT_EQ(rec.sentences[3], "$PVNKCOLD*07\r\n");
    EXPECT_EQ(rec.replies, 4u);
    EXPECT_EQ(rec.refusals, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHd8xxx, BadChecksumOfAnAidingSentenceGetsTheError) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    std::string bad = nmea("$PVNKAIDPOS,31.5,121.4,10.0");
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    EXPECT_ANSWER(rig, bad, "$PVNKAIDPOS,ERROR,3*68\r\n");
    std::string bad_time = nmea("$PVNKAIDTIME,2026");
    bad_time[bad_time.size() - 4] ^= 0x01;
    EXPECT_ANSWER(rig, bad_time, "$PVNKAIDTIME,ERROR,3*31\r\n");
    // A damaged restart is not answered either.
    ASSERT_TRUE(write_all(rig.port, std::string("$PVNKHOT*51\r\n")));
    EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,0"), "$PVNKAIDINI,OK*29\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, 3u);
    EXPECT_EQ(rec.refusals, 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimMj7xxx, RestartIsAnsweredWithAPositionSentenceWithoutFix) {
    Rig rig("mj7xxx");
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, "$PVNKCOLD*07\r\n", kRmcNoFix);
    EXPECT_ANSWER(rig, "$PVNKWARM*0A\r\n", kRmcNoFix);
    EXPECT_ANSWER(rig, "$PVNKHOT*50\r\n", kRmcNoFix);
    EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,1,2"), "$PVNKAIDINI,OK*29\r\n");
    // The frames are the HD ones.
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    ASSERT_TRUE(write_all(rig.port, kRestartCold));
    EXPECT_EQ(rig.ask(kFactoryReset, 10), kAckClear);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 6u);
    EXPECT_EQ(rec.frames.size(), 3u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimMj7xxx, RmcStatusFaultClaimsAFix) {
    SimFaults f;
    f.rmc_status = 'A';
    Rig rig("mj7xxx", f);
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, "$PVNKCOLD*07\r\n", kRmcFix);
    EXPECT_ANSWER(rig, "$PVNKHOT*50\r\n", kRmcFix);
    // The aiding answers are untouched.
    EXPECT_ANSWER(rig, nmea("$PVNKAIDPOS,1"), "$PVNKAIDPOS,OK*2B\r\n");
    EXPECT_FALSE(input_pending(rig.port));
}

// --- the download ----------------------------------------------------------------

TEST(SimHdYmodem, WholeSessionByteByByte) {
    for (const char *platform : {"hd8xxx", "mj7xxx"}) {
        SCOPED_TRACE(platform);
        Rig rig(platform);
        REQUIRE_RIG(rig);
        const Bytes file = file_of(1500, 7);
        const std::vector<Bytes> data = data_packets(file);
        ASSERT_EQ(data.size(), 2u);
        EXPECT_EQ(data[1][1], 2);
        EXPECT_EQ(data[1][3 + 1500 - 1024], 0x1A);  // the padding of the last packet

        EXPECT_EQ(rig.ask(kStartDownload, 10), kAckStartDownload);
        EXPECT_EQ(bytes_of(read_n(rig.port, 1, 3000)), one('C'));
        EXPECT_EQ(rig.ask(header_packet("firmware.bin", 1500), 2), ack_call());
        EXPECT_EQ(rig.ask(data[0], 1), one(ACK));
        EXPECT_EQ(rig.ask(data[1], 1), one(ACK));
        EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
        EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
        // Back to frames and sentences.
        EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
        EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,1"), "$PVNKAIDINI,OK*29\r\n");

        SimRecord rec = rig.settle();
        ASSERT_EQ(rec.flash.size(), 1u);
        EXPECT_EQ(rec.flash[0].name, "firmware.bin");
        EXPECT_EQ(rec.flash[0].declared_size, 1500u);
        EXPECT_EQ(rec.flash[0].data, file);
        EXPECT_EQ(rec.ymodem_packets, 4u);
        EXPECT_EQ(rec.ymodem_naks, 0u);
        EXPECT_EQ(rec.ymodem_c_sent, 3u);  // the call, after the header, after the EOT
        EXPECT_EQ(rec.ymodem_noise, 0u);
        // The packets are neither frames nor bad frames.
        ASSERT_EQ(rec.frames.size(), 2u);
        EXPECT_EQ(rec.frames[0], kStartDownload);
        EXPECT_EQ(rec.frames[1], kClearEphemeris);
        EXPECT_EQ(rec.bad_frames, 0u);
        EXPECT_EQ(rec.sentences.size(), 1u);
        EXPECT_FALSE(input_pending(rig.port));
    }
}

TEST(SimHdYmodem, CallsForTheHeaderEverySecondUntilAPacketBegins) {
    // Two receivers side by side, to watch both within one second's wait:
    // one is sent its header after the first call, the other is left calling.
    Rig sent("hd8xxx"), waiting("hd8xxx");
    REQUIRE_RIG(sent);
    REQUIRE_RIG(waiting);
    EXPECT_EQ(sent.ask(kStartDownload, 10), kAckStartDownload);
    EXPECT_EQ(waiting.ask(kStartDownload, 10), kAckStartDownload);
    EXPECT_EQ(read_n(sent.port, 1, 3000), "C");
    EXPECT_EQ(sent.ask(header_packet("a.bin", 3), 2), ack_call());
    EXPECT_EQ(read_n(waiting.port, 2, 4000), "CC");
    // By now the first receiver's next call would have come; it made none.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(input_pending(sent.port));
    EXPECT_EQ(sent.settle().ymodem_c_sent, 2u);  // the call and the 'C' after the header
    EXPECT_GE(waiting.settle().ymodem_c_sent, 2u);
}

TEST(SimHdYmodem, EachStartFrameBeginsANewDownload) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    const Bytes a = file_of(10, 1), b = file_of(2048, 2);
    begin_download(rig);
    send_file(rig, "a.bin", a);
    begin_download(rig);
    send_file(rig, "b.bin", b);
    // A null header in place of a file's ends the session without one.
    begin_download(rig);
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 2u);
    EXPECT_EQ(rec.flash[0].name, "a.bin");
    EXPECT_EQ(rec.flash[0].data, a);
    EXPECT_EQ(rec.flash[1].name, "b.bin");
    EXPECT_EQ(rec.flash[1].declared_size, 2048u);
    EXPECT_EQ(rec.flash[1].data, b);
    EXPECT_EQ(rec.ymodem_packets, 3u + 4u + 1u);  // header, data, end; then the null header
    EXPECT_EQ(rec.ymodem_c_sent, 3u + 3u + 1u);
}

TEST(SimHdYmodem, PacketNumbersWrapAt256) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    const Bytes file = file_of(256 * 1024 + 1, 3);
    const std::vector<Bytes> data = data_packets(file);
    ASSERT_EQ(data.size(), 257u);
    EXPECT_EQ(data[254][1], 255);
    EXPECT_EQ(data[255][1], 0);
    EXPECT_EQ(data[256][1], 1);
    begin_download(rig);
    send_file(rig, "big.bin", file);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].declared_size, 256u * 1024 + 1);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_packets, 259u);
    EXPECT_EQ(rec.ymodem_naks, 0u);
}

TEST(SimHdYmodem, RepeatIsAcknowledgedAgainButTakenOnce) {
    Rig rig("mj7xxx");
    REQUIRE_RIG(rig);
    const Bytes file = file_of(2000, 4);
    const std::vector<Bytes> data = data_packets(file);
    begin_download(rig);
    const Bytes header = header_packet("r.bin", file.size());
    EXPECT_EQ(rig.ask(header, 2), ack_call());
    EXPECT_EQ(rig.ask(header, 2), ack_call());  // the host missed the answer
    EXPECT_EQ(rig.ask(data[0], 1), one(ACK));
    EXPECT_EQ(rig.ask(data[0], 1), one(ACK));
    EXPECT_EQ(rig.ask(data[1], 1), one(ACK));
    EXPECT_EQ(rig.ask(data[1], 1), one(ACK));
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_packets, 4u);
    EXPECT_EQ(rec.ymodem_c_sent, 5u);
    EXPECT_EQ(rec.ymodem_naks, 0u);
}

TEST(SimHdYmodem, DamagedAndOutOfSequencePacketsAreNakedStrayBytesIgnored) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    const Bytes file = file_of(1024, 5);
    const Bytes good = data_packets(file)[0];
    EXPECT_EQ(rig.ask(kStartDownload, 10), kAckStartDownload);
    EXPECT_EQ(bytes_of(read_n(rig.port, 1, 3000)), one('C'));
    EXPECT_EQ(rig.ask(one(EOT), 1), one(NAK));  // nothing to end yet
    Bytes no_size = packet(SOH, 0, bytes_of(std::string("x.bin\0\0", 7)), 0x00);
    EXPECT_EQ(rig.ask(no_size, 1), one(NAK));
    EXPECT_EQ(rig.ask(header_packet("x.bin", 1024), 2), ack_call());
    Bytes bad_crc = good;
    bad_crc.back() ^= 0x01;
    EXPECT_EQ(rig.ask(bad_crc, 1), one(NAK));
    Bytes bad_complement = good;
    bad_complement[2] ^= 0x10;
    EXPECT_EQ(rig.ask(bad_complement, 1), one(NAK));
    EXPECT_EQ(rig.ask(packet(STX, 2, file), 1), one(NAK));  // 1 is expected
    // Stray bytes between packets are passed over, a lone CAN among them.
    ASSERT_TRUE(write_all(rig.port, Bytes{'z', 0x00, CAN, 'z'}));
    EXPECT_EQ(rig.ask(good, 1), one(ACK));
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_naks, 5u);
    EXPECT_EQ(rec.ymodem_noise, 4u);
    EXPECT_EQ(rec.ymodem_packets, 3u);
    EXPECT_EQ(rec.ymodem_cancels, 0u);
}

TEST(SimHdYmodem, FileShorterThanDeclaredIsKeptAsItCame) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    const Bytes file = file_of(100, 6);
    begin_download(rig);
    EXPECT_EQ(rig.ask(header_packet("short.bin", 5000), 2), ack_call());
    EXPECT_EQ(rig.ask(packet(SOH, 1, file), 1), one(ACK));  // a 128-byte data packet
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].declared_size, 5000u);
    Bytes want = file;
    want.resize(128, 0x1A);
    EXPECT_EQ(rec.flash[0].data, want);
}

TEST(SimHdYmodem, HostCancelsWithTwoCans) {
    Rig rig("hd8xxx");
    REQUIRE_RIG(rig);
    begin_download(rig);
    EXPECT_EQ(rig.ask(header_packet("c.bin", 3000), 2), ack_call());
    EXPECT_EQ(rig.ask(data_packets(file_of(3000, 1))[0], 1), one(ACK));
    ASSERT_TRUE(write_all(rig.port, Bytes{CAN, CAN}));
    // Frames again, and nothing answered the cancel.
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    SimRecord rec = rig.settle();
    EXPECT_TRUE(rec.flash.empty());
    EXPECT_EQ(rec.ymodem_cancels, 1u);
    EXPECT_EQ(rec.ymodem_packets, 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

// --- download faults -------------------------------------------------------------

TEST(SimHdYmodemFaults, NakFirstAttemptOfEveryPacket) {
    SimFaults f;
    f.ymodem_nak_first = true;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    const Bytes file = file_of(1100, 8);
    const std::vector<Bytes> data = data_packets(file);
    const Bytes header = header_packet("n.bin", file.size());
    begin_download(rig);
    EXPECT_EQ(rig.ask(header, 1), one(NAK));
    EXPECT_EQ(rig.ask(header, 2), ack_call());
    EXPECT_EQ(rig.ask(data[0], 1), one(NAK));
    EXPECT_EQ(rig.ask(data[0], 1), one(ACK));
    Bytes bad = data[1];
    bad[10] ^= 0xFF;
    EXPECT_EQ(rig.ask(bad, 1), one(NAK));      // a damaged first attempt...
    EXPECT_EQ(rig.ask(data[1], 1), one(ACK));  // ...is that packet's attempt
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(NAK));
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_naks, 4u);
    EXPECT_EQ(rec.ymodem_packets, 4u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdYmodemFaults, NakBeforeTheAckOfEot) {
    SimFaults f;
    f.ymodem_nak_eot = true;
    Rig rig("mj7xxx", f);
    REQUIRE_RIG(rig);
    const Bytes file = file_of(700, 9);
    begin_download(rig);
    EXPECT_EQ(rig.ask(header_packet("e.bin", file.size()), 2), ack_call());
    EXPECT_EQ(rig.ask(data_packets(file)[0], 1), one(ACK));
    EXPECT_EQ(rig.ask(one(EOT), 1), one(NAK));
    EXPECT_EQ(rig.ask(one(EOT), 2), ack_call());
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_naks, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdYmodemFaults, CanInsteadOfAckCancelsTheDownload) {
    SimFaults f;
    f.ymodem_can = true;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    begin_download(rig);
    EXPECT_EQ(rig.ask(header_packet("k.bin", 10), 1), one(CAN));
    // The receiver has left the download: frames are answered again.
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kAckClear);
    SimRecord rec = rig.settle();
    EXPECT_TRUE(rec.flash.empty());
    EXPECT_EQ(rec.ymodem_packets, 0u);
    EXPECT_EQ(rec.ymodem_c_sent, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdYmodemFaults, NeverSendsC) {
    SimFaults f;
    f.ymodem_no_c = true;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    const Bytes file = file_of(30, 10);
    EXPECT_EQ(rig.ask(kStartDownload, 10), kAckStartDownload);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // past the first call
    EXPECT_FALSE(input_pending(rig.port));
    EXPECT_EQ(rig.ask(header_packet("q.bin", file.size()), 1), one(ACK));
    EXPECT_EQ(rig.ask(data_packets(file)[0], 1), one(ACK));
    EXPECT_EQ(rig.ask(one(EOT), 1), one(ACK));
    EXPECT_EQ(rig.ask(kEndPacket, 1), one(ACK));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.ymodem_c_sent, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdYmodemFaults, BytesBeforeEachCall) {
    SimFaults f;
    f.ymodem_bytes_before_c = 5;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(kStartDownload, 10), kAckStartDownload);
    EXPECT_EQ(bytes_of(read_n(rig.port, 6, 3000)), (Bytes{'x', 0x00, 'x', 0x00, 'x', 'C'}));
    // The answers of the download are left alone.
    send_file(rig, "p.bin", file_of(5, 1));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.ymodem_c_sent, 3u);
}

// --- the general faults on HD receivers -------------------------------------------

TEST(SimHdFaults, RefuseAnswersNakAndErrorAndKeepsNothing) {
    SimFaults f;
    f.refuse = true;
    Rig rig("mj7xxx", f);
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(kClearEphemeris, 10), kNakClear);
    EXPECT_EQ(rig.ask(hd_frame(0x0B, 0x32, record(65, 1)), 10), kNakGps);
    EXPECT_ANSWER(rig, nmea("$PVNKAIDPOS,1"), "$PVNKAIDPOS,ERROR,3*68\r\n");
    EXPECT_ANSWER(rig, nmea("$PVNKAIDINI,1"), "$PVNKAIDINI,ERROR,3*6A\r\n");
    // A refused start begins no download: no call, and frames go on.
    EXPECT_EQ(rig.ask(kStartDownload, 10), kNakStartDownload);
    // A refused restart is no restart: no position output.
    ASSERT_TRUE(write_all(rig.port, std::string("$PVNKCOLD*07\r\n")));
    ASSERT_TRUE(write_all(rig.port, kRestartCold));
    EXPECT_EQ(rig.ask(kFactoryReset, 10), kNakClear);
    SimRecord rec = rig.settle();
    EXPECT_TRUE(rec.hd_gps_records.empty());
    EXPECT_EQ(rec.refusals, 6u);
    EXPECT_EQ(rec.ymodem_c_sent, 0u);
    EXPECT_EQ(rec.frames.size(), 5u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdFaults, GarbageBeforeAnAckFrameIsReceiverText) {
    SimFaults f;
    f.garbage_bytes = 30;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    Bytes got = rig.ask(kClearEphemeris, 40);
    ASSERT_EQ(got.size(), 40u);
    EXPECT_EQ(text_of(Bytes(got.begin(), got.begin() + 30)),
              (std::string("\x04") + "$GNTXT,01,01,02,noise*2D\r\n\x04$G"));
    EXPECT_EQ(Bytes(got.begin() + 30, got.end()), kAckClear);
    std::string text = rig.ask(nmea("$PVNKAIDPOS,1"), 30 + 19);
    EXPECT_EQ(text.substr(0, 6), "#noise");
    EXPECT_EQ(text.substr(30), "$PVNKAIDPOS,OK*2B\r\n");
}

TEST(SimHdFaults, SplitAnswerOfAHeaderArrivesInTwoPieces) {
    SimFaults f;
    f.split_parts = 2;
    f.split_gap_ms = 50;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    begin_download(rig);
    ASSERT_TRUE(write_all(rig.port, header_packet("s.bin", 1)));
    std::vector<std::string> chunks;
    EXPECT_EQ(bytes_of(read_n(rig.port, 2, 3000, &chunks)), ack_call());
    ASSERT_EQ(chunks.size(), 2u);
    EXPECT_EQ(bytes_of(chunks[0]), one(ACK));
}

TEST(SimHdFaults, SilentReceiverTakesTheFileWithoutAWord) {
    SimFaults f;
    f.silent = true;
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    const Bytes file = file_of(1500, 11);
    ASSERT_TRUE(write_all(rig.port, kStartDownload));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // past the first call
    EXPECT_FALSE(input_pending(rig.port));
    std::vector<Bytes> all = {header_packet("m.bin", file.size())};
    for (const Bytes &p : data_packets(file)) all.push_back(p);
    all.push_back(one(EOT));
    all.push_back(kEndPacket);
    size_t total = kStartDownload.size();
    for (const Bytes &p : all) {
        ASSERT_TRUE(write_all(rig.port, p));
        total += p.size();
    }
    // Nothing comes back to wait for: wait until the receiver has read it all.
    auto end = Clock::now() + std::chrono::seconds(5);
    while (sim_bytes_received(rig.sim) < total && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].data, file);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimHdFaults, CloseAfterFramesCountsDownloadPackets) {
    SimFaults f;
    f.close_after_frames = 3;  // the start frame, the header, the first data packet
    Rig rig("hd8xxx", f);
    REQUIRE_RIG(rig);
    begin_download(rig);
    EXPECT_EQ(rig.ask(header_packet("h.bin", 4000), 2), ack_call());
    ASSERT_TRUE(write_all(rig.port, data_packets(file_of(4000, 1))[0]));
    auto end = Clock::now() + std::chrono::seconds(5);
    while (!sim_hung_up(rig.sim) && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(sim_hung_up(rig.sim));
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.ymodem_packets, 2u);
    EXPECT_TRUE(rec.flash.empty());
}

TEST(SimHd, PlatformNamesAreFoundAndRmcStatusIsChecked) {
    EXPECT_EQ(sim_find_model("hd8xxx"), &sim_model_hd8xxx);
    EXPECT_EQ(sim_find_model("HD8XXX"), &sim_model_hd8xxx);
    EXPECT_EQ(sim_find_model("mj7xxx"), &sim_model_mj7xxx);
    EXPECT_EQ(sim_find_model("MJ7XXX"), &sim_model_mj7xxx);
    SimConfig cfg;
    cfg.platform = "MJ7XXX";
    std::string error;
    Sim *sim = sim_start(cfg, &error);
    EXPECT_NE(sim, nullptr) << error;
    sim_free(sim);
    cfg.faults.rmc_status = 'v';
    EXPECT_EQ(sim_start(cfg, &error), nullptr);
    EXPECT_NE(error.find("rmc_status"), std::string::npos) << error;
}

// --- the models on their own, without a line --------------------------------------

TEST(SimModelHd, RestartFrameIsCompleteAfterItsFirstCheckByte) {
    Bytes in = kRestartCold;
    in.push_back(0x22);  // the byte the host leaves out, should it come
    const std::string hot = "$PVNKHOT*50\r\n";
    in.insert(in.end(), hot.begin(), hot.end());
    for (const char *platform : {"hd8xxx", "mj7xxx"}) {
        Fed fed = feed_model(platform, in);
        ASSERT_EQ(fed.units.size(), 2u) << platform;
        EXPECT_EQ(fed.units[0].kind, SimUnitKind::Frame);
        EXPECT_TRUE(fed.units[0].good);
        EXPECT_TRUE(fed.units[0].record);
        EXPECT_EQ(fed.units[0].bytes, kRestartCold);
        EXPECT_TRUE(fed.units[0].reply.empty());
        EXPECT_TRUE(fed.units[0].refusal.empty());
        EXPECT_NE(fed.units[0].describe.find("last check byte missing"), std::string::npos);
        EXPECT_EQ(fed.units[1].kind, SimUnitKind::Sentence);
        EXPECT_EQ(fed.units[1].bytes, bytes_of(hot));
    }
    EXPECT_TRUE(feed_model("hd8xxx", in).units[1].reply.empty());
    EXPECT_EQ(feed_model("mj7xxx", in).units[1].reply, kRmcNoFix);
}

TEST(SimModelHd, StrayStartsAreDamagedPiecesAndParsingGoesOn) {
    // A stray 0xF1 right before a real frame, a header whose length no frame
    // has, and a sentence cut by a frame start.
    const Bytes long_header = {0xF1, 0xD9, 0x0B, 0x32, 0x01, 0x10};
    Bytes in = {0xF1};
    in.insert(in.end(), kClearEphemeris.begin(), kClearEphemeris.end());
    in.insert(in.end(), long_header.begin(), long_header.end());
    const std::string cut = "$PVNKAID";
    in.insert(in.end(), cut.begin(), cut.end());
    in.insert(in.end(), kFactoryReset.begin(), kFactoryReset.end());
    Fed fed = feed_model("hd8xxx", in);
    ASSERT_EQ(fed.units.size(), 5u);
    EXPECT_EQ(fed.units[0].bytes, Bytes{0xF1});
    EXPECT_FALSE(fed.units[0].record);
    EXPECT_TRUE(fed.units[0].reply.empty());
    EXPECT_EQ(fed.units[1].bytes, kClearEphemeris);
    EXPECT_EQ(fed.units[1].reply, text_of(kAckClear));
    EXPECT_EQ(fed.units[1].refusal, text_of(kNakClear));
    EXPECT_EQ(fed.units[2].bytes, long_header);
    EXPECT_FALSE(fed.units[2].record);
    EXPECT_EQ(fed.units[3].kind, SimUnitKind::Sentence);
    EXPECT_FALSE(fed.units[3].record);
    EXPECT_EQ(fed.units[4].bytes, kFactoryReset);
    EXPECT_TRUE(fed.units[4].good);
}
