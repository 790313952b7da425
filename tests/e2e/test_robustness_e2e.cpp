// The edges an unattended station meets: files that are not files, files cut
// short, runs that are interrupted, ports that vanish or stop reading, ports
// that do not open, and a wrong baud rate. The real binary against the
// virtual receiver; the console lines the platforms define stay as they are,
// the reasons go to stderr.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "sim/sim.h"
#include "tests/e2e/epo_expect.h"
#include "tests/support/harness.h"
#include "tests/support/sim_fixture.h"
#include "tools/hdb_gen.h"
#include "tools/rtcm_gen.h"

namespace {

// One way into a flow that takes a file: model, mode (empty: the
// information entry, which opens no port) and the options around the file.
// The file is named eph.rtcm3, a name every entry checks no further before
// it reads the file.
struct Entry {
    const char *model;
    const char *mode;
    std::vector<std::string> (*args)(const std::string &file);
};

const Entry kFileEntries[] = {
    {"DW2207B", "online", [](const std::string &f) { return std::vector<std::string>{"-f" + f}; }},
    {"AG33XX", "online",
     [](const std::string &f) {
         return std::vector<std::string>{"-sHOT", "-f" + f};
     }},
    {"AG33XX", "offline",
     [](const std::string &f) {
         return std::vector<std::string>{"-c", "-f" + f};
     }},
    {"AG33XX", "", [](const std::string &f) { return std::vector<std::string>{"-f" + f}; }},
    {"RZ610MXXXX", "online",
     [](const std::string &f) {
         return std::vector<std::string>{"-sCOLD", "-f" + f};
     }},
    {"RZ610MXXXX", "offline",
     [](const std::string &f) {
         return std::vector<std::string>{"-c", "-f" + f};
     }},
    {"HD8XXX", "online",
     [](const std::string &f) {
         return std::vector<std::string>{"-s", "HOT", "-f", f};
     }},
    {"HD8XXX", "offline",
     [](const std::string &f) {
         return std::vector<std::string>{"-c", "-s", "COLD", "-f", f};
     }},
    {"STA8100", "online",
     [](const std::string &f) {
         return std::vector<std::string>{"-t", "rtcm", "-u", "0", "-f", f};
     }},
    {"STA8100", "offline",
     [](const std::string &f) {
         return std::vector<std::string>{"-t", "nmea", "-u", "2026-01-08-09:59:17", "-f", f};
     }},
    {"TQ934N", "online",
     [](const std::string &f) {
         return std::vector<std::string>{"-s", "HOT", "-f", f};
     }},
    {"TQ934N", "offline",
     [](const std::string &f) {
         return std::vector<std::string>{"-s", "HOT", "-f", f};
     }},
};

const char *sim_platform(const char *model) {
    static const struct {
        const char *model, *platform;
    } kMap[] = {{"DW2207B", "dw2207b"}, {"AG33XX", "ag33xx"}, {"RZ610MXXXX", "rz610mxxxx"},
                {"HD8XXX", "hd8xxx"},   {"MJ7XXX", "mj7xxx"}, {"STA8100", "sta8100"},
                {"TQ934N", "tq934n"}};
    for (const auto &m : kMap)
        if (strcmp(m.model, model) == 0) return m.platform;
    return "";
}

// The two lines that end a run interrupted by signal sig.
std::string interrupted_tail(int sig) {
    char line[160];
    snprintf(line, sizeof line,
             "[SSS.mmm][ERROR] interrupted by signal %d\n"
             "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x%x]\n",
             sig, under_wine() ? 0xC000013Au : 0x800u + unsigned(sig));
    return line;
}

std::string fail_line(uint32_t code) {
    char line[64];
    snprintf(line, sizeof line, "[SSS.mmm][FAIL] vkagnss run fail,ret:[0x%x]\n", code);
    return line;
}

bool ends_with(const std::string &s, const std::string &tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

size_t count_of(const std::string &s, const std::string &what) {
    size_t n = 0;
    for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1)) ++n;
    return n;
}

// The output speed a terminal device has now, as the test sees it.
speed_t device_speed(const std::string &device) {
    int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return speed_t(-1);
    termios t{};
    tcgetattr(fd, &t);
    close(fd);
    return cfgetospeed(&t);
}

class RobustE2E : public SimTest {
protected:
    // A generated RTCM file of at least min_size bytes in the test's directory.
    std::string rtcm_file(uint64_t min_size, const char *name = "eph.rtcm3") {
        RtcmGenConfig cfg;
        cfg.systems = "GC";
        cfg.min_size = min_size;
        std::string path = dir() + "/" + name;
        write_file(path, rtcmgen_generate(cfg));
        return path;
    }

