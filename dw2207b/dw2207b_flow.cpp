#include "core/log.h"
#include "core/options.h"
#include "dw2207b/dw2207b.h"
#include "serial/serial.h"

namespace {

const VkOptionRules kRules = {
    "m:o:p:b:f::b:s::u::l::R:T:",
    nullptr,
    0,        // NONE, HOT, WARM, COLD
    0,        // module name: 63 characters
    nullptr,  // the common "Pos Enable" line
    nullptr,  // no -c
    nullptr,  // time errors in the words of time
    false,    // ",," is refused
    false,    // options not logged one by one
    false,    // one file
    false,
};

const char kExample[] = "./vk_agnss -m DW2207B -f ephemeris.rtcm3 -p COM3 -b 115200 -o online";

}  // namespace

uint32_t DW2207B_AgnssOffline(int argc, char **argv) {
    vk_log("[INFO] enter DW2207B AgnssOnline\n");
    VkOptions opts;
    uint32_t result = vk_parse_options(argc, argv, &kRules, &opts);
    if (result != VK_OK) return result;
    if (!vk_options_complete(&opts)) {
        vk_print_usage(kExample);
        return VK_ERR_PARAM;
    }
    if (opts.file[0] != '\0') {
        result = vk_check_file_access(opts.file);
        if (result != VK_OK) return result;
    }
    uint64_t handle = serial_open(opts.port, uint32_t(opts.baud));
    if (int64_t(handle) < 0) {
        vk_log("[ERROR] Fail to open %s\n", opts.port);
        return VK_ERR_PORT_OPEN;
    }
    vk_log("[INFO] DW2207B open uart_fd:%ld\n", long(handle));

    if (opts.start_way != 0) {
        result = DW2207B_SendStartWay(handle, opts.start_way);
        vk_log("[INFO] DW2207B Send StartWay ret: 0x%x\n", result);
        platform_sleep(1000000);  // let the module restart, whatever it answered
    }
    if (result == VK_OK && opts.time.enable) {
        result = DW2207B_SendAidTime(handle, &opts.time);
        vk_log("[INFO] DW2207B Send Time ret: 0x%x\n", result);
    }
    if (result == VK_OK && opts.pos.enable) {
        result = DW2207B_SendAidPos(handle, &opts.pos);
        vk_log("[INFO] DW2207B Send Pos ret: 0x%x\n", result);
    }
    if (result == VK_OK && opts.file[0] != '\0') {
        result = DW2207B_SendEphData(handle, opts.file);
        vk_log("[INFO] DW2207B Send EphData ret: 0x%x\n", result);
    }
    serial_close(handle);
    return result;
}
