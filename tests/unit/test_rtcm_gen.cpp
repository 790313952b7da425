// The RTCM 3 ephemeris sample-data generator and its frame reader.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/fingerprint.h"
#include "tests/support/ref_crc16.h"
#include "tests/unit/gen_test_util.h"
#include "toolkit/checksum.h"
#include "toolkit/gnss_time.h"
#include "tools/rtcm_gen.h"

namespace {

using gen_test::is_dir;
using gen_test::make_temp_file;
using gen_test::read_file;

// Bit positions in the payload of the fields the readers use, written out
// here independently of the generator's own table.
struct KnownPositions {
    uint32_t msg;
    uint32_t sat_pos, sat_len;
    uint32_t week_pos, week_len;
    uint32_t toc_pos, toc_len;
    uint32_t toe_pos, toe_len;
    uint32_t bits, bytes;
};
const KnownPositions kKnown[] = {
    {1019, 12, 6, 18, 10, 56, 16, 288, 16, 488, 61},
    {1042, 12, 6, 18, 13, 54, 17, 299, 17, 511, 64},
    {1044, 12, 4, 446, 10, 16, 16, 246, 16, 485, 61},
    {1046, 12, 6, 18, 12, 62, 14, 294, 14, 504, 63},
};

const KnownPositions &known(uint32_t msg) {
    for (const auto &k : kKnown)
        if (k.msg == msg) return k;
    return kKnown[0];
}

uint64_t stored_crc(const std::vector<uint8_t> &b, const RtcmFrameInfo &f) {
    const size_t c = f.offset + 3 + f.payload_len;
    return (uint64_t(b[c]) << 16) | (uint64_t(b[c + 1]) << 8) | b[c + 2];
}

}  // namespace

// ---------------------------------------------------------------------------
// Layout tables

TEST(RtcmGenLayout, TotalsAndPayloadLengths) {
    for (const auto &k : kKnown) {
        SCOPED_TRACE(k.msg);
        EXPECT_EQ(rtcm_eph_layout_bits(k.msg), k.bits);
        EXPECT_EQ(rtcm_eph_payload_bytes(k.msg), k.bytes);
    }
    // GLONASS: 360 bits, 45 bytes, no spare bits.
    EXPECT_EQ(rtcm_eph_layout_bits(1020), 360u);
    EXPECT_EQ(rtcm_eph_payload_bytes(1020), 45u);
    EXPECT_EQ(rtcm_eph_layout_bits(1043), 0u);
    size_t n = 7;
    EXPECT_EQ(rtcm_eph_layout(1045, &n), nullptr);
    EXPECT_EQ(n, 0u);
}

TEST(RtcmGenLayout, PositionsOfTheFieldsTheReadersUse) {
    for (const auto &k : kKnown) {
        SCOPED_TRACE(k.msg);
        EXPECT_EQ(rtcm_eph_field_pos(k.msg, F_MSG), 0);
        EXPECT_EQ(rtcm_eph_field_width(k.msg, F_MSG), 12u);
        EXPECT_EQ(rtcm_eph_field_pos(k.msg, F_SAT), int32_t(k.sat_pos));
        EXPECT_EQ(rtcm_eph_field_width(k.msg, F_SAT), k.sat_len);
        EXPECT_EQ(rtcm_eph_field_pos(k.msg, F_WEEK), int32_t(k.week_pos));
        EXPECT_EQ(rtcm_eph_field_width(k.msg, F_WEEK), k.week_len);
        EXPECT_EQ(rtcm_eph_field_pos(k.msg, F_TOC), int32_t(k.toc_pos));
        EXPECT_EQ(rtcm_eph_field_width(k.msg, F_TOC), k.toc_len);
        EXPECT_EQ(rtcm_eph_field_pos(k.msg, F_TOE), int32_t(k.toe_pos));
        EXPECT_EQ(rtcm_eph_field_width(k.msg, F_TOE), k.toe_len);
    }
    // GPS toe sits in payload bytes 36 and 37 exactly.
    EXPECT_EQ(rtcm_eph_field_pos(1019, F_TOE) % 8, 0);
    EXPECT_EQ(rtcm_eph_field_pos(1019, F_TOE) / 8, 36);
    // Fields a message does not carry.
    EXPECT_EQ(rtcm_eph_field_pos(1019, F_TGD2), -1);
    EXPECT_EQ(rtcm_eph_field_width(1042, F_L2CODE), 0u);
    EXPECT_EQ(rtcm_eph_field_pos(1044, F_L2P), -1);
}

TEST(RtcmGenLayout, SomeFurtherOffsets) {
    // A few well-known positions further into the messages.
    EXPECT_EQ(rtcm_eph_field_pos(1019, F_SQRTA), 256);
    EXPECT_EQ(rtcm_eph_field_pos(1019, F_HEALTH), 480);
    EXPECT_EQ(rtcm_eph_field_pos(1042, F_SQRTA), 267);
    EXPECT_EQ(rtcm_eph_field_pos(1042, F_HEALTH), 510);
    EXPECT_EQ(rtcm_eph_field_pos(1044, F_SQRTA), 214);
    EXPECT_EQ(rtcm_eph_field_pos(1044, F_FIT), 484);
    EXPECT_EQ(rtcm_eph_field_pos(1046, F_SQRTA), 262);
    EXPECT_EQ(rtcm_eph_field_pos(1046, F_RESERVED), 502);
}

// ---------------------------------------------------------------------------
// Bit writer and frame builder

TEST(RtcmGenBits, SetbituWritesMsbFirstAndLeavesNeighbours) {
    uint8_t b[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    rtcm_setbitu(b, 4, 8, 0x00);
    EXPECT_EQ(b[0], 0xF0);
    EXPECT_EQ(b[1], 0x0F);
    EXPECT_EQ(b[2], 0xFF);
    uint8_t z[3] = {0, 0, 0};
    rtcm_setbitu(z, 4, 8, 0x50);
    EXPECT_EQ(z[0], 0x05);
    EXPECT_EQ(z[1], 0x00);
    rtcm_setbitu(z, 0, 12, 1019);  // 0x3FB
    EXPECT_EQ(z[0], 0x3F);
    EXPECT_EQ(z[1] & 0xF0, 0xB0);
    EXPECT_EQ(gnss_getbitu(z, 0, 12), 1019u);
    // Only the low len bits of the value are taken.
    uint8_t w[2] = {0, 0};
    rtcm_setbitu(w, 3, 5, 0xFFE1);
    EXPECT_EQ(w[0], 0x01);
    EXPECT_EQ(w[1], 0x00);
}

TEST(RtcmGenBits, RoundTripAgreesWithToolkitReader) {
    uint8_t b[16] = {};
    uint32_t pos = 0;
    const uint32_t widths[] = {1, 7, 12, 33, 64, 5};
    const uint64_t values[] = {1, 0x55, 0xABC, 0x1F0F0F0F1ull, 0x8123456789ABCDEFull, 0x11};
    for (int i = 0; i < 6; ++i) {
        rtcm_setbitu(b, pos, widths[i], values[i]);
        pos += widths[i];
    }
    pos = 0;
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(gnss_getbitu(b, pos, widths[i]), values[i]) << i;
        EXPECT_EQ(rtcm_getbitu(b, pos, widths[i]), values[i]) << i;
        pos += widths[i];
    }
    uint8_t s[2] = {};
    rtcm_setbitu(s, 2, 10, static_cast<uint64_t>(int64_t(-3)));
    EXPECT_EQ(rtcm_getbits(s, 2, 10), -3);
    EXPECT_EQ(gnss_getbitu(s, 2, 10), 0x3FDu);
}

TEST(RtcmGenFrame, KnownFrameBytes) {
    // The station-coordinates example frame of the RTCM 3 standard.
    const uint8_t payload[] = {0x3E, 0xD7, 0xD3, 0x02, 0x02, 0x98, 0x0E, 0xDE, 0xEF, 0x34,
                               0xB4, 0xBD, 0x62, 0xAC, 0x09, 0x41, 0x98, 0x6F, 0x33};
    const std::vector<uint8_t> expect = {0xD3, 0x00, 0x13, 0x3E, 0xD7, 0xD3, 0x02, 0x02, 0x98,
                                         0x0E, 0xDE, 0xEF, 0x34, 0xB4, 0xBD, 0x62, 0xAC, 0x09,
                                         0x41, 0x98, 0x6F, 0x33, 0x36, 0x0B, 0x98};
    std::vector<uint8_t> out;
    ASSERT_TRUE(rtcm_append_frame(out, payload, sizeof payload));
    EXPECT_EQ(out, expect);
}

TEST(RtcmGenFrame, LongPayloadLengthUsesTwoBitsOfByteOne) {
    std::vector<uint8_t> payload(1023, 0x5A);
    std::vector<uint8_t> out = {0x01};  // appends after what is there
    ASSERT_TRUE(rtcm_append_frame(out, payload.data(), 1023));
    ASSERT_EQ(out.size(), 1u + 1023u + 6u);
    EXPECT_EQ(out[1], 0xD3);
    EXPECT_EQ(out[2], 0x03);
    EXPECT_EQ(out[3], 0xFF);
    const uint32_t crc = Vk_Check_CRC24Q(0, out.data() + 1, 1026);
    EXPECT_EQ(out[1027], uint8_t(crc >> 16));
    EXPECT_EQ(out[1028], uint8_t(crc >> 8));
    EXPECT_EQ(out[1029], uint8_t(crc));
    std::vector<uint8_t> big(1024, 0);
    std::vector<uint8_t> none;
    EXPECT_FALSE(rtcm_append_frame(none, big.data(), 1024));
    EXPECT_TRUE(none.empty());
}

TEST(RtcmGenEncode, RefusesValuesThatDoNotFit) {
    RtcmEph e{};
    uint8_t p[64];
    e.v[F_SAT] = 3;
    EXPECT_EQ(rtcm_eph_encode(1019, e, p, sizeof p), 61u);
    e.v[F_SAT] = 64;  // 6 bits
    EXPECT_EQ(rtcm_eph_encode(1019, e, p, sizeof p), 0u);
    e.v[F_SAT] = 3;
    e.v[F_IDOT] = -8192;  // smallest 14-bit value
    EXPECT_EQ(rtcm_eph_encode(1019, e, p, sizeof p), 61u);
    EXPECT_EQ(rtcm_eph_get(1019, p, F_IDOT), -8192);
    e.v[F_IDOT] = 8192;
    EXPECT_EQ(rtcm_eph_encode(1019, e, p, sizeof p), 0u);
    e.v[F_IDOT] = 0;
    EXPECT_EQ(rtcm_eph_encode(1019, e, p, 60), 0u);  // too small a buffer
    EXPECT_EQ(rtcm_eph_encode(1045, e, p, sizeof p), 0u);
    e.v[F_SAT] = 11;  // QZSS satellite ID has 4 bits
    EXPECT_EQ(rtcm_eph_encode(1044, e, p, sizeof p), 61u);
    e.v[F_SAT] = 16;
    EXPECT_EQ(rtcm_eph_encode(1044, e, p, sizeof p), 0u);
}

