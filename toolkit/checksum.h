// Integrity checks shared by every backend. Pure functions; none allocates or prints.
#pragma once

#include <cstdint>

// XOR of every character after the leading '$' of a non-empty sentence body
// (which must not yet hold '*').
int Vk_NMEA_Support_Checksum(const char *sentence);
// 8-bit XOR of all bytes; 0 for a null pointer or zero length.
uint8_t Vk_Check_XOR(const uint8_t *data, uint32_t len);
// 8-bit two-sum (Fletcher) over bytes 2 .. len-1: b << 8 | a.
// 0 for a null pointer or len <= 3. Not a CRC despite its name.
uint16_t Vk_Check_Crc16(const uint8_t *data, uint32_t len);
// The same two-sum, used by the HD/MJ binary frames.
uint16_t Vk_Check_Varnok(const uint8_t *data, uint32_t len);
// 8-bit Fletcher sum over all len bytes: a and b start at 0, a += byte and
// b += a for each byte, both modulo 256; returns b << 8 | a. 0 for a null pointer.
uint16_t Vk_Fletcher8(const uint8_t *data, uint32_t len);
// CRC-24Q (RTCM 3), initial value 0; the seed is accepted and not used.
uint32_t Vk_Check_CRC24Q(uint32_t seed, const uint8_t *data, uint32_t len);
// CRC-16/XMODEM.
uint16_t Vk_CRC16_Calc(const uint8_t *data, uint32_t len);

// Appends "*%02X\r\n" with the body's checksum to the NUL-terminated body in
// buf (capacity cap). Returns the new length, or 0 if it does not fit.
uint32_t Vk_NMEA_AppendTrailer(char *buf, uint32_t cap);
