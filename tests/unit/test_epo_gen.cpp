// The EPO (extended-orbit) sample-data generator.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "tests/unit/gen_test_util.h"
#include "tools/epo_gen.h"

namespace {

using gen_test::is_file;
using gen_test::make_temp_file;
using gen_test::read_file;

constexpr uint32_t R = 72;  // record size, written out here on purpose

uint32_t hour_at(const std::vector<uint8_t> &b, size_t rec) {
    const size_t o = rec * R;
    return uint32_t(b[o]) | (uint32_t(b[o + 1]) << 8) | (uint32_t(b[o + 2]) << 16);
}

int svid_at(const std::vector<uint8_t> &b, size_t rec) { return b[rec * R + 3]; }

uint32_t u32_at(const std::vector<uint8_t> &b, size_t off) {
    return uint32_t(b[off]) | (uint32_t(b[off + 1]) << 8) | (uint32_t(b[off + 2]) << 16) |
           (uint32_t(b[off + 3]) << 24);
}

EpoGenConfig kind_cfg(EpoGenKind k) {
    EpoGenConfig c;
    c.kind = k;
    return c;
}

// The readers' classification of a file, written out here independently:
// the type comes from the SVID of the second record, a GPS-only file whose
// size is a multiple of 4032 becomes GPS+GLONASS when its record at 2304
// has a GLONASS SVID, and the segment count follows from the size (and, for
// Galileo and BeiDou, from the bits of the header).
struct Decoded {
    int type = -1;
    uint32_t segments = 0;
    uint32_t hour = 0;
};

int popcount32(uint32_t v) {
    int n = 0;
    for (; v; v &= v - 1) ++n;
    return n;
}

Decoded decode(const std::vector<uint8_t> &b) {
    Decoded d;
    if (b.size() < 2 * R) return d;
    d.hour = hour_at(b, 1);
    const int s = svid_at(b, 1);
    if (s >= 1 && s <= 32)
        d.type = 0;
    else if (s >= 101 && s <= 136)
        d.type = 2;
    else if ((s >= 201 && s <= 254) || (s >= 190 && s <= 198))
        d.type = 3;
    else
        return d;
    if (d.type == 0 && b.size() % 4032 == 0) {
        const int g = svid_at(b, 32);
        if (g >= 65 && g <= 88) d.type = 1;
    }
    switch (d.type) {
        case 0: d.segments = uint32_t(b.size() / 2304); break;
        case 1: d.segments = uint32_t(b.size() / 4032); break;
        default: {
            const int n = popcount32(u32_at(b, 4)) + popcount32(u32_at(b, 16));
            if (n > 0) d.segments = uint32_t((b.size() - R) / (uint64_t(n) * R));
            break;
        }
    }
    return d;
}

// Satellite number of a record's SVID by file type, written out here.
int prn_of(int type, int s) {
    switch (type) {
        case 0: return s;
        case 1: return s - 64;
        case 2: return s == 255 ? 255 : s - 100;
        case 3: return s == 255 ? 255 : (s < 200 ? s - 135 : s - 200);
        default: return 0;
    }
}

std::vector<int> list_from_mask(uint64_t m) {
    std::vector<int> v;
    for (int n = 0; n < 64; ++n)
        if ((m >> n) & 1) v.push_back(n + 1);
    return v;
}

uint64_t splitmix(uint64_t &state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

}  // namespace

// ---------------------------------------------------------------------------
// Sizes

TEST(EpoGenSize, GpsThreeDays) {
    const EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    EpoGenStats st;
    const std::vector<uint8_t> b = epogen_generate(c, &st);
    EXPECT_EQ(b.size(), 27648u);
    EXPECT_EQ(epogen_record_count(c), 384u);
    EXPECT_EQ(epogen_file_size(c), 27648u);
    EXPECT_EQ(epogen_segment_count(c), 12u);
    EXPECT_EQ(epogen_records_per_segment(c), 32u);
    EXPECT_EQ(epogen_segment_bytes(c), 2304u);
    EXPECT_EQ(st.segments, 12u);
    EXPECT_EQ(st.records, 384u);
    EXPECT_EQ(st.records_per_segment, 32u);
    EXPECT_EQ(st.bytes, 27648u);
    EXPECT_FALSE(st.header);
}

TEST(EpoGenSize, GpsGlonassThreeDays) {
    const EpoGenConfig c = kind_cfg(EpoGenKind::Gr);
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(b.size(), 12u * 4032u);
    EXPECT_EQ(b.size(), 48384u);
    EXPECT_EQ(epogen_segment_bytes(c), 4032u);
    EXPECT_EQ(epogen_record_count(c), 12u * 56u);
}

TEST(EpoGenSize, GalileoThirtySixSatellitesSevenDays) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    for (int s = 1; s <= 36; ++s) c.sats.push_back(s);
    EXPECT_EQ(epogen_days(c), 7);
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(b.size(), 72u + 28u * 36u * 72u);
    EXPECT_EQ(epogen_record_count(c), 1u + 28u * 36u);
    EXPECT_EQ(epogen_default_name(c), "EPO_GAL_7.DAT");
}