TEST(RtcmGenEncode, PadBitsStayZero) {
    RtcmGenConfig cfg;
    for (char sys : std::string("GCJE")) {
        const uint32_t msg = rtcmgen_msg_of_system(sys);
        RtcmEph e = rtcmgen_make_eph(cfg, sys, 1, 0);
        uint8_t p[64];
        std::memset(p, 0xFF, sizeof p);
        const uint32_t n = rtcm_eph_encode(msg, e, p, sizeof p);
        ASSERT_EQ(n, rtcm_eph_payload_bytes(msg));
        const uint32_t bits = rtcm_eph_layout_bits(msg);
        if (bits < n * 8) {
            EXPECT_EQ(gnss_getbitu(p, bits, n * 8 - bits), 0u) << msg;
        }
    }
}

// ---------------------------------------------------------------------------
// Generator

TEST(RtcmGen, DefaultFileHoldsEveryFrameInOrderWithValidCrcs) {
    RtcmGenConfig cfg;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    ASSERT_FALSE(b.empty());
    EXPECT_EQ(st.frames, 70u);
    EXPECT_EQ(st.epochs, 1u);
    EXPECT_EQ(st.count_1019, 32u);
    EXPECT_EQ(st.count_1042, 10u);
    EXPECT_EQ(st.count_1044, 4u);
    EXPECT_EQ(st.count_1046, 24u);
    EXPECT_EQ(st.bytes, 32u * 67 + 10u * 70 + 4u * 67 + 24u * 69);
    EXPECT_EQ(b.size(), st.bytes);

    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    EXPECT_EQ(s.consumed, b.size());
    ASSERT_EQ(s.frames.size(), 70u);
    const char *order = "GCJE";
    size_t i = 0;
    for (const char *sys = order; *sys; ++sys) {
        const uint32_t msg = rtcmgen_msg_of_system(*sys);
        for (int sat = 1; sat <= rtcmgen_sat_count(cfg, *sys); ++sat, ++i) {
            const RtcmFrameInfo &f = s.frames[i];
            SCOPED_TRACE(testing::Message() << "frame " << i);
            EXPECT_TRUE(f.crc_ok);
            EXPECT_TRUE(f.reserved_clear);
            EXPECT_EQ(b[f.offset], 0xD3);
            EXPECT_EQ(b[f.offset + 1], 0x00);
            EXPECT_EQ(f.msg, msg);
            EXPECT_EQ(f.payload_len, known(msg).bytes);
            const uint8_t *p = b.data() + f.offset + 3;
            EXPECT_EQ(gnss_getbitu(p, 0, 12), msg);
            EXPECT_EQ(gnss_getbitu(p, known(msg).sat_pos, known(msg).sat_len), uint64_t(sat));
            EXPECT_EQ(Vk_Check_CRC24Q(0, b.data() + f.offset, f.payload_len + 3), stored_crc(b, f));
        }
    }
}

TEST(RtcmGen, PayloadLengthsOnTheWire) {
    RtcmGenConfig cfg;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_FALSE(s.frames.empty());
    for (const auto &f : s.frames) {
        const uint8_t *h = b.data() + f.offset;
        const uint32_t len = (uint32_t(h[1] & 3) << 8) | h[2];
        switch (f.msg) {
            case 1019:
                EXPECT_EQ(len, 61u);
                EXPECT_EQ(h[2], 0x3D);
                EXPECT_EQ(h[3], 0x3F);
                break;
            case 1042:
                EXPECT_EQ(len, 64u);
                EXPECT_EQ(h[2], 0x40);
                EXPECT_EQ(h[3], 0x41);
                break;
            case 1044: EXPECT_EQ(len, 61u); break;
            case 1046: EXPECT_EQ(len, 63u); break;
            default: ADD_FAILURE() << "unexpected message " << f.msg;
        }
    }
}

// The HD8XXX offline download divides a GPS, BDS or GPS+BDS file by the
// first four bytes of each frame alone: D3 00 3D 3F opens a 67-byte GPS 1019
// frame, D3 00 40 41 a 70-byte BDS 1042 frame, and anything else stops it.
TEST(RtcmGenHd8xxx, GpsBdsFilesDivideByTheirFirstFourBytes) {
    struct Case {
        const char *systems;
        int sats;
        int epochs;
        uint32_t week, tow;
    };
    const Case cases[] = {
        {"G", 0, 1, 2400, 345600},  {"C", 0, 1, 2400, 345600},   {"GC", 0, 1, 2400, 345600},
        {"GC", 0, 36, 2400, 0},     {"CG", 63, 3, 2500, 597600}, {"G", 5, 3, 3070, 590400},
        {"C", 63, 2, 2048, 604000},
    };
    for (const Case &c : cases) {
        RtcmGenConfig cfg;
        cfg.systems = c.systems;
        cfg.sats = c.sats;
        cfg.epochs = c.epochs;
        cfg.week = c.week;
        cfg.tow = c.tow;
        SCOPED_TRACE(testing::Message() << c.systems << " sats " << c.sats << " epochs " << c.epochs
                                        << " week " << c.week << " tow " << c.tow);
        const std::vector<uint8_t> b = rtcmgen_generate(cfg);
        ASSERT_FALSE(b.empty());
        const bool want_gps = cfg.systems.find('G') != std::string::npos;
        const bool want_bds = cfg.systems.find('C') != std::string::npos;
        const int gps_sats = want_gps ? (c.sats == 0 ? 32 : std::min(c.sats, 32)) : 0;
        const int bds_sats = want_bds ? (c.sats == 0 ? 10 : c.sats) : 0;

        size_t pos = 0, gps = 0, bds = 0;
        while (pos < b.size()) {
            ASSERT_LE(pos + 4, b.size());
            const uint8_t *h = b.data() + pos;
            size_t len = 0;
            bool is_gps = false;
            if (h[0] == 0xD3 && h[1] == 0x00 && h[2] == 0x3D && h[3] == 0x3F) {
                len = 67;
                is_gps = true;
            } else if (h[0] == 0xD3 && h[1] == 0x00 && h[2] == 0x40 && h[3] == 0x41) {
                len = 70;
            } else {
                FAIL() << "frame at " << pos << " starts with another layout";
            }
            ASSERT_LE(pos + len, b.size());
            const uint32_t crc = Vk_Check_CRC24Q(0, h, uint32_t(len - 3));
            EXPECT_EQ(h[len - 3], uint8_t(crc >> 16));
            EXPECT_EQ(h[len - 2], uint8_t(crc >> 8));
            EXPECT_EQ(h[len - 1], uint8_t(crc));

            // Epoch and satellite of this frame from its place in the file:
            // within an epoch the systems follow the order given.
            const size_t index = gps + bds;
            const size_t per_epoch = size_t(gps_sats + bds_sats);
            const size_t epoch = index / per_epoch;
            const size_t in_epoch = index % per_epoch;
            const bool gps_first = cfg.systems[0] == 'G';
            const size_t first_count = size_t(gps_first ? gps_sats : bds_sats);
            const bool expect_gps = (in_epoch < first_count) == gps_first;
            ASSERT_EQ(is_gps, expect_gps) << "frame " << index;
            const uint64_t sat = in_epoch < first_count ? in_epoch + 1 : in_epoch - first_count + 1;

            const uint64_t gps_time = uint64_t(c.week) * 604800 + c.tow + epoch * 7200;
            const uint8_t *p = h + 3;
            EXPECT_EQ(gnss_getbitu(p, 12, 6), sat) << "frame " << index;
            if (is_gps) {
                EXPECT_EQ(gnss_getbitu(p, 0, 12), 1019u);
                EXPECT_EQ(gnss_getbitu(p, 18, 10) + 2048, gps_time / 604800) << "frame " << index;
                EXPECT_EQ(gnss_getbitu(p, 288, 16) * 16, gps_time % 604800) << "frame " << index;
                ++gps;
            } else {
                // BDT: GPS time less 14 s, weeks from GPS week 1356; toc kept in 8 s.
                const uint64_t bdt = gps_time - 1356ull * 604800 - 14;
                EXPECT_EQ(gnss_getbitu(p, 0, 12), 1042u);
                EXPECT_EQ(gnss_getbitu(p, 18, 13), bdt / 604800) << "frame " << index;
                EXPECT_EQ(gnss_getbitu(p, 54, 17) * 8, bdt % 604800 / 8 * 8) << "frame " << index;
                ++bds;
            }
            pos += len;
        }
        EXPECT_EQ(pos, b.size());
        EXPECT_EQ(gps, size_t(gps_sats) * size_t(c.epochs));
        EXPECT_EQ(bds, size_t(bds_sats) * size_t(c.epochs));
        EXPECT_EQ(b.size(), gps * 67 + bds * 70);
    }
}

TEST(RtcmGen, SameConfigSameBytesOtherSeedOtherValues) {
    RtcmGenConfig a;
    a.epochs = 2;
    a.seed = 42;
    const std::vector<uint8_t> first = rtcmgen_generate(a);
    const std::vector<uint8_t> again = rtcmgen_generate(a);
    ASSERT_FALSE(first.empty());
    EXPECT_EQ(first, again);

    RtcmGenConfig b = a;
    b.seed = 43;
    const std::vector<uint8_t> other = rtcmgen_generate(b);
    ASSERT_EQ(other.size(), first.size());
    EXPECT_NE(other, first);

    // The seed changes the orbit and clock values, never the identity and time fields.
    const RtcmSplit sa = rtcm_split_frames(first.data(), first.size());
    const RtcmSplit sb = rtcm_split_frames(other.data(), other.size());
    ASSERT_EQ(sa.frames.size(), sb.frames.size());
    size_t differing = 0;
    for (size_t i = 0; i < sa.frames.size(); ++i) {
        const uint32_t msg = sa.frames[i].msg;
        ASSERT_EQ(msg, sb.frames[i].msg);
        const uint8_t *pa = rtcm_frame_payload(first.data(), sa.frames[i]);
        const uint8_t *pb = rtcm_frame_payload(other.data(), sb.frames[i]);
        for (RtcmEphField fld : {F_SAT, F_WEEK, F_TOE, F_TOC})
            EXPECT_EQ(rtcm_eph_get(msg, pa, fld), rtcm_eph_get(msg, pb, fld));
        if (rtcm_eph_get(msg, pa, F_M0) != rtcm_eph_get(msg, pb, F_M0)) ++differing;
    }
    EXPECT_GT(differing, sa.frames.size() / 2);
}

