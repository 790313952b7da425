// AG33XX end to end: the real binary against the virtual AG33XX receiver over
// a pseudo-terminal. Each test checks the sentences and frames the receiver
// got, the EPO records it kept, the console lines (stamps masked, echoes of
// received text taken out and checked apart) and the exit status.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "tests/e2e/epo_expect.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"

namespace {

std::string hex_words(const std::vector<uint8_t> &rec) {
    std::string s;
    char buf[16];
    for (int w = 0; w < 18; ++w) {
        snprintf(buf, sizeof buf, ",%X", le32_at(&rec[size_t(4 * w)]));
        s += buf;
    }
    return s;
}

// "$PAIR471,<mode>,<prn>,<18 words>" as the receiver must get it.
std::string pair471(int mode, int prn, const std::vector<uint8_t> &rec) {
    char head[32];
    snprintf(head, sizeof head, "$PAIR471,%X,%X", unsigned(mode), unsigned(prn));
    return nmea_sentence(head + hex_words(rec));
}

class Ag33xxE2E : public SimTest {
protected:
    void start(const SimFaults &faults = SimFaults()) { start_sim("ag33xx", faults); }

    std::vector<std::string> args(const char *mode, const std::vector<std::string> &extra) const {
        return tool_args("AG33XX", mode, extra);
    }

    std::string head(bool offline) const {
        return std::string(kBanner) +
               (offline ? "[SSS.mmm][INFO] enter AG33XX Agnss Offline\n"
                        : "[SSS.mmm][INFO] enter AG33XX AgnssOnline\n") +
               "[SSS.mmm][INFO] Module: AG33XX\n" + "[SSS.mmm][INFO] Port: " + port_ + "\n" +
               "[SSS.mmm][INFO] Baud rate:115200\n";
    }

    static std::string files_lines(const std::vector<EpoFile> &files) {
        std::string all;
        for (const EpoFile &f : files) all += (all.empty() ? "" : ",") + f.path;
        std::string s = "[SSS.mmm][INFO] all file: " + all + "\n";
        if (files.size() == 1) s += "[SSS.mmm] Only one epo file need to inject\n";
        for (size_t i = 0; i < files.size(); ++i)
            s += "[SSS.mmm] index:" + std::to_string(i + 1) + ",file:" + files[i].path + "\n";
        return s;
    }

    static std::string file_arg(const std::vector<EpoFile> &files) {
        std::string all;
        for (const EpoFile &f : files) all += (all.empty() ? "" : ",") + f.path;
        return "-f" + all;
    }
};

const char kOpen[] = "[SSS.mmm] open uart_fd:<fd>\n";
const char kSuccess[] = "[SSS.mmm][SUCCESS] vkagnss run success\n";

std::string cmd_line(const std::string &sentence, bool restart = false) {
    return std::string(restart ? "[SSS.mmm] cmd:" : "[SSS.mmm] cmd: ") + sentence + "\n";
}

}  // namespace

