// Reply waits shared by the backends: read the port in short slices until a
// checker accepts what came or the deadline passes, optionally joining a
// sentence that arrives split over two reads.
#pragma once

#include <cstdint>

// Judges one read. buf holds len bytes and a terminating NUL; current is the
// wait's result so far, which a checker may keep when the read says nothing.
typedef uint32_t (*VkReplyCheck)(const char *buf, uint32_t len, const char *expected,
                                 uint32_t current);

struct VkReplyWait {
    uint32_t timeout_ms;    // the overall deadline
    uint32_t initial;       // the result before anything was read
    uint32_t nothing_read;  // the result of a slice that brought no byte
    uint32_t no_memory;     // the result when the receive buffer cannot be had
    bool join_partial;      // carry a trailing partial sentence into the next read
    bool echo;              // print every read as "[<ms clock>] <text>\n"
};

enum : uint32_t {
    VK_REPLY_BUFFER = 10240,  // bytes read per slice at most
    VK_REPLY_SLICE_MS = 200,  // read time-out of one slice
    VK_REPLY_CARRY = 128,     // longest partial sentence carried over
};

uint32_t Vk_WaitReply(uint64_t handle, const char *expected, VkReplyCheck check,
                      const VkReplyWait *how);

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
