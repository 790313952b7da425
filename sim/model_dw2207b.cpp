// DW2207B receiver model.
//
// The module takes NMEA-style text commands ("$RESET,...", "$AIDTIME,...",
// "$AIDPOS,...") and acknowledges each with "$OK*04\r\n"; ephemeris arrives
// as raw RTCM 3 frames, which it takes without answering.
//
// Parsing rules of this model:
// - '$' starts a sentence; a line feed ends it. It is good when it reads
//   "$<body>*HH\r\n", HH being two upper-case hex digits equal to the XOR of
//   the body's characters. Every complete sentence is recorded as received;
//   a bad one is counted and refused with "$ERROR*58\r\n".
// - A sentence cut short (by another '$', by 0xD3, by a byte that is neither
//   printable nor CR, or by running past 1024 bytes) is a damaged piece:
//   counted as a bad checksum, not recorded, not answered.
// - 0xD3 outside a sentence starts an RTCM 3 frame: header (six reserved bits
//   zero, 10-bit length), payload, CRC-24Q big-endian over header and payload.
//   A good frame is recorded whole, a bad CRC or a header with reserved bits
//   set is counted as a bad frame (after a bad header the parser looks at that
//   second byte again, so a '$' right after a stray 0xD3 still starts a
//   sentence). Frames are never answered.
// - Anything else between units is ignored (it still lands in the raw record).

#include "sim/model.h"

#include <cstdio>

#include "toolkit/checksum.h"

