// Ephemeris files of any content through the DW2207B RTCM stream over the
// in-memory port: nothing may read or write outside its buffers, and what
// goes on the wire is the file's own leading frames, each whole and valid
// (sync, zero reserved bits, CRC-24Q), up to the first frame that is not;
// success means the whole file went out.
//
// Input: flags, limit, then the file bytes. Flags bit 0: the receiver stops
// taking data after limit * 16 bytes (a write then returns short, and the
// stream must end there); bit 3 (with bit 0): it hangs up there instead (the
// port is gone, and the stream must end as well); bit 1: the rest of the
// input is also queued as receiver replies, which the stream must not need;
// bit 2: the frames that start the file get their right CRC first (a fuzzer
// seldom finds one), so that long streams are tried too.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "core/clock_fake.h"
#include "dw2207b/dw2207b.h"
#include "serial/serial.h"
#include "serial/serial_memory.h"
#include "toolkit/checksum.h"

namespace {

std::string g_path;

void check(bool ok) {
    if (!ok) __builtin_trap();
}

// The ends of the file's leading valid frames, in order (0 first).
std::vector<size_t> frame_ends(const std::vector<uint8_t> &file) {
    std::vector<size_t> ends{0};
    size_t at = 0;
    while (at + 3 <= file.size()) {
        const uint8_t *f = file.data() + at;
        if (f[0] != 0xD3 || (f[1] & 0xFC) != 0) break;
        const size_t len = size_t(f[1] & 3) << 8 | f[2];
        if (at + len + 6 > file.size()) break;
        const uint32_t stored = uint32_t(f[len + 3]) << 16 | uint32_t(f[len + 4]) << 8 | f[len + 5];
        if (Vk_Check_CRC24Q(0, f, uint32_t(len + 3)) != stored) break;
        at += len + 6;
        ends.push_back(at);
    }
    return ends;
}

// Writes the right CRC into each of the file's leading frames whose header
// is valid and that lies whole in the file.
void seal_frames(std::vector<uint8_t> *file) {
    size_t at = 0;
    while (at + 3 <= file->size()) {
        uint8_t *f = file->data() + at;
        if (f[0] != 0xD3 || (f[1] & 0xFC) != 0) break;
        const size_t len = size_t(f[1] & 3) << 8 | f[2];
        if (at + len + 6 > file->size()) break;
        const uint32_t crc = Vk_Check_CRC24Q(0, f, uint32_t(len + 3));
        f[len + 3] = uint8_t(crc >> 16);
        f[len + 4] = uint8_t(crc >> 8);
        f[len + 5] = uint8_t(crc);
        at += len + 6;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    g_path = "/tmp/vkagnss-fuzz-dw2207b-" + std::to_string(getpid()) + ".rtcm3";
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 70000) return 0;
    const bool stalls = data[0] & 1;
    const uint64_t limit = uint64_t(data[1]) * 16;
    std::vector<uint8_t> file(data + 2, data + size);
    if (data[0] & 4) seal_frames(&file);
    FILE *f = fopen(g_path.c_str(), "wb");
    if (f == nullptr) return 0;
    fwrite(file.data(), 1, file.size(), f);
    fclose(f);

    vk_fake_clock_reset(1000);
    if (data[0] & 2)
        serial_memory_reset(file.data(), file.size());
    else
        serial_memory_reset(nullptr, 0);
    if (stalls) serial_memory_set_write_limit(limit, data[0] & 8);
    SerialPort port = serial_open("fuzz", 115200);
    check(serial_is_open(port));
    const uint32_t ret = DW2207B_SendEphData(port, g_path.c_str());
    serial_close(port);
    unlink(g_path.c_str());

    const std::vector<uint8_t> &out = serial_memory_written();
    check(out.size() <= file.size());
    check(std::equal(out.begin(), out.end(), file.begin()));
    check(serial_memory_late_writes() == 0);
    const std::vector<size_t> ends = frame_ends(file);
    size_t whole = 0;  // the leading valid frames that went out whole
    while (whole + 1 < ends.size() && ends[whole + 1] <= out.size()) ++whole;
    const bool cut = stalls && out.size() == limit;
    if (out.size() != ends[whole]) {
        // Part of a frame: only a receiver that stopped taking data leaves
        // one, and the frame it cut was a valid one.
        check(cut);
        check(whole + 1 < ends.size());
    }
    // A receiver that takes everything gets every leading valid frame.
    if (!cut) check(out.size() == ends.back());
    if (ret == 0) check(!file.empty() && out.size() == file.size() && ends.back() == file.size());
    // A file of valid frames that the receiver took whole is a success.
    if (!file.empty() && ends.back() == file.size() && out.size() == file.size()) check(ret == 0);
    return 0;
}
