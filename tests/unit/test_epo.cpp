// The EPO engine's pure parts: names and types, PRN rules, decoding and the
// summary, framing, the acknowledgement and report checks, the carry.
#include <gtest/gtest.h>

#include "tests/support/stamp_mask.h"

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ag33xx/ag33xx.h"
#include "rz610mxxxx/rz610mxxxx.h"
#include "toolkit/checksum.h"
#include "toolkit/reply.h"
#include "tools/epo_gen.h"

namespace {

std::string sentence(const std::string &body) {
    char buf[256];
    snprintf(buf, sizeof buf, "%s", body.c_str());
    Vk_NMEA_AppendTrailer(buf, sizeof buf);
    return buf;
}

struct TempFile {
    std::string path;
    TempFile(const std::string &name, const std::vector<uint8_t> &bytes) {
        char dir[] = "/tmp/vkagnss-epo-XXXXXX";
        path = std::string(mkdtemp(dir)) + "/" + name;
        FILE *f = fopen(path.c_str(), "wb");
        if (!bytes.empty()) fwrite(bytes.data(), 1, bytes.size(), f);
        fclose(f);
    }
    ~TempFile() {
        unlink(path.c_str());
        rmdir(path.substr(0, path.rfind('/')).c_str());
    }
};

std::vector<uint8_t> gen(EpoGenKind kind, int segments = 0,
                         EpoGenDamage damage = EpoGenDamage::None, int64_t value = -1) {
    EpoGenConfig cfg;
    cfg.kind = kind;
    cfg.segments = segments;
    cfg.damage = damage;
    cfg.damage_value = value;
    return epogen_generate(cfg);
}

EpoInfo decode(const std::vector<uint8_t> &bytes, std::string *out = nullptr) {
    TempFile f("x.DAT", bytes);
    EpoInfo info;
    testing::internal::CaptureStdout();
    epo_decode_file(&info, f.path.c_str());
    std::string text = testing::internal::GetCapturedStdout();
    if (out) *out = mask_stamps(text);
    return info;
}

}  // namespace

// --- names, tables and letters ------------------------------------------------

TEST(EpoNames, OfflineNamesGiveTypeAndDays) {
    int32_t days = -5;
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "/x/EPO_GPS_3_1.DAT", &days), 0);
    EXPECT_EQ(days, 3);
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "EPO_BDS_3.DAT", &days), 3);
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "EPO_GR_3_2.DAT", &days), 1);
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "EPO_GAL_7.DAT", &days), 2);
    EXPECT_EQ(days, 7);
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "EPO_GAL_X.DAT", &days), 2);
    EXPECT_EQ(days, 0);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out,
              "[SSS.mmm] EPO type:0,day count:3\n[SSS.mmm] EPO type:3,day count:3\n"
              "[SSS.mmm] EPO type:1,day count:3\n[SSS.mmm] EPO type:2,day count:7\n"
              "[SSS.mmm] EPO type:2,day count:0\n");
}

TEST(EpoNames, UnknownOrNullOfflineNameLeavesDaysAlone) {
    int32_t days = 42;
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, "VGPS.DAT", &days), -1);
    EXPECT_EQ(epo_offline_type(&AG33XX_Dialect, nullptr, &days), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(days, 42);
}

TEST(EpoNames, OnlineNames) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, "VGPS.DAT"), 0);
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, "VBD2.DAT"), 3);
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, "VGA.DAT"), 2);
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, "VG_R.DAT"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, "EPO_GPS_3_1.DAT"), -1);
    EXPECT_EQ(epo_online_type(&AG33XX_Dialect, nullptr), -1);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Invalid EPO file name: EPO_GPS_3_1.DAT\n"
              "[SSS.mmm][ERROR] invalid Filename parameter");
}

