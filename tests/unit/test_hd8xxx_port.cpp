// The HD8XXX acknowledgement reader and evaluation on a real pseudo-terminal,
// with the receiver's bytes written by hand on the other side.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "hd8xxx/hd8xxx.h"
#include "serial/serial.h"
#include "tests/support/pty.h"
#include "tests/support/stamp_mask.h"

namespace {

// The 10-byte ACK (answer 1) or NAK (answer 0) of class/id, sums computed here.
std::vector<uint8_t> ack(uint8_t cls, uint8_t id, uint8_t answer = 1) {
    std::vector<uint8_t> f = {0xF1, 0xD9, 0x05, answer, 0x02, 0x00, cls, id};
    uint8_t a = 0, b = 0;
    for (size_t i = 2; i < f.size(); ++i) {
        a = uint8_t(a + f[i]);
        b = uint8_t(b + a);
    }
    f.push_back(a);
    f.push_back(b);
    return f;
}

struct PortRig {
    Pty pty;
    SerialPort port;
    PortRig() { port = serial_open(pty.name, 115200); }
    ~PortRig() { serial_close(port); }
    void send(const std::vector<uint8_t> &bytes) {
        write_all_fd(pty.master, bytes.data(), bytes.size());
    }
};

}  // namespace

TEST(Hd8xxxAckReader, GarbageSplitReadsAndAWrongSumAreAccepted) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    std::vector<uint8_t> a = ack(0x0B, 0x10);
    a[9] ^= 0xFF;  // the sum is never checked
    std::thread module([&] {
        rig.send({'$', 'G', 'N', 0xF1, 0x00, 0x13});  // receiver text and a broken start
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        rig.send(std::vector<uint8_t>(a.begin(), a.begin() + 5));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        rig.send(std::vector<uint8_t>(a.begin() + 5, a.end()));
    });
    uint8_t out[HD8XXX_ACK_SIZE] = {0};
    EXPECT_EQ(HD8XXX_CheckBinCmdRsp(rig.port, out, 0x0B, 0x10), 0u);
    module.join();
    EXPECT_EQ(std::vector<uint8_t>(out, out + 10), a);
}

TEST(Hd8xxxAckReader, NothingIsWrittenPastTheAnswer) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    std::vector<uint8_t> bytes = ack(0x06, 0x09);
    std::vector<uint8_t> more = ack(0x06, 0x09);
    bytes.insert(bytes.end(), more.begin(), more.end());  // in the same read
    rig.send(bytes);
    uint8_t out[HD8XXX_ACK_SIZE + 8];
    memset(out, 0xEE, sizeof out);
    EXPECT_EQ(HD8XXX_CheckBinCmdRsp(rig.port, out, 0x06, 0x09), 0u);
    for (size_t i = HD8XXX_ACK_SIZE; i < sizeof out; ++i) EXPECT_EQ(out[i], 0xEE) << i;
}

// The two waits below run into the 5000 ms limit by design.
TEST(Hd8xxxAckReader, AckForAnotherCommandIsIgnoredUntilTheTimeOut) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    rig.send(ack(0x0B, 0x11));
    VkPosAid pos{};
    snprintf(pos.lat, sizeof pos.lat, "0");
    snprintf(pos.lon, sizeof pos.lon, "0");
    snprintf(pos.alt, sizeof pos.alt, "0");
    testing::internal::CaptureStdout();
    // Position 0/0 is sent by the binary frame (only the sentence refuses it).
    EXPECT_EQ(HD8XXX_SendAidPosByBP(rig.port, &pos), 0x107u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][ERROR] recv ACK-ACK failed,err:0x200\n"), std::string::npos)
        << out;
    EXPECT_EQ(out.find("msg[6]"), std::string::npos);
    std::vector<uint8_t> sent = read_master(rig.pty.master, 25, 1000);
    ASSERT_EQ(sent.size(), 25u);
    EXPECT_EQ(sent[3], 0x10);
}

