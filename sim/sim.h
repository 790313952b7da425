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
// Units a healthy receiver does not answer (RTCM ephemeris frames, damaged
// sentences) get nothing under any fault; a unit the platform has no refusal
// for (an STA8100 RTCM aid command) gets nothing when it is refused.
// Before a binary answer (the EPO receivers' frame acknowledgements, the HD
// acknowledgements, the STA8100 RTCM acknowledgements, the TQ934N 'B' 'K'
// frames) the noise is instead "\x04$GNTXT,01,01,02,noise*2D\r\n" repeated
// and cut to length: receiver text with a stray 0x04 in front, the two bytes
// a binary matcher waits for first, but never the rest of an acknowledgement.
//
// Answered units are numbered from 0 in arrival order: every sentence that
// reached its line end and every complete binary frame or ephemeris block
// that the platform answers (with its reply or its refusal), good or bad
// check value alike. Damaged pieces, RTCM ephemeris frames and sentences of
// other talkers get no number.
// A unit is refused (answered with the refusal) when refuse is set, when its
// number is refuse_only or in refuse_units, or when its bytes start with
// refuse_prefix.
//
// Download answers (HD8XXX, MJ7XXX, YMODEM): what the receiver answers to a
// packet or an EOT (ACK, NAK or CAN, with a 'C' after the ACK of a header or
// an EOT) is an answer like the others for silent, stop_after, garbage_bytes,
// garbage_only, delay_ms, split_parts, pace_baud and repeat_ms, with the
// binary noise. It takes no number and is never refused: the ymodem_ faults
// shape it instead. Every complete packet, good or bad, counts for
// close_after_frames (EOTs and stray bytes do not). The 'C' calls the
// receiver makes unasked while it waits for the header are not answers:
// silent stops them, pace_baud paces them, nothing else acts on them; they
// are not activity for sim_settle/sim_idle and stop once sim_stop is waiting.
struct SimFaults {
    bool silent = false;         // never answer anything
    bool refuse = false;         // answer with the platform's refusal instead of its acceptance
    bool garbage_only = false;   // answer noise instead of the reply (never the expected text)
    uint32_t garbage_bytes = 0;  // this many noise bytes before each reply
    uint32_t split_parts = 1;    // write each reply in this many pieces...
    uint32_t split_gap_ms = 0;   // ...with this pause between them
    uint32_t delay_ms = 0;       // pause before each reply
    // 0: unpaced; else one byte per 10 bit times, both directions
    // (a faster writer is held back by the full line buffer)
    uint32_t pace_baud = 0;
    // answer only the first N commands (-1: no limit); refusals
    // and noise answers count as answered
    int32_t stop_after = -1;
    // hang up after N binary frames/records (-1: never; 0 is
    // refused by sim_start; download packets count too, see
    // "Download answers"). Frames with a bad CRC count too.
    // The master and the sim's slave descriptor are closed
    // right after frame N: the tool's next write fails, and
    // bytes that came after frame N are not recorded.
    int32_t close_after_frames = -1;
    // 0: off; else 16 noise bytes every chatter_ms, unasked, as a
    // module's periodic output (so that every read the tool
    // makes brings data). Best effort: dropped when the line is
    // full; paused while an answer is delayed or written; not
    // activity for sim_settle/sim_idle; silent does not stop it.
    uint32_t chatter_ms = 0;
    // 0: off; else after an answer the receiver writes the same
    // bytes (noise included) again every repeat_ms until the next
    // byte arrives from the tool. Repeats are counted in
    // SimRecord::repeats, are not activity for sim_settle/sim_idle
    // and stop once sim_stop is waiting.
    uint32_t repeat_ms = 0;
    int32_t refuse_only = -1;  // refuse only the answered unit with this number (-1: none)
    std::vector<uint32_t> refuse_units;  // refuse the answered units with these numbers
    // refuse every unit whose bytes start with this (e.g.
    // "$PAIR472", or "\x04\x24\xB1\x04" for EPO data frames)
    std::string refuse_prefix;

    // MJ7XXX: the status field of the "$GNRMC" it sends after a restart.
    // 'V' (no fix yet) is the healthy receiver; 'A' claims a valid fix
    // straight away. sim_start refuses any other value.
    char rmc_status = 'V';
    // HD8XXX and MJ7XXX file download (YMODEM). These shape the transfer's
    // own control bytes; see "Download answers" above for the general faults.
    // NAK the first attempt of every packet (header, data, end); the retry
    // of that packet gets the normal answer. A packet whose first attempt was
    // damaged (NAKed anyway) counts as attempted.
    bool ymodem_nak_first = false;
    // answer the first EOT of a file with NAK alone; the next EOT gets ACK 'C'
    bool ymodem_nak_eot = false;
    // answer CAN (0x18) instead of ACK to a packet: the receiver cancels the
    // reception there (the packet is not taken, no 'C' follows) and goes back
    // to frames and sentences
    bool ymodem_can = false;
    // never send 'C': neither the calls before the header nor the 'C'
    // after the header's and the EOT's ACK
    bool ymodem_no_c = false;
    // send this many bytes other than 'C' before each 'C' of the calls that
    // follow the start-download ACK: 'x', 0x00, 'x', 0x00, ... cut to length
    uint32_t ymodem_bytes_before_c = 0;

