// Serial port on Windows: the Win32 comm API on a synchronous handle.
//
// The handle is the HANDLE from CreateFileA carried in 64 bits; 0 is never a
// port (CreateFileA reports failure as INVALID_HANDLE_VALUE, never NULL), so
// it serves as the null handle of the line-control routines.
#include "serial/serial.h"
#include "serial/serial_common.h"

#include "core/log.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include <windows.h>

namespace {

HANDLE to_handle(SerialPort port) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(port.handle));
}

// Keeps GetLastError's reason for serial_last_error; returns false for chaining.
bool note_last_error(const char *what) {
    DWORD code = GetLastError();
    char text[160] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                   text, sizeof text, nullptr);
    // The system's text ends in CR LF.
    for (size_t n = std::strlen(text); n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r');)
        text[--n] = '\0';
    serial_note_error(int(code), what, text);
    return false;
}

bool set_read_timeouts(HANDLE h, DWORD interval, DWORD constant) {
    COMMTIMEOUTS to;
    std::memset(&to, 0, sizeof to);  // write time-outs 0: none
    to.ReadIntervalTimeout = interval;
    to.ReadTotalTimeoutMultiplier = 0;
    to.ReadTotalTimeoutConstant = constant;
    return SetCommTimeouts(h, &to) || note_last_error("SetCommTimeouts");
}

// One blocking read under the given read time-outs; the count delivered is
// the result whatever ReadFile itself reports.
uint32_t read_with_timeouts(SerialPort port, void *buf, uint64_t len, DWORD interval,
                            DWORD constant) {
    HANDLE h = to_handle(port);
    if (!set_read_timeouts(h, interval, constant)) return 0;
    DWORD got = 0;
    if (!ReadFile(h, buf, DWORD(len), &got, nullptr)) note_last_error("ReadFile");
    return uint32_t(got);
}

}  // namespace

SerialPort serial_open(const char *name, uint32_t baud) {
    char path[32];
    serial_win32_device_path(name, path);
    HANDLE h =
        CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        note_last_error(path);
        return SERIAL_NO_PORT;
    }
    SerialPort port{static_cast<uint64_t>(reinterpret_cast<uintptr_t>(h))};

    // Raw 8N1 at the rate asked for, and read time-outs the device accepts;
    // a device that refuses them is no port to talk to.
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    bool ok = GetCommState(h, &dcb) || note_last_error("GetCommState");
    if (ok) {
        dcb.BaudRate = baud;
        dcb.ByteSize = 8;
        dcb.Parity = NOPARITY;
        dcb.StopBits = ONESTOPBIT;
        dcb.fRtsControl = RTS_CONTROL_DISABLE;
        dcb.fDtrControl = DTR_CONTROL_DISABLE;
        dcb.fOutxCtsFlow = FALSE;
        dcb.fOutxDsrFlow = FALSE;
        dcb.fOutX = FALSE;
        dcb.fInX = FALSE;
        ok = SetCommState(h, &dcb) || note_last_error("SetCommState");
    }
    if (ok) ok = set_read_timeouts(h, 1, 0);
    if (!ok) {
        CloseHandle(h);
        return SERIAL_NO_PORT;
    }

    // DTR first: both routines write the RTS-control field, and the RTS
    // routine must have the last word on it.
    serial_CfgDTR(port, uint32_t(g_serial_dtr_state));
    serial_CfgRTS(port, uint32_t(g_serial_rts_state));
    return port;
}

int serial_close(SerialPort port) {
    CloseHandle(to_handle(port));
    return 0;
}

uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms) {
    // Interval 1 ms: the read returns once the line falls quiet after the
    // first byte, or after timeout_ms with nothing.
    return read_with_timeouts(port, buf, len, 1, timeout_ms);
}

uint32_t serial_write(SerialPort port, const void *buf, uint64_t len) {
    DWORD done = 0;
    if (!WriteFile(to_handle(port), buf, DWORD(len), &done, nullptr)) note_last_error("WriteFile");
    return uint32_t(done);
}

int serial_change_br(SerialPort port, uint32_t baud) {
    HANDLE h = to_handle(port);
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(h, &dcb)) return -1;
    dcb.BaudRate = baud;
    dcb.ByteSize = 8;
    dcb.Parity = NOPARITY;
    dcb.StopBits = ONESTOPBIT;
    if (!SetCommState(h, &dcb)) return -2;
    return 0;
}

namespace {

// Raises or lowers one line, then writes the RTS-control field of the control
// block from the level. Both routines write that field, deliberately: the open
// calls the DTR routine first, so the RTS routine has the last word on it.
int set_line(SerialPort port, DWORD raise, DWORD lower, uint32_t level) {
    HANDLE h = to_handle(port);
    EscapeCommFunction(h, level != 0 ? raise : lower);
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(h, &dcb)) return 0;
    dcb.fRtsControl = level != 0 ? RTS_CONTROL_ENABLE : RTS_CONTROL_DISABLE;
    if (!SetCommState(h, &dcb)) return 0;
    return 1;
}

}  // namespace

int serial_CfgRTS(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_rts_state = int(level);
        return 1;
    }
    return set_line(port, SETRTS, CLRRTS, level);
}

int serial_CfgDTR(SerialPort port, uint32_t level) {
    if (port == SERIAL_NULL_PORT) {
        g_serial_dtr_state = int(level);
        return 1;
    }
    return set_line(port, SETDTR, CLRDTR, level);
}
