// Deterministic EPO sample data. See epo_gen.h.
#include "tools/epo_gen.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "tools/gen_common.h"

// ---------------------------------------------------------------------------
// Kinds and names

namespace {

struct KindInfo {
    EpoGenKind kind;
    EpoGenSystem sys;
    int days;
    const char *token;
    const char *name;  // null for Gal, whose name carries the day count
};

const KindInfo kKinds[EPO_GEN_KIND_COUNT] = {
    {EpoGenKind::Gps, EpoGenSystem::Gps, 3, "gps", "EPO_GPS_3_1.DAT"},
    {EpoGenKind::Gr, EpoGenSystem::GpsGlonass, 3, "gr", "EPO_GR_3_1.DAT"},
    {EpoGenKind::Gal, EpoGenSystem::Galileo, 7, "gal", nullptr},
    {EpoGenKind::Bds, EpoGenSystem::Beidou, 3, "bds", "EPO_BDS_3.DAT"},
    {EpoGenKind::VGps, EpoGenSystem::Gps, 3, "vgps", "VGPS.DAT"},
    {EpoGenKind::VGr, EpoGenSystem::GpsGlonass, 3, "vgr", "VG_R.DAT"},
    {EpoGenKind::VGal, EpoGenSystem::Galileo, 3, "vga", "VGA.DAT"},
    {EpoGenKind::VBds, EpoGenSystem::Beidou, 3, "vbd2", "VBD2.DAT"},
    {EpoGenKind::ElpoGps, EpoGenSystem::Gps, 3, "elpo-gps", "ELPO_GPS_3.DAT"},
    {EpoGenKind::ElpoGr, EpoGenSystem::GpsGlonass, 3, "elpo-gr", "ELPO_GR3_1.DAT"},
    {EpoGenKind::ElpoBds, EpoGenSystem::Beidou, 3, "elpo-bds", "ELPO_BDS_3.DAT"},
    {EpoGenKind::ElpoGal, EpoGenSystem::Galileo, 3, "elpo-gal", "ELPO_GAL_3.DAT"},
    {EpoGenKind::ElpoGlo, EpoGenSystem::Glonass, 3, "elpo-glo", "ELPO_GLO_3.DAT"},
    {EpoGenKind::ElpoQzss, EpoGenSystem::Qzss, 3, "elpo-qzss", "ELPO_QZSS_3.DAT"},
    {EpoGenKind::ElpoGps7, EpoGenSystem::Gps, 7, "elpo-gps-7", "ELPO_GPS_07days.DAT"},
    {EpoGenKind::ElpoGlo7, EpoGenSystem::Glonass, 7, "elpo-glo-7", "ELPO_GLO_07days.DAT"},
    {EpoGenKind::ElpoGal7, EpoGenSystem::Galileo, 7, "elpo-gal-7", "ELPO_GAL_07days.DAT"},
    {EpoGenKind::ElpoBd7, EpoGenSystem::Beidou, 7, "elpo-bd-7", "ELPO_BD_07days.DAT"},
    {EpoGenKind::ElpoQzss7, EpoGenSystem::Qzss, 7, "elpo-qzss-7", "ELPO_QZSS_07days.DAT"},
    {EpoGenKind::VelpoGps, EpoGenSystem::Gps, 3, "velpo-gps", "VELPO_GPS.DAT"},
    {EpoGenKind::VelpoGlo, EpoGenSystem::Glonass, 3, "velpo-glo", "VELPO_GLO.DAT"},
    {EpoGenKind::VelpoGal, EpoGenSystem::Galileo, 3, "velpo-gal", "VELPO_GAL.DAT"},
    {EpoGenKind::VelpoBds, EpoGenSystem::Beidou, 3, "velpo-bds", "VELPO_BDS.DAT"},
    {EpoGenKind::VelpoQzss, EpoGenSystem::Qzss, 3, "velpo-qzss", "VELPO_QZSS.DAT"},
    {EpoGenKind::VelpoGr, EpoGenSystem::GpsGlonass, 3, "velpo-gr", "VELPO_GR.DAT"},
};

const KindInfo &info(EpoGenKind kind) {
    for (const auto &k : kKinds)
        if (k.kind == kind) return k;
    return kKinds[0];
}

bool all_digits(const std::string &s) {
    if (s.empty()) return false;
    for (char c : s)
        if (c < '0' || c > '9') return false;
    return true;
}

// name == prefix + digits + suffix; the digits are stored in *number.
bool numbered(const std::string &name, const char *prefix, const char *suffix, int *number) {
    const size_t pl = std::strlen(prefix), sl = std::strlen(suffix);
    if (name.size() <= pl + sl) return false;
    if (name.compare(0, pl, prefix) != 0) return false;
    if (name.compare(name.size() - sl, sl, suffix) != 0) return false;
    const std::string mid = name.substr(pl, name.size() - pl - sl);
    if (!all_digits(mid) || mid.size() > 6) return false;
    if (number) *number = std::atoi(mid.c_str());
    return true;
}

}  // namespace

