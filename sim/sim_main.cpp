// vkagnss-sim: the virtual receiver as a program, for rehearsing a run
// without hardware:
//   vkagnss-sim --platform dw2207b --link /tmp/ttyVK0
//   vkagnss -m DW2207B -o online -p /tmp/ttyVK0 -b 115200 ...
//   vkagnss-sim --platform ag33xx --link /tmp/ttyVK1
//   vkagnss -m AG33XX -o offline -p /tmp/ttyVK1 -b 115200 -f EPO_GPS_3_1.DAT ...
//   vkagnss-sim --platform hd8xxx --link /tmp/ttyVK2
//   vkagnss-sim --platform sta8100 --link /tmp/ttyVK3
//   vkagnss-sim --platform tq934n --link /tmp/ttyVK4

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include "sim/sim.h"

namespace {

volatile std::sig_atomic_t g_signalled = 0;

void on_signal(int) { g_signalled = 1; }

const char kUsage[] =
    "usage: vkagnss-sim --platform dw2207b|ag33xx|rz610mxxxx|hd8xxx|mj7xxx|sta8100|tq934n\n"
    "                   [options]\n"
    "\n"
    "Plays a GNSS receiver on a pseudo-terminal and prints the device path.\n"
    "Runs until SIGINT or SIGTERM, then prints what it received.\n"
    "\n"
    "  --platform NAME          receiver model: dw2207b, ag33xx, rz610mxxxx, hd8xxx,\n"
    "                           mj7xxx, sta8100 or tq934n\n"
    "  --link PATH              also reach the device through symlink PATH\n"
    "                           (an existing symlink there is replaced)\n"
    "  --silent                 never answer\n"
    "  --refuse                 answer every command with the refusal\n"
    "                           (dw2207b $ERROR*58, ag33xx $PAIR001,<nnn>,1,\n"
    "                           rz610mxxxx <address>,FAIL, binary frames result 1;\n"
    "                           hd8xxx and mj7xxx <address>,ERROR,3, binary frames\n"
    "                           NAK F1 D9 05 00; sta8100 $PSTM<NAME>ERROR, RTCM\n"
    "                           commands no acknowledgement; tq934n <address>,ERROR,\n"
    "                           'B' 'K' frames class 3C/19 with id 00)\n"
    "  --refuse-only N          refuse only the answered unit number N (from 0:\n"
    "                           every answered sentence and binary frame counts)\n"
    "  --refuse-units N,N,...   refuse the answered units with these numbers\n"
    "  --refuse-prefix TEXT     refuse every unit that starts with TEXT\n"
    "                           (\\xHH stands for a byte, \\\\ for a backslash)\n"
    "  --garbage-only           answer noise instead of the reply\n"
    "  --garbage N              send N noise bytes before each reply\n"
    "                           (noise is the text \"#noise\" repeated, never '$';\n"
    "                           before binary answers a $GNTXT sentence behind 0x04)\n"
    "  --split N                write each reply in N pieces\n"
    "  --split-gap MS           pause between the pieces\n"
    "  --delay MS               pause before each reply\n"
    "  --pace BAUD              take and give one byte per 10 bit times of BAUD\n"
    "  --stop-after N           answer the first N commands only\n"
    "  --repeat MS              write each answer again every MS until the\n"
    "                           next command arrives\n"
    "  --chatter MS             send 16 noise bytes every MS unasked\n"
    "  --close-after-frames N   hang up after N binary frames, record\n"
    "                           sentences or download packets (N >= 1)\n"
    "  --rmc-status V|A         mj7xxx: status of the $GNRMC after a restart\n"
    "                           (V, no fix yet, is the healthy receiver)\n"
    "  --ymodem-nak-first       hd8xxx/mj7xxx downloads: NAK the first attempt of\n"
    "                           every packet (the retry gets the normal answer)\n"
    "  --ymodem-nak-eot         NAK the first EOT of a file (the next gets ACK C)\n"
    "  --ymodem-can             answer CAN instead of ACK to a packet and cancel\n"
    "  --ymodem-no-c            never send 'C'\n"
    "  --ymodem-before-c N      send N bytes ('x', 0x00, ...) before each 'C' the\n"
    "                           receiver calls for the header with\n"
    "  --unknown-reply          sta8100/tq934n: answer text commands with a line that\n"
    "                           holds the name but neither OK nor ERROR\n"
    "                           ($PSTM<NAME>BUSY, $<address>,BUSY)\n"
    "  --ack-bad-crc            sta8100/tq934n: binary answers go out with the last\n"
    "                           byte of their check value inverted\n"
    "  --hang-up-after-bytes N  hang up (as an unplugged adapter) once N bytes came\n"
    "  --stop-reading-after N   stop reading the line once N bytes came (0: read\n"
    "                           nothing); the tool's writes then stall\n"
    "  --garble-baud BAUD       talk at BAUD while the tool listens at its own\n"
    "                           rate: the tool reads what a baud mismatch makes\n"
    "  --exit-after-idle MS     exit once a client has sent something and the\n"
    "                           line has then been quiet for MS (chatter does\n"
    "                           not count; pick MS above the tool's longest wait)\n"
    "  --verbose                log received units and answers to stderr\n"
    "  --help                   show this text\n";

bool parse_u32(const char *text, uint32_t *out) {
    if (!text || !*text) return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || text[0] == '-' || v > 0xFFFFFFFFull) return false;
    *out = uint32_t(v);
    return true;
}

