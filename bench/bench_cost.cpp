// What a transfer costs the machine, and what running many at once costs.
//
// 1. Per platform and mode that takes a file: the real vkagnss with a 3-day
//    file made by the project's generators, against the virtual receiver
//    unpaced (so the run is short; the pauses the flows set still run), under
//    bench_rusage_of, which reports the tool's CPU time (user + system) and
//    its peak resident memory from wait4() (a small process of its own: a
//    child forked from this bench would be charged with the bench's memory,
//    see bench/rusage_of.c). A run counts only when the receiver took the
//    whole file. Reported: the bytes the receiver got (everything the tool
//    wrote: commands, framing and the file), CPU ms per MB of them
//    (MB = 10^6 bytes) and the peak memory in MiB.
// 2. The line runner: vkagnss-line running a DW2207B transfer of a 3-day file on
//    1, 16 and 64 ports at once, each port a virtual receiver of its own in
//    this process, paced at 115200 baud. The transfer's time is set by the
//    wire and the 5 ms pauses, so the ratio of the runner's wall time at N
//    ports to its time at one port says what running them in parallel costs.
//    A run counts only when every receiver took the whole file byte for
//    byte. Where the CPU goes is printed with it: the runner and its tools
//    (from wait4(), which counts the children the runner waited for) and
//    this process (the receivers' threads).
//
//   bench_cost [runs] [log-dir]
//
// With a log directory, the tool's console output of every run is kept there
// (<platform>-<mode>-N.txt), and the line runner's per-port logs go there too
// (line-<ports>-<run>/); otherwise they go to a temporary directory that is
// removed at the end.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include "sim/sim.h"
#include "bench/bench_util.h"
#include "tests/support/harness.h"
#include "tools/epo_gen.h"
#include "tools/hdb_gen.h"
#include "tools/rtcm_gen.h"

