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

// Runs the program at path (a bare name is looked up on PATH) with args
// (argv[0] is added) and waits for it. started, when given, is called with
// the child's process id right after the start (for tests that signal the run).
ToolRun run_program(const char *path, const std::vector<std::string> &args,
                    const std::function<void(int pid)> &started = nullptr);

// The same tests prove the Windows build: with VK_TEST_WINE set to the path
// of vkagnss.exe (and WINEPREFIX to a wine prefix), the tool is that program
// run by wine, and a receiver's port is a COM port of the prefix.
bool under_wine();

// The exit status the host sees for a result, by the rule of the OS under
// test. Natively vk_exit_status. On Windows the exit code is the whole 32-bit
// result, and wine hands its host only the low byte, 1 where that byte is 0
// (0x104 -> 4, 0x200 -> 1, 0xFFFFFFFF -> 255; 0 stays 0).
int expected_status(uint32_t result);

// The status the host sees when signal sig ends a run. Natively 128 + sig.
// Under wine only SIGINT reaches the program, as the console's Ctrl-C, and a
// Windows console program ended by Ctrl-C exits with STATUS_CONTROL_C_EXIT
// (0xC000013A, so 0x3A); any other signal (SIGTERM, SIGHUP) kills the wine
// process itself, without the tool's clean-up, and the host sees 128 + sig.
int expected_interrupt_status(int sig);

// Runs the tool: native_path natively, vkagnss.exe through wine under wine.
ToolRun run_tool_at(const char *native_path, const std::vector<std::string> &args,
                    const std::function<void(int pid)> &started = nullptr);

#ifdef VKAGNSS_BIN
// Runs the vkagnss binary of this build (or the Windows one under wine).
inline ToolRun run_tool(const std::vector<std::string> &args,
                        const std::function<void(int pid)> &started = nullptr) {
    return run_tool_at(VKAGNSS_BIN, args, started);
}
#endif

// The port name that reaches the serial device at device_path: the path
// itself natively; under wine a fresh "COMn" (n from 10 to 255, free at the
// time) whose link $WINEPREFIX/dosdevices/comn points at the device. Empty
// when no name is free. Give the name back with release_port.
std::string port_for_device(const std::string &device_path);
// Removes the link behind a name from port_for_device (nothing natively).
void release_port(const std::string &port);

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
