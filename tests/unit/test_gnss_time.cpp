// GNSS time, calendar and coordinate conversions, and the bit-field reader.
#include <gtest/gtest.h>

#include "tests/support/stamp_mask.h"

#include <cstdint>
#include <ctime>
#include <string>

#include "toolkit/gnss_time.h"

namespace {

VkDateTime dt(int y, int mo, int d, int h, int mi, int s, int ms = 0) {
    return VkDateTime{y, mo, d, h, mi, s, ms};
}

void expect_dt(const VkDateTime &got, const VkDateTime &want) {
    EXPECT_EQ(got.year, want.year);
    EXPECT_EQ(got.month, want.month);
    EXPECT_EQ(got.day, want.day);
    EXPECT_EQ(got.hour, want.hour);
    EXPECT_EQ(got.minute, want.minute);
    EXPECT_EQ(got.second, want.second);
    EXPECT_EQ(got.millisecond, want.millisecond);
}

// Leap-second table as the callers hold it: the twelfth entry is the count.
struct LeapTable {
    int32_t v[12];
};

LeapTable leap_table(int32_t leap) {
    LeapTable t{};
    t.v[11] = leap;
    return t;
}

// Week 2300 begins on Sunday 2024-02-04 00:00:00 (GPS epoch + 2300 weeks).
constexpr int64_t kWeek2300Unix = 315964800LL + 2300LL * 604800LL;

}  // namespace

// ---- week and time of week to Unix seconds ---------------------------------------

TEST(GpsToUtc, EpochIsUnix315964800) { EXPECT_EQ(gps_to_utc(0, 0, 0), 315964800); }

TEST(GpsToUtc, LeapSecondsMakeEveryResultEarlier) {
    const uint32_t weeks[] = {0, 1, 1024, 2048, 2300};
    const int32_t tows[] = {0, 1, 302400, 604799};
    for (uint32_t w : weeks) {
        for (int32_t t : tows)
            EXPECT_EQ(gps_to_utc(w, t, 18), gps_to_utc(w, t, 0) - 18) << w << " " << t;
    }
    EXPECT_EQ(gps_to_utc(0, 0, 18), 315964782);
}

TEST(GpsToUtc, KnownInstant) {
    // Week 2300, Tuesday 06:00:00 GPS time = 2024-02-06 05:59:42 UTC with 18 s.
    EXPECT_EQ(kWeek2300Unix, 1707004800);
    EXPECT_EQ(gps_to_utc(2300, 2 * 86400 + 6 * 3600, 18), 1707199200 - 18);
}

TEST(GpsToUtc, NegativeTimeOfWeekGoesBack) {
    EXPECT_EQ(gps_to_utc(1, -1, 0), 315964800 + 604800 - 1);
}

TEST(BdtToUnix, EpochConstant) {
    EXPECT_EQ(bdt_to_unix(0, 0), 1136073596);
    // 4 s before 2006-01-01 00:00:00 UTC.
    EXPECT_EQ(bdt_to_unix(0, 4), 1136073600);
}

TEST(BdtToUnix, WeeksAndTimeOfWeekAdd) {
    EXPECT_EQ(bdt_to_unix(1, 10), 1136073596 + 604800 + 10);
    EXPECT_EQ(bdt_to_unix(944, 302400), 1136073596LL + 944LL * 604800 + 302400);
}

// ---- portable UTC breakdown -------------------------------------------------------------

TEST(UnixToUtc, KnownDates) {
    VkDateTime d{};
    vk_unix_to_utc(0, &d);
    expect_dt(d, dt(1970, 1, 1, 0, 0, 0));
    vk_unix_to_utc(315964800, &d);
    expect_dt(d, dt(1980, 1, 6, 0, 0, 0));
    vk_unix_to_utc(951782400, &d);  // leap day of a 400-year leap year
    expect_dt(d, dt(2000, 2, 29, 0, 0, 0));
    vk_unix_to_utc(1707199200 + 30 * 60 + 7, &d);
    expect_dt(d, dt(2024, 2, 6, 6, 30, 7));
    vk_unix_to_utc(4107542400LL - 1, &d);  // 2100 is not a leap year
    expect_dt(d, dt(2100, 2, 28, 23, 59, 59));
    vk_unix_to_utc(4107542400LL, &d);
    expect_dt(d, dt(2100, 3, 1, 0, 0, 0));
}