TEST(EpoGenSize, EveryKindHasItsLayout) {
    struct Row {
        EpoGenKind kind;
        uint32_t segments, per_segment;
        bool header;
    };
    const Row rows[] = {
        {EpoGenKind::Gps, 12, 32, false},      {EpoGenKind::Gr, 12, 56, false},
        {EpoGenKind::Gal, 28, 31, true},       {EpoGenKind::Bds, 12, 51, true},
        {EpoGenKind::VGps, 12, 32, false},     {EpoGenKind::VGr, 12, 56, false},
        {EpoGenKind::VGal, 12, 31, true},      {EpoGenKind::VBds, 12, 51, true},
        {EpoGenKind::ElpoGps, 12, 32, false},  {EpoGenKind::ElpoGr, 12, 56, false},
        {EpoGenKind::ElpoBds, 12, 51, true},   {EpoGenKind::ElpoGal, 12, 31, true},
        {EpoGenKind::ElpoGlo, 12, 24, false},  {EpoGenKind::ElpoQzss, 12, 7, false},
        {EpoGenKind::ElpoGps7, 28, 32, false}, {EpoGenKind::ElpoGlo7, 28, 24, false},
        {EpoGenKind::ElpoGal7, 28, 31, true},  {EpoGenKind::ElpoBd7, 28, 51, true},
        {EpoGenKind::ElpoQzss7, 28, 7, false}, {EpoGenKind::VelpoGps, 12, 32, false},
        {EpoGenKind::VelpoGlo, 12, 24, false}, {EpoGenKind::VelpoGal, 12, 31, true},
        {EpoGenKind::VelpoBds, 12, 51, true},  {EpoGenKind::VelpoQzss, 12, 7, false},
        {EpoGenKind::VelpoGr, 12, 56, false},
    };
    ASSERT_EQ(sizeof rows / sizeof rows[0], size_t(EPO_GEN_KIND_COUNT));
    for (const Row &r : rows) {
        SCOPED_TRACE(epogen_kind_token(r.kind));
        const EpoGenConfig c = kind_cfg(r.kind);
        ASSERT_TRUE(epogen_validate(c, nullptr));
        EpoGenStats st;
        const std::vector<uint8_t> b = epogen_generate(c, &st);
        EXPECT_EQ(st.segments, r.segments);
        EXPECT_EQ(st.records_per_segment, r.per_segment);
        EXPECT_EQ(st.header, r.header);
        EXPECT_EQ(epogen_has_header(r.kind), r.header);
        EXPECT_EQ(b.size(), (r.header ? R : 0) + uint64_t(r.segments) * r.per_segment * R);
        EXPECT_EQ(b.size() % R, 0u);
    }
}

TEST(EpoGenSize, SegmentsOverrideAndDays) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.segments = 1;
    EXPECT_EQ(epogen_generate(c).size(), 2304u);
    c.segments = 0;
    c.days = 1;
    EXPECT_EQ(epogen_generate(c).size(), 4u * 2304u);
    c.kind = EpoGenKind::Gr;
    c.days = 0;
    c.segments = 1;
    EXPECT_EQ(epogen_generate(c).size(), 4032u);
    c.kind = EpoGenKind::Bds;
    c.sats = {3};
    c.segments = 2;
    EXPECT_EQ(epogen_generate(c).size(), 72u + 2u * 72u);
}

// ---------------------------------------------------------------------------
// Records: hours and SVIDs

TEST(EpoGenRecords, GpsHoursAndSvids) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    const std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), 384u * R);
    for (uint32_t k = 0; k < 12; ++k)
        for (uint32_t j = 0; j < 32; ++j) {
            const size_t i = k * 32 + j;
            EXPECT_EQ(hour_at(b, i), 403200u + 6u * k) << i;
            EXPECT_EQ(svid_at(b, i), int(j + 1)) << i;
            EXPECT_EQ(epogen_expected_svid(c, uint32_t(i)), int(j + 1));
            EXPECT_EQ(epogen_expected_hour(c, uint32_t(i)), 403200u + 6u * k);
        }
    EXPECT_EQ(epogen_expected_svid(c, 384), -1);
    EXPECT_EQ(epogen_expected_hour(c, 384), 0u);
}

TEST(EpoGenRecords, HourIsLittleEndianAndFollowsTheStart) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.start_hour = 0x123456;
    c.segments = 2;
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(b[0], 0x56);
    EXPECT_EQ(b[1], 0x34);
    EXPECT_EQ(b[2], 0x12);
    EXPECT_EQ(b[3], 1);
    EXPECT_EQ(b[2304], 0x5C);  // + 6
    EXPECT_EQ(b[2305], 0x34);
    EXPECT_EQ(b[2306], 0x12);
    // The default start is GPS week 2400, day 0, hour 0.
    EXPECT_EQ(EpoGenConfig().start_hour, 2400u * 168u);
}

TEST(EpoGenRecords, GpsGlonassSegmentOrder) {
    const EpoGenConfig c = kind_cfg(EpoGenKind::Gr);
    const std::vector<uint8_t> b = epogen_generate(c);
    for (uint32_t k = 0; k < 12; ++k)
        for (uint32_t j = 0; j < 56; ++j) {
            const size_t i = k * 56 + j;
            const int want = j < 32 ? int(j + 1) : int(65 + (j - 32));
            EXPECT_EQ(svid_at(b, i), want) << i;
            EXPECT_EQ(hour_at(b, i), 403200u + 6u * k) << i;
            EXPECT_EQ(epogen_expected_svid(c, uint32_t(i)), want);
        }
    // The GLONASS block of segment i starts where the transfer seeks it.
    for (uint32_t i = 0; i < 12; ++i) EXPECT_EQ(svid_at(b, (i + 1) * 32 + i * 24), 65);
}