TEST(RtcmGen, FixedSeedGivesFixedBytes) {
    // Pins the value generator: the same configuration must give the same
    // bytes on every platform, compiler and library version, so files made
    // elsewhere or earlier stay comparable. The fingerprints were recorded
    // when the generator was written; a change here changes every file.
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    ASSERT_EQ(b.size(), 67u);
    EXPECT_EQ(fingerprint_crc32(b.data(), b.size()), 0x6A1908C8u);
    const std::vector<uint8_t> all = rtcmgen_generate(RtcmGenConfig());
    ASSERT_EQ(all.size(), 4768u);
    EXPECT_EQ(fingerprint_crc32(all.data(), all.size()), 0x6EAD5D39u);
    const uint8_t *p = b.data() + 3;
    // Time and identity fields follow from the configuration alone.
    EXPECT_EQ(gnss_getbitu(p, 0, 12), 1019u);
    EXPECT_EQ(gnss_getbitu(p, 12, 6), 1u);
    EXPECT_EQ(gnss_getbitu(p, 18, 10), 2400u - 2048u);
    EXPECT_EQ(gnss_getbitu(p, 288, 16), 345600u / 16);
    EXPECT_EQ(gnss_getbitu(p, 56, 16), 345600u / 16);
}

TEST(RtcmGen, TimeFieldsForEachSystemAndEpoch) {
    RtcmGenConfig cfg;
    cfg.epochs = 3;
    cfg.sats = 2;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 3u * 4u * 2u);
    size_t i = 0;
    for (uint32_t k = 0; k < 3; ++k) {
        const uint32_t tow = 345600 + k * 7200;
        for (char sys : std::string("GCJE")) {
            for (uint32_t sat = 1; sat <= 2; ++sat, ++i) {
                const RtcmFrameInfo &f = s.frames[i];
                const uint32_t msg = rtcmgen_msg_of_system(sys);
                const KnownPositions &kp = known(msg);
                SCOPED_TRACE(testing::Message() << "frame " << i << " msg " << msg);
                ASSERT_EQ(f.msg, msg);
                EXPECT_TRUE(f.crc_ok);
                const uint8_t *p = rtcm_frame_payload(b.data(), f);
                EXPECT_EQ(gnss_getbitu(p, kp.sat_pos, kp.sat_len), sat);
                const uint64_t week = gnss_getbitu(p, kp.week_pos, kp.week_len);
                const uint64_t toe = gnss_getbitu(p, kp.toe_pos, kp.toe_len);
                const uint64_t toc = gnss_getbitu(p, kp.toc_pos, kp.toc_len);
                EXPECT_EQ(toe, toc);
                switch (sys) {
                    case 'G':
                    case 'J':
                        EXPECT_EQ(week + 2048, 2400u);
                        EXPECT_EQ(toe * 16, tow);
                        break;
                    case 'C':
                        EXPECT_EQ(week, 2400u - 1356u);
                        EXPECT_EQ(toe * 8, (tow - 14) / 8 * 8);
                        break;
                    case 'E':
                        EXPECT_EQ(week, 2400u - 1024u);
                        EXPECT_EQ(toe * 60, tow);
                        break;
                }
            }
        }
    }
}

TEST(RtcmGen, EpochsCarryIntoTheNextWeek) {
    RtcmGenConfig cfg;
    cfg.week = 2047;  // the GPS 10-bit week wraps at the same time
    cfg.tow = 604800 - 7200;
    cfg.epochs = 2;
    RtcmEpochTime t0 = rtcmgen_epoch_time(cfg, 0);
    RtcmEpochTime t1 = rtcmgen_epoch_time(cfg, 1);
    EXPECT_EQ(t0.gps_week, 2047u);
    EXPECT_EQ(t0.gps_week10, 1023u);
    EXPECT_EQ(t0.gps_toe16, (604800u - 7200u) / 16);
    EXPECT_EQ(t1.gps_week, 2048u);
    EXPECT_EQ(t1.gps_week10, 0u);
    EXPECT_EQ(t1.gps_tow, 0u);
    EXPECT_EQ(t1.gps_toe16, 0u);
    // BDT is 14 s behind: GPS second 0 of week 2048 is BDT week 691, second 604786.
    EXPECT_EQ(t1.bdt_week, 2048u - 1357u);
    EXPECT_EQ(t1.bdt_sow, 604786u);
    EXPECT_EQ(t1.bdt_toe8, 604786u / 8);
    EXPECT_EQ(t1.gst_week, 1024u);
    EXPECT_EQ(t1.gst_week12, 1024u);
    EXPECT_EQ(t1.gst_toe60, 0u);

    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 140u);
    const uint8_t *p = rtcm_frame_payload(b.data(), s.frames[70]);  // epoch 1, GPS sat 1
    EXPECT_EQ(gnss_getbitu(p, 18, 10), 0u);
    EXPECT_EQ(gnss_getbitu(p, 288, 16), 0u);
    p = rtcm_frame_payload(b.data(), s.frames[70 + 32]);  // epoch 1, BeiDou sat 1
    EXPECT_EQ(gnss_getbitu(p, 0, 12), 1042u);
    EXPECT_EQ(gnss_getbitu(p, 18, 13), 691u);
    EXPECT_EQ(gnss_getbitu(p, 54, 17), 604786u / 8);
}

TEST(RtcmGen, SystemOrderAndSatelliteCounts) {
    RtcmGenConfig cfg;
    cfg.systems = "EJ";
    RtcmGenStats st;
    std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 28u);
    for (size_t i = 0; i < 24; ++i) EXPECT_EQ(s.frames[i].msg, 1046u);
    for (size_t i = 24; i < 28; ++i) EXPECT_EQ(s.frames[i].msg, 1044u);
    EXPECT_EQ(st.count_1019, 0u);
    EXPECT_EQ(st.count_1044, 4u);
    EXPECT_EQ(st.count_1046, 24u);

    cfg.systems = "CG";
    cfg.sats = 5;
    b = rtcmgen_generate(cfg, &st);
    s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 10u);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(s.frames[i].msg, 1042u);
        EXPECT_EQ(gnss_getbitu(rtcm_frame_payload(b.data(), s.frames[i]), 12, 6), i + 1);
    }
    for (size_t i = 5; i < 10; ++i) EXPECT_EQ(s.frames[i].msg, 1019u);

    cfg.sats = 40;  // each system keeps to its own largest ID
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'G'), 32);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'C'), 40);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'J'), 10);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'E'), 36);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'R'), 24);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'g'), 32);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'c'), 40);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'X'), 0);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'j'), 0);  // no extended QZSS message
    cfg.sats = 0;
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'G'), 32);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'C'), 10);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'J'), 4);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'E'), 24);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'R'), 24);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'r'), 24);
    EXPECT_EQ(rtcmgen_sat_count(cfg, 'e'), 24);
}

TEST(RtcmGen, ValuesArePlausible) {
    RtcmGenConfig cfg;
    cfg.epochs = 4;
    cfg.sats = 63;  // every ID each system allows
    cfg.seed = 7;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 4u * (32 + 63 + 10 + 36));
    for (const auto &f : s.frames) {
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        const uint32_t m = f.msg;
        const double sqrt_a = double(rtcm_eph_get(m, p, F_SQRTA)) / 524288.0;
        const double e = double(rtcm_eph_get(m, p, F_E)) / 8589934592.0;
        const double i0_deg = double(rtcm_eph_get(m, p, F_I0)) / 2147483648.0 * 180.0;
        const int64_t sat = rtcm_eph_get(m, p, F_SAT);
        SCOPED_TRACE(testing::Message() << m << " sat " << sat);
        EXPECT_EQ(rtcm_eph_get(m, p, F_HEALTH), 0);
        EXPECT_LT(e, 0.09);
        switch (m) {
            case 1019:
                EXPECT_NEAR(sqrt_a, 5153.6, 1.0);
                EXPECT_NEAR(i0_deg, 55.0, 2.0);
                EXPECT_EQ(rtcm_eph_get(m, p, F_IODC) & 0xFF, rtcm_eph_get(m, p, F_IODE));
                break;
            case 1044:
                EXPECT_NEAR(sqrt_a, 6493.4, 1.0);
                EXPECT_NEAR(e, 0.075, 0.006);
                break;
            case 1046:
                EXPECT_NEAR(sqrt_a, 5440.6, 1.0);
                EXPECT_NEAR(i0_deg, 56.0, 2.0);
                break;
            case 1042:
                if (sat <= 10) {
                    EXPECT_NEAR(sqrt_a, 6493.4, 1.0);
                } else {
                    EXPECT_NEAR(sqrt_a, 5282.6, 1.0);
                }
                if (sat <= 5) {
                    EXPECT_LT(std::fabs(i0_deg), 3.0);
                } else {
                    EXPECT_NEAR(i0_deg, 55.0, 2.0);
                }
                break;
            default: ADD_FAILURE();
        }
        // the clock bias stays within a millisecond
        double af0 = 0;
        if (m == 1042)
            af0 = double(rtcm_eph_get(m, p, F_AF0)) / 8589934592.0;
        else if (m == 1046)
            af0 = double(rtcm_eph_get(m, p, F_AF0)) / 17179869184.0;
        else
            af0 = double(rtcm_eph_get(m, p, F_AF0)) / 2147483648.0;
        EXPECT_LT(std::fabs(af0), 1e-3);
    }
}

TEST(RtcmGen, OrbitStaysAndEphemerisSetChangesOverEpochs) {
    RtcmGenConfig cfg;
    const RtcmEph a = rtcmgen_make_eph(cfg, 'G', 5, 0);
    const RtcmEph b = rtcmgen_make_eph(cfg, 'G', 5, 1);
    EXPECT_EQ(a.v[F_SQRTA], b.v[F_SQRTA]);
    EXPECT_EQ(a.v[F_E], b.v[F_E]);
    EXPECT_NE(a.v[F_M0], b.v[F_M0]);
    EXPECT_EQ(b.v[F_TOE] - a.v[F_TOE], 7200 / 16);
    const RtcmEph c = rtcmgen_make_eph(cfg, 'G', 6, 0);
    EXPECT_NE(a.v[F_SQRTA], c.v[F_SQRTA]);
}

