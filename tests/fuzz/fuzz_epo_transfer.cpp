// EPO files of any content sent to a receiver that answers anything, through
// both transfers (record sentences online, binary frames offline) of both
// dialects, over the in-memory port: nothing may read or write outside its
// buffers, every wait must end, and only whole records of the file may go
// on the wire, each where the file has it.
//
// Input: sel, burst, limit, file length (2 bytes LE), [tile length (2 bytes
// LE) when sel bit 6 is set], the file bytes, then the receiver's part.
//   sel bits 0-2: the kind of file (which names it goes under); bit 3: the
//   dialect (AG33XX, RZ610MXXXX); bit 4: a scripted receiver that answers
//   each write, the receiver's part then choosing, write by write, the
//   answer (right, none, refused, a bad checksum); otherwise the receiver's
//   part is what the port gives to reads, as it is; bit 5: the receiver
//   stops taking data after limit * 64 bytes; bit 6: the file is its bytes
//   repeated up to the tile length (large files from short inputs); bit 7
//   (with bit 5): the receiver hangs up there instead (the port is gone).
//   A transfer ends at the first write that comes short, except that the
//   offline GPS+GLONASS passes go on with their next segment while the port
//   is still there.
//   burst: the most bytes one read returns (0: no limit).
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "ag33xx/ag33xx.h"
#include "core/clock_fake.h"
#include "epo/epo.h"
#include "rz610mxxxx/rz610mxxxx.h"
#include "serial/serial.h"
#include "serial/serial_memory.h"
#include "toolkit/exchange.h"
#include "toolkit/frame.h"

namespace {

std::string g_dir;

void check(bool ok) {
    if (!ok) __builtin_trap();
}

struct Names {
    const char *online;
    const char *offline;
};

// GPS, GPS+GLONASS, Galileo and BeiDou under the names each dialect accepts.
const Names kAg33xxNames[] = {{"VGPS.DAT", "EPO_GPS_3_1.DAT"},
                              {"VG_R.DAT", "EPO_GR_3_1.DAT"},
                              {"VGA.DAT", "EPO_GAL_3.DAT"},
                              {"VBD2.DAT", "EPO_BDS_3.DAT"}};
const Names kRz610Names[] = {
    {"VGPS.DAT", "EPO_GPS_3_1.DAT"},          {"VG_R.DAT", "ELPO_GR3_1.DAT"},
    {"VELPO_GAL.DAT", "ELPO_GAL_07days.DAT"}, {"VELPO_BDS.DAT", "ELPO_BD_07days.DAT"},
    {"VELPO_GLO.DAT", "ELPO_GLO_3.DAT"},      {"VELPO_QZSS.DAT", "ELPO_QZSS_3.DAT"},
    {"VELPO_GR.DAT", "EPO_GR_3_1.DAT"},       {"VELPO_GPS.DAT", "ELPO_GPS_07days.DAT"}};

enum Answer { RIGHT, NONE, REFUSED, BAD_CHECKSUM };

// The scripted receiver: one control byte of its script per write.
struct Script {
    const EpoDialect *d = nullptr;
    bool binary = false;
    const uint8_t *control = nullptr;
    size_t size = 0;
    size_t next = 0;
};

Answer next_answer(Script *s) {
    if (s->next >= s->size) return RIGHT;
    return Answer(s->control[s->next++] % 4);
}

void answer_sentence(const Script *s, Answer a) {
    const bool ag33xx = s->d == &AG33XX_Dialect;
    const char *body = ag33xx ? (a == REFUSED ? "$PAIR001,471,1" : "$PAIR001,471,0")
                              : (a == REFUSED ? "$PVNKEPO,ERROR" : "$PVNKEPO,OK");
    char reply[VK_SENTENCE_SIZE];
    uint32_t len = Vk_BuildSentence(reply, body);
    if (a == BAD_CHECKSUM && len > 4) reply[len - 4] = reply[len - 4] == '1' ? '2' : '1';
    serial_memory_queue(reinterpret_cast<const uint8_t *>(reply), len);
}

void answer_frame(const uint8_t *bytes, size_t n, Answer a) {
    if (n < 4) return;
    uint16_t id = uint16_t(bytes[2] | bytes[3] << 8);
    if (a == REFUSED) ++id;  // the acknowledgement of some other message
    const uint8_t payload[4] = {uint8_t(id & 0xFF), uint8_t(id >> 8), 0, 0};
    uint8_t ack[32];
    uint32_t len = vk_frame_build(kVkFrameEpo, EPO_ACK_ID, payload, ack);
    if (a == BAD_CHECKSUM && len > 2) --len;  // cut short before its trailer ends
    serial_memory_queue(ack, len);
}

void respond(const uint8_t *bytes, size_t n, void *context) {
    Script *s = static_cast<Script *>(context);
    Answer a = next_answer(s);
    if (a == NONE) return;
    if (s->binary)
        answer_frame(bytes, n, a);
    else
        answer_sentence(s, a);
}

bool write_file(const std::string &path, const std::vector<uint8_t> &bytes) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    bool ok = bytes.empty() || fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return fclose(f) == 0 && ok;
}

