// TQ934N receiver model.
//
// The module takes "$PVNK" sentences, binary frames that start with the two
// letters 'B' 'K', and its ephemeris as raw data in blocks.
//
// Sentences (see sim/sentence.h for the parsing):
//
//   $PVNKCLRADAT        clear the stored aiding data
//   $PVNKAIDPOS,...     aiding position
//   $PVNKAIDTIME,...    aiding time
//   $PVNKHOT, $PVNKWARM, $PVNKCOLD   restart
//
//   each answered "$<address>,OK*HH\r\n" (e.g. "$PVNKAIDTIME,OK*HH\r\n"):
//   the host finds its command's name in the reply and takes the line that
//   holds it and "OK". A bad checksum or the refuse faults get
//   "$<address>,ERROR*HH\r\n" (the host lets a refused aiding time pass and
//   fails on the others); the unknown_reply fault gets
//   "$<address>,BUSY*HH\r\n" (neither word). The fields are not judged. Any
//   other sentence is recorded and not answered.
//
// 'B' 'K' frames, header fields big-endian:
//
//   42 4B | CRC-16 | class | id | length (12 bits) | payload
//
// the CRC-16/XMODEM (polynomial 0x1021, initial value 0) taken over class,
// id, length and payload. The one the receiver takes is the binary aiding
// time, class 18 id 03 with a 12-byte payload of three little-endian 32-bit
// words (GPS week, whole seconds of the week, leap seconds): answered with
// the empty frame of class 19 id 03, 42 4B B1 80 19 03 00 00, and kept in
// tq_times. A time frame of another size, or a refusal, gets class 19 id 00
// instead, 42 4B E8 D0 19 00 00 00. Other 'B' 'K' frames are recorded and
// not answered; one with a wrong CRC is counted as a bad frame and not
// answered.
//
// Ephemeris blocks. The host sends an ephemeris file as it lies on disk, in
// blocks of 4096 bytes (the last one shorter), each written whole with no
// framing of its own, and after each it waits up to a second for the
// receiver's acknowledgement, a 'B' 'K' frame of class 3C:
//
//   42 4B 54 EB 3C 01 00 00   block taken
//   42 4B 63 DB 3C 00 00 00   block refused (refuse faults; the host takes
//                             this one as well, and the block is not kept)
//
// A block carries no length, so the receiver tells the blocks apart as
// follows. Binary data begins with the file's first byte, which is either
// the 'B' of a 'B' 'K' time frame ahead of the RTCM frames or the 0xD3 of
// the first RTCM frame: between units, 'B' or 0xD3 starts a run of raw
// bytes, '$' a sentence, and any other byte is passed over. A run is a block
// as soon as it holds 4096 bytes. A run the host stops sending before that
// (the line quiet for 100 ms) is the file's last, shorter block, except
// when it is exactly one 'B' 'K' frame, which is then a command (the binary
// aiding time). After a full block the next byte of any value begins the
// next block, since a block may start anywhere in the file, until a shorter
// block ends the transfer or the line has been quiet for 5 seconds: the host
// pauses at most about 2 seconds between blocks (a second of waiting for the
// acknowledgement, a second between blocks of a large file) and at least 10
// seconds before its next command after a large file. Every block taken
// goes whole into ephemeris_bytes and its size into tq_block_sizes, so a
// test compares the bytes with the file.
//
// Check values are computed here rather than taken from the tool's toolkit so
// that the receiver judges the tool's check values independently.

#include <cstdio>

#include "sim/model.h"
#include "sim/sentence.h"
#include "sim/sim.h"

