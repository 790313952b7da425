// The HD8XXX ".hdb" ephemeris sample-data generator, its frame reader and
// its command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/fingerprint.h"
#include "tests/unit/gen_test_util.h"
#include "toolkit/checksum.h"
#include "tools/hdb_gen.h"

namespace {

using gen_test::make_temp_file;
using gen_test::read_file;

// The 8-bit Fletcher sum written out here, apart from the toolkit's: a and b
// start at 0, a += byte, b += a, both modulo 256.
void fletcher(const uint8_t *p, size_t n, uint8_t *a, uint8_t *b) {
    unsigned sa = 0, sb = 0;
    for (size_t i = 0; i < n; ++i) {
        sa = (sa + p[i]) & 0xFF;
        sb = (sb + sa) & 0xFF;
    }
    *a = static_cast<uint8_t>(sa);
    *b = static_cast<uint8_t>(sb);
}

// The checksum of a whole frame (from F1 to the last checksum byte) is right.
bool frame_sum_ok(const uint8_t *frame, size_t frame_len) {
    uint8_t a = 0, b = 0;
    fletcher(frame + 2, frame_len - 4, &a, &b);
    return frame[frame_len - 2] == a && frame[frame_len - 1] == b;
}

uint32_t le16(const uint8_t *p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8; }
uint32_t le32(const uint8_t *p) { return le16(p) | le16(p + 2) << 16; }

constexpr size_t kGpsFull = 333;  // 5 x 65 + 8
constexpr size_t kBdsFull = 468;  // 5 x 92 + 8

// Offset of record i of a system whose frames start at base: every frame
// before the last holds 5 records, so the records sit at fixed places.
size_t record_offset(size_t base, size_t full_frame, size_t rec_bytes, size_t i) {
    return base + (i / 5) * full_frame + 6 + (i % 5) * rec_bytes;
}

// Every frame of an undamaged file: sync, class, the system's id, the right
// checksum, 5 records but in a system's last frame.
void expect_well_formed(const std::vector<uint8_t> &b, const HdbGenConfig &cfg) {
    const HdbSplit s = hdb_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, HdbSplitEnd::Complete);
    EXPECT_EQ(s.consumed, b.size());
    const uint32_t gps_frames = hdbgen_frame_count(cfg, 'G');
    const uint32_t bds_frames = hdbgen_frame_count(cfg, 'B');
    ASSERT_EQ(s.frames.size(), size_t(gps_frames + bds_frames));
    for (size_t i = 0; i < s.frames.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "frame " << i);
        const HdbFrameInfo &f = s.frames[i];
        const bool gps = i < gps_frames;
        const bool last = gps ? i + 1 == gps_frames : i + 1 == s.frames.size();
        const uint8_t *h = b.data() + f.offset;
        EXPECT_EQ(h[0], 0xF1);
        EXPECT_EQ(h[1], 0xD9);
        EXPECT_EQ(h[2], 0x0B);
        EXPECT_EQ(h[3], gps ? 0x32 : 0x33);
        EXPECT_TRUE(hdb_frame_ok(f));
        EXPECT_TRUE(frame_sum_ok(h, f.payload_len + 8u));
        if (!last) {
            EXPECT_EQ(f.records, 5u);
            EXPECT_EQ(f.payload_len + 8u, gps ? kGpsFull : kBdsFull);
        } else {
            EXPECT_GE(f.records, 1u);
            EXPECT_LE(f.records, 5u);
        }
    }
}

}  // namespace

// ---------------------------------------------------------------------------
// Frames

TEST(HdbGenFrame, KnownFrameBytes) {
    // Sum worked by hand over 0B 32 02 00 01 02:
    // a: 0B 3D 3F 3F 40 42, b: 0B 48 87 C6 06 48.
    const uint8_t payload[] = {0x01, 0x02};
    std::vector<uint8_t> out = {0x55};  // appends after what is there
    ASSERT_TRUE(hdb_append_frame(out, 0x32, payload, sizeof payload));
    const std::vector<uint8_t> expect = {0x55, 0xF1, 0xD9, 0x0B, 0x32, 0x02,
                                         0x00, 0x01, 0x02, 0x42, 0x48};
    EXPECT_EQ(out, expect);
    EXPECT_EQ(hdb_frame_checksum(out.data() + 1, 10), 0x4842);
}

TEST(HdbGenFrame, LengthIsLittleEndianAndOversizeIsRefused) {
    std::vector<uint8_t> payload(300, 0xA5);
    std::vector<uint8_t> out;
    ASSERT_TRUE(hdb_append_frame(out, 0x33, payload.data(), 300));
    ASSERT_EQ(out.size(), 308u);
    EXPECT_EQ(out[4], 0x2C);  // 300 = 0x012C
    EXPECT_EQ(out[5], 0x01);
    EXPECT_TRUE(frame_sum_ok(out.data(), out.size()));
    std::vector<uint8_t> big(65536, 0);
    std::vector<uint8_t> none;
    EXPECT_FALSE(hdb_append_frame(none, 0x32, big.data(), 65536));
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(hdb_record_bytes(0x32), 65u);
    EXPECT_EQ(hdb_record_bytes(0x33), 92u);
    EXPECT_EQ(hdb_record_bytes(0x34), 0u);
}

// ---------------------------------------------------------------------------
// Layout

