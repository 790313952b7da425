// The TQ934N receiver model of the virtual receiver, driven through the
// pseudo-terminal with plain POSIX calls (sim_test_util.h): the "$PVNK"
// sentences, the 'B' 'K' binary time frame and the raw ephemeris blocks with
// their acknowledgements. Every expected answer is either written out
// literally or built here independently of the sim.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "sim/model.h"
#include "sim/sim.h"
#include "tests/unit/sim_test_util.h"

using namespace sim_test;

namespace {

// CRC-16/XMODEM, bit by bit.
uint16_t crc16(const uint8_t *p, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(p[i]) << 8;
        for (int k = 0; k < 8; ++k) crc = (crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1;
        crc &= 0xFFFF;
    }
    return uint16_t(crc);
}

// 'B' 'K' | CRC-16 big-endian over class .. payload | class | id | 12-bit length | payload.
Bytes bk(uint8_t cls, uint8_t id, const Bytes &payload) {
    Bytes f = {'B',
               'K',
               0,
               0,
               cls,
               id,
               uint8_t((payload.size() >> 8) & 0x0F),
               uint8_t(payload.size() & 0xFF)};
    f.insert(f.end(), payload.begin(), payload.end());
    uint16_t crc = crc16(f.data() + 4, f.size() - 4);
    f[2] = uint8_t(crc >> 8);
    f[3] = uint8_t(crc & 0xFF);
    return f;
}

void put_le32(Bytes *b, uint32_t v) {
    for (int i = 0; i < 4; ++i) b->push_back(uint8_t(v >> (8 * i)));
}

// The binary aiding time: three little-endian words.
Bytes time_frame(uint32_t week, uint32_t tow, int32_t leap) {
    Bytes payload;
    put_le32(&payload, week);
    put_le32(&payload, tow);
    put_le32(&payload, uint32_t(leap));
    return bk(0x18, 0x03, payload);
}

// The receiver's answers.
const Bytes kBlockAck = {0x42, 0x4B, 0x54, 0xEB, 0x3C, 0x01, 0x00, 0x00};
const Bytes kBlockNak = {0x42, 0x4B, 0x63, 0xDB, 0x3C, 0x00, 0x00, 0x00};
const Bytes kTimeAck = {0x42, 0x4B, 0xB1, 0x80, 0x19, 0x03, 0x00, 0x00};
const Bytes kTimeNak = {0x42, 0x4B, 0xE8, 0xD0, 0x19, 0x00, 0x00, 0x00};

const size_t kBlock = 4096;

// An ephemeris file as the host sends it: a time frame, then RTCM-looking
// bytes. Block boundaries are given awkward first bytes: '$', 'B' 'K', CR.
Bytes ephemeris_file(size_t n) {
    Bytes f = time_frame(2400, 345600, 18);
    f.push_back(0xD3);
    for (size_t i = f.size(); i < n; ++i) f.push_back(uint8_t(i * 37 + (i >> 7)));
    f.resize(n);
    const uint8_t firsts[] = {'$', 'B', '\r'};
    for (size_t at = kBlock, k = 0; at < n; at += kBlock, ++k) f[at] = firsts[k % 3];
    if (2 * kBlock + 1 < n) f[2 * kBlock + 1] = 'K';
    return f;
}

std::vector<Bytes> blocks_of(const Bytes &file) {
    std::vector<Bytes> out;
    for (size_t at = 0; at < file.size(); at += kBlock) {
        size_t end = at + kBlock < file.size() ? at + kBlock : file.size();
        out.emplace_back(file.begin() + long(at), file.begin() + long(end));
    }
    return out;
}

// How the host judges a text reply: the first line that holds the command's
// name decides; "OK" takes it (0), "ERROR" rejects it (0x107) except for the
// aiding time, which passes; anything else is neither (-1); no name is 0x200.
long judge(const std::string &buffer, const std::string &name) {
    size_t at = buffer.find(name);
    if (at == std::string::npos) return 0x200;
    std::string line = buffer.substr(at, buffer.find_first_of("\r\n", at) - at);
    if (line.find("OK") != std::string::npos) return 0;
    if (line.find("ERROR") != std::string::npos)
        return line.find("$PVNKAIDTIME") != std::string::npos ? 0 : 0x107;
    return -1;
}

// Waits until the receiver has read n bytes in all (what the tool writes is
// not at once readable on the receiver's side), then until the line is quiet.
SimRecord settle_after(Rig &rig, uint64_t n) {
    auto end = Clock::now() + std::chrono::seconds(5);
    while (sim_bytes_received(rig.sim) < n && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return rig.settle();
}

const std::string kClear = "$PVNKCLRADAT*4E\r\n";
const std::string kAidPos = nmea("$PVNKAIDPOS,1,31.500000,121.250000,12.00,5.000");
const std::string kAidTime = nmea("$PVNKAIDTIME,1,18,2026,01,08,09,59,17,000,5,0");

// The model fed directly, quiet spells told by hand (no line, no faults).
struct Direct {
    const SimModel *m = sim_find_model("tq934n");
    void *st = nullptr;
    Direct() { st = m ? m->create() : nullptr; }
    ~Direct() {
        if (st) m->destroy(st);
    }
    Direct(const Direct &) = delete;
    Direct &operator=(const Direct &) = delete;
    std::vector<SimUnit> feed(const Bytes &in) {
        std::vector<SimUnit> out;
        SimUnit u;
        for (uint8_t b : in)
            if (m->feed(st, b, &u)) out.push_back(u);
        return out;
    }
    std::vector<SimUnit> feed(const std::string &in) { return feed(bytes_of(in)); }
};

}  // namespace

// --- the test's own helpers ------------------------------------------------------

TEST(SimTq934nHelpers, LiteralFramesCarryTheirCrc) {
    const std::string check = "123456789";
    EXPECT_EQ(crc16(reinterpret_cast<const uint8_t *>(check.data()), check.size()), 0x31C3);
    EXPECT_EQ(bk(0x3C, 0x01, {}), kBlockAck);
    EXPECT_EQ(bk(0x3C, 0x00, {}), kBlockNak);
    EXPECT_EQ(bk(0x19, 0x03, {}), kTimeAck);
    EXPECT_EQ(bk(0x19, 0x00, {}), kTimeNak);
    Bytes t = time_frame(1, 2, 3);
    ASSERT_EQ(t.size(), 20u);
    EXPECT_EQ(t[6], 0x00);
    EXPECT_EQ(t[7], 0x0C);
    EXPECT_EQ(nmea("$PVNKCLRADAT"), kClear);
    EXPECT_EQ(nmea("$PVNKCOLD"), "$PVNKCOLD*07\r\n");
    const Bytes file = ephemeris_file(2 * kBlock + 1000);
    EXPECT_EQ(file[kBlock], '$');
    EXPECT_EQ(file[2 * kBlock], 'B');
    EXPECT_EQ(file[20], 0xD3);
    EXPECT_EQ(judge("$PVNKAIDTIME,ERROR*2E\r\n", "$PVNKAIDTIME"), 0);
    EXPECT_EQ(judge("$PVNKAIDPOS,ERROR*77\r\n", "$PVNKAIDPOS"), 0x107);
}

// --- sentences -------------------------------------------------------------------

TEST(SimTq934n, CommandSentencesAreAnsweredWithOk) {
    Rig rig("tq934n");
    REQUIRE_RIG(rig);
    EXPECT_ANSWER(rig, kClear, "$PVNKCLRADAT,OK*66\r\n");
    const std::string pos_ok = "$PVNKAIDPOS,OK*2B\r\n";
    std::string pos = rig.ask(kAidPos, pos_ok.size());
    EXPECT_EQ(pos, pos_ok);
    EXPECT_EQ(judge(pos, "$PVNKAIDPOS"), 0);
    const std::string time_ok = "$PVNKAIDTIME,OK*72\r\n";
    std::string time = rig.ask(kAidTime, time_ok.size());
    EXPECT_EQ(time, time_ok);
    EXPECT_EQ(judge(time, "$PVNKAIDTIME"), 0);
    EXPECT_ANSWER(rig, "$PVNKCOLD*07\r\n", "$PVNKCOLD,OK*2F\r\n");
    EXPECT_ANSWER(rig, "$PVNKWARM*0A\r\n", "$PVNKWARM,OK*22\r\n");
    EXPECT_ANSWER(rig, "$PVNKHOT*50\r\n", "$PVNKHOT,OK*78\r\n");
    // Other sentences, and the bare trailer of an empty start command, get nothing.
    ASSERT_TRUE(write_all(rig.port, nmea("$PVNKEPOCLR") + nmea("$GPGGA,1,2") + "*00\r\n"));
    EXPECT_ANSWER(rig, kClear, "$PVNKCLRADAT,OK*66\r\n");
    SimRecord rec = rig.settle();
    ASSERT_EQ(rec.sentences.size(), 9u);
    EXPECT_EQ(rec.sentences[1], kAidPos);
    EXPECT_EQ(rec.sentences[2], kAidTime);
    EXPECT_EQ(rec.tq_clears, 2u);
    EXPECT_EQ(rec.tq_restarts, 3u);
    EXPECT_EQ(rec.replies, 7u);
    EXPECT_EQ(rec.refusals, 0u);
    EXPECT_TRUE(rec.frames.empty());
    EXPECT_TRUE(rec.tq_block_sizes.empty());
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimTq934n, BadChecksumGetsTheError) {
    Rig rig("tq934n");
    REQUIRE_RIG(rig);
    std::string bad = kAidPos;
    bad[bad.size() - 3] = bad[bad.size() - 3] == '0' ? '1' : '0';
    const std::string error = "$PVNKAIDPOS,ERROR*77\r\n";
    std::string reply = rig.ask(bad, error.size());
    EXPECT_EQ(reply, error);
    EXPECT_EQ(judge(reply, "$PVNKAIDPOS"), 0x107);
    EXPECT_ANSWER(rig, "$PVNKCLRADAT*4F\r\n", "$PVNKCLRADAT,ERROR*3A\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.bad_checksums, 2u);
    EXPECT_EQ(rec.refusals, 2u);
    EXPECT_EQ(rec.tq_clears, 0u);
}

// --- ephemeris blocks ------------------------------------------------------------

TEST(SimTq934n, EveryBlockIsAcknowledgedAndEveryByteKept) {
    Rig rig("tq934n");
    REQUIRE_RIG(rig);
    const Bytes file = ephemeris_file(2 * kBlock + 1000);
    const std::vector<Bytes> blocks = blocks_of(file);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(rig.ask(blocks[0], 8), kBlockAck);  // begins with the file's time frame
    EXPECT_EQ(rig.ask(blocks[1], 8), kBlockAck);  // begins with '$'
    EXPECT_EQ(rig.ask(blocks[2], 8),
              kBlockAck);  // begins with 'B' 'K'; ends when the line is quiet
    // The shorter block ended the transfer: a sentence is a sentence again.
    EXPECT_ANSWER(rig, kAidTime, "$PVNKAIDTIME,OK*72\r\n");
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{4096, 4096, 1000}));
    EXPECT_EQ(rec.ephemeris_bytes, file);
    // The time frame at the head of the file is ephemeris data, no command.
    EXPECT_TRUE(rec.tq_times.empty());
    EXPECT_TRUE(rec.frames.empty());
    EXPECT_EQ(rec.sentences.size(), 1u);
    EXPECT_EQ(rec.replies, 4u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimTq934n, ASmallFileIsOneShortBlock) {
    Rig rig("tq934n");
    REQUIRE_RIG(rig);
    // Straight RTCM from the first byte, no time frame in front.
    Bytes file = ephemeris_file(700);
    file.erase(file.begin(), file.begin() + 20);
    ASSERT_EQ(file[0], 0xD3);
    EXPECT_EQ(rig.ask(file, 8), kBlockAck);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{680}));
    EXPECT_EQ(rec.ephemeris_bytes, file);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimTq934n, SettleAndStopWaitForTheBlockTheQuietEnds) {
    const Bytes file = ephemeris_file(300);
    {
        Rig rig("tq934n");
        REQUIRE_RIG(rig);
        ASSERT_TRUE(write_all(rig.port, file));
        // Returns once the block is taken and answered.
        SimRecord rec = settle_after(rig, file.size());
        EXPECT_EQ(rec.ephemeris_bytes, file);
        EXPECT_EQ(rec.replies, 1u);
        EXPECT_EQ(bytes_of(read_n(rig.port, 8, 3000)), kBlockAck);
    }
    {
        Rig rig("tq934n");
        REQUIRE_RIG(rig);
        ASSERT_TRUE(write_all(rig.port, file));
        sim_stop(rig.sim);  // the end of the line ends the block
        SimRecord rec = sim_record(rig.sim);
        EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{300}));
        EXPECT_EQ(rec.ephemeris_bytes, file);
    }
}

