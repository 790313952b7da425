// HD8XXX and MJ7XXX end to end: the real binary, a real pseudo-terminal and
// the virtual receiver. Each test checks what the receiver got, the console
// lines (stamps masked) and the exit status.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include <string>
#include <vector>

#include "hd8xxx/hd8xxx.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"
#include "tools/hdb_gen.h"
#include "tools/rtcm_gen.h"

namespace {

const char kSuccess[] = "[SSS.mmm][SUCCESS] vkagnss run success\n";

bool exists(const std::string &path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

std::vector<uint8_t> bytes(std::span<const uint8_t> s) { return {s.begin(), s.end()}; }

bool contains(const std::vector<uint8_t> &hay, const std::vector<uint8_t> &needle) {
    return std::search(hay.begin(), hay.end(), needle.begin(), needle.end()) != hay.end();
}

class HdE2E : public SimTest {
protected:
    std::string hdb(const HdbGenConfig &cfg, const char *name,
                    std::vector<uint8_t> *out = nullptr) {
        std::vector<uint8_t> data = hdbgen_generate(cfg);
        std::string path = dir() + "/" + name;
        write_file(path, data);
        if (out) *out = data;
        return path;
    }
    std::string rtcm(const char *systems, int sats, const char *name,
                     std::vector<uint8_t> *out = nullptr) {
        RtcmGenConfig cfg;
        cfg.systems = systems;
        cfg.sats = sats;
        std::vector<uint8_t> data = rtcmgen_generate(cfg);
        std::string path = dir() + "/" + name;
        write_file(path, data);
        if (out) *out = data;
        return path;
    }
    // Only the input file is left in the test's folder.
    void expect_no_temporary_files() {
        for (const char *n : {"GPS_TMP.rtcm", "BDS_TMP.rtcm", "GPS_TMP.hdb", "BDS_TMP.hdb"})
            EXPECT_FALSE(exists(dir() + "/" + n)) << n;
    }
};

std::vector<std::vector<uint8_t>> records_of(const std::vector<uint8_t> &file, uint8_t id,
                                             size_t size) {
    std::vector<std::vector<uint8_t>> out;
    for (size_t at = 0; at + 6 <= file.size();) {
        size_t len = size_t(file[at + 4]) | size_t(file[at + 5]) << 8;
        if (file[at + 3] == id)
            for (size_t r = 0; r + size <= len; r += size)
                out.emplace_back(file.begin() + long(at + 6 + r),
                                 file.begin() + long(at + 6 + r + size));
        at += 6 + len + 2;
    }
    return out;
}

}  // namespace

// ---- HD8XXX online ---------------------------------------------------------------------------

TEST_F(HdE2E, OnlineNmeaRunSendsEverySentenceAndTheHdbFrames) {
    start_sim("hd8xxx", SimFaults());
    HdbGenConfig cfg;
    cfg.gps_sats = 6;
    cfg.bds_sats = 2;
    std::vector<uint8_t> file;
    std::string path = hdb(cfg, "HD_GPS_BDS.hdb", &file);
    ToolRun r = run_tool(tool_args("HD8XXX", "online",
                                   {"-sCOLD", "-u", "0,2026-01-08-09:59:17,18,5", "-l",
                                    "31.2304,121.4737,10.5,5.0", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    const std::string start = "$PVNKCOLD*07\r\n";
    std::string start_hex;
    for (unsigned char c : start) {
        char h[4];
        snprintf(h, sizeof h, "%02X ", c);
        start_hex += h;
    }
    const std::string time_s = nmea_sentence("$PVNKAIDTIME,1,18,2026,1,8,9,59,17,0,5,0");
    const std::string pos_s = nmea_sentence("$PVNKAIDPOS,1,31.230400,121.473700,10.500000,5.0");
    EXPECT_EQ(
        out_of(r),
        std::string(kBanner) + "[SSS.mmm][INFO] enter HD8XXX Agnss Online\n" +
            "[SSS.mmm][INFO] Module: HD8XXX\n" + "[SSS.mmm][INFO] Port: " + port_ + "\n" +
            "[SSS.mmm][INFO] Baud rate:115200\n" + "[SSS.mmm][INFO] Start way:COLD\n" +
            "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,5\n" +
            "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, LeapSec:18, "
            "Accuracy:5\n" +
            "[SSS.mmm][INFO] Ref position:31.2304,121.4737,10.5,5.0\n" +
            "[SSS.mmm][INFO] Pos Enable:1,Lat:31.2304,Lon:121.4737,Altitude:10.5,"
            "Accuracy:5.0\n" +
            "[SSS.mmm][INFO] File: " + path + "\n" + "[SSS.mmm][INFO] Input Eph: 1\n" +
            "[SSS.mmm][DEBUG] weeknum: 2400, toe: 345600\n" +
            "[SSS.mmm][DEBUG] gps unix timestamp: 1767830382\n" +
            "[SSS.mmm][DEBUG] GpsTimeStartSec: 1767830382\n" +
            "[SSS.mmm][DEBUG] GpsTimeEndSec: 1767837582\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] Type: GPS + BDS\r\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] File Size: 598\r\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] Segment: 3\r\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] Valid Days: 0.083\r\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] GPST: (Week 2400 Tow 345600)~(Week 2400 Tow "
            "352800)\r\n" +
            "[SSS.mmm][INFO] [AGNSS INFO] UTC: (2026-01-07 23:00:00)~(2026-01-08 "
            "01:00:00)\n" +
            "[SSS.mmm] Start cmd:" + start_hex + "[SSS.mmm][INFO] HD8XXX Send StartWay ret: 0x0\n" +
            "[SSS.mmm] cmd: " + time_s + "[SSS.mmm] send $PVNKAIDTIME ok\n" +
            "[SSS.mmm][INFO] HD8XXX Send Time ret: 0x0\n" +
            "[SSS.mmm][INFO] lat: 31.230400,lon: 121.473700,altitude:10.500000\n" +
            "[SSS.mmm] cmd: " + pos_s + "[SSS.mmm] send $PVNKAIDPOS ok\n" +
            "[SSS.mmm][INFO] HD8XXX Send Pos ret: 0x0\n" + "[SSS.mmm][INFO] Enter send eph...\n" +
            "[SSS.mmm] Divide Eph File OK\n" + "[SSS.mmm][PROGRESS] 0.00%\r\n" +
            "[SSS.mmm][INFO] read_len = 333,is right\n" + "[SSS.mmm][PROGRESS] 55.69%\r\n" +
            "[SSS.mmm][INFO] read_len = 73,is right\n" + "[SSS.mmm][PROGRESS] 67.89%\r\n" +
            "[SSS.mmm][INFO] read_len = 192,is right\n" + "[SSS.mmm][PROGRESS] 100.00%\r\n" +
            "[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x0\n" + kSuccess);
    // The start sentence goes out without its NUL, then the two aiding sentences.
    ASSERT_EQ(rec.sentences.size(), 3u);
    EXPECT_EQ(rec.sentences[0], start);
    EXPECT_EQ(rec.sentences[1], time_s);
    EXPECT_EQ(rec.sentences[2], pos_s);
    EXPECT_EQ(rec.hd_gps_records, records_of(file, 0x32, 65));
    EXPECT_EQ(rec.hd_bds_records, records_of(file, 0x33, 92));
    expect_no_temporary_files();
}

TEST_F(HdE2E, OnlineBinaryModelSendsFramesAndTheEightByteStart) {
    start_sim("hd8xxx", SimFaults());
    ToolRun r = run_tool(tool_args(
        "HD8XXX-14", "online",
        {"-sHOT", "-u", "0,2026-01-08-09:59:17,18,5", "-l", "31.2304,121.4737,10.5,5.0"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] HD8XXX-14, HD8XXX-14\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm] Start cmd:F1 D9 06 40 01 00 03 4A [SSS.mmm][INFO] HD8XXX Send "
                       "StartWay ret: 0x0\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] HD8XXX Send Time ret: 1110x0\n"
                       "[SSS.mmm][INFO] HD8XXX Send Time ret: 0x0\n"),
              std::string::npos);
    // No file: the summary fails, and the last step's result (0) is the run's.
    EXPECT_NE(out.find("[SSS.mmm][ERROR] File format error\n"), std::string::npos);
    ASSERT_GE(rec.raw.size(), 8u);
    std::vector<uint8_t> head(rec.raw.begin(), rec.raw.begin() + 8);
    EXPECT_EQ(head, (std::vector<uint8_t>{0xF1, 0xD9, 0x06, 0x40, 0x01, 0x00, 0x03, 0x4A}));
    VkDateTime t{2026, 1, 8, 9, 59, 17, 0};
    uint8_t time_frame[28];
    hd8xxx_time_frame(t, 18, time_frame);
    EXPECT_EQ(std::vector<uint8_t>(rec.raw.begin() + 8, rec.raw.begin() + 36),
              std::vector<uint8_t>(time_frame, time_frame + 28));
    EXPECT_TRUE(rec.sentences.empty());
}

TEST_F(HdE2E, OnlineUsageErrorsAndFullColdAreRefused) {
    start_sim("hd8xxx", SimFaults());
    ToolRun no_baud = run_tool({"-m", "HD8XXX", "-o", "online", "-p", port_, "-sCOLD"});
    EXPECT_EQ(no_baud.status, expected_status(0x102));
    EXPECT_NE(out_of(no_baud).find("[SSS.mmm][ERROR] Failed.Please input parameters correctly, "
                                   "such as ./vk_agnss -m HD8XXX-14 -f HD_GPS_BDS.hdb -p COM3 -b "
                                   "115200 -o online -sHOT, FAIL\n"),
              std::string::npos);
    ToolRun fullcold = run_tool(tool_args("HD8XXX", "online", {"-sFULLCOLD"}));
    EXPECT_EQ(fullcold.status, expected_status(0x102));
    EXPECT_NE(out_of(fullcold).find("[SSS.mmm][ERROR] Invalid start way:FULLCOLD\n"
                                    "[SSS.mmm][INFO] Start way:FULLCOLD\n"),
              std::string::npos);
    EXPECT_TRUE(finish().raw.empty());
}

TEST_F(HdE2E, OnlineTimeFailureDoesNotStopPositionAndEphemeris) {
    SimFaults f;
    f.refuse_prefix = "$PVNKAIDTIME";
    start_sim("hd8xxx", f);
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 5;
    std::string path = hdb(cfg, "HD_GPS.hdb");
    ToolRun r = run_tool(tool_args(
        "HD8XXX", "online",
        {"-u", "0,2026-01-08-09:59:17,18,5", "-l", "31.2304,121.4737,10.5,5.0", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));  // the last step (ephemeris) succeeded
    std::string out = out_of(r);
    // The refusal is one read's verdict (0x202); the wait runs on to its end
    // and returns the last read's, a silent one (0x200).
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Send $PVNKAIDTIME failed,err_code:3\n"
                       "[SSS.mmm][INFO] HD8XXX Send Time ret: 0x200\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] HD8XXX Send Pos ret: 0x0\n"), std::string::npos);
    EXPECT_EQ(rec.hd_gps_records.size(), 5u);
}

TEST_F(HdE2E, NakedHdbFrameStillAdvancesTheProgress) {
    SimFaults f;
    f.refuse = true;
    start_sim("hd8xxx", f);
    HdbGenConfig cfg;
    cfg.systems = "B";
    cfg.bds_sats = 6;
    std::string path = hdb(cfg, "HD_BDS.hdb");
    ToolRun r = run_tool(tool_args("HD8XXX", "online", {"-f", path}));
    finish();
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][WARN] recv ACK-NAK\n[SSS.mmm][PROGRESS] 82.39%\r\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] 100.00%\r\n"), std::string::npos);
}

