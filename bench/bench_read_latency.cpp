// Time from the virtual receiver's last reply byte to serial_read returning,
// over a pseudo-terminal: how soon the reply waits see an acknowledgement.
//
//   bench_read_latency [rounds]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "serial/serial.h"
#include "sim/sim.h"
#include "toolkit/checksum.h"

int main(int argc, char **argv) {
    int rounds = argc > 1 ? atoi(argv[1]) : 2000;
    SimConfig cfg;
    cfg.platform = "dw2207b";
    std::string err;
    Sim *sim = sim_start(cfg, &err);
    if (!sim) {
        fprintf(stderr, "sim: %s\n", err.c_str());
        return 1;
    }
    SerialPort port = serial_open(sim_slave_path(sim).c_str(), 115200);
    if (!serial_is_open(port)) {
        fprintf(stderr, "cannot open %s\n", sim_slave_path(sim).c_str());
        return 1;
    }
    char cmd[64] = "$AIDTIME,2026,1,8,9,59,17,0";
    uint32_t len = Vk_NMEA_AppendTrailer(cmd, sizeof cmd);
    std::vector<double> us;
    char buf[10241];
    for (int i = 0; i < rounds + 50; ++i) {
        serial_write(port, cmd, len);
        uint32_t n = serial_read(port, buf, 10240, 200);
        int64_t back = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::steady_clock::now().time_since_epoch())
                           .count();
        if (n < 6 || memcmp(buf, "$OK*04", 6) != 0) {
            fprintf(stderr, "round %d: unexpected reply (%u bytes)\n", i, n);
            return 1;
        }
        if (i >= 50) us.push_back(double(back - sim_last_answer_end_us(sim)));  // 50 warm-up rounds
    }
    serial_close(port);
    sim_stop(sim);
    sim_free(sim);
    std::sort(us.begin(), us.end());
    auto at = [&](double q) { return us[size_t(q * double(us.size() - 1))] / 1000.0; };
    printf(
        "serial_read after the last reply byte, %zu rounds: median %.3f ms, p90 %.3f ms, "
        "p99 %.3f ms, max %.3f ms\n",
        us.size(), at(0.5), at(0.9), at(0.99), us.back() / 1000.0);
    // The floor is the quiet gap itself: a read ends 1 ms after the last byte
    // at the soonest.
    bool met = at(0.5) <= 1.2 && at(0.99) <= 1.5;
    bench_line("serial_read after the last reply byte", "1.00 ms (the quiet gap)",
               fmt("median %.3f ms, p99 %.3f ms", at(0.5), at(0.99)), fmt("%.3f", at(0.5) / 1.0),
               "median <= 1.2 ms, p99 <= 1.5 ms", met,
               fmt("%zu rounds, max %.3f ms", us.size(), us.back() / 1000.0));
    return 0;
}