// --- the binary time frame -------------------------------------------------------

TEST(SimTq934n, BinaryTimeFrameAloneIsAcknowledgedAndDecoded) {
    Rig rig("tq934n");
    REQUIRE_RIG(rig);
    EXPECT_EQ(rig.ask(time_frame(2400, 345600, 18), 8), kTimeAck);
    EXPECT_EQ(rig.ask(time_frame(0xFFFFFFFF, 604799, -1), 8), kTimeAck);
    // A time frame of another size is refused.
    EXPECT_EQ(rig.ask(bk(0x18, 0x03, {1, 2, 3, 4, 5, 6, 7, 8}), 8), kTimeNak);
    // Another frame, and one with a bad CRC, get nothing.
    ASSERT_TRUE(write_all(rig.port, bk(0x18, 0x05, {9, 9})));
    SimRecord rec = settle_after(rig, 20 + 20 + 16 + 10);
    EXPECT_FALSE(input_pending(rig.port));
    Bytes bad = time_frame(1, 2, 3);
    bad[3] ^= 0x01;
    ASSERT_TRUE(write_all(rig.port, bad));
    rec = settle_after(rig, 20 + 20 + 16 + 10 + 20);
    EXPECT_FALSE(input_pending(rig.port));
    ASSERT_EQ(rec.tq_times.size(), 2u);
    EXPECT_EQ(rec.tq_times[0], (SimTqTime{2400, 345600, 18}));
    EXPECT_EQ(rec.tq_times[1], (SimTqTime{0xFFFFFFFF, 604799, -1}));
    ASSERT_EQ(rec.frames.size(), 4u);
    EXPECT_EQ(rec.frames[0], time_frame(2400, 345600, 18));
    EXPECT_EQ(rec.bad_frames, 1u);
    EXPECT_EQ(rec.refusals, 1u);
    EXPECT_EQ(rec.replies, 3u);
    EXPECT_TRUE(rec.tq_block_sizes.empty());
}

