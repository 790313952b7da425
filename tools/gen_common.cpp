// Shared pieces of the sample-data generators. See gen_common.h.
#include "tools/gen_common.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

bool gen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err) {
    std::FILE *f = std::fopen(path, "wb");
    if (!f) {
        if (err) *err = std::string("cannot open ") + path + ": " + std::strerror(errno);
        return false;
    }
    const size_t n = bytes.empty() ? 0 : std::fwrite(bytes.data(), 1, bytes.size(), f);
    const bool closed = std::fclose(f) == 0;
    if (n != bytes.size() || !closed) {
        if (err) *err = std::string("cannot write ") + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}
