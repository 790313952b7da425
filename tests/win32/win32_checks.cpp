// Checks of the Windows build that need Windows itself (or wine): the tests
// of this folder are built with the Windows tool and run as a Windows program,
// without a test framework; each check prints one line, and the exit code is
// the number of failed checks.
//
// The serial port's exclusive open: serial_open asks CreateFile for share
// mode 0. Wine does not enforce sharing on a COM port, but it does on a file,
// and the \\.\ device path reaches a file as well: with the file held open by
// a handle that shares reading and writing, share mode 0 fails with a sharing
// violation, while an open that shared would get the file and only then fail
// as no serial port.
#include <windows.h>

#include <cstdint>
#include <cstdio>

#include "core/result.h"
#include "serial/serial.h"

namespace {

int g_failed = 0;

void check(bool ok, const char *what) {
    std::printf("%s %s\n", ok ? "ok  " : "FAIL", what);
    if (!ok) ++g_failed;
}

void exclusive_open() {
    // \\.\C:\vkagnss-share.tmp: 20 characters of name, within the 27 kept.
    const char *name = "C:\\vkagnss-share.tmp";
    HANDLE held =
        CreateFileA(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    check(held != INVALID_HANDLE_VALUE, "a file is held open, sharing reading and writing");
    if (held == INVALID_HANDLE_VALUE) return;

    SerialPort port = serial_open(name, 115200);
    const SerialError e = serial_last_error();
    check(!serial_is_open(port), "serial_open of the held file fails");
    if (serial_is_open(port)) serial_close(port);
    std::printf("     last error %d: %s\n", e.code, e.what);
    check(e.code == ERROR_SHARING_VIOLATION,
          "it fails in CreateFile with a sharing violation: share mode 0");

    CloseHandle(held);
    port = serial_open(name, 115200);
    check(!serial_is_open(port) && serial_last_error().code != ERROR_SHARING_VIOLATION,
          "once free, the file opens and is then refused as no serial port");
    DeleteFileA(name);
}

void exit_codes() {
    check(vk_exit_status(0) == 0, "result 0 exits 0");
    check(vk_exit_status(0x104) == 0x104, "result 0x104 exits 0x104");
    check(vk_exit_status(0x200) == 0x200, "result 0x200 exits 0x200");
    check(uint32_t(vk_exit_status(0xFFFFFFFFu)) == 0xFFFFFFFFu, "no backend exits 0xFFFFFFFF");
}

}  // namespace

int main() {
    exclusive_open();
    exit_codes();
    std::printf("%s: %d failed\n", g_failed ? "FAIL" : "ok", g_failed);
    return g_failed;
}
