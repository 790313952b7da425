// Log stamps differ from run to run: tests compare lines with every
// "[sss.mmm]" stamp (three or more digits, a dot, three digits) replaced by
// "[SSS.mmm]".
#pragma once

#include <string>

inline std::string mask_stamps(const std::string &s) {
    std::string out;
    size_t i = 0;
    while (i < s.size()) {
        size_t dot = s.find_first_not_of("0123456789", i + 1);
        bool stamp = s[i] == '[' && dot != std::string::npos && dot - i - 1 >= 3 && s[dot] == '.' &&
                     s.size() > dot + 4 && s[dot + 4] == ']' &&
                     s.find_first_not_of("0123456789", dot + 1) == dot + 4;
        if (stamp) {
            out += "[SSS.mmm]";
            i = dot + 5;
        } else {
            out += s[i++];
        }
    }
    return out;
}
