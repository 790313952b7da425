// The byte parser every receiver model shares: see sentence.h.

#include "sim/sentence.h"

#include <cstdio>

namespace {

// Ends the unit under way: the parser is between units again.
void input_end(SimInput *in) {
    in->buf.clear();
    in->frame_total = 0;
    in->state = SimInputState::Idle;
}

// Ends the unit under way and looks at b as the possible start of the next.
void input_restart(SimInput *in, uint8_t b) {
    input_end(in);
    if (b == '$') {
        in->buf.push_back(b);
        in->state = SimInputState::Sentence;
    } else if (b == in->frame_start) {
        in->buf.push_back(b);
        in->state = SimInputState::Frame;
    }
}

// A sentence that never reached its line end.
void damaged_sentence(const SimInput &in, SimUnit *u, const char *why) {
    sim_unit_init(u, SimUnitKind::Sentence, in.buf, false, false);
    u->describe = std::string("damaged sentence (") + why + ") " + sim_printable(in.buf);
}

enum class SentenceStep { More, Whole, Cut };

// One byte of a sentence under way. Whole: the line end came, the sentence is
// in in->buf. Cut: it ended short, *u holds the damaged piece and the parser
// has moved on.
SentenceStep sentence_byte(SimInput *in, uint8_t b, SimUnit *u) {
    if (b == '\n') {
        in->buf.push_back(b);
        return SentenceStep::Whole;
    }
    if (b == '$' || b == in->frame_start) {
        char why[48];
        if (b == '$') {
            std::snprintf(why, sizeof why, "new '$' before the line end");
        } else {
            std::snprintf(why, sizeof why, "0x%02X before the line end", b);
        }
        damaged_sentence(*in, u, why);
        input_restart(in, b);
        return SentenceStep::Cut;
    }
    if ((b < 0x20 && b != '\r') || b > 0x7E) {
        damaged_sentence(*in, u, "binary byte before the line end");
        input_end(in);
        return SentenceStep::Cut;
    }
    if (in->buf.size() >= SIM_MAX_SENTENCE) {
        damaged_sentence(*in, u, "too long");
        input_end(in);
        return SentenceStep::Cut;
    }
    in->buf.push_back(b);
    return SentenceStep::More;
}

int hex_upper(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

bool sim_input_feed(SimInput *in, const SimInputHooks &hooks, void *owner, uint8_t b, SimUnit *u) {
    switch (in->state) {
        case SimInputState::Idle:
            // Starting a unit never completes one.
            input_restart(in, b);
            return false;

        case SimInputState::Sentence:
            switch (sentence_byte(in, b, u)) {
                case SentenceStep::More: return false;
                case SentenceStep::Whole:
                    hooks.sentence(owner, u);
                    input_end(in);
                    return true;
                case SentenceStep::Cut: return true;
            }
            return false;

        case SimInputState::Frame:
            in->buf.push_back(b);
            switch (hooks.frame_byte(owner, b, u)) {
                case SimFrameStep::More: return false;
                case SimFrameStep::Done: input_end(in); return true;
                case SimFrameStep::DoneRescan: input_restart(in, b); return true;
            }
            return false;
    }
    return false;
}

void sim_unit_init(SimUnit *u, SimUnitKind kind, const std::vector<uint8_t> &bytes, bool record,
                   bool good) {
    u->kind = kind;
    u->good = good;
    u->record = record;
    u->bytes = bytes;
    u->reply.clear();
    u->refusal.clear();
    u->describe.clear();
    u->transfer = false;
}

bool sim_sentence_good(const std::vector<uint8_t> &s) {
    size_t star = 0;
    while (star < s.size() && s[star] != '*') ++star;
    if (star == s.size() || star + 5 != s.size()) return false;
    if (s[star + 3] != '\r' || s[star + 4] != '\n') return false;
    int hi = hex_upper(s[star + 1]);
    int lo = hex_upper(s[star + 2]);
    if (hi < 0 || lo < 0) return false;
    uint8_t x = 0;
    for (size_t i = 1; i < star; ++i) x ^= s[i];
    return x == uint8_t(hi * 16 + lo);
}

std::string sim_sentence_head(const std::vector<uint8_t> &s) {
    if (s.empty()) return std::string();
    size_t end = 1;
    while (end < s.size() && s[end] != '*') ++end;
    if (end == s.size()) {
        end = 1;
        while (end < s.size() && s[end] != '\r' && s[end] != '\n') ++end;
    }
    return std::string(s.begin() + 1, s.begin() + long(end));
}

std::string sim_sentence_of(const std::string &body) {
    uint8_t x = 0;
    for (char c : body) x ^= uint8_t(c);
    char trailer[8];
    std::snprintf(trailer, sizeof trailer, "*%02X\r\n", x);
    return "$" + body + trailer;
}

std::string sim_printable(const std::vector<uint8_t> &bytes) {
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
