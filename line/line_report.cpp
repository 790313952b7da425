#include "line/line_report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

std::string hex_code(uint32_t code) {
    char buf[16];
    snprintf(buf, sizeof buf, "0x%x", unsigned(code));
    return buf;
}

std::string fixed(double v, int decimals) {
    char buf[48];
    snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return buf;
}

std::string pad(const std::string &s, size_t width) {
    return s.size() >= width ? s : s + std::string(width - s.size(), ' ');
}

}  // namespace

const char *run_result_name(RunResult r) {
    switch (r) {
        case RunResult::Success: return "SUCCESS";
        case RunResult::Fail: return "FAIL";
        case RunResult::Interrupted: return "INTERRUPTED";
        case RunResult::NoResult: return "NO RESULT";
        case RunResult::NotStarted: return "NOT STARTED";
        case RunResult::NotRun: return "NOT RUN";
    }
    return "?";
}

RunResult judge_run(const RunOutcome &o) {
    if (!o.started) return o.interrupted ? RunResult::NotRun : RunResult::NotStarted;
    if (o.has_code && o.code == 0 && o.exited && o.status == 0) return RunResult::Success;
    if (o.interrupted) return RunResult::Interrupted;
    if (o.has_code) return RunResult::Fail;
    return RunResult::NoResult;
}

uint64_t run_bytes(RunResult r, uint64_t files_total, size_t file_count, bool has_progress,
                   const LineProgress &last) {
    if (r == RunResult::Success) return files_total;
    uint64_t sent = 0, total = 0;
    if (has_progress && progress_bytes(last, files_total, file_count, &sent, &total)) return sent;
    return 0;
}

bool progress_bytes(const LineProgress &p, uint64_t files_total, size_t file_count, uint64_t *sent,
                    uint64_t *total) {
    if (p.has_bytes && p.total > 0) {
        *total = uint64_t(p.total);
        *sent = uint64_t(std::clamp<int64_t>(p.sent, 0, p.total));
        return true;
    }
    if (file_count == 1 && files_total > 0) {
        double share = std::clamp(p.percent, 0.0, 100.0) / 100.0;
        *total = files_total;
        *sent = uint64_t(std::floor(share * double(files_total)));
        return true;
    }
    return false;
}

std::string code_text(const SummaryRow &r) {
    if (r.has_code) return hex_code(r.code);
    if (r.result == RunResult::NotRun || r.result == RunResult::NotStarted) return "-";
    return "none";
}

std::string status_text(const SummaryRow &r) {
    if (r.has_status) return std::to_string(r.status);
    if (r.signal != 0) return "signal " + std::to_string(r.signal);
    return "-";
}

std::string format_table(const std::vector<SummaryRow> &rows) {
    std::vector<std::vector<std::string>> cells = {
        {"PORT", "RESULT", "CODE", "STATUS", "SECONDS", "BYTES"}};
    for (const SummaryRow &r : rows) {
        cells.push_back({r.port, run_result_name(r.result), code_text(r), status_text(r),
                         fixed(r.seconds, 2), std::to_string(r.bytes)});
    }
    std::vector<size_t> width(cells[0].size(), 0);
    for (const auto &line : cells)
        for (size_t c = 0; c < line.size(); ++c) width[c] = std::max(width[c], line[c].size());
    std::string out;
    for (const auto &line : cells) {
        std::string text;
        for (size_t c = 0; c < line.size(); ++c) {
            bool last = c + 1 == line.size();
            bool number = c >= 4;  // seconds and bytes line up on the right
            if (number && line[c].size() < width[c])
                text += std::string(width[c] - line[c].size(), ' ');
            text += line[c];
            if (!number && !last) text += std::string(width[c] - line[c].size(), ' ');
            if (!last) text += "  ";
        }
        out += text + "\n";
    }
    // The count line names every result that occurred, in a fixed order.
    const RunResult order[] = {RunResult::Success,  RunResult::Fail,       RunResult::Interrupted,
                               RunResult::NoResult, RunResult::NotStarted, RunResult::NotRun};
    std::string counts;
    for (RunResult kind : order) {
        size_t n = size_t(std::count_if(rows.begin(), rows.end(),
                                        [&](const SummaryRow &r) { return r.result == kind; }));
        if (n == 0) continue;
        counts += (counts.empty() ? "" : ", ") + std::to_string(n) + " " + run_result_name(kind);
    }
    out += std::to_string(rows.size()) + (rows.size() == 1 ? " port" : " ports") +
           (counts.empty() ? "" : ": " + counts) + "\n";
    return out;
}

std::string csv_field(const std::string &s) {
    if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
    std::string out = "\"";
    for (char c : s) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

std::string format_csv(const std::vector<SummaryRow> &rows) {
    std::string out = "port,result,code,status,signal,seconds,bytes,log\n";
    for (const SummaryRow &r : rows) {
        out += csv_field(r.port) + "," + run_result_name(r.result) + "," +
               (r.has_code ? hex_code(r.code) : "") + "," +
               (r.has_status ? std::to_string(r.status) : "") + "," +
               (r.signal != 0 ? std::to_string(r.signal) : "") + "," + fixed(r.seconds, 3) + "," +
               std::to_string(r.bytes) + "," + csv_field(r.log) + "\n";
    }
    return out;
}

std::string json_string(const std::string &s) {
    std::string out = "\"";
    for (char c : s) {
        unsigned char u = static_cast<unsigned char>(c);
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (u < 0x20) {
                    char buf[8];
                    snprintf(buf, sizeof buf, "\\u%04x", unsigned(u));
                    out += buf;
                } else {
                    out += c;
                }
        }
    }
    return out + "\"";
}

