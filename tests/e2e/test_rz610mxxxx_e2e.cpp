// RZ610MXXXX end to end: the EPO engine with "$PVNK" commands, against the
// virtual RZ610MXXXX receiver over a pseudo-terminal.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "tests/e2e/epo_expect.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"

namespace {

// "$PVNKEPO,<mode>,<prn>,<18 x %08X>" as the receiver must get it.
std::string pvnk_epo(int mode, int prn, const std::vector<uint8_t> &rec) {
    char buf[16];
    std::string s = "$PVNKEPO," + std::to_string(mode) + "," + std::to_string(prn);
    for (int w = 0; w < 18; ++w) {
        snprintf(buf, sizeof buf, ",%08X", le32_at(&rec[size_t(4 * w)]));
        s += buf;
    }
    return nmea_sentence(s);
}

class Rz610E2E : public SimTest {
protected:
    void start(const SimFaults &faults = SimFaults()) { start_sim("rz610mxxxx", faults); }

    std::vector<std::string> args(const char *mode, const std::vector<std::string> &extra) const {
        return tool_args("RZ610MXXXX", mode, extra);
    }
};

const char kOpen[] = "[SSS.mmm] open uart_fd:<fd>\n";
const char kSuccess[] = "[SSS.mmm][SUCCESS] vkagnss run success\n";

std::string option(char letter, const std::string &value) {
    return std::string("[SSS.mmm][DEBUG] Option -") + letter + " with argument: " + value + "\n";
}

std::string success(const std::string &body) {
    return "[SSS.mmm][DEBUG] command execution success: " + body + "\n";
}

}  // namespace

