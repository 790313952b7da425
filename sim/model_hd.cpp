// Shared parts of the HD receiver models: the binary frames and the "$PVNK"
// sentences (split by sim/sentence.h, the frame start byte being 0xF1), the
// download mode, and the receiver's memory. See sim/model_hd.h for what the
// receivers take and answer.
//
// What a frame or sentence changes (records kept, the start of a download)
// takes place only when the receiver accepts the unit: the sim decides last
// (a refuse fault turns an acknowledgement into a refusal) and says so
// through commit. Download packets are never refused; the download moves on
// as the packet is fed, and commit only hands the record what it brought.
//
// Check values are computed here rather than taken from the tool's toolkit so
// that the receiver judges the tool's check values independently.

#include "sim/model_hd.h"

#include <cstdio>

#include "sim/sentence.h"
#include "sim/sim.h"

namespace {

enum : uint8_t {
    kSync1 = 0xF1,
    kSync2 = 0xD9,
    kSoh = 0x01,
    kStx = 0x02,
    kEot = 0x04,
    kAck = 0x06,
    kNak = 0x15,
    kCan = 0x18,
    kCall = 'C',
};

constexpr size_t kMaxPayload = 2048;                // a longer length field is a damaged header
constexpr size_t kGpsRecord = 65, kBdsRecord = 92;  // ephemeris record sizes
constexpr int64_t kFirstCallUs = 100000;            // first 'C' after the start acknowledgement
constexpr int64_t kCallEveryUs = 1000000;           // then one a second until a packet begins
constexpr char kBeforeCall[] = {'x', '\0'};         // the bytes of ymodem_bytes_before_c, repeated

// Where the download stands.
enum class Phase {
    Off,     // no download: frames and sentences
    Header,  // waiting for the header packet
    Data,    // file under way: data packets or the EOT
    End,     // EOT taken: waiting for the end packet (or the next file's header)
};

// What the unit last completed brings, until its commit.
struct HdPending {
    std::vector<std::vector<uint8_t>> gps, bds;  // ephemeris records of an accepted block
    bool start_download = false;                 // an accepted 02 41 frame
    uint32_t packets = 0;                        // download: packets taken
    uint32_t naks = 0;                           // download: NAKs answered
    uint32_t calls = 0;                          // download: 'C' answered
    uint32_t noise = 0;                          // download: stray bytes
    uint32_t cancels = 0;                        // download: cancelled by the host
    std::vector<SimFlashFile> files;             // download: files completed
};

}  // namespace

struct HdSimState {
    const HdSimDialect *dialect = nullptr;
    SimInput in;
    HdPending pending;

    // Faults of its own protocol (configure).
    char rmc_status = 'V';
    bool nak_first = false;
    bool nak_eot = false;
    bool can_for_ack = false;
    bool no_call = false;
    uint32_t bytes_before_call = 0;

    // The download.
    Phase phase = Phase::Off;
    std::vector<uint8_t> packet;  // the packet under way, from its SOH or STX
    size_t packet_size = 0;       // its full size
    bool calling = false;         // 'C' calls go out until a packet begins
    int64_t next_call_us = 0;     // when the next call is due; 0: not scheduled yet
    bool after_can = false;       // the previous byte between packets was a CAN
    uint8_t expected = 0;         // number of the next data packet
    bool has_previous = false;    // a packet was taken in this file...
    uint8_t previous = 0;         // ...with this number...
    std::string previous_answer;  // ...and this answer
    bool attempted = false;       // the packet now expected was NAKed once already
    bool eot_naked = false;       // the first EOT of this file was NAKed (nak_eot)
    SimFlashFile file;            // the file under way
};

