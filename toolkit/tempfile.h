// Temporary files that must not outlive the run: registered paths are removed
// when the caller is done with them, and also when the run is interrupted
// (SIGINT, SIGTERM or SIGHUP; Ctrl-C, Ctrl-Break or a console close on
// Windows; see core/interrupt.h).
#pragma once

// Registers path (copied; up to 1023 characters) for removal; false when the
// table is full or the path too long, in which case nothing is registered.
bool vk_temp_file_add(const char *path);
// Removes path from the disk and from the table.
void vk_temp_file_remove(const char *path);
