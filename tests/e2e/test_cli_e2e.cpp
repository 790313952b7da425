// The command line as a person meets it: --help and --version standing alone,
// and the warning about a word that no option takes (the usual slip being a
// value written apart from a letter that takes it attached only, -s COLD).
// A warning goes to standard error and changes nothing else: the console
// output and the exit status are those of the same run without the word.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "tests/e2e/epo_expect.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"

namespace {

const char kUsageHead[] = "Usage: vkagnss -m MODEL -o online|offline -p PORT -b BAUD [options]\n";

void expect_usage(const ToolRun &r) {
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    // The usage alone: no banner, no stamped line, no SUCCESS or FAIL line.
    EXPECT_EQ(r.out.rfind(kUsageHead, 0), 0u) << r.out;
    EXPECT_EQ(r.out.find("[INFO]"), std::string::npos);
    EXPECT_EQ(r.out.find("vkagnss run"), std::string::npos);
    // Every platform with the modes it serves, as the platform table says.
    EXPECT_NE(r.out.find("Platforms and the modes each serves:\n"
                         "  HD8XXX      online, offline\n"
                         "  AG33XX      online, offline, file information (-m MODEL -fFILE alone)\n"
                         "  STA8100     online, offline\n"
                         "  RZ610MXXXX  online, offline\n"
                         "  MJ7XXX      online\n"
                         "  TQ934N      online, offline\n"
                         "  DW2207B     online\n"),
              std::string::npos)
        << r.out;
    // Values that some platforms take attached only are shown attached.
    for (const char *option : {"  -m MODEL", "  -o MODE", "  -p PORT", "  -b BAUD", "  -R N, -T N",
                               "  -sWAY", "  -uTYPE,UTC,LEAP,ACC", "  -lLAT,LON,ALT,ACC",
                               "  -fFILE", "  -c ", "  -q ", "  -t TYPE", "  -A TYPE"})
        EXPECT_NE(r.out.find(option), std::string::npos) << option;
    // Where the rest is written down.
    EXPECT_NE(r.out.find("man vkagnss\n"), std::string::npos);
    // The examples write values that must be attached in the attached form.
    EXPECT_NE(r.out.find(" -c -fEPO_GPS_3_1.DAT\n"), std::string::npos);
    EXPECT_EQ(r.out.find("-f EPO_GPS"), std::string::npos);
}

void expect_version(const ToolRun &r) {
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    // The version of the banner ("V1.1.1"), then the build: the compiler's
    // date and time, the compiler and the OS.
    const std::string os = under_wine() ? "Windows" : "Linux";
    EXPECT_TRUE(std::regex_match(
        r.out, std::regex(R"(vkagnss 1\.1\.1 \(built [A-Z][a-z][a-z] [ 0-9]\d \d{4} )"
                          R"(\d\d:\d\d:\d\d, (GCC|clang) [^,]+, )" +
                          os + R"(\)\n)")))
        << r.out;
}

}  // namespace

TEST(CliE2E, HelpPrintsTheUsageAndExitsZero) {
    ToolRun r = run_tool({"--help"});
    expect_usage(r);
}

TEST(CliE2E, DashHIsHelpToo) {
    ToolRun r = run_tool({"-h"});
    expect_usage(r);
    EXPECT_EQ(r.out, run_tool({"--help"}).out);
}

TEST(CliE2E, VersionPrintsTheVersionAndBuildAndExitsZero) {
    expect_version(run_tool({"--version"}));
}

TEST(CliE2E, DashCapitalVIsVersionToo) {
    ToolRun r = run_tool({"-V"});
    expect_version(r);
    EXPECT_EQ(r.out, run_tool({"--version"}).out);
}

TEST(CliE2E, HelpWithMoreWordsIsARunAsBefore) {
    // Only the lone word is help: with another word the entry runs as it
    // always has (no model, so the first platform, and no mode).
    ToolRun r = run_tool({"-h", "x"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m HD8XXX "
                               "-o online\n"
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0xffffffff]\n");
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFFu));
    EXPECT_EQ(r.err, "");
}

TEST(CliE2E, VersionWithMoreWordsIsARunAsBefore) {
    ToolRun r = run_tool({"--version", "-S"});
    EXPECT_EQ(mask(r.out).rfind(std::string(kBanner) + "Supported module:\nHD8XXX\n", 0), 0u);
    EXPECT_EQ(r.status, 0);
}

class CliStrayE2E : public SimTest {
protected:
    // The same run with and without the stray words, against the receiver
    // started before: the console output and the exit status must not
    // differ. Returns what the receiver got from both runs together.
    SimRecord expect_same_run(const std::vector<std::string> &with,
                              const std::vector<std::string> &without, const std::string &warning) {
        ToolRun a = run_tool(with);
        ToolRun b = run_tool(without);
        SimRecord rec = finish();
        EXPECT_EQ(a.err, warning);
        EXPECT_EQ(b.err, "");
        EXPECT_EQ(out_of(a), out_of(b));
        EXPECT_EQ(a.status, b.status);
        EXPECT_NE(out_of(b).find(" open uart_fd:<fd>\n"), std::string::npos) << "the port opened";
        return rec;
    }
};

