// The virtual receiver: pseudo-terminal, receiver thread, faults, record.
//
// The thread owns the master side. It reads what the tool writes on the
// slave, feeds it byte by byte to the platform's model, records every unit
// the model completes and writes the model's answers with the faults applied.
// Everything happens on that one thread, in arrival order: while a reply is
// being delayed or paced out, input waits in the pseudo-terminal's buffer, as
// it would in a busy module's UART FIFO.
//
// The sim keeps its own descriptor on the slave open for its whole life, so
// the master never sees a hang-up between one client's close and the next
// one's open. It neither locks that descriptor nor makes it exclusive, so the
// tool can still open the port exclusively. Both descriptors are close-on-exec:
// a tool spawned by a test must not inherit the master, or a hang-up would not
// reach it.

#include "sim/sim.h"

#include "core/log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "serial/serial_linux_baud.h"
#include "sim/model.h"

#if defined(__GNUC__) || defined(__clang__)
#define SIM_PRINTF(a, b) __attribute__((format(printf, a, b)))
#else
#define SIM_PRINTF(a, b)
#endif

namespace {

constexpr int kPollMs = 10;                           // poll slice of the receiver thread
constexpr int64_t kDrainQuietUs = 100000;             // sim_stop: quiet line that ends the drain
constexpr int64_t kDrainMaxUs = 10000000;             // sim_stop: a writer that never pauses
constexpr int64_t kEndOfLineQuietUs = INT64_MAX / 2;  // sim_stop: the quiet that ends every unit
constexpr int64_t kWriteStallUs = 2000000;            // give up a reply nobody reads
constexpr int64_t kWriteStallStopUs = 100000;         // ... sooner once stopping
constexpr char kNoise[] = "#noise";                   // repeated; no '$', no CR/LF
// Noise before binary answers: receiver text behind a stray 0x04.
constexpr char kBinaryNoise[] = "\x04$GNTXT,01,01,02,noise*2D\r\n";
constexpr size_t kChatterBytes = 16;

int64_t now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void sleep_us(int64_t us) {
    if (us > 0) std::this_thread::sleep_for(std::chrono::microseconds(us));
}

std::string lower(const std::string &s) {
    std::string out = s;
    for (char &c : out) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return out;
}

// Bytes shown on one log line: printable as they are, CR LF as \r \n,
// anything else as \xHH; long runs cut.
std::string escaped(const uint8_t *p, size_t n) {
    std::string out;
    size_t shown = n > 96 ? 96 : n;
    for (size_t i = 0; i < shown; ++i) {
        uint8_t c = p[i];
        if (c == '\r') {
            out += "\\r";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c >= 0x20 && c <= 0x7E && c != '\\') {
            out += char(c);
        } else {
            char hex[8];
            std::snprintf(hex, sizeof hex, "\\x%02X", c);
            out += hex;
        }
    }
    if (shown < n) out += "...";
    return out;
}

}  // namespace

const SimModel *sim_find_model(const std::string &platform) {
    static const SimModel *const models[] = {
        &sim_model_dw2207b, &sim_model_ag33xx,  &sim_model_rz610mxxxx, &sim_model_hd8xxx,
        &sim_model_mj7xxx,  &sim_model_sta8100, &sim_model_tq934n};
    std::string want = lower(platform);
    for (const SimModel *m : models) {
        if (want == m->name) return m;
    }
    return nullptr;
}

struct Sim {
    SimConfig cfg;
    const SimModel *model = nullptr;
    void *model_state = nullptr;
    std::string slave_path;
    bool link_made = false;
    int64_t start_us = 0;

    mutable std::mutex fd_mu;  // guards closing the descriptors against sim_idle's ioctl
    int master = -1;
    int slave = -1;

    mutable std::mutex rec_mu;
    SimRecord rec;

    std::thread thread;
    std::atomic<bool> stop{false};
    std::atomic<bool> hung_up{false};
    std::atomic<bool> busy{false};
    std::atomic<bool> held{false};  // the model holds a unit that only a quiet line can end
    std::atomic<int64_t> last_activity_us{0};
    std::atomic<int64_t> last_answer_end_us{0};  // when the last byte of an answer was written
    std::atomic<int64_t> last_input_end_us{0};   // when the latest input counted as received
    std::atomic<uint64_t> bytes_in{0};