    // Runs every file-taking entry on path and checks that it ends at the
    // file check: the platforms' "Fail to access" line with err, 0x103, and
    // the reason on stderr when hint is given; nothing reaches a receiver.
    void expect_refused_everywhere(const std::string &path, int err, const std::string &hint) {
        for (const Entry &e : kFileEntries) {
            SCOPED_TRACE(std::string(e.model) + " " + e.mode);
            ToolRun r;
            Sim *rx = nullptr;
            if (e.mode[0] == '\0') {
                r = run_tool({"-m", e.model, "-f" + path});
            } else {
                SimConfig cfg;
                cfg.platform = sim_platform(e.model);
                rx = sim_start(cfg);
                ASSERT_NE(rx, nullptr);
                std::string port = port_for_device(sim_slave_path(rx));
                std::vector<std::string> a = {"-m", e.model, "-o", e.mode,
                                              "-p", port,    "-b", "115200"};
                std::vector<std::string> more = e.args(path);
                a.insert(a.end(), more.begin(), more.end());
                r = run_tool(a);
                release_port(port);
                sim_stop(rx);
                EXPECT_TRUE(sim_record(rx).raw.empty());
                sim_free(rx);
            }
            std::string out = mask(r.out);
            char line[512];
            uint32_t code = 0x103;
            if (strcmp(e.model, "TQ934N") == 0) {
                // This platform summarizes the file before its access check:
                // the summary's open fails first, with the summary's code.
                code = 0x107;
                snprintf(line, sizeof line, "[SSS.mmm][INFO] Get RTCM EPH Info from %s\n",
                         path.c_str());
                EXPECT_NE(r.err.find(std::string("fopen: ") + strerror(err) + "\n"),
                          std::string::npos)
                    << r.err;
            } else {
                snprintf(line, sizeof line, "[SSS.mmm][ERROR] Fail to access %s, errno: %d (%s)\n",
                         path.c_str(), err, strerror(err));
            }
            EXPECT_NE(out.find(line), std::string::npos) << out;
            EXPECT_TRUE(ends_with(out, fail_line(code))) << out;
            EXPECT_EQ(r.status, expected_status(code));
            if (!hint.empty()) {
                EXPECT_NE(r.err.find(hint), std::string::npos) << r.err;
            }
        }
    }
};

// --- files that are not regular files ---------------------------------------------

TEST_F(RobustE2E, FifoWithoutAWriterIsRefusedAtOnce) {
    if (under_wine()) GTEST_SKIP() << "a POSIX FIFO has no Windows name";
    std::string fifo = dir() + "/eph.rtcm3";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    expect_refused_everywhere(fifo, EINVAL,
                              "vkagnss: " + fifo + " is a FIFO, not a regular file\n");
}

TEST_F(RobustE2E, FifoWithAWriterIsRefusedAtOnce) {
    if (under_wine()) GTEST_SKIP() << "a POSIX FIFO has no Windows name";
    std::string fifo = dir() + "/eph.rtcm3";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int writer = open(fifo.c_str(), O_RDWR | O_NONBLOCK);  // a writer that never writes
    ASSERT_GE(writer, 0);
    expect_refused_everywhere(fifo, EINVAL,
                              "vkagnss: " + fifo + " is a FIFO, not a regular file\n");
    close(writer);
}

TEST_F(RobustE2E, DirectoryIsRefused) {
    std::string d = dir() + "/eph.rtcm3";
    ASSERT_EQ(mkdir(d.c_str(), 0700), 0);
    expect_refused_everywhere(d, EISDIR, "");
}

TEST_F(RobustE2E, CharacterDeviceIsRefused) {
    if (under_wine()) GTEST_SKIP() << "/dev/null has no Windows name";
    std::string link = dir() + "/eph.rtcm3";  // /dev/null under a name every entry reads
    ASSERT_EQ(symlink("/dev/null", link.c_str()), 0);
    expect_refused_everywhere(link, EINVAL,
                              "vkagnss: " + link + " is a character device, not a regular file\n");
}

TEST_F(RobustE2E, SocketIsRefused) {
    if (under_wine()) GTEST_SKIP() << "a UNIX socket has no Windows name";
    std::string path = dir() + "/eph.rtcm3";
    int s = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(s, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof addr.sun_path);
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(bind(s, reinterpret_cast<sockaddr *>(&addr), sizeof addr), 0);
    expect_refused_everywhere(path, EINVAL,
                              "vkagnss: " + path + " is a socket, not a regular file\n");
    close(s);
}