TEST(EpoNames, Rz610OfflineNames) {
    struct Case {
        const char *name;
        int32_t type, days;
    };
    const Case cases[] = {{"EPO_GPS_3_1.DAT", 0, 3},     {"ELPO_GPS_3.DAT", 0, 3},
                          {"EPO_BDS_3.DAT", 3, 3},       {"ELPO_BDS_3.DAT", 3, 3},
                          {"EPO_GR_3_1.DAT", 1, 3},      {"ELPO_GR3_1.DAT", 1, 3},
                          {"EPO_GAL_7.DAT", 2, 7},       {"ELPO_GAL_3.DAT", 2, 0},
                          {"ELPO_GLO_3.DAT", 4, 3},      {"ELPO_GPS_07days.DAT", 0, 7},
                          {"ELPO_GLO_07days.DAT", 4, 7}, {"ELPO_GAL_07days.DAT", 2, 7},
                          {"ELPO_BD_07days.DAT", 3, 7},  {"ELPO_QZSS_3.DAT", 5, 3},
                          {"ELPO_QZSS_07days.DAT", 5, 7}};
    testing::internal::CaptureStdout();
    for (const Case &c : cases) {
        int32_t days = -9;
        EXPECT_EQ(epo_offline_type(&RZ610MXXXX_Dialect, c.name, &days), c.type) << c.name;
        EXPECT_EQ(days, c.days) << c.name;
    }
    int32_t days = -9;
    EXPECT_EQ(epo_offline_type(&RZ610MXXXX_Dialect, "ELPO_XYZ.DAT", &days), -1);
    testing::internal::GetCapturedStdout();
}

TEST(EpoNames, Rz610OnlineNames) {
    const std::pair<const char *, int32_t> cases[] = {
        {"VGPS.DAT", 0},        {"VBD2.DAT", 3},       {"VGA.DAT", 2},        {"VG_R.DAT", 1},
        {"VELPO_GPS.DAT", 10},  {"VELPO_GLO.DAT", 11}, {"VELPO_GAL.DAT", 12}, {"VELPO_BDS.DAT", 13},
        {"VELPO_QZSS.DAT", 14}, {"VELPO_GR.DAT", 15}};
    for (const auto &c : cases)
        EXPECT_EQ(epo_online_type(&RZ610MXXXX_Dialect, c.first), c.second) << c.first;
}

TEST(EpoNames, ModesFromTables) {
    for (int t = 0; t < 4; ++t) EXPECT_EQ(epo_mode_of_type(&AG33XX_Dialect, t), t);
    const int32_t rz[][2] = {{0, 1},  {1, 3},  {2, 3},  {3, 4},  {10, 1}, {11, 2},
                             {12, 3}, {13, 4}, {14, 5}, {15, 3}, {-1, 0}};
    for (const auto &r : rz) EXPECT_EQ(epo_mode_of_type(&RZ610MXXXX_Dialect, r[0]), r[1]);
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_mode_of_type(&AG33XX_Dialect, 7), -1);
    EXPECT_EQ(epo_mode_of_type(&RZ610MXXXX_Dialect, 4), -1);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] get mode failed with type[7][SSS.mmm][ERROR] get mode failed with "
              "type[4]");
}

TEST(EpoNames, SystemLetters) {
    char s[4];
    EXPECT_EQ(epo_system_letter(&AG33XX_Dialect, 0, s, sizeof s), 0);
    EXPECT_STREQ(s, "G");
    EXPECT_EQ(epo_system_letter(&AG33XX_Dialect, 2, s, sizeof s), 0);
    EXPECT_STREQ(s, "E");
    EXPECT_EQ(epo_system_letter(&AG33XX_Dialect, 3, s, sizeof s), 0);
    EXPECT_STREQ(s, "C");
    EXPECT_EQ(epo_system_letter(&RZ610MXXXX_Dialect, 4, s, sizeof s), 0);
    EXPECT_STREQ(s, "R");
    EXPECT_EQ(epo_system_letter(&RZ610MXXXX_Dialect, 5, s, sizeof s), 0);
    EXPECT_STREQ(s, "J");
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_system_letter(&AG33XX_Dialect, 1, s, sizeof s), 258);
    EXPECT_EQ(epo_system_letter(&AG33XX_Dialect, 4, s, sizeof s), 258);
    EXPECT_EQ(epo_system_letter(&RZ610MXXXX_Dialect, 1, s, sizeof s), 258);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Invalid EPO type\n[SSS.mmm][ERROR] Invalid EPO type\n"
              "[SSS.mmm][ERROR] Invalid EPO type\n");
}

