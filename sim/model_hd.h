// Shared parts of the two HD receiver models, HD8XXX and MJ7XXX.
//
// Both receivers take the same small binary framing, the same "$PVNK" aiding
// sentences and, for firmware-side files, the same YMODEM download; they
// differ in what follows a restart sentence (an HD8XXX says nothing, an
// MJ7XXX starts its position output with a "$GNRMC").
//
// Binary frames (fields little-endian):
//
//   F1 D9 | class | id | len u16 | payload | ckA ckB
//
// ckA/ckB the 8-bit Fletcher sums over class .. the last payload byte
// (A += byte, B += A, both modulo 256). A good frame is answered with the
// acknowledgement F1 D9 05 01 02 00 <class> <id> ckA ckB; a refused one with
// the same bytes under id 00 (F1 D9 05 00 ...). What the receiver takes:
//
//   06 40  restart, 1-byte payload (1 cold, 2 warm, 3 hot). The host sends it
//          without its last check byte, and the receiver lives with that: the
//          frame is complete after ckA (8 bytes for the usual payload), is
//          recorded as it came and is never answered. A ckB that does come
//          after it is a stray byte, passed over.
//   06 09  clear: 8-byte payload (clear mask, then what to clear: 00000800
//          the ephemeris, FFFFFFFF everything)
//   0B 10  aiding position, 17-byte payload
//   0B 11  aiding time, 20-byte payload
//   0B 32  GPS ephemeris block: one or more 65-byte records
//   0B 33  BDS ephemeris block: one or more 92-byte records
//   02 41  start a download, no payload: after its acknowledgement the
//          receiver is in download mode (below)
//   any other class and id with a good check value: acknowledged, nothing
//   more. One of the listed frames with a payload of another size is refused.
//
// A frame whose check value is wrong is counted as a bad frame and not
// answered (the receiver cannot trust its class and id). 0xF1 not followed
// by 0xD9, or a header whose length is beyond 2048, was no frame: counted as
// a bad frame, not answered; after a missing 0xD9 that byte is looked at
// again, a header with an impossible length is dropped whole.
//
// Sentences ("$<body>*HH\r\n", see sim/sentence.h):
//
//   $PVNKAIDPOS,..   aiding position  -> "$PVNKAIDPOS,OK*HH\r\n"
//   $PVNKAIDTIME,..  aiding time      -> "$PVNKAIDTIME,OK*HH\r\n"
//   $PVNKAIDINI,..   aiding start-up  -> "$PVNKAIDINI,OK*HH\r\n"
//   The fields are not judged. A bad checksum or the refuse faults get
//   "$<address>,ERROR,3*HH\r\n" instead.
//   $PVNKCOLD, $PVNKWARM, $PVNKHOT   restart: HD8XXX does not answer; MJ7XXX
//   answers with its first position output after the restart,
//   "$GNRMC,000001.00,V,,,,,,,,,,N*HH\r\n" (status V: no fix yet; the
//   rmc_status fault makes it 'A'). A refused or damaged restart gets nothing.
//   Any other sentence is recorded and not answered.
//
// Download mode (YMODEM with CRC-16/XMODEM, after an accepted 02 41 frame):
// the receiver stops parsing frames and sentences and reads packets
//
//   SOH (01) n ~n <128 data bytes> crc-hi crc-lo     (133 bytes)
//   STX (02) n ~n <1024 data bytes> crc-hi crc-lo    (1029 bytes)
//   EOT (04)
//
// the CRC taken over the data area. It calls for the header with 'C' about
// 100 ms after the acknowledgement went out and then every second, until a
// packet begins. Then:
//
//   header (packet 0, data "name\0size\0..." with a decimal size): ACK 'C';
//     data packets are expected from number 1 on
//   data (packet n, numbers wrapping at 256): ACK, its data area appended
//   a repeat of the packet taken last (the host missed its answer): that
//     same answer again, nothing taken twice
//   EOT: ACK 'C'; the end packet is expected (a repeated EOT gets ACK 'C'
//     again)
//   end packet (packet 0, all zero): ACK; the file goes into the flash under
//     its name, cut to its declared size, and the receiver leaves download
//     mode (frames and sentences again; a new 02 41 starts a new download).
//     A header with a name in its place starts the next file of a batch
//     (the finished one is stored first). A null header before any file
//     ends the session with no file.
//   a packet with a wrong complement or CRC, or out of sequence: NAK; a
//     header without a decimal size: NAK (the receiver must know how much
//     flash the file takes); an EOT before any header: NAK
//   any other byte between packets: ignored and counted; a second CAN
//     (0x18) right after a CAN cancels the download (back to frames and
//     sentences, the file dropped).
// The ymodem_ faults of SimFaults bend these answers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/model.h"

struct HdSimDialect {
    const char *name;     // lower-case platform name, as given to --platform
    bool restart_output;  // a restart sentence is answered with the first "$GNRMC"
};

void *hd_sim_create(const HdSimDialect *dialect);
void hd_sim_destroy(void *state);
bool hd_sim_feed(void *state, uint8_t byte, SimUnit *unit);
void hd_sim_commit(void *state, const SimUnit &unit, bool refused, SimRecord *rec);
void hd_sim_configure(void *state, const SimFaults &faults);
void hd_sim_tick(void *state, int64_t now_us, std::string *out, SimRecord *rec);
