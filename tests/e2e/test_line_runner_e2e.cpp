// The production-line runner end to end: the real vkagnss-line starting the
// real vkagnss against virtual AG33XX receivers on pseudo-terminals. One
// tray of eight with a faulty receiver, a tray run two at a time, and a
// tray stopped with Ctrl-C (SIGINT) in the middle of its transfers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "core/result.h"
#include "sim/sim.h"
#include "tests/support/harness.h"
#include "tests/support/stamp_mask.h"
#include "tests/support/text_formats.h"
#include "tools/epo_gen.h"

namespace {

using Strings = std::vector<std::string>;

// The EPO data frames of the offline transfer start with these bytes: a
// receiver that refuses them takes the clear but none of the records.
const char kEpoDataFrame[] = "\x04\x24\xB1\x04";

Strings lines_of(const std::string &text) {
    Strings lines;
    std::istringstream in(text);
    std::string l;
    while (std::getline(in, l)) lines.push_back(l);
    return lines;
}

std::string read_text(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

bool file_exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

std::string hex(uint32_t v) {
    char buf[16];
    snprintf(buf, sizeof buf, "0x%x", unsigned(v));
    return buf;
}

// The log file of a port: the device path made a file name ("/dev/pts/7" ->
// "dev_pts_7.log").
std::string log_name(const std::string &port) {
    std::string s = port;
    std::replace(s.begin(), s.end(), '/', '_');
    return s.substr(s.find_first_not_of('_')) + ".log";
}

// One row of the table the runner prints: columns stand two or more blanks apart.
struct TableRow {
    std::string port, result, code, status, seconds, bytes;
};

// The table's rows, and its closing count line in *count.
std::vector<TableRow> table_of(const std::string &out, std::string *count) {
    std::vector<TableRow> rows;
    Strings lines = lines_of(out);
    auto head = std::find_if(lines.begin(), lines.end(),
                             [](const std::string &l) { return l.rfind("PORT  ", 0) == 0; });
    if (head == lines.end()) return rows;
    static const std::regex gap(" {2,}");
    for (auto it = head + 1; it != lines.end(); ++it) {
        if (std::regex_match(*it, std::regex(R"(\d+ ports?: .*)"))) {
            *count = *it;
            break;
        }
        Strings cells(std::sregex_token_iterator(it->begin(), it->end(), gap, -1),
                      std::sregex_token_iterator());
        if (cells.size() != 6) {
            ADD_FAILURE() << "not a table row: " << *it;
            continue;
        }
        rows.push_back({cells[0], cells[1], cells[2], cells[3], cells[4], cells[5]});
    }
    return rows;
}

// What the runner's plain lines say about starts and ends, in their order.
struct Event {
    bool start;
    std::string port;
    long pid = 0;
};

std::vector<Event> events_of(const std::string &text) {
    std::vector<Event> events;
    static const std::regex start(R"(^\S+Z start (\S+) \(pid (\d+)\)$)");
    static const std::regex end(R"(^\S+Z end (\S+): .*$)");
    for (const std::string &l : lines_of(text)) {
        std::smatch m;
        if (std::regex_match(l, m, start)) events.push_back({true, m[1], std::stol(m[2])});
        if (std::regex_match(l, m, end)) events.push_back({false, m[1]});
    }
    return events;
}

// The most runs that were under way at once, going through the events in order.
size_t most_at_once(const std::vector<Event> &events) {
    size_t now = 0, most = 0;
    for (const Event &e : events) {
        if (e.start) {
            most = std::max(most, ++now);
        } else if (now > 0) {
            --now;
        }
    }
    return most;
}

class LineRunnerE2E : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = make_temp_dir();
        ASSERT_FALSE(dir_.empty());
    }
    void TearDown() override {
        for (Sim *s : sims_) sim_free(s);
        remove_tree(dir_);
    }

    // Starts n receivers, all paced at pace_baud; faulty ones refuse the data frames.
    void start_sims(size_t n, uint32_t pace_baud, const std::vector<size_t> &faulty = {}) {
        for (size_t i = 0; i < n; ++i) {
            SimConfig cfg;
            cfg.platform = "ag33xx";
            cfg.faults.pace_baud = pace_baud;
            if (std::find(faulty.begin(), faulty.end(), i) != faulty.end())
                cfg.faults.refuse_prefix = kEpoDataFrame;
            std::string error;
            Sim *s = sim_start(cfg, &error);
            ASSERT_NE(s, nullptr) << error;
            sims_.push_back(s);
            ports_.push_back(sim_slave_path(s));
        }
    }