TEST(EpoNames, CurrentType) {
    epo_set_type(3);
    EXPECT_EQ(epo_get_type(), 3);
    epo_set_type(-1);
    EXPECT_EQ(epo_get_type(), -1);
}

// --- PRN rules ----------------------------------------------------------------

TEST(EpoPrn, ByType) {
    uint8_t rec[72] = {0};
    auto prn = [&](int32_t type, uint8_t s) {
        rec[3] = s;
        return epo_record_prn(&AG33XX_Dialect, type, rec);
    };
    EXPECT_EQ(prn(0, 17), 17);
    EXPECT_EQ(prn(1, 65), 1);
    EXPECT_EQ(prn(1, 88), 24);
    EXPECT_EQ(prn(1, 5), 5 - 64);  // a GPS SVID goes through the GLONASS rule as well
    EXPECT_EQ(prn(2, 101), 1);
    EXPECT_EQ(prn(2, 255), 255);
    EXPECT_EQ(prn(3, 190), 55);
    EXPECT_EQ(prn(3, 198), 63);
    EXPECT_EQ(prn(3, 201), 1);
    EXPECT_EQ(prn(3, 255), 255);
    EXPECT_EQ(prn(4, 9), 0);
    EXPECT_EQ(prn(-1, 9), 0);
}

TEST(EpoPrn, ByModeOnTheSecondPlatform) {
    uint8_t rec[72] = {0};
    auto prn = [&](int32_t mode, uint8_t s) {
        rec[3] = s;
        return epo_record_prn(&RZ610MXXXX_Dialect, mode, rec);
    };
    EXPECT_EQ(prn(1, 17), 17);
    EXPECT_EQ(prn(2, 66), 2);
    EXPECT_EQ(prn(3, 136), 36);
    EXPECT_EQ(prn(3, 255), 255);
    EXPECT_EQ(prn(4, 199), 64);
    EXPECT_EQ(prn(4, 254), 54);
    EXPECT_EQ(prn(5, 193), 0);  // QZSS records get no PRN
    EXPECT_EQ(prn(0, 17), 0);
}

