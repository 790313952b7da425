// Deterministic RTCM 3 ephemeris sample data. See rtcm_gen.h.
#include "tools/rtcm_gen.h"

#include <cstring>
#include <initializer_list>

#include "toolkit/checksum.h"
#include "tools/gen_common.h"

// ---------------------------------------------------------------------------
// Bit writer and reader

void rtcm_setbitu(uint8_t *buf, uint32_t pos, uint32_t len, uint64_t value) {
    if (len == 0 || len > 64) return;
    for (uint32_t i = 0; i < len; ++i) {
        const uint32_t p = pos + i;
        const uint8_t mask = static_cast<uint8_t>(0x80u >> (p % 8));
        if ((value >> (len - 1 - i)) & 1u)
            buf[p / 8] = static_cast<uint8_t>(buf[p / 8] | mask);
        else
            buf[p / 8] = static_cast<uint8_t>(buf[p / 8] & ~mask);
    }
}

uint64_t rtcm_getbitu(const uint8_t *buf, uint32_t pos, uint32_t len) {
    uint64_t v = 0;
    for (uint32_t p = pos; p < pos + len; ++p) v = (v << 1) | ((buf[p / 8] >> (7 - p % 8)) & 1u);
    return v;
}

int64_t rtcm_getbits(const uint8_t *buf, uint32_t pos, uint32_t len) {
    uint64_t v = rtcm_getbitu(buf, pos, len);
    if (len > 0 && len < 64 && ((v >> (len - 1)) & 1u)) v |= ~uint64_t(0) << len;
    return static_cast<int64_t>(v);
}

// ---------------------------------------------------------------------------
// Transport frames

// The 10-bit length field of the frame starting at frame (its D3 byte).
static uint32_t frame_payload_len(const uint8_t *frame) {
    return (static_cast<uint32_t>(frame[1] & 0x03) << 8) | frame[2];
}

// Stores the CRC-24Q of the frame's header and payload in its three CRC
// bytes, most significant first. The length is taken from the header.
static void seal_frame(uint8_t *frame) {
    const uint32_t len = frame_payload_len(frame);
    const uint32_t crc = Vk_Check_CRC24Q(0, frame, len + 3);
    frame[3 + len] = static_cast<uint8_t>(crc >> 16);
    frame[4 + len] = static_cast<uint8_t>(crc >> 8);
    frame[5 + len] = static_cast<uint8_t>(crc);
}

bool rtcm_append_frame(std::vector<uint8_t> &out, const uint8_t *payload, uint32_t len) {
    if (len > RTCM_MAX_PAYLOAD) return false;
    const size_t start = out.size();
    out.push_back(RTCM_PREAMBLE);
    out.push_back(static_cast<uint8_t>((len >> 8) & 0x03));
    out.push_back(static_cast<uint8_t>(len & 0xFF));
    out.insert(out.end(), payload, payload + len);
    out.resize(out.size() + 3);  // the CRC, filled in next
    seal_frame(out.data() + start);
    return true;
}

// ---------------------------------------------------------------------------
// Layouts, in transmission order. Every message carries the same orbit
// block, Crs to OMEGADOT, between a head and a tail of its own; only the
// widths of the six harmonic corrections and of toe in it vary by system.

