// Reading what a vkagnss run prints, and writing it to the run's log: the
// progress lines, the final SUCCESS/FAIL line, the split into lines, the
// wall-clock prefix of each log line, and the small text helpers around them
// (safe log file names, the files a run names, Windows command lines).
// Everything here is pure: text in, text or values out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What one progress line said. The tool prints "[PROGRESS] 12.34%" (the EPO
// engine, YMODEM, the HD and TQ934N transfers, STA8100 text files) or
// "[PROGRESS] 12.34%,sent,total" with byte counts (the DW2207B and STA8100
// RTCM streams); an "upgrade percent: " may stand before the number.
struct LineProgress {
    double percent = 0;
    bool has_bytes = false;  // sent and total were on the line
    int64_t sent = 0;
    int64_t total = 0;
};

// The last progress report on a line (a line that lacks its own line end may
// carry several). False when the line holds none.
bool parse_progress_line(std::string_view line, LineProgress *out);

// The result code a final line names: "[SUCCESS] vkagnss run success" gives
// 0, "[FAIL] vkagnss run fail,ret:[0x206]" gives 0x206. When both stand on
// one line the later one counts. False when the line holds neither.
bool parse_final_line(std::string_view line, uint32_t *code);

// Cuts a byte stream into lines. "\n", "\r\n" and a lone "\r" each end a
// line; the line ends are not kept and blank lines are dropped (the tool
// follows each echoed reply with one). A line longer than kMaxLine is
// handed on in pieces of that size.
struct LineSplitter {
    static constexpr size_t kMaxLine = 64 * 1024;
    std::string pending;
    bool after_cr = false;  // the last byte was '\r': a '\n' right after it ends nothing
};

// Feeds bytes; appends every line they complete to *lines.
void line_split_feed(LineSplitter &s, std::string_view bytes, std::vector<std::string> *lines);
// At the end of the stream: the unfinished last line, if any, becomes a line.
void line_split_finish(LineSplitter &s, std::vector<std::string> *lines);

// "2026-01-08T09:59:17.123Z": UTC, milliseconds, from milliseconds since 1970.
std::string iso8601_utc_ms(int64_t ms_since_epoch);
// "20260108T095917Z": the same instant in ISO 8601 basic form to the second,
// usable as a file name on every OS.
std::string iso8601_basic_utc(int64_t ms_since_epoch);

// One log line: "<stamp> <port> | <text>" for what the tool printed.
std::string log_tool_line(const std::string &stamp, const std::string &port, std::string_view text);
// One note of the runner in the same log: "<stamp> <port> # <text>".
std::string log_note_line(const std::string &stamp, const std::string &port, std::string_view text);

// A log file name for each port, in the same order: the port name with every
// run of characters other than letters, digits, '.', '-' and '_' made one
// '_', leading and trailing '_' dropped ("/dev/ttyUSB0" -> "dev_ttyUSB0"),
// a '_' appended to a device name Windows reserves ("COM3" -> "COM3_"),
// "-2", "-3", ... added where two ports would share a name; then ".log".
std::vector<std::string> log_file_names(const std::vector<std::string> &ports);

// The files a vkagnss argument list names with -f: the value of the last -f
// (attached, "-fA.DAT,B.DAT", or as the next word), split at commas, empty
// names left out.
std::vector<std::string> named_files(const std::vector<std::string> &tool_args);

// The argument list for the tool: "-p PORT" first, then the arguments given
// after "--" unchanged (the tool's option parsing stops at the first word
// that is not an option, so the port goes in front).
std::vector<std::string> tool_arguments(const std::string &port,
                                        const std::vector<std::string> &args);

// One argument quoted for a Windows command line, so that the C runtime's
// parser gives it back unchanged: as it is when it holds no blank, tab,
// newline or '"' and is not empty; else in quotes, each '"' escaped with a
// backslash and the backslashes before a '"' or the closing quote doubled.
std::string windows_quote_arg(const std::string &arg);
// The whole command line: each argument quoted so, separated by blanks.
std::string windows_command_line(const std::vector<std::string> &argv);