TEST(HdbGen, OneGpsSatelliteIsOneFrameOf73Bytes) {
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 1;
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), 65u + 8u);
    EXPECT_EQ(st.frames, 1u);
    EXPECT_EQ(st.gps_frames, 1u);
    EXPECT_EQ(st.bds_frames, 0u);
    EXPECT_EQ(st.gps_records, 1u);
    EXPECT_EQ(st.bytes, 73u);
    // Header: sync, class, GPS id, length 65 = 0x0041.
    EXPECT_EQ(b[0], 0xF1);
    EXPECT_EQ(b[1], 0xD9);
    EXPECT_EQ(b[2], 0x0B);
    EXPECT_EQ(b[3], 0x32);
    EXPECT_EQ(b[4], 0x41);
    EXPECT_EQ(b[5], 0x00);
    EXPECT_EQ(b[6], 1);  // satellite 1
    // toe 345600 / 16 = 21600 = 0x5460 at frame offset 22.
    EXPECT_EQ(b[22], 0x60);
    EXPECT_EQ(b[23], 0x54);
    // week 2400 - 2048 = 352 = 0x0160 at frame offset 64.
    EXPECT_EQ(b[64], 0x60);
    EXPECT_EQ(b[65], 0x01);
    // The checksum: the sum from the class byte (offset 2) to the last
    // payload byte (offset 70), A first.
    uint8_t a = 0, s = 0;
    fletcher(b.data() + 2, 69, &a, &s);
    EXPECT_EQ(b[71], a);
    EXPECT_EQ(b[72], s);
    const uint16_t tk = Vk_Check_Varnok(b.data(), 71);
    EXPECT_EQ(b[71], uint8_t(tk));
    EXPECT_EQ(b[72], uint8_t(tk >> 8));
    // The tool's own reading of the fields.
    EXPECT_EQ((uint32_t(b[65]) * 256) | (uint32_t(b[64]) + 2048), 2400u);
    EXPECT_EQ(hdb_frame_gps_week(b.data()), 2400u);
    EXPECT_EQ(hdb_frame_gps_toe(b.data()), 345600u);
}

TEST(HdbGen, OneBdsSatelliteIsOneFrameOf100Bytes) {
    HdbGenConfig cfg;
    cfg.systems = "B";
    cfg.bds_sats = 1;
    const std::vector<uint8_t> b = hdbgen_generate(cfg);
    ASSERT_EQ(b.size(), 92u + 8u);
    EXPECT_EQ(b[3], 0x33);
    EXPECT_EQ(b[4], 0x5C);  // 92
    EXPECT_EQ(b[5], 0x00);
    EXPECT_EQ(b[6], 1);
    // BDS week 2400 - 1356 = 1044 = 0x0414 at frame offset 92.
    EXPECT_EQ(b[92], 0x14);
    EXPECT_EQ(b[93], 0x04);
    // toe 345600 / 8 = 43200 = 0x0000A8C0 at frame offset 22.
    EXPECT_EQ(b[22], 0xC0);
    EXPECT_EQ(b[23], 0xA8);
    EXPECT_EQ(b[24], 0x00);
    EXPECT_EQ(b[25], 0x00);
    uint8_t a = 0, s = 0;
    fletcher(b.data() + 2, 96, &a, &s);
    EXPECT_EQ(b[98], a);
    EXPECT_EQ(b[99], s);
    EXPECT_EQ(hdb_frame_bds_week(b.data()), 1044u);
    EXPECT_EQ(hdb_frame_bds_toe(b.data()), 345600u);
}

TEST(HdbGen, FiveRecordFramesAndAShorterLast) {
    HdbGenConfig cfg;  // GB, 32 GPS and 14 BDS satellites
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    // GPS: 6 frames of 5 and one of 2; BDS: 2 of 5 and one of 4.
    const size_t gps_bytes = 6 * kGpsFull + (2 * 65 + 8);
    const size_t bds_bytes = 2 * kBdsFull + (4 * 92 + 8);
    ASSERT_EQ(b.size(), gps_bytes + bds_bytes);
    EXPECT_EQ(b.size(), 3448u);
    EXPECT_EQ(hdbgen_file_size(cfg), 3448u);
    EXPECT_EQ(st.gps_frames, 7u);
    EXPECT_EQ(st.bds_frames, 3u);
    EXPECT_EQ(st.gps_records, 32u);
    EXPECT_EQ(st.bds_records, 14u);
    EXPECT_EQ(st.sets, 1u);
    expect_well_formed(b, cfg);

    // Fixed slices of 333 (GPS) and 468 (BDS) bytes land on every frame start.
    for (size_t k = 0; k < 7; ++k) {
        const uint8_t *h = b.data() + k * kGpsFull;
        EXPECT_EQ(le32(h), 0x320BD9F1u) << k;
    }
    for (size_t k = 0; k < 3; ++k) {
        const uint8_t *h = b.data() + gps_bytes + k * kBdsFull;
        EXPECT_EQ(le32(h), 0x330BD9F1u) << k;
    }
    // Satellites run 1..N in record order.
    for (size_t i = 0; i < 32; ++i)
        EXPECT_EQ(b[record_offset(0, kGpsFull, 65, i)], i + 1) << "GPS record " << i;
    for (size_t i = 0; i < 14; ++i)
        EXPECT_EQ(b[record_offset(gps_bytes, kBdsFull, 92, i)], i + 1) << "BDS record " << i;
}

TEST(HdbGen, RecordCountsThatFillTheLastFrame) {
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 10;
    std::vector<uint8_t> b = hdbgen_generate(cfg);
    EXPECT_EQ(b.size(), 2 * kGpsFull);
    expect_well_formed(b, cfg);
    cfg.systems = "B";
    cfg.bds_sats = 63;  // 12 frames of 5 and one of 3
    b = hdbgen_generate(cfg);
    EXPECT_EQ(b.size(), 12 * kBdsFull + 3 * 92 + 8);
    expect_well_formed(b, cfg);
    EXPECT_EQ(b[record_offset(0, kBdsFull, 92, 62)], 63);
}

