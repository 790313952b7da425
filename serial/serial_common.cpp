// The parts of the serial layer that are the same on every OS: device paths
// (pure string work, built everywhere so both forms can be checked on any
// host), the pending modem-control levels and the last error.
#include "serial/serial.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/interrupt.h"
#include "core/log.h"
#include "serial/serial_common.h"

int g_serial_dtr_state = 0;
int g_serial_rts_state = 0;

namespace {
SerialError g_last_error;
SerialPortState g_ports[8];
}  // namespace

void serial_note_error(int code, const char *what, const char *system_text, SerialFailure kind) {
    g_last_error.code = code;
    g_last_error.kind = kind;
    std::snprintf(g_last_error.what, sizeof g_last_error.what, "%s: %s", what, system_text);
}

SerialPortState *serial_track(SerialPort port, const char *name, uint32_t baud) {
    vk_interrupt_cleanup(serial_close_all);
    for (SerialPortState &st : g_ports) {
        if (st.handle != SERIAL_INVALID_HANDLE) continue;
        st = SerialPortState{};
        st.handle = port.handle;
        std::snprintf(st.name, sizeof st.name, "%s", name);
        st.baud = baud;
        return &st;
    }
    return nullptr;
}

SerialPortState *serial_state(SerialPort port) {
    if (!serial_is_open(port)) return nullptr;
    for (SerialPortState &st : g_ports)
        if (st.handle == port.handle) return &st;
    return nullptr;
}

void serial_untrack(SerialPort port) {
    if (SerialPortState *st = serial_state(port)) *st = SerialPortState{};
}

void serial_mark_gone(SerialPortState *st) {
    if (st == nullptr || st->gone) return;
    st->gone = true;
    fprintf(stderr, "vkagnss: port %s has gone away (device unplugged?)\n", st->name);
    fflush(stderr);
}

bool serial_port_gone(SerialPort port) {
    const SerialPortState *st = serial_state(port);
    return st != nullptr && st->gone;
}

uint64_t serial_last_input_us(SerialPort port) {
    const SerialPortState *st = serial_state(port);
    return st != nullptr ? st->last_input_us : 0;
}

const char *serial_port_name(SerialPort port) {
    const SerialPortState *st = serial_state(port);
    return st != nullptr ? st->name : "";
}

void serial_close_all() {
    for (SerialPortState &st : g_ports) {
        if (st.handle == SERIAL_INVALID_HANDLE) continue;
        SerialPort port{st.handle};
        serial_os_discard_output(port);
        serial_close(port);
    }
}

uint32_t serial_quiet_gap_us(uint32_t baud) {
    if (baud == 0) return 1000;
    uint64_t chars = (80ull * 1000000ull + baud - 1) / baud;
    return chars > 1000 ? uint32_t(chars) : 1000u;
}

uint32_t serial_write_budget_ms(uint64_t len, uint32_t baud) {
    if (baud == 0) baud = 1;
    uint64_t wire = (len * 10ull * 1000ull + baud - 1) / baud;
    uint64_t ms = wire + 1000;
    return ms > UINT32_MAX ? UINT32_MAX : uint32_t(ms);
}

SerialError serial_last_error() { return g_last_error; }

int Vk_Uart_ConfigDtrRts(uint32_t dtr, uint32_t rts) {
    serial_CfgDTR(SERIAL_NULL_PORT, dtr);
    serial_CfgRTS(SERIAL_NULL_PORT, rts);
    return 0;
}

void serial_posix_device_path(const char *name, char *out, uint64_t out_size) {
    if (out == nullptr || out_size == 0) return;
    if (name == nullptr) name = "";
    // A name with a slash is already a path (/dev/ttyUSB0, /tmp/ttyVK0,
    // ./link); a bare name such as ttyUSB0 lives under /dev.
    if (std::strchr(name, '/') != nullptr)
        std::snprintf(out, size_t(out_size), "%s", name);
    else
        std::snprintf(out, size_t(out_size), "/dev/%s", name);
}

void serial_win32_device_path(const char *name, char out[32]) {
    if (name == nullptr) name = "";
    // Device namespace prefix \\.\ (4 characters) leaves room for 27
    // characters of the name and the terminator; longer names are cut.
    std::snprintf(out, 32, "\\\\.\\%s", name);
}
