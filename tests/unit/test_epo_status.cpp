// The EPO status query, which no flow runs, against the virtual receivers.
#include <gtest/gtest.h>

#include <string>

#include "ag33xx/ag33xx.h"
#include "rz610mxxxx/rz610mxxxx.h"
#include "serial/serial.h"
#include "sim/sim.h"
#include "tests/support/stamp_mask.h"

namespace {

struct Receiver {
    Sim *sim = nullptr;
    SerialPort port;
    explicit Receiver(const char *platform, uint32_t repeat_ms = 0) {
        SimConfig cfg;
        cfg.platform = platform;
        cfg.faults.repeat_ms = repeat_ms;
        sim = sim_start(cfg);
        if (sim) port = serial_open(sim_slave_path(sim).c_str(), 115200);
    }
    ~Receiver() {
        serial_close(port);
        sim_free(sim);
    }
};

uint8_t gps_record[72] = {0x10, 0x27, 0x00, 0x05};  // hour 10000, SVID 5

}  // namespace

// A report of no data is not a success, so the wait reads on: it ends with
// "no data" when that report is the last thing read (the receiver repeats
// it), and with "no reply" when the line falls silent after it.
TEST(EpoStatus, ReceiverWithoutDataAnswersNone) {
    Receiver r("ag33xx", 50);
    ASSERT_TRUE(serial_is_open(r.port));
    epo_set_type(0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, r.port), 0x300u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm] cmd: $PAIR470,0*"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm][INFO] total number of EPO data sets: 0\n"), std::string::npos);
}

TEST(EpoStatus, ReceiverHoldingRecordsAnswersTheirCount) {
    Receiver r("ag33xx");
    ASSERT_TRUE(serial_is_open(r.port));
    testing::internal::CaptureStdout();
    ASSERT_EQ(epo_send_record(&AG33XX_Dialect, r.port, gps_record, 0, 5), 0u);
    ASSERT_EQ(epo_send_record(&AG33XX_Dialect, r.port, gps_record, 0, 5), 0u);
    epo_set_type(0);
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, r.port), 0u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][INFO] total number of EPO data sets: 2\n"), std::string::npos)
        << out;
}

TEST(EpoStatus, ReportOfNoDataFollowedBySilenceIsNoReply) {
    Receiver r("ag33xx");
    ASSERT_TRUE(serial_is_open(r.port));
    epo_set_type(2);
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, r.port), 0x200u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][INFO] total number of EPO data sets: 0\n"), std::string::npos);
}

TEST(EpoStatus, GpsGlonassFileAsksForBothSystemsAndStopsAtTheFirstEmpty) {
    Receiver r("ag33xx", 50);
    ASSERT_TRUE(serial_is_open(r.port));
    testing::internal::CaptureStdout();
    ASSERT_EQ(epo_send_record(&AG33XX_Dialect, r.port, gps_record, 0, 5), 0u);
    epo_set_type(1);
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, r.port), 0x300u);  // GPS 1, GLONASS 0
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("cmd: $PAIR470,0*"), std::string::npos);
    EXPECT_NE(out.find("cmd: $PAIR470,1*"), std::string::npos);
    sim_stop(r.sim);
    SimRecord rec = sim_record(r.sim);
    ASSERT_EQ(rec.sentences.size(), 3u);
}

TEST(EpoStatus, InvalidOrUnknownTypeIsNotAsked) {
    testing::internal::CaptureStdout();
    epo_set_type(-1);
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, SERIAL_NO_PORT), 0x102u);
    epo_set_type(9);
    EXPECT_EQ(epo_query_status(&AG33XX_Dialect, SERIAL_NO_PORT), 0x107u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] Invalid epo type\n[SSS.mmm][ERROR] Unknown EPO type 9\n");
}

TEST(EpoStatus, SecondPlatformTakesAnyStatusReport) {
    Receiver r("rz610mxxxx");
    ASSERT_TRUE(serial_is_open(r.port));
    epo_set_type(3);
    testing::internal::CaptureStdout();
    EXPECT_EQ(epo_query_status(&RZ610MXXXX_Dialect, r.port), 0u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][INFO] send cmd: $PVNKEPOGETSTATUS,4*"), std::string::npos) << out;
}