TEST(RtcmGen, MinimumSizeAddsWholeEpochs) {
    RtcmGenConfig cfg;
    cfg.min_size = 200 * 1024;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    const uint64_t per_epoch = 32u * 67 + 10u * 70 + 4u * 67 + 24u * 69;
    EXPECT_GE(b.size(), 200u * 1024u);
    EXPECT_LT(b.size() - per_epoch, 200u * 1024u);
    EXPECT_EQ(b.size() % per_epoch, 0u);
    EXPECT_EQ(st.epochs, b.size() / per_epoch);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.frames.size(), st.frames);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    for (const auto &f : s.frames) ASSERT_TRUE(f.crc_ok);
    // More epochs than the size needs are kept.
    cfg.min_size = 10;
    cfg.epochs = 3;
    rtcmgen_generate(cfg, &st);
    EXPECT_EQ(st.epochs, 3u);
}

TEST(RtcmGen, RejectsBadConfigurations) {
    std::string err;
    RtcmGenConfig cfg;
    EXPECT_TRUE(rtcmgen_validate(cfg, &err));
    cfg.systems = "GX";
    EXPECT_FALSE(rtcmgen_validate(cfg, &err));
    EXPECT_FALSE(err.empty());
    EXPECT_TRUE(rtcmgen_generate(cfg).empty());
    cfg.systems = "GG";
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = "";
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = std::string("G\0", 2);
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.epochs = 0;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.tow = 604800;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.week = 1300;  // before BeiDou time began
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = "GJ";
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.damage = RtcmDamage::BadCrc;
    cfg.damage_frame = 70;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.damage_frame = 69;
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
    cfg.damage_frame = -2;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.trailing_bytes = 3;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
}

// ---------------------------------------------------------------------------
// Damage

TEST(RtcmGenDamage, BadCrcSpoilsExactlyTheChosenFrame) {
    RtcmGenConfig cfg;
    const std::vector<uint8_t> good = rtcmgen_generate(cfg);
    for (int k : {0, 5, 69, -1}) {
        SCOPED_TRACE(k);
        cfg.damage = RtcmDamage::BadCrc;
        cfg.damage_frame = k;
        const std::vector<uint8_t> b = rtcmgen_generate(cfg);
        ASSERT_EQ(b.size(), good.size());
        const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
        ASSERT_EQ(s.frames.size(), 70u);
        EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
        const size_t bad = k < 0 ? 69 : size_t(k);
        size_t diffs = 0;
        for (size_t i = 0; i < b.size(); ++i) diffs += b[i] != good[i];
        EXPECT_EQ(diffs, 1u);
        for (size_t i = 0; i < s.frames.size(); ++i) {
            EXPECT_EQ(s.frames[i].crc_ok, i != bad) << i;
            EXPECT_TRUE(s.frames[i].reserved_clear);
        }
        const RtcmFrameInfo &f = s.frames[bad];
        EXPECT_NE(Vk_Check_CRC24Q(0, b.data() + f.offset, f.payload_len + 3), stored_crc(b, f));
    }
}

TEST(RtcmGenDamage, TruncateCutsTheLastFrameInHalf) {
    RtcmGenConfig cfg;
    cfg.systems = "GC";
    const std::vector<uint8_t> good = rtcmgen_generate(cfg);
    cfg.damage = RtcmDamage::Truncate;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    const size_t last_start = good.size() - 70;  // the last frame is BeiDou's, 70 bytes
    EXPECT_EQ(b.size(), last_start + 35);
    EXPECT_EQ(st.bytes, b.size());
    EXPECT_TRUE(std::equal(b.begin(), b.end(), good.begin()));
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, RtcmSplitEnd::Incomplete);
    EXPECT_EQ(s.frames.size(), 41u);
    EXPECT_EQ(s.consumed, last_start);
    for (const auto &f : s.frames) EXPECT_TRUE(f.crc_ok);
}

TEST(RtcmGenDamage, TrailingLeavesAPartialHeader) {
    RtcmGenConfig cfg;
    const std::vector<uint8_t> good = rtcmgen_generate(cfg);
    cfg.damage = RtcmDamage::Trailing;
    for (int n : {1, 2}) {
        cfg.trailing_bytes = n;
        const std::vector<uint8_t> b = rtcmgen_generate(cfg);
        ASSERT_EQ(b.size(), good.size() + size_t(n));
        EXPECT_TRUE(std::equal(good.begin(), good.end(), b.begin()));
        EXPECT_EQ(b[good.size()], 0xD3);
        if (n == 2) {
            EXPECT_EQ(b[good.size() + 1], 0x00);
        }
        const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
        EXPECT_EQ(s.end, RtcmSplitEnd::Incomplete);
        EXPECT_EQ(s.frames.size(), 70u);
        EXPECT_EQ(s.consumed, good.size());
        for (const auto &f : s.frames) EXPECT_TRUE(f.crc_ok);
    }
}

TEST(RtcmGenDamage, ReservedBitIsTheFramesOnlyFault) {
    RtcmGenConfig cfg;
    cfg.damage = RtcmDamage::ReservedBits;
    cfg.damage_frame = 3;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 70u);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    for (size_t i = 0; i < s.frames.size(); ++i) {
        EXPECT_EQ(s.frames[i].reserved_clear, i != 3) << i;
        EXPECT_TRUE(s.frames[i].crc_ok) << i;
    }
    const RtcmFrameInfo &f = s.frames[3];
    EXPECT_EQ(b[f.offset + 1], 0x04);  // above the two length bits
    EXPECT_EQ(f.payload_len, 61u);
    EXPECT_EQ(f.msg, 1019u);
}

// ---------------------------------------------------------------------------
// Frame reader and file output

TEST(RtcmSplitFrames, StopsAtANonFrameByte) {
    const std::vector<uint8_t> empty;
    RtcmSplit s = rtcm_split_frames(empty.data(), 0);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    EXPECT_TRUE(s.frames.empty());

    RtcmGenConfig cfg;
    cfg.systems = "J";
    std::vector<uint8_t> b = rtcmgen_generate(cfg);
    const size_t one = b.size();
    b.push_back(0x42);
    b.push_back(0xD3);
    s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, RtcmSplitEnd::NotAFrame);
    EXPECT_EQ(s.frames.size(), 4u);
    EXPECT_EQ(s.consumed, one);

    // A frame shorter than a message number.
    std::vector<uint8_t> tiny;
    const uint8_t p[1] = {0xAB};
    ASSERT_TRUE(rtcm_append_frame(tiny, p, 1));
    s = rtcm_split_frames(tiny.data(), tiny.size());
    ASSERT_EQ(s.frames.size(), 1u);
    EXPECT_EQ(s.frames[0].msg, 0u);
    EXPECT_TRUE(s.frames[0].crc_ok);
}

TEST(RtcmGenFile, WritesTheGeneratedBytes) {
    const std::string tmp = make_temp_file("vk_rtcmgen");
    ASSERT_FALSE(tmp.empty());
    const char *path = tmp.c_str();
    RtcmGenConfig cfg;
    cfg.epochs = 2;
    cfg.seed = 99;
    RtcmGenStats st;
    std::string err;
    ASSERT_TRUE(rtcmgen_write_file(cfg, path, &st, &err)) << err;
    const std::vector<uint8_t> on_disk = read_file(path);
    EXPECT_EQ(on_disk, rtcmgen_generate(cfg));
    EXPECT_EQ(on_disk.size(), st.bytes);
    EXPECT_EQ(st.frames, 140u);
    std::remove(path);

    EXPECT_FALSE(rtcmgen_write_file(cfg, "/nonexistent-dir/x.rtcm", nullptr, &err));
    EXPECT_FALSE(err.empty());
    cfg.epochs = 0;
    EXPECT_FALSE(rtcmgen_write_file(cfg, path, nullptr, &err));
}

// ---------------------------------------------------------------------------
// GLONASS 1020 and the extended messages

namespace {

// Bit positions of the 1020 fields, added up here from the message's field
// widths apart from the generator's table.
struct GloPos {
    RtcmEphField field;
    int32_t pos;
    uint32_t width;
};
const GloPos kGloPos[] = {
    {F_SAT, 12, 6},       {F_GLO_FREQ, 18, 5},    {F_GLO_TK, 27, 12},   {F_HEALTH, 39, 1},
    {F_GLO_P2, 40, 1},    {F_GLO_TB, 41, 7},      {F_GLO_XDOT, 48, 24}, {F_GLO_X, 72, 27},
    {F_GLO_XDDOT, 99, 5}, {F_GLO_YDOT, 104, 24},  {F_GLO_Y, 128, 27},   {F_GLO_ZDOT, 160, 24},
    {F_GLO_Z, 184, 27},   {F_GLO_GAMMA, 217, 11}, {F_GLO_TAU, 231, 22}, {F_GLO_NT, 268, 11},
    {F_GLO_NA, 282, 11},  {F_GLO_TAUC, 293, 32},  {F_GLO_N4, 325, 5},   {F_GLO_TAUGPS, 330, 22},
    {F_RESERVED, 353, 7},
};

// A sign-magnitude field read by hand: the sign bit, then the magnitude.
int64_t sm_field(const uint8_t *p, uint32_t pos, uint32_t width) {
    const int64_t m = int64_t(gnss_getbitu(p, pos + 1, width - 1));
    return gnss_getbitu(p, pos, 1) ? -m : m;
}

// Frames of a buffer that starts with a 'B' 'K' frame, offsets counted from
// the file start.
RtcmSplit split_after(const std::vector<uint8_t> &b, size_t skip) {
    RtcmSplit s = rtcm_split_frames(b.data() + skip, b.size() - skip);
    for (auto &f : s.frames) f.offset += skip;
    s.consumed += skip;
    return s;
}

}  // namespace

TEST(RtcmGenLayout, GlonassFieldPositions) {
    for (const GloPos &g : kGloPos) {
        SCOPED_TRACE(g.pos);
        EXPECT_EQ(rtcm_eph_field_pos(1020, g.field), g.pos);
        EXPECT_EQ(rtcm_eph_field_width(1020, g.field), g.width);
    }
    EXPECT_EQ(rtcm_eph_field_pos(1020, F_TOE), -1);
    EXPECT_EQ(rtcm_eph_field_pos(1020, F_WEEK), -1);
}

