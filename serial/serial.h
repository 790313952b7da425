// Serial port: one thin synchronous layer over the host's serial device.
//
// A port is a typed handle: the OS handle (file descriptor or HANDLE) in 64
// bits, all ones when not open; ask serial_is_open. Handle 0 is never a port,
// so SERIAL_NULL_PORT serves the line-control routines as "no port yet" (they
// then only store the level for the next serial_open).
//
// Reads and writes report only counts: a failed or timed-out transfer shows
// as a short count (often 0). The reason of the last failure the layer met is
// kept for diagnostics (serial_last_error).
#pragma once

#include <cstdint>

constexpr uint64_t SERIAL_INVALID_HANDLE = ~uint64_t(0);

struct SerialPort {
    uint64_t handle = SERIAL_INVALID_HANDLE;
    friend bool operator==(SerialPort, SerialPort) = default;
};

constexpr SerialPort SERIAL_NO_PORT{};
constexpr SerialPort SERIAL_NULL_PORT{0};

inline bool serial_is_open(SerialPort port) {
    return port.handle != SERIAL_INVALID_HANDLE && port.handle != 0;
}

// The last failure of an OS call in this layer: its error number (errno, or
// GetLastError on Windows; 0 when none) and what failed, with the system's
// text ("open /dev/ttyUSB0: Permission denied").
struct SerialError {
    int code = 0;
    char what[192] = "";
};
SerialError serial_last_error();

// Opens "name" raw 8N1 at "baud" (any rate the driver accepts), exclusively.
// A device that refuses these settings is not opened (SERIAL_NO_PORT).
// POSIX: a name holding '/' is a path, a bare name becomes /dev/<name>.
// Windows: "\\.\<name>" cut to 31 characters.
SerialPort serial_open(const char *name, uint32_t baud);
int serial_close(SerialPort port);

// Waits up to timeout_ms for the first byte, then keeps reading while the next
// byte follows within 1 ms; never past len, never past timeout_ms in all.
uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms);
uint32_t serial_write(SerialPort port, const void *buf, uint64_t len);
// 0, -1 (state not readable), -2 (state not settable).
int serial_change_br(SerialPort port, uint32_t baud);
// 1 on success or when only stored (handle 0), 0 on failure.
int serial_CfgRTS(SerialPort port, uint32_t level);
int serial_CfgDTR(SerialPort port, uint32_t level);
// Remembers the levels that serial_open applies (note the order); returns 0.
int Vk_Uart_ConfigDtrRts(uint32_t dtr, uint32_t rts);

// Device paths as serial_open forms them; pure, available on every OS so
// both forms can be tested anywhere.
// POSIX: a name holding '/' is used as it is, else "/dev/<name>".
void serial_posix_device_path(const char *name, char *out, uint64_t out_size);
// Windows: "\\.\%s" formatted into a 32-byte buffer (names cut at 27).
void serial_win32_device_path(const char *name, char out[32]);
