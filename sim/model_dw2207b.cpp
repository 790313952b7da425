// DW2207B receiver model.
//
// The module takes NMEA-style text commands ("$RESET,...", "$AIDTIME,...",
// "$AIDPOS,...") and acknowledges each with "$OK*04\r\n"; ephemeris arrives
// as raw RTCM 3 frames, which it takes without answering.
//
// Parsing rules of this model, beside the sentence rules of sim/sentence.h
// (the frame start byte is 0xD3):
// - Every sentence that reached its line end is recorded as received; a good
//   one is answered "$OK*04\r\n", a bad one is counted and refused with
//   "$ERROR*58\r\n".
// - 0xD3 outside a sentence starts an RTCM 3 frame: header (six reserved bits
//   zero, 10-bit length), payload, CRC-24Q big-endian over header and payload.
//   A good frame is recorded whole, a bad CRC or a header with reserved bits
//   set is counted as a bad frame (after a bad header the parser looks at that
//   second byte again, so a '$' right after a stray 0xD3 still starts a
//   sentence). Frames are never answered.

#include <cstdio>

#include "sim/model.h"
#include "sim/sentence.h"
#include "toolkit/checksum.h"

namespace {

struct Dw2207bState {
    SimInput in;
};

const std::string &ack() {
    static const std::string s = sim_sentence_of("OK");  // "$OK*04\r\n"
    return s;
}

const std::string &refusal() {
    static const std::string s = sim_sentence_of("ERROR");  // "$ERROR*58\r\n"
    return s;
}

void sentence(void *owner, SimUnit *u) {
    const std::vector<uint8_t> &s = static_cast<Dw2207bState *>(owner)->in.buf;
    const bool good = sim_sentence_good(s);
    sim_unit_init(u, SimUnitKind::Sentence, s, true, good);
    u->reply = good ? ack() : refusal();
    u->refusal = refusal();
    u->describe = (good ? "sentence " : "sentence with bad checksum ") + sim_printable(s);
}

void finish_frame(const std::vector<uint8_t> &f, SimUnit *u) {
    size_t len = f.size() - 6;
    uint32_t stored = uint32_t(f[len + 3]) << 16 | uint32_t(f[len + 4]) << 8 | f[len + 5];
    uint32_t computed = Vk_Check_CRC24Q(0, f.data(), uint32_t(len + 3));
    sim_unit_init(u, SimUnitKind::Frame, f, true, stored == computed);
    char text[128];
    if (u->good) {
        unsigned type = len >= 2 ? (unsigned(f[3]) << 4 | f[4] >> 4) : 0;
        std::snprintf(text, sizeof text, "RTCM 3 frame, message %u, %zu bytes", type, f.size());
    } else {
        std::snprintf(text, sizeof text,
                      "RTCM 3 frame with bad CRC (stored %06X, computed %06X), %zu bytes",
                      unsigned(stored), unsigned(computed), f.size());
    }
    u->describe = text;
}

SimFrameStep frame_byte(void *owner, uint8_t b, SimUnit *u) {
    SimInput &in = static_cast<Dw2207bState *>(owner)->in;
    if (in.buf.size() == 2 && (b & 0xFC) != 0) {
        // Not a frame header after all: count the stray preamble and look
        // at this byte again as the possible start of something else.
        sim_unit_init(u, SimUnitKind::Frame, std::vector<uint8_t>(1, 0xD3), false, false);
        char text[80];
        std::snprintf(text, sizeof text, "damaged RTCM 3 header D3 %02X (reserved bits set)", b);
        u->describe = text;
        return SimFrameStep::DoneRescan;
    }
    if (in.buf.size() == 3) in.frame_total = ((size_t(in.buf[1]) & 3) << 8 | in.buf[2]) + 6;
    if (in.buf.size() >= 3 && in.buf.size() == in.frame_total) {
        finish_frame(in.buf, u);
        return SimFrameStep::Done;
    }
    return SimFrameStep::More;
}

const SimInputHooks kHooks = {sentence, frame_byte};

void *create() {
    Dw2207bState *st = new Dw2207bState();
    st->in.frame_start = 0xD3;
    return st;
}

void destroy(void *state) { delete static_cast<Dw2207bState *>(state); }

bool feed(void *state, uint8_t b, SimUnit *u) {
    Dw2207bState *st = static_cast<Dw2207bState *>(state);
    return sim_input_feed(&st->in, kHooks, st, b, u);
}

}  // namespace

const SimModel sim_model_dw2207b = {"dw2207b", create, destroy, feed};
