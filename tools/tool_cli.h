// Command-line handling shared by the sample-data generators: options given
// as "-o FILE", "--opt VALUE" or "--opt=VALUE", numbers checked against a
// range, and the messages and exit statuses of a usage error. Every message
// starts with the program's name: "vkagnss-rtcmgen: -o FILE is required".
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

// The arguments being read and how to tell about them.
struct CliArgs {
    const char *prog;              // the name that starts every message
    void (*usage)(std::FILE *to);  // prints the program's help text
    int argc;
    char **argv;
    const char *const *flags;  // options that take no value, null-terminated; may be null
    int next;                  // index of the next argument to read
};

// One option as read.
struct CliOption {
    std::string name;             // as given, without "=VALUE"
    const char *value = nullptr;  // null for a flag
};

enum class CliRead {
    Option,  // the next option is in *opt
    End,     // every argument has been read
    Help,    // --help or -h: the help text went to stdout
    Error,   // an option lacks its value: the message and the help text went to stderr
};

CliArgs cli_args(const char *prog, void (*usage)(std::FILE *), int argc, char **argv,
                 const char *const *flags = nullptr);

// Reads the next option. "--opt=VALUE" carries its value; any other option
// that is not a flag takes the next argument as its value, whatever it looks
// like ("--seed -1" gives the value "-1").
CliRead cli_read(CliArgs &args, CliOption *opt);
// The exit status main returns after a read that is neither Option nor End:
// 0 after Help, 2 after Error.
int cli_exit_status(CliRead r);

// A whole decimal number in lo..hi.
bool cli_parse_long(const char *text, long lo, long hi, long *out);
// The same, stored into a narrower or unsigned field (lo..hi must fit T).
template <typename T>
bool cli_parse_int(const char *text, long lo, long hi, T *out) {
    long v = 0;
    if (!cli_parse_long(text, lo, hi, &v)) return false;
    *out = static_cast<T>(v);
    return true;
}
// A whole unsigned 64-bit number: decimal, 0x hexadecimal or 0 octal; no sign.
bool cli_parse_u64(const char *text, uint64_t *out);

// "PROG: bad value for NAME: 'VALUE'" on stderr; returns 2.
int cli_bad_value(const CliArgs &args, const CliOption &opt);
// "PROG: MESSAGE" and the help text on stderr; returns 2.
int cli_usage_error(const CliArgs &args, const std::string &message);
// "PROG: MESSAGE" on stderr; returns status.
int cli_fail(const CliArgs &args, const std::string &message, int status);