TEST(UnixToUtc, BeforeNineteenSeventy) {
    VkDateTime d{};
    vk_unix_to_utc(-1, &d);
    expect_dt(d, dt(1969, 12, 31, 23, 59, 59));
    vk_unix_to_utc(-86400, &d);
    expect_dt(d, dt(1969, 12, 31, 0, 0, 0));
}

TEST(UnixToUtc, MatchesTheHostBreakdown) {
    // Every 9999 hours and 17 s across two centuries, against the C library.
    for (int64_t s = -2208988800LL; s < 4102444800LL; s += 9999LL * 3600 + 17) {
        time_t t = time_t(s);
        tm ref{};
        ASSERT_NE(gmtime_r(&t, &ref), nullptr);
        VkDateTime d{};
        vk_unix_to_utc(s, &d);
        ASSERT_EQ(d.year, ref.tm_year + 1900) << s;
        ASSERT_EQ(d.month, ref.tm_mon + 1) << s;
        ASSERT_EQ(d.day, ref.tm_mday) << s;
        ASSERT_EQ(d.hour, ref.tm_hour) << s;
        ASSERT_EQ(d.minute, ref.tm_min) << s;
        ASSERT_EQ(d.second, ref.tm_sec) << s;
        ASSERT_EQ(d.millisecond, 0) << s;
        ASSERT_EQ(vk_utc_to_unix(&d), s);
    }
}

TEST(UtcToUnix, KnownDates) {
    VkDateTime d = dt(1980, 1, 6, 0, 0, 0);
    EXPECT_EQ(vk_utc_to_unix(&d), 315964800);
    d = dt(2006, 1, 1, 0, 0, 0);
    EXPECT_EQ(vk_utc_to_unix(&d), 1136073600);
    d = dt(2024, 2, 6, 6, 0, 0);
    EXPECT_EQ(vk_utc_to_unix(&d), 1707199200);
}

TEST(UtcToUnix, MillisecondsAreNotPartOfTheSeconds) {
    VkDateTime d = dt(1970, 1, 1, 0, 0, 1, 999);
    EXPECT_EQ(vk_utc_to_unix(&d), 1);
}

TEST(UtcToUnix, OutOfRangeFieldsCarryOver) {
    VkDateTime d = dt(2023, 13, 1, 0, 0, 0);  // month 13 = January of the next year
    EXPECT_EQ(vk_utc_to_unix(&d), 1704067200);
    d = dt(2024, 0, 1, 0, 0, 0);  // month 0 = December of the year before
    EXPECT_EQ(vk_utc_to_unix(&d), 1701388800);
    d = dt(2024, 1, 32, 0, 0, 0);  // 32 January = 1 February
    EXPECT_EQ(vk_utc_to_unix(&d), 1706745600);
    d = dt(2024, 1, 1, 24, 0, 60);
    EXPECT_EQ(vk_utc_to_unix(&d), 1704067200 + 86400 + 60);
    // The same as the C library's own normalisation.
    for (int mo = -25; mo <= 40; mo += 3) {
        VkDateTime x = dt(2010, mo, 45, 30, 70, 80);
        tm t{};
        t.tm_year = 2010 - 1900;
        t.tm_mon = mo - 1;
        t.tm_mday = 45;
        t.tm_hour = 30;
        t.tm_min = 70;
        t.tm_sec = 80;
        EXPECT_EQ(vk_utc_to_unix(&x), int64_t(timegm(&t))) << mo;
    }
}

// ---- UTC record to GPS week and time of week ---------------------------------------------

TEST(UtcToMilliseconds, LeapSecondsAreAdded) {
    VkDateTime d = dt(1980, 1, 6, 0, 0, 0, 250);
    LeapTable t = leap_table(18);
    EXPECT_DOUBLE_EQ(utc_to_milliseconds(&d, t.v), (315964800.0 + 18.0) * 1000.0 + 250.0);
    LeapTable zero = leap_table(0);
    EXPECT_DOUBLE_EQ(utc_to_milliseconds(&d, zero.v), 315964800000.0 + 250.0);
}

TEST(UtcToMilliseconds, OnlyTheTwelfthEntryCounts) {
    VkDateTime d = dt(2000, 1, 1, 0, 0, 0);
    LeapTable t = leap_table(13);
    for (int i = 0; i < 11; ++i) t.v[i] = 1000 + i;
    EXPECT_DOUBLE_EQ(utc_to_milliseconds(&d, t.v), (946684800.0 + 13.0) * 1000.0);
}

