// Receiver models of the virtual receiver (internal to sim/).
//
// A model turns the byte stream the tool sends into units (a sentence, a
// binary frame, a download packet) and says what a healthy receiver of its
// platform answers to each. It knows nothing about the pseudo-terminal, the
// general faults or the record: sim.cpp feeds it byte by byte, records the
// units it reports and writes the answers with the faults applied (a model
// with a memory, such as the EPO receivers, also hears through commit which
// units were taken and fills its own fields of the record; a model with a
// protocol of its own, such as the HD receivers' file download, also gets
// the faults of that protocol through configure and may speak unasked
// through tick; a model that takes raw data without framing, such as the
// TQ934N's ephemeris blocks, learns through quiet that the sender has stopped
// and may end a unit there). The sentences and the start of a frame are
// parsed the same way for every model (sim/sentence.h); a model brings its
// frames and its answers. A new platform adds one model_<name>.cpp beside
// model_dw2207b.cpp and one line in the table of sim_find_model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct SimFaults;
struct SimRecord;

enum class SimUnitKind {
    Sentence,  // a text command ("$...\r\n") or a damaged start of one
    Frame,     // a binary frame or record
    Packet,    // a piece of a file download (a YMODEM packet, an EOT, a stray byte):
               // the model records it itself; never numbered, never refused
    Block,     // a raw piece of a data transfer with no framing of its own (a TQ934N
               // ephemeris block): the model records it itself; numbered and refused
               // like a frame when it is answered
};

// What a model makes of a quiet line (SimModel::quiet).
enum class SimQuiet {
    Nothing,  // it holds no unit that quiet could end
    Waiting,  // it holds one, and the line has not been quiet long enough yet
    Unit,     // the quiet ended the unit it held: *unit is filled
};

// One unit the model has finished.
struct SimUnit {
    SimUnitKind kind = SimUnitKind::Sentence;
    bool good = false;           // check value right, unit complete
    bool record = true;          // false: a damaged piece, only counted
    std::vector<uint8_t> bytes;  // the unit exactly as received
    std::string reply;           // a healthy receiver's answer (empty: none)
    std::string refusal;         // its answer when it refuses (empty: none)
    std::string describe;        // one line for the verbose log, no line end
    bool transfer = false;       // a unit of a data transfer (a record sentence, a download
                                 // packet): counts with the binary frames for close_after_frames
};

struct SimModel {
    const char *name;  // lower case platform name, as given to --platform
    void *(*create)();
    void (*destroy)(void *state);
    // Feeds one received byte. Returns true and fills *unit when the byte
    // completes a unit. Starting a unit never completes one, so one byte
    // completes at most one unit.
    bool (*feed)(void *state, uint8_t byte, SimUnit *unit);
    // Optional (null: the model keeps no memory of what it took). Called once
    // for every unit feed completed, before its answer goes out, with the
    // record locked: refused is true when the sim answers with the refusal
    // (refuse faults). A model that stores what it is sent (records, clears)
    // applies the unit here, only when it is not refused, and adds its own
    // fields to the record.
    void (*commit)(void *state, const SimUnit &unit, bool refused, SimRecord *rec) = nullptr;
    // Optional (null: the model has no faults of its own). Called once, right
    // after create, with the sim's faults; the model keeps what concerns its
    // own protocol.
    void (*configure)(void *state, const SimFaults &faults) = nullptr;
    // Optional (null: the receiver never speaks unasked). Called by the
    // receiver thread between reads, every poll slice (about 10 ms) and right
    // after the answers to each read went out, with the record locked and the
    // steady-clock time now_us. Appends to *out what the receiver sends of its
    // own accord at this time (e.g. the 'C' of a receiver waiting for a
    // download) and may count it in the record. The sim writes *out at once.
    // Not called while silent, after a hang-up or once sim_stop is waiting.
    void (*tick)(void *state, int64_t now_us, std::string *out, SimRecord *rec) = nullptr;
    // Optional (null: every unit ends on a byte of its own). Called by the
    // receiver thread on every poll slice that found no input waiting, with
    // quiet_us the time since the last bytes were read, and once more with a
    // very long quiet when sim_stop has drained the line. A model whose units
    // may end only when the sender stops (a raw block of unknown length)
    // finishes them here; the sim handles such a unit exactly like one feed
    // completed. While the model answers Waiting, sim_idle reports the line
    // busy. Not called after a hang-up.
    SimQuiet (*quiet)(void *state, int64_t quiet_us, SimUnit *unit) = nullptr;
};

extern const SimModel sim_model_dw2207b;
extern const SimModel sim_model_ag33xx;
extern const SimModel sim_model_rz610mxxxx;
extern const SimModel sim_model_hd8xxx;
extern const SimModel sim_model_mj7xxx;
extern const SimModel sim_model_sta8100;
extern const SimModel sim_model_tq934n;

// The model of a platform (case-insensitive), or null.
const SimModel *sim_find_model(const std::string &platform);
