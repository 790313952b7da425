// Command lines of any shape through the backend option grammar.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ag33xx/ag33xx.h"
#include "core/options.h"
#include "rz610mxxxx/rz610mxxxx.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 2048) return 0;
    // Arguments separated by NUL bytes; argv[0] is the program.
    std::vector<std::string> words = {"vkagnss"};
    std::string cur;
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            words.push_back(cur);
            cur.clear();
        } else {
            cur += char(data[i]);
        }
    }
    words.push_back(cur);
    std::vector<char *> argv;
    for (std::string &w : words) argv.push_back(&w[0]);
    argv.push_back(nullptr);
    int argc = int(words.size());
    const VkOptionRules *rules[] = {&AG33XX_Dialect.online.options, &AG33XX_Dialect.offline.options,
                                    &RZ610MXXXX_Dialect.online.options,
                                    &RZ610MXXXX_Dialect.offline.options};
    for (const VkOptionRules *r : rules) {
        VkOptions opts;
        vk_parse_options(argc, argv.data(), r, &opts);
    }
    return 0;
}