// Whether the 72 bytes at rec are a whole record of the file at offset.
bool record_at(const std::vector<uint8_t> &file, size_t offset, const uint8_t *rec) {
    return offset + EPO_RECORD_SIZE <= file.size() &&
           memcmp(file.data() + offset, rec, EPO_RECORD_SIZE) == 0;
}

uint32_t header_of(const EpoDialect *d, int32_t type) {
    return epo_type_in(type, d->files.header_types) ? EPO_RECORD_SIZE : 0;
}

// The record sentences: every sentence written is one, with its 18 words,
// and the k-th carries the file's k-th record (after a header, when the type
// has one); no more sentences than whole records. A write the receiver cut
// short may leave the last sentence unfinished.
void check_online(const EpoDialect *d, const std::vector<uint8_t> &file, int32_t type, bool cut,
                  uint32_t ret) {
    const std::vector<uint8_t> &out = serial_memory_written();
    const std::string text(out.begin(), out.end());
    const std::string address = std::string(d->commands.record_address) + ",";
    const bool pair = epo_type_in(type, d->files.pair_types);
    const size_t first = pair ? 0 : header_of(d, type);
    const size_t whole = file.size() >= first ? (file.size() - first) / EPO_RECORD_SIZE : 0;
    size_t count = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find("\r\n", at);
        if (end == std::string::npos) {
            check(cut);  // only a write cut short leaves a sentence unfinished
            break;
        }
        std::string s = text.substr(at, end - at);
        check(s.compare(0, address.size(), address) == 0);
        // "<address>,<mode>,<prn>,<18 words>*<checksum>"
        size_t p = s.find(',');
        p = s.find(',', p + 1);
        p = s.find(',', p + 1);
        check(p != std::string::npos);
        uint8_t rec[EPO_RECORD_SIZE];
        for (int w = 0; w < 18; ++w) {
            check(p < s.size() && s[p] == ',');
            char *stop = nullptr;
            unsigned long word = strtoul(s.c_str() + p + 1, &stop, 16);
            check(stop != s.c_str() + p + 1 && word <= 0xFFFFFFFFul);
            check(*stop == (w == 17 ? '*' : ','));
            for (int b = 0; b < 4; ++b) rec[4 * w + b] = uint8_t(word >> (8 * b));
            p = size_t(stop - s.c_str());
        }
        check(count < whole);
        check(record_at(file, first + count * EPO_RECORD_SIZE, rec));
        ++count;
        at = end + 2;
    }
    if (ret == 0) {
        // Success means the whole file (the first segment for GPS+GLONASS) went out.
        check(pair ? count == 56
                   : count == whole && count > 0 && (file.size() - first) % EPO_RECORD_SIZE == 0);
    }
}

