// STA8100 receiver model.
//
// The module is commanded in one of two dialects, and this model takes both
// on the same line (a real module speaks the one its firmware has; the tool
// picks the dialect per run):
//
// Text dialect ("$PSTM" sentences, see sim/sentence.h for the parsing):
//
//   $PSTM<NAME>,...   a command: answered "$PSTM<NAME>OK*HH\r\n", the name
//                     being the sentence's address (everything up to the
//                     first comma), e.g. "$PSTMINITTIME,..." is answered
//                     "$PSTMINITTIMEOK*HH\r\n" and "$PSTMCOLD,15" is answered
//                     "$PSTMCOLDOK*HH\r\n". The host finds its command's name
//                     in the reply and takes the line that holds it and "OK".
//                     A bad checksum or the refuse faults get
//                     "$PSTM<NAME>ERROR*HH\r\n"; the unknown_reply fault gets
//                     "$PSTM<NAME>BUSY*HH\r\n" (neither word). The fields are
//                     not judged. A "$PSTMCOLD" taken counts as a cold start.
//   $PSTMEPHEM...     an ephemeris line of a text ephemeris file: recorded
//                     and never answered. The host feeds the file line after
//                     line, about 15 ms apart, without reading in between and
//                     without reading after the last line, so an answer
//                     would only pile up unread on its side; the receiver
//                     takes the lines silently. A line with a good checksum
//                     is kept (sta_ephemeris_lines, ephemeris_bytes); a bad
//                     one is only counted.
//   Sentences of other talkers are recorded and not answered.
//
// RTCM dialect (0xD3 opens an RTCM 3 frame: six reserved bits zero, 10-bit
// length, payload, CRC-24Q big-endian over header and payload). Frames with
// message number 999 are commands, their fields packed most significant bit
// first after the 12-bit number and a 4-bit subtype:
//
//   start    D3 00 07 3E 71 00 00 00 00 F0 47 9E EE: a cold start, taken
//            without an answer (it carries no command id to acknowledge)
//   subtype 0, 9-byte payload: 8 bits C0, 6 bits command id 12, then day (5
//            bits), month (4), year (12), hour (5), minute (6), second (6)
//            and 4 zero bits: an aid time
//   subtype 2, 15-byte payload: 8 bits 90, 6 bits command id 41, latitude and
//            longitude in whole arc-seconds (32 bits each, two's complement),
//            altitude in metres (20 bits, two's complement), 6 zero bits: an
//            aid position
//
// An aid time or position is answered with the acknowledgement of its
// command id, a 12-byte frame whose payload is 999, subtype 1, the bits
// 001100, the 8-bit id, two zero bits and two zero bytes:
//
//   id 12: D3 00 06 3E 71 30 30 00 00 24 06 88
//   id 41: D3 00 06 3E 71 30 A4 00 00 28 EC 39
//
// and decoded field by field into sta_times / sta_positions. The RTCM
// dialect has no refusal: a refused aid frame (refuse faults) gets no
// acknowledgement and is not kept, which is all the host can tell apart.
// The trailing zero bits are not judged; any other 999 frame (another
// subtype or size, another marker or id) is recorded and not answered.
// Every frame with another message number is ephemeris: kept whole, in
// order (sta_ephemeris_frames, ephemeris_bytes), never answered. A frame
// with a bad CRC is counted as a bad frame and not answered; a 0xD3 whose
// next byte has reserved bits set was no frame (after it the parser looks at
// that byte again).
//
// The host writes its start command in a 20-byte buffer: the zero bytes
// behind the sentence or the frame are passed over between units.
//
// Check values are computed here rather than taken from the tool's toolkit so
// that the receiver judges the tool's check values independently.

#include <algorithm>
#include <cstdio>

#include "sim/model.h"
#include "sim/sentence.h"
#include "sim/sim.h"

namespace {

constexpr uint32_t kCommandMessage = 999;
constexpr uint8_t kTimeId = 12, kPositionId = 41;
constexpr uint8_t kTimeMarker = 0xC0, kPositionMarker = 0x90;
const uint8_t kColdStartPayload[] = {0x3E, 0x71, 0x00, 0x00, 0x00, 0x00, 0xF0};

// What the unit last completed changes in the receiver, once it is taken.
enum class Take { None, ColdStart, Time, Position, EphemerisLine, EphemerisFrame };

struct StaState {
    SimInput in;
    bool unknown_reply = false;  // configure
    bool ack_bad_crc = false;    // configure
    Take take = Take::None;
    SimStaTime time;
    SimStaPosition position;
};

// CRC-24Q (polynomial 0x1864CFB, initial value 0), bit by bit.
uint32_t crc24q(const uint8_t *p, size_t n) {
    uint32_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc ^= uint32_t(p[i]) << 16;
        for (int bit = 0; bit < 8; ++bit) {
            crc <<= 1;
            if (crc & 0x1000000) crc ^= 0x1864CFB;
        }
    }
    return crc & 0xFFFFFF;
}