TEST(EpoPrn, HeaderListInAscendingOrder) {
    uint8_t header[72] = {0};
    header[4] = 0x05;   // satellites 1 and 3
    header[7] = 0x80;   // satellite 32
    header[16] = 0x01;  // satellite 33
    header[19] = 0x80;  // satellite 64
    char hex[145];
    Vk_HexGroupToString(hex, header, 72);
    uint8_t list[64] = {0};
    int count = 0;
    epo_parse_header(hex, list, 64, &count);
    EXPECT_EQ(count, 5);
    EXPECT_EQ(std::vector<int>(list, list + 5), (std::vector<int>{1, 3, 32, 33, 64}));
    uint8_t short_list[64] = {0};
    epo_parse_header(hex, short_list, 32, &count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(std::vector<int>(short_list, short_list + 4), (std::vector<int>{1, 3, 32, 0}));
}

// --- decoding and summary -------------------------------------------------------------

TEST(EpoDecode, GpsFile) {
    std::string out;
    EpoInfo info = decode(gen(EpoGenKind::Gps), &out);
    EXPECT_EQ(info.type, 0);
    EXPECT_EQ(info.file_size, 27648u);
    EXPECT_EQ(info.segment_count, 12u);
    EXPECT_FLOAT_EQ(info.valid_days, 3.0f);
    EXPECT_EQ(info.start_time, uint64_t(EPO_DEFAULT_START_HOUR) * 3600);
    EXPECT_EQ(info.end_time, info.start_time + 12 * 21600);
    EXPECT_NE(
        out.find("[SSS.mmm][DEBUG] [EPO INFO] Type: GPS ONLY\r\n"
                 "[SSS.mmm][DEBUG] [EPO INFO] File Size: 27648\r\n"
                 "[SSS.mmm][DEBUG] [EPO INFO] Segment: 12\r\n"
                 "[SSS.mmm][DEBUG] [EPO INFO] Valid Days: 3.00\r\n"
                 "[SSS.mmm][DEBUG] [EPO INFO] GPST: (Week 2400 Tow 0)~(Week 2400 Tow 259200)\r\n"
                 "[SSS.mmm][DEBUG] [EPO INFO] UTC: (2026-01-04 00:00:00)~(2026-01-07 00:00:00)\n"),
        std::string::npos)
        << out;
    EXPECT_EQ(out.find("[SSS.mmm][DEBUG] Get epo info from file, Path: "), 0u);
}

TEST(EpoDecode, GpsGlonassFile) {
    EpoInfo info = decode(gen(EpoGenKind::Gr));
    EXPECT_EQ(info.type, 1);
    EXPECT_EQ(info.segment_count, 12u);
}

TEST(EpoDecode, GpsFileWhoseSizeIsAMultipleOf4032StaysGps) {
    EpoInfo info = decode(gen(EpoGenKind::Gps, 7));
    EXPECT_EQ(info.file_size, 16128u);
    EXPECT_EQ(info.type, 0);
    EXPECT_EQ(info.segment_count, 7u);
    info = decode(gen(EpoGenKind::Gps, 7, EpoGenDamage::GpsInGlonassSlot, 70));
    EXPECT_EQ(info.type, 1);
    EXPECT_EQ(info.segment_count, 4u);
}

TEST(EpoDecode, GalileoHeaderWith36Satellites) {
    EpoGenConfig cfg;
    cfg.kind = EpoGenKind::Gal;
    cfg.days = 7;
    for (int s = 1; s <= 36; ++s) cfg.sats.push_back(s);
    std::vector<uint8_t> bytes = epogen_generate(cfg);
    ASSERT_EQ(bytes.size(), 72u + 7 * 4 * 36 * 72);
    std::string out;
    EpoInfo info = decode(bytes, &out);
    EXPECT_EQ(info.type, 2);
    EXPECT_EQ(info.segment_count, 28u);
    EXPECT_NE(out.find("[SSS.mmm][DEBUG] svid = 36\n"), std::string::npos);
    // 72 + 7 x 36 x 72 bytes: 7 segments, 1.75 days.
    bytes.resize(72 + 7 * 36 * 72);
    info = decode(bytes);
    EXPECT_EQ(info.segment_count, 7u);
    EXPECT_FLOAT_EQ(info.valid_days, 1.75f);
}

TEST(EpoDecode, BeidouFile) {
    EpoInfo info = decode(gen(EpoGenKind::Bds));
    EXPECT_EQ(info.type, 3);
    EXPECT_EQ(info.segment_count, 12u);
}

TEST(EpoDecode, HeaderWithoutSatellitesIsInvalidNotADivisionByZero) {
    std::string out;
    EpoInfo info = decode(gen(EpoGenKind::Gal, 0, EpoGenDamage::EmptyHeader), &out);
    EXPECT_EQ(info.type, -1);
    EXPECT_EQ(info.segment_count, 0u);
    EXPECT_NE(out.find("[SSS.mmm][DEBUG] [EPO INFO] Type: INVALID\r\n"), std::string::npos);
}

TEST(EpoDecode, ShortFile) {
    std::string out;
    EpoInfo info = decode(gen(EpoGenKind::Gps, 0, EpoGenDamage::Short, 100), &out);
    EXPECT_EQ(info.type, -1);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] data_head_len = 28,is wrong\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][DEBUG] [EPO INFO] Type: INVALID\r\n"), std::string::npos);
}

TEST(EpoDecode, UnknownSvidsInTheSecondRecord) {
    for (int s : {0, 33, 100, 137, 189, 199, 200, 255}) {
        EpoInfo info = decode(gen(EpoGenKind::Gps, 0, EpoGenDamage::UnknownSvid, s));
        EXPECT_EQ(info.type, -1) << s;
        EXPECT_EQ(info.start_time, 0u);
        EXPECT_EQ(info.end_time, 0u);
    }
}

TEST(EpoDecode, HourIsTakenModulo2To32) {
    std::vector<uint8_t> bytes = gen(EpoGenKind::Gps);
    bytes[72] = bytes[73] = bytes[74] = 0xFF;
    EpoInfo info = decode(bytes);
    EXPECT_EQ(info.start_time, 268431856u);
}

TEST(EpoDecode, MissingFile) {
    EpoInfo info;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    epo_decode_file(&info, "/nonexistent/EPO_GPS_3_1.DAT");
    testing::internal::GetCapturedStdout();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("fopen"), std::string::npos);
    EXPECT_EQ(info.type, -1);
}

