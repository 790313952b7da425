// Receiver models of the virtual receiver (internal to sim/).
//
// A model turns the byte stream the tool sends into units (a sentence, a
// binary frame) and says what a healthy receiver of its platform answers to
// each. It knows nothing about the pseudo-terminal, the faults or the record:
// sim.cpp feeds it byte by byte, records the units it reports and writes the
// answers with the faults applied (a model with a memory, such as the EPO
// receivers, also hears through commit which units were taken and fills its
// own fields of the record). The sentences and the start of a frame are
// parsed the same way for every model (sim/sentence.h); a model brings its
// frames and its answers. A new platform adds one model_<name>.cpp beside
// model_dw2207b.cpp and one line in the table of sim_find_model.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct SimRecord;

enum class SimUnitKind {
    Sentence,  // a text command ("$...\r\n") or a damaged start of one
    Frame,     // a binary frame or record
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
    bool transfer = false;       // a record sentence of a data transfer: counts with the
                                 // binary frames for close_after_frames
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
};

extern const SimModel sim_model_dw2207b;
extern const SimModel sim_model_ag33xx;
extern const SimModel sim_model_rz610mxxxx;

// The model of a platform (case-insensitive), or null.
const SimModel *sim_find_model(const std::string &platform);