// len bits (at most 32) from bit pos on, the most significant bit of p[0] first.
uint32_t bits(const uint8_t *p, unsigned pos, unsigned len) {
    uint32_t v = 0;
    for (unsigned i = pos; i < pos + len; ++i) v = v << 1 | ((p[i / 8] >> (7 - i % 8)) & 1u);
    return v;
}

int32_t sign_extend(uint32_t v, unsigned width) {
    const uint32_t sign = 1u << (width - 1);
    return int32_t(v ^ sign) - int32_t(sign);
}

// The acknowledgement of a command id: 999, subtype 1, 001100, the 8-bit id,
// two zero bits, two zero bytes, CRC-24Q.
std::string ack_frame(uint8_t id, bool bad_crc) {
    uint8_t f[12] = {0xD3, 0x00, 0x06, 0x3E, 0x71, uint8_t(0x30 | id >> 6), uint8_t(id << 2),
                     0x00, 0x00};
    const uint32_t crc = crc24q(f, 9);
    f[9] = uint8_t(crc >> 16);
    f[10] = uint8_t(crc >> 8);
    f[11] = uint8_t(crc);
    if (bad_crc) f[11] ^= 0xFF;
    return std::string(reinterpret_cast<const char *>(f), sizeof f);
}

bool starts_with(const std::string &s, const char *prefix) { return s.rfind(prefix, 0) == 0; }

void sentence(void *owner, SimUnit *u) {
    StaState *st = static_cast<StaState *>(owner);
    const std::vector<uint8_t> &s = st->in.buf;
    const std::string head = sim_sentence_head(s);
    const std::string name = head.substr(0, head.find(','));
    sim_unit_init(u, SimUnitKind::Sentence, s, true, sim_sentence_good(s));
    st->take = Take::None;
    if (starts_with(name, "PSTMEPHEM")) {
        u->transfer = true;
        if (u->good) st->take = Take::EphemerisLine;
        u->describe = (u->good ? "ephemeris line, not answered "
                               : "ephemeris line with bad checksum, dropped ") +
                      sim_printable(s);
        return;
    }
    if (name.size() > 4 && starts_with(name, "PSTM")) {
        u->refusal = sim_sentence_of(name + "ERROR");
        if (!u->good) {
            u->reply = u->refusal;
        } else {
            u->reply = sim_sentence_of(name + (st->unknown_reply ? "BUSY" : "OK"));
            if (name == "PSTMCOLD") st->take = Take::ColdStart;
        }
        u->describe = (u->good ? "command " : "command with bad checksum ") + sim_printable(s);
        return;
    }
    u->describe =
        (u->good ? "sentence not answered " : "sentence with bad checksum ") + sim_printable(s);
}

// A message-999 frame: a command, or something the receiver does not understand.
void command_frame(StaState *st, const uint8_t *payload, size_t len, SimUnit *u) {
    const unsigned subtype = len >= 2 ? bits(payload, 12, 4) : 99;
    char text[160];
    if (len == sizeof kColdStartPayload && std::equal(payload, payload + len, kColdStartPayload)) {
        st->take = Take::ColdStart;
        u->describe = "RTCM 999 start frame (cold start), not answered";
        return;
    }
    if (subtype == 0 && len == 9 && bits(payload, 16, 8) == kTimeMarker &&
        bits(payload, 24, 6) == kTimeId) {
        SimStaTime &t = st->time;
        t.day = int(bits(payload, 30, 5));
        t.month = int(bits(payload, 35, 4));
        t.year = int(bits(payload, 39, 12));
        t.hour = int(bits(payload, 51, 5));
        t.minute = int(bits(payload, 56, 6));
        t.second = int(bits(payload, 62, 6));
        st->take = Take::Time;
        u->reply = ack_frame(kTimeId, st->ack_bad_crc);
        std::snprintf(text, sizeof text,
                      "RTCM 999 aid time: day %d, month %d, year %d, %02d:%02d:%02d", t.day,
                      t.month, t.year, t.hour, t.minute, t.second);
        u->describe = text;
        return;
    }
    if (subtype == 2 && len == 15 && bits(payload, 16, 8) == kPositionMarker &&
        bits(payload, 24, 6) == kPositionId) {
        SimStaPosition &p = st->position;
        p.latitude = int32_t(bits(payload, 30, 32));
        p.longitude = int32_t(bits(payload, 62, 32));
        p.altitude = sign_extend(bits(payload, 94, 20), 20);
        st->take = Take::Position;
        u->reply = ack_frame(kPositionId, st->ack_bad_crc);
        std::snprintf(text, sizeof text,
                      "RTCM 999 aid position: latitude %d\", longitude %d\", altitude %d m",
                      int(p.latitude), int(p.longitude), int(p.altitude));
        u->describe = text;
        return;
    }
    std::snprintf(text, sizeof text,
                  "RTCM 999 frame not understood (subtype %u, %zu-byte payload), not answered",
                  subtype, len);
    u->describe = text;
}

