// Vk_ClockGetTimeMs and platform_sleep over a clock that moves only when a
// flow waits (see core/clock_fake.h); linked instead of core/clock.cpp.
#include "core/clock_fake.h"

#include "core/interrupt.h"
#include "core/log.h"

namespace {
// Not 0: the stamp origin (flash_tool_msecs) takes 0 for "not fixed yet".
uint64_t g_now_ms = 1000;
}  // namespace

void vk_fake_clock_reset(uint64_t now_ms) { g_now_ms = now_ms; }

void vk_fake_clock_advance(uint64_t ms) { g_now_ms += ms; }

uint64_t vk_fake_clock_now() { return g_now_ms; }

uint64_t Vk_ClockGetTimeMs() { return vk_clock_ms(double(g_now_ms)); }

uint64_t vk_clock_us() { return g_now_ms * 1000; }

int platform_sleep_until(uint64_t deadline_us) {
    // To the deadline's millisecond, rounded up: never short of it.
    vk_interrupt_point();
    uint64_t until_ms = (deadline_us + 999) / 1000;
    if (until_ms > g_now_ms) g_now_ms = until_ms;
    vk_interrupt_point();
    return 0;
}

int platform_sleep(uint32_t microseconds) {
    // The same interrupt points as the real pause, and the same whole
    // milliseconds; only the wait itself is gone.
    vk_interrupt_point();
    vk_fake_clock_advance(vk_sleep_ms(microseconds));
    vk_interrupt_point();
    return 0;
}
