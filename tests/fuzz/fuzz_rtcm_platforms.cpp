// Files of any content through the STA8100 and TQ934N summaries (the TQ934N
// one with its start search), any byte stream through the STA8100
// acknowledgement matcher, and receiver text through the shared line check:
// nothing may read or write outside its buffers, and every call must end.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include <unistd.h>

#include "sta8100/sta8100.h"
#include "toolkit/frame.h"
#include "tq934n/tq934n.h"

namespace {

std::string g_dir;

void write(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    fwrite(data, 1, size, f);
    fclose(f);
}

// The line check re-reads a line that names the command but says neither
// "OK" nor "ERROR" without end, by design; such text is left out here.
bool check_ends(const std::string &text, const char *name) {
    size_t at = text.find(name);
    if (at == std::string::npos) return true;
    std::string line = text.substr(at, text.find_first_of("\r\n", at) - at);
    return line.find("OK") != std::string::npos || line.find("ERROR") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    char tmpl[] = "/tmp/vk-fuzz-rtcm-XXXXXX";
    if (mkdtemp(tmpl) != nullptr) g_dir = tmpl;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_dir.empty() || size > 65536) return 0;
    const std::string txt = g_dir + "/eph.txt", rtcm = g_dir + "/eph.rtcm",
                      rtcm3 = g_dir + "/eph.rtcm3";
    for (const std::string &p : {txt, rtcm, rtcm3}) write(p, data, size);
    ST_GetNmeaEphInfo(txt.c_str());
    ST_GetRtcmEphInfo(rtcm.c_str());
    rtcm_start_pos = -1;
    TQ934N_GetRtcmEphInfo(rtcm3.c_str());

    uint8_t expected[12], got[12];
    sta8100_ack_frame(size ? data[0] : 12, expected);
    VkAckWait w{.match = {.value = expected, .accept_at = 11}, .out = got};
    vk_judge_ack(&w, reinterpret_cast<const char *>(data), uint32_t(size), 0x200);

    const std::string text(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    if (check_ends(text, "$PSTMINITTIME"))
        STA8100_CheckNmeaCmdRsp(text.c_str(), 0, "$PSTMINITTIME");
    if (check_ends(text, "$PVNKAIDTIME")) TQ934N_CheckNmeaCmdRsp(text.c_str(), 0, "$PVNKAIDTIME");
    for (const std::string &p : {txt, rtcm, rtcm3}) unlink(p.c_str());
    return 0;
}
