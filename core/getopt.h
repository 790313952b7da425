// A small POSIX getopt, the same on every OS.
//
// Unlike the GNU and mingw versions it never reorders argv: parsing ends at
// the first argument that is neither an option nor an option's value. A
// letter followed by "::" takes a value only when it is attached (-sCOLD);
// a letter followed by ':' takes the attached text or else the next argument.
#pragma once

extern char *vk_optarg;  // value of the last option, or null
extern int vk_optind;    // index of the next argument to look at
extern int vk_optopt;    // the letter of the last unknown option

// Starts a new parse from argv[1].
void vk_getopt_reset();
// Returns the next option letter, '?' for an unknown letter or a missing
// value (reported on stderr), or -1 when the options end.
int vk_getopt(int argc, char *const argv[], const char *optstring);