namespace {

struct Layout {
    RtcmFieldDef f[40];  // room for the longest layout (1046, 32 fields)
    size_t n;
};

using FieldList = std::initializer_list<RtcmFieldDef>;

constexpr Layout make_layout(FieldList head, uint8_t harmonic_width, uint8_t toe_width,
                             FieldList tail) {
    const RtcmFieldDef orbit[] = {
        {F_CRS, harmonic_width, true, "Crs"},
        {F_DN, 16, true, "delta n"},
        {F_M0, 32, true, "M0"},
        {F_CUC, harmonic_width, true, "Cuc"},
        {F_E, 32, false, "eccentricity"},
        {F_CUS, harmonic_width, true, "Cus"},
        {F_SQRTA, 32, false, "sqrt A"},
        {F_TOE, toe_width, false, "toe"},
        {F_CIC, harmonic_width, true, "Cic"},
        {F_OMEGA0, 32, true, "OMEGA0"},
        {F_CIS, harmonic_width, true, "Cis"},
        {F_I0, 32, true, "i0"},
        {F_CRC, harmonic_width, true, "Crc"},
        {F_OMEGA, 32, true, "omega"},
        {F_OMEGADOT, 24, true, "OMEGADOT"},
    };
    Layout l{};
    for (const RtcmFieldDef &d : head) l.f[l.n++] = d;
    for (const RtcmFieldDef &d : orbit) l.f[l.n++] = d;
    for (const RtcmFieldDef &d : tail) l.f[l.n++] = d;
    return l;
}

constexpr Layout kLayout1019 = make_layout(
    {
        {F_MSG, 12, false, "message number"},
        {F_SAT, 6, false, "satellite ID"},
        {F_WEEK, 10, false, "week number"},
        {F_URA, 4, false, "SV accuracy (URA)"},
        {F_L2CODE, 2, false, "code on L2"},
        {F_IDOT, 14, true, "IDOT"},
        {F_IODE, 8, false, "IODE"},
        {F_TOC, 16, false, "toc"},
        {F_AF2, 8, true, "af2"},
        {F_AF1, 16, true, "af1"},
        {F_AF0, 22, true, "af0"},
        {F_IODC, 10, false, "IODC"},
    },
    /*harmonic_width=*/16, /*toe_width=*/16,
    {
        {F_TGD, 8, true, "tGD"},
        {F_HEALTH, 6, false, "SV health"},
        {F_L2P, 1, false, "L2 P data flag"},
        {F_FIT, 1, false, "fit interval"},
    });

constexpr Layout kLayout1042 = make_layout(
    {
        {F_MSG, 12, false, "message number"},
        {F_SAT, 6, false, "satellite ID"},
        {F_WEEK, 13, false, "week number"},
        {F_URA, 4, false, "URAI"},
        {F_IDOT, 14, true, "IDOT"},
        {F_IODE, 5, false, "AODE"},
        {F_TOC, 17, false, "toc"},
        {F_AF2, 11, true, "a2"},
        {F_AF1, 22, true, "a1"},
        {F_AF0, 24, true, "a0"},
        {F_IODC, 5, false, "AODC"},
    },
    /*harmonic_width=*/18, /*toe_width=*/17,
    {
        {F_TGD, 10, true, "TGD1"},
        {F_TGD2, 10, true, "TGD2"},
        {F_HEALTH, 1, false, "SatH1"},
    });

constexpr Layout kLayout1044 = make_layout(
    {
        {F_MSG, 12, false, "message number"},
        {F_SAT, 4, false, "satellite ID"},
        {F_TOC, 16, false, "toc"},
        {F_AF2, 8, true, "af2"},
        {F_AF1, 16, true, "af1"},
        {F_AF0, 22, true, "af0"},
        {F_IODE, 8, false, "IODE"},
    },
    /*harmonic_width=*/16, /*toe_width=*/16,
    {
        {F_IDOT, 14, true, "IDOT"},
        {F_L2CODE, 2, false, "code on L2"},
        {F_WEEK, 10, false, "week number"},
        {F_URA, 4, false, "URA"},
        {F_HEALTH, 6, false, "SV health"},
        {F_TGD, 8, true, "tGD"},
        {F_IODC, 10, false, "IODC"},
        {F_FIT, 1, false, "fit interval"},
    });

constexpr Layout kLayout1046 = make_layout(
    {
        {F_MSG, 12, false, "message number"},
        {F_SAT, 6, false, "satellite ID"},
        {F_WEEK, 12, false, "week number"},
        {F_IODE, 10, false, "IODnav"},
        {F_URA, 8, false, "SISA"},
        {F_IDOT, 14, true, "IDOT"},
        {F_TOC, 14, false, "toc"},
        {F_AF2, 6, true, "af2"},
        {F_AF1, 21, true, "af1"},
        {F_AF0, 31, true, "af0"},
    },
    /*harmonic_width=*/16, /*toe_width=*/14,
    {
        {F_TGD, 10, true, "BGD E5a/E1"},
        {F_TGD2, 10, true, "BGD E5b/E1"},
        {F_HEALTH, 2, false, "E5b signal health"},
        {F_E5B_DV, 1, false, "E5b data validity"},
        {F_E1B_HS, 2, false, "E1-B signal health"},
        {F_E1B_DV, 1, false, "E1-B data validity"},
        {F_RESERVED, 2, false, "reserved"},
    });

// The entry of field in msg's layout, with its bit offset in *pos; null when
// the message lacks the field.
const RtcmFieldDef *find_field(uint32_t msg, RtcmEphField field, uint32_t *pos) {
    size_t n = 0;
    const RtcmFieldDef *t = rtcm_eph_layout(msg, &n);
    uint32_t p = 0;
    for (size_t i = 0; i < n; ++i) {
        if (t[i].field == field) {
            *pos = p;
            return &t[i];
        }
        p += t[i].width;
    }
    return nullptr;
}

}  // namespace

