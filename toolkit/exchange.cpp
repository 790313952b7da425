#include "toolkit/exchange.h"

#include <cstdio>
#include <cstring>

#include "core/log.h"
#include "serial/serial.h"
#include "toolkit/checksum.h"

uint32_t Vk_BuildSentence(char *out, const char *body) {
    if (body[0] == '\0') {
        snprintf(out, VK_SENTENCE_SIZE, "*00\r\n");
        return uint32_t(strlen(out));
    }
    snprintf(out, VK_SENTENCE_SIZE, "%s", body);
    return Vk_NMEA_AppendTrailer(out, VK_SENTENCE_SIZE);
}

uint32_t Vk_SendSentence(SerialPort port, const char *body, const VkSentence &how) {
    char cmd[VK_SENTENCE_SIZE];
    uint32_t len = Vk_BuildSentence(cmd, body);
    if (how.log) vk_log(how.log, cmd);
    uint32_t sent = serial_write(port, cmd, len);
    if (sent < len) {
        vk_log(how.short_write, int(sent), int(len));
        return how.short_write_code;
    }
    if (how.log_after) vk_log(how.log_after, cmd);
    if (how.expected == nullptr) return VK_OK;
    return Vk_WaitReply(port, how.expected, how.check, how.wait);
}
