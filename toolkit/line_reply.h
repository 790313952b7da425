// The text reply check the "$PSTM" and TQ934N "$PVNK" dialects share: the
// reply line holding the command's name says "OK" or "ERROR"; the wordings
// and which names take an "ERROR" as done are the platform's data.
#pragma once

#include <cstdint>

struct VkLineReplyRules {
    const char *error_line = "";              // logged for "ERROR" ("%s": the name)
    const char *error_is_done_for = nullptr;  // a line holding this and "ERROR" counts as success
    uint32_t recheck_pause_ms = 200;          // between re-checks of a line with neither word
};

// buf is NUL-terminated; its length is not needed. Returns 0 for "OK", 0x107
// for "ERROR", 0x200 when the name is not there. A line that carries the name
// but neither word is checked again and again without end, logging it each
// time: the receiver's answer is neither accepted nor refused.
uint32_t vk_check_line_reply(const char *buf, const char *name, const VkLineReplyRules &rules);
