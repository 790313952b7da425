// GNSS time and coordinate conversions, and the RTCM bit-field reader.
#pragma once

#include <cstdint>

#include "core/log.h"  // VkDateTime

constexpr int64_t VK_GPS_EPOCH_UNIX = 315964800;  // 1980-01-06 00:00:00 UTC
constexpr uint32_t VK_SECONDS_PER_WEEK = 604800;
constexpr int64_t VK_BDT_UNIX_OFFSET = 1136073596;

int64_t gps_to_utc(uint32_t week, int32_t tow_s, int32_t leap_s);
int64_t bdt_to_unix(uint32_t week, int32_t tow_s);
// leap_table[11] holds the leap seconds.
double utc_to_milliseconds(const VkDateTime *utc, const int32_t *leap_table);
void convert_utc_to_gps(VkDateTime utc, uint32_t *week, double *tow_ms, const int32_t *leap_table);
void convert_gps_to_utc(uint32_t week, double tow_ms, uint32_t leap_s, VkDateTime *out);
double degrees_to_dmm(const char *degrees_text);
int32_t degrees_to_arcseconds(double degrees);
uint64_t gnss_getbitu(const uint8_t *buf, uint32_t pos, uint32_t len);
// Writes the low len bits of value at bit pos, most significant first (the
// RTCM 3 packing); the other bits of buf are left alone.
void gnss_setbitu(uint8_t *buf, uint32_t pos, uint32_t len, uint64_t value);

// Breaks Unix seconds down as UTC (no local zone) into *out (millisecond 0).
void vk_unix_to_utc(int64_t unix_s, VkDateTime *out);
// Calendar fields as UTC to Unix seconds.
int64_t vk_utc_to_unix(const VkDateTime *utc);
