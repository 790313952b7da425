#include "core/interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "core/log.h"
#include "core/result.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#endif

namespace {

volatile std::sig_atomic_t g_signal = 0;
bool g_installed = false;

enum { kMaxCleanups = 8 };
void (*g_cleanups[kMaxCleanups])();
int g_cleanup_count = 0;

#ifdef _WIN32
HANDLE g_event = nullptr;
HANDLE g_main_thread = nullptr;

// A console event comes on a thread of its own. It takes note, wakes the
// main thread's wait and cancels the comm read or write that thread may be
// blocked in, again and again until the main thread has ended the process
// (a cancel that comes just before the call starts would be lost).
BOOL WINAPI on_console_event(DWORD event) {
    int sig = event == CTRL_C_EVENT ? SIGINT : event == CTRL_BREAK_EVENT ? SIGBREAK : SIGTERM;
    if (g_signal == 0) g_signal = sig;
    SetEvent(g_event);
    for (int i = 0; i < 250; ++i) {
        CancelSynchronousIo(g_main_thread);
        Sleep(20);
    }
    return FALSE;  // the main thread did not finish in 5 s: the default ends the process
}
#else
int g_pipe[2] = {-1, -1};

void on_signal(int sig) {
    if (g_signal == 0) g_signal = sig;
    int saved = errno;
    char byte = 1;
    ssize_t ignored = write(g_pipe[1], &byte, 1);  // a full pipe is woken already
    (void)ignored;
    errno = saved;
}
#endif

}  // namespace

void vk_interrupt_install() {
    if (g_installed) return;
    g_installed = true;
#ifdef _WIN32
    g_event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &g_main_thread, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
    SetConsoleCtrlHandler(on_console_event, TRUE);
#else
    if (pipe(g_pipe) != 0) {
        g_pipe[0] = g_pipe[1] = -1;
        return;  // signals then keep their default action
    }
    for (int fd : g_pipe) {
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;  // no SA_RESTART: a blocked call returns EINTR and reaches its interrupt point
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaction(sig, &sa, nullptr);
    }
#endif
}

int vk_interrupt_signal() { return int(g_signal); }

int vk_interrupt_fd() {
#ifdef _WIN32
    return -1;
#else
    return g_pipe[0];
#endif
}

void *vk_interrupt_event() {
#ifdef _WIN32
    return g_event;
#else
    return nullptr;
#endif
}

bool vk_interrupt_cleanup(void (*cleanup)()) {
    for (int i = 0; i < g_cleanup_count; ++i)
        if (g_cleanups[i] == cleanup) return true;
    if (g_cleanup_count == kMaxCleanups) return false;
    g_cleanups[g_cleanup_count++] = cleanup;
    return true;
}

uint32_t vk_interrupt_result(int sig) {
#ifdef _WIN32
    (void)sig;
    return uint32_t(STATUS_CONTROL_C_EXIT);
#else
    return VK_INTERRUPTED_BASE + uint32_t(sig);
#endif
}

void vk_interrupt_finish() {
    const int sig = vk_interrupt_signal();
    for (int i = g_cleanup_count - 1; i >= 0; --i) g_cleanups[i]();
    vk_log("[ERROR] interrupted by signal %d\n", sig);
    uint32_t result = vk_interrupt_result(sig);
    vk_log_outcome(result);
    fflush(stderr);
#ifdef _WIN32
    ExitProcess(UINT(vk_exit_status(result)));
#else
    std::exit(vk_exit_status(result));
#endif
}