TEST(EpoGenRecords, GlonassOnlyAndQzssOnly) {
    EpoGenConfig c = kind_cfg(EpoGenKind::ElpoGlo);
    std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), 12u * 24u * R);
    for (size_t i = 0; i < 12 * 24; ++i) {
        EXPECT_EQ(svid_at(b, i), int(65 + i % 24)) << i;
        EXPECT_EQ(hour_at(b, i), 403200u + 6u * uint32_t(i / 24)) << i;
    }
    c = kind_cfg(EpoGenKind::ElpoQzss7);
    b = epogen_generate(c);
    ASSERT_EQ(b.size(), 28u * 7u * R);
    for (size_t i = 0; i < 28 * 7; ++i) {
        EXPECT_EQ(svid_at(b, i), int(193 + i % 7)) << i;
        EXPECT_EQ(hour_at(b, i), 403200u + 6u * uint32_t(i / 7)) << i;
    }
}

TEST(EpoGenRecords, GalileoRecordsFollowTheHeaderList) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    c.sats = {36, 1, 2, 3, 33, 2, 17};  // any order; duplicates ignored
    c.days = 1;
    const std::vector<uint8_t> b = epogen_generate(c);
    const std::vector<int> want = {1, 2, 3, 17, 33, 36};
    EXPECT_EQ(epogen_header_prns(c), want);
    ASSERT_EQ(b.size(), R + 4u * want.size() * R);
    EXPECT_EQ(svid_at(b, 0), 255);
    for (uint32_t k = 0; k < 4; ++k)
        for (size_t j = 0; j < want.size(); ++j) {
            const size_t i = 1 + k * want.size() + j;
            EXPECT_EQ(svid_at(b, i), 100 + want[j]) << i;
            EXPECT_EQ(prn_of(2, svid_at(b, i)), want[j]);
            EXPECT_EQ(hour_at(b, i), 403200u + 6u * k) << i;
            EXPECT_EQ(epogen_expected_svid(c, uint32_t(i)), 100 + want[j]);
        }
}

TEST(EpoGenRecords, BeidouSvidsMapBackToTheHeaderList) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Bds);
    for (int s = 1; s <= 63; ++s) c.sats.push_back(s);
    c.segments = 2;
    const std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), R + 2u * 63u * R);
    const std::vector<int> list = list_from_mask(epo_header_mask(b.data()));
    ASSERT_EQ(list.size(), 63u);
    for (uint32_t k = 0; k < 2; ++k)
        for (size_t j = 0; j < 63; ++j) {
            const int s = svid_at(b, 1 + k * 63 + j);
            EXPECT_EQ(prn_of(3, s), list[j]) << "svid " << s;
            EXPECT_EQ(s, list[j] <= 54 ? 200 + list[j] : 135 + list[j]);
            EXPECT_TRUE((s >= 201 && s <= 254) || (s >= 190 && s <= 198)) << s;
        }
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Beidou, 54), 254);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Beidou, 55), 190);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Beidou, 63), 198);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Beidou, 64), -1);
}

TEST(EpoGenRecords, DefaultBeidouSetMapsBack) {
    const EpoGenConfig c = kind_cfg(EpoGenKind::VBds);
    const std::vector<uint8_t> b = epogen_generate(c);
    const std::vector<int> list = list_from_mask(epo_header_mask(b.data()));
    EXPECT_EQ(list, epogen_header_prns(c));
    EXPECT_EQ(list, epogen_default_sats(EpoGenSystem::Beidou));
    EXPECT_EQ(list.size(), 51u);
    bool high = false;
    for (size_t j = 0; j < list.size(); ++j) {
        EXPECT_EQ(prn_of(3, svid_at(b, 1 + j)), list[j]);
        if (svid_at(b, 1 + j) < 200) high = true;
    }
    EXPECT_TRUE(high) << "the default set should use the 190..198 SVIDs too";
}

// ---------------------------------------------------------------------------
// Header

TEST(EpoGenHeader, MasksAndTheSixtyFourBitRule) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    c.sats = {1, 5, 32, 33, 36};
    c.segments = 1;
    EpoGenStats st;
    const std::vector<uint8_t> b = epogen_generate(c, &st);
    ASSERT_EQ(b.size(), R + 5u * R);
    const uint32_t lo = u32_at(b, 4), hi = u32_at(b, 16);
    EXPECT_EQ(lo, (1u << 0) | (1u << 4) | (1u << 31));
    EXPECT_EQ(hi, (1u << 0) | (1u << 3));
    const uint64_t mask = (uint64_t(hi) << 32) | lo;
    EXPECT_EQ(epo_header_mask(b.data()), mask);
    EXPECT_EQ(epogen_header_mask(c), mask);
    EXPECT_EQ(st.header_mask, mask);
    EXPECT_EQ(list_from_mask(mask), (std::vector<int>{1, 5, 32, 33, 36}));
    EXPECT_EQ(svid_at(b, 0), 255);
    EXPECT_EQ(hour_at(b, 0), 403200u);
    for (uint32_t off = 8; off < 16; ++off) EXPECT_EQ(b[off], 0) << off;
    for (uint32_t off = 20; off < R; ++off) EXPECT_EQ(b[off], 0) << off;
}

