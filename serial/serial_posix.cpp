// Serial port on POSIX hosts: termios, poll() and the modem-control ioctls.
//
// The handle is the file descriptor, always >= 3 so that 0 stays free as the
// "null handle" of the line-control routines. The descriptor is kept
// non-blocking; every wait is a poll() with an explicit deadline.
#include "serial/serial.h"
#include "serial/serial_common.h"

#include "core/interrupt.h"
#include "core/log.h"

#if defined(__linux__)
#include "serial/serial_linux_baud.h"
#endif

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

struct BaudEntry {
    uint32_t baud;
    speed_t code;
};

// The rates this host's termios names with a B constant.
const BaudEntry kBaudTable[] = {
    {50, B50},           {75, B75},     {110, B110},   {134, B134},     {150, B150},
    {200, B200},         {300, B300},   {600, B600},   {1200, B1200},   {1800, B1800},
    {2400, B2400},       {4800, B4800}, {9600, B9600}, {19200, B19200}, {38400, B38400},
#ifdef B57600
    {57600, B57600},
#endif
#ifdef B115200
    {115200, B115200},
#endif
#ifdef B230400
    {230400, B230400},
#endif
#ifdef B460800
    {460800, B460800},
#endif
#ifdef B500000
    {500000, B500000},
#endif
#ifdef B576000
    {576000, B576000},
#endif
#ifdef B921600
    {921600, B921600},
#endif
#ifdef B1000000
    {1000000, B1000000},
#endif
#ifdef B1152000
    {1152000, B1152000},
#endif
#ifdef B1500000
    {1500000, B1500000},
#endif
#ifdef B2000000
    {2000000, B2000000},
#endif
#ifdef B2500000
    {2500000, B2500000},
#endif
#ifdef B3000000
    {3000000, B3000000},
#endif
#ifdef B3500000
    {3500000, B3500000},
#endif
#ifdef B4000000
    {4000000, B4000000},
#endif
};

bool handle_fd(SerialPort port, int *fd) {
    // 0..2 are the standard streams (and 0 the null handle): never a port.
    if (port.handle < 3 || port.handle > uint64_t(INT_MAX)) return false;
    *fd = int(port.handle);
    return true;
}

// Keeps errno's reason for serial_last_error; returns false for chaining.
bool note_errno(const char *what, const char *name, SerialFailure kind = SerialFailure::Other) {
    int code = errno;
    char text[160];
    snprintf(text, sizeof text, "%.40s %.110s", what, name);
    serial_note_error(code, text, strerror(code), kind);
    return false;
}

// The kind of failure an open's errno stands for.
SerialFailure open_failure(int code) {
    switch (code) {
        case EBUSY:
        case EWOULDBLOCK: return SerialFailure::Busy;
        case EACCES:
        case EPERM: return SerialFailure::Permission;
        case ENOENT:
        case ENODEV:
        case ENXIO:
        case ENOTDIR: return SerialFailure::Missing;
        case ENOTTY: return SerialFailure::NotSerial;
        default: return SerialFailure::Other;
    }
}

// errno values that mean the device itself is gone (unplugged adapter,
// hung-up line), as opposed to a passing condition.
bool device_gone(int code) {
    return code == EIO || code == ENXIO || code == ENODEV || code == EPIPE || code == EBADF;
}

// Notes the hang-up for serial_last_error and marks the port gone.
void note_gone(SerialPort port, const char *what) {
    if (errno == 0) errno = EIO;
    note_errno(what, "the port", SerialFailure::Gone);
    serial_mark_gone(serial_state(port));
}

int64_t now_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

