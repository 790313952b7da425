// HD8XXX and MJ7XXX pure parts: frames, the YMODEM packet bytes, reply
// checks, file classification, the RTCM division and summaries.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "core/options.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/ymodem.h"
#include "mj7xxx/mj7xxx.h"
#include "tests/support/harness.h"
#include "tests/support/ref_crc16.h"
#include "tests/support/stamp_mask.h"
#include "toolkit/checksum.h"
#include "tools/rtcm_gen.h"

namespace {

std::vector<uint8_t> v(std::span<const uint8_t> s) { return {s.begin(), s.end()}; }

// Fletcher sum over bytes 2 .. n-3 of a frame, written here from its definition.
std::pair<uint8_t, uint8_t> fletcher(const std::vector<uint8_t> &f) {
    uint8_t a = 0, b = 0;
    for (size_t i = 2; i + 2 < f.size(); ++i) {
        a = uint8_t(a + f[i]);
        b = uint8_t(b + a);
    }
    return {a, b};
}

std::string reply(const std::string &body) { return nmea_sentence(body); }

}  // namespace

// ---- frames --------------------------------------------------------------------------------

TEST(Hd8xxxFrames, StartFramesCarryTheirSums) {
    EXPECT_EQ(v(hd8xxx_start_frame(3)),
              (std::vector<uint8_t>{0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x01, 0x48, 0x22}));
    EXPECT_EQ(v(hd8xxx_start_frame(2)),
              (std::vector<uint8_t>{0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x02, 0x49, 0x23}));
    EXPECT_EQ(v(hd8xxx_start_frame(1)),
              (std::vector<uint8_t>{0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x03, 0x4A, 0x24}));
    EXPECT_TRUE(hd8xxx_start_frame(0).empty());
    EXPECT_TRUE(hd8xxx_start_frame(4).empty());
    for (int way = 1; way <= 3; ++way) {
        std::vector<uint8_t> f = v(hd8xxx_start_frame(way));
        auto [a, b] = fletcher(f);
        EXPECT_EQ(f[7], a);
        EXPECT_EQ(f[8], b);
    }
}

TEST(Hd8xxxFrames, FixedFramesCarryTheirSums) {
    for (std::vector<uint8_t> f :
         {std::vector<uint8_t>(kHd8xxxClearFrame, kHd8xxxClearFrame + 16),
          std::vector<uint8_t>(kHd8xxxFactoryResetFrame, kHd8xxxFactoryResetFrame + 16),
          std::vector<uint8_t>(kHd8xxxYmodemFrame, kHd8xxxYmodemFrame + 8)}) {
        auto [a, b] = fletcher(f);
        EXPECT_EQ(f[f.size() - 2], a);
        EXPECT_EQ(f[f.size() - 1], b);
        uint16_t sum = Vk_Check_Varnok(f.data(), uint32_t(f.size() - 2));
        EXPECT_EQ(sum, uint16_t(b << 8 | a));
    }
}

TEST(Hd8xxxFrames, TimeFrameLayout) {
    VkDateTime t{2026, 1, 8, 9, 59, 17, 123};
    uint8_t out[28];
    ASSERT_EQ(hd8xxx_time_frame(t, 18, out), 28u);
    std::vector<uint8_t> f(out, out + 28);
    std::vector<uint8_t> want = {0xF1, 0xD9, 0x0B, 0x11, 20, 0, 0, 0, 18, 0xEA, 0x07, 1, 8, 9,
                                 59,   17,   0,    123,  0,  0, 0, 0, 0,  0,    0,    0, 0, 0};
    auto [a, b] = fletcher(f);
    want[26] = a;
    want[27] = b;
    EXPECT_EQ(f, want);
}