EpoGenSystem epogen_kind_system(EpoGenKind kind) { return info(kind).sys; }

int epogen_default_days(EpoGenKind kind) { return info(kind).days; }

std::string epogen_default_name(EpoGenKind kind, int days) {
    const KindInfo &k = info(kind);
    if (k.name) return k.name;
    if (days <= 0) days = k.days;
    return "EPO_GAL_" + std::to_string(days) + ".DAT";
}

std::string epogen_default_name(const EpoGenConfig &cfg) {
    return epogen_default_name(cfg.kind, epogen_days(cfg));
}

const char *epogen_kind_token(EpoGenKind kind) { return info(kind).token; }

EpoGenKind epogen_kind_at(int index) {
    if (index < 0 || index >= EPO_GEN_KIND_COUNT) return EpoGenKind::Gps;
    return kKinds[index].kind;
}

bool epogen_kind_from_name(const char *path, EpoGenKind *kind, int *days) {
    if (!path) return false;
    const char *slash = std::strrchr(path, '/');
    const char *bslash = std::strrchr(path, '\\');
    const char *base = path;
    if (slash && slash + 1 > base) base = slash + 1;
    if (bslash && bslash + 1 > base) base = bslash + 1;
    const std::string name = base;
    for (const auto &k : kKinds)
        if (k.name && name == k.name) {
            if (kind) *kind = k.kind;
            return true;
        }
    int n = 0;
    if (numbered(name, "EPO_GPS_3_", ".DAT", &n)) {
        if (kind) *kind = EpoGenKind::Gps;
        return true;
    }
    if (numbered(name, "EPO_GR_3_", ".DAT", &n)) {
        if (kind) *kind = EpoGenKind::Gr;
        return true;
    }
    if (numbered(name, "ELPO_GR3_", ".DAT", &n)) {
        if (kind) *kind = EpoGenKind::ElpoGr;
        return true;
    }
    if (numbered(name, "EPO_GAL_", ".DAT", &n) && n > 0) {
        if (kind) *kind = EpoGenKind::Gal;
        if (days) *days = n;
        return true;
    }
    return false;
}

bool epogen_parse_kind(const char *text, EpoGenKind *kind) {
    if (!text) return false;
    for (const auto &k : kKinds)
        if (std::strcmp(text, k.token) == 0) {
            if (kind) *kind = k.kind;
            return true;
        }
    if (std::strcmp(text, "glo") == 0) {
        if (kind) *kind = EpoGenKind::ElpoGlo;
        return true;
    }
    if (std::strcmp(text, "qzss") == 0) {
        if (kind) *kind = EpoGenKind::ElpoQzss;
        return true;
    }
    return epogen_kind_from_name(text, kind, nullptr);
}