// --- a file cut short inside its last record -------------------------------------

TEST_F(RobustE2E, EpoFileCutInsideItsLastRecordSendsOnlyTheWholeRecords) {
    start_sim("ag33xx", SimFaults());
    EpoGenConfig cfg = epo_cfg(EpoGenKind::VGps, 1);
    std::vector<uint8_t> whole = epogen_generate(cfg);
    std::vector<uint8_t> cut(whole.begin(), whole.begin() + 2 * 72 + 40);
    std::string path = dir() + "/VGPS.DAT";
    write_file(path, cut);
    ToolRun r = run_tool(tool_args("AG33XX", "online", {"-f" + path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.epo_records, records_of(cut));  // the two whole records, nothing of the third
    std::string out = out_of(r);
    EXPECT_TRUE(ends_with(out, epo_progress(2 * 72, uint32_t(cut.size())) +
                                   "[SSS.mmm][ERROR] actual_read_len = 40,is wrong\n"
                                   "[SSS.mmm][INFO] AG33XX Send EphData [1] times, ret: 0x205\n" +
                                   fail_line(0x205)))
        << out;
    EXPECT_EQ(out.find("100.00%"), std::string::npos);
    EXPECT_EQ(r.status, expected_status(0x205));
}

TEST_F(RobustE2E, RtcmFileCutInsideItsLastFrameSendsOnlyTheWholeFrames) {
    start_sim("sta8100", SimFaults());
    RtcmGenConfig cfg;
    cfg.systems = "G";
    cfg.sats = 3;
    cfg.damage = RtcmDamage::Truncate;
    std::vector<uint8_t> file = rtcmgen_generate(cfg);
    std::string path = dir() + "/EPH_GPS.rtcm";
    write_file(path, file);
    RtcmSplit split = rtcm_split_frames(file.data(), file.size());
    ASSERT_EQ(split.frames.size(), 2u);  // two whole frames, the third cut
    const RtcmFrameInfo &last = split.frames.back();
    std::vector<uint8_t> whole(file.begin(),
                               file.begin() + long(last.offset + last.payload_len + 6));
    ToolRun r = run_tool(tool_args("STA8100", "online", {"-t", "rtcm", "-f", path}));
    SimRecord rec = finish();
    EXPECT_EQ(rec.ephemeris_bytes, whole);  // nothing of the cut frame
    std::string out = out_of(r);
    EXPECT_NE(out.find("[SSS.mmm][ERROR] EPH file crc failed.\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("100.00%"), std::string::npos);
    EXPECT_TRUE(ends_with(out, fail_line(0x206))) << out;  // a malformed file
    EXPECT_EQ(r.status, expected_status(0x206));
}

// --- interrupted runs ------------------------------------------------------------

class InterruptE2E : public RobustE2E, public ::testing::WithParamInterface<int> {};

TEST_P(InterruptE2E, StreamStopsClosesThePortAndTheNextRunOpensIt) {
    const int sig = GetParam();
    if (under_wine() && sig != SIGINT)
        GTEST_SKIP() << "under wine only SIGINT reaches the program (as Ctrl-C); other signals "
                        "end wine itself";
    SimFaults f;
    f.pace_baud = 115200;  // a transfer of several seconds
    start_sim("dw2207b", f);
    const std::string device = sim_slave_path(sim_);
    const speed_t before = device_speed(device);
    std::string path = rtcm_file(100000);
    std::thread stopper;
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-f" + path}), [&](int pid) {
        stopper = std::thread([&, pid] {
            // Into the stream, then the signal.
            for (int i = 0; i < 2000 && sim_bytes_received(sim_) < 5000; ++i) usleep(5000);
            kill(pid, sig);
        });
    });
    stopper.join();
    EXPECT_EQ(r.status, expected_interrupt_status(sig));
    std::string out = out_of(r);
    EXPECT_TRUE(ends_with(out, interrupted_tail(sig))) << out;
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] "), std::string::npos);
    EXPECT_EQ(out.find("[SUCCESS]"), std::string::npos);
    // The port was given back as it was: its settings, and free for the next run.
    EXPECT_EQ(device_speed(device), before);
    ToolRun again = run_tool(tool_args("DW2207B", "online", {}));
    EXPECT_TRUE(ends_with(out_of(again), "[SSS.mmm][SUCCESS] vkagnss run success\n"))
        << out_of(again) << again.err;
    EXPECT_EQ(again.status, 0);
    finish();
}

TEST_P(InterruptE2E, DownloadStopsAndLeavesNoTemporaryFiles) {
    const int sig = GetParam();
    if (under_wine() && sig != SIGINT)
        GTEST_SKIP() << "under wine only SIGINT reaches the program (as Ctrl-C); other signals "
                        "end wine itself";
    SimFaults f;
    f.pace_baud = 9600;  // slow enough to be caught in the middle
    start_sim("hd8xxx", f);
    std::string path = rtcm_file(20000, "EPH_GPS_BDS.rtcm");
    const std::string tmp = dir() + "/GPS_TMP.rtcm";
    std::atomic<bool> seen{false};
    std::thread stopper;
    ToolRun r = run_tool(tool_args("HD8XXX", "offline", {"-f", path}), [&](int pid) {
        stopper = std::thread([&, pid] {
            struct stat st {};
            for (int i = 0; i < 2000 && !seen; ++i) {
                seen = stat(tmp.c_str(), &st) == 0;
                if (!seen) usleep(5000);
            }
            usleep(300000);  // into the transfer
            kill(pid, sig);
        });
    });
    stopper.join();
    finish();
    EXPECT_TRUE(seen);
    EXPECT_EQ(r.status, expected_interrupt_status(sig));
    EXPECT_TRUE(ends_with(out_of(r), interrupted_tail(sig))) << out_of(r);
    struct stat st {};
    EXPECT_NE(stat(tmp.c_str(), &st), 0);
    EXPECT_NE(stat((dir() + "/BDS_TMP.rtcm").c_str(), &st), 0);
}

INSTANTIATE_TEST_SUITE_P(Signals, InterruptE2E, ::testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const ::testing::TestParamInfo<int> &p) {
                             return std::string(p.param == SIGINT    ? "Sigint"
                                                : p.param == SIGTERM ? "Sigterm"
                                                                     : "Sighup");
                         });

