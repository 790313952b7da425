// The entry: banner, the -m/-o/-R/-T/-S scan, dispatch by model and mode,
// the final line and the exit status.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/harness.h"

namespace {

std::string expected_model_list() {
    struct Group {
        const char *base;
        int count;
    };
    const Group groups[] = {{"HD8XXX", 23}, {"AG33XX", 33}, {"STA8100", 28}, {"RZ610MXXXX", 1},
                            {"MJ7XXX", 2},  {"TQ934N", 2},  {"DW2207B", 1}};
    std::string s = "Supported module:\n";
    for (const Group &g : groups) {
        s += std::string(g.base) + "\n";
        for (int i = 1; i < g.count; ++i) {
            char name[32];
            snprintf(name, sizeof name, "%s-%02d\n", g.base, i);
            s += name;
        }
    }
    return s;
}

const char kFailAll[] = "[SSS.mmm][FAIL] vkagnss run fail,ret:[0xffffffff]\n";

}  // namespace

TEST(CoreE2E, NoArgumentsAsksForParameters) {
    ToolRun r = run_tool({});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss.exe -m "
                               "AG33XX -p COM3\n");
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
    EXPECT_EQ(r.err, "");
}

TEST(CoreE2E, OneArgumentIsTooFewEvenWhenItIsDashS) {
    ToolRun r = run_tool({"-S"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss.exe -m "
                               "AG33XX -p COM3\n");
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}

TEST(CoreE2E, SupportedModelsListedInTableOrder) {
    ToolRun r = run_tool({"-S", "x"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + expected_model_list());
    EXPECT_EQ(r.status, expected_status(0));
}

TEST(CoreE2E, DashSAnywhereAfterEarlierOptionsTakeEffect) {
    ToolRun r = run_tool({"-m", "DW2207B", "-R", "1", "-T", "7", "-S", "-o", "online"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] RTS :1\n" +
                               "[SSS.mmm][INFO] DTR :7\n" + expected_model_list());
    EXPECT_EQ(r.status, expected_status(0));
}

TEST(CoreE2E, NonNumericLevelIsZero) {
    ToolRun r = run_tool({"-R", "high", "-S"});
    EXPECT_EQ(mask(r.out),
              std::string(kBanner) + "[SSS.mmm][INFO] RTS :0\n" + expected_model_list());
}

TEST(CoreE2E, ModeWithCapitalIsRefused) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "Online", "-p", "COM3", "-b", "115200"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m DW2207B "
                               "-o online\n" +
                               kFailAll);
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}

TEST(CoreE2E, OfflineModeIsRefusedForDw2207b) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "offline", "-p", "COM3", "-b", "115200"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m DW2207B "
                               "-o online\n" +
                               kFailAll);
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}

TEST(CoreE2E, UnknownModel) {
    ToolRun r = run_tool({"-m", "XY1234", "-o", "online"});
    EXPECT_EQ(mask(r.out),
              std::string(kBanner) +
                  "[SSS.mmm][ERROR] Not support XY1234 or not support Offline Agnss\n" + kFailAll);
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}

TEST(CoreE2E, ModelNameIsCutAtFifteenCharacters) {
    ToolRun r = run_tool({"-m", "DW2207B-ABCDEFGHIJKL", "-o", "online"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Not support DW2207B-ABCDEFG or not support "
                               "Offline Agnss\n" +
                               kFailAll);
}

TEST(CoreE2E, ModelIsMatchedAtItsFullLengthOnly) {
    ToolRun r = run_tool({"-m", "DW2207", "-o", "online"});
    EXPECT_EQ(mask(r.out),
              std::string(kBanner) +
                  "[SSS.mmm][ERROR] Not support DW2207 or not support Offline Agnss\n" + kFailAll);
}

TEST(CoreE2E, ModeIsCutAtSevenCharacters) {
    // "onlineX" keeps seven characters and is not "online".
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "onlineXY"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m DW2207B "
                               "-o online\n" +
                               kFailAll);
}

// HD8XXX online without a file and a baud rate: the summary fails, then the usage line.
std::string hd8xxx_online_usage(const std::string &options) {
    return "[SSS.mmm][INFO] enter HD8XXX Agnss Online\n" + options +
           "[SSS.mmm][ERROR] File format error\n"
           "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as ./vk_agnss -m "
           "HD8XXX-14 -f HD_GPS_BDS.hdb -p COM3 -b 115200 -o online -sHOT, FAIL\n"
           "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n";
}

TEST(CoreE2E, MissingModelLandsOnTheFirstPlatform) {
    // An empty name equals the first empty slot, which lies in the first
    // platform: HD8XXX's online entry runs and refuses the incomplete options.
    ToolRun r = run_tool({"-o", "online", "-p", "COM3"});
    EXPECT_EQ(mask(r.out),
              std::string(kBanner) + hd8xxx_online_usage("[SSS.mmm][INFO] Port: COM3\n"));
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST(CoreE2E, PlatformWithoutInformationEntryRefusesFourArguments) {
    ToolRun r = run_tool({"-m", "DW2207B", "-fEPO_GPS_3_1.DAT"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m DW2207B "
                               "-o online\n" +
                               kFailAll);
}

TEST(CoreE2E, ValueMissingAtTheEndCountsAsNotGiven) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) +
                               "[SSS.mmm][ERROR] Please input param , example ./vkagnss -m DW2207B "
                               "-o online\n" +
                               kFailAll);
    r = run_tool({"-o", "online", "-m"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + hd8xxx_online_usage(""));
    r = run_tool({"-m", "X", "-R"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] RTS :0\n" +
                               "[SSS.mmm][ERROR] Not support X or not support Offline Agnss\n" +
                               kFailAll);
}

TEST(CoreE2E, VeryLongArgumentsDoNotHurt) {
    if (under_wine())
        GTEST_SKIP() << "wine refuses command lines over 32 K characters (the Windows limit), "
                        "and this one has 400 K";
    std::string huge(100000, 'A');
    ToolRun r = run_tool({"-m", huge, "-o", huge, "-R", huge, "-T", huge});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] RTS :0\n" +
                               "[SSS.mmm][INFO] DTR :0\n" +
                               "[SSS.mmm][ERROR] Not support AAAAAAAAAAAAAAA or not support "
                               "Offline Agnss\n" +
                               kFailAll);
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}