void finish_frame(StaState *st, SimUnit *u) {
    const std::vector<uint8_t> &f = st->in.buf;
    const size_t len = f.size() - 6;
    const uint32_t stored = uint32_t(f[len + 3]) << 16 | uint32_t(f[len + 4]) << 8 | f[len + 5];
    const uint32_t computed = crc24q(f.data(), len + 3);
    sim_unit_init(u, SimUnitKind::Frame, f, true, stored == computed);
    st->take = Take::None;
    char text[128];
    if (!u->good) {
        std::snprintf(text, sizeof text,
                      "RTCM 3 frame with bad CRC (stored %06X, computed %06X), %zu bytes",
                      unsigned(stored), unsigned(computed), f.size());
        u->describe = text;
        return;
    }
    const uint8_t *payload = f.data() + 3;
    const unsigned message = len >= 2 ? bits(payload, 0, 12) : 0;
    if (message == kCommandMessage) {
        command_frame(st, payload, len, u);
        return;
    }
    st->take = Take::EphemerisFrame;
    std::snprintf(text, sizeof text, "RTCM 3 ephemeris frame, message %u, %zu bytes", message,
                  f.size());
    u->describe = text;
}

SimFrameStep frame_byte(void *owner, uint8_t b, SimUnit *u) {
    StaState *st = static_cast<StaState *>(owner);
    SimInput &in = st->in;
    if (in.buf.size() == 2 && (b & 0xFC) != 0) {
        // Not a frame header after all: count the stray preamble and look
        // at this byte again as the possible start of something else.
        sim_unit_init(u, SimUnitKind::Frame, std::vector<uint8_t>(1, 0xD3), false, false);
        st->take = Take::None;
        char text[80];
        std::snprintf(text, sizeof text, "damaged RTCM 3 header D3 %02X (reserved bits set)", b);
        u->describe = text;
        return SimFrameStep::DoneRescan;
    }
    if (in.buf.size() == 3) in.frame_total = ((size_t(in.buf[1]) & 3) << 8 | in.buf[2]) + 6;
    if (in.buf.size() >= 3 && in.buf.size() == in.frame_total) {
        finish_frame(st, u);
        return SimFrameStep::Done;
    }
    return SimFrameStep::More;
}

const SimInputHooks kHooks = {sentence, frame_byte};

void *create() {
    StaState *st = new StaState();
    st->in.frame_start = 0xD3;
    return st;
}

void destroy(void *state) { delete static_cast<StaState *>(state); }

bool feed(void *state, uint8_t b, SimUnit *u) {
    StaState *st = static_cast<StaState *>(state);
    const bool done = sim_input_feed(&st->in, kHooks, st, b, u);
    // A damaged piece changes nothing in the receiver.
    if (done && !u->record) st->take = Take::None;
    return done;
}

void commit(void *state, const SimUnit &u, bool refused, SimRecord *rec) {
    StaState *st = static_cast<StaState *>(state);
    const Take take = st->take;
    st->take = Take::None;
    if (refused) return;
    switch (take) {
        case Take::None: break;
        case Take::ColdStart: ++rec->sta_cold_starts; break;
        case Take::Time: rec->sta_times.push_back(st->time); break;
        case Take::Position: rec->sta_positions.push_back(st->position); break;
        case Take::EphemerisLine:
            rec->sta_ephemeris_lines.emplace_back(u.bytes.begin(), u.bytes.end());
            rec->ephemeris_bytes.insert(rec->ephemeris_bytes.end(), u.bytes.begin(), u.bytes.end());
            break;
        case Take::EphemerisFrame:
            rec->sta_ephemeris_frames.push_back(u.bytes);
            rec->ephemeris_bytes.insert(rec->ephemeris_bytes.end(), u.bytes.begin(), u.bytes.end());
            break;
    }
}

void configure(void *state, const SimFaults &f) {
    StaState *st = static_cast<StaState *>(state);
    st->unknown_reply = f.unknown_reply;
    st->ack_bad_crc = f.ack_bad_crc;
}

}  // namespace

const SimModel sim_model_sta8100 = {"sta8100", create, destroy, feed, commit, configure};
