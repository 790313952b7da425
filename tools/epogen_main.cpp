// vkagnss-epogen: writes a deterministic EPO (extended-orbit) file for
// tests, demos and benchmarks.
#include <cstdio>
#include <string>

#include "tools/epo_gen.h"
#include "tools/tool_cli.h"

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

static const char *const kFlags[] = {"--name-only", nullptr};

int main(int argc, char **argv) {
    EpoGenConfig cfg;
    const char *out_path = nullptr;
    const char *out_dir = nullptr;
    bool have_kind = false;
    bool name_only = false;
    int name_days = 0;  // the day count an EPO_GAL_<D>.DAT name carries

    CliArgs args = cli_args("vkagnss-epogen", usage, argc, argv, kFlags);
    CliOption o;
    CliRead r;
    while ((r = cli_read(args, &o)) == CliRead::Option) {
        const char *v = o.value;
        bool ok = true;
        if (o.name == "--name-only") {
            name_only = true;
        } else if (o.name == "-o" || o.name == "--output") {
            out_path = v;
        } else if (o.name == "-d" || o.name == "--dir") {
            out_dir = v;
        } else if (o.name == "--kind") {
            ok = epogen_parse_kind(v, &cfg.kind);
            if (ok) {
                have_kind = true;
                name_days = 0;
                epogen_kind_from_name(v, nullptr, &name_days);
            }
        } else if (o.name == "--days") {
            ok = cli_parse_int(v, 1, 10000, &cfg.days);
        } else if (o.name == "--segments") {
            ok = cli_parse_int(v, 1, 40000, &cfg.segments);
        } else if (o.name == "--hour") {
            ok = cli_parse_int(v, 0, static_cast<long>(EPO_MAX_HOUR), &cfg.start_hour);
        } else if (o.name == "--seed") {
            ok = cli_parse_u64(v, &cfg.seed);
        } else if (o.name == "--sats") {
            ok = epogen_parse_sat_list(v, &cfg.sats);
        } else if (o.name == "--damage") {
            ok = epogen_parse_damage(v, &cfg.damage);
        } else if (o.name == "--damage-value") {
            ok = cli_parse_int(v, 0, 1000000000L, &cfg.damage_value);
        } else {
            return cli_usage_error(args, "unknown option " + o.name);
        }
        if (!ok) return cli_bad_value(args, o);
    }
    if (r != CliRead::End) return cli_exit_status(r);
    if (!have_kind && out_path && epogen_kind_from_name(out_path, &cfg.kind, &name_days))
        have_kind = true;
    if (!have_kind) return cli_usage_error(args, "--kind is required");
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
    if (out_path && out_dir) return cli_fail(args, "give -o FILE or -d DIR, not both", 2);
    std::string path;
    if (out_path) {
        path = out_path;
    } else if (out_dir) {
        path = out_dir;
        if (!path.empty() && path.back() != '/') path += '/';
        path += name;
    } else {
        return cli_usage_error(args, "-o FILE or -d DIR is required");
    }

    std::string err;
    EpoGenStats st;
    if (!epogen_write_file(cfg, path.c_str(), &st, &err)) return cli_fail(args, err, 1);
    std::printf(
        "%s: %s (%s), %u segments x %u records%s, %llu bytes, GPS hours %u..%u,"
        " damage %s\n",
        path.c_str(), epogen_kind_token(cfg.kind), name.c_str(), st.segments,
        st.records_per_segment, st.header ? " + header" : "",
        static_cast<unsigned long long>(st.bytes), st.first_hour, st.last_hour,
        epogen_damage_token(cfg.damage));
    return 0;
}