TEST(EpoDecode, InfoLinesAreFlushedAtInfoLevel) {
    EpoInfo info{};
    info.type = 1;
    info.file_size = 48384;
    info.segment_count = 12;
    info.valid_days = 3.0f;
    info.start_time = 2114ull * 604800 + 86400;  // week 2114, tow 86400
    info.end_time = info.start_time + 12 * 21600;
    testing::internal::CaptureStdout();
    epo_print_info(&info);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] [EPO INFO] Type: GPS + GLONASS\r\n"
              "[SSS.mmm][INFO] [EPO INFO] File Size: 48384\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Segment: 12\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Valid Days: 3.00\r\n"
              "[SSS.mmm][INFO] [EPO INFO] GPST: (Week 2114 Tow 86400)~(Week 2114 Tow 345600)\r\n"
              "[SSS.mmm][INFO] [EPO INFO] UTC: (2020-07-13 00:00:00)~(2020-07-16 00:00:00)\n");
    info.type = 7;
    testing::internal::CaptureStdout();
    epo_print_info(&info);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()).substr(0, 40),
              "[SSS.mmm][INFO] [EPO INFO] Type: \r\n[SSS.");
}

TEST(EpoDecode, SummaryRecordMasks) {
    EpoInfo info{};
    VkAgnssInfo agnss{};
    const std::pair<int32_t, uint32_t> masks[] = {{0, 1}, {1, 3}, {2, 4}, {3, 8}, {-1, 0}, {5, 0}};
    for (const auto &m : masks) {
        info.type = m.first;
        epo_to_agnss_info(&info, &agnss);
        EXPECT_EQ(agnss.sys_mask, m.second);
    }
}

TEST(EpoDecode, RealGpsFileWhenPresent) {
    std::string path = std::string(VK_REAL_DATA_DIR) + "/epo/EPO_GPS_3_1.DAT";
    if (access(path.c_str(), R_OK) != 0) GTEST_SKIP() << "no recording at " << path;
    EpoInfo info;
    testing::internal::CaptureStdout();
    epo_decode_file(&info, path.c_str());
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(info.type, 0);
    EXPECT_EQ(info.file_size, 27648u);
    EXPECT_EQ(info.segment_count, 12u);
    EXPECT_NE(out.find("UTC: (2020-07-13 00:00:00)~(2020-07-16 00:00:00)\n"), std::string::npos)
        << out;
}

// --- framing -----------------------------------------------------------------------

TEST(EpoFrame, BeginFrameBytes) {
    uint8_t payload[2] = {'G', 0};
    uint8_t frame[101];
    uint32_t len = sizeof frame;
    ASSERT_EQ(epo_package_frame(epo_msg_id(0), payload, 2, frame, &len), 0u);
    EXPECT_EQ(len, 11u);
    const uint8_t x = 0xB0 ^ 0x04 ^ 0x02 ^ 0x00 ^ 'G' ^ 0x00;
    EXPECT_EQ(std::vector<uint8_t>(frame, frame + len),
              (std::vector<uint8_t>{0x04, 0x24, 0xB0, 0x04, 0x02, 0x00, 'G', 0x00, x, 0xAA, 0x44}));
    EXPECT_EQ(epo_msg_id(1), 1201);
    EXPECT_EQ(epo_msg_id(2), 1202);
    EXPECT_EQ(epo_msg_id(9), 1202);
}

TEST(EpoFrame, PayloadLimits) {
    uint8_t payload[93] = {0};
    uint8_t frame[101];
    uint32_t len = sizeof frame;
    EXPECT_EQ(epo_package_frame(1201, payload, 92, frame, &len), 0u);
    EXPECT_EQ(len, 101u);
    testing::internal::CaptureStdout();
    len = sizeof frame;
    EXPECT_EQ(epo_package_frame(1201, payload, 93, frame, &len), 258u);
    len = sizeof frame;
    EXPECT_EQ(epo_package_frame(1201, payload, 0, frame, &len), 258u);
    len = sizeof frame;
    EXPECT_EQ(epo_package_frame(1201, nullptr, 4, frame, &len), 258u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] MsgTotalLen[101] is not enough\n"
              "[SSS.mmm][ERROR] Para is invalid\n[SSS.mmm][ERROR] Para is invalid\n");
}