const RtcmFieldDef *rtcm_eph_layout(uint32_t msg, size_t *count) {
    const Layout *l = nullptr;
    switch (msg) {
        case 1019: l = &kLayout1019; break;
        case 1042: l = &kLayout1042; break;
        case 1044: l = &kLayout1044; break;
        case 1046: l = &kLayout1046; break;
        default: break;
    }
    if (count) *count = l ? l->n : 0;
    return l ? l->f : nullptr;
}

uint32_t rtcm_eph_layout_bits(uint32_t msg) {
    size_t n = 0;
    const RtcmFieldDef *t = rtcm_eph_layout(msg, &n);
    uint32_t bits = 0;
    for (size_t i = 0; i < n; ++i) bits += t[i].width;
    return bits;
}

uint32_t rtcm_eph_payload_bytes(uint32_t msg) { return (rtcm_eph_layout_bits(msg) + 7) / 8; }

int32_t rtcm_eph_field_pos(uint32_t msg, RtcmEphField field) {
    uint32_t pos = 0;
    return find_field(msg, field, &pos) ? static_cast<int32_t>(pos) : -1;
}

uint32_t rtcm_eph_field_width(uint32_t msg, RtcmEphField field) {
    uint32_t pos = 0;
    const RtcmFieldDef *d = find_field(msg, field, &pos);
    return d ? d->width : 0;
}

int64_t rtcm_eph_get(uint32_t msg, const uint8_t *payload, RtcmEphField field) {
    uint32_t pos = 0;
    const RtcmFieldDef *d = find_field(msg, field, &pos);
    if (!d) return 0;
    return d->is_signed ? rtcm_getbits(payload, pos, d->width)
                        : static_cast<int64_t>(rtcm_getbitu(payload, pos, d->width));
}

static bool fits(int64_t v, uint32_t width, bool is_signed) {
    if (is_signed) {
        const int64_t lim = int64_t(1) << (width - 1);
        return v >= -lim && v < lim;
    }
    return v >= 0 && static_cast<uint64_t>(v) < (uint64_t(1) << width);
}

uint32_t rtcm_eph_encode(uint32_t msg, const RtcmEph &eph, uint8_t *payload, uint32_t cap) {
    size_t n = 0;
    const RtcmFieldDef *t = rtcm_eph_layout(msg, &n);
    if (!t) return 0;
    const uint32_t bytes = rtcm_eph_payload_bytes(msg);
    if (cap < bytes) return 0;
    std::memset(payload, 0, bytes);
    uint32_t pos = 0;
    for (size_t i = 0; i < n; ++i) {
        const int64_t v = t[i].field == F_MSG ? static_cast<int64_t>(msg) : eph.v[t[i].field];
        if (!fits(v, t[i].width, t[i].is_signed)) return 0;
        rtcm_setbitu(payload, pos, t[i].width, static_cast<uint64_t>(v));
        pos += t[i].width;
    }
    return bytes;
}

