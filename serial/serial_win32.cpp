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

HANDLE to_handle(uint64_t handle) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(handle));
}

// One blocking read under the given read time-outs; the count delivered is
// the result whatever ReadFile itself reports.
uint32_t read_with_timeouts(uint64_t handle, void *buf, uint64_t len, DWORD interval,
                            DWORD constant) {
    HANDLE h = to_handle(handle);
    COMMTIMEOUTS to;
    std::memset(&to, 0, sizeof to);  // write time-outs 0: none
    to.ReadIntervalTimeout = interval;
    to.ReadTotalTimeoutMultiplier = 0;
    to.ReadTotalTimeoutConstant = constant;
    SetCommTimeouts(h, &to);
    DWORD got = 0;
    ReadFile(h, buf, DWORD(len), &got, nullptr);
    return uint32_t(got);
}

}  // namespace

uint64_t serial_open(const char *name, uint32_t baud) {
    char path[32];
    serial_win32_device_path(name, path);
    HANDLE h =
        CreateFileA(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return SERIAL_INVALID_HANDLE;

    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    GetCommState(h, &dcb);
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
    SetCommState(h, &dcb);

    // DTR first: both routines write the RTS-control field, and the RTS
    // routine must have the last word on it.
    uint64_t handle = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(h));
    serial_CfgDTR(handle, uint32_t(g_serial_dtr_state));
    serial_CfgRTS(handle, uint32_t(g_serial_rts_state));
    return handle;
}

int serial_close(uint64_t handle) {
    CloseHandle(to_handle(handle));
    return 0;
}

uint32_t serial_read(uint64_t handle, void *buf, uint64_t len, uint32_t timeout_ms) {
    // Interval 1 ms: the read returns once the line falls quiet after the
    // first byte, or after timeout_ms with nothing.
    uint32_t n = read_with_timeouts(handle, buf, len, 1, timeout_ms);
    serial_trace_read(static_cast<const uint8_t *>(buf), n, true);
    return n;
}

uint32_t serial_read_until(uint64_t handle, void *buf, uint64_t len, uint32_t timeout_ms) {
    // No interval time-out: wait for len bytes or the total time-out.
    uint32_t n = read_with_timeouts(handle, buf, len, 0, timeout_ms);
    serial_trace_read(static_cast<const uint8_t *>(buf), n, false);
    return n;
}

uint32_t serial_write(uint64_t handle, const void *buf, uint64_t len) {
    DWORD done = 0;
    WriteFile(to_handle(handle), buf, DWORD(len), &done, nullptr);
    serial_trace_write(static_cast<const uint8_t *>(buf), uint32_t(done));
    return uint32_t(done);
}

uint32_t serial_write_byte(uint64_t handle, uint8_t b) {
    DWORD done = 0;
    WriteFile(to_handle(handle), &b, 1, &done, nullptr);
    return uint32_t(done);
}

int serial_flush(uint64_t handle) {
    PurgeComm(to_handle(handle), PURGE_TXABORT | PURGE_RXABORT | PURGE_TXCLEAR | PURGE_RXCLEAR);
    return 0;
}

int serial_change_br(uint64_t handle, uint32_t baud) {
    HANDLE h = to_handle(handle);
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

int serial_CfgEvenParity(uint64_t handle) {
    HANDLE h = to_handle(handle);
    DCB dcb;
    std::memset(&dcb, 0, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(h, &dcb)) {
        vk_log("[ERROR] Unable to obtain serial port configuration\n");
        CloseHandle(h);
        return -1;
    }
    dcb.Parity = EVENPARITY;
    if (!SetCommState(h, &dcb)) {
        vk_log("[ERROR] Unable to set serial port configuration\n");
        CloseHandle(h);
        return -1;
    }
    return 0;
}

namespace {

// Raises or lowers one line, then writes the RTS-control field of the control
// block from the level. Both routines write that field, deliberately: the open
// calls the DTR routine first, so the RTS routine has the last word on it.
int set_line(uint64_t handle, DWORD raise, DWORD lower, uint32_t level) {
    HANDLE h = to_handle(handle);
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

int serial_CfgRTS(uint64_t handle, uint32_t level) {
    if (handle == 0) {
        g_serial_rts_state = int(level);
        return 1;
    }
    return set_line(handle, SETRTS, CLRRTS, level);
}

int serial_CfgDTR(uint64_t handle, uint32_t level) {
    if (handle == 0) {
        g_serial_dtr_state = int(level);
        return 1;
    }
    return set_line(handle, SETDTR, CLRDTR, level);
}
