// Reply waits shared by the backends: read the port in short slices until a
// checker accepts what came or the deadline passes, optionally joining a
// sentence that arrives split over two reads.
#pragma once

#include <cstdint>
#include <string>

#include "core/result.h"
#include "serial/serial.h"

// Judges one read. buf holds len bytes and a terminating NUL; current is the
// wait's result so far, which a checker may keep when the read says nothing.
typedef uint32_t (*VkReplyCheck)(const char *buf, uint32_t len, const char *expected,
                                 uint32_t current);

enum : uint32_t {
    VK_REPLY_BUFFER = 10240,  // bytes read per slice at most
    VK_REPLY_SLICE_MS = 200,  // read time-out of one slice
    VK_REPLY_CARRY = 128,     // longest partial sentence carried over
};

struct VkReplyWait {
    uint32_t timeout_ms = 2000;               // the overall deadline
    uint32_t initial = VK_ERR_COMMAND;        // the result before anything was read
    uint32_t nothing_read = VK_ERR_NO_REPLY;  // the result of a slice that brought no byte
    uint32_t no_memory = VK_ERR_MEMORY;       // the result when no receive buffer can be had
    uint32_t read_size = VK_REPLY_BUFFER;     // bytes one slice reads at most
    uint32_t slice_ms = VK_REPLY_SLICE_MS;    // read time-out of one slice
    bool join_partial = false;      // carry a trailing partial sentence into the next read
    bool echo = false;              // print every read as "[<ms clock>] <text>\n"
    bool stop_when_silent = false;  // a slice that brings nothing ends the wait at once
    // Binary replies: the first two bytes of every frame of the protocol
    // (null for text). Seeing them tells a line at the right rate.
    const uint8_t *frame_start = nullptr;
};

// What came during one wait, to tell line noise (a wrong baud rate) from a
// receiver that said something else.
struct VkLineNoise {
    uint32_t bytes = 0;        // bytes that came
    uint32_t unprintable = 0;  // of those, neither printable ASCII nor CR, LF or tab
    bool frame_start = false;  // a binary frame's first two bytes came, in a row
    int last = -1;             // the previous byte (-1: none yet)
};
// Counts len bytes into *noise; frame_start as in VkReplyWait.
void vk_count_noise(VkLineNoise *noise, const uint8_t *buf, uint32_t len,
                    const uint8_t *frame_start);
// Whether what came looks like line noise: at least 8 bytes, more than half
// of them unprintable, and (for binary replies) never a frame's start.
bool vk_looks_garbled(const VkLineNoise &noise);

// Judges one read with the caller's own state: buf holds len bytes and a
// terminating NUL; current is the wait's result so far.
using VkReplyJudge = uint32_t (*)(void *state, const char *buf, uint32_t len, uint32_t current);

// Reads the port in slices until judge returns 0 or the deadline passes;
// returns the last verdict (or nothing_read after a silent slice).
uint32_t Vk_WaitReply(SerialPort port, const VkReplyWait &how, VkReplyJudge judge, void *state);

// The same with a text check and the text it looks for.
uint32_t Vk_WaitReply(SerialPort port, const char *expected, VkReplyCheck check,
                      const VkReplyWait &how);

// The pause a protocol asks for after a reply: `microseconds` (whole
// milliseconds, as platform_sleep takes them) counted from the reply's last
// byte when one came in after asked_us (vk_clock_us when the request went
// out), else from now. The receiver still gets the whole pause after its
// reply; the quiet gap that ended the read is not waited a second time.
int vk_pause_after_reply(SerialPort port, uint64_t asked_us, uint32_t microseconds);
// Where that pause ends, given when the reply's last byte came (heard_us, 0
// for none) and the time now.
uint64_t vk_reply_pause_end(uint64_t heard_us, uint64_t asked_us, uint64_t now_us,
                            uint32_t microseconds);

// Joins a carried partial sentence in front of the len bytes of buf and
// carries a new partial tail (from the last '$' when the data does not end in
// a line feed) forward. Returns 1 when done, 0 when a size limit stopped it
// (the data then stays as it was). buf is NUL-terminated at the new length
// when that is below buf_size.
int Vk_ProcessSerialData(char *buf, uint32_t *len, char *carry, uint32_t *carry_len,
                         uint32_t buf_size, uint32_t carry_size);

// Whether needle occurs in the len bytes of buf (NUL bytes included).
bool Vk_ContainsText(const char *buf, uint32_t len, const char *needle);
// Position of needle in the len bytes of buf, or null.
const char *Vk_FindText(const char *buf, uint32_t len, const char *needle);

// What the sentence reply checks share. The reply at found, up to its "\r\n"
// (or a NUL, or the end of the len bytes of buf).
std::string vk_reply_line(const char *found, const char *buf, uint32_t len);
// The weak checksum comparison of replies: the received checksum text and the
// computed checksum printed "%x" are both read as decimal numbers, so only
// their leading decimal digits take part ("3A" and "3b" both read as 3).
bool vk_checksum_text_matches(const char *body, const char *received);
// Splits "body*cs" into *body and compares the checksums the weak way; a
// mismatch is logged with mismatch (received and computed, each "%d").
bool vk_split_and_check(const std::string &text, std::string *body, const char *mismatch);