TEST(HdbGen, CombinedFileIsTheGpsFileThenTheBdsFile) {
    HdbGenConfig cfg;
    cfg.seed = 5;
    cfg.sets = 3;
    const std::vector<uint8_t> both = hdbgen_generate(cfg);
    cfg.systems = "G";
    const std::vector<uint8_t> gps = hdbgen_generate(cfg);
    cfg.systems = "B";
    const std::vector<uint8_t> bds = hdbgen_generate(cfg);
    ASSERT_FALSE(gps.empty());
    ASSERT_FALSE(bds.empty());
    ASSERT_EQ(both.size(), gps.size() + bds.size());
    EXPECT_TRUE(std::equal(gps.begin(), gps.end(), both.begin()));
    EXPECT_TRUE(std::equal(bds.begin(), bds.end(), both.begin() + long(gps.size())));
    // No BDS frame before the last GPS one.
    const HdbSplit s = hdb_split_frames(both.data(), both.size());
    bool seen_bds = false;
    for (const auto &f : s.frames) {
        if (f.id == 0x33) seen_bds = true;
        if (seen_bds) {
            EXPECT_EQ(f.id, 0x33);
        } else {
            EXPECT_EQ(f.id, 0x32);
        }
    }
    EXPECT_TRUE(seen_bds);
}

// ---------------------------------------------------------------------------
// Time fields

TEST(HdbGen, DefaultTimesAreGpsWeek2400AndTheSameGridPointOfBdt) {
    const HdbSetTime t = hdbgen_set_time(HdbGenConfig(), 0);
    EXPECT_EQ(t.gps_week, 2400u);
    EXPECT_EQ(t.gps_toe, 345600u);
    EXPECT_EQ(t.bds_week, 1044u);
    EXPECT_EQ(t.bds_toe, 345600u);
    EXPECT_EQ(t.bds_toe % 7200, 0u);
}

TEST(HdbGen, BdsToeIsTheNearestTwoHourPointOfBdt) {
    HdbGenConfig cfg;
    // GPS 349200 is BDT 349186, 3586 s past 345600: down to 345600.
    cfg.toe = 349200;
    EXPECT_EQ(hdbgen_set_time(cfg, 0).bds_toe, 345600u);
    // GPS 349216 is BDT 349202, 3602 s past 345600: up to 352800.
    cfg.toe = 349216;
    EXPECT_EQ(hdbgen_set_time(cfg, 0).bds_toe, 352800u);
    // GPS second 0 of week 2048 is BDT week 691, second 604786; the nearest
    // point is the start of BDT week 692.
    cfg.week = 2048;
    cfg.toe = 0;
    const HdbSetTime t = hdbgen_set_time(cfg, 0);
    EXPECT_EQ(t.gps_week, 2048u);
    EXPECT_EQ(t.gps_toe, 0u);
    EXPECT_EQ(t.bds_week, 692u);
    EXPECT_EQ(t.bds_toe, 0u);
}

TEST(HdbGen, WeekAndToeOfEveryRecordAcrossAWeekEnd) {
    HdbGenConfig cfg;
    cfg.gps_sats = 7;
    cfg.bds_sats = 6;
    cfg.toe = 604800 - 7200;
    cfg.sets = 3;
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    expect_well_formed(b, cfg);
    // GPS sets: 2400/597600, 2401/0, 2401/7200. BDS: BDT 1044/597586 gives
    // 1044/597600; BDT 1044/604786 gives 1045/0; then 1045/7200.
    const uint32_t gps_week[] = {2400, 2401, 2401};
    const uint32_t gps_toe[] = {597600, 0, 7200};
    const uint32_t bds_week[] = {1044, 1045, 1045};
    const uint32_t bds_toe[] = {597600, 0, 7200};
    const size_t gps_records = 21;  // 5 frames: 4 of 5, 1 of 1
    const size_t gps_bytes = 4 * kGpsFull + 65 + 8;
    ASSERT_EQ(st.gps_records, gps_records);
    ASSERT_EQ(st.bds_records, 18u);
    ASSERT_EQ(b.size(), gps_bytes + 3 * kBdsFull + 3 * 92 + 8);
    for (size_t i = 0; i < gps_records; ++i) {
        SCOPED_TRACE(testing::Message() << "GPS record " << i);
        const uint8_t *r = b.data() + record_offset(0, kGpsFull, 65, i);
        const size_t set = i / 7;
        EXPECT_EQ(r[0], i % 7 + 1);
        EXPECT_EQ(le16(r + 58) + 2048, gps_week[set]);
        EXPECT_EQ(le16(r + 16) * 16, gps_toe[set]);
    }
    for (size_t i = 0; i < 18; ++i) {
        SCOPED_TRACE(testing::Message() << "BDS record " << i);
        const uint8_t *r = b.data() + record_offset(gps_bytes, kBdsFull, 92, i);
        const size_t set = i / 6;
        EXPECT_EQ(r[0], i % 6 + 1);
        EXPECT_EQ(le16(r + 86), bds_week[set]);
        EXPECT_EQ(le32(r + 16) * 8, bds_toe[set]);
    }
    // What the tool reads: the first record of each system's first frame.
    EXPECT_EQ(hdb_frame_gps_week(b.data()), 2400u);
    EXPECT_EQ(hdb_frame_gps_toe(b.data()), 597600u);
    EXPECT_EQ(hdb_frame_bds_week(b.data() + gps_bytes), 1044u);
    EXPECT_EQ(hdb_frame_bds_toe(b.data() + gps_bytes), 597600u);
}

