// DW2207B end to end: the real binary, a real pseudo-terminal and the virtual
// receiver on the other side. Every test checks the bytes the receiver got,
// the console lines (stamps masked) and the exit status.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

#include "serial/serial.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"
#include "tools/rtcm_gen.h"

namespace {

// The sentence as the module must receive it, checksum computed here.
std::string nmea(const std::string &body) { return nmea_sentence(body); }

std::string progress(long long sent, long long size) {
    char line[96];
    snprintf(line, sizeof line, "[SSS.mmm][PROGRESS] %.2f%%,%lld,%lld\r\n",
             double(float(100LL * sent) / float(size)), sent, size);
    return line;
}

std::vector<std::vector<uint8_t>> frames_of(const std::vector<uint8_t> &bytes) {
    std::vector<std::vector<uint8_t>> out;
    RtcmSplit split = rtcm_split_frames(bytes.data(), bytes.size());
    for (const RtcmFrameInfo &f : split.frames)
        out.emplace_back(bytes.begin() + long(f.offset),
                         bytes.begin() + long(f.offset + f.payload_len + 6));
    return out;
}

// Progress lines of a transfer that sends these frames of a file of size bytes.
std::string progress_lines(const std::vector<std::vector<uint8_t>> &frames, long long size) {
    std::string s = "[SSS.mmm][INFO] Enter send eph...\n" + progress(0, size);
    long long sent = 0;
    for (const auto &f : frames) {
        sent += long(f.size());
        s += progress(sent, size);
    }
    return s;
}

class Dw2207bE2E : public SimTest {
protected:
    void start(const SimFaults &faults = SimFaults()) { start_sim("dw2207b", faults); }

    // A generated RTCM file in the test's directory.
    std::string rtcm_file(const RtcmGenConfig &cfg, std::vector<uint8_t> *bytes = nullptr,
                          const char *name = "eph.rtcm3") {
        std::string path = dir() + "/" + name;
        std::vector<uint8_t> data = rtcmgen_generate(cfg);
        write_file(path, data);
        if (bytes) *bytes = data;
        return path;
    }

    std::vector<std::string> args(const std::vector<std::string> &extra) const {
        return tool_args("DW2207B", "online", extra);
    }

    // The lines up to the parsed options, for a run made with args().
    std::string head() const {
        return std::string(kBanner) + "[SSS.mmm][INFO] enter DW2207B AgnssOnline\n" +
               "[SSS.mmm][INFO] Module: DW2207B\n" + "[SSS.mmm][INFO] Port: " + port_ + "\n" +
               "[SSS.mmm][INFO] Baud rate:115200\n";
    }
};

const char kOpen[] = "[SSS.mmm][INFO] DW2207B open uart_fd:<fd>\n";
const char kSuccess[] = "[SSS.mmm][SUCCESS] vkagnss run success\n";

}  // namespace