    // STA8100 and TQ934N text commands: answer each with a line that holds
    // the command's name but neither "OK" nor "ERROR" (sta8100
    // "$<NAME>BUSY*HH\r\n", tq934n "$<address>,BUSY*HH\r\n"), a reply the
    // tool can neither take nor reject: its reply check looks at that line
    // again and again. The refuse faults take precedence (a refused command
    // still gets its ERROR); binary answers are left alone.
    bool unknown_reply = false;
    // STA8100 and TQ934N binary answers (the RTCM acknowledgement frames, the
    // 'B' 'K' frames, refusals included): the last byte of their check value
    // goes out inverted. The tool matches these answers without that byte.
    bool ack_bad_crc = false;

    // The line itself, for the tool's robustness. These act on the bytes,
    // whatever the platform.
    // Hang up once this many bytes have come from the tool (0: never), as an
    // unplugged adapter does: the master and the sim's slave descriptor are
    // closed; the bytes up to the limit are recorded, later ones are not.
    uint32_t hang_up_after_bytes = 0;
    // Stop reading the line once this many bytes have come from the tool
    // (-1: never; 0: read nothing at all): the line's buffer fills and the
    // tool's writes stall. sim_stop reads the rest as it drains the line.
    int32_t stop_reading_after_bytes = -1;
    // 0: off; else the receiver talks at this rate while the tool listens at
    // the rate it set on the port: what the tool reads is what a UART at its
    // own rate makes of that line signal (sim_garble), as with a wrong baud
    // rate. The record is not affected.
    uint32_t garble_baud = 0;
};

struct SimConfig {
    std::string platform;   // "dw2207b", "ag33xx", "rz610mxxxx", "hd8xxx", "mj7xxx",
                            // "sta8100", "tq934n"
    std::string link_path;  // optional symlink to the slave device
    SimFaults faults;
    bool verbose = false;  // log what it receives and answers to stderr
    // Run the receiver thread at real-time priority where the system allows
    // it (as root; silently ignored elsewhere), so that its pacing holds on a
    // busy machine the way a UART's does: for tests that load the machine on
    // purpose and must still see replies sent at wire speed in one burst.
    bool realtime = false;
};

// A file the receiver stored in its flash through a download (YMODEM).
struct SimFlashFile {
    std::string name;            // as the header packet gave it
    uint32_t declared_size = 0;  // the size the header packet declared
    std::vector<uint8_t> data;   // the data packets' bytes, cut to declared_size (shorter when
                                 // fewer bytes came)
};

// An aid time an STA8100 took from an RTCM message-999 frame, field by field
// as the frame packs them (the year in 12 bits, the rest in 4 to 6 bits).
struct SimStaTime {
    int day = 0, month = 0, year = 0, hour = 0, minute = 0, second = 0;
    bool operator==(const SimStaTime &) const = default;
};

// An aid position an STA8100 took from an RTCM message-999 frame.
struct SimStaPosition {
    int32_t latitude = 0;   // whole arc-seconds, south negative
    int32_t longitude = 0;  // whole arc-seconds, west negative
    int32_t altitude = 0;   // whole metres: the 20-bit field, sign-extended
    bool operator==(const SimStaPosition &) const = default;
};

// A time a TQ934N took from a binary 'B' 'K' time frame (class 18, id 03):
// its three little-endian 32-bit payload words.
struct SimTqTime {
    uint32_t week = 0;  // GPS week
    uint32_t tow = 0;   // whole seconds of the week
    int32_t leap = 0;   // leap seconds
    bool operator==(const SimTqTime &) const = default;
};

// What the receiver got, in arrival order.
//
// DW2207B: a good command is answered "$OK*04\r\n", a refused one (refuse
// fault, or a bad checksum) "$ERROR*58\r\n". A sentence is good when it reads
// "$<body>*HH\r\n" with HH two upper-case hex digits; every sentence that
// reached its line feed is in `sentences`, bad ones are also counted in
// bad_checksums. A sentence cut short by '$', 0xD3 or a binary byte is only
// counted. RTCM 3 frames are never answered.
//
// AG33XX and RZ610MXXXX: see sim/model_ag33xx.cpp, sim/model_rz610mxxxx.cpp
// and sim/model_epo.h for the sentences, the binary EPO frames and their
// answers. A unit changes the receiver's memory (the epo_ fields) only when it
// is taken: a refused record is not kept, a refused clear clears nothing.
//
// HD8XXX and MJ7XXX: see sim/model_hd.h for the binary frames, the "$PVNK"
// sentences and the file download (YMODEM) with their answers.
//
// STA8100 and TQ934N: see sim/model_sta8100.cpp (the "$PSTM" sentences and
// the RTCM message-999 command frames) and sim/model_tq934n.cpp (the "$PVNK"
// sentences, the 'B' 'K' frames and the raw ephemeris blocks, with how a
// block's end is told).
struct SimRecord {
    std::vector<uint8_t> raw;                  // every byte received
    std::vector<std::string> sentences;        // each "$...\r\n" sentence, as received
    std::vector<std::vector<uint8_t>> frames;  // each binary frame with a valid check value
    uint32_t bad_checksums = 0;                // sentences with a wrong or missing checksum
    uint32_t bad_frames = 0;                   // binary frames with a wrong CRC / damaged
    uint32_t replies = 0;                      // replies written
    uint32_t refusals = 0;                     // of those, replies that were the refusal
                                               // (a refuse fault or the receiver's verdict)
    uint32_t repeats = 0;                      // replies written again (repeat_ms)

