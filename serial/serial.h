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

// What kind of failure the last one was, for advice an operator acts on.
enum class SerialFailure {
    None,
    Busy,        // in use by another program (busy, locked or exclusive)
    Permission,  // the user may not open the device
    Missing,     // no such device
    NotSerial,   // the name is not a serial device
    Settings,    // the device refused raw 8N1 at the rate asked for
    Gone,        // the device went away while open (unplugged)
    Stalled,     // a write found no room before its deadline
    Other,
};

// The last failure of an OS call in this layer: its error number (errno, or
// GetLastError on Windows; 0 when none), its kind and what failed, with the
// system's text ("open /dev/ttyUSB0: Permission denied").
struct SerialError {
    int code = 0;
    SerialFailure kind = SerialFailure::None;
    char what[192] = "";
};
SerialError serial_last_error();

// Why serial_open(name) failed, in words a person acts on: the reason and
// what to do (join the device's group, close the other program, the serial
// ports that do exist). From serial_last_error(); the text has no line end.
void serial_explain_open_failure(const char *name, char *out, uint64_t out_size);

// Opens "name" raw 8N1 at "baud" (any rate the driver accepts), exclusively.
// A device that refuses these settings is not opened (SERIAL_NO_PORT).
// POSIX: a name holding '/' is a path, a bare name becomes /dev/<name>.
// Windows: "\\.\<name>" cut to 31 characters.
SerialPort serial_open(const char *name, uint32_t baud);
int serial_close(SerialPort port);

// Waits up to timeout_ms for the first byte, then keeps reading while the next
// byte follows within the quiet gap (serial_quiet_gap_us); never past len,
// never past timeout_ms in all.
uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms);
// Returns once the bytes have left; a receiver that takes nothing for the
// write's budget (serial_write_budget_ms) leaves a short count.
uint32_t serial_write(SerialPort port, const void *buf, uint64_t len);
// True once the device went away (unplugged): every read and write then
// returns 0 at once, and waits for a reply should end.
bool serial_port_gone(SerialPort port);
// When the last byte that a read took came in (vk_clock_us), no earlier than
// it did; 0 before any. A pause that must follow a reply counts from here, so
// the quiet gap that ended the read is not waited twice.
uint64_t serial_last_input_us(SerialPort port);
// The name the port was opened by ("" for a port the layer did not open).
const char *serial_port_name(SerialPort port);
// 0, -1 (state not readable), -2 (state not settable).
int serial_change_br(SerialPort port, uint32_t baud);
// 1 on success or when only stored (handle 0), 0 on failure.
int serial_CfgRTS(SerialPort port, uint32_t level);
int serial_CfgDTR(SerialPort port, uint32_t level);
// Remembers the levels that serial_open applies (note the order); returns 0.
int Vk_Uart_ConfigDtrRts(uint32_t dtr, uint32_t rts);

// The quiet time that ends a read once data has started: eight character
// times (80 bit times) at the port's rate, at least 1 ms. From about 80000
// baud up it is exactly 1 ms; on slow lines a reply sent in one burst still
// comes in one read even when the sender is held up for a few milliseconds
// between bytes (a busy machine behind a virtual or USB port).
uint32_t serial_quiet_gap_us(uint32_t baud);
// The longest a write of len bytes may take: its wire time at baud (10 bits a
// byte) plus one second, in whole milliseconds rounded up.
uint32_t serial_write_budget_ms(uint64_t len, uint32_t baud);

// Device paths as serial_open forms them; pure, available on every OS so
// both forms can be tested anywhere.
// POSIX: a name holding '/' is used as it is, else "/dev/<name>".
void serial_posix_device_path(const char *name, char *out, uint64_t out_size);
// Windows: "\\.\%s" formatted into a 32-byte buffer (names cut at 27).
void serial_win32_device_path(const char *name, char out[32]);
