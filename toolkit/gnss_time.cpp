#include "toolkit/gnss_time.h"

#include <cmath>
#include <cstdlib>

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr double kGpsEpochMs = 315964800000.0;
constexpr double kMsPerWeek = 604800000.0;

// Floor division and modulo for a positive divisor.
int64_t floor_div(int64_t a, int64_t b) {
    int64_t q = a / b;
    if ((a % b) != 0 && a < 0) --q;
    return q;
}

int64_t floor_mod(int64_t a, int64_t b) { return a - floor_div(a, b) * b; }

// Days since 1970-01-01 of a proleptic Gregorian date (month 1-12), counted
// in 400-year eras that start on 1 March so the leap day ends each year.
int64_t days_from_civil(int64_t y, int64_t m, int64_t d) {
    y -= (m <= 2) ? 1 : 0;
    const int64_t era = floor_div(y, 400);
    const int64_t yoe = y - era * 400;                                   // [0, 399]
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;  // [0, 365]
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;           // [0, 146096]
    return era * 146097 + doe - 719468;
}

// The inverse: calendar date of a day count since 1970-01-01.
void civil_from_days(int64_t z, int64_t *y, int64_t *m, int64_t *d) {
    z += 719468;
    const int64_t era = floor_div(z, 146097);
    const int64_t doe = z - era * 146097;                                       // [0, 146096]
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;  // [0, 399]
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);                // [0, 365]
    const int64_t mp = (5 * doy + 2) / 153;                                     // [0, 11]
    *d = doy - (153 * mp + 2) / 5 + 1;
    *m = mp < 10 ? mp + 3 : mp - 9;
    *y = yoe + era * 400 + (*m <= 2 ? 1 : 0);
}

}  // namespace

void vk_unix_to_utc(int64_t unix_s, VkDateTime *out) {
    if (out == nullptr) return;
    const int64_t days = floor_div(unix_s, kSecondsPerDay);
    const int64_t sod = floor_mod(unix_s, kSecondsPerDay);
    int64_t y = 0, m = 0, d = 0;
    civil_from_days(days, &y, &m, &d);
    out->year = int32_t(y);
    out->month = int32_t(m);
    out->day = int32_t(d);
    out->hour = int32_t(sod / 3600);
    out->minute = int32_t((sod % 3600) / 60);
    out->second = int32_t(sod % 60);
    out->millisecond = 0;
}

int64_t vk_utc_to_unix(const VkDateTime *utc) {
    if (utc == nullptr) return 0;
    // A month outside 1-12 carries into the year; days, hours, minutes and
    // seconds outside their ranges carry through the linear count below.
    int64_t month0 = int64_t(utc->month) - 1;
    const int64_t year = int64_t(utc->year) + floor_div(month0, 12);
    month0 = floor_mod(month0, 12);
    const int64_t days = days_from_civil(year, month0 + 1, 1) + (int64_t(utc->day) - 1);
    return days * kSecondsPerDay + int64_t(utc->hour) * 3600 + int64_t(utc->minute) * 60 +
           int64_t(utc->second);
}

int64_t gps_to_utc(uint32_t week, int32_t tow_s, int32_t leap_s) {
    const uint32_t week_s = week * VK_SECONDS_PER_WEEK;  // the week's seconds stay in 32 bits
    return int64_t(week_s) + VK_GPS_EPOCH_UNIX + tow_s - leap_s;
}

int64_t bdt_to_unix(uint32_t week, int32_t tow_s) {
    const uint32_t week_s = week * VK_SECONDS_PER_WEEK;
    return int64_t(week_s) + tow_s + VK_BDT_UNIX_OFFSET;
}

double utc_to_milliseconds(const VkDateTime *utc, const int32_t *leap_table) {
    const int64_t s = vk_utc_to_unix(utc);
    const double leap = (leap_table != nullptr) ? double(leap_table[11]) : 0.0;
    const double ms = (utc != nullptr) ? double(utc->millisecond) : 0.0;
    // Leap seconds are added: the result sits on the GPS-aligned scale.
    return 1000.0 * leap + 1000.0 * double(s) + ms;
}

void convert_utc_to_gps(VkDateTime utc, uint32_t *week, double *tow_ms, const int32_t *leap_table) {
    const double m = utc_to_milliseconds(&utc, leap_table);
    if (m < 0.0 || m - kGpsEpochMs < 0.0) {
        if (week != nullptr) *week = 0xFFFFFFFFu;
        if (tow_ms != nullptr) *tow_ms = -1.0;
        return;
    }
    const double x = m - kGpsEpochMs;
    if (week != nullptr) *week = uint32_t(x / kMsPerWeek);
    if (tow_ms != nullptr) *tow_ms = std::fmod(x, kMsPerWeek);
}

void convert_gps_to_utc(uint32_t week, double tow_ms, uint32_t leap_s, VkDateTime *out) {
    // The week's seconds are a signed 32-bit product here.
    const int32_t week_s = int32_t(week * VK_SECONDS_PER_WEEK);
    const double t = 1000.0 * double(week_s) + kGpsEpochMs + tow_ms - 1000.0 * double(leap_s);
    VkDateTime utc{};
    vk_unix_to_utc(int64_t(t / 1000.0), &utc);
    utc.millisecond = int32_t(std::fmod(t, 1000.0));
    if (out != nullptr) *out = utc;
    vk_log(" UTC: %d-%02d-%02d %02d:%02d:%02d.%03d\n", utc.year, utc.month, utc.day, utc.hour,
           utc.minute, utc.second, utc.millisecond);
}

double degrees_to_dmm(const char *degrees_text) {
    if (degrees_text == nullptr) return 0.0;
    const double d = strtod(degrees_text, nullptr);
    const double i = std::trunc(d);
    // South and west stay negative: -31.5 becomes -3130.0.
    return i * 100.0 + 60.0 * (d - i);
}

int32_t degrees_to_arcseconds(double degrees) {
    const double i = std::trunc(degrees);
    const double mf = 60.0 * (degrees - i);
    const double m = std::trunc(mf);
    return int32_t(std::round(m * 60.0 + i * 3600.0 + 60.0 * (mf - m)));
}

uint64_t gnss_getbitu(const uint8_t *buf, uint32_t pos, uint32_t len) {
    uint64_t v = 0;
    if (buf == nullptr) return v;
    for (uint32_t k = 0; k < len; ++k) {
        const uint32_t p = pos + k;
        v = (v << 1) | ((buf[p / 8] >> (7 - p % 8)) & 1u);
    }
    return v;
}

void gnss_setbitu(uint8_t *buf, uint32_t pos, uint32_t len, uint64_t value) {
    for (uint32_t k = 0; k < len; ++k) {
        const uint32_t p = pos + k;
        const uint8_t bit = uint8_t(1u << (7 - p % 8));
        if ((value >> (len - 1 - k)) & 1u)
            buf[p / 8] |= bit;
        else
            buf[p / 8] &= uint8_t(~bit);
    }
}
