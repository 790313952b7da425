// Pieces both sample-data generators (RTCM 3 and EPO) are built from: the
// pseudo-random sequence behind every seed-driven value, and writing a
// generated file to disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// splitmix64: advances state and returns the next value. Plain integer
// arithmetic, so a seed gives the same bytes on every platform and library.
inline uint64_t gen_splitmix64(uint64_t &state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// Writes bytes to path (created or truncated; an empty vector gives an
// empty file). False on failure, with "cannot open PATH: REASON" or
// "cannot write PATH: REASON" in *err if err is given.
bool gen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err);