TEST(Hd8xxxFrames, PositionFrameTruncatesTowardZero) {
    VkPosAid pos{};
    snprintf(pos.lat, sizeof pos.lat, "%s", "-31.23456789");
    snprintf(pos.lon, sizeof pos.lon, "%s", "121.4737");
    snprintf(pos.alt, sizeof pos.alt, "%s", "-10.559");
    uint8_t out[25];
    ASSERT_EQ(hd8xxx_pos_frame(&pos, out), 25u);
    auto le32 = [&](int at) {
        return int32_t(uint32_t(out[at]) | uint32_t(out[at + 1]) << 8 |
                       uint32_t(out[at + 2]) << 16 | uint32_t(out[at + 3]) << 24);
    };
    EXPECT_EQ(out[2], 0x0B);
    EXPECT_EQ(out[3], 0x10);
    EXPECT_EQ(out[4], 17);
    EXPECT_EQ(out[6], 1);
    EXPECT_EQ(le32(7), -312345678);
    EXPECT_EQ(le32(11), 1214737000);
    EXPECT_EQ(le32(15), -1055);
    EXPECT_EQ(le32(19), 0);
    std::vector<uint8_t> f(out, out + 25);
    auto [a, b] = fletcher(f);
    EXPECT_EQ(out[23], a);
    EXPECT_EQ(out[24], b);
}

// ---- YMODEM packets ------------------------------------------------------------------------

TEST(YmodemPacket, StxPacketIsPaddedWithSubAndCarriesTheCrc) {
    ymodem_io_init(nullptr, nullptr, Vk_CRC16_Calc, nullptr);
    YmodemPacket p;
    const uint8_t one = 0x5A;
    ASSERT_EQ(ymodem_pkt_fill(&p, YMODEM_STX, 1, &one, 1), 0);
    uint8_t buf[2048];
    ASSERT_EQ(ymodem_pkt2buf(&p, buf), 1029);
    EXPECT_EQ(buf[0], 0x02);
    EXPECT_EQ(buf[1], 0x01);
    EXPECT_EQ(buf[2], 0xFE);
    EXPECT_EQ(buf[3], 0x5A);
    for (int i = 4; i < 3 + 1024; ++i) ASSERT_EQ(buf[i], 0x1A) << i;
    uint16_t crc = ref_crc16_xmodem(buf + 3, 1024);
    EXPECT_EQ(buf[1027], crc >> 8);
    EXPECT_EQ(buf[1028], crc & 0xFF);
}

TEST(YmodemPacket, HeaderIsSohWithZeroPadding) {
    ymodem_io_init(nullptr, nullptr, Vk_CRC16_Calc, nullptr);
    YmodemPacket p;
    const char name_and_size[] =
        "LTEPHGPS\0"
        "2144";
    ASSERT_EQ(ymodem_pkt_fill(&p, YMODEM_SOH, 0, reinterpret_cast<const uint8_t *>(name_and_size),
                              sizeof name_and_size),
              0);
    uint8_t buf[2048];
    ASSERT_EQ(ymodem_pkt2buf(&p, buf), 133);
    EXPECT_EQ(buf[0], 0x01);
    EXPECT_EQ(buf[1], 0x00);
    EXPECT_EQ(buf[2], 0xFF);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf + 3)), "LTEPHGPS");
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf + 12)), "2144");
    for (int i = 3 + 14; i < 3 + 128; ++i) ASSERT_EQ(buf[i], 0x00) << i;
    uint16_t crc = ref_crc16_xmodem(buf + 3, 128);
    EXPECT_EQ(buf[131], crc >> 8);
    EXPECT_EQ(buf[132], crc & 0xFF);
}

TEST(YmodemPacket, NumberWrapsAndComplements) {
    ymodem_io_init(nullptr, nullptr, Vk_CRC16_Calc, nullptr);
    YmodemPacket p;
    const uint8_t d = 0;
    ASSERT_EQ(ymodem_pkt_fill(&p, YMODEM_STX, 256 & 0xFF, &d, 1), 0);
    EXPECT_EQ(p.number, 0x00);
    EXPECT_EQ(p.complement, 0xFF);
    ASSERT_EQ(ymodem_pkt_fill(&p, YMODEM_STX, 0x7F, &d, 1), 0);
    EXPECT_EQ(p.complement, 0x80);
}

TEST(YmodemPacket, EmptyPacketIsNotSerialised) {
    YmodemPacket p;
    p.mode = YMODEM_SOH;
    uint8_t buf[2048];
    testing::internal::CaptureStdout();
    EXPECT_EQ(ymodem_pkt2buf(&p, buf), -1);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm] ymodem: PARAM ERROR: pkt->data_buf = "), std::string::npos);
    EXPECT_NE(out.find("; pkt->data_len=0\n"), std::string::npos);
}

TEST(YmodemTransfer, RefusesNullAndEmptyInput) {
    const uint8_t d = 1;
    EXPECT_EQ(ymodem_file_transfer(nullptr, &d, 1), -1);
    EXPECT_EQ(ymodem_file_transfer("x", nullptr, 1), -1);
    EXPECT_EQ(ymodem_file_transfer("x", &d, 0), -1);
}