TEST(RtcmGenLayout, ExtendedNumbersShareTheirCounterpartsLayouts) {
    const uint32_t pairs[][2] = {{1919, 1019}, {1920, 1020}, {1942, 1042}, {1946, 1046}};
    for (const auto &pr : pairs) {
        SCOPED_TRACE(pr[0]);
        size_t n1 = 0, n2 = 0;
        EXPECT_EQ(rtcm_eph_layout(pr[0], &n1), rtcm_eph_layout(pr[1], &n2));
        EXPECT_EQ(n1, n2);
        EXPECT_GT(n1, 0u);
        EXPECT_EQ(rtcm_eph_payload_bytes(pr[0]), rtcm_eph_payload_bytes(pr[1]));
    }
    // The GPS week and toe of a 1919 payload sit where 1019 has them.
    EXPECT_EQ(rtcm_eph_field_pos(1919, F_WEEK), 18);
    EXPECT_EQ(rtcm_eph_field_pos(1919, F_TOE), 288);
    EXPECT_EQ(rtcm_eph_layout(1944, nullptr), nullptr);
}

TEST(RtcmGenEncode, SignMagnitudeFields) {
    RtcmEph e{};
    e.v[F_SAT] = 1;
    e.v[F_GLO_X] = -1;
    e.v[F_GLO_XDOT] = 5;
    e.v[F_GLO_TAU] = -(int64_t(1) << 21) + 1;  // the largest magnitude of 21 bits
    uint8_t p[45];
    ASSERT_EQ(rtcm_eph_encode(1020, e, p, sizeof p), 45u);
    // -1 is the sign bit and a magnitude of 1, not 27 one bits.
    EXPECT_EQ(gnss_getbitu(p, 72, 27), (uint64_t(1) << 26) | 1u);
    EXPECT_EQ(gnss_getbitu(p, 48, 24), 5u);
    EXPECT_EQ(gnss_getbitu(p, 231, 22), (uint64_t(1) << 22) - 1);
    EXPECT_EQ(rtcm_eph_get(1020, p, F_GLO_X), -1);
    EXPECT_EQ(rtcm_eph_get(1020, p, F_GLO_TAU), -(int64_t(1) << 21) + 1);
    // Two's complement's extra negative value has no sign-magnitude form.
    e.v[F_GLO_TAU] = -(int64_t(1) << 21);
    EXPECT_EQ(rtcm_eph_encode(1020, e, p, sizeof p), 0u);
    e.v[F_GLO_TAU] = int64_t(1) << 21;
    EXPECT_EQ(rtcm_eph_encode(1020, e, p, sizeof p), 0u);
    e.v[F_GLO_TAU] = 0;
    e.v[F_SAT] = 64;
    EXPECT_EQ(rtcm_eph_encode(1020, e, p, sizeof p), 0u);
}

TEST(RtcmGenGlonass, EpochTimesInUtcAndMoscowTime) {
    RtcmGenConfig cfg;
    // Week 2400, second 345600 is Thursday 2026-01-08 00:00:00 GPS time:
    // 2026-01-07 23:59:42 UTC (MJD 61047), 02:59:42 Moscow time.
    const RtcmEpochTime t0 = rtcmgen_epoch_time(cfg, 0);
    EXPECT_EQ(t0.utc_mjd, 61047u);
    EXPECT_EQ(t0.utc_sod, 86382u);
    EXPECT_EQ(t0.glo_tod, 10782u);
    // Half hour 02:30-03:00: tb 02:45 = 11 x 15 min, frame time 02:30.
    EXPECT_EQ(t0.glo_tb, 11u);
    EXPECT_EQ(t0.glo_tk, 2u << 7 | 30u << 1);
    // 2026-01-08 is day 366 + 365 + 8 of the interval 2024-2027, the 8th from 1996.
    EXPECT_EQ(t0.glo_nt, 739u);
    EXPECT_EQ(t0.glo_n4, 8u);
    const RtcmEpochTime t1 = rtcmgen_epoch_time(cfg, 1);
    EXPECT_EQ(t1.glo_tb, 19u);  // 04:45
    EXPECT_EQ(t1.glo_tk, 4u << 7 | 30u << 1);
    // Other leap seconds move UTC and Moscow time with them.
    cfg.leap_seconds = 0;
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).utc_mjd, 61048u);
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).utc_sod, 0u);
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).glo_tb, 13u);  // 03:00:00 is in 03:00-03:30
    // The last half hour of a Moscow day.
    cfg.leap_seconds = 18;
    cfg.tow = 345600 - 3 * 3600 + 18 - 1;  // 23:59:59 Moscow time on the Wednesday
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).glo_tb, 95u);
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).glo_tk, 23u << 7 | 30u << 1);
    EXPECT_EQ(rtcmgen_epoch_time(cfg, 0).glo_nt, 738u);
}

TEST(RtcmGenGlonass, FramesChannelsAndStateVectors) {
    RtcmGenConfig cfg;
    cfg.systems = "R";
    cfg.epochs = 2;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), 2u * 24u * 51u);
    EXPECT_EQ(st.count_1020, 48u);
    EXPECT_EQ(st.frames, 48u);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 48u);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    // Frequency channels of slots 1..24 as the constellation assigns them
    // (the two satellites opposite each other in a plane share one).
    const int channel[25] = {0,  1,  -4, 5,  6, 1,  -4, 5, 6, -2, -7, 0, -1,
                             -2, -7, 0,  -1, 4, -3, 3,  2, 4, -3, 3,  2};
    for (size_t i = 0; i < s.frames.size(); ++i) {
        const RtcmFrameInfo &f = s.frames[i];
        SCOPED_TRACE(testing::Message() << "frame " << i);
        EXPECT_TRUE(f.crc_ok);
        EXPECT_EQ(f.msg, 1020u);
        EXPECT_EQ(f.payload_len, 45u);
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        const uint64_t sat = i % 24 + 1;
        const bool later = i >= 24;
        EXPECT_EQ(gnss_getbitu(p, 12, 6), sat);
        EXPECT_EQ(int(gnss_getbitu(p, 18, 5)) - 7, channel[sat]);
        EXPECT_EQ(gnss_getbitu(p, 39, 1), 0u);  // healthy
        EXPECT_EQ(gnss_getbitu(p, 41, 7), later ? 19u : 11u);
        EXPECT_EQ(gnss_getbitu(p, 27, 12), later ? (4u << 7 | 30u << 1) : (2u << 7 | 30u << 1));
        EXPECT_EQ(gnss_getbitu(p, 40, 1), 1u);  // P2: tb odd
        EXPECT_EQ(gnss_getbitu(p, 268, 11), 739u);
        EXPECT_EQ(gnss_getbitu(p, 325, 5), 8u);
        EXPECT_EQ(gnss_getbitu(p, 353, 7), 0u);
        const double x = double(sm_field(p, 72, 27)) / 2048.0;
        const double y = double(sm_field(p, 128, 27)) / 2048.0;
        const double z = double(sm_field(p, 184, 27)) / 2048.0;
        const double vx = double(sm_field(p, 48, 24)) / 1048576.0;
        const double vy = double(sm_field(p, 104, 24)) / 1048576.0;
        const double vz = double(sm_field(p, 160, 24)) / 1048576.0;
        const double r = std::sqrt(x * x + y * y + z * z);
        EXPECT_NEAR(r, 25510.0, 21.0);
        // In space the speed is that of a circular orbit of this radius; in
        // the Earth-fixed frame of the message the Earth's rotation is taken off.
        const double w = 7.292115e-5;
        const double ix = vx - w * y, iy = vy + w * x;
        EXPECT_NEAR(std::sqrt(ix * ix + iy * iy + vz * vz), 3.953, 0.005);
        const double v = std::sqrt(vx * vx + vy * vy + vz * vz);
        EXPECT_GT(v, 2.0);
        EXPECT_LT(v, 5.9);
        EXPECT_LT(std::fabs(x * vx + y * vy + z * vz) / (r * v), 0.005);
        EXPECT_LT(std::fabs(double(sm_field(p, 231, 22)) / 1073741824.0), 1e-3);  // tau n
    }
    // Two hours later a satellite is elsewhere.
    EXPECT_NE(sm_field(rtcm_frame_payload(b.data(), s.frames[0]), 72, 27),
              sm_field(rtcm_frame_payload(b.data(), s.frames[24]), 72, 27));
}

TEST(RtcmGenGlonass, NeedsATimeInGlonasssDayCount) {
    RtcmGenConfig cfg;
    cfg.systems = "R";
    // GPS week 834 began on 1995-12-31; Moscow time reaches 1996-01-01 on its Monday.
    cfg.week = 834;
    cfg.tow = 0;
    std::string err;
    EXPECT_FALSE(rtcmgen_validate(cfg, &err));
    EXPECT_NE(err.find("GLONASS"), std::string::npos) << err;
    cfg.tow = 86400;
    EXPECT_TRUE(rtcmgen_validate(cfg, &err)) << err;
    const RtcmEpochTime t = rtcmgen_epoch_time(cfg, 0);
    EXPECT_EQ(t.glo_n4, 1u);
    EXPECT_EQ(t.glo_nt, 1u);
    cfg.systems = "r";
    cfg.tow = 0;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.week = 7400;  // 2121
    cfg.systems = "R";
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
}