TEST_F(HdE2E, NameDifferingInCaseIsRefused) {
    start_sim("hd8xxx", SimFaults());
    HdbGenConfig cfg;
    cfg.systems = "G";
    std::string path = hdb(cfg, "hd_gps.hdb");
    ToolRun r = run_tool(tool_args("HD8XXX", "online", {"-f", path}));
    EXPECT_EQ(r.status, expected_status(0x102));
    // The name is refused before the transfer begins.
    EXPECT_EQ(out_of(r).find("Enter send eph"), std::string::npos);
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Invalid file name [hd_gps.hdb]\r\n"
                             "[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x102\n"),
              std::string::npos);
    EXPECT_TRUE(finish().raw.empty());
}

TEST_F(HdE2E, QueryPrintsTheSummaryWithoutOpeningThePort) {
    HdbGenConfig cfg;
    std::string path = hdb(cfg, "empty.hdb");
    write_file(path, std::vector<uint8_t>());
    ToolRun r = run_tool({"-m", "HD8XXX", "-o", "online", "-p", "/nonexistent/tty", "-b", "115200",
                          "-f", path, "-q"});
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] [AGNSS INFO] Type: unkown\r\n"
                       "[SSS.mmm][INFO] [AGNSS INFO] File Size: 0\r\n"
                       "[SSS.mmm][INFO] [AGNSS INFO] Segment: 0\r\n"),
              std::string::npos);
    EXPECT_EQ(out.find("Fail to open"), std::string::npos);
    EXPECT_NE(out.find(kSuccess), std::string::npos);
}

