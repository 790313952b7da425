#include "line/line_cli.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace {

std::string trim(const std::string &s) {
    const char *blanks = " \t\r\n\v\f";
    size_t first = s.find_first_not_of(blanks);
    if (first == std::string::npos) return "";
    size_t last = s.find_last_not_of(blanks);
    return s.substr(first, last - first + 1);
}

// The options that take a value, long and short spellings.
struct ValueOption {
    const char *long_name;
    const char *short_name;  // may be null
};

const ValueOption kValueOptions[] = {
    {"--ports", "-p"},  {"--ports-file", nullptr}, {"--ports-glob", nullptr},
    {"--jobs", "-j"},   {"--tool", nullptr},       {"--log-dir", nullptr},
    {"--csv", nullptr}, {"--json", nullptr},       {"--format", nullptr},
};

// Matches arg against a value option: "--name VALUE", "--name=VALUE", "-x VALUE"
// or "-xVALUE". Sets *name to the long name; *value to the value when it
// was attached (then *attached is true).
bool match_value_option(const std::string &arg, std::string *name, std::string *value,
                        bool *attached) {
    for (const ValueOption &o : kValueOptions) {
        std::string l = o.long_name;
        if (arg == l) {
            *name = l;
            *attached = false;
            return true;
        }
        if (arg.size() > l.size() && arg.compare(0, l.size(), l) == 0 && arg[l.size()] == '=') {
            *name = l;
            *value = arg.substr(l.size() + 1);
            *attached = true;
            return true;
        }
        if (o.short_name) {
            std::string s = o.short_name;
            if (arg == s) {
                *name = l;
                *attached = false;
                return true;
            }
            if (arg.size() > 2 && arg.compare(0, 2, s) == 0) {
                *name = l;
                *value = arg.substr(2);
                *attached = true;
                return true;
            }
        }
    }
    return false;
}

bool set_value(LineOptions *opt, const std::string &name, const std::string &value,
               std::string *error) {
    if (value.empty()) {
        *error = name + " takes a value that is not empty";
        return false;
    }
    if (name == "--ports") {
        opt->port_lists.push_back(value);
    } else if (name == "--ports-file") {
        opt->port_files.push_back(value);
    } else if (name == "--ports-glob") {
        opt->port_globs.push_back(value);
    } else if (name == "--jobs") {
        int n = 0;
        auto r = std::from_chars(value.data(), value.data() + value.size(), n);
        if (r.ec != std::errc() || r.ptr != value.data() + value.size() || n < 1) {
            *error = "-j takes a whole number of 1 or more, not '" + value + "'";
            return false;
        }
        opt->jobs = n;
    } else if (name == "--tool") {
        opt->tool = value;
    } else if (name == "--log-dir") {
        opt->log_dir = value;
    } else if (name == "--csv") {
        opt->csv_file = value;
    } else if (name == "--json") {
        opt->json_file = value;
    } else if (name == "--format") {
        if (value == "table") {
            opt->format = LineFormat::Table;
        } else if (value == "csv") {
            opt->format = LineFormat::Csv;
        } else if (value == "json") {
            opt->format = LineFormat::Json;
        } else {
            *error = "--format takes table, csv or json, not '" + value + "'";
            return false;
        }
    }
    return true;
}

bool is_port_option(const std::string &a) { return a.size() >= 2 && a.compare(0, 2, "-p") == 0; }

}  // namespace

bool parse_line_cli(const std::vector<std::string> &args, LineOptions *opt, std::string *error) {
    *opt = LineOptions();
    bool dashes = false;
    size_t i = 0;
    for (; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--") {
            dashes = true;
            ++i;
            break;
        }
        if (a == "-h" || a == "--help") {
            opt->help = true;
            continue;
        }
        if (a == "-V" || a == "--version") {
            opt->version = true;
            continue;
        }
        if (a == "--plain") {
            opt->plain = true;
            continue;
        }
        std::string name, value;
        bool attached = false;
        if (match_value_option(a, &name, &value, &attached)) {
            if (!attached) {
                if (i + 1 >= args.size()) {
                    *error = a + " needs a value";
                    return false;
                }
                value = args[++i];
            }
            if (!set_value(opt, name, value, error)) return false;
            continue;
        }
        if (a.size() > 1 && a[0] == '-') {
            *error = "unknown option '" + a + "'";
        } else {
            *error = "unexpected '" + a + "': the arguments for vkagnss go after --";
        }
        return false;
    }
    opt->tool_args.assign(args.begin() + long(i), args.end());
    if (opt->help || opt->version) return true;
    if (opt->port_lists.empty() && opt->port_files.empty() && opt->port_globs.empty()) {
        *error = "no ports: give -p, --ports-file or --ports-glob";
        return false;
    }
    if (!dashes || opt->tool_args.empty()) {
        *error = "no arguments for vkagnss: give them after --, as in -- -m AG33XX -o offline ...";
        return false;
    }
    for (const std::string &a : opt->tool_args) {
        if (is_port_option(a)) {
            *error = "'" + a + "' after --: the runner gives each run its own -p";
            return false;
        }
    }
    return true;
}

