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
// The byte stream is split into units here; what a sentence means and how it
// is answered is the platform's (an EpoSimDialect). The receiver's memory is
// kept here too: the records it holds per system (for the status query), the
// begin/end block it is in, and what it hands to the test record.
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

struct SimRecord;
struct EpoSimState;

enum {
    EPO_SIM_RECORD_SIZE = 72,
    EPO_SIM_SYSTEMS = 8,         // system numbers 0..7 are counted for the status query
    EPO_SIM_MAX_PAYLOAD = 512,   // a longer length field is a damaged header
    EPO_SIM_MAX_SENTENCE = 1024,
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

struct EpoSimDialect {
    const char *name;            // lower-case platform name, as given to --platform
    const char *record_address;  // address of the record sentence, without '$' ("PAIR471")
    // Answers a sentence whose checksum is right. body is the text between
    // '$' and '*'. Fills u->reply, u->refusal and u->describe, and *effect
    // when a healthy receiver takes the command. A malformed or unknown
    // command gets the refusal as its reply and no effect.
    void (*sentence)(const EpoSimState *st, const std::string &body, SimUnit *u, EpoEffect *effect);
    // The refusal of a command with this address (no '$'); empty when the
    // address is not one this receiver answers at all.
    std::string (*refusal_of)(const std::string &address);
    // System number of a begin/end letter; -1 for a letter it does not know.
    int (*letter_system)(char letter);
};

// --- helpers for the dialects ---------------------------------------------------
// "$<body>*HH\r\n", HH the XOR of the body's characters in upper-case hex.
std::string epo_sim_sentence(const std::string &body);
std::vector<std::string> epo_sim_split(const std::string &body, char sep);
// Decimal integer, optional '-' sign, nothing else.
bool epo_sim_int(const std::string &text, long *out);
// A number as strtod reads it, the whole field ("nan" and "inf" included).
bool epo_sim_number(const std::string &text);
// Hexadecimal (either case) of min_digits..max_digits digits.
bool epo_sim_hex32(const std::string &text, size_t min_digits, size_t max_digits, uint32_t *out);
// PRN of a record's SVID by the rule of the EPO type `key`: 0 S; 1 S-64;
// 2 S-100 (255 stays); 3 S-135 below 200, else S-200 (255 stays); other 0.
int32_t epo_sim_prn(int32_t key, uint8_t svid);
// Records held for a system since the last clear.
uint32_t epo_sim_stored(const EpoSimState *st, long system);
// The 13-byte acknowledgement of a frame id with a result (0 accept, 1 refuse).
std::string epo_sim_bin_ack(uint16_t id, uint16_t result);
// Rebuilds a record from 18 little-endian 32-bit words.
std::vector<uint8_t> epo_sim_record_of_words(const uint32_t *words);

// --- the model entry points, shared by both platforms -----------------------------
void *epo_sim_create(const EpoSimDialect *dialect);
void epo_sim_destroy(void *state);
bool epo_sim_feed(void *state, uint8_t byte, SimUnit *unit);
void epo_sim_commit(void *state, const SimUnit &unit, bool refused, SimRecord *rec);
