// vkagnss-rtcmgen: writes a deterministic RTCM 3 ephemeris file for tests,
// demos and benchmarks.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/rtcm_gen.h"
#include "tools/tool_cli.h"

static void usage(std::FILE *to) {
    std::fprintf(
        to,
        "usage: vkagnss-rtcmgen -o FILE [options]\n"
        "Writes RTCM 3 ephemeris frames (1019 GPS, 1020 GLONASS, 1042 BeiDou, 1044 QZSS,\n"
        "1046 Galileo, and the extended 1919, 1920, 1942, 1946) with deterministic field\n"
        "values.\n"
        "Files named e.g. \"EPH_GPS_BDS.rtcm\" (or \"EPH_GPS.rtcm\", \"EPH_BDS.rtcm\") and made\n"
        "with --systems GC (G, C) serve the HD8XXX offline download, which takes only\n"
        "1019 and 1042 frames. The STA8100 takes files whose name holds \".rtcm\", the TQ934N\n"
        "files whose name holds \".rtcm3\"; only the TQ934N reads a leading time frame, and\n"
        "it sends files of up to 3999 bytes one way, from 4000 bytes another.\n"
        "  -o FILE               output file (required)\n"
        "  --systems LETTERS     any of G R C J E (1019 1020 1042 1044 1046) and g r c e\n"
        "                        (extended 1919 1920 1942 1946, laid out as their upper-case\n"
        "                        counterparts), in frame order (default GCJE)\n"
        "  --sats N              satellites per system, IDs 1..N, capped at G 32, R 24,\n"
        "                        C 63, J 10, E 36 (default: G 32, R 24, C 10, J 4, E 24)\n"
        "  --epochs N            ephemeris sets 2 hours apart (default 1)\n"
        "  --week W              reference GPS week (default 2400)\n"
        "  --tow S               reference GPS time of week in seconds (default 345600)\n"
        "  --seed N              value seed (default 1)\n"
        "  --damage KIND         none, bad-crc, truncate, trailing or reserved (default none)\n"
        "  --damage-frame K      frame damaged by bad-crc or reserved, from 0 over the RTCM\n"
        "                        frames; -1 = last (default 0)\n"
        "  --trailing-bytes N    stray header bytes for trailing: 1 or 2 (default 1)\n"
        "  --size BYTES          add epochs until the ephemeris frames hold at least BYTES\n"
        "  --time-frame          start with a 20-byte 'B' 'K' aid-time frame (class 18,\n"
        "                        id 03): reference week, time of week, leap seconds\n"
        "  --leap-seconds N      leap seconds of the time frame, GLONASS times and 1029\n"
        "                        dates (default 18)\n"
        "  --long-frame K        a 1029 text frame of 263 payload bytes (length field\n"
        "                        above 255) before ephemeris frame K; -1 = after the last\n"
        "  --tail-bytes N        N zero bytes after the last frame\n"
        "  --exact-size BYTES    make the file exactly BYTES long (e.g. 3999 or 4000)\n"
        "  --pad frames|zeros    how: 1029 text frames of 15..142 bytes after the last\n"
        "                        ephemeris frame (default), or zero bytes at the end\n"
        "  --help                this text\n");
}

static const struct {
    const char *name;
    RtcmDamage kind;
} kDamageNames[] = {
    // the first name of a kind is the one the summary line prints
    {"none", RtcmDamage::None},
    {"bad-crc", RtcmDamage::BadCrc},
    {"bad_crc", RtcmDamage::BadCrc},
    {"truncate", RtcmDamage::Truncate},
    {"trailing", RtcmDamage::Trailing},
    {"reserved", RtcmDamage::ReservedBits},
    {"reserved-bits", RtcmDamage::ReservedBits},
    {"reserved_bits", RtcmDamage::ReservedBits},
};

static bool parse_damage(const char *text, RtcmDamage *out) {
    for (const auto &k : kDamageNames)
        if (std::strcmp(text, k.name) == 0) {
            *out = k.kind;
            return true;
        }
    return false;
}

static const char *damage_name(RtcmDamage d) {
    for (const auto &k : kDamageNames)
        if (k.kind == d) return k.name;
    return "?";
}

static const char *const kFlags[] = {"--time-frame", nullptr};

