// Serial layer: device paths (both OS forms) and the POSIX port driven over a
// pseudo-terminal whose master side plays the module.
#include "serial/serial.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/stamp_mask.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>
#if defined(__linux__)
#include "serial/serial_linux_baud.h"
#include "tests/support/pty.h"
#endif
#endif

namespace {

std::string posix_path(const char *name, uint64_t size = 256) {
    std::vector<char> out(size_t(size) + 1, '#');
    serial_posix_device_path(name, out.data(), size);
    return std::string(out.data());
}

std::string win32_path(const char *name) {
    char out[32];
    std::memset(out, '#', sizeof out);
    serial_win32_device_path(name, out);
    return std::string(out);
}

}  // namespace

TEST(SerialPath, BareNameMapsUnderDev) {
    EXPECT_EQ(posix_path("ttyUSB0"), "/dev/ttyUSB0");
    EXPECT_EQ(posix_path("ttyACM1"), "/dev/ttyACM1");
}

TEST(SerialPath, NameWithSlashIsUsedAsItIs) {
    EXPECT_EQ(posix_path("/dev/pts/4"), "/dev/pts/4");
    EXPECT_EQ(posix_path("/tmp/ttyVK0"), "/tmp/ttyVK0");
    EXPECT_EQ(posix_path("./ttyVK0"), "./ttyVK0");
}

TEST(SerialPath, PosixPathIsCutToTheBuffer) {
    EXPECT_EQ(posix_path("ttyUSB0", 8), "/dev/tt");
    EXPECT_EQ(posix_path("/dev/ttyS0", 5), "/dev");
}

TEST(SerialPath, Win32DeviceNamespaceForm) {
    EXPECT_EQ(win32_path("COM3"), "\\\\.\\COM3");
    EXPECT_EQ(win32_path("COM12"), "\\\\.\\COM12");
}

TEST(SerialPath, Win32NameLongerThan27IsCut) {
    const std::string name27 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0";  // 27 characters
    ASSERT_EQ(name27.size(), 27u);
    EXPECT_EQ(win32_path(name27.c_str()), "\\\\.\\" + name27);
    const std::string longer = name27 + "123456";
    std::string cut = win32_path(longer.c_str());
    EXPECT_EQ(cut, "\\\\.\\" + name27);
    EXPECT_EQ(cut.size(), 31u);
}

#ifndef _WIN32

namespace {

bool wait_input(SerialPort handle, int max_ms) {
    pollfd pfd{int(handle.handle), POLLIN, 0};
    return poll(&pfd, 1, max_ms) == 1;
}

bool is_open(SerialPort h) { return serial_is_open(h); }

}  // namespace

TEST(SerialPort, OpensByPathAndCloses) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    EXPECT_NE(h.handle, 0u);
    EXPECT_GE(h.handle, 3u);
    EXPECT_EQ(serial_close(h), 0);
}

TEST(SerialPort, MissingDeviceGivesInvalidHandle) {
    EXPECT_EQ(serial_open("/dev/vk-no-such-port-here", 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_open("vk-no-such-port-here", 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_open("/nonexistent-dir/ttyX", 9600), SERIAL_NO_PORT);
    SerialError e = serial_last_error();
    EXPECT_EQ(e.code, ENOENT);
    EXPECT_STREQ(e.what, "open /nonexistent-dir/ttyX: No such file or directory");
}

TEST(SerialPort, OrdinaryFileIsNotAPort) {
    char path[] = "/tmp/vk_serial_test_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    write_str(fd, "keep me");
    close(fd);
    EXPECT_EQ(serial_open(path, 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_last_error().code, ENOTTY);
    unlink(path);
}

TEST(SerialPort, SecondOpenOfAHeldPortFails) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort first = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(first));
    EXPECT_EQ(serial_open(pty.name, 115200), SERIAL_NO_PORT);
    EXPECT_EQ(serial_close(first), 0);
    // Released on close: the port can be opened again.
    SerialPort again = serial_open(pty.name, 115200);
    EXPECT_TRUE(is_open(again));
    serial_close(again);
}

TEST(SerialPort, HandleNeverLandsOnTheStandardStreams) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    int saved = dup(0);
    ASSERT_GE(saved, 0);
    close(0);  // the next open() would return 0
    SerialPort h = serial_open(pty.name, 9600);
    dup2(saved, 0);
    close(saved);
    ASSERT_TRUE(is_open(h));
    EXPECT_GE(h.handle, 3u);
    // The descriptor is usable.
    write_str(pty.master, "ok");
    uint8_t buf[8] = {0};
    EXPECT_EQ(serial_read(h, buf, sizeof buf, 2000), 2u);
    serial_close(h);
}

