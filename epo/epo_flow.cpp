// The online, offline and file-information flows of the EPO platforms.
#include "core/log.h"
#include "epo/epo.h"
#include "serial/serial.h"

namespace {

// Restart (whose result replaces any earlier one), time, position.
uint32_t aid(const EpoDialect *d, SerialPort port, const VkOptions &o, uint32_t result) {
    if (o.start_way != 0) {
        result = epo_send_start_way(d, port, o.start_way);
        vk_log("[INFO] %s Send StartWay ret: 0x%x\n", d->platform, result);
    }
    if (result == VK_OK && o.time.enable) {
        result = epo_send_time(d, port, &o.time);
        vk_log("[INFO] %s Send Time ret: 0x%x\n", d->platform, result);
    }
    if (result == VK_OK && o.pos.enable) {
        result = epo_send_pos(d, port, &o.pos);
        vk_log("[INFO] %s Send Pos ret: 0x%x\n", d->platform, result);
    }
    return result;
}

}  // namespace

// Aiding, then each file as record sentences; the first failure stops.
uint32_t epo_run_online(const EpoDialect *d, int argc, char **argv) {
    VkSession s;
    uint32_t result = Vk_OpenSession(d->online, argc, argv, &s);
    if (result != VK_OK) return result;
    result = aid(d, s.port, s.opts, VK_OK);
    for (int i = 0; result == VK_OK && i < s.opts.file_count; ++i) {
        result = epo_send_file_online(d, s.port, s.opts.files[i]);
        vk_log("[INFO] %s Send EphData [%d] times, ret: 0x%x\n", d->platform, i + 1, result);
    }
    serial_close(s.port);
    return result;
}

// Clear (-c), aiding, then each file in binary frames; the first failure stops.
uint32_t epo_run_offline(const EpoDialect *d, int argc, char **argv) {
    VkSession s;
    uint32_t result = Vk_OpenSession(d->offline, argc, argv, &s);
    if (result != VK_OK) return result;
    if (s.opts.clear) {
        result = epo_clear(d, s.port);
        vk_log("[INFO] %s ClearEph ret: 0x%x\n", d->platform, result);
    }
    // A failed clear does not stop the run when a restart follows and succeeds.
    result = aid(d, s.port, s.opts, result);
    for (int i = 0; result == VK_OK && i < s.opts.file_count; ++i) {
        result = epo_send_file_offline(d, s.port, s.opts.files[i]);
        vk_log("[INFO] %s Send EphFile ret: 0x%x\n", d->platform, result);
    }
    serial_close(s.port);
    return result;
}

uint32_t epo_run_file_info(int argc, char **argv) {
    static const VkOptionRules kRules = {
        .optstring = "m:f::", .file_list = true, .file_missing_index = true};
    vk_log("[INFO] enter AG33XX Agnss decode file func \n");
    VkOptions opts;
    uint32_t ret = vk_parse_options(argc, argv, &kRules, &opts);
    if (ret != VK_OK) return ret;
    if (opts.file_count == 0) {
        vk_log("[ERROR] No epo file need to decode \n");
        return VK_ERR_PARAM;
    }
    for (int i = 0; i < opts.file_count; ++i) {
        vk_log(" index:%d,file:%s\n", i + 1, opts.files[i]);
        if ((ret = vk_check_file_access(opts.files[i])) != VK_OK) return ret;
        EpoInfo info;
        epo_decode_file(&info, opts.files[i]);
        VkAgnssInfo summary{};
        epo_to_agnss_info(&info, &summary);
        Vk_PrintfAgnssInfo(&summary);
    }
    return VK_OK;
}