TEST_F(Rz610E2E, OnlineInjectionLogsEveryOption) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VelpoGps, 1));
    ToolRun r = run_tool(args(
        "online", {"-sHOT", "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5", "-f" + f.path}));
    SimRecord rec = finish();

    const std::string hot = nmea_sentence("$PVNKHOT");
    const std::string time = nmea_sentence("$PVNKAIDTIME,1,18,2026,1,8,9,59,17,0,,0");
    const std::string pos = nmea_sentence("$PVNKAIDPOS,1,31.500000,121.250000,10.0,0.0");
    std::vector<std::string> expected = {hot, time, pos};
    auto records = records_of(f.bytes);
    std::string record_lines;
    uint32_t sent = 0;
    for (const auto &rc : records) {
        expected.push_back(pvnk_epo(1, rc[3], rc));
        sent += 72;
        record_lines += "[SSS.mmm][DEBUG] Send VEPO cmd: " + expected.back() + "\n" +
                        success("$PVNKEPO,OK") + epo_progress(sent, uint32_t(f.bytes.size()));
    }
    EXPECT_EQ(rec.sentences, expected);
    EXPECT_EQ(rec.epo_records, records);
    EXPECT_EQ(rec.prn_errors, 0u);

    std::string echoed;
    EXPECT_EQ(
        out_of(r, &echoed),
        std::string(kBanner) + "[SSS.mmm][INFO] enter RZ610MXXXX AgnssOnline\n" +
            option('m', "RZ610MXXXX") + "[SSS.mmm][INFO] Module: RZ610MXXXX\n" +
            option('o', "online") + option('p', port_) + "[SSS.mmm][INFO] Port: " + port_ + "\n" +
            option('b', "115200") + "[SSS.mmm][INFO] Baud rate:115200\n" + option('s', "HOT") +
            "[SSS.mmm][INFO] Start way:HOT\n" + option('u', "0,2026-01-08-09:59:17,18,10") +
            "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,10\n" +
            "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, LeapSec:18, "
            "Accuracy:10\n" +
            option('l', "31.5,121.25,10,5") + "[SSS.mmm][INFO] Ref position:31.5,121.25,10,5\n" +
            "[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,Accuracy:5\n" +
            option('f', f.path) + "[SSS.mmm][INFO] all file: " + f.path + "\n" +
            "[SSS.mmm] Only one epo file need to inject\n" + "[SSS.mmm] index:1,file:" + f.path +
            "\n" + kOpen + "[SSS.mmm][INFO] send cmd:" + hot + "\n" +
            "[SSS.mmm][INFO] RZ610MXXXX Send StartWay ret: 0x0\n" +
            "[SSS.mmm][INFO] send cmd: " + time + "\n" + success("$PVNKAIDTIME,OK") +
            "[SSS.mmm][INFO] RZ610MXXXX Send Time ret: 0x0\n" +
            "[SSS.mmm][DEBUG] lat: 31.500000,lon: 121.250000,altitude:10.000000\n" +
            "[SSS.mmm][INFO] send cmd: " + pos + "\n" + success("$PVNKAIDPOS,OK") +
            "[SSS.mmm][INFO] RZ610MXXXX Send Pos ret: 0x0\n" + decode_block(f) +
            "[SSS.mmm][INFO] Sending VELPO_GPS.DAT to module ...\n" + epo_progress(0, 1) +
            record_lines + "[SSS.mmm][INFO] send VELPO_GPS.DAT OK\n" +
            "[SSS.mmm][INFO] RZ610MXXXX Send EphData [1] times, ret: 0x0\n" + kSuccess);
    EXPECT_NE(echoed.find("GGA"), std::string::npos);  // the restart shows as position output
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, TimeFromTheComputerClockHasNoLeapSecondsAndAnEmptyEleventhField) {
    start();
    ToolRun r = run_tool(args("online", {"-u1,now,18,10"}));
    SimRecord rec = finish();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        rec.sentences[0],
        std::regex(
            R"(\$PVNKAIDTIME,1,-1,20\d\d,\d{1,2},\d{1,2},\d{1,2},\d{1,2},\d{1,2},0,,0\*[0-9A-F]{2}\r\n)")))
        << rec.sentences[0];
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, FullColdIsTheColdRestart) {
    start();
    ToolRun r = run_tool(args("online", {"-sFULLCOLD"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea_sentence("$PVNKCOLD")}));
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, SilentReceiverNeverShowsTheRestart) {
    SimFaults f;
    f.silent = true;
    start(f);
    ToolRun r = run_tool(args("online", {"-sWARM", "-u0,2026-01-08-09:59:17,18,10"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea_sentence("$PVNKWARM")}));
    EXPECT_NE(out_of(r).find("[SSS.mmm][INFO] RZ610MXXXX Send StartWay ret: 0x200\n"
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Rz610E2E, ReplyWithoutOkIsARefusal) {
    SimFaults f;
    f.refuse = true;
    f.repeat_ms = 100;
    start(f);
    ToolRun r = run_tool(args("online", {"-u0,2026-01-08-09:59:17,18,10"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences.size(), 1u);
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] coammand execution failed: $PVNKAIDTIME,FAIL\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] RZ610MXXXX Send Time ret: 0x110\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x110]\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x110));
}