TEST(HdbGen, GpsWeekReadsBackOverTheWholeRange) {
    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 1;
    for (uint32_t week : {2048u, 2303u, 2304u, 2400u, 3000u, 4095u}) {
        SCOPED_TRACE(week);
        cfg.week = week;
        const std::vector<uint8_t> b = hdbgen_generate(cfg);
        ASSERT_EQ(b.size(), 73u);
        EXPECT_EQ(le16(b.data() + 64), week - 2048);
        EXPECT_EQ((uint32_t(b[65]) * 256) | (uint32_t(b[64]) + 2048), week);
        EXPECT_EQ(hdb_frame_gps_week(b.data()), week);
    }
}

// ---------------------------------------------------------------------------
// Sets, size and determinism

TEST(HdbGen, ThreeDaysAre36Sets) {
    HdbGenConfig cfg;
    cfg.sets = 36;
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    // GPS: 1152 records in 230 frames of 5 and one of 2; BDS: 504 records in
    // 100 frames of 5 and one of 4.
    EXPECT_EQ(st.gps_records, 1152u);
    EXPECT_EQ(st.gps_frames, 231u);
    EXPECT_EQ(st.bds_records, 504u);
    EXPECT_EQ(st.bds_frames, 101u);
    EXPECT_EQ(b.size(), 230 * kGpsFull + (2 * 65 + 8) + 100 * kBdsFull + (4 * 92 + 8));
    expect_well_formed(b, cfg);
    // The last GPS set is 35 x 2 hours after the first.
    const size_t last = record_offset(0, kGpsFull, 65, 35 * 32);
    EXPECT_EQ(le16(b.data() + last + 16) * 16 + (le16(b.data() + last + 58) + 2048) * 604800u,
              2400u * 604800u + 345600u + 35u * 7200u);
}

TEST(HdbGen, SizeAddsSetsUntilTheFileIsBigEnough) {
    HdbGenConfig cfg;
    cfg.min_size = 120000;
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    EXPECT_GE(b.size(), 120000u);
    EXPECT_EQ(st.bytes, b.size());
    EXPECT_EQ(hdbgen_set_count(cfg), st.sets);
    HdbGenConfig fewer;
    fewer.sets = int(st.sets) - 1;
    EXPECT_LT(hdbgen_file_size(fewer), 120000u);
    EXPECT_EQ(hdbgen_generate(fewer).size(), hdbgen_file_size(fewer));
    expect_well_formed(b, cfg);
    // More sets than the size needs are kept.
    cfg.min_size = 10;
    cfg.sets = 3;
    hdbgen_generate(cfg, &st);
    EXPECT_EQ(st.sets, 3u);
}

TEST(HdbGen, FixedSeedGivesFixedBytes) {
    // Pins the record filler: the same configuration must give the same bytes
    // on every platform, compiler and library version. The fingerprints were
    // recorded when the generator was written; a change here changes every file.
    HdbGenConfig tiny;
    tiny.systems = "G";
    tiny.gps_sats = 1;
    const std::vector<uint8_t> t = hdbgen_generate(tiny);
    ASSERT_EQ(t.size(), 73u);
    EXPECT_EQ(fingerprint_crc32(t.data(), t.size()), 0xE2B70F4Cu);
    const std::vector<uint8_t> all = hdbgen_generate(HdbGenConfig());
    ASSERT_EQ(all.size(), 3448u);
    EXPECT_EQ(fingerprint_crc32(all.data(), all.size()), 0x5A230407u);
    EXPECT_EQ(hdbgen_generate(HdbGenConfig()), all);
}

TEST(HdbGen, SeedChangesOnlyTheOpaqueBytes) {
    HdbGenConfig a;
    a.sets = 2;
    a.seed = 42;
    HdbGenConfig c = a;
    c.seed = 43;
    const std::vector<uint8_t> x = hdbgen_generate(a);
    const std::vector<uint8_t> y = hdbgen_generate(c);
    ASSERT_EQ(x.size(), y.size());
    EXPECT_NE(x, y);
    const HdbSplit sx = hdb_split_frames(x.data(), x.size());
    const HdbSplit sy = hdb_split_frames(y.data(), y.size());
    ASSERT_EQ(sx.frames.size(), sy.frames.size());
    size_t differing = 0, records = 0;
    for (size_t i = 0; i < sx.frames.size(); ++i) {
        const HdbFrameInfo &f = sx.frames[i];
        ASSERT_EQ(f.offset, sy.frames[i].offset);
        const uint32_t rec = hdb_record_bytes(f.id);
        for (uint32_t k = 0; k < f.records; ++k, ++records) {
            const uint8_t *rx = hdb_frame_payload(x.data(), f) + k * rec;
            const uint8_t *ry = hdb_frame_payload(y.data(), f) + k * rec;
            EXPECT_EQ(rx[0], ry[0]);
            if (f.id == 0x32) {
                EXPECT_EQ(le16(rx + 16), le16(ry + 16));
                EXPECT_EQ(le16(rx + 58), le16(ry + 58));
            } else {
                EXPECT_EQ(le32(rx + 16), le32(ry + 16));
                EXPECT_EQ(le16(rx + 86), le16(ry + 86));
            }
            if (!std::equal(rx + 1, rx + 16, ry + 1)) ++differing;
        }
    }
    EXPECT_EQ(records, 2u * (32 + 14));
    EXPECT_GT(differing, records / 2);
    // Each satellite and set has its own record contents.
    uint8_t r1[65], r2[65], r3[65];
    hdbgen_make_gps_record(1, 1, 2400, 345600, r1);
    hdbgen_make_gps_record(1, 2, 2400, 345600, r2);
    hdbgen_make_gps_record(1, 1, 2400, 352800, r3);
    EXPECT_FALSE(std::equal(r1 + 1, r1 + 16, r2 + 1));
    EXPECT_FALSE(std::equal(r1 + 1, r1 + 16, r3 + 1));
}

