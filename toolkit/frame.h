// Binary frames described as data. A VkFrameFormat says where a frame's sync bytes, id,
// payload length, check value and trailer sit; the functions below build frames of any such
// format, take them apart byte by byte as they arrive, and match acknowledgements against a
// pattern of expected bytes. All state lives in the caller's records; nothing here allocates,
// prints or keeps anything between calls.
#pragma once

#include <cstdint>
#include <span>

enum class VkByteOrder : uint8_t { Little, Big };

// One field of a frame: where it sits, how wide it is and in which byte order. For a length
// field, mask selects the bits that carry the value (always the low ones: 0x3FF, 0xFFF, ...);
// the bits above must be 0 in a valid frame.
struct VkFrameField {
    uint8_t offset = 0;  // from the frame's first byte (see VkFrameFormat::check_at_end)
    uint8_t size = 0;    // 0..4 bytes; 0: the format has no such field
    VkByteOrder order = VkByteOrder::Little;
    uint32_t mask = 0xFFFFFFFFu;
};

// The check function sees the covered bytes and returns the value to store; only the low
// check_field.size bytes of it are kept.
using VkFrameCheck = uint32_t (*)(const uint8_t *data, uint32_t len);

struct VkFrameFormat {
    std::span<const uint8_t> sync = {};  // the bytes every frame starts with (at least one)
    uint8_t header_size = 0;             // bytes in front of the payload, sync included
    VkFrameField id = {};                // the message id; a class byte and an id byte in a row are
                                         // read as one 2-byte big-endian number
    VkFrameField length = {};            // the payload length; size 0: frames carry no payload
    VkFrameCheck check = nullptr;        // nullptr: the frames carry no check value
    uint8_t check_from = 0;              // first covered byte; the coverage ends with the payload
    VkFrameField check_field = {};       // where the check value is stored
    bool check_at_end = true;            // true: right after the payload (check_field.offset must
                                         // be 0); false: inside the header at check_field.offset,
                                         // in front of the covered bytes
    std::span<const uint8_t> trailer = {};  // the bytes after the check value
    uint32_t max_payload = 0;               // the longest payload built or accepted
};

// The formats the tool speaks.
extern const VkFrameFormat kVkFrameEpo;   // 04 24 | id LE | len LE | payload | XOR | AA 44
extern const VkFrameFormat kVkFrameHd;    // F1 D9 | class id | len LE | payload | A B
extern const VkFrameFormat kVkFrameRtcm;  // D3 | 6 zero bits, 10-bit len | payload | CRC-24Q BE
extern const VkFrameFormat kVkFrameBk;    // 42 4B | CRC-16 BE | class id | len BE | payload

// Whether a format is usable: sync present and inside the header, every field at most 4 bytes,
// inside the header, clear of the sync and of the other fields; a length mask made of low bits
// that can hold max_payload; a check value present exactly when a check function is, and one
// stored in the header lying in front of the bytes it covers. Building refuses an unusable
// format and a parser over one takes no bytes.
bool vk_frame_format_ok(const VkFrameFormat &f);

// Bytes a frame with payload_len payload bytes takes; 0 when that does not fit 32 bits.
uint32_t vk_frame_size(const VkFrameFormat &f, uint32_t payload_len);

// Writes a whole frame (sync, id, length, payload, check value, trailer; header bytes no field
// claims are 0) to the front of out and returns its length. Returns 0 and writes nothing when
// the format is unusable, the frame does not fit out, the payload is longer than max_payload
// or its length field can hold, or the id does not fit its field (no id field: only 0 fits).
// The payload may lie inside out, for instance already in its place after the header.
uint32_t vk_frame_build(const VkFrameFormat &f, uint32_t id, std::span<const uint8_t> payload,
                        std::span<uint8_t> out);

// The value of a field in a frame, masked; 0 for a field of size 0 or one that lies beyond the
// frame's end.
uint32_t vk_frame_get(const VkFrameField &field, std::span<const uint8_t> frame);

