// Clocks, log stamps, our getopt, the backend option grammar, exit statuses.
#include <gtest/gtest.h>

#include "tests/support/stamp_mask.h"

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "core/getopt.h"
#include "core/log.h"
#include "core/options.h"
#include "core/result.h"

namespace {

// argv built from words; argv[0] is the program.
struct Args {
    std::vector<std::string> words;
    std::vector<char *> ptrs;
    explicit Args(std::vector<std::string> w) : words(std::move(w)) {
        words.insert(words.begin(), "vkagnss");
        for (std::string &s : words) ptrs.push_back(&s[0]);
        ptrs.push_back(nullptr);
    }
    int argc() const { return int(words.size()); }
    char **argv() { return ptrs.data(); }
};

const VkOptionRules kCommon = {.optstring = "m:o:p:b:f::b:s::u::l::R:T:"};

}  // namespace

// --- clocks and stamps --------------------------------------------------------

TEST(Clock, FirstReadingFixesTheOrigin) {
    uint64_t origin = 0;
    EXPECT_EQ(vk_elapsed_since(&origin, 5000), 0u);
    EXPECT_EQ(origin, 5000u);
    EXPECT_EQ(vk_elapsed_since(&origin, 6234), 1234u);
    EXPECT_EQ(origin, 5000u);
}

TEST(Clock, StampOfMilliseconds) {
    char s[24];
    vk_format_stamp(1234, s, sizeof s);
    EXPECT_STREQ(s, "[001.234]");
    vk_format_stamp(0, s, sizeof s);
    EXPECT_STREQ(s, "[000.000]");
    vk_format_stamp(1234567, s, sizeof s);  // the seconds field grows past three digits
    EXPECT_STREQ(s, "[1234.567]");
}

TEST(Clock, FlashToolMsecsCountsFromItsFirstCall) {
    uint32_t a = flash_tool_msecs();
    uint32_t b = flash_tool_msecs();
    EXPECT_GE(b, a);
}

TEST(Clock, ReadingIsTruncatedAndCutTo32Bits) {
    EXPECT_EQ(vk_clock_ms(1234.999), 1234u);
    EXPECT_EQ(vk_clock_ms(4294967296.0 + 5.7), 5u);
    EXPECT_EQ(vk_clock_ms(4294967295.0), 0xFFFFFFFFu);
    EXPECT_LE(Vk_ClockGetTimeMs(), 0xFFFFFFFFull);
}

TEST(Clock, ZeroTimeoutIsReachedAtOnceWithoutWritingElapsed) {
    uint64_t elapsed = 0xDEADBEEF;
    EXPECT_TRUE(Vk_CalculateElapsedTime(Vk_ClockGetTimeMs(), 0, &elapsed));
    EXPECT_EQ(elapsed, 0xDEADBEEFu);
}

TEST(Clock, ElapsedIsWrittenAndComparedWithTheTimeout) {
    uint64_t elapsed = 0xDEADBEEF;
    uint64_t now = Vk_ClockGetTimeMs();
    EXPECT_FALSE(Vk_CalculateElapsedTime(now, 0xFFFFFFFFu, &elapsed));
    EXPECT_LT(elapsed, 0xDEADBEEFu);
    EXPECT_TRUE(Vk_CalculateElapsedTime(now - 50, 50, &elapsed));
    EXPECT_GE(elapsed, 50u);
}

TEST(Clock, SleepTakesMicrosecondsInWholeMilliseconds) {
    EXPECT_EQ(vk_sleep_ms(999), 0u);
    EXPECT_EQ(vk_sleep_ms(1500), 1u);
    EXPECT_EQ(vk_sleep_ms(1000000), 1000u);
    EXPECT_EQ(platform_sleep(999), 0);
}

TEST(Clock, CurrentDateTimeIsUtcWhateverTheLocalZone) {
    setenv("TZ", "JST-9", 1);
    tzset();
    VkDateTime t{};
    time_t before = time(nullptr);
    EXPECT_EQ(Vk_GetCurrentDateTime(&t), 1);
    time_t after = time(nullptr);
    bool matched = false;
    for (time_t s = before; s <= after; ++s) {
        struct tm u {};
        gmtime_r(&s, &u);
        if (t.year == u.tm_year + 1900 && t.month == u.tm_mon + 1 && t.day == u.tm_mday &&
            t.hour == u.tm_hour && t.minute == u.tm_min && t.second == u.tm_sec)
            matched = true;
    }
    EXPECT_TRUE(matched);
    EXPECT_GE(t.month, 1);
    EXPECT_LE(t.month, 12);
    EXPECT_GE(t.millisecond, 0);
    EXPECT_LE(t.millisecond, 999);
    unsetenv("TZ");
    tzset();
}