    // Receiver thread only.
    uint32_t answered = 0;     // commands answered (stop_after)
    uint32_t frames_seen = 0;  // complete binary frames, good or bad, and record sentences
                               // (close_after_frames)
    uint32_t numbered = 0;     // answered units so far: the number of the next (refuse_only)
    std::string repeat_out;    // the last answer, while it is being repeated (repeat_ms)
    int64_t next_repeat_us = 0;
    bool quiet_write = false;  // writing a repeat: not activity for sim_idle
    double byte_us = 0;        // pacing: time of one byte (10 bit times); 0 unpaced
    size_t pace_chunk = 0;     // pacing: bytes per read/write slice
    int64_t in_next_us = 0;    // pacing: earliest time of the next read
    int64_t out_next_us = 0;   // pacing: earliest time of the next write
};

namespace {

// The pauses that faults ask for end early once sim_stop is waiting.
void pause_us(const Sim *s, int64_t us) {
    int64_t end = now_us() + us;
    for (int64_t left = us; left > 0 && !s->stop.load(); left = end - now_us()) {
        sleep_us(left < kPollMs * 1000 ? left : kPollMs * 1000);
    }
}

void vlog(const Sim *s, const char *fmt, ...) SIM_PRINTF(2, 3);

void vlog(const Sim *s, const char *fmt, ...) {
    if (!s->cfg.verbose) return;
    char text[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    double secs = double(now_us() - s->start_us) / 1e6;
    std::fprintf(stderr, "[sim %8.3f] %s\n", secs, text);
    std::fflush(stderr);
}

void touch(Sim *s) { s->last_activity_us.store(now_us()); }

void close_fds(Sim *s) {
    std::lock_guard<std::mutex> lock(s->fd_mu);
    if (s->master >= 0) close(s->master);
    if (s->slave >= 0) close(s->slave);
    s->master = -1;
    s->slave = -1;
}

void hang_up(Sim *s) {
    // The flag goes up before the line drops: a test that sees the tool end
    // on the hang-up must also see the receiver say it hung up.
    s->hung_up.store(true);
    close_fds(s);
    s->held.store(false);  // nothing more will come to end a unit
    touch(s);
}

// Writes all of data, waiting while the line is full. Gives up when no byte
// goes out for a while (nobody reads the slave), sooner once stopping.
bool write_all(Sim *s, const uint8_t *data, size_t len) {
    size_t done = 0;
    int64_t last_progress = now_us();
    while (done < len) {
        ssize_t w = write(s->master, data + done, len - done);
        if (w > 0) {
            done += size_t(w);
            last_progress = now_us();
            if (!s->quiet_write) touch(s);
            continue;
        }
        if (w < 0 && errno == EINTR) continue;
        if (w < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
        int64_t limit = s->stop.load() ? kWriteStallStopUs : kWriteStallUs;
        if (now_us() - last_progress > limit) return false;
        pollfd p{s->master, POLLOUT, 0};
        poll(&p, 1, kPollMs);
    }
    return true;
}

// The rate the tool set on its side of the line (0 when unknown).
uint32_t tool_baud(const Sim *s) {
    unsigned baud = 0;
    if (s->slave < 0 || vk_linux_get_baud(s->slave, &baud) != 0) return 0;
    return baud;
}

bool write_paced_as_is(Sim *s, const uint8_t *data, size_t len);

// One byte per 10 bit times when pacing, in small slices; what a wrong baud
// rate makes of the bytes (garble_baud).
bool write_paced(Sim *s, const uint8_t *data, size_t len) {
    const uint32_t heard = s->cfg.faults.garble_baud == 0 ? 0 : tool_baud(s);
    if (heard == 0) return write_paced_as_is(s, data, len);
    std::vector<uint8_t> garbled =
        sim_garble(std::vector<uint8_t>(data, data + len), s->cfg.faults.garble_baud, heard);
    return garbled.empty() || write_paced_as_is(s, garbled.data(), garbled.size());
}

bool write_paced_as_is(Sim *s, const uint8_t *data, size_t len) {
    if (s->byte_us <= 0) return write_all(s, data, len);
    // One schedule per answer, as a UART sends it: a slice that goes out late
    // does not push back the slices after it. The schedule starts afresh only
    // when the line has been idle.
    const int64_t start = now_us();
    if (s->out_next_us < start) s->out_next_us = start;
    size_t done = 0;
    while (done < len) {
        // A slice is handed over when its last byte would have left the wire.
        size_t n = len - done < s->pace_chunk ? len - done : s->pace_chunk;
        s->out_next_us += int64_t(double(n) * s->byte_us);
        sleep_us(s->out_next_us - now_us());
        if (!write_all(s, data + done, n)) return false;
        done += n;
    }
    return true;
}

// Noise: "#noise#noise#n..." cut to n bytes, each answer starting afresh.
void append_noise(std::string *out, size_t n, size_t *pos) {
    const size_t period = sizeof kNoise - 1;
    for (size_t i = 0; i < n; ++i, ++*pos) *out += kNoise[*pos % period];
}

// Binary noise: kBinaryNoise repeated and cut to n bytes.
void append_binary_noise(std::string *out, size_t n, size_t *pos) {
    const size_t period = sizeof kBinaryNoise - 1;
    for (size_t i = 0; i < n; ++i, ++*pos) *out += kBinaryNoise[*pos % period];
}

// Whether the faults turn the answer of unit `number` into the refusal.
bool refused_by_faults(const SimFaults &f, const SimUnit &u, uint32_t number) {
    if (f.refuse) return true;
    if (f.refuse_only >= 0 && number == uint32_t(f.refuse_only)) return true;
    if (std::find(f.refuse_units.begin(), f.refuse_units.end(), number) != f.refuse_units.end())
        return true;
    const std::string &pre = f.refuse_prefix;
    return !pre.empty() && u.bytes.size() >= pre.size() &&
           std::memcmp(pre.data(), u.bytes.data(), pre.size()) == 0;
}

void answer(Sim *s, const SimUnit &u, bool refused) {
    const SimFaults &f = s->cfg.faults;
    const std::string &text = refused ? u.refusal : u.reply;
    if (text.empty()) return;  // this unit is never answered
    const bool is_refusal = !u.refusal.empty() && text == u.refusal;
    if (f.silent) {
        vlog(s, "silent: no answer");
        return;
    }
    if (f.stop_after >= 0 && s->answered >= uint32_t(f.stop_after)) {
        vlog(s, "no answer (stopped after %d answers)", f.stop_after);
        return;
    }
    ++s->answered;

    std::string out;
    size_t noise_pos = 0;
    void (*noise)(std::string *, size_t, size_t *) =
        u.kind == SimUnitKind::Sentence ? append_noise : append_binary_noise;
    noise(&out, f.garbage_bytes, &noise_pos);
    if (f.garbage_only) {
        noise(&out, text.size(), &noise_pos);
    } else {
        out += text;
    }

    if (f.delay_ms > 0) pause_us(s, int64_t(f.delay_ms) * 1000);

    size_t parts = f.split_parts == 0 ? 1 : f.split_parts;
    if (parts > out.size()) parts = out.size();
    const uint8_t *p = reinterpret_cast<const uint8_t *>(out.data());
    size_t done = 0;
    for (size_t i = 0; i < parts; ++i) {
        // The first pieces take one byte more when the length does not divide.
        size_t n = out.size() / parts + (i < out.size() % parts ? 1 : 0);
        if (!write_paced(s, p + done, n)) {
            vlog(s, "answer dropped after %zu of %zu bytes (line not read)", done, out.size());
            return;
        }
        done += n;
        if (i + 1 < parts && f.split_gap_ms > 0) pause_us(s, int64_t(f.split_gap_ms) * 1000);
    }
    s->last_answer_end_us.store(now_us());
    {
        std::lock_guard<std::mutex> lock(s->rec_mu);
        ++s->rec.replies;
        if (is_refusal) ++s->rec.refusals;
    }
    vlog(s, "answer %s", escaped(p, out.size()).c_str());
    if (f.repeat_ms > 0) {
        s->repeat_out = out;
        s->next_repeat_us = now_us() + int64_t(f.repeat_ms) * 1000;
    }
}

// Writes the last answer again when its time has come (repeat_ms).
void repeat_answer(Sim *s) {
    if (s->repeat_out.empty() || s->stop.load() || now_us() < s->next_repeat_us) return;
    s->quiet_write = true;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(s->repeat_out.data());
    bool ok = write_paced(s, p, s->repeat_out.size());
    s->quiet_write = false;
    if (!ok) {
        vlog(s, "repeat dropped (line not read)");
        s->repeat_out.clear();
        return;
    }
    {
        std::lock_guard<std::mutex> lock(s->rec_mu);
        ++s->rec.repeats;
    }
    s->next_repeat_us = now_us() + int64_t(s->cfg.faults.repeat_ms) * 1000;
}

// Appends chunk[from, to) to the raw record.
void record_raw(Sim *s, const uint8_t *chunk, size_t from, size_t to) {
    if (to <= from) return;
    std::lock_guard<std::mutex> lock(s->rec_mu);
    s->rec.raw.insert(s->rec.raw.end(), chunk + from, chunk + to);
}

void handle_unit(Sim *s, const SimUnit &u) {
    s->busy.store(true);
    vlog(s, "received %s", u.describe.c_str());
    bool refused = false;
    // Download packets take no number: the transfer has faults of its own.
    if (u.kind != SimUnitKind::Packet && (!u.reply.empty() || !u.refusal.empty())) {
        refused = refused_by_faults(s->cfg.faults, u, s->numbered);
        ++s->numbered;
    }
    {
        std::lock_guard<std::mutex> lock(s->rec_mu);
        if (u.kind == SimUnitKind::Sentence) {
            if (u.record) s->rec.sentences.emplace_back(u.bytes.begin(), u.bytes.end());
            if (!u.good) ++s->rec.bad_checksums;
        } else if (u.kind == SimUnitKind::Frame) {
            if (u.record && u.good) s->rec.frames.push_back(u.bytes);
            if (!u.good) ++s->rec.bad_frames;
        }
        if (s->model->commit) s->model->commit(s->model_state, u, refused, &s->rec);
    }
    answer(s, u, refused);
    touch(s);
    s->busy.store(false);
}

// Handles a finished unit and counts it for close_after_frames. Returns false
// once the receiver has hung up.
bool take_unit(Sim *s, const SimUnit &u) {
    handle_unit(s, u);
    if ((u.kind == SimUnitKind::Frame && u.record) || u.transfer) {
        ++s->frames_seen;
        int32_t limit = s->cfg.faults.close_after_frames;
        if (limit > 0 && s->frames_seen >= uint32_t(limit)) {
            vlog(s, "hanging up after %u frames", s->frames_seen);
            hang_up(s);
            return false;
        }
    }
    return true;
}

bool process_bytes(Sim *s, const uint8_t *chunk, size_t n);

// Feeds a chunk read from the master. Returns false once the receiver has
// hung up; the bytes after the frame (or the byte count) that triggered it
// are dropped unrecorded.
bool process(Sim *s, const uint8_t *chunk, size_t n) {
    const uint32_t hang_at = s->cfg.faults.hang_up_after_bytes;
    if (hang_at > 0) {
        uint64_t room = hang_at - s->bytes_in.load();
        if (n >= room) {
            // The bytes up to the limit are taken as usual, then the line goes.
            if (!process_bytes(s, chunk, size_t(room))) return false;
            vlog(s, "hanging up after %u bytes", hang_at);
            hang_up(s);
            return false;
        }
    }
    return process_bytes(s, chunk, n);
}

bool process_bytes(Sim *s, const uint8_t *chunk, size_t n) {
    size_t recorded = 0;
    SimUnit u;
    if (s->model->quiet) s->held.store(true);  // until the model says otherwise
    for (size_t i = 0; i < n; ++i) {
        if (!s->model->feed(s->model_state, chunk[i], &u)) continue;
        // The raw record holds a unit's bytes by the time the unit is recorded.
        record_raw(s, chunk, recorded, i + 1);
        s->bytes_in.fetch_add(i + 1 - recorded);
        recorded = i + 1;
        if (!take_unit(s, u)) return false;
    }
    record_raw(s, chunk, recorded, n);
    s->bytes_in.fetch_add(n - recorded);
    return true;
}

// Tells the model how long the line has been quiet (SimModel::quiet) and
// takes the unit the quiet ended, if any.
void quiet_line(Sim *s, int64_t quiet_us) {
    if (!s->model->quiet || s->hung_up.load()) return;
    SimUnit u;
    SimQuiet q = s->model->quiet(s->model_state, quiet_us, &u);
    if (q == SimQuiet::Unit) take_unit(s, u);
    s->held.store(q == SimQuiet::Waiting);
}

// Unasked noise, written once if the line takes it; never waits.
void chatter(Sim *s) {
    std::string out;
    size_t pos = 0;
    append_noise(&out, kChatterBytes, &pos);
    ssize_t w = write(s->master, out.data(), out.size());
    (void)w;
}

// What the model sends of its own accord now (SimModel::tick). Paced like
// any output, but no answer: no other fault acts on it and it is not activity
// for sim_idle.
void speak(Sim *s, int64_t now) {
    std::string out;
    {
        std::lock_guard<std::mutex> lock(s->rec_mu);
        s->model->tick(s->model_state, now, &out, &s->rec);
    }
    if (out.empty()) return;
    const uint8_t *p = reinterpret_cast<const uint8_t *>(out.data());
    s->quiet_write = true;
    bool ok = write_paced(s, p, out.size());
    s->quiet_write = false;
    if (ok) {
        vlog(s, "unasked %s", escaped(p, out.size()).c_str());
    } else {
        vlog(s, "unasked output dropped (line not read)");
    }
}

void run(Sim *s) {
    vk_precise_timers();  // pacing sleeps in slices of about 2 ms
    uint8_t buf[4096];
    int64_t stop_seen_us = 0;
    int64_t last_input_us = 0;
    bool backlog = false;  // pacing: bytes were waiting behind the last slice read
    int64_t chatter_us = int64_t(s->cfg.faults.chatter_ms) * 1000;
    int64_t next_chatter_us = now_us() + chatter_us;
    for (;;) {
        int64_t now = now_us();
        if (chatter_us > 0 && now >= next_chatter_us && !s->hung_up.load()) {
            chatter(s);
            next_chatter_us = now + chatter_us;
        }
        bool stopping = s->stop.load();
        if (s->model->tick && !stopping && !s->cfg.faults.silent && !s->hung_up.load())
            speak(s, now);
        if (stopping) {
            if (stop_seen_us == 0) stop_seen_us = now;
            if (s->hung_up.load()) break;
            int64_t quiet_from = last_input_us > stop_seen_us ? last_input_us : stop_seen_us;
            if (now - quiet_from >= kDrainQuietUs || now - stop_seen_us >= kDrainMaxUs) {
                // The line is over: a unit that waits for quiet ends here.
                quiet_line(s, kEndOfLineQuietUs);
                break;
            }
        }
        if (s->hung_up.load()) {
            sleep_us(int64_t(kPollMs) * 1000);
            continue;
        }
        size_t want = sizeof buf;
        const int32_t read_limit = s->cfg.faults.stop_reading_after_bytes;
        if (read_limit >= 0 && !stopping) {
            // A receiver that stopped reading: the line fills up behind it.
            uint64_t got = s->bytes_in.load();
            if (got >= uint64_t(read_limit)) {
                sleep_us(int64_t(kPollMs) * 1000);
                continue;
            }
            if (uint64_t(read_limit) - got < want) want = size_t(uint64_t(read_limit) - got);
        }
        // While draining for sim_stop the line is read as fast as it comes.
        if (s->byte_us > 0 && !stopping) {
            if (now < s->in_next_us) {
                int64_t wait = s->in_next_us - now;
                sleep_us(wait < kPollMs * 1000 ? wait : kPollMs * 1000);
                continue;
            }
            if (s->pace_chunk < want) want = s->pace_chunk;
        }
        // A unit that only quiet can end is ended within a millisecond of
        // its time, the quiet counted from when its last byte crossed the
        // wire (paced, that is the end of the last slice's schedule).
        pollfd p{s->master, POLLIN, 0};
        int r = poll(&p, 1, s->held.load() ? 1 : kPollMs);
        if (r <= 0) {
            const int64_t quiet_from =
                s->byte_us > 0 && s->in_next_us > last_input_us ? s->in_next_us : last_input_us;
            quiet_line(s, now_us() - quiet_from);
            repeat_answer(s);
            continue;
        }
        if (!(p.revents & POLLIN)) {
            // Hang-up or error on the master (cannot happen while our own slave
            // descriptor is open, but never spin on it).
            sleep_us(int64_t(kPollMs) * 1000);
            continue;
        }
        ssize_t n = read(s->master, buf, want);
        if (n <= 0) {
            if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
            sleep_us(int64_t(kPollMs) * 1000);
            continue;
        }
        last_input_us = now_us();
        touch(s);
        s->repeat_out.clear();  // the next command has begun: no more repeats
        if (s->byte_us > 0 && !stopping) {
            // The slice counts as received once its last byte would have
            // crossed the wire. Bytes that were already waiting behind the
            // last slice follow it on the wire without a gap, however late
            // this thread came to read them; only bytes that found the line
            // empty start a new schedule when they are read.
            if (!backlog && s->in_next_us < last_input_us) s->in_next_us = last_input_us;
            s->in_next_us += int64_t(double(n) * s->byte_us);
            int waiting = 0;
            backlog = ioctl(s->master, FIONREAD, &waiting) == 0 && waiting > 0;
            sleep_us(s->in_next_us - now_us());
        }
        s->last_input_end_us.store(now_us());
        process(s, buf, size_t(n));
    }
}

bool set_raw(int fd) {
    termios t{};
    if (tcgetattr(fd, &t) != 0) return false;
    cfmakeraw(&t);
    t.c_cflag |= CLOCAL | CREAD;
    return tcsetattr(fd, TCSANOW, &t) == 0;
}

void set_error(std::string *error, const std::string &text) {
    if (error) *error = text;
}

std::string sys_error(const char *what) { return std::string(what) + ": " + std::strerror(errno); }

// Places the symlink, replacing an existing symlink (never another kind of file).
bool make_link(const std::string &link, const std::string &target, std::string *error) {
    struct stat st {};
    if (lstat(link.c_str(), &st) == 0) {
        if (!S_ISLNK(st.st_mode)) {
            set_error(error, link + " exists and is not a symlink");
            return false;
        }
        if (unlink(link.c_str()) != 0) {
            set_error(error, sys_error(("unlink " + link).c_str()));
            return false;
        }
    }
    if (symlink(target.c_str(), link.c_str()) != 0) {
        set_error(error, sys_error(("symlink " + link).c_str()));
        return false;
    }
    return true;
}

// Removes the symlink if it still points at our device (a later sim may have
// taken the name over).
void remove_link(const std::string &link, const std::string &target) {
    char buf[4096];
    ssize_t n = readlink(link.c_str(), buf, sizeof buf - 1);
    if (n < 0) return;
    buf[n] = '\0';
    if (target == buf) unlink(link.c_str());
}

void destroy(Sim *s) {
    close_fds(s);
    if (s->model_state) s->model->destroy(s->model_state);
    delete s;
}

}  // namespace

Sim *sim_start(const SimConfig &cfg, std::string *error) {
    const SimModel *model = sim_find_model(cfg.platform);
    if (!model) {
        set_error(error, "unknown platform '" + cfg.platform + "'");
        return nullptr;
    }
    if (cfg.faults.close_after_frames == 0) {
        set_error(error, "close_after_frames must be -1 (never) or at least 1");
        return nullptr;
    }
    if (cfg.faults.refuse_only < -1) {
        set_error(error, "refuse_only must be -1 (none) or a unit number");
        return nullptr;
    }
    if (cfg.faults.rmc_status != 'V' && cfg.faults.rmc_status != 'A') {
        set_error(error, "rmc_status must be 'V' or 'A'");
        return nullptr;
    }

    Sim *s = new Sim();
    s->cfg = cfg;
    s->model = model;
    s->start_us = now_us();

    s->master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (s->master < 0) {
        set_error(error, sys_error("posix_openpt"));
        destroy(s);
        return nullptr;
    }
    char name[128];
    if (grantpt(s->master) != 0 || unlockpt(s->master) != 0 ||
        ptsname_r(s->master, name, sizeof name) != 0) {
        set_error(error, sys_error("pseudo-terminal setup"));
        destroy(s);
        return nullptr;
    }
    s->slave_path = name;
    s->slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (s->slave < 0) {
        set_error(error, sys_error(("open " + s->slave_path).c_str()));
        destroy(s);
        return nullptr;
    }
    if (!set_raw(s->slave) || !set_raw(s->master)) {
        set_error(error, sys_error("raw mode"));
        destroy(s);
        return nullptr;
    }
    int fl = fcntl(s->master, F_GETFL);
    if (fl < 0 || fcntl(s->master, F_SETFL, fl | O_NONBLOCK) != 0) {
        set_error(error, sys_error("fcntl"));
        destroy(s);
        return nullptr;
    }
    if (!cfg.link_path.empty()) {
        if (!make_link(cfg.link_path, s->slave_path, error)) {
            destroy(s);
            return nullptr;
        }
        s->link_made = true;
    }

    if (cfg.faults.pace_baud > 0) {
        s->byte_us = 10.0 * 1e6 / double(cfg.faults.pace_baud);
        // About 2 ms of line time per slice, at least one byte.
        size_t chunk = size_t(2000.0 / s->byte_us);
        s->pace_chunk = chunk == 0 ? 1 : chunk;
    }
    s->model_state = model->create();
    if (model->configure) model->configure(s->model_state, cfg.faults);
    s->last_activity_us.store(now_us());
    s->thread = std::thread(run, s);
    if (cfg.realtime) {
        sched_param p{};
        p.sched_priority = 1;
        if (pthread_setschedparam(s->thread.native_handle(), SCHED_FIFO, &p) != 0)
            vlog(s, "real-time priority not granted; pacing as an ordinary thread");
    }
    vlog(s, "%s receiver on %s", model->name, s->slave_path.c_str());
    return s;
}

std::string sim_slave_path(const Sim *sim) { return sim ? sim->slave_path : std::string(); }

void sim_stop(Sim *sim) {
    if (!sim) return;
    sim->stop.store(true);
    if (sim->thread.joinable()) sim->thread.join();
    close_fds(sim);
    if (sim->link_made) {
        remove_link(sim->cfg.link_path, sim->slave_path);
        sim->link_made = false;
    }
}

void sim_free(Sim *sim) {
    if (!sim) return;
    sim_stop(sim);
    destroy(sim);
}

SimRecord sim_record(const Sim *sim) {
    if (!sim) return SimRecord();
    std::lock_guard<std::mutex> lock(sim->rec_mu);
    return sim->rec;
}

bool sim_idle(const Sim *sim, uint32_t quiet_ms) {
    if (!sim) return true;
    if (sim->busy.load() || sim->held.load()) return false;
    if (now_us() - sim->last_activity_us.load() < int64_t(quiet_ms) * 1000) return false;
    std::lock_guard<std::mutex> lock(sim->fd_mu);
    if (sim->master >= 0) {
        int pending = 0;
        if (ioctl(sim->master, FIONREAD, &pending) == 0 && pending > 0) return false;
    }
    return true;
}

void sim_settle(Sim *sim, uint32_t quiet_ms, uint32_t max_ms) {
    if (!sim) return;
    int64_t end = now_us() + int64_t(max_ms) * 1000;
    while (!sim_idle(sim, quiet_ms) && now_us() < end) sleep_us(5000);
}

uint64_t sim_bytes_received(const Sim *sim) { return sim ? sim->bytes_in.load() : 0; }

int64_t sim_last_answer_end_us(const Sim *sim) { return sim ? sim->last_answer_end_us.load() : 0; }

int64_t sim_last_input_end_us(const Sim *sim) { return sim ? sim->last_input_end_us.load() : 0; }

bool sim_hung_up(const Sim *sim) { return sim && sim->hung_up.load(); }
