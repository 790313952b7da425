// Why a port did not open, in words a person acts on.
#include <cstdio>
#include <cstring>
#include <string>

#include "serial/serial.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <glob.h>
#include <grp.h>
#include <sys/stat.h>
#endif

namespace {

#ifdef _WIN32
// The COM ports the system knows now: the values of the SERIALCOMM key.
std::string existing_ports() {
    std::string list;
    HKEY key;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "HARDWARE\\DEVICEMAP\\SERIALCOMM", 0, KEY_READ, &key) !=
        ERROR_SUCCESS)
        return list;
    for (DWORD i = 0;; ++i) {
        char value_name[256];
        DWORD name_len = sizeof value_name;
        BYTE data[256];
        DWORD data_len = sizeof data - 1;
        DWORD type = 0;
        if (RegEnumValueA(key, i, value_name, &name_len, nullptr, &type, data, &data_len) !=
            ERROR_SUCCESS)
            break;
        if (type != REG_SZ) continue;
        data[data_len] = 0;
        if (!list.empty()) list += ' ';
        list += reinterpret_cast<const char *>(data);
    }
    RegCloseKey(key);
    return list;
}
#else
// The serial devices that exist now, by the usual names.
std::string existing_ports() {
    std::string list;
    for (const char *pattern :
         {"/dev/ttyS*", "/dev/ttyUSB*", "/dev/ttyACM*", "/dev/serial/by-id/*"}) {
        glob_t g{};
        if (glob(pattern, 0, nullptr, &g) == 0) {
            for (size_t i = 0; i < g.gl_pathc; ++i) {
                if (!list.empty()) list += ' ';
                list += g.gl_pathv[i];
            }
        }
        globfree(&g);
    }
    return list;
}
#endif

}  // namespace

void serial_explain_open_failure(const char *name, char *out, uint64_t out_size) {
    if (out == nullptr || out_size == 0) return;
    if (name == nullptr) name = "";
    const SerialError e = serial_last_error();
    std::string text;
    switch (e.kind) {
        case SerialFailure::Busy:
            text = std::string(name) +
                   " is in use by another program (busy, locked or opened exclusively): close "
                   "that program (a terminal, a modem manager, another vkagnss) and try again";
            break;
        case SerialFailure::Permission: {
#ifdef _WIN32
            text = std::string("access to ") + name + " was denied";
#else
            char path[4096];
            serial_posix_device_path(name, path, sizeof path);
            text = std::string("permission denied on ") + path;
            struct stat st {};
            const group *g = stat(path, &st) == 0 ? getgrgid(st.st_gid) : nullptr;
            if (g != nullptr && g->gr_name != nullptr) {
                text += std::string(": it belongs to group ") + g->gr_name +
                        "; join it with \"sudo usermod -aG " + g->gr_name +
                        " $USER\" and log in again";
            } else {
                text += ": ask for read and write access to it";
            }
#endif
            break;
        }
        case SerialFailure::Missing: {
            text = std::string("no such port ") + name;
            std::string ports = existing_ports();
            text += ports.empty() ? "; no serial ports found on this machine"
                                  : "; serial ports here: " + ports;
            break;
        }
        case SerialFailure::NotSerial: text = std::string(name) + " is not a serial device"; break;
        case SerialFailure::Settings:
            text = std::string(name) + " refused raw 8N1 at the rate asked for (" + e.what + ")";
            break;
        default: text = e.what; break;
    }
    std::snprintf(out, size_t(out_size), "%s", text.c_str());
}
