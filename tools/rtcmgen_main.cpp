// vkagnss-rtcmgen: writes a deterministic RTCM 3 ephemeris file for tests,
// demos and benchmarks.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/rtcm_gen.h"

static void usage(std::FILE *to) {
    std::fprintf(to,
        "usage: vkagnss-rtcmgen -o FILE [options]\n"
        "Writes RTCM 3 ephemeris frames (1019 GPS, 1042 BeiDou, 1044 QZSS, 1046 Galileo)\n"
        "with deterministic field values.\n"
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

static bool parse_u64(const char *text, uint64_t *out) {
    if (!text || !*text || *text == '-') return false;
    errno = 0;
    char *end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 0);
    if (errno != 0 || *end != '\0') return false;
    *out = v;
    return true;
}

static bool parse_int(const char *text, long lo, long hi, long *out) {
    if (!text || !*text) return false;
    errno = 0;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    *out = v;
    return true;
}

static bool parse_damage(const char *text, RtcmDamage *out) {
    static const struct { const char *name; RtcmDamage kind; } kinds[] = {
        {"none", RtcmDamage::None},          {"bad-crc", RtcmDamage::BadCrc},
        {"bad_crc", RtcmDamage::BadCrc},     {"truncate", RtcmDamage::Truncate},
        {"trailing", RtcmDamage::Trailing},  {"reserved", RtcmDamage::ReservedBits},
        {"reserved-bits", RtcmDamage::ReservedBits}, {"reserved_bits", RtcmDamage::ReservedBits},
    };
    for (const auto &k : kinds)
        if (std::strcmp(text, k.name) == 0) {
            *out = k.kind;
            return true;
        }
    return false;
}

static const char *damage_name(RtcmDamage d) {
    switch (d) {
    case RtcmDamage::None: return "none";
    case RtcmDamage::BadCrc: return "bad-crc";
    case RtcmDamage::Truncate: return "truncate";
    case RtcmDamage::Trailing: return "trailing";
    case RtcmDamage::ReservedBits: return "reserved";
    }
    return "?";
}

static int bad_value(const char *opt, const char *value) {
    std::fprintf(stderr, "vkagnss-rtcmgen: bad value for %s: '%s'\n", opt, value ? value : "");
    return 2;
}

int main(int argc, char **argv) {
    RtcmGenConfig cfg;
    const char *out_path = nullptr;

    for (int i = 1; i < argc; ++i) {
        std::string opt = argv[i];
        const char *value = nullptr;
        const size_t eq = opt.find('=');
        if (opt.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            value = argv[i] + eq + 1;
            opt.resize(eq);
        }
        if (opt == "--help" || opt == "-h") {
            usage(stdout);
            return 0;
        }
        if (!value) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vkagnss-rtcmgen: %s needs a value\n", opt.c_str());
                usage(stderr);
                return 2;
            }
            value = argv[++i];
        }
        long n = 0;
        uint64_t u = 0;
        if (opt == "-o" || opt == "--output") {
            out_path = value;
        } else if (opt == "--systems") {
            cfg.systems = value;
        } else if (opt == "--sats") {
            if (!parse_int(value, 1, 63, &n)) return bad_value("--sats", value);
            cfg.sats = static_cast<int>(n);
        } else if (opt == "--epochs") {
            if (!parse_int(value, 1, 1000000, &n)) return bad_value("--epochs", value);
            cfg.epochs = static_cast<int>(n);
        } else if (opt == "--week") {
            if (!parse_int(value, 0, 100000, &n)) return bad_value("--week", value);
            cfg.week = static_cast<uint32_t>(n);
        } else if (opt == "--tow") {
            if (!parse_int(value, 0, 604799, &n)) return bad_value("--tow", value);
            cfg.tow = static_cast<uint32_t>(n);
        } else if (opt == "--seed") {
            if (!parse_u64(value, &u)) return bad_value("--seed", value);
            cfg.seed = u;
        } else if (opt == "--damage") {
            if (!parse_damage(value, &cfg.damage)) return bad_value("--damage", value);
        } else if (opt == "--damage-frame") {
            if (!parse_int(value, -1, 100000000, &n)) return bad_value("--damage-frame", value);
            cfg.damage_frame = static_cast<int>(n);
        } else if (opt == "--trailing-bytes") {
            if (!parse_int(value, 1, 2, &n)) return bad_value("--trailing-bytes", value);
            cfg.trailing_bytes = static_cast<int>(n);
        } else if (opt == "--size") {
            if (!parse_u64(value, &u)) return bad_value("--size", value);
            cfg.min_size = u;
        } else {
            std::fprintf(stderr, "vkagnss-rtcmgen: unknown option %s\n", opt.c_str());
            usage(stderr);
            return 2;
        }
    }
    if (!out_path) {
        std::fprintf(stderr, "vkagnss-rtcmgen: -o FILE is required\n");
        usage(stderr);
        return 2;
    }

    std::string err;
    RtcmGenStats st;
    if (!rtcmgen_write_file(cfg, out_path, &st, &err)) {
        std::fprintf(stderr, "vkagnss-rtcmgen: %s\n", err.c_str());
        return 1;
    }
    std::printf("%s: %u frames, %llu bytes, %u epochs (1019 x%u, 1042 x%u, 1044 x%u, 1046 x%u),"
                " damage %s\n",
                out_path, st.frames, static_cast<unsigned long long>(st.bytes), st.epochs,
                st.count_1019, st.count_1042, st.count_1044, st.count_1046,
                damage_name(cfg.damage));
    return 0;
}
