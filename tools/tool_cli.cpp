// Command-line handling of the sample-data generators. See tool_cli.h.
#include "tools/tool_cli.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

CliArgs cli_args(const char *prog, void (*usage)(std::FILE *), int argc, char **argv,
                 const char *const *flags) {
    return CliArgs{prog, usage, argc, argv, flags, 1};
}

static bool is_flag(const CliArgs &args, const std::string &name) {
    if (!args.flags) return false;
    for (const char *const *f = args.flags; *f; ++f)
        if (name == *f) return true;
    return false;
}

CliRead cli_read(CliArgs &args, CliOption *opt) {
    if (args.next >= args.argc) return CliRead::End;
    const int i = args.next++;
    opt->name = args.argv[i];
    opt->value = nullptr;
    const size_t eq = opt->name.find('=');
    if (opt->name.compare(0, 2, "--") == 0 && eq != std::string::npos) {
        opt->value = args.argv[i] + eq + 1;
        opt->name.resize(eq);
    }
    if (opt->name == "--help" || opt->name == "-h") {
        args.usage(stdout);
        return CliRead::Help;
    }
    if (is_flag(args, opt->name)) {
        opt->value = nullptr;
        return CliRead::Option;
    }
    if (!opt->value) {
        if (args.next >= args.argc) {
            cli_usage_error(args, opt->name + " needs a value");
            return CliRead::Error;
        }
        opt->value = args.argv[args.next++];
    }
    return CliRead::Option;
}

int cli_exit_status(CliRead r) { return r == CliRead::Help ? 0 : 2; }

bool cli_parse_long(const char *text, long lo, long hi, long *out) {
    if (!text || !*text) return false;
    errno = 0;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    *out = v;
    return true;
}

bool cli_parse_u64(const char *text, uint64_t *out) {
    if (!text || !*text || *text == '-') return false;
    errno = 0;
    char *end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 0);
    if (errno != 0 || *end != '\0') return false;
    *out = v;
    return true;
}

int cli_bad_value(const CliArgs &args, const CliOption &opt) {
    std::fprintf(stderr, "%s: bad value for %s: '%s'\n", args.prog, opt.name.c_str(),
                 opt.value ? opt.value : "");
    return 2;
}

int cli_usage_error(const CliArgs &args, const std::string &message) {
    cli_fail(args, message, 2);
    args.usage(stderr);
    return 2;
}

int cli_fail(const CliArgs &args, const std::string &message, int status) {
    std::fprintf(stderr, "%s: %s\n", args.prog, message.c_str());
    return status;
}
