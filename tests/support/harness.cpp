#include "tests/support/harness.h"

#include "core/result.h"
#include "tests/support/stamp_mask.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

const char kBanner[] =
    "[SSS.mmm][INFO] V1.1.1 <date> <time>\n"
    "[SSS.mmm][INFO] Enter agnss tool\n";

ToolRun run_program(const char *path, const std::vector<std::string> &args,
                    const std::function<void(int pid)> &started) {
    ToolRun run;
    int out_pipe[2], err_pipe[2];
    if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0) return run;
    pid_t pid = fork();
    if (pid == 0) {
        int devnull = open("/dev/null", O_RDONLY);
        dup2(devnull, 0);
        dup2(out_pipe[1], 1);
        dup2(err_pipe[1], 2);
        close(out_pipe[0]);
        close(err_pipe[0]);
        std::vector<char *> argv;
        argv.push_back(const_cast<char *>(path));
        for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execvp(path, argv.data());
        _exit(127);
    }
    close(out_pipe[1]);
    close(err_pipe[1]);
    if (started && pid > 0) started(int(pid));
    pollfd fds[2] = {{out_pipe[0], POLLIN, 0}, {err_pipe[0], POLLIN, 0}};
    std::string *sinks[2] = {&run.out, &run.err};
    int open_count = 2;
    while (open_count > 0) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
            char buf[4096];
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0) {
                sinks[i]->append(buf, size_t(n));
            } else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_count;
            }
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

bool under_wine() {
    const char *exe = getenv("VK_TEST_WINE");
    return exe != nullptr && exe[0] != '\0';
}

int expected_status(uint32_t result) {
    if (!under_wine()) return vk_exit_status(result);
    const uint32_t low = result & 0xFFu;
    return (low == 0 && result != 0) ? 1 : int(low);
}

int expected_interrupt_status(int sig) {
    if (under_wine() && sig == SIGINT) return expected_status(0xC000013Au);
    return 128 + sig;
}

ToolRun run_tool_at(const char *native_path, const std::vector<std::string> &args,
                    const std::function<void(int pid)> &started) {
    if (!under_wine()) return run_program(native_path, args, started);
    // Wine's own notes on standard error would mix with the tool's.
    static const bool quiet = setenv("WINEDEBUG", "-all", 0) == 0;
    (void)quiet;
    std::vector<std::string> wine_args = {getenv("VK_TEST_WINE")};
    wine_args.insert(wine_args.end(), args.begin(), args.end());
    return run_program("wine", wine_args, started);
}

namespace {

std::string wine_dosdevices() {
    const char *prefix = getenv("WINEPREFIX");
    if (prefix != nullptr && prefix[0] != '\0') return std::string(prefix) + "/dosdevices/";
    const char *home = getenv("HOME");
    return std::string(home ? home : "") + "/.wine/dosdevices/";
}

// The COM names this process linked; only these are ever removed.
std::set<std::string> &linked_ports() {
    static std::set<std::string> ports;
    return ports;
}

}  // namespace

std::string port_for_device(const std::string &device_path) {
    if (!under_wine()) return device_path;
    // COM10 and above: wine links COM1 onwards to the host's serial ports
    // when its services start. The link is made only where no other link
    // is, so tests running in parallel never share a name.
    constexpr unsigned kFirst = 10, kCount = 246;
    static unsigned next = 0;
    const unsigned start = unsigned(getpid()) * 31u + next++;
    const std::string dir = wine_dosdevices();
    for (unsigned i = 0; i < kCount; ++i) {
        const std::string n = std::to_string(kFirst + (start + i) % kCount);
        if (symlink(device_path.c_str(), (dir + "com" + n).c_str()) == 0) {
            linked_ports().insert("COM" + n);
            return "COM" + n;
        }
        if (errno != EEXIST) break;
    }
    return std::string();
}

void release_port(const std::string &port) {
    if (linked_ports().erase(port) == 0) return;
    unlink((wine_dosdevices() + "com" + port.substr(3)).c_str());
}

std::string mask(const std::string &out) {
    static const std::regex banner(R"(V1\.1\.1 [A-Z][a-z]{2} [ 123]\d \d{4} \d{2}:\d{2}:\d{2}\n)");
    // An echo starts a line; "[1] times" inside a line is the tool's own text.
    static const std::regex clock(R"(\n\[\d+\] )");
    std::string s = mask_stamps(out);
    s = std::regex_replace(s, clock, "\n[CLOCK] ");
    return std::regex_replace(s, banner, "V1.1.1 <date> <time>\n",
                              std::regex_constants::format_first_only);
}

std::string make_temp_dir() {
    char tmpl[] = "/tmp/vkagnss-test-XXXXXX";
    char *dir = mkdtemp(tmpl);
    return dir ? std::string(dir) : std::string();
}

void remove_tree(const std::string &dir) {
    if (dir.rfind("/tmp/vkagnss-test-", 0) != 0) return;
    std::string cmd = "rm -rf '" + dir + "'";
    if (system(cmd.c_str()) != 0) perror("rm");
}

void write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
}

void write_file(const std::string &path, const std::string &text) {
    std::ofstream f(path, std::ios::binary);
    f << text;
}

std::vector<uint8_t> read_file(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f),
                                std::istreambuf_iterator<char>());
}

std::string strip_echoes(const std::string &masked, std::string *echoed) {
    std::string out;
    size_t pos = 0;
    for (;;) {
        size_t at = masked.find("[CLOCK] ", pos);
        if (at == std::string::npos) break;
        out.append(masked, pos, at - pos);
        size_t text = at + 8;
        size_t next = std::min(masked.find("[SSS.mmm]", text), masked.find("[CLOCK] ", text));
        if (next == std::string::npos) next = masked.size();
        if (echoed) echoed->append(masked, text, next - text);
        pos = next;
    }
    out.append(masked, pos, std::string::npos);
    return out;
}

std::string nmea_sentence(const std::string &body) {
    unsigned x = 0;
    for (size_t i = 1; i < body.size(); ++i) x ^= static_cast<unsigned char>(body[i]);
    char tail[8];
    snprintf(tail, sizeof tail, "*%02X\r\n", x);
    return body + tail;
}
