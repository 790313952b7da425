// Device paths as serial_open forms them on each OS. Pure string work, built
// everywhere so both forms can be checked on any host.
#include "serial/serial.h"

#include <cstdio>
#include <cstring>

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
