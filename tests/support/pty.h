// A pseudo-terminal pair for tests that talk to the serial layer directly:
// the code under test opens the slave by its path like a real port, the test
// plays the module on the master side.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

// A pseudo-terminal; the tool opens the slave by its path like a real port.
struct Pty {
    int master = -1;
    int slave = -1;
    char name[128] = {0};

    Pty() {
        if (openpty(&master, &slave, name, nullptr, nullptr) != 0) {
            master = slave = -1;
            return;
        }
        termios t{};
        tcgetattr(master, &t);
        cfmakeraw(&t);
        tcsetattr(master, TCSANOW, &t);
    }
    ~Pty() {
        if (master >= 0) close(master);
        if (slave >= 0) close(slave);
    }
    bool ok() const { return master >= 0; }
};

inline void write_all_fd(int fd, const void *data, size_t len) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    size_t done = 0;
    while (done < len) {
        ssize_t n = write(fd, p + done, len - done);
        if (n > 0) {
            done += size_t(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            pollfd pfd{fd, POLLOUT, 0};
            if (poll(&pfd, 1, 2000) <= 0) return;
        }
    }
}

inline void write_str(int fd, const std::string &s) { write_all_fd(fd, s.data(), s.size()); }

// Reads exactly n bytes from the master side, giving up after max_ms of silence.
inline std::vector<uint8_t> read_master(int fd, size_t n, int max_ms = 5000) {
    std::vector<uint8_t> out;
    uint8_t buf[4096];
    while (out.size() < n) {
        pollfd pfd{fd, POLLIN, 0};
        if (poll(&pfd, 1, max_ms) <= 0) break;
        ssize_t r = read(fd, buf, std::min(sizeof buf, n - out.size()));
        if (r <= 0) break;
        out.insert(out.end(), buf, buf + r);
    }
    return out;
}