// ---------------------------------------------------------------------------
// Pseudo-random values, from the generators' shared splitmix64.

// Uniform enough for sample data: lo..hi inclusive.
static int64_t mix_range(uint64_t &state, int64_t lo, int64_t hi) {
    const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
    return lo + static_cast<int64_t>(gen_splitmix64(state) % span);
}

static uint64_t mix_state(uint64_t seed, uint64_t a, uint64_t b, uint64_t c) {
    uint64_t s = seed;
    uint64_t h = gen_splitmix64(s);
    s = h ^ (a * 0x100000001B3ull);
    h = gen_splitmix64(s);
    s = h ^ (b * 0xC2B2AE3D27D4EB4Full);
    h = gen_splitmix64(s);
    s = h ^ (c * 0x165667B19E3779F9ull);
    return s;
}

// ---------------------------------------------------------------------------
// Generator

static const char kSystems[] = "GCJE";

uint32_t rtcmgen_msg_of_system(char sys) {
    switch (sys) {
        case 'G': return 1019;
        case 'C': return 1042;
        case 'J': return 1044;
        case 'E': return 1046;
        default: return 0;
    }
}

static int default_sats(char sys) {
    switch (sys) {
        case 'G': return 32;
        case 'C': return 10;
        case 'J': return 4;
        case 'E': return 24;
        default: return 0;
    }
}

static int max_sat_id(char sys) {
    switch (sys) {
        case 'G': return 32;
        case 'C': return 63;
        case 'J': return 10;
        case 'E': return 36;
        default: return 0;
    }
}

int rtcmgen_sat_count(const RtcmGenConfig &cfg, char sys) {
    if (rtcmgen_msg_of_system(sys) == 0) return 0;
    if (cfg.sats <= 0) return default_sats(sys);
    return cfg.sats < max_sat_id(sys) ? cfg.sats : max_sat_id(sys);
}

static uint32_t frames_per_epoch(const RtcmGenConfig &cfg) {
    uint32_t n = 0;
    for (char s : cfg.systems) n += static_cast<uint32_t>(rtcmgen_sat_count(cfg, s));
    return n;
}

static uint64_t bytes_per_epoch(const RtcmGenConfig &cfg) {
    uint64_t n = 0;
    for (char s : cfg.systems)
        n += static_cast<uint64_t>(rtcmgen_sat_count(cfg, s)) *
             (rtcm_eph_payload_bytes(rtcmgen_msg_of_system(s)) + RTCM_FRAME_OVERHEAD);
    return n;
}

static bool fail(std::string *err, const char *text) {
    if (err) *err = text;
    return false;
}

