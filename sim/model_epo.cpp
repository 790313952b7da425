// Shared parts of the EPO receiver models: the binary frames (the sentences
// are split by sim/sentence.h, the frame start byte being 0x04), what a
// sentence gets before and after the platform judges it, the binary
// acknowledgement, the receiver's record memory and the small text helpers
// both dialects use.
//
// Parsing rules of the frames:
// - 0x04 outside a sentence starts a binary frame. When the next byte is not
//   0x24, or the length field is beyond 512, the start was stray: it is
//   counted as a bad frame (not recorded, not answered). After a missing
//   0x24 the byte that broke the start is looked at again (it may be the
//   0x04 of the real frame); a header with a length beyond 512 is dropped
//   whole.
// - A good sentence is refused by the platform's refusal for its address (or
//   not answered when the address is not the platform's).
//
// Check values are computed here rather than taken from the tool's toolkit so
// that the receiver judges the tool's check values independently.

#include "sim/model_epo.h"

#include <cstdio>
#include <cstdlib>

#include "sim/sim.h"

struct EpoSimState {
    const EpoSimDialect *dialect = nullptr;
    SimInput in;

    EpoEffect pending;  // the effect of the unit last completed, until its commit

    // The receiver's memory.
    uint32_t stored[EPO_SIM_SYSTEMS] = {};
    uint32_t stored_total = 0;  // since the last clear, systems known or not
    int block_system = -1;      // system of the open begin/end block; -1 none
    uint32_t since_marker = 0;  // records accepted since the last begin/end frame
};