    // A GPS EPO file of the given number of 6-hour segments (32 records each).
    void make_file(int segments) {
        EpoGenConfig cfg;
        cfg.kind = EpoGenKind::Gps;
        cfg.segments = segments;
        bytes_ = epogen_generate(cfg);
        file_ = dir_ + "/EPO_GPS_3_1.DAT";
        write_file(file_, bytes_);
    }

    std::string port_list() const {
        std::string s;
        for (const std::string &p : ports_) s += (s.empty() ? "" : ",") + p;
        return s;
    }

    Strings tool_args() const {
        return {"-m", "AG33XX", "-o", "offline", "-b", "921600", "-c", "-f" + file_};
    }

    std::string logs() const { return dir_ + "/logs"; }

    // The log of port i, checked line by line: every line "<UTC time> <port>
    // | <tool line>" or "... # <note>", in time order; the start note first
    // and the end note last.
    std::string checked_log(size_t i) {
        std::string path = logs() + "/" + log_name(ports_[i]);
        EXPECT_TRUE(file_exists(path)) << path;
        std::string text = read_text(path);
        Strings lines = lines_of(text);
        EXPECT_GE(lines.size(), 3u) << path;
        const std::regex line(R"(^(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z) (\S+) ([|#]) (.*)$)");
        std::string last_stamp;
        for (const std::string &l : lines) {
            std::smatch m;
            if (!std::regex_match(l, m, line)) {
                ADD_FAILURE() << path << ": " << l;
                continue;
            }
            EXPECT_EQ(m[2], ports_[i]) << l;
            EXPECT_LE(last_stamp, m[1].str()) << l;  // the ISO form sorts as time does
            last_stamp = m[1];
        }
        if (!lines.empty()) {
            EXPECT_NE(lines.front().find(" # start: "), std::string::npos) << lines.front();
            EXPECT_NE(lines.back().find(" # end: "), std::string::npos) << lines.back();
        }
        // The tool's own lines, with the port the runner gave it.
        std::string masked = mask_stamps(text);
        EXPECT_NE(masked.find(ports_[i] + " | [SSS.mmm][INFO] Enter agnss tool\n"),
                  std::string::npos);
        EXPECT_NE(masked.find(ports_[i] + " | [SSS.mmm][INFO] Port: " + ports_[i] + "\n"),
                  std::string::npos);
        return text;
    }

    std::string dir_;
    std::vector<Sim *> sims_;
    Strings ports_;
    std::string file_;
    std::vector<uint8_t> bytes_;
};

// The result code on a log's FAIL line.
bool fail_code_in(const std::string &log, uint32_t *code) {
    std::smatch m;
    if (!std::regex_search(log, m,
                           std::regex(R"(\[FAIL\] vkagnss run fail,ret:\[0x([0-9a-f]+)\])")))
        return false;
    *code = uint32_t(std::stoul(m[1], nullptr, 16));
    return true;
}