namespace {

// 8-bit Fletcher sums over n bytes: A | B << 8.
uint16_t fletcher(const uint8_t *p, size_t n) {
    uint8_t a = 0, b = 0;
    for (size_t i = 0; i < n; ++i) {
        a = uint8_t(a + p[i]);
        b = uint8_t(b + a);
    }
    return uint16_t(a | b << 8);
}

// CRC-16/XMODEM (polynomial 0x1021, initial value 0), bit by bit.
uint16_t crc16_xmodem(const uint8_t *p, size_t n) {
    uint16_t crc = 0;
    for (size_t i = 0; i < n; ++i) {
        crc = uint16_t(crc ^ uint16_t(p[i]) << 8);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) ? uint16_t(crc << 1 ^ 0x1021) : uint16_t(crc << 1);
    }
    return crc;
}

// The receiver's answer frame: 05 01 acknowledges class/id, 05 00 refuses it.
std::string ack_frame(uint8_t id_of_answer, uint8_t cls, uint8_t id) {
    uint8_t f[10] = {kSync1, kSync2, 0x05, id_of_answer, 0x02, 0x00, cls, id, 0, 0};
    uint16_t ck = fletcher(f + 2, 6);
    f[8] = uint8_t(ck & 0xFF);
    f[9] = uint8_t(ck >> 8);
    return std::string(reinterpret_cast<const char *>(f), sizeof f);
}

std::string address_of(const std::string &body) { return body.substr(0, body.find(',')); }

bool is_aiding(const std::string &address) {
    return address == "PVNKAIDPOS" || address == "PVNKAIDTIME" || address == "PVNKAIDINI";
}

bool is_restart(const std::string &address) {
    return address == "PVNKCOLD" || address == "PVNKWARM" || address == "PVNKHOT";
}

void sentence(void *owner, SimUnit *u) {
    HdSimState *st = static_cast<HdSimState *>(owner);
    const std::vector<uint8_t> &s = st->in.buf;
    const std::string head = sim_sentence_head(s);
    const std::string address = address_of(head);
    sim_unit_init(u, SimUnitKind::Sentence, s, true, sim_sentence_good(s));
    st->pending = HdPending();
    if (is_aiding(address)) {
        u->refusal = sim_sentence_of(address + ",ERROR,3");
        u->reply = u->good ? sim_sentence_of(address + ",OK") : u->refusal;
    } else if (u->good && head == address && is_restart(address) && st->dialect->restart_output) {
        // No acknowledgement: the receiver restarts and its first position
        // output (no fix yet) is the sign that it did.
        u->reply =
            sim_sentence_of("GNRMC,000001.00," + std::string(1, st->rmc_status) + ",,,,,,,,,,N");
    }
    const char *what = !u->good              ? "sentence with bad checksum "
                       : is_aiding(address)  ? "aiding sentence "
                       : is_restart(address) ? "restart sentence "
                                             : "sentence not answered ";
    u->describe = what + sim_printable(s);
}

// A 0xF1 that did not start a frame after all.
void stray_frame_start(const std::vector<uint8_t> &bytes, SimUnit *u, const char *why) {
    sim_unit_init(u, SimUnitKind::Frame, bytes, false, false);
    u->describe = std::string("damaged HD frame start (") + why + ") " + sim_printable(bytes);
}

// Splits an ephemeris block into its records; false when the payload is not
// a whole number of them.
bool split_records(const uint8_t *p, size_t len, size_t size,
                   std::vector<std::vector<uint8_t>> *out) {
    if (len == 0 || len % size != 0) return false;
    for (size_t at = 0; at < len; at += size) out->emplace_back(p + at, p + at + size);
    return true;
}