// ---- HD8XXX offline --------------------------------------------------------------------------

TEST_F(HdE2E, OfflineDividedDownloadFillsTheFlash) {
    start_sim("hd8xxx", SimFaults());
    std::vector<uint8_t> gps, bds;
    RtcmGenConfig g;
    g.systems = "G";
    g.sats = 2;
    RtcmGenConfig c;
    c.systems = "C";
    c.sats = 2;
    gps = rtcmgen_generate(g);
    bds = rtcmgen_generate(c);
    std::string path = rtcm("GC", 2, "EPH_GPS_BDS.rtcm");
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-c", "-sCOLD", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    ASSERT_EQ(rec.flash.size(), 2u);
    EXPECT_EQ(rec.flash[0].name, "LTEPHGPS");
    EXPECT_EQ(rec.flash[0].data, gps);
    EXPECT_EQ(rec.flash[1].name, "LTEPHBDS");
    EXPECT_EQ(rec.flash[1].data, bds);
    EXPECT_TRUE(contains(rec.raw, bytes(std::span(kHd8xxxClearFrame))));
    std::string out = out_of(r);
    const std::string g_tmp = dir() + "/GPS_TMP.rtcm", b_tmp = dir() + "/BDS_TMP.rtcm";
    EXPECT_NE(out.find("[SSS.mmm] HD8XXX_ClearEph: recv ACK-ACK ok[SSS.mmm][INFO] HD8XXX Clear "
                       "Eph ret: 0x0\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm] Start cmd:F1 D9 06 40 01 00 01 48 [SSS.mmm][INFO] HD8XXX Send "
                       "StartWay ret: 0x0\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm] Divide Eph File OK\n"
                       "[SSS.mmm] start ymodem cmd: F1 D9 02 41 00 00 43 CB \n"
                       "[SSS.mmm] HD8XXX_WaitYmodemReady: recv ACK-ACK ok"
                       "[SSS.mmm] uart get data : 0x43\n"
                       "[SSS.mmm] ymodem start\n"
                       "[SSS.mmm] " +
                       g_tmp +
                       ",size = 134"
                       "[SSS.mmm] ymodem: SOH send OK\n"
                       "[SSS.mmm][PROGRESS] 0.00%\r\n"
                       "[SSS.mmm][PROGRESS] 48.91%\r\n"
                       "[SSS.mmm] ymodem: STX send OK\n"
                       "[SSS.mmm] ymodem: EOT send OK\n"
                       "[SSS.mmm] ymodem: end-SOH send OK\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm] " + b_tmp +
                       ",size = 140"
                       "[SSS.mmm] ymodem: SOH send OK\n"
                       "[SSS.mmm][PROGRESS] 100.00%\r\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
    expect_no_temporary_files();
}

TEST_F(HdE2E, OfflineWithoutFileOpensThePortAndSendsNothing) {
    start_sim("hd8xxx", SimFaults());
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-sCOLD"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x107));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] File format error\n"
                       "[SSS.mmm][INFO] Sets baud rate of the UART...\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x107]\n"),
              std::string::npos)
        << out;
    EXPECT_TRUE(rec.raw.empty());
}

