// The virtual receiver (DW2207B), driven through its pseudo-terminal with
// plain POSIX calls (sim_test_util.h; the project's serial layer is tested on
// its own).

#include <gtest/gtest.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sim/model.h"
#include "sim/sentence.h"
#include "sim/sim.h"
#include "tests/unit/sim_test_util.h"

using namespace sim_test;

namespace {

const std::string kOk = "$OK*04\r\n";
const std::string kRefusal = "$ERROR*58\r\n";

// CRC-24Q, bit by bit (the receiver uses the toolkit's table version).
uint32_t crc24q(const uint8_t *p, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(p[i]) << 16;
        for (int b = 0; b < 8; ++b) {
            crc <<= 1;
            if (crc & 0x1000000) crc ^= 0x1864CFB;
        }
    }
    return crc & 0xFFFFFF;
}

Bytes rtcm_frame(const Bytes &payload) {
    Bytes f;
    f.push_back(0xD3);
    f.push_back(uint8_t(payload.size() >> 8 & 0x03));
    f.push_back(uint8_t(payload.size() & 0xFF));
    f.insert(f.end(), payload.begin(), payload.end());
    uint32_t crc = crc24q(f.data(), f.size());
    f.push_back(uint8_t(crc >> 16));
    f.push_back(uint8_t(crc >> 8));
    f.push_back(uint8_t(crc));
    return f;
}

// A payload that starts like message type `type`, filled deterministically.
Bytes payload_of(uint16_t type, size_t len, uint8_t seed) {
    Bytes p(len);
    for (size_t i = 0; i < len; ++i) p[i] = uint8_t(seed + i * 7);
    if (len >= 2) {
        p[0] = uint8_t(type >> 4);
        p[1] = uint8_t((type & 0x0F) << 4 | (p[1] & 0x0F));
    }
    return p;
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

}  // namespace

TEST(SimHelpers, Crc24qOfTheCheckString) {
    const char *s = "123456789";
    EXPECT_EQ(crc24q(reinterpret_cast<const uint8_t *>(s), 9), 0xCDE703u);
}

TEST(SimHelpers, NmeaTrailerOfAck) { EXPECT_EQ(nmea("$OK"), kOk); }

TEST(Sim, GoodSentenceGetsOkAndIsRecorded) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string cmd = nmea("$RESET,0,h00");
    ASSERT_TRUE(write_all(rig.port, cmd));
    EXPECT_EQ(read_n(rig.port, kOk.size(), 3000), kOk);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], cmd);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_EQ(rec.raw, bytes_of(cmd));
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, EachSentenceOfABurstIsAnswered) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string a = nmea("$AIDTIME,2026,1,8,9,59,17,0");
    std::string b = nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0");
    ASSERT_TRUE(write_all(rig.port, a + b));
    EXPECT_EQ(read_n(rig.port, 2 * kOk.size(), 3000), kOk + kOk);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 2u);
    EXPECT_EQ(rec.sentences[0], a);
    EXPECT_EQ(rec.sentences[1], b);
    EXPECT_EQ(rec.replies, 2u);
}

TEST(Sim, BadChecksumIsCountedAndRefused) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string good = nmea("$RESET,0,h00");
    std::string bad = good;
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';  // wrong low digit
    ASSERT_TRUE(write_all(rig.port, bad));
    EXPECT_EQ(read_n(rig.port, kRefusal.size(), 3000), kRefusal);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, 1u);
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], bad);
}