TEST(ConvertUtcToGps, BeforeGpsEpochIsInvalid) {
    LeapTable t = leap_table(0);
    uint32_t week = 7;
    double tow = 7.0;
    convert_utc_to_gps(dt(1980, 1, 5, 23, 59, 59, 999), &week, &tow, t.v);
    EXPECT_EQ(week, 0xFFFFFFFFu);
    EXPECT_EQ(tow, -1.0);
    week = 7;
    tow = 7.0;
    convert_utc_to_gps(dt(1975, 6, 1, 0, 0, 0), &week, &tow, t.v);
    EXPECT_EQ(week, 0xFFFFFFFFu);
    EXPECT_EQ(tow, -1.0);
    week = 7;
    tow = 7.0;
    convert_utc_to_gps(dt(1960, 1, 1, 0, 0, 0), &week, &tow, t.v);  // negative milliseconds
    EXPECT_EQ(week, 0xFFFFFFFFu);
    EXPECT_EQ(tow, -1.0);
}

TEST(ConvertUtcToGps, EpochIsWeekZero) {
    LeapTable t = leap_table(0);
    uint32_t week = 7;
    double tow = 7.0;
    convert_utc_to_gps(dt(1980, 1, 6, 0, 0, 0), &week, &tow, t.v);
    EXPECT_EQ(week, 0u);
    EXPECT_EQ(tow, 0.0);
}

TEST(ConvertUtcToGps, KnownInstantWithLeapSeconds) {
    LeapTable t = leap_table(18);
    uint32_t week = 0;
    double tow = 0.0;
    convert_utc_to_gps(dt(2024, 2, 6, 6, 0, 0, 500), &week, &tow, t.v);
    EXPECT_EQ(week, 2300u);
    EXPECT_DOUBLE_EQ(tow, (2.0 * 86400 + 6 * 3600 + 18) * 1000.0 + 500.0);
}

TEST(ConvertUtcToGps, EndOfWeekRollsOver) {
    LeapTable t = leap_table(0);
    uint32_t week = 0;
    double tow = 0.0;
    convert_utc_to_gps(dt(2024, 2, 10, 23, 59, 59, 999), &week, &tow, t.v);
    EXPECT_EQ(week, 2300u);
    EXPECT_DOUBLE_EQ(tow, 604799999.0);
    convert_utc_to_gps(dt(2024, 2, 11, 0, 0, 0), &week, &tow, t.v);
    EXPECT_EQ(week, 2301u);
    EXPECT_DOUBLE_EQ(tow, 0.0);
}

// ---- GPS week and time of week to UTC record ---------------------------------------------

TEST(ConvertGpsToUtc, EpochAndLogLine) {
    VkDateTime d = dt(1, 1, 1, 1, 1, 1, 1);
    testing::internal::CaptureStdout();
    convert_gps_to_utc(0, 0.0, 0, &d);
    std::string out = testing::internal::GetCapturedStdout();
    expect_dt(d, dt(1980, 1, 6, 0, 0, 0, 0));
    EXPECT_EQ(mask_stamps(out), "[SSS.mmm] UTC: 1980-01-06 00:00:00.000\n");
}

TEST(ConvertGpsToUtc, LeapSecondsAreSubtracted) {
    VkDateTime d{};
    testing::internal::CaptureStdout();
    convert_gps_to_utc(2300, (2.0 * 86400 + 6 * 3600 + 18) * 1000.0 + 500.0, 18, &d);
    std::string out = testing::internal::GetCapturedStdout();
    expect_dt(d, dt(2024, 2, 6, 6, 0, 0, 500));
    EXPECT_EQ(mask_stamps(out), "[SSS.mmm] UTC: 2024-02-06 06:00:00.500\n");
}

TEST(ConvertGpsToUtc, FractionalMillisecondsAreTruncated) {
    VkDateTime d{};
    testing::internal::CaptureStdout();
    convert_gps_to_utc(1, 61234.9, 0, &d);
    std::string out = testing::internal::GetCapturedStdout();
    expect_dt(d, dt(1980, 1, 13, 0, 1, 1, 234));
    EXPECT_EQ(mask_stamps(out), "[SSS.mmm] UTC: 1980-01-13 00:01:01.234\n");
}