TEST_F(Ag33xxE2E, OnlineInjectionOfAGpsFile) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VGps));
    ASSERT_EQ(f.bytes.size(), 27648u);
    ToolRun r = run_tool(args(
        "online", {"-sHOT", "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5", "-f" + f.path}));
    SimRecord rec = finish();

    std::vector<std::string> expected = {
        nmea_sentence("$PAIR004"), nmea_sentence("$PAIR590,2026,1,8,9,59,17"),
        nmea_sentence("$PAIR600,31.500000,121.250000,10.0,50.0,50.0,0.0,100.0")};
    auto records = records_of(f.bytes);
    for (const auto &rc : records) expected.push_back(pair471(0, rc[3], rc));
    EXPECT_EQ(rec.sentences, expected);
    EXPECT_EQ(rec.epo_records, records);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.prn_errors, 0u);

    std::string echoed;
    EXPECT_EQ(out_of(r, &echoed),
              head(false) + "[SSS.mmm][INFO] Start way:HOT\n" +
                  "[SSS.mmm][INFO] time data:0,2026-01-08-09:59:17,18,10\n" +
                  "[SSS.mmm][INFO] Time Enable:1,Mode:0,Time:2026-01-08-09:59:17, LeapSec:18, "
                  "Accuracy:10\n" +
                  "[SSS.mmm][INFO] Ref position:31.5,121.25,10,5\n" +
                  "[SSS.mmm][INFO] Pos Enable:1,Lat:31.5,Lon:121.25,Altitude:10,Accuracy:5\n" +
                  files_lines({f}) + kOpen + cmd_line(expected[0], true) +
                  "[SSS.mmm][INFO] AG33XX Send StartWay ret: 0x0\n" + cmd_line(expected[1]) +
                  "[SSS.mmm][INFO] AG33XX Send Time ret: 0x0\n" +
                  "[SSS.mmm][INFO] lat: 31.500000,lon: 121.250000,altitude:10.000000\n" +
                  cmd_line(expected[2]) + "[SSS.mmm][INFO] AG33XX Send Pos ret: 0x0\n" +
                  decode_block(f) + "[SSS.mmm][INFO] Sending VGPS.DAT to module ...\n" +
                  epo_progress(0, 1) + progress_run(384, 27648) +
                  "[SSS.mmm][INFO] send VGPS.DAT OK\n" +
                  "[SSS.mmm][INFO] AG33XX Send EphData [1] times, ret: 0x0\n" + kSuccess);
    EXPECT_NE(echoed.find("$PAIR011"), std::string::npos);
    EXPECT_NE(echoed.find("$PAIR001,590,0*"), std::string::npos);
    EXPECT_NE(echoed.find("$PAIR001,600,0*"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, FullColdSendsTheColdRestart) {
    start();
    ToolRun r = run_tool(args("online", {"-sFULLCOLD"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences, (std::vector<std::string>{nmea_sentence("$PAIR006")}));
    EXPECT_EQ(out_of(r), head(false) + "[SSS.mmm][INFO] Start way:FULLCOLD\n" + kOpen +
                             cmd_line(nmea_sentence("$PAIR006"), true) +
                             "[SSS.mmm][INFO] AG33XX Send StartWay ret: 0x0\n" + kSuccess);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, NoneWithNothingElseOpensClosesAndSucceeds) {
    start();
    ToolRun r = run_tool(args("online", {"-sNONE"}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_EQ(out_of(r), head(false) + "[SSS.mmm][INFO] Start way:NONE\n" + kOpen + kSuccess);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OnlineGpsGlonassFileSendsItsFirstSegmentOnly) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::VGr));
    ASSERT_EQ(f.bytes.size(), 48384u);
    ToolRun r = run_tool(args("online", {"-f" + f.path}));
    SimRecord rec = finish();
    auto records = records_of(f.bytes);
    std::vector<std::vector<uint8_t>> first(records.begin(), records.begin() + 56);
    EXPECT_EQ(rec.epo_records, first);
    ASSERT_EQ(rec.sentences.size(), 56u);
    EXPECT_EQ(rec.sentences[0], pair471(0, records[0][3], records[0]));
    EXPECT_EQ(rec.sentences[32], pair471(1, records[32][3] - 64, records[32]));
    EXPECT_EQ(rec.prn_errors, 0u);
    std::string out = out_of(r);
    EXPECT_EQ(out, head(false) + files_lines({f}) + kOpen + decode_block(f) +
                       "[SSS.mmm][INFO] Sending VG_R.DAT to module ...\n" + epo_progress(0, 1) +
                       progress_run(56, 48384) + "[SSS.mmm][INFO] send VG_R.DAT OK\n" +
                       "[SSS.mmm][INFO] AG33XX Send EphData [1] times, ret: 0x0\n" + kSuccess);
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] 8.33%\r\n[SSS.mmm][INFO] send VG_R.DAT OK"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OnlineGalileoAndBeidouFilesSkipTheHeader) {
    start();
    EpoFile gal = make_epo(dir(), epo_cfg(EpoGenKind::VGal, 2));
    EpoFile bds = make_epo(dir(), epo_cfg(EpoGenKind::VBds, 1));
    ToolRun r = run_tool(args("online", {"-f" + gal.path + "," + bds.path}));
    SimRecord rec = finish();
    auto expected = records_of(gal.bytes, 72);
    auto b = records_of(bds.bytes, 72);
    expected.insert(expected.end(), b.begin(), b.end());
    EXPECT_EQ(rec.epo_records, expected);
    ASSERT_FALSE(rec.sentences.empty());
    EXPECT_EQ(rec.sentences[0], pair471(2, expected[0][3] - 100, expected[0]));
    EXPECT_EQ(rec.prn_errors, 0u);
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send EphData [1] times, ret: 0x0\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send EphData [2] times, ret: 0x0\n" +
                       std::string(kSuccess)),
              std::string::npos);
    uint32_t total = uint32_t(gal.bytes.size() - 72);
    EXPECT_NE(out.find(epo_progress(total, total) + "[SSS.mmm][INFO] send VGA.DAT OK\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OfflineGpsFileInBinaryFrames) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::Gps, 2));
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    std::vector<std::vector<uint8_t>> frames = {epo_frame(1200, marker_payload('G', 2))};
    auto records = records_of(f.bytes);
    for (const auto &rc : records) frames.push_back(epo_frame(1201, rc));
    frames.push_back(epo_frame(1202, marker_payload('G', 2)));
    EXPECT_EQ(rec.frames, frames);
    EXPECT_EQ(rec.epo_records, records);
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G", "end G"}));
    std::string echoed;
    EXPECT_EQ(out_of(r, &echoed),
              std::string(kBanner) + "[SSS.mmm][INFO] enter AG33XX Agnss Offline\n" +
                  "[SSS.mmm][INFO] Module: AG33XX\n" + "[SSS.mmm][INFO] Port: " + port_ + "\n" +
                  "[SSS.mmm][INFO] Baud rate:115200\n" + files_lines({f}) + kOpen +
                  "[SSS.mmm] EPO type:0,day count:3\n" + decode_block(f) +
                  "[SSS.mmm][INFO] Sending EPO_GPS_3_1.DAT to module ...\n" + epo_progress(0, 1) +
                  progress_run(64, 4608) + "[SSS.mmm][INFO] send EPO_GPS_3_1.DAT OK\n" +
                  "[SSS.mmm][INFO] AG33XX Send EphFile ret: 0x0\n" + kSuccess);
    // Each acknowledgement is echoed as the hex of its 13 bytes.
    EXPECT_NE(echoed.find("0424E8030400B004000"), std::string::npos) << echoed;
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OfflineGpsGlonassFileGoesOutInTwoRounds) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::Gr));  // 3 days, 12 segments
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G", "end G", "begin R", "end R"}));
    std::vector<std::vector<uint8_t>> expected;
    for (int s = 0; s < 12; ++s)
        for (int i = 0; i < 32; ++i)
            expected.push_back(record_at(f.bytes, size_t(s * 4032 + i * 72)));
    for (int s = 0; s < 12; ++s)
        for (int i = 0; i < 24; ++i)
            expected.push_back(record_at(f.bytes, size_t(s * 4032 + 2304 + i * 72)));
    EXPECT_EQ(rec.epo_records, expected);
    EXPECT_EQ(rec.frames.front(), epo_frame(1200, marker_payload('G', 1)));
    EXPECT_EQ(rec.frames.back(), epo_frame(1202, marker_payload('R', 1)));
    std::string out = out_of(r);
    EXPECT_NE(out.find(progress_run(384, 48384) + progress_run(288, 48384, 27648) +
                       "[SSS.mmm][INFO] send EPO_GR_3_1.DAT OK\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OfflineGpsGlonassFileShorterThanItsNameSaysEnds) {
    start();
    // Named for 3 days, holding 2: the GPS round runs out of records.
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::Gr, 8));
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_records.size(), 8u * 32);
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] actual_read_len = 0,is wrong\n"
                       "[SSS.mmm][INFO] AG33XX Send EphFile ret: 0x205\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x205]\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(r.status, expected_status(0x205));
}

