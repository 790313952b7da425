// The two HD8XXX entries. Offline stops at the first failing step and ends
// with the YMODEM download; online runs every step asked for and returns the
// last one's result.
#include "core/log.h"
#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/ymodem.h"
#include "toolkit/checksum.h"
#include "toolkit/session.h"

namespace {

// Which aiding protocol a model speaks online: 1 binary frames, others the
// "$PVNK" sentences. The last matching row wins; the bare name matches none.
constexpr VkModuleRow kModuleTable[] = {
    {"HD8XXX-0", 0},  {"HD8XXX-10", 0}, {"HD8XXX-11", 0}, {"HD8XXX-12", 0},
    {"HD8XXX-13", 0}, {"HD8XXX-14", 1}, {"HD8XXX-15", 1}, {"HD8XXX-16", 1},
    {"HD8XXX-17", 1}, {"HD8XXX-18", 2}, {"HD8XXX-19", 2}, {"HD8XXX-2", 0},
};

const VkSessionRules kOffline = {
    .entry_line = "[INFO] enter HD8XXX Agnss Offline\n",
    .options = {.optstring = "m:o:p:b:f:b:s:cu:l:R:T:q::",
                .pos_enable_format = "[INFO] Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n",
                .time_enable_format = "[INFO] Enable:%d,Mode:%d,Time:%s, LeapSec:%d, Accuracy:%s\n",
                .clear_message = "[INFO] Need to clear eph in flash\n"},
    .usage = "./vk_agnss -m HD8XXX -f EPH_GPS_BDS.rtcm -p COM3 -b 115200 -o offline -sCOLD",
    .opened = nullptr,
};

const VkSessionRules kOnline = {
    .entry_line = "[INFO] enter HD8XXX Agnss Online\n",
    .options = {.optstring = "m:o:p:b:f:b:s:u:l:R:T:q::",
                .pos_enable_format = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n",
                .module_table = kModuleTable},
    .usage = "./vk_agnss -m HD8XXX-14 -f HD_GPS_BDS.hdb -p COM3 -b 115200 -o online -sHOT",
    .opened = nullptr,
};

// Parse, the file check and the summary; stops after the summary with -q.
// Returns true when the flow goes on, with *result the summary's result.
bool prologue(const VkSessionRules &rules, int argc, char **argv, VkSession *s,
              uint32_t (*summary)(const char *), uint32_t *result) {
    vk_log("%s", rules.entry_line);
    *result = vk_parse_options(argc, argv, &rules.options, &s->opts);
    if (*result != VK_OK) return false;
    if (s->opts.file[0] != '\0') {
        vk_log("[INFO] Input Eph: %d\n", 1);
        *result = vk_check_file_access(s->opts.file);
        if (*result != VK_OK) return false;
    }
    *result = summary(s->opts.file);
    return s->opts.query == 0;
}

}  // namespace

uint32_t HD8XXX_AgnssOffline(int argc, char **argv) {
    VkSession s;
    uint32_t result;
    if (!prologue(kOffline, argc, argv, &s, HD8XXX_GetOfflineEphInfo, &result)) return result;
    const VkOptions &o = s.opts;
    // Offline takes a missing baud rate as given.
    if (o.port[0] == '\0' || o.start_way == -1 || (o.time.type != 0 && o.time.type != 1)) {
        vk_print_usage(kOffline.usage);
        return VK_ERR_PARAM;
    }
    uint32_t opened = vk_open_port(kOffline, &s);
    if (opened != VK_OK) return opened;
    hd8xxx_use_port(s.port);
    vk_log("[INFO] Sets baud rate of the UART...\n");
    platform_sleep(500000);
    serial_change_br(s.port, uint32_t(o.baud));

    if (result == VK_OK && o.clear) {
        result = HD8XXX_ClearEph(s.port);
        vk_log("[INFO] HD8XXX Clear Eph ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.start_way != 0) {
        result = HD8XXX_SendStartWay(s.port, o.start_way, 1);
        vk_log("[INFO] HD8XXX Send StartWay ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.time.enable) {
        result = HD8XXX_SendAidTimeByBP(s.port, &o.time);
        vk_log("[INFO] HD8XXX Send Time ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.pos.enable) {
        result = HD8XXX_SendAidPosByBP(s.port, &o.pos);
        vk_log("[INFO] HD8XXX Send Pos ret: 0x%x\n", result);
    }
    if (result == VK_OK && o.file[0] != '\0') {
        ymodem_io_init(HD8XXX_SerialSend, HD8XXX_SerialRecv, Vk_CRC16_Calc, HD8XXX_Delay);
        result = HD8XXX_DownloadOfflineEph(s.port, o.file);
        vk_log("[INFO] HD8XXX Send EphData ret: 0x%x\n", result);
    }
    serial_close(s.port);
    return result;
}

uint32_t HD8XXX_AgnssOnline(int argc, char **argv) {
    VkSession s;
    uint32_t result;
    if (!prologue(kOnline, argc, argv, &s, HD8XXX_GetOnlineEphInfo, &result)) return result;
    const VkOptions &o = s.opts;
    if (!vk_options_complete(&o)) {
        vk_print_usage(kOnline.usage);
        return VK_ERR_PARAM;
    }
    uint32_t opened = vk_open_port(kOnline, &s);
    if (opened != VK_OK) return opened;
    const bool binary = o.module_protocol == 1;

    if (o.start_way != 0) {
        result = HD8XXX_SendStartWay(s.port, o.start_way, o.module_protocol);
        vk_log("[INFO] HD8XXX Send StartWay ret: 0x%x\n", result);
        if (result == VK_OK) platform_sleep(1000000);
    }
    if (o.time.enable) {
        if (binary) {
            result = HD8XXX_SendAidTimeByBP(s.port, &o.time);
            vk_log("[INFO] HD8XXX Send Time ret: 1110x%x\n", result);
        } else {
            result = HD8XXX_SendAidTimeByNmea(s.port, &o.time);
        }
        vk_log("[INFO] HD8XXX Send Time ret: 0x%x\n", result);
        platform_sleep(200000);
    }
    if (o.pos.enable) {
        result = binary ? HD8XXX_SendAidPosByBP(s.port, &o.pos)
                        : HD8XXX_SendAidPosByNmea(s.port, &o.pos);
        vk_log("[INFO] HD8XXX Send Pos ret: 0x%x\n", result);
        platform_sleep(200000);
    }
    if (o.file[0] != '\0') {
        result = HD8XXX_SendEphData(s.port, o.file);
        vk_log("[INFO] HD8XXX Send EphData ret: 0x%x\n", result);
    }
    serial_close(s.port);
    return result;
}