// --- acknowledgement and report checks ---------------------------------------------------

TEST(EpoAck, AcceptedAcknowledgement) {
    std::string ack = sentence("$PAIR001,590,0");
    EXPECT_EQ(AG33XX_CheckNmeaCmdRsp(ack.c_str(), uint32_t(ack.size()), "$PAIR590", VK_ERR_COMMAND),
              0u);
    std::string mixed = "$GNGGA,1,2*00\r\n" + ack;
    EXPECT_EQ(
        AG33XX_CheckNmeaCmdRsp(mixed.c_str(), uint32_t(mixed.size()), "$PAIR590", VK_ERR_COMMAND),
        0u);
}

TEST(EpoAck, NothingOrSomethingElse) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(AG33XX_CheckNmeaCmdRsp("", 0, "$PAIR590", VK_ERR_COMMAND), 512u);
    std::string other = sentence("$PAIR001,600,0");
    EXPECT_EQ(
        AG33XX_CheckNmeaCmdRsp(other.c_str(), uint32_t(other.size()), "$PAIR590", VK_ERR_COMMAND),
        512u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()), "[SSS.mmm][ERROR] recv nothing");
}

TEST(EpoAck, NonZeroResult) {
    std::string nak = sentence("$PAIR001,590,1");
    testing::internal::CaptureStdout();
    EXPECT_EQ(AG33XX_CheckNmeaCmdRsp(nak.c_str(), uint32_t(nak.size()), "$PAIR590", VK_ERR_COMMAND),
              514u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] check_id: 590,check_ret:1\n");
}

TEST(EpoAck, WeakChecksumComparison) {
    // "$PAIR001,590,0" has checksum 0x2B... compare only leading decimal digits.
    const char *body = "$PAIR001,590,0";
    char computed[8];
    snprintf(computed, sizeof computed, "%X", Vk_NMEA_Support_Checksum(body));
    EXPECT_TRUE(vk_checksum_text_matches(body, computed));
    // Same leading digit, different second hex digit: still passes.
    EXPECT_TRUE(vk_checksum_text_matches("$A", "41"));   // 'A' = 0x41
    EXPECT_FALSE(vk_checksum_text_matches("$A", "4F"));  // 41 against 4
    EXPECT_TRUE(vk_checksum_text_matches("$:", "3A"));   // ':' = 0x3a: "3a" and "3A" both read 3
    EXPECT_TRUE(vk_checksum_text_matches("$;", "3A"));   // 0x3b against 3A: both read 3
    EXPECT_TRUE(vk_checksum_text_matches("$:", "3"));
    EXPECT_FALSE(vk_checksum_text_matches("$A", "51"));
    std::string bad = "$PAIR001,590,0*99\r\n";
    testing::internal::CaptureStdout();
    EXPECT_EQ(AG33XX_CheckNmeaCmdRsp(bad.c_str(), uint32_t(bad.size()), "$PAIR590", VK_ERR_COMMAND),
              514u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][ERROR] checksum_fix: 99,checksum_cacu:"), std::string::npos)
        << out;
}

TEST(EpoAck, Rz610Acknowledgement) {
    std::string ok = sentence("$PVNKAIDTIME,OK");
    testing::internal::CaptureStdout();
    EXPECT_EQ(
        RZ610MXXXX_CheckNmeaCmdRsp(ok.c_str(), uint32_t(ok.size()), "$PVNKAIDTIME", VK_ERR_COMMAND),
        0u);
    std::string fail = sentence("$PVNKAIDTIME,FAIL");
    EXPECT_EQ(RZ610MXXXX_CheckNmeaCmdRsp(fail.c_str(), uint32_t(fail.size()), "$PVNKAIDTIME",
                                         VK_ERR_COMMAND),
              272u);
    std::string bad = "$PVNKAIDTIME,OK*00\r\n";
    EXPECT_EQ(RZ610MXXXX_CheckNmeaCmdRsp(bad.c_str(), uint32_t(bad.size()), "$PVNKAIDTIME",
                                         VK_ERR_COMMAND),
              272u);
    EXPECT_EQ(
        RZ610MXXXX_CheckNmeaCmdRsp(ok.c_str(), uint32_t(ok.size()), "$PVNKAIDPOS", VK_ERR_COMMAND),
        512u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][DEBUG] command execution success: $PVNKAIDTIME,OK\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] coammand execution failed: $PVNKAIDTIME,FAIL\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] checksum_fix: 0,checksum_cacu:"), std::string::npos);
}