namespace {

struct DamageInfo {
    EpoGenDamage damage;
    const char *token;
    int64_t default_value;
};

const DamageInfo kDamages[] = {
    {EpoGenDamage::None, "none", 0},
    {EpoGenDamage::Short, "short", 100},
    {EpoGenDamage::UnknownSvid, "unknown-svid", 0},
    {EpoGenDamage::EmptyHeader, "empty-header", 0},
    {EpoGenDamage::ExtraBytes, "extra-bytes", 72},
    {EpoGenDamage::GpsInGlonassSlot, "gps-in-glonass-slot", 65},
};

const DamageInfo &damage_info(EpoGenDamage d) {
    for (const auto &k : kDamages)
        if (k.damage == d) return k;
    return kDamages[0];
}

}  // namespace

const char *epogen_damage_token(EpoGenDamage damage) { return damage_info(damage).token; }

bool epogen_parse_damage(const char *text, EpoGenDamage *damage) {
    if (!text) return false;
    std::string t = text;
    std::replace(t.begin(), t.end(), '_', '-');
    for (const auto &k : kDamages)
        if (t == k.token) {
            if (damage) *damage = k.damage;
            return true;
        }
    return false;
}

int64_t epogen_damage_value(const EpoGenConfig &cfg) {
    return cfg.damage_value == -1 ? damage_info(cfg.damage).default_value : cfg.damage_value;
}

// ---------------------------------------------------------------------------
// Satellites and layout

namespace {

int max_sat(EpoGenSystem sys) {
    switch (sys) {
        case EpoGenSystem::Gps: return 32;
        case EpoGenSystem::Glonass: return 24;
        case EpoGenSystem::Galileo: return 36;
        case EpoGenSystem::Beidou: return 63;
        case EpoGenSystem::Qzss: return 7;
        case EpoGenSystem::GpsGlonass: return 0;
    }
    return 0;
}

std::vector<int> range(int lo, int hi) {
    std::vector<int> v;
    for (int i = lo; i <= hi; ++i) v.push_back(i);
    return v;
}

bool header_system(EpoGenSystem sys) {
    return sys == EpoGenSystem::Galileo || sys == EpoGenSystem::Beidou;
}

// The header list as used: cfg.sats sorted without duplicates, or the
// default set.
std::vector<int> used_sats(const EpoGenConfig &cfg) {
    const EpoGenSystem sys = epogen_kind_system(cfg.kind);
    if (!header_system(sys)) return std::vector<int>();
    if (cfg.sats.empty()) return epogen_default_sats(sys);
    std::vector<int> v = cfg.sats;
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end()), v.end());
    return v;
}

}  // namespace

std::vector<int> epogen_default_sats(EpoGenSystem sys) {
    switch (sys) {
        case EpoGenSystem::Gps: return range(1, 32);
        case EpoGenSystem::Glonass: return range(1, 24);
        case EpoGenSystem::Qzss: return range(1, 7);
        case EpoGenSystem::Galileo: {
            // A few slots stay empty, as in a real constellation; 33..36 keep the
            // upper mask word in use.
            std::vector<int> v;
            for (int s = 1; s <= 36; ++s)
                if (s != 17 && s != 20 && s != 22 && s != 28 && s != 32) v.push_back(s);
            return v;
        }
        case EpoGenSystem::Beidou: {
            // The second-generation satellites, the third-generation ones and a
            // few of the high PRNs that take the 190..198 SVIDs.
            std::vector<int> v = range(1, 16);
            for (int s = 19; s <= 46; ++s) v.push_back(s);
            for (int s = 56; s <= 62; ++s) v.push_back(s);
            return v;
        }
        case EpoGenSystem::GpsGlonass: break;
    }
    return std::vector<int>();
}

int epogen_svid_of(EpoGenSystem sys, int sat) {
    if (sat < 1 || sat > max_sat(sys)) return -1;
    switch (sys) {
        case EpoGenSystem::Gps: return sat;
        case EpoGenSystem::Glonass: return 64 + sat;
        case EpoGenSystem::Galileo: return 100 + sat;
        case EpoGenSystem::Beidou: return sat <= 54 ? 200 + sat : 135 + sat;
        case EpoGenSystem::Qzss: return 192 + sat;
        case EpoGenSystem::GpsGlonass: break;
    }
    return -1;
}

