// What the runner shows: how a run ended, the bytes it counts, the summary as
// a table, CSV or JSON, and the live line of a port on a terminal with its
// progress bar, rate and time left. Pure: values in, text out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "line/line_output.h"

enum class RunResult {
    Success,      // final line SUCCESS and exit status 0
    Fail,         // a final line FAIL (or SUCCESS with a non-zero status)
    Interrupted,  // stopped by a signal the runner passed on, without SUCCESS
    NoResult,     // ended without a final line (crashed, killed)
    NotStarted,   // the tool could not be started
    NotRun,       // never started: the runner was stopped first
};

const char *run_result_name(RunResult r);

// How one run went, as the runner saw it.
struct RunOutcome {
    bool started = false;      // the process was created
    bool interrupted = false;  // the runner passed a stop signal on to it
    bool has_code = false;     // its final line was seen
    uint32_t code = 0;         // the result code that line named
    bool exited = false;       // it ended with an exit status...
    int64_t status = 0;        // ...this one
    int signal = 0;            // or was ended by this signal (POSIX)
};

RunResult judge_run(const RunOutcome &o);

// The bytes a run counts in the summary: for a SUCCESS run the total size of
// the files it names; otherwise what its last progress line reported as
// sent: its byte count when it has one, else its percentage of the one file
// the run names; 0 when neither is known (several files, no progress).
uint64_t run_bytes(RunResult r, uint64_t files_total, size_t file_count, bool has_progress,
                   const LineProgress &last);

// The bytes sent so far as a progress line tells them, when it can be known
// (the line's own count, or the percentage of a single named file).
bool progress_bytes(const LineProgress &p, uint64_t files_total, size_t file_count, uint64_t *sent,
                    uint64_t *total);

// One row of the summary.
struct SummaryRow {
    std::string port;
    RunResult result = RunResult::NotRun;
    bool has_code = false;
    uint32_t code = 0;
    bool has_status = false;  // exited with a status
    int64_t status = 0;
    int signal = 0;  // ended by a signal (no status)
    double seconds = 0;
    uint64_t bytes = 0;
    std::string log;  // the port's log file
};

// "0x206"; "none" when a run printed no final line; "-" when it never ran.
std::string code_text(const SummaryRow &r);
// "38"; "signal 9" for a run a signal ended; "-" when it never ran.
std::string status_text(const SummaryRow &r);

// The table: a header line, one line per port, then a count line such as
// "8 ports: 7 SUCCESS, 1 FAIL".
std::string format_table(const std::vector<SummaryRow> &rows);
// CSV with a header line: port,result,code,status,signal,seconds,bytes,log
// (code as "0x206" or empty, status and signal as numbers or empty).
std::string format_csv(const std::vector<SummaryRow> &rows);
// JSON: {"ports":[{"port":...,"result":...,"code":"0x206"|null,
// "status":38|null,"signal":2|null,"seconds":1.234,"bytes":9216,"log":...}],
// "total":8,"success":7,"interrupted_by":null|2}
std::string format_json(const std::vector<SummaryRow> &rows, int interrupted_by);

// Quoting for one CSV field (RFC 4180) and one JSON string (with its quotes).
std::string csv_field(const std::string &s);
std::string json_string(const std::string &s);

// The rate of a transfer from the values it reported over time (percent or
// bytes, rising): the last few seconds of reports are kept, and a value that
// falls (the next file of a run starts again at 0) starts afresh.
struct RateMeter {
    struct Sample {
        double t;
        double value;
    };
    std::vector<Sample> samples;
};

void rate_add(RateMeter &m, double t, double value);
// Units per second from the oldest kept report to now; negative while not
// known (no report, or less than 0.2 s since the oldest kept one).
double rate_per_second(const RateMeter &m, double now);
// Seconds left at that rate to reach target; negative when not known.
double time_left(const RateMeter &m, double now, double target);

// "[#######.............]": cells of '#' for the share done, '.' for the rest.
std::string progress_bar(double percent, size_t cells);
// "850 B/s", "11.2 kB/s", "1.20 MB/s"; "3.4 %/s" when the rate is in percent.
std::string format_rate(double rate, bool bytes);
// "0:07", "12:03", "1:02:03".
std::string format_duration(double seconds);
// A tool line without its "[ddd.ddd]" stamp at the front.
std::string without_stamp(std::string_view line);

// What a port's live line shows.
struct LiveLine {
    enum class State { Waiting, Running, Done } state = State::Waiting;
    std::string port;
    double elapsed = 0;  // seconds since its start (its duration once done)
    bool has_progress = false;
    double percent = 0;
    double rate = -1;  // negative: not known
    bool rate_in_bytes = false;
    double left = -1;       // seconds left; negative: not known
    std::string activity;   // its last line, stamp removed, while it shows no progress
    bool stopping = false;  // a stop signal was passed on to it
    SummaryRow row;         // once done
};

// The line, cut to width characters; the port name padded to port_width.
std::string render_live_line(const LiveLine &l, size_t port_width, size_t width);
