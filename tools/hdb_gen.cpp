// Deterministic ".hdb" ephemeris sample data. See hdb_gen.h.
#include "tools/hdb_gen.h"

#include <cstdio>
#include <cstring>

#include "toolkit/checksum.h"
#include "tools/gen_common.h"
#include "tools/tool_cli.h"

namespace {

constexpr uint64_t kWeekSeconds = 604800;
// BDT began at GPS week 1356, second 14: a BDT reading is the GPS reading
// less 14 s, weeks counted from there.
constexpr uint64_t kBdtEpochGpsSeconds = 1356 * kWeekSeconds + 14;
// A cap well above any 3-day or 7-day file, so that a mistyped --size
// cannot ask for gigabytes.
constexpr uint64_t kMaxMinSize = uint64_t(1) << 30;
constexpr int kMaxSets = 100000;

void put_u16(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void put_u32(uint8_t *p, uint32_t v) {
    put_u16(p, v);
    put_u16(p + 2, v >> 16);
}

uint32_t get_u16(const uint8_t *p) { return static_cast<uint32_t>(p[0]) | (uint32_t(p[1]) << 8); }

uint32_t get_u32(const uint8_t *p) { return get_u16(p) | (get_u16(p + 2) << 16); }

bool fail(std::string *err, const std::string &text) {
    if (err) *err = text;
    return false;
}

// Satellites of a count field; a negative count (an unchecked config) as 0.
uint64_t sat_count(int n) { return n > 0 ? static_cast<uint64_t>(n) : 0; }

// Bytes of the undamaged file with the given number of sets.
uint64_t size_with_sets(const HdbGenConfig &cfg, uint64_t sets) {
    uint64_t total = 0;
    if (hdbgen_has_gps(cfg)) {
        const uint64_t n = sets * sat_count(cfg.gps_sats);
        total += n * HDB_GPS_RECORD_BYTES +
                 (n + HDB_RECORDS_PER_FRAME - 1) / HDB_RECORDS_PER_FRAME * HDB_FRAME_OVERHEAD;
    }
    if (hdbgen_has_bds(cfg)) {
        const uint64_t n = sets * sat_count(cfg.bds_sats);
        total += n * HDB_BDS_RECORD_BYTES +
                 (n + HDB_RECORDS_PER_FRAME - 1) / HDB_RECORDS_PER_FRAME * HDB_FRAME_OVERHEAD;
    }
    return total;
}

// Records in frame j of a system holding n records.
uint32_t records_in_frame(uint32_t n, uint32_t j) {
    const uint32_t first = j * HDB_RECORDS_PER_FRAME;
    if (first >= n) return 0;
    return n - first < HDB_RECORDS_PER_FRAME ? n - first : HDB_RECORDS_PER_FRAME;
}

// Records of frame k of the whole file (GPS frames first).
uint32_t records_in_file_frame(const HdbGenConfig &cfg, uint32_t k) {
    const uint32_t gf = hdbgen_frame_count(cfg, 'G');
    if (k < gf) return records_in_frame(hdbgen_record_count(cfg, 'G'), k);
    return records_in_frame(hdbgen_record_count(cfg, 'B'), k - gf);
}

// Fills out with successive splitmix64 outputs, little-endian.
void fill_bytes(uint64_t state, uint8_t *out, uint32_t len) {
    for (uint32_t i = 0; i < len; i += 8) {
        const uint64_t v = gen_splitmix64(state);
        for (uint32_t b = 0; b < 8 && i + b < len; ++b)
            out[i + b] = static_cast<uint8_t>(v >> 8 * b);
    }
}

uint64_t record_state(uint64_t seed, char sys, int sat, uint64_t time) {
    uint64_t s = seed * 0xD1B54A32D192ED03ull;
    s ^= static_cast<uint64_t>(static_cast<unsigned char>(sys)) << 56;
    s ^= static_cast<uint64_t>(sat) << 48;
    s ^= time;
    return s;
}

}  // namespace

uint32_t hdb_record_bytes(uint8_t id) {
    switch (id) {
        case HDB_ID_GPS: return HDB_GPS_RECORD_BYTES;
        case HDB_ID_BDS: return HDB_BDS_RECORD_BYTES;
        default: return 0;
    }
}

// ---------------------------------------------------------------------------
// Time

HdbSetTime hdbgen_set_time(const HdbGenConfig &cfg, int set) {
    HdbSetTime t{};
    const uint64_t gps = static_cast<uint64_t>(cfg.week) * kWeekSeconds + cfg.toe +
                         static_cast<uint64_t>(set) * HDB_SET_INTERVAL;
    t.gps_week = static_cast<uint32_t>(gps / kWeekSeconds);
    t.gps_toe = static_cast<uint32_t>(gps % kWeekSeconds);
    // GPS sets are cut every two hours on even hours of GPS time. BDS uploads
    // its sets on whole hours of BDT, so the BDS set that goes with a GPS set
    // is taken on the same 2-hour grid of BDT, at the point nearest the GPS
    // set's instant: for a GPS toe on the grid that is the same clock reading,
    // 14 s later. A week is 84 grid steps, so rounding the seconds since the
    // BDT start keeps week and toe consistent across week ends.
    if (gps < kBdtEpochGpsSeconds) return t;  // before BDT began: BDS fields stay 0
    const uint64_t bdt = gps - kBdtEpochGpsSeconds;
    const uint64_t grid = (bdt + HDB_SET_INTERVAL / 2) / HDB_SET_INTERVAL * HDB_SET_INTERVAL;
    t.bds_week = static_cast<uint32_t>(grid / kWeekSeconds);
    t.bds_toe = static_cast<uint32_t>(grid % kWeekSeconds);
    return t;
}

// ---------------------------------------------------------------------------
// Layout

bool hdbgen_has_gps(const HdbGenConfig &cfg) { return cfg.systems == "G" || cfg.systems == "GB"; }

bool hdbgen_has_bds(const HdbGenConfig &cfg) { return cfg.systems == "B" || cfg.systems == "GB"; }

uint32_t hdbgen_set_count(const HdbGenConfig &cfg) {
    uint64_t sets = cfg.sets < 1 ? 1 : static_cast<uint64_t>(cfg.sets);
    if (cfg.min_size == 0) return static_cast<uint32_t>(sets);
    const uint64_t one = size_with_sets(cfg, 1);
    if (one == 0) return static_cast<uint32_t>(sets);
    // Each set costs at most `one` bytes (its share of frame overhead never
    // exceeds that of a lone set), so min_size / one sets are never too many.
    const uint64_t low = cfg.min_size / one;
    if (low > sets) sets = low;
    while (size_with_sets(cfg, sets) < cfg.min_size) ++sets;
    return static_cast<uint32_t>(sets);
}

uint32_t hdbgen_record_count(const HdbGenConfig &cfg, char sys) {
    if (sys == 'G' && hdbgen_has_gps(cfg))
        return hdbgen_set_count(cfg) * static_cast<uint32_t>(sat_count(cfg.gps_sats));
    if (sys == 'B' && hdbgen_has_bds(cfg))
        return hdbgen_set_count(cfg) * static_cast<uint32_t>(sat_count(cfg.bds_sats));
    return 0;
}

uint32_t hdbgen_frame_count(const HdbGenConfig &cfg, char sys) {
    return (hdbgen_record_count(cfg, sys) + HDB_RECORDS_PER_FRAME - 1) / HDB_RECORDS_PER_FRAME;
}

uint64_t hdbgen_file_size(const HdbGenConfig &cfg) {
    return size_with_sets(cfg, hdbgen_set_count(cfg));
}

std::string hdbgen_default_name(const HdbGenConfig &cfg) {
    if (cfg.systems == "G") return "HD_GPS.hdb";
    if (cfg.systems == "B") return "HD_BDS.hdb";
    if (cfg.systems == "GB") return "HD_GPS_BDS.hdb";
    return std::string();
}

bool hdbgen_is_usual_name(const char *path) {
    if (!path) return false;
    const char *slash = std::strrchr(path, '/');
    const char *base = slash ? slash + 1 : path;
    return std::strcmp(base, "HD_GPS.hdb") == 0 || std::strcmp(base, "HD_BDS.hdb") == 0 ||
           std::strcmp(base, "HD_GPS_BDS.hdb") == 0;
}

static const struct {
    const char *name;
    HdbDamage kind;
} kDamageNames[] = {
    // the first name of a kind is its token
    {"none", HdbDamage::None},
    {"four-record", HdbDamage::FourRecord},
    {"four_record", HdbDamage::FourRecord},
    {"bad-checksum", HdbDamage::BadChecksum},
    {"bad_checksum", HdbDamage::BadChecksum},
    {"bad-sync", HdbDamage::BadSync},
    {"bad_sync", HdbDamage::BadSync},
    {"unknown-id", HdbDamage::UnknownId},
    {"unknown_id", HdbDamage::UnknownId},
};

const char *hdbgen_damage_token(HdbDamage damage) {
    for (const auto &k : kDamageNames)
        if (k.kind == damage) return k.name;
    return "?";
}

bool hdbgen_parse_damage(const char *text, HdbDamage *damage) {
    if (!text) return false;
    for (const auto &k : kDamageNames)
        if (std::strcmp(text, k.name) == 0) {
            *damage = k.kind;
            return true;
        }
    return false;
}

// ---------------------------------------------------------------------------
// Records and frames

void hdbgen_make_gps_record(uint64_t seed, int sat, uint32_t gps_week, uint32_t gps_toe,
                            uint8_t out[HDB_GPS_RECORD_BYTES]) {
    const uint64_t time = static_cast<uint64_t>(gps_week) * kWeekSeconds + gps_toe;
    fill_bytes(record_state(seed, 'G', sat, time), out, HDB_GPS_RECORD_BYTES);
    out[0] = static_cast<uint8_t>(sat);
    put_u16(out + HDB_GPS_TOE_OFFSET, gps_toe / 16);
    put_u16(out + HDB_GPS_WEEK_OFFSET, gps_week - HDB_GPS_WEEK_BASE);
}

void hdbgen_make_bds_record(uint64_t seed, int sat, uint32_t bds_week, uint32_t bds_toe,
                            uint8_t out[HDB_BDS_RECORD_BYTES]) {
    const uint64_t time = static_cast<uint64_t>(bds_week) * kWeekSeconds + bds_toe;
    fill_bytes(record_state(seed, 'B', sat, time), out, HDB_BDS_RECORD_BYTES);
    out[0] = static_cast<uint8_t>(sat);
    put_u32(out + HDB_BDS_TOE_OFFSET, bds_toe / 8);
    put_u16(out + HDB_BDS_WEEK_OFFSET, bds_week);
}

uint16_t hdb_frame_checksum(const uint8_t *frame, size_t frame_len) {
    if (!frame || frame_len < HDB_FRAME_OVERHEAD) return 0;
    return Vk_Check_Varnok(frame, static_cast<uint32_t>(frame_len - 2));
}

// Stores the checksum of the frame starting at frame; the length is taken
// from its header.
static void seal_frame(uint8_t *frame) {
    const size_t len = HDB_FRAME_OVERHEAD + get_u16(frame + 4);
    const uint16_t ck = hdb_frame_checksum(frame, len);
    frame[len - 2] = static_cast<uint8_t>(ck);
    frame[len - 1] = static_cast<uint8_t>(ck >> 8);
}

bool hdb_append_frame(std::vector<uint8_t> &out, uint8_t id, const uint8_t *payload, uint32_t len) {
    if (len > HDB_MAX_PAYLOAD) return false;
    const size_t start = out.size();
    const uint8_t head[HDB_HEADER_BYTES] = {HDB_SYNC1, HDB_SYNC2, HDB_CLASS, id, 0, 0};
    out.insert(out.end(), head, head + HDB_HEADER_BYTES);
    put_u16(out.data() + start + 4, len);
    if (len > 0) out.insert(out.end(), payload, payload + len);
    out.resize(out.size() + 2);
    seal_frame(out.data() + start);
    return true;
}

// ---------------------------------------------------------------------------
// Generator

bool hdbgen_validate(const HdbGenConfig &cfg, std::string *err) {
    if (cfg.systems == "BG") return fail(err, "a combined file holds GPS first: use GB");
    if (!hdbgen_has_gps(cfg) && !hdbgen_has_bds(cfg))
        return fail(err, "systems must be G, B or GB");
    if (hdbgen_has_gps(cfg) && (cfg.gps_sats < 1 || cfg.gps_sats > HDB_GPS_MAX_SAT))
        return fail(err, "GPS satellites must be 1..32");
    if (hdbgen_has_bds(cfg) && (cfg.bds_sats < 1 || cfg.bds_sats > HDB_BDS_MAX_SAT))
        return fail(err, "BDS satellites must be 1..63");
    if (cfg.toe >= kWeekSeconds) return fail(err, "toe must be below 604800");
    if (cfg.toe % 16 != 0)
        return fail(err, "toe must be a multiple of 16 (GPS toe is kept in 16 s)");
    if (cfg.sets < 1 || cfg.sets > kMaxSets) return fail(err, "sets must be 1..100000");
    if (cfg.min_size > kMaxMinSize) return fail(err, "size must not exceed 1 GiB");
    if (cfg.week < HDB_GPS_WEEK_MIN || cfg.week > HDB_GPS_WEEK_MAX)
        return fail(err, "GPS week must be 2048..4095");
    const uint32_t sets = hdbgen_set_count(cfg);
    if (hdbgen_set_time(cfg, static_cast<int>(sets) - 1).gps_week > HDB_GPS_WEEK_MAX)
        return fail(err, "the last set falls after GPS week 4095");
    if (cfg.damage != HdbDamage::None) {
        const uint32_t frames = hdbgen_frame_count(cfg, 'G') + hdbgen_frame_count(cfg, 'B');
        if (cfg.damage_frame < -1) return fail(err, "damaged frame index must be -1 or more");
        if (cfg.damage_frame >= 0 && static_cast<uint32_t>(cfg.damage_frame) >= frames)
            return fail(err, "damaged frame index beyond the last frame (the file has " +
                                 std::to_string(frames) + ")");
        const uint32_t k =
            cfg.damage_frame < 0 ? frames - 1 : static_cast<uint32_t>(cfg.damage_frame);
        if (cfg.damage == HdbDamage::FourRecord &&
            records_in_file_frame(cfg, k) != HDB_RECORDS_PER_FRAME)
            return fail(err, "four-record needs a frame of 5 records; frame " + std::to_string(k) +
                                 " holds " + std::to_string(records_in_file_frame(cfg, k)));
    }
    return true;
}

namespace {

struct PendingFrame {
    uint8_t id;
    std::vector<uint8_t> payload;
};

// Packs one system's records, set by set, into frames of 5.
void pack_system(const HdbGenConfig &cfg, char sys, uint32_t sets,
                 std::vector<PendingFrame> &frames) {
    const bool gps = sys == 'G';
    const uint8_t id = gps ? HDB_ID_GPS : HDB_ID_BDS;
    const uint32_t rec_bytes = hdb_record_bytes(id);
    const int sats = gps ? cfg.gps_sats : cfg.bds_sats;
    uint8_t rec[HDB_BDS_RECORD_BYTES];
    for (uint32_t k = 0; k < sets; ++k) {
        const HdbSetTime t = hdbgen_set_time(cfg, static_cast<int>(k));
        for (int sat = 1; sat <= sats; ++sat) {
            if (gps)
                hdbgen_make_gps_record(cfg.seed, sat, t.gps_week, t.gps_toe, rec);
            else
                hdbgen_make_bds_record(cfg.seed, sat, t.bds_week, t.bds_toe, rec);
            if (frames.empty() || frames.back().id != id ||
                frames.back().payload.size() == HDB_RECORDS_PER_FRAME * rec_bytes)
                frames.push_back(PendingFrame{id, {}});
            frames.back().payload.insert(frames.back().payload.end(), rec, rec + rec_bytes);
        }
    }
}

}  // namespace

std::vector<uint8_t> hdbgen_generate(const HdbGenConfig &cfg, HdbGenStats *stats) {
    HdbGenStats st;
    std::vector<uint8_t> out;
    if (!hdbgen_validate(cfg, nullptr)) {
        if (stats) *stats = st;
        return out;
    }
    const uint32_t sets = hdbgen_set_count(cfg);
    std::vector<PendingFrame> frames;
    if (hdbgen_has_gps(cfg)) pack_system(cfg, 'G', sets, frames);
    if (hdbgen_has_bds(cfg)) pack_system(cfg, 'B', sets, frames);

    const size_t k =
        cfg.damage_frame < 0 ? frames.size() - 1 : static_cast<size_t>(cfg.damage_frame);
    if (cfg.damage == HdbDamage::FourRecord) {
        std::vector<uint8_t> &p = frames[k].payload;
        p.resize(p.size() - hdb_record_bytes(frames[k].id));
    }

    out.reserve(static_cast<size_t>(hdbgen_file_size(cfg)));
    for (size_t i = 0; i < frames.size(); ++i) {
        const size_t start = out.size();
        const PendingFrame &f = frames[i];
        hdb_append_frame(out, f.id, f.payload.data(), static_cast<uint32_t>(f.payload.size()));
        const uint32_t records = static_cast<uint32_t>(f.payload.size()) / hdb_record_bytes(f.id);
        if (f.id == HDB_ID_GPS) {
            ++st.gps_frames;
            st.gps_records += records;
        } else {
            ++st.bds_frames;
            st.bds_records += records;
        }
        if (i != k) continue;
        uint8_t *frame = out.data() + start;
        const size_t len = out.size() - start;
        switch (cfg.damage) {
            case HdbDamage::None:
            case HdbDamage::FourRecord: break;
            case HdbDamage::BadChecksum:
                frame[len - 2] = static_cast<uint8_t>(~frame[len - 2]);
                break;
            case HdbDamage::BadSync:
                // One bit off the second sync byte: F1 D8 still looks like a
                // frame start to a reader that checks only the first byte.
                // The checksum does not cover the sync bytes and stays right.
                frame[1] = static_cast<uint8_t>(HDB_SYNC2 ^ 0x01);
                break;
            case HdbDamage::UnknownId:
                // Recomputed, so that the id is the frame's only fault.
                frame[3] = HDB_ID_UNKNOWN;
                seal_frame(frame);
                break;
        }
    }
    st.sets = sets;
    st.frames = st.gps_frames + st.bds_frames;
    st.bytes = out.size();
    if (stats) *stats = st;
    return out;
}

bool hdbgen_write_file(const HdbGenConfig &cfg, const char *path, HdbGenStats *stats,
                       std::string *err) {
    if (!hdbgen_validate(cfg, err)) return false;
    const std::vector<uint8_t> bytes = hdbgen_generate(cfg, stats);
    if (bytes.empty()) return fail(err, "generation failed");
    return gen_write_bytes(path, bytes, err);
}

// ---------------------------------------------------------------------------
// Command line

static void usage(std::FILE *to) {
    std::fprintf(
        to,
        "usage: vkagnss-hdbgen -o FILE [options]\n"
        "Writes an HD8XXX \".hdb\" ephemeris file: binary frames F1 D9 0B <id> of up to 5\n"
        "records each, GPS (id 0x32, 65-byte records) then BDS (id 0x33, 92-byte records),\n"
        "with deterministic record contents. The tool takes these files under exactly the\n"
        "names HD_GPS.hdb, HD_BDS.hdb and HD_GPS_BDS.hdb.\n"
        "  -o FILE               output file (required)\n"
        "  --systems SYS         G, B or GB (GPS frames first; default GB)\n"
        "  --gps-sats N          GPS satellites 1..N, N up to 32 (default 32)\n"
        "  --bds-sats N          BDS satellites 1..N, N up to 63 (default 14)\n"
        "  --week W              GPS week of the first set, 2048..4095 (default 2400)\n"
        "  --toe S               GPS toe of the first set in seconds, a multiple of 16\n"
        "                        (default 345600); BDS takes the 2-hour BDT grid point\n"
        "                        nearest the same instant\n"
        "  --sets N              ephemeris sets 2 hours apart (default 1; 36 = 3 days)\n"
        "  --size BYTES          add sets until the file holds at least BYTES\n"
        "  --seed N              record seed (default 1)\n"
        "  --damage KIND         none, four-record, bad-checksum, bad-sync or unknown-id\n"
        "                        (default none)\n"
        "  --damage-frame K      frame damaged, from 0 over the whole file; -1 = last\n"
        "                        (default 0); four-record needs a frame of 5 records\n"
        "  --help                this text\n");
}

int hdbgen_main(int argc, char **argv) {
    HdbGenConfig cfg;
    const char *out_path = nullptr;

    CliArgs args = cli_args("vkagnss-hdbgen", usage, argc, argv);
    CliOption o;
    CliRead r;
    while ((r = cli_read(args, &o)) == CliRead::Option) {
        const char *v = o.value;
        bool ok = true;
        if (o.name == "-o" || o.name == "--output") {
            out_path = v;
        } else if (o.name == "--systems") {
            cfg.systems = v;
            ok = hdbgen_has_gps(cfg) || hdbgen_has_bds(cfg);
        } else if (o.name == "--gps-sats") {
            ok = cli_parse_int(v, 1, HDB_GPS_MAX_SAT, &cfg.gps_sats);
        } else if (o.name == "--bds-sats") {
            ok = cli_parse_int(v, 1, HDB_BDS_MAX_SAT, &cfg.bds_sats);
        } else if (o.name == "--week") {
            ok = cli_parse_int(v, HDB_GPS_WEEK_MIN, HDB_GPS_WEEK_MAX, &cfg.week);
        } else if (o.name == "--toe") {
            ok = cli_parse_int(v, 0, 604799, &cfg.toe) && cfg.toe % 16 == 0;
        } else if (o.name == "--sets") {
            ok = cli_parse_int(v, 1, kMaxSets, &cfg.sets);
        } else if (o.name == "--size") {
            ok = cli_parse_u64(v, &cfg.min_size) && cfg.min_size <= kMaxMinSize;
        } else if (o.name == "--seed") {
            ok = cli_parse_u64(v, &cfg.seed);
        } else if (o.name == "--damage") {
            ok = hdbgen_parse_damage(v, &cfg.damage);
        } else if (o.name == "--damage-frame") {
            ok = cli_parse_int(v, -1, 100000000, &cfg.damage_frame);
        } else {
            return cli_usage_error(args, "unknown option " + o.name);
        }
        if (!ok) return cli_bad_value(args, o);
    }
    if (r != CliRead::End) return cli_exit_status(r);
    if (!out_path) return cli_usage_error(args, "-o FILE is required");

    std::string err;
    // A configuration the options allow one by one but not together (a
    // damaged frame past the end, weeks past 4095) is a usage error too.
    if (!hdbgen_validate(cfg, &err)) return cli_usage_error(args, err);
    HdbGenStats st;
    if (!hdbgen_write_file(cfg, out_path, &st, &err)) return cli_fail(args, err, 1);
    const HdbSetTime t = hdbgen_set_time(cfg, 0);
    std::string times;
    if (hdbgen_has_gps(cfg))
        times += ", GPS week " + std::to_string(t.gps_week) + " toe " + std::to_string(t.gps_toe);
    if (hdbgen_has_bds(cfg))
        times += ", BDS week " + std::to_string(t.bds_week) + " toe " + std::to_string(t.bds_toe);
    std::printf(
        "%s: %u frames (GPS %u, BDS %u), %u records (GPS %u, BDS %u), %u sets, %llu bytes%s,"
        " damage %s\n",
        out_path, st.frames, st.gps_frames, st.bds_frames, st.gps_records + st.bds_records,
        st.gps_records, st.bds_records, st.sets, static_cast<unsigned long long>(st.bytes),
        times.c_str(), hdbgen_damage_token(cfg.damage));
    return 0;
}

// ---------------------------------------------------------------------------
// Frame list reader

bool hdb_frame_ok(const HdbFrameInfo &f) {
    return f.sync_ok && f.class_ok && f.checksum_ok && f.records >= 1 &&
           f.records <= HDB_RECORDS_PER_FRAME;
}

HdbSplit hdb_split_frames(const uint8_t *data, size_t len) {
    HdbSplit r;
    size_t pos = 0;
    while (pos < len) {
        if (data[pos] != HDB_SYNC1) {
            r.end = HdbSplitEnd::NotAFrame;
            break;
        }
        if (len - pos < HDB_HEADER_BYTES) {
            r.end = HdbSplitEnd::Incomplete;
            break;
        }
        const uint8_t *h = data + pos;
        const uint32_t plen = get_u16(h + 4);
        const size_t flen = static_cast<size_t>(plen) + HDB_FRAME_OVERHEAD;
        if (len - pos < flen) {
            r.end = HdbSplitEnd::Incomplete;
            break;
        }
        HdbFrameInfo f{};
        f.offset = pos;
        f.id = h[3];
        f.payload_len = plen;
        f.sync_ok = h[1] == HDB_SYNC2;
        f.class_ok = h[2] == HDB_CLASS;
        const uint16_t ck = hdb_frame_checksum(h, flen);
        f.checksum_ok =
            h[flen - 2] == static_cast<uint8_t>(ck) && h[flen - 1] == static_cast<uint8_t>(ck >> 8);
        const uint32_t rec = hdb_record_bytes(f.id);
        f.records = rec != 0 && plen % rec == 0 ? plen / rec : 0;
        r.frames.push_back(f);
        pos += flen;
        r.consumed = pos;
    }
    return r;
}

uint32_t hdb_frame_gps_week(const uint8_t *frame) {
    const uint32_t at = HDB_HEADER_BYTES + HDB_GPS_WEEK_OFFSET;
    return (static_cast<uint32_t>(frame[at + 1]) << 8) | (frame[at] + HDB_GPS_WEEK_BASE);
}

uint32_t hdb_frame_gps_toe(const uint8_t *frame) {
    return get_u16(frame + HDB_HEADER_BYTES + HDB_GPS_TOE_OFFSET) * 16;
}

uint32_t hdb_frame_bds_week(const uint8_t *frame) {
    return get_u16(frame + HDB_HEADER_BYTES + HDB_BDS_WEEK_OFFSET);
}

uint32_t hdb_frame_bds_toe(const uint8_t *frame) {
    return get_u32(frame + HDB_HEADER_BYTES + HDB_BDS_TOE_OFFSET) * 8;
}