TEST(Sim, SentenceWithoutChecksumOrCarriageReturnIsBad) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string no_sum = "$RESET,0,h00\r\n";
    std::string with_sum = nmea("$RESET,0,h00");
    std::string no_cr = with_sum.substr(0, with_sum.size() - 2) + "\n";
    // The checksum of this body has a letter digit, sent here in lower case.
    std::string lower = with_sum;
    size_t star = lower.find('*');
    for (size_t i = star + 1; i < star + 3; ++i) lower[i] = char(std::tolower(lower[i]));
    ASSERT_NE(lower, with_sum);
    std::string all = no_sum + no_cr + lower;
    size_t expected_bad = 3;
    ASSERT_TRUE(write_all(rig.port, all));
    std::string want;
    for (size_t i = 0; i < expected_bad; ++i) want += kRefusal;
    EXPECT_EQ(read_n(rig.port, want.size(), 3000), want);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, expected_bad);
    EXPECT_EQ(rec.sentences.size(), expected_bad);
}

TEST(Sim, RtcmFrameIsRecordedExactlyAndNotAnswered) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    Bytes f1 = rtcm_frame(payload_of(1019, 61, 3));
    Bytes f2 = rtcm_frame(payload_of(1042, 64, 9));
    Bytes empty = rtcm_frame(Bytes());
    Bytes big = rtcm_frame(payload_of(1046, 1023, 5));
    Bytes all = concat({f1, f2, empty, big});
    ASSERT_TRUE(write_all(rig.port, all));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[0], f1);
    EXPECT_EQ(rec.frames[1], f2);
    EXPECT_EQ(rec.frames[2], empty);
    EXPECT_EQ(rec.frames[3], big);
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_EQ(rec.raw, all);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, FrameSplitOverSeveralWritesIsWhole) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    Bytes f = rtcm_frame(payload_of(1020, 40, 1));
    ASSERT_TRUE(write_all(rig.port, f.data(), 2));
    sim_settle(rig.sim, 50, 2000);
    ASSERT_TRUE(write_all(rig.port, f.data() + 2, 20));
    sim_settle(rig.sim, 50, 2000);
    ASSERT_TRUE(write_all(rig.port, f.data() + 22, f.size() - 22));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.frames.size(), 1u);
    EXPECT_EQ(rec.frames[0], f);
}

TEST(Sim, BadCrcIsCounted) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    Bytes bad = rtcm_frame(payload_of(1019, 61, 3));
    bad.back() ^= 0x01;
    Bytes good = rtcm_frame(payload_of(1020, 30, 4));
    ASSERT_TRUE(write_all(rig.port, concat({bad, good})));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_frames, 1u);
    ASSERT_EQ(rec.frames.size(), 1u);
    EXPECT_EQ(rec.frames[0], good);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, SentencesFramesAndStrayBytesInOneStream) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string s1 = nmea("$RESET,0,hFF");
    std::string s2 = nmea("$AIDTIME,2026,1,8,9,59,17,0");
    Bytes f = rtcm_frame(payload_of(1019, 61, 8));
    Bytes all = concat({bytes_of("xx\r\n"), bytes_of(s1), f, bytes_of("\x01\x02"), bytes_of(s2)});
    ASSERT_TRUE(write_all(rig.port, all));
    EXPECT_EQ(read_n(rig.port, 2 * kOk.size(), 3000), kOk + kOk);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 2u);
    EXPECT_EQ(rec.sentences[0], s1);
    EXPECT_EQ(rec.sentences[1], s2);
    ASSERT_EQ(rec.frames.size(), 1u);
    EXPECT_EQ(rec.frames[0], f);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.bad_frames, 0u);
    EXPECT_EQ(rec.raw, all);
    EXPECT_EQ(sim_bytes_received(rig.sim), all.size());
}

