// What the benches share: wire time at a baud rate, a steady clock, the
// millisecond stamps of the tool's console lines, the median of a few runs,
// and keeping a run's console output for a later look.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "tests/support/harness.h"

// A fresh virtual receiver of platform, paced at pace baud (0: as fast as the
// line comes); null, with the reason on standard error, when it did not start.
inline Sim *bench_receiver(const std::string &platform, uint32_t pace) {
    SimConfig sc;
    sc.platform = platform;
    sc.faults.pace_baud = pace;
    std::string err;
    Sim *sim = sim_start(sc, &err);
    if (!sim) fprintf(stderr, "sim: %s\n", err.c_str());
    return sim;
}

// Milliseconds the given bytes take on the line (10 bits each).
inline double wire_ms(double bytes, uint32_t baud) { return bytes * 10.0 * 1000.0 / baud; }

inline int64_t now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Milliseconds of the stamp of the line holding position at, or -1.
inline long stamp_at(const std::string &out, size_t at) {
    if (at == std::string::npos) return -1;
    size_t open = out.rfind("\n[", at);
    open = open == std::string::npos ? 0 : open + 1;
    unsigned s = 0, ms = 0;
    if (sscanf(out.c_str() + open, "[%u.%u]", &s, &ms) != 2) return -1;
    return long(s) * 1000 + long(ms);
}
// The stamp of the first / last line holding text, or -1.
inline long first_stamp(const std::string &out, const std::string &text) {
    return stamp_at(out, out.find(text));
}
inline long last_stamp(const std::string &out, const std::string &text) {
    return stamp_at(out, out.rfind(text));
}

inline double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2.0;
}

// The one machine-readable line per flow that bench/run.sh gathers into its
// table, after the bench's own lines:
//   BENCH <flow>|<floor>|<measured>|<ratio>|<target>|<verdict>|<note>
// Every field is text as it should read in the table ('|' never inside); the
// verdict is "met" or "MISSED", or "-" for a figure with no target.
inline void bench_row(const std::string &flow, const std::string &floor,
                      const std::string &measured, const std::string &ratio,
                      const std::string &target, const char *verdict,
                      const std::string &note = "") {
    printf("BENCH %s|%s|%s|%s|%s|%s|%s\n", flow.c_str(), floor.c_str(), measured.c_str(),
           ratio.c_str(), target.c_str(), verdict, note.c_str());
    fflush(stdout);
}
inline void bench_line(const std::string &flow, const std::string &floor,
                       const std::string &measured, const std::string &ratio,
                       const std::string &target, bool met, const std::string &note = "") {
    bench_row(flow, floor, measured, ratio, target, met ? "met" : "MISSED", note);
}

// printf into a std::string, for the fields of a BENCH line.
template <typename... Args>
std::string fmt(const char *format, Args... args) {
    char buf[256];
    snprintf(buf, sizeof buf, format, args...);
    return buf;
}

// The arguments most benches take, [runs] [log-dir]: at least one run (3
// when not given), and the directory for the runs' console output (null:
// none kept). Standard output goes out a line at a time, so that each run's
// line is seen as it is done.
struct BenchArgs {
    int runs = 3;
    const char *log_dir = nullptr;
};
inline BenchArgs bench_args(int argc, char **argv) {
    BenchArgs a;
    if (argc > 1) a.runs = std::max(1, atoi(argv[1]));
    if (argc > 2) a.log_dir = argv[2];
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return a;
}

// Writes a run's console output to dir/<what>-<run>.txt when dir is given.
inline void keep_log(const char *dir, const std::string &what, int run, const std::string &out) {
    if (dir == nullptr) return;
    write_file(std::string(dir) + "/" + what + "-" + std::to_string(run) + ".txt", out);
}