TEST(SerialPort, AcceptsStandardAndOddBaudRates) {
    const uint32_t rates[] = {9600, 115200, 921600, 1000000, 3000000, 250000, 460800, 1234567};
    for (uint32_t baud : rates) {
        Pty pty;
        ASSERT_TRUE(pty.ok());
        SerialPort h = serial_open(pty.name, baud);
        ASSERT_TRUE(is_open(h)) << baud;
#if defined(__linux__)
        unsigned got = 0;
        ASSERT_EQ(vk_linux_get_baud(int(h.handle), &got), 0);
        EXPECT_EQ(got, baud);
#endif
        serial_close(h);
    }
}

TEST(SerialPort, OpenSetsRaw8N1WithoutFlowControl) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    // Start from a cooked, 7E2, flow-controlled terminal.
    termios t{};
    tcgetattr(pty.slave, &t);
    t.c_cflag = (t.c_cflag & ~tcflag_t(CSIZE)) | CS7 | PARENB | CSTOPB | CRTSCTS;
    t.c_iflag |= IXON | IXOFF | ICRNL;
    t.c_lflag |= ICANON | ECHO;
    t.c_oflag |= OPOST | ONLCR;
    tcsetattr(pty.slave, TCSANOW, &t);

    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    termios r{};
    ASSERT_EQ(tcgetattr(int(h.handle), &r), 0);
    EXPECT_EQ(r.c_cflag & CSIZE, tcflag_t(CS8));
    EXPECT_EQ(r.c_cflag & (PARENB | CSTOPB | CRTSCTS), 0u);
    EXPECT_NE(r.c_cflag & CLOCAL, 0u);
    EXPECT_NE(r.c_cflag & CREAD, 0u);
    EXPECT_EQ(r.c_iflag & (IXON | IXOFF | IXANY | ICRNL), 0u);
    EXPECT_EQ(r.c_lflag & (ICANON | ECHO), 0u);
    EXPECT_EQ(r.c_oflag & OPOST, 0u);

    // Bytes pass untouched in both directions ("\n" not turned into "\r\n").
    const uint8_t data[] = {'\r', '\n', 0x00, 0x11, 0x13, 0x03, 0xFF};
    EXPECT_EQ(serial_write(h, data, sizeof data), sizeof data);
    EXPECT_EQ(read_master(pty.master, sizeof data), std::vector<uint8_t>(data, data + sizeof data));
    write_all_fd(pty.master, data, sizeof data);
    uint8_t buf[32] = {0};
    ASSERT_EQ(serial_read(h, buf, sizeof data, 3000), sizeof data);
    EXPECT_EQ(std::memcmp(buf, data, sizeof data), 0);
    serial_close(h);
}

TEST(SerialPort, ReadReturnsWhatTheModuleSent) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    write_str(pty.master, "$PAIR001,004,0*3E\r\n");
    char buf[256] = {0};
    uint32_t n = serial_read(h, buf, sizeof buf, 2000);
    EXPECT_EQ(std::string(buf, n), "$PAIR001,004,0*3E\r\n");
    serial_close(h);
}