TEST(Sim, RefuseAnswersTheRefusal) {
    SimFaults f;
    f.refuse = true;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    std::string cmd = nmea("$RESET,0,h01");
    ASSERT_TRUE(write_all(rig.port, cmd));
    EXPECT_EQ(read_n(rig.port, kRefusal.size(), 3000), kRefusal);
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.bad_checksums, 0u);
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, SilentRecordsButNeverAnswers) {
    SimFaults f;
    f.silent = true;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    std::string cmd = nmea("$RESET,0,h00");
    ASSERT_TRUE(write_all(rig.port, cmd));
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], cmd);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, GarbageBytesComeBeforeTheReply) {
    SimFaults f;
    f.garbage_bytes = 20;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    std::string got = read_n(rig.port, 20 + kOk.size(), 3000);
    EXPECT_EQ(got, "#noise#noise#noise#n" + kOk);
    EXPECT_EQ(got.substr(0, 20).find('$'), std::string::npos);
    rig.settle();
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, GarbageOnlyNeverSendsTheExpectedText) {
    SimFaults f;
    f.garbage_only = true;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    ASSERT_TRUE(write_all(rig.port, nmea("$AIDTIME,2026,1,8,9,59,17,0")));
    std::string got = read_n(rig.port, 2 * kOk.size(), 3000);
    EXPECT_EQ(got, "#noise#n#noise#n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 2u);
    EXPECT_EQ(rec.sentences.size(), 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, SplitReplyArrivesInPiecesButWhole) {
    SimFaults f;
    f.split_parts = 3;
    f.split_gap_ms = 200;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    std::vector<std::string> reads;
    EXPECT_EQ(read_n(rig.port, kOk.size(), 5000, &reads), kOk);
    // The reader waits in poll while the pieces are 200 ms apart.
    EXPECT_GE(reads.size(), 2u);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 1u);
}

TEST(Sim, DelayedReplyStillArrivesWhole) {
    SimFaults f;
    f.delay_ms = 300;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    EXPECT_EQ(read_n(rig.port, kOk.size(), 5000), kOk);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.replies, 1u);
}

TEST(Sim, SettleWaitsForADelayedReply) {
    SimFaults f;
    f.delay_ms = 300;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    // Quiet for 50 ms is not enough while the reply is being held back.
    sim_settle(rig.sim, 50, 5000);
    EXPECT_EQ(sim_record(rig.sim).replies, 1u);
    EXPECT_EQ(read_n(rig.port, kOk.size(), 1000), kOk);
}

TEST(Sim, ChatterKeepsTheLineBusyWithNoiseAndAnswersStillCome) {
    SimFaults f;
    f.chatter_ms = 30;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    // Unasked: noise only, in 16-byte pieces, never a '$'.
    std::string noise = read_n(rig.port, 48, 5000);
    ASSERT_EQ(noise.size(), 48u);
    EXPECT_EQ(noise, "#noise#noise#noi#noise#noise#noi#noise#noise#noi");
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
    // The answer comes whole between noise pieces.
    std::string got;
    auto end = Clock::now() + std::chrono::seconds(5);
    while (got.find(kOk) == std::string::npos && Clock::now() < end)
        got += read_n(rig.port, 1, 100);
    EXPECT_NE(got.find(kOk), std::string::npos) << got;
    EXPECT_EQ(got.find('$'), got.find(kOk));
    // Chatter is not activity: settling still ends with the command recorded.
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.replies, 1u);
    EXPECT_TRUE(sim_idle(rig.sim, 100));
}