TEST(EpoGenHeader, DefaultGalileoSet) {
    const EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    const std::vector<int> list = epogen_header_prns(c);
    EXPECT_EQ(list.size(), 31u);
    for (int missing : {17, 20, 22, 28, 32})
        EXPECT_EQ(std::set<int>(list.begin(), list.end()).count(missing), 0u) << missing;
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(list_from_mask(epo_header_mask(b.data())), list);
    EXPECT_NE(u32_at(b, 16), 0u);  // 33..36 are present
}

TEST(EpoGenHeader, KindsWithoutAHeaderHaveNoList) {
    for (EpoGenKind k :
         {EpoGenKind::Gps, EpoGenKind::Gr, EpoGenKind::ElpoGlo, EpoGenKind::ElpoQzss}) {
        const EpoGenConfig c = kind_cfg(k);
        EXPECT_TRUE(epogen_header_prns(c).empty());
        EXPECT_EQ(epogen_header_mask(c), 0u);
    }
}

// ---------------------------------------------------------------------------
// The readers' classification of the generated files

TEST(EpoGenDecode, TypesSegmentsAndHours) {
    struct Row {
        EpoGenKind kind;
        int type;
        uint32_t segments;
    };
    const Row rows[] = {
        {EpoGenKind::Gps, 0, 12},
        {EpoGenKind::Gr, 1, 12},
        {EpoGenKind::Gal, 2, 28},
        {EpoGenKind::Bds, 3, 12},
        {EpoGenKind::VGps, 0, 12},
        {EpoGenKind::VGr, 1, 12},
        {EpoGenKind::VGal, 2, 12},
        {EpoGenKind::VBds, 3, 12},
        {EpoGenKind::ElpoGps7, 0, 28},
        {EpoGenKind::ElpoGal7, 2, 28},
        {EpoGenKind::ElpoBd7, 3, 28},
        {EpoGenKind::VelpoGr, 1, 12},
        // GLONASS-only files carry no SVID the classification knows.
        {EpoGenKind::ElpoGlo, -1, 0},
        // QZSS SVIDs 193..199 overlap the BeiDou range 190..198.
        {EpoGenKind::ElpoQzss, 3, 0},
    };
    for (const Row &r : rows) {
        SCOPED_TRACE(epogen_kind_token(r.kind));
        const Decoded d = decode(epogen_generate(kind_cfg(r.kind)));
        EXPECT_EQ(d.type, r.type);
        if (r.type == -1 || r.kind == EpoGenKind::ElpoQzss) continue;
        EXPECT_EQ(d.segments, r.segments);
        EXPECT_EQ(d.hour, 403200u);
    }
}

TEST(EpoGenDecode, GalileoThirtySixSatellitesSevenSegments) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    for (int s = 1; s <= 36; ++s) c.sats.push_back(s);
    c.segments = 7;
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(b.size(), 72u + 7u * 36u * 72u);
    const Decoded d = decode(b);
    EXPECT_EQ(d.type, 2);
    EXPECT_EQ(d.segments, 7u);
}

// ---------------------------------------------------------------------------
// Payload and determinism

TEST(EpoGenPayload, SameConfigSameBytes) {
    for (int i = 0; i < EPO_GEN_KIND_COUNT; ++i) {
        const EpoGenConfig c = kind_cfg(epogen_kind_at(i));
        EXPECT_EQ(epogen_generate(c), epogen_generate(c)) << epogen_kind_token(c.kind);
    }
}

TEST(EpoGenPayload, OtherSeedOtherPayloadSameLayout) {
    EpoGenConfig a = kind_cfg(EpoGenKind::Gr);
    EpoGenConfig b = a;
    b.seed = 2;
    const std::vector<uint8_t> x = epogen_generate(a), y = epogen_generate(b);
    ASSERT_EQ(x.size(), y.size());
    for (size_t i = 0; i < x.size() / R; ++i) {
        EXPECT_EQ(0, std::memcmp(&x[i * R], &y[i * R], 4)) << i;
        EXPECT_NE(0, std::memcmp(&x[i * R + 4], &y[i * R + 4], R - 4)) << i;
    }
}

TEST(EpoGenPayload, WordsDifferBetweenRecords) {
    const std::vector<uint8_t> b = epogen_generate(kind_cfg(EpoGenKind::Gps));
    std::set<std::vector<uint32_t>> seen;
    for (size_t i = 0; i < b.size() / R; ++i) {
        std::vector<uint32_t> w;
        for (int k = 1; k < 18; ++k) w.push_back(epo_record_word(&b[i * R], k));
        seen.insert(w);
    }
    EXPECT_EQ(seen.size(), b.size() / R);
    // Word 0 holds the hour and the SVID.
    EXPECT_EQ(epo_record_word(&b[5 * R], 0), 403200u | (6u << 24));
}

TEST(EpoGenPayload, ASatellitesRecordIsTheSameInEveryKind) {
    const std::vector<uint8_t> gps = epogen_generate(kind_cfg(EpoGenKind::Gps));
    const std::vector<uint8_t> gr = epogen_generate(kind_cfg(EpoGenKind::Gr));
    const std::vector<uint8_t> glo = epogen_generate(kind_cfg(EpoGenKind::ElpoGlo));
    for (size_t k = 0; k < 12; ++k) {
        EXPECT_EQ(0, std::memcmp(&gps[k * 32 * R], &gr[k * 56 * R], 32 * R)) << k;
        EXPECT_EQ(0, std::memcmp(&glo[k * 24 * R], &gr[(k * 56 + 32) * R], 24 * R)) << k;
    }
}