// --- a receiver that stops reading -----------------------------------------------

TEST_F(RobustE2E, StreamToAReceiverThatStopsReadingEndsUnfinished) {
    SimFaults f;
    f.stop_reading_after_bytes = 0;
    start_sim("dw2207b", f);
    std::string path = rtcm_file(300000);
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-f" + path}));
    finish();
    std::string out = out_of(r);
    EXPECT_TRUE(ends_with(out, "[SSS.mmm][ERROR] send [" + path + "] to module failed\n" +
                                   "[SSS.mmm][INFO] DW2207B Send EphData ret: 0x107\n" +
                                   fail_line(0x107)))
        << out;
    EXPECT_EQ(r.status, expected_status(0x107));
}

// --- a port that vanishes -------------------------------------------------------

// A run whose receiver hangs up (as an unplugged adapter) after some bytes.
struct HangUp {
    const char *name;
    const char *platform;
    uint32_t after_bytes;
    // The command line after -m -o -p -b, given the test's directory.
    std::vector<std::string> (*args)(const std::string &dir);
    // The run's code: that of the step the hang-up left unfinished (an
    // acknowledgement that never came is 0x200), as the platform reports it.
    uint32_t result;
    // Whether the run meets the hang-up on a write (else on a read).
    bool on_write;
};

std::string rtcm_in(const std::string &dir, const char *name, uint64_t min_size,
                    const char *systems = "GC") {
    RtcmGenConfig cfg;
    cfg.systems = systems;
    cfg.min_size = min_size;
    std::string path = dir + "/" + name;
    write_file(path, rtcmgen_generate(cfg));
    return path;
}

std::string epo_in(const std::string &dir, EpoGenKind kind) {
    return make_epo(dir, epo_cfg(kind, 12)).path;
}