TEST(Hd8xxxAckReader, TheByteThatBreaksAFrameIsNotTriedAgain) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    // F1 F1 D9 ...: the second F1 breaks the first frame and is not a new start.
    std::vector<uint8_t> bytes = {0xF1};
    std::vector<uint8_t> a = ack(0x06, 0x09);
    bytes.insert(bytes.end(), a.begin(), a.end());
    rig.send(bytes);
    uint8_t out[HD8XXX_ACK_SIZE];
    EXPECT_EQ(HD8XXX_CheckBinCmdRsp(rig.port, out, 0x06, 0x09), 0x200u);
}

TEST(Hd8xxxAckReader, NakIsReportedAsSuch) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    rig.send(ack(0x06, 0x09, 0));
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_ClearEph(rig.port), 0x107u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_EQ(out,
              "[SSS.mmm] Clear Eph cmd: F1 D9 06 09 08 00 02 00 00 00 00 08 00 00 21 23 \n"
              "[SSS.mmm][ERROR] recv ACK-ACK failed,is ACK-NAK,recv[3] = 0x0\n");
}

TEST(Hd8xxxStartWay, NoneSendsNothingAndOthersAreRefused) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_SendStartWay(rig.port, 0, 1), 0u);
    EXPECT_EQ(HD8XXX_SendStartWay(rig.port, 4, 1), 0x107u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm] no start way\n[SSS.mmm][ERROR] unknown start way\n");
    EXPECT_TRUE(read_master(rig.pty.master, 1, 200).empty());
}

TEST(Hd8xxxNmeaAid, ZeroLatitudeIsNeverSentAsASentence) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    VkPosAid pos{};
    snprintf(pos.lat, sizeof pos.lat, "0");
    snprintf(pos.lon, sizeof pos.lon, "121.5");
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_SendAidPosByNmea(rig.port, &pos), 0x102u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm][ERROR] lat[0.000000] or lon[121.500000] is none,no send pos\n");
    EXPECT_TRUE(read_master(rig.pty.master, 1, 200).empty());
}

TEST(Hd8xxxNmeaAid, ReplySplitOverTwoReadsIsJoined) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    std::thread module([&] {
        read_master(rig.pty.master, 10, 2000);  // the tool's sentence has begun
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        // The reply comes in two pieces, far enough apart to be two reads.
        rig.send({'$', 'P', 'V', 'N', 'K', 'A', 'I', 'D'});
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        std::string rest = "TIME,OK*";
        uint8_t x = 0;
        for (char c : std::string("PVNKAIDTIME,OK")) x ^= uint8_t(c);
        char sum[8];
        snprintf(sum, sizeof sum, "%02X\r\n", x);
        rest += sum;
        rig.send(std::vector<uint8_t>(rest.begin(), rest.end()));
    });
    VkTimeAid t{};
    snprintf(t.utc, sizeof t.utc, "2026-01-08-09:59:17");
    t.leap = 18;
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_SendAidTimeByNmea(rig.port, &t), 0u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    module.join();
    EXPECT_NE(out.find("[SSS.mmm] send $PVNKAIDTIME ok\n"), std::string::npos) << out;
}

TEST(Hd8xxxFactoryReset, WritesTheFrameAndReadsNoReply) {
    PortRig rig;
    ASSERT_TRUE(serial_is_open(rig.port));
    rig.send(ack(0x06, 0x09));  // an answer it never reads
    testing::internal::CaptureStdout();
    EXPECT_EQ(HD8XXX_FactoryReset(rig.port), 0u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm] write facotry_reset_cmd ret = 16\n");
    EXPECT_EQ(read_master(rig.pty.master, 16, 1000),
              std::vector<uint8_t>(kHd8xxxFactoryResetFrame, kHd8xxxFactoryResetFrame + 16));
    uint8_t left[16];
    EXPECT_EQ(serial_read(rig.port, left, sizeof left, 200), 10u);  // still in the line
}