TEST(Sim, StopAfterAnswersOnlyTheFirstCommands) {
    SimFaults f;
    f.stop_after = 2;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h00")));
        EXPECT_EQ(read_n(rig.port, kOk.size(), 3000), kOk) << "command " << i;
    }
    ASSERT_TRUE(write_all(rig.port, nmea("$RESET,0,h01")));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.sentences.size(), 3u);
    EXPECT_EQ(rec.replies, 2u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(Sim, CloseAfterFramesHangsUp) {
    SimFaults f;
    f.close_after_frames = 2;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    Bytes f1 = rtcm_frame(payload_of(1019, 61, 1));
    Bytes f2 = rtcm_frame(payload_of(1019, 61, 2));
    Bytes f3 = rtcm_frame(payload_of(1019, 61, 3));
    ASSERT_TRUE(write_all(rig.port, concat({f1, f2, f3})));

    // The writer sees the hang-up: POLLHUP, or an error on a further write.
    bool failed = false;
    auto end = Clock::now() + std::chrono::seconds(5);
    Bytes more = rtcm_frame(payload_of(1019, 61, 4));
    while (!failed && Clock::now() < end) {
        pollfd p{rig.port, POLLOUT, 0};
        if (poll(&p, 1, 10) > 0 && (p.revents & (POLLHUP | POLLERR))) {
            ssize_t w = write(rig.port, more.data(), more.size());
            failed = w < 0;
            break;
        }
        ssize_t w = write(rig.port, more.data(), more.size());
        if (w < 0 && errno != EAGAIN && errno != EINTR) failed = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(failed);
    EXPECT_TRUE(sim_hung_up(rig.sim));
    SimRecord rec = sim_record(rig.sim);
    ASSERT_EQ(rec.frames.size(), 2u);
    EXPECT_EQ(rec.frames[0], f1);
    EXPECT_EQ(rec.frames[1], f2);
    EXPECT_EQ(rec.raw, concat({f1, f2}));
    sim_stop(rig.sim);
    EXPECT_EQ(sim_record(rig.sim).raw, concat({f1, f2}));
}

TEST(Sim, SymlinkIsCreatedAndRemoved) {
    char dir_template[] = "/tmp/vksim_test_XXXXXX";
    char *dir = mkdtemp(dir_template);
    ASSERT_NE(dir, nullptr);
    std::string link = std::string(dir) + "/ttyVK0";
    // An older link (as a crashed run leaves behind) is replaced.
    ASSERT_EQ(symlink("/dev/null", link.c_str()), 0);

    SimConfig cfg;
    cfg.platform = "DW2207B";  // any case
    cfg.link_path = link;
    std::string error;
    Sim *sim = sim_start(cfg, &error);
    ASSERT_NE(sim, nullptr) << error;
    char target[256] = {};
    ASSERT_GT(readlink(link.c_str(), target, sizeof target - 1), 0);
    EXPECT_EQ(std::string(target), sim_slave_path(sim));

    int port = open_port(link);
    ASSERT_GE(port, 0);
    ASSERT_TRUE(write_all(port, nmea("$RESET,0,h00")));
    EXPECT_EQ(read_n(port, kOk.size(), 3000), kOk);
    close(port);

    sim_stop(sim);
    struct stat st {};
    EXPECT_NE(lstat(link.c_str(), &st), 0);
    sim_free(sim);
    rmdir(dir);
}

TEST(Sim, LinkOverARegularFileIsRefused) {
    char dir_template[] = "/tmp/vksim_test_XXXXXX";
    char *dir = mkdtemp(dir_template);
    ASSERT_NE(dir, nullptr);
    std::string path = std::string(dir) + "/ttyVK0";
    FILE *f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs("keep", f);
    std::fclose(f);

    SimConfig cfg;
    cfg.platform = "dw2207b";
    cfg.link_path = path;
    std::string error;
    Sim *sim = sim_start(cfg, &error);
    EXPECT_EQ(sim, nullptr);
    EXPECT_FALSE(error.empty());
    sim_free(sim);
    struct stat st {};
    ASSERT_EQ(lstat(path.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    unlink(path.c_str());
    rmdir(dir);
}

TEST(Sim, StopTakesInBytesWrittenJustBefore) {
    Rig rig("dw2207b");
    REQUIRE_RIG(rig);
    std::string cmd = nmea("$AIDPOS,3150.000000,N,12125.000000,E,10.0");
    Bytes frame = rtcm_frame(payload_of(1019, 61, 6));
    Bytes all = concat({bytes_of(cmd), frame});
    ASSERT_TRUE(write_all(rig.port, all));
    sim_stop(rig.sim);
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.raw, all);
    ASSERT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.sentences[0], cmd);
    ASSERT_EQ(rec.frames.size(), 1u);
    EXPECT_EQ(rec.frames[0], frame);
}

TEST(Sim, PacedReceiverAnswersAndRecordsEverything) {
    SimFaults f;
    f.pace_baud = 115200;
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    std::string cmd = nmea("$RESET,0,h00");
    ASSERT_TRUE(write_all(rig.port, cmd));
    EXPECT_EQ(read_n(rig.port, kOk.size(), 3000), kOk);
    Bytes frames;
    for (int i = 0; i < 20; ++i) {
        Bytes fr = rtcm_frame(payload_of(1019, 61, uint8_t(i)));
        frames.insert(frames.end(), fr.begin(), fr.end());
    }
    ASSERT_TRUE(write_all(rig.port, frames));
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.frames.size(), 20u);
    EXPECT_EQ(rec.raw, concat({bytes_of(cmd), frames}));
}

TEST(Sim, PacedReceiverThrottlesAFastWriter) {
    SimFaults f;
    f.pace_baud = 300;  // 30 bytes a second
    Rig rig("dw2207b", f);
    REQUIRE_RIG(rig);
    int fl = fcntl(rig.port, F_GETFL);
    ASSERT_EQ(fcntl(rig.port, F_SETFL, fl | O_NONBLOCK), 0);
    Bytes chunk(1024, 'a');
    size_t written = 0;
    bool blocked = false;
    // Far more than the line buffers can hold; the writer must hit a full line.
    while (written < (4u << 20)) {
        ssize_t w = write(rig.port, chunk.data(), chunk.size());
        if (w < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            blocked = true;
            break;
        }
        ASSERT_GT(w, 0) << std::strerror(errno);
        written += size_t(w);
    }
    EXPECT_TRUE(blocked);
    EXPECT_LT(sim_bytes_received(rig.sim), written);
    // Stopping takes in the whole backlog at full speed.
    sim_stop(rig.sim);
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.raw.size(), written);
}