TEST_F(Dw2207bE2E, FullInjection) {
    start();
    std::vector<uint8_t> file;
    RtcmGenConfig cfg;  // GPS, BeiDou, QZSS and Galileo, one epoch
    std::string path = rtcm_file(cfg, &file);
    auto frames = frames_of(file);
    ASSERT_EQ(frames.size(), 70u);

    ToolRun r = run_tool(
        args({"-sHOT", "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5", "-f" + path}));
    SimRecord rec = finish();

    const std::string reset = nmea("$RESET,0,h00");
    const std::string time = nmea("$AIDTIME,2026,1,8,9,59,17,0");
    const std::string pos = nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0");
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{reset, time, pos}));
    EXPECT_EQ(rec.frames, frames);
    std::vector<uint8_t> expected_raw(reset.begin(), reset.end());
    expected_raw.insert(expected_raw.end(), time.begin(), time.end());
    expected_raw.insert(expected_raw.end(), pos.begin(), pos.end());
    expected_raw.insert(expected_raw.end(), file.begin(), file.end());
    EXPECT_EQ(rec.raw, expected_raw);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.bad_frames, 0u);

    EXPECT_EQ(out_of(r),
              head() + "[SSS.mmm][INFO] Start way:HOT\n" +
                  "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,10\n" +
                  "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, LeapSec:18, "
                  "Accuracy:10\n" +
                  "[SSS.mmm][INFO] Ref position:31.5,121.25,10,5\n" +
                  "[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,PosAcc:5" +
                  "[SSS.mmm][INFO] File: " + path + "\n" + kOpen + "[SSS.mmm] Start cmd:" + reset +
                  "[SSS.mmm] RECV ACK ok\n" + "[SSS.mmm][INFO] DW2207B Send StartWay ret: 0x0\n" +
                  "[SSS.mmm] AID TIME cmd: " + time + "[SSS.mmm] RECV ACK ok\n" +
                  "[SSS.mmm][INFO] DW2207B Send Time ret: 0x0\n" + "[SSS.mmm] AID POS cmd: " + pos +
                  "[SSS.mmm] RECV ACK ok\n" + "[SSS.mmm][INFO] DW2207B Send Pos ret: 0x0\n" +
                  progress_lines(frames, (long long)file.size()) +
                  "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x0\n" + kSuccess);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, PortAndBaudOnlyOpensClosesAndSucceeds) {
    start();
    ToolRun r = run_tool(args({}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_EQ(out_of(r), head() + kOpen + kSuccess);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, StartWayNamesChooseTheResetArgument) {
    start();
    ToolRun r = run_tool(args({"-sWARM"}));
    EXPECT_EQ(r.status, expected_status(0));
    r = run_tool(args({"-scold"}));
    EXPECT_EQ(r.status, expected_status(0));
    EXPECT_NE(mask(r.out).find("[SSS.mmm][INFO] Start way:cold\n"), std::string::npos);
    r = run_tool(args({"-sNONE"}));
    EXPECT_EQ(r.status, expected_status(0));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea("$RESET,0,h01"), nmea("$RESET,0,hFF")}));
}

