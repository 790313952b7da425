// The start every flow shares: its entry line, its own parse of the command
// line, the completeness check with its usage line, the check that each
// named file can be read, and the opening of the port.
#pragma once

#include <cstdint>

#include "core/options.h"
#include "serial/serial.h"

struct VkSessionRules {
    const char *entry_line = "";  // logged first
    VkOptionRules options;
    const char *usage = "";                                 // the example of the usage line
    const char *open_failed = "[ERROR] Fail to open %s\n";  // "%s": the port's name
    const char *opened = " open uart_fd:%ld\n";  // "%ld": the port's handle; null: not logged
};

struct VkSession {
    VkOptions opts;
    SerialPort port;
};

// Returns 0 with the port open, or the code the flow returns (nothing open).
uint32_t Vk_OpenSession(const VkSessionRules &rules, int argc, char **argv, VkSession *s);

// Opens name at baud; on failure logs open_failed ("%s": the name) and the
// reason on standard error and returns 0x104.
uint32_t Vk_OpenPort(const char *name, int baud, const char *open_failed, SerialPort *port);

// The last step of the prologue alone, for flows that do more before it:
// opens s->opts.port at its baud rate with the rules' messages. 0, or 0x104.
uint32_t vk_open_port(const VkSessionRules &rules, VkSession *s);
