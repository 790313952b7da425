// The serial layer over memory (see serial/serial_memory.h): the public
// routines of serial.h and the OS unit's part of serial_common.h, with a
// queue of reply bytes for reads and a record of the writes. Reads and
// writes never sleep; time passes on the fake clock instead.
#include "serial/serial_memory.h"

#include "core/clock_fake.h"
#include "core/interrupt.h"
#include "core/log.h"
#include "serial/serial.h"
#include "serial/serial_common.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

struct Receiver {
    std::vector<uint8_t> replies;
    size_t next = 0;  // the first reply byte not yet read
    std::vector<uint8_t> written;
    uint32_t burst = 0;
    uint64_t write_limit = UINT64_MAX;
    bool hang_up = false;
    bool came_short = false;
    size_t late_writes = 0;
    SerialMemoryResponder responder = nullptr;
    void *context = nullptr;
};

Receiver g_rx;
// Handles start at 3 like descriptors: 0 is the null handle, and a port is
// never mistaken for a standard stream in a trace.
uint64_t g_next_handle = 3;

// The state of a port this unit opened; null for any other handle.
SerialPortState *open_state(SerialPort port) {
    return serial_is_open(port) ? serial_state(port) : nullptr;
}

}  // namespace

void serial_memory_reset(const uint8_t *replies, size_t n) {
    g_rx = Receiver{};
    serial_memory_queue(replies, n);
}

void serial_memory_queue(const uint8_t *bytes, size_t n) {
    if (bytes != nullptr && n > 0) g_rx.replies.insert(g_rx.replies.end(), bytes, bytes + n);
}

void serial_memory_set_burst(uint32_t max_bytes) { g_rx.burst = max_bytes; }

void serial_memory_set_write_limit(uint64_t limit, bool hang_up) {
    g_rx.write_limit = limit;
    g_rx.hang_up = hang_up;
}

size_t serial_memory_late_writes() { return g_rx.late_writes; }

void serial_memory_set_responder(SerialMemoryResponder responder, void *context) {
    g_rx.responder = responder;
    g_rx.context = context;
}

const std::vector<uint8_t> &serial_memory_written() { return g_rx.written; }

SerialPort serial_open(const char *name, uint32_t baud) {
    if (name == nullptr) return SERIAL_NO_PORT;
    SerialPort port{g_next_handle};
    if (serial_track(port, name, baud) == nullptr) {
        serial_note_error(EMFILE, name, "too many ports open in this program");
        return SERIAL_NO_PORT;
    }
    ++g_next_handle;
    // The levels waiting for the open, in the order the real units apply them.
    serial_CfgDTR(port, uint32_t(g_serial_dtr_state));
    serial_CfgRTS(port, uint32_t(g_serial_rts_state));
    return port;
}

int serial_close(SerialPort port) {
    serial_untrack(port);
    return 0;
}

void serial_os_discard_output(SerialPort) {}  // a write here leaves nothing queued

uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms) {
    vk_interrupt_point();
    SerialPortState *st = open_state(port);
    if (st == nullptr || st->gone || buf == nullptr || len == 0) return 0;
    size_t left = g_rx.replies.size() - g_rx.next;
    if (left == 0) {
        vk_fake_clock_advance(timeout_ms);  // the whole time-out, with nothing to show
        return 0;
    }
    uint64_t n = std::min<uint64_t>({len, left, UINT32_MAX});
    if (g_rx.burst != 0) n = std::min<uint64_t>(n, g_rx.burst);
    std::memcpy(buf, g_rx.replies.data() + g_rx.next, size_t(n));
    g_rx.next += size_t(n);
    st->last_input_us = vk_clock_us();
    // A read that brought bytes ends once the line has been quiet for the gap.
    vk_fake_clock_advance((serial_quiet_gap_us(st->baud) + 999) / 1000);
    return uint32_t(n);
}

uint32_t serial_write(SerialPort port, const void *buf, uint64_t len) {
    vk_interrupt_point();
    if (g_rx.came_short) ++g_rx.late_writes;
    SerialPortState *st = open_state(port);
    if (st == nullptr || st->gone || buf == nullptr) return 0;
    uint64_t room = g_rx.write_limit - std::min<uint64_t>(g_rx.write_limit, g_rx.written.size());
    uint64_t n = std::min<uint64_t>({len, room, UINT32_MAX});
    const uint8_t *bytes = static_cast<const uint8_t *>(buf);
    g_rx.written.insert(g_rx.written.end(), bytes, bytes + n);
    if (n < len && g_rx.hang_up) {
        g_rx.came_short = true;
        st->gone = true;
        serial_note_error(EIO, "write the port", std::strerror(EIO), SerialFailure::Gone);
    } else if (n < len) {
        // A receiver that takes no more: the write waits out its budget.
        g_rx.came_short = true;
        vk_fake_clock_advance(serial_write_budget_ms(len, st->baud));
        serial_note_error(ETIMEDOUT, "write (the receiver takes no data) to the port",
                          std::strerror(ETIMEDOUT), SerialFailure::Stalled);
    }
    if (g_rx.responder != nullptr && n > 0) g_rx.responder(bytes, size_t(n), g_rx.context);
    return uint32_t(n);
}

int serial_change_br(SerialPort port, uint32_t baud) {
    SerialPortState *st = open_state(port);
    if (st == nullptr) return -1;
    if (baud == 0) return -2;  // no rate, as on a device
    st->baud = baud;
    return 0;
}

int serial_CfgRTS(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_rts_state = int(level);
        return 1;
    }
    return open_state(port) != nullptr ? 1 : 0;
}

int serial_CfgDTR(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_dtr_state = int(level);
        return 1;
    }
    return open_state(port) != nullptr ? 1 : 0;
}