// --- faults ----------------------------------------------------------------------

TEST(SimTq934nFaults, RefuseAnswersErrorAndNakAndKeepsNothing) {
    SimFaults f;
    f.refuse = true;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    const std::string time_error = "$PVNKAIDTIME,ERROR*2E\r\n";
    std::string reply = rig.ask(kAidTime, time_error.size());
    EXPECT_EQ(reply, time_error);
    EXPECT_EQ(judge(reply, "$PVNKAIDTIME"), 0);  // a refused time is let pass
    EXPECT_ANSWER(rig, kClear, "$PVNKCLRADAT,ERROR*3A\r\n");
    EXPECT_ANSWER(rig, "$PVNKCOLD*07\r\n", nmea("$PVNKCOLD,ERROR"));
    EXPECT_EQ(rig.ask(time_frame(2400, 1, 18), 8), kTimeNak);
    const std::vector<Bytes> blocks = blocks_of(ephemeris_file(kBlock + 10));
    EXPECT_EQ(rig.ask(blocks[0], 8), kBlockNak);
    EXPECT_EQ(rig.ask(blocks[1], 8), kBlockNak);
    SimRecord rec = rig.settle();
    EXPECT_TRUE(rec.ephemeris_bytes.empty());
    EXPECT_TRUE(rec.tq_block_sizes.empty());
    EXPECT_TRUE(rec.tq_times.empty());
    EXPECT_EQ(rec.tq_clears, 0u);
    EXPECT_EQ(rec.tq_restarts, 0u);
    EXPECT_EQ(rec.refusals, 6u);
}