TEST_F(LineRunnerE2E, EightReceiversOneFaulty) {
    const size_t kFaulty = 5;
    start_sims(8, 115200, {kFaulty});  // about a second for a healthy one
    make_file(4);
    ASSERT_EQ(bytes_.size(), 9216u);
    Strings args = {"-p",    port_list(),           "--log-dir", logs(),
                    "--csv", dir_ + "/summary.csv", "--json",    dir_ + "/summary.json",
                    "--"};
    for (const std::string &a : tool_args()) args.push_back(a);
    // No --tool: the vkagnss beside vkagnss-line is the one that runs.
    ToolRun r = run_program(VKAGNSS_LINE_BIN, args);
    for (Sim *s : sims_) sim_stop(s);

    EXPECT_EQ(r.status, 1) << r.out << r.err;
    EXPECT_EQ(r.err, "");

    // Each log: stamped lines with the port and the tool's own output.
    std::vector<std::string> logs_text;
    for (size_t i = 0; i < ports_.size(); ++i) logs_text.push_back(checked_log(i));
    uint32_t fail_code = 0;
    ASSERT_TRUE(fail_code_in(logs_text[kFaulty], &fail_code)) << logs_text[kFaulty];
    EXPECT_NE(fail_code, 0u);

    // The table: the faulty port with the tool's FAIL code and exit status,
    // every other one SUCCESS with 0 and the whole file.
    std::string count;
    std::vector<TableRow> rows = table_of(r.out, &count);
    ASSERT_EQ(rows.size(), 8u) << r.out;
    EXPECT_EQ(count, "8 ports: 7 SUCCESS, 1 FAIL");
    for (size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(ports_[i]);
        EXPECT_EQ(rows[i].port, ports_[i]);
        if (i == kFaulty) {
            EXPECT_EQ(rows[i].result, "FAIL");
            EXPECT_EQ(rows[i].code, hex(fail_code));
            EXPECT_EQ(rows[i].status, std::to_string(vk_exit_status(fail_code)));
        } else {
            EXPECT_EQ(rows[i].result, "SUCCESS");
            EXPECT_EQ(rows[i].code, "0x0");
            EXPECT_EQ(rows[i].status, "0");
            EXPECT_EQ(rows[i].bytes, "9216");
            EXPECT_NE(logs_text[i].find("| ["), std::string::npos);
            EXPECT_NE(logs_text[i].find("[SUCCESS] vkagnss run success\n"), std::string::npos);
        }
    }
    // The healthy receivers really took the whole file; the faulty one none of it.
    for (size_t i = 0; i < sims_.size(); ++i) {
        SimRecord rec = sim_record(sims_[i]);
        EXPECT_EQ(rec.epo_clears, 1u) << ports_[i];
        EXPECT_EQ(rec.epo_stored, i == kFaulty ? 0u : 128u) << ports_[i];
    }

    // CSV and JSON parse and say what the table says.
    std::vector<std::vector<std::string>> csv;
    ASSERT_TRUE(parse_csv(read_text(dir_ + "/summary.csv"), &csv));
    ASSERT_EQ(csv.size(), 9u);
    EXPECT_EQ(csv[0],
              (Strings{"port", "result", "code", "status", "signal", "seconds", "bytes", "log"}));
    JsonValue json;
    ASSERT_TRUE(parse_json(read_text(dir_ + "/summary.json"), &json));
    ASSERT_NE(json.get("ports"), nullptr);
    const std::vector<JsonValue> &items = json.get("ports")->items;
    ASSERT_EQ(items.size(), 8u);
    EXPECT_EQ(json.get("total")->number, 8);
    EXPECT_EQ(json.get("success")->number, 7);
    EXPECT_EQ(json.get("interrupted_by")->type, JsonValue::Type::Null);
    for (size_t i = 0; i < 8; ++i) {
        SCOPED_TRACE(ports_[i]);
        const Strings &c = csv[i + 1];
        ASSERT_EQ(c.size(), 8u);
        const JsonValue &j = items[i];
        EXPECT_EQ(c[0], rows[i].port);
        EXPECT_EQ(c[1], rows[i].result);
        EXPECT_EQ(c[2], rows[i].code);
        EXPECT_EQ(c[3], rows[i].status);
        EXPECT_EQ(c[4], "");
        EXPECT_NEAR(std::stod(c[5]), std::stod(rows[i].seconds), 0.0051);
        EXPECT_EQ(c[6], rows[i].bytes);
        EXPECT_EQ(c[7], logs() + "/" + log_name(ports_[i]));
        EXPECT_EQ(j.get("port")->text, c[0]);
        EXPECT_EQ(j.get("result")->text, c[1]);
        EXPECT_EQ(j.get("code")->text, c[2]);
        EXPECT_EQ(j.get("status")->number, std::stod(c[3]));
        EXPECT_EQ(j.get("signal")->type, JsonValue::Type::Null);
        EXPECT_EQ(j.get("seconds")->number, std::stod(c[5]));
        EXPECT_EQ(j.get("bytes")->number, std::stod(c[6]));
        EXPECT_EQ(j.get("log")->text, c[7]);
    }
}

TEST_F(LineRunnerE2E, TwoAtATime) {
    start_sims(6, 115200);
    make_file(2);  // about half a second each
    Strings args = {"-p",        port_list(), "-j",       "2",    "--tool", VKAGNSS_BIN,
                    "--log-dir", logs(),      "--format", "json", "--"};
    for (const std::string &a : tool_args()) args.push_back(a);
    ToolRun r = run_program(VKAGNSS_LINE_BIN, args);
    for (Sim *s : sims_) sim_stop(s);
    EXPECT_EQ(r.status, 0) << r.out << r.err;

    // With --format json, stdout is the document alone; the plain lines are on stderr.
    JsonValue json;
    ASSERT_TRUE(parse_json(r.out, &json)) << r.out;
    ASSERT_EQ(json.get("ports")->items.size(), 6u);
    EXPECT_EQ(json.get("success")->number, 6);
    for (const JsonValue &j : json.get("ports")->items) EXPECT_EQ(j.get("result")->text, "SUCCESS");

    // In the order the runner started and reaped them: never more than two,
    // and two from the first moment on; each port once.
    std::vector<Event> events = events_of(r.err);
    ASSERT_EQ(events.size(), 12u) << r.err;
    EXPECT_EQ(most_at_once(events), 2u) << r.err;
    for (const std::string &p : ports_) {
        EXPECT_EQ(std::count_if(events.begin(), events.end(),
                                [&](const Event &e) { return e.start && e.port == p; }),
                  1);
    }

    // The logs tell the same: start and end notes, ends before starts of
    // the same millisecond (a run starts only after another has ended).
    std::vector<std::pair<std::string, int>> marks;  // (stamp, 0 end / 1 start)
    for (size_t i = 0; i < ports_.size(); ++i) {
        Strings lines = lines_of(checked_log(i));
        ASSERT_FALSE(lines.empty());
        marks.push_back({lines.front().substr(0, 24), 1});
        marks.push_back({lines.back().substr(0, 24), 0});
    }
    std::sort(marks.begin(), marks.end());
    int now = 0, most = 0;
    for (const auto &m : marks) {
        now += m.second == 1 ? 1 : -1;
        most = std::max(most, now);
    }
    EXPECT_LE(most, 2);
}