TEST(SerialPort, ReadEndsWithTheBurstNotAtTheLength) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    // The second burst comes long after the first has ended: a read asking
    // for far more than the first burst must hand back only the first.
    std::thread module([&] {
        write_str(pty.master, "first burst");
        std::this_thread::sleep_for(std::chrono::milliseconds(400));
        write_str(pty.master, "second");
    });
    char buf[10240] = {0};
    uint32_t n = serial_read(h, buf, sizeof buf, 10000);
    EXPECT_EQ(std::string(buf, n), "first burst");
    n = serial_read(h, buf, sizeof buf, 10000);
    EXPECT_EQ(std::string(buf, n), "second");
    module.join();
    serial_close(h);
}

TEST(SerialPort, ReadOnASilentLineReturnsZero) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    uint8_t buf[64];
    EXPECT_EQ(serial_read(h, buf, sizeof buf, 200), 0u);
    serial_close(h);
}

TEST(SerialPort, ReadStopsAtLength) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    write_str(pty.master, "0123456789ABCDEFGHIJ");
    ASSERT_TRUE(wait_input(h, 2000));
    char buf[32];
    std::memset(buf, '#', sizeof buf);
    ASSERT_EQ(serial_read(h, buf, 8, 2000), 8u);
    EXPECT_EQ(std::string(buf, 8), "01234567");
    EXPECT_EQ(buf[8], '#');  // nothing written past len
    uint32_t n = serial_read(h, buf, sizeof buf, 2000);
    EXPECT_EQ(std::string(buf, n), "89ABCDEFGHIJ");
    serial_close(h);
}

TEST(SerialPort, ReadWithZeroTimeoutTakesWhatIsThere) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    uint8_t buf[16];
    EXPECT_EQ(serial_read(h, buf, sizeof buf, 0), 0u);
    write_str(pty.master, "xyz");
    ASSERT_TRUE(wait_input(h, 2000));
    uint32_t n = serial_read(h, buf, sizeof buf, 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(buf), n), "xyz");
    serial_close(h);
}

TEST(SerialPort, WritesArriveByteExact) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    std::vector<uint8_t> data(256);
    for (size_t i = 0; i < data.size(); ++i) data[i] = uint8_t(i);
    EXPECT_EQ(serial_write(h, data.data(), data.size()), 256u);
    EXPECT_EQ(read_master(pty.master, 256), data);
    EXPECT_EQ(serial_write(h, data.data(), 0), 0u);
    serial_close(h);
}

TEST(SerialPort, LargeWriteWaitsForRoomAndArrivesWhole) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 921600);
    ASSERT_TRUE(is_open(h));
    // Far more than the pseudo-terminal buffers: the write must wait for the
    // reader rather than stop short.
    std::vector<uint8_t> data(200000);
    uint32_t x = 12345;
    for (auto &b : data) {
        x = x * 1103515245u + 12345u;
        b = uint8_t(x >> 24);
    }
    std::vector<uint8_t> got;
    std::thread module([&] { got = read_master(pty.master, data.size()); });
    EXPECT_EQ(serial_write(h, data.data(), data.size()), uint32_t(data.size()));
    module.join();
    EXPECT_EQ(got, data);
    serial_close(h);
}

TEST(SerialPort, HungUpLineReadsAndWritesNothing) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 115200);
    ASSERT_TRUE(is_open(h));
    close(pty.master);
    pty.master = -1;
    const uint8_t data[] = {1, 2, 3};
    EXPECT_EQ(serial_write(h, data, sizeof data), 0u);
    uint8_t buf[8];
    EXPECT_EQ(serial_read(h, buf, sizeof buf, 100), 0u);
    EXPECT_EQ(serial_close(h), 0);
}

TEST(SerialPort, ChangeBaudRateOnAnOpenPort) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    SerialPort h = serial_open(pty.name, 9600);
    ASSERT_TRUE(is_open(h));
    EXPECT_EQ(serial_change_br(h, 115200), 0);