TEST(SimTq934nFaults, RefuseOneBlockTheOthersAreKept) {
    SimFaults f;
    f.refuse_only = 1;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    const Bytes file = ephemeris_file(2 * kBlock + 5);
    const std::vector<Bytes> blocks = blocks_of(file);
    EXPECT_EQ(rig.ask(blocks[0], 8), kBlockAck);
    EXPECT_EQ(rig.ask(blocks[1], 8), kBlockNak);
    EXPECT_EQ(rig.ask(blocks[2], 8), kBlockAck);
    SimRecord rec = rig.settle();
    EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{4096, 5}));
    Bytes want = blocks[0];
    want.insert(want.end(), blocks[2].begin(), blocks[2].end());
    EXPECT_EQ(rec.ephemeris_bytes, want);
}

TEST(SimTq934nFaults, UnknownReplyHoldsTheNameButNeitherWord) {
    SimFaults f;
    f.unknown_reply = true;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    const std::string busy = "$PVNKAIDTIME,BUSY*6B\r\n";
    std::string reply = rig.ask(kAidTime, busy.size());
    EXPECT_EQ(reply, busy);
    EXPECT_EQ(judge(reply, "$PVNKAIDTIME"), -1);
    EXPECT_ANSWER(rig, kAidPos, nmea("$PVNKAIDPOS,BUSY"));
    // Binary answers are left alone.
    EXPECT_EQ(rig.ask(ephemeris_file(100), 8), kBlockAck);
}

