#include "core/number.h"

#include <cctype>
#include <cstdarg>
#include <cstdlib>

namespace {

// One number at *s as vk_atoi reads it; false (s unmoved) when no digit comes.
bool read_int(const char **s, int *value) {
    char *end = nullptr;
    const long long v = std::strtoll(*s, &end, 10);
    if (end == *s) return false;
    *s = end;
    *value = int(v);  // the low 32 bits
    return true;
}

}  // namespace

int vk_atoi(const char *text) {
    int value = 0;
    return read_int(&text, &value) ? value : 0;
}

int vk_scan_ints(const char *text, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    int stored = 0;
    const char *s = text;
    for (const char *f = format; *f != '\0'; ++f) {
        if (f[0] == '%' && f[1] == 'd') {
            ++f;
            while (std::isspace(static_cast<unsigned char>(*s))) ++s;
            if (*s == '\0' && stored == 0) stored = -1;  // input ended before the first
            int value = 0;
            if (!read_int(&s, &value)) break;
            *va_arg(ap, int *) = value;
            ++stored;
        } else if (std::isspace(static_cast<unsigned char>(*f))) {
            while (std::isspace(static_cast<unsigned char>(*s))) ++s;
        } else if (*s == *f) {
            ++s;
        } else {
            break;
        }
    }
    va_end(ap);
    return stored;
}