// ---------------------------------------------------------------------------
// Damage

TEST(HdbGenDamage, FourRecordShortensTheFirstGpsFrame) {
    HdbGenConfig cfg;
    const std::vector<uint8_t> good = hdbgen_generate(cfg);
    cfg.damage = HdbDamage::FourRecord;
    cfg.damage_frame = 0;
    HdbGenStats st;
    const std::vector<uint8_t> b = hdbgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), good.size() - 65);
    EXPECT_EQ(st.gps_records, 31u);
    EXPECT_EQ(st.gps_frames, 7u);
    // Frame 0: payload 260 = 0x0104, satellites 1..4, its own checksum right.
    EXPECT_EQ(le32(b.data()), 0x320BD9F1u);
    EXPECT_EQ(b[4], 0x04);
    EXPECT_EQ(b[5], 0x01);
    EXPECT_TRUE(std::equal(b.begin() + 6, b.begin() + 266, good.begin() + 6));
    EXPECT_TRUE(frame_sum_ok(b.data(), 268));
    // Everything after it is the undamaged file's, from its frame 1 on.
    EXPECT_TRUE(std::equal(b.begin() + 268, b.end(), good.begin() + long(kGpsFull)));
    EXPECT_EQ(b[268 + 6], 6);  // satellite 5 is missing

    const HdbSplit s = hdb_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, HdbSplitEnd::Complete);
    ASSERT_EQ(s.frames.size(), 10u);
    EXPECT_EQ(s.frames[0].records, 4u);
    EXPECT_EQ(s.frames[0].payload_len, 260u);
    for (const auto &f : s.frames) EXPECT_TRUE(hdb_frame_ok(f));
    // A reader cutting fixed 333-byte slices is now out of step: the second
    // slice does not start on a frame.
    EXPECT_EQ(s.frames[1].offset, 268u);
    EXPECT_NE(le32(b.data() + kGpsFull), 0x320BD9F1u);
}

TEST(HdbGenDamage, FourRecordOnAnyFullFrame) {
    HdbGenConfig cfg;
    const std::vector<uint8_t> good = hdbgen_generate(cfg);
    cfg.damage = HdbDamage::FourRecord;
    cfg.damage_frame = 7;  // the first BDS frame
    const std::vector<uint8_t> b = hdbgen_generate(cfg);
    ASSERT_EQ(b.size(), good.size() - 92);
    const HdbSplit s = hdb_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 10u);
    for (size_t i = 0; i < s.frames.size(); ++i) {
        EXPECT_TRUE(hdb_frame_ok(s.frames[i])) << i;
        EXPECT_EQ(s.frames[i].records, i == 7 ? 4u : i == 6 ? 2u : i == 9 ? 4u : 5u) << i;
    }
    EXPECT_EQ(s.frames[7].payload_len, 368u);
    // A last frame of 5 records can be chosen with -1; a shorter one cannot.
    cfg.systems = "G";
    cfg.gps_sats = 10;
    cfg.damage_frame = -1;
    const std::vector<uint8_t> g = hdbgen_generate(cfg);
    ASSERT_EQ(g.size(), kGpsFull + 4 * 65 + 8);
    EXPECT_EQ(hdb_split_frames(g.data(), g.size()).frames[1].records, 4u);
    cfg.gps_sats = 12;
    std::string err;
    EXPECT_FALSE(hdbgen_validate(cfg, &err));
    EXPECT_NE(err.find("5 records"), std::string::npos) << err;
    EXPECT_TRUE(hdbgen_generate(cfg).empty());
}

TEST(HdbGenDamage, BadChecksumSpoilsExactlyTheChosenFrame) {
    HdbGenConfig cfg;
    const std::vector<uint8_t> good = hdbgen_generate(cfg);
    for (int k : {0, 4, 7, -1}) {
        SCOPED_TRACE(k);
        cfg.damage = HdbDamage::BadChecksum;
        cfg.damage_frame = k;
        const std::vector<uint8_t> b = hdbgen_generate(cfg);
        ASSERT_EQ(b.size(), good.size());
        size_t diffs = 0;
        for (size_t i = 0; i < b.size(); ++i) diffs += b[i] != good[i];
        EXPECT_EQ(diffs, 1u);
        const HdbSplit s = hdb_split_frames(b.data(), b.size());
        EXPECT_EQ(s.end, HdbSplitEnd::Complete);
        ASSERT_EQ(s.frames.size(), 10u);
        const size_t bad = k < 0 ? 9 : size_t(k);
        for (size_t i = 0; i < s.frames.size(); ++i) {
            EXPECT_EQ(s.frames[i].checksum_ok, i != bad) << i;
            EXPECT_TRUE(s.frames[i].sync_ok);
            EXPECT_EQ(hdb_frame_ok(s.frames[i]), i != bad) << i;
        }
        const HdbFrameInfo &f = s.frames[bad];
        EXPECT_FALSE(frame_sum_ok(b.data() + f.offset, f.payload_len + 8u));
    }
}

