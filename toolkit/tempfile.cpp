#include "toolkit/tempfile.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#ifdef _WIN32
#include <windows.h>
#else
#include <signal.h>
#include <unistd.h>
#endif

namespace {

enum { kSlots = 4, kPathSize = 1024 };

// Fixed storage, so the signal handler only reads memory that never moves.
char g_paths[kSlots][kPathSize];
volatile std::sig_atomic_t g_used[kSlots];
bool g_installed = false;

void remove_registered() {
    for (int i = 0; i < kSlots; ++i) {
        if (!g_used[i]) continue;
#ifdef _WIN32
        DeleteFileA(g_paths[i]);
#else
        unlink(g_paths[i]);
#endif
        g_used[i] = 0;
    }
}

#ifdef _WIN32
BOOL WINAPI on_console_event(DWORD) {
    remove_registered();
    return FALSE;  // let the default handler end the process
}
#else
void on_signal(int sig) {
    remove_registered();
    signal(sig, SIG_DFL);
    raise(sig);
}
#endif

void install() {
    if (g_installed) return;
    g_installed = true;
#ifdef _WIN32
    SetConsoleCtrlHandler(on_console_event, TRUE);
#else
    struct sigaction sa {};
    sa.sa_handler = on_signal;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal the caller chose to ignore stays ignored.
        if (sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        sigaction(sig, &sa, nullptr);
    }
#endif
}

}  // namespace

bool vk_temp_file_add(const char *path) {
    if (strlen(path) >= kPathSize) return false;
    install();
    for (int i = 0; i < kSlots; ++i) {
        if (g_used[i]) continue;
        snprintf(g_paths[i], kPathSize, "%s", path);
        g_used[i] = 1;
        return true;
    }
    return false;
}

void vk_temp_file_remove(const char *path) {
    for (int i = 0; i < kSlots; ++i) {
        if (g_used[i] && strcmp(g_paths[i], path) == 0) g_used[i] = 0;
    }
    remove(path);
}
