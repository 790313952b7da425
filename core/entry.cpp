#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/platform.h"
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

void print_supported_models() {
    printf("Supported module:\n");
    for (const VkPlatform &p : g_vk_platforms)
        for (int slot = 0; slot < VK_MODEL_SLOTS && p.models[slot][0] != '\0'; ++slot)
            printf("%s\n", p.models[slot]);
    fflush(stdout);
}

}  // namespace

uint32_t vk_main(int argc, char **argv) {
    flash_tool_msecs();  // fixes the origin of every stamp
    vk_log("[INFO] %s %s %s\n", kVersion, __DATE__, __TIME__);
    vk_log("[INFO] Enter agnss tool\n");

    uint32_t result = 0xFFFFFFFFu;
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
            print_supported_models();
            return 0;
        }
    }
    Vk_Uart_ConfigDtrRts(uint32_t(dtr), uint32_t(rts));

    bool matched = false;
    for (const VkPlatform &p : g_vk_platforms) {
        for (int slot = 0; slot < VK_MODEL_SLOTS; ++slot) {
            // Used slots are contiguous; the first empty one still takes part,
            // so an empty model name lands on the first platform.
            if (strlen(p.models[slot]) != strlen(model) || strcmp(p.models[slot], model) != 0) {
                if (p.models[slot][0] == '\0') break;
                continue;
            }
            matched = true;
            if (strcmp(mode, "online") == 0 && p.online) {
                result = p.online(argc, argv);
            } else if (strcmp(mode, "offline") == 0 && p.offline) {
                result = p.offline(argc, argv);
            } else if (argc == 4 && p.info) {
                result = p.info(argc, argv);
            } else {
                vk_log("[ERROR] Please input param , example ./vkagnss -m %s -o online\n",
                       p.models[0]);
            }
            break;
        }
        if (matched) break;
    }
    if (!matched) vk_log("[ERROR] Not support %s or not support Offline Agnss\n", model);

    if (result == 0) {
        vk_log("[SUCCESS] vkagnss run success\n");
    } else {
        vk_log("[FAIL] vkagnss run fail,ret:[0x%x]\n", result);
    }
    return result;
}

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
