// The tool's entry: banner, the -m/-o/-R/-T/-S scan, the dispatch by model
// name and mode over a table of platforms, and the final SUCCESS or FAIL line.
#pragma once

#include <cstdint>
#include <span>

#include "core/platform.h"

// Returns the 32-bit result (0 on success, 0xFFFFFFFF when no backend ran).
uint32_t vk_main(int argc, char **argv, std::span<const VkPlatform> platforms);