TEST(HdbGenDamage, BadSyncIsTheFramesOnlyFault) {
    HdbGenConfig cfg;
    const std::vector<uint8_t> good = hdbgen_generate(cfg);
    cfg.damage = HdbDamage::BadSync;
    cfg.damage_frame = 2;
    const std::vector<uint8_t> b = hdbgen_generate(cfg);
    ASSERT_EQ(b.size(), good.size());
    const size_t at = 2 * kGpsFull;
    EXPECT_EQ(b[at], 0xF1);
    EXPECT_EQ(b[at + 1], 0xD8);
    size_t diffs = 0;
    for (size_t i = 0; i < b.size(); ++i) diffs += b[i] != good[i];
    EXPECT_EQ(diffs, 1u);
    const HdbSplit s = hdb_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 10u);
    for (size_t i = 0; i < s.frames.size(); ++i) {
        EXPECT_EQ(s.frames[i].sync_ok, i != 2) << i;
        EXPECT_TRUE(s.frames[i].checksum_ok) << i;
        EXPECT_EQ(hdb_frame_ok(s.frames[i]), i != 2) << i;
    }
    // The last frame too.
    cfg.damage_frame = -1;
    const std::vector<uint8_t> l = hdbgen_generate(cfg);
    EXPECT_EQ(l[good.size() - (4 * 92 + 8) + 1], 0xD8);
}

TEST(HdbGenDamage, UnknownIdKeepsAValidChecksum) {
    HdbGenConfig cfg;
    const std::vector<uint8_t> good = hdbgen_generate(cfg);
    cfg.damage = HdbDamage::UnknownId;
    cfg.damage_frame = 8;  // the second BDS frame
    const std::vector<uint8_t> b = hdbgen_generate(cfg);
    ASSERT_EQ(b.size(), good.size());
    const HdbSplit s = hdb_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 10u);
    const HdbFrameInfo &f = s.frames[8];
    EXPECT_EQ(f.id, 0x34);
    EXPECT_EQ(b[f.offset + 3], 0x34);
    EXPECT_TRUE(f.checksum_ok);
    EXPECT_TRUE(frame_sum_ok(b.data() + f.offset, f.payload_len + 8u));
    EXPECT_TRUE(f.sync_ok);
    EXPECT_EQ(f.records, 0u);  // no record size for this id
    EXPECT_FALSE(hdb_frame_ok(f));
    // Only the id and the two checksum bytes changed.
    const size_t end = f.offset + f.payload_len + 8;
    for (size_t i = 0; i < b.size(); ++i) {
        if (i == f.offset + 3 || i == end - 2 || i == end - 1) continue;
        ASSERT_EQ(b[i], good[i]) << i;
    }
    for (size_t i = 0; i < s.frames.size(); ++i) {
        if (i != 8) {
            EXPECT_TRUE(hdb_frame_ok(s.frames[i])) << i;
        }
    }
}

TEST(HdbGenDamage, TokensRoundTrip) {
    for (HdbDamage d : {HdbDamage::None, HdbDamage::FourRecord, HdbDamage::BadChecksum,
                        HdbDamage::BadSync, HdbDamage::UnknownId}) {
        HdbDamage back = HdbDamage::None;
        ASSERT_TRUE(hdbgen_parse_damage(hdbgen_damage_token(d), &back));
        EXPECT_EQ(back, d);
    }
    EXPECT_STREQ(hdbgen_damage_token(HdbDamage::FourRecord), "four-record");
    HdbDamage d = HdbDamage::None;
    EXPECT_TRUE(hdbgen_parse_damage("bad_sync", &d));
    EXPECT_EQ(d, HdbDamage::BadSync);
    EXPECT_FALSE(hdbgen_parse_damage("truncate", &d));
    EXPECT_FALSE(hdbgen_parse_damage(nullptr, &d));
}

// ---------------------------------------------------------------------------
// Configuration and names

TEST(HdbGen, RejectsBadConfigurations) {
    std::string err;
    HdbGenConfig ok;
    EXPECT_TRUE(hdbgen_validate(ok, &err)) << err;
    auto rejects = [](HdbGenConfig c) {
        std::string e;
        const bool v = hdbgen_validate(c, &e);
        return !v && !e.empty() && hdbgen_generate(c).empty();
    };
    HdbGenConfig c;
    for (const char *sys : {"", "X", "BG", "GG", "GBX", "g"}) {
        c = HdbGenConfig();
        c.systems = sys;
        EXPECT_TRUE(rejects(c)) << sys;
    }
    c = HdbGenConfig();
    c.gps_sats = 0;
    EXPECT_TRUE(rejects(c));
    c.gps_sats = 33;
    EXPECT_TRUE(rejects(c));
    c.systems = "B";  // GPS satellites do not matter without GPS
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
    c = HdbGenConfig();
    c.bds_sats = 64;
    EXPECT_TRUE(rejects(c));
    c.systems = "G";
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
    c = HdbGenConfig();
    c.toe = 604800;
    EXPECT_TRUE(rejects(c));
    c.toe = 17;
    EXPECT_TRUE(rejects(c));
    c.toe = 604784;
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
    c = HdbGenConfig();
    c.week = 2047;
    EXPECT_TRUE(rejects(c));
    c.week = 4096;
    EXPECT_TRUE(rejects(c));
    c.week = 4095;
    c.toe = 597600;
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
    c.sets = 2;  // the second set falls in week 4096
    EXPECT_TRUE(rejects(c));
    c = HdbGenConfig();
    c.sets = 0;
    EXPECT_TRUE(rejects(c));
    c = HdbGenConfig();
    c.min_size = (uint64_t(1) << 30) + 1;
    EXPECT_TRUE(rejects(c));
    c = HdbGenConfig();
    c.damage = HdbDamage::BadSync;
    c.damage_frame = 10;  // the default file has 10 frames
    EXPECT_TRUE(rejects(c));
    c.damage_frame = 9;
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
    c.damage_frame = -2;
    EXPECT_TRUE(rejects(c));
    c.min_size = 5000;  // more sets, more frames
    c.damage_frame = 12;
    EXPECT_TRUE(hdbgen_validate(c, nullptr));
}