TEST_F(Rz610E2E, OnlineGpsGlonassFileSendsTwoHalvesWithTheirModes) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VelpoGr));
    ToolRun r = run_tool(args("online", {"-f" + f.path}));
    SimRecord rec = finish();
    auto records = records_of(f.bytes);
    ASSERT_EQ(rec.sentences.size(), 56u) << out_of(r) << r.err;
    EXPECT_EQ(rec.sentences[0], pvnk_epo(1, records[0][3], records[0]));
    EXPECT_EQ(rec.sentences[32], pvnk_epo(2, records[32][3] - 64, records[32]));
    EXPECT_EQ(rec.epo_records,
              std::vector<std::vector<uint8_t>>(records.begin(), records.begin() + 56));
    EXPECT_EQ(rec.prn_errors, 0u);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, OnlineGlonassFileChecksEveryRecordAgainstItsSlot) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VelpoGlo, 2));
    ToolRun r = run_tool(args("online", {"-f" + f.path}));
    SimRecord rec = finish();
    auto records = records_of(f.bytes);
    EXPECT_EQ(rec.epo_records, records);
    ASSERT_EQ(rec.sentences.size(), 48u);
    EXPECT_EQ(rec.sentences[25], pvnk_epo(2, 2, records[25]));
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, QzssRecordsAreRefusedByThePrnCheck) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VelpoQzss, 1));
    ToolRun r = run_tool(args("online", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.sentences.empty());
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Svid = 1,sv_prn = 0, is diff\n"
                             "[SSS.mmm][ERROR] send VELPO_QZSS.DAT failed"
                             "[SSS.mmm][INFO] RZ610MXXXX Send EphData [1] times, ret: 0x102\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Rz610E2E, OfflineGalileoFileNamedForZeroDays) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::ElpoGal, 1));
    ASSERT_EQ(f.name, "ELPO_GAL_3.DAT");
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin E", "end E"}));
    EXPECT_EQ(rec.frames.front(), epo_frame(1200, marker_payload('E', 2)));
    EXPECT_EQ(rec.epo_records, records_of(f.bytes, 72));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm] EPO type:2,day count:0\n"), std::string::npos);
    EXPECT_NE(
        out.find("[SSS.mmm][INFO] RZ610MXXXX Send EphFile ret: 0x0\n" + std::string(kSuccess)),
        std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, OfflineGlonassOnlyFileWithItsLetter) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::ElpoGlo, 2));
    ToolRun r = run_tool(args("offline", {"-c", "-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea_sentence("$PVNKEPOCLR")}));
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin R", "end R"}));
    EXPECT_EQ(rec.epo_records, records_of(f.bytes));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm] cmd: " + nmea_sentence("$PVNKEPOCLR") + "\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] RZ610MXXXX ClearEph ret: 0x0\n"), std::string::npos);
    // The file decoder knows no GLONASS-only kind; the name decides the transfer.
    EXPECT_NE(out.find("[SSS.mmm][INFO] [EPO INFO] Type: INVALID\r\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Rz610E2E, OfflineEntryKeepsNineCharactersOfTheModuleAndWordsTimeErrorsAsLocation) {
    port_ = "COM3";
    ToolRun r = run_tool(args("offline", {"-u0,1"}));
    EXPECT_EQ(out_of(r), std::string(kBanner) + "[SSS.mmm][INFO] enter RZ610MXXXX Agnss Offline\n" +
                             "[SSS.mmm][INFO] Module: RZ610MXXX\n" +
                             "[SSS.mmm][INFO] Port: COM3\n" + "[SSS.mmm][INFO] Baud rate:115200\n" +
                             "[SSS.mmm][INFO] time data:0,1\n" +
                             "[SSS.mmm][ERROR] Invalid location format, comma count: 1\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    r = run_tool(args("offline", {"-u,,,"}));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Invalid location, missing Type field\n"),
              std::string::npos);
}

TEST_F(Rz610E2E, EmptyFieldsAreCaughtAsMissingFields) {
    port_ = "COM3";
    ToolRun r = run_tool(args("online", {"-l31.5,,10,5"}));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] Ref position:31.5,,10,5\n"
                       "[SSS.mmm][ERROR] Invalid location, missing PosAcc field\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find(",,\",missing"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Rz610E2E, OnlineUsageError) {
    ToolRun r = run_tool({"-m", "RZ610MXXXX", "-o", "online", "-b", "9600"});
    EXPECT_NE(
        out_of(r).find("[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as -m "
                       "RZ610Mxxxx -f firmware -p COM1 -b 115200, FAIL\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n"),
        std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Rz610E2E, OfflineEntryHasNoInformationEntry) {
    // Four arguments without a mode: this platform has no information entry.
    ToolRun r = run_tool({"-m", "RZ610MXXXX", "-fELPO_GPS_3.DAT"});
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Please input param , example ./vkagnss -m "
                             "RZ610MXXXX -o online\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
}
