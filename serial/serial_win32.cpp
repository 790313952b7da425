// Serial port on Windows: the Win32 comm API on a synchronous handle.
//
// The handle is the HANDLE from CreateFileA carried in 64 bits; 0 is never a
// port (CreateFileA reports failure as INVALID_HANDLE_VALUE, never NULL), so
// it serves as the null handle of the line-control routines.
#include "serial/serial.h"
#include "serial/serial_common.h"

#include "core/interrupt.h"
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
bool note_last_error(const char *what, SerialFailure kind = SerialFailure::Other) {
    DWORD code = GetLastError();
    char text[160] = "";
    FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                   text, sizeof text, nullptr);
    // The system's text ends in CR LF.
    for (size_t n = std::strlen(text); n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\r');)
        text[--n] = '\0';
    serial_note_error(int(code), what, text, kind);
    return false;
}

// The kind of failure CreateFile's error stands for. A COM port that another
// program holds reports access denied.
SerialFailure open_failure(DWORD code) {
    switch (code) {
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
        case ERROR_BUSY: return SerialFailure::Busy;
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_BAD_NETPATH: return SerialFailure::Missing;
        default: return SerialFailure::Other;
    }
}

// Errors that mean the device itself is gone (an unplugged USB adapter).
bool device_gone(DWORD code) {
    return code == ERROR_ACCESS_DENIED || code == ERROR_BAD_COMMAND || code == ERROR_NOT_READY ||
           code == ERROR_DEVICE_NOT_CONNECTED || code == ERROR_GEN_FAILURE ||
           code == ERROR_INVALID_HANDLE || code == ERROR_DEVICE_REMOVED;
}

// A failed ReadFile or WriteFile: a signal's cancel ends the run here, a
// device that went away marks the port gone.
void after_failed_io(SerialPort port, const char *what) {
    DWORD code = GetLastError();
    vk_interrupt_point();
    if (device_gone(code)) {
        SetLastError(code);
        note_last_error(what, SerialFailure::Gone);
        serial_mark_gone(serial_state(port));
    } else {
        SetLastError(code);
        note_last_error(what);
    }
}

// Read time-outs for one read, and the write time-out for one write (0: none).
bool set_timeouts(HANDLE h, DWORD read_interval, DWORD read_constant, DWORD write_constant) {
    COMMTIMEOUTS to;
    std::memset(&to, 0, sizeof to);
    to.ReadIntervalTimeout = read_interval;
    to.ReadTotalTimeoutMultiplier = 0;
    to.ReadTotalTimeoutConstant = read_constant;
    to.WriteTotalTimeoutMultiplier = 0;
    to.WriteTotalTimeoutConstant = write_constant;
    return SetCommTimeouts(h, &to) || note_last_error("SetCommTimeouts");
}

// The quiet gap of a read in the whole milliseconds the comm time-outs count.
DWORD interval_ms(const SerialPortState *st) {
    return DWORD((serial_quiet_gap_us(st != nullptr ? st->baud : 0) + 999) / 1000);
}

struct SavedComm {
    DCB dcb;
    COMMTIMEOUTS timeouts;
};

}  // namespace

SerialPort serial_open(const char *name, uint32_t baud) {
    char path[32];
    serial_win32_device_path(name, path);
    HANDLE h =
        CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        note_last_error(path, open_failure(GetLastError()));
        return SERIAL_NO_PORT;
    }
    SerialPort port{static_cast<uint64_t>(reinterpret_cast<uintptr_t>(h))};
    SerialPortState *st = serial_track(port, name, baud);
    if (st == nullptr) {
        SetLastError(ERROR_TOO_MANY_OPEN_FILES);
        note_last_error(path);
        CloseHandle(h);
        return SERIAL_NO_PORT;
    }

    // Raw 8N1 at the rate asked for, and read time-outs the device accepts;
    // a device that refuses them is no port to talk to.
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    bool ok = GetCommState(h, &dcb) || note_last_error("GetCommState", SerialFailure::NotSerial);
    if (ok) {
        // The settings the port had go back at the close.
        SavedComm saved;
        saved.dcb = dcb;
        static_assert(sizeof saved <= sizeof st->saved);
        if (GetCommTimeouts(h, &saved.timeouts)) {
            std::memcpy(st->saved, &saved, sizeof saved);
            st->have_saved = true;
        }
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
        ok = SetCommState(h, &dcb) || note_last_error("SetCommState", SerialFailure::Settings);
    }
    if (ok) ok = set_timeouts(h, 1, 0, 0);
    if (!ok) {
        serial_untrack(port);
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
    HANDLE h = to_handle(port);
    SerialPortState *st = serial_state(port);
    if (st != nullptr && st->have_saved && !st->gone) {
        SavedComm saved;
        std::memcpy(&saved, st->saved, sizeof saved);
        SetCommState(h, &saved.dcb);
        SetCommTimeouts(h, &saved.timeouts);
    }
    serial_untrack(port);
    CloseHandle(h);
    return 0;
}

void serial_os_discard_output(SerialPort port) {
    PurgeComm(to_handle(port), PURGE_TXABORT | PURGE_TXCLEAR);
}

uint32_t serial_read(SerialPort port, void *buf, uint64_t len, uint32_t timeout_ms) {
    vk_interrupt_point();
    SerialPortState *st = serial_state(port);
    if (st != nullptr && st->gone) return 0;
    // The read returns once the line falls quiet after the first byte, or
    // after timeout_ms with nothing. A console event cancels it.
    HANDLE h = to_handle(port);
    if (!set_timeouts(h, interval_ms(st), timeout_ms, 0)) return 0;
    DWORD got = 0;
    if (!ReadFile(h, buf, DWORD(len), &got, nullptr)) after_failed_io(port, "ReadFile");
    // When in the read the last byte came is not told here: the return is the
    // one time known to be no earlier.
    if (got > 0 && st != nullptr) st->last_input_us = vk_clock_us();
    vk_interrupt_point();
    return uint32_t(got);
}

uint32_t serial_write(SerialPort port, const void *buf, uint64_t len) {
    vk_interrupt_point();
    const SerialPortState *st = serial_state(port);
    if (st != nullptr && st->gone) return 0;
    // A receiver that takes nothing for the write's budget leaves a short count.
    HANDLE h = to_handle(port);
    DWORD budget = serial_write_budget_ms(len, st != nullptr ? st->baud : 0);
    if (!set_timeouts(h, interval_ms(st), 0, budget)) return 0;
    DWORD done = 0;
    if (!WriteFile(h, buf, DWORD(len), &done, nullptr)) after_failed_io(port, "WriteFile");
    vk_interrupt_point();
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
    if (SerialPortState *st = serial_state(port)) st->baud = baud;
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