std::string line_help_text() {
    return "usage: vkagnss-line -p PORT[,PORT...] [options] -- VKAGNSS-ARGUMENTS...\n"
           "       vkagnss-line --ports-file FILE [options] -- VKAGNSS-ARGUMENTS...\n"
           "       vkagnss-line --ports-glob PATTERN [options] -- VKAGNSS-ARGUMENTS...\n"
           "\n"
           "Runs one vkagnss per serial port, in parallel, each with the arguments given\n"
           "after -- and its own \"-p PORT\" put in front of them, e.g.\n"
           "  vkagnss-line -p /dev/ttyUSB0,/dev/ttyUSB1 -- -m AG33XX -o offline -b 921600 \\\n"
           "      -c -fEPO_GPS_3_1.DAT\n"
           "\n"
           "Ports (the three forms add up; a port named twice runs once):\n"
           "  -p, --ports LIST      ports separated by commas (may be repeated)\n"
           "  --ports-file FILE     one port per line; '#' starts a comment\n"
           "  --ports-glob PATTERN  the device files that match, e.g. '/dev/ttyUSB*',\n"
           "                        in natural order (ttyUSB2 before ttyUSB10);\n"
           "                        not on Windows: name COM ports with -p or a file\n"
           "\n"
           "Options:\n"
           "  -j, --jobs N          at most N runs at once (default: every port at once)\n"
           "  --tool PATH           the vkagnss to run (default: the one beside\n"
           "                        vkagnss-line, else vkagnss from PATH)\n"
           "  --log-dir DIR         where each port's log goes (default:\n"
           "                        ./vkagnss-line-logs/<start time, UTC>/)\n"
           "  --format FORMAT       the summary on stdout: table (default), csv or json;\n"
           "                        with csv or json the progress goes to stderr\n"
           "  --csv FILE            also write the summary as CSV to FILE\n"
           "  --json FILE           also write the summary as JSON to FILE\n"
           "  --plain               plain lines even on a terminal\n"
           "  -h, --help            this text\n"
           "  -V, --version         the version\n"
           "\n"
           "On a terminal each port has a live line: a progress bar read from the\n"
           "tool's [PROGRESS] lines, the rate (bytes/s when the size is known, else %/s)\n"
           "and the time left. Elsewhere one line when a run starts and one when it\n"
           "ends. Each port's whole output (stdout and stderr) goes to\n"
           "<log dir>/<port name>.log, every line as \"<UTC time> <port> | <line>\"; the\n"
           "runner's own notes there read \"<UTC time> <port> # <note>\".\n"
           "\n"
           "At the end a summary: PORT, RESULT (SUCCESS, FAIL, INTERRUPTED, NO RESULT,\n"
           "NOT STARTED, NOT RUN), CODE (from the tool's final SUCCESS/FAIL line; none\n"
           "when it printed neither), STATUS (the exit status, or the signal that ended\n"
           "the run), SECONDS, BYTES: for a SUCCESS run the total size of the files it\n"
           "names with -f; for any other run what its progress lines reported as sent\n"
           "(their byte counts, or the last percentage of a single -f file), else 0.\n"
           "\n"
           "Ctrl-C, SIGTERM or SIGHUP (Ctrl-C, Ctrl-Break or closing the console on\n"
           "Windows) is passed on to every running vkagnss, which releases its port and\n"
           "ends with its FAIL line; ports not yet started are not started. A second\n"
           "one ends the runs that are left at once. The summary is written either way.\n"
           "\n"
           "Exit status: 0 when every port ended SUCCESS, 1 when any did not, 2 for a\n"
           "usage error, 128+N after signal N (130 after Ctrl-C).\n"
           "\n"
           "See vkagnss(1) for the tool's own options.\n";
}

std::vector<std::string> split_port_list(const std::string &list) {
    std::vector<std::string> ports;
    size_t start = 0;
    for (;;) {
        size_t comma = list.find(',', start);
        std::string item =
            trim(list.substr(start, comma == std::string::npos ? comma : comma - start));
        if (!item.empty()) ports.push_back(item);
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    return ports;
}

std::vector<std::string> parse_ports_text(const std::string &text) {
    std::vector<std::string> ports;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        line = trim(line);
        if (!line.empty()) ports.push_back(line);
        start = end + 1;
    }
    return ports;
}

bool natural_less(const std::string &a, const std::string &b) {
    auto digit = [](char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; };
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (digit(a[i]) && digit(b[j])) {
            size_t i0 = i, j0 = j;
            while (i0 < a.size() && a[i0] == '0') ++i0;  // leading zeros do not count
            while (j0 < b.size() && b[j0] == '0') ++j0;
            size_t i1 = i0, j1 = j0;
            while (i1 < a.size() && digit(a[i1])) ++i1;
            while (j1 < b.size() && digit(b[j1])) ++j1;
            if (i1 - i0 != j1 - j0) return i1 - i0 < j1 - j0;
            int c = a.compare(i0, i1 - i0, b, j0, j1 - j0);
            if (c != 0) return c < 0;
            if (i1 - i != j1 - j) return i1 - i < j1 - j;  // "01" after "1"
            i = i1;
            j = j1;
            continue;
        }
        if (a[i] != b[j]) {
            return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
        }
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

std::vector<std::string> unique_ports(const std::vector<std::string> &ports,
                                      std::vector<std::string> *dropped) {
    std::vector<std::string> out;
    for (const std::string &p : ports) {
        if (std::find(out.begin(), out.end(), p) == out.end()) {
            out.push_back(p);
        } else if (std::find(dropped->begin(), dropped->end(), p) == dropped->end()) {
            dropped->push_back(p);
        }
    }
    return out;
}