TEST_F(HdE2E, OfflineNameWithBothSystemsButOneSystemEndsIn515) {
    start_sim("hd8xxx", SimFaults());
    std::string path = rtcm("G", 2, "EPH_GPS_BDS.rtcm");
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x203));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] ymodem_file_transfer error= -1\n"
                       "[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x203\n"),
              std::string::npos)
        << out;
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].name, "LTEPHGPS");
    expect_no_temporary_files();
}

TEST_F(HdE2E, OfflineMixedFileWithGalileoFailsTheDivision) {
    start_sim("hd8xxx", SimFaults());
    std::string path = rtcm("GCE", 2, "EPH_GPS_BDS.rtcm");
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0xFFFFFFFF));
    std::string g_tmp = dir() + "/GPS_TMP.rtcm", b_tmp = dir() + "/BDS_TMP.rtcm";
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] devide [" + path + "] to [" + g_tmp + "] & [" + b_tmp +
                       "] failed,ret[0xffffffff]\n"),
              std::string::npos)
        << out;
    EXPECT_TRUE(rec.flash.empty());
    expect_no_temporary_files();
}

TEST_F(HdE2E, OfflineLogsEveryByteBeforeTheC) {
    SimFaults f;
    f.ymodem_bytes_before_c = 2;
    start_sim("hd8xxx", f);
    std::string path = rtcm("C", 1, "EPH_BDS.rtcm");
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(out_of(r).find("recv ACK-ACK ok[SSS.mmm] uart get data : 0x78\n"
                             "[SSS.mmm] uart get data : 0x00\n"
                             "[SSS.mmm] uart get data : 0x43\n"
                             "[SSS.mmm] ymodem start\n"),
              std::string::npos)
        << out_of(r);
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].name, "LTEPHBDS");
}