TEST_F(CliStrayE2E, SeparateStartWayOnAg33xxIsReported) {
    start_sim("ag33xx", SimFaults());
    SimRecord rec = expect_same_run(
        tool_args("AG33XX", "online", {"-s", "COLD"}), tool_args("AG33XX", "online", {"-s"}),
        "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
    EXPECT_TRUE(rec.raw.empty()) << "no restart in either run";
}

TEST_F(CliStrayE2E, SeparateFileOnDw2207bIsReported) {
    start_sim("dw2207b", SimFaults());
    std::string path = dir() + "/eph.rtcm3";
    write_file(path, std::string("not sent"));
    SimRecord rec = expect_same_run(
        tool_args("DW2207B", "online", {"-f", path}), tool_args("DW2207B", "online", {"-f"}),
        "warning: '" + path + "' was ignored: -f takes its value attached, as -f" + path + "\n");
    EXPECT_EQ(std::string(rec.raw.begin(), rec.raw.end()).find("not sent"), std::string::npos);
}

TEST_F(CliStrayE2E, OptionsAfterTheStrayWordAreNamed) {
    start_sim("ag33xx", SimFaults());
    // Parsing ends at the stray word, so the file after it is not sent either.
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VGps));
    SimRecord rec =
        expect_same_run(tool_args("AG33XX", "online", {"-s", "HOT", "-f" + f.path}),
                        tool_args("AG33XX", "online", {"-s"}),
                        "warning: 'HOT' was ignored: -s takes its value attached, as -sHOT\n"
                        "warning: the options after 'HOT' were not read: -f" +
                            f.path + "\n");
    EXPECT_TRUE(rec.raw.empty()) << "no restart and no record in either run";
}

TEST_F(CliStrayE2E, StrayWordAfterAFlag) {
    start_sim("rz610mxxxx", SimFaults());
    // The clear before the stray word is taken: both runs send it.
    SimRecord rec = expect_same_run(tool_args("RZ610MXXXX", "offline", {"-c", "now"}),
                                    tool_args("RZ610MXXXX", "offline", {"-c"}),
                                    "warning: 'now' was ignored: -c takes no value\n");
    EXPECT_FALSE(rec.raw.empty());
}

TEST_F(CliStrayE2E, StrayWordAfterASeparateValue) {
    start_sim("ag33xx", SimFaults());
    SimRecord rec =
        expect_same_run(tool_args("AG33XX", "online", {"extra"}), tool_args("AG33XX", "online", {}),
                        "warning: 'extra' was ignored: no option takes it\n");
    EXPECT_TRUE(rec.raw.empty());
}

TEST(CliE2E, EntryOptionsAfterTheStrayWordAreNotNamed) {
    // -o still chooses the mode wherever it stands; what the platform misses
    // is its port and baud rate, so it refuses the run as before.
    ToolRun r =
        run_tool({"-m", "AG33XX", "-s", "COLD", "-o", "online", "-p", "COM3", "-b", "9600"});
    EXPECT_EQ(r.err,
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n"
              "warning: the options after 'COLD' were not read: -p COM3 -b 9600\n");
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] enter AG33XX AgnssOnline\n" +
                               "[SSS.mmm][INFO] Module: AG33XX\n" +
                               "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                               "./vk_agnss -m AG33XX -fEPO_GPS_3_1.DAT -p COM3 -b 115200 -o "
                               "online, FAIL\n" +
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST(CliE2E, WordsAfterADoubleDashAreNamed) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "online", "--", "-p", "COM3"});
    EXPECT_EQ(r.err, "warning: the options after '--' were not read: -p COM3\n");
    EXPECT_EQ(r.status, expected_status(0x102));
}

// Ordinary command lines say nothing on standard error.

TEST(CliE2E, NoWarningForSeparateValuesWhereThePlatformTakesThem) {
    std::string dir = make_temp_dir();
    std::string path = dir + "/HD_GPS_BDS.hdb";
    write_file(path, std::vector<uint8_t>());
    ToolRun r = run_tool({"-m", "HD8XXX", "-o", "online", "-p", "/nonexistent/tty", "-b", "115200",
                          "-s", "COLD", "-u", "0,2026-01-08-09:59:17,18,10", "-l",
                          "31.5,121.25,10,5", "-f", path, "-q"});
    remove_tree(dir);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);

    r = run_tool({"-m", "TQ934N", "-o", "online", "-s", "HOT", "-l", "31.5,121.2,10,5", "-q"});
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);

    // No port (and for STA8100 no file): refused after parsing, with nothing
    // on standard error.
    r = run_tool({"-m", "MJ7XXX", "-o", "online", "-b", "115200", "-s", "COLD", "-l",
                  "1,31.5,121.25,10,5", "-A", "1,31.5,121.25,10,2026-01-08-09:59:17,18"});
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, expected_status(0x102));
    r = run_tool({"-m", "STA8100", "-o", "offline", "-b", "115200", "-t", "rtcm", "-u", "0"});
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, expected_status(0x103));  // no file: refused before the port is looked at
}

TEST(CliE2E, NoWarningForTheFileInformationShape) {
    std::string dir = make_temp_dir();
    EpoFile f = make_epo(dir, epo_cfg(EpoGenKind::Gps));
    ToolRun r = run_tool({"-m", "AG33XX", "-f" + f.path});
    remove_tree(dir);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}

TEST_F(CliStrayE2E, NoWarningForAttachedValuesOnAg33xx) {
    start_sim("ag33xx", SimFaults());
    ToolRun r = run_tool(tool_args("AG33XX", "offline",
                                   {"-R", "1", "-T", "0", "-c", "-sCOLD",
                                    "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5"}));
    finish();
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
}
