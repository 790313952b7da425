// The platform descriptor. A platform is its model
// names and up to three entries (online, offline, information) of one
// signature; an entry it lacks stays null. The table of platforms lives above
// the backends (platforms/registry.cpp).
#pragma once

#include <cstdint>
#include <span>

using VkBackendEntry = uint32_t (*)(int argc, char **argv);

enum { VK_MODEL_NAME_SIZE = 16 };

struct VkPlatform {
    const char *name = "";
    std::span<const char *const> models;  // the platform's own name first
    VkBackendEntry online = nullptr;
    VkBackendEntry offline = nullptr;
    VkBackendEntry info = nullptr;  // decodes files without opening a port
};