TEST_F(Dw2207bE2E, SilentReceiverFailsTheRestartAndSkipsTheRest) {
    SimFaults f;
    f.silent = true;
    start(f);
    std::string path = rtcm_file(RtcmGenConfig());
    ToolRun r = run_tool(args({"-sHOT", "-u0,2026-01-08-09:59:17,18,10", "-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea("$RESET,0,h00")}));
    EXPECT_TRUE(rec.frames.empty());
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] Start way:HOT\n" +
                             "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,10\n" +
                             "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, "
                             "LeapSec:18, Accuracy:10\n" +
                             "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                             "[SSS.mmm] Start cmd:" + nmea("$RESET,0,h00") +
                             "[SSS.mmm][INFO] DW2207B Send StartWay ret: 0x200\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n");
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Dw2207bE2E, ReceiverAnsweringGarbageOnceThenNothingGivesNoReply) {
    // A read that came back empty makes the wait's result "no reply", even
    // though something else arrived before it.
    SimFaults f;
    f.garbage_only = true;
    start(f);
    ToolRun r = run_tool(args({"-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea("$AIDTIME,2026,1,8,9,59,17,0")}));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] DW2207B Send Time ret: 0x200\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n"),
              std::string::npos);
    EXPECT_EQ(out.find("RECV ACK ok"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Dw2207bE2E, RefusedPositionFollowedBySilenceGivesNoReply) {
    SimFaults f;
    f.refuse = true;
    start(f);
    ToolRun r = run_tool(args({"-l31.5,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0")}));
    EXPECT_EQ(out_of(r),
              head() + "[SSS.mmm][INFO] Ref position:31.5,121.25,10,5\n" +
                  "[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,PosAcc:5" + kOpen +
                  "[SSS.mmm] AID POS cmd: " + nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0") +
                  "[SSS.mmm][INFO] DW2207B Send Pos ret: 0x200\n" +
                  "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n");
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Dw2207bE2E, ReceiverThatStopsAnsweringFailsTheNextStep) {
    SimFaults f;
    f.stop_after = 1;
    start(f);
    std::string path = rtcm_file(RtcmGenConfig());
    ToolRun r = run_tool(
        args({"-sHOT", "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5", "-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea("$RESET,0,h00"),
                                                       nmea("$AIDTIME,2026,1,8,9,59,17,0")}));
    EXPECT_TRUE(rec.frames.empty());
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] DW2207B Send StartWay ret: 0x0\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] DW2207B Send Time ret: 0x200\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Dw2207bE2E, SplitDelayedAndNoisyRepliesAreStillAccepted) {
    SimFaults f;
    f.split_parts = 3;
    f.split_gap_ms = 20;
    f.delay_ms = 300;
    f.garbage_bytes = 40;
    start(f);
    ToolRun r =
        run_tool(args({"-sCOLD", "-u0,2026-12-31-23:59:59,18,10", "-l-33.865,-151.2094,58.3,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{
                                 nmea("$RESET,0,hFF"), nmea("$AIDTIME,2026,12,31,23,59,59,0"),
                                 nmea("$AIDPOS,3386.500000,S,15120.940000,W,58.3")}));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] DW2207B Send Pos ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, TimeFromTheComputerClock) {
    start();
    ToolRun r = run_tool(args({"-u1,ignored,18,10"}));
    SimRecord rec = finish();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        rec.sentences[0],
        std::regex(
            R"(\$AIDTIME,20\d\d,\d{1,2},\d{1,2},\d{1,2},\d{1,2},\d{1,2},0\*[0-9A-F]{2}\r\n)")))
        << rec.sentences[0];
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, ZeroLongitudeRefusesThePosition) {
    start();
    std::string path = rtcm_file(RtcmGenConfig());
    ToolRun r = run_tool(args({"-l51.4779,0,10,5", "-f" + path}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_EQ(out_of(r),
              head() + "[SSS.mmm][INFO] Ref position:51.4779,0,10,5\n" +
                  "[SSS.mmm][INFO] Pos Enable:1,Lat:51.4779,Lon:0,Altitude:10,PosAcc:5" +
                  "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                  "[SSS.mmm][ERROR] lat[5147.790000] or lon[0.000000] is none,no send pos\n" +
                  "[SSS.mmm][INFO] DW2207B Send Pos ret: 0x102\n" +
                  "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Dw2207bE2E, EmptyFileEndsWithCommandFailure) {
    start();
    std::string path = dir() + "/empty.rtcm3";
    write_file(path, std::string());
    ToolRun r = run_tool(args({"-f" + path}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                             "[SSS.mmm][INFO] Enter send eph...\n" +
                             "[SSS.mmm][PROGRESS] 0.00%,0,0\r\n" + "[SSS.mmm][ERROR] send [" +
                             path + "] to module failed\n" +
                             "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x107\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x107]\n");
    EXPECT_EQ(r.status, expected_status(0x107));
}

TEST_F(Dw2207bE2E, FileEndingInsideAHeaderIsMalformedAfterAllFramesWentOut) {
    start();
    for (int trailing : {1, 2}) {
        RtcmGenConfig cfg;
        cfg.systems = "G";
        cfg.sats = 3;
        cfg.damage = RtcmDamage::Trailing;
        cfg.trailing_bytes = trailing;
        std::vector<uint8_t> file;
        std::string path = rtcm_file(cfg, &file, trailing == 1 ? "t1.rtcm3" : "t2.rtcm3");
        std::vector<uint8_t> whole(file.begin(), file.end() - trailing);
        auto frames = frames_of(whole);
        ASSERT_EQ(frames.size(), 3u);
        ToolRun r = run_tool(args({"-f" + path}));
        EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                                 progress_lines(frames, (long long)file.size()) +
                                 "[SSS.mmm][ERROR] There is an issue with the ephemeris file.\n" +
                                 "[SSS.mmm][ERROR] send [" + path + "] to module failed\n" +
                                 "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x206\n" +
                                 "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x206]\n");
        EXPECT_EQ(r.status, expected_status(0x206));
    }
    SimRecord rec = finish();
    EXPECT_EQ(rec.frames.size(), 6u);
}

TEST_F(Dw2207bE2E, BadCrcStopsTheTransferAtThatFrame) {
    start();
    RtcmGenConfig cfg;
    cfg.systems = "GE";
    cfg.sats = 2;
    cfg.damage = RtcmDamage::BadCrc;
    cfg.damage_frame = 2;
    std::vector<uint8_t> file;
    std::string path = rtcm_file(cfg, &file);
    RtcmSplit split = rtcm_split_frames(file.data(), file.size());
    ASSERT_EQ(split.frames.size(), 4u);
    ASSERT_FALSE(split.frames[2].crc_ok);
    auto all = frames_of(file);
    std::vector<std::vector<uint8_t>> sent(all.begin(), all.begin() + 2);
    const std::vector<uint8_t> &bad = all[2];
    char crc_line[80];
    snprintf(crc_line, sizeof crc_line, "[SSS.mmm][ERROR] errror: %02X %02X %02X\n",
             bad[bad.size() - 3], bad[bad.size() - 2], bad[bad.size() - 1]);
    ToolRun r = run_tool(args({"-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.frames, sent);
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                             progress_lines(sent, (long long)file.size()) +
                             "[SSS.mmm][ERROR] EPH file crc failed.\n" + crc_line +
                             "[SSS.mmm][ERROR] send [" + path + "] to module failed\n" +
                             "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x206\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x206]\n");
    EXPECT_EQ(r.status, expected_status(0x206));
}

TEST_F(Dw2207bE2E, TruncatedLastFrameFailsItsCrc) {
    start();
    RtcmGenConfig cfg;
    cfg.systems = "C";
    cfg.sats = 3;
    cfg.damage = RtcmDamage::Truncate;
    std::vector<uint8_t> file;
    std::string path = rtcm_file(cfg, &file);
    auto frames = frames_of(file);
    ASSERT_EQ(frames.size(), 2u);
    ToolRun r = run_tool(args({"-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.frames, frames);
    std::string out = out_of(r);
    EXPECT_NE(out.find(progress_lines(frames, (long long)file.size()) +
                       "[SSS.mmm][ERROR] EPH file crc failed.\n[SSS.mmm][ERROR] errror: "),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] DW2207B Send EphData ret: 0x206\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x206));
}

TEST_F(Dw2207bE2E, ReservedHeaderBitsMakeTheFileMalformed) {
    start();
    RtcmGenConfig cfg;
    cfg.systems = "J";
    cfg.sats = 4;
    cfg.damage = RtcmDamage::ReservedBits;
    cfg.damage_frame = 1;
    std::vector<uint8_t> file;
    std::string path = rtcm_file(cfg, &file);
    auto all = frames_of(file);
    std::vector<std::vector<uint8_t>> sent(all.begin(), all.begin() + 1);
    ToolRun r = run_tool(args({"-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.frames, sent);
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                             progress_lines(sent, (long long)file.size()) +
                             "[SSS.mmm][ERROR] There is an issue with the ephemeris file.\n" +
                             "[SSS.mmm][ERROR] send [" + path + "] to module failed\n" +
                             "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x206\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x206]\n");
}

TEST_F(Dw2207bE2E, ReceiverDisappearingMidTransfer) {
    SimFaults f;
    f.close_after_frames = 5;
    start(f);
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 12;
    std::vector<uint8_t> file;
    std::string path = rtcm_file(cfg, &file);
    ToolRun r = run_tool(args({"-f" + path}));
    SimRecord rec = finish();
    auto frames = frames_of(file);
    EXPECT_EQ(rec.frames, std::vector<std::vector<uint8_t>>(frames.begin(), frames.begin() + 5));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] send [" + path + "] to module failed\n" +
                       "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x107\n" +
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x107]\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(r.status, expected_status(0x107));
}

TEST_F(Dw2207bE2E, PacedReceiverGetsEveryFrame) {
    SimFaults f;
    f.pace_baud = 115200;
    start(f);
    RtcmGenConfig cfg;
    cfg.systems = "GCJE";
    cfg.sats = 2;
    std::vector<uint8_t> file;
    std::string path = rtcm_file(cfg, &file);
    ToolRun r = run_tool(args({"-sHOT", "-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.frames, frames_of(file));
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, ModemLineLevelsDoNotStopARunOnAPseudoTerminal) {
    start();
    ToolRun r = run_tool(args({"-R", "1", "-T", "1", "-sHOT"}));
    finish();
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] RTS :1\n[SSS.mmm][INFO] DTR :1\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Dw2207bE2E, RealRecordingsGoOutFrameByFrame) {
    const std::string base = std::string(VK_REAL_DATA_DIR) + "/rtcm/";
    struct stat st;
    if (stat(base.c_str(), &st) != 0) GTEST_SKIP() << "no recordings at " << base;
    start();
    for (const char *name : {"igs-stream-2016-04-06-eph.rtcm3", "ntrip-2024-03-mixed.rtcm3"}) {
        std::string path = base + name;
        std::vector<uint8_t> file = read_file(path);
        ToolRun r = run_tool(args({"-f" + path}));
        EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" + kOpen +
                                 progress_lines(frames_of(file), (long long)file.size()) +
                                 "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x0\n" + kSuccess);
        EXPECT_EQ(r.status, expected_status(0));
    }
    SimRecord rec = finish();
    auto a = frames_of(read_file(base + "igs-stream-2016-04-06-eph.rtcm3"));
    auto b = frames_of(read_file(base + "ntrip-2024-03-mixed.rtcm3"));
    EXPECT_EQ(a.size(), 88u);
    EXPECT_EQ(b.size(), 35u);
    a.insert(a.end(), b.begin(), b.end());
    EXPECT_EQ(rec.frames, a);
    EXPECT_EQ(rec.bad_frames, 0u);
}

// --- failures before anything is sent -----------------------------------------

TEST_F(Dw2207bE2E, UnreadableFileIsRefusedBeforeThePortOpens) {
    start();
    std::string path = dir() + "/missing.rtcm3";
    ToolRun r = run_tool(args({"-f" + path}));
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] File: " + path + "\n" +
                             "[SSS.mmm][ERROR] Fail to access " + path +
                             ", errno: 2 (No such file or directory)\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x103]\n");
    EXPECT_EQ(r.status, expected_status(0x103));
    r = run_tool(args({"-f" + dir()}));
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Fail to access " + dir() +
                               ", errno: 21 (Is a directory)\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x103));
    EXPECT_TRUE(finish().raw.empty());
}

TEST_F(Dw2207bE2E, PortThatCannotBeOpened) {
    port_ = "/dev/vkagnss-no-such-port";
    ToolRun r = run_tool(args({"-sHOT"}));
    EXPECT_EQ(mask(r.out), head() + "[SSS.mmm][INFO] Start way:HOT\n" +
                               "[SSS.mmm][ERROR] Fail to open /dev/vkagnss-no-such-port\n" +
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x104]\n");
    // The reason, then the serial ports this machine has (which vary).
    EXPECT_EQ(r.err.rfind("vkagnss: no such port /dev/vkagnss-no-such-port; ", 0), 0u) << r.err;
    EXPECT_EQ(r.status, expected_status(0x104));
}

TEST_F(Dw2207bE2E, PortHeldByAnotherProgramCannotBeOpened) {
    if (under_wine())
        GTEST_SKIP() << "wine 8 does not refuse a second open of a COM port that another program "
                        "holds (Windows does: the tool opens with share mode 0)";
    start();
    SerialPort held = serial_open(port_.c_str(), 115200);
    ASSERT_TRUE(serial_is_open(held));
    ToolRun r = run_tool(args({"-sHOT"}));
    serial_close(held);
    EXPECT_NE(mask(r.out).find("[SSS.mmm][ERROR] Fail to open " + port_ + "\n" +
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x104]\n"),
              std::string::npos);
    EXPECT_EQ(r.err, "vkagnss: " + port_ +
                         " is in use by another program (busy, locked or opened exclusively): "
                         "close that program (a terminal, a modem manager, another vkagnss) and "
                         "try again\n");
    EXPECT_EQ(r.status, expected_status(0x104));
    EXPECT_TRUE(finish().raw.empty());
}

// --- the option grammar at this entry --------------------------------------------

class Dw2207bOptionsE2E : public Dw2207bE2E {
protected:
    void SetUp() override { port_ = "COM3"; }

    void expect_refused(const std::vector<std::string> &extra, const std::string &lines,
                        bool usage) {
        ToolRun r = run_tool(args(extra));
        std::string expected = head() + lines;
        if (usage)
            expected +=
                "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                "./vk_agnss -m DW2207B -fephemeris.rtcm3 -p COM3 -b 115200 -o online, "
                "FAIL\n";
        expected += "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n";
        EXPECT_EQ(mask(r.out), expected);
        EXPECT_EQ(r.status, expected_status(0x102));
    }
};

TEST_F(Dw2207bOptionsE2E, UnknownStartWays) {
    expect_refused({"-sCOLDX"},
                   "[SSS.mmm][ERROR] Invalid start way:COLDX\n[SSS.mmm][INFO] Start way:COLDX\n",
                   true);
    expect_refused({"-sCO"},
                   "[SSS.mmm][ERROR] Invalid start way:CO\n[SSS.mmm][INFO] Start way:CO\n", true);
    expect_refused({"-sFULLCOLD"},
                   "[SSS.mmm][ERROR] Invalid start way:FULLCOLD\n"
                   "[SSS.mmm][INFO] Start way:FULLCOLD\n",
                   true);
}

TEST_F(Dw2207bOptionsE2E, LocationErrors) {
    expect_refused({"-l31.5,121.25,10"},
                   "[SSS.mmm][INFO] Ref position:31.5,121.25,10\n"
                   "[SSS.mmm][ERROR] Invalid location format, comma count: 3\n",
                   false);
    expect_refused({"-l31.5,,10,5"},
                   "[SSS.mmm][INFO] Ref position:31.5,,10,5\n"
                   "[SSS.mmm][ERROR] Invalid location format, exist \",,\",missing at least one "
                   "field\n",
                   false);
    expect_refused({"-l31.5,121.25,10,"},
                   "[SSS.mmm][INFO] Ref position:31.5,121.25,10,\n"
                   "[SSS.mmm][ERROR] Invalid location, missing PosAcc field\n",
                   false);
    std::string s64 = "31.5,121.25,10," + std::string(49, '5');
    expect_refused({"-l" + s64}, "[SSS.mmm] Location string too long: " + s64 + "\n", false);
}

TEST_F(Dw2207bOptionsE2E, TimeErrors) {
    expect_refused({"-u0,2026-01-08-09:59:17,18"},
                   "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18\n"
                   "[SSS.mmm][ERROR] Invalid time format, comma count: 2\n",
                   false);
    expect_refused({"-u0,,18,1"},
                   "[SSS.mmm][INFO] time data:0,,18,1\n"
                   "[SSS.mmm][ERROR] Invalid time format, exist \",,\",missing at least one "
                   "field\n",
                   false);
    expect_refused({"-u,0,x,"},
                   "[SSS.mmm][INFO] time data:,0,x,\n"
                   "[SSS.mmm][ERROR] Invalid time, missing LeapSec field\n",
                   false);
    std::string s64 = "0,2026-01-08-09:59:17,18," + std::string(39, '1');
    expect_refused({"-u" + s64}, "[SSS.mmm] Time string too long: " + s64 + "\n", false);
    expect_refused({"-u2,2026-01-08-09:59:17,18,10"},
                   "[SSS.mmm][INFO] time data:2,2026-01-08-09:59:17,18,10\n"
                   "[SSS.mmm][INFO] Time Enable:1,Mode:2,Time:2026-01-08-09:59:17, LeapSec:18, "
                   "Accuracy:10\n",
                   true);
}

TEST_F(Dw2207bOptionsE2E, FirstErrorStopsTheParse) {
    // The location error ends parsing: the time after it is never looked at.
    expect_refused({"-l1,2", "-u0,x"},
                   "[SSS.mmm][INFO] Ref position:1,2\n"
                   "[SSS.mmm][ERROR] Invalid location format, comma count: 2\n",
                   false);
}

TEST_F(Dw2207bOptionsE2E, MissingPortOrBaud) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "online", "-b", "115200"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] enter DW2207B AgnssOnline\n" +
                               "[SSS.mmm][INFO] Module: DW2207B\n" +
                               "[SSS.mmm][INFO] Baud rate:115200\n" +
                               "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                               "./vk_agnss -m DW2207B -fephemeris.rtcm3 -p COM3 -b 115200 -o "
                               "online, FAIL\n" +
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    EXPECT_EQ(r.status, expected_status(0x102));
    r = run_tool({"-m", "DW2207B", "-o", "online", "-p", "COM3", "-b", "fast"});
    EXPECT_NE(mask(r.out).find("[SSS.mmm][INFO] Baud rate:0\n[SSS.mmm][ERROR] Failed.Please"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Dw2207bOptionsE2E, StrayWordEndsTheParse) {
    // "-s COLD": the value is not attached, so COLD is a stray word and the
    // port after it is never seen.
    ToolRun r =
        run_tool({"-m", "DW2207B", "-o", "online", "-s", "COLD", "-p", "COM3", "-b", "9600"});
    EXPECT_EQ(mask(r.out), std::string(kBanner) + "[SSS.mmm][INFO] enter DW2207B AgnssOnline\n" +
                               "[SSS.mmm][INFO] Module: DW2207B\n" +
                               "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                               "./vk_agnss -m DW2207B -fephemeris.rtcm3 -p COM3 -b 115200 -o "
                               "online, FAIL\n" +
                               "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
}

TEST_F(Dw2207bOptionsE2E, UnknownLetterIsReportedAndSkipped) {
    ToolRun r = run_tool({"-m", "DW2207B", "-o", "online", "-x", "-b", "9600"});
    EXPECT_EQ(r.err, "unknown option -- x\n");
    EXPECT_NE(mask(r.out).find("[SSS.mmm][INFO] Baud rate:9600\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Dw2207bE2E, SixtyThreeCharacterStringsAreAccepted) {
    start();
    std::string loc = "31.5,121.25,10," + std::string(48, '5');
    std::string time = "0,2026-01-08-09:59:17,18," + std::string(38, '1');
    ASSERT_EQ(loc.size(), 63u);
    ASSERT_EQ(time.size(), 63u);
    ToolRun r = run_tool(args({"-u" + time, "-l" + loc}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea("$AIDTIME,2026,1,8,9,59,17,0"),
                                        nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0")}));
    EXPECT_NE(
        mask(r.out).find("[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,PosAcc:"
                         "55555555555555555[SSS.mmm]"),
        std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

// A receiver that keeps talking fills every read of the wait, so a wait that
// never sees "$OK*04" ends with "command failed" rather than "no reply".
TEST_F(Dw2207bE2E, ChattyReceiverThatRefusesGivesCommandFailure) {
    SimFaults f;
    f.refuse = true;
    f.chatter_ms = 50;
    start(f);
    std::string path = rtcm_file(RtcmGenConfig());
    ToolRun r = run_tool(args({"-sWARM", "-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea("$RESET,0,h01")}));
    EXPECT_TRUE(rec.frames.empty());
    EXPECT_EQ(out_of(r), head() + "[SSS.mmm][INFO] Start way:WARM\n" + "[SSS.mmm][INFO] File: " +
                             path + "\n" + kOpen + "[SSS.mmm] Start cmd:" + nmea("$RESET,0,h01") +
                             "[SSS.mmm][INFO] DW2207B Send StartWay ret: 0x107\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x107]\n");
    EXPECT_EQ(r.status, expected_status(0x107));
}

TEST_F(Dw2207bE2E, ChattyReceiverAnsweringOnlyNoiseGivesCommandFailure) {
    SimFaults f;
    f.garbage_only = true;
    f.chatter_ms = 50;
    start(f);
    ToolRun r = run_tool(args({"-u0,2026-01-08-09:59:17,18,10"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea("$AIDTIME,2026,1,8,9,59,17,0")}));
    EXPECT_NE(out_of(r).find("[SSS.mmm][INFO] DW2207B Send Time ret: 0x107\n"
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x107]\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x107));
}

TEST_F(Dw2207bE2E, ChattyHealthyReceiverIsUnderstood) {
    SimFaults f;
    f.chatter_ms = 20;
    start(f);
    ToolRun r = run_tool(args({"-sHOT", "-l31.5,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea("$RESET,0,h00"),
                                        nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0")}));
    EXPECT_EQ(r.status, expected_status(0));
}

// Text becomes a number the same way on every OS: "nan" is not taken as 0,
// so the position goes out (as the C library's strtod reads it everywhere).
TEST_F(Dw2207bE2E, NotANumberIsReadAsSuchAndSent) {
    start();
    ToolRun r = run_tool(args({"-lnan,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(r.status, expected_status(0));
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], nmea("$AIDPOS,nan,N,12125.000000,E,10.0"));
}