bool epogen_parse_sat_list(const char *text, std::vector<int> *out) {
    if (!text || !*text) return false;
    std::vector<int> v;
    const char *p = text;
    for (;;) {
        char *end = nullptr;
        if (*p < '0' || *p > '9') return false;
        const long lo = std::strtol(p, &end, 10);
        long hi = lo;
        p = end;
        if (*p == '-') {
            ++p;
            if (*p < '0' || *p > '9') return false;
            hi = std::strtol(p, &end, 10);
            p = end;
        }
        if (lo < 1 || hi > 64 || hi < lo) return false;
        for (long s = lo; s <= hi; ++s) v.push_back(static_cast<int>(s));
        if (*p == '\0') break;
        if (*p != ',') return false;
        ++p;
    }
    if (out) *out = v;
    return true;
}

bool epogen_has_header(EpoGenKind kind) { return header_system(epogen_kind_system(kind)); }

int epogen_days(const EpoGenConfig &cfg) {
    return cfg.days > 0 ? cfg.days : epogen_default_days(cfg.kind);
}

uint32_t epogen_segment_count(const EpoGenConfig &cfg) {
    if (cfg.segments > 0) return static_cast<uint32_t>(cfg.segments);
    return static_cast<uint32_t>(epogen_days(cfg)) * EPO_SEGMENTS_PER_DAY;
}

std::vector<int> epogen_segment_svids(const EpoGenConfig &cfg) {
    const EpoGenSystem sys = epogen_kind_system(cfg.kind);
    std::vector<int> v;
    if (sys == EpoGenSystem::GpsGlonass) {
        for (int s = 1; s <= 32; ++s) v.push_back(epogen_svid_of(EpoGenSystem::Gps, s));
        for (int s = 1; s <= 24; ++s) v.push_back(epogen_svid_of(EpoGenSystem::Glonass, s));
        return v;
    }
    const std::vector<int> sats = header_system(sys) ? used_sats(cfg) : epogen_default_sats(sys);
    for (int s : sats) v.push_back(epogen_svid_of(sys, s));
    return v;
}

uint32_t epogen_records_per_segment(const EpoGenConfig &cfg) {
    switch (epogen_kind_system(cfg.kind)) {
        case EpoGenSystem::Gps: return 32;
        case EpoGenSystem::GpsGlonass: return 56;
        case EpoGenSystem::Glonass: return 24;
        case EpoGenSystem::Qzss: return 7;
        case EpoGenSystem::Galileo:
        case EpoGenSystem::Beidou: return static_cast<uint32_t>(used_sats(cfg).size());
    }
    return 0;
}

uint32_t epogen_segment_bytes(const EpoGenConfig &cfg) {
    return epogen_records_per_segment(cfg) * EPO_RECORD_BYTES;
}

uint32_t epogen_record_count(const EpoGenConfig &cfg) {
    return (epogen_has_header(cfg.kind) ? 1u : 0u) +
           epogen_segment_count(cfg) * epogen_records_per_segment(cfg);
}

uint64_t epogen_file_size(const EpoGenConfig &cfg) {
    return static_cast<uint64_t>(epogen_record_count(cfg)) * EPO_RECORD_BYTES;
}

std::vector<int> epogen_header_prns(const EpoGenConfig &cfg) { return used_sats(cfg); }

uint64_t epogen_header_mask(const EpoGenConfig &cfg) {
    uint64_t m = 0;
    for (int s : used_sats(cfg))
        if (s >= 1 && s <= 64) m |= uint64_t(1) << (s - 1);
    return m;
}

