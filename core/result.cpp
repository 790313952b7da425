#include "core/result.h"

#include "core/log.h"

int vk_exit_status(uint32_t result) {
#ifdef _WIN32
    return int(result);
#else
    if (result > 0xFFFu) return 255;
    int status = int(((result >> 8) & 0xFu) << 4 | (result & 0xFu));
    // A result such as 0x010 has neither digit; it must still not read as success.
    return (status == 0 && result != 0) ? 255 : status;
#endif
}

void vk_log_outcome(uint32_t result) {
    if (result == 0) {
        vk_log("[SUCCESS] vkagnss run success\n");
    } else {
        vk_log("[FAIL] vkagnss run fail,ret:[0x%x]\n", result);
    }
}
