// Console log and clocks.
//
// Every line the tool prints starts with a "[sss.mmm]" stamp counted from
// program start (the first call of flash_tool_msecs), then the text the
// caller formats. The log helpers take the text after the stamp, e.g.
//   vk_log("[INFO] Baud rate:%d\n", baud);
// and flush standard output after the line.
//
// The two functions that ask the host for time, Vk_ClockGetTimeMs and
// platform_sleep, live in core/clock.cpp; the fuzz builds link a clock that
// moves only when a flow waits (core/clock_fake.cpp) in their place.
#pragma once

#include <cstdint>

#if defined(__GNUC__) || defined(__clang__)
#define VK_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define VK_PRINTF(fmt_index, first_arg)
#endif

// Seven signed 32-bit fields, UTC.
struct VkDateTime {
    int32_t year;   // four digits
    int32_t month;  // 1-12
    int32_t day;    // 1-31
    int32_t hour;   // 0-23
    int32_t minute;
    int32_t second;
    int32_t millisecond;  // 0-999
};

// Monotonic milliseconds, cut to the low 32 bits (held in 64).
uint64_t Vk_ClockGetTimeMs();
// Milliseconds since the first call (which fixes the origin and returns 0).
uint32_t flash_tool_msecs();
// Writes now - start_ms to *elapsed_out and tells whether it reached
// timeout_ms. A zero time-out reports "reached" at once without writing.
bool Vk_CalculateElapsedTime(uint64_t start_ms, uint32_t timeout_ms, uint64_t *elapsed_out);
// Asks the OS for timer wake-ups without slack (Linux), for the calling thread.
void vk_precise_timers();
// How long to let a poll wait so that it ends by remaining_ns: Linux lets a
// poll's time-out run late by a thousandth of its length (a two-hundredth
// for a niced process, up to 100 ms), whatever the timer slack, so a
// one-second wait would end a millisecond late. Asking that much less leaves
// a short rest for a second call, whose lateness is a few microseconds.
int64_t vk_poll_wait_ns(int64_t remaining_ns);
// Sleeps microseconds / 1000 whole milliseconds; returns 0.
int platform_sleep(uint32_t microseconds);
// Monotonic microseconds (the clock Vk_ClockGetTimeMs reads), for deadlines.
uint64_t vk_clock_us();
// Waits until vk_clock_us() reaches deadline_us, never less, and ends it
// there rather than a wake-up latency later; returns 0. A signal ends it at
// once, as it does platform_sleep. Paced streams take their deadline from an
// event (the end of a write) so that what they do between the event and the
// wait falls inside the pause instead of adding to it.
int platform_sleep_until(uint64_t deadline_us);
// Current UTC time of day; returns 1.
int Vk_GetCurrentDateTime(VkDateTime *out);

// The pieces behind the clock functions, kept pure so they can be tested:
// a clock reading in milliseconds, truncated and cut to its low 32 bits;
uint64_t vk_clock_ms(double ms);
// milliseconds since *origin, which the first call fixes to now (returning 0);
uint32_t vk_elapsed_since(uint64_t *origin, uint64_t now_ms);
// the whole milliseconds platform_sleep waits for a count of microseconds;
uint32_t vk_sleep_ms(uint32_t microseconds);
// the "[sss.mmm]" stamp of a millisecond count (out holds at least 24 bytes).
void vk_format_stamp(uint32_t ms, char *out, uint32_t out_size);

// Stamp + formatted text, then flush.
void vk_log(const char *fmt, ...) VK_PRINTF(1, 2);
// Stamp + formatted text, no flush (debug summaries, serial traces).
void vk_log_noflush(const char *fmt, ...) VK_PRINTF(1, 2);
// Prints the "[sss.mmm]" stamp alone (no flush); for lines assembled piecewise.
void vk_log_stamp();