TEST(Log, LineIsStampedAndKeepsItsOwnEnding) {
    testing::internal::CaptureStdout();
    vk_log("[INFO] Baud rate:%d\n", 115200);
    vk_log("[PROGRESS] %.2f%%\r\n", 12.5);
    vk_log(" RECV ACK ok\n");
    EXPECT_EQ(
        mask_stamps(testing::internal::GetCapturedStdout()),
        "[SSS.mmm][INFO] Baud rate:115200\n[SSS.mmm][PROGRESS] 12.50%\r\n[SSS.mmm] RECV ACK ok\n");
}

// --- exit status ------------------------------------------------------------

TEST(ExitStatus, KeepsFirstAndLastHexDigitOnPosix) {
    EXPECT_EQ(vk_exit_status(0), 0);
    EXPECT_EQ(vk_exit_status(0x102), 0x12);
    EXPECT_EQ(vk_exit_status(0x200), 32);
    EXPECT_EQ(vk_exit_status(0x206), 38);
    EXPECT_EQ(vk_exit_status(0x110), 16);
    EXPECT_EQ(vk_exit_status(0x101), 17);
    EXPECT_EQ(vk_exit_status(0x300), 48);
    EXPECT_EQ(vk_exit_status(0xFFFFFFFFu), 255);
    EXPECT_EQ(vk_exit_status(0x1000), 255);
    EXPECT_EQ(vk_exit_status(0xFFF), 255);
    EXPECT_EQ(vk_exit_status(0x010), 255);  // no kept digit, yet a failure
}

TEST(ExitStatus, NoFailureExitsZero) {
    for (uint32_t r = 1; r < 0x2000; ++r) EXPECT_NE(vk_exit_status(r), 0) << r;
}

// --- getopt -----------------------------------------------------------------

TEST(Getopt, OptionalValueOnlyWhenAttached) {
    Args a({"-sCOLD", "-s", "WARM"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "s::"), 's');
    EXPECT_STREQ(vk_optarg, "COLD");
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "s::"), 's');
    EXPECT_EQ(vk_optarg, nullptr);
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "s::"), -1);  // "WARM" ends the parse
    EXPECT_EQ(vk_optind, 3);
}

TEST(Getopt, RequiredValueTakesTheNextArgumentOrTheAttachedText) {
    Args a({"-p", "COM3", "-b115200", "-c"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:b:c"), 'p');
    EXPECT_STREQ(vk_optarg, "COM3");
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:b:c"), 'b');
    EXPECT_STREQ(vk_optarg, "115200");
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:b:c"), 'c');
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:b:c"), -1);
}

TEST(Getopt, NoPermutation) {
    Args a({"word", "-p", "COM3"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:"), -1);
    EXPECT_EQ(vk_optind, 1);
    EXPECT_STREQ(a.argv()[1], "word");
}

TEST(Getopt, UnknownLetterIsReportedAndSkipped) {
    Args a({"-x", "-p", "COM3"});
    vk_getopt_reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:"), '?');
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "unknown option -- x\n");
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:"), 'p');
}

TEST(Getopt, GroupedFlagsAndMissingValue) {
    Args a({"-cv", "-p"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "cvp:"), 'c');
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "cvp:"), 'v');
    testing::internal::CaptureStderr();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "cvp:"), '?');
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "option requires an argument -- p\n");
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "cvp:"), -1);
}

TEST(Getopt, DoubleDashAndLoneDashEndTheOptions) {
    Args a({"--", "-p", "x"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), "p:"), -1);
    EXPECT_EQ(vk_optind, 2);
    Args b({"-", "-p", "x"});
    vk_getopt_reset();
    EXPECT_EQ(vk_getopt(b.argc(), b.argv(), "p:"), -1);
    EXPECT_EQ(vk_optind, 1);
}

// --- option grammar -----------------------------------------------------------

TEST(Options, StartWayNamesIgnoreCaseButNotLength) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_start_way("cold", &kCommon), 3);
    EXPECT_EQ(vk_parse_start_way("Hot", &kCommon), 1);
    EXPECT_EQ(vk_parse_start_way("WARM", &kCommon), 2);
    EXPECT_EQ(vk_parse_start_way("none", &kCommon), 0);
    EXPECT_EQ(vk_parse_start_way("COLDX", &kCommon), -1);
    EXPECT_EQ(vk_parse_start_way("CO", &kCommon), -1);
    EXPECT_EQ(vk_parse_start_way("FULLCOLD", &kCommon), -1);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(
        out.find("[SSS.mmm][ERROR] Invalid start way:COLDX\n[SSS.mmm][INFO] Start way:COLDX\n"),
        std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] Start way:cold\n"), std::string::npos);
}