std::string format_json(const std::vector<SummaryRow> &rows, int interrupted_by) {
    std::string out = "{\n  \"ports\": [";
    size_t success = 0;
    for (size_t i = 0; i < rows.size(); ++i) {
        const SummaryRow &r = rows[i];
        if (r.result == RunResult::Success) ++success;
        out += i == 0 ? "\n" : ",\n";
        out += "    {\"port\": " + json_string(r.port) +
               ", \"result\": " + json_string(run_result_name(r.result)) +
               ", \"code\": " + (r.has_code ? json_string(hex_code(r.code)) : "null") +
               ", \"status\": " + (r.has_status ? std::to_string(r.status) : "null") +
               ", \"signal\": " + (r.signal != 0 ? std::to_string(r.signal) : "null") +
               ", \"seconds\": " + fixed(r.seconds, 3) + ", \"bytes\": " + std::to_string(r.bytes) +
               ", \"log\": " + json_string(r.log) + "}";
    }
    out += rows.empty() ? "],\n" : "\n  ],\n";
    out += "  \"total\": " + std::to_string(rows.size()) + ",\n";
    out += "  \"success\": " + std::to_string(success) + ",\n";
    out += "  \"interrupted_by\": " +
           (interrupted_by != 0 ? std::to_string(interrupted_by) : std::string("null")) + "\n}\n";
    return out;
}

void rate_add(RateMeter &m, double t, double value) {
    if (!m.samples.empty() && value < m.samples.back().value) m.samples.clear();
    m.samples.push_back({t, value});
    constexpr double kWindow = 5.0;
    while (m.samples.size() > 2 && m.samples[1].t < t - kWindow) m.samples.erase(m.samples.begin());
}

double rate_per_second(const RateMeter &m, double now) {
    if (m.samples.empty()) return -1;  // one report: 0 once time has passed (a stall shows)
    double dt = now - m.samples.front().t;
    if (dt < 0.2) return -1;
    return (m.samples.back().value - m.samples.front().value) / dt;
}

double time_left(const RateMeter &m, double now, double target) {
    double rate = rate_per_second(m, now);
    if (rate <= 0) return -1;
    return std::max(0.0, target - m.samples.back().value) / rate;
}

std::string progress_bar(double percent, size_t cells) {
    double share = std::clamp(percent, 0.0, 100.0) / 100.0;
    size_t done = size_t(std::floor(share * double(cells)));
    return "[" + std::string(done, '#') + std::string(cells - done, '.') + "]";
}

std::string format_rate(double rate, bool bytes) {
    if (!bytes) return fixed(rate, 1) + " %/s";
    if (rate < 1000) return fixed(rate, 0) + " B/s";
    if (rate < 1000 * 1000) return fixed(rate / 1000, 1) + " kB/s";
    return fixed(rate / 1e6, 2) + " MB/s";
}

std::string format_duration(double seconds) {
    long s = long(std::lround(std::max(0.0, seconds)));
    char buf[32];
    if (s >= 3600) {
        snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    } else {
        snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
    }
    return buf;
}

std::string without_stamp(std::string_view line) {
    // "[ddd.ddd]": three or more digits, a dot, three digits.
    if (line.size() >= 9 && line[0] == '[') {
        size_t dot = line.find('.');
        size_t close = line.find(']');
        if (dot != std::string_view::npos && close == dot + 4 && dot >= 4) {
            bool digits = true;
            for (size_t i = 1; i < close; ++i)
                if (i != dot && (line[i] < '0' || line[i] > '9')) digits = false;
            if (digits) {
                line.remove_prefix(close + 1);
                while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
            }
        }
    }
    return std::string(line);
}

std::string render_live_line(const LiveLine &l, size_t port_width, size_t width) {
    std::string text = pad(l.port, port_width) + "  ";
    switch (l.state) {
        case LiveLine::State::Waiting: text += "waiting"; break;
        case LiveLine::State::Done: {
            const SummaryRow &r = l.row;
            text += pad(run_result_name(r.result), 11) + " code " + code_text(r) + ", status " +
                    status_text(r) + ", " + fixed(r.seconds, 2) + " s";
            break;
        }
        case LiveLine::State::Running:
            if (l.has_progress) {
                text += progress_bar(l.percent, 20) + " " + pad(fixed(l.percent, 1) + "%", 6);
                text +=
                    "  " + (l.rate >= 0 ? format_rate(l.rate, l.rate_in_bytes) : std::string("-"));
                text += "  " + (l.left >= 0 ? format_duration(l.left) + " left" : std::string("-"));
            } else {
                text += format_duration(l.elapsed) + "  " +
                        (l.activity.empty() ? "starting" : l.activity);
            }
            if (l.stopping) text += "  (stopping)";
            break;
    }
    if (text.size() > width) text.resize(width);
    return text;
}