// The tool locks the port and makes it exclusive; the sim's own descriptor on
// the slave must not stand in the way, run after run.
TEST(Sim, ToolCanOpenThePortExclusivelyRunAfterRun) {
    SimConfig cfg;
    cfg.platform = "dw2207b";
    std::string error;
    Sim *sim = sim_start(cfg, &error);
    ASSERT_NE(sim, nullptr) << error;
    for (int run = 0; run < 2; ++run) {
        int fd = open_port(sim_slave_path(sim));
        ASSERT_GE(fd, 0) << "run " << run << ": " << std::strerror(errno);
        EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0) << std::strerror(errno);
        EXPECT_EQ(ioctl(fd, TIOCEXCL), 0);
        ASSERT_TRUE(write_all(fd, nmea("$RESET,0,h00")));
        EXPECT_EQ(read_n(fd, kOk.size(), 3000), kOk) << "run " << run;
        // As the tool's serial layer does: give the exclusive flag back, since
        // the sim keeps the terminal alive after this close.
        ioctl(fd, TIOCNXCL);
        close(fd);
    }
    EXPECT_EQ(sim_record(sim).sentences.size(), 2u);
    sim_stop(sim);
    sim_stop(sim);  // a second stop is harmless
    EXPECT_EQ(sim_record(sim).replies, 2u);
    sim_free(sim);
}

TEST(Sim, StartRefusesUnknownPlatformAndZeroFrameLimit) {
    SimConfig cfg;
    cfg.platform = "nosuch";
    std::string error;
    EXPECT_EQ(sim_start(cfg, &error), nullptr);
    EXPECT_NE(error.find("nosuch"), std::string::npos);
    cfg.platform = "dw2207b";
    cfg.faults.close_after_frames = 0;
    error.clear();
    EXPECT_EQ(sim_start(cfg, &error), nullptr);
    EXPECT_FALSE(error.empty());
}

// The model on its own, without a line.