TEST(Options, BackendStartWayTable) {
    const VkStartWayName names[] = {
        {"NONE", 0}, {"HOT", 1}, {"WARM", 2}, {"COLD", 3}, {"FULLCOLD", 3}};
    VkOptionRules rules = kCommon;
    rules.start_ways = names;
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_start_way("fullcold", &rules), 3);
    testing::internal::GetCapturedStdout();
}

TEST(Options, LocationFields) {
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.5,121.25,10,5", &kCommon, &pos), 0u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] Ref position:31.5,121.25,10,5\n"
              "[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,PosAcc:5");
    EXPECT_EQ(pos.enable, 1);
    EXPECT_STREQ(pos.lat, "31.5");
    EXPECT_STREQ(pos.lon, "121.25");
    EXPECT_STREQ(pos.alt, "10");
    EXPECT_STREQ(pos.acc, "5");
}

TEST(Options, LocationFieldKeepsSeventeenCharacters) {
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.12345678901234567,1,2,3", &kCommon, &pos), 0u);
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(pos.lat, "31.12345678901234");
}

TEST(Options, LocationCommaCountReportsFields) {
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.5,121.25,10", &kCommon, &pos), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] Ref position:31.5,121.25,10\n"
              "[SSS.mmm][ERROR] Invalid location format, comma count: 3\n");
    EXPECT_EQ(pos.enable, 0);
}

TEST(Options, LocationWithEmptyFieldIsRefusedByTheDoubleCommaRule) {
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.5,,10,5", &kCommon, &pos), 0x102u);
    EXPECT_EQ(
        mask_stamps(testing::internal::GetCapturedStdout()),
        "[SSS.mmm][INFO] Ref position:31.5,,10,5\n"
        "[SSS.mmm][ERROR] Invalid location format, exist \",,\",missing at least one field\n");
}

TEST(Options, LocationMissingLastField) {
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.5,121.25,10,", &kCommon, &pos), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] Ref position:31.5,121.25,10,\n"
              "[SSS.mmm][ERROR] Invalid location, missing PosAcc field\n");
}

TEST(Options, LocationWithoutDoubleCommaCheckReportsTheMissingField) {
    VkOptionRules rules = kCommon;
    rules.skip_double_comma_check = true;
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location("31.5,,,5", &rules, &pos), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] Ref position:31.5,,,5\n"
              "[SSS.mmm][ERROR] Invalid location, missing Altitude field\n");
}

TEST(Options, LocationLengthLimit) {
    std::string s63 = "31.5,121.25,10," + std::string(63 - 15, '5');
    std::string s64 = s63 + "5";
    ASSERT_EQ(s63.size(), 63u);
    VkPosAid pos{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_location(s63.c_str(), &kCommon, &pos), 0u);
    EXPECT_EQ(vk_parse_location(s64.c_str(), &kCommon, &pos), 0x102u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm] Location string too long: " + s64 + "\n"), std::string::npos);
}

TEST(Options, TimeFields) {
    VkTimeAid t{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_time("0,2026-01-08-09:59:17,18,10", &kCommon, &t), 0u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,10\n"
              "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, LeapSec:18, "
              "Accuracy:10\n");
    EXPECT_EQ(t.type, 0);
    EXPECT_EQ(t.leap, 18);
    EXPECT_STREQ(t.utc, "2026-01-08-09:59:17");
    EXPECT_STREQ(t.accuracy, "10");
}

TEST(Options, TimeCommaCountIsTheCountItself) {
    VkTimeAid t{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_time("0,2026-01-08-09:59:17,18", &kCommon, &t), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18\n"
              "[SSS.mmm][ERROR] Invalid time format, comma count: 2\n");
}

TEST(Options, TimeDoubleCommaAndMissingFields) {
    VkTimeAid t{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_time("0,,18,10", &kCommon, &t), 0x102u);
    EXPECT_EQ(vk_parse_time(",0,x,", &kCommon, &t), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] time data:0,,18,10\n"
              "[SSS.mmm][ERROR] Invalid time format, exist \",,\",missing at least one field\n"
              "[SSS.mmm][INFO] time data:,0,x,\n"
              "[SSS.mmm][ERROR] Invalid time, missing LeapSec field\n");
}

TEST(Options, TimeErrorsInAnotherWording) {
    VkOptionRules rules = kCommon;
    rules.time_error_word = "location";
    rules.skip_double_comma_check = true;
    VkTimeAid t{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_time("0,1", &rules, &t), 0x102u);
    EXPECT_EQ(vk_parse_time(",,,", &rules, &t), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][INFO] time data:0,1\n"
              "[SSS.mmm][ERROR] Invalid location format, comma count: 1\n"
              "[SSS.mmm][INFO] time data:,,,\n"
              "[SSS.mmm][ERROR] Invalid location, missing Type field\n");
}