TEST(EpoGenPayload, FollowsTheDocumentedSequence) {
    const uint64_t seed = 7;
    const uint32_t hour = 403206;
    const uint8_t svid = 12;
    uint8_t rec[EPO_RECORD_BYTES];
    epogen_make_record(seed, hour, svid, rec);
    uint64_t state = seed * 0xD1B54A32D192ED03ull ^ ((uint64_t(hour) << 8) | svid);
    uint8_t want[EPO_RECORD_BYTES] = {0x06, 0x27, 0x06, 12};
    for (uint32_t off = 4; off < R; off += 8) {
        const uint64_t r = splitmix(state);
        for (uint32_t k = 0; k < 8 && off + k < R; ++k) want[off + k] = uint8_t(r >> (8 * k));
    }
    EXPECT_EQ(0, std::memcmp(rec, want, R));
    // And the generator uses exactly these records.
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.seed = seed;
    c.segments = 2;
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(0, std::memcmp(&b[(32 + 11) * R], want, R));
}

// ---------------------------------------------------------------------------
// Damage

TEST(EpoGenDamage, ShortCutsTheFile) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.damage = EpoGenDamage::Short;
    const std::vector<uint8_t> full = epogen_generate(kind_cfg(EpoGenKind::Gps));
    std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), 100u);  // default: less than two records
    EXPECT_EQ(0, std::memcmp(b.data(), full.data(), 100));
    EXPECT_EQ(decode(b).type, -1);
    c.damage_value = 143;
    EXPECT_EQ(epogen_generate(c).size(), 143u);
    c.damage_value = 0;
    EXPECT_TRUE(epogen_validate(c, nullptr));
    EXPECT_TRUE(epogen_generate(c).empty());
    c.damage_value = 27648;  // not shorter
    EXPECT_FALSE(epogen_validate(c, nullptr));
}

TEST(EpoGenDamage, UnknownSvidInTheSecondRecord) {
    for (int v : {0, 33, 64, 89, 100, 137, 189, 199, 200, 255}) {
        SCOPED_TRACE(v);
        EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
        c.damage = EpoGenDamage::UnknownSvid;
        c.damage_value = v;
        const std::vector<uint8_t> b = epogen_generate(c);
        const std::vector<uint8_t> full = epogen_generate(kind_cfg(EpoGenKind::Gps));
        ASSERT_EQ(b.size(), full.size());
        EXPECT_EQ(b[R + 3], v);
        for (size_t i = 0; i < b.size(); ++i) {
            if (i == R + 3) continue;
            ASSERT_EQ(b[i], full[i]) << i;
        }
        EXPECT_EQ(decode(b).type, -1);
    }
    // After a header, the second record is the first data record.
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    c.damage = EpoGenDamage::UnknownSvid;
    const std::vector<uint8_t> b = epogen_generate(c);
    EXPECT_EQ(b[3], 255);
    EXPECT_EQ(b[R + 3], 0);  // default value
    EXPECT_EQ(decode(b).type, -1);
}

TEST(EpoGenDamage, EmptyHeader) {
    for (EpoGenKind k : {EpoGenKind::Gal, EpoGenKind::Bds, EpoGenKind::VelpoGal}) {
        EpoGenConfig c = kind_cfg(k);
        c.damage = EpoGenDamage::EmptyHeader;
        EpoGenStats st;
        const std::vector<uint8_t> b = epogen_generate(c, &st);
        const std::vector<uint8_t> full = epogen_generate(kind_cfg(k));
        ASSERT_EQ(b.size(), full.size());
        EXPECT_EQ(u32_at(b, 4), 0u);
        EXPECT_EQ(u32_at(b, 16), 0u);
        EXPECT_EQ(st.header_mask, 0u);
        EXPECT_EQ(0, std::memcmp(&b[R], &full[R], b.size() - R));
        EXPECT_EQ(decode(b).segments, 0u);
    }
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.damage = EpoGenDamage::EmptyHeader;
    std::string err;
    EXPECT_FALSE(epogen_validate(c, &err));
    EXPECT_FALSE(err.empty());
}

TEST(EpoGenDamage, ExtraBytes) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gr);
    c.damage = EpoGenDamage::ExtraBytes;
    const std::vector<uint8_t> full = epogen_generate(kind_cfg(EpoGenKind::Gr));
    std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), 48384u + 72u);
    EXPECT_NE(b.size() % 4032, 0u);
    EXPECT_EQ(0, std::memcmp(b.data(), full.data(), full.size()));
    // No longer a whole number of GPS+GLONASS segments: read as GPS-only.
    EXPECT_EQ(decode(b).type, 0);
    c.damage_value = 5;
    b = epogen_generate(c);
    EXPECT_EQ(b.size(), 48389u);
    EXPECT_EQ(b, epogen_generate(c));
    c.damage_value = 0;
    EXPECT_FALSE(epogen_validate(c, nullptr));
}

