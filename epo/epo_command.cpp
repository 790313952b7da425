// The sentence command layer: restart, time, position, EPO status, EPO clear
// and one EPO record as text, with their acknowledgement and report checks.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log.h"
#include "epo/epo.h"
#include "serial/serial.h"
#include "toolkit/checksum.h"
#include "toolkit/reply.h"

namespace {

enum { SENTENCE_SIZE = 352 };

// Body plus "*%02X\r\n". An empty body gets the checksum 00.
uint32_t build_sentence(char *out, const char *body) {
    snprintf(out, SENTENCE_SIZE, "%s", body);
    if (body[0] == '\0') {
        snprintf(out, SENTENCE_SIZE, "*00\r\n");
        return uint32_t(strlen(out));
    }
    return Vk_NMEA_AppendTrailer(out, SENTENCE_SIZE);
}

// Writes the sentence; true when all of it went out.
bool write_sentence(uint64_t port, const char *s, uint32_t len, uint32_t *sent) {
    *sent = serial_write(port, s, len);
    return *sent >= len;
}

// The text of a reply from its start to the first CR LF, within the read.
std::string reply_text(const char *found, const char *buf, uint32_t len) {
    std::string text(found, size_t(buf + len - found));
    size_t nul = text.find('\0');
    if (nul != std::string::npos) text.resize(nul);
    size_t end = text.find("\r\n");
    if (end != std::string::npos) text.resize(end);
    return text;
}

// Splits "body*cs" and compares the two checksums the weak way. Logs a mismatch.
bool split_and_check(const std::string &text, std::string *body) {
    size_t star = text.find('*');
    *body = text.substr(0, star);
    std::string received = star == std::string::npos ? std::string() : text.substr(star + 1);
    if (epo_checksum_matches(body->c_str(), received.c_str())) return true;
    char computed[16];
    snprintf(computed, sizeof computed, "%x", Vk_NMEA_Support_Checksum(body->c_str()));
    vk_log("[ERROR] checksum_fix: %d,checksum_cacu:%d,is diff\n", atoi(received.c_str()),
           atoi(computed));
    return false;
}

VkReplyWait wait_rules(uint32_t timeout_ms) {
    VkReplyWait how{};
    how.timeout_ms = timeout_ms;
    how.initial = VK_ERR_COMMAND;
    how.nothing_read = VK_ERR_NO_REPLY;
    how.no_memory = VK_ERR_MEMORY;
    how.join_partial = true;
    how.echo = true;
    return how;
}

bool type_in(int32_t type, const int32_t *types, int count) {
    for (int i = 0; i < count; ++i)
        if (types[i] == type) return true;
    return false;
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

bool epo_checksum_matches(const char *body, const char *received) {
    // Both texts are read as decimal numbers, so only their leading decimal
    // digits take part: "3A" and "3b" both read as 3 and pass.
    char computed[16];
    snprintf(computed, sizeof computed, "%x", Vk_NMEA_Support_Checksum(body));
    return atoi(received) == atoi(computed);
}

uint32_t epo_check_pair_ack(const char *buf, uint32_t len, const char *address, uint32_t) {
    if (len == 0) {
        vk_log("[ERROR] recv nothing");
        return VK_ERR_NO_REPLY;
    }
    const char *id = strlen(address) > 5 ? address + 5 : "";
    std::string needle = std::string("$PAIR001,") + id;
    const char *found = Vk_FindText(buf, len, needle.c_str());
    if (found == nullptr) return VK_ERR_NO_REPLY;
    std::string text = reply_text(found, buf, len);
    if (text.empty()) {
        vk_log("[ERROR] format wrong,buf:%s\n", buf);
        return EPO_ERR_ACK;
    }
    std::string body;
    if (!split_and_check(text, &body)) return EPO_ERR_ACK;
    // "$PAIR001,<command number>,<result>"
    size_t c1 = body.find(',');
    size_t c2 = body.find(',', c1 + 1);
    std::string number =
        body.substr(c1 + 1, c2 == std::string::npos ? std::string::npos : c2 - c1 - 1);
    int result = c2 == std::string::npos ? 0 : atoi(body.c_str() + c2 + 1);
    if (strncmp(number.c_str(), id, number.size()) == 0 && result == 0) return 0;
    vk_log("[ERROR] check_id: %s,check_ret:%d\n", number.c_str(), result);
    return EPO_ERR_ACK;
}

uint32_t epo_check_pair_report(const char *buf, uint32_t len, const char *expected, uint32_t) {
    if (len == 0) return VK_ERR_NO_REPLY;
    const char *found = Vk_FindText(buf, len, expected);
    if (found == nullptr) return VK_ERR_NO_REPLY;
    if (strncmp(expected, "$PAIR011", 8) == 0) return 0;
    if (strstr(expected, "$PAIR470") == nullptr) return VK_ERR_NO_REPLY;
    // "$PAIR470,<system>,<count>": the field after the expected text and its comma.
    const char *after = found + strlen(expected);
    int count = (after < buf + len) ? atoi(after + 1) : 0;
    vk_log("[INFO] total number of EPO data sets: %d\n", count);
    return count != 0 ? uint32_t(0) : uint32_t(EPO_ERR_NO_DATA);
}

uint32_t epo_check_pvnk_ack(const char *buf, uint32_t len, const char *address, uint32_t) {
    const uint32_t refused = 0x110;
    if (len == 0) {
        vk_log("[ERROR] recv nothing");
        return VK_ERR_NO_REPLY;
    }
    const char *found = Vk_FindText(buf, len, address);
    if (found == nullptr) return VK_ERR_NO_REPLY;
    std::string text = reply_text(found, buf, len);
    if (text.empty()) {
        vk_log("[ERROR] format wrong,buf:%s\n", buf);
        return refused;
    }
    std::string body;
    if (!split_and_check(text, &body)) return refused;
    if (body.find("OK") != std::string::npos) {
        vk_log("[DEBUG] command execution success: %s\n", body.c_str());
        return 0;
    }
    vk_log("[ERROR] coammand execution failed: %s\n", body.c_str());
    return refused;
}

uint32_t epo_check_pvnk_report(const char *buf, uint32_t len, const char *expected, uint32_t) {
    if (len == 0) return VK_ERR_NO_REPLY;
    // Position sentences again mean the restart is done.
    if (strncmp(expected, "GGA", 3) == 0 || strstr(expected, "$PVNKEPOGETSTATUS"))
        return Vk_FindText(buf, len, expected) ? uint32_t(0) : uint32_t(VK_ERR_NO_REPLY);
    return VK_ERR_NO_REPLY;
}

uint32_t epo_wait_ack(const EpoDialect *d, uint64_t port, const char *address,
                      uint32_t timeout_ms) {
    VkReplyWait how = wait_rules(timeout_ms);
    return Vk_WaitReply(port, address, d->check_ack, &how);
}

uint32_t epo_wait_report(const EpoDialect *d, uint64_t port, const char *expected,
                         uint32_t timeout_ms) {
    VkReplyWait how = wait_rules(timeout_ms);
    return Vk_WaitReply(port, expected, d->check_report, &how);
}

uint32_t epo_send_start_way(const EpoDialect *d, uint64_t port, int way) {
    const char *body;
    if (way == 0) {
        vk_log(" no start way\n");
        body = "";  // sent as the trailer alone, as the receiver's own tools do
    } else if (way >= 1 && way <= 4 && d->start_bodies[way]) {
        body = d->start_bodies[way];
    } else {
        return VK_ERR_COMMAND;
    }
    char cmd[SENTENCE_SIZE];
    uint32_t len = build_sentence(cmd, body);
    vk_log(d->start_log, cmd);
    uint32_t sent = 0;
    if (!write_sentence(port, cmd, len, &sent)) {
        vk_log("[ERROR] send START CMD failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return VK_ERR_COMMAND;
    }
    return epo_wait_report(d, port, d->restart_report, 2000);
}

uint32_t epo_send_time(const EpoDialect *d, uint64_t port, const VkTimeAid *time) {
    int t[6] = {0, 0, 0, 0, 0, 0};
    if (time->type == 0) {
        sscanf(time->utc, "%d-%d-%d-%d:%d:%d", &t[0], &t[1], &t[2], &t[3], &t[4], &t[5]);
    } else {
        VkDateTime now{};
        Vk_GetCurrentDateTime(&now);
        int from_clock[6] = {now.year, now.month, now.day, now.hour, now.minute, now.second};
        memcpy(t, from_clock, sizeof t);
    }
    char body[SENTENCE_SIZE], cmd[SENTENCE_SIZE];
    d->time_body(body, sizeof body, t, time);
    uint32_t len = build_sentence(cmd, body);
    vk_log(d->command_log, cmd);
    uint32_t sent = 0;
    if (!write_sentence(port, cmd, len, &sent)) {
        vk_log("[ERROR] send time failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return EPO_ERR_WRITE_TIME;
    }
    return epo_wait_ack(d, port, d->time_address, 10000);
}

uint32_t epo_send_pos(const EpoDialect *d, uint64_t port, const VkPosAid *pos) {
    double lat = atof(pos->lat), lon = atof(pos->lon), alt = atof(pos->alt);
    (void)atof(pos->acc);  // read but not sent: the sentence carries fixed accuracies
    if (lat == 0.0 || lon == 0.0) {
        vk_log("[ERROR] lat[%0.6f] or lon[%0.6f] is none,no send pos\n", lat, lon);
        return VK_ERR_PARAM;
    }
    vk_log(d->lat_lon_line, lat, lon, alt);
    char body[SENTENCE_SIZE], cmd[SENTENCE_SIZE];
    d->pos_body(body, sizeof body, lat, lon, alt);
    uint32_t len = build_sentence(cmd, body);
    vk_log(d->command_log, cmd);
    uint32_t sent = 0;
    if (!write_sentence(port, cmd, len, &sent)) {
        vk_log("[ERROR] uart send failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return EPO_ERR_ACK;
    }
    return epo_wait_ack(d, port, d->pos_address, 5000);
}

uint32_t epo_query_status(const EpoDialect *d, uint64_t port) {
    int32_t type = epo_get_type();
    if (type == -1) {
        vk_log("[ERROR] Invalid epo type\n");
        return VK_ERR_PARAM;
    }
    int first = -1;
    for (int i = 0; i < d->status_system_count; ++i)
        if (d->status_systems[i].type == type) first = d->status_systems[i].value;
    if (first < 0) {
        vk_log("[ERROR] Unknown EPO type %d\n", type);
        return VK_ERR_COMMAND;
    }
    // A GPS+GLONASS file is asked for twice: its GPS system, then GLONASS.
    int passes = type_in(type, d->pair_types, d->pair_type_count) ? 2 : 1;
    uint32_t result = VK_ERR_COMMAND;
    for (int pass = 0; pass < passes; ++pass) {
        char body[SENTENCE_SIZE], cmd[SENTENCE_SIZE];
        snprintf(body, sizeof body, "%s,%d", d->status_address, first + pass);
        uint32_t len = build_sentence(cmd, body);
        vk_log(d->command_log, cmd);
        uint32_t sent = 0;
        if (!write_sentence(port, cmd, len, &sent)) {
            vk_log("[ERROR] uart send failed,actual_send:%d,len:%d\n", int(sent), int(len));
            return VK_ERR_COMMAND;
        }
        result = epo_wait_report(d, port, d->status_full_expect ? body : d->status_address, 2000);
        if (result != 0) break;
    }
    return result;
}

uint32_t epo_clear(const EpoDialect *d, uint64_t port) {
    char cmd[SENTENCE_SIZE];
    uint32_t len = build_sentence(cmd, d->clear_address);
    vk_log(d->clear_log, cmd);
    uint32_t sent = 0;
    if (!write_sentence(port, cmd, len, &sent)) {
        vk_log("[ERROR] send time failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return EPO_ERR_WRITE_TIME;
    }
    return epo_wait_ack(d, port, d->clear_address, 10000);
}

uint32_t epo_send_record(const EpoDialect *d, uint64_t port, const uint8_t *record, int mode,
                         int expected_sv) {
    int32_t prn = epo_prn_of_record(d->prn_by_mode ? mode - 1 : mode, record);
    if (d->check_prn && prn != expected_sv) {
        vk_log("[ERROR] Svid = %d,sv_prn = %d, is diff\n", expected_sv, int(prn));
        return VK_ERR_PARAM;
    }
    char body[SENTENCE_SIZE], cmd[SENTENCE_SIZE];
    d->record_body(body, sizeof body, mode, int(prn), record);
    uint32_t len = build_sentence(cmd, body);
    uint32_t sent = 0;
    if (!write_sentence(port, cmd, len, &sent)) {
        vk_log("[ERROR] uart send failed,actual_send:%d,len:%d\n", int(sent), int(len));
        return EPO_ERR_WRITE_RECORD;
    }
    if (d->log_record_after_write) vk_log("[DEBUG] Send VEPO cmd: %s\n", cmd);
    return epo_wait_ack(d, port, d->record_address, 2000);
}
