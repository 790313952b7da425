// The production-line runner's pure parts: reading the tool's progress and
// final lines, cutting output into log lines with their prefix, the log file
// names, the runner's command line and port lists, how a run is judged and
// counted, the summary as table, CSV and JSON, and the live line.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "line/line_cli.h"
#include "line/line_output.h"
#include "line/line_report.h"
#include "tests/support/text_formats.h"

namespace {

using Strings = std::vector<std::string>;

// --- progress lines -------------------------------------------------------------

TEST(LineProgress, PercentOfTheEpoEngineAndTheDownloads) {
    LineProgress p;
    ASSERT_TRUE(parse_progress_line("[001.234][PROGRESS] 12.34%", &p));
    EXPECT_DOUBLE_EQ(p.percent, 12.34);
    EXPECT_FALSE(p.has_bytes);
    ASSERT_TRUE(parse_progress_line("[000.002][PROGRESS] 0.00%", &p));
    EXPECT_DOUBLE_EQ(p.percent, 0.0);
    ASSERT_TRUE(parse_progress_line("[013.170][PROGRESS] 100.00%", &p));
    EXPECT_DOUBLE_EQ(p.percent, 100.0);
}

TEST(LineProgress, ByteCountsOfTheRtcmStreams) {
    LineProgress p;
    ASSERT_TRUE(parse_progress_line("[002.500][PROGRESS] 45.50%,4550,10000", &p));
    EXPECT_DOUBLE_EQ(p.percent, 45.5);
    ASSERT_TRUE(p.has_bytes);
    EXPECT_EQ(p.sent, 4550);
    EXPECT_EQ(p.total, 10000);
}

TEST(LineProgress, UpgradePercentWording) {
    LineProgress p;
    ASSERT_TRUE(parse_progress_line("[000.100][PROGRESS] upgrade percent: 7.50%", &p));
    EXPECT_DOUBLE_EQ(p.percent, 7.5);
}

TEST(LineProgress, LineWithoutItsOwnEndTakesTheLastReport) {
    // A progress line that has no line end runs into the next one.
    LineProgress p;
    ASSERT_TRUE(parse_progress_line(
        "[001.000][PROGRESS] 10.00%[001.001][PROGRESS] 20.00%[001.002][INFO] next", &p));
    EXPECT_DOUBLE_EQ(p.percent, 20.0);
    EXPECT_FALSE(p.has_bytes);
}

TEST(LineProgress, DamagedLaterReportFallsBackOnAnEarlierOne) {
    LineProgress p;
    ASSERT_TRUE(parse_progress_line("[001.000][PROGRESS] 30.00%[001.0[PROGRESS] x", &p));
    EXPECT_DOUBLE_EQ(p.percent, 30.0);
}

TEST(LineProgress, NotProgress) {
    LineProgress p;
    EXPECT_FALSE(parse_progress_line("[000.002][INFO] Sending EPO_GPS_3_1.DAT to module ...", &p));
    EXPECT_FALSE(parse_progress_line("[000.002][PROGRESS] done", &p));
    EXPECT_FALSE(parse_progress_line("[000.002][PROGRESS] 12.5", &p));  // no '%'
    EXPECT_FALSE(parse_progress_line("[000.002][PROGRESS] .5%", &p));
    EXPECT_FALSE(parse_progress_line("", &p));
}

TEST(LineProgress, ByteCountsThatDoNotParseLeaveThePercent) {
    LineProgress p;
    ASSERT_TRUE(parse_progress_line("[000.002][PROGRESS] 5.00%,x,10", &p));
    EXPECT_DOUBLE_EQ(p.percent, 5.0);
    EXPECT_FALSE(p.has_bytes);
}

// --- final lines ------------------------------------------------------------------

TEST(LineFinal, SuccessIsZero) {
    uint32_t code = 99;
    ASSERT_TRUE(parse_final_line("[001.116][SUCCESS] vkagnss run success", &code));
    EXPECT_EQ(code, 0u);
}

TEST(LineFinal, FailCarriesItsCode) {
    uint32_t code = 0;
    ASSERT_TRUE(parse_final_line("[005.003][FAIL] vkagnss run fail,ret:[0x206]", &code));
    EXPECT_EQ(code, 0x206u);
    ASSERT_TRUE(parse_final_line("[000.000][FAIL] vkagnss run fail,ret:[0xffffffff]", &code));
    EXPECT_EQ(code, 0xFFFFFFFFu);
}

TEST(LineFinal, AfterAnEchoOnTheSameLine) {
    // An echoed reply without a line end puts the final line behind it.
    uint32_t code = 0;
    ASSERT_TRUE(
        parse_final_line("[9847262] 0424E8[001.994][FAIL] vkagnss run fail,ret:[0x802]", &code));
    EXPECT_EQ(code, 0x802u);
}

TEST(LineFinal, TheLaterOfTwoCounts) {
    uint32_t code = 1;
    ASSERT_TRUE(parse_final_line(
        "[0.1][FAIL] vkagnss run fail,ret:[0x200][0.2][SUCCESS] vkagnss run success", &code));
    EXPECT_EQ(code, 0u);
    ASSERT_TRUE(parse_final_line(
        "[0.1][SUCCESS] vkagnss run success[0.2][FAIL] vkagnss run fail,ret:[0x104]", &code));
    EXPECT_EQ(code, 0x104u);
}

TEST(LineFinal, NotAFinalLine) {
    uint32_t code = 7;
    EXPECT_FALSE(parse_final_line("[005.020][INFO] AG33XX Send EphFile ret: 0x200", &code));
    EXPECT_FALSE(parse_final_line("[005.020][FAIL] vkagnss run fail,ret:[0xZZ]", &code));
    EXPECT_FALSE(parse_final_line("[005.020][FAIL] vkagnss run fail,ret:[0x206", &code));
    EXPECT_FALSE(parse_final_line("[005.020][SUCCESS] vkagnss", &code));
    EXPECT_EQ(code, 7u);
}

// --- lines ----------------------------------------------------------------------------

Strings split_all(const std::vector<std::string> &chunks, bool finish = true) {
    LineSplitter s;
    Strings lines;
    for (const std::string &c : chunks) line_split_feed(s, c, &lines);
    if (finish) line_split_finish(s, &lines);
    return lines;
}

TEST(LineSplit, EveryLineEndTheToolUses) {
    EXPECT_EQ(split_all({"a\nb\r\nc\rd"}), (Strings{"a", "b", "c", "d"}));
}

TEST(LineSplit, BlankLinesAreDropped) {
    // An echoed reply is "\r\n" then "\n".
    EXPECT_EQ(split_all({"[9341835] $PAIR001,472,0*3A\r\n\n[000.002][INFO] x\n"}),
              (Strings{"[9341835] $PAIR001,472,0*3A", "[000.002][INFO] x"}));
}

TEST(LineSplit, CrLfCutBetweenTwoReads) {
    EXPECT_EQ(split_all({"a\r", "\nb\n"}), (Strings{"a", "b"}));
    EXPECT_EQ(split_all({"[PROG", "RESS] 1", "0.00%\r", "\n"}), (Strings{"[PROGRESS] 10.00%"}));
}

TEST(LineSplit, UnfinishedLineWaitsForTheEnd) {
    EXPECT_EQ(split_all({"a\nbc"}, false), (Strings{"a"}));
    EXPECT_EQ(split_all({"a\nbc"}, true), (Strings{"a", "bc"}));
}

TEST(LineSplit, OverlongLineInPieces) {
    std::string big(LineSplitter::kMaxLine + 10, 'x');
    Strings lines = split_all({big + "\n"});
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), LineSplitter::kMaxLine);
    EXPECT_EQ(lines[1], std::string(10, 'x'));
}