namespace {

constexpr size_t kBlockSize = 4096;                // a full ephemeris block
constexpr int64_t kBlockEndQuietUs = 100000;       // the quiet that ends a shorter run
constexpr int64_t kTransferOverQuietUs = 5000000;  // the quiet after a full block that ends
                                                   // the transfer
constexpr uint8_t kRtcmStart = 0xD3;
constexpr uint8_t kTimeClass = 0x18, kTimeId = 0x03, kTimeAckClass = 0x19;
constexpr uint8_t kBlockAckClass = 0x3C;
constexpr size_t kHeader = 8;  // 'B' 'K', CRC, class, id, length

// What the unit last completed changes in the receiver, once it is taken.
enum class Take { None, Clear, Restart, Time, Block };

struct TqState {
    SimInput in;                 // the sentences
    std::vector<uint8_t> run;    // raw bytes under way: a block or a lone 'B' 'K' frame
    bool under_way = false;      // a full block came last: any byte begins the next
    bool unknown_reply = false;  // configure
    bool ack_bad_crc = false;    // configure
    Take take = Take::None;
    SimTqTime time;
};

// CRC-16/XMODEM, bit by bit.
uint16_t crc16_xmodem(const uint8_t *p, size_t n) {
    uint16_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc = uint16_t(crc ^ uint16_t(p[i]) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? uint16_t(crc << 1 ^ 0x1021) : uint16_t(crc << 1);
    }
    return crc;
}

// An empty 'B' 'K' frame of class and id.
std::string bk_frame(uint8_t cls, uint8_t id, bool bad_crc) {
    uint8_t f[kHeader] = {'B', 'K', 0, 0, cls, id, 0, 0};
    const uint16_t crc = crc16_xmodem(f + 4, 4);
    f[2] = uint8_t(crc >> 8);
    f[3] = uint8_t(crc & 0xFF);
    if (bad_crc) f[3] ^= 0xFF;
    return std::string(reinterpret_cast<const char *>(f), sizeof f);
}

uint32_t le32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool is_restart(const std::string &a) {
    return a == "PVNKHOT" || a == "PVNKWARM" || a == "PVNKCOLD";
}

bool is_command(const std::string &a) {
    return a == "PVNKCLRADAT" || a == "PVNKAIDPOS" || a == "PVNKAIDTIME" || is_restart(a);
}

void sentence(void *owner, SimUnit *u) {
    TqState *st = static_cast<TqState *>(owner);
    const std::vector<uint8_t> &s = st->in.buf;
    const std::string head = sim_sentence_head(s);
    const std::string address = head.substr(0, head.find(','));
    sim_unit_init(u, SimUnitKind::Sentence, s, true, sim_sentence_good(s));
    st->take = Take::None;
    if (!is_command(address)) {
        u->describe =
            (u->good ? "sentence not answered " : "sentence with bad checksum ") + sim_printable(s);
        return;
    }
    u->refusal = sim_sentence_of(address + ",ERROR");
    if (!u->good) {
        u->reply = u->refusal;
    } else {
        u->reply = sim_sentence_of(address + (st->unknown_reply ? ",BUSY" : ",OK"));
        if (address == "PVNKCLRADAT") st->take = Take::Clear;
        if (is_restart(address)) st->take = Take::Restart;
    }
    u->describe = (u->good ? "command " : "command with bad checksum ") + sim_printable(s);
}

// The payload length a run's 'B' 'K' header gives, or -1 when the run does
// not start with one.
long bk_length(const std::vector<uint8_t> &r) {
    if (r.size() < kHeader || r[0] != 'B' || r[1] != 'K' || (r[6] & 0xF0) != 0) return -1;
    return long((r[6] & 0x0F) << 8 | r[7]);
}

// A run that was exactly one 'B' 'K' frame.
void finish_bk_frame(TqState *st, SimUnit *u) {
    const std::vector<uint8_t> f = std::move(st->run);
    st->run.clear();
    const size_t len = f.size() - kHeader;
    const uint16_t stored = uint16_t(f[2] << 8 | f[3]);
    const uint16_t computed = crc16_xmodem(f.data() + 4, f.size() - 4);
    const uint8_t cls = f[4], id = f[5];
    sim_unit_init(u, SimUnitKind::Frame, f, true, stored == computed);
    char text[160];
    if (!u->good) {
        std::snprintf(text, sizeof text,
                      "'B' 'K' frame %02X %02X with a bad CRC (%04X, want %04X): not answered",
                      unsigned(cls), unsigned(id), unsigned(stored), unsigned(computed));
        u->describe = text;
        return;
    }
    if (cls != kTimeClass || id != kTimeId) {
        std::snprintf(text, sizeof text, "'B' 'K' frame %02X %02X (%zu-byte payload), not answered",
                      unsigned(cls), unsigned(id), len);
        u->describe = text;
        return;
    }
    u->refusal = bk_frame(kTimeAckClass, 0x00, st->ack_bad_crc);
    if (len != 12) {
        u->reply = u->refusal;
        std::snprintf(text, sizeof text, "'B' 'K' time frame with a %zu-byte payload: refused",
                      len);
        u->describe = text;
        return;
    }
    st->time.week = le32(f.data() + kHeader);
    st->time.tow = le32(f.data() + kHeader + 4);
    st->time.leap = int32_t(le32(f.data() + kHeader + 8));
    st->take = Take::Time;
    u->reply = bk_frame(kTimeAckClass, kTimeId, st->ack_bad_crc);
    std::snprintf(text, sizeof text, "'B' 'K' time frame: week %u, second %u, leap %d",
                  unsigned(st->time.week), unsigned(st->time.tow), int(st->time.leap));
    u->describe = text;
}

// A run that is an ephemeris block: full, or the last and shorter one.
void finish_block(TqState *st, SimUnit *u) {
    const bool full = st->run.size() == kBlockSize;
    sim_unit_init(u, SimUnitKind::Block, st->run, true, true);
    st->run.clear();
    u->transfer = true;
    u->reply = bk_frame(kBlockAckClass, 0x01, st->ack_bad_crc);
    u->refusal = bk_frame(kBlockAckClass, 0x00, st->ack_bad_crc);
    st->take = Take::Block;
    st->under_way = full;
    char text[80];
    std::snprintf(text, sizeof text, "ephemeris block, %zu bytes%s", u->bytes.size(),
                  full ? "" : " (shorter: the last)");
    u->describe = text;
}

SimFrameStep frame_byte(void *, uint8_t, SimUnit *) {
    // Never reached: feed moves a frame start into the run at once.
    return SimFrameStep::More;
}

const SimInputHooks kHooks = {sentence, frame_byte};

void *create() {
    TqState *st = new TqState();
    // Only so that 0xD3 cuts a sentence short and starts binary data.
    st->in.frame_start = kRtcmStart;
    return st;
}

void destroy(void *state) { delete static_cast<TqState *>(state); }

bool feed(void *state, uint8_t b, SimUnit *u) {
    TqState *st = static_cast<TqState *>(state);
    if (!st->run.empty()) {
        st->run.push_back(b);
        if (st->run.size() < kBlockSize) return false;
        finish_block(st, u);
        return true;
    }
    if (st->in.state == SimInputState::Idle && (st->under_way || b == 'B' || b == kRtcmStart)) {
        st->run.push_back(b);
        return false;
    }
    const bool done = sim_input_feed(&st->in, kHooks, st, b, u);
    if (st->in.state == SimInputState::Frame) {
        // 0xD3 cut a sentence short: binary data begins with it.
        st->run = std::move(st->in.buf);
        st->in.buf.clear();
        st->in.frame_total = 0;
        st->in.state = SimInputState::Idle;
    }
    // A damaged piece changes nothing in the receiver.
    if (done && !u->record) st->take = Take::None;
    return done;
}

SimQuiet quiet(void *state, int64_t quiet_us, SimUnit *u) {
    TqState *st = static_cast<TqState *>(state);
    if (st->run.empty()) {
        if (st->under_way && quiet_us >= kTransferOverQuietUs) st->under_way = false;
        return SimQuiet::Nothing;
    }
    if (quiet_us < kBlockEndQuietUs) return SimQuiet::Waiting;
    const long len = bk_length(st->run);
    if (!st->under_way && len >= 0 && st->run.size() == kHeader + size_t(len)) {
        finish_bk_frame(st, u);
    } else {
        finish_block(st, u);
    }
    return SimQuiet::Unit;
}

void commit(void *state, const SimUnit &u, bool refused, SimRecord *rec) {
    TqState *st = static_cast<TqState *>(state);
    const Take take = st->take;
    st->take = Take::None;
    if (refused) return;
    switch (take) {
        case Take::None: break;
        case Take::Clear: ++rec->tq_clears; break;
        case Take::Restart: ++rec->tq_restarts; break;
        case Take::Time: rec->tq_times.push_back(st->time); break;
        case Take::Block:
            rec->tq_block_sizes.push_back(uint32_t(u.bytes.size()));
            rec->ephemeris_bytes.insert(rec->ephemeris_bytes.end(), u.bytes.begin(), u.bytes.end());
            break;
    }
}

void configure(void *state, const SimFaults &f) {
    TqState *st = static_cast<TqState *>(state);
    st->unknown_reply = f.unknown_reply;
    st->ack_bad_crc = f.ack_bad_crc;
}

}  // namespace

const SimModel sim_model_tq934n = {"tq934n", create,    destroy, feed,
                                   commit,   configure, nullptr, quiet};