// ---- MJ7XXX ----------------------------------------------------------------------------------

TEST_F(HdE2E, Mj7xxxRunChecksTheRestartAndSendsEveryAid) {
    start_sim("mj7xxx", SimFaults());
    ToolRun r = run_tool(tool_args(
        "MJ7XXX", "online",
        {"-sCOLD", "-u", "0,2026-01-08-09:59:17,18,5", "-l", "2,31.2304,121.4737,10.5,5.0", "-A",
         "4,31.2304,121.4737,10.5,2026-01-08-09:59:17,18"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] send $GNRMC ok, found field=V\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] cmd: $PVNKAIDTIME,1,18,2026,1,8,9,59,17,0,5,0*47\r\n"),
              std::string::npos);
    ASSERT_EQ(rec.sentences.size(), 4u);
    EXPECT_EQ(rec.sentences[0], "$PVNKCOLD*07\r\n");
    // The Type of -l (2) is the aiding mode; the Type of -A (4) has its low bits clear: 1.
    EXPECT_EQ(rec.sentences[2], nmea_sentence("$PVNKAIDPOS,2,31.230400,121.473700,10.500000,5.0"));
    EXPECT_EQ(
        rec.sentences[3].rfind("$PVNKAIDINI,1,31.230400,121.473700,10.500000,2026.0,1,18,", 0), 0u)
        << rec.sentences[3];
}

TEST_F(HdE2E, Mj7xxxFourFieldLocationIsRefused) {
    start_sim("mj7xxx", SimFaults());
    ToolRun r = run_tool(tool_args("MJ7XXX", "online", {"-l", "31.2304,121.4737,10.5,5.0"}));
    EXPECT_EQ(r.status, expected_status(0x102));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Invalid location format, comma count: 4\n"),
              std::string::npos);
    EXPECT_TRUE(finish().raw.empty());
}

