#include "line/line_output.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>

namespace {

// A decimal number such as "12.34" at s[pos]; pos moves past it.
bool read_decimal(std::string_view s, size_t *pos, double *out) {
    size_t end = *pos;
    while (end < s.size() && (std::isdigit(static_cast<unsigned char>(s[end])) || s[end] == '.'))
        ++end;
    if (end == *pos || !std::isdigit(static_cast<unsigned char>(s[*pos]))) return false;
    auto r = std::from_chars(s.data() + *pos, s.data() + end, *out);
    if (r.ec != std::errc() || r.ptr != s.data() + end) return false;
    *pos = end;
    return true;
}

// A whole number, possibly negative, at s[pos]; pos moves past it.
bool read_integer(std::string_view s, size_t *pos, int64_t *out) {
    auto r = std::from_chars(s.data() + *pos, s.data() + s.size(), *out);
    if (r.ec != std::errc()) return false;
    *pos = size_t(r.ptr - s.data());
    return true;
}

// The progress report that starts right after a "[PROGRESS]" tag at pos.
bool parse_progress_at(std::string_view s, size_t pos, LineProgress *out) {
    while (pos < s.size() && s[pos] == ' ') ++pos;
    constexpr std::string_view kUpgrade = "upgrade percent:";
    if (s.substr(pos, kUpgrade.size()) == kUpgrade) {
        pos += kUpgrade.size();
        while (pos < s.size() && s[pos] == ' ') ++pos;
    }
    LineProgress p;
    if (!read_decimal(s, &pos, &p.percent)) return false;
    if (pos >= s.size() || s[pos] != '%') return false;
    ++pos;
    if (pos < s.size() && s[pos] == ',') {
        size_t at = pos + 1;
        int64_t sent = 0, total = 0;
        if (read_integer(s, &at, &sent) && at < s.size() && s[at] == ',' &&
            (++at, read_integer(s, &at, &total))) {
            p.has_bytes = true;
            p.sent = sent;
            p.total = total;
        }
    }
    *out = p;
    return true;
}

bool is_safe_name_char(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '-' || c == '_';
}

std::string lower(std::string s) {
    for (char &c : s) c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// CON, PRN, AUX, NUL, COM0-9 and LPT0-9 name devices on Windows, with any
// extension after them.
bool windows_reserved_stem(const std::string &stem) {
    std::string s = lower(stem);
    if (s == "con" || s == "prn" || s == "aux" || s == "nul") return true;
    return s.size() == 4 && (s.compare(0, 3, "com") == 0 || s.compare(0, 3, "lpt") == 0) &&
           std::isdigit(static_cast<unsigned char>(s[3]));
}

std::string safe_base(const std::string &port) {
    std::string out;
    bool in_run = false;
    for (char c : port) {
        if (is_safe_name_char(c)) {
            out += c;
            in_run = false;
        } else if (!in_run) {
            out += '_';
            in_run = true;
        }
    }
    size_t first = out.find_first_not_of("._");
    if (first == std::string::npos) return "port";
    size_t last = out.find_last_not_of("._");
    out = out.substr(first, last - first + 1);
    size_t dot = out.find('.');
    if (windows_reserved_stem(out.substr(0, dot)))
        out.insert(dot == std::string::npos ? out.size() : dot, "_");
    return out;
}

}  // namespace

bool parse_progress_line(std::string_view line, LineProgress *out) {
    constexpr std::string_view kTag = "[PROGRESS]";
    size_t at = line.rfind(kTag);
    while (at != std::string_view::npos) {
        if (parse_progress_at(line, at + kTag.size(), out)) return true;
        if (at == 0) break;
        at = line.rfind(kTag, at - 1);
    }
    return false;
}

bool parse_final_line(std::string_view line, uint32_t *code) {
    constexpr std::string_view kSuccess = "[SUCCESS] vkagnss run success";
    constexpr std::string_view kFail = "[FAIL] vkagnss run fail,ret:[0x";
    size_t ok = line.rfind(kSuccess);
    size_t fail = line.rfind(kFail);
    if (fail != std::string_view::npos && (ok == std::string_view::npos || fail > ok)) {
        size_t pos = fail + kFail.size();
        size_t end = line.find(']', pos);
        uint32_t value = 0;
        if (end != std::string_view::npos && end > pos) {
            auto r = std::from_chars(line.data() + pos, line.data() + end, value, 16);
            if (r.ec == std::errc() && r.ptr == line.data() + end) {
                *code = value;
                return true;
            }
        }
        // A damaged FAIL line: fall back on a SUCCESS line before it.
    }
    if (ok != std::string_view::npos) {
        *code = 0;
        return true;
    }
    return false;
}

void line_split_feed(LineSplitter &s, std::string_view bytes, std::vector<std::string> *lines) {
    for (char c : bytes) {
        bool was_cr = s.after_cr;
        s.after_cr = c == '\r';
        if (c == '\n' && was_cr) continue;  // the second half of "\r\n"
        if (c == '\n' || c == '\r') {
            if (!s.pending.empty()) lines->push_back(std::move(s.pending));
            s.pending.clear();
            continue;
        }
        s.pending += c;
        if (s.pending.size() >= LineSplitter::kMaxLine) {
            lines->push_back(std::move(s.pending));
            s.pending.clear();
        }
    }
}

void line_split_finish(LineSplitter &s, std::vector<std::string> *lines) {
    if (!s.pending.empty()) lines->push_back(std::move(s.pending));
    s.pending.clear();
    s.after_cr = false;
}

namespace {

struct CivilTime {
    int64_t year;
    unsigned month, day, hour, minute, second, ms;
};

// Days since 1970-01-01 to a proleptic Gregorian date (the well-known
// era-based conversion, exact for every day).
CivilTime civil_from_ms(int64_t ms_since_epoch) {
    int64_t ms = ms_since_epoch % 1000;
    int64_t secs = ms_since_epoch / 1000;
    if (ms < 0) {
        ms += 1000;
        secs -= 1;
    }
    int64_t days = secs / 86400;
    int64_t rem = secs % 86400;
    if (rem < 0) {
        rem += 86400;
        days -= 1;
    }
    int64_t z = days + 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    CivilTime t{};
    t.day = unsigned(doy - (153 * mp + 2) / 5 + 1);
    t.month = unsigned(mp < 10 ? mp + 3 : mp - 9);
    t.year = yoe + era * 400 + (t.month <= 2 ? 1 : 0);
    t.hour = unsigned(rem / 3600);
    t.minute = unsigned(rem / 60 % 60);
    t.second = unsigned(rem % 60);
    t.ms = unsigned(ms);
    return t;
}

}  // namespace

std::string iso8601_utc_ms(int64_t ms_since_epoch) {
    CivilTime t = civil_from_ms(ms_since_epoch);
    char buf[48];
    snprintf(buf, sizeof buf, "%04lld-%02u-%02uT%02u:%02u:%02u.%03uZ", (long long)t.year, t.month,
             t.day, t.hour, t.minute, t.second, t.ms);
    return buf;
}

std::string iso8601_basic_utc(int64_t ms_since_epoch) {
    CivilTime t = civil_from_ms(ms_since_epoch);
    char buf[40];
    snprintf(buf, sizeof buf, "%04lld%02u%02uT%02u%02u%02uZ", (long long)t.year, t.month, t.day,
             t.hour, t.minute, t.second);
    return buf;
}

std::string log_tool_line(const std::string &stamp, const std::string &port,
                          std::string_view text) {
    return stamp + " " + port + " | " + std::string(text) + "\n";
}

std::string log_note_line(const std::string &stamp, const std::string &port,
                          std::string_view text) {
    return stamp + " " + port + " # " + std::string(text) + "\n";
}

std::vector<std::string> log_file_names(const std::vector<std::string> &ports) {
    std::vector<std::string> names;
    std::vector<std::string> taken;  // lower case: some file systems ignore case
    for (const std::string &port : ports) {
        std::string base = safe_base(port);
        std::string name = base;
        for (int n = 2; std::find(taken.begin(), taken.end(), lower(name)) != taken.end(); ++n)
            name = base + "-" + std::to_string(n);
        taken.push_back(lower(name));
        names.push_back(name + ".log");
    }
    return names;
}

std::vector<std::string> named_files(const std::vector<std::string> &tool_args) {
    std::string value;
    bool found = false;
    for (size_t i = 0; i < tool_args.size(); ++i) {
        const std::string &a = tool_args[i];
        if (a == "-f" && i + 1 < tool_args.size()) {
            value = tool_args[++i];
            found = true;
        } else if (a.size() > 2 && a.compare(0, 2, "-f") == 0) {
            value = a.substr(2);
            found = true;
        }
    }
    std::vector<std::string> files;
    if (!found) return files;
    size_t start = 0;
    for (;;) {
        size_t comma = value.find(',', start);
        std::string name = value.substr(start, comma == std::string::npos ? comma : comma - start);
        if (!name.empty()) files.push_back(name);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return files;
}

std::vector<std::string> tool_arguments(const std::string &port,
                                        const std::vector<std::string> &args) {
    std::vector<std::string> out = {"-p", port};
    out.insert(out.end(), args.begin(), args.end());
    return out;
}

std::string windows_quote_arg(const std::string &arg) {
    if (!arg.empty() && arg.find_first_of(" \t\n\v\"") == std::string::npos) return arg;
    std::string out = "\"";
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        while (i < arg.size() && arg[i] == '\\') {
            ++backslashes;
            ++i;
        }
        if (i == arg.size()) {
            out.append(backslashes * 2, '\\');  // the closing quote must stay a quote
            break;
        }
        if (arg[i] == '"') {
            out.append(backslashes * 2 + 1, '\\');
        } else {
            out.append(backslashes, '\\');
        }
        out += arg[i];
    }
    out += '"';
    return out;
}

std::string windows_command_line(const std::vector<std::string> &argv) {
    std::string line;
    for (const std::string &a : argv) {
        if (!line.empty()) line += ' ';
        line += windows_quote_arg(a);
    }
    return line;
}
