// What the POSIX and Win32 serial units share: the modem-control levels
// waiting for the next open and the last error.
#pragma once

#include <cstdint>

// Levels stored through the null handle, applied by serial_open.
extern int g_serial_dtr_state;
extern int g_serial_rts_state;

// Remembers a failed OS call for serial_last_error: its error number and
// "<what>: <the system's text>".
void serial_note_error(int code, const char *what, const char *system_text);