// Puts "baud" into *t when termios has a constant for it. Returns false when
// the rate needs the host's arbitrary-rate interface instead.
bool set_termios_speed(termios *t, uint32_t baud) {
    for (const BaudEntry &e : kBaudTable) {
        if (e.baud == baud) {
#ifdef CIBAUD
            t->c_cflag &= ~tcflag_t(CIBAUD);  // input speed: same as output
#endif
            cfsetispeed(t, e.code);
            cfsetospeed(t, e.code);
            return true;
        }
    }
#if !defined(__linux__)
    // BSD-style termios takes the rate itself as speed_t.
    if (cfsetispeed(t, speed_t(baud)) == 0 && cfsetospeed(t, speed_t(baud)) == 0) return true;
#endif
    return false;
}

// Applies *t and then, for a rate without a constant, the exact rate.
// Returns 0, or -1 when the device refused.
int apply_termios(int fd, termios *t, uint32_t baud, int when) {
    bool standard = baud == 0 || set_termios_speed(t, baud);
    if (tcsetattr(fd, when, t) != 0) return -1;
    if (standard) return 0;
#if defined(__linux__)
    return vk_linux_set_custom_baud(fd, baud) == 0 ? 0 : -1;
#else
    return -1;
#endif
}

// Waits until the port is ready for "events" (POLLIN or POLLOUT) or the
// deadline passes; a signal that comes meanwhile ends the run here.
// 1: ready, 0: deadline passed, -1: the line is gone (hang-up, error).
int wait_port(int fd, short events, int64_t deadline_ns) {
    for (;;) {
        vk_interrupt_point();
        int64_t rem = vk_poll_wait_ns(deadline_ns - now_ns());
        timespec ts{time_t(rem / 1000000000LL), long(rem % 1000000000LL)};
        pollfd p[2] = {{fd, events, 0}, {vk_interrupt_fd(), POLLIN, 0}};
        int r = ppoll(p, p[1].fd >= 0 ? 2 : 1, &ts, nullptr);
        if (r < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        if (p[1].revents != 0) continue;  // the interrupt point above ends the run
        if (r == 0) {
            if (now_ns() >= deadline_ns) return 0;
            continue;
        }
        if (p[0].revents & events) return 1;
        errno = (p[0].revents & POLLNVAL) ? EBADF : EIO;
        return -1;
    }
}

// Reads up to len bytes before the time-out; the read ends as soon as the
// line falls quiet after the first byte. A port that is gone reads nothing.
uint32_t read_port(SerialPort port, uint8_t *buf, uint32_t len, uint32_t timeout_ms) {
    int fd = -1;
    if (!handle_fd(port, &fd) || buf == nullptr) return 0;
    SerialPortState *st = serial_state(port);
    if (st != nullptr && st->gone) return 0;
    const int64_t deadline = now_ns() + int64_t(timeout_ms) * 1000000LL;
    const int64_t gap = int64_t(serial_quiet_gap_us(st != nullptr ? st->baud : 0)) * 1000LL;
    uint32_t got = 0;
    while (got < len) {
        int64_t until = deadline;
        if (got > 0) {
            int64_t quiet_end = now_ns() + gap;
            if (quiet_end < until) until = quiet_end;
        }
        int w = wait_port(fd, POLLIN, until);
        if (w == 0) break;
        if (w < 0) {
            note_gone(port, "poll");
            break;
        }
        ssize_t n = read(fd, buf + got, size_t(len - got));
        if (n > 0) {
            got += uint32_t(n);
            if (st != nullptr) st->last_input_us = vk_clock_us();
            continue;
        }
        if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) continue;
        // End of file or a hard error: a hung-up line.
        if (n == 0) errno = EIO;
        note_gone(port, "read");
        break;
    }
    return got;
}

