// Where C libraries differ (Windows' msvcrt and glibc): numbers in and out
// must come out the same on every OS. Run natively and, with VK_TEST_WINE,
// against vkagnss.exe under wine.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"
#include "tools/pstm_gen.h"

namespace {

class PortabilityE2E : public SimTest {};

}  // namespace

// Seconds past 2^32 (a week whose 32-bit product lands near the top, as the
// summary computes it) are printed whole: long has only 32 bits on Windows.
TEST_F(PortabilityE2E, SecondsPastThirtyTwoBitsArePrintedWhole) {
    start_sim("sta8100", SimFaults());
    PstmGenConfig cfg;
    cfg.sats = 1;
    cfg.week = 13681;  // 0x3571: hex digits the summary reads as written
    cfg.toe = 0;
    const std::string path = dir() + "/eph.txt";
    write_file(path, pstmgen_generate(cfg));
    ToolRun r = run_tool(tool_args("STA8100", "online", {"-t", "nmea", "-f", path}));
    finish();
    EXPECT_EQ(r.status, expected_status(0));
    // 13681 x 604800 = 8274268800, kept to 32 bits: 3979301504; then
    // + 315964800 (the GPS epoch) - 18 (leap seconds) + 0 (toe) = 4295266286.
    const std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][DEBUG] weeknum: 13681, toe: 0\n"
                       "[SSS.mmm][DEBUG] GpsTimeStartSec: 4295266286\n"
                       "[SSS.mmm][DEBUG] GpsTimeEndSec: 4295273486\n"),
              std::string::npos)
        << out;
}

// Levels past the 64-bit range: msvcrt's atoi keeps counting in 32 bits,
// glibc's stops at the largest 64-bit value (kept to 32 bits: -1 and 0).
TEST(PortabilityOptionsE2E, LevelsPastSixtyFourBits) {
    ToolRun r =
        run_tool({"-R", "99999999999999999999999", "-T", "-99999999999999999999999", "-S", "x"});
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(mask(r.out).rfind(std::string(kBanner) + "[SSS.mmm][INFO] RTS :-1\n" +
                                    "[SSS.mmm][INFO] DTR :0\n" + "Supported module:\n",
                                0),
              0u)
        << r.out;
}

// A year past 32 bits: mingw's sscanf stops at 2147483647, glibc's keeps the
// low 32 bits (99999999999 = 0x174876E7FF, so 0x4876E7FF = 1215752191).
TEST_F(PortabilityE2E, YearPastThirtyTwoBitsKeepsItsLowBits) {
    start_sim("hd8xxx", SimFaults());
    ToolRun r =
        run_tool(tool_args("HD8XXX", "online", {"-u", "0,99999999999-01-08-09:59:17,18,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], nmea_sentence("$PVNKAIDTIME,1,18,1215752191,1,8,9,59,17,0,5,0"));
}
