// The tool's side of the virtual receiver's line, for the sim's unit tests:
// the slave opened raw with plain POSIX calls (the project's serial layer is
// tested on its own), plain writes and bounded reads, and a running sim with
// its port. Expected sentences are built here independently of the sim.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "sim/model.h"
#include "sim/sim.h"

namespace sim_test {

using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

// "$<body>*HH\r\n", body given with its '$'.
inline std::string nmea(const std::string &body) {
    uint8_t x = 0;
    for (size_t i = 1; i < body.size(); ++i) x ^= uint8_t(body[i]);
    char trailer[8];
    std::snprintf(trailer, sizeof trailer, "*%02X\r\n", x);
    return body + trailer;
}

inline std::string text_of(const Bytes &b) { return std::string(b.begin(), b.end()); }
inline Bytes bytes_of(const std::string &s) { return Bytes(s.begin(), s.end()); }

// Opens a terminal device in raw mode as the tool does; -1 on failure.
inline int open_port(const std::string &path) {
    int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return -1;
    termios t{};
    tcgetattr(fd, &t);
    cfmakeraw(&t);
    tcsetattr(fd, TCSANOW, &t);
    return fd;
}

inline bool write_all(int fd, const void *data, size_t len) {
    const uint8_t *p = static_cast<const uint8_t *>(data);
    while (len > 0) {
        ssize_t w = write(fd, p, len);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return false;
        p += w;
        len -= size_t(w);
    }
    return true;
}

inline bool write_all(int fd, const std::string &s) { return write_all(fd, s.data(), s.size()); }
inline bool write_all(int fd, const Bytes &b) { return write_all(fd, b.data(), b.size()); }

// Reads until `want` bytes came or max_ms passed; *chunks gets what each read
// call that brought data returned.
inline std::string read_n(int fd, size_t want, int max_ms,
                          std::vector<std::string> *chunks = nullptr) {
    std::string out;
    auto end = Clock::now() + std::chrono::milliseconds(max_ms);
    while (out.size() < want && Clock::now() < end) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 10) <= 0 || !(p.revents & POLLIN)) continue;
        char buf[256];
        size_t room = want - out.size() < sizeof buf ? want - out.size() : sizeof buf;
        ssize_t n = read(fd, buf, room);
        if (n <= 0) break;
        out.append(buf, size_t(n));
        if (chunks) chunks->emplace_back(buf, size_t(n));
    }
    return out;
}

// Reads until the text read so far ends with `tail`, or max_ms passed.
inline std::string read_until(int fd, const std::string &tail, int max_ms) {
    std::string out;
    auto end = Clock::now() + std::chrono::milliseconds(max_ms);
    while (Clock::now() < end) {
        if (out.size() >= tail.size() &&
            out.compare(out.size() - tail.size(), tail.size(), tail) == 0)
            break;
        out += read_n(fd, 1, 50);
    }
    return out;
}

inline bool input_pending(int fd) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, 0) > 0 && (p.revents & POLLIN);
}

// A running sim of one platform and the tool-side end of its line.
struct Rig {
    Sim *sim = nullptr;
    int port = -1;

    explicit Rig(const std::string &platform, const SimFaults &faults = SimFaults()) {
        SimConfig cfg;
        cfg.platform = platform;
        cfg.faults = faults;
        std::string error;
        sim = sim_start(cfg, &error);
        EXPECT_NE(sim, nullptr) << error;
        if (sim) port = open_port(sim_slave_path(sim));
        EXPECT_GE(port, 0) << std::strerror(errno);
    }
    ~Rig() {
        if (port >= 0) close(port);
        sim_free(sim);
    }
    Rig(const Rig &) = delete;
    Rig &operator=(const Rig &) = delete;

    // Sends a command and reads as many bytes as the expected answer has.
    std::string ask(const std::string &cmd, size_t answer_size) {
        EXPECT_TRUE(write_all(port, cmd));
        return read_n(port, answer_size, 3000);
    }
    Bytes ask(const Bytes &cmd, size_t answer_size) {
        EXPECT_TRUE(write_all(port, cmd));
        return bytes_of(read_n(port, answer_size, 3000));
    }
    SimRecord settle() {
        sim_settle(sim, 100, 5000);
        return sim_record(sim);
    }
};

// The units a platform's model makes of a byte stream, fed to it directly
// (no line, no faults, no commit).
struct Fed {
    std::vector<SimUnit> units;
};

inline Fed feed_model(const std::string &platform, const Bytes &in) {
    const SimModel *m = sim_find_model(platform);
    Fed out;
    EXPECT_NE(m, nullptr) << platform;
    if (!m) return out;
    void *st = m->create();
    SimUnit u;
    for (uint8_t b : in) {
        if (m->feed(st, b, &u)) out.units.push_back(u);
    }
    m->destroy(st);
    return out;
}

}  // namespace sim_test

// The rig's own checks need a working sim; stop the test early otherwise.
#define REQUIRE_RIG(rig)               \
    do {                               \
        ASSERT_NE((rig).sim, nullptr); \
        ASSERT_GE((rig).port, 0);      \
    } while (0)

// Sends cmd and expects exactly `want` back.
#define EXPECT_ANSWER(rig, cmd, want)                     \
    do {                                                  \
        const std::string want_ = (want);                 \
        EXPECT_EQ((rig).ask((cmd), want_.size()), want_); \
    } while (0)