// ---- reply checks --------------------------------------------------------------------------

TEST(Hd8xxxReply, OkAndErrorCode) {
    std::string ok = reply("$PVNKAIDPOS,OK");
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_CheckNmeaCmdRsp(ok.c_str(), uint32_t(ok.size()), "$PVNKAIDPOS"), 0u);
    std::string err = reply("$PVNKAIDTIME,ERROR,3");
    EXPECT_EQ(HD8XXX_CheckNmeaCmdRsp(err.c_str(), uint32_t(err.size()), "$PVNKAIDTIME"), 0x202u);
    EXPECT_EQ(HD8XXX_CheckNmeaCmdRsp(ok.c_str(), uint32_t(ok.size()), "$PVNKAIDTIME"), 0x200u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm] send $PVNKAIDPOS ok\n"
              "[SSS.mmm][ERROR] Send $PVNKAIDTIME failed,err_code:3\n");
}

TEST(Hd8xxxReply, ChecksumTextIsReadAsDecimal) {
    // "$PVNKAIDPOS,OK" sums to 0x3E... whatever it is, a text whose leading
    // decimal digits agree passes, one that differs fails without a line end.
    std::string good = reply("$PVNKAIDPOS,OK");
    std::string text = good.substr(0, good.find('*') + 1);
    std::string bad = text + "99\r\n";
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_CheckNmeaCmdRsp(bad.c_str(), uint32_t(bad.size()), "$PVNKAIDPOS"), 0x202u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out.rfind("[SSS.mmm][ERROR] checksum_fix: 99,checksum_cacu:", 0), 0u);
    EXPECT_EQ(out.find('\n'), std::string::npos);
}

TEST(Mj7xxxReply, ItsOwnFailureWordings) {
    std::string err = reply("$PVNKAIDINI,FAIL,7");
    testing::internal::CaptureStdout();
    EXPECT_EQ(MJ7XXX_CheckNmeaCmdRsp(err.c_str(), uint32_t(err.size()), "$PVNKAIDINI"), 0x202u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] [*]Send $PVNKAIDINI failed,err_code:7\n");
}

TEST(Mj7xxxReply, RestartCheckLooksForAFieldV) {
    std::string v = reply("$GNRMC,000001.00,V,,,,,,,,,,N");
    std::string a = reply("$GNRMC,000001.00,A,3113.82,N,12128.42,E,0.0,0.0,080126,,,A");
    testing::internal::CaptureStdout();
    EXPECT_EQ(MJ7XXX_CheckCmdContain(v.c_str(), uint32_t(v.size()), "$GNRMC", "V"), 0u);
    EXPECT_EQ(MJ7XXX_CheckCmdContain(a.c_str(), uint32_t(a.size()), "$GNRMC", "V"), 0x202u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] send $GNRMC ok, found field=V\n"
              "[SSS.mmm][ERROR] Send $GNRMC failed, not found field=V\n");
}

// ---- options of the two platforms ----------------------------------------------------------

TEST(Mj7xxxOptions, AidiTakesTheAccuraciesFromTheRestOfTheText) {
    VkAidInit a{};
    testing::internal::CaptureStdout();
    ASSERT_EQ(vk_parse_aidi("1,31.2304,121.4737,10.5,2026-01-08-09:59:17,18", &a), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(a.type, 1);
    EXPECT_STREQ(a.lat, "31.2304");
    EXPECT_STREQ(a.alt, "10.5");
    EXPECT_STREQ(a.utc, "2026-01-08-09:59:17");
    EXPECT_EQ(a.leap, 18);
    EXPECT_STREQ(a.pos_acc, "2026-01-08-09:59:");  // the first 17 characters from UTC0 on
    EXPECT_STREQ(a.time_acc, "");                  // LeapSec is the last field
    ASSERT_EQ(vk_parse_aidi("1,31.2,121.4,10,2026-01-08-09:59:17,18,5.5", &a), 0u);
    EXPECT_STREQ(a.time_acc, "5.5");
}

TEST(Mj7xxxOptions, AidiErrors) {
    VkAidInit a{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_aidi("1,31.2,,10,2026-01-08-09:59:17,18", &a), 0x102u);
    EXPECT_EQ(vk_parse_aidi("1,31.2,121.4,10,2026-01-08-09:59:17", &a), 0x102u);
    EXPECT_EQ(vk_parse_aidi(std::string(128, '1').c_str(), &a), 0x102u);
    EXPECT_EQ(vk_parse_aidi(std::string(127, '1').c_str(), &a), 0x102u);  // only a Type
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Invalid aidi format, exist \",,\",missing at least one field\n"
              "[SSS.mmm][ERROR] Invalid aidi, missing LeapSec field\n"
              "[SSS.mmm] Aidi string too long: " +
                  std::string(128, '1') +
                  "\n"
                  "[SSS.mmm][ERROR] Invalid aidi, missing Lat field\n");
}

