// The runner's processes, signals and console on Windows.
//
// Each child writes its stdout and stderr into one anonymous pipe; a reader
// thread per child blocks on it and hands what it reads to the main loop
// under a lock, setting one shared event that the main loop waits on (with
// the stop signals, which set it too).
#include "line/line_os.h"

#include <cstdlib>
#include <string>

#include <io.h>
#include <windows.h>

#include "line/line_output.h"

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
#define ENABLE_VIRTUAL_TERMINAL_PROCESSING 0x0004
#endif

struct LineProc {
    HANDLE process = nullptr;
    DWORD pid = 0;
    HANDLE out = nullptr;     // read end of the pipe
    HANDLE reader = nullptr;  // the thread that reads it
    CRITICAL_SECTION lock;
    std::string pending;  // read, not yet taken by proc_read (under lock)
    bool eof = false;     // the reader has seen the end (under lock)
    bool ended = false;   // the end was seen and everything before it taken
    bool reaped = false;
    ProcEnd end;
};

namespace {

HANDLE g_wake = nullptr;  // set on output, on a reader's end and on a stop signal
volatile LONG g_count = 0;
volatile LONG g_first = 0;
volatile LONG g_done = 0;

HANDLE wake_event() {
    if (!g_wake) g_wake = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    return g_wake;
}

std::string last_error_text(DWORD code) {
    char buf[512];
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                             code, 0, buf, sizeof buf, nullptr);
    while (n > 0 && (buf[n - 1] == '\n' || buf[n - 1] == '\r' || buf[n - 1] == ' ')) --n;
    return n > 0 ? std::string(buf, n) : "error " + std::to_string(code);
}

DWORD WINAPI read_output(void *arg) {
    LineProc *p = static_cast<LineProc *>(arg);
    char buf[16384];
    for (;;) {
        DWORD got = 0;
        BOOL ok = ReadFile(p->out, buf, sizeof buf, &got, nullptr);
        EnterCriticalSection(&p->lock);
        if (ok && got > 0) {
            p->pending.append(buf, got);
        } else {
            p->eof = true;  // the child and all its handles to the pipe are gone
        }
        bool eof = p->eof;
        LeaveCriticalSection(&p->lock);
        SetEvent(wake_event());
        if (eof) return 0;
    }
}

BOOL WINAPI on_console_event(DWORD event) {
    LONG sig = event == CTRL_C_EVENT ? 2 : event == CTRL_BREAK_EVENT ? 21 : 1;
    InterlockedCompareExchange(&g_first, sig, 0);
    InterlockedIncrement(&g_count);
    SetEvent(wake_event());
    if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return TRUE;
    // Closing the console: the process ends when this returns, so give the
    // main loop its few seconds to stop the children first.
    for (int i = 0; i < 90 && g_done == 0; ++i) Sleep(50);
    return TRUE;
}

HANDLE console_of(FILE *f) { return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(f))); }

}  // namespace

LineProc *proc_start(const std::string &exe, const std::vector<std::string> &args,
                     std::string *error) {
    SECURITY_ATTRIBUTES sa{};
    sa.nLength = sizeof sa;
    sa.bInheritHandle = TRUE;
    HANDLE rd = nullptr, wr = nullptr;
    if (!CreatePipe(&rd, &wr, &sa, 0)) {
        *error = "CreatePipe: " + last_error_text(GetLastError());
        return nullptr;
    }
    SetHandleInformation(rd, HANDLE_FLAG_INHERIT, 0);  // only the write end goes to the child
    HANDLE nul = CreateFileA("NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa,
                             OPEN_EXISTING, 0, nullptr);

    STARTUPINFOA si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = nul;
    si.hStdOutput = wr;
    si.hStdError = wr;
    std::vector<std::string> argv = {exe};
    argv.insert(argv.end(), args.begin(), args.end());
    std::string line = windows_command_line(argv);
    std::vector<char> buf(line.begin(), line.end());
    buf.push_back('\0');

    PROCESS_INFORMATION pi{};
    BOOL ok = CreateProcessA(exe.c_str(), buf.data(), nullptr, nullptr, TRUE,
                             CREATE_NEW_PROCESS_GROUP, nullptr, nullptr, &si, &pi);
    DWORD err = GetLastError();
    CloseHandle(wr);
    if (nul != INVALID_HANDLE_VALUE) CloseHandle(nul);
    if (!ok) {
        CloseHandle(rd);
        *error = exe + ": " + last_error_text(err);
        return nullptr;
    }
    CloseHandle(pi.hThread);

    LineProc *p = new LineProc;
    InitializeCriticalSection(&p->lock);
    p->process = pi.hProcess;
    p->pid = pi.dwProcessId;
    p->out = rd;
    p->reader = CreateThread(nullptr, 0, read_output, p, 0, nullptr);
    if (!p->reader) {
        // Without a reader the output cannot be taken; end the child.
        TerminateProcess(p->process, 1);
        *error = "CreateThread: " + last_error_text(GetLastError());
        p->ended = true;
    }
    return p;
}

