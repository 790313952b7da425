// STA8100 pure parts: the message-999 frames bit for bit, the acknowledgement
// frames, the text reply check and the two file summaries.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sta8100/sta8100.h"
#include "tests/support/harness.h"
#include "tests/support/stamp_mask.h"
#include "toolkit/checksum.h"
#include "tools/rtcm_gen.h"

namespace {

std::vector<uint8_t> v(const uint8_t *p, size_t n) { return {p, p + n}; }

}  // namespace

TEST(Sta8100Frames, AcknowledgementsOfIds12And41) {
    uint8_t f[12];
    sta8100_ack_frame(12, f);
    EXPECT_EQ(v(f, 12), (std::vector<uint8_t>{0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0x30, 0x00, 0x00,
                                              0x24, 0x06, 0x88}));
    sta8100_ack_frame(41, f);
    EXPECT_EQ(v(f, 12), (std::vector<uint8_t>{0xD3, 0x00, 0x06, 0x3E, 0x71, 0x30, 0xA4, 0x00, 0x00,
                                              0x28, 0xEC, 0x39}));
}

TEST(Sta8100Frames, ColdStartCarriesItsCrc) {
    uint32_t crc = Vk_Check_CRC24Q(0, kSta8100ColdStartRtcm, 10);
    EXPECT_EQ(crc, 0x479EEEu);
}

// The payloads below were packed field by field (most significant bit
// first) and their CRC-24Q taken outside the code under test:
//   time: 999/12, 0/4, 0xC0/8, 12/6, day 8/5, month 1/4, year 2026/12,
//         hour 9/5, minute 59/6, second 17/6, 0/4
//   position: 999/12, 2/4, 0x90/8, 41/6, lat 112365/32, lon -437305/32,
//         alt -12/20, 0/6
TEST(Sta8100Frames, AidTimeFrameBitForBit) {
    uint8_t f[15];
    sta8100_time_frame(2026, 1, 8, 9, 59, 17, f);
    EXPECT_EQ(v(f, 15), (std::vector<uint8_t>{0xD3, 0x00, 0x09, 0x3E, 0x70, 0xC0, 0x31, 0x02, 0xFD,
                                              0x49, 0xED, 0x10, 0x6F, 0x6E, 0x79}));
}

TEST(Sta8100Frames, AidPositionFrameBitForBit) {
    uint8_t f[21];
    sta8100_pos_frame(112365, -437305, -12, f);
    EXPECT_EQ(v(f, 21), (std::vector<uint8_t>{0xD3, 0x00, 0x0F, 0x3E, 0x72, 0x90, 0xA4,
                                              0x00, 0x06, 0xDB, 0xB7, 0xFF, 0xE5, 0x4F,
                                              0x1F, 0xFF, 0xFD, 0x00, 0x5D, 0x61, 0x8C}));
}

TEST(Sta8100Reply, OkErrorAndMissingName) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(STA8100_CheckNmeaCmdRsp("$PSTMINITTIMEOK*11\r\n", 0, "$PSTMINITTIME"), 0u);
    EXPECT_EQ(STA8100_CheckNmeaCmdRsp("$PSTMINITGPSERROR*11\r\n", 0, "$PSTMINITGPS"), 0x107u);
    EXPECT_EQ(STA8100_CheckNmeaCmdRsp("$GPGGA,1*00\r\n", 0, "$PSTMINITGPS"), 0x200u);
    // Only the line holding the name counts, up to its line end.
    EXPECT_EQ(STA8100_CheckNmeaCmdRsp("$PSTMINITTIMEERROR\r\nOK\r\n", 0, "$PSTMINITTIME"), 0x107u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Send $PSTMINITGPS error.\n"
              "[SSS.mmm] [WARNING] No $PSTMINITGPS in recvbuff\n"
              "[SSS.mmm][ERROR] Send $PSTMINITTIME error.\n");
}

namespace {

std::string summary(const std::string &name, const std::vector<uint8_t> &bytes, bool rtcm,
                    uint32_t *result) {
    std::string dir = make_temp_dir();
    std::string path = dir + "/" + name;
    write_file(path, bytes);
    testing::internal::CaptureStdout();
    *result = rtcm ? ST_GetRtcmEphInfo(path.c_str()) : ST_GetNmeaEphInfo(path.c_str());
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    remove_tree(dir);
    return out;
}

std::vector<uint8_t> text(const std::string &s) { return {s.begin(), s.end()}; }

}  // namespace

