// Wall time of a DW2207B ephemeris transfer of an RTCM file (200 KiB unless
// told otherwise) against the virtual receiver, compared with the floor the
// protocol sets: a 5 ms pause after every frame, or, with the receiver paced
// at 115200 baud, the wire time of the bytes where that is longer.
//
// Paced, the receiver takes the bytes in slices and is the slower side: the
// tool is done writing well before the receiver has read the last byte. So
// after each paced run the bench writes the same file to a fresh paced
// receiver itself, all at once ("receiver alone"): how long this receiver
// takes for the bytes on this machine, whatever the sender. What the tool
// adds is the rest.
//
//   bench_dw2207b_transfer [runs] [KiB]
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "bench/bench_util.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tools/rtcm_gen.h"

namespace {

constexpr double kPauseMs = 5.0;
constexpr double kTarget = 1.01;  // at most this times the floor

// Milliseconds from the first write until the paced receiver has read the
// last byte, with the whole file written at once from here; -1 on failure.
double receiver_alone_ms(const std::vector<uint8_t> &bytes, uint32_t frames) {
    Sim *sim = bench_receiver("dw2207b", 115200);
    if (!sim) return -1;
    int fd = open(sim_slave_path(sim).c_str(), O_RDWR | O_NOCTTY);
    int64_t start = now_us();
    size_t done = 0;
    while (fd >= 0 && done < bytes.size()) {
        ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) break;
        done += size_t(n);
    }
    sim_settle(sim, 300, 60000);
    if (fd >= 0) close(fd);
    sim_stop(sim);
    SimRecord rec = sim_record(sim);
    double took = double(sim_last_input_end_us(sim) - start) / 1000.0;
    sim_free(sim);
    if (done != bytes.size() || rec.frames.size() != frames) {
        fprintf(stderr, "the receiver alone took %zu frames of %u\n", rec.frames.size(), frames);
        return -1;
    }
    return took;
}

}  // namespace

int main(int argc, char **argv) {
    int runs = argc > 1 ? atoi(argv[1]) : 3;
    int kib = argc > 2 ? atoi(argv[2]) : 200;
    if (runs < 1) runs = 1;
    if (kib < 1) kib = 1;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    RtcmGenConfig cfg;
    cfg.min_size = uint64_t(kib) * 1024;
    RtcmGenStats stats;
    std::vector<uint8_t> bytes = rtcmgen_generate(cfg, &stats);
    const std::string path = make_temp_dir() + "/EPH.rtcm3";
    std::string err;
    if (!rtcmgen_write_bytes(path.c_str(), bytes, &err)) {
        fprintf(stderr, "%s\n", err.c_str());
        return 1;
    }
    printf("file: %zu bytes, %u frames\n", bytes.size(), stats.frames);

    for (uint32_t pace : {0u, 115200u}) {
        double floor_ms = stats.frames * kPauseMs;
        double wire = pace ? wire_ms(double(bytes.size()), pace) : 0.0;
        if (wire > floor_ms) floor_ms = wire;
        std::vector<double> took_all, alone_all;
        for (int run = 0; run < runs; ++run) {
            Sim *sim = bench_receiver("dw2207b", pace);
            if (!sim) return 1;
            int64_t spawned_us = now_us();
            ToolRun r =
                run_program(VKAGNSS_BIN, {"-m", "DW2207B", "-o", "online", "-p",
                                          sim_slave_path(sim), "-b", "115200", "-f" + path});
            sim_settle(sim, 300, 60000);  // let a paced receiver read what the line still holds
            sim_stop(sim);
            SimRecord rec = sim_record(sim);
            // The receiver's last byte, on the tool's stamp scale (the stamps
            // count from the tool's start, a moment after the spawn).
            long received = long((sim_last_input_end_us(sim) - spawned_us) / 1000);
            sim_free(sim);
            long begin = first_stamp(r.out, "[PROGRESS] 0.00%");
            long end = first_stamp(r.out, "Send EphData ret: 0x0");
            if (r.status != 0 || begin < 0 || end < 0 || rec.frames.size() != stats.frames ||
                rec.raw != bytes) {
                fprintf(stderr, "run failed (status %d, %zu frames received)\n%s", r.status,
                        rec.frames.size(), r.out.c_str());
                return 1;
            }
            // Done when the tool has written the last frame and the receiver
            // has taken it in: the line buffers a few KiB, so a paced
            // receiver is still reading when the tool's last write returns.
            long took = (received > end ? received : end) - begin;
            took_all.push_back(double(took));
            std::string alone;
            if (pace) {
                double a = receiver_alone_ms(bytes, stats.frames);
                if (a < 0) return 1;
                alone_all.push_back(a);
                alone = fmt(", receiver alone %.0f ms (%+.2f %%)", a,
                            100.0 * (a - floor_ms) / floor_ms);
            }
            printf(
                "%-14s run %d: tool %6ld ms, receiver done after %6ld ms, floor %8.1f ms "
                "(%s), over floor %+.2f %%%s\n",
                pace ? "paced 115200" : "unpaced", run + 1, end - begin, took, floor_ms,
                wire > stats.frames * kPauseMs ? "wire time" : "5 ms per frame",
                100.0 * (double(took) - floor_ms) / floor_ms, alone.c_str());
        }
        double took = median(took_all);
        double ratio = took / floor_ms;
        std::string note =
            fmt("median of %d; %u frames, %zu bytes", runs, stats.frames, bytes.size());
        if (pace) {
            double a = median(alone_all);
            note +=
                fmt("; the receiver alone, the file written at once: %.0f ms (%.3f x "
                    "the floor), the tool over that: %.3f x",
                    a, a / floor_ms, took / a);
        }
        bench_line(pace ? "DW2207B stream, paced 115200" : "DW2207B stream, unpaced",
                   fmt("%.0f ms (%s)", floor_ms, pace ? "wire time" : "5 ms per frame"),
                   fmt("%.0f ms", took), fmt("%.3f", ratio), fmt("<= %.2f x floor", kTarget),
                   ratio <= kTarget, note);
    }
    remove_tree(path.substr(0, path.rfind('/')));
    return 0;
}
