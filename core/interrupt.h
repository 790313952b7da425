// Interrupted runs: SIGINT, SIGTERM and SIGHUP on POSIX (Ctrl-C, Ctrl-Break
// and a console close on Windows) end the run at its next read, write or
// pause. The handler only takes note; the run itself, at that next point,
// gives back what it holds (ports, temporary files: whatever registered a
// cleanup), prints a stamped "[ERROR] interrupted by signal N" and the FAIL
// line, and exits.
//
// The FAIL line's code is VK_INTERRUPTED_BASE + N on POSIX, which the usual
// exit-status rule turns into 128 + N (130 for SIGINT, 143 for SIGTERM, 129
// for SIGHUP); on Windows it is STATUS_CONTROL_C_EXIT, the exit code a
// console program stopped by Ctrl-C has there.
#pragma once

#include <cstdint>

// Takes over the three signals (a signal the caller already ignores stays
// ignored). Safe to call more than once.
void vk_interrupt_install();

// 0 while no signal has come, else its number.
int vk_interrupt_signal();

// POSIX: a descriptor that turns readable once a signal has come, for the
// waits to poll along with their own (-1 before vk_interrupt_install).
int vk_interrupt_fd();

// Windows: an event handle that is set once a signal has come (null before
// vk_interrupt_install); the waits wait on it along with their own.
void *vk_interrupt_event();

// Registers a function that gives something back when a run is interrupted
// (ports, temporary files); up to eight, run newest first. Returns false when
// the table is full. Registering the same function twice keeps one entry.
bool vk_interrupt_cleanup(void (*cleanup)());

// Runs the cleanups, prints the two lines and exits. Only for a signal that
// has come (vk_interrupt_signal() != 0).
[[noreturn]] void vk_interrupt_finish();

// The point where a run gives way to a signal: call at each read, write and
// pause. Returns normally when no signal has come.
inline void vk_interrupt_point() {
    if (vk_interrupt_signal() != 0) vk_interrupt_finish();
}

// The FAIL line's code of a run ended by signal sig (see above).
uint32_t vk_interrupt_result(int sig);