TEST_F(Ag33xxE2E, OfflineGpsGlonassFileWithExtraBytesStillEnds) {
    start();
    EpoGenConfig cfg = epo_cfg(EpoGenKind::Gr);
    cfg.damage = EpoGenDamage::ExtraBytes;
    cfg.damage_value = 100;
    EpoFile f = make_epo(dir(), cfg, "EPO_GR_3_1.DAT");
    ASSERT_EQ(f.bytes.size(), 48384u + 100);
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    // Both rounds run once; the GLONASS round never reaches 100 % of a file
    // with bytes beyond its segments, so its end frame is not sent.
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G", "end G", "begin R"}));
    EXPECT_EQ(rec.epo_records.size(), 12u * 56);
    EXPECT_NE(out_of(r).find("[SSS.mmm][INFO] send EPO_GR_3_1.DAT OK\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, GpsRoundWithAFailedFrameEndsWithThatFailure) {
    SimFaults f;
    f.refuse_units = {5};  // unit 0 is the begin frame: the fifth GPS record is refused
    start(f);
    EpoFile file = make_epo(dir(), epo_cfg(EpoGenKind::Gr));
    ToolRun r = run_tool(args("offline", {"-f" + file.path}));
    SimRecord rec = finish();
    std::string out = out_of(r);
    // The rest of the first segment is abandoned, the other eleven go out,
    // and the round is not started again: the file ends with the failure.
    EXPECT_NE(out.find("[SSS.mmm][ERROR] send EPO_GR_3_1.DAT failed\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send EphFile ret: 0x200\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x200]\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G"}));
    EXPECT_EQ(rec.frames.size(), 1u + 5 + 11 * 32);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(Ag33xxE2E, EndFrameOnlyWhenTheSinglePrecisionQuotientIsExactly100) {
    start();
    // 74567 whole records after no header (2330 days of 32, then 7 more):
    // the smallest count whose 100 * total / total in single precision
    // falls just short of 100.
    const uint32_t total = 74567 * 72;
    EpoGenConfig cfg = epo_cfg(EpoGenKind::Gps, 2330);
    cfg.damage = EpoGenDamage::ExtraBytes;
    cfg.damage_value = 7 * 72;
    EpoFile f = make_epo(dir(), cfg, "EPO_GPS_3_1.DAT");
    ASSERT_EQ(f.bytes.size(), total);
    ASSERT_NE(float(100.0f * float(total) / float(total)), 100.0f);
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin G"}));
    EXPECT_EQ(rec.frames.size(), 1u + 74567);  // begin + every record, no end frame
    std::string out = out_of(r);
    EXPECT_NE(out.find(epo_progress(total, total) + "[SSS.mmm][INFO] send EPO_GPS_3_1.DAT OK\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, OfflineGalileoFileWithItsHeader) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::Gal, 1), "EPO_GAL_7.DAT");
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin E", "end E"}));
    EXPECT_EQ(rec.epo_records, records_of(f.bytes, 72));
    EXPECT_EQ(rec.frames.front(), epo_frame(1200, marker_payload('E', 2)));
    EXPECT_NE(out_of(r).find("[SSS.mmm] EPO type:2,day count:7\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, BinaryAcknowledgementBehindReceiverTextAndStrayBytes) {
    SimFaults f;
    f.garbage_bytes = 60;  // NMEA text with stray 0x04 bytes before each acknowledgement
    start(f);
    EpoFile file = make_epo(dir(), epo_cfg(EpoGenKind::Bds, 1));
    ToolRun r = run_tool(args("offline", {"-f" + file.path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_markers, (std::vector<std::string>{"begin C", "end C"}));
    EXPECT_EQ(rec.epo_records, records_of(file.bytes, 72));
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, ClearThatFailsFollowedByARestartThatSucceeds) {
    SimFaults f;
    f.refuse_prefix = "$PAIR472";
    start(f);
    EpoFile file = make_epo(dir(), epo_cfg(EpoGenKind::Gps, 1));
    ToolRun r = run_tool(
        args("offline", {"-c", "-sWARM", "-u0,2026-01-08-09:59:17,18,10", "-f" + file.path}));
    SimRecord rec = finish();
    ASSERT_GE(rec.sentences.size(), 3u);
    EXPECT_EQ(rec.sentences[0], nmea_sentence("$PAIR472"));
    EXPECT_EQ(rec.sentences[1], nmea_sentence("$PAIR005"));
    EXPECT_EQ(rec.sentences[2], nmea_sentence("$PAIR590,2026,1,8,9,59,17"));
    EXPECT_EQ(rec.epo_records, records_of(file.bytes));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] Need to clear eph in flash\n"), std::string::npos);
    EXPECT_NE(out.find(cmd_line(nmea_sentence("$PAIR472"))), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX ClearEph ret: 0x200\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send StartWay ret: 0x0\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send EphFile ret: 0x0\n" + std::string(kSuccess)),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, ThreeFilesWhereTheSecondFails) {
    SimFaults f;
    f.refuse_prefix = "$PAIR471,2,";  // every Galileo record is refused
    f.repeat_ms = 50;
    start(f);
    EpoFile a = make_epo(dir(), epo_cfg(EpoGenKind::VGps, 1));
    EpoFile b = make_epo(dir(), epo_cfg(EpoGenKind::VGal, 1));
    EpoFile c = make_epo(dir(), epo_cfg(EpoGenKind::VBds, 1));
    ToolRun r = run_tool(args("online", {file_arg({a, b, c})}));
    SimRecord rec = finish();
    auto first = records_of(a.bytes);
    ASSERT_GE(rec.epo_records.size(), first.size());
    EXPECT_EQ(std::vector<std::vector<uint8_t>>(rec.epo_records.begin(),
                                                rec.epo_records.begin() + long(first.size())),
              first);
    EXPECT_LE(rec.epo_records.size(), first.size() + 1);  // nothing of the third file
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send EphData [1] times, ret: 0x0\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] check_id: 471,check_ret:1\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] send VGA.DAT failed[SSS.mmm][INFO] AG33XX Send EphData "
                       "[2] times, ret: 0x202\n[SSS.mmm][FAIL] vkagnss run fail,ret:[0x202]\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("VBD2.DAT to module"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x202));
}

TEST_F(Ag33xxE2E, TimeAcknowledgementSplitOverTwoReads) {
    SimFaults f;
    f.split_parts = 2;
    f.split_gap_ms = 250;  // longer than a read slice: the halves come in two reads
    start(f);
    ToolRun r = run_tool(args("online", {"-u0,2026-01-08-09:59:17,18,10"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea_sentence("$PAIR590,2026,1,8,9,59,17")}));
    std::string echoed;
    std::string out = out_of(r, &echoed);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send Time ret: 0x0\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, RefusedTimeRepeatedUntilTheDeadlineGivesBadAcknowledgement) {
    SimFaults f;
    f.refuse = true;
    f.repeat_ms = 100;
    start(f);
    ToolRun r = run_tool(args("online", {"-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.sentences,
              (std::vector<std::string>{nmea_sentence("$PAIR590,2026,1,8,9,59,17")}));
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] check_id: 590,check_ret:1\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] AG33XX Send Time ret: 0x202\n"
                       "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x202]\n"),
              std::string::npos)
        << out;
    EXPECT_EQ(r.status, expected_status(0x202));
}

TEST_F(Ag33xxE2E, ZeroLatitudeRefusesThePosition) {
    start();
    ToolRun r = run_tool(args("online", {"-l0.0,121.25,10,5"}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_NE(
        out_of(r).find("[SSS.mmm][ERROR] lat[0.000000] or lon[121.250000] is none,no send pos\n"
                       "[SSS.mmm][INFO] AG33XX Send Pos ret: 0x102\n"),
        std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Ag33xxE2E, NanLatitudePassesTheZeroTest) {
    start();
    ToolRun r = run_tool(args("online", {"-lnan,121.25,10,5"}));
    SimRecord rec = finish();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], nmea_sentence("$PAIR600,nan,121.250000,10.0,50.0,50.0,0.0,100.0"));
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, InvalidOfflineFileName) {
    start();
    EpoFile f = make_epo(dir(), epo_cfg(EpoGenKind::Gps, 1), "MYFILE.DAT");
    ToolRun r = run_tool(args("offline", {"-f" + f.path}));
    SimRecord rec = finish();
    EXPECT_TRUE(rec.raw.empty());
    EXPECT_EQ(out_of(r), head(true) + files_lines({f}) + kOpen +
                             "[SSS.mmm][ERROR] Invalid file name [MYFILE.DAT]\r\n" +
                             "[SSS.mmm][INFO] AG33XX Send EphFile ret: 0x102\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
}

TEST_F(Ag33xxE2E, FileListErrors) {
    port_ = "COM3";
    ToolRun r = run_tool(args("online", {"-fa,b,c,d"}));
    EXPECT_EQ(out_of(r), head(false) + "[SSS.mmm][INFO] all file: a,b,c,d\n" +
                             "[SSS.mmm][ERROR] Invalid filepath format, comma count: 3\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    r = run_tool(args("online", {"-fa,,b"}));
    EXPECT_EQ(out_of(r), head(false) + "[SSS.mmm][INFO] all file: a,,b\n" +
                             "[SSS.mmm][ERROR] Invalid filepath, missing field\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    EXPECT_EQ(r.status, expected_status(0x102));
}

TEST_F(Ag33xxE2E, MissingFileIsRefusedBeforeThePortOpens) {
    start();
    EpoFile a = make_epo(dir(), epo_cfg(EpoGenKind::VGps, 1));
    std::string missing = dir() + "/VGA.DAT";
    ToolRun r = run_tool(args("online", {"-f" + a.path + "," + missing}));
    EXPECT_EQ(out_of(r), head(false) + "[SSS.mmm][INFO] all file: " + a.path + "," + missing +
                             "\n" + "[SSS.mmm] index:1,file:" + a.path + "\n" +
                             "[SSS.mmm] index:2,file:" + missing + "\n" +
                             "[SSS.mmm][ERROR] Fail to access " + missing +
                             ", errno: 2 (No such file or directory)\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x103]\n");
    EXPECT_TRUE(finish().raw.empty());
    EXPECT_EQ(r.status, expected_status(0x103));
}

TEST_F(Ag33xxE2E, PortFailureWordedPerMode) {
    port_ = "/dev/vkagnss-no-such-port";
    ToolRun r = run_tool(args("online", {}));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Fail to open /dev/vkagnss-no-such-port\n"),
              std::string::npos);
    r = run_tool(args("offline", {}));
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Fail to open uart /dev/vkagnss-no-such-port\n"),
              std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x104));
}

TEST_F(Ag33xxE2E, UsageErrorForAnInvalidStartWay) {
    port_ = "COM3";
    ToolRun r = run_tool(args("offline", {"-sFULL"}));
    EXPECT_EQ(out_of(r), head(true) + "[SSS.mmm][ERROR] Invalid start way:FULL\n" +
                             "[SSS.mmm][INFO] Start way:FULL\n" +
                             "[SSS.mmm][ERROR] Failed.Please input parameters correctly, such as "
                             "./vk_agnss -m AG33XX -fEPO_GPS_3_1.DAT -p COM3 -b 115200 -o offline, "
                             "FAIL\n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
}

// --- the information entry ---------------------------------------------------

TEST_F(Ag33xxE2E, InformationEntryPrintsTheSummaryOfEachFile) {
    EpoFile a = make_epo(dir(), epo_cfg(EpoGenKind::Gps));
    EpoFile b = make_epo(dir(), epo_cfg(EpoGenKind::Gr));
    EpoFile c = make_epo(dir(), epo_cfg(EpoGenKind::Bds));
    ToolRun r = run_tool({"-m", "AG33XX", file_arg({a, b, c})});
    std::string expected =
        std::string(kBanner) + "[SSS.mmm][INFO] enter AG33XX Agnss decode file func \n" +
        "[SSS.mmm][INFO] Module: AG33XX\n" + "[SSS.mmm][INFO] all file: " + a.path + "," + b.path +
        "," + c.path + "\n";
    const char *types[] = {"GPS ", "GPS + GLONASS ", "BDS "};
    int i = 0;
    for (const EpoFile *f : {&a, &b, &c}) {
        EpoSummary s = summarize(f->bytes);
        expected += "[SSS.mmm] index:" + std::to_string(i + 1) + ",file:" + f->path + "\n" +
                    decode_lines(*f) + summary_lines("INFO", types[i], s);
        ++i;
    }
    EXPECT_EQ(out_of(r), expected + kSuccess);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, InformationEntryOnTheRealRecording) {
    std::string path = std::string(VK_REAL_DATA_DIR) + "/epo/EPO_GPS_3_1.DAT";
    if (read_file(path).empty()) GTEST_SKIP() << "no recording at " << path;
    ToolRun r = run_tool({"-m", "AG33XX", "-f" + path});
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] [EPO INFO] Type: GPS \r\n"
                       "[SSS.mmm][INFO] [EPO INFO] File Size: 27648\r\n"
                       "[SSS.mmm][INFO] [EPO INFO] Segment: 12\r\n"
                       "[SSS.mmm][INFO] [EPO INFO] Valid Days: 3.00\r\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("UTC: (2020-07-13 00:00:00)~(2020-07-16 00:00:00)\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}

TEST_F(Ag33xxE2E, InformationEntryWithAMissingFile) {
    std::string missing = dir() + "/EPO_GPS_3_1.DAT";
    ToolRun r = run_tool({"-m", "AG33XX", "-f" + missing});
    EXPECT_EQ(out_of(r),
              std::string(kBanner) + "[SSS.mmm][INFO] enter AG33XX Agnss decode file func \n" +
                  "[SSS.mmm][INFO] Module: AG33XX\n" + "[SSS.mmm][INFO] all file: " + missing +
                  "\n" + "[SSS.mmm] Only one epo file need to inject\n" +
                  "[SSS.mmm] index:1,file:" + missing + "\n" + "[SSS.mmm][ERROR] Fail to access " +
                  missing + ", errno: 2 (No such file or directory)\n" +
                  "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x103]\n");
    EXPECT_EQ(r.status, expected_status(0x103));
}

TEST_F(Ag33xxE2E, InformationEntryWithoutFiles) {
    ToolRun r = run_tool({"-m", "AG33XX", "-f"});
    EXPECT_EQ(out_of(r), std::string(kBanner) +
                             "[SSS.mmm][INFO] enter AG33XX Agnss decode file func \n" +
                             "[SSS.mmm][INFO] Module: AG33XX\n" +
                             "[SSS.mmm][ERROR] No epo file need to decode \n" +
                             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x102]\n");
    r = run_tool({"-m", "AG33XX", "-fa,,"});
    EXPECT_NE(out_of(r).find("[SSS.mmm][ERROR] Invalid filepath, missing field at index 2\n"),
              std::string::npos);
}

TEST_F(Ag33xxE2E, InformationEntryOnAnInvalidFile) {
    EpoGenConfig cfg = epo_cfg(EpoGenKind::Gal, 1);
    cfg.damage = EpoGenDamage::EmptyHeader;
    EpoFile f = make_epo(dir(), cfg);
    ToolRun r = run_tool({"-m", "AG33XX", "-f" + f.path});
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][INFO] [EPO INFO] Type: INVALID\r\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm][INFO] [EPO INFO] Segment: 0\r\n"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0));
}
