// EPO transfers against the virtual receivers: on the AG33XX an online
// transfer of a 3-day GPS file (384 "$PAIR471" records, each acknowledged)
// and an offline transfer of a 3-day GPS+GLONASS file (672 binary frames,
// each acknowledged); on the RZ610MXXXX an online transfer of a 3-day GPS
// file (384 "$PVNKEPO" records, each acknowledged). Unpaced and with the
// receiver paced at 115200 baud. Reports the time per acknowledged record
// beyond the wire time of its bytes.
//
//   bench_epo_transfer [runs]
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "bench/bench_util.h"
#include "tests/support/harness.h"
#include "tools/epo_gen.h"

namespace {

struct Case {
    const char *model;     // -m of the tool
    const char *platform;  // the virtual receiver
    const char *label;
    EpoGenKind kind;
    const char *mode;
    size_t ack_bytes;  // the receiver's answer to one record
    const char *flow;  // its name in the bench table
    double target;     // the least share of the line rate, paced
};

}  // namespace

int main(int argc, char **argv) {
    const int runs = bench_args(argc, argv).runs;
    // Answers: "$PAIR001,471,0*39\r\n", the 13-byte binary acknowledgement,
    // "$PVNKEPO,OK*HH\r\n".
    const Case cases[] = {
        {"AG33XX", "ag33xx", "AG33XX online GPS (384 $PAIR471)", EpoGenKind::VGps, "online", 19,
         "AG33XX online, 3-day GPS", 0.92},
        {"AG33XX", "ag33xx", "AG33XX offline GPS+GLONASS (672 frames)", EpoGenKind::Gr, "offline",
         13, "AG33XX offline, 3-day GPS+GLONASS", 0.96},
        {"RZ610MXXXX", "rz610mxxxx", "RZ610MXXXX online GPS (384 $PVNKEPO)", EpoGenKind::VelpoGps,
         "online", 16, "RZ610MXXXX online, 3-day GPS", 0.92}};
    std::string dir = make_temp_dir();
    for (const Case &c : cases) {
        EpoGenConfig cfg;
        cfg.kind = c.kind;
        std::string name = epogen_default_name(cfg);
        std::string path = dir + "/" + name;
        std::string err;
        if (!epogen_write_file(cfg, path.c_str(), nullptr, &err)) {
            fprintf(stderr, "%s\n", err.c_str());
            return 1;
        }
        for (uint32_t pace : {0u, 115200u}) {
            std::vector<double> took_all, wire_all, per_all;
            size_t units = 0;
            for (int run = 0; run < runs; ++run) {
                Sim *sim = bench_receiver(c.platform, pace);
                if (!sim) return 1;
                ToolRun r =
                    run_program(VKAGNSS_BIN, {"-m", c.model, "-o", c.mode, "-p",
                                              sim_slave_path(sim), "-b", "115200", "-f" + path});
                sim_stop(sim);
                SimRecord rec = sim_record(sim);
                sim_free(sim);
                long begin = first_stamp(r.out, "Sending " + name + " to module");
                long end = first_stamp(r.out, "send " + name + " OK");
                size_t records = rec.epo_records.size();
                if (r.status != 0 || begin < 0 || end < 0 || records == 0) {
                    fprintf(stderr, "run failed (status %d)\n%s", r.status, r.out.c_str());
                    return 1;
                }
                size_t answers = rec.replies;
                double wire_ms =
                    pace ? double(rec.raw.size() + answers * c.ack_bytes) * 10.0 * 1000.0 / pace
                         : 0.0;
                double per_record = (double(end - begin) - wire_ms) / double(records);
                took_all.push_back(double(end - begin));
                wire_all.push_back(wire_ms);
                per_all.push_back(per_record);
                units = records;
                printf(
                    "%-40s %-13s run %d: %4zu records in %6ld ms, wire %7.1f ms, "
                    "%.3f ms per record beyond the wire\n",
                    c.label, pace ? "paced 115200" : "unpaced", run + 1, records, end - begin,
                    wire_ms, per_record);
            }
            if (pace == 0) continue;
            // Against the line: the wire time of every byte both ways over the
            // time taken, from the stamps of "Sending" and "send ... OK".
            double took = median(took_all), wire = median(wire_all);
            double share = wire / took;
            bench_line(c.flow, fmt("%.0f ms (wire time)", wire), fmt("%.0f ms", took),
                       fmt("%.1f %% of the line rate", 100.0 * share),
                       fmt(">= %.0f %% of the line rate", 100.0 * c.target), share >= c.target,
                       fmt("median of %d; %zu acknowledged units, %.3f ms each beyond the wire",
                           runs, units, median(per_all)));
        }
    }
    remove_tree(dir);
    return 0;
}
