// Byte streams of any content through the four reply assemblers.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "toolkit/assembler.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static std::vector<uint8_t> text(202), binary(65543);
    uint32_t len = 0;
    for (size_t i = 0; i < size; ++i) {
        Vk_NMEA_CMD_Composite(data[i], text.data(), &len);
        Vk_PVNK_CMD_Composite(data[i], text.data(), &len);
        Vk_NAV_CMD_Composite(data[i], binary.data(), &len);
        Vk_NAV_EPH_Composite(data[i], binary.data(), &len);
    }
    return 0;
}
