#include "core/log.h"
#include "dw2207b/dw2207b.h"
#include "toolkit/session.h"

namespace {

const VkSessionRules kSession = {
    .entry_line = "[INFO] enter DW2207B AgnssOnline\n",
    .options = {.optstring = "m:o:p:b:f::b:s::u::l::R:T:"},
    .usage = "./vk_agnss -m DW2207B -fephemeris.rtcm3 -p COM3 -b 115200 -o online",
    .opened = "[INFO] DW2207B open uart_fd:%ld\n",
};

}  // namespace

// Restart, time, position, ephemeris: each step runs while the result is 0.
uint32_t DW2207B_AgnssOffline(int argc, char **argv) {
    VkSession s;
    uint32_t result = Vk_OpenSession(kSession, argc, argv, &s);
    if (result != VK_OK) return result;
    const VkOptions &o = s.opts;

    if (o.start_way != 0) {
        result = DW2207B_SendStartWay(s.port, o.start_way);
        vk_log("[INFO] DW2207B Send StartWay ret: 0x%x\n", result);
        platform_sleep(1000000);  // let the module restart, whatever it answered
    }
    if (result == VK_OK && o.time.enable) {
        result = DW2207B_SendAidTime(s.port, &o.time);
        vk_log("[INFO] DW2207B Send Time ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.pos.enable) {
        result = DW2207B_SendAidPos(s.port, &o.pos);
        vk_log("[INFO] DW2207B Send Pos ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.file[0] != '\0') {
        result = DW2207B_SendEphData(s.port, o.file);
        vk_log("[INFO] DW2207B Send EphData ret: 0x%x\n", result);
    }
    serial_close(s.port);
    return result;
}