TEST(EpoReport, RestartReport) {
    std::string restart = sentence("$PAIR011,1,0");
    EXPECT_EQ(
        AG33XX_CheckNmeaRpt(restart.c_str(), uint32_t(restart.size()), "$PAIR011", VK_ERR_COMMAND),
        0u);
    EXPECT_EQ(AG33XX_CheckNmeaRpt("", 0, "$PAIR011", VK_ERR_COMMAND), 512u);
    // Only the restart report is ever awaited; any other text is no report.
    std::string other = sentence("$PAIR470,0,96");
    EXPECT_EQ(
        AG33XX_CheckNmeaRpt(other.c_str(), uint32_t(other.size()), "$PAIR470", VK_ERR_COMMAND),
        512u);
    EXPECT_EQ(
        AG33XX_CheckNmeaRpt(restart.c_str(), uint32_t(restart.size()), "$PAIR012", VK_ERR_COMMAND),
        512u);
}

TEST(EpoReport, Rz610Reports) {
    const char gga[] = "$GNGGA,000001.00,,,,,0,00,99.99,,,,,,*56\r\n";
    EXPECT_EQ(RZ610MXXXX_CheckNmeaRpt(gga, sizeof gga - 1, "GGA", VK_ERR_COMMAND), 0u);
    EXPECT_EQ(RZ610MXXXX_CheckNmeaRpt("$GNRMC,1*00\r\n", 13, "GGA", VK_ERR_COMMAND), 512u);
    EXPECT_EQ(RZ610MXXXX_CheckNmeaRpt("", 0, "GGA", VK_ERR_COMMAND), 512u);
}

// --- the carry of a partial sentence -------------------------------------------------------

TEST(EpoCarry, AcknowledgementSplitInsideTheCommandNumberIsJoined) {
    std::string ack = sentence("$PAIR001,590,0");
    std::string first = "$GNGGA,1*00\r\n" + ack.substr(0, 11);  // ends inside "590"
    std::string second = ack.substr(11);
    char buf[10241] = {0};
    char carry[128];
    uint32_t carry_len = 0;
    memcpy(buf, first.data(), first.size());
    uint32_t len = uint32_t(first.size());
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 10240, 128), 1);
    EXPECT_EQ(std::string(buf, len), "$GNGGA,1*00\r\n");
    EXPECT_EQ(carry_len, 11u);
    memset(buf, 0, sizeof buf);
    memcpy(buf, second.data(), second.size());
    len = uint32_t(second.size());
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 10240, 128), 1);
    EXPECT_EQ(std::string(buf, len), ack);
    EXPECT_EQ(carry_len, 0u);
    EXPECT_EQ(AG33XX_CheckNmeaCmdRsp(buf, len, "$PAIR590", VK_ERR_COMMAND), 0u);
}

TEST(EpoCarry, PartialLongerThan128IsNotCarried) {
    std::string tail = "$" + std::string(128, 'X');  // 129 characters from '$'
    char buf[10241] = {0};
    char carry[128];
    uint32_t carry_len = 0;
    memcpy(buf, tail.data(), tail.size());
    uint32_t len = uint32_t(tail.size());
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 10240, 128), 0);
    EXPECT_EQ(len, uint32_t(tail.size()));
    EXPECT_EQ(carry_len, 0u);
    std::string fits = "$" + std::string(127, 'X');  // exactly 128
    memset(buf, 0, sizeof buf);
    memcpy(buf, fits.data(), fits.size());
    len = uint32_t(fits.size());
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 10240, 128), 1);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(carry_len, 128u);
}