TEST(SimTq934nFaults, AckBadCrcInvertsTheLastCrcByte) {
    SimFaults f;
    f.ack_bad_crc = true;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    Bytes block_ack = kBlockAck, time_ack = kTimeAck;
    block_ack[3] = uint8_t(~block_ack[3]);
    time_ack[3] = uint8_t(~time_ack[3]);
    EXPECT_EQ(rig.ask(time_frame(1, 2, 3), 8), time_ack);
    EXPECT_EQ(rig.ask(ephemeris_file(100), 8), block_ack);
    EXPECT_ANSWER(rig, kClear, "$PVNKCLRADAT,OK*66\r\n");
}

TEST(SimTq934nFaults, BinaryNoiseBeforeABlockAcknowledgement) {
    SimFaults f;
    f.garbage_bytes = 9;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    Bytes got = rig.ask(blocks_of(ephemeris_file(kBlock + 1))[0], 17);
    ASSERT_EQ(got.size(), 17u);
    EXPECT_EQ(text_of(Bytes(got.begin(), got.begin() + 9)), std::string("\x04$GNTXT,0"));
    EXPECT_EQ(Bytes(got.begin() + 9, got.end()), kBlockAck);
}

TEST(SimTq934nFaults, SilentTakesTheBlocksWithoutAWord) {
    SimFaults f;
    f.silent = true;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    const Bytes file = ephemeris_file(kBlock + 300);
    ASSERT_TRUE(write_all(rig.port, file));
    SimRecord rec = settle_after(rig, file.size());
    EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{4096, 300}));
    EXPECT_EQ(rec.ephemeris_bytes, file);
    EXPECT_EQ(rec.replies, 0u);
    EXPECT_FALSE(input_pending(rig.port));
}