namespace {

constexpr uint32_t kBaud = 115200;
constexpr int kThreeDays = 36;        // ephemeris sets or RTCM epochs, 2 hours apart
constexpr double kLineTarget = 1.05;  // the N-port runner against the one-port runner
const int kPortCounts[] = {1, 16, 64};

// What bench_rusage_of reported for one program, and the wall time around it.
struct Usage {
    double user_ms = 0, sys_ms = 0, peak_mib = 0, wall_ms = 0;
    double cpu_ms() const { return user_ms + sys_ms; }
};

double cpu_ms_of(const rusage &ru) {
    return double(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) * 1000.0 +
           double(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1000.0;
}

double load_average() {
    double load = -1;
    if (FILE *f = fopen("/proc/loadavg", "r")) {
        if (fscanf(f, "%lf", &load) != 1) load = -1;
        fclose(f);
    }
    return load;
}

// Runs program with args under bench_rusage_of; false when its figures are
// missing (the program's own outcome is in *run).
bool run_measured(const std::string &dir, const char *program, const std::vector<std::string> &args,
                  ToolRun *run, Usage *u) {
    const std::string file = dir + "/rusage.txt";
    remove(file.c_str());
    std::vector<std::string> a = {file, program};
    a.insert(a.end(), args.begin(), args.end());
    int64_t start = now_us();
    *run = run_program(RUSAGE_OF_BIN, a);
    u->wall_ms = double(now_us() - start) / 1000.0;
    long long user_us = 0, sys_us = 0;
    long peak_kib = 0;
    FILE *f = fopen(file.c_str(), "r");
    bool ok = f != nullptr && fscanf(f, "%lld %lld %ld", &user_us, &sys_us, &peak_kib) == 3;
    if (f) fclose(f);
    u->user_ms = double(user_us) / 1000.0;
    u->sys_ms = double(sys_us) / 1000.0;
    u->peak_mib = double(peak_kib) / 1024.0;
    return ok;
}

// --- 1. cost per platform ---------------------------------------------------------------

struct CostCase {
    std::string platform;  // the model name, as in the table
    std::string mode;      // "online" or "offline"
    std::string sim;       // the virtual receiver's platform
    std::string what;      // the file, for the note
    std::string path;
    std::vector<uint8_t> bytes;
    std::vector<std::string> file_args;  // the options that name the file
    // Whether the receiver took the whole file; why not, when not.
    std::function<bool(const SimRecord &, std::string *)> took_file;
    // per run
    std::vector<double> cpu_ms, peak_mib;
    size_t sent = 0;
};

std::vector<std::vector<uint8_t>> epo_records_of(const std::vector<uint8_t> &bytes) {
    std::vector<std::vector<uint8_t>> out;
    for (size_t at = 0; at + EPO_RECORD_BYTES <= bytes.size(); at += EPO_RECORD_BYTES)
        out.emplace_back(bytes.begin() + long(at), bytes.begin() + long(at + EPO_RECORD_BYTES));
    return out;
}

// Every record of the file taken exactly once (an offline GPS+GLONASS file
// goes out system by system, so the order is not the file's).
bool took_epo_file(const std::vector<uint8_t> &bytes, const SimRecord &rec, std::string *why) {
    std::vector<std::vector<uint8_t>> want = epo_records_of(bytes), got = rec.epo_records;
    std::sort(want.begin(), want.end());
    std::sort(got.begin(), got.end());
    if (got == want) return true;
    *why = fmt("%zu of %zu records taken, or not the file's", rec.epo_records.size(), want.size());
    return false;
}

bool same_bytes(const char *what, const std::vector<uint8_t> &want, const std::vector<uint8_t> &got,
                std::string *why) {
    if (got == want) return true;
    *why = fmt("%s: %zu bytes, want the file's %zu", what, got.size(), want.size());
    return false;
}

bool add_epo(const std::string &dir, const char *platform, const char *mode, const char *sim,
             EpoGenKind kind, const char *what, std::vector<CostCase> *cases) {
    CostCase c;
    EpoGenConfig cfg;
    cfg.kind = kind;  // 3 days: every kind used here has that default
    c.platform = platform;
    c.mode = mode;
    c.sim = sim;
    c.path = dir + "/" + epogen_default_name(cfg);
    c.bytes = epogen_generate(cfg);
    if (c.bytes.empty() || epogen_days(cfg) != 3) return false;
    write_file(c.path, c.bytes);
    c.what = fmt("%s, %zu records", what, c.bytes.size() / EPO_RECORD_BYTES);
    c.file_args = {"-f" + c.path};
    std::vector<uint8_t> bytes = c.bytes;
    c.took_file = [bytes](const SimRecord &rec, std::string *why) {
        return took_epo_file(bytes, rec, why);
    };
    cases->push_back(c);
    return true;
}

// An RTCM file of 36 epochs (3 days) of systems.
std::vector<uint8_t> rtcm_three_days(const char *systems, RtcmGenStats *stats) {
    RtcmGenConfig cfg;
    cfg.systems = systems;
    cfg.epochs = kThreeDays;
    return rtcmgen_generate(cfg, stats);
}

bool add_rtcm(const std::string &dir, const char *platform, const char *sim, const char *file,
              std::vector<std::string> options, std::vector<CostCase> *cases) {
    CostCase c;
    RtcmGenStats stats;
    c.platform = platform;
    c.mode = "online";
    c.sim = sim;
    c.bytes = rtcm_three_days("G", &stats);
    if (c.bytes.empty()) return false;
    c.path = dir + "/" + file;
    write_file(c.path, c.bytes);
    c.what = fmt("3-day GPS RTCM, %u frames", stats.frames);
    options.push_back("-f" + c.path);
    c.file_args = options;
    std::vector<uint8_t> bytes = c.bytes;
    std::string model = platform;
    c.took_file = [bytes, model](const SimRecord &rec, std::string *why) {
        // DW2207B: nothing but the frames goes out without -s, -u or -l.
        if (model == "DW2207B") return same_bytes("received", bytes, rec.raw, why);
        return same_bytes("ephemeris taken", bytes, rec.ephemeris_bytes, why);
    };
    cases->push_back(c);
    return true;
}

bool prepare_cases(const std::string &dir, std::vector<CostCase> *cases) {
    // RTCM files: GPS only, so that the flows that pause after every frame
    // or block (5 ms DW2207B, 15 ms STA8100, 1 s TQ934N) stay short enough
    // for the short mode; the cost per byte does not depend on the systems.
    if (!add_rtcm(dir, "DW2207B", "dw2207b", "EPH.rtcm3", {}, cases)) return false;
    if (!add_epo(dir, "AG33XX", "online", "ag33xx", EpoGenKind::VGps, "3-day GPS EPO", cases) ||
        !add_epo(dir, "AG33XX", "offline", "ag33xx", EpoGenKind::Gr, "3-day GPS+GLONASS EPO",
                 cases) ||
        !add_epo(dir, "RZ610MXXXX", "online", "rz610mxxxx", EpoGenKind::VelpoGps, "3-day GPS EPO",
                 cases))
        return false;

    {  // HD8XXX online: a 3-day GPS+BDS ".hdb" file
        CostCase c;
        HdbGenConfig cfg;
        cfg.sets = kThreeDays;
        HdbGenStats stats;
        c.platform = "HD8XXX";
        c.mode = "online";
        c.sim = "hd8xxx";
        c.bytes = hdbgen_generate(cfg, &stats);
        if (c.bytes.empty()) return false;
        c.path = dir + "/" + hdbgen_default_name(cfg);
        write_file(c.path, c.bytes);
        c.what = fmt("3-day GPS+BDS \".hdb\", %u frames", stats.frames);
        c.file_args = {"-f", c.path};
        std::vector<uint8_t> bytes = c.bytes;
        c.took_file = [bytes](const SimRecord &rec, std::string *why) {
            return same_bytes("received", bytes, rec.raw, why);
        };
        cases->push_back(c);
    }
    {  // HD8XXX offline: a 3-day GPS+BDS RTCM file, divided and downloaded by YMODEM
        CostCase c;
        RtcmGenStats stats;
        c.platform = "HD8XXX";
        c.mode = "offline";
        c.sim = "hd8xxx";
        c.bytes = rtcm_three_days("GC", &stats);
        if (c.bytes.empty()) return false;
        c.path = dir + "/EPH_GPS_BDS.rtcm";
        write_file(c.path, c.bytes);
        c.what = fmt("3-day GPS+BDS RTCM, %u frames", stats.frames);
        c.file_args = {"-f", c.path};
        std::vector<uint8_t> gps, bds;
        RtcmSplit split = rtcm_split_frames(c.bytes.data(), c.bytes.size());
        for (const RtcmFrameInfo &f : split.frames) {
            std::vector<uint8_t> &part = f.msg == 1019 ? gps : bds;
            part.insert(part.end(), c.bytes.begin() + long(f.offset),
                        c.bytes.begin() + long(f.offset + f.payload_len + RTCM_FRAME_OVERHEAD));
        }
        c.took_file = [gps, bds](const SimRecord &rec, std::string *why) {
            bool ok = rec.flash.size() == 2 && rec.flash[0].name == "LTEPHGPS" &&
                      rec.flash[0].data == gps && rec.flash[1].name == "LTEPHBDS" &&
                      rec.flash[1].data == bds;
            if (!ok) *why = fmt("%zu files in the flash, not the two parts", rec.flash.size());
            return ok;
        };
        cases->push_back(c);
    }
    return add_rtcm(dir, "STA8100", "sta8100", "EPH_GPS.rtcm", {"-t", "rtcm"}, cases) &&
           add_rtcm(dir, "TQ934N", "tq934n", "EPH_GPS.rtcm3", {}, cases);
}

bool run_cost(const std::string &dir, CostCase *c, int run, const char *log_dir) {
    Sim *sim = bench_receiver(c->sim, 0);
    if (!sim) return false;
    std::vector<std::string> args = {"-m", c->platform,         "-o", c->mode,
                                     "-p", sim_slave_path(sim), "-b", "115200"};
    args.insert(args.end(), c->file_args.begin(), c->file_args.end());
    ToolRun r;
    Usage u;
    bool measured = run_measured(dir, VKAGNSS_BIN, args, &r, &u);
    sim_stop(sim);
    SimRecord rec = sim_record(sim);
    sim_free(sim);
    keep_log(log_dir, c->platform + "-" + c->mode, run, r.out);
    std::string why;
    bool took = c->took_file(rec, &why);
    if (r.status != 0 || !measured || !took) {
        fprintf(stderr, "%s %s run %d failed: status %d, %s%s\n%s", c->platform.c_str(),
                c->mode.c_str(), run, r.status, measured ? "" : "no figures from rusage; ",
                took ? "file taken" : why.c_str(), r.out.c_str());
        return false;
    }
    c->sent = rec.raw.size();
    c->cpu_ms.push_back(u.cpu_ms());
    c->peak_mib.push_back(u.peak_mib);
    printf(
        "%-10s %-7s run %d: %7zu bytes sent in %7.0f ms; CPU %6.1f ms (user %.1f + system "
        "%.1f), %6.1f ms per MB; peak %.2f MiB\n",
        c->platform.c_str(), c->mode.c_str(), run, c->sent, u.wall_ms, u.cpu_ms(), u.user_ms,
        u.sys_ms, u.cpu_ms() / (double(c->sent) / 1e6), u.peak_mib);
    return true;
}

// --- 2. the line runner -----------------------------------------------------------------

struct LineRun {
    double wall_ms = 0;
    double tools_cpu_ms = 0;     // the runner and every tool it ran
    double bench_cpu_ms = 0;     // this process: the receivers' threads
    double slowest_port_s = 0;   // the longest run in the runner's summary
    double start_spread_ms = 0;  // from the first port's start to the last one's
    double transfer_ms = 0;      // median over the ports, by the tools' own stamps
    double load = 0;             // the 1-minute load average after the run
};

// Seconds since the epoch of a port log's "<UTC time> " prefix
// (2026-11-23T21:50:12.043Z), or -1.
double log_time(const std::string &line) {
    tm t{};
    int ms = 0;
    if (sscanf(line.c_str(), "%d-%d-%dT%d:%d:%d.%dZ", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour,
               &t.tm_min, &t.tm_sec, &ms) != 7)
        return -1;
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return double(timegm(&t)) + ms / 1000.0;
}

// From the runner's per-port logs: when each run started (the runner's
// "# start:" note) and how long its transfer took by the tool's own stamps,
// from "[PROGRESS] 0.00%" to "Send EphData ret". False when a log lacks them.
bool read_port_logs(const std::string &logs, LineRun *fig) {
    DIR *d = opendir(logs.c_str());
    if (!d) return false;
    std::vector<double> starts, transfers;
    bool ok = true;
    while (dirent *e = readdir(d)) {
        std::string name = e->d_name;
        if (name.size() < 5 || name.compare(name.size() - 4, 4, ".log") != 0) continue;
        std::vector<uint8_t> bytes = read_file(logs + "/" + name);
        std::string text(bytes.begin(), bytes.end());
        size_t note = text.find(" # start:");
        size_t line = note == std::string::npos ? note : text.rfind('\n', note);
        double start = log_time(text.substr(line == std::string::npos ? 0 : line + 1, 30));
        // The tool's stamps, after the runner's "| " in front of each line.
        size_t first = text.find("[PROGRESS] 0.00%"), last = text.find("Send EphData ret");
        unsigned s0 = 0, ms0 = 0, s1 = 0, ms1 = 0;
        size_t at0 = first == std::string::npos ? first : text.rfind("| [", first);
        size_t at1 = last == std::string::npos ? last : text.rfind("| [", last);
        if (start < 0 || at0 == std::string::npos || at1 == std::string::npos ||
            sscanf(text.c_str() + at0, "| [%u.%u]", &s0, &ms0) != 2 ||
            sscanf(text.c_str() + at1, "| [%u.%u]", &s1, &ms1) != 2) {
            ok = false;
            continue;
        }
        starts.push_back(start);
        transfers.push_back(double(s1 * 1000 + ms1) - double(s0 * 1000 + ms0));
    }
    closedir(d);
    if (!ok || starts.empty()) return false;
    auto [lo, hi] = std::minmax_element(starts.begin(), starts.end());
    fig->start_spread_ms = (*hi - *lo) * 1000.0;
    fig->transfer_ms = median(transfers);
    return true;
}

// The SECONDS of every SUCCESS row of the runner's CSV summary; the number
// of rows that were not SUCCESS in *failed.
std::vector<double> port_seconds(const std::string &csv, int *failed) {
    std::vector<double> out;
    *failed = 0;
    std::vector<uint8_t> text = read_file(csv);
    std::string s(text.begin(), text.end());
    size_t at = s.find('\n');  // past the header
    while (at != std::string::npos && at + 1 < s.size()) {
        size_t end = s.find('\n', at + 1);
        std::string row = s.substr(at + 1, end == std::string::npos ? end : end - at - 1);
        at = end;
        std::vector<std::string> fields;
        size_t from = 0;
        for (;;) {
            size_t comma = row.find(',', from);
            fields.push_back(row.substr(from, comma == std::string::npos ? comma : comma - from));
            if (comma == std::string::npos) break;
            from = comma + 1;
        }
        if (fields.size() < 6 || fields[1] != "SUCCESS") {
            ++*failed;
            continue;
        }
        out.push_back(atof(fields[5].c_str()));
    }
    return out;
}

bool run_line(const std::string &tmp, const std::string &work, const std::string &file,
              const std::vector<uint8_t> &bytes, int ports, int run, LineRun *fig) {
    std::vector<Sim *> sims;
    std::string list;
    bool ok = true;
    for (int i = 0; ok && i < ports; ++i) {
        Sim *sim = bench_receiver("dw2207b", kBaud);
        if (!sim) {
            fprintf(stderr, "%d ports: receiver %d did not start\n", ports, i + 1);
            ok = false;
            break;
        }
        sims.push_back(sim);
        list += (i ? "," : "") + sim_slave_path(sim);
    }
    const std::string logs = work + fmt("/line-%d-%d", ports, run);
    const std::string csv = logs + ".csv";
    ToolRun r;
    Usage u;
    bool measured = false;
    rusage before{}, after{};
    if (ok) {
        getrusage(RUSAGE_SELF, &before);
        measured = run_measured(
            tmp, VKAGNSS_LINE_BIN,
            {"-p", list, "--plain", "--tool", VKAGNSS_BIN, "--log-dir", logs, "--csv", csv, "--",
             "-m", "DW2207B", "-o", "online", "-b", std::to_string(kBaud), "-f" + file},
            &r, &u);
        getrusage(RUSAGE_SELF, &after);
    }
    // Every receiver reads what its line still holds; stopped side by side,
    // as each waits for 100 ms of quiet.
    std::vector<std::thread> stops;
    for (Sim *sim : sims) stops.emplace_back([sim] { sim_stop(sim); });
    for (std::thread &t : stops) t.join();
    int short_ports = 0;
    for (Sim *sim : sims) {
        if (sim_record(sim).raw != bytes) ++short_ports;
        sim_free(sim);
    }
    if (!ok) return false;
    int failed = 0;
    std::vector<double> seconds = port_seconds(csv, &failed);
    if (r.status != 0 || !measured || short_ports != 0 || failed != 0 ||
        int(seconds.size()) != ports) {
        fprintf(stderr,
                "%d ports, run %d failed: runner status %d, %d receivers without the whole file, "
                "%d ports not SUCCESS%s\n%s%s",
                ports, run, r.status, short_ports, failed,
                measured ? "" : ", no figures from rusage", r.out.c_str(), r.err.c_str());
        return false;
    }
    fig->wall_ms = u.wall_ms;
    fig->tools_cpu_ms = u.cpu_ms();
    fig->bench_cpu_ms = cpu_ms_of(after) - cpu_ms_of(before);
    fig->slowest_port_s = *std::max_element(seconds.begin(), seconds.end());
    fig->load = load_average();
    if (!read_port_logs(logs, fig)) {
        fprintf(stderr, "%d ports, run %d: the runner's logs in %s lack a start or stamps\n", ports,
                run, logs.c_str());
        return false;
    }
    unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    printf(
        "line %2d port(s) run %d: runner %5.0f ms; ports started over %3.0f ms, transfer %4.0f ms "
        "(median, tools' stamps), slowest port %.2f s; CPU: runner and tools %5.0f ms (user %.0f "
        "+ system %.0f), receivers (this process) %4.0f ms; busy %.0f %% of %u cores; load %.2f\n",
        ports, run, fig->wall_ms, fig->start_spread_ms, fig->transfer_ms, fig->slowest_port_s,
        fig->tools_cpu_ms, u.user_ms, u.sys_ms, fig->bench_cpu_ms,
        100.0 * (fig->tools_cpu_ms + fig->bench_cpu_ms) / fig->wall_ms / cores, cores, fig->load);
    return true;
}

// 64 receivers and the runner's pipes need a few hundred descriptors.
void raise_file_limit() {
    rlimit lim{};
    if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur < lim.rlim_max) {
        lim.rlim_cur = lim.rlim_max;
        setrlimit(RLIMIT_NOFILE, &lim);
    }
}

}  // namespace

