#include "toolkit/session.h"

#include <cstdio>

#include "core/log.h"

uint32_t Vk_OpenSession(const VkSessionRules &rules, int argc, char **argv, VkSession *s) {
    vk_log("%s", rules.entry_line);
    VkOptions &opts = s->opts;
    uint32_t ret = vk_parse_options(argc, argv, &rules.options, &opts);
    if (ret != VK_OK) return ret;
    if (!vk_options_complete(&opts)) {
        vk_print_usage(rules.usage);
        return VK_ERR_PARAM;
    }
    if (rules.options.file_list) {
        for (int i = 0; i < opts.file_count; ++i) {
            vk_log(" index:%d,file:%s\n", i + 1, opts.files[i]);
            if ((ret = vk_check_file_access(opts.files[i])) != VK_OK) return ret;
        }
    } else if (opts.file[0] != '\0') {
        if ((ret = vk_check_file_access(opts.file)) != VK_OK) return ret;
    }
    return vk_open_port(rules, s);
}

uint32_t Vk_OpenPort(const char *name, int baud, const char *open_failed, SerialPort *port) {
    *port = serial_open(name, uint32_t(baud));
    if (serial_is_open(*port)) return VK_OK;
    vk_log(open_failed, name);
    char why[1024];
    serial_explain_open_failure(name, why, sizeof why);
    fprintf(stderr, "vkagnss: %s\n", why);  // the reason, for the operator
    return VK_ERR_PORT_OPEN;
}

uint32_t vk_open_port(const VkSessionRules &rules, VkSession *s) {
    uint32_t r = Vk_OpenPort(s->opts.port, s->opts.baud, rules.open_failed, &s->port);
    if (r == VK_OK && rules.opened) vk_log(rules.opened, long(s->port.handle));
    return r;
}