TEST(EpoGenDamage, GpsFileTheSizeOfGpsGlonassSegments) {
    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.segments = 7;
    std::vector<uint8_t> b = epogen_generate(c);
    ASSERT_EQ(b.size(), 16128u);
    EXPECT_EQ(b.size(), 4u * 4032u);
    EXPECT_EQ(svid_at(b, 32), 1);  // offset 2304 holds a GPS record
    EXPECT_EQ(decode(b).type, 0);
    EXPECT_EQ(decode(b).segments, 7u);

    c.damage = EpoGenDamage::GpsInGlonassSlot;
    b = epogen_generate(c);
    ASSERT_EQ(b.size(), 16128u);
    EXPECT_EQ(b[2304 + 3], 65);
    EXPECT_EQ(decode(b).type, 1);
    EXPECT_EQ(decode(b).segments, 4u);
    c.damage_value = 88;
    b = epogen_generate(c);
    EXPECT_EQ(b[2304 + 3], 88);
    EXPECT_EQ(decode(b).type, 1);
    c.damage_value = 89;
    EXPECT_EQ(decode(epogen_generate(c)).type, 0);

    c.segments = 1;
    EXPECT_FALSE(epogen_validate(c, nullptr));
    c.segments = 7;
    c.kind = EpoGenKind::Gr;
    EXPECT_FALSE(epogen_validate(c, nullptr));
}

TEST(EpoGenDamage, TokensAndDefaults) {
    struct Row {
        const char *token;
        EpoGenDamage d;
        int64_t def;
    };
    const Row rows[] = {
        {"none", EpoGenDamage::None, 0},
        {"short", EpoGenDamage::Short, 100},
        {"unknown-svid", EpoGenDamage::UnknownSvid, 0},
        {"empty-header", EpoGenDamage::EmptyHeader, 0},
        {"extra-bytes", EpoGenDamage::ExtraBytes, 72},
        {"gps-in-glonass-slot", EpoGenDamage::GpsInGlonassSlot, 65},
    };
    for (const Row &r : rows) {
        EpoGenDamage d = EpoGenDamage::None;
        EXPECT_TRUE(epogen_parse_damage(r.token, &d)) << r.token;
        EXPECT_EQ(d, r.d);
        EXPECT_STREQ(epogen_damage_token(r.d), r.token);
        EpoGenConfig c;
        c.damage = r.d;
        EXPECT_EQ(epogen_damage_value(c), r.def) << r.token;
        c.damage_value = 3;
        EXPECT_EQ(epogen_damage_value(c), 3);
    }
    EpoGenDamage d = EpoGenDamage::None;
    EXPECT_TRUE(epogen_parse_damage("unknown_svid", &d));
    EXPECT_EQ(d, EpoGenDamage::UnknownSvid);
    EXPECT_FALSE(epogen_parse_damage("truncate", &d));
}

// ---------------------------------------------------------------------------
// Names and kinds

TEST(EpoGenNames, DefaultNames) {
    struct Row {
        EpoGenKind kind;
        const char *name;
        int days;
    };
    const Row rows[] = {
        {EpoGenKind::Gps, "EPO_GPS_3_1.DAT", 3},
        {EpoGenKind::Gr, "EPO_GR_3_1.DAT", 3},
        {EpoGenKind::Gal, "EPO_GAL_7.DAT", 7},
        {EpoGenKind::Bds, "EPO_BDS_3.DAT", 3},
        {EpoGenKind::VGps, "VGPS.DAT", 3},
        {EpoGenKind::VGr, "VG_R.DAT", 3},
        {EpoGenKind::VGal, "VGA.DAT", 3},
        {EpoGenKind::VBds, "VBD2.DAT", 3},
        {EpoGenKind::ElpoGps, "ELPO_GPS_3.DAT", 3},
        {EpoGenKind::ElpoGr, "ELPO_GR3_1.DAT", 3},
        {EpoGenKind::ElpoBds, "ELPO_BDS_3.DAT", 3},
        {EpoGenKind::ElpoGal, "ELPO_GAL_3.DAT", 3},
        {EpoGenKind::ElpoGlo, "ELPO_GLO_3.DAT", 3},
        {EpoGenKind::ElpoQzss, "ELPO_QZSS_3.DAT", 3},
        {EpoGenKind::ElpoGps7, "ELPO_GPS_07days.DAT", 7},
        {EpoGenKind::ElpoGlo7, "ELPO_GLO_07days.DAT", 7},
        {EpoGenKind::ElpoGal7, "ELPO_GAL_07days.DAT", 7},
        {EpoGenKind::ElpoBd7, "ELPO_BD_07days.DAT", 7},
        {EpoGenKind::ElpoQzss7, "ELPO_QZSS_07days.DAT", 7},
        {EpoGenKind::VelpoGps, "VELPO_GPS.DAT", 3},
        {EpoGenKind::VelpoGlo, "VELPO_GLO.DAT", 3},
        {EpoGenKind::VelpoGal, "VELPO_GAL.DAT", 3},
        {EpoGenKind::VelpoBds, "VELPO_BDS.DAT", 3},
        {EpoGenKind::VelpoQzss, "VELPO_QZSS.DAT", 3},
        {EpoGenKind::VelpoGr, "VELPO_GR.DAT", 3},
    };
    ASSERT_EQ(sizeof rows / sizeof rows[0], size_t(EPO_GEN_KIND_COUNT));
    std::set<std::string> tokens;
    for (int i = 0; i < EPO_GEN_KIND_COUNT; ++i) {
        const Row &r = rows[i];
        SCOPED_TRACE(r.name);
        EXPECT_EQ(epogen_kind_at(i), r.kind);
        EXPECT_EQ(epogen_default_name(r.kind), r.name);
        EXPECT_EQ(epogen_default_days(r.kind), r.days);
        EXPECT_EQ(epogen_default_name(kind_cfg(r.kind)), r.name);
        EpoGenKind k = EpoGenKind::Gps;
        ASSERT_TRUE(epogen_kind_from_name(r.name, &k));
        EXPECT_EQ(k, r.kind);
        ASSERT_TRUE(epogen_parse_kind(epogen_kind_token(r.kind), &k));
        EXPECT_EQ(k, r.kind);
        ASSERT_TRUE(epogen_parse_kind(r.name, &k));
        EXPECT_EQ(k, r.kind);
        tokens.insert(epogen_kind_token(r.kind));
    }
    EXPECT_EQ(tokens.size(), size_t(EPO_GEN_KIND_COUNT));
}

