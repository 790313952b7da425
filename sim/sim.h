// The virtual receiver: a pseudo-terminal whose master side plays a GNSS
// module of one platform. The tool opens the slave side like a real port.
//
// Used two ways: as a library by the tests (a thread on the master side, with
// everything it received recorded for assertions) and as the vkagnss-sim
// program for people who want to rehearse a run without hardware.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Faults a test or a rehearsal can switch on. All default to a healthy receiver.
//
// "Noise" is the printable text "#noise" repeated and cut to length
// ("#noise#noise#n..."): never a '$', CR or LF, so it can never complete an
// expected reply. Every answer's noise starts afresh at "#noise".
// An answer is built as: garbage_bytes of noise, then the reply (or, with
// garbage_only, as many noise bytes as the reply has); then it waits delay_ms
// and goes out in split_parts pieces split_gap_ms apart, paced if pace_baud.
// Precedence: silent over everything; stop_after next; refuse picks the
// refusal instead of the reply; garbage_only hides whichever was picked.
// Units a healthy receiver does not answer (RTCM frames, damaged sentences)
// get nothing under any fault.
struct SimFaults {
    bool silent = false;          // never answer anything
    bool refuse = false;          // answer with the platform's refusal instead of its acceptance
    bool garbage_only = false;    // answer noise instead of the reply (never the expected text)
    uint32_t garbage_bytes = 0;   // this many noise bytes before each reply
    uint32_t split_parts = 1;     // write each reply in this many pieces...
    uint32_t split_gap_ms = 0;    // ...with this pause between them
    uint32_t delay_ms = 0;        // pause before each reply
    uint32_t pace_baud = 0;       // 0: unpaced; else one byte per 10 bit times, both directions
                                  // (a faster writer is held back by the full line buffer)
    int32_t stop_after = -1;      // answer only the first N commands (-1: no limit); refusals
                                  // and noise answers count as answered
    int32_t close_after_frames = -1;  // hang up after N binary frames/records (-1: never; 0 is
                                      // refused by sim_start). Frames with a bad CRC count too.
                                      // The master and the sim's slave descriptor are closed
                                      // right after frame N: the tool's next write fails, and
                                      // bytes that came after frame N are not recorded.
    uint32_t chatter_ms = 0;      // 0: off; else 16 noise bytes every chatter_ms, unasked, as a
                                  // module's periodic output (so that every read the tool
                                  // makes brings data). Best effort: dropped when the line is
                                  // full; paused while an answer is delayed or written; not
                                  // activity for sim_settle/sim_idle; silent does not stop it.
};

struct SimConfig {
    std::string platform;        // "dw2207b" (more platforms add their models)
    std::string link_path;       // optional symlink to the slave device
    SimFaults faults;
    bool verbose = false;        // log what it receives and answers to stderr
};

// What the receiver got, in arrival order.
//
// DW2207B: a good command is answered "$OK*04\r\n", a refused one (refuse
// fault, or a bad checksum) "$ERROR*58\r\n". A sentence is good when it reads
// "$<body>*HH\r\n" with HH two upper-case hex digits; every sentence that
// reached its line feed is in `sentences`, bad ones are also counted in
// bad_checksums. A sentence cut short by '$', 0xD3 or a binary byte is only
// counted. RTCM 3 frames are never answered.
struct SimRecord {
    std::vector<uint8_t> raw;                    // every byte received
    std::vector<std::string> sentences;          // each "$...\r\n" sentence, as received
    std::vector<std::vector<uint8_t>> frames;    // each binary frame with a valid check value
    uint32_t bad_checksums = 0;                  // sentences with a wrong or missing checksum
    uint32_t bad_frames = 0;                     // binary frames with a wrong CRC / damaged
    uint32_t replies = 0;                        // replies written
};

struct Sim;

// Creates the pseudo-terminal (raw mode), places the optional symlink and
// starts the receiver thread. Returns null (and sets *error) on failure.
Sim *sim_start(const SimConfig &cfg, std::string *error = nullptr);
// Path of the slave device (e.g. /dev/pts/7).
std::string sim_slave_path(const Sim *sim);
// Processes everything still pending on the line (reads until it has been
// quiet for about 100 ms), stops the thread, closes the pseudo-terminal and
// removes the symlink. The record stays readable until sim_free. Safe on null
// and when called twice.
void sim_stop(Sim *sim);
// Stops the sim if still running and releases it. Safe on null.
void sim_free(Sim *sim);
// Snapshot of what was received so far (thread-safe; also after sim_stop).
SimRecord sim_record(const Sim *sim);
// Waits until the receiver has been quiet for quiet_ms (no byte in or out),
// at most max_ms; for tests that inspect the record while the tool still runs.
void sim_settle(Sim *sim, uint32_t quiet_ms, uint32_t max_ms);
// True when the line has been quiet for quiet_ms: no byte read or written, no
// input waiting, no reply being prepared (delay) or written.
bool sim_idle(const Sim *sim, uint32_t quiet_ms);
// Bytes received so far (the size of the raw record, without copying it).
uint64_t sim_bytes_received(const Sim *sim);
// True once the receiver has hung up (close_after_frames).
bool sim_hung_up(const Sim *sim);
