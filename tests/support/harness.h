// Runs the real vkagnss binary and compares its console output.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct ToolRun {
    std::string out;  // standard output
    std::string err;  // standard error
    int status = -1;  // exit status (or 128 + signal)
};

// Runs the program at path with args (argv[0] is added) and waits for it.
// started, when given, is called with the child's process id right after
// the start (for tests that signal the run).
ToolRun run_program(const char *path, const std::vector<std::string> &args,
                    const std::function<void(int pid)> &started = nullptr);

#ifdef VKAGNSS_BIN
// Runs the vkagnss binary of this build.
inline ToolRun run_tool(const std::vector<std::string> &args,
                        const std::function<void(int pid)> &started = nullptr) {
    return run_program(VKAGNSS_BIN, args, started);
}
#endif

// Replaces every "[ddd.ddd]" stamp by "[SSS.mmm]", every "[<ms clock>] " of
// an echoed reply by "[CLOCK] ", and the banner's build date and time by
// "<date> <time>" (after checking their form).
std::string mask(const std::string &out);

// Takes every echo of received text ("[CLOCK] " up to the next stamp, echo
// or the end) out of masked output, appending the echoed text to *echoed.
// How a reply is cut into reads depends on timing; the lines around do not.
std::string strip_echoes(const std::string &masked, std::string *echoed = nullptr);

// body + "*HH\r\n", the checksum computed here, independently of the tool.
std::string nmea_sentence(const std::string &body);

// Fresh temporary directory for one test, removed by remove_tree.
std::string make_temp_dir();
void remove_tree(const std::string &dir);
void write_file(const std::string &path, const std::vector<uint8_t> &bytes);
void write_file(const std::string &path, const std::string &text);
std::vector<uint8_t> read_file(const std::string &path);

// The two lines every run starts with, masked.
extern const char kBanner[];
