// vkagnss-epogen: writes a deterministic EPO (extended-orbit) file for
// tests, demos and benchmarks.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/epo_gen.h"

static void usage(std::FILE *to) {
    std::fprintf(to,
        "usage: vkagnss-epogen (-o FILE | -d DIR) --kind KIND [options]\n"
        "       vkagnss-epogen --kind KIND [--days D] --name-only\n"
        "Writes an EPO file of 72-byte records in 6-hour segments with deterministic\n"
        "orbit payloads.\n"
        "  -o FILE               output file; without --kind the kind is taken from the\n"
        "                        file's name when it is one of the default names\n"
        "  -d DIR                write DIR/<the kind's default file name>\n"
        "  --kind KIND           gps (EPO_GPS_3_1.DAT), gr (EPO_GR_3_1.DAT),\n"
        "                        gal (EPO_GAL_<D>.DAT), bds (EPO_BDS_3.DAT),\n"
        "                        glo (ELPO_GLO_3.DAT), qzss (ELPO_QZSS_3.DAT),\n"
        "                        vgps, vgr, vga, vbd2, elpo-gps, elpo-gr, elpo-bds,\n"
        "                        elpo-gal, elpo-glo, elpo-qzss, elpo-gps-7, elpo-glo-7,\n"
        "                        elpo-gal-7, elpo-bd-7, elpo-qzss-7, velpo-gps,\n"
        "                        velpo-glo, velpo-gal, velpo-bds, velpo-qzss, velpo-gr,\n"
        "                        or a default file name such as ELPO_GLO_07days.DAT\n"
        "  --days D              days of 4 segments (default 3; 7 for gal and *-7)\n"
        "  --segments N          exactly N segments (overrides --days for the size)\n"
        "  --hour H              GPS hour of the first segment (default 403200:\n"
        "                        GPS week 2400, day 0, hour 0)\n"
        "  --seed S              payload seed (default 1)\n"
        "  --sats LIST           Galileo/BeiDou present satellites, e.g. 1,2,5-9\n"
        "                        (Galileo 1..36, BeiDou 1..63; default: a realistic set)\n"
        "  --damage KIND         none, short, unknown-svid, empty-header, extra-bytes,\n"
        "                        gps-in-glonass-slot (default none)\n"
        "  --damage-value N      short: length (default 100); unknown-svid: SVID of the\n"
        "                        second record (default 0); extra-bytes: bytes appended\n"
        "                        (default 72); gps-in-glonass-slot: SVID of the record\n"
        "                        at offset 2304 (default 65)\n"
        "  --name-only           print the default file name and write nothing\n"
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

static int bad_value(const char *opt, const char *value) {
    std::fprintf(stderr, "vkagnss-epogen: bad value for %s: '%s'\n", opt, value ? value : "");
    return 2;
}

int main(int argc, char **argv) {
    EpoGenConfig cfg;
    const char *out_path = nullptr;
    const char *out_dir = nullptr;
    bool have_kind = false;
    bool name_only = false;
    int name_days = 0;  // the day count an EPO_GAL_<D>.DAT name carries

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
        if (opt == "--name-only") {
            name_only = true;
            continue;
        }
        if (!value) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vkagnss-epogen: %s needs a value\n", opt.c_str());
                usage(stderr);
                return 2;
            }
            value = argv[++i];
        }
        long n = 0;
        uint64_t u = 0;
        if (opt == "-o" || opt == "--output") {
            out_path = value;
        } else if (opt == "-d" || opt == "--dir") {
            out_dir = value;
        } else if (opt == "--kind") {
            if (!epogen_parse_kind(value, &cfg.kind)) return bad_value("--kind", value);
            have_kind = true;
            name_days = 0;
            epogen_kind_from_name(value, nullptr, &name_days);
        } else if (opt == "--days") {
            if (!parse_int(value, 1, 10000, &n)) return bad_value("--days", value);
            cfg.days = static_cast<int>(n);
        } else if (opt == "--segments") {
            if (!parse_int(value, 1, 40000, &n)) return bad_value("--segments", value);
            cfg.segments = static_cast<int>(n);
        } else if (opt == "--hour") {
            if (!parse_int(value, 0, static_cast<long>(EPO_MAX_HOUR), &n)) return bad_value("--hour", value);
            cfg.start_hour = static_cast<uint32_t>(n);
        } else if (opt == "--seed") {
            if (!parse_u64(value, &u)) return bad_value("--seed", value);
            cfg.seed = u;
        } else if (opt == "--sats") {
            if (!epogen_parse_sat_list(value, &cfg.sats)) return bad_value("--sats", value);
        } else if (opt == "--damage") {
            if (!epogen_parse_damage(value, &cfg.damage)) return bad_value("--damage", value);
        } else if (opt == "--damage-value") {
            if (!parse_int(value, 0, 1000000000L, &n)) return bad_value("--damage-value", value);
            cfg.damage_value = n;
        } else {
            std::fprintf(stderr, "vkagnss-epogen: unknown option %s\n", opt.c_str());
            usage(stderr);
            return 2;
        }
    }
    if (!have_kind && out_path && epogen_kind_from_name(out_path, &cfg.kind, &name_days))
        have_kind = true;
    if (!have_kind) {
        std::fprintf(stderr, "vkagnss-epogen: --kind is required\n");
        usage(stderr);
        return 2;
    }
    // A Galileo name such as EPO_GAL_5.DAT (as --kind or as the output file)
    // sets the day count unless --days does.
    EpoGenKind named = EpoGenKind::Gps;
    if (name_days == 0 && out_path && epogen_kind_from_name(out_path, &named, &name_days) &&
        named != cfg.kind)
        name_days = 0;
    if (cfg.days == 0 && name_days > 0) cfg.days = name_days;

    const std::string name = epogen_default_name(cfg);
    if (name_only) {
        std::printf("%s\n", name.c_str());
        return 0;
    }
    if (out_path && out_dir) {
        std::fprintf(stderr, "vkagnss-epogen: give -o FILE or -d DIR, not both\n");
        return 2;
    }
    std::string path;
    if (out_path) {
        path = out_path;
    } else if (out_dir) {
        path = out_dir;
        if (!path.empty() && path.back() != '/') path += '/';
        path += name;
    } else {
        std::fprintf(stderr, "vkagnss-epogen: -o FILE or -d DIR is required\n");
        usage(stderr);
        return 2;
    }

    std::string err;
    EpoGenStats st;
    if (!epogen_write_file(cfg, path.c_str(), &st, &err)) {
        std::fprintf(stderr, "vkagnss-epogen: %s\n", err.c_str());
        return 1;
    }
    std::printf("%s: %s (%s), %u segments x %u records%s, %llu bytes, GPS hours %u..%u,"
                " damage %s\n",
                path.c_str(), epogen_kind_token(cfg.kind), name.c_str(), st.segments,
                st.records_per_segment, st.header ? " + header" : "",
                static_cast<unsigned long long>(st.bytes), st.first_hour, st.last_hour,
                epogen_damage_token(cfg.damage));
    return 0;
}
