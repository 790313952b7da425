// The host's monotonic clock and the pause, apart from the log so that a
// build can put a clock of its own in their place (the fuzz targets link
// core/clock_fake.cpp instead, whose time moves only when a flow waits).
#include "core/interrupt.h"
#include "core/log.h"

#include <cstdint>
#include <ctime>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <poll.h>
#include <time.h>
#endif

uint64_t Vk_ClockGetTimeMs() {
#ifdef _WIN32
    LARGE_INTEGER freq, now;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&now);
    double ms = double(now.QuadPart) * 1000.0 / double(freq.QuadPart);
#else
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    double ms = double(ts.tv_sec) * 1000.0 + double(ts.tv_nsec) / 1000000.0;
#endif
    return vk_clock_ms(ms);
}

namespace {

#ifdef _WIN32
int64_t mono_ns() {
    static const int64_t freq = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return int64_t(f.QuadPart);
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    int64_t t = int64_t(now.QuadPart);
    return t / freq * 1000000000LL + t % freq * 1000000000LL / freq;
}
#else
int64_t mono_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}
#endif

// A timed wait wakes some tens of microseconds after the time it asked for
// (the scheduler, and a virtual machine's timer on top), and over thousands
// of 5 ms pauses between frames that lateness adds up. So the wait aims that
// much before the deadline, as learnt from the waits before on this thread,
// and the last few microseconds are waited out on the clock itself: the
// pause ends on its deadline, never before it, and the spin stays short.
constexpr int64_t kSpinMarginNs = 20000;  // what a wake-up may come later than usual
constexpr int64_t kMaxEarlyNs = 200000;   // never spin longer than this
thread_local int64_t t_wake_late_ns = 50000;

// Waits until aim_ns or a signal, whichever comes first.
void wait_until(int64_t aim_ns) {
#ifdef _WIN32
    // A high-resolution waitable timer where the system has one (Windows 10
    // 1803 on); else a plain one, whose due time the system rounds to its
    // timer tick.
#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif
    static thread_local HANDLE timer = [] {
        HANDLE h = CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                          TIMER_ALL_ACCESS);
        if (h == nullptr) h = CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS);
        return h;
    }();
    HANDLE interrupt = static_cast<HANDLE>(vk_interrupt_event());
    for (;;) {
        int64_t rem = aim_ns - mono_ns();
        if (rem <= 0) return;
        if (timer == nullptr) {
            DWORD ms = DWORD((rem + 999999) / 1000000);
            if (interrupt != nullptr)
                WaitForSingleObject(interrupt, ms);
            else
                Sleep(ms);
        } else {
            // Due times are relative (negative, in 100 ns): the absolute form
            // counts in wall-clock time, which can be set back and forth.
            LARGE_INTEGER due;
            due.QuadPart = -((rem + 99) / 100);
            SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE);
            HANDLE both[2] = {timer, interrupt};
            WaitForMultipleObjects(interrupt != nullptr ? 2 : 1, both, FALSE, INFINITE);
        }
        vk_interrupt_point();
    }
#else
    int fd = vk_interrupt_fd();
    for (;;) {
        if (fd < 0) {
            // Nothing to watch: sleep to the absolute time itself.
            timespec at{time_t(aim_ns / 1000000000LL), long(aim_ns % 1000000000LL)};
            if (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == 0) return;
        } else {
            // clock_nanosleep cannot watch the interrupt's descriptor, and a
            // signal coming just before it would go unseen for the whole
            // pause: wait on the descriptor for the time left to the
            // absolute aim, worked out again before every call.
            int64_t rem = vk_poll_wait_ns(aim_ns - mono_ns());
            if (rem <= 0) return;
            timespec ts{time_t(rem / 1000000000LL), long(rem % 1000000000LL)};
            pollfd p{fd, POLLIN, 0};
            ppoll(&p, 1, &ts, nullptr);
        }
        vk_interrupt_point();
        if (mono_ns() >= aim_ns) return;
    }
#endif
}

}  // namespace

uint64_t vk_clock_us() { return uint64_t(mono_ns() / 1000); }

int platform_sleep_until(uint64_t deadline_us) {
    vk_interrupt_point();
#ifndef _WIN32
    vk_precise_timers();
#endif
    const int64_t deadline = int64_t(deadline_us) * 1000;
    int64_t early = t_wake_late_ns + kSpinMarginNs;
    if (early > kMaxEarlyNs) early = kMaxEarlyNs;
    const int64_t aim = deadline - early;
    if (mono_ns() < aim) {
        wait_until(aim);
        // Learn how late this wake-up came (an eighth of the new figure).
        int64_t late = mono_ns() - aim;
        if (late > kMaxEarlyNs) late = kMaxEarlyNs;
        t_wake_late_ns += (late - t_wake_late_ns) / 8;
    }
    // The rest on the clock. Each turn offers the core to whatever else is
    // waiting for it: on an idle machine the yield returns at once, on one
    // running more transfers than it has cores the turn goes to them.
    while (mono_ns() < deadline) {
        vk_interrupt_point();
        std::this_thread::yield();
    }
    vk_interrupt_point();
    return 0;
}

int platform_sleep(uint32_t microseconds) {
    // Whole milliseconds from now (see vk_sleep_ms).
    return platform_sleep_until(vk_clock_us() + uint64_t(vk_sleep_ms(microseconds)) * 1000);
}
