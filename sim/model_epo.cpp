// Shared parts of the EPO receiver models: the unit parser (sentences and
// binary frames), the binary acknowledgement, the receiver's record memory and
// the small text helpers both dialects use.
//
// Parsing rules:
// - '$' starts a sentence; a line feed ends it. It is good when it reads
//   "$<body>*HH\r\n", HH two upper-case hex digits equal to the XOR of the
//   body's characters; a bad one is refused by the platform's refusal for its
//   address (or not answered when the address is not the platform's).
// - A sentence cut short (by another '$', by 0x04, by any other byte that is
//   neither printable nor CR, or by running past 1024 bytes) is a damaged
//   piece: counted as a bad checksum, not recorded, not answered.
// - 0x04 outside a sentence starts a binary frame. When the next byte is not
//   0x24, or the length field is beyond 512, the start was stray: it is
//   counted as a bad frame (not recorded, not answered). After a missing
//   0x24 the byte that broke the start is looked at again (it may be the
//   0x04 of the real frame); a header with a length beyond 512 is dropped
//   whole.
// - Anything else between units is ignored (it still lands in the raw record).
//
// Checksums are computed here rather than taken from the tool's toolkit so
// that the receiver judges the tool's check values independently.

#include "sim/model_epo.h"

#include <cstdio>
#include <cstdlib>

#include "sim/sim.h"

namespace {

enum class Parse { Idle, Sentence, Frame };

}  // namespace

struct EpoSimState {
    const EpoSimDialect *dialect = nullptr;
    Parse parse = Parse::Idle;
    std::vector<uint8_t> buf;
    size_t frame_total = 0;  // known once the length field is in

    EpoEffect pending;       // the effect of the unit last completed, until its commit

    // The receiver's memory.
    uint32_t stored[EPO_SIM_SYSTEMS] = {};
    uint32_t stored_total = 0;   // since the last clear, systems known or not
    int block_system = -1;       // system of the open begin/end block; -1 none
    uint32_t since_marker = 0;   // records accepted since the last begin/end frame
};