// The restart frame, complete after its ckA.
void finish_restart(HdSimState *st, SimUnit *u) {
    const std::vector<uint8_t> &f = st->in.buf;
    const size_t len = size_t(f[4] | f[5] << 8);
    const uint8_t a = uint8_t(fletcher(f.data() + 2, 4 + len) & 0xFF);
    sim_unit_init(u, SimUnitKind::Frame, f, true, a == f[6 + len]);
    st->pending = HdPending();
    char text[160];
    if (u->good) {
        const unsigned kind = len >= 1 ? f[6] : 0;
        const char *name = kind == 1 ? "cold" : kind == 2 ? "warm" : kind == 3 ? "hot" : "unknown";
        std::snprintf(text, sizeof text,
                      "HD restart frame 06 40 (%s, %zu-byte payload), last check byte missing "
                      "as the host sends it: not answered",
                      name, len);
    } else {
        std::snprintf(text, sizeof text, "HD restart frame 06 40 with a bad ckA (%02X, want %02X)",
                      unsigned(f[6 + len]), unsigned(a));
    }
    u->describe = text;
}

void finish_frame(HdSimState *st, SimUnit *u) {
    const std::vector<uint8_t> &f = st->in.buf;
    const uint8_t cls = f[2], id = f[3];
    const size_t len = size_t(f[4] | f[5] << 8);
    const uint16_t ck = fletcher(f.data() + 2, 4 + len);
    const bool good = f[6 + len] == (ck & 0xFF) && f[7 + len] == (ck >> 8);
    sim_unit_init(u, SimUnitKind::Frame, f, true, good);
    st->pending = HdPending();

    char text[160];
    if (!good) {
        std::snprintf(text, sizeof text,
                      "HD frame %02X %02X (%zu-byte payload) with a bad check value (%02X %02X, "
                      "want %02X %02X): not answered",
                      unsigned(cls), unsigned(id), len, unsigned(f[6 + len]), unsigned(f[7 + len]),
                      unsigned(ck & 0xFF), unsigned(ck >> 8));
        u->describe = text;
        return;
    }

    const uint8_t *payload = f.data() + 6;
    const unsigned key = unsigned(cls) << 8 | id;
    bool ok = true;
    std::string what;
    switch (key) {
        case 0x0609:
            ok = len == 8;
            what = "clear";
            break;
        case 0x0B10:
            ok = len == 17;
            what = "aiding position";
            break;
        case 0x0B11:
            ok = len == 20;
            what = "aiding time";
            break;
        case 0x0B32:
            ok = split_records(payload, len, kGpsRecord, &st->pending.gps);
            what = "GPS ephemeris, " + std::to_string(st->pending.gps.size()) + " records";
            break;
        case 0x0B33:
            ok = split_records(payload, len, kBdsRecord, &st->pending.bds);
            what = "BDS ephemeris, " + std::to_string(st->pending.bds.size()) + " records";
            break;
        case 0x0241:
            ok = len == 0;
            st->pending.start_download = ok;
            what = "start download";
            break;
        default: what = "frame"; break;
    }
    if (!ok) st->pending = HdPending();
    u->reply = ack_frame(ok ? 0x01 : 0x00, cls, id);
    u->refusal = ack_frame(0x00, cls, id);
    std::snprintf(text, sizeof text, "HD %s %02X %02X (%zu-byte payload)%s", what.c_str(),
                  unsigned(cls), unsigned(id), len, ok ? "" : ": wrong size, refused");
    u->describe = text;
}

SimFrameStep frame_byte(void *owner, uint8_t b, SimUnit *u) {
    HdSimState *st = static_cast<HdSimState *>(owner);
    SimInput &in = st->in;
    if (in.buf.size() == 2 && b != kSync2) {
        stray_frame_start(std::vector<uint8_t>(in.buf.begin(), in.buf.end() - 1), u,
                          "no 0xD9 after 0xF1");
        return SimFrameStep::DoneRescan;
    }
    if (in.buf.size() == 6) {
        const size_t len = size_t(in.buf[4] | in.buf[5] << 8);
        if (len > kMaxPayload) {
            // No frame of this receiver is that long: the header is dropped
            // whole and parsing starts afresh after it.
            stray_frame_start(in.buf, u, "length beyond 2048");
            return SimFrameStep::Done;
        }
        const bool restart = in.buf[2] == 0x06 && in.buf[3] == 0x40;
        in.frame_total = 6 + len + (restart ? 1 : 2);
    }
    if (in.frame_total > 0 && in.buf.size() == in.frame_total) {
        if (in.buf[2] == 0x06 && in.buf[3] == 0x40) {
            finish_restart(st, u);
        } else {
            finish_frame(st, u);
        }
        return SimFrameStep::Done;
    }
    return SimFrameStep::More;
}

