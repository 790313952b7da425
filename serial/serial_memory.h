// An in-memory serial port, linked in place of serial_posix.cpp by the fuzz
// targets that drive whole transfers. The receiver's side is a queue of reply
// bytes that reads consume and a record of every byte written; nothing waits.
// A read that finds the queue empty returns 0 at once and moves the fake
// clock (core/clock_fake.h) on by its time-out, so every wait for a reply
// ends quickly and the same way each time.
//
// serial_open takes any name and tracks the port in the layer's table like
// the real units, so the table's rules (eight ports, gone ports, names in
// messages) hold as on a device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// Starts over: replies become what the receiver sends, in order; what was
// written is forgotten; no burst limit, no write limit, no responder.
void serial_memory_reset(const uint8_t *replies, size_t n);
// Adds bytes behind those the receiver still has to send.
void serial_memory_queue(const uint8_t *bytes, size_t n);
// A read takes at most max_bytes (0: as many as it asks for), so a reply
// may come over several reads.
void serial_memory_set_burst(uint32_t max_bytes);
// The receiver takes limit bytes in all and then nothing more: a write past
// that returns the short count, as with a receiver that stopped reading.
// With hang_up the port is gone from then on instead (an unplugged adapter):
// every later read and write returns 0 at once. The layer's stderr line for a
// port gone is left out, so that a fuzz run prints nothing per input.
void serial_memory_set_write_limit(uint64_t limit, bool hang_up = false);
// The writes tried after the first one that came short.
size_t serial_memory_late_writes();
// Called with the bytes each write delivered, after they are recorded: a
// scripted receiver answers them with serial_memory_queue.
using SerialMemoryResponder = void (*)(const uint8_t *bytes, size_t n, void *context);
void serial_memory_set_responder(SerialMemoryResponder responder, void *context);
// Every byte written since the reset, in order.
const std::vector<uint8_t> &serial_memory_written();
