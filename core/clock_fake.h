// A clock that moves only when told: the stand-in for core/clock.cpp in the
// builds that run the flows without waiting (the fuzz targets). Its time
// starts where vk_fake_clock_reset puts it and advances by each pause
// (platform_sleep) and by whatever vk_fake_clock_advance adds, such as the
// time-out of a read that found nothing; nothing ever sleeps.
#pragma once

#include <cstdint>

// Sets the time, in milliseconds; a run that starts here sees the same
// clock every time, whatever the runs before it did.
void vk_fake_clock_reset(uint64_t now_ms);
// Moves the time on by ms.
void vk_fake_clock_advance(uint64_t ms);
// The time, whole (Vk_ClockGetTimeMs gives its low 32 bits, as the host clock's).
uint64_t vk_fake_clock_now();
