// The pure pieces behind the tool's robustness, and the reads that must see a
// slow receiver's reply whole.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "core/file.h"
#include "core/interrupt.h"
#include "core/log.h"
#include "core/result.h"
#include "dw2207b/dw2207b.h"
#include "serial/serial.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "toolkit/reply.h"

// --- timing rules of the serial layer ---------------------------------------------

TEST(SerialTiming, QuietGapIsEightCharactersAndAtLeastOneMillisecond) {
    EXPECT_EQ(serial_quiet_gap_us(115200), 1000u);  // 694 us of eight characters
    EXPECT_EQ(serial_quiet_gap_us(921600), 1000u);
    EXPECT_EQ(serial_quiet_gap_us(57600), 1389u);
    EXPECT_EQ(serial_quiet_gap_us(38400), 2084u);
    EXPECT_EQ(serial_quiet_gap_us(9600), 8334u);
    EXPECT_EQ(serial_quiet_gap_us(4800), 16667u);
    EXPECT_EQ(serial_quiet_gap_us(0), 1000u);  // rate unknown
}

TEST(SerialTiming, WriteBudgetIsTheWireTimePlusASecond) {
    EXPECT_EQ(serial_write_budget_ms(0, 115200), 1000u);
    EXPECT_EQ(serial_write_budget_ms(1152, 115200), 1100u);
    EXPECT_EQ(serial_write_budget_ms(1, 115200), 1001u);  // rounded up
    EXPECT_EQ(serial_write_budget_ms(960, 9600), 2000u);
    EXPECT_EQ(serial_write_budget_ms(100, 0), 1001000u);  // no rate: one bit a second
}

// --- pauses ----------------------------------------------------------------------------

// A pause ends on its deadline, never before it (only the lower bound is
// asserted: how late a wake-up comes is the bench's to measure).
TEST(Pause, NeverEndsBeforeItsDeadline) {
    for (int i = 0; i < 20; ++i) {
        const uint64_t deadline = vk_clock_us() + 2000 + uint64_t(i) * 137;
        platform_sleep_until(deadline);
        EXPECT_GE(vk_clock_us(), deadline);
    }
    const uint64_t start = vk_clock_us();
    platform_sleep(5000);  // 5 ms
    EXPECT_GE(vk_clock_us() - start, 5000u);
    const uint64_t past = vk_clock_us();
    platform_sleep_until(past - 1000);  // a deadline already gone: returns at once
    EXPECT_GE(vk_clock_us(), past);
}

// A poll is asked for a little less than the time left, so that the kernel's
// leeway on long time-outs (a thousandth, a two-hundredth when niced) cannot
// carry it past the deadline; the rest is waited by a second, short call.
TEST(Pause, PollsAskForLessThanTheTimeLeftByTheKernelsLeeway) {
    EXPECT_EQ(vk_poll_wait_ns(1000000000), 995000000);  // 1 s: 5 ms left for the second call
    EXPECT_EQ(vk_poll_wait_ns(5000000), 4975000);
    EXPECT_EQ(vk_poll_wait_ns(199), 199);  // too short to matter
    EXPECT_EQ(vk_poll_wait_ns(0), 0);
    EXPECT_EQ(vk_poll_wait_ns(-5), 0);  // a deadline already gone
    // Whatever the kernel adds, the first call ends before the deadline.
    for (int64_t rem :
         {int64_t(1000), int64_t(1000000), int64_t(1000000000), int64_t(60000000000)}) {
        const int64_t ask = vk_poll_wait_ns(rem);
        EXPECT_LE(ask + ask / 200, rem) << rem;
    }
}

// A pause a protocol asks for after a reply counts from the reply's last
// byte, so that the quiet gap which ended the read is inside it.
TEST(PauseAfterReply, CountsFromTheLastByteOfAReplyThatCameAfterTheRequest) {
    EXPECT_EQ(vk_reply_pause_end(10000, 5000, 11100, 5000), 15000u);
    EXPECT_EQ(vk_reply_pause_end(10000, 5000, 11100, 1000000), 1010000u);
    // Whole milliseconds, as every pause takes them.
    EXPECT_EQ(vk_reply_pause_end(10000, 5000, 11100, 5999), 15000u);
    EXPECT_EQ(vk_reply_pause_end(10000, 5000, 11100, 999), 10000u);
}