// Writes len bytes, waiting for room until the write's budget (its wire time
// plus a second) has passed, then for the bytes to leave. A receiver that
// takes nothing leaves a short count; a port that is gone writes nothing.
uint32_t write_port(SerialPort port, const uint8_t *buf, uint32_t len) {
    int fd = -1;
    if (!handle_fd(port, &fd) || buf == nullptr) return 0;
    vk_interrupt_point();
    SerialPortState *st = serial_state(port);
    if (st != nullptr && st->gone) return 0;
    const int64_t deadline =
        now_ns() + int64_t(serial_write_budget_ms(len, st != nullptr ? st->baud : 0)) * 1000000LL;
    uint32_t done = 0;
    while (done < len) {
        ssize_t n = write(fd, buf + done, size_t(len - done));
        if (n > 0) {
            done += uint32_t(n);
            continue;
        }
        if (n < 0 && errno == EINTR) {
            vk_interrupt_point();
            continue;
        }
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            int w = wait_port(fd, POLLOUT, deadline);
            if (w > 0) continue;
            if (w == 0) {
                errno = ETIMEDOUT;
                note_errno("write (the receiver takes no data) to", "the port",
                           SerialFailure::Stalled);
                break;
            }
            note_gone(port, "poll");
            break;
        }
        if (n < 0 && device_gone(errno)) {
            note_gone(port, "write");  // e.g. EIO once the other end hung up
            break;
        }
        note_errno("write", "the port");
        break;
    }
    // A write is complete when the bytes have left, as with a synchronous
    // write on a comm port; a following baud change or read deadline then
    // starts after the transmission. A write that came short (gone, or a
    // receiver that takes nothing) is not waited for any longer.
    if (done == len) {
        while (tcdrain(fd) != 0 && errno == EINTR) vk_interrupt_point();
    }
    return done;
}

bool set_modem_line(SerialPort port, int line, uint32_t level) {
    int fd = -1;
    if (!handle_fd(port, &fd)) return false;
    int bits = line;
    return ioctl(fd, level != 0 ? TIOCMBIS : TIOCMBIC, &bits) == 0;
}

}  // namespace

SerialPort serial_open(const char *name, uint32_t baud) {
    if (name == nullptr) return SERIAL_NO_PORT;
    vk_precise_timers();  // the 1 ms quiet gap of every read relies on it
    char path[4096];
    serial_posix_device_path(name, path, sizeof path);

    int fd = open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        note_errno("open", path, open_failure(errno));
        return SERIAL_NO_PORT;
    }
    if (fd < 3) {
        // Keep 0 free as the null handle (and never hand out a std stream).
        int high = fcntl(fd, F_DUPFD_CLOEXEC, 3);
        if (high < 0) note_errno("dup", path);
        close(fd);
        if (high < 0) return SERIAL_NO_PORT;
        fd = high;
    }
    // Only a terminal device is a port: never write protocol bytes into a
    // file that happens to carry the given name.
    if (!isatty(fd)) {
        note_errno("open", path, SerialFailure::NotSerial);  // ENOTTY
        close(fd);
        return SERIAL_NO_PORT;
    }
    // Exclusive use. The advisory lock catches other programs that lock the
    // port (and a second open in this one); TIOCEXCL refuses further opens of
    // the device by unprivileged programs.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        serial_note_error(EBUSY, path, "held by another program", SerialFailure::Busy);
        close(fd);
        return SERIAL_NO_PORT;
    }
    SerialPort port{uint64_t(fd)};
    SerialPortState *st = serial_track(port, name, baud);
    if (st == nullptr) {
        serial_note_error(EMFILE, path, "too many ports open in this program");
        close(fd);
        return SERIAL_NO_PORT;
    }
    ioctl(fd, TIOCEXCL);

    // Raw 8N1, no flow control. A device that refuses these settings (or the
    // rate) is no port to talk to: the open fails rather than send at a rate
    // the receiver does not hear.
    termios t{};
    if (tcgetattr(fd, &t) != 0) {
        note_errno("tcgetattr", path, SerialFailure::NotSerial);
        serial_close(port);
        return SERIAL_NO_PORT;
    }
    // The settings the port had go back at the close.
    static_assert(sizeof(termios) <= sizeof st->saved);
    std::memcpy(st->saved, &t, sizeof t);
    st->have_saved = true;
    cfmakeraw(&t);
    t.c_cflag &= ~tcflag_t(CSIZE | PARENB | PARODD | CSTOPB);
#ifdef CRTSCTS
    t.c_cflag &= ~tcflag_t(CRTSCTS);
