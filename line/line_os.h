// What the runner needs from the operating system: child processes whose
// stdout and stderr come back through one pipe, stop signals, the terminal,
// clocks and paths. line_os_posix.cpp and line_os_win32.cpp implement it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

// A running vkagnss.
struct LineProc;

// How a process ended.
struct ProcEnd {
    bool exited = false;  // it returned an exit status...
    int64_t status = 0;   // ...this one (all 32 bits on Windows)
    int signal = 0;       // or a signal ended it (POSIX)
};

// Starts exe with args (argv[0] is added), its stdout and stderr both into
// one pipe the runner reads, its stdin empty. POSIX: in a process group of
// its own (a Ctrl-C on the terminal reaches only the runner, which passes it
// on once), with the default action for SIGINT, SIGTERM and SIGHUP.
// Windows: in a new process group, so that a Ctrl-Break can be sent to it
// alone. Null with *error set when it cannot be started.
LineProc *proc_start(const std::string &exe, const std::vector<std::string> &args,
                     std::string *error);

// Waits at most timeout_ms for output from any of procs (or for a stop
// signal) and appends what came to (*chunks)[i] for procs[i].
void proc_read(const std::vector<LineProc *> &procs, int timeout_ms,
               std::vector<std::string> *chunks);

// True once the process's output pipe has closed and all of it was read.
bool proc_output_ended(const LineProc *p);

// True once the process has ended (*end then tells how); does not wait.
bool proc_try_wait(LineProc *p, ProcEnd *end);

// Passes a stop signal on: POSIX sends sig to the process's group; Windows
// a Ctrl-Break to it.
void proc_stop(LineProc *p, int sig);

// Ends the process at once (SIGKILL to its group, TerminateProcess).
void proc_kill(LineProc *p);

long proc_id(const LineProc *p);

// Releases what is left of a process that has ended.
void proc_free(LineProc *p);

// Takes over SIGINT, SIGTERM and SIGHUP (Ctrl-C, Ctrl-Break and closing the
// console on Windows): each only counts, the main loop acts.
void stop_signals_install();
// How many stop signals came, and the number of the first (POSIX numbering;
// Windows: 2 for Ctrl-C, 21 for Ctrl-Break, 1 for closing the console).
int stop_signal_count();
int stop_signal_first();
// Windows: tells a console-close handler that the runner has finished, so
// it need not keep the process alive any longer. No-op on POSIX.
void stop_signals_done();

// True when f is a terminal that can show the live view (on Windows the
// console's escape sequences are switched on for it here).
bool terminal_live(FILE *f);
// The terminal's size in columns and rows (80 by 24 when not known).
void terminal_size(FILE *f, size_t *cols, size_t *rows);

// Seconds on a monotonic clock; milliseconds since 1970 on the wall clock.
double mono_seconds();
int64_t wall_ms();

// The directory the runner's own executable lies in ("" when not known).
std::string self_dir(const char *argv0);
// The executable's file name on this OS: "vkagnss" or "vkagnss.exe".
std::string exe_name(const std::string &base);
// A file that can be run: exists and (POSIX) is executable.
bool runnable_file(const std::string &path);
// name looked up in the PATH directories; "" when not found.
std::string find_in_path(const std::string &name);
// The files that match a shell pattern. False with *error when the pattern
// matches nothing or cannot be expanded (always on Windows).
bool expand_glob(const std::string &pattern, std::vector<std::string> *paths, std::string *error);
// Opens a file for writing that child processes do not inherit.
FILE *open_private(const std::string &path);