const HangUp kHangUps[] = {
    {"Dw2207bStream", "dw2207b", 20000,
     [](const std::string &d) {
         return std::vector<std::string>{"-m", "DW2207B", "-o", "online",
                                         "-f" + rtcm_in(d, "eph.rtcm3", 100000)};
     },
     0x107, true},
    {"Ag33xxOnlineRecords", "ag33xx", 3000,
     [](const std::string &d) {
         return std::vector<std::string>{"-m", "AG33XX", "-o", "online",
                                         "-f" + epo_in(d, EpoGenKind::VGps)};
     },
     0x200, false},
    {"Ag33xxOfflineFrames", "ag33xx", 3000,
     [](const std::string &d) {
         return std::vector<std::string>{"-m", "AG33XX", "-o", "offline",
                                         "-f" + epo_in(d, EpoGenKind::Gps)};
     },
     0x200, false},
    {"Ag33xxOfflinePairFrames", "ag33xx", 3000,
     [](const std::string &d) {
         // A failed frame abandons only its segment on a live port; on a port
         // that is gone the whole file ends there.
         return std::vector<std::string>{"-m", "AG33XX", "-o", "offline",
                                         "-f" + epo_in(d, EpoGenKind::Gr)};
     },
     0x200, false},
    {"Rz610mxxxxOnlineRecords", "rz610mxxxx", 3000,
     [](const std::string &d) {
         return std::vector<std::string>{
             "-m", "RZ610MXXXX", "-o", "online", "-sCOLD", "-f" + epo_in(d, EpoGenKind::VelpoGps)};
     },
     0x200, false},
    {"Hd8xxxOnlineFrames", "hd8xxx", 3000,
     [](const std::string &d) {
         HdbGenConfig cfg;
         std::string path = d + "/HD_GPS_BDS.hdb";
         write_file(path, hdbgen_generate(cfg));
         return std::vector<std::string>{"-m", "HD8XXX", "-o", "online", "-f", path};
     },
     0x200, false},
    {"Hd8xxxOfflineDownload", "hd8xxx", 6000,
     [](const std::string &d) {
         return std::vector<std::string>{
             "-m", "HD8XXX", "-o", "offline", "-f", rtcm_in(d, "EPH_GPS_BDS.rtcm", 30000)};
     },
     0x203, true},
    {"Mj7xxxCommands", "mj7xxx", 10,
     [](const std::string &) {
         return std::vector<std::string>{"-m", "MJ7XXX",           "-o", "online", "-sCOLD",
                                         "-l", "1,31.2,121.4,10,5"};
     },
     0x200, false},
    {"Sta8100Stream", "sta8100", 3000,
     [](const std::string &d) {
         return std::vector<std::string>{"-m", "STA8100", "-o", "online",
                                         "-t", "rtcm",    "-f", rtcm_in(d, "eph.rtcm", 20000, "G")};
     },
     0x107, true},
    {"Tq934nBlocks", "tq934n", 3000,
     [](const std::string &d) {
         return std::vector<std::string>{"-m", "TQ934N", "-o", "online",
                                         "-s", "HOT",    "-f", rtcm_in(d, "eph.rtcm3", 20000, "G")};
     },
     0xFFFFFFFF, true},
};

void PrintTo(const HangUp &h, std::ostream *os) { *os << h.name; }

class HangUpE2E : public RobustE2E, public ::testing::WithParamInterface<HangUp> {};

TEST_P(HangUpE2E, RunEndsAtTheFirstFailedStepAndSaysThePortWentAway) {
    const HangUp &h = GetParam();
    if (under_wine() && !h.on_write)
        GTEST_SKIP() << "wine reports a hung-up pseudo-terminal to a read as a silent line";
    SimFaults f;
    f.hang_up_after_bytes = h.after_bytes;
    start_sim(h.platform, f);
    std::vector<std::string> a = h.args(dir());
    a.insert(a.begin() + 4, {"-p", port_, "-b", "115200"});
    ToolRun r = run_tool(a);
    EXPECT_TRUE(sim_hung_up(sim_));
    SimRecord rec = finish();
    EXPECT_EQ(rec.raw.size(), h.after_bytes);
    EXPECT_EQ(count_of(r.err, "vkagnss: port " + port_ + " has gone away (device unplugged?)\n"),
              1u)
        << r.err;
    std::string out = out_of(r);
    EXPECT_TRUE(ends_with(out, fail_line(h.result))) << out;
    EXPECT_EQ(r.status, expected_status(h.result));
}

INSTANTIATE_TEST_SUITE_P(Platforms, HangUpE2E, ::testing::ValuesIn(kHangUps),
                         [](const ::testing::TestParamInfo<HangUp> &p) {
                             return std::string(p.param.name);
                         });

// --- why a port did not open -------------------------------------------------------