TEST(Sta8100NmeaSummary, WeekAndToeReadLowByteFirst) {
    // Week 2400 = 0x0960: low byte "60" first, then "09"; toe 345600 / 16 =
    // 21600 = 0x5460: "60" then "54".
    uint32_t r = 1;
    std::string out = summary("eph.txt",
                              text("$PSTMEPHEM,1,64,60096054,00112233*00\r\n"
                                   "$PSTMEPHEM,2,64,60096054,00112233*00\r\n"),
                              false, &r);
    EXPECT_EQ(r, 0u);
    EXPECT_EQ(out,
              "[SSS.mmm][DEBUG] weeknum: 2400, toe: 345600\n"
              "[SSS.mmm][DEBUG] GpsTimeStartSec: 1767830382\n"
              "[SSS.mmm][DEBUG] GpsTimeEndSec: 1767837582\n"
              "[SSS.mmm][INFO] [AGNSS INFO] Type: GPS\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] File Size: 76\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] Segment: 2\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] Valid Days: 0.083\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] GPST: (Week 2400 Tow 345600)~(Week 2400 Tow 352800)\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] UTC: (2026-01-07 23:00:00)~(2026-01-08 01:00:00)\n");
}

TEST(Sta8100NmeaSummary, LettersGiveANonsensicalWeekAndBadLinesAreRefused) {
    uint32_t r = 1;
    // 'A' counts as 17: week = (17 << 4) + 0 + ... as computed.
    std::string out = summary("eph.txt", text("$PSTMEPHEM,1,64,A0000000\r\n"), false, &r);
    EXPECT_EQ(r, 0u);
    EXPECT_NE(out.find("weeknum: 272, toe: 0\n"), std::string::npos);
    out = summary("eph.txt", text("$PSTMEPHEM,1,64,60096054\r\n\r\n"), false, &r);
    EXPECT_EQ(r, 0x107u);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] The ephemeris data is incorrect\n"), std::string::npos);
    out = summary("eph.dat", text("$PSTMEPHEM,1,64,60096054\r\n"), false, &r);
    EXPECT_EQ(r, 0x107u);
    EXPECT_EQ(out, "[SSS.mmm][ERROR] File format error\n");
}

TEST(Sta8100RtcmSummary, GalileoBeforeGpsAndNoGpsAtAll) {
    RtcmGenConfig eg;
    eg.systems = "EG";
    eg.sats = 1;
    uint32_t r = 1;
    std::string out = summary("eph.rtcm", rtcmgen_generate(eg), true, &r);
    EXPECT_EQ(r, 0u);
    // "+GAL" first, then GPS replaces the whole text.
    EXPECT_NE(out.find("Type: GPS\r\n"), std::string::npos) << out;
    RtcmGenConfig e;
    e.systems = "E";
    e.sats = 2;
    out = summary("eph.rtcm", rtcmgen_generate(e), true, &r);
    EXPECT_NE(out.find("Type: +GAL\r\n"), std::string::npos) << out;
    EXPECT_NE(out.find("Valid Days: 0.000\r\n"), std::string::npos);
    EXPECT_NE(out.find("UTC: (1970-01-01 00:00:00)~(1970-01-01 00:00:00)\n"), std::string::npos);
}

TEST(Sta8100RtcmSummary, TruncatedLastFrameEndsTheWalkWithoutError) {
    RtcmGenConfig g;
    g.systems = "G";
    g.sats = 2;
    std::vector<uint8_t> bytes = rtcmgen_generate(g);
    bytes.resize(bytes.size() - 5);
    uint32_t r = 1;
    std::string out = summary("eph.rtcm", bytes, true, &r);
    EXPECT_EQ(r, 0u);
    EXPECT_NE(out.find("Segment: 2\r\n"), std::string::npos);
}

TEST(Sta8100RtcmSummary, RealRecordings) {
    std::string dir = VK_REAL_DATA_DIR "/rtcm/";
    std::vector<uint8_t> igs = read_file(dir + "igs-stream-2016-04-06-eph.rtcm3");
    if (igs.empty()) GTEST_SKIP() << "the real recordings are not here";
    uint32_t r = 1;
    std::string out = summary("igs.rtcm", igs, true, &r);
    EXPECT_EQ(r, 0u);
    EXPECT_NE(out.find("Segment: 88\r\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Unrecognized msg id: 3FC\n"), std::string::npos);  // 1020
    // Its QZSS frame comes before the first GPS frame, which replaces the text.
    EXPECT_NE(out.find("Type: GPS+GAL\r\n"), std::string::npos) << out;
    // The 10-bit week always gets 2048 added, so a 2016 recording reads as week 2915.
    EXPECT_NE(out.find("GPST: (Week 2915 Tow 338400)~(Week 2915 Tow 338400)\r\n"),
              std::string::npos);
}