TEST(EpoGenNames, GalileoNameCarriesTheDays) {
    EXPECT_EQ(epogen_default_name(EpoGenKind::Gal, 3), "EPO_GAL_3.DAT");
    EXPECT_EQ(epogen_default_name(EpoGenKind::Gal, 14), "EPO_GAL_14.DAT");
    EpoGenConfig c = kind_cfg(EpoGenKind::Gal);
    c.days = 5;
    EXPECT_EQ(epogen_default_name(c), "EPO_GAL_5.DAT");
    EpoGenKind k = EpoGenKind::Gps;
    int days = 0;
    ASSERT_TRUE(epogen_kind_from_name("/some/dir/EPO_GAL_5.DAT", &k, &days));
    EXPECT_EQ(k, EpoGenKind::Gal);
    EXPECT_EQ(days, 5);
    // Names of the other kinds keep their fixed text whatever the day count.
    c.kind = EpoGenKind::ElpoGal;
    EXPECT_EQ(epogen_default_name(c), "ELPO_GAL_3.DAT");
}

TEST(EpoGenNames, NamesFromPathsAndAliases) {
    EpoGenKind k = EpoGenKind::Gps;
    EXPECT_TRUE(epogen_kind_from_name("/tmp/x/EPO_GPS_3_2.DAT", &k));
    EXPECT_EQ(k, EpoGenKind::Gps);
    EXPECT_TRUE(epogen_kind_from_name("EPO_GR_3_12.DAT", &k));
    EXPECT_EQ(k, EpoGenKind::Gr);
    EXPECT_TRUE(epogen_kind_from_name("C:\\data\\ELPO_GR3_4.DAT", &k));
    EXPECT_EQ(k, EpoGenKind::ElpoGr);
    EXPECT_FALSE(epogen_kind_from_name("EPO_GPS_3_.DAT", &k));
    EXPECT_FALSE(epogen_kind_from_name("EPO_GAL_X.DAT", &k));
    EXPECT_FALSE(epogen_kind_from_name("vgps.dat", &k));
    EXPECT_FALSE(epogen_kind_from_name(nullptr, &k));
    EXPECT_TRUE(epogen_parse_kind("glo", &k));
    EXPECT_EQ(k, EpoGenKind::ElpoGlo);
    EXPECT_TRUE(epogen_parse_kind("qzss", &k));
    EXPECT_EQ(k, EpoGenKind::ElpoQzss);
    EXPECT_FALSE(epogen_parse_kind("galileo", &k));
}

// ---------------------------------------------------------------------------
// Configuration checks and helpers

TEST(EpoGenConfigCheck, RejectsBadConfigurations) {
    std::string err;
    EpoGenConfig c;
    EXPECT_TRUE(epogen_validate(c, &err)) << err;

    c = EpoGenConfig();
    c.days = -1;
    EXPECT_FALSE(epogen_validate(c, &err));
    c = EpoGenConfig();
    c.segments = -2;
    EXPECT_FALSE(epogen_validate(c, &err));
    c = EpoGenConfig();
    c.start_hour = 0x1000000;
    EXPECT_FALSE(epogen_validate(c, &err));
    // The last segment's hour must fit 24 bits too.
    c = EpoGenConfig();
    c.start_hour = 0xFFFFFF - 6 * 11;
    EXPECT_TRUE(epogen_validate(c, &err)) << err;
    c.start_hour += 1;
    EXPECT_FALSE(epogen_validate(c, &err));
    EXPECT_TRUE(epogen_generate(c).empty());
    // Satellites outside the system's range, or a list for a kind without one.
    c = kind_cfg(EpoGenKind::Gal);
    c.sats = {37};
    EXPECT_FALSE(epogen_validate(c, &err));
    c.sats = {0};
    EXPECT_FALSE(epogen_validate(c, &err));
    c = kind_cfg(EpoGenKind::Bds);
    c.sats = {63};
    EXPECT_TRUE(epogen_validate(c, &err)) << err;
    c.sats = {64};
    EXPECT_FALSE(epogen_validate(c, &err));
    c = kind_cfg(EpoGenKind::Gps);
    c.sats = {1};
    EXPECT_FALSE(epogen_validate(c, &err));
    c = kind_cfg(EpoGenKind::Gps);
    c.damage = EpoGenDamage::UnknownSvid;
    c.damage_value = 256;
    EXPECT_FALSE(epogen_validate(c, &err));
    EXPECT_FALSE(err.empty());
}

