// EPO files cut short inside a record: nothing of the cut record goes on the
// wire, the transfer ends with the read failure and never reports 100 %.
// Every cut offset of the last record, on the text (online) and the binary
// (offline) path, against the virtual receiver in this process.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ag33xx/ag33xx.h"
#include "epo/epo.h"
#include "serial/serial.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tools/epo_gen.h"

namespace {

struct Receiver {
    Sim *sim = nullptr;
    SerialPort port;
    explicit Receiver(const char *platform) {
        SimConfig cfg;
        cfg.platform = platform;
        sim = sim_start(cfg);
        if (sim != nullptr) port = serial_open(sim_slave_path(sim).c_str(), 115200);
    }
    ~Receiver() {
        serial_close(port);
        sim_free(sim);
    }
    // Waits for the receiver to take in what is on the line; its record then.
    SimRecord settled() {
        sim_settle(sim, 10, 5000);
        return sim_record(sim);
    }
};

// Three whole records of cfg's file and keep bytes of the fourth.
std::string cut_file(const std::string &dir, const EpoGenConfig &cfg, const std::string &name,
                     size_t keep) {
    std::vector<uint8_t> whole = epogen_generate(cfg);
    std::string path = dir + "/" + name;
    write_file(path, std::vector<uint8_t>(whole.begin(), whole.begin() + long(3 * 72 + keep)));
    return path;
}

using Send = uint32_t (*)(const EpoDialect *, SerialPort, const char *);

// Sends the file, returning the result and what was printed.
uint32_t send_file(Send send, SerialPort port, const std::string &path, std::string *out) {
    testing::internal::CaptureStdout();
    uint32_t r = send(&AG33XX_Dialect, port, path.c_str());
    *out = testing::internal::GetCapturedStdout();
    return r;
}

// Every cut of the last record of cfg's file: 517 with the count that was
// read, no 100 %, and the receiver holds exactly the whole records (records
// it got as frames or sentences, none partial).
void check_every_cut(const char *name, EpoGenKind kind, Send send) {
    std::string dir = make_temp_dir();
    Receiver rx("ag33xx");
    ASSERT_NE(rx.sim, nullptr);
    ASSERT_TRUE(serial_is_open(rx.port));
    EpoGenConfig cfg;
    cfg.kind = kind;
    cfg.segments = 1;
    size_t taken = 0;
    for (size_t keep = 1; keep < 72; ++keep) {
        SCOPED_TRACE("bytes kept of the last record: " + std::to_string(keep));
        std::string out;
        EXPECT_EQ(send_file(send, rx.port, cut_file(dir, cfg, name, keep), &out), 517u);
        EXPECT_NE(out.find("[ERROR] actual_read_len = " + std::to_string(keep) + ",is wrong\n"),
                  std::string::npos)
            << out;
        EXPECT_EQ(out.find("100.00%"), std::string::npos);
        EXPECT_EQ(out.find("OK\n"), std::string::npos);
        SimRecord rec = rx.settled();
        ASSERT_EQ(rec.epo_records.size(), taken + 3);
        for (size_t i = taken; i < rec.epo_records.size(); ++i)
            ASSERT_EQ(rec.epo_records[i].size(), 72u) << "record " << i;
        taken = rec.epo_records.size();
        EXPECT_EQ(rec.prn_errors, 0u);
    }
    remove_tree(dir);
}

}  // namespace

TEST(TruncatedEpoRecord, BinaryPathSendsNoneOfTheCutRecord) {
    check_every_cut("EPO_GPS_3_1.DAT", EpoGenKind::Gps, epo_send_file_offline);
}

TEST(TruncatedEpoRecord, TextPathSendsNoneOfTheCutRecord) {
    check_every_cut("VGPS.DAT", EpoGenKind::VGps, epo_send_file_online);
}

TEST(TruncatedEpoRecord, HeaderCutShortIsNoHeaderOnEitherPath) {
    std::string dir = make_temp_dir();
    Receiver rx("ag33xx");
    ASSERT_TRUE(serial_is_open(rx.port));
    EpoGenConfig offline_cfg;
    offline_cfg.kind = EpoGenKind::Gal;
    offline_cfg.segments = 1;
    EpoGenConfig online_cfg = offline_cfg;
    online_cfg.kind = EpoGenKind::VGal;
    const std::vector<uint8_t> offline = epogen_generate(offline_cfg);
    const std::vector<uint8_t> online = epogen_generate(online_cfg);
    for (size_t keep = 1; keep < 72; ++keep) {
        SCOPED_TRACE("bytes kept of the header: " + std::to_string(keep));
        std::string path = dir + "/" + epogen_default_name(offline_cfg);
        write_file(path, std::vector<uint8_t>(offline.begin(), offline.begin() + long(keep)));
        std::string out;
        EXPECT_EQ(send_file(epo_send_file_offline, rx.port, path, &out), 518u);
        EXPECT_NE(out.find("[ERROR] data_head_len = " + std::to_string(keep) + ",is wrong\n"),
                  std::string::npos)
            << out;
        path = dir + "/" + epogen_default_name(online_cfg);
        write_file(path, std::vector<uint8_t>(online.begin(), online.begin() + long(keep)));
        EXPECT_EQ(send_file(epo_send_file_online, rx.port, path, &out), 517u);
        EXPECT_NE(out.find("[ERROR] data_head_len = " + std::to_string(keep) + ",is wrong\n"),
                  std::string::npos)
            << out;
    }
    SimRecord rec = rx.settled();
    EXPECT_TRUE(rec.epo_records.empty());
    EXPECT_TRUE(rec.epo_markers.empty());  // the begin frame needs the header's list first
    remove_tree(dir);
}
