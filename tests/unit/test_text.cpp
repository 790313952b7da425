// Text and hex utilities and the assistance-file summary lines.
#include <gtest/gtest.h>

#include "tests/support/stamp_mask.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "toolkit/text.h"

namespace {

std::string print_info(const VkAgnssInfo &info) {
    testing::internal::CaptureStdout();
    Vk_PrintfAgnssInfo(&info);
    return mask_stamps(testing::internal::GetCapturedStdout());
}

VkAgnssInfo info_with_mask(uint32_t mask) {
    VkAgnssInfo info{};
    info.sys_mask = mask;
    info.file_size = 2304;
    info.segment_count = 1;
    info.valid_days = 0.25f;
    info.start_gps_s = 0;
    info.end_gps_s = 21600;
    return info;
}

// The first line of the summary.
std::string type_line(uint32_t mask) {
    std::string out = print_info(info_with_mask(mask));
    return out.substr(0, out.find('\n') + 1);
}

}  // namespace

// ---- hex ------------------------------------------------------------------------------

TEST(HexToAscii, DigitsAndUpperCaseLetters) {
    std::string s;
    for (uint8_t n = 0; n < 16; ++n) s += HexToASCII(n);
    EXPECT_EQ(s, "0123456789ABCDEF");
}

TEST(HexToAscii, ValuesAboveFifteenAreNotMasked) {
    EXPECT_EQ(HexToASCII(16), 'G');
    EXPECT_EQ(HexToASCII(17), 'H');
}

TEST(HexGroupToString, TwoDigitsPerByteNoSeparators) {
    const uint8_t src[] = {0x0A, 0xFF};
    char dst[5];
    memset(dst, 'x', sizeof dst);
    Vk_HexGroupToString(dst, src, 2);
    EXPECT_STREQ(dst, "0AFF");
}

TEST(HexGroupToString, LongerAndEmpty) {
    const uint8_t src[] = {0x00, 0x12, 0x9B, 0xC4, 0x7E};
    char dst[11];
    Vk_HexGroupToString(dst, src, 5);
    EXPECT_STREQ(dst, "00129BC47E");
    char empty[1] = {'x'};
    Vk_HexGroupToString(empty, src, 0);
    EXPECT_STREQ(empty, "");
}

TEST(Hex2Str, ThreeCharactersPerByteNothingAfterLastBlank) {
    const uint8_t src[] = {0x0A, 0xFF, 0x00};
    char dst[12];
    memset(dst, '#', sizeof dst);
    _hex2str(src, 3, dst);
    EXPECT_EQ(std::string(dst, 9), "0A FF 00 ");
    EXPECT_EQ(dst[9], '#');  // no terminator written
}

TEST(Hex2Str, PreZeroedBufferGivesText) {
    const uint8_t src[] = {0xDE, 0xAD};
    char dst[7] = {0};
    _hex2str(src, 2, dst);
    EXPECT_STREQ(dst, "DE AD ");
}

TEST(PrintfRawData, OneStampedLine) {
    const uint8_t data[] = {0x01, 0x02, 0xAB};
    testing::internal::CaptureStdout();
    printf_raw_data("send", data, 3);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out, "[SSS.mmm] ymodem: [send](3): 01 02 AB \n");
}

TEST(PrintfRawData, EmptyData) {
    const uint8_t data[] = {0};
    testing::internal::CaptureStdout();
    printf_raw_data("recv", data, 0);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out, "[SSS.mmm] ymodem: [recv](0): \n");
}

TEST(PrintfRawData, FullBlock) {
    std::vector<uint8_t> data(133);
    std::string expected_hex;
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = uint8_t(i);
        char h[4];
        snprintf(h, sizeof h, "%02X ", unsigned(i));
        expected_hex += h;
    }
    testing::internal::CaptureStdout();
    printf_raw_data("blk", data.data(), uint32_t(data.size()));
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out, "[SSS.mmm] ymodem: [blk](133): " + expected_hex + "\n");
}

// ---- paths ------------------------------------------------------------------------

