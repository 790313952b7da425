// The sentence command layer: restart, time, position, EPO clear
// and one EPO record as text, with their acknowledgement and report checks.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log.h"
#include "core/number.h"
#include "epo/epo.h"
#include "serial/serial.h"
#include "toolkit/checksum.h"
#include "toolkit/exchange.h"

namespace {

// The sentences of this engine echo every read and join split sentences.
VkSentence exchange(const char *log, const char *short_write, uint32_t code, VkReplyCheck check,
                    const char *expected, uint32_t timeout_ms) {
    return {.log = log,
            .short_write = short_write,
            .short_write_code = code,
            .expected = expected,
            .check = check,
            .wait = {.timeout_ms = timeout_ms, .join_partial = true, .echo = true}};
}

}  // namespace

void epo_append_record_words(char *out, size_t size, int len, const uint8_t *record,
                             bool fixed_width) {
    for (int w = 0; w < 18 && len > 0 && size_t(len) < size; ++w) {
        const uint8_t *p = record + 4 * w;
        unsigned word =
            unsigned(p[0]) | unsigned(p[1]) << 8 | unsigned(p[2]) << 16 | unsigned(p[3]) << 24;
        len += snprintf(out + len, size - size_t(len), fixed_width ? ",%08X" : ",%X", word);
    }
}

uint32_t epo_send_start_way(const EpoDialect *d, SerialPort port, int way) {
    const EpoCommands &c = d->commands;
    const char *body;
    if (way == 0) {
        vk_log(" no start way\n");
        body = "";  // sent as the trailer alone, as the receiver's own tools do
    } else if (way >= 1 && way <= 4 && c.start_bodies[way]) {
        body = c.start_bodies[way];
    } else {
        return VK_ERR_COMMAND;
    }
    return Vk_SendSentence(port, body,
                           exchange(d->texts.start_log, VK_SHORT_WRITE_START, VK_ERR_COMMAND,
                                    c.check_report, c.restart_report, 2000));
}

uint32_t epo_send_time(const EpoDialect *d, SerialPort port, const VkTimeAid *time) {
    int t[6] = {0, 0, 0, 0, 0, 0};
    if (time->type == 0) {
        vk_scan_ints(time->utc, "%d-%d-%d-%d:%d:%d", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5]);
    } else {
        VkDateTime now{};
        Vk_GetCurrentDateTime(&now);
        int from_clock[6] = {now.year, now.month, now.day, now.hour, now.minute, now.second};
        memcpy(t, from_clock, sizeof t);
    }
    const EpoCommands &c = d->commands;
    char body[VK_SENTENCE_SIZE];
    c.time_body(body, sizeof body, t, time);
    return Vk_SendSentence(port, body,
                           exchange(d->texts.command_log, VK_SHORT_WRITE_TIME, EPO_ERR_WRITE_TIME,
                                    c.check_ack, c.time_address, 10000));
}

uint32_t epo_send_pos(const EpoDialect *d, SerialPort port, const VkPosAid *pos) {
    double lat = strtod(pos->lat, nullptr), lon = strtod(pos->lon, nullptr),
           alt = strtod(pos->alt, nullptr);
    if (lat == 0.0 || lon == 0.0) {
        vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", lat, lon);
        return VK_ERR_PARAM;
    }
    vk_log(d->texts.lat_lon_line, lat, lon, alt);
    const EpoCommands &c = d->commands;
    char body[VK_SENTENCE_SIZE];
    c.pos_body(body, sizeof body, lat, lon, alt);
    return Vk_SendSentence(port, body,
                           exchange(d->texts.command_log, VK_SHORT_WRITE_UART, EPO_ERR_ACK,
                                    c.check_ack, c.pos_address, 5000));
}

uint32_t epo_clear(const EpoDialect *d, SerialPort port) {
    const EpoCommands &c = d->commands;
    return Vk_SendSentence(port, c.clear_address,
                           exchange(d->texts.clear_log, VK_SHORT_WRITE_TIME, EPO_ERR_WRITE_TIME,
                                    c.check_ack, c.clear_address, 10000));
}

uint32_t epo_send_record(const EpoDialect *d, SerialPort port, const uint8_t *record, int mode,
                         int expected_sv) {
    int32_t prn = epo_record_prn(d, mode, record);
    if (d->files.check_prn && prn != expected_sv) {
        vk_log("[ERROR] Svid = %d,sv_prn = %d, is diff\n", expected_sv, int(prn));
        return VK_ERR_PARAM;
    }
    const EpoCommands &c = d->commands;
    char body[VK_SENTENCE_SIZE];
    c.record_body(body, sizeof body, mode, int(prn), record);
    VkSentence how = exchange(nullptr, VK_SHORT_WRITE_UART, EPO_ERR_WRITE_RECORD, c.check_ack,
                              c.record_address, 2000);
    how.log_after = d->texts.record_log_after;
    return Vk_SendSentence(port, body, how);
}
