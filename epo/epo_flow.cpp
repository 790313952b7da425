// The online, offline and file-information flows of the EPO platforms.
#include <cstdio>

#include "core/log.h"
#include "epo/epo.h"
#include "serial/serial.h"

namespace {

// Steps 1-4 of both flows: entry line, options, checks, files, port.
// Returns 0 with the port open, or the code to return.
uint32_t prepare(const EpoDialect *d, bool offline, int argc, char **argv, VkOptions *opts,
                 uint64_t *port) {
    vk_log("%s", offline ? d->offline_entry_line : d->online_entry_line);
    const VkOptionRules *rules = offline ? &d->offline_rules : &d->online_rules;
    uint32_t ret = vk_parse_options(argc, argv, rules, opts);
    if (ret != VK_OK) return ret;
    if (!vk_options_complete(opts)) {
        vk_print_usage(offline ? d->offline_usage : d->online_usage);
        return VK_ERR_PARAM;
    }
    for (int i = 0; i < opts->file_count; ++i) {
        vk_log(" index:%d,file:%s\n", i + 1, opts->files[i]);
        if ((ret = vk_check_file_access(opts->files[i])) != VK_OK) return ret;
    }
    *port = serial_open(opts->port, uint32_t(opts->baud));
    if (int64_t(*port) < 0) {
        vk_log(offline ? "[ERROR] Fail to open uart %s\n" : "[ERROR] Fail to open %s\n",
               opts->port);
        return VK_ERR_PORT_OPEN;
    }
    vk_log(" open uart_fd:%ld\n", long(*port));
    return VK_OK;
}

// Steps 6-8: start way (whose result replaces any earlier one), time, position.
uint32_t aid(const EpoDialect *d, uint64_t port, const VkOptions *opts, uint32_t result) {
    if (opts->start_way != 0) {
        result = epo_send_start_way(d, port, opts->start_way);
        vk_log("[INFO] %s Send StartWay ret: 0x%x\n", d->platform, result);
    }
    if (result == VK_OK && opts->time.enable) {
        result = epo_send_time(d, port, &opts->time);
        vk_log("[INFO] %s Send Time ret: 0x%x\n", d->platform, result);
    }
    if (result == VK_OK && opts->pos.enable) {
        result = epo_send_pos(d, port, &opts->pos);
        vk_log("[INFO] %s Send Pos ret: 0x%x\n", d->platform, result);
    }
    return result;
}

}  // namespace

uint32_t epo_run_online(const EpoDialect *d, int argc, char **argv) {
    VkOptions opts;
    uint64_t port = SERIAL_INVALID_HANDLE;
    uint32_t result = prepare(d, false, argc, argv, &opts, &port);
    if (result != VK_OK) return result;
    result = aid(d, port, &opts, VK_OK);
    for (int i = 0; result == VK_OK && i < opts.file_count; ++i) {
        result = epo_send_file_online(d, port, opts.files[i]);
        vk_log("[INFO] %s Send EphData [%d] times, ret: 0x%x\n", d->platform, i + 1, result);
    }
    serial_close(port);
    return result;
}

uint32_t epo_run_offline(const EpoDialect *d, int argc, char **argv) {
    VkOptions opts;
    uint64_t port = SERIAL_INVALID_HANDLE;
    uint32_t result = prepare(d, true, argc, argv, &opts, &port);
    if (result != VK_OK) return result;
    if (opts.clear) {
        result = epo_clear(d, port);
        vk_log("[INFO] %s ClearEph ret: 0x%x\n", d->platform, result);
    }
    // A failed clear does not stop the run when a restart follows and succeeds.
    result = aid(d, port, &opts, result);
    for (int i = 0; result == VK_OK && i < opts.file_count; ++i) {
        result = epo_send_file_offline(d, port, opts.files[i]);
        vk_log("[INFO] %s Send EphFile ret: 0x%x\n", d->platform, result);
    }
    serial_close(port);
    return result;
}

uint32_t epo_run_file_info(int argc, char **argv) {
    static const VkOptionRules kRules = {"m:f::", nullptr, 0,     0,    nullptr, nullptr,
                                         nullptr, false,   false, true, true};
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
