// The byte parser every receiver model of the sim shares (internal to sim/).
//
// All the receivers take NMEA-style text commands the same way; what sets
// them apart is the binary framing they take beside the sentences (RTCM 3
// frames opened by 0xD3, EPO frames opened by 0x04) and what they answer. So
// the stream is split into units here, and a model supplies only its frame
// start byte and two hooks: one that judges and answers a sentence that
// reached its line end, one that follows the bytes of a frame.
//
// Parsing rules:
// - Between units, '$' starts a sentence and the frame start byte starts a
//   frame; anything else is passed over (it still lands in the raw record).
// - A line feed ends a sentence; the model's sentence hook makes the unit.
//   A sentence is good when it reads "$<body>*HH\r\n", HH two upper-case hex
//   digits equal to the XOR of the body's characters (sim_sentence_good).
// - A sentence cut short (by another '$', by the frame start byte, by any
//   other byte that is neither printable nor CR, or by running past 1024
//   bytes) is a damaged piece: a sentence unit that is not recorded, not
//   answered and counted as a bad checksum. A '$' or frame start byte that
//   cut it short starts the next unit.
// - Every byte of a frame goes to the model's frame hook, which says when the
//   frame is over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/model.h"

enum {
    SIM_MAX_SENTENCE = 1024,  // a sentence longer than this is damaged
};

enum class SimInputState { Idle, Sentence, Frame };

// Where the parser stands in the byte stream.
struct SimInput {
    uint8_t frame_start = 0;  // the byte that opens a binary frame of this receiver
    SimInputState state = SimInputState::Idle;
    std::vector<uint8_t> buf;  // the unit under way, from its first byte
    size_t frame_total = 0;    // the frame's full size once its header tells it (0 before);
                               // kept by the frame hook, reset with every new unit
};

// What the frame hook makes of a byte.
enum class SimFrameStep {
    More,        // the frame goes on
    Done,        // *u holds the finished unit; parsing starts afresh with the next byte
    DoneRescan,  // *u holds a damaged start; this byte is looked at again as the
                 // possible start of the next unit
};

struct SimInputHooks {
    // A sentence reached its line end: in.buf holds it from '$' through '\n'.
    // Fills the whole unit (sim_unit_init first).
    void (*sentence)(void *owner, SimUnit *u);
    // One byte of a frame, already appended to in.buf.
    SimFrameStep (*frame_byte)(void *owner, uint8_t byte, SimUnit *u);
};

// Feeds one received byte. Returns true and fills *u when the byte completes a
// unit; owner is handed to the hooks.
bool sim_input_feed(SimInput *in, const SimInputHooks &hooks, void *owner, uint8_t byte,
                    SimUnit *u);

// Starts filling a unit afresh: kind, bytes, record and good as given; no
// reply, no refusal, no description, no data transfer.
void sim_unit_init(SimUnit *u, SimUnitKind kind, const std::vector<uint8_t> &bytes, bool record,
                   bool good);

// True when s reads "$<body>*HH\r\n" with the right check value. Computed here
// rather than taken from the tool's toolkit so that the receiver judges the
// tool's trailers independently.
bool sim_sentence_good(const std::vector<uint8_t> &s);
// The text a receiver takes as the body of s, good or not: from after the '$'
// up to the '*', or up to the line end when there is no '*'.
std::string sim_sentence_head(const std::vector<uint8_t> &s);
// "$<body>*HH\r\n", HH the XOR of the body's characters in upper-case hex.
std::string sim_sentence_of(const std::string &body);
// The bytes for a log line: printable ones as they are, CR and LF left out,
// any other as \xHH.
std::string sim_printable(const std::vector<uint8_t> &bytes);
