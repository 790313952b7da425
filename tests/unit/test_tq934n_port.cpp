// TQ934N's binary time frame on a pseudo-terminal, the receiver's bytes
// written by hand: another 'B' 'K' frame before the answer makes the tool
// send its (by then cleared) command buffer again.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "serial/serial.h"
#include "tests/support/pty.h"
#include "tests/support/stamp_mask.h"
#include "tq934n/tq934n.h"

TEST(Tq934nBinaryTime, AnotherFrameFirstBringsTheClearedBufferAgain) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort port = serial_open(pty.name, 115200);
    ASSERT_TRUE(serial_is_open(port));
    rtcm_start_pos = -1;
    AGNSS_MODE = 1;
    std::vector<uint8_t> first, again;
    std::thread module([&] {
        first = read_master(pty.master, 20, 3000);
        // A block acknowledgement, not the time's answer.
        const uint8_t other[8] = {'B', 'K', 0x54, 0xEB, 0x3C, 0x01, 0x00, 0x00};
        write_all_fd(pty.master, other, sizeof other);
        again = read_master(pty.master, 20, 3000);
        const uint8_t answer[8] = {'B', 'K', 0xB1, 0x80, 0x19, 0x03, 0x00, 0x00};
        write_all_fd(pty.master, answer, sizeof answer);
    });
    VkTimeAid t{};
    snprintf(t.utc, sizeof t.utc, "2026-01-08-09:59:17:0");
    t.leap = 18;
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQ934N_SendAidTimeByBP(port, &t), 0u);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    module.join();
    serial_close(port);
    ASSERT_EQ(first.size(), 20u);
    EXPECT_EQ(first[0], 'B');
    EXPECT_EQ(first[4], 0x18);
    EXPECT_EQ(again, std::vector<uint8_t>(20, 0x00));
    EXPECT_NE(out.find("[SSS.mmm] No valid ACK found in received data\n"), std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm] ACK OK - Type 1\n"), std::string::npos) << out;
    EXPECT_NE(out.find("[SSS.mmm] get time: 8, 1, 2026, 9, 59, 17 , 0\n"), std::string::npos);
}
