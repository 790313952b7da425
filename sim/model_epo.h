// Shared parts of the two extended-orbit (EPO) receiver models, AG33XX and
// RZ610MXXXX.
//
// Both receivers take NMEA-style text commands and, for offline files, the
// same small binary framing:
//
//   04 24 | id u16 LE | len u16 LE | payload | XOR of id, len, payload | AA 44
//
// with id 1200 (begin, payload the system letter, 1 or 2 bytes with a zero
// second byte), 1201 (data, payload one 72-byte EPO record) and 1202 (end).
// Every complete frame is answered with the 13-byte acknowledgement
//
//   04 24 E8 03 04 00 <id lo> <id hi> <result lo> <result hi> <xor> AA 44
//
// (message 1000, length 4, payload = the acknowledged id and a 16-bit result,
// the XOR over bytes 2..9); result 0 accepts, result 1 refuses. A frame with a
// bad check value, a bad tail, an unknown id, an empty data payload or a
// begin/end payload that is not a known letter (optionally followed by a zero
// byte) is refused. A data payload of another length than 72 (the short tail
// of an odd-sized file) is taken and kept as it came.
//
// The byte stream is split into units by the shared parser (sim/sentence.h)
// with the frames followed here. A good sentence addressed to the receiver
// (one whose address has a refusal) goes to the platform (an EpoSimDialect),
// which says whether it takes it, what it answers and what it changes; the
// refusal, the log line and the sentences of other talkers are handled here.
// The receiver's memory is kept here too: the records it holds per system
// (for the status query), the begin/end block it is in, and what it hands to
// the test record.
//
// A unit's effect on that memory (store a record, open or close a block,
// clear) takes place only when the receiver accepts the unit: the sim decides
// last (a refuse fault turns an acceptance into a refusal) and tells the
// model through commit. So a refused record is not kept, and a refused clear
// keeps everything.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/model.h"
#include "sim/sentence.h"

struct SimRecord;
struct EpoSimState;

enum {
    EPO_SIM_RECORD_SIZE = 72,
    EPO_SIM_SYSTEMS = 8,        // system numbers 0..7 are counted for the status query
    EPO_SIM_MAX_PAYLOAD = 512,  // a longer length field is a damaged header
};

// What an accepted unit changes in the receiver.
enum class EpoEffectKind { None, Record, Begin, End, Clear };

struct EpoEffect {
    EpoEffectKind kind = EpoEffectKind::None;
    std::vector<uint8_t> record;  // Record: the bytes as rebuilt (72, or a data frame's short tail)
    int system = -1;              // Record from a sentence: its system number (-1: unknown)
    char letter = 0;              // Begin / End: the system letter
    bool prn_error = false;       // the sentence's PRN field disagrees with the record's SVID
};

// What a healthy receiver makes of a command it takes.
struct EpoAnswer {
    std::string reply;  // its answer
    EpoEffect effect;   // what taking it changes
    std::string note;   // added to the log line (e.g. a PRN that disagrees)
};

struct EpoSimDialect {
    const char *name;            // lower-case platform name, as given to --platform
    const char *record_address;  // address of the record sentence, without '$' ("PAIR471")
    // A sentence with a right checksum, addressed to this receiver: fields
    // are its body (the text between '$' and '*') split at the commas, the
    // address first. Returns true and fills *answer when a healthy receiver
    // takes the command; false when it is malformed or unknown (the receiver
    // answers the refusal and nothing changes).
    bool (*command)(const EpoSimState *st, const std::vector<std::string> &fields,
                    EpoAnswer *answer);
    // The refusal of a command with this address (no '$'); empty when the
    // address is not one this receiver answers at all.
    std::string (*refusal_of)(const std::string &address);
    // System number of a begin/end letter; -1 for a letter it does not know.
    int (*letter_system)(char letter);
};

// --- helpers for the dialects ---------------------------------------------------
// (sim_sentence_of of sim/sentence.h builds their sentences.)
// Decimal integer, optional '-' sign, nothing else.
bool epo_sim_int(const std::string &text, long *out);
// Every field from `from` on a number as strtod reads it, the whole field
// ("nan" and "inf" included).
bool epo_sim_numbers(const std::vector<std::string> &fields, size_t from);
// Hexadecimal (either case) of min_digits..max_digits digits.
bool epo_sim_hex32(const std::string &text, size_t min_digits, size_t max_digits, uint32_t *out);
// The status query "<address>,<sys>": answers "$<address>,<sys>,<count>*HH\r\n",
// count the records held for that system since the last clear. False when
// the fields are not one integer system number.
bool epo_sim_status(const EpoSimState *st, const std::vector<std::string> &fields,
                    EpoAnswer *answer);
// Takes the record of a record sentence whose 21 fields are
// "<address>,<mode>,<prn>,<w0>,..,<w17>", the words hexadecimal of
// word_digits to 8 digits each: the record is rebuilt from its 18
// little-endian 32-bit words and counted for `system` (-1: unknown). A `prn`
// that is not what the PRN rule of EPO type `prn_key` makes of the record's
// SVID S is a PRN error, and the record is still taken. The rule: type 0 S;
// 1 S-64; 2 S-100 (255 stays); 3 S-135 below 200, else S-200 (255 stays); any
// other 0. False, with nothing filled, when a word is not hexadecimal of that
// size.
bool epo_sim_take_record(const std::vector<std::string> &fields, size_t word_digits, int system,
                         int32_t prn_key, long prn, EpoAnswer *answer);

// --- the model entry points, shared by both platforms -----------------------------
void *epo_sim_create(const EpoSimDialect *dialect);
void epo_sim_destroy(void *state);
bool epo_sim_feed(void *state, uint8_t byte, SimUnit *unit);
void epo_sim_commit(void *state, const SimUnit &unit, bool refused, SimRecord *rec);
