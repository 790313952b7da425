// Serial port: one thin synchronous layer over the host's serial device.
//
// A port handle is an unsigned 64-bit value; all ones (SERIAL_INVALID_HANDLE)
// means "not open", callers test it as signed (>= 0 is open). Handle 0 is
// never a valid port, so 0 serves as the "null handle" of the line-control
// routines (they then only store the level for the next serial_open).
//
// Reads and writes never report errors: a failed or timed-out transfer shows
// as a short count (often 0).
#pragma once

#include <cstdint>

constexpr uint64_t SERIAL_INVALID_HANDLE = ~uint64_t(0);

// Opens "name" raw 8N1 at "baud" (any rate the driver accepts), exclusively.
// POSIX: a name holding '/' is a path, a bare name becomes /dev/<name>.
// Windows: "\\.\<name>" cut to 31 characters.
uint64_t serial_open(const char *name, uint32_t baud);
int serial_close(uint64_t handle);

// Waits up to timeout_ms for the first byte, then keeps reading while the next
// byte follows within 1 ms; never past len, never past timeout_ms in all.
uint32_t serial_read(uint64_t handle, void *buf, uint64_t len, uint32_t timeout_ms);
// Waits until len bytes have come or timeout_ms has passed.
uint32_t serial_read_until(uint64_t handle, void *buf, uint64_t len, uint32_t timeout_ms);
uint32_t serial_write(uint64_t handle, const void *buf, uint64_t len);
uint32_t serial_write_byte(uint64_t handle, uint8_t b);
// Drops pending input and output.
int serial_flush(uint64_t handle);
// 0, -1 (state not readable), -2 (state not settable).
int serial_change_br(uint64_t handle, uint32_t baud);
// 0, or -1 after printing an error; a failure closes the handle.
int serial_CfgEvenParity(uint64_t handle);
// 1 on success or when only stored (handle 0), 0 on failure.
int serial_CfgRTS(uint64_t handle, uint32_t level);
int serial_CfgDTR(uint64_t handle, uint32_t level);
// Turns the hex trace of transfers of at most 32 bytes on; returns 0.
int serial_enable_debug();
// Remembers the levels that serial_open applies (note the order); returns 0.
int Vk_Uart_ConfigDtrRts(uint32_t dtr, uint32_t rts);

// Device paths as serial_open forms them; pure, available on every OS so
// both forms can be tested anywhere.
// POSIX: a name holding '/' is used as it is, else "/dev/<name>".
void serial_posix_device_path(const char *name, char *out, uint64_t out_size);
// Windows: "\\.\%s" formatted into a 32-byte buffer (names cut at 27).
void serial_win32_device_path(const char *name, char out[32]);