namespace {

int hex_any(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::vector<std::string> split(const std::string &body, char sep) {
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

std::string address_of(const std::string &body) { return body.substr(0, body.find(',')); }

// The 13-byte acknowledgement of a frame id with a result (0 accept, 1 refuse).
std::string bin_ack(uint16_t id, uint16_t result) {
    uint8_t a[13] = {0x04,
                     0x24,
                     0xE8,
                     0x03,
                     0x04,
                     0x00,
                     uint8_t(id & 0xFF),
                     uint8_t(id >> 8),
                     uint8_t(result & 0xFF),
                     uint8_t(result >> 8),
                     0,
                     0xAA,
                     0x44};
    uint8_t x = 0;
    for (int i = 2; i < 10; ++i) x ^= a[i];
    a[10] = x;
    return std::string(reinterpret_cast<const char *>(a), sizeof a);
}

// PRN of a record's SVID by the rule of the EPO type `key` (see
// epo_sim_take_record).
int32_t prn_of(int32_t key, uint8_t svid) {
    const int32_t s = svid;
    switch (key) {
        case 0: return s;
        case 1: return s - 64;
        case 2: return s == 255 ? 255 : s - 100;
        case 3: return s == 255 ? 255 : (s < 200 ? s - 135 : s - 200);
        default: return 0;
    }
}

// A good sentence: the platform answers it when it is addressed to it.
void answer_sentence(EpoSimState *st, const std::string &body, SimUnit *u) {
    const std::vector<std::string> f = split(body, ',');
    u->refusal = st->dialect->refusal_of(f[0]);
    if (u->refusal.empty()) {
        u->describe = "sentence not for this receiver $" + body;
        return;
    }
    EpoAnswer a;
    const bool ok = st->dialect->command(st, f, &a);
    if (ok) st->pending = std::move(a.effect);
    u->reply = ok ? a.reply : u->refusal;
    u->describe = "sentence $" + body + a.note + (ok ? "" : " (malformed or unknown: refused)");
}

void sentence(void *owner, SimUnit *u) {
    EpoSimState *st = static_cast<EpoSimState *>(owner);
    const std::vector<uint8_t> &s = st->in.buf;
    const std::string head = sim_sentence_head(s);
    sim_unit_init(u, SimUnitKind::Sentence, s, true, sim_sentence_good(s));
    u->transfer = address_of(head) == st->dialect->record_address;
    st->pending = EpoEffect();
    if (u->good) {
        answer_sentence(st, head, u);
    } else {
        u->refusal = st->dialect->refusal_of(address_of(head));
        u->reply = u->refusal;
        u->describe = "sentence with bad checksum " + sim_printable(s);
    }
}

// A 0x04 that did not start a frame after all.
void stray_frame_start(const std::vector<uint8_t> &bytes, SimUnit *u, const char *why) {
    sim_unit_init(u, SimUnitKind::Frame, bytes, false, false);
    u->describe = std::string("damaged EPO frame start (") + why + ") " + sim_printable(bytes);
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
    const std::vector<uint8_t> &f = st->in.buf;
    const uint16_t id = uint16_t(f[2] | f[3] << 8);
    const size_t len = size_t(f[4] | f[5] << 8);
    uint8_t x = 0;
    for (size_t i = 2; i < 6 + len; ++i) x ^= f[i];
    const bool check_ok = x == f[6 + len];
    const bool tail_ok = f[7 + len] == 0xAA && f[8 + len] == 0x44;

    sim_unit_init(u, SimUnitKind::Frame, f, true, check_ok && tail_ok);
    st->pending = EpoEffect();
    u->refusal = bin_ack(id, 1);

    char text[160];
    if (!u->good) {
        std::snprintf(text, sizeof text, "EPO %s frame (id %u, %zu bytes) with %s", frame_name(id),
                      unsigned(id), f.size(), check_ok ? "a bad tail" : "a bad check value");
        u->reply = u->refusal;
        u->describe = text;
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
        std::snprintf(text, sizeof text, "EPO frame with unknown id %u (%zu-byte payload), refused",
                      unsigned(id), len);
    }
    u->reply = ok ? bin_ack(id, 0) : u->refusal;
    u->describe = text;
}

SimFrameStep frame_byte(void *owner, uint8_t b, SimUnit *u) {
    EpoSimState *st = static_cast<EpoSimState *>(owner);
    SimInput &in = st->in;
    if (in.buf.size() == 2 && b != 0x24) {
        stray_frame_start(std::vector<uint8_t>(in.buf.begin(), in.buf.end() - 1), u,
                          "no 0x24 after 0x04");
        return SimFrameStep::DoneRescan;
    }
    if (in.buf.size() == 6) {
        size_t len = size_t(in.buf[4] | in.buf[5] << 8);
        if (len > EPO_SIM_MAX_PAYLOAD) {
            // No frame of this receiver is that long: the header is
            // dropped whole and parsing starts afresh after it.
            stray_frame_start(in.buf, u, "length beyond 512");
            return SimFrameStep::Done;
        }
        in.frame_total = len + 9;
    }
    if (in.frame_total > 0 && in.buf.size() == in.frame_total) {
        finish_frame(st, u);
        return SimFrameStep::Done;
    }
    return SimFrameStep::More;
}

const SimInputHooks kHooks = {sentence, frame_byte};

// Appends the marker of an accepted begin/end frame to the record.
void add_marker(EpoSimState *st, SimRecord *rec, const char *what, char letter) {
    rec->epo_markers.push_back(std::string(what) + " " + letter);
    rec->epo_marker_records.push_back(st->since_marker);
    st->since_marker = 0;
}

}  // namespace

bool epo_sim_int(const std::string &text, long *out) {
    size_t i = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (i == text.size() || text.size() - i > 10) return false;
    for (size_t k = i; k < text.size(); ++k)
        if (text[k] < '0' || text[k] > '9') return false;
    if (out) *out = std::strtol(text.c_str(), nullptr, 10);
    return true;
}

bool epo_sim_numbers(const std::vector<std::string> &f, size_t from) {
    // Read as the receiver's firmware reads them, with strtod: the whole field
    // must be a number, and "nan" or "inf" are numbers to it as well.
    for (size_t i = from; i < f.size(); ++i) {
        const std::string &text = f[i];
        if (text.empty() || text[0] == ' ') return false;
        char *end = nullptr;
        std::strtod(text.c_str(), &end);
        if (end != text.c_str() + text.size()) return false;
    }
    return true;
}

bool epo_sim_hex32(const std::string &text, size_t min_digits, size_t max_digits, uint32_t *out) {
    if (text.size() < min_digits || text.size() > max_digits || text.size() > 8 || text.empty())
        return false;
    uint32_t v = 0;
    for (char c : text) {
        int h = hex_any(c);
        if (h < 0) return false;
        v = v << 4 | uint32_t(h);
    }
    *out = v;
    return true;
}

bool epo_sim_status(const EpoSimState *st, const std::vector<std::string> &f, EpoAnswer *a) {
    long system = 0;
    if (f.size() != 2 || !epo_sim_int(f[1], &system)) return false;
    const uint32_t count = system >= 0 && system < EPO_SIM_SYSTEMS ? st->stored[system] : 0;
    a->reply = sim_sentence_of(f[0] + "," + f[1] + "," + std::to_string(count));
    return true;
}

bool epo_sim_take_record(const std::vector<std::string> &f, size_t word_digits, int system,
                         int32_t prn_key, long prn, EpoAnswer *a) {
    uint32_t words[18];
    for (int w = 0; w < 18; ++w)
        if (!epo_sim_hex32(f[size_t(3 + w)], word_digits, 8, &words[w])) return false;
    EpoEffect &e = a->effect;
    e.kind = EpoEffectKind::Record;
    e.record.assign(EPO_SIM_RECORD_SIZE, 0);
    for (int w = 0; w < 18; ++w) {
        for (int b = 0; b < 4; ++b) e.record[size_t(4 * w + b)] = uint8_t(words[w] >> (8 * b));
    }
    e.system = system;
    const int32_t want = prn_of(prn_key, e.record[3]);
    e.prn_error = prn != long(want);
    if (e.prn_error) {
        char note[96];
        std::snprintf(note, sizeof note, " (PRN %ld, SVID %u gives %d)", prn, unsigned(e.record[3]),
                      want);
        a->note = note;
    }
    return true;
}

void *epo_sim_create(const EpoSimDialect *dialect) {
    EpoSimState *st = new EpoSimState();
    st->dialect = dialect;
    st->in.frame_start = 0x04;
    return st;
}

void epo_sim_destroy(void *state) { delete static_cast<EpoSimState *>(state); }

bool epo_sim_feed(void *state, uint8_t b, SimUnit *u) {
    EpoSimState *st = static_cast<EpoSimState *>(state);
    const bool done = sim_input_feed(&st->in, kHooks, st, b, u);
    // A damaged piece changes nothing in the receiver.
    if (done && !u->record) st->pending = EpoEffect();
    return done;
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
        case EpoEffectKind::None: break;
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
