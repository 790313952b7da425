// What the POSIX and Win32 serial units share: the modem-control levels
// waiting for the next open and the hex trace of short transfers.
#pragma once

#include <cstdint>

// Levels stored through the null handle, applied by serial_open.
extern int g_serial_dtr_state;
extern int g_serial_rts_state;

// "[sss.mmm][DEBUG] recv to module -- < " + "%02X " (or "%02x ") per byte +
// ",ret:N\n", for transfers of at most 32 bytes while the trace is on; not flushed.
void serial_trace_read(const uint8_t *buf, uint32_t count, bool upper);
// "[sss.mmm][DEBUG] send to module -- < " + "%02x " per byte + "\n".
void serial_trace_write(const uint8_t *buf, uint32_t count);

// Remembers a failed OS call for serial_last_error: its error number and
// "<what>: <the system's text>".
void serial_note_error(int code, const char *what, const char *system_text);
