// Text read as integers the same way on every OS. glibc and the Windows C
// library (msvcrt, and mingw's own scanf) agree on every number that fits in
// 32 bits and differ on the others; the tool's output must not.
#pragma once

// atoi as glibc has it: the leading decimal number (after blanks, with an
// optional sign) read in 64 bits, the largest 64-bit value standing for any
// larger one, then kept to its low 32 bits. msvcrt's atoi goes on counting
// in 32 bits past the 64-bit range.
int vk_atoi(const char *text);

// sscanf for a format of "%d" conversions and plain characters (the date and
// time texts), each number read as vk_atoi reads it: mingw's sscanf stops a
// number at the 32-bit limits where glibc's keeps its low 32 bits. Returns
// the count of numbers stored, or -1 when the text ends before the first.
int vk_scan_ints(const char *text, const char *format, ...) __attribute__((format(scanf, 2, 3)));