void proc_read(const std::vector<LineProc *> &procs, int timeout_ms,
               std::vector<std::string> *chunks) {
    chunks->assign(procs.size(), std::string());
    WaitForSingleObject(wake_event(), DWORD(timeout_ms));
    ResetEvent(wake_event());  // what comes after this sets it again
    for (size_t i = 0; i < procs.size(); ++i) {
        LineProc *p = procs[i];
        if (p->ended) continue;
        EnterCriticalSection(&p->lock);
        (*chunks)[i].swap(p->pending);
        p->pending.clear();
        if (p->eof) p->ended = true;
        LeaveCriticalSection(&p->lock);
    }
}

bool proc_output_ended(const LineProc *p) { return p->ended; }

bool proc_try_wait(LineProc *p, ProcEnd *end) {
    if (!p->reaped) {
        if (WaitForSingleObject(p->process, 0) != WAIT_OBJECT_0) return false;
        DWORD code = 0;
        GetExitCodeProcess(p->process, &code);
        p->reaped = true;
        p->end.exited = true;
        p->end.status = int64_t(code);
    }
    *end = p->end;
    return true;
}

void proc_stop(LineProc *p, int sig) {
    (void)sig;  // a new process group takes only Ctrl-Break
    if (p->reaped) return;
    // Without a console shared with the child there is no way to ask it.
    if (!GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, p->pid)) TerminateProcess(p->process, 1);
}

void proc_kill(LineProc *p) {
    if (!p->reaped) TerminateProcess(p->process, 1);
}

long proc_id(const LineProc *p) { return long(p->pid); }

void proc_free(LineProc *p) {
    if (!p) return;
    if (p->reader) {
        WaitForSingleObject(p->reader, INFINITE);
        CloseHandle(p->reader);
    }
    CloseHandle(p->out);
    CloseHandle(p->process);
    DeleteCriticalSection(&p->lock);
    delete p;
}

void stop_signals_install() {
    wake_event();
    SetConsoleCtrlHandler(on_console_event, TRUE);
}

int stop_signal_count() { return int(g_count); }
int stop_signal_first() { return int(g_first); }
void stop_signals_done() { InterlockedExchange(&g_done, 1); }

bool terminal_live(FILE *f) {
    HANDLE h = console_of(f);
    DWORD mode = 0;
    if (h == INVALID_HANDLE_VALUE || !GetConsoleMode(h, &mode)) return false;  // a pipe or a file
    return SetConsoleMode(h, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

void terminal_size(FILE *f, size_t *cols, size_t *rows) {
    *cols = 80;
    *rows = 24;
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(console_of(f), &info)) {
        int w = info.srWindow.Right - info.srWindow.Left + 1;
        int h = info.srWindow.Bottom - info.srWindow.Top + 1;
        if (w > 0) *cols = size_t(w);
        if (h > 0) *rows = size_t(h);
    }
}

double mono_seconds() {
    LARGE_INTEGER freq, now;
    QueryPerformanceFrequency(&freq);
    QueryPerformanceCounter(&now);
    return double(now.QuadPart) / double(freq.QuadPart);
}

int64_t wall_ms() {
    FILETIME ft;
    GetSystemTimeAsFileTime(&ft);
    ULARGE_INTEGER t;
    t.LowPart = ft.dwLowDateTime;
    t.HighPart = ft.dwHighDateTime;
    return int64_t((t.QuadPart - 116444736000000000ULL) / 10000);  // from 1601 to 1970, in ms
}

std::string self_dir(const char *argv0) {
    (void)argv0;
    char buf[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, buf, sizeof buf);
    if (n == 0 || n >= sizeof buf) return "";
    std::string path(buf, n);
    size_t sep = path.find_last_of("\\/");
    return sep == std::string::npos ? std::string() : path.substr(0, sep);
}

std::string exe_name(const std::string &base) { return base + ".exe"; }

bool runnable_file(const std::string &path) {
    DWORD attr = GetFileAttributesA(path.c_str());
    return attr != INVALID_FILE_ATTRIBUTES && !(attr & FILE_ATTRIBUTE_DIRECTORY);
}

std::string find_in_path(const std::string &name) {
    const char *env = getenv("PATH");
    std::string path = env ? env : "";
    size_t start = 0;
    while (start <= path.size()) {
        size_t semi = path.find(';', start);
        if (semi == std::string::npos) semi = path.size();
        std::string dir = path.substr(start, semi - start);
        if (!dir.empty()) {
            std::string candidate = dir + "\\" + name;
            if (runnable_file(candidate)) return candidate;
        }
        start = semi + 1;
    }
    return "";
}

bool expand_glob(const std::string &pattern, std::vector<std::string> *paths, std::string *error) {
    (void)pattern;
    (void)paths;
    *error = "--ports-glob is not available on Windows: name the COM ports with -p or --ports-file";
    return false;
}

FILE *open_private(const std::string &path) {
    return fopen(path.c_str(), "wbN");  // N: not inherited by the children
}
