// Wall time of a DW2207B ephemeris transfer of a 200 KiB RTCM file against the
// virtual receiver, compared with the floor the protocol sets: a 5 ms pause
// after every frame, or, with the receiver paced at 115200 baud, the wire
// time of the bytes where that is longer.
//
//   bench_dw2207b_transfer [runs]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "bench/bench_util.h"
#include "tests/support/harness.h"
#include "tools/rtcm_gen.h"

int main(int argc, char **argv) {
    int runs = argc > 1 ? atoi(argv[1]) : 3;
    RtcmGenConfig cfg;
    cfg.min_size = 200 * 1024;
    RtcmGenStats stats;
    std::vector<uint8_t> bytes = rtcmgen_generate(cfg, &stats);
    const std::string path = "/tmp/vkagnss-bench-200k.rtcm3";
    std::string err;
    if (!rtcmgen_write_bytes(path.c_str(), bytes, &err)) {
        fprintf(stderr, "%s\n", err.c_str());
        return 1;
    }
    printf("file: %zu bytes, %u frames\n", bytes.size(), stats.frames);

    for (uint32_t pace : {0u, 115200u}) {
        double floor_ms = stats.frames * 5.0;
        double wire_ms = pace ? bytes.size() * 10.0 * 1000.0 / pace : 0.0;
        if (wire_ms > floor_ms) floor_ms = wire_ms;
        for (int run = 0; run < runs; ++run) {
            SimConfig sc;
            sc.platform = "dw2207b";
            sc.faults.pace_baud = pace;
            Sim *sim = sim_start(sc, &err);
            if (!sim) {
                fprintf(stderr, "sim: %s\n", err.c_str());
                return 1;
            }
            int64_t spawned_us = std::chrono::duration_cast<std::chrono::microseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count();
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
            if (r.status != 0 || begin < 0 || end < 0 || rec.frames.size() != stats.frames) {
                fprintf(stderr, "run failed (status %d, %zu frames received)\n%s", r.status,
                        rec.frames.size(), r.out.c_str());
                return 1;
            }
            // Done when the tool has written the last frame and the receiver
            // has taken it in: the line buffers a few KiB, so a paced
            // receiver is still reading when the tool's last write returns.
            long took = (received > end ? received : end) - begin;
            printf(
                "%-14s run %d: tool %6ld ms, receiver done after %6ld ms, floor %8.1f ms "
                "(%s), over floor %+.2f %%\n",
                pace ? "paced 115200" : "unpaced", run + 1, end - begin, took, floor_ms,
                wire_ms > stats.frames * 5.0 ? "wire time" : "5 ms per frame",
                100.0 * (double(took) - floor_ms) / floor_ms);
        }
    }
    remove(path.c_str());
    return 0;
}