TEST_F(LineRunnerE2E, CtrlCStopsEveryRunAndStillSummarizes) {
    start_sims(3, 9600);  // about 13 s for the whole file: stopped long before
    make_file(4);
    Strings args = {"-p", port_list(), "-j", "2", "--tool", VKAGNSS_BIN, "--log-dir", logs(), "--"};
    for (const std::string &a : tool_args()) args.push_back(a);

    // A test process that ignores SIGINT would hand that on to the runner.
    struct sigaction dfl {
    }, old{};
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    sigaction(SIGINT, &dfl, &old);
    ToolRun r = run_program(VKAGNSS_LINE_BIN, args, [&](int pid) {
        // Wait until both runs are transferring (at most ten seconds), then Ctrl-C.
        for (int i = 0; i < 500; ++i) {
            if (read_text(logs() + "/" + log_name(ports_[0])).find("[PROGRESS]") !=
                    std::string::npos &&
                read_text(logs() + "/" + log_name(ports_[1])).find("[PROGRESS]") !=
                    std::string::npos)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        kill(pid, SIGINT);
    });
    sigaction(SIGINT, &old, nullptr);

    // Each port is free again: it opens and locks as the tool opens it.
    for (size_t i = 0; i < 2; ++i) {
        int fd = open(ports_[i].c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        ASSERT_GE(fd, 0) << ports_[i];
        EXPECT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0) << ports_[i];
        close(fd);
    }
    for (Sim *s : sims_) sim_stop(s);

    EXPECT_EQ(r.status, 128 + SIGINT) << r.out << r.err;
    EXPECT_NE(r.out.find(" signal 2: stopping 2 running, not starting the rest\n"),
              std::string::npos)
        << r.out;

    std::string count;
    std::vector<TableRow> rows = table_of(r.out, &count);
    ASSERT_EQ(rows.size(), 3u) << r.out;
    EXPECT_EQ(count, "3 ports: 2 INTERRUPTED, 1 NOT RUN");
    for (size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(ports_[i]);
        EXPECT_EQ(rows[i].port, ports_[i]);
        EXPECT_EQ(rows[i].result, "INTERRUPTED");
        EXPECT_NE(rows[i].status, "0");
        EXPECT_LT(std::stoul(rows[i].bytes), 9216u);
        // The run was asked, and stopped the way the tool stops on a signal:
        // its FAIL line, after the runner's note.
        std::string log = checked_log(i);
        size_t passed = log.find(" # passed on signal 2\n");
        EXPECT_NE(passed, std::string::npos) << log;
        uint32_t code = 0;
        EXPECT_TRUE(fail_code_in(log.substr(passed == std::string::npos ? 0 : passed), &code))
            << log;
        EXPECT_EQ(rows[i].code, hex(code));
        EXPECT_NE(log.find(" # end: INTERRUPTED"), std::string::npos) << log;
    }
    EXPECT_EQ(rows[2].port, ports_[2]);
    EXPECT_EQ(rows[2].result, "NOT RUN");
    EXPECT_EQ(rows[2].code, "-");
    EXPECT_EQ(rows[2].status, "-");
    EXPECT_FALSE(file_exists(logs() + "/" + log_name(ports_[2])));
    EXPECT_EQ(sim_bytes_received(sims_[2]), 0u);

    // No vkagnss is left: each started one has been reaped.
    std::vector<Event> events = events_of(r.out);
    size_t started = 0;
    for (const Event &e : events) {
        if (!e.start) continue;
        ++started;
        EXPECT_EQ(kill(pid_t(e.pid), 0), -1) << "pid " << e.pid << " still there";
        EXPECT_EQ(errno, ESRCH);
    }
    EXPECT_EQ(started, 2u) << r.out;
}

}  // namespace
