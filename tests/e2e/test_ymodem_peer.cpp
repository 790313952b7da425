// The YMODEM sender against an independent receiver: lrzsz's "rb --ymodem"
// behind a socat pseudo-terminal, driven through the HD8XXX port adapters.
// Every file must arrive byte for byte under the name the sender gave.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/ymodem.h"
#include "serial/serial.h"
#include "tests/support/harness.h"
#include "toolkit/checksum.h"

namespace {

bool have_program(const char *name) {
    std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

// socat with rb on the far side of a pseudo-terminal linked at dir/tty; rb
// writes what it receives into dir.
struct RbPeer {
    pid_t pid = -1;
    std::string link;

    explicit RbPeer(const std::string &dir) : link(dir + "/tty") {
        pid = fork();
        if (pid == 0) {
            if (chdir(dir.c_str()) != 0) _exit(127);
            int null = open("/dev/null", O_WRONLY);
            if (null >= 0) dup2(null, STDERR_FILENO);
            std::string pty = "PTY,raw,echo=0,link=" + link;
            execlp("socat", "socat", pty.c_str(), "SYSTEM:rb --ymodem -y", (char *)nullptr);
            _exit(127);
        }
    }
    // Waits for the link to appear.
    bool ready() const {
        for (int i = 0; i < 500; ++i) {
            struct stat st;
            if (lstat(link.c_str(), &st) == 0) return true;
            usleep(10000);
        }
        return false;
    }
    // Waits for rb (and socat) to end; true when they ended on their own.
    bool finished() {
        for (int i = 0; i < 1000; ++i) {
            int status = 0;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = -1;
                return true;
            }
            usleep(10000);
        }
        return false;
    }
    ~RbPeer() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
};

std::vector<uint8_t> sample(size_t size, uint32_t seed) {
    std::vector<uint8_t> v(size);
    uint32_t x = seed;
    for (auto &b : v) {
        x = x * 1103515245u + 12345u;
        b = uint8_t(x >> 23);
    }
    return v;
}

class YmodemPeer : public testing::TestWithParam<size_t> {};

}  // namespace

TEST_P(YmodemPeer, RbReceivesTheFileByteForByte) {
    if (under_wine()) GTEST_SKIP() << "runs the YMODEM sender inside this test, not vkagnss";
    if (!have_program("socat") || !have_program("rb"))
        GTEST_SKIP() << "socat and lrzsz (rb) are needed; scripts/install-deps.sh installs them";
    const size_t size = GetParam();
    std::string dir = make_temp_dir();
    {
        RbPeer peer(dir);
        ASSERT_TRUE(peer.ready());
        SerialPort port = serial_open(peer.link.c_str(), 115200);
        ASSERT_TRUE(serial_is_open(port));
        hd8xxx_use_port(port);
        // The receiver asks with 'C' when it is ready for the header.
        uint8_t b = 0;
        bool asked = false;
        for (int i = 0; i < 100 && !asked; ++i)
            asked = serial_read(port, &b, 1, 200) == 1 && b == YMODEM_C;
        ASSERT_TRUE(asked);

        const std::string name = "vk_" + std::to_string(size) + ".bin";
        const std::vector<uint8_t> data = sample(size, uint32_t(size));
        ymodem_io_init(HD8XXX_SerialSend, HD8XXX_SerialRecv, Vk_CRC16_Calc, HD8XXX_Delay);
        HD8XXX_SetOffEphTotalSize(uint32_t(size));
        testing::internal::CaptureStdout();
        int r = ymodem_file_transfer(name.c_str(), data.data(), int32_t(size));
        std::string out = testing::internal::GetCapturedStdout();
        serial_close(port);
        EXPECT_EQ(r, 0) << out;
        EXPECT_TRUE(peer.finished());
        EXPECT_EQ(read_file(dir + "/" + name), data);
        EXPECT_NE(out.find("[PROGRESS] 100.00%\r\n"), std::string::npos);
    }
    remove_tree(dir);
}

INSTANTIATE_TEST_SUITE_P(Sizes, YmodemPeer, testing::Values(1, 1023, 1024, 1025, 300000));
