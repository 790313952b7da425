// The runner's processes, signals and terminal on POSIX systems.
#include "line/line_os.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include <fcntl.h>
#include <glob.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

struct LineProc {
    pid_t pid = -1;
    int out = -1;  // read end of the pipe; -1 once it has ended
    bool reaped = false;
    ProcEnd end;
};

namespace {

volatile std::sig_atomic_t g_count = 0;
volatile std::sig_atomic_t g_first = 0;
int g_wake[2] = {-1, -1};  // written by the handler so that a poll wakes up

void on_stop_signal(int sig) {
    int saved = errno;
    if (g_first == 0) g_first = sig;
    g_count = g_count + 1;
    if (g_wake[1] >= 0) {
        char byte = 1;
        ssize_t ignored = write(g_wake[1], &byte, 1);  // a full pipe is awake already
        (void)ignored;
    }
    errno = saved;
}

void set_flags(int fd, bool nonblock) {
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    if (nonblock) fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Reads what is there without blocking; closes the descriptor at its end.
void drain(LineProc *p, std::string *sink) {
    char buf[16384];
    for (;;) {
        ssize_t n = read(p->out, buf, sizeof buf);
        if (n > 0) {
            sink->append(buf, size_t(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        close(p->out);  // end of file, or an error that ends the stream as well
        p->out = -1;
        return;
    }
}

}  // namespace

LineProc *proc_start(const std::string &exe, const std::vector<std::string> &args,
                     std::string *error) {
    int fds[2];
    if (pipe(fds) != 0) {
        *error = std::string("pipe: ") + strerror(errno);
        return nullptr;
    }
    set_flags(fds[0], true);
    set_flags(fds[1], false);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 2);

    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t defaults, empty;
    sigemptyset(&defaults);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&defaults, sig);
    sigemptyset(&empty);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setsigmask(&attr, &empty);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setflags(
        &attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(exe.c_str()));
    for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);

    pid_t pid = -1;
    int rc = posix_spawn(&pid, exe.c_str(), &actions, &attr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    close(fds[1]);
    if (rc != 0) {
        close(fds[0]);
        *error = exe + ": " + strerror(rc);
        return nullptr;
    }
    LineProc *p = new LineProc;
    p->pid = pid;
    p->out = fds[0];
    return p;
}

void proc_read(const std::vector<LineProc *> &procs, int timeout_ms,
               std::vector<std::string> *chunks) {
    chunks->assign(procs.size(), std::string());
    std::vector<pollfd> fds;
    std::vector<size_t> owner;
    for (size_t i = 0; i < procs.size(); ++i) {
        if (procs[i]->out < 0) continue;
        fds.push_back({procs[i]->out, POLLIN, 0});
        owner.push_back(i);
    }
    if (g_wake[0] >= 0) fds.push_back({g_wake[0], POLLIN, 0});
    if (poll(fds.data(), nfds_t(fds.size()), timeout_ms) <= 0) return;
    for (size_t k = 0; k < owner.size(); ++k) {
        if (fds[k].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL))
            drain(procs[owner[k]], &(*chunks)[owner[k]]);
    }
    if (g_wake[0] >= 0 && (fds.back().revents & POLLIN)) {
        char buf[64];
        while (read(g_wake[0], buf, sizeof buf) > 0) {}
    }
}

bool proc_output_ended(const LineProc *p) { return p->out < 0; }

bool proc_try_wait(LineProc *p, ProcEnd *end) {
    if (!p->reaped) {
        int st = 0;
        pid_t r = waitpid(p->pid, &st, WNOHANG);
        if (r == 0 || (r < 0 && errno == EINTR)) return false;
        p->reaped = true;
        if (r > 0 && WIFEXITED(st)) {
            p->end.exited = true;
            p->end.status = WEXITSTATUS(st);
        } else if (r > 0 && WIFSIGNALED(st)) {
            p->end.signal = WTERMSIG(st);
        }
    }
    *end = p->end;
    return true;
}

// To the run's whole process group: the tool and anything it may have started.
void proc_stop(LineProc *p, int sig) {
    if (!p->reaped) kill(-p->pid, sig);
}

void proc_kill(LineProc *p) {
    if (!p->reaped) kill(-p->pid, SIGKILL);
}

long proc_id(const LineProc *p) { return long(p->pid); }

void proc_free(LineProc *p) {
    if (!p) return;
    if (p->out >= 0) close(p->out);
    delete p;
}

void stop_signals_install() {
    if (g_wake[0] < 0 && pipe(g_wake) == 0) {
        set_flags(g_wake[0], true);
        set_flags(g_wake[1], true);
    }
    struct sigaction sa {};
    sa.sa_handler = on_stop_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal the caller ignores (nohup, a background job) stays ignored.
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaction(sig, &sa, nullptr);
    }
    // A reader that went away (| head) must not end the runner before it has
    // stopped its children; the write fails instead.
    signal(SIGPIPE, SIG_IGN);
}

int stop_signal_count() { return int(g_count); }
int stop_signal_first() { return int(g_first); }
void stop_signals_done() {}

bool terminal_live(FILE *f) {
    if (!isatty(fileno(f))) return false;
    const char *term = getenv("TERM");
    return !(term && strcmp(term, "dumb") == 0);
}

void terminal_size(FILE *f, size_t *cols, size_t *rows) {
    winsize ws{};
    bool known = ioctl(fileno(f), TIOCGWINSZ, &ws) == 0;
    *cols = known && ws.ws_col > 0 ? ws.ws_col : 80;
    *rows = known && ws.ws_row > 0 ? ws.ws_row : 24;
}

double mono_seconds() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

int64_t wall_ms() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return int64_t(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string self_dir(const char *argv0) {
    char buf[PATH_MAX];
    std::string path;
    ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n > 0) {
        path.assign(buf, size_t(n));
    } else if (argv0 && strchr(argv0, '/') && realpath(argv0, buf)) {
        path = buf;
    }
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash == 0 ? 1 : slash);
}

std::string exe_name(const std::string &base) { return base; }

bool runnable_file(const std::string &path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

std::string find_in_path(const std::string &name) {
    const char *env = getenv("PATH");
    std::string path = env ? env : "/usr/bin:/bin";
    size_t start = 0;
    for (;;) {
        size_t colon = path.find(':', start);
        std::string dir = path.substr(start, colon == std::string::npos ? colon : colon - start);
        std::string candidate = (dir.empty() ? std::string(".") : dir) + "/" + name;
        if (runnable_file(candidate)) return candidate;
        if (colon == std::string::npos) return "";
        start = colon + 1;
    }
}

bool expand_glob(const std::string &pattern, std::vector<std::string> *paths, std::string *error) {
    glob_t g{};
    int rc = glob(pattern.c_str(), 0, nullptr, &g);
    if (rc == 0) {
        for (size_t i = 0; i < g.gl_pathc; ++i) paths->push_back(g.gl_pathv[i]);
    } else {
        *error = rc == GLOB_NOMATCH ? "no file matches '" + pattern + "'"
                                    : "cannot expand '" + pattern + "'";
    }
    globfree(&g);
    return rc == 0;
}

FILE *open_private(const std::string &path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return nullptr;
    FILE *f = fdopen(fd, "wb");
    if (!f) close(fd);
    return f;
}