TEST(PauseAfterReply, WithoutAReplyToThisRequestCountsFromNow) {
    EXPECT_EQ(vk_reply_pause_end(0, 5000, 9000, 5000), 14000u);     // nothing ever came
    EXPECT_EQ(vk_reply_pause_end(4000, 5000, 9000, 5000), 14000u);  // an older reply
    EXPECT_EQ(vk_reply_pause_end(5000, 5000, 9000, 5000), 14000u);  // not after the request
    EXPECT_EQ(vk_reply_pause_end(9500, 5000, 9000, 5000), 14000u);  // a time not yet reached
}

// Over a real pseudo-terminal: the read notes when its bytes came (between the
// request and its own return), a read that brings nothing leaves that alone,
// and the pause lasts at least its time after the reply (only the lower bound
// is asserted).
TEST(PauseAfterReply, TheReadNotesWhenTheReplyCameAndThePauseFollowsIt) {
    int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string name = ptsname(master);
    SerialPort port = serial_open(name.c_str(), 115200);
    ASSERT_TRUE(serial_is_open(port));
    EXPECT_EQ(serial_last_input_us(port), 0u);
    const uint64_t asked = vk_clock_us();
    ASSERT_EQ(write(master, "$ACK*00\r\n", 9), 9);
    char buf[32] = {};
    EXPECT_EQ(serial_read(port, buf, sizeof buf, 1000), 9u);
    const uint64_t returned = vk_clock_us();
    const uint64_t heard = serial_last_input_us(port);
    EXPECT_GE(heard, asked);
    EXPECT_LE(heard, returned);
    EXPECT_EQ(serial_read(port, buf, sizeof buf, 5), 0u);
    EXPECT_EQ(serial_last_input_us(port), heard);
    vk_pause_after_reply(port, asked, 5000);
    EXPECT_GE(vk_clock_us(), heard + 5000);
    // A request that got no reply pauses its whole time from the call.
    const uint64_t unanswered = vk_clock_us();
    vk_pause_after_reply(port, unanswered, 5000);
    EXPECT_GE(vk_clock_us(), unanswered + 5000);
    serial_close(port);
    close(master);
}

// --- the interrupt's result -------------------------------------------------------

TEST(Interrupt, ResultGivesOneHundredTwentyEightPlusTheSignal) {
    EXPECT_EQ(vk_interrupt_result(2), 0x802u);
    EXPECT_EQ(vk_exit_status(vk_interrupt_result(2)), 130);
    EXPECT_EQ(vk_exit_status(vk_interrupt_result(15)), 143);
    EXPECT_EQ(vk_exit_status(vk_interrupt_result(1)), 129);
    EXPECT_EQ(vk_interrupt_signal(), 0);  // nothing came in this process
}

// --- input files -------------------------------------------------------------------