// ---- files ---------------------------------------------------------------------------------

TEST(Hd8xxxFiles, OfflineClassificationIsByCaseSensitiveSubstrings) {
    EXPECT_EQ(HD8XXX_GetOfflineEphType("EPH_GPS.rtcm"), 1);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("BDS_only.rtcm3"), 2);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("x_BDS_GPS_.rtcm"), 3);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("EPH_GPS.RTCM"), 0);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("EPH_gps.rtcm"), 0);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("EPH_GPS.dat"), 0);
    EXPECT_EQ(HD8XXX_GetOfflineEphType("EPH.rtcm"), 0);
}

TEST(Hd8xxxFiles, OnlineClassificationIsExact) {
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_GPS.hdb"), 1);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_BDS.hdb"), 2);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_GPS_BDS.hdb"), 3);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("hd_gps.hdb"), 0);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_GPS.hdb.bak"), 0);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_GPS.hdbx"), 0);
    EXPECT_EQ(HD8XXX_GetOnlineEphType("HD_BDS_GPS.hdb"), 0);
}

namespace {

struct Divided {
    int result;
    std::vector<uint8_t> gps, bds;
};

Divided divide(const std::vector<uint8_t> &file) {
    std::string dir = make_temp_dir();
    write_file(dir + "/in.rtcm", file);
    Divided d;
    d.result = HD8XXX_DivideOfflineEphFile((dir + "/in.rtcm").c_str(), (dir + "/g").c_str(),
                                           (dir + "/b").c_str());
    d.gps = read_file(dir + "/g");
    d.bds = read_file(dir + "/b");
    remove_tree(dir);
    return d;
}

}  // namespace

TEST(Hd8xxxDivision, GpsAndBdsFramesGoToTheirFiles) {
    RtcmGenConfig g;
    g.systems = "G";
    RtcmGenConfig c;
    c.systems = "C";
    RtcmGenConfig gc;
    gc.systems = "GC";
    Divided d = divide(rtcmgen_generate(gc));
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.gps, rtcmgen_generate(g));
    EXPECT_EQ(d.bds, rtcmgen_generate(c));
}

TEST(Hd8xxxDivision, AnyOtherFrameFails) {
    RtcmGenConfig ce;
    ce.systems = "CE";
    EXPECT_EQ(divide(rtcmgen_generate(ce)).result, -1);
}

TEST(Hd8xxxDivision, AFrameCutShortIsNotPassedOn) {
    RtcmGenConfig g;
    g.systems = "G";
    g.sats = 2;
    std::vector<uint8_t> file = rtcmgen_generate(g);
    file.resize(file.size() - 10);
    Divided d = divide(file);
    EXPECT_EQ(d.result, 0);
    EXPECT_EQ(d.gps.size(), 67u);
}

TEST(Hd8xxxDivision, RealRecordingsWithOtherSystemsFail) {
    std::string dir = VK_REAL_DATA_DIR "/rtcm/";
    FILE *f = fopen((dir + "igs-stream-2016-04-06-eph.rtcm3").c_str(), "rb");
    if (f == nullptr) GTEST_SKIP() << "the real recordings are not here";
    fclose(f);
    for (const char *name : {"igs-stream-2016-04-06-eph.rtcm3", "ntrip-2024-03-mixed.rtcm3"}) {
        std::vector<uint8_t> bytes = read_file(dir + name);
        ASSERT_FALSE(bytes.empty());
        EXPECT_EQ(divide(bytes).result, -1) << name;
    }
}

