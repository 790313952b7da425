// The runner's command line and its port lists. Pure: the caller reads the
// ports file and expands the glob, these functions only parse text.
#pragma once

#include <string>
#include <vector>

enum class LineFormat { Table, Csv, Json };

struct LineOptions {
    std::vector<std::string> port_lists;  // each -p value: ports separated by commas
    std::vector<std::string> port_files;  // each --ports-file
    std::vector<std::string> port_globs;  // each --ports-glob
    int jobs = 0;                         // -j: runs at once; 0 = every port at once
    std::string tool;                     // --tool; empty: the vkagnss beside the runner, else PATH
    std::string log_dir;                  // --log-dir; empty: ./vkagnss-line-logs/<start time>
    std::string csv_file;                 // --csv: the summary as CSV to this file too
    std::string json_file;                // --json: the summary as JSON to this file too
    LineFormat format = LineFormat::Table;  // --format: what the summary on stdout looks like
    bool plain = false;                     // --plain: plain lines even on a terminal
    bool help = false;                      // -h, --help
    bool version = false;                   // -V, --version
    std::vector<std::string> tool_args;     // everything after "--"
};

// Parses the arguments (without the program name). On failure returns false
// with a one-line reason in *error. With --help or --version the rest need
// not be complete.
bool parse_line_cli(const std::vector<std::string> &args, LineOptions *opt, std::string *error);

// The help text.
std::string line_help_text();

// "a, b,,c" -> {"a", "b", "c"}: the ports of one -p value, blanks around
// each trimmed, empty items dropped.
std::vector<std::string> split_port_list(const std::string &list);

// The ports of a ports file: one per line; '#' starts a comment that runs to
// the line end; blanks around a name are trimmed; empty lines are skipped.
std::vector<std::string> parse_ports_text(const std::string &text);

// Order for names holding numbers: "ttyUSB2" before "ttyUSB10" (runs of
// digits compare by value, the rest byte by byte).
bool natural_less(const std::string &a, const std::string &b);

// The ports in first-seen order without repeats; each repeat once in *dropped.
std::vector<std::string> unique_ports(const std::vector<std::string> &ports,
                                      std::vector<std::string> *dropped);