#endif
#ifdef CMSPAR
    t.c_cflag &= ~tcflag_t(CMSPAR);
#endif
    t.c_cflag |= CS8 | CLOCAL | CREAD;
    t.c_iflag &= ~tcflag_t(IXON | IXOFF | IXANY);
    // With O_NONBLOCK an empty line reads as EAGAIN (VMIN 1), so a read of 0
    // can only mean the line was hung up.
    t.c_cc[VMIN] = 1;
    t.c_cc[VTIME] = 0;
    if (apply_termios(fd, &t, baud, TCSANOW) != 0) {
        char what[64];
        snprintf(what, sizeof what, "set %u baud 8N1 on", unsigned(baud));
        note_errno(what, path, SerialFailure::Settings);
        serial_close(port);
        return SERIAL_NO_PORT;
    }

    // DTR routine first, then RTS, as on Win32. The Win32 DTR routine writes
    // the control block's RTS-control field (from the DTR level) and the RTS
    // routine then overwrites that field, so after the open RTS follows the
    // RTS level and DTR the DTR level. termios has no such field; the line
    // levels are all that can be observed, so here the DTR routine drives
    // only DTR and leaves RTS alone, and the end state after the open is the
    // same. Moving RTS from a lone DTR call would be the field's side effect
    // without its purpose, and RTS often drives a module's reset or boot pin.
    // A pseudo-terminal refuses both ioctls; the port is still usable.
    serial_CfgDTR(port, uint32_t(g_serial_dtr_state));
    serial_CfgRTS(port, uint32_t(g_serial_rts_state));
    return port;
}

int serial_close(SerialPort port) {
    int fd = -1;
    if (handle_fd(port, &fd)) {
        SerialPortState *st = serial_state(port);
        if (st != nullptr && st->have_saved && !st->gone) {
            termios saved{};
            std::memcpy(&saved, st->saved, sizeof saved);
            tcsetattr(fd, TCSANOW, &saved);
        }
        serial_untrack(port);
        // The exclusive flag stays on a tty whose other end lives on (a
        // pseudo-terminal), so give it back before closing; the lock goes
        // with the descriptor.
        ioctl(fd, TIOCNXCL);
        close(fd);
    }
    return 0;
}

void serial_os_discard_output(SerialPort port) {
    int fd = -1;
    if (handle_fd(port, &fd)) tcflush(fd, TCOFLUSH);
}

uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms) {
    return read_port(port, static_cast<uint8_t *>(buf), uint32_t(len), timeout_ms);
}

uint32_t serial_write(SerialPort port, const void *buf, uint64_t len) {
    return write_port(port, static_cast<const uint8_t *>(buf), uint32_t(len));
}

int serial_change_br(SerialPort port, uint32_t baud) {
    int fd = -1;
    termios t{};
    if (!handle_fd(port, &fd) || tcgetattr(fd, &t) != 0) return -1;
    // Rate 0 would mean "hang up" to termios; it is no rate to switch to.
    if (baud == 0) return -2;
    t.c_cflag &= ~tcflag_t(CSIZE | PARENB | PARODD | CSTOPB);
#ifdef CMSPAR
    t.c_cflag &= ~tcflag_t(CMSPAR);
#endif
    t.c_cflag |= CS8;
    // TCSADRAIN: bytes still queued leave at the old rate.
    if (apply_termios(fd, &t, baud, TCSADRAIN) != 0) return -2;
    if (SerialPortState *st = serial_state(port)) st->baud = baud;
    return 0;
}

int serial_CfgRTS(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_rts_state = int(level);
        return 1;
    }
    return set_modem_line(port, TIOCM_RTS, level) ? 1 : 0;
}

int serial_CfgDTR(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_dtr_state = int(level);
        return 1;
    }
    // DTR only; see serial_open for how this maps the Win32 routine.
    return set_modem_line(port, TIOCM_DTR, level) ? 1 : 0;
}