TEST(SimTq934nFaults, CloseAfterFramesCountsBlocks) {
    SimFaults f;
    f.close_after_frames = 2;
    Rig rig("tq934n", f);
    REQUIRE_RIG(rig);
    const std::vector<Bytes> blocks = blocks_of(ephemeris_file(3 * kBlock));
    EXPECT_EQ(rig.ask(blocks[0], 8), kBlockAck);
    ASSERT_TRUE(write_all(rig.port, blocks[1]));
    auto end = Clock::now() + std::chrono::seconds(5);
    while (!sim_hung_up(rig.sim) && Clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(sim_hung_up(rig.sim));
    SimRecord rec = sim_record(rig.sim);
    EXPECT_EQ(rec.tq_block_sizes, (std::vector<uint32_t>{4096, 4096}));
    EXPECT_TRUE(sim_idle(rig.sim, 0));  // a hung-up receiver holds no block
}

// --- the model on its own, without a line -----------------------------------------

TEST(SimModelTq934n, AfterAFullBlockAnyByteBeginsTheNextUntilTheTransferIsOver) {
    Direct d;
    ASSERT_NE(d.st, nullptr);
    const Bytes file = ephemeris_file(kBlock);
    std::vector<SimUnit> units = d.feed(file);
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].kind, SimUnitKind::Block);
    EXPECT_EQ(units[0].bytes, file);
    EXPECT_TRUE(units[0].transfer);
    EXPECT_EQ(units[0].reply, text_of(kBlockAck));
    EXPECT_EQ(units[0].refusal, text_of(kBlockNak));
    // Right after a full block a sentence's bytes are the next block's...
    SimUnit u;
    EXPECT_TRUE(d.feed(kAidTime).empty());
    EXPECT_EQ(d.m->quiet(d.st, 50000, &u), SimQuiet::Waiting);
    ASSERT_EQ(d.m->quiet(d.st, 200000, &u), SimQuiet::Unit);
    EXPECT_EQ(u.kind, SimUnitKind::Block);
    EXPECT_EQ(text_of(u.bytes), kAidTime);
    // ...and after a shorter block, or a long quiet after a full one, a
    // sentence is a sentence again.
    units = d.feed(kAidTime);
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].kind, SimUnitKind::Sentence);
    ASSERT_EQ(d.feed(file).size(), 1u);
    EXPECT_EQ(d.m->quiet(d.st, 3000000, &u), SimQuiet::Nothing);
    EXPECT_EQ(d.m->quiet(d.st, 6000000, &u), SimQuiet::Nothing);
    units = d.feed(kAidTime);
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].kind, SimUnitKind::Sentence);
    EXPECT_EQ(units[0].reply, "$PVNKAIDTIME,OK*72\r\n");
}

TEST(SimModelTq934n, WhatStartsARunAndWhatALoneFrameIs) {
    Direct d;
    ASSERT_NE(d.st, nullptr);
    SimUnit u;
    // Text and zero bytes between units are passed over.
    EXPECT_TRUE(d.feed(Bytes{'*', '0', '0', '\r', '\n', 0x00, 0x00, 'x'}).empty());
    EXPECT_EQ(d.m->quiet(d.st, 1000000, &u), SimQuiet::Nothing);
    // A lone 'B' 'K' frame is a command; with a byte more it is a block.
    const Bytes t = time_frame(5, 6, 7);
    EXPECT_TRUE(d.feed(t).empty());
    ASSERT_EQ(d.m->quiet(d.st, 200000, &u), SimQuiet::Unit);
    EXPECT_EQ(u.kind, SimUnitKind::Frame);
    EXPECT_TRUE(u.good);
    EXPECT_EQ(u.reply, text_of(kTimeAck));
    EXPECT_EQ(u.refusal, text_of(kTimeNak));
    Bytes longer = t;
    longer.push_back(0xD3);
    EXPECT_TRUE(d.feed(longer).empty());
    ASSERT_EQ(d.m->quiet(d.st, 200000, &u), SimQuiet::Unit);
    EXPECT_EQ(u.kind, SimUnitKind::Block);
    EXPECT_EQ(u.bytes, longer);
    // A sentence cut short by 0xD3: a damaged piece, and the data begins there.
    std::vector<SimUnit> units = d.feed(Bytes{'$', 'P', 'V', 0xD3, 0x00, 0x10});
    ASSERT_EQ(units.size(), 1u);
    EXPECT_EQ(units[0].kind, SimUnitKind::Sentence);
    EXPECT_FALSE(units[0].record);
    ASSERT_EQ(d.m->quiet(d.st, 200000, &u), SimQuiet::Unit);
    EXPECT_EQ(u.bytes, (Bytes{0xD3, 0x00, 0x10}));
    EXPECT_EQ(d.m->quiet(d.st, 200000, &u), SimQuiet::Nothing);
}

TEST(SimModelTq934n, PlatformNameIsFoundInAnyCase) {
    EXPECT_EQ(sim_find_model("tq934n"), &sim_model_tq934n);
    EXPECT_EQ(sim_find_model("TQ934N"), &sim_model_tq934n);
}