namespace {
struct Split {
    std::string dir;
    std::string name;
};
Split split(const char *path) {
    std::vector<char> dir(strlen(path) + 1, '#');
    std::vector<char> name(strlen(path) + 1, '#');
    Vk_SplitFilenameAndPath(path, dir.data(), name.data());
    return {std::string(dir.data()), std::string(name.data())};
}
}  // namespace

TEST(SplitFilenameAndPath, SlashSeparatedPath) {
    Split s = split("/data/epo/EPO_GR_3.DAT");
    EXPECT_EQ(s.dir, "/data/epo/");
    EXPECT_EQ(s.name, "EPO_GR_3.DAT");
}

TEST(SplitFilenameAndPath, BackslashBeforeLaterSlashSplitsAtSlash) {
    Split s = split("C:\\agnss\\files/eph.rtcm");
    EXPECT_EQ(s.dir, "C:\\agnss\\files/");
    EXPECT_EQ(s.name, "eph.rtcm");
}

TEST(SplitFilenameAndPath, SlashBeforeLaterBackslashStillSplitsAtSlash) {
    // A backslash is looked at only when there is no slash at all.
    Split s = split("dir/sub\\file.dat");
    EXPECT_EQ(s.dir, "dir/");
    EXPECT_EQ(s.name, "sub\\file.dat");
}

TEST(SplitFilenameAndPath, BackslashOnly) {
    Split s = split("C:\\agnss\\EPO.DAT");
    EXPECT_EQ(s.dir, "C:\\agnss\\");
    EXPECT_EQ(s.name, "EPO.DAT");
}

TEST(SplitFilenameAndPath, BareNameGivesEmptyDirectory) {
    Split s = split("EPO.DAT");
    EXPECT_EQ(s.dir, "");
    EXPECT_EQ(s.name, "EPO.DAT");
}

TEST(SplitFilenameAndPath, RootAndTrailingSeparator) {
    Split s = split("/f");
    EXPECT_EQ(s.dir, "/");
    EXPECT_EQ(s.name, "f");
    s = split("/tmp/dir/");
    EXPECT_EQ(s.dir, "/tmp/dir/");
    EXPECT_EQ(s.name, "");
}

// ---- the summary lines ------------------------------------------------------------------

TEST(PrintfAgnssInfo, SampleRecordPrintsSixExactLines) {
    VkAgnssInfo info{};
    info.sys_mask = 3;
    info.file_size = 27648;
    info.segment_count = 12;
    info.valid_days = 3.0f;
    // Week 2300 starts 2024-02-04 00:00:00; Tuesday 06:30:07 and three days later.
    info.start_gps_s = 2300ull * 604800 + 196207;
    info.end_gps_s = 2300ull * 604800 + 455407;
    EXPECT_EQ(print_info(info),
              "[SSS.mmm][INFO] [EPO INFO] Type: GPS + GLONASS \r\n"
              "[SSS.mmm][INFO] [EPO INFO] File Size: 27648\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Segment: 12\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Valid Days: 3.00\r\n"
              "[SSS.mmm][INFO] [EPO INFO] GPST: (Week 2300 Tow 196207)~(Week 2300 Tow 455407)\r\n"
              "[SSS.mmm][INFO] [EPO INFO] UTC: (2024-02-06 06:00:00)~(2024-02-09 06:00:00)\n");
}

TEST(PrintfAgnssInfo, UtcLineShowsHoursOnlyAcrossTheYear) {
    VkAgnssInfo info{};
    info.sys_mask = 1;
    info.file_size = 9216;
    info.segment_count = 4;
    info.valid_days = 2.25f;
    // Week 2295 starts 2023-12-31 00:00:00: 23:59:59 that day, and 2024-01-03 05:20:34.
    info.start_gps_s = 2295ull * 604800 + 86399;
    info.end_gps_s = 2295ull * 604800 + 278434;
    EXPECT_EQ(print_info(info),
              "[SSS.mmm][INFO] [EPO INFO] Type: GPS \r\n"
              "[SSS.mmm][INFO] [EPO INFO] File Size: 9216\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Segment: 4\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Valid Days: 2.25\r\n"
              "[SSS.mmm][INFO] [EPO INFO] GPST: (Week 2295 Tow 86399)~(Week 2295 Tow 278434)\r\n"
              "[SSS.mmm][INFO] [EPO INFO] UTC: (2023-12-31 23:00:00)~(2024-01-03 05:00:00)\n");
}