int epogen_expected_svid(const EpoGenConfig &cfg, uint32_t i) {
    if (i >= epogen_record_count(cfg)) return -1;
    if (epogen_has_header(cfg.kind)) {
        if (i == 0) return EPO_HEADER_SVID;
        --i;
    }
    const std::vector<int> seg = epogen_segment_svids(cfg);
    return seg[i % seg.size()];
}

uint32_t epogen_expected_hour(const EpoGenConfig &cfg, uint32_t i) {
    if (i >= epogen_record_count(cfg)) return 0;
    if (epogen_has_header(cfg.kind)) {
        if (i == 0) return cfg.start_hour;
        --i;
    }
    const uint32_t k = i / epogen_records_per_segment(cfg);
    return cfg.start_hour + EPO_SEGMENT_HOURS * k;
}

// ---------------------------------------------------------------------------
// Generation

namespace {

void put_u32(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
    p[3] = static_cast<uint8_t>(v >> 24);
}

void put_hour(uint8_t *rec, uint32_t hour) {
    rec[0] = static_cast<uint8_t>(hour);
    rec[1] = static_cast<uint8_t>(hour >> 8);
    rec[2] = static_cast<uint8_t>(hour >> 16);
}

}  // namespace

void epogen_make_record(uint64_t seed, uint32_t hour, uint8_t svid, uint8_t out[EPO_RECORD_BYTES]) {
    put_hour(out, hour);
    out[3] = svid;
    uint64_t state = seed * 0xD1B54A32D192ED03ull ^ ((static_cast<uint64_t>(hour) << 8) | svid);
    for (uint32_t off = 4; off < EPO_RECORD_BYTES; off += 8) {
        const uint64_t r = gen_splitmix64(state);
        for (uint32_t b = 0; b < 8 && off + b < EPO_RECORD_BYTES; ++b)
            out[off + b] = static_cast<uint8_t>(r >> (8 * b));
    }
}

bool epogen_validate(const EpoGenConfig &cfg, std::string *err) {
    auto fail = [err](const std::string &why) {
        if (err) *err = why;
        return false;
    };
    bool known = false;
    for (const auto &k : kKinds)
        if (k.kind == cfg.kind) known = true;
    if (!known) return fail("unknown kind");
    if (cfg.days < 0 || cfg.days > 10000)
        return fail("days must be 1..10000 (or 0 for the default)");
    if (cfg.segments < 0 || cfg.segments > 40000)
        return fail("segments must be 1..40000 (or 0 for days x 4)");
    const EpoGenSystem sys = epogen_kind_system(cfg.kind);
    const uint32_t segs = epogen_segment_count(cfg);
    if (segs == 0) return fail("no segments");
    if (cfg.start_hour > EPO_MAX_HOUR ||
        static_cast<uint64_t>(cfg.start_hour) + uint64_t(EPO_SEGMENT_HOURS) * (segs - 1) >
            EPO_MAX_HOUR)
        return fail("GPS hours do not fit the 24-bit hour field");
    if (header_system(sys)) {
        for (int s : cfg.sats)
            if (s < 1 || s > max_sat(sys))
                return fail("satellite " + std::to_string(s) + " outside 1.." +
                            std::to_string(max_sat(sys)));
        if (used_sats(cfg).empty()) return fail("no satellites");
    } else if (!cfg.sats.empty()) {
        return fail("a satellite list applies to Galileo and BeiDou kinds only");
    }
    const int64_t v = epogen_damage_value(cfg);
    const uint64_t size = epogen_file_size(cfg);
    switch (cfg.damage) {
        case EpoGenDamage::None: break;
        case EpoGenDamage::Short:
            if (v < 0 || static_cast<uint64_t>(v) >= size)
                return fail("short: the length must be less than the file size " +
                            std::to_string(size));
            break;
        case EpoGenDamage::UnknownSvid:
            if (v < 0 || v > 255) return fail("unknown-svid: the SVID must be 0..255");
            if (epogen_record_count(cfg) < 2)
                return fail("unknown-svid: the file has no second record");
            break;
        case EpoGenDamage::EmptyHeader:
            if (!header_system(sys))
                return fail("empty-header: only Galileo and BeiDou files have a header");
            break;
        case EpoGenDamage::ExtraBytes:
            if (v < 1 || v > 1000000) return fail("extra-bytes: the count must be 1..1000000");
            break;
        case EpoGenDamage::GpsInGlonassSlot:
            if (sys != EpoGenSystem::Gps) return fail("gps-in-glonass-slot: only GPS-only files");
            if (segs < 2) return fail("gps-in-glonass-slot: needs at least 2 segments");
            if (v < 0 || v > 255) return fail("gps-in-glonass-slot: the SVID must be 0..255");
            break;
        default: return fail("unknown damage");
    }
    return true;
}

