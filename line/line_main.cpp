// vkagnss-line: runs one vkagnss per serial port, in parallel, for a
// production line. One record per port; one loop that starts runs, reads
// their output into the logs and the live view, reaps them, and passes stop
// signals on; then the summary.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "line/line_cli.h"
#include "line/line_os.h"
#include "line/line_output.h"
#include "line/line_report.h"

#ifndef VK_LINE_VERSION
#define VK_LINE_VERSION "unknown"
#endif

namespace fs = std::filesystem;

namespace {

const char kProg[] = "vkagnss-line";

// Everything the runner knows about one port.
struct PortRun {
    std::string port;
    std::string log_path;
    FILE *log = nullptr;
    LineProc *proc = nullptr;
    LiveLine::State state = LiveLine::State::Waiting;
    double start_t = 0, end_t = 0;  // monotonic seconds
    LineSplitter splitter;
    bool has_progress = false;
    LineProgress progress;
    RateMeter meter;
    bool meter_bytes = false;  // the meter counts bytes, not percent
    double meter_target = 100;
    std::string activity;  // the last line, while no progress has come
    RunOutcome outcome;
    SummaryRow row;
};

struct Runner {
    LineOptions opt;
    std::string tool;
    std::string log_dir;
    std::vector<PortRun> runs;
    uint64_t files_total = 0;
    size_t file_count = 0;
    int jobs = 1;
    FILE *view = stdout;  // where the live view or the plain lines go
    bool live = false;
    size_t cols = 80;
    size_t drawn = 0;  // lines of the live view on the screen
    double last_draw = -1;
    double t0 = 0;
    int signals_handled = 0;
    int stop_signal = 0;  // the first stop signal once one came
};

std::string now_stamp() { return iso8601_utc_ms(wall_ms()); }

void note(PortRun &r, const std::string &text) {
    if (!r.log) return;
    fputs(log_note_line(now_stamp(), r.port, text).c_str(), r.log);
    fflush(r.log);
}

// A plain line of the runner's own (not on a live terminal).
void plain(Runner &rn, const std::string &text) {
    if (rn.live) return;
    fprintf(rn.view, "%s %s\n", now_stamp().c_str(), text.c_str());
    fflush(rn.view);
}

std::string joined(const std::string &tool, const std::vector<std::string> &args) {
    std::string s = tool;
    for (const std::string &a : args) s += " " + a;
    return s;
}

size_t count_in(const Runner &rn, LiveLine::State s) {
    return size_t(std::count_if(rn.runs.begin(), rn.runs.end(),
                                [&](const PortRun &r) { return r.state == s; }));
}

// --- the live view ----------------------------------------------------------

LiveLine live_line_of(const PortRun &r, double now) {
    LiveLine l;
    l.state = r.state;
    l.port = r.port;
    l.elapsed = r.state == LiveLine::State::Done ? r.end_t - r.start_t : now - r.start_t;
    l.has_progress = r.has_progress;
    l.percent = r.progress.percent;
    l.rate = rate_per_second(r.meter, now);
    l.rate_in_bytes = r.meter_bytes;
    l.left = time_left(r.meter, now, r.meter_target);
    l.activity = r.activity;
    l.stopping = r.outcome.interrupted;
    l.row = r.row;
    return l;
}

void draw(Runner &rn, bool force) {
    if (!rn.live) return;
    double now = mono_seconds();
    if (!force && rn.last_draw >= 0 && now - rn.last_draw < 0.1) return;
    rn.last_draw = now;
    size_t rows = 24;
    terminal_size(rn.view, &rn.cols, &rows);
    size_t width = rn.cols > 1 ? rn.cols - 1 : 1;  // never the last column: no wrap
    size_t port_width = 4;
    for (const PortRun &r : rn.runs) port_width = std::max(port_width, r.port.size());

    std::string head = "vkagnss-line  " + format_duration(now - rn.t0) + "  running " +
                       std::to_string(count_in(rn, LiveLine::State::Running)) + ", done " +
                       std::to_string(count_in(rn, LiveLine::State::Done)) + ", waiting " +
                       std::to_string(count_in(rn, LiveLine::State::Waiting));
    if (rn.stop_signal != 0) head += "  stopping (signal " + std::to_string(rn.stop_signal) + ")";
    std::vector<std::string> lines = {head.substr(0, width)};
    for (const PortRun &r : rn.runs)
        lines.push_back(render_live_line(live_line_of(r, now), port_width, width));

    std::string out;
    if (rn.drawn > 0) out += "\x1b[" + std::to_string(rn.drawn) + "A";
    for (const std::string &l : lines) out += "\r\x1b[2K" + l + "\n";
    fputs(out.c_str(), rn.view);
    fflush(rn.view);
    rn.drawn = lines.size();
}

// --- one run ------------------------------------------------------------------

void take_line(Runner &rn, PortRun &r, const std::string &stamp, const std::string &line,
               double now) {
    if (r.log) fputs(log_tool_line(stamp, r.port, line).c_str(), r.log);
    uint32_t code = 0;
    if (parse_final_line(line, &code)) {
        r.outcome.has_code = true;
        r.outcome.code = code;
    }
    LineProgress p;
    if (parse_progress_line(line, &p)) {
        r.has_progress = true;
        r.progress = p;
        uint64_t sent = 0, total = 0;
        if (progress_bytes(p, rn.files_total, rn.file_count, &sent, &total)) {
            if (!r.meter_bytes) r.meter.samples.clear();
            r.meter_bytes = true;
            r.meter_target = double(total);
            rate_add(r.meter, now, double(sent));
        } else {
            r.meter_bytes = false;
            r.meter_target = 100;
            rate_add(r.meter, now, p.percent);
        }
    } else {
        r.activity = without_stamp(line);
    }
}

void take_output(Runner &rn, PortRun &r, const std::string &bytes, bool at_end) {
    std::vector<std::string> lines;
    line_split_feed(r.splitter, bytes, &lines);
    if (at_end) line_split_finish(r.splitter, &lines);
    if (lines.empty()) return;
    std::string stamp = now_stamp();
    double now = mono_seconds();
    for (const std::string &l : lines) take_line(rn, r, stamp, l, now);
    if (r.log) fflush(r.log);
}

void start_run(Runner &rn, PortRun &r) {
    r.state = LiveLine::State::Running;
    r.start_t = mono_seconds();
    r.log = open_private(r.log_path);
    if (!r.log) fprintf(stderr, "%s: cannot write %s\n", kProg, r.log_path.c_str());
    std::vector<std::string> args = tool_arguments(r.port, rn.opt.tool_args);
    std::string error;
    r.proc = proc_start(rn.tool, args, &error);
    if (!r.proc) {
        note(r, "cannot start " + joined(rn.tool, args) + ": " + error);
        plain(rn, "cannot start the run on " + r.port + ": " + error);
        return;  // reaped as NOT STARTED in the next round
    }
    r.outcome.started = true;
    note(r, "start: " + joined(rn.tool, args) + " (pid " + std::to_string(proc_id(r.proc)) + ")");
    plain(rn, "start " + r.port + " (pid " + std::to_string(proc_id(r.proc)) + ")");
}

void finish_run(Runner &rn, PortRun &r, const ProcEnd &end) {
    r.end_t = mono_seconds();
    r.outcome.exited = end.exited;
    r.outcome.status = end.status;
    r.outcome.signal = end.signal;
    r.state = LiveLine::State::Done;
    SummaryRow &row = r.row;
    row.port = r.port;
    row.result = judge_run(r.outcome);
    row.has_code = r.outcome.has_code;
    row.code = r.outcome.code;
    row.has_status = r.outcome.started && end.exited;
    row.status = end.status;
    row.signal = end.signal;
    row.seconds = r.outcome.started ? r.end_t - r.start_t : 0;
    row.bytes = run_bytes(row.result, rn.files_total, rn.file_count, r.has_progress, r.progress);
    row.log = r.log_path;
    char secs[32];
    snprintf(secs, sizeof secs, "%.2f s", row.seconds);
    std::string what = std::string(run_result_name(row.result)) + ", code " + code_text(row) +
                       ", status " + status_text(row) + ", " + secs;
    note(r, "end: " + what);
    plain(rn, "end " + r.port + ": " + what);
    if (r.log) fclose(r.log);
    r.log = nullptr;
    proc_free(r.proc);
    r.proc = nullptr;
}

// A port never started because the runner was stopped first.
void skip_run(PortRun &r) {
    r.state = LiveLine::State::Done;
    r.outcome.interrupted = true;
    r.row.port = r.port;
    r.row.result = judge_run(r.outcome);
    r.row.log = r.log_path;
}

// Passes the stop signals that came since the last look on to the runs.
void handle_signals(Runner &rn) {
    int count = stop_signal_count();
    if (count == rn.signals_handled) return;
    if (rn.signals_handled == 0) {
        rn.stop_signal = stop_signal_first();
        size_t running = count_in(rn, LiveLine::State::Running);
        plain(rn, "signal " + std::to_string(rn.stop_signal) + ": stopping " +
                      std::to_string(running) + " running, not starting the rest");
        for (PortRun &r : rn.runs) {
            if (r.state == LiveLine::State::Waiting) {
                skip_run(r);
            } else if (r.state == LiveLine::State::Running && r.proc) {
                proc_stop(r.proc, rn.stop_signal);
                r.outcome.interrupted = true;
                note(r, "passed on signal " + std::to_string(rn.stop_signal));
            }
        }
    }
    if (count >= 2 && rn.signals_handled < 2) {
        plain(rn, "another signal: ending the runs that are left at once");
        for (PortRun &r : rn.runs) {
            if (r.state != LiveLine::State::Running || !r.proc) continue;
            proc_kill(r.proc);
            r.outcome.interrupted = true;
            note(r, "ended at once after a second stop signal");
        }
    }
    rn.signals_handled = count;
}

void run_all(Runner &rn) {
    size_t next = 0;
    for (;;) {
        handle_signals(rn);
        size_t running = count_in(rn, LiveLine::State::Running);
        while (rn.stop_signal == 0 && running < size_t(rn.jobs) && next < rn.runs.size()) {
            if (rn.runs[next].state == LiveLine::State::Waiting) {
                start_run(rn, rn.runs[next]);
                ++running;
            }
            ++next;
        }
        if (running == 0 && (next >= rn.runs.size() || rn.stop_signal != 0)) break;

        std::vector<PortRun *> active;
        std::vector<LineProc *> procs;
        bool closing = false;  // a run's output has ended: its exit comes soon
        for (PortRun &r : rn.runs) {
            if (r.state != LiveLine::State::Running) continue;
            if (!r.proc) {
                finish_run(rn, r, ProcEnd{});  // it could not be started
                continue;
            }
            active.push_back(&r);
            procs.push_back(r.proc);
            closing = closing || proc_output_ended(r.proc);
        }
        std::vector<std::string> chunks;
        if (!procs.empty()) proc_read(procs, closing ? 10 : 100, &chunks);
        for (size_t i = 0; i < active.size(); ++i) {
            PortRun &r = *active[i];
            bool ended = proc_output_ended(r.proc);
            take_output(rn, r, chunks[i], ended);
            ProcEnd end;
            if (ended && proc_try_wait(r.proc, &end)) finish_run(rn, r, end);
        }
        draw(rn, false);
    }
    draw(rn, true);
}

// --- setting up ---------------------------------------------------------------

int usage_error(const std::string &message) {
    fprintf(stderr, "%s: %s\nTry '%s --help'.\n", kProg, message.c_str(), kProg);
    return 2;
}

bool read_text(const std::string &path, std::string *text) {
    std::ifstream f(path, std::ios::binary);
    if (!f) return false;
    std::ostringstream s;
    s << f.rdbuf();
    *text = s.str();
    return true;
}

bool collect_ports(const LineOptions &opt, std::vector<std::string> *ports, std::string *error) {
    std::vector<std::string> all;
    for (const std::string &list : opt.port_lists) {
        for (const std::string &p : split_port_list(list)) all.push_back(p);
    }
    for (const std::string &file : opt.port_files) {
        std::string text;
        if (!read_text(file, &text)) {
            *error = "cannot read the ports file " + file;
            return false;
        }
        for (const std::string &p : parse_ports_text(text)) all.push_back(p);
    }
    for (const std::string &pattern : opt.port_globs) {
        std::vector<std::string> found;
        if (!expand_glob(pattern, &found, error)) return false;
        std::sort(found.begin(), found.end(), natural_less);
        all.insert(all.end(), found.begin(), found.end());
    }
    std::vector<std::string> dropped;
    *ports = unique_ports(all, &dropped);
    for (const std::string &p : dropped)
        fprintf(stderr, "%s: %s is named more than once; it runs once\n", kProg, p.c_str());
    if (ports->empty()) {
        *error = "the port lists name no port";
        return false;
    }
    return true;
}

bool find_tool(const LineOptions &opt, const char *argv0, std::string *tool, std::string *error) {
    if (!opt.tool.empty()) {
        bool has_dir = opt.tool.find_first_of("/\\") != std::string::npos;
        *tool = has_dir ? opt.tool : find_in_path(opt.tool);
        if (!tool->empty() && runnable_file(*tool)) return true;
        *error = "--tool " + opt.tool + ": no such program";
        return false;
    }
    std::string name = exe_name("vkagnss");
    std::string dir = self_dir(argv0);
    if (!dir.empty()) {
        std::string beside = (fs::path(dir) / name).string();
        if (runnable_file(beside)) {
            *tool = beside;
            return true;
        }
    }
    *tool = find_in_path(name);
    if (!tool->empty()) return true;
    *error = "cannot find " + name + " beside vkagnss-line nor in PATH; name it with --tool";
    return false;
}

bool make_log_dir(const LineOptions &opt, std::string *dir, std::string *error) {
    std::error_code ec;
    if (!opt.log_dir.empty()) {
        *dir = opt.log_dir;
    } else {
        // One directory per start; a second start within the same second gets "-2".
        std::string base = (fs::path("vkagnss-line-logs") / iso8601_basic_utc(wall_ms())).string();
        *dir = base;
        for (int n = 2; fs::exists(*dir, ec); ++n) *dir = base + "-" + std::to_string(n);
    }
    fs::create_directories(*dir, ec);
    if (!fs::is_directory(*dir, ec)) {
        *error = "cannot make the log directory " + *dir;
        return false;
    }
    return true;
}

bool write_file_text(const std::string &path, const std::string &text) {
    FILE *f = open_private(path);
    if (!f) return false;
    bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
    return fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char **argv) {
    Runner rn;
    std::string error;
    if (!parse_line_cli(std::vector<std::string>(argv + 1, argv + argc), &rn.opt, &error))
        return usage_error(error);
    if (rn.opt.help) {
        fputs(line_help_text().c_str(), stdout);
        return 0;
    }
    if (rn.opt.version) {
        printf("vkagnss-line %s\n", VK_LINE_VERSION);
        return 0;
    }
    std::vector<std::string> ports;
    if (!collect_ports(rn.opt, &ports, &error)) return usage_error(error);
    if (!find_tool(rn.opt, argv[0], &rn.tool, &error)) return usage_error(error);
    if (!make_log_dir(rn.opt, &rn.log_dir, &error)) return usage_error(error);

    std::vector<std::string> files = named_files(rn.opt.tool_args);
    rn.file_count = files.size();
    for (const std::string &f : files) {
        std::error_code ec;
        uintmax_t size = fs::file_size(f, ec);
        if (!ec) rn.files_total += size;  // a missing file is the tool's to report
    }
    std::vector<std::string> names = log_file_names(ports);
    for (size_t i = 0; i < ports.size(); ++i) {
        PortRun r;
        r.port = ports[i];
        r.log_path = (fs::path(rn.log_dir) / names[i]).string();
        rn.runs.push_back(std::move(r));
    }
    rn.jobs = rn.opt.jobs > 0 ? rn.opt.jobs : int(ports.size());

    stop_signals_install();
    rn.view = rn.opt.format == LineFormat::Table ? stdout : stderr;
    rn.live = !rn.opt.plain && terminal_live(rn.view);
    if (rn.live) {
        size_t rows = 24;
        terminal_size(rn.view, &rn.cols, &rows);
        if (rn.runs.size() + 1 >= rows) rn.live = false;  // the view would not fit: plain lines
    }
    rn.t0 = mono_seconds();
    std::string intro = "vkagnss-line: " + std::to_string(ports.size()) +
                        (ports.size() == 1 ? " port, " : " ports, ") + std::to_string(rn.jobs) +
                        " at once, tool " + rn.tool + ", logs in " + rn.log_dir;
    if (rn.live) {
        fprintf(rn.view, "%s\n", intro.c_str());
    } else {
        plain(rn, intro);
    }

    run_all(rn);

    std::vector<SummaryRow> rows;
    for (const PortRun &r : rn.runs) rows.push_back(r.row);
    bool all_ok = std::all_of(rows.begin(), rows.end(),
                              [](const SummaryRow &r) { return r.result == RunResult::Success; });
    int status = rn.stop_signal != 0 ? 128 + rn.stop_signal : all_ok ? 0 : 1;

    if (rn.live) fputs("\n", rn.view);
    switch (rn.opt.format) {
        case LineFormat::Table:
            fputs(format_table(rows).c_str(), stdout);
            printf("logs: %s\n", rn.log_dir.c_str());
            break;
        case LineFormat::Csv: fputs(format_csv(rows).c_str(), stdout); break;
        case LineFormat::Json: fputs(format_json(rows, rn.stop_signal).c_str(), stdout); break;
    }
    fflush(stdout);
    if (!rn.opt.csv_file.empty() && !write_file_text(rn.opt.csv_file, format_csv(rows))) {
        fprintf(stderr, "%s: cannot write %s\n", kProg, rn.opt.csv_file.c_str());
        if (status == 0) status = 2;
    }
    if (!rn.opt.json_file.empty() &&
        !write_file_text(rn.opt.json_file, format_json(rows, rn.stop_signal))) {
        fprintf(stderr, "%s: cannot write %s\n", kProg, rn.opt.json_file.c_str());
        if (status == 0) status = 2;
    }
    stop_signals_done();
    return status;
}