bool rtcmgen_validate(const RtcmGenConfig &cfg, std::string *err) {
    if (cfg.systems.empty()) return fail(err, "no system selected");
    for (size_t i = 0; i < cfg.systems.size(); ++i) {
        const char s = cfg.systems[i];
        if (!std::strchr(kSystems, s) || s == '\0')
            return fail(err, "systems must be letters among G, C, J, E");
        if (cfg.systems.find(s) != i) return fail(err, "a system is named twice");
    }
    if (cfg.sats < 0) return fail(err, "satellite count must not be negative");
    if (cfg.epochs < 1) return fail(err, "at least one epoch is needed");
    if (cfg.tow >= 604800) return fail(err, "time of week must be below 604800");
    if (cfg.systems.find('C') != std::string::npos &&
        (cfg.week < 1356 || (cfg.week == 1356 && cfg.tow < 14)))
        return fail(err, "BeiDou needs a time after the start of BDT (GPS week 1356, 14 s)");
    if (cfg.systems.find('E') != std::string::npos && cfg.week < 1024)
        return fail(err, "Galileo needs a GPS week of at least 1024");
    if (cfg.week > 100000) return fail(err, "week out of range");
    if (cfg.min_size > (uint64_t(1) << 32)) return fail(err, "size out of range");
    if (cfg.trailing_bytes < 1 || cfg.trailing_bytes > 2)
        return fail(err, "trailing bytes must be 1 or 2");
    if (cfg.damage == RtcmDamage::BadCrc || cfg.damage == RtcmDamage::ReservedBits) {
        const uint64_t frames =
            static_cast<uint64_t>(frames_per_epoch(cfg)) * static_cast<uint64_t>(cfg.epochs);
        if (cfg.damage_frame < -1) return fail(err, "damaged frame index must be -1 or more");
        // min_size can only add frames, so an index valid for the epochs given is valid.
        if (cfg.damage_frame >= 0 && static_cast<uint64_t>(cfg.damage_frame) >= frames)
            return fail(err, "damaged frame index beyond the last frame");
    }
    return true;
}

RtcmEpochTime rtcmgen_epoch_time(const RtcmGenConfig &cfg, int epoch) {
    RtcmEpochTime t{};
    const uint64_t total = static_cast<uint64_t>(cfg.tow) + static_cast<uint64_t>(epoch) * 7200u;
    t.gps_week = cfg.week + static_cast<uint32_t>(total / 604800u);
    t.gps_tow = static_cast<uint32_t>(total % 604800u);
    // BDT runs 14 s behind GPS time and its week 0 began at GPS week 1356.
    if (t.gps_tow >= 14) {
        t.bdt_week = t.gps_week - 1356;
        t.bdt_sow = t.gps_tow - 14;
    } else {
        t.bdt_week = t.gps_week - 1357;
        t.bdt_sow = t.gps_tow + 604800 - 14;
    }
    t.gst_week = t.gps_week - 1024;  // GST runs with GPS time, weeks from 1999-08-22
    t.gps_week10 = t.gps_week % 1024;
    t.gps_toe16 = t.gps_tow / 16;
    t.bdt_week13 = t.bdt_week % 8192;
    t.bdt_toe8 = t.bdt_sow / 8;
    t.gst_week12 = t.gst_week % 4096;
    t.gst_toe60 = t.gps_tow / 60;
    return t;
}

// Orbit shape per system, in the raw units of the messages: sqrt A in
// 2^-19 m^1/2, e in 2^-33, i0 in 2^-31 semicircles.
static int64_t sqrt_a_raw(double sqrt_a) { return static_cast<int64_t>(sqrt_a * 524288.0); }