std::vector<uint8_t> epogen_generate(const EpoGenConfig &cfg, EpoGenStats *stats) {
    EpoGenStats st;
    std::vector<uint8_t> out;
    if (!epogen_validate(cfg, nullptr)) {
        if (stats) *stats = st;
        return out;
    }
    const uint32_t segs = epogen_segment_count(cfg);
    const std::vector<int> svids = epogen_segment_svids(cfg);
    const bool header = epogen_has_header(cfg.kind);
    out.reserve(static_cast<size_t>(epogen_file_size(cfg)) + 1024);

    uint8_t rec[EPO_RECORD_BYTES];
    if (header) {
        std::memset(rec, 0, sizeof rec);
        put_hour(rec, cfg.start_hour);
        rec[3] = EPO_HEADER_SVID;
        const uint64_t mask = cfg.damage == EpoGenDamage::EmptyHeader ? 0 : epogen_header_mask(cfg);
        put_u32(rec + 4, static_cast<uint32_t>(mask));
        put_u32(rec + 16, static_cast<uint32_t>(mask >> 32));
        out.insert(out.end(), rec, rec + EPO_RECORD_BYTES);
        st.header_mask = mask;
    }
    for (uint32_t k = 0; k < segs; ++k) {
        const uint32_t hour = cfg.start_hour + EPO_SEGMENT_HOURS * k;
        for (int svid : svids) {
            epogen_make_record(cfg.seed, hour, static_cast<uint8_t>(svid), rec);
            out.insert(out.end(), rec, rec + EPO_RECORD_BYTES);
        }
    }
    st.segments = segs;
    st.records_per_segment = static_cast<uint32_t>(svids.size());
    st.records = epogen_record_count(cfg);
    st.header = header;
    st.first_hour = cfg.start_hour;
    st.last_hour = cfg.start_hour + EPO_SEGMENT_HOURS * (segs - 1);

    const int64_t v = epogen_damage_value(cfg);
    switch (cfg.damage) {
        case EpoGenDamage::None:
        case EpoGenDamage::EmptyHeader: break;
        case EpoGenDamage::Short: out.resize(static_cast<size_t>(v)); break;
        case EpoGenDamage::UnknownSvid: out[EPO_RECORD_BYTES + 3] = static_cast<uint8_t>(v); break;
        case EpoGenDamage::ExtraBytes: {
            uint64_t state = cfg.seed ^ 0x5EEDF111E7ull;
            for (int64_t i = 0; i < v; ++i)
                out.push_back(static_cast<uint8_t>(gen_splitmix64(state) >> 24));
            break;
        }
        case EpoGenDamage::GpsInGlonassSlot:
            out[32 * EPO_RECORD_BYTES + 3] = static_cast<uint8_t>(v);
            break;
    }
    st.bytes = out.size();
    if (stats) *stats = st;
    return out;
}

bool epogen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err) {
    return gen_write_bytes(path, bytes, err);
}

bool epogen_write_file(const EpoGenConfig &cfg, const char *path, EpoGenStats *stats,
                       std::string *err) {
    if (!epogen_validate(cfg, err)) return false;
    const std::vector<uint8_t> bytes = epogen_generate(cfg, stats);
    return epogen_write_bytes(path, bytes, err);
}
