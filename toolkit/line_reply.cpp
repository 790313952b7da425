#include "toolkit/line_reply.h"

#include <cstring>
#include <string>

#include "core/log.h"
#include "core/result.h"

uint32_t vk_check_line_reply(const char *buf, const char *name, const VkLineReplyRules &rules) {
    const char *found = strstr(buf, name);
    if (found == nullptr) {
        vk_log(" [WARNING] No %s in recvbuff\n", name);
        return VK_ERR_NO_REPLY;
    }
    const std::string line(found, strcspn(found, "\r\n"));
    if (line.find("OK") != std::string::npos) return VK_OK;
    if (line.find("ERROR") != std::string::npos) {
        if (rules.error_is_done_for != nullptr &&
            line.find(rules.error_is_done_for) != std::string::npos)
            return VK_OK;
        vk_log(rules.error_line, name);
        return VK_ERR_COMMAND;
    }
    // The check never moves on to a following line.
    for (;;) {
        vk_log("[INFO] Unknow %s response: %s", name, line.c_str());
        platform_sleep(rules.recheck_pause_ms * 1000);
    }
}
