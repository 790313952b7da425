// What the POSIX and Win32 serial units share: the modem-control levels
// waiting for the next open, the last error, the table of open ports and the
// timing rules.
#pragma once

#include <cstdint>

#include "serial/serial.h"

// Levels stored through the null handle, applied by serial_open.
extern int g_serial_dtr_state;
extern int g_serial_rts_state;

// Remembers a failed OS call for serial_last_error: its error number,
// "<what>: <the system's text>" and what kind of failure it was.
void serial_note_error(int code, const char *what, const char *system_text,
                       SerialFailure kind = SerialFailure::Other);

// What the layer keeps about an open port: its name (for messages), its rate,
// whether the device has gone away, when the last byte came in, and the
// settings it had before the open (restored at the close), in the OS unit's
// own form.
struct SerialPortState {
    uint64_t handle = SERIAL_INVALID_HANDLE;
    char name[128] = "";
    uint32_t baud = 0;
    bool gone = false;
    uint64_t last_input_us = 0;  // vk_clock_us when the last byte came in; 0 before
    bool have_saved = false;
    alignas(8) unsigned char saved[128] = {};
};

// Starts keeping state for a port just opened; null when eight are open.
SerialPortState *serial_track(SerialPort port, const char *name, uint32_t baud);
// The state of an open port; null for a port the layer did not open.
SerialPortState *serial_state(SerialPort port);
void serial_untrack(SerialPort port);
// Marks the port gone and says so once on stderr.
void serial_mark_gone(SerialPortState *st);

// Closes every port still open, dropping output that has not left: the way
// out of an interrupted run. Registered as an interrupt cleanup by the first
// open.
void serial_close_all();
// The OS unit's part of that: drop queued output so that the close does not
// wait for it.
void serial_os_discard_output(SerialPort port);
