// The platform table: seven chip platforms, each with its model names and
// three entries (online, offline, information) of one signature.
#pragma once

#include <cstdint>

typedef uint32_t (*VkBackendEntry)(int argc, char **argv);

enum { VK_MODEL_SLOTS = 256, VK_MODEL_NAME_SIZE = 16, VK_PLATFORM_COUNT = 7 };

struct VkPlatform {
    const char *platform;
    char models[VK_MODEL_SLOTS][VK_MODEL_NAME_SIZE];
    VkBackendEntry online;
    VkBackendEntry offline;
    VkBackendEntry info;
};

extern const VkPlatform g_vk_platforms[VK_PLATFORM_COUNT];

// Runs the tool: banner, option scan, dispatch, final line. Returns the
// 32-bit result (0 on success, 0xFFFFFFFF when no backend ran).
uint32_t vk_main(int argc, char **argv);

// The process exit status for a result. Windows keeps all 32 bits. A POSIX
// status keeps 8, so there the result's first and last hex digits are kept,
// ((result >> 8) & 0xF) << 4 | (result & 0xF), and 255 stands for
// 0xFFFFFFFF, any result above 0xFFF and any other result whose two kept
// digits are both 0 (such as 0x010): no failure can exit 0.
int vk_exit_status(uint32_t result);