namespace {

int hex_upper(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

int hex_any(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
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

// The body of "$<body>*HH\r\n" when the sentence is good; empty otherwise.
// *guess is the text a receiver would take as the body anyway (up to '*' or
// the line end), for choosing the refusal of a bad one.
bool sentence_body(const std::vector<uint8_t> &s, std::string *body, std::string *guess) {
    size_t star = 1;
    while (star < s.size() && s[star] != '*') ++star;
    size_t end = star;
    if (end == s.size()) {
        end = 1;
        while (end < s.size() && s[end] != '\r' && s[end] != '\n') ++end;
    }
    guess->assign(s.begin() + 1, s.begin() + long(end));
    if (star == s.size() || star + 5 != s.size()) return false;
    if (s[star + 3] != '\r' || s[star + 4] != '\n') return false;
    int hi = hex_upper(s[star + 1]);
    int lo = hex_upper(s[star + 2]);
    if (hi < 0 || lo < 0) return false;
    uint8_t x = 0;
    for (size_t i = 1; i < star; ++i) x ^= s[i];
    if (x != uint8_t(hi * 16 + lo)) return false;
    *body = *guess;
    return true;
}

std::string address_of(const std::string &body) { return body.substr(0, body.find(',')); }

void clear_unit(SimUnit *u) {
    u->reply.clear();
    u->refusal.clear();
    u->transfer = false;
}

void finish_sentence(EpoSimState *st, SimUnit *u) {
    const EpoSimDialect *d = st->dialect;
    u->kind = SimUnitKind::Sentence;
    u->bytes = st->buf;
    u->record = true;
    clear_unit(u);
    st->pending = EpoEffect();
    std::string body, guess;
    u->good = sentence_body(st->buf, &body, &guess);
    u->transfer = address_of(guess) == d->record_address;
    if (u->good) {
        d->sentence(st, body, u, &st->pending);
    } else {
        u->refusal = d->refusal_of(address_of(guess));
        u->reply = u->refusal;
        u->describe = "sentence with bad checksum " + printable(st->buf);
    }
    st->buf.clear();
    st->parse = Parse::Idle;
}

// A sentence that never reached its line end.
void damaged_sentence(EpoSimState *st, SimUnit *u, const char *why) {
    u->kind = SimUnitKind::Sentence;
    u->bytes = st->buf;
    u->record = false;
    u->good = false;
    clear_unit(u);
    st->pending = EpoEffect();
    u->describe = std::string("damaged sentence (") + why + ") " + printable(st->buf);
    st->buf.clear();
    st->parse = Parse::Idle;
}

// A 0x04 that did not start a frame after all.
void stray_frame_start(EpoSimState *st, SimUnit *u, const char *why) {
    u->kind = SimUnitKind::Frame;
    u->bytes = st->buf;
    u->record = false;
    u->good = false;
    clear_unit(u);
    st->pending = EpoEffect();
    u->describe = std::string("damaged EPO frame start (") + why + ") " + printable(st->buf);
    st->buf.clear();
    st->parse = Parse::Idle;
}

// Idle: a byte may start a unit; never completes one.
void idle_byte(EpoSimState *st, uint8_t b) {
    if (b == '$') {
        st->buf.assign(1, b);
        st->parse = Parse::Sentence;
    } else if (b == 0x04) {
        st->buf.assign(1, b);
        st->frame_total = 0;
        st->parse = Parse::Frame;
    }
}

const char *frame_name(uint16_t id) {
    switch (id) {
        case 1200: return "begin";
        case 1201: return "data";
        case 1202: return "end";
        default: return "unknown";
    }
}

void finish_frame(EpoSimState *st, SimUnit *u) {
    const std::vector<uint8_t> &f = st->buf;
    const uint16_t id = uint16_t(f[2] | f[3] << 8);
    const size_t len = size_t(f[4] | f[5] << 8);
    uint8_t x = 0;
    for (size_t i = 2; i < 6 + len; ++i) x ^= f[i];
    const bool check_ok = x == f[6 + len];
    const bool tail_ok = f[7 + len] == 0xAA && f[8 + len] == 0x44;

    u->kind = SimUnitKind::Frame;
    u->bytes = f;
    u->record = true;
    u->good = check_ok && tail_ok;
    clear_unit(u);
    st->pending = EpoEffect();
    u->refusal = epo_sim_bin_ack(id, 1);

    char text[160];
    if (!u->good) {
        std::snprintf(text, sizeof text, "EPO %s frame (id %u, %zu bytes) with %s", frame_name(id), unsigned(id),
                      f.size(), check_ok ? "a bad tail" : "a bad check value");
        u->reply = u->refusal;
        u->describe = text;
        st->buf.clear();
        st->parse = Parse::Idle;
        return;
    }

    const uint8_t *payload = f.data() + 6;
    bool ok = false;
    if (id == 1200 || id == 1202) {
        char letter = len > 0 ? char(payload[0]) : '\0';
        ok = (len == 1 || (len == 2 && payload[1] == 0)) && st->dialect->letter_system(letter) >= 0;
        if (ok) {
            st->pending.kind = id == 1200 ? EpoEffectKind::Begin : EpoEffectKind::End;
            st->pending.letter = letter;
        }
        std::snprintf(text, sizeof text, "EPO %s frame '%c' (%zu-byte payload)%s", frame_name(id),
                      letter >= 0x20 && letter <= 0x7E ? letter : '?', len, ok ? "" : ", refused");
    } else if (id == 1201) {
        // Any length is taken: a record is 72 bytes, but a file's short tail
        // goes out in a frame of its own and the receiver keeps it as it came.
        ok = len > 0;
        if (ok) {
            st->pending.kind = EpoEffectKind::Record;
            st->pending.record.assign(payload, payload + len);
            st->pending.system = st->block_system;
        }
        std::snprintf(text, sizeof text, "EPO data frame, SVID %u (%zu-byte payload)%s",
                      len > 3 ? unsigned(payload[3]) : 0u, len, ok ? "" : ", refused");
    } else {
        std::snprintf(text, sizeof text, "EPO frame with unknown id %u (%zu-byte payload), refused", unsigned(id),
                      len);
    }
    u->reply = ok ? epo_sim_bin_ack(id, 0) : u->refusal;
    u->describe = text;
    st->buf.clear();
    st->parse = Parse::Idle;
}

// Appends the marker of an accepted begin/end frame to the record.
void add_marker(EpoSimState *st, SimRecord *rec, const char *what, char letter) {
    rec->epo_markers.push_back(std::string(what) + " " + letter);
    rec->epo_marker_records.push_back(st->since_marker);
    st->since_marker = 0;
}

}  // namespace

std::string epo_sim_sentence(const std::string &body) {
    uint8_t x = 0;
    for (char c : body) x ^= uint8_t(c);
    char trailer[8];
    std::snprintf(trailer, sizeof trailer, "*%02X\r\n", x);
    return "$" + body + trailer;
}

std::vector<std::string> epo_sim_split(const std::string &body, char sep) {
    std::vector<std::string> out;
    size_t from = 0;
    for (;;) {
        size_t at = body.find(sep, from);
        if (at == std::string::npos) {
            out.push_back(body.substr(from));
            return out;
        }
        out.push_back(body.substr(from, at - from));
        from = at + 1;
    }
}

bool epo_sim_int(const std::string &text, long *out) {
    size_t i = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (i == text.size() || text.size() - i > 10) return false;
    for (size_t k = i; k < text.size(); ++k)
        if (text[k] < '0' || text[k] > '9') return false;
    if (out) *out = std::strtol(text.c_str(), nullptr, 10);
    return true;
}

bool epo_sim_number(const std::string &text) {
    // Read as the receiver's firmware reads it, with strtod: the whole field
    // must be a number, and "nan" or "inf" are numbers to it as well.
    if (text.empty() || text[0] == ' ') return false;
    char *end = nullptr;
    std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size();
}

bool epo_sim_hex32(const std::string &text, size_t min_digits, size_t max_digits, uint32_t *out) {
    if (text.size() < min_digits || text.size() > max_digits || text.size() > 8 || text.empty()) return false;
    uint32_t v = 0;
    for (char c : text) {
        int h = hex_any(c);
        if (h < 0) return false;
        v = v << 4 | uint32_t(h);
    }
    *out = v;
    return true;
}

int32_t epo_sim_prn(int32_t key, uint8_t svid) {
    const int32_t s = svid;
    switch (key) {
        case 0: return s;
        case 1: return s - 64;
        case 2: return s == 255 ? 255 : s - 100;
        case 3: return s == 255 ? 255 : (s < 200 ? s - 135 : s - 200);
        default: return 0;
    }
}

uint32_t epo_sim_stored(const EpoSimState *st, long system) {
    if (system < 0 || system >= EPO_SIM_SYSTEMS) return 0;
    return st->stored[system];
}

std::string epo_sim_bin_ack(uint16_t id, uint16_t result) {
    uint8_t a[13] = {0x04, 0x24, 0xE8, 0x03, 0x04, 0x00, uint8_t(id & 0xFF), uint8_t(id >> 8),
                     uint8_t(result & 0xFF), uint8_t(result >> 8), 0, 0xAA, 0x44};
    uint8_t x = 0;
    for (int i = 2; i < 10; ++i) x ^= a[i];
    a[10] = x;
    return std::string(reinterpret_cast<const char *>(a), sizeof a);
}

std::vector<uint8_t> epo_sim_record_of_words(const uint32_t *words) {
    std::vector<uint8_t> rec(EPO_SIM_RECORD_SIZE);
    for (int w = 0; w < 18; ++w) {
        for (int b = 0; b < 4; ++b) rec[size_t(4 * w + b)] = uint8_t(words[w] >> (8 * b));
    }
    return rec;
}

void *epo_sim_create(const EpoSimDialect *dialect) {
    EpoSimState *st = new EpoSimState();
    st->dialect = dialect;
    return st;
}

void epo_sim_destroy(void *state) { delete static_cast<EpoSimState *>(state); }

bool epo_sim_feed(void *state, uint8_t b, SimUnit *u) {
    EpoSimState *st = static_cast<EpoSimState *>(state);
    switch (st->parse) {
    case Parse::Idle:
        idle_byte(st, b);
        return false;

    case Parse::Sentence:
        if (b == '\n') {
            st->buf.push_back(b);
            finish_sentence(st, u);
            return true;
        }
        if (b == '$' || b == 0x04) {
            damaged_sentence(st, u, b == '$' ? "new '$' before the line end" : "0x04 before the line end");
            idle_byte(st, b);
            return true;
        }
        if ((b < 0x20 && b != '\r') || b > 0x7E) {
            damaged_sentence(st, u, "binary byte before the line end");
            return true;
        }
        if (st->buf.size() >= EPO_SIM_MAX_SENTENCE) {
            damaged_sentence(st, u, "too long");
            return true;
        }
        st->buf.push_back(b);
        return false;

    case Parse::Frame:
        st->buf.push_back(b);
        if (st->buf.size() == 2 && b != 0x24) {
            st->buf.pop_back();
            stray_frame_start(st, u, "no 0x24 after 0x04");
            idle_byte(st, b);
            return true;
        }
        if (st->buf.size() == 6) {
            size_t len = size_t(st->buf[4] | st->buf[5] << 8);
            if (len > EPO_SIM_MAX_PAYLOAD) {
                // No frame of this receiver is that long: the header is
                // dropped whole and parsing starts afresh after it.
                stray_frame_start(st, u, "length beyond 512");
                return true;
            }
            st->frame_total = len + 9;
        }
        if (st->frame_total > 0 && st->buf.size() == st->frame_total) {
            finish_frame(st, u);
            return true;
        }
        return false;
    }
    return false;
}

void epo_sim_commit(void *state, const SimUnit &, bool refused, SimRecord *rec) {
    EpoSimState *st = static_cast<EpoSimState *>(state);
    EpoEffect e = std::move(st->pending);
    st->pending = EpoEffect();
    // A PRN that disagrees with its record is the sender's mistake, counted
    // whatever the receiver answers.
    if (e.prn_error) ++rec->prn_errors;
    if (refused) return;
    switch (e.kind) {
        case EpoEffectKind::None:
            break;
        case EpoEffectKind::Record:
            rec->epo_records.push_back(e.record);
            ++st->since_marker;
            ++st->stored_total;
            if (e.system >= 0 && e.system < EPO_SIM_SYSTEMS) ++st->stored[e.system];
            break;
        case EpoEffectKind::Begin:
            add_marker(st, rec, "begin", e.letter);
            st->block_system = st->dialect->letter_system(e.letter);
            break;
        case EpoEffectKind::End:
            add_marker(st, rec, "end", e.letter);
            st->block_system = -1;
            break;
        case EpoEffectKind::Clear:
            for (uint32_t &n : st->stored) n = 0;
            st->stored_total = 0;
            ++rec->epo_clears;
            break;
    }
    rec->epo_stored = st->stored_total;
}