#if defined(__linux__)
    unsigned got = 0;
    ASSERT_EQ(vk_linux_get_baud(int(h.handle), &got), 0);
    EXPECT_EQ(got, 115200u);
#endif
    EXPECT_EQ(serial_change_br(h, 250000), 0);
#if defined(__linux__)
    ASSERT_EQ(vk_linux_get_baud(int(h.handle), &got), 0);
    EXPECT_EQ(got, 250000u);
#endif
    EXPECT_EQ(serial_change_br(h, 921600), 0);
#if defined(__linux__)
    ASSERT_EQ(vk_linux_get_baud(int(h.handle), &got), 0);
    EXPECT_EQ(got, 921600u);
#endif
    termios r{};
    ASSERT_EQ(tcgetattr(int(h.handle), &r), 0);
    EXPECT_EQ(r.c_cflag & CSIZE, tcflag_t(CS8));
    EXPECT_EQ(r.c_cflag & (PARENB | CSTOPB), 0u);
    // Still a working line.
    write_str(pty.master, "after");
    char buf[16] = {0};
    uint32_t n = serial_read(h, buf, sizeof buf, 2000);
    EXPECT_EQ(std::string(buf, n), "after");
    serial_close(h);
}

TEST(SerialPort, ChangeBaudRateOnAClosedHandleFails) {
    EXPECT_EQ(serial_change_br(SERIAL_NO_PORT, 115200), -1);
}

TEST(SerialPort, LineControlWithNullHandleOnlyStores) {
    // With a pseudo-terminal on descriptor 0 any ioctl there would be refused,
    // so success proves the null handle touched no descriptor.
    Pty pty;
    ASSERT_TRUE(pty.ok());
    int saved = dup(0);
    ASSERT_GE(saved, 0);
    dup2(pty.slave, 0);
    int rts = serial_CfgRTS(SERIAL_NULL_PORT, 1);
    int dtr = serial_CfgDTR(SERIAL_NULL_PORT, 1);
    int rts0 = serial_CfgRTS(SERIAL_NULL_PORT, 0);
    int dtr0 = serial_CfgDTR(SERIAL_NULL_PORT, 0);
    dup2(saved, 0);
    close(saved);
    EXPECT_EQ(rts, 1);
    EXPECT_EQ(dtr, 1);
    EXPECT_EQ(rts0, 1);
    EXPECT_EQ(dtr0, 1);
    EXPECT_EQ(Vk_Uart_ConfigDtrRts(1, 1), 0);
    EXPECT_EQ(Vk_Uart_ConfigDtrRts(0, 0), 0);
}

TEST(SerialPort, PseudoTerminalRefusesLineControlButStillOpens) {
    Pty pty;
    ASSERT_TRUE(pty.ok());
    // Levels pending: the open applies them, the pty refuses, the open stands.
    Vk_Uart_ConfigDtrRts(1, 1);
    SerialPort h = serial_open(pty.name, 115200);
    Vk_Uart_ConfigDtrRts(0, 0);
    ASSERT_TRUE(is_open(h));
    EXPECT_EQ(serial_CfgRTS(h, 1), 0);
    EXPECT_EQ(serial_CfgRTS(h, 0), 0);
    EXPECT_EQ(serial_CfgDTR(h, 1), 0);
    EXPECT_EQ(serial_CfgDTR(h, 0), 0);
    write_str(pty.master, "alive");
    char buf[16] = {0};
    uint32_t n = serial_read(h, buf, sizeof buf, 2000);
    EXPECT_EQ(std::string(buf, n), "alive");
    EXPECT_EQ(serial_close(h), 0);
}

TEST(SerialPort, CloseOfAnInvalidHandleReturnsZero) { EXPECT_EQ(serial_close(SERIAL_NO_PORT), 0); }

#endif  // !_WIN32
