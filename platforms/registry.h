// The one place that lists every backend. Adding a platform: its folder, one
// line here, one receiver model in sim/ and one line in the sim's table.
#pragma once

#include <span>

#include "core/platform.h"

// The seven platforms, in the order `vkagnss -S` lists their models.
std::span<const VkPlatform> vk_registry();