    // EPO receivers (ag33xx, rz610mxxxx).
    std::vector<std::vector<uint8_t>> epo_records;  // each record taken, as rebuilt from a record
                                                    // sentence or a data frame's payload (72 bytes;
                                                    // a file's short tail as it came), in arrival
                                                    // order; a clear does not erase it
    std::vector<std::string> epo_markers;      // each begin/end frame taken: "begin G", "end G"
    std::vector<uint32_t> epo_marker_records;  // per marker: records taken since the previous
                                               // marker (an "end" entry is its block's size)
    uint32_t epo_stored = 0;                   // records held now: taken since the last clear
    uint32_t epo_clears = 0;                   // clear commands taken
    uint32_t prn_errors = 0;                   // record sentences whose PRN field is not what
                                               // the platform's PRN rule makes of the SVID

    // HD receivers (hd8xxx, mj7xxx).
    std::vector<std::vector<uint8_t>> hd_gps_records;  // each GPS ephemeris record taken (65 bytes)
                                                       // from an accepted 0B 32 frame, in order
    std::vector<std::vector<uint8_t>> hd_bds_records;  // each BDS ephemeris record taken (92 bytes)
                                                       // from an accepted 0B 33 frame, in order
    std::vector<SimFlashFile> flash;  // each file a download completed, in completion order
    uint32_t ymodem_packets = 0;      // packets taken: headers, data, end packets (a repeat
                                      // of the previous packet is answered, not taken again)
    // An answer that silent, stop_after or garbage_only holds back still
    // counts in ymodem_naks and ymodem_c_sent; a call that silent stops
    // does not.
    uint32_t ymodem_naks = 0;     // NAKs the receiver answered (packets and EOTs)
    uint32_t ymodem_c_sent = 0;   // 'C' bytes the receiver sent: its calls before the
                                  // header and the 'C' after a header's or an EOT's ACK
    uint32_t ymodem_noise = 0;    // bytes in download mode that started no packet or EOT
    uint32_t ymodem_cancels = 0;  // downloads the host cancelled (two CAN bytes in a row)

    // STA8100 and TQ934N: every ephemeris byte taken, in arrival order, so
    // that a test compares it with the file the tool sent. sta8100: each
    // RTCM ephemeris frame whole and each "$PSTMEPHEM" line as received (its
    // line end included); tq934n: the bytes of each ephemeris block taken.
    std::vector<uint8_t> ephemeris_bytes;

    // STA8100 (sta8100).
    std::vector<SimStaTime> sta_times;          // each RTCM aid time taken (999, subtype 0)
    std::vector<SimStaPosition> sta_positions;  // each RTCM aid position taken (999, subtype 2)
    uint32_t sta_cold_starts = 0;  // cold starts taken: "$PSTMCOLD" sentences and RTCM start frames
    std::vector<std::string> sta_ephemeris_lines;            // each "$PSTMEPHEM" line with a good
                                                             // checksum, as received
    std::vector<std::vector<uint8_t>> sta_ephemeris_frames;  // each RTCM frame other than
                                                             // message 999 with a good CRC

    // TQ934N (tq934n).
    std::vector<uint32_t> tq_block_sizes;  // the size of each ephemeris block taken
    std::vector<SimTqTime> tq_times;       // each binary time frame taken
    uint32_t tq_clears = 0;                // "$PVNKCLRADAT" taken
    uint32_t tq_restarts = 0;              // "$PVNKHOT", "$PVNKWARM", "$PVNKCOLD" taken
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
// Steady-clock microseconds (std::chrono::steady_clock, CLOCK_MONOTONIC on
// Linux) at which the last byte of the latest answer was written; 0 before
// the first answer. For measuring how soon the reader sees a reply.
int64_t sim_last_answer_end_us(const Sim *sim);
// The same clock at which the latest bytes from the tool counted as received
// (with pacing: when their last byte would have crossed the wire).
int64_t sim_last_input_end_us(const Sim *sim);
// True once the receiver has hung up (close_after_frames, hang_up_after_bytes).
bool sim_hung_up(const Sim *sim);

// What a UART listening at heard_baud reads from bytes sent at sent_baud
// (8N1, LSB first, back to back, an idle line high before and after): it
// waits for a falling edge, samples each bit in the middle of its own bit
// time, and delivers a byte per start bit it saw (framing errors included).
std::vector<uint8_t> sim_garble(const std::vector<uint8_t> &sent, uint32_t sent_baud,
                                uint32_t heard_baud);