TEST(SimModelDw2207b, InterruptedSentenceIsDamagedAndTheNextOneCounts) {
    std::string good = nmea("$RESET,0,h00");
    Fed fed = feed_model("dw2207b", bytes_of("$RES" + good));
    ASSERT_EQ(fed.units.size(), 2u);
    EXPECT_EQ(fed.units[0].kind, SimUnitKind::Sentence);
    EXPECT_FALSE(fed.units[0].good);
    EXPECT_FALSE(fed.units[0].record);
    EXPECT_TRUE(fed.units[0].reply.empty());
    EXPECT_TRUE(fed.units[1].good);
    EXPECT_EQ(fed.units[1].bytes, bytes_of(good));
    EXPECT_EQ(fed.units[1].reply, kOk);
    EXPECT_EQ(fed.units[1].refusal, kRefusal);
}

TEST(SimModelDw2207b, StrayPreambleWithReservedBitsResyncs) {
    std::string good = nmea("$RESET,0,h00");
    Fed fed = feed_model("dw2207b", concat({Bytes{0xD3}, bytes_of(good)}));
    ASSERT_EQ(fed.units.size(), 2u);
    EXPECT_EQ(fed.units[0].kind, SimUnitKind::Frame);
    EXPECT_FALSE(fed.units[0].good);
    EXPECT_TRUE(fed.units[1].good);
    EXPECT_EQ(fed.units[1].bytes, bytes_of(good));
}

TEST(SimModelDw2207b, FrameInsideASentenceEndsTheSentence) {
    Bytes frame = rtcm_frame(payload_of(1019, 10, 1));
    Fed fed = feed_model("dw2207b", concat({bytes_of("$AIDTIME,20"), frame}));
    ASSERT_EQ(fed.units.size(), 2u);
    EXPECT_EQ(fed.units[0].kind, SimUnitKind::Sentence);
    EXPECT_FALSE(fed.units[0].good);
    EXPECT_EQ(fed.units[1].kind, SimUnitKind::Frame);
    EXPECT_TRUE(fed.units[1].good);
    EXPECT_EQ(fed.units[1].bytes, frame);
    EXPECT_TRUE(fed.units[1].reply.empty());
}

// The sentence checks every model shares.
TEST(SimSentence, TrailerAndCheck) {
    EXPECT_EQ(sim_sentence_of("OK"), kOk);
    EXPECT_EQ(sim_sentence_of("ERROR"), kRefusal);
    std::string good = nmea("$AIDTIME,2026,1,8,9,59,17,0");
    EXPECT_TRUE(sim_sentence_good(bytes_of(good)));
    std::string lower = nmea("$RESET,0,h00");  // its check value has a letter digit
    size_t star = lower.find('*');
    lower[star + 2] = char(std::tolower(lower[star + 2]));
    ASSERT_NE(lower, nmea("$RESET,0,h00"));
    EXPECT_FALSE(sim_sentence_good(bytes_of(lower)));
    EXPECT_FALSE(sim_sentence_good(bytes_of(good.substr(0, good.size() - 2) + "\n")));  // no CR
    EXPECT_FALSE(sim_sentence_good(bytes_of("$AIDTIME,2026\r\n")));  // no check value
    EXPECT_FALSE(sim_sentence_good(
        bytes_of(good.substr(0, good.size() - 2) + "0\r\n")));  // past the check value
}

TEST(SimSentence, HeadIsTheBodyGoodOrNot) {
    EXPECT_EQ(sim_sentence_head(bytes_of(nmea("$PAIR590,1,2"))), "PAIR590,1,2");
    EXPECT_EQ(sim_sentence_head(bytes_of("$PAIR590,1,2*zz\r\n")), "PAIR590,1,2");
    EXPECT_EQ(sim_sentence_head(bytes_of("$PAIR590,1,2\r\n")), "PAIR590,1,2");
    EXPECT_EQ(sim_sentence_head(bytes_of("$\n")), "");
}