TEST_F(HdE2E, Mj7xxxFixAtOnceFailsTheRestartCheck) {
    SimFaults f;
    f.rmc_status = 'A';
    start_sim("mj7xxx", f);
    ToolRun r = run_tool(tool_args("MJ7XXX", "online", {"-sCOLD", "-l", "1,31.2,121.4,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x200));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Send $GNRMC failed, not found field=V\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Check  Locked-out state 'V' failed ret: 0x200\n"),
              std::string::npos);
    ASSERT_EQ(rec.sentences.size(), 1u);  // no aiding after the failed check
}

TEST_F(HdE2E, Mj7xxxSilentReceiverAcceptsPositionAndInitialAiding) {
    SimFaults f;
    f.silent = true;
    start_sim("mj7xxx", f);
    ToolRun r = run_tool(tool_args("MJ7XXX", "online",
                                   {"-l", "1,31.2304,121.4737,10.5,5.0", "-A",
                                    "1,31.2304,121.4737,10.5,2026-01-08-09:59:17,18"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.sentences.size(), 2u);
}

TEST_F(HdE2E, Mj7xxxSilentReceiverFailsTheTimeAiding) {
    SimFaults f;
    f.silent = true;
    start_sim("mj7xxx", f);
    ToolRun r = run_tool(tool_args("MJ7XXX", "online", {"-u", "0,2026-01-08-09:59:17,18,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x200));  // 0x200 after the 5 s wait
    EXPECT_NE(out_of(r).find("[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n"), std::string::npos);
    EXPECT_EQ(rec.sentences.size(), 1u);
}

TEST_F(HdE2E, OnlineStartWayAloneReturnsItsResultDespiteTheFailedSummary) {
    start_sim("hd8xxx", SimFaults());
    ToolRun r = run_tool(tool_args("HD8XXX", "online", {"-s", "COLD"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] File format error\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] HD8XXX Send StartWay ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], "$PVNKCOLD*07\r\n");
}

// ---- more of the HD8XXX edges ----------------------------------------------------------------

TEST_F(HdE2E, HdbOfFullFramesEndsAtExactlyOneHundredPercent) {
    start_sim("hd8xxx", SimFaults());
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 10;
    std::string path = hdb(cfg, "HD_GPS.hdb");
    ToolRun r = run_tool(tool_args("HD8XXX", "online", {"-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(out_of(r).find("[SSS.mmm][PROGRESS] 50.00%\r\n"
                             "[SSS.mmm][INFO] read_len = 333,is right\n"
                             "[SSS.mmm][PROGRESS] 100.00%\r\n"
                             "[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x0\n"),
              std::string::npos);
    EXPECT_EQ(rec.hd_gps_records.size(), 10u);
}

TEST_F(HdE2E, FourRecordLastFrameIsSentButBreaksTheDivision) {
    start_sim("hd8xxx", SimFaults());
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 9;  // frames of 5 and 4 records
    std::string path = hdb(cfg, "HD_GPS.hdb");
    ToolRun r = run_tool(tool_args("HD8XXX", "online", {"-f", path}));
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(out_of(r).find("[SSS.mmm][INFO] read_len = 268,is right\n"
                             "[SSS.mmm][PROGRESS] 100.00%\r\n"),
              std::string::npos);
    // The same frames in a combined file: the division reads 04 01 as 0x14.
    HdbGenConfig both;
    both.gps_sats = 9;
    both.bds_sats = 2;
    std::string combined = hdb(both, "HD_GPS_BDS.hdb");
    ToolRun c = run_tool(tool_args("HD8XXX", "online", {"-f", combined}));
    SimRecord rec = finish();
    EXPECT_EQ(c.status, expected_status(0x206));
    std::string out = out_of(c);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] frame payload len[20] is wrong[SSS.mmm] head buf: "),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("failed,ret[0x206]\n[SSS.mmm][INFO] HD8XXX Send EphData ret: 0x206\n"),
              std::string::npos);
    EXPECT_EQ(rec.hd_gps_records.size(), 9u);  // the first run's
    expect_no_temporary_files();
}

TEST_F(HdE2E, BinaryAidingRefusedIsAckNak) {
    SimFaults f;
    f.refuse = true;
    start_sim("hd8xxx", f);
    ToolRun r = run_tool(tool_args("HD8XXX-15", "online", {"-u", "0,2026-01-08-09:59:17,18,5"}));
    finish();
    EXPECT_EQ(r.status, expected_status(0x107));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] recv ACK-ACK failed,is ACK-NAK,msg[3] = 0x0\n"
                             "[SSS.mmm] return:263\n"
                             "[SSS.mmm][INFO] HD8XXX Send Time ret: 1110x107\n"
                             "[SSS.mmm][INFO] HD8XXX Send Time ret: 0x107\n"),
              std::string::npos)
        << out_of(r);
}

TEST_F(HdE2E, OfflineQueryAndMissingBaudRate) {
    std::string path = rtcm("G", 1, "EPH_GPS.rtcm");
    ToolRun q =
        run_tool({"-m", "HD8XXX", "-o", "offline", "-p", "/nonexistent/tty", "-f", path, "-q"});
    EXPECT_EQ(q.status, expected_status(0));
    EXPECT_NE(out_of(q).find("[SSS.mmm][INFO] [AGNSS INFO] Type: GPS\r\n"), std::string::npos);
    EXPECT_EQ(out_of(q).find("Fail to open"), std::string::npos);
    // Without -b the port is opened at rate 0, which leaves its rate as it is.
    start_sim("hd8xxx", SimFaults());
    ToolRun r = run_tool({"-m", "HD8XXX", "-o", "offline", "-p", port_, "-f", path});
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(out_of(r).find("[SSS.mmm][INFO] Sets baud rate of the UART...\n"), std::string::npos);
    ASSERT_EQ(rec.flash.size(), 1u);
    EXPECT_EQ(rec.flash[0].name, "LTEPHGPS");
}

TEST_F(HdE2E, OfflineFullColdIsRefused) {
    ToolRun r = run_tool(
        {"-m", "HD8XXX", "-o", "offline", "-p", "/nonexistent/tty", "-b", "115200", "-sFULLCOLD"});
    EXPECT_EQ(r.status, expected_status(0x102));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                             "./vk_agnss -m HD8XXX -f EPH_GPS_BDS.rtcm -p COM3 -b 115200 -o "
                             "offline -sCOLD, FAIL\n"),
              std::string::npos);
}