const SimInputHooks kHooks = {sentence, frame_byte};

// --- download mode ----------------------------------------------------------------

void download_unit(HdSimState *st, SimUnit *u, const std::vector<uint8_t> &bytes,
                   const std::string &describe) {
    sim_unit_init(u, SimUnitKind::Packet, bytes, true, true);
    st->pending = HdPending();
    u->describe = describe;
}

void leave_download(HdSimState *st) {
    st->phase = Phase::Off;
    st->calling = false;
    st->packet.clear();
    st->file = SimFlashFile();
    st->has_previous = false;
}

// The file a header's data area announces; false when it has no size.
bool parse_header(const uint8_t *data, size_t n, SimFlashFile *file) {
    size_t name_end = 0;
    while (name_end < n && data[name_end] != 0) ++name_end;
    size_t at = name_end + 1;
    uint64_t size = 0;
    size_t digits = 0;
    for (; at < n && data[at] >= '0' && data[at] <= '9' && digits < 10; ++at, ++digits)
        size = size * 10 + uint64_t(data[at] - '0');
    // The size ends at a NUL or at a space before the optional fields.
    if (digits == 0 || size > 0xFFFFFFFFull || at >= n || (data[at] != 0 && data[at] != ' '))
        return false;
    file->name.assign(reinterpret_cast<const char *>(data), name_end);
    file->declared_size = uint32_t(size);
    return true;
}

// The finished file goes into the flash, cut to its declared size.
void store_file(HdSimState *st) {
    if (st->file.data.size() > st->file.declared_size) st->file.data.resize(st->file.declared_size);
    st->pending.files.push_back(std::move(st->file));
    st->file = SimFlashFile();
}

// The answers, with the faults of the download applied. Returns the answer
// and counts it.
std::string answer_nak(HdSimState *st) {
    st->attempted = true;
    ++st->pending.naks;
    return std::string(1, char(kNak));
}

std::string answer_ack(HdSimState *st, bool call) {
    std::string out(1, char(kAck));
    if (call && !st->no_call) {
        out += char(kCall);
        ++st->pending.calls;
    }
    return out;
}

// A packet the receiver would take now: the nak_first and can faults may
// stand in the way. Returns true when it is taken, with *answer its answer.
bool may_take(HdSimState *st, std::string *answer) {
    if (st->nak_first && !st->attempted) {
        *answer = answer_nak(st);
        return false;
    }
    if (st->can_for_ack) {
        *answer = std::string(1, char(kCan));
        leave_download(st);
        return false;
    }
    return true;
}

// Records a taken packet and its answer (a repeat of it gets the same again).
void taken(HdSimState *st, uint8_t number, const std::string &answer) {
    ++st->pending.packets;
    st->attempted = false;
    st->has_previous = true;
    st->previous = number;
    st->previous_answer = answer;
}

bool all_zero(const uint8_t *p, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (p[i] != 0) return false;
    return true;
}

// Packet 0 with a name: the header of a file (in the End phase, of the next
// file of a batch). Returns the answer; *note says what became of it.
std::string take_header(HdSimState *st, const uint8_t *data, size_t n, std::string *note) {
    SimFlashFile next;
    if (!parse_header(data, n, &next)) {
        *note = "header without a decimal size";
        return answer_nak(st);
    }
    std::string answer;
    if (!may_take(st, &answer)) {
        *note = "header of " + next.name + " not taken (faults)";
        return answer;
    }
    if (st->phase == Phase::End) store_file(st);
    *note = "header " + next.name + ", " + std::to_string(next.declared_size) + " bytes";
    st->file = std::move(next);
    st->phase = Phase::Data;
    st->expected = 1;
    st->eot_naked = false;
    answer = answer_ack(st, true);
    taken(st, 0, answer);
    return answer;
}