namespace {

constexpr size_t kMaxSentence = 1024;

enum class State { Idle, Sentence, Frame };

struct Dw2207bState {
    State state = State::Idle;
    std::vector<uint8_t> buf;
    size_t frame_total = 0;  // header + payload + CRC, known after 3 bytes
};

// XOR of the characters between '$' and '*'. Written here rather than taken
// from the tool's toolkit so that the receiver judges the tool's trailers
// independently.
uint8_t body_xor(const std::vector<uint8_t> &s, size_t star) {
    uint8_t x = 0;
    for (size_t i = 1; i < star; ++i) x ^= s[i];
    return x;
}

int hex_upper(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string sentence_with_trailer(const char *body) {
    uint8_t x = 0;
    for (const char *p = body + 1; *p; ++p) x ^= uint8_t(*p);
    char out[64];
    std::snprintf(out, sizeof out, "%s*%02X\r\n", body, x);
    return out;
}

const std::string &ack() {
    static const std::string s = sentence_with_trailer("$OK");  // "$OK*04\r\n"
    return s;
}

const std::string &refusal() {
    static const std::string s = sentence_with_trailer("$ERROR");  // "$ERROR*58\r\n"
    return s;
}

std::string printable(const std::vector<uint8_t> &bytes) {
    std::string out;
    for (uint8_t c : bytes) {
        if (c == '\r' || c == '\n') continue;
        if (c >= 0x20 && c <= 0x7E) {
            out += char(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    return out;
}

bool sentence_good(const std::vector<uint8_t> &s) {
    size_t star = 0;
    while (star < s.size() && s[star] != '*') ++star;
    if (star == s.size() || star + 5 != s.size()) return false;
    if (s[star + 3] != '\r' || s[star + 4] != '\n') return false;
    int hi = hex_upper(s[star + 1]);
    int lo = hex_upper(s[star + 2]);
    if (hi < 0 || lo < 0) return false;
    return body_xor(s, star) == uint8_t(hi * 16 + lo);
}

void finish_sentence(Dw2207bState *st, SimUnit *u) {
    u->kind = SimUnitKind::Sentence;
    u->bytes = st->buf;
    u->record = true;
    u->good = sentence_good(st->buf);
    u->reply = u->good ? ack() : refusal();
    u->refusal = refusal();
    u->describe = (u->good ? "sentence " : "sentence with bad checksum ") + printable(st->buf);
    st->buf.clear();
    st->state = State::Idle;
}

// A sentence that never reached its line end.
void damaged_sentence(Dw2207bState *st, SimUnit *u, const char *why) {
    u->kind = SimUnitKind::Sentence;
    u->bytes = st->buf;
    u->record = false;
    u->good = false;
    u->reply.clear();
    u->refusal.clear();
    u->describe = std::string("damaged sentence (") + why + ") " + printable(st->buf);
    st->buf.clear();
    st->state = State::Idle;
}

// Idle state: a byte may start a unit; never completes one.
void idle_byte(Dw2207bState *st, uint8_t b) {
    if (b == '$') {
        st->buf.assign(1, b);
        st->state = State::Sentence;
    } else if (b == 0xD3) {
        st->buf.assign(1, b);
        st->frame_total = 0;
        st->state = State::Frame;
    }
}

void finish_frame(Dw2207bState *st, SimUnit *u) {
    const std::vector<uint8_t> &f = st->buf;
    size_t len = f.size() - 6;
    uint32_t stored = uint32_t(f[len + 3]) << 16 | uint32_t(f[len + 4]) << 8 | f[len + 5];
    uint32_t computed = Vk_Check_CRC24Q(0, f.data(), uint32_t(len + 3));
    u->kind = SimUnitKind::Frame;
    u->bytes = f;
    u->record = true;
    u->good = stored == computed;
    u->reply.clear();
    u->refusal.clear();
    char text[128];
    if (u->good) {
        unsigned type = len >= 2 ? (unsigned(f[3]) << 4 | f[4] >> 4) : 0;
        std::snprintf(text, sizeof text, "RTCM 3 frame, message %u, %zu bytes", type, f.size());
    } else {
        std::snprintf(text, sizeof text, "RTCM 3 frame with bad CRC (stored %06X, computed %06X), %zu bytes",
                      unsigned(stored), unsigned(computed), f.size());
    }
    u->describe = text;
    st->buf.clear();
    st->state = State::Idle;
}

void *create() { return new Dw2207bState(); }

void destroy(void *state) { delete static_cast<Dw2207bState *>(state); }

bool feed(void *state, uint8_t b, SimUnit *u) {
    Dw2207bState *st = static_cast<Dw2207bState *>(state);
    switch (st->state) {
    case State::Idle:
        idle_byte(st, b);
        return false;

    case State::Sentence:
        if (b == '\n') {
            st->buf.push_back(b);
            finish_sentence(st, u);
            return true;
        }
        if (b == '$' || b == 0xD3) {
            damaged_sentence(st, u, b == '$' ? "new '$' before the line end" : "0xD3 before the line end");
            idle_byte(st, b);
            return true;
        }
        if ((b < 0x20 && b != '\r') || b > 0x7E) {
            damaged_sentence(st, u, "binary byte before the line end");
            return true;
        }
        if (st->buf.size() >= kMaxSentence) {
            damaged_sentence(st, u, "too long");
            return true;
        }
        st->buf.push_back(b);
        return false;

    case State::Frame:
        st->buf.push_back(b);
        if (st->buf.size() == 2 && (b & 0xFC) != 0) {
            // Not a frame header after all: count the stray preamble and look
            // at this byte again as the possible start of something else.
            u->kind = SimUnitKind::Frame;
            u->bytes.assign(1, 0xD3);
            u->record = false;
            u->good = false;
            u->reply.clear();
            u->refusal.clear();
            char text[80];
            std::snprintf(text, sizeof text, "damaged RTCM 3 header D3 %02X (reserved bits set)", b);
            u->describe = text;
            st->buf.clear();
            st->state = State::Idle;
            idle_byte(st, b);
            return true;
        }
        if (st->buf.size() == 3) {
            st->frame_total = ((size_t(st->buf[1]) & 3) << 8 | st->buf[2]) + 6;
        }
        if (st->buf.size() >= 3 && st->buf.size() == st->frame_total) {
            finish_frame(st, u);
            return true;
        }
        return false;
    }
    return false;
}

}  // namespace

const SimModel sim_model_dw2207b = {"dw2207b", create, destroy, feed};
