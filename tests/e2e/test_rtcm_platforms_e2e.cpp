// STA8100 and TQ934N end to end: the real binary against the virtual
// receiver over a pseudo-terminal; what the receiver took, the console lines
// (stamps masked) and the exit status.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "serial/serial.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"
#include "tools/pstm_gen.h"
#include "tools/rtcm_gen.h"
#include "tq934n/tq934n.h"

namespace {

const char kSuccess[] = "[SSS.mmm][SUCCESS] vkagnss run success\n";

class RtcmPlatformE2E : public SimTest {
protected:
    std::string rtcm(const RtcmGenConfig &cfg, const char *name, std::vector<uint8_t> *out) {
        std::vector<uint8_t> data = rtcmgen_generate(cfg);
        std::string path = dir() + "/" + name;
        write_file(path, data);
        if (out) *out = data;
        return path;
    }
};

}  // namespace

// ---- STA8100 ------------------------------------------------------------------------------

TEST_F(RtcmPlatformE2E, Sta8100RtcmDialectSendsDecodableFramesAndTheFile) {
    start_sim("sta8100", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 3;
    std::vector<uint8_t> file;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", &file);
    ToolRun r = run_tool(tool_args(
        "STA8100", "online",
        {"-t", "rtcm", "-u", "2026-01-08-09:59:17", "-l", "31.5,N,121.25,W,10.9", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.sta_cold_starts, 1u);
    ASSERT_EQ(rec.sta_times.size(), 1u);
    EXPECT_EQ(rec.sta_times[0], (SimStaTime{8, 1, 2026, 9, 59, 17}));
    ASSERT_EQ(rec.sta_positions.size(), 1u);
    // 31.5 degrees = 113400 arc-seconds; west is negative; the altitude is truncated.
    EXPECT_EQ(rec.sta_positions[0], (SimStaPosition{113400, -436500, 10}));
    EXPECT_EQ(rec.ephemeris_bytes, file);
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm] Start cmd:D3 00 07 3E 71 00 00 00 00 F0 47 9E EE 00 00 00 00 00 "
                       "00 \n[SSS.mmm][INFO] STA8100_SendStartWay ret: 0x0\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm] Lat:113400, Lon:-436500, Alt:10\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] 100.00%,201,201\r\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] STA8100_SendEphData ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
    // The start way goes out as 20 bytes: the frame and seven zeros.
    ASSERT_GE(rec.raw.size(), 20u);
    EXPECT_EQ(std::vector<uint8_t>(rec.raw.begin() + 13, rec.raw.begin() + 20),
              std::vector<uint8_t>(7, 0));
}

TEST_F(RtcmPlatformE2E, Sta8100NmeaDialectSendsSentencesAndTheLines) {
    start_sim("sta8100", SimFaults());
    PstmGenConfig cfg;
    cfg.sats = 3;
    std::string text = pstmgen_generate(cfg);
    std::string path = dir() + "/eph.txt";
    write_file(path, text);
    ToolRun r = run_tool(tool_args(
        "STA8100", "offline",
        {"-t", "nmea", "-u", "2026-01-08-09:59:17", "-l", "31.5,N,121.25,E,10", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    ASSERT_GE(rec.sentences.size(), 3u);
    EXPECT_EQ(rec.sentences[0], "$PSTMCOLD,15*36\r\n");
    EXPECT_EQ(rec.sentences[1], nmea_sentence("$PSTMINITTIME,8,1,2026,9,59,17"));
    EXPECT_EQ(rec.sentences[2],
              nmea_sentence("$PSTMINITGPS,3130.000,N,12115.000,E,10.0,08,01,2026,09,59,17"));
    std::string joined;
    for (const std::string &l : rec.sta_ephemeris_lines) joined += l;
    EXPECT_EQ(joined, text);
    // Three zero bytes follow the start sentence.
    EXPECT_EQ(std::vector<uint8_t>(rec.raw.begin() + 17, rec.raw.begin() + 20),
              std::vector<uint8_t>(3, 0));
}

TEST_F(RtcmPlatformE2E, Sta8100PositionNeedsATimeAndTrailingBytesFail) {
    start_sim("sta8100", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    cfg.tail_bytes = 2;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", nullptr);
    ToolRun r = run_tool(
        tool_args("STA8100", "online", {"-t", "rtcm3", "-l", "31.5,N,121.25,E,10", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x206));
    EXPECT_TRUE(rec.sta_positions.empty());
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] There is an issue with the ephemeris file.\n"),
              std::string::npos);
}

TEST_F(RtcmPlatformE2E, Sta8100ReplyWithNeitherWordIsCheckedWithoutEnd) {
    SimFaults f;
    f.unknown_reply = true;
    start_sim("sta8100", f);
    PstmGenConfig cfg;
    cfg.sats = 1;
    std::string path = dir() + "/eph.txt";
    write_file(path, pstmgen_generate(cfg));
    std::thread stopper;
    ToolRun r = run_tool(
        tool_args("STA8100", "online", {"-t", "nmea", "-u", "2026-01-08-09:59:17", "-f", path}),
        [&](int pid) {
            stopper = std::thread([pid] {
                sleep(3);
                kill(pid, SIGTERM);
            });
        });
    stopper.join();
    finish();
    EXPECT_EQ(r.status, expected_interrupt_status(SIGTERM));
    std::string out = out_of(r);
    const std::string line = "[SSS.mmm][INFO] Unknow $PSTMINITTIME response: $PSTMINITTIMEBUSY*";
    size_t first = out.find(line);
    ASSERT_NE(first, std::string::npos) << out;
    EXPECT_NE(out.find(line, first + 1), std::string::npos);  // again and again
    EXPECT_EQ(out.find("SUCCESS"), std::string::npos);
}

// ---- TQ934N -------------------------------------------------------------------------------

TEST_F(RtcmPlatformE2E, Tq934nModeOneRunsAndARefusedTimeDoesNotStopIt) {
    SimFaults f;
    f.refuse_prefix = "$PVNKAIDTIME";
    start_sim("tq934n", f);
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 3;
    std::vector<uint8_t> file;
    std::string path = rtcm(cfg, "eph.rtcm3", &file);
    ToolRun r = run_tool(tool_args(
        "TQ934N", "online",
        {"-s", "NONE", "-u", "0,2026-01-08-09:59:17,18,5", "-l", "31.5,121.25,10,5", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.ephemeris_bytes, file);
    ASSERT_EQ(rec.tq_block_sizes.size(), 1u);
    ASSERT_GE(rec.sentences.size(), 2u);
    EXPECT_EQ(rec.sentences[0], nmea_sentence("$PVNKAIDTIME,1,18,2026,01,08,09,59,17,000,5,0"));
    EXPECT_EQ(rec.sentences[1], nmea_sentence("$PVNKAIDPOS,1,31.500000,121.250000,10.00,5.000"));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] TQ934N_SendAidTime ret: 0x0\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] TQ934N_SendEphData ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
}

TEST_F(RtcmPlatformE2E, Tq934nModeTwoClearsFirstAndSendsTheTimeLast) {
    start_sim("tq934n", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.exact_size = 4000;
    std::vector<uint8_t> file;
    std::string path = rtcm(cfg, "eph.rtcm3", &file);
    ToolRun r =
        run_tool(tool_args("TQ934N", "online", {"-u", "0,2026-01-08-09:59:17,18,5", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.tq_clears, 1u);
    EXPECT_EQ(rec.ephemeris_bytes, file);
    ASSERT_GE(rec.sentences.size(), 2u);
    EXPECT_EQ(rec.sentences.front(), "$PVNKCLRADAT*4E\r\n");
    EXPECT_EQ(rec.sentences.back(), nmea_sentence("$PVNKAIDTIME,1,18,2026,01,08,09,59,17,000,5,0"));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm] AGNSS_MODE :2"), std::string::npos);
}

// ---- the option grammars of the two entries ---------------------------------------------

TEST(RtcmPlatformOptions, Sta8100LocationAndTypeErrors) {
    ToolRun r = run_tool({"-m", "STA8100", "-o", "online", "-l", "31.5,N,,E,10,"});
    EXPECT_EQ(r.status, expected_status(0x102));
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location format, comma count: 5\n"),
              std::string::npos);
    r = run_tool({"-m", "STA8100", "-o", "online", "-l", "31.5,N,,,10"});
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location, missing Lon direction field\n"),
              std::string::npos)
        << r.out;
    r = run_tool({"-m", "STA8100", "-o", "online", "-l", ",,,,"});
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location, missing Lat field\n"),
              std::string::npos);
    r = run_tool({"-m", "STA8100", "-o", "online", "-t", "ubx"});
    EXPECT_EQ(r.status, expected_status(0x102));
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Unknow firmware type: ubx\n"), std::string::npos);
}

TEST(RtcmPlatformOptions, Sta8100MissingTypeIsReportedAfterTheFileCheck) {
    std::string dir = make_temp_dir();
    ToolRun r = run_tool({"-m", "STA8100", "-o", "online", "-f", dir + "/none.rtcm"});
    EXPECT_EQ(r.status, expected_status(0x103));
    EXPECT_NE(mask(r.out).find("Fail to access"), std::string::npos);
    write_file(dir + "/eph.rtcm", std::vector<uint8_t>());
    r = run_tool({"-m", "STA8100", "-o", "online", "-f", dir + "/eph.rtcm"});
    EXPECT_EQ(r.status, expected_status(0x102));
    EXPECT_NE(
        mask(r.out).find("[SSS.mmm][ERROR] Need to specify ephemeris type, such as rtcm or nmea\n"),
        std::string::npos);
    remove_tree(dir);
}

TEST(RtcmPlatformOptions, Tq934nTimeAndLocationWordings) {
    ToolRun r = run_tool({"-m", "TQ934N", "-o", "online", "-u", "0,2026-01-08-09:59:17,18"});
    EXPECT_EQ(r.status, expected_status(0x102));
    // The time's comma count is reported with the location's words.
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location format, comma count: 2\n"),
              std::string::npos);
    r = run_tool({"-m", "TQ934N", "-o", "online", "-u", "0,,18,5,"});
    EXPECT_NE(mask(r.out).find("comma count: 4\n"), std::string::npos);
    r = run_tool({"-m", "TQ934N", "-o", "online", "-u", "0,2026-01-08,,5"});
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location, missing Accuracy field\n"),
              std::string::npos)
        << r.out;
    r = run_tool({"-m", "TQ934N", "-o", "online", "-l", "31.5,,,5"});
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Invalid location, missing Altitude field\n"),
              std::string::npos);
    r = run_tool({"-m", "TQ934N", "-o", "online", "-l", "31.5,121.2,10,5", "-q"});
    EXPECT_EQ(r.status, expected_status(0));  // -q returns at once, before the file is looked at
}

// ---- more of the two platforms' edges ----------------------------------------------------

TEST_F(RtcmPlatformE2E, Sta8100AckWithAWrongLastByteIsTakenAndNoAckStillGivesZero) {
    SimFaults f;
    f.ack_bad_crc = true;
    start_sim("sta8100", f);
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", nullptr);
    ToolRun r = run_tool(
        tool_args("STA8100", "online", {"-t", "rtcm", "-u", "2026-01-08-09:59:17", "-f", path}));
    finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(out_of(r).find("[SSS.mmm] recv ACK-ACK ok\n[SSS.mmm][INFO] STA8100_SendAidTime ret: "
                             "0x0\n"),
              std::string::npos)
        << out_of(r);
}

TEST_F(RtcmPlatformE2E, Sta8100SilentReceiverStillGivesZeroForTheBinaryAids) {
    SimFaults f;
    f.silent = true;
    start_sim("sta8100", f);
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", nullptr);
    ToolRun r = run_tool(tool_args(
        "STA8100", "online",
        {"-t", "rtcm", "-u", "2026-01-08-09:59:17", "-l", "31.5,N,121.25,E,10", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] Without response.\n"
                       "[SSS.mmm][ERROR] recv ACK-ACK failed,err:0x107\n"
                       "[SSS.mmm][INFO] STA8100_SendAidTime ret: 0x0\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] STA8100_SendAidPos ret: 0x0\n"), std::string::npos);
    EXPECT_EQ(rec.sta_positions.size(), 1u);
}

TEST_F(RtcmPlatformE2E, Tq934nMissingAcknowledgementDoesNotStopTheTransfer) {
    SimFaults f;
    f.silent = true;
    start_sim("tq934n", f);
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 2;
    cfg.time_frame = true;
    std::vector<uint8_t> file;
    std::string path = rtcm(cfg, "eph.rtcm3", &file);
    ToolRun r = run_tool(tool_args("TQ934N", "online", {"-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.ephemeris_bytes, file);  // the leading time frame goes with the file
    std::string out = out_of(r);
    // The time frame's 20 bytes come ahead of the first RTCM frame.
    EXPECT_NE(out.find("[SSS.mmm] Found RTCM message at position: 20\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm] rtcm_start_pos: 20\n "), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] 100.00%\r\n"), std::string::npos);
}

TEST_F(RtcmPlatformE2E, Tq934nBinaryTimeFrameIsAnsweredAndDecoded) {
    if (under_wine()) GTEST_SKIP() << "runs TQ934N code inside this test, not vkagnss";
    start_sim("tq934n", SimFaults());
    SerialPort port = serial_open(port_.c_str(), 115200);
    ASSERT_TRUE(serial_is_open(port));
    VkTimeAid t{};
    t.enable = 1;
    snprintf(t.utc, sizeof t.utc, "2026-01-08-09:59:17:250");
    t.leap = 18;
    rtcm_start_pos = -1;
    AGNSS_MODE = 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQ934N_SendAidTimeByBP(port, &t), 0u);
    std::string out = mask(testing::internal::GetCapturedStdout());
    serial_close(port);
    SimRecord rec = finish();
    EXPECT_NE(out.find("[SSS.mmm] ACK OK - Type 1\n"), std::string::npos) << out;
    ASSERT_EQ(rec.tq_times.size(), 1u);
    // 2026-01-08 09:59:17 UTC is GPS week 2400, 381575 s into it with 18 leap seconds.
    EXPECT_EQ(rec.tq_times[0], (SimTqTime{2400, 381575, 18}));
}

TEST_F(RtcmPlatformE2E, Sta8100ZeroAloneTakesTheClockDoubleZeroIsADate) {
    start_sim("sta8100", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", nullptr);
    ToolRun clock = run_tool(tool_args("STA8100", "online", {"-t", "rtcm", "-u", "0", "-f", path}));
    ToolRun text = run_tool(tool_args("STA8100", "online", {"-t", "rtcm", "-u", "00", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(clock.status, expected_status(0));
    EXPECT_EQ(text.status, expected_status(0));
    ASSERT_EQ(rec.sta_times.size(), 2u);
    time_t now = time(nullptr);
    struct tm utc;
    gmtime_r(&now, &utc);
    EXPECT_EQ(rec.sta_times[0].year, utc.tm_year + 1900);
    // "00" is no date: nothing is scanned from it.
    EXPECT_EQ(rec.sta_times[1].year, 0);
    EXPECT_EQ(rec.sta_times[1].month, 0);
}

TEST_F(RtcmPlatformE2E, Tq934nStartWayNoneStillWritesABareTrailer) {
    if (under_wine()) GTEST_SKIP() << "runs TQ934N code inside this test, not vkagnss";
    start_sim("tq934n", SimFaults());
    SerialPort port = serial_open(port_.c_str(), 115200);
    ASSERT_TRUE(serial_is_open(port));
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQ934N_SendStartWay(port, 0), 0u);
    EXPECT_EQ(TQ934N_SendStartWay(port, 5), 0x107u);
    std::string out = mask(testing::internal::GetCapturedStdout());
    serial_close(port);
    SimRecord rec = finish();
    EXPECT_EQ(out, "[SSS.mmm] no start way\n[SSS.mmm][INFO] send cmd:*00\r\n ");
    EXPECT_EQ(std::string(rec.raw.begin(), rec.raw.end()), "*00\r\n");
}

TEST_F(RtcmPlatformE2E, RealRecordingsGoThroughBothTransfers) {
    std::vector<uint8_t> igs = read_file(VK_REAL_DATA_DIR "/rtcm/igs-stream-2016-04-06-eph.rtcm3");
    if (igs.empty()) GTEST_SKIP() << "the real recordings are not here";
    start_sim("sta8100", SimFaults());
    const std::string st = dir() + "/igs.rtcm";
    write_file(st, igs);
    ToolRun r = run_tool(tool_args("STA8100", "online", {"-t", "rtcm", "-f", st}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_EQ(rec.ephemeris_bytes, igs);
    sim_free(sim_);
    sim_ = nullptr;
    // TQ934N: 5578 bytes is mode 2 (clear, 3 s, two blocks 1 s apart, 10 s).
    start_sim("tq934n", SimFaults());
    const std::string tq = dir() + "/igs.rtcm3";
    write_file(tq, igs);
    ToolRun t = run_tool(tool_args("TQ934N", "online", {"-f", tq}));
    SimRecord trec = finish();
    EXPECT_EQ(t.status, expected_status(0));
    EXPECT_EQ(trec.tq_clears, 1u);
    EXPECT_EQ(trec.ephemeris_bytes, igs);
    EXPECT_EQ(trec.tq_block_sizes, (std::vector<uint32_t>{4096, uint32_t(igs.size() - 4096)}));
}

TEST_F(RtcmPlatformE2E, Sta8100MisSizesAFrameLongerThan255Bytes) {
    start_sim("sta8100", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 2;
    cfg.long_frame = true;  // a 269-byte frame between the two ephemeris frames
    cfg.long_frame_at = 1;
    std::vector<uint8_t> file;
    std::string path = rtcm(cfg, "EPH_GPS.rtcm", &file);
    ToolRun r = run_tool(tool_args("STA8100", "online", {"-t", "rtcm", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0x206));
    // Its length is read as 1 x 4 + 7: the check value found is not the frame's.
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] EPH file crc failed.\n"), std::string::npos)
        << out_of(r);
    EXPECT_EQ(rec.ephemeris_bytes, std::vector<uint8_t>(file.begin(), file.begin() + 67));
}