TEST(RtcmGenExtended, ProprietaryNumbersInFileOrderWithTheReadersTimes) {
    RtcmGenConfig cfg;
    cfg.systems = "GgRrCcEe";
    cfg.sats = 2;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    ASSERT_EQ(s.frames.size(), 16u);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    const uint32_t order[] = {1019, 1919, 1020, 1920, 1042, 1942, 1046, 1946};
    const uint32_t len[] = {61, 61, 45, 45, 64, 64, 63, 63};
    for (size_t i = 0; i < 16; ++i) {
        const RtcmFrameInfo &f = s.frames[i];
        SCOPED_TRACE(testing::Message() << "frame " << i);
        EXPECT_EQ(f.msg, order[i / 2]);
        EXPECT_EQ(f.payload_len, len[i / 2]);
        EXPECT_TRUE(f.crc_ok);
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        EXPECT_EQ(gnss_getbitu(p, 12, 6), i % 2 + 1);
        if (f.msg == 1019 || f.msg == 1919) {
            // As the readers take them: bits 18-27 + 2048, bytes 36-37 x 16.
            EXPECT_EQ(gnss_getbitu(p, 18, 10) + 2048, 2400u);
            EXPECT_EQ((uint32_t(p[36]) << 8 | p[37]) * 16u, 345600u);
        }
    }
    EXPECT_EQ(st.count_1019, 2u);
    EXPECT_EQ(st.count_1919, 2u);
    EXPECT_EQ(st.count_1020, 2u);
    EXPECT_EQ(st.count_1920, 2u);
    EXPECT_EQ(st.count_1042, 2u);
    EXPECT_EQ(st.count_1942, 2u);
    EXPECT_EQ(st.count_1046, 2u);
    EXPECT_EQ(st.count_1946, 2u);
    EXPECT_EQ(st.count_1029, 0u);
    // An extended set has the times of its counterpart and values of its own.
    for (size_t i = 0; i < 16; i += 4) {
        for (size_t k = 0; k < 2; ++k) {
            const RtcmFrameInfo &a = s.frames[i + k];
            const RtcmFrameInfo &x = s.frames[i + 2 + k];
            const uint8_t *pa = rtcm_frame_payload(b.data(), a);
            const uint8_t *px = rtcm_frame_payload(b.data(), x);
            for (RtcmEphField fld : {F_SAT, F_WEEK, F_TOE, F_TOC, F_GLO_TB, F_GLO_NT})
                EXPECT_EQ(rtcm_eph_get(a.msg, pa, fld), rtcm_eph_get(x.msg, px, fld));
            EXPECT_NE(std::memcmp(pa + 2, px + 2, a.payload_len - 2), 0);
        }
    }
    // The values stay in their systems' ranges.
    const uint8_t *p = rtcm_frame_payload(b.data(), s.frames[2]);  // 1919, satellite 1
    EXPECT_NEAR(double(rtcm_eph_get(1919, p, F_SQRTA)) / 524288.0, 5153.6, 1.0);
    p = rtcm_frame_payload(b.data(), s.frames[14]);  // 1946, satellite 1
    EXPECT_NEAR(double(rtcm_eph_get(1946, p, F_SQRTA)) / 524288.0, 5440.6, 1.0);
}

// ---------------------------------------------------------------------------
// The 'B' 'K' time frame

TEST(RtcmGenTimeFrame, BytesAgainstAHandComputedCrc) {
    // Class 18, id 03, length 00 0C, then week 2400 (0x960), second 345600
    // (0x54600) and 18 leap seconds as little-endian words. The CRC-16/XMODEM
    // of the 16 bytes from the class byte on is 0xDF7D.
    const std::vector<uint8_t> expect = {0x42, 0x4B, 0xDF, 0x7D, 0x18, 0x03, 0x00,
                                         0x0C, 0x60, 0x09, 0x00, 0x00, 0x00, 0x46,
                                         0x05, 0x00, 0x12, 0x00, 0x00, 0x00};
    EXPECT_EQ(rtcmgen_time_frame(2400, 345600, 18), expect);
    EXPECT_EQ(ref_crc16_xmodem(expect.data() + 4, 16), 0xDF7D);
    // Week 2401, second 7200: CRC 0xFDB8.
    const std::vector<uint8_t> other = rtcmgen_time_frame(2401, 7200, 18);
    ASSERT_EQ(other.size(), 20u);
    EXPECT_EQ(other[2], 0xFD);
    EXPECT_EQ(other[3], 0xB8);
    EXPECT_EQ(other[8], 0x61);
    EXPECT_EQ(other[12], 0x20);
    EXPECT_EQ(other[13], 0x1C);
    EXPECT_EQ(ref_crc16_xmodem(other.data() + 4, 16), 0xFDB8);
}

TEST(RtcmGenTimeFrame, LeadsTheFileAheadOfTheFirstRtcmFrame) {
    RtcmGenConfig cfg;
    cfg.systems = "GR";
    cfg.sats = 3;
    const std::vector<uint8_t> plain = rtcmgen_generate(cfg);
    cfg.time_frame = true;
    cfg.leap_seconds = 17;
    RtcmGenStats st;
    const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), plain.size() + 20);
    EXPECT_EQ(st.time_frame_bytes, 20u);
    EXPECT_EQ(st.bytes, b.size());
    EXPECT_EQ(st.frames, 6u);  // RTCM frames only
    EXPECT_EQ(std::vector<uint8_t>(b.begin(), b.begin() + 20),
              rtcmgen_time_frame(2400, 345600, 17));
    EXPECT_EQ(b[16], 17);
    // GLONASS times follow the leap seconds too, so only the GPS part matches.
    EXPECT_TRUE(std::equal(plain.begin(), plain.begin() + 3 * 67, b.begin() + 20));
    // Looking for the RTCM data in the first block of 100 bytes finds it
    // right behind the time frame.
    EXPECT_EQ(rtcm_first_frame_start(b.data(), 100), 20u);
    const RtcmSplit s = split_after(b, 20);
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    EXPECT_EQ(s.consumed, b.size());
    ASSERT_EQ(s.frames.size(), 6u);
    for (const auto &f : s.frames) EXPECT_TRUE(f.crc_ok);
    // The strict splitter sees no frame at the start.
    EXPECT_EQ(rtcm_split_frames(b.data(), b.size()).end, RtcmSplitEnd::NotAFrame);
}

TEST(RtcmGenTimeFrame, RefusesTimesWhoseBytesLookLikeAFrameStart) {
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 1;
    cfg.time_frame = true;
    cfg.tow = 0xD3;  // time of week bytes D3 00 00 00
    std::string err;
    EXPECT_FALSE(rtcmgen_validate(cfg, &err));
    EXPECT_NE(err.find("time frame"), std::string::npos) << err;
    EXPECT_TRUE(rtcmgen_generate(cfg).empty());
    cfg.tow = 0x4D3;  // D3 04: a set bit among the top six, no frame start
    EXPECT_TRUE(rtcmgen_validate(cfg, &err)) << err;
    cfg.time_frame = false;
    cfg.tow = 0xD3;
    EXPECT_TRUE(rtcmgen_validate(cfg, &err)) << err;

    // Over a whole week of seconds the generator refuses exactly the times
    // whose frame, built here by hand, holds D3 and a byte below 4.
    cfg.time_frame = true;
    size_t refused = 0, refused_for_crc = 0;
    for (uint32_t tow = 0; tow < 604800; tow += 7) {
        uint8_t f[21] = {0x42, 0x4B, 0, 0, 0x18, 0x03, 0x00, 0x0C, 0x60, 0x09, 0, 0};
        for (int i = 0; i < 4; ++i) f[12 + i] = uint8_t(tow >> (8 * i));
        f[16] = 18;
        const uint16_t crc = ref_crc16_xmodem(f + 4, 16);
        f[2] = uint8_t(crc >> 8);
        f[3] = uint8_t(crc);
        f[20] = 0xD3;  // the first RTCM frame
        bool start = false;
        for (int i = 0; i < 20; ++i) start = start || (f[i] == 0xD3 && (f[i + 1] & 0xFC) == 0);
        cfg.tow = tow;
        ASSERT_EQ(rtcmgen_validate(cfg, nullptr), !start) << tow;
        refused += start;
        refused_for_crc += f[2] == 0xD3 && (f[3] & 0xFC) == 0;
    }
    EXPECT_GT(refused, 0u);
    EXPECT_GT(refused_for_crc, 0u);
}

// ---------------------------------------------------------------------------
// The long frame, exact sizes and zero bytes at the end

TEST(RtcmGenLongFrame, LengthFieldAbove255WhereAsked) {
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 3;
    const std::vector<uint8_t> plain = rtcmgen_generate(cfg);
    cfg.long_frame = true;
    for (int at : {0, 2, 3, -1}) {
        SCOPED_TRACE(at);
        cfg.long_frame_at = at;
        RtcmGenStats st;
        const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
        ASSERT_EQ(b.size(), 3u * 67u + 269u);
        const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
        EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
        ASSERT_EQ(s.frames.size(), 4u);
        EXPECT_EQ(st.frames, 4u);
        EXPECT_EQ(st.count_1029, 1u);
        EXPECT_EQ(st.count_1019, 3u);
        const size_t idx = at < 0 ? 3 : size_t(at);
        const RtcmFrameInfo &f = s.frames[idx];
        EXPECT_EQ(st.long_frame_offset, f.offset);
        EXPECT_EQ(f.offset, idx * 67u);
        EXPECT_EQ(f.msg, 1029u);
        EXPECT_EQ(f.payload_len, 263u);
        EXPECT_TRUE(f.crc_ok);
        EXPECT_EQ(b[f.offset + 1], 0x01);
        EXPECT_EQ(b[f.offset + 2], 0x07);
        // Taking the high length byte x 4 instead of x 256 gives 11.
        EXPECT_EQ(b[f.offset + 1] * 4 + b[f.offset + 2], 11);
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        EXPECT_EQ(gnss_getbitu(p, 12, 12), 0u);      // station
        EXPECT_EQ(gnss_getbitu(p, 24, 16), 61047u);  // MJD of 2026-01-07
        EXPECT_EQ(gnss_getbitu(p, 40, 17), 86382u);  // 23:59:42 UTC
        EXPECT_EQ(gnss_getbitu(p, 57, 7), 127u);     // characters
        EXPECT_EQ(gnss_getbitu(p, 64, 8), 254u);     // code units
        for (uint32_t i = 0; i < 127; ++i) {
            // two-byte UTF-8: 110xxxxx 10xxxxxx
            const uint32_t cp = (uint32_t(p[9 + 2 * i] & 0x1F) << 6) | (p[10 + 2 * i] & 0x3F);
            ASSERT_EQ(p[9 + 2 * i] & 0xE0, 0xC0) << i;
            ASSERT_EQ(p[10 + 2 * i] & 0xC0, 0x80) << i;
            EXPECT_EQ(cp, 0x03B1u + i % 25) << i;  // alpha .. omega
        }
        // The ephemeris frames around it are those of the plain file, in order.
        std::vector<uint8_t> rest(b.begin(), b.begin() + long(f.offset));
        rest.insert(rest.end(), b.begin() + long(f.offset + 269), b.end());
        EXPECT_EQ(rest, plain);
    }
}