TEST(InputFile, OnlyARegularFileOpensAndAFifoNeverBlocks) {
    std::string dir = make_temp_dir();
    std::string regular = dir + "/eph.rtcm3";
    write_file(regular, std::string("\xD3\x00\x00", 3));
    FILE *f = vk_fopen_regular(regular.c_str());
    ASSERT_NE(f, nullptr);
    fclose(f);

    std::string fifo = dir + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    testing::internal::CaptureStderr();
    errno = 0;
    EXPECT_EQ(vk_fopen_regular(fifo.c_str()), nullptr);  // no writer: would block in fopen
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "vkagnss: " + fifo + " is a FIFO, not a regular file\n");

    testing::internal::CaptureStderr();
    EXPECT_EQ(vk_fopen_regular(dir.c_str()), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // the errno says it

    EXPECT_EQ(vk_fopen_regular((dir + "/missing").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    remove_tree(dir);
}

// --- line noise ----------------------------------------------------------------------

namespace {

VkLineNoise noise_of(const std::vector<uint8_t> &bytes, const uint8_t *frame_start = nullptr) {
    VkLineNoise n;
    vk_count_noise(&n, bytes.data(), uint32_t(bytes.size()), frame_start);
    return n;
}

std::vector<uint8_t> bytes_of(const std::string &s) { return {s.begin(), s.end()}; }

}  // namespace

TEST(LineNoise, TextIsNotNoise) {
    EXPECT_FALSE(vk_looks_garbled(noise_of(bytes_of("$GNRMC,,V,,,,,,,,,,N*4D\r\n"))));
    EXPECT_FALSE(vk_looks_garbled(noise_of(bytes_of("$ERROR*58\r\n"))));
}

TEST(LineNoise, FewBytesSayNothing) {
    EXPECT_FALSE(vk_looks_garbled(noise_of({0x00, 0xFF, 0x80, 0xFE, 0x00, 0xF0, 0x80})));
    EXPECT_TRUE(vk_looks_garbled(noise_of({0x00, 0xFF, 0x80, 0xFE, 0x00, 0xF0, 0x80, 0x00})));
}

TEST(LineNoise, MostlyUnprintableIsNoiseUnlessAFrameStarted) {
    std::vector<uint8_t> b = {0x11, 0xE5, 0x00, 0x80, 0x04, 0x24, 0x9C, 0xFF, 0x01, 0x02};
    const uint8_t epo[2] = {0x04, 0x24};
    const uint8_t hd[2] = {0xF1, 0xD9};
    EXPECT_FALSE(vk_looks_garbled(noise_of(b, epo)));
    EXPECT_TRUE(vk_looks_garbled(noise_of(b, hd)));
    EXPECT_TRUE(vk_looks_garbled(noise_of(b)));
}

TEST(LineNoise, CountsCarryAcrossReads) {
    VkLineNoise n;
    const uint8_t start[2] = {0xF1, 0xD9};
    const uint8_t a[] = {0x00, 0x01, 0x02, 0xF1};
    const uint8_t b[] = {0xD9, 0x03, 0x04, 0x05};
    vk_count_noise(&n, a, 4, start);
    vk_count_noise(&n, b, 4, start);
    EXPECT_EQ(n.bytes, 8u);
    EXPECT_EQ(n.unprintable, 8u);
    EXPECT_TRUE(n.frame_start);  // F1 in one read, D9 in the next
}

// --- what a wrong baud rate makes of a reply -------------------------------------

TEST(SimGarble, SameRateChangesNothing) {
    std::vector<uint8_t> b = bytes_of("$OK*04\r\n");
    b.push_back(0x00);
    b.push_back(0xFF);
    EXPECT_EQ(sim_garble(b, 115200, 115200), b);
}

TEST(SimGarble, HalfTheRateIsHeardBitByBit) {
    // Each sent bit lasts two heard bits: the start bit is heard as itself
    // and then as data bit 0, the data bits shift up by one place in two.
    // 0xFF: start, then ones: heard 1111 1110; the stop sample falls on a one.
    EXPECT_EQ(sim_garble({0xFF}, 4800, 9600), (std::vector<uint8_t>{0xFE}));
    // 0x00: start and eight zeros: heard 0x00, with the line low at the stop
    // sample; the next falling edge never comes (it stays high after).
    EXPECT_EQ(sim_garble({0x00}, 4800, 9600), (std::vector<uint8_t>{0x00}));
}

TEST(SimGarble, ASlowReceiverAtAFastPortLooksLikeNoise) {
    std::vector<uint8_t> heard = sim_garble(bytes_of("$OK*04\r\n$OK*04\r\n"), 9600, 115200);
    EXPECT_TRUE(vk_looks_garbled(noise_of(heard))) << heard.size();
}

TEST(SimGarble, AFastReceiverAtASlowPortLooksLikeNoise) {
    std::vector<uint8_t> sent;
    for (int i = 0; i < 40; ++i) {
        std::vector<uint8_t> s = bytes_of("$GNRMC,,V,,,,,,,,,,N*4D\r\n");
        sent.insert(sent.end(), s.begin(), s.end());
    }
    std::vector<uint8_t> heard = sim_garble(sent, 115200, 9600);
    EXPECT_TRUE(vk_looks_garbled(noise_of(heard))) << heard.size();
}

// --- why a port did not open ---------------------------------------------------------

TEST(OpenFailure, NoSuchPortListsThePortsThatExist) {
    EXPECT_EQ(serial_open("/dev/vk-no-such-port", 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_last_error().kind, SerialFailure::Missing);
    char why[1024];
    serial_explain_open_failure("/dev/vk-no-such-port", why, sizeof why);
    std::string text = why;
    EXPECT_EQ(text.rfind("no such port /dev/vk-no-such-port; ", 0), 0u) << text;
    // Every port it names exists.
    std::string list = text.substr(text.find("; ") + 2);
    if (list.rfind("serial ports here: ", 0) == 0) {
        list = list.substr(19);
        size_t at = 0;
        while (at < list.size()) {
            size_t end = list.find(' ', at);
            std::string name = list.substr(at, end == std::string::npos ? end : end - at);
            struct stat st {};
            EXPECT_EQ(stat(name.c_str(), &st), 0) << name;
            if (end == std::string::npos) break;
            at = end + 1;
        }
    } else {
        EXPECT_EQ(list, "no serial ports found on this machine");
    }
}

TEST(OpenFailure, ACharacterDeviceThatIsNoTerminalIsNotASerialDevice) {
    EXPECT_EQ(serial_open("/dev/null", 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_last_error().kind, SerialFailure::NotSerial);
    char why[256];
    serial_explain_open_failure("/dev/null", why, sizeof why);
    EXPECT_STREQ(why, "/dev/null is not a serial device");
}

TEST(OpenFailure, APortInUseSaysSo) {
    Sim *sim = sim_start(SimConfig{.platform = "dw2207b"});
    ASSERT_NE(sim, nullptr);
    std::string path = sim_slave_path(sim);
    SerialPort first = serial_open(path.c_str(), 115200);
    ASSERT_TRUE(serial_is_open(first));
    EXPECT_EQ(serial_open(path.c_str(), 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_last_error().kind, SerialFailure::Busy);
    char why[512];
    serial_explain_open_failure(path.c_str(), why, sizeof why);
    EXPECT_EQ(std::string(why), path +
                                    " is in use by another program (busy, locked or opened "
                                    "exclusively): close that program (a terminal, a modem "
                                    "manager, another vkagnss) and try again");
    serial_close(first);
    sim_free(sim);
}

// --- a slow receiver's reply comes in one read -----------------------------------

// At 9600 baud a reply written byte by byte at wire speed (1.04 ms a byte)
// must reach the reply check whole: a read ends on a gap of a few character
// times, not on the first byte. Two threads keep both cores busy meanwhile.
// The receiver plays the UART, whose bytes keep their pace however busy the
// host is: its thread runs at real-time priority where that is allowed, so
// the load falls on the tool's side alone.
TEST(SlowLine, EveryReplyAt9600IsSeenByOneCheckUnderLoad) {
    SimConfig cfg{.platform = "dw2207b"};
    cfg.realtime = true;
    cfg.faults.pace_baud = 9600;
    Sim *sim = sim_start(cfg);
    ASSERT_NE(sim, nullptr);
    SerialPort port = serial_open(sim_slave_path(sim).c_str(), 9600);
    ASSERT_TRUE(serial_is_open(port));
    std::atomic<bool> stop{false};
    std::vector<std::thread> load;
    for (int i = 0; i < 2; ++i)
        load.emplace_back([&stop] {
            volatile uint64_t x = 0;
            while (!stop.load(std::memory_order_relaxed)) x = x + 1;
        });
    int failures = 0;
    std::string codes;
    testing::internal::CaptureStdout();
    for (int run = 0; run < 200; ++run) {
        uint32_t r = DW2207B_SendStartWay(port, 1);
        if (r != 0) {
            ++failures;
            codes += " run " + std::to_string(run) + ": " + std::to_string(r);
        }
    }
    std::string out = testing::internal::GetCapturedStdout();
    stop = true;
    for (std::thread &t : load) t.join();
    serial_close(port);
    sim_free(sim);
    EXPECT_EQ(failures, 0) << codes;
}