// The payload of a whole frame (as the parser completes it); empty when frame is shorter than
// its header and length say.
std::span<const uint8_t> vk_frame_payload(const VkFrameFormat &f, std::span<const uint8_t> frame);

// Incremental parser. The caller owns the record and the buffer; several parsers run side by
// side without knowing of each other. A zero-initialised record with format and buf set is
// ready; so is one any event other than Pending has left behind.
struct VkFrameParser {
    const VkFrameFormat *format = nullptr;
    std::span<uint8_t> buf = {};  // holds the frame being assembled; at least header_size bytes
    uint32_t have = 0;            // bytes of it so far (0: hunting for the sync)
    uint32_t need = 0;            // the frame's whole size once its length is known, 0 before
};

enum class VkFrameEvent : uint8_t {
    Pending,    // the byte was taken or passed over; no frame ends here
    Complete,   // buf[0 .. *len) is a frame with the right check value and trailer
    BadCheck,   // buf[0 .. *len) is a whole frame whose check value or trailer is wrong
    BadLength,  // the length field has bits set outside its mask, is over max_payload, or the
                // frame would not fit buf; buf[0 .. *len) is its header
};

// Feeds one byte. Any event but Pending sets *len (when len is not null) and leaves the parser
// hunting for the next sync; the bytes after the failed frame's sync are not searched again. A
// byte that breaks the sync restarts the hunt, and when it is itself the first sync byte it
// starts a new frame (exact for the one- and two-byte syncs of the formats above).
VkFrameEvent vk_frame_feed(VkFrameParser &p, uint8_t byte, uint32_t *len);

// What a matcher does with a byte that does not match the next expected one.
enum class VkOnMismatch : uint8_t {
    KeepState,  // it is skipped; the match goes on where it was
    Restart,    // the partial match is dropped; the byte itself is not tried as a first byte
};

// Acknowledgement matcher: expected bytes, each compared under a mask (mask 0 takes any byte,
// e.g. a check value left unchecked; mask 0xFE with value 0x00 takes 00 and 01).
struct VkFrameMatch {
    std::span<const uint8_t> value = {};
    std::span<const uint8_t> mask = {};  // as long as value; bytes missing here are compared whole
    uint32_t accept_at = 0;              // matched bytes that complete the match (0: all of them)
    VkOnMismatch on_mismatch = VkOnMismatch::Restart;
    uint32_t state = 0;  // bytes matched so far; kept in the record across reads
};

// Feeds one byte; true when it completes the match, which then starts over at state 0. *taken
// (when taken is not null) tells whether the byte matched its expected byte; the others come
// from outside the frame or are skipped strays. An empty pattern never completes.
bool vk_frame_match_feed(VkFrameMatch &m, uint8_t byte, bool *taken = nullptr);

// An acknowledgement wait's state: the matcher, where the matched bytes go
// (each at its place in the pattern; nothing past the pattern is written),
// and an optional echo that sees every byte with whether it was taken and
// the matcher's state before it.
struct VkAckWait {
    VkFrameMatch match;
    uint8_t *out = nullptr;
    void (*echo)(uint8_t byte, bool taken, uint32_t at) = nullptr;
};
// A VkReplyJudge over a VkAckWait: 0 as soon as a read completes the match
// (the bytes after it in that read are not looked at), else current.
uint32_t vk_judge_ack(void *ack_wait, const char *buf, uint32_t len, uint32_t current);

// Fills value with the frame f would build for id and payload and mask with 0xFF for every
// byte, except 0x00 for the check value's bytes when check_value_checked is false. Returns the
// frame's length, or 0 (and writes nothing) when the frame cannot be built or value or mask is
// too short for it.
uint32_t vk_frame_pattern(const VkFrameFormat &f, uint32_t id, std::span<const uint8_t> payload,
                          bool check_value_checked, std::span<uint8_t> value,
                          std::span<uint8_t> mask);