TEST(RtcmGenExactSize, FillerFramesReach3999And4000) {
    RtcmGenConfig cfg;
    cfg.systems = "GR";
    cfg.sats = 10;
    cfg.time_frame = true;
    const std::vector<uint8_t> plain = rtcmgen_generate(cfg);
    ASSERT_EQ(plain.size(), 20u + 10u * 67u + 10u * 51u);
    EXPECT_EQ(rtcmgen_content_size(cfg), plain.size());
    for (uint64_t size : {3999u, 4000u}) {
        SCOPED_TRACE(size);
        cfg.exact_size = size;
        RtcmGenStats st;
        const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
        ASSERT_EQ(b.size(), size);
        EXPECT_EQ(st.bytes, size);
        EXPECT_EQ(st.zero_bytes, 0u);
        EXPECT_TRUE(std::equal(plain.begin(), plain.end(), b.begin()));
        const RtcmSplit s = split_after(b, 20);
        EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
        EXPECT_EQ(s.consumed, size);
        ASSERT_EQ(s.frames.size(), 20u + st.fill_frames);
        EXPECT_EQ(st.frames, s.frames.size());
        EXPECT_EQ(st.count_1029, st.fill_frames);
        // 2799 or 2800 bytes in frames of at most 142: 20 of them, as even as can be.
        EXPECT_EQ(st.fill_frames, 20u);
        size_t fill = 0, shortest = 1000, longest = 0;
        for (size_t i = 20; i < s.frames.size(); ++i) {
            const RtcmFrameInfo &f = s.frames[i];
            const size_t n = f.payload_len + 6;
            EXPECT_EQ(f.msg, 1029u);
            EXPECT_TRUE(f.crc_ok);
            const uint8_t *p = rtcm_frame_payload(b.data(), f);
            EXPECT_EQ(gnss_getbitu(p, 57, 7), f.payload_len - 9);  // ASCII: a unit a character
            EXPECT_EQ(gnss_getbitu(p, 64, 8), f.payload_len - 9);
            for (uint32_t k = 9; k < f.payload_len; ++k) {
                EXPECT_GE(p[k], 0x20);
                EXPECT_LT(p[k], 0x7F);
            }
            fill += n;
            shortest = std::min(shortest, n);
            longest = std::max(longest, n);
        }
        EXPECT_EQ(fill, size - plain.size());
        EXPECT_LE(longest - shortest, 1u);
        EXPECT_GE(shortest, 15u);
        EXPECT_LE(longest, 142u);
    }
}

TEST(RtcmGenExactSize, ZeroPaddingAndTheLimits) {
    RtcmGenConfig cfg;
    cfg.systems = "GR";
    cfg.sats = 10;
    cfg.time_frame = true;
    const std::vector<uint8_t> plain = rtcmgen_generate(cfg);
    const uint64_t content = plain.size();  // 1200
    cfg.pad = RtcmPad::Zeros;
    cfg.exact_size = 3999;
    RtcmGenStats st;
    std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), 3999u);
    EXPECT_EQ(st.zero_bytes, 3999u - content);
    EXPECT_EQ(st.fill_frames, 0u);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), b.begin()));
    EXPECT_TRUE(std::all_of(b.begin() + long(content), b.end(), [](uint8_t c) { return c == 0; }));
    const RtcmSplit s = split_after(b, 20);
    EXPECT_EQ(s.end, RtcmSplitEnd::NotAFrame);
    EXPECT_EQ(s.consumed, content);
    // Zeros reach any size at or above the frames.
    cfg.exact_size = content + 1;
    EXPECT_EQ(rtcmgen_generate(cfg).size(), content + 1);

    // Frames cannot fill a shortfall of 1 to 14 bytes.
    cfg.pad = RtcmPad::Frames;
    std::string err;
    for (uint64_t gap : {1u, 14u}) {
        cfg.exact_size = content + gap;
        EXPECT_FALSE(rtcmgen_validate(cfg, &err)) << gap;
        EXPECT_NE(err.find("smallest filler"), std::string::npos) << err;
    }
    cfg.exact_size = content + 15;  // one filler frame without text
    b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), content + 15);
    EXPECT_EQ(st.fill_frames, 1u);
    EXPECT_EQ(b[content + 2], 9);  // payload: the 9-byte text header alone
    cfg.exact_size = content;      // nothing to add
    b = rtcmgen_generate(cfg, &st);
    EXPECT_EQ(b, plain);
    EXPECT_EQ(st.fill_frames, 0u);
    cfg.exact_size = content - 1;
    EXPECT_FALSE(rtcmgen_validate(cfg, &err));
    EXPECT_NE(err.find("exceed"), std::string::npos) << err;
    // A size that damage would change again is refused; damage in place is not.
    cfg.exact_size = 4000;
    cfg.damage = RtcmDamage::Truncate;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.damage = RtcmDamage::Trailing;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.damage = RtcmDamage::BadCrc;
    cfg.damage_frame = 0;
    EXPECT_EQ(rtcmgen_generate(cfg).size(), 4000u);
}

TEST(RtcmGenTail, ZeroBytesAfterTheLastFrame) {
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 2;
    const std::vector<uint8_t> plain = rtcmgen_generate(cfg);
    ASSERT_EQ(plain.size(), 134u);
    cfg.tail_bytes = 5;
    RtcmGenStats st;
    std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), 139u);
    EXPECT_EQ(st.zero_bytes, 5u);
    EXPECT_TRUE(std::equal(plain.begin(), plain.end(), b.begin()));
    EXPECT_TRUE(std::all_of(b.begin() + 134, b.end(), [](uint8_t c) { return c == 0; }));
    RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, RtcmSplitEnd::NotAFrame);
    EXPECT_EQ(s.consumed, 134u);
    EXPECT_EQ(s.frames.size(), 2u);
    // With the trailing damage its header bytes come last.
    cfg.damage = RtcmDamage::Trailing;
    cfg.trailing_bytes = 2;
    b = rtcmgen_generate(cfg);
    ASSERT_EQ(b.size(), 141u);
    EXPECT_EQ(b[139], 0xD3);
    EXPECT_EQ(b[140], 0x00);
    EXPECT_EQ(b[138], 0x00);
    // Counted in an exact size: the filler frames stop short of them.
    cfg.damage = RtcmDamage::None;
    cfg.exact_size = 4000;
    b = rtcmgen_generate(cfg, &st);
    ASSERT_EQ(b.size(), 4000u);
    EXPECT_TRUE(std::all_of(b.end() - 5, b.end(), [](uint8_t c) { return c == 0; }));
    s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.consumed, 3995u);
    EXPECT_EQ(s.frames.size(), 2u + st.fill_frames);
}

TEST(RtcmGenDamage, IndexesCoverTheLongAndFillerFrames) {
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 2;
    cfg.long_frame = true;
    cfg.long_frame_at = 1;
    cfg.exact_size = 700;
    cfg.damage = RtcmDamage::BadCrc;
    for (int k : {1, -1}) {
        SCOPED_TRACE(k);
        cfg.damage_frame = k;
        RtcmGenStats st;
        const std::vector<uint8_t> b = rtcmgen_generate(cfg, &st);
        ASSERT_EQ(b.size(), 700u);
        const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
        ASSERT_EQ(s.frames.size(), st.frames);
        ASSERT_GE(s.frames.size(), 4u);
        const size_t bad = k < 0 ? s.frames.size() - 1 : size_t(k);
        for (size_t i = 0; i < s.frames.size(); ++i) EXPECT_EQ(s.frames[i].crc_ok, i != bad) << i;
        EXPECT_EQ(s.frames[bad].msg, 1029u);
        if (k == 1) {
            EXPECT_EQ(s.frames[bad].payload_len, 263u);
        }
    }
    // Two ephemeris frames and the long frame: index 3 is a filler frame,
    // which only -1 reaches.
    cfg.damage_frame = 3;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.damage_frame = 2;
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
}

TEST(RtcmGen, RejectsBadConfigurationsOfTheAdditions) {
    RtcmGenConfig cfg;
    cfg.systems = "Gj";
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = "gG";
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = "Rr";
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.systems = "c";
    cfg.week = 1300;  // before BeiDou time began
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.systems = "e";
    cfg.week = 1000;  // before Galileo's week count
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();  // 70 ephemeris frames
    cfg.long_frame = true;
    cfg.long_frame_at = 70;  // after the last
    EXPECT_TRUE(rtcmgen_validate(cfg, nullptr));
    cfg.long_frame_at = 71;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg.long_frame_at = -2;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.leap_seconds = 256;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.tail_bytes = (1u << 20) + 1;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
    cfg = RtcmGenConfig();
    cfg.exact_size = uint64_t(1) << 33;
    EXPECT_FALSE(rtcmgen_validate(cfg, nullptr));
}

TEST(RtcmGen, FixedSeedGivesFixedBytesForTheAdditions) {
    // Pins the new parts as the older fingerprints pin the first four
    // systems: the same configuration gives the same bytes everywhere.
    RtcmGenConfig glo;
    glo.systems = "R";
    glo.sats = 1;
    const std::vector<uint8_t> g = rtcmgen_generate(glo);
    ASSERT_EQ(g.size(), 51u);
    EXPECT_EQ(fingerprint_crc32(g.data(), g.size()), 0xF9F3296Du);

    RtcmGenConfig all;
    all.systems = "GRCEgrce";
    all.sats = 2;
    all.time_frame = true;
    all.long_frame = true;
    all.long_frame_at = 3;
    all.exact_size = 4000;
    const std::vector<uint8_t> b = rtcmgen_generate(all);
    ASSERT_EQ(b.size(), 4000u);
    EXPECT_EQ(fingerprint_crc32(b.data(), b.size()), 0x59DD93E2u);
}

// ---------------------------------------------------------------------------
// Real recordings: the reader and the layout against frames from real streams.