TEST(EpoGenConfigCheck, SatelliteListParsing) {
    std::vector<int> v;
    ASSERT_TRUE(epogen_parse_sat_list("1,2,5-9", &v));
    EXPECT_EQ(v, (std::vector<int>{1, 2, 5, 6, 7, 8, 9}));
    ASSERT_TRUE(epogen_parse_sat_list("36", &v));
    EXPECT_EQ(v, (std::vector<int>{36}));
    ASSERT_TRUE(epogen_parse_sat_list("60-64", &v));
    EXPECT_EQ(v.size(), 5u);
    for (const char *bad : {"", ",", "1,", "a", "0", "65", "9-5", "1-", "-3", "1;2", "1 2"})
        EXPECT_FALSE(epogen_parse_sat_list(bad, &v)) << "'" << bad << "'";
    EXPECT_FALSE(epogen_parse_sat_list(nullptr, &v));
}

TEST(EpoGenConfigCheck, SvidOfEachSystem) {
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Gps, 1), 1);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Gps, 32), 32);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Gps, 33), -1);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Glonass, 1), 65);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Glonass, 24), 88);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Galileo, 1), 101);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Galileo, 36), 136);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Galileo, 37), -1);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Beidou, 1), 201);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Qzss, 1), 193);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Qzss, 7), 199);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::Qzss, 8), -1);
    EXPECT_EQ(epogen_svid_of(EpoGenSystem::GpsGlonass, 1), -1);
    EXPECT_EQ(epogen_kind_system(EpoGenKind::ElpoBd7), EpoGenSystem::Beidou);
    EXPECT_EQ(epogen_kind_system(EpoGenKind::VelpoGr), EpoGenSystem::GpsGlonass);
    EXPECT_EQ(epogen_kind_system(EpoGenKind::VelpoQzss), EpoGenSystem::Qzss);
}

// ---------------------------------------------------------------------------
// Files

TEST(EpoGenFile, WritesTheGeneratedBytes) {
    const std::string tmp = make_temp_file("vk_epogen");
    ASSERT_FALSE(tmp.empty());
    const char *path = tmp.c_str();
    EpoGenConfig c = kind_cfg(EpoGenKind::Bds);
    c.seed = 42;
    EpoGenStats st;
    std::string err;
    ASSERT_TRUE(epogen_write_file(c, path, &st, &err)) << err;
    const std::vector<uint8_t> on_disk = read_file(path);
    EXPECT_EQ(on_disk, epogen_generate(c));
    EXPECT_EQ(on_disk.size(), st.bytes);
    // A cut to 0 bytes writes an empty file.
    c.damage = EpoGenDamage::Short;
    c.damage_value = 0;
    ASSERT_TRUE(epogen_write_file(c, path, nullptr, &err)) << err;
    EXPECT_TRUE(read_file(path).empty());
    EXPECT_TRUE(is_file(path));
    std::remove(path);

    c.damage = EpoGenDamage::None;
    EXPECT_FALSE(epogen_write_file(c, "/nonexistent-dir/x.DAT", nullptr, &err));
    EXPECT_FALSE(err.empty());
    c.segments = -1;
    err.clear();
    EXPECT_FALSE(epogen_write_file(c, path, nullptr, &err));
    EXPECT_FALSE(err.empty());
    EXPECT_FALSE(is_file(path));
}

// ---------------------------------------------------------------------------
// The real 3-day GPS file has the layout the GPS kind produces.

TEST(EpoGenRealData, GpsFileHasTheGeneratedLayout) {
    const std::string path = std::string(VK_REAL_DATA_DIR) + "/epo/EPO_GPS_3_1.DAT";
    if (!is_file(path)) GTEST_SKIP() << "no real EPO file at " << path;
    const std::vector<uint8_t> real = read_file(path);
    ASSERT_EQ(real.size(), 27648u);
    ASSERT_EQ(real.size() % R, 0u);

    EpoGenConfig c = kind_cfg(EpoGenKind::Gps);
    c.start_hour = hour_at(real, 0);
    const std::vector<uint8_t> gen = epogen_generate(c);
    ASSERT_EQ(gen.size(), real.size());
    EXPECT_EQ(epogen_record_count(c), real.size() / R);
    EXPECT_EQ(epogen_default_name(c), "EPO_GPS_3_1.DAT");

    // Word 0 (hour and SVID) of every record matches the generated file.
    for (size_t i = 0; i < real.size() / R; ++i) {
        EXPECT_EQ(svid_at(real, i), int(i % 32 + 1)) << i;
        EXPECT_EQ(hour_at(real, i), hour_at(real, 0) + 6u * uint32_t(i / 32)) << i;
        EXPECT_EQ(epo_record_word(&real[i * R], 0), epo_record_word(&gen[i * R], 0)) << i;
    }
    // July 2020: GPS week 2114.
    EXPECT_EQ(hour_at(real, 0) / 168, 2114u);
    const Decoded dr = decode(real), dg = decode(gen);
    EXPECT_EQ(dr.type, 0);
    EXPECT_EQ(dr.type, dg.type);
    EXPECT_EQ(dr.segments, dg.segments);
    EXPECT_EQ(dr.hour, dg.hour);
}
