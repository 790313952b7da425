// A small POSIX getopt, the same on every OS.
//
// Unlike the GNU and mingw versions it never reorders argv: parsing ends at
// the first argument that is neither an option nor an option's value. A
// letter followed by "::" takes a value only when it is attached (-sCOLD);
// a letter followed by ':' takes the attached text or else the next argument.
#pragma once

#include <string>

extern char *vk_optarg;  // value of the last option, or null
extern int vk_optind;    // index of the next argument to look at
extern int vk_optopt;    // the letter of the last unknown option

// Starts a new parse from argv[1].
void vk_getopt_reset();
// Returns the next option letter, '?' for an unknown letter or a missing
// value (reported on stderr), or -1 when the options end. A parse that ends
// at a word that is no option (or at "--" with words after it) warns about
// it on stderr, once per parse: that word and everything after it take no
// effect, and a value written apart from a letter that takes it attached
// only (-s COLD) is the usual cause.
int vk_getopt(int argc, char *const argv[], const char *optstring);

// How the option word before a stray word ended.
enum class VkStrayAfter {
    other,          // a value, an unknown letter, or no option at all
    flag,           // a letter that takes no value (-c)
    bare_optional,  // a letter whose value must be attached, written alone (-s)
};
// The warning lines for a parse that ended at argv[stop] (empty when there
// is nothing to say); last_letter is the letter of the option word before.
// The entry's -m, -o, -R and -T are read wherever they stand, so the list
// of words the parse did not reach leaves them out.
std::string vk_stray_word_warning(int argc, char *const argv[], int stop, int last_letter,
                                  VkStrayAfter after);