void finish_packet(HdSimState *st, SimUnit *u) {
    const std::vector<uint8_t> p = std::move(st->packet);
    st->packet.clear();
    const size_t n = p.size() - 5;
    const uint8_t number = p[1];
    const uint8_t *data = p.data() + 3;
    const uint16_t crc = uint16_t(p[3 + n] << 8 | p[4 + n]);
    const char *kind = p[0] == kSoh ? "SOH" : "STX";
    download_unit(st, u, p, "");
    u->transfer = true;

    std::string answer, note;
    if (uint8_t(~p[2]) != number) {
        answer = answer_nak(st);
        note = "bad complement";
    } else if (crc16_xmodem(data, n) != crc) {
        answer = answer_nak(st);
        note = "bad CRC";
    } else if (st->has_previous && number == st->previous && st->phase != Phase::End) {
        answer = st->previous_answer;
        if (answer.find(char(kCall)) != std::string::npos) ++st->pending.calls;
        note = "repeat of the packet taken last";
    } else if (st->phase == Phase::Header) {
        if (number != 0) {
            answer = answer_nak(st);
            note = "out of sequence, a header was expected";
        } else if (data[0] == 0) {
            if (may_take(st, &answer)) {
                answer = answer_ack(st, false);
                ++st->pending.packets;
                leave_download(st);
                note = "null header: no file, download over";
            } else {
                note = "null header not taken (faults)";
            }
        } else {
            answer = take_header(st, data, n, &note);
        }
    } else if (st->phase == Phase::Data) {
        if (number != st->expected) {
            answer = answer_nak(st);
            note = "out of sequence, expected " + std::to_string(st->expected);
        } else if (may_take(st, &answer)) {
            st->file.data.insert(st->file.data.end(), data, data + n);
            answer = answer_ack(st, false);
            taken(st, number, answer);
            ++st->expected;
            note = "data, " + std::to_string(st->file.data.size()) + " bytes so far";
        } else {
            note = "data not taken (faults)";
        }
    } else {  // Phase::End
        if (number != 0) {
            answer = answer_nak(st);
            note = "out of sequence, the end packet was expected";
        } else if (all_zero(data, n)) {
            if (may_take(st, &answer)) {
                const std::string name = st->file.name;
                store_file(st);
                answer = answer_ack(st, false);
                ++st->pending.packets;
                leave_download(st);
                note = "end packet: " + name + " stored, download over";
            } else {
                note = "end packet not taken (faults)";
            }
        } else {
            answer = take_header(st, data, n, &note);
        }
    }
    u->reply = answer;
    char text[64];
    std::snprintf(text, sizeof text, "download %s packet %u (%zu data bytes): ", kind,
                  unsigned(number), n);
    u->describe = text + note;
}

std::string eot_answer(HdSimState *st, std::string *note) {
    if (st->phase == Phase::Header) {
        *note = "EOT before any header";
        return answer_nak(st);
    }
    if (st->phase == Phase::Data && st->nak_eot && !st->eot_naked) {
        st->eot_naked = true;
        *note = "EOT, first of this file: NAK (fault)";
        ++st->pending.naks;
        return std::string(1, char(kNak));
    }
    *note = st->phase == Phase::End ? "EOT again" : "EOT: the end packet is expected";
    st->phase = Phase::End;
    st->has_previous = false;
    st->attempted = false;
    return answer_ack(st, true);
}