TEST(PrintfAgnssInfo, WeekBoundaryAndNoLeapSeconds) {
    VkAgnssInfo info{};
    info.sys_mask = 9;
    info.file_size = 0;
    info.segment_count = 0;
    info.valid_days = 0.0f;
    // Saturday 2024-02-10 20:00:00 to Sunday 2024-02-11 01:00:00 (week 2301 begins).
    info.start_gps_s = 2300ull * 604800 + 590400;
    info.end_gps_s = 2301ull * 604800 + 3600;
    EXPECT_EQ(print_info(info),
              "[SSS.mmm][INFO] [EPO INFO] Type: GPS + BDS \r\n"
              "[SSS.mmm][INFO] [EPO INFO] File Size: 0\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Segment: 0\r\n"
              "[SSS.mmm][INFO] [EPO INFO] Valid Days: 0.00\r\n"
              "[SSS.mmm][INFO] [EPO INFO] GPST: (Week 2300 Tow 590400)~(Week 2301 Tow 3600)\r\n"
              "[SSS.mmm][INFO] [EPO INFO] UTC: (2024-02-10 20:00:00)~(2024-02-11 01:00:00)\n");
}

TEST(PrintfAgnssInfo, EpochStartPrintsGpsEpochDate) {
    std::string out = print_info(info_with_mask(1));
    EXPECT_NE(out.find("GPST: (Week 0 Tow 0)~(Week 0 Tow 21600)\r\n"), std::string::npos);
    EXPECT_NE(out.find("UTC: (1980-01-06 00:00:00)~(1980-01-06 06:00:00)\n"), std::string::npos);
}

TEST(PrintfAgnssInfo, EmptyMaskIsInvalid) {
    EXPECT_EQ(type_line(0), "[SSS.mmm][INFO] [EPO INFO] Type: INVALID\r\n");
}

TEST(PrintfAgnssInfo, AllFourSystemsWithOneTrailingBlank) {
    EXPECT_EQ(type_line(15), "[SSS.mmm][INFO] [EPO INFO] Type: GPS + GLONASS + GALILEO + BDS \r\n");
}

TEST(PrintfAgnssInfo, SingleSystems) {
    EXPECT_EQ(type_line(1), "[SSS.mmm][INFO] [EPO INFO] Type: GPS \r\n");
    EXPECT_EQ(type_line(2), "[SSS.mmm][INFO] [EPO INFO] Type: GLONASS \r\n");
    EXPECT_EQ(type_line(4), "[SSS.mmm][INFO] [EPO INFO] Type: GALILEO \r\n");
    EXPECT_EQ(type_line(8), "[SSS.mmm][INFO] [EPO INFO] Type: BDS \r\n");
    EXPECT_EQ(type_line(12), "[SSS.mmm][INFO] [EPO INFO] Type: GALILEO + BDS \r\n");
}

TEST(PrintfAgnssInfo, BitsAboveTheFourSystemsAreIgnored) {
    EXPECT_EQ(type_line(0x10), "[SSS.mmm][INFO] [EPO INFO] Type: INVALID\r\n");
    EXPECT_EQ(type_line(0x11), "[SSS.mmm][INFO] [EPO INFO] Type: GPS \r\n");
}

TEST(PrintfAgnssInfo, EveryLineIsStampedWithItsOwnEnding) {
    std::string out = print_info(info_with_mask(3));
    // Six stamped lines, five CR LF endings and a bare LF at the end.
    size_t stamps = 0;
    for (size_t p = out.find("[SSS.mmm][INFO] [EPO INFO] "); p != std::string::npos;
         p = out.find("[SSS.mmm][INFO] [EPO INFO] ", p + 1))
        ++stamps;
    EXPECT_EQ(stamps, 6u);
    size_t crlf = 0;
    for (size_t p = out.find("\r\n"); p != std::string::npos; p = out.find("\r\n", p + 1)) ++crlf;
    EXPECT_EQ(crlf, 5u);
    ASSERT_GE(out.size(), 7u);
    EXPECT_EQ(out.substr(out.size() - 7), "00:00)\n");
}