RtcmEph rtcmgen_make_eph(const RtcmGenConfig &cfg, char sys, int sat, int epoch) {
    RtcmEph e{};
    const RtcmEpochTime t = rtcmgen_epoch_time(cfg, epoch);
    const uint64_t sys_code = static_cast<unsigned char>(sys);
    // The orbit of a satellite stays the same over the epochs; what changes
    // with each new ephemeris set (anomaly, harmonics, clock, issue) does not.
    uint64_t orbit = mix_state(cfg.seed, sys_code, static_cast<uint64_t>(sat), 0xFFFFFFFFull);
    uint64_t set =
        mix_state(cfg.seed, sys_code, static_cast<uint64_t>(sat), static_cast<uint64_t>(epoch));
    const int64_t deg55 = 656175559;  // 55 degrees in 2^-31 semicircles

    e.v[F_MSG] = rtcmgen_msg_of_system(sys);
    e.v[F_SAT] = sat;
    e.v[F_M0] = mix_range(set, INT32_MIN, INT32_MAX);
    e.v[F_OMEGA0] = mix_range(orbit, INT32_MIN, INT32_MAX);
    e.v[F_OMEGA] = mix_range(orbit, INT32_MIN, INT32_MAX);
    e.v[F_I0] = deg55 + mix_range(orbit, -12000000, 12000000);  // about +-1 degree
    e.v[F_E] = mix_range(orbit, 8590, 171798692);               // 1e-6 .. 0.02
    e.v[F_OMEGADOT] = mix_range(orbit, -30000, -18000);         // about -8e-9 rad/s
    e.v[F_IDOT] = mix_range(set, -400, 400);                    // 2^-43 semicircles/s
    e.v[F_DN] = mix_range(orbit, 9000, 16000);                  // 2^-43 semicircles/s
    e.v[F_HEALTH] = 0;

    switch (sys) {
        case 'G':
        case 'J': {
            if (sys == 'G') {
                e.v[F_SQRTA] = sqrt_a_raw(5153.6) + mix_range(orbit, -200000, 200000);
            } else {
                // quasi-zenith orbit: geosynchronous, inclined about 41 degrees, e about 0.075
                e.v[F_SQRTA] = sqrt_a_raw(6493.4) + mix_range(orbit, -200000, 200000);
                e.v[F_E] = mix_range(orbit, 601295421, 687194767);  // 0.07 .. 0.08
                e.v[F_I0] = 489149053 + mix_range(orbit, -12000000, 12000000);
                e.v[F_OMEGADOT] = mix_range(orbit, -12000, -6000);
            }
            e.v[F_WEEK] = t.gps_week10;
            e.v[F_TOE] = t.gps_toe16;
            e.v[F_TOC] = t.gps_toe16;
            e.v[F_URA] = mix_range(set, 0, 2);
            e.v[F_L2CODE] = 1;  // P code on L2
            e.v[F_IODE] = mix_range(set, 0, 255);
            e.v[F_IODC] = e.v[F_IODE];  // IODC's low 8 bits match IODE
            e.v[F_AF2] = 0;
            e.v[F_AF1] = mix_range(set, -100, 100);          // 2^-43 s/s
            e.v[F_AF0] = mix_range(set, -1000000, 1000000);  // 2^-31 s: within +-0.5 ms
            e.v[F_CRS] = mix_range(set, -3500, 3500);        // 2^-5 m
            e.v[F_CRC] = mix_range(set, 4000, 11000);
            e.v[F_CUC] = mix_range(set, -5000, 5000);  // 2^-29 rad
            e.v[F_CUS] = mix_range(set, -5000, 5000);
            e.v[F_CIC] = mix_range(set, -150, 150);
            e.v[F_CIS] = mix_range(set, -150, 150);
            e.v[F_TGD] = mix_range(set, -20, 20);  // 2^-31 s
            e.v[F_L2P] = 0;
            e.v[F_FIT] = 0;
            break;
        }
        case 'C': {
            if (sat <= 10) {
                // GEO (1-5) and IGSO (6-10) satellites: geosynchronous radius
                e.v[F_SQRTA] = sqrt_a_raw(6493.4) + mix_range(orbit, -200000, 200000);
                if (sat <= 5) e.v[F_I0] = mix_range(orbit, 0, 20000000);  // below 2 degrees
            } else {
                e.v[F_SQRTA] = sqrt_a_raw(5282.6) + mix_range(orbit, -200000, 200000);
            }
            e.v[F_WEEK] = t.bdt_week13;
            e.v[F_TOE] = t.bdt_toe8;
            e.v[F_TOC] = t.bdt_toe8;
            e.v[F_URA] = mix_range(set, 0, 2);
            e.v[F_IODE] = mix_range(set, 0, 31);
            e.v[F_IODC] = mix_range(set, 0, 31);
            e.v[F_AF2] = 0;
            e.v[F_AF1] = mix_range(set, -12000, 12000);      // 2^-50 s/s
            e.v[F_AF0] = mix_range(set, -4000000, 4000000);  // 2^-33 s
            e.v[F_CRS] = mix_range(set, -7000, 7000);        // 2^-6 m
            e.v[F_CRC] = mix_range(set, -7000, 22000);
            e.v[F_CUC] = mix_range(set, -20000, 20000);  // 2^-31 rad
            e.v[F_CUS] = mix_range(set, -20000, 20000);
            e.v[F_CIC] = mix_range(set, -500, 500);
            e.v[F_CIS] = mix_range(set, -500, 500);
            e.v[F_TGD] = mix_range(set, -100, 100);  // 0.1 ns
            e.v[F_TGD2] = mix_range(set, -100, 100);
            break;
        }
        case 'E': {
            e.v[F_SQRTA] = sqrt_a_raw(5440.6) + mix_range(orbit, -100000, 100000);
            e.v[F_E] = mix_range(orbit, 8590, 8589935);                   // below 0.001
            e.v[F_I0] = 668106024 + mix_range(orbit, -6000000, 6000000);  // about 56 degrees
            e.v[F_WEEK] = t.gst_week12;
            e.v[F_TOE] = t.gst_toe60;
            e.v[F_TOC] = t.gst_toe60;
            e.v[F_URA] = 107;  // SISA 3.12 m
            e.v[F_IODE] = mix_range(set, 0, 1023);
            e.v[F_AF2] = 0;
            e.v[F_AF1] = mix_range(set, -700, 700);          // 2^-46 s/s
            e.v[F_AF0] = mix_range(set, -8000000, 8000000);  // 2^-34 s
            e.v[F_CRS] = mix_range(set, -3500, 3500);
            e.v[F_CRC] = mix_range(set, 4000, 11000);
            e.v[F_CUC] = mix_range(set, -5000, 5000);
            e.v[F_CUS] = mix_range(set, -5000, 5000);
            e.v[F_CIC] = mix_range(set, -150, 150);
            e.v[F_CIS] = mix_range(set, -150, 150);
            e.v[F_TGD] = mix_range(set, -20, 20);  // 2^-32 s
            e.v[F_TGD2] = mix_range(set, -20, 20);
            e.v[F_E5B_DV] = 0;
            e.v[F_E1B_HS] = 0;
            e.v[F_E1B_DV] = 0;
            e.v[F_RESERVED] = 0;
            break;
        }
        default: break;
    }
    return e;
}