// One byte in download mode.
bool download_feed(HdSimState *st, uint8_t b, SimUnit *u) {
    if (!st->packet.empty()) {
        st->packet.push_back(b);
        if (st->packet.size() < st->packet_size) return false;
        finish_packet(st, u);
        return true;
    }
    if (b == kSoh || b == kStx) {
        st->packet.push_back(b);
        st->packet_size = b == kSoh ? 133 : 1029;
        st->calling = false;  // the host has begun: no more calls
        st->after_can = false;
        return false;
    }
    const bool second_can = b == kCan && st->after_can;
    st->after_can = b == kCan && !second_can;
    if (second_can) {
        download_unit(st, u, std::vector<uint8_t>(1, b),
                      "download cancelled by the host (CAN CAN)");
        ++st->pending.cancels;
        leave_download(st);
        return true;
    }
    if (b == kEot) {
        download_unit(st, u, std::vector<uint8_t>(1, b), "");
        std::string note;
        u->reply = eot_answer(st, &note);
        u->describe = "download " + note;
        return true;
    }
    char text[64];
    std::snprintf(text, sizeof text, "download: stray byte 0x%02X ignored", b);
    download_unit(st, u, std::vector<uint8_t>(1, b), text);
    u->record = false;
    ++st->pending.noise;
    return true;
}

void start_download(HdSimState *st) {
    leave_download(st);
    st->phase = Phase::Header;
    st->calling = !st->no_call;
    st->next_call_us = 0;  // scheduled at the first tick, once the acknowledgement is out
    st->after_can = false;
    st->attempted = false;
    st->eot_naked = false;
}

}  // namespace

void *hd_sim_create(const HdSimDialect *dialect) {
    HdSimState *st = new HdSimState();
    st->dialect = dialect;
    st->in.frame_start = kSync1;
    return st;
}

void hd_sim_destroy(void *state) { delete static_cast<HdSimState *>(state); }

bool hd_sim_feed(void *state, uint8_t b, SimUnit *u) {
    HdSimState *st = static_cast<HdSimState *>(state);
    if (st->phase != Phase::Off) return download_feed(st, b, u);
    const bool done = sim_input_feed(&st->in, kHooks, st, b, u);
    // A damaged piece changes nothing in the receiver.
    if (done && !u->record) st->pending = HdPending();
    return done;
}

void hd_sim_commit(void *state, const SimUnit &, bool refused, SimRecord *rec) {
    HdSimState *st = static_cast<HdSimState *>(state);
    HdPending e = std::move(st->pending);
    st->pending = HdPending();
    if (refused) return;
    for (std::vector<uint8_t> &r : e.gps) rec->hd_gps_records.push_back(std::move(r));
    for (std::vector<uint8_t> &r : e.bds) rec->hd_bds_records.push_back(std::move(r));
    for (SimFlashFile &f : e.files) rec->flash.push_back(std::move(f));
    rec->ymodem_packets += e.packets;
    rec->ymodem_naks += e.naks;
    rec->ymodem_c_sent += e.calls;
    rec->ymodem_noise += e.noise;
    rec->ymodem_cancels += e.cancels;
    if (e.start_download) start_download(st);
}

void hd_sim_configure(void *state, const SimFaults &f) {
    HdSimState *st = static_cast<HdSimState *>(state);
    st->rmc_status = f.rmc_status;
    st->nak_first = f.ymodem_nak_first;
    st->nak_eot = f.ymodem_nak_eot;
    st->can_for_ack = f.ymodem_can;
    st->no_call = f.ymodem_no_c;
    st->bytes_before_call = f.ymodem_bytes_before_c;
}

void hd_sim_tick(void *state, int64_t now_us, std::string *out, SimRecord *rec) {
    HdSimState *st = static_cast<HdSimState *>(state);
    if (st->phase != Phase::Header || !st->calling) return;
    if (st->next_call_us == 0) {
        st->next_call_us = now_us + kFirstCallUs;
        return;
    }
    if (now_us < st->next_call_us) return;
    for (uint32_t i = 0; i < st->bytes_before_call; ++i)
        *out += kBeforeCall[i % sizeof kBeforeCall];
    *out += char(kCall);
    ++rec->ymodem_c_sent;
    st->next_call_us = now_us + kCallEveryUs;
}