TEST_F(RobustE2E, PermissionDeniedNamesTheDevicesGroup) {
    if (under_wine()) GTEST_SKIP() << "wine maps no POSIX permissions onto COM ports";
    if (geteuid() != 0 || access("/usr/bin/setpriv", X_OK) != 0)
        GTEST_SKIP() << "needs root and setpriv to run the tool as a user without access";
    start_sim("dw2207b", SimFaults());
    chmod(port_.c_str(), 0600);  // the device's owner alone may open it
    struct stat st {};
    ASSERT_EQ(stat(port_.c_str(), &st), 0);
    const group *g = getgrgid(st.st_gid);
    ASSERT_NE(g, nullptr);
    const std::string group_name = g->gr_name;
    std::vector<std::string> a = {"--reuid=nobody", "--regid=nogroup", "--clear-groups",
                                  VKAGNSS_BIN};
    std::vector<std::string> rest = tool_args("DW2207B", "online", {"-sHOT"});
    a.insert(a.end(), rest.begin(), rest.end());
    ToolRun r = run_program("/usr/bin/setpriv", a);
    std::string out = mask(r.out);
    EXPECT_TRUE(ends_with(out, "[SSS.mmm][ERROR] Fail to open " + port_ + "\n" + fail_line(0x104)))
        << out << r.err;
    EXPECT_EQ(r.err, "vkagnss: permission denied on " + port_ + ": it belongs to group " +
                         group_name + "; join it with \"sudo usermod -aG " + group_name +
                         " $USER\" and log in again\n");
    EXPECT_EQ(r.status, expected_status(0x104));
    EXPECT_TRUE(finish().raw.empty());
}

TEST_F(RobustE2E, ADeviceThatIsNoTerminalIsNotASerialPort) {
    if (under_wine()) GTEST_SKIP() << "/dev/null has no COM name";
    port_ = "/dev/null";
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-sHOT"}));
    EXPECT_TRUE(
        ends_with(mask(r.out), "[SSS.mmm][ERROR] Fail to open /dev/null\n" + fail_line(0x104)));
    EXPECT_EQ(r.err, "vkagnss: /dev/null is not a serial device\n");
    EXPECT_EQ(r.status, expected_status(0x104));
    // A regular file under the port's name is no port either: nothing is written into it.
    port_ = dir() + "/ttyFILE";
    write_file(port_, std::string());
    r = run_tool(tool_args("DW2207B", "online", {"-sHOT"}));
    EXPECT_EQ(r.err, "vkagnss: " + port_ + " is not a serial device\n");
    EXPECT_TRUE(read_file(port_).empty());
    EXPECT_EQ(r.status, expected_status(0x104));
}

// --- a wrong baud rate ---------------------------------------------------------------

TEST_F(RobustE2E, GarbledTextRepliesGetTheBaudRateHint) {
    SimFaults f;
    f.garble_baud = 9600;  // the module talks at 9600, the port is set to 115200
    start_sim("dw2207b", f);
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-sHOT"}));
    finish();
    EXPECT_EQ(r.err, "vkagnss: replies from " + port_ + " look garbled: is the baud rate right?\n");
    EXPECT_TRUE(ends_with(out_of(r), fail_line(0x200))) << out_of(r);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(RobustE2E, GarbledBinaryRepliesGetTheBaudRateHint) {
    SimFaults f;
    f.garble_baud = 9600;  // the module talks at 9600, the port is set to 115200
    start_sim("ag33xx", f);
    EpoFile file = make_epo(dir(), epo_cfg(EpoGenKind::Gps, 1));
    ToolRun r = run_tool(tool_args("AG33XX", "offline", {"-f" + file.path}));
    finish();
    EXPECT_EQ(r.err, "vkagnss: replies from " + port_ + " look garbled: is the baud rate right?\n");
    // The begin frame's acknowledgement never came.
    EXPECT_TRUE(ends_with(out_of(r), fail_line(0x206))) << out_of(r);
    EXPECT_EQ(r.status, expected_status(0x206));
}

TEST_F(RobustE2E, ASilentReceiverGetsNoBaudRateHint) {
    SimFaults silent;
    silent.silent = true;
    start_sim("dw2207b", silent);
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-sHOT"}));
    finish();
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(ends_with(out_of(r), fail_line(0x200))) << out_of(r);
    EXPECT_EQ(r.status, expected_status(0x200));
}

TEST_F(RobustE2E, AReceiverThatSaysSomethingElseGetsNoBaudRateHint) {
    SimFaults chatty;
    chatty.garbage_only = true;  // printable text that never holds the reply
    start_sim("dw2207b", chatty);
    ToolRun r = run_tool(tool_args("DW2207B", "online", {"-sHOT"}));
    finish();
    EXPECT_EQ(r.err, "");
    EXPECT_TRUE(ends_with(out_of(r), fail_line(0x200))) << out_of(r);
    EXPECT_EQ(r.status, expected_status(0x200));
}

}  // namespace