TEST(HdbGen, UsualNames) {
    HdbGenConfig cfg;
    EXPECT_EQ(hdbgen_default_name(cfg), "HD_GPS_BDS.hdb");
    cfg.systems = "G";
    EXPECT_EQ(hdbgen_default_name(cfg), "HD_GPS.hdb");
    cfg.systems = "B";
    EXPECT_EQ(hdbgen_default_name(cfg), "HD_BDS.hdb");
    cfg.systems = "X";
    EXPECT_EQ(hdbgen_default_name(cfg), "");
    EXPECT_TRUE(hdbgen_is_usual_name("HD_GPS.hdb"));
    EXPECT_TRUE(hdbgen_is_usual_name("/tmp/x/HD_BDS.hdb"));
    EXPECT_TRUE(hdbgen_is_usual_name("HD_GPS_BDS.hdb"));
    EXPECT_FALSE(hdbgen_is_usual_name("hd_gps.hdb"));
    EXPECT_FALSE(hdbgen_is_usual_name("HD_GPS.HDB"));
    EXPECT_FALSE(hdbgen_is_usual_name("HD_BDS_GPS.hdb"));
    EXPECT_FALSE(hdbgen_is_usual_name("HD_GPS_BDS.hdb.bak"));
    EXPECT_FALSE(hdbgen_is_usual_name("/tmp/HD_GPS.hdb/"));
    EXPECT_FALSE(hdbgen_is_usual_name(nullptr));
}

// ---------------------------------------------------------------------------
// Frame reader

TEST(HdbSplitFrames, EndsAndFlags) {
    HdbSplit s = hdb_split_frames(nullptr, 0);
    EXPECT_EQ(s.end, HdbSplitEnd::Complete);
    EXPECT_TRUE(s.frames.empty());

    HdbGenConfig cfg;
    cfg.systems = "G";
    cfg.gps_sats = 7;
    std::vector<uint8_t> b = hdbgen_generate(cfg);
    const size_t whole = b.size();
    // A stray byte after the last frame.
    b.push_back(0x00);
    s = hdb_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, HdbSplitEnd::NotAFrame);
    EXPECT_EQ(s.frames.size(), 2u);
    EXPECT_EQ(s.consumed, whole);
    // A frame start without the rest of its header, then a cut frame.
    b.back() = 0xF1;
    b.push_back(0xD9);
    s = hdb_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, HdbSplitEnd::Incomplete);
    EXPECT_EQ(s.frames.size(), 2u);
    s = hdb_split_frames(b.data(), whole - 1);
    EXPECT_EQ(s.end, HdbSplitEnd::Incomplete);
    EXPECT_EQ(s.frames.size(), 1u);
    EXPECT_EQ(s.consumed, kGpsFull);

    // A wrong class and a payload that is no whole number of records.
    std::vector<uint8_t> odd;
    const uint8_t p[66] = {1};
    ASSERT_TRUE(hdb_append_frame(odd, 0x32, p, 66));
    odd[2] = 0x0C;
    s = hdb_split_frames(odd.data(), odd.size());
    ASSERT_EQ(s.frames.size(), 1u);
    EXPECT_FALSE(s.frames[0].class_ok);
    EXPECT_FALSE(s.frames[0].checksum_ok);  // the class byte is summed
    EXPECT_EQ(s.frames[0].records, 0u);
    EXPECT_FALSE(hdb_frame_ok(s.frames[0]));
    // Six records are one too many for a frame.
    std::vector<uint8_t> six;
    const std::vector<uint8_t> recs(6 * 65, 1);
    ASSERT_TRUE(hdb_append_frame(six, 0x32, recs.data(), uint32_t(recs.size())));
    s = hdb_split_frames(six.data(), six.size());
    ASSERT_EQ(s.frames.size(), 1u);
    EXPECT_EQ(s.frames[0].records, 6u);
    EXPECT_TRUE(s.frames[0].checksum_ok);
    EXPECT_FALSE(hdb_frame_ok(s.frames[0]));
}

// ---------------------------------------------------------------------------
// Files and the command line

namespace {

// Runs the command line with the given arguments; returns its exit status,
// with what it printed in *out and *err.
int run_cli(std::vector<std::string> args, std::string *out, std::string *err) {
    args.insert(args.begin(), "vkagnss-hdbgen");
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int rc = hdbgen_main(int(args.size()), argv.data());
    *out = testing::internal::GetCapturedStdout();
    *err = testing::internal::GetCapturedStderr();
    return rc;
}

}  // namespace

TEST(HdbGenFile, WritesTheGeneratedBytes) {
    const std::string tmp = make_temp_file("vk_hdbgen");
    ASSERT_FALSE(tmp.empty());
    HdbGenConfig cfg;
    cfg.sets = 2;
    cfg.seed = 99;
    HdbGenStats st;
    std::string err;
    ASSERT_TRUE(hdbgen_write_file(cfg, tmp.c_str(), &st, &err)) << err;
    const std::vector<uint8_t> on_disk = read_file(tmp);
    EXPECT_EQ(on_disk, hdbgen_generate(cfg));
    EXPECT_EQ(on_disk.size(), st.bytes);
    std::remove(tmp.c_str());
    EXPECT_FALSE(hdbgen_write_file(cfg, "/nonexistent-dir/HD_GPS_BDS.hdb", nullptr, &err));
    EXPECT_NE(err.find("cannot open"), std::string::npos) << err;
    cfg.sets = 0;
    EXPECT_FALSE(hdbgen_write_file(cfg, tmp.c_str(), nullptr, &err));
}

