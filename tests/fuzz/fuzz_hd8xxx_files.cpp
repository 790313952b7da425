// Files of any content through the HD8XXX summaries and divisions, and any
// byte stream through the acknowledgement matcher: nothing may read or write
// outside its buffers, and every call must end.
#include <cstdint>
#include <cstdio>
#include <string>

#include <unistd.h>

#include "hd8xxx/hd8xxx.h"

namespace {

std::string g_dir;

void write(const std::string &path, const uint8_t *data, size_t size) {
    FILE *f = fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    fwrite(data, 1, size, f);
    fclose(f);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    char tmpl[] = "/tmp/vk-fuzz-hd-XXXXXX";
    if (mkdtemp(tmpl) != nullptr) g_dir = tmpl;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (g_dir.empty() || size > 65536) return 0;
    const std::string rtcm = g_dir + "/EPH_GPS_BDS.rtcm", hdb = g_dir + "/HD_GPS_BDS.hdb";
    const std::string gps = g_dir + "/GPS_TMP", bds = g_dir + "/BDS_TMP";
    write(rtcm, data, size);
    write(hdb, data, size);
    HD8XXX_GetOfflineEphInfo(rtcm.c_str());
    HD8XXX_DivideOfflineEphFile(rtcm.c_str(), gps.c_str(), bds.c_str());
    HD8XXX_GetOnlineEphInfo(hdb.c_str());
    HD8XXX_DivideOnlineEphFile(hdb.c_str(), gps.c_str(), bds.c_str());

    uint8_t value[10], mask[10];
    uint8_t out[HD8XXX_ACK_SIZE];
    VkAckWait w{.match = hd8xxx_ack_match(size ? data[0] : 0, size > 1 ? data[1] : 0, value, mask),
                .out = out};
    vk_judge_ack(&w, reinterpret_cast<const char *>(data), uint32_t(size), 0x200);
    for (const std::string &p : {rtcm, hdb, gps, bds}) unlink(p.c_str());
    return 0;
}