namespace {

const std::string kRealRtcm = std::string(VK_REAL_DATA_DIR) + "/rtcm";

// Decodes one real ephemeris frame with the layout table and checks that
// the fields the readers use come out in their real ranges, and that the
// generator's encoder writes the same bits back.
void check_real_eph(const uint8_t *p, uint32_t payload_len, uint32_t msg) {
    SCOPED_TRACE(testing::Message() << "message " << msg);
    ASSERT_EQ(payload_len, rtcm_eph_payload_bytes(msg));
    const KnownPositions &kp = known(msg);
    const uint64_t sat = gnss_getbitu(p, kp.sat_pos, kp.sat_len);
    const uint64_t week = gnss_getbitu(p, kp.week_pos, kp.week_len);
    const uint64_t toe = gnss_getbitu(p, kp.toe_pos, kp.toe_len);
    const uint64_t toc = gnss_getbitu(p, kp.toc_pos, kp.toc_len);
    EXPECT_EQ(uint64_t(rtcm_eph_get(msg, p, F_SAT)), sat);
    EXPECT_EQ(uint64_t(rtcm_eph_get(msg, p, F_WEEK)), week);
    EXPECT_EQ(uint64_t(rtcm_eph_get(msg, p, F_TOE)), toe);
    EXPECT_EQ(uint64_t(rtcm_eph_get(msg, p, F_TOC)), toc);
    EXPECT_GE(sat, 1u);
    const double sqrt_a = double(rtcm_eph_get(msg, p, F_SQRTA)) / 524288.0;
    const double e = double(rtcm_eph_get(msg, p, F_E)) / 8589934592.0;
    const double i0_deg = double(rtcm_eph_get(msg, p, F_I0)) / 2147483648.0 * 180.0;
    EXPECT_LT(e, 0.1);
    switch (msg) {
        case 1019:
            EXPECT_LE(sat, 32u);
            EXPECT_LE(week, 1023u);
            EXPECT_LT(toe * 16, 604800u);
            EXPECT_NEAR(sqrt_a, 5153.7, 2.0);
            EXPECT_NEAR(i0_deg, 55.0, 5.0);
            EXPECT_EQ(rtcm_eph_get(msg, p, F_IODC) & 0xFF, rtcm_eph_get(msg, p, F_IODE));
            break;
        case 1042:
            EXPECT_LE(sat, 63u);
            EXPECT_LE(week, 8191u);
            EXPECT_LT(toe * 8, 604800u);
            EXPECT_TRUE(std::fabs(sqrt_a - 5282.6) < 2.0 || std::fabs(sqrt_a - 6493.4) < 2.0)
                << sqrt_a;
            break;
        case 1044:
            EXPECT_LE(sat, 10u);
            EXPECT_LE(week, 1023u);
            EXPECT_LT(toe * 16, 604800u);
            EXPECT_NEAR(sqrt_a, 6493.4, 2.0);
            EXPECT_NEAR(i0_deg, 41.0, 5.0);
            break;
        case 1046:
            EXPECT_LE(sat, 36u);
            EXPECT_LE(week, 4095u);
            EXPECT_LT(toe * 60, 604800u);
            EXPECT_NEAR(sqrt_a, 5440.6, 2.0);
            EXPECT_NEAR(i0_deg, 56.0, 3.0);
            break;
    }
    // Real ephemerides give the clock and the orbit the same reference time.
    EXPECT_EQ(toe, toc);
    // The field table covers the message: decoding every field and encoding
    // it again gives the real payload back, bit for bit.
    RtcmEph eph{};
    size_t n = 0;
    const RtcmFieldDef *t = rtcm_eph_layout(msg, &n);
    for (size_t i = 0; i < n; ++i) eph.v[t[i].field] = rtcm_eph_get(msg, p, t[i].field);
    uint8_t again[64];
    ASSERT_EQ(rtcm_eph_encode(msg, eph, again, sizeof again), payload_len);
    const uint32_t bits = rtcm_eph_layout_bits(msg);
    for (uint32_t pos = 0; pos < bits; pos += 8) {
        const uint32_t len = bits - pos < 8 ? bits - pos : 8;
        EXPECT_EQ(gnss_getbitu(again, pos, len), gnss_getbitu(p, pos, len)) << "bit " << pos;
    }
}

// Decodes one real GLONASS 1020 frame with the layout table: the state
// vector, channel and times come out in their real ranges, and encoding
// the decoded fields again gives the payload back bit for bit.
void check_real_glo(const uint8_t *p, uint32_t payload_len) {
    ASSERT_EQ(payload_len, 45u);
    const int64_t sat = rtcm_eph_get(1020, p, F_SAT);
    SCOPED_TRACE(testing::Message() << "GLONASS slot " << sat);
    EXPECT_GE(sat, 1);
    EXPECT_LE(sat, 32);  // slots 1-24, and spare satellites above
    EXPECT_LE(rtcm_eph_get(1020, p, F_GLO_FREQ), 13);
    const int64_t tb = rtcm_eph_get(1020, p, F_GLO_TB);
    EXPECT_GE(tb, 1);
    EXPECT_LE(tb, 95);
    EXPECT_LE(rtcm_eph_get(1020, p, F_GLO_TK) >> 7, 23);  // hours
    const double x = double(rtcm_eph_get(1020, p, F_GLO_X)) / 2048.0;
    const double y = double(rtcm_eph_get(1020, p, F_GLO_Y)) / 2048.0;
    const double z = double(rtcm_eph_get(1020, p, F_GLO_Z)) / 2048.0;
    const double vx = double(rtcm_eph_get(1020, p, F_GLO_XDOT)) / 1048576.0;
    const double vy = double(rtcm_eph_get(1020, p, F_GLO_YDOT)) / 1048576.0;
    const double vz = double(rtcm_eph_get(1020, p, F_GLO_ZDOT)) / 1048576.0;
    const double r = std::sqrt(x * x + y * y + z * z);
    const double v = std::sqrt(vx * vx + vy * vy + vz * vz);
    EXPECT_NEAR(r, 25510.0, 100.0);
    EXPECT_GT(v, 2.0);
    EXPECT_LT(v, 5.9);
    EXPECT_LT(std::fabs(x * vx + y * vy + z * vz) / (r * v), 0.01);
    EXPECT_LT(std::fabs(double(rtcm_eph_get(1020, p, F_GLO_TAU)) / 1073741824.0), 1e-3);
    RtcmEph eph{};
    size_t n = 0;
    const RtcmFieldDef *t = rtcm_eph_layout(1020, &n);
    for (size_t i = 0; i < n; ++i) eph.v[t[i].field] = rtcm_eph_get(1020, p, t[i].field);
    uint8_t again[45];
    ASSERT_EQ(rtcm_eph_encode(1020, eph, again, sizeof again), 45u);
    // Real streams write some zeros with the sign bit set ("-0"), which the
    // encoder writes as +0: clear those sign bits before comparing.
    uint8_t real[45];
    std::memcpy(real, p, 45);
    uint32_t pos = 0;
    for (size_t i = 0; i < n; ++i) {
        if (t[i].sign_magnitude && gnss_getbitu(real, pos + 1, t[i].width - 1u) == 0)
            rtcm_setbitu(real, pos, 1, 0);
        pos += t[i].width;
    }
    EXPECT_EQ(std::memcmp(again, real, 45), 0);
}

void check_real_file(const char *name, size_t frames_expected, uint32_t gps_week_full,
                     size_t *eph_seen, size_t *glo_seen) {
    const std::vector<uint8_t> b = read_file(kRealRtcm + "/" + name);
    ASSERT_FALSE(b.empty()) << name;
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    EXPECT_EQ(s.end, RtcmSplitEnd::Complete);
    EXPECT_EQ(s.consumed, b.size());
    ASSERT_EQ(s.frames.size(), frames_expected);
    *eph_seen = 0;
    *glo_seen = 0;
    for (const auto &f : s.frames) {
        EXPECT_TRUE(f.crc_ok) << "frame at " << f.offset;
        EXPECT_TRUE(f.reserved_clear) << "frame at " << f.offset;
        if (f.msg == 1020) {
            ++*glo_seen;
            check_real_glo(rtcm_frame_payload(b.data(), f), f.payload_len);
            continue;
        }
        if (!rtcm_eph_layout(f.msg, nullptr)) continue;
        ++*eph_seen;
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        check_real_eph(p, f.payload_len, f.msg);
        // The weeks of the four systems agree with the recording's GPS week.
        const uint64_t week = gnss_getbitu(p, known(f.msg).week_pos, known(f.msg).week_len);
        switch (f.msg) {
            case 1019:
            case 1044: EXPECT_EQ(week, gps_week_full % 1024); break;
            case 1042: EXPECT_EQ(week, gps_week_full - 1356); break;
            case 1046: EXPECT_EQ(week, gps_week_full - 1024); break;
        }
    }
}

}  // namespace

TEST(RtcmGenRealData, IgsStreamFramesAndLayouts) {
    if (!is_dir(kRealRtcm)) GTEST_SKIP() << "no real recordings at " << kRealRtcm;
    size_t eph = 0, glo = 0;
    // 2016-04-06 lies in GPS week 1891.
    check_real_file("igs-stream-2016-04-06-eph.rtcm3", 88, 1891, &eph, &glo);
    EXPECT_EQ(eph, 32u + 1u + 9u);
    EXPECT_EQ(glo, 24u);
}

TEST(RtcmGenRealData, NtripMixedFramesAndLayouts) {
    if (!is_dir(kRealRtcm)) GTEST_SKIP() << "no real recordings at " << kRealRtcm;
    size_t eph = 0, glo = 0;
    // The recording's ephemerides are of GPS week 2305 (March 2024).
    check_real_file("ntrip-2024-03-mixed.rtcm3", 35, 2305, &eph, &glo);
    EXPECT_EQ(eph, 3u);  // one 1019, one 1042, one 1046
    EXPECT_EQ(glo, 1u);
}

TEST(RtcmGenRealData, TextFrameHeaderAsInARealStream) {
    if (!is_dir(kRealRtcm)) GTEST_SKIP() << "no real recordings at " << kRealRtcm;
    // The real 1029 frame has the layout the filler and long frames use: a
    // 9-byte header whose unit count covers the rest of the payload.
    const std::vector<uint8_t> b = read_file(kRealRtcm + "/ntrip-2024-03-mixed.rtcm3");
    const RtcmSplit s = rtcm_split_frames(b.data(), b.size());
    size_t seen = 0;
    for (const auto &f : s.frames) {
        if (f.msg != 1029) continue;
        ++seen;
        const uint8_t *p = rtcm_frame_payload(b.data(), f);
        const uint64_t units = gnss_getbitu(p, 64, 8);
        EXPECT_EQ(f.payload_len, 9u + units);
        EXPECT_LE(gnss_getbitu(p, 57, 7), units);
        const uint64_t mjd = gnss_getbitu(p, 24, 16);
        EXPECT_GE(mjd, 60370u);  // March 2024
        EXPECT_LE(mjd, 60400u);
        EXPECT_LT(gnss_getbitu(p, 40, 17), 86400u);
    }
    EXPECT_EQ(seen, 1u);
}
