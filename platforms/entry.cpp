#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/result.h"
#include "platforms/entry.h"
#include "serial/serial.h"

namespace {

const char kVersion[] = "V1.1.1";

// Copies at most keep characters of the value after argv[i], if there is one:
// an option standing last on the command line counts as not given.
const char *value_after(int argc, char **argv, int i) {
    return (i + 1 < argc) ? argv[i + 1] : nullptr;
}

void copy_value(char *dst, size_t keep, const char *value) {
    if (value == nullptr) return;
    strncpy(dst, value, keep);
    dst[keep] = '\0';
}

void print_supported_models(std::span<const VkPlatform> platforms) {
    printf("Supported module:\n");
    for (const VkPlatform &p : platforms)
        for (const char *model : p.models) printf("%s\n", model);
    fflush(stdout);
}

// The name table of each platform ends in empty slots, so an empty model
// name matches the first platform.
bool serves_model(const VkPlatform &p, const char *model) {
    if (model[0] == '\0') return true;
    for (const char *name : p.models)
        if (strcmp(name, model) == 0) return true;
    return false;
}

}  // namespace

uint32_t vk_main(int argc, char **argv, std::span<const VkPlatform> platforms) {
    flash_tool_msecs();  // fixes the origin of every stamp
    vk_log("[INFO] %s %s %s\n", kVersion, __DATE__, __TIME__);
    vk_log("[INFO] Enter agnss tool\n");

    uint32_t result = VK_ERR_NO_BACKEND;
    if (argc <= 2) {
        vk_log("[ERROR] Please input param , example ./vkagnss.exe -m AG33XX -p COM3\n");
        return result;
    }

    char model[16] = {0};
    char mode[8] = {0};
    int rts = 0, dtr = 0;
    for (int i = 1; i < argc; ++i) {
        const char *value = value_after(argc, argv, i);
        if (strcmp(argv[i], "-m") == 0) {
            copy_value(model, sizeof model - 1, value);
        } else if (strcmp(argv[i], "-o") == 0) {
            copy_value(mode, sizeof mode - 1, value);
        } else if (strcmp(argv[i], "-R") == 0) {
            if (value) rts = atoi(value);
            vk_log("[INFO] RTS :%d\n", rts);
        } else if (strcmp(argv[i], "-T") == 0) {
            if (value) dtr = atoi(value);
            vk_log("[INFO] DTR :%d\n", dtr);
        } else if (strcmp(argv[i], "-S") == 0) {
            print_supported_models(platforms);
            return 0;
        }
    }
    Vk_Uart_ConfigDtrRts(uint32_t(dtr), uint32_t(rts));

    const VkPlatform *platform = nullptr;
    for (const VkPlatform &p : platforms) {
        if (serves_model(p, model)) {
            platform = &p;
            break;
        }
    }
    if (platform == nullptr) {
        vk_log("[ERROR] Not support %s or not support Offline Agnss\n", model);
    } else if (strcmp(mode, "online") == 0 && platform->online) {
        result = platform->online(argc, argv);
    } else if (strcmp(mode, "offline") == 0 && platform->offline) {
        result = platform->offline(argc, argv);
    } else if (argc == 4 && platform->info) {
        result = platform->info(argc, argv);
    } else {
        vk_log("[ERROR] Please input param , example ./vkagnss -m %s -o online\n",
               platform->models[0]);
    }

    if (result == 0) {
        vk_log("[SUCCESS] vkagnss run success\n");
    } else {
        vk_log("[FAIL] vkagnss run fail,ret:[0x%x]\n", result);
    }
    return result;
}