TEST(EpoCarry, DataEndingInLineFeedIsKeptWholeAndCarryTooBigForTheBufferStays) {
    char buf[64] = {0};
    char carry[128];
    uint32_t carry_len = 0;
    const char text[] = "abc$X\r\n";
    memcpy(buf, text, sizeof text - 1);
    uint32_t len = sizeof text - 1;
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 63, 128), 1);
    EXPECT_EQ(len, sizeof text - 1);
    memcpy(carry, "$0123456789", 11);
    carry_len = 11;
    len = 60;
    EXPECT_EQ(Vk_ProcessSerialData(buf, &len, carry, &carry_len, 63, 128), 0);
    EXPECT_EQ(len, 60u);
    EXPECT_EQ(carry_len, 11u);
}

// --- the binary acknowledgement matcher, over a real pseudo-terminal --------------

#include <pty.h>
#include <termios.h>

#include "serial/serial.h"
#include "tests/support/epo_frames.h"

namespace {

struct PtyPair {
    int master = -1;
    SerialPort port;
    PtyPair() {
        int slave = -1;
        char name[128];
        if (openpty(&master, &slave, name, nullptr, nullptr) != 0) return;
        termios t{};
        tcgetattr(master, &t);
        cfmakeraw(&t);
        tcsetattr(master, TCSANOW, &t);
        port = serial_open(name, 115200);
        close(slave);
    }
    ~PtyPair() {
        serial_close(port);
        close(master);
    }
    void send(const std::vector<uint8_t> &bytes) const {
        ASSERT_EQ(write(master, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
};

std::string clock_masked(const std::string &s) {
    size_t close = s.find("] ");
    return s[0] == '[' && close != std::string::npos ? "[CLOCK]" + s.substr(close + 1) : s;
}

}  // namespace

TEST(EpoBinaryAck, TextBeforeTheFrameIsEchoedAndTheFrameMatched) {
    PtyPair p;
    ASSERT_TRUE(serial_is_open(p.port));
    std::vector<uint8_t> bytes = {'$', 'G', 'N', 'T', 'X', 'T', '\r', '\n'};
    std::vector<uint8_t> ack = epo_ack(1201);
    bytes.insert(bytes.end(), ack.begin(), ack.end());
    p.send(bytes);
    uint8_t reply[16] = {0};
    testing::internal::CaptureStdout();
    uint32_t ret = epo_wait_bin_ack(p.port, reply, 1201);
    std::string out = clock_masked(testing::internal::GetCapturedStdout());
    EXPECT_EQ(ret, 0u);
    char hex[64] = {0};
    for (size_t i = 0; i < ack.size(); ++i) snprintf(hex + 2 * i, 3, "%02X", ack[i]);
    EXPECT_EQ(out, std::string("[CLOCK] $GNTXT\r\n") + hex + "\n");
    EXPECT_EQ(std::vector<uint8_t>(reply, reply + 13), ack);
}

TEST(EpoBinaryAck, StrayStartByteInTextIsSkippedUntilTheFrameComes) {
    PtyPair p;
    ASSERT_TRUE(serial_is_open(p.port));
    std::vector<uint8_t> bytes = {0x04, '$', 'G', 'N', 'T', 'X', 'T', ',', '1', '\r', '\n'};
    std::vector<uint8_t> ack = epo_ack(1200);
    bytes.insert(bytes.end(), ack.begin(), ack.end());
    p.send(bytes);
    uint8_t reply[16] = {0};
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_wait_bin_ack(p.port, reply, 1200), 0u);
    testing::internal::GetCapturedStdout();
}

TEST(EpoBinaryAck, RefusedFrameIsNotAcceptedAndTheWaitRunsOut) {
    PtyPair p;
    ASSERT_TRUE(serial_is_open(p.port));
    p.send(epo_ack(1201, 1));
    uint8_t reply[16] = {0};
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_wait_bin_ack(p.port, reply, 1201), 512u);
    testing::internal::GetCapturedStdout();
}

TEST(EpoBinaryAck, AcknowledgementOfAnotherFrameDoesNotCount) {
    PtyPair p;
    ASSERT_TRUE(serial_is_open(p.port));
    p.send(epo_ack(1202));
    uint8_t reply[16] = {0};
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_wait_bin_ack(p.port, reply, 1201), 512u);
    testing::internal::GetCapturedStdout();
}