static void count_msg(RtcmGenStats &st, uint32_t msg) {
    switch (msg) {
        case 1019: ++st.count_1019; break;
        case 1042: ++st.count_1042; break;
        case 1044: ++st.count_1044; break;
        case 1046: ++st.count_1046; break;
        default: break;
    }
}

std::vector<uint8_t> rtcmgen_generate(const RtcmGenConfig &cfg, RtcmGenStats *stats) {
    RtcmGenStats st;
    std::vector<uint8_t> out;
    if (!rtcmgen_validate(cfg, nullptr)) {
        if (stats) *stats = st;
        return out;
    }
    uint64_t epochs = static_cast<uint64_t>(cfg.epochs);
    const uint64_t per_epoch = bytes_per_epoch(cfg);
    if (cfg.min_size > 0 && per_epoch > 0) {
        const uint64_t need = (cfg.min_size + per_epoch - 1) / per_epoch;
        if (need > epochs) epochs = need;
    }
    out.reserve(static_cast<size_t>(epochs * per_epoch + 2));

    std::vector<size_t> starts;  // offset of every frame
    uint8_t payload[RTCM_MAX_PAYLOAD];
    for (uint64_t k = 0; k < epochs; ++k) {
        for (char sys : cfg.systems) {
            const uint32_t msg = rtcmgen_msg_of_system(sys);
            const int n = rtcmgen_sat_count(cfg, sys);
            for (int sat = 1; sat <= n; ++sat) {
                const RtcmEph eph = rtcmgen_make_eph(cfg, sys, sat, static_cast<int>(k));
                const uint32_t len = rtcm_eph_encode(msg, eph, payload, sizeof payload);
                if (len == 0) {  // a generated value left its field: a bug, not a config error
                    if (stats) *stats = RtcmGenStats{};
                    return std::vector<uint8_t>();
                }
                starts.push_back(out.size());
                rtcm_append_frame(out, payload, len);
                count_msg(st, msg);
            }
        }
    }
    st.epochs = static_cast<uint32_t>(epochs);
    st.frames = static_cast<uint32_t>(starts.size());

    const size_t k =
        cfg.damage_frame < 0 ? starts.size() - 1 : static_cast<size_t>(cfg.damage_frame);
    switch (cfg.damage) {
        case RtcmDamage::None: break;
        case RtcmDamage::BadCrc: {
            // the first CRC byte, inverted
            uint8_t *frame = out.data() + starts[k];
            const uint32_t len = frame_payload_len(frame);
            frame[3 + len] = static_cast<uint8_t>(~frame[3 + len]);
            break;
        }
        case RtcmDamage::Truncate: {
            const size_t off = starts.back();
            out.resize(off + (out.size() - off) / 2);
            break;
        }
        case RtcmDamage::Trailing:
            out.push_back(RTCM_PREAMBLE);
            if (cfg.trailing_bytes == 2) out.push_back(0x00);
            break;
        case RtcmDamage::ReservedBits: {
            // The lowest reserved bit, next to the length: a reader that masks
            // too few bits still takes it for part of a valid header. The CRC is
            // recomputed so that the reserved bit is the frame's only fault.
            uint8_t *frame = out.data() + starts[k];
            frame[1] = static_cast<uint8_t>(frame[1] | 0x04);
            seal_frame(frame);
            break;
        }
    }
    st.bytes = out.size();
    if (stats) *stats = st;
    return out;
}

