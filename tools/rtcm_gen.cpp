// Deterministic RTCM 3 ephemeris sample data. See rtcm_gen.h.
#include "tools/rtcm_gen.h"

#include <cctype>
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
    RtcmFieldDef f[40];  // room for the longest layout (1020, 37 fields)
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

// GLONASS ephemeris: the values of the navigation message's strings 1 to 5,
// with no orbit block in common with the others. Its signed values are
// sign-magnitude.
constexpr Layout make_flat_layout(FieldList fields) {
    Layout l{};
    for (const RtcmFieldDef &d : fields) l.f[l.n++] = d;
    return l;
}

constexpr Layout kLayout1020 = make_flat_layout({
    {F_MSG, 12, false, "message number"},
    {F_SAT, 6, false, "satellite ID"},
    {F_GLO_FREQ, 5, false, "frequency channel number"},
    {F_GLO_ALM_HEALTH, 1, false, "almanac health"},
    {F_GLO_ALM_AVAIL, 1, false, "almanac health availability"},
    {F_GLO_P1, 2, false, "P1"},
    {F_GLO_TK, 12, false, "tk"},
    {F_HEALTH, 1, false, "MSB of Bn"},
    {F_GLO_P2, 1, false, "P2"},
    {F_GLO_TB, 7, false, "tb"},
    {F_GLO_XDOT, 24, true, "xn first derivative", true},
    {F_GLO_X, 27, true, "xn", true},
    {F_GLO_XDDOT, 5, true, "xn second derivative", true},
    {F_GLO_YDOT, 24, true, "yn first derivative", true},
    {F_GLO_Y, 27, true, "yn", true},
    {F_GLO_YDDOT, 5, true, "yn second derivative", true},
    {F_GLO_ZDOT, 24, true, "zn first derivative", true},
    {F_GLO_Z, 27, true, "zn", true},
    {F_GLO_ZDDOT, 5, true, "zn second derivative", true},
    {F_GLO_P3, 1, false, "P3"},
    {F_GLO_GAMMA, 11, true, "gamma n", true},
    {F_GLO_P, 2, false, "P"},
    {F_GLO_LN3, 1, false, "ln (third string)"},
    {F_GLO_TAU, 22, true, "tau n", true},
    {F_GLO_DTAU, 5, true, "delta tau n", true},
    {F_GLO_EN, 5, false, "En"},
    {F_GLO_P4, 1, false, "P4"},
    {F_GLO_FT, 4, false, "FT"},
    {F_GLO_NT, 11, false, "NT"},
    {F_GLO_M, 2, false, "M"},
    {F_GLO_ADD, 1, false, "availability of additional data"},
    {F_GLO_NA, 11, false, "NA"},
    {F_GLO_TAUC, 32, true, "tau c", true},
    {F_GLO_N4, 5, false, "N4"},
    {F_GLO_TAUGPS, 22, true, "tau GPS", true},
    {F_GLO_LN5, 1, false, "ln (fifth string)"},
    {F_RESERVED, 7, false, "reserved"},
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
        case 1019:
        case 1919: l = &kLayout1019; break;
        case 1020:
        case 1920: l = &kLayout1020; break;
        case 1042:
        case 1942: l = &kLayout1042; break;
        case 1044: l = &kLayout1044; break;
        case 1046:
        case 1946: l = &kLayout1046; break;
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
    if (d->sign_magnitude) {
        const int64_t m = static_cast<int64_t>(rtcm_getbitu(payload, pos + 1, d->width - 1u));
        return rtcm_getbitu(payload, pos, 1) ? -m : m;
    }
    return d->is_signed ? rtcm_getbits(payload, pos, d->width)
                        : static_cast<int64_t>(rtcm_getbitu(payload, pos, d->width));
}

static bool fits(int64_t v, uint32_t width, bool is_signed, bool sign_magnitude) {
    if (sign_magnitude) {
        const int64_t lim = int64_t(1) << (width - 1);
        return v > -lim && v < lim;
    }
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
        if (!fits(v, t[i].width, t[i].is_signed, t[i].sign_magnitude)) return 0;
        if (t[i].sign_magnitude) {
            rtcm_setbitu(payload, pos, 1, v < 0 ? 1u : 0u);
            rtcm_setbitu(payload, pos + 1, t[i].width - 1u, static_cast<uint64_t>(v < 0 ? -v : v));
        } else {
            rtcm_setbitu(payload, pos, t[i].width, static_cast<uint64_t>(v));
        }
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

static const char kSystems[] = "GRCJEgrce";

uint32_t rtcmgen_msg_of_system(char sys) {
    switch (sys) {
        case 'G': return 1019;
        case 'R': return 1020;
        case 'C': return 1042;
        case 'J': return 1044;
        case 'E': return 1046;
        case 'g': return 1919;
        case 'r': return 1920;
        case 'c': return 1942;
        case 'e': return 1946;
        default: return 0;
    }
}

// The standard system whose layout and value ranges an extended letter
// shares; the letter itself for the others.
static char base_system(char sys) {
    switch (sys) {
        case 'g':
        case 'r':
        case 'c':
        case 'e': return static_cast<char>(std::toupper(static_cast<unsigned char>(sys)));
        default: return sys;
    }
}

static int default_sats(char sys) {
    switch (base_system(sys)) {
        case 'G': return 32;
        case 'R': return 24;
        case 'C': return 10;
        case 'J': return 4;
        case 'E': return 24;
        default: return 0;
    }
}

static int max_sat_id(char sys) {
    switch (base_system(sys)) {
        case 'G': return 32;
        case 'R': return 24;
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

uint32_t rtcmgen_frames_per_epoch(const RtcmGenConfig &cfg) {
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

uint64_t rtcmgen_epoch_count(const RtcmGenConfig &cfg) {
    uint64_t epochs = cfg.epochs > 0 ? static_cast<uint64_t>(cfg.epochs) : 0;
    const uint64_t per_epoch = bytes_per_epoch(cfg);
    if (cfg.min_size > 0 && per_epoch > 0) {
        const uint64_t need = (cfg.min_size + per_epoch - 1) / per_epoch;
        if (need > epochs) epochs = need;
    }
    return epochs;
}

uint64_t rtcmgen_content_size(const RtcmGenConfig &cfg) {
    uint64_t n = rtcmgen_epoch_count(cfg) * bytes_per_epoch(cfg) + cfg.tail_bytes;
    if (cfg.time_frame) n += RTCM_TIME_FRAME_BYTES;
    if (cfg.long_frame) n += RTCM_LONG_FRAME_BYTES;
    return n;
}

static bool fail(std::string *err, const char *text) {
    if (err) *err = text;
    return false;
}

static bool has_system(const RtcmGenConfig &cfg, const char *letters) {
    return cfg.systems.find_first_of(letters) != std::string::npos;
}

// Days from the GPS epoch (1980-01-06) to the start of GLONASS's first
// four-year interval (1996-01-01).
constexpr int64_t kGloIntervalStartDay = 5839;
constexpr int64_t kGloIntervalDays = 1461;
constexpr int64_t kMoscowOffset = 3 * 3600;
// Modified Julian Day of the GPS epoch.
constexpr int64_t kGpsEpochMjd = 44244;

static int64_t floor_div(int64_t a, int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// UTC seconds since the GPS epoch at GPS week and second.
static int64_t utc_since_gps_epoch(uint64_t week, uint64_t tow, uint32_t leap) {
    return static_cast<int64_t>(week * 604800u + tow) - static_cast<int64_t>(leap);
}

// Day of GLONASS's four-year count (from 1996-01-01, Moscow time) at
// epoch k.
static int64_t glo_day_1996(const RtcmGenConfig &cfg, uint64_t k) {
    const int64_t msk =
        utc_since_gps_epoch(cfg.week, cfg.tow + k * 7200u, cfg.leap_seconds) + kMoscowOffset;
    return floor_div(msk, 86400) - kGloIntervalStartDay;
}

// The time frame as the first bytes of a file: a reader that looks for the
// first frame start must not find one inside it.
static bool time_frame_hides_a_start(const RtcmGenConfig &cfg) {
    std::vector<uint8_t> b = rtcmgen_time_frame(cfg.week, cfg.tow, cfg.leap_seconds);
    b.push_back(RTCM_PREAMBLE);  // the first RTCM frame's header follows
    b.push_back(0x00);
    b.push_back(0x00);
    return rtcm_first_frame_start(b.data(), b.size()) != RTCM_TIME_FRAME_BYTES;
}

bool rtcmgen_validate(const RtcmGenConfig &cfg, std::string *err) {
    if (cfg.systems.empty()) return fail(err, "no system selected");
    for (size_t i = 0; i < cfg.systems.size(); ++i) {
        const char s = cfg.systems[i];
        if (!std::strchr(kSystems, s) || s == '\0')
            return fail(err, "systems must be letters among G, R, C, J, E, g, r, c, e");
        if (cfg.systems.find(s) != i) return fail(err, "a system is named twice");
    }
    if (cfg.sats < 0) return fail(err, "satellite count must not be negative");
    if (cfg.epochs < 1) return fail(err, "at least one epoch is needed");
    if (cfg.tow >= 604800) return fail(err, "time of week must be below 604800");
    if (has_system(cfg, "Cc") && (cfg.week < 1356 || (cfg.week == 1356 && cfg.tow < 14)))
        return fail(err, "BeiDou needs a time after the start of BDT (GPS week 1356, 14 s)");
    if (has_system(cfg, "Ee") && cfg.week < 1024)
        return fail(err, "Galileo needs a GPS week of at least 1024");
    if (cfg.week > 100000) return fail(err, "week out of range");
    if (cfg.min_size > (uint64_t(1) << 32)) return fail(err, "size out of range");
    if (cfg.leap_seconds > 255) return fail(err, "leap seconds out of range");
    if (has_system(cfg, "Rr")) {
        // The four-year interval number has 5 bits: 1996 to 2119.
        if (glo_day_1996(cfg, 0) < 0)
            return fail(err, "GLONASS needs a time from 1996 on (GPS week 835)");
        if (glo_day_1996(cfg, rtcmgen_epoch_count(cfg) - 1) >= 31 * kGloIntervalDays)
            return fail(err, "GLONASS needs a time before 2120");
    }
    if (cfg.trailing_bytes < 1 || cfg.trailing_bytes > 2)
        return fail(err, "trailing bytes must be 1 or 2");
    // min_size can only add frames, so an index valid for the epochs given is valid.
    const uint64_t eph_frames =
        static_cast<uint64_t>(rtcmgen_frames_per_epoch(cfg)) * static_cast<uint64_t>(cfg.epochs);
    if (cfg.damage == RtcmDamage::BadCrc || cfg.damage == RtcmDamage::ReservedBits) {
        const uint64_t frames = eph_frames + (cfg.long_frame ? 1 : 0);
        if (cfg.damage_frame < -1) return fail(err, "damaged frame index must be -1 or more");
        if (cfg.damage_frame >= 0 && static_cast<uint64_t>(cfg.damage_frame) >= frames)
            return fail(err, "damaged frame index beyond the last frame");
    }
    if (cfg.long_frame &&
        (cfg.long_frame_at < -1 ||
         (cfg.long_frame_at >= 0 && static_cast<uint64_t>(cfg.long_frame_at) > eph_frames)))
        return fail(err, "long frame placed beyond the last ephemeris frame");
    if (cfg.time_frame && time_frame_hides_a_start(cfg))
        return fail(err,
                    "the time frame's bytes hold D3 and a byte below 4, which a reader would take"
                    " for the first RTCM frame: choose another week, time of week or leap seconds");
    if (cfg.tail_bytes > (uint32_t(1) << 20)) return fail(err, "tail bytes out of range");
    if (cfg.exact_size > 0) {
        if (cfg.exact_size > (uint64_t(1) << 32)) return fail(err, "exact size out of range");
        if (cfg.damage == RtcmDamage::Truncate || cfg.damage == RtcmDamage::Trailing)
            return fail(err, "an exact size cannot be combined with truncate or trailing damage");
        const uint64_t content = rtcmgen_content_size(cfg);
        if (content > cfg.exact_size) return fail(err, "the frames alone exceed the exact size");
        const uint64_t gap = cfg.exact_size - content;
        if (cfg.pad == RtcmPad::Frames && gap > 0 && gap < RTCM_FILL_FRAME_MIN)
            return fail(err,
                        "the frames leave fewer bytes below the exact size than the smallest filler"
                        " frame (15): change the satellites or pad with zeros");
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

    const int64_t utc = utc_since_gps_epoch(t.gps_week, t.gps_tow, cfg.leap_seconds);
    const int64_t utc_day = floor_div(utc, 86400);
    t.utc_mjd = static_cast<uint32_t>(kGpsEpochMjd + utc_day);
    t.utc_sod = static_cast<uint32_t>(utc - utc_day * 86400);
    // GLONASS keeps Moscow time. Its ephemerides are referred to the middle
    // of 30-minute intervals (hh:15, hh:45); the set that covers the epoch
    // is the one of the half hour holding it.
    const int64_t msk = utc + kMoscowOffset;
    const int64_t msk_day = floor_div(msk, 86400);
    t.glo_tod = static_cast<uint32_t>(msk - msk_day * 86400);
    const uint32_t half_hour = t.glo_tod / 1800;  // 0..47
    t.glo_tb = 2 * half_hour + 1;
    t.glo_tk = (half_hour / 2) << 7 | (half_hour % 2 * 30) << 1;
    const int64_t d1996 = msk_day - kGloIntervalStartDay;
    if (d1996 >= 0) {
        t.glo_n4 = static_cast<uint32_t>(d1996 / kGloIntervalDays + 1);
        t.glo_nt = static_cast<uint32_t>(d1996 % kGloIntervalDays + 1);
    }
    return t;
}

// Orbit shape per system, in the raw units of the messages: sqrt A in
// 2^-19 m^1/2, e in 2^-33, i0 in 2^-31 semicircles.
static int64_t sqrt_a_raw(double sqrt_a) { return static_cast<int64_t>(sqrt_a * 524288.0); }

// Integer square root (floor), so that the GLONASS state vectors come out
// the same on every platform.
static uint64_t isqrt(uint64_t x) {
    uint64_t r = 0;
    uint64_t bit = uint64_t(1) << 62;
    while (bit > x) bit >>= 2;
    while (bit != 0) {
        if (x >= r + bit) {
            x -= r + bit;
            r = (r >> 1) + bit;
        } else {
            r >>= 1;
        }
        bit >>= 2;
    }
    return r;
}

// A GLONASS state at the reference time: a position on a sphere of the
// constellation's orbit radius (25510 km, give or take 20) in 2^-11 km, and
// a velocity at right angles to it of the circular orbit speed (about
// 3.953 km/s in space) in 2^-20 km/s. Direction vectors are drawn in
// integers and scaled by integer square roots.
static void glo_state(uint64_t &state, int64_t pos[3], int64_t vel[3]) {
    int64_t u[3];
    uint64_t uu = 0;
    do {
        uu = 0;
        for (int64_t &c : u) {
            c = mix_range(state, -65536, 65536);
            uu += static_cast<uint64_t>(c * c);
        }
    } while (uu < (uint64_t(1) << 28));
    const int64_t un = static_cast<int64_t>(isqrt(uu));
    const int64_t radius = (25510 + mix_range(state, -20, 20)) * 2048;
    for (int i = 0; i < 3; ++i) pos[i] = u[i] * radius / un;

    int64_t v[3];
    uint64_t vv = 0;
    do {
        int64_t w[3];
        int64_t dot = 0;
        for (int i = 0; i < 3; ++i) {
            w[i] = mix_range(state, -65536, 65536);
            dot += w[i] * u[i];
        }
        // w less its part along u, scaled down so that its squares add up
        // within 64 bits
        vv = 0;
        for (int i = 0; i < 3; ++i) {
            v[i] = (w[i] * static_cast<int64_t>(uu) - dot * u[i]) / (int64_t(1) << 20);
            vv += static_cast<uint64_t>(v[i] * v[i]);
        }
    } while (vv < (uint64_t(1) << 30));
    const int64_t vn = static_cast<int64_t>(isqrt(vv));
    const int64_t speed = 4145021 + mix_range(state, -2000, 2000);
    for (int i = 0; i < 3; ++i) vel[i] = v[i] * speed / vn;
    // The message gives the velocity in the Earth-fixed frame: less the
    // Earth's rotation (7.292115e-5 rad/s about z) carrying the position
    // along, w x r = (-w y, w x, 0). Positions are in 2^-11 km and
    // velocities in 2^-20 km/s, hence the factor 2^9.
    const int64_t kOmega = 7292115;             // 1e-11 rad/s
    const int64_t kScale = 100000000000 / 512;  // 1e11 / 2^9
    vel[0] += pos[1] * kOmega / kScale;
    vel[1] -= pos[0] * kOmega / kScale;
}

// Frequency channel of each GLONASS slot (1..24): the two satellites
// opposite each other in a plane share a channel.
static const int8_t kGloChannel[25] = {0,  1,  -4, 5,  6, 1,  -4, 5, 6, -2, -7, 0, -1,
                                       -2, -7, 0,  -1, 4, -3, 3,  2, 4, -3, 3,  2};

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

    switch (base_system(sys)) {
        case 'G':
        case 'J': {
            if (base_system(sys) == 'G') {
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
        case 'R': {
            // The orbit-block values drawn above do not appear in 1020: a
            // GLONASS ephemeris is a state vector at tb, drawn from the set's
            // own sequence (the satellite is elsewhere at each epoch).
            int64_t pos[3], vel[3];
            glo_state(set, pos, vel);
            e.v[F_GLO_X] = pos[0];
            e.v[F_GLO_Y] = pos[1];
            e.v[F_GLO_Z] = pos[2];
            e.v[F_GLO_XDOT] = vel[0];
            e.v[F_GLO_YDOT] = vel[1];
            e.v[F_GLO_ZDOT] = vel[2];
            e.v[F_GLO_XDDOT] = mix_range(set, -3, 3);  // 2^-30 km/s^2
            e.v[F_GLO_YDDOT] = mix_range(set, -3, 3);
            e.v[F_GLO_ZDDOT] = mix_range(set, -3, 3);
            e.v[F_GLO_FREQ] = kGloChannel[sat >= 1 && sat <= 24 ? sat : 0] + 7;
            e.v[F_GLO_ALM_HEALTH] = 1;
            e.v[F_GLO_ALM_AVAIL] = 1;
            e.v[F_GLO_P1] = 1;  // 30 minutes between tb values
            e.v[F_GLO_TK] = t.glo_tk;
            e.v[F_HEALTH] = 0;
            e.v[F_GLO_P2] = t.glo_tb & 1;
            e.v[F_GLO_TB] = t.glo_tb;
            e.v[F_GLO_P3] = 1;
            e.v[F_GLO_GAMMA] = mix_range(set, -5, 5);  // 2^-40
            e.v[F_GLO_P] = 3;
            e.v[F_GLO_LN3] = 0;                                // healthy
            e.v[F_GLO_TAU] = mix_range(set, -200000, 200000);  // 2^-30 s: within +-0.2 ms
            e.v[F_GLO_DTAU] = mix_range(set, -8, 8);
            e.v[F_GLO_EN] = 0;
            e.v[F_GLO_P4] = 0;
            e.v[F_GLO_FT] = mix_range(set, 0, 3);
            e.v[F_GLO_NT] = t.glo_nt;
            e.v[F_GLO_M] = 1;
            e.v[F_GLO_ADD] = 1;
            e.v[F_GLO_NA] = t.glo_nt;
            e.v[F_GLO_N4] = t.glo_n4;
            // Time scale corrections belong to the system, not to a satellite.
            uint64_t sys_set = mix_state(cfg.seed, sys_code, 0, static_cast<uint64_t>(epoch));
            e.v[F_GLO_TAUC] = mix_range(sys_set, -100, 100);    // 2^-31 s
            e.v[F_GLO_TAUGPS] = mix_range(sys_set, -100, 100);  // 2^-30 s
            e.v[F_GLO_LN5] = 0;
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
        case 1020: ++st.count_1020; break;
        case 1042: ++st.count_1042; break;
        case 1044: ++st.count_1044; break;
        case 1046: ++st.count_1046; break;
        case 1919: ++st.count_1919; break;
        case 1920: ++st.count_1920; break;
        case 1942: ++st.count_1942; break;
        case 1946: ++st.count_1946; break;
        case RTCM_TEXT_MSG: ++st.count_1029; break;
        default: break;
    }
}

// ---------------------------------------------------------------------------
// 'B' 'K' aid-time frame

static void put_le32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

std::vector<uint8_t> rtcmgen_time_frame(uint32_t week, uint32_t tow, uint32_t leap_seconds) {
    std::vector<uint8_t> f(RTCM_TIME_FRAME_BYTES, 0);
    const uint32_t len = RTCM_TIME_FRAME_BYTES - 8;
    f[0] = 'B';
    f[1] = 'K';
    f[4] = RTCM_BK_CLASS_CMD;
    f[5] = RTCM_BK_ID_TIME;
    f[6] = static_cast<uint8_t>((len >> 8) & 0x0F);
    f[7] = static_cast<uint8_t>(len & 0xFF);
    put_le32(&f[8], week);
    put_le32(&f[12], tow);
    put_le32(&f[16], leap_seconds);
    const uint16_t crc = Vk_CRC16_Calc(&f[4], len + 4);
    f[2] = static_cast<uint8_t>(crc >> 8);
    f[3] = static_cast<uint8_t>(crc);
    return f;
}

size_t rtcm_first_frame_start(const uint8_t *data, size_t len) {
    for (size_t i = 0; i + 2 < len; ++i)
        if (data[i] == RTCM_PREAMBLE && (data[i + 1] & 0xFC) == 0) return i;
    return len;
}

// ---------------------------------------------------------------------------
// 1029 text frames

// Appends a 1029 frame carrying the given UTF-8 code units (n_chars
// characters) and the epoch's UTC date.
static void append_text_frame(std::vector<uint8_t> &out, const RtcmEpochTime &t,
                              const uint8_t *units, uint32_t n_units, uint32_t n_chars) {
    uint8_t p[RTCM_TEXT_HEADER_BYTES + 255] = {};
    rtcm_setbitu(p, 0, 12, RTCM_TEXT_MSG);
    rtcm_setbitu(p, 12, 12, 0);  // station ID
    rtcm_setbitu(p, 24, 16, t.utc_mjd & 0xFFFFu);
    rtcm_setbitu(p, 40, 17, t.utc_sod);
    rtcm_setbitu(p, 57, 7, n_chars);
    rtcm_setbitu(p, 64, 8, n_units);
    std::memcpy(p + RTCM_TEXT_HEADER_BYTES, units, n_units);
    rtcm_append_frame(out, p, RTCM_TEXT_HEADER_BYTES + n_units);
}

// A filler frame of frame_bytes (15..142) bytes: ASCII text.
static void append_fill_frame(std::vector<uint8_t> &out, const RtcmEpochTime &t,
                              uint32_t frame_bytes) {
    static const char kText[] = "vkagnss sample data, filler to an exact size. ";
    const uint32_t n = frame_bytes - RTCM_FILL_FRAME_MIN;
    uint8_t units[127];
    for (uint32_t i = 0; i < n; ++i) units[i] = static_cast<uint8_t>(kText[i % (sizeof kText - 1)]);
    append_text_frame(out, t, units, n, n);
}

// The long frame: 127 Greek small letters (alpha to omega, over and over),
// two UTF-8 code units each. The character count has only 7 bits, so a
// payload above 255 bytes needs characters of more than one unit.
static void append_long_frame(std::vector<uint8_t> &out, const RtcmEpochTime &t) {
    uint8_t units[254];
    for (uint32_t i = 0; i < 127; ++i) {
        const uint32_t cp = 0x03B1 + i % 25;  // U+03B1 .. U+03C9
        units[2 * i] = static_cast<uint8_t>(0xC0 | (cp >> 6));
        units[2 * i + 1] = static_cast<uint8_t>(0x80 | (cp & 0x3F));
    }
    append_text_frame(out, t, units, 254, 127);
}

// ---------------------------------------------------------------------------
// The file

std::vector<uint8_t> rtcmgen_generate(const RtcmGenConfig &cfg, RtcmGenStats *stats) {
    RtcmGenStats st;
    std::vector<uint8_t> out;
    if (!rtcmgen_validate(cfg, nullptr)) {
        if (stats) *stats = st;
        return out;
    }
    const uint64_t epochs = rtcmgen_epoch_count(cfg);
    const uint64_t per_epoch = bytes_per_epoch(cfg);
    out.reserve(static_cast<size_t>(epochs * per_epoch + 2));

    if (cfg.time_frame) {
        const std::vector<uint8_t> tf = rtcmgen_time_frame(cfg.week, cfg.tow, cfg.leap_seconds);
        out.insert(out.end(), tf.begin(), tf.end());
        st.time_frame_bytes = tf.size();
    }
    const RtcmEpochTime t0 = rtcmgen_epoch_time(cfg, 0);
    auto add_long_frame = [&](std::vector<size_t> &starts) {
        st.long_frame_offset = out.size();
        starts.push_back(out.size());
        append_long_frame(out, t0);
        count_msg(st, RTCM_TEXT_MSG);
    };

    std::vector<size_t> starts;  // offset of every frame
    uint8_t payload[RTCM_MAX_PAYLOAD];
    uint64_t eph_index = 0;
    for (uint64_t k = 0; k < epochs; ++k) {
        for (char sys : cfg.systems) {
            const uint32_t msg = rtcmgen_msg_of_system(sys);
            const int n = rtcmgen_sat_count(cfg, sys);
            for (int sat = 1; sat <= n; ++sat) {
                if (cfg.long_frame && cfg.long_frame_at >= 0 &&
                    static_cast<uint64_t>(cfg.long_frame_at) == eph_index)
                    add_long_frame(starts);
                const RtcmEph eph = rtcmgen_make_eph(cfg, sys, sat, static_cast<int>(k));
                const uint32_t len = rtcm_eph_encode(msg, eph, payload, sizeof payload);
                if (len == 0) {  // a generated value left its field: a bug, not a config error
                    if (stats) *stats = RtcmGenStats{};
                    return std::vector<uint8_t>();
                }
                starts.push_back(out.size());
                rtcm_append_frame(out, payload, len);
                count_msg(st, msg);
                ++eph_index;
            }
        }
    }
    if (cfg.long_frame &&
        (cfg.long_frame_at < 0 || static_cast<uint64_t>(cfg.long_frame_at) >= eph_index))
        add_long_frame(starts);

    // An exact size: filler frames of nearly equal length (each within
    // 15..142 bytes), or zero bytes.
    uint64_t zeros = cfg.tail_bytes;
    if (cfg.exact_size > 0) {
        const uint64_t gap = cfg.exact_size - (out.size() + cfg.tail_bytes);
        if (cfg.pad == RtcmPad::Zeros) {
            zeros += gap;
        } else if (gap > 0) {
            const uint64_t n = (gap + RTCM_FILL_FRAME_MAX - 1) / RTCM_FILL_FRAME_MAX;
            for (uint64_t i = 0; i < n; ++i) {
                const uint64_t size = gap / n + (i < gap % n ? 1 : 0);
                starts.push_back(out.size());
                append_fill_frame(out, t0, static_cast<uint32_t>(size));
                count_msg(st, RTCM_TEXT_MSG);
                ++st.fill_frames;
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
        case RtcmDamage::Trailing: break;  // after the zero bytes, below
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
    out.resize(out.size() + static_cast<size_t>(zeros), 0);
    st.zero_bytes = zeros;
    if (cfg.damage == RtcmDamage::Trailing) {
        out.push_back(RTCM_PREAMBLE);
        if (cfg.trailing_bytes == 2) out.push_back(0x00);
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