int main(int argc, char **argv) {
    const auto [runs, log_dir] = bench_args(argc, argv);
    raise_file_limit();
    const std::string dir = make_temp_dir();
    if (dir.empty()) {
        fprintf(stderr, "no temporary directory\n");
        return 1;
    }
    bool failed = false;

    // 1. What a 3-day file costs, per platform and mode.
    std::vector<CostCase> cases;
    if (!prepare_cases(dir, &cases)) {
        fprintf(stderr, "the generators did not make the files\n");
        remove_tree(dir);
        return 1;
    }
    for (int run = 1; run <= runs; ++run) {
        for (CostCase &c : cases) failed = !run_cost(dir, &c, run, log_dir) || failed;
    }
    for (const CostCase &c : cases) {
        if (c.cpu_ms.empty()) continue;
        double cpu = median(c.cpu_ms);
        double peak = *std::max_element(c.peak_mib.begin(), c.peak_mib.end());
        bench_row(c.platform + " " + c.mode + ", cost of a 3-day file", "-",
                  fmt("%.0f ms CPU per MB sent", cpu / (double(c.sent) / 1e6)),
                  fmt("peak %.1f MiB", peak), "(measured, no target)", "-",
                  fmt("%zu bytes sent (%s), CPU %.1f ms; median of %zu, unpaced", c.sent,
                      c.what.c_str(), cpu, c.cpu_ms.size()));
    }

    // 2. The line runner on 1, 16 and 64 ports, runs interleaved so that a
    // change in the machine's load falls on every port count alike.
    // The 3-day GPS file a station injects: 1152 frames, 5.8 s of 5 ms
    // pauses (6.7 s on the wire, which the line holds after the tool's last
    // write). A shorter file would mostly measure how long the machine takes
    // to start 64 processes (50 to 80 ms on 2 cores).
    RtcmGenStats stats;
    std::vector<uint8_t> bytes = rtcm_three_days("G", &stats);
    const std::string file = dir + "/EPH_LINE.rtcm3";
    write_file(file, bytes);
    const std::string work = log_dir ? std::string(log_dir) : dir;
    printf("line runner: DW2207B online, %s, %zu bytes, %u frames; wire time %.0f ms at %u baud\n",
           file.c_str(), bytes.size(), stats.frames, wire_ms(double(bytes.size()), kBaud), kBaud);
    std::vector<std::vector<LineRun>> line(std::size(kPortCounts));
    for (int run = 1; run <= runs; ++run) {
        for (size_t k = 0; k < std::size(kPortCounts); ++k) {
            LineRun fig;
            if (run_line(dir, work, file, bytes, kPortCounts[k], run, &fig))
                line[k].push_back(fig);
            else
                failed = true;
        }
    }
    auto med = [](const std::vector<LineRun> &v, double LineRun::*field) {
        std::vector<double> x;
        for (const LineRun &r : v) x.push_back(r.*field);
        return x.empty() ? 0.0 : median(x);
    };
    const double one = med(line[0], &LineRun::wall_ms);
    for (size_t k = 1; k < std::size(kPortCounts); ++k) {
        const std::vector<LineRun> &v = line[k];
        const int ports = kPortCounts[k];
        if (v.empty() || line[0].empty()) {
            bench_line(fmt("vkagnss-line, %d ports", ports), "-", "no run counted", "-",
                       "<= 1.05 x one port", false, "see the bench's output");
            continue;
        }
        double took = med(v, &LineRun::wall_ms);
        double ratio = took / one;
        bench_line(
            fmt("vkagnss-line, %d ports", ports), fmt("%.0f ms (one port)", one),
            fmt("%.0f ms", took), fmt("%.3f x one port", ratio), "<= 1.05 x one port",
            ratio <= kLineTarget,
            fmt("%smedian of %zu; paced DW2207B, %zu bytes a port; ports started over %.0f ms, "
                "transfer %.0f ms (one port %.0f); CPU runner and tools %.0f ms, receivers %.0f "
                "ms; load %.2f",
                ports == 64 ? "" : "informative; ", v.size(), bytes.size(),
                med(v, &LineRun::start_spread_ms), med(v, &LineRun::transfer_ms),
                med(line[0], &LineRun::transfer_ms), med(v, &LineRun::tools_cpu_ms),
                med(v, &LineRun::bench_cpu_ms), med(v, &LineRun::load)));
    }
    remove_tree(dir);
    return failed ? 1 : 0;
}
