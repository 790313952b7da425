// Receiver text of any shape through the reply checks and the carry of a
// partial sentence: nothing may read outside the buffers.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ag33xx/ag33xx.h"
#include "hd8xxx/hd8xxx.h"
#include "mj7xxx/mj7xxx.h"
#include "rz610mxxxx/rz610mxxxx.h"
#include "toolkit/reply.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) return 0;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 4096) return 0;
    // Two reads of one wait: the first part, then the rest.
    size_t split = size ? data[0] % (size + 1) : 0;
    std::vector<char> buf(VK_REPLY_BUFFER + 1, 0);
    char carry[VK_REPLY_CARRY];
    uint32_t carry_len = 0;
    for (int part = 0; part < 2; ++part) {
        size_t from = part == 0 ? 0 : split, to = part == 0 ? split : size;
        std::fill(buf.begin(), buf.end(), 0);
        memcpy(buf.data(), data + from, to - from);
        uint32_t len = uint32_t(to - from);
        Vk_ProcessSerialData(buf.data(), &len, carry, &carry_len, VK_REPLY_BUFFER, VK_REPLY_CARRY);
        AG33XX_CheckNmeaCmdRsp(buf.data(), len, "$PAIR590", 0);
        AG33XX_CheckNmeaRpt(buf.data(), len, "$PAIR011", 0);
        RZ610MXXXX_CheckNmeaCmdRsp(buf.data(), len, "$PVNKAIDTIME", 0);
        RZ610MXXXX_CheckNmeaRpt(buf.data(), len, "GGA", 0);
        Vk_ContainsText(buf.data(), len, "$OK*04");
        HD8XXX_CheckNmeaCmdRsp(buf.data(), len, "$PVNKAIDPOS");
        MJ7XXX_CheckNmeaCmdRsp(buf.data(), len, "$PVNKAIDINI");
        MJ7XXX_CheckCmdContain(buf.data(), len, "$GNRMC", "V");
    }
    return 0;
}