TEST(ConvertGpsToUtc, RoundTripWithUtcToGps) {
    LeapTable t = leap_table(18);
    const VkDateTime samples[] = {dt(1999, 8, 21, 23, 59, 47, 0), dt(2017, 1, 1, 0, 0, 0, 1),
                                  dt(2024, 2, 29, 12, 34, 56, 789),
                                  dt(2037, 12, 31, 23, 59, 59, 999)};
    for (const VkDateTime &s : samples) {
        uint32_t week = 0;
        double tow = 0.0;
        convert_utc_to_gps(s, &week, &tow, t.v);
        VkDateTime back{};
        testing::internal::CaptureStdout();
        convert_gps_to_utc(week, tow, 18, &back);
        testing::internal::GetCapturedStdout();
        expect_dt(back, s);
    }
}

// ---- degrees ----------------------------------------------------------------------------

TEST(DegreesToDmm, PositiveValues) {
    EXPECT_DOUBLE_EQ(degrees_to_dmm("121.25"), 12115.0);
    EXPECT_DOUBLE_EQ(degrees_to_dmm("22.5"), 2230.0);
    EXPECT_DOUBLE_EQ(degrees_to_dmm("0"), 0.0);
    EXPECT_DOUBLE_EQ(degrees_to_dmm("45"), 4500.0);
    EXPECT_NEAR(degrees_to_dmm("31.123456"), 3107.40736, 1e-9);
}

TEST(DegreesToDmm, SouthAndWestStayNegative) {
    EXPECT_DOUBLE_EQ(degrees_to_dmm("-31.5"), -3130.0);
    EXPECT_DOUBLE_EQ(degrees_to_dmm("-121.25"), -12115.0);
    EXPECT_DOUBLE_EQ(degrees_to_dmm("-0.5"), -30.0);
}

TEST(DegreesToArcseconds, WholeAndFractionalDegrees) {
    EXPECT_EQ(degrees_to_arcseconds(1.5), 5400);
    EXPECT_EQ(degrees_to_arcseconds(0.0), 0);
    EXPECT_EQ(degrees_to_arcseconds(121.25), 436500);
    EXPECT_EQ(degrees_to_arcseconds(-1.5), -5400);
    EXPECT_EQ(degrees_to_arcseconds(-31.5), -113400);
}

TEST(DegreesToArcseconds, HalvesRoundAwayFromZero) {
    // 0.03125 degrees = 112.5 arcseconds, exactly representable.
    EXPECT_EQ(degrees_to_arcseconds(0.03125), 113);
    EXPECT_EQ(degrees_to_arcseconds(-0.03125), -113);
    // 0.0078125 degrees = 28.125 arcseconds.
    EXPECT_EQ(degrees_to_arcseconds(0.0078125), 28);
    EXPECT_EQ(degrees_to_arcseconds(-0.0078125), -28);
}

// ---- bit fields ----------------------------------------------------------------------------

TEST(GnssGetBitu, MiddleOfTwoBytes) {
    const uint8_t b[] = {0xA5, 0x0F};
    EXPECT_EQ(gnss_getbitu(b, 4, 8), 0x50u);
}

TEST(GnssGetBitu, WholeBytesSingleBitsAndZeroLength) {
    const uint8_t b[] = {0xA5, 0x0F};
    EXPECT_EQ(gnss_getbitu(b, 0, 16), 0xA50Fu);
    EXPECT_EQ(gnss_getbitu(b, 0, 8), 0xA5u);
    EXPECT_EQ(gnss_getbitu(b, 0, 1), 1u);
    EXPECT_EQ(gnss_getbitu(b, 1, 1), 0u);
    EXPECT_EQ(gnss_getbitu(b, 15, 1), 1u);
    EXPECT_EQ(gnss_getbitu(b, 3, 0), 0u);
}

TEST(GnssGetBitu, RtcmHeaderFields) {
    // D3 | 6 reserved bits, 10-bit length 0x013 | message number 1005 in 12 bits.
    const uint8_t f[] = {0xD3, 0x00, 0x13, 0x3E, 0xD0, 0x00};
    EXPECT_EQ(gnss_getbitu(f, 0, 8), 0xD3u);
    EXPECT_EQ(gnss_getbitu(f, 14, 10), 0x13u);
    EXPECT_EQ(gnss_getbitu(f, 24, 12), 1005u);
}

TEST(GnssGetBitu, SixtyFourBits) {
    const uint8_t b[] = {0x80, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xFF, 0xC0};
    EXPECT_EQ(gnss_getbitu(b, 0, 64), 0x80010203040506FFull);
    EXPECT_EQ(gnss_getbitu(b, 2, 64), 0x0004080C10141BFFull);
}
