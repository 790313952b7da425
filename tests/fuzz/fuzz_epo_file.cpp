// EPO files of any content through the decoder and the summary.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "epo/epo.h"

namespace {
std::string g_path;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    g_path = "/tmp/vkagnss-fuzz-" + std::to_string(getpid()) + ".DAT";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 64 * 1024) return 0;
    FILE *f = fopen(g_path.c_str(), "wb");
    if (!f) return 0;
    fwrite(data, 1, size, f);
    fclose(f);
    EpoInfo info;
    epo_decode_file(&info, g_path.c_str());
    epo_print_info(&info);
    VkAgnssInfo summary{};
    epo_to_agnss_info(&info, &summary);
    Vk_PrintfAgnssInfo(&summary);
    return 0;
}
