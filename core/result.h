// Result codes every backend shares. A backend's own codes (what 0x201 to
// 0x206 mean to it, and any code of its own) are named in its folder.
#pragma once

#include <cstdint>

enum : uint32_t {
    VK_OK = 0,
    VK_ERR_PRESET = 0x101,            // preset before an aiding step
    VK_ERR_PARAM = 0x102,             // bad or missing parameter
    VK_ERR_FILE_ACCESS = 0x103,       // a named file cannot be read
    VK_ERR_PORT_OPEN = 0x104,         // the port cannot be opened
    VK_ERR_COMMAND = 0x107,           // command refused, not acknowledged, or a general failure
    VK_ERR_MEMORY = 0x108,            // out of memory
    VK_ERR_NO_REPLY = 0x200,          // no accepted reply before the deadline
    VK_INTERRUPTED_BASE = 0x800,      // + signal number: a run ended by a signal (POSIX)
    VK_ERR_NO_BACKEND = 0xFFFFFFFFu,  // no backend ran
};

// The process exit status for a result. Windows keeps all 32 bits. A POSIX
// status keeps 8, so there the result's first and last hex digits are kept,
// ((result >> 8) & 0xF) << 4 | (result & 0xF), and 255 stands for
// 0xFFFFFFFF, any result above 0xFFF and any other result whose two kept
// digits are both 0 (such as 0x010): no failure can exit 0.
int vk_exit_status(uint32_t result);

// The run's last line: "[SUCCESS] vkagnss run success" for 0, else
// "[FAIL] vkagnss run fail,ret:[0x<result>]".
void vk_log_outcome(uint32_t result);