bool rtcmgen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err) {
    return gen_write_bytes(path, bytes, err);
}

bool rtcmgen_write_file(const RtcmGenConfig &cfg, const char *path, RtcmGenStats *stats,
                        std::string *err) {
    if (!rtcmgen_validate(cfg, err)) return false;
    const std::vector<uint8_t> bytes = rtcmgen_generate(cfg, stats);
    if (bytes.empty()) {
        if (err) *err = "generation failed";
        return false;
    }
    return rtcmgen_write_bytes(path, bytes, err);
}

// ---------------------------------------------------------------------------
// Frame list reader

RtcmSplit rtcm_split_frames(const uint8_t *data, size_t len) {
    RtcmSplit r;
    size_t pos = 0;
    while (pos < len) {
        if (data[pos] != RTCM_PREAMBLE) {
            r.end = RtcmSplitEnd::NotAFrame;
            break;
        }
        if (len - pos < 3) {
            r.end = RtcmSplitEnd::Incomplete;
            break;
        }
        const uint32_t plen = frame_payload_len(data + pos);
        if (len - pos < plen + RTCM_FRAME_OVERHEAD) {
            r.end = RtcmSplitEnd::Incomplete;
            break;
        }
        RtcmFrameInfo f;
        f.offset = pos;
        f.payload_len = plen;
        f.msg = plen >= 2 ? static_cast<uint32_t>(rtcm_getbitu(data + pos + 3, 0, 12)) : 0;
        f.reserved_clear = (data[pos + 1] & 0xFC) == 0;
        const uint32_t crc = Vk_Check_CRC24Q(0, data + pos, plen + 3);
        const uint8_t *c = data + pos + 3 + plen;
        const uint32_t stored =
            (static_cast<uint32_t>(c[0]) << 16) | (static_cast<uint32_t>(c[1]) << 8) | c[2];
        f.crc_ok = crc == stored;
        r.frames.push_back(f);
        pos += plen + RTCM_FRAME_OVERHEAD;
        r.consumed = pos;
    }
    return r;
}