namespace {

std::string offline_summary(const std::vector<uint8_t> &file, const char *name, uint32_t *result) {
    std::string dir = make_temp_dir();
    std::string path = dir + "/" + name;
    write_file(path, file);
    testing::internal::CaptureStdout();
    *result = HD8XXX_GetOfflineEphInfo(path.c_str());
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    remove_tree(dir);
    return out;
}

}  // namespace

TEST(Hd8xxxOfflineSummary, GpsAndBdsFile) {
    RtcmGenConfig gc;
    gc.systems = "GC";
    gc.sats = 2;
    std::vector<uint8_t> file = rtcmgen_generate(gc);
    uint32_t result = 0;
    std::string out = offline_summary(file, "EPH_GPS_BDS.rtcm", &result);
    EXPECT_EQ(result, 0u);
    // GPS week 2400, toe 345600 s (Wednesday 00:00 GPS time, 18 s ahead of UTC).
    const long start = 315964800L + 2400L * 604800 + 345600 - 18;
    // BDS time runs 14 s behind GPS time and its toc counts 8 s steps.
    const std::string bds_toc = std::to_string((345600 - 14) / 8 * 8);
    time_t t0 = time_t(start), t1 = time_t(start + 7200);
    char utc0[32], utc1[32];
    strftime(utc0, sizeof utc0, "%Y-%m-%d %H", gmtime(&t0));
    strftime(utc1, sizeof utc1, "%Y-%m-%d %H", gmtime(&t1));
    EXPECT_EQ(out,
              "[SSS.mmm][INFO] [AGNSS INFO] Type: GPS+BDS\r\n"
              "[SSS.mmm][INFO] [AGNSS INFO] File Size: " +
                  std::to_string(file.size()) +
                  "\r\n"
                  "[SSS.mmm][INFO] [AGNSS INFO] Segment: 4\r\n"
                  "[SSS.mmm][INFO] [AGNSS INFO] Valid Days: 0.083\r\n"
                  "[SSS.mmm][INFO] [AGNSS INFO] GPST: (Week 2400 Tow 345600)~(Week 1044 "
                  "Tow " +
                  bds_toc +
                  ")\r\n"
                  "[SSS.mmm][INFO] [AGNSS INFO] UTC: (" +
                  utc0 + ":00:00)~(" + utc1 + ":00:00)\n");
}

TEST(Hd8xxxOfflineSummary, GalileoOnlyReportsZeroTimes) {
    RtcmGenConfig e;
    e.systems = "E";
    e.sats = 3;
    uint32_t result = 1;
    std::string out = offline_summary(rtcmgen_generate(e), "EPH_GPS.rtcm", &result);
    EXPECT_EQ(result, 0u);
    EXPECT_NE(out.find("Type: GAL\r\n"), std::string::npos);
    EXPECT_NE(out.find("Segment: 3\r\n"), std::string::npos);
    EXPECT_NE(out.find("Valid Days: 0.000\r\n"), std::string::npos);
    EXPECT_NE(out.find("GPST: (Week 0 Tow 0)~(Week 0 Tow 0)\r\n"), std::string::npos);
    EXPECT_NE(out.find("UTC: (1970-01-01 00:00:00)~(1970-01-01 00:00:00)\n"), std::string::npos);
}

TEST(Hd8xxxOfflineSummary, NameWithoutRtcmIsRefused) {
    uint32_t result = 0;
    std::string out = offline_summary(std::vector<uint8_t>(10, 0xD3), "EPH_GPS.RTCM", &result);
    EXPECT_EQ(result, 0x107u);
    EXPECT_EQ(out, "[SSS.mmm][ERROR] File format error\n");
}

TEST(Hd8xxxOfflineSummary, RealRecordingNamesItsOtherMessages) {
    std::string path = VK_REAL_DATA_DIR "/rtcm/ntrip-2024-03-mixed.rtcm3";
    std::vector<uint8_t> bytes = read_file(path);
    if (bytes.empty()) GTEST_SKIP() << "the real recordings are not here";
    uint32_t result = 1;
    std::string out = offline_summary(bytes, "ntrip_GPS_BDS.rtcm", &result);
    EXPECT_EQ(result, 0u);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Unrecognized msg id: 3EB\n"), std::string::npos);  // 1003
    EXPECT_NE(out.find("Type: GPS+BDS+GAL\r\n"), std::string::npos);
    EXPECT_NE(out.find("Segment: 35\r\n"), std::string::npos);
}
