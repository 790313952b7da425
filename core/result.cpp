#include "core/result.h"

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
