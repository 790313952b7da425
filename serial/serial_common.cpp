// The parts of the serial layer that are the same on every OS: device paths
// (pure string work, built everywhere so both forms can be checked on any
// host), the pending modem-control levels and the last error.
#include "serial/serial.h"

#include <cstdio>
#include <cstring>

#include "core/log.h"
#include "serial/serial_common.h"

int g_serial_dtr_state = 0;
int g_serial_rts_state = 0;

namespace {
SerialError g_last_error;
}  // namespace

void serial_note_error(int code, const char *what, const char *system_text) {
    g_last_error.code = code;
    std::snprintf(g_last_error.what, sizeof g_last_error.what, "%s: %s", what, system_text);
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