TEST(Options, TimeLengthLimit) {
    std::string s63 = "0,2026-01-08-09:59:17,18," + std::string(63 - 25, '1');
    ASSERT_EQ(s63.size(), 63u);
    VkTimeAid t{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_time(s63.c_str(), &kCommon, &t), 0u);
    EXPECT_STREQ(t.accuracy, "11111111111111111");  // 17 characters kept
    EXPECT_EQ(vk_parse_time((s63 + "1").c_str(), &kCommon, &t), 0x102u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm] Time string too long: " + s63 + "1\n"), std::string::npos);
}

TEST(Options, FullParseAndChecks) {
    Args a({"-m", "DW2207B", "-o", "online", "-p", "COM3", "-b", "115200", "-sWARM", "-fa.rtcm3",
            "-u1,x,0,0", "-l1,2,3,4", "-R", "1", "-T", "0"});
    VkOptions o;
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_options(a.argc(), a.argv(), &kCommon, &o), 0u);
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(o.module, "DW2207B");
    EXPECT_STREQ(o.port, "COM3");
    EXPECT_EQ(o.baud, 115200);
    EXPECT_EQ(o.start_way, 2);
    EXPECT_STREQ(o.file, "a.rtcm3");
    EXPECT_EQ(o.time.type, 1);
    EXPECT_EQ(o.pos.enable, 1);
    EXPECT_TRUE(vk_options_complete(&o));
}

TEST(Options, OptionalValueNotAttachedCountsAsNotGiven) {
    Args a({"-s", "-f", "-u", "-l", "-p", "COM3"});
    VkOptions o;
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_options(a.argc(), a.argv(), &kCommon, &o), 0u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()), "[SSS.mmm][INFO] Port: COM3\n");
    EXPECT_EQ(o.start_way, 0);
    EXPECT_STREQ(o.file, "");
    EXPECT_EQ(o.time.enable, 0);
    EXPECT_EQ(o.pos.enable, 0);
}

TEST(Options, StrayWordEndsTheParse) {
    Args a({"-m", "DW2207B", "-s", "COLD", "-p", "COM3", "-b", "9600"});
    VkOptions o;
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_parse_options(a.argc(), a.argv(), &kCommon, &o), 0u);
    testing::internal::GetCapturedStdout();
    EXPECT_STREQ(o.port, "");
    EXPECT_EQ(o.baud, 0);
    EXPECT_FALSE(vk_options_complete(&o));
}

TEST(Options, ModuleNameKeepsAsManyCharactersAsTheBackendSays) {
    std::string name(80, 'N');
    Args a({"-m", name});
    VkOptions o;
    VkOptionRules rules = kCommon;
    testing::internal::CaptureStdout();
    vk_parse_options(a.argc(), a.argv(), &rules, &o);
    EXPECT_EQ(std::string(o.module), std::string(63, 'N'));
    rules.module_keep = 9;
    vk_parse_options(a.argc(), a.argv(), &rules, &o);
    EXPECT_EQ(std::string(o.module), std::string(9, 'N'));
    testing::internal::GetCapturedStdout();
}

TEST(Options, EachOptionLoggedWhenTheBackendAsks) {
    VkOptionRules rules = kCommon;
    rules.log_each_option = true;
    Args a({"-p", "COM3", "-s"});
    VkOptions o;
    testing::internal::CaptureStdout();
    vk_parse_options(a.argc(), a.argv(), &rules, &o);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][DEBUG] Option -p with argument: COM3\n"
              "[SSS.mmm][INFO] Port: COM3\n"
              "[SSS.mmm][DEBUG] Option -s with argument: \n");
}

TEST(Options, CompletenessChecks) {
    VkOptions o{};
    snprintf(o.port, sizeof o.port, "COM3");
    o.baud = 9600;
    EXPECT_TRUE(vk_options_complete(&o));
    o.time.type = 2;
    EXPECT_FALSE(vk_options_complete(&o));
    o.time.type = 1;
    o.start_way = -1;
    EXPECT_FALSE(vk_options_complete(&o));
    o.start_way = 0;
    o.baud = 0;
    EXPECT_FALSE(vk_options_complete(&o));
    o.baud = 9600;
    o.port[0] = '\0';
    EXPECT_FALSE(vk_options_complete(&o));
}

TEST(Options, FileAccess) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(vk_check_file_access("/nonexistent/file.rtcm3"), 0x103u);
    EXPECT_EQ(vk_check_file_access("/tmp"), 0x103u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Fail to access /nonexistent/file.rtcm3, errno: 2 (No such file or "
              "directory)\n"
              "[SSS.mmm][ERROR] Fail to access /tmp, errno: 21 (Is a directory)\n");
}