TEST(HdbGenCli, WritesTheFileAndOneSummaryLine) {
    const std::string tmp = make_temp_file("vk_hdbgen_cli");
    ASSERT_FALSE(tmp.empty());
    std::string out, err;
    const int rc = run_cli(
        {"-o",     tmp,      "--systems", "GB",           "--gps-sats",     "6",      "--bds-sats",
         "3",      "--week", "2401",      "--toe",        "7200",           "--sets", "2",
         "--seed", "7",      "--damage",  "bad-checksum", "--damage-frame", "-1"},
        &out, &err);
    EXPECT_EQ(rc, 0) << err;
    EXPECT_EQ(err, "");
    HdbGenConfig cfg;
    cfg.gps_sats = 6;
    cfg.bds_sats = 3;
    cfg.week = 2401;
    cfg.toe = 7200;
    cfg.sets = 2;
    cfg.seed = 7;
    cfg.damage = HdbDamage::BadChecksum;
    cfg.damage_frame = -1;
    const std::vector<uint8_t> expect = hdbgen_generate(cfg);
    ASSERT_FALSE(expect.empty());
    EXPECT_EQ(read_file(tmp), expect);
    EXPECT_EQ(out,
              tmp + ": 5 frames (GPS 3, BDS 2), 18 records (GPS 12, BDS 6), 2 sets, " +
                  std::to_string(expect.size()) +
                  " bytes, GPS week 2401 toe 7200, BDS week 1045 toe 7200, damage bad-checksum\n");

    // One system: only its time is told.
    EXPECT_EQ(run_cli({"-o", tmp, "--systems", "G", "--gps-sats", "1"}, &out, &err), 0) << err;
    EXPECT_EQ(out, tmp +
                       ": 1 frames (GPS 1, BDS 0), 1 records (GPS 1, BDS 0), 1 sets, 73 bytes,"
                       " GPS week 2400 toe 345600, damage none\n");
    EXPECT_EQ(read_file(tmp).size(), 73u);
    std::remove(tmp.c_str());
}

TEST(HdbGenCli, HelpNamesTheUsualFileNames) {
    std::string out, err;
    EXPECT_EQ(run_cli({"--help"}, &out, &err), 0);
    EXPECT_NE(out.find("usage: vkagnss-hdbgen -o FILE"), std::string::npos);
    EXPECT_NE(out.find("HD_GPS.hdb"), std::string::npos);
    EXPECT_NE(out.find("HD_BDS.hdb"), std::string::npos);
    EXPECT_NE(out.find("HD_GPS_BDS.hdb"), std::string::npos);
    EXPECT_EQ(err, "");
}

TEST(HdbGenCli, UsageErrorsExitWith2) {
    const std::string tmp = make_temp_file("vk_hdbgen_bad");
    ASSERT_FALSE(tmp.empty());
    std::string out, err;
    EXPECT_EQ(run_cli({}, &out, &err), 2);
    EXPECT_NE(err.find("vkagnss-hdbgen: -o FILE is required"), std::string::npos) << err;
    EXPECT_NE(err.find("usage:"), std::string::npos);
    EXPECT_EQ(run_cli({"--systems", "G"}, &out, &err), 2);

    const std::vector<std::vector<std::string>> bad = {
        {"--systems", "X"},       {"--systems", "BG"},       {"--gps-sats", "0"},
        {"--gps-sats", "33"},     {"--bds-sats", "64"},      {"--bds-sats", "x"},
        {"--week", "2047"},       {"--week", "4096"},        {"--toe", "17"},
        {"--toe", "604800"},      {"--toe", "-16"},          {"--sets", "0"},
        {"--seed", "-1"},         {"--size", "2000000000"},  {"--damage", "truncate"},
        {"--damage-frame", "-2"}, {"--damage-frame", "1.5"},
    };
    for (const auto &opt : bad) {
        SCOPED_TRACE(opt[0] + " " + opt[1]);
        std::vector<std::string> args = {"-o", tmp};
        args.insert(args.end(), opt.begin(), opt.end());
        EXPECT_EQ(run_cli(args, &out, &err), 2);
        EXPECT_NE(err.find("bad value for " + opt[0]), std::string::npos) << err;
        EXPECT_EQ(out, "");
    }
    // Unknown option, missing value.
    EXPECT_EQ(run_cli({"-o", tmp, "--epochs", "3"}, &out, &err), 2);
    EXPECT_NE(err.find("unknown option --epochs"), std::string::npos) << err;
    EXPECT_EQ(run_cli({"-o", tmp, "--week"}, &out, &err), 2);
    EXPECT_NE(err.find("--week needs a value"), std::string::npos) << err;
    // Values fine one by one but not together.
    EXPECT_EQ(run_cli({"-o", tmp, "--damage", "bad-sync", "--damage-frame", "10"}, &out, &err), 2);
    EXPECT_NE(err.find("beyond the last frame"), std::string::npos) << err;
    EXPECT_EQ(run_cli({"-o", tmp, "--damage", "four-record", "--damage-frame", "-1"}, &out, &err),
              2);
    EXPECT_EQ(run_cli({"-o", tmp, "--week", "4095", "--toe", "597600", "--sets", "2"}, &out, &err),
              2);
    // Nothing was written by any of them.
    EXPECT_TRUE(read_file(tmp).empty());
    std::remove(tmp.c_str());

    // A file that cannot be written is a failure, not a usage error.
    EXPECT_EQ(run_cli({"-o", "/nonexistent-dir/HD_GPS.hdb"}, &out, &err), 1);
    EXPECT_NE(err.find("cannot open"), std::string::npos) << err;
}
