// File helpers shared by the sample-data generator tests.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace gen_test {

// The whole file; empty when it cannot be read.
inline std::vector<uint8_t> read_file(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(f)),
                                std::istreambuf_iterator<char>());
}

inline bool is_file(const std::string &path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

inline bool is_dir(const std::string &path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Creates a new empty file /tmp/<tag>_XXXXXX and returns its path; empty on
// failure. The caller removes it.
inline std::string make_temp_file(const char *tag) {
    std::string path = std::string("/tmp/") + tag + "_XXXXXX";
    const int fd = ::mkstemp(&path[0]);
    if (fd < 0) return std::string();
    ::close(fd);
    return path;
}

}  // namespace gen_test
