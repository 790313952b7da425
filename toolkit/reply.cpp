#include "toolkit/reply.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/log.h"
#include "core/number.h"
#include "serial/serial.h"
#include "toolkit/checksum.h"

const char *Vk_FindText(const char *buf, uint32_t len, const char *needle) {
    size_t n = strlen(needle);
    if (n == 0) return buf;
    if (n > len) return nullptr;
    for (uint32_t i = 0; i + n <= len; ++i)
        if (buf[i] == needle[0] && memcmp(buf + i, needle, n) == 0) return buf + i;
    return nullptr;
}

bool Vk_ContainsText(const char *buf, uint32_t len, const char *needle) {
    return Vk_FindText(buf, len, needle) != nullptr;
}

int Vk_ProcessSerialData(char *buf, uint32_t *len, char *carry, uint32_t *carry_len,
                         uint32_t buf_size, uint32_t carry_size) {
    if (*carry_len > 0) {
        if (*len + *carry_len > buf_size) return 0;
        memmove(buf + *carry_len, buf, *len);
        memcpy(buf, carry, *carry_len);
        *len += *carry_len;
        *carry_len = 0;
    }
    if (*len > 0 && buf[*len - 1] != '\n') {
        const char *last = nullptr;
        for (uint32_t i = *len; i > 0; --i) {
            if (buf[i - 1] == '$') {
                last = buf + i - 1;
                break;
            }
        }
        if (last != nullptr) {
            uint32_t tail = uint32_t(buf + *len - last);
            if (tail > carry_size) return 0;
            memcpy(carry, last, tail);
            *carry_len = tail;
            *len -= tail;
        }
    }
    if (*len < buf_size) buf[*len] = '\0';
    return 1;
}

void vk_count_noise(VkLineNoise *noise, const uint8_t *buf, uint32_t len,
                    const uint8_t *frame_start) {
    for (uint32_t i = 0; i < len; ++i) {
        const uint8_t b = buf[i];
        ++noise->bytes;
        if (!((b >= 0x20 && b < 0x7F) || b == '\r' || b == '\n' || b == '\t')) ++noise->unprintable;
        if (frame_start != nullptr && noise->last == frame_start[0] && b == frame_start[1])
            noise->frame_start = true;
        noise->last = b;
    }
}

bool vk_looks_garbled(const VkLineNoise &noise) {
    return noise.bytes >= 8 && noise.unprintable * 2 > noise.bytes && !noise.frame_start;
}

namespace {

// A wait that failed on bytes that look like line noise gets a hint, once a
// run: a wrong baud rate is the usual cause, and nothing else would say so.
void hint_if_garbled(SerialPort port, const VkLineNoise &noise) {
    static bool hinted = false;
    if (hinted || !vk_looks_garbled(noise)) return;
    hinted = true;
    fprintf(stderr, "vkagnss: replies from %s look garbled: is the baud rate right?\n",
            serial_port_name(port));
    fflush(stderr);
}

}  // namespace

uint32_t Vk_WaitReply(SerialPort port, const VkReplyWait &how, VkReplyJudge judge, void *state) {
    uint32_t result = how.initial;
    // One byte more than a slice reads keeps the text NUL-terminated.
    const uint32_t size = how.read_size;
    char *buf = static_cast<char *>(malloc(size + 1));
    if (buf == nullptr) {
        perror("malloc");
        return how.no_memory;
    }
    char carry[VK_REPLY_CARRY];
    uint32_t carry_len = 0;
    uint64_t start = Vk_ClockGetTimeMs();
    uint64_t elapsed = 0;
    VkLineNoise noise;
    for (;;) {
        memset(buf, 0, size + 1);
        uint32_t n = serial_read(port, buf, size, how.slice_ms);
        vk_count_noise(&noise, reinterpret_cast<const uint8_t *>(buf), n, how.frame_start);
        if (n == 0) {
            result = how.nothing_read;
            // A port that went away answers nothing ever again: end as a time-out.
            if (how.stop_when_silent || serial_port_gone(port)) break;
        } else {
            if (how.join_partial)
                Vk_ProcessSerialData(buf, &n, carry, &carry_len, size, VK_REPLY_CARRY);
            if (how.echo) {
                printf("[%llu] %s\n", (unsigned long long)Vk_ClockGetTimeMs(), buf);
                fflush(stdout);
            }
            result = judge(state, buf, n, result);
        }
        if (result == 0 || Vk_CalculateElapsedTime(start, how.timeout_ms, &elapsed)) break;
    }
    free(buf);
    if (result != 0) hint_if_garbled(port, noise);
    return result;
}

namespace {

struct TextCheck {
    const char *expected;
    VkReplyCheck check;
};

uint32_t judge_text(void *state, const char *buf, uint32_t len, uint32_t current) {
    const TextCheck *t = static_cast<const TextCheck *>(state);
    return t->check(buf, len, t->expected, current);
}

}  // namespace

uint64_t vk_reply_pause_end(uint64_t heard_us, uint64_t asked_us, uint64_t now_us,
                            uint32_t microseconds) {
    const uint64_t from = heard_us > asked_us && heard_us <= now_us ? heard_us : now_us;
    return from + uint64_t(vk_sleep_ms(microseconds)) * 1000;
}

int vk_pause_after_reply(SerialPort port, uint64_t asked_us, uint32_t microseconds) {
    return platform_sleep_until(
        vk_reply_pause_end(serial_last_input_us(port), asked_us, vk_clock_us(), microseconds));
}

uint32_t Vk_WaitReply(SerialPort port, const char *expected, VkReplyCheck check,
                      const VkReplyWait &how) {
    TextCheck text{expected, check};
    return Vk_WaitReply(port, how, judge_text, &text);
}

std::string vk_reply_line(const char *found, const char *buf, uint32_t len) {
    std::string text(found, size_t(buf + len - found));
    size_t nul = text.find('\0');
    if (nul != std::string::npos) text.resize(nul);
    size_t end = text.find("\r\n");
    if (end != std::string::npos) text.resize(end);
    return text;
}

bool vk_checksum_text_matches(const char *body, const char *received) {
    char computed[16];
    snprintf(computed, sizeof computed, "%x", Vk_NMEA_Support_Checksum(body));
    return vk_atoi(received) == vk_atoi(computed);
}

bool vk_split_and_check(const std::string &text, std::string *body, const char *mismatch) {
    size_t star = text.find('*');
    *body = text.substr(0, star);
    std::string received = star == std::string::npos ? std::string() : text.substr(star + 1);
    if (vk_checksum_text_matches(body->c_str(), received.c_str())) return true;
    char computed[16];
    snprintf(computed, sizeof computed, "%x", Vk_NMEA_Support_Checksum(body->c_str()));
    vk_log(mismatch, vk_atoi(received.c_str()), vk_atoi(computed));
    return false;
}
