#include "core/log.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/time.h>
#include <time.h>
#endif
#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace {
uint64_t g_origin_ms = 0;
}  // namespace

uint64_t vk_clock_ms(double ms) {
    return uint64_t(ms) & 0xFFFFFFFFu;  // wraps after 2^32 ms, about 49.7 days
}

uint32_t vk_elapsed_since(uint64_t *origin, uint64_t now_ms) {
    if (*origin == 0) *origin = now_ms;
    return uint32_t(now_ms - *origin);
}

uint32_t flash_tool_msecs() { return vk_elapsed_since(&g_origin_ms, Vk_ClockGetTimeMs()); }

bool Vk_CalculateElapsedTime(uint64_t start_ms, uint32_t timeout_ms, uint64_t *elapsed_out) {
    uint64_t now = Vk_ClockGetTimeMs();
    if (timeout_ms == 0) return true;
    uint64_t elapsed = now - start_ms;
    *elapsed_out = elapsed;
    return elapsed >= timeout_ms;
}

void vk_precise_timers() {
#ifdef __linux__
    // The default 50 us timer slack would add up over thousands of 5 ms
    // pauses between frames and thousands of 1 ms quiet gaps after replies.
    static thread_local const bool tight = prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL) == 0;
    (void)tight;
#endif
}

int64_t vk_poll_wait_ns(int64_t remaining_ns) {
    return remaining_ns <= 0 ? 0 : remaining_ns - remaining_ns / 200;
}

uint32_t vk_sleep_ms(uint32_t microseconds) {
    return microseconds / 1000;  // deliberately microseconds: callers pass 1000000 for a second
}

int Vk_GetCurrentDateTime(VkDateTime *out) {
#ifdef _WIN32
    SYSTEMTIME st;
    GetSystemTime(&st);
    out->year = st.wYear;
    out->month = st.wMonth;
    out->day = st.wDay;
    out->hour = st.wHour;
    out->minute = st.wMinute;
    out->second = st.wSecond;
    out->millisecond = st.wMilliseconds;
#else
    timeval tv{};
    gettimeofday(&tv, nullptr);
    time_t secs = tv.tv_sec;
    tm t{};
    gmtime_r(&secs, &t);
    out->year = t.tm_year + 1900;
    out->month = t.tm_mon + 1;
    out->day = t.tm_mday;
    out->hour = t.tm_hour;
    out->minute = t.tm_min;
    out->second = t.tm_sec;
    out->millisecond = int32_t(tv.tv_usec / 1000);
#endif
    return 1;
}

void vk_format_stamp(uint32_t ms, char *out, uint32_t out_size) {
    snprintf(out, out_size, "[%03u.%03u]", ms / 1000, ms % 1000);
}

void vk_log_stamp() {
    char stamp[24];
    vk_format_stamp(flash_tool_msecs(), stamp, sizeof stamp);
    fputs(stamp, stdout);
}

void vk_log(const char *fmt, ...) {
    vk_log_stamp();
    va_list ap;
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
    fflush(stdout);
}

void vk_log_noflush(const char *fmt, ...) {
    vk_log_stamp();
    va_list ap;
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
}
