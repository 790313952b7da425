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
        "Writes RTCM 3 ephemeris frames (1019 GPS, 1042 BeiDou, 1044 QZSS, 1046 Galileo)\n"
        "with deterministic field values.\n"
        "Files named e.g. \"EPH_GPS_BDS.rtcm\" (or \"EPH_GPS.rtcm\", \"EPH_BDS.rtcm\") and made\n"
        "with --systems GC (G, C) serve the HD8XXX offline download, which takes only\n"
        "1019 and 1042 frames.\n"
        "  -o FILE               output file (required)\n"
        "  --systems LETTERS     any of G C J E, in frame order (default GCJE)\n"
        "  --sats N              satellites per system, IDs 1..N, capped at G 32, C 63,\n"
        "                        J 10, E 36 (default: G 32, C 10, J 4, E 24)\n"
        "  --epochs N            ephemeris sets 2 hours apart (default 1)\n"
        "  --week W              reference GPS week (default 2400)\n"
        "  --tow S               reference GPS time of week in seconds (default 345600)\n"
        "  --seed N              value seed (default 1)\n"
        "  --damage KIND         none, bad-crc, truncate, trailing or reserved (default none)\n"
        "  --damage-frame K      frame damaged by bad-crc or reserved, from 0; -1 = last\n"
        "                        (default 0)\n"
        "  --trailing-bytes N    stray header bytes for trailing: 1 or 2 (default 1)\n"
        "  --size BYTES          add epochs until the file holds at least BYTES\n"
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

int main(int argc, char **argv) {
    RtcmGenConfig cfg;
    const char *out_path = nullptr;

    CliArgs args = cli_args("vkagnss-rtcmgen", usage, argc, argv);
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
        } else {
            return cli_usage_error(args, "unknown option " + o.name);
        }
        if (!ok) return cli_bad_value(args, o);
    }
    if (r != CliRead::End) return cli_exit_status(r);
    if (!out_path) return cli_usage_error(args, "-o FILE is required");

    std::string err;
    RtcmGenStats st;
    if (!rtcmgen_write_file(cfg, out_path, &st, &err)) return cli_fail(args, err, 1);
    std::printf(
        "%s: %u frames, %llu bytes, %u epochs (1019 x%u, 1042 x%u, 1044 x%u, 1046 x%u),"
        " damage %s\n",
        out_path, st.frames, static_cast<unsigned long long>(st.bytes), st.epochs, st.count_1019,
        st.count_1042, st.count_1044, st.count_1046, damage_name(cfg.damage));
    return 0;
}