// The binary frames: every byte written belongs to an EPO frame (begin, data,
// end); every data frame carries a whole record of the file, in the order the
// transfer takes them (single systems: one after the other after the header;
// GPS+GLONASS: each segment's 32 GPS records, then each segment's 24 GLONASS
// records), none twice. A write the receiver cut short may leave the last
// frame unfinished.
void check_offline(const EpoDialect *d, const std::vector<uint8_t> &file, int32_t type,
                   int32_t days, bool cut, uint32_t ret) {
    std::vector<size_t> order;
    if (epo_type_in(type, d->files.pair_types)) {
        for (int half = 0; half < 2; ++half)
            for (int32_t i = 0; i < 4 * days; ++i)
                for (uint32_t r = 0; r < (half == 0 ? 32u : 24u); ++r)
                    order.push_back(size_t(i) * EPO_GR_SEGMENT + (half == 0 ? 0 : EPO_GPS_SEGMENT) +
                                    r * EPO_RECORD_SIZE);
    } else {
        for (size_t at = header_of(d, type); at + EPO_RECORD_SIZE <= file.size();
             at += EPO_RECORD_SIZE)
            order.push_back(at);
    }
    const std::vector<uint8_t> &out = serial_memory_written();
    size_t next = 0;  // the first record of order not yet seen
    size_t data_frames = 0;
    for (size_t at = 0; at < out.size();) {
        const size_t left = out.size() - at;
        const uint8_t *f = out.data() + at;
        if (left < 6) {
            check(cut);
            break;
        }
        check(f[0] == 0x04 && f[1] == 0x24);
        const uint16_t id = uint16_t(f[2] | f[3] << 8);
        const size_t len = size_t(f[4] | f[5] << 8);
        if (left < len + 9) {
            check(cut);
            break;
        }
        uint8_t again[EPO_FRAME_CAPACITY];
        check(len + 9 <= sizeof again);
        check(vk_frame_build(kVkFrameEpo, id, {f + 6, len}, again) == len + 9);
        check(memcmp(again, f, len + 9) == 0);
        if (id == 1201) {
            check(len == EPO_RECORD_SIZE);
            while (next < order.size() && !record_at(file, order[next], f + 6)) ++next;
            check(next < order.size());
            ++next;
            ++data_frames;
        } else {
            check(id == 1200 || id == 1202);
            check((len == 1 || len == 2) && strchr("GRECJ", f[6]) != nullptr && f[6] != 0);
            check(len == 1 || f[7] == 0);
        }
        at += len + 9;
    }
    if (ret == 0 && !epo_type_in(type, d->files.pair_types)) {
        // Success means every record after the header went out.
        const size_t first = header_of(d, type);
        check(file.size() > first && (file.size() - first) % EPO_RECORD_SIZE == 0);
        check(data_frames == (file.size() - first) / EPO_RECORD_SIZE);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    char tmpl[] = "/tmp/vk-fuzz-epo-transfer-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return 0;
    g_dir = tmpl;
    atexit([] { rmdir(g_dir.c_str()); });  // each input's files are gone already
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_dir.empty() || size < 5 || size > 70000) return 0;
    const uint8_t sel = data[0], burst = data[1], limit = data[2];
    size_t at = 5;
    size_t file_len = size_t(data[3] | data[4] << 8);
    size_t tile_len = 0;
    if (sel & 0x40) {
        if (size < 7) return 0;
        tile_len = size_t(data[5] | data[6] << 8);
        at = 7;
    }
    file_len = std::min(file_len, size - at);
    std::vector<uint8_t> file(data + at, data + at + file_len);
    if (tile_len > 0 && !file.empty()) {
        std::vector<uint8_t> tiled(tile_len);
        for (size_t i = 0; i < tile_len; ++i) tiled[i] = file[i % file.size()];
        file.swap(tiled);
    }
    const uint8_t *rx = data + at + file_len;
    const size_t rx_size = size - at - file_len;

    const bool rz = sel & 0x08;
    const EpoDialect *d = rz ? &RZ610MXXXX_Dialect : &AG33XX_Dialect;
    const Names &names = rz ? kRz610Names[sel & 7] : kAg33xxNames[sel & 3];
    const bool scripted = sel & 0x10;
    const bool stalls = sel & 0x20;
    const bool hangs_up = sel & 0x80;

    for (int offline = 0; offline < 2; ++offline) {
        const char *name = offline ? names.offline : names.online;
        const std::string path = g_dir + "/" + name;
        if (!write_file(path, file)) return 0;

        vk_fake_clock_reset(1000);
        Script script{.d = d, .binary = offline == 1};
        if (scripted) {
            serial_memory_reset(nullptr, 0);
            script.control = rx;
            script.size = rx_size;
            serial_memory_set_responder(respond, &script);
        } else {
            serial_memory_reset(rx, rx_size);
        }
        serial_memory_set_burst(burst);
        if (stalls) serial_memory_set_write_limit(uint64_t(limit) * 64, hangs_up);

        SerialPort port = serial_open("fuzz", 115200);
        check(serial_is_open(port));
        int32_t days = 0;
        int32_t type = offline ? epo_offline_type(d, name, &days) : epo_online_type(d, name);
        check(type != -1);
        uint32_t ret = offline ? epo_send_file_offline(d, port, path.c_str())
                               : epo_send_file_online(d, port, path.c_str());
        serial_close(port);
        const bool cut = stalls && serial_memory_written().size() == uint64_t(limit) * 64;
        const bool segments_go_on = offline && !hangs_up && epo_type_in(type, d->files.pair_types);
        check(serial_memory_late_writes() == 0 || segments_go_on);
        if (offline)
            check_offline(d, file, type, days, cut, ret);
        else
            check_online(d, file, type, cut, ret);
        unlink(path.c_str());
    }
    return 0;
}