// --- log prefix -------------------------------------------------------------------------

TEST(LineLog, Iso8601WithMilliseconds) {
    EXPECT_EQ(iso8601_utc_ms(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(iso8601_utc_ms(1767866357123), "2026-01-08T09:59:17.123Z");
    EXPECT_EQ(iso8601_utc_ms(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(iso8601_utc_ms(1709251199999), "2024-02-29T23:59:59.999Z");
    EXPECT_EQ(iso8601_utc_ms(951782400000), "2000-02-29T00:00:00.000Z");
    EXPECT_EQ(iso8601_utc_ms(4102444800000), "2100-01-01T00:00:00.000Z");
}

TEST(LineLog, BasicFormForDirectoryNames) {
    EXPECT_EQ(iso8601_basic_utc(1767866357123), "20260108T095917Z");
}

TEST(LineLog, ToolLinesAndNotes) {
    EXPECT_EQ(log_tool_line("2026-01-08T09:59:17.123Z", "/dev/ttyUSB0",
                            "[000.000][INFO] Enter agnss tool"),
              "2026-01-08T09:59:17.123Z /dev/ttyUSB0 | [000.000][INFO] Enter agnss tool\n");
    EXPECT_EQ(log_note_line("2026-01-08T09:59:17.123Z", "COM3", "start: vkagnss -p COM3"),
              "2026-01-08T09:59:17.123Z COM3 # start: vkagnss -p COM3\n");
}

TEST(LineLog, SafeFileNames) {
    EXPECT_EQ(
        log_file_names({"/dev/ttyUSB0", "COM3", "\\\\.\\COM10", "/tmp/x y/tty:1", "lpt1.a", "///"}),
        (Strings{"dev_ttyUSB0.log", "COM3_.log", "COM10.log", "tmp_x_y_tty_1.log", "lpt1_.a.log",
                 "port.log"}));
}

TEST(LineLog, SameSafeNameTwice) {
    // Case does not tell files apart everywhere.
    EXPECT_EQ(log_file_names({"/dev/ttyS0", "dev/ttyS0", "/dev/TTYS0", "COM5", "com5"}),
              (Strings{"dev_ttyS0.log", "dev_ttyS0-2.log", "dev_TTYS0-3.log", "COM5_.log",
                       "com5_-2.log"}));
}

// --- the tool's arguments ---------------------------------------------------------------

TEST(LineToolArgs, PortGoesInFront) {
    EXPECT_EQ(tool_arguments("/dev/ttyUSB1", {"-m", "AG33XX", "-o", "offline", "-fA.DAT"}),
              (Strings{"-p", "/dev/ttyUSB1", "-m", "AG33XX", "-o", "offline", "-fA.DAT"}));
}

TEST(LineToolArgs, NamedFiles) {
    EXPECT_EQ(named_files({"-m", "AG33XX", "-fEPO_GPS_3_1.DAT"}), (Strings{"EPO_GPS_3_1.DAT"}));
    EXPECT_EQ(named_files({"-fA.DAT,,B.DAT,"}), (Strings{"A.DAT", "B.DAT"}));
    EXPECT_EQ(named_files({"-f", "x.rtcm", "-b", "115200"}), (Strings{"x.rtcm"}));
    EXPECT_EQ(named_files({"-fA", "-fB"}), (Strings{"B"}));  // the last -f counts
    EXPECT_EQ(named_files({"-m", "DW2207B", "-f"}), Strings{});
    EXPECT_EQ(named_files({"-m", "AG33XX"}), Strings{});
}

// How the C runtime splits a Windows command line, written from its rules:
// 2n backslashes before a quote give n and the quote toggles quoting, 2n+1
// give n and a literal quote; other backslashes are literal; blanks outside
// quotes separate arguments.
Strings windows_split(const std::string &line) {
    Strings out;
    std::string cur;
    bool quoted = false, have = false;
    for (size_t i = 0; i < line.size();) {
        char c = line[i];
        if (c == '\\') {
            size_t n = 0;
            while (i < line.size() && line[i] == '\\') ++n, ++i;
            if (i < line.size() && line[i] == '"') {
                cur.append(n / 2, '\\');
                if (n % 2) {
                    cur += '"';
                    ++i;
                }
            } else {
                cur.append(n, '\\');
            }
            have = true;
        } else if (c == '"') {
            quoted = !quoted;
            have = true;
            ++i;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (have) out.push_back(cur);
            cur.clear();
            have = false;
            ++i;
        } else {
            cur += c;
            have = true;
            ++i;
        }
    }
    if (have) out.push_back(cur);
    return out;
}

TEST(LineWindows, QuotingOfOneArgument) {
    EXPECT_EQ(windows_quote_arg("-fEPO_GPS_3_1.DAT"), "-fEPO_GPS_3_1.DAT");
    EXPECT_EQ(windows_quote_arg("C:\\Program Files\\vkagnss.exe"),
              "\"C:\\Program Files\\vkagnss.exe\"");
    EXPECT_EQ(windows_quote_arg(""), "\"\"");
    EXPECT_EQ(windows_quote_arg("a\"b"), "\"a\\\"b\"");
    EXPECT_EQ(windows_quote_arg("a\\b"), "a\\b");
    EXPECT_EQ(windows_quote_arg("a b\\"), "\"a b\\\\\"");
    EXPECT_EQ(windows_quote_arg("a\\\"b"), "\"a\\\\\\\"b\"");
}

TEST(LineWindows, CommandLineSplitsBackUnchanged) {
    Strings argv = {"C:\\tools dir\\vkagnss.exe",
                    "-p",
                    "COM3",
                    "-u0,2026-01-08-09:59:17,18,10",
                    "",
                    "two words",
                    "quote\"inside",
                    "trail\\",
                    "trail space\\ ",
                    "\\\\server\\share\\x.DAT",
                    "\"",
                    "\\\"",
                    "tab\there"};
    EXPECT_EQ(windows_split(windows_command_line(argv)), argv);
}

// --- command line -------------------------------------------------------------------------

LineOptions parsed(const Strings &args) {
    LineOptions o;
    std::string error;
    EXPECT_TRUE(parse_line_cli(args, &o, &error)) << error;
    return o;
}

std::string refused(const Strings &args) {
    LineOptions o;
    std::string error;
    EXPECT_FALSE(parse_line_cli(args, &o, &error));
    return error;
}

TEST(LineCli, TheUsualForm) {
    LineOptions o = parsed({"-p", "/dev/ttyUSB0,/dev/ttyUSB1", "--", "-m", "AG33XX", "-o",
                            "offline", "-b", "921600", "-c", "-fEPO_GPS_3_1.DAT"});
    EXPECT_EQ(o.port_lists, (Strings{"/dev/ttyUSB0,/dev/ttyUSB1"}));
    EXPECT_EQ(o.tool_args, (Strings{"-m", "AG33XX", "-o", "offline", "-b", "921600", "-c",
                                    "-fEPO_GPS_3_1.DAT"}));
    EXPECT_EQ(o.jobs, 0);
    EXPECT_EQ(o.format, LineFormat::Table);
    EXPECT_FALSE(o.plain);
    EXPECT_TRUE(o.tool.empty());
    EXPECT_TRUE(o.log_dir.empty());
}

TEST(LineCli, EveryOptionInEveryForm) {
    LineOptions o = parsed({"-pCOM3",
                            "--ports",
                            "COM4",
                            "--ports=COM5",
                            "--ports-file",
                            "f.txt",
                            "--ports-glob=/dev/ttyUSB*",
                            "-j2",
                            "--tool",
                            "/opt/vkagnss",
                            "--log-dir=logs",
                            "--csv",
                            "s.csv",
                            "--json",
                            "s.json",
                            "--format",
                            "json",
                            "--plain",
                            "--",
                            "-m",
                            "DW2207B",
                            "-o",
                            "online"});
    EXPECT_EQ(o.port_lists, (Strings{"COM3", "COM4", "COM5"}));
    EXPECT_EQ(o.port_files, (Strings{"f.txt"}));
    EXPECT_EQ(o.port_globs, (Strings{"/dev/ttyUSB*"}));
    EXPECT_EQ(o.jobs, 2);
    EXPECT_EQ(o.tool, "/opt/vkagnss");
    EXPECT_EQ(o.log_dir, "logs");
    EXPECT_EQ(o.csv_file, "s.csv");
    EXPECT_EQ(o.json_file, "s.json");
    EXPECT_EQ(o.format, LineFormat::Json);
    EXPECT_TRUE(o.plain);
    EXPECT_EQ(parsed({"-j", "3", "-pA", "--", "-mX"}).jobs, 3);
    EXPECT_EQ(parsed({"--jobs=4", "-pA", "--", "-mX"}).jobs, 4);
    EXPECT_EQ(parsed({"--format", "csv", "-pA", "--", "-mX"}).format, LineFormat::Csv);
}

TEST(LineCli, EverythingAfterTheDashesGoesToTheTool) {
    EXPECT_EQ(parsed({"-pA", "--", "-m", "X", "--", "--help", "-j", "2"}).tool_args,
              (Strings{"-m", "X", "--", "--help", "-j", "2"}));
}

TEST(LineCli, HelpAndVersionNeedNothingElse) {
    EXPECT_TRUE(parsed({"--help"}).help);
    EXPECT_TRUE(parsed({"-h"}).help);
    EXPECT_TRUE(parsed({"-V"}).version);
    EXPECT_TRUE(parsed({"--version"}).version);
}

TEST(LineCli, Refusals) {
    EXPECT_EQ(refused({"--", "-m", "AG33XX"}), "no ports: give -p, --ports-file or --ports-glob");
    EXPECT_EQ(refused({"-pA"}),
              "no arguments for vkagnss: give them after --, as in -- -m AG33XX -o offline ...");
    EXPECT_EQ(refused({"-pA", "--"}),
              "no arguments for vkagnss: give them after --, as in -- -m AG33XX -o offline ...");
    EXPECT_EQ(refused({"-pA", "--", "-m", "X", "-p", "COM3"}),
              "'-p' after --: the runner gives each run its own -p");
    EXPECT_EQ(refused({"-pA", "--", "-m", "X", "-pCOM3"}),
              "'-pCOM3' after --: the runner gives each run its own -p");
    EXPECT_EQ(refused({"-pA", "-j0", "--", "-mX"}),
              "-j takes a whole number of 1 or more, not '0'");
    EXPECT_EQ(refused({"-pA", "-j", "x", "--", "-mX"}),
              "-j takes a whole number of 1 or more, not 'x'");
    EXPECT_EQ(refused({"-pA", "--format", "xml", "--", "-mX"}),
              "--format takes table, csv or json, not 'xml'");
    EXPECT_EQ(refused({"-pA", "--tool"}), "--tool needs a value");
    EXPECT_EQ(refused({"-pA", "--log-dir=", "--", "-mX"}),
              "--log-dir takes a value that is not empty");
    EXPECT_EQ(refused({"-pA", "--colour", "--", "-mX"}), "unknown option '--colour'");
    EXPECT_EQ(refused({"-pA", "-m", "AG33XX", "--"}), "unknown option '-m'");
    EXPECT_EQ(refused({"-pA", "AG33XX", "--", "-mX"}),
              "unexpected 'AG33XX': the arguments for vkagnss go after --");
}

TEST(LineCli, HelpTextNamesEveryOption) {
    std::string help = line_help_text();
    for (const char *word : {"-p, --ports", "--ports-file", "--ports-glob", "-j, --jobs", "--tool",
                             "--log-dir", "--format", "--csv", "--json", "--plain", "--help",
                             "--version", "not on Windows", "Exit status"}) {
        EXPECT_NE(help.find(word), std::string::npos) << word;
    }
}

// --- port lists ---------------------------------------------------------------------------

TEST(LinePorts, CommaList) {
    EXPECT_EQ(split_port_list("/dev/ttyUSB0, /dev/ttyUSB1,,COM3 "),
              (Strings{"/dev/ttyUSB0", "/dev/ttyUSB1", "COM3"}));
    EXPECT_EQ(split_port_list(","), Strings{});
}

TEST(LinePorts, PortsFile) {
    EXPECT_EQ(parse_ports_text("# tray A\r\n/dev/ttyUSB0\r\n\n  /dev/ttyUSB1   # left\n"
                               "   \n#/dev/ttyUSB2\nCOM7"),
              (Strings{"/dev/ttyUSB0", "/dev/ttyUSB1", "COM7"}));
    EXPECT_EQ(parse_ports_text(""), Strings{});
}

TEST(LinePorts, NaturalOrder) {
    EXPECT_TRUE(natural_less("/dev/ttyUSB2", "/dev/ttyUSB10"));
    EXPECT_FALSE(natural_less("/dev/ttyUSB10", "/dev/ttyUSB2"));
    EXPECT_FALSE(natural_less("/dev/ttyUSB2", "/dev/ttyUSB2"));
    EXPECT_TRUE(natural_less("/dev/ttyACM9", "/dev/ttyUSB0"));
    EXPECT_TRUE(natural_less("COM", "COM1"));
    EXPECT_TRUE(natural_less("x1", "x01"));  // same value: fewer zeros first
    EXPECT_TRUE(natural_less("x007", "x8"));
    Strings v = {"ttyUSB10", "ttyUSB1", "ttyUSB2", "ttyACM0", "ttyUSB0"};
    std::sort(v.begin(), v.end(), natural_less);
    EXPECT_EQ(v, (Strings{"ttyACM0", "ttyUSB0", "ttyUSB1", "ttyUSB2", "ttyUSB10"}));
}

TEST(LinePorts, RepeatsRunOnce) {
    Strings dropped;
    EXPECT_EQ(unique_ports({"A", "B", "A", "C", "B", "A"}, &dropped), (Strings{"A", "B", "C"}));
    EXPECT_EQ(dropped, (Strings{"A", "B"}));
}

// --- judging and counting -------------------------------------------------------------

RunOutcome outcome(bool started, bool interrupted, bool has_code, uint32_t code, bool exited,
                   int64_t status, int signal = 0) {
    RunOutcome o;
    o.started = started;
    o.interrupted = interrupted;
    o.has_code = has_code;
    o.code = code;
    o.exited = exited;
    o.status = status;
    o.signal = signal;
    return o;
}

TEST(LineJudge, EveryWayARunEnds) {
    EXPECT_EQ(judge_run(outcome(true, false, true, 0, true, 0)), RunResult::Success);
    EXPECT_EQ(judge_run(outcome(true, false, true, 0x206, true, 38)), RunResult::Fail);
    // A SUCCESS line with a failing status is no success.
    EXPECT_EQ(judge_run(outcome(true, false, true, 0, true, 1)), RunResult::Fail);
    EXPECT_EQ(judge_run(outcome(true, false, false, 0, false, 0, 11)), RunResult::NoResult);
    EXPECT_EQ(judge_run(outcome(true, false, false, 0, true, 0)), RunResult::NoResult);
    EXPECT_EQ(judge_run(outcome(true, true, true, 0x802, true, 130)), RunResult::Interrupted);
    EXPECT_EQ(judge_run(outcome(true, true, false, 0, false, 0, 2)), RunResult::Interrupted);
    // It had finished before the signal came.
    EXPECT_EQ(judge_run(outcome(true, true, true, 0, true, 0)), RunResult::Success);
    EXPECT_EQ(judge_run(outcome(false, false, false, 0, false, 0)), RunResult::NotStarted);
    EXPECT_EQ(judge_run(outcome(false, true, false, 0, false, 0)), RunResult::NotRun);
}

TEST(LineBytes, WhatARunCounts) {
    LineProgress none;
    LineProgress half;
    half.percent = 50;
    LineProgress counted;
    counted.percent = 40;
    counted.has_bytes = true;
    counted.sent = 400;
    counted.total = 1000;
    EXPECT_EQ(run_bytes(RunResult::Success, 9216, 1, true, half), 9216u);
    EXPECT_EQ(run_bytes(RunResult::Success, 30000, 3, false, none), 30000u);
    EXPECT_EQ(run_bytes(RunResult::Fail, 9216, 1, true, half), 4608u);
    EXPECT_EQ(run_bytes(RunResult::Interrupted, 5000, 1, true, counted), 400u);
    EXPECT_EQ(run_bytes(RunResult::Fail, 30000, 3, true, half), 0u);  // which file's half?
    EXPECT_EQ(run_bytes(RunResult::Fail, 9216, 1, false, none), 0u);
    EXPECT_EQ(run_bytes(RunResult::NotRun, 9216, 1, false, none), 0u);
}

TEST(LineBytes, ProgressInBytes) {
    LineProgress p;
    p.percent = 14.06;
    uint64_t sent = 0, total = 0;
    ASSERT_TRUE(progress_bytes(p, 9216, 1, &sent, &total));
    EXPECT_EQ(sent, 1295u);  // 14.06 % of 9216, rounded down
    EXPECT_EQ(total, 9216u);
    EXPECT_FALSE(progress_bytes(p, 9216, 2, &sent, &total));
    EXPECT_FALSE(progress_bytes(p, 0, 1, &sent, &total));
    p.percent = 150;  // never past the whole
    ASSERT_TRUE(progress_bytes(p, 9216, 1, &sent, &total));
    EXPECT_EQ(sent, 9216u);
}

// --- summary ----------------------------------------------------------------------------

std::vector<SummaryRow> sample_rows() {
    SummaryRow ok;
    ok.port = "/dev/ttyUSB0";
    ok.result = RunResult::Success;
    ok.has_code = true;
    ok.has_status = true;
    ok.seconds = 1.124;
    ok.bytes = 9216;
    ok.log = "logs/dev_ttyUSB0.log";
    SummaryRow fail;
    fail.port = "/dev/ttyUSB10";
    fail.result = RunResult::Fail;
    fail.has_code = true;
    fail.code = 0x206;
    fail.has_status = true;
    fail.status = 38;
    fail.seconds = 5.0199;
    fail.log = "logs/dev_ttyUSB10.log";
    SummaryRow killed;
    killed.port = "COM3";
    killed.result = RunResult::Interrupted;
    killed.signal = 9;
    killed.seconds = 12.5;
    killed.bytes = 1295;
    killed.log = "logs/COM3_.log";
    SummaryRow skipped;
    skipped.port = "COM4";
    skipped.result = RunResult::NotRun;
    skipped.log = "logs/COM4_.log";
    return {ok, fail, killed, skipped};
}

TEST(LineSummary, Table) {
    EXPECT_EQ(format_table(sample_rows()),
              "PORT           RESULT       CODE   STATUS    SECONDS  BYTES\n"
              "/dev/ttyUSB0   SUCCESS      0x0    0            1.12   9216\n"
              "/dev/ttyUSB10  FAIL         0x206  38           5.02      0\n"
              "COM3           INTERRUPTED  none   signal 9    12.50   1295\n"
              "COM4           NOT RUN      -      -            0.00      0\n"
              "4 ports: 1 SUCCESS, 1 FAIL, 1 INTERRUPTED, 1 NOT RUN\n");
}

TEST(LineSummary, TableOfOne) {
    std::vector<SummaryRow> rows = {sample_rows()[0]};
    std::string t = format_table(rows);
    EXPECT_NE(t.find("\n1 port: 1 SUCCESS\n"), std::string::npos) << t;
}

TEST(LineSummary, Csv) {
    EXPECT_EQ(format_csv(sample_rows()),
              "port,result,code,status,signal,seconds,bytes,log\n"
              "/dev/ttyUSB0,SUCCESS,0x0,0,,1.124,9216,logs/dev_ttyUSB0.log\n"
              "/dev/ttyUSB10,FAIL,0x206,38,,5.020,0,logs/dev_ttyUSB10.log\n"
              "COM3,INTERRUPTED,,,9,12.500,1295,logs/COM3_.log\n"
              "COM4,NOT RUN,,,,0.000,0,logs/COM4_.log\n");
}

TEST(LineSummary, CsvQuoting) {
    EXPECT_EQ(csv_field("plain"), "plain");
    EXPECT_EQ(csv_field("a,b"), "\"a,b\"");
    EXPECT_EQ(csv_field("say \"hi\""), "\"say \"\"hi\"\"\"");
    EXPECT_EQ(csv_field("two\nlines"), "\"two\nlines\"");
    std::vector<SummaryRow> rows = {sample_rows()[0]};
    rows[0].port = "odd, \"port\"\nname";
    std::vector<std::vector<std::string>> parsed;
    ASSERT_TRUE(parse_csv(format_csv(rows), &parsed));
    ASSERT_EQ(parsed.size(), 2u);
    EXPECT_EQ(parsed[1][0], "odd, \"port\"\nname");
    EXPECT_EQ(parsed[1].size(), 8u);
}

TEST(LineSummary, Json) {
    EXPECT_EQ(
        format_json(sample_rows(), 2),
        "{\n"
        "  \"ports\": [\n"
        "    {\"port\": \"/dev/ttyUSB0\", \"result\": \"SUCCESS\", \"code\": \"0x0\", \"status\": "
        "0, \"signal\": null, \"seconds\": 1.124, \"bytes\": 9216, \"log\": "
        "\"logs/dev_ttyUSB0.log\"},\n"
        "    {\"port\": \"/dev/ttyUSB10\", \"result\": \"FAIL\", \"code\": \"0x206\", \"status\": "
        "38, \"signal\": null, \"seconds\": 5.020, \"bytes\": 0, \"log\": "
        "\"logs/dev_ttyUSB10.log\"},\n"
        "    {\"port\": \"COM3\", \"result\": \"INTERRUPTED\", \"code\": null, \"status\": null, "
        "\"signal\": 9, \"seconds\": 12.500, \"bytes\": 1295, \"log\": \"logs/COM3_.log\"},\n"
        "    {\"port\": \"COM4\", \"result\": \"NOT RUN\", \"code\": null, \"status\": null, "
        "\"signal\": null, \"seconds\": 0.000, \"bytes\": 0, \"log\": \"logs/COM4_.log\"}\n"
        "  ],\n"
        "  \"total\": 4,\n"
        "  \"success\": 1,\n"
        "  \"interrupted_by\": 2\n"
        "}\n");
}

TEST(LineSummary, JsonParsesBackWithOddNames) {
    std::vector<SummaryRow> rows = sample_rows();
    rows[0].port = "C:\\ports\\\"one\"\ttab\x01";
    rows[1].log = "logs/\xc3\xa9t\xc3\xa9.log";  // UTF-8 passes through
    JsonValue doc;
    ASSERT_TRUE(parse_json(format_json(rows, 0), &doc));
    const JsonValue *ports = doc.get("ports");
    ASSERT_NE(ports, nullptr);
    ASSERT_EQ(ports->items.size(), 4u);
    EXPECT_EQ(ports->items[0].get("port")->text, rows[0].port);
    EXPECT_EQ(ports->items[1].get("log")->text, rows[1].log);
    EXPECT_EQ(doc.get("interrupted_by")->type, JsonValue::Type::Null);
    EXPECT_EQ(doc.get("total")->number, 4);
}

TEST(LineSummary, JsonOfNothing) {
    JsonValue doc;
    ASSERT_TRUE(parse_json(format_json({}, 0), &doc));
    EXPECT_TRUE(doc.get("ports")->items.empty());
}

// --- rate and live line -----------------------------------------------------------------

TEST(LineRate, RateAndTimeLeft) {
    RateMeter m;
    EXPECT_LT(rate_per_second(m, 0), 0);
    rate_add(m, 10.0, 0);
    // One report and nothing since: a stall, not an unknown.
    EXPECT_DOUBLE_EQ(rate_per_second(m, 11.0), 0.0);
    EXPECT_LT(time_left(m, 11.0, 100), 0);
    rate_add(m, 11.0, 10);
    rate_add(m, 12.0, 20);
    EXPECT_DOUBLE_EQ(rate_per_second(m, 12.0), 10.0);
    EXPECT_DOUBLE_EQ(time_left(m, 12.0, 100), 8.0);
    // Nothing new for two more seconds: the rate sinks.
    EXPECT_DOUBLE_EQ(rate_per_second(m, 14.0), 5.0);
}

TEST(LineRate, TooShortToTell) {
    RateMeter m;
    rate_add(m, 1.0, 0);
    rate_add(m, 1.1, 50);
    EXPECT_LT(rate_per_second(m, 1.1), 0);
    EXPECT_LT(time_left(m, 1.1, 100), 0);
}

TEST(LineRate, NextFileStartsAfresh) {
    RateMeter m;
    rate_add(m, 0, 0);
    rate_add(m, 1, 100);
    rate_add(m, 2, 0);  // the second file of a run begins
    ASSERT_EQ(m.samples.size(), 1u);
    rate_add(m, 3, 50);
    EXPECT_DOUBLE_EQ(rate_per_second(m, 3), 50.0);
}

TEST(LineRate, OnlyTheLastSecondsCount) {
    RateMeter m;
    rate_add(m, 0, 0);
    rate_add(m, 1, 90);                                          // a fast start...
    for (int t = 2; t <= 20; ++t) rate_add(m, t, 90 + (t - 1));  // ...then 1 per second
    EXPECT_NEAR(rate_per_second(m, 20), 1.0, 1e-9);
}

TEST(LineView, Pieces) {
    EXPECT_EQ(progress_bar(50, 10), "[#####.....]");
    EXPECT_EQ(progress_bar(0, 4), "[....]");
    EXPECT_EQ(progress_bar(100, 4), "[####]");
    EXPECT_EQ(progress_bar(140, 4), "[####]");
    EXPECT_EQ(progress_bar(-3, 4), "[....]");
    EXPECT_EQ(format_rate(850, true), "850 B/s");
    EXPECT_EQ(format_rate(11240, true), "11.2 kB/s");
    EXPECT_EQ(format_rate(1.2e6, true), "1.20 MB/s");
    EXPECT_EQ(format_rate(3.44, false), "3.4 %/s");
    EXPECT_EQ(format_duration(7), "0:07");
    EXPECT_EQ(format_duration(723), "12:03");
    EXPECT_EQ(format_duration(3723), "1:02:03");
    EXPECT_EQ(format_duration(-5), "0:00");
    EXPECT_EQ(without_stamp("[001.234][INFO] AG33XX ClearEph ret: 0x0"),
              "[INFO] AG33XX ClearEph ret: 0x0");
    EXPECT_EQ(without_stamp("[1234.567] open uart_fd:3"), "open uart_fd:3");
    EXPECT_EQ(without_stamp("[9341835] $PAIR001,472,0*3A"), "[9341835] $PAIR001,472,0*3A");
    EXPECT_EQ(without_stamp("plain"), "plain");
}

TEST(LineView, LiveLines) {
    LiveLine l;
    l.port = "/dev/ttyUSB0";
    EXPECT_EQ(render_live_line(l, 14, 200), "/dev/ttyUSB0    waiting");

    l.state = LiveLine::State::Running;
    l.elapsed = 0.4;
    EXPECT_EQ(render_live_line(l, 12, 200), "/dev/ttyUSB0  0:00  starting");  // nothing printed yet
    l.activity = "[INFO] AG33XX ClearEph ret: 0x0";
    EXPECT_EQ(render_live_line(l, 12, 200), "/dev/ttyUSB0  0:00  [INFO] AG33XX ClearEph ret: 0x0");

    l.has_progress = true;
    l.percent = 46.1;
    l.rate = 684;
    l.rate_in_bytes = true;
    l.left = 7.2;
    EXPECT_EQ(render_live_line(l, 12, 200),
              "/dev/ttyUSB0  [#########...........] 46.1%   684 B/s  0:07 left");
    l.rate = -1;
    l.left = -1;
    l.stopping = true;
    EXPECT_EQ(render_live_line(l, 12, 200),
              "/dev/ttyUSB0  [#########...........] 46.1%   -  -  (stopping)");

    l.state = LiveLine::State::Done;
    l.row = sample_rows()[1];
    EXPECT_EQ(render_live_line(l, 12, 200),
              "/dev/ttyUSB0  FAIL        code 0x206, status 38, 5.02 s");
    EXPECT_EQ(render_live_line(l, 12, 20), "/dev/ttyUSB0  FAIL  ");
}

}  // namespace