// "3,7,12" -> {3, 7, 12}.
bool parse_u32_list(const std::string &text, std::vector<uint32_t> *out) {
    out->clear();
    size_t from = 0;
    for (;;) {
        size_t comma = text.find(',', from);
        std::string item =
            text.substr(from, comma == std::string::npos ? std::string::npos : comma - from);
        uint32_t v = 0;
        if (!parse_u32(item.c_str(), &v)) return false;
        out->push_back(v);
        if (comma == std::string::npos) return true;
        from = comma + 1;
    }
}

// "\xHH" stands for a byte and "\\" for a backslash; anything else is itself.
bool unescape(const std::string &text, std::string *out) {
    out->clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            *out += text[i];
        } else if (i + 1 < text.size() && text[i + 1] == '\\') {
            *out += '\\';
            ++i;
        } else if (i + 3 < text.size() && text[i + 1] == 'x' &&
                   std::isxdigit((unsigned char)text[i + 2]) &&
                   std::isxdigit((unsigned char)text[i + 3])) {
            *out += char(std::strtoul(text.substr(i + 2, 2).c_str(), nullptr, 16));
            i += 3;
        } else {
            return false;
        }
    }
    return true;
}

int usage_error(const char *fmt, const char *arg) {
    std::fprintf(stderr, "vkagnss-sim: ");
    std::fprintf(stderr, fmt, arg);
    std::fprintf(stderr, "\n%s", kUsage);
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    SimConfig cfg;
    uint32_t exit_after_idle_ms = 0;
    bool exit_after_idle = false;

    for (int i = 1; i < argc; ++i) {
        std::string opt = argv[i];
        std::string value;
        bool has_inline = false;
        size_t eq = opt.find('=');
        if (opt.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = opt.substr(eq + 1);
            opt = opt.substr(0, eq);
            has_inline = true;
        }
        auto take = [&](std::string *out) -> bool {
            if (has_inline) {
                *out = value;
                return true;
            }
            if (i + 1 >= argc) return false;
            *out = argv[++i];
            return true;
        };
        auto take_u32 = [&](uint32_t *out) -> bool {
            std::string v;
            return take(&v) && parse_u32(v.c_str(), out);
        };
        bool is_flag = opt == "--help" || opt == "-h" || opt == "--silent" || opt == "--refuse" ||
                       opt == "--garbage-only" || opt == "--verbose" ||
                       opt == "--ymodem-nak-first" || opt == "--ymodem-nak-eot" ||
                       opt == "--ymodem-can" || opt == "--ymodem-no-c" ||
                       opt == "--unknown-reply" || opt == "--ack-bad-crc";
        if (is_flag && has_inline) return usage_error("option %s takes no value", opt.c_str());

        uint32_t n = 0;
        if (opt == "--help" || opt == "-h") {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (opt == "--platform") {
            if (!take(&cfg.platform)) return usage_error("%s needs a value", opt.c_str());
        } else if (opt == "--link") {
            if (!take(&cfg.link_path) || cfg.link_path.empty())
                return usage_error("%s needs a path", opt.c_str());
        } else if (opt == "--silent") {
            cfg.faults.silent = true;
        } else if (opt == "--refuse") {
            cfg.faults.refuse = true;
        } else if (opt == "--garbage-only") {
            cfg.faults.garbage_only = true;
        } else if (opt == "--verbose") {
            cfg.verbose = true;
        } else if (opt == "--garbage") {
            if (!take_u32(&cfg.faults.garbage_bytes))
                return usage_error("%s needs a number", opt.c_str());
        } else if (opt == "--split") {
            if (!take_u32(&n) || n == 0)
                return usage_error("%s needs a number of at least 1", opt.c_str());
            cfg.faults.split_parts = n;
        } else if (opt == "--split-gap") {
            if (!take_u32(&cfg.faults.split_gap_ms))
                return usage_error("%s needs milliseconds", opt.c_str());
        } else if (opt == "--delay") {
            if (!take_u32(&cfg.faults.delay_ms))
                return usage_error("%s needs milliseconds", opt.c_str());
        } else if (opt == "--pace") {
            if (!take_u32(&n) || n == 0) return usage_error("%s needs a baud rate", opt.c_str());
            cfg.faults.pace_baud = n;
        } else if (opt == "--chatter") {
            if (!take_u32(&n) || n == 0) return usage_error("%s needs milliseconds", opt.c_str());
            cfg.faults.chatter_ms = n;
        } else if (opt == "--repeat") {
            if (!take_u32(&n) || n == 0) return usage_error("%s needs milliseconds", opt.c_str());
            cfg.faults.repeat_ms = n;
        } else if (opt == "--refuse-only") {
            if (!take_u32(&n) || n > 0x7FFFFFFF)
                return usage_error("%s needs a number", opt.c_str());
            cfg.faults.refuse_only = int32_t(n);
        } else if (opt == "--refuse-units") {
            std::string v;
            if (!take(&v) || !parse_u32_list(v, &cfg.faults.refuse_units))
                return usage_error("%s needs numbers separated by commas", opt.c_str());
        } else if (opt == "--refuse-prefix") {
            std::string v;
            if (!take(&v) || !unescape(v, &cfg.faults.refuse_prefix) ||
                cfg.faults.refuse_prefix.empty())
                return usage_error("%s needs a text (\\xHH for a byte)", opt.c_str());
        } else if (opt == "--stop-after") {
            if (!take_u32(&n) || n > 0x7FFFFFFF)
                return usage_error("%s needs a number", opt.c_str());
            cfg.faults.stop_after = int32_t(n);
        } else if (opt == "--close-after-frames") {
            if (!take_u32(&n) || n == 0 || n > 0x7FFFFFFF)
                return usage_error("%s needs a number of at least 1", opt.c_str());
            cfg.faults.close_after_frames = int32_t(n);
        } else if (opt == "--rmc-status") {
            std::string v;
            if (!take(&v) || (v != "V" && v != "A"))
                return usage_error("%s needs V or A", opt.c_str());
            cfg.faults.rmc_status = v[0];
        } else if (opt == "--ymodem-nak-first") {
            cfg.faults.ymodem_nak_first = true;
        } else if (opt == "--ymodem-nak-eot") {
            cfg.faults.ymodem_nak_eot = true;
        } else if (opt == "--ymodem-can") {
            cfg.faults.ymodem_can = true;
        } else if (opt == "--ymodem-no-c") {
            cfg.faults.ymodem_no_c = true;
        } else if (opt == "--unknown-reply") {
            cfg.faults.unknown_reply = true;
        } else if (opt == "--ack-bad-crc") {
            cfg.faults.ack_bad_crc = true;
        } else if (opt == "--ymodem-before-c") {
            if (!take_u32(&cfg.faults.ymodem_bytes_before_c))
                return usage_error("%s needs a number", opt.c_str());
        } else if (opt == "--hang-up-after-bytes") {
            if (!take_u32(&n) || n == 0)
                return usage_error("%s needs a number of at least 1", opt.c_str());
            cfg.faults.hang_up_after_bytes = n;
        } else if (opt == "--stop-reading-after") {
            if (!take_u32(&n) || n > 0x7FFFFFFF)
                return usage_error("%s needs a number", opt.c_str());
            cfg.faults.stop_reading_after_bytes = int32_t(n);
        } else if (opt == "--garble-baud") {
            if (!take_u32(&n) || n == 0) return usage_error("%s needs a baud rate", opt.c_str());
            cfg.faults.garble_baud = n;
        } else if (opt == "--exit-after-idle") {
            if (!take_u32(&exit_after_idle_ms) || exit_after_idle_ms == 0)
                return usage_error("%s needs milliseconds", opt.c_str());
            exit_after_idle = true;
        } else {
            return usage_error("unknown argument %s", argv[i]);
        }
    }
    if (cfg.platform.empty()) return usage_error("%s is required", "--platform");

    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    // The receiver thread inherits this mask: signals go to the main thread.
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    sigaddset(&block, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    std::string error;
    Sim *sim = sim_start(cfg, &error);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (!sim) {
        std::fprintf(stderr, "vkagnss-sim: %s\n", error.c_str());
        return 1;
    }

    std::string platform;
    for (char c : cfg.platform) platform += (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
    if (cfg.link_path.empty()) {
        std::printf("vkagnss-sim: %s receiver on %s\n", platform.c_str(),
                    sim_slave_path(sim).c_str());
    } else {
        std::printf("vkagnss-sim: %s receiver on %s (link %s)\n", platform.c_str(),
                    sim_slave_path(sim).c_str(), cfg.link_path.c_str());
    }
    std::fflush(stdout);

    while (!g_signalled) {
        if (exit_after_idle && sim_bytes_received(sim) > 0 && sim_idle(sim, exit_after_idle_ms))
            break;
        usleep(20000);
    }

    sim_stop(sim);  // takes in whatever is still on the line first
    SimRecord rec = sim_record(sim);
    sim_free(sim);
    std::printf(
        "vkagnss-sim: sentences %zu, frames %zu, bad checksums %u, bad frames %u, bytes %zu, "
        "replies %u\n",
        rec.sentences.size(), rec.frames.size(), unsigned(rec.bad_checksums),
        unsigned(rec.bad_frames), rec.raw.size(), unsigned(rec.replies));
    if (platform == "ag33xx" || platform == "rz610mxxxx") {
        std::string markers;
        for (size_t i = 0; i < rec.epo_markers.size(); ++i) {
            markers += (i ? ", " : "") + rec.epo_markers[i] + " (" +
                       std::to_string(rec.epo_marker_records[i]) + ")";
        }
        std::printf(
            "vkagnss-sim: epo records %zu, held %u, clears %u, prn errors %u, refusals %u, markers "
            "[%s]\n",
            rec.epo_records.size(), unsigned(rec.epo_stored), unsigned(rec.epo_clears),
            unsigned(rec.prn_errors), unsigned(rec.refusals), markers.c_str());
    }
    if (platform == "hd8xxx" || platform == "mj7xxx") {
        std::printf(
            "vkagnss-sim: gps records %zu, bds records %zu, refusals %u, download packets %u, "
            "naks %u, C sent %u, stray bytes %u, cancels %u\n",
            rec.hd_gps_records.size(), rec.hd_bds_records.size(), unsigned(rec.refusals),
            unsigned(rec.ymodem_packets), unsigned(rec.ymodem_naks), unsigned(rec.ymodem_c_sent),
            unsigned(rec.ymodem_noise), unsigned(rec.ymodem_cancels));
        for (const SimFlashFile &f : rec.flash) {
            std::printf("vkagnss-sim: flash file \"%s\", declared %u bytes, stored %zu bytes\n",
                        f.name.c_str(), unsigned(f.declared_size), f.data.size());
        }
    }
    if (platform == "sta8100") {
        std::printf(
            "vkagnss-sim: cold starts %u, aid times %zu, aid positions %zu, ephemeris lines %zu, "
            "ephemeris frames %zu, ephemeris bytes %zu, refusals %u\n",
            unsigned(rec.sta_cold_starts), rec.sta_times.size(), rec.sta_positions.size(),
            rec.sta_ephemeris_lines.size(), rec.sta_ephemeris_frames.size(),
            rec.ephemeris_bytes.size(), unsigned(rec.refusals));
        for (const SimStaTime &t : rec.sta_times) {
            std::printf("vkagnss-sim: aid time %04d-%02d-%02d %02d:%02d:%02d\n", t.year, t.month,
                        t.day, t.hour, t.minute, t.second);
        }
        for (const SimStaPosition &p : rec.sta_positions) {
            std::printf("vkagnss-sim: aid position lat %d\", lon %d\", alt %d m\n", int(p.latitude),
                        int(p.longitude), int(p.altitude));
        }
    }
    if (platform == "tq934n") {
        std::string sizes;
        for (size_t i = 0; i < rec.tq_block_sizes.size(); ++i)
            sizes += (i ? ", " : "") + std::to_string(rec.tq_block_sizes[i]);
        std::printf(
            "vkagnss-sim: clears %u, restarts %u, time frames %zu, ephemeris blocks %zu [%s], "
            "ephemeris bytes %zu, refusals %u\n",
            unsigned(rec.tq_clears), unsigned(rec.tq_restarts), rec.tq_times.size(),
            rec.tq_block_sizes.size(), sizes.c_str(), rec.ephemeris_bytes.size(),
            unsigned(rec.refusals));
        for (const SimTqTime &t : rec.tq_times) {
            std::printf("vkagnss-sim: time frame week %u, second %u, leap %d\n", unsigned(t.week),
                        unsigned(t.tow), int(t.leap));
        }
    }
    std::fflush(stdout);
    return 0;
}