// ", 1020 x4, 1029 x2" for the messages beyond the first four that the file holds.
static std::string further_counts(const RtcmGenStats &st) {
    const struct {
        uint32_t msg, count;
    } more[] = {{1020, st.count_1020}, {1919, st.count_1919}, {1920, st.count_1920},
                {1942, st.count_1942}, {1946, st.count_1946}, {1029, st.count_1029}};
    std::string s;
    for (const auto &m : more)
        if (m.count > 0) s += ", " + std::to_string(m.msg) + " x" + std::to_string(m.count);
    return s;
}

int main(int argc, char **argv) {
    RtcmGenConfig cfg;
    const char *out_path = nullptr;

    CliArgs args = cli_args("vkagnss-rtcmgen", usage, argc, argv, kFlags);
    CliOption o;
    CliRead r;
    while ((r = cli_read(args, &o)) == CliRead::Option) {
        const char *v = o.value;
        bool ok = true;
        if (o.name == "-o" || o.name == "--output") {
            out_path = v;
        } else if (o.name == "--systems") {
            cfg.systems = v;
        } else if (o.name == "--sats") {
            ok = cli_parse_int(v, 1, 63, &cfg.sats);
        } else if (o.name == "--epochs") {
            ok = cli_parse_int(v, 1, 1000000, &cfg.epochs);
        } else if (o.name == "--week") {
            ok = cli_parse_int(v, 0, 100000, &cfg.week);
        } else if (o.name == "--tow") {
            ok = cli_parse_int(v, 0, 604799, &cfg.tow);
        } else if (o.name == "--seed") {
            ok = cli_parse_u64(v, &cfg.seed);
        } else if (o.name == "--damage") {
            ok = parse_damage(v, &cfg.damage);
        } else if (o.name == "--damage-frame") {
            ok = cli_parse_int(v, -1, 100000000, &cfg.damage_frame);
        } else if (o.name == "--trailing-bytes") {
            ok = cli_parse_int(v, 1, 2, &cfg.trailing_bytes);
        } else if (o.name == "--size") {
            ok = cli_parse_u64(v, &cfg.min_size);
        } else if (o.name == "--time-frame") {
            cfg.time_frame = true;
        } else if (o.name == "--leap-seconds") {
            ok = cli_parse_int(v, 0, 255, &cfg.leap_seconds);
        } else if (o.name == "--long-frame") {
            cfg.long_frame = true;
            ok = cli_parse_int(v, -1, 100000000, &cfg.long_frame_at);
        } else if (o.name == "--tail-bytes") {
            ok = cli_parse_int(v, 0, 1 << 20, &cfg.tail_bytes);
        } else if (o.name == "--exact-size") {
            ok = cli_parse_u64(v, &cfg.exact_size) && cfg.exact_size > 0;
        } else if (o.name == "--pad") {
            ok = std::strcmp(v, "frames") == 0 || std::strcmp(v, "zeros") == 0;
            cfg.pad = std::strcmp(v, "zeros") == 0 ? RtcmPad::Zeros : RtcmPad::Frames;
        } else {
            return cli_usage_error(args, "unknown option " + o.name);
        }
        if (!ok) return cli_bad_value(args, o);
    }
    if (r != CliRead::End) return cli_exit_status(r);
    if (!out_path) return cli_usage_error(args, "-o FILE is required");

    std::string err;
    // Options fine one by one but not together (an exact size below the
    // frames, a time frame that would hide a frame start) are usage errors.
    if (!rtcmgen_validate(cfg, &err)) return cli_usage_error(args, err);
    RtcmGenStats st;
    if (!rtcmgen_write_file(cfg, out_path, &st, &err)) return cli_fail(args, err, 1);
    std::string extras;
    if (st.time_frame_bytes > 0) extras += ", time frame first";
    if (st.fill_frames > 0) extras += ", " + std::to_string(st.fill_frames) + " filler frames";
    if (st.zero_bytes > 0)
        extras += ", " + std::to_string(st.zero_bytes) + " zero bytes at the end";
    std::printf(
        "%s: %u frames, %llu bytes, %u epochs (1019 x%u, 1042 x%u, 1044 x%u, 1046 x%u%s)%s,"
        " damage %s\n",
        out_path, st.frames, static_cast<unsigned long long>(st.bytes), st.epochs, st.count_1019,
        st.count_1042, st.count_1044, st.count_1046, further_counts(st).c_str(), extras.c_str(),
        damage_name(cfg.damage));
    return 0;
}
