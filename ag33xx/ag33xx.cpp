#include "ag33xx/ag33xx.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "core/log.h"
#include "core/number.h"

namespace {

const EpoNameRule kOfflineNames[] = {
    {"EPO_GPS_3_", 0, 3}, {"EPO_BDS_3.DAT", 3, 3}, {"EPO_GR_3_", 1, 3}, {"EPO_GAL_", 2, -1}};
const EpoNameRule kOnlineNames[] = {
    {"VGPS.DAT", 0, 0}, {"VBD2.DAT", 3, 0}, {"VGA.DAT", 2, 0}, {"VG_R.DAT", 1, 0}};
const EpoTypeValue kModes[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};
const EpoLetter kLetters[] = {{0, "G"}, {2, "E"}, {3, "C"}};
const EpoTypeValue kPlainLists[] = {{0, 32}};
const int32_t kHeaderTypes[] = {2, 3};
const int32_t kPairTypes[] = {1};
// FULLCOLD is taken as COLD: the flows never send the full-cold restart.
const VkStartWayName kStartWays[] = {
    {"NONE", 0}, {"HOT", 1}, {"WARM", 2}, {"COLD", 3}, {"FULLCOLD", 3}};

const char kPosEnable[] = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n";

void time_body(char *out, size_t size, const int *t, const VkTimeAid *) {
    snprintf(out, size, "%s,%d,%d,%d,%d,%d,%d", "$PAIR590", t[0], t[1], t[2], t[3], t[4], t[5]);
}

void pos_body(char *out, size_t size, double lat, double lon, double alt) {
    // The receiver is given fixed accuracies whatever the user supplied.
    snprintf(out, size, "%s,%0.6f,%0.6f,%0.1f,%0.1f,%0.1f,%0.1f,%0.1f", "$PAIR600", lat, lon, alt,
             50.0, 50.0, 0.0, 100.0);
}

void record_body(char *out, size_t size, int mode, int prn, const uint8_t *rec) {
    int n = snprintf(out, size, "$PAIR471,%X,%X", unsigned(mode), unsigned(prn));
    epo_append_record_words(out, size, n, rec, false);
}

}  // namespace

uint32_t AG33XX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *address, uint32_t) {
    if (len == 0) {
        vk_log("[ERROR] recv nothing");
        return VK_ERR_NO_REPLY;
    }
    const char *id = strlen(address) > 5 ? address + 5 : "";
    std::string needle = std::string("$PAIR001,") + id;
    const char *found = Vk_FindText(buf, len, needle.c_str());
    if (found == nullptr) return VK_ERR_NO_REPLY;
    std::string text = vk_reply_line(found, buf, len);
    if (text.empty()) {
        vk_log("[ERROR] format wrong,buf:%s\n", buf);
        return EPO_ERR_ACK;
    }
    std::string body;
    if (!vk_split_and_check(text, &body, EPO_CHECKSUM_DIFF)) return EPO_ERR_ACK;
    // "$PAIR001,<command number>,<result>"
    size_t c1 = body.find(',');
    size_t c2 = body.find(',', c1 + 1);
    std::string number =
        body.substr(c1 + 1, c2 == std::string::npos ? std::string::npos : c2 - c1 - 1);
    int result = c2 == std::string::npos ? 0 : vk_atoi(body.c_str() + c2 + 1);
    if (strncmp(number.c_str(), id, number.size()) == 0 && result == 0) return 0;
    vk_log("[ERROR] check_id: %s,check_ret:%d\n", number.c_str(), result);
    return EPO_ERR_ACK;
}

uint32_t AG33XX_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected, uint32_t) {
    if (len == 0) return VK_ERR_NO_REPLY;
    // The restart report "$PAIR011" is the only report a flow waits for.
    if (Vk_FindText(buf, len, expected) == nullptr) return VK_ERR_NO_REPLY;
    return strncmp(expected, "$PAIR011", 8) == 0 ? uint32_t(0) : uint32_t(VK_ERR_NO_REPLY);
}

const EpoDialect AG33XX_Dialect = {
    .platform = "AG33XX",
    .files =
        {
            .offline_names = kOfflineNames,
            .online_names = kOnlineNames,
            .modes = kModes,
            .letters = kLetters,
            .plain_lists = kPlainLists,
            .header_types = kHeaderTypes,
            .pair_types = kPairTypes,
            .pair_gps_mask = 0,  // GPS records with mode 0
            .pair_glo_mask = 1,  // GLONASS records with mode 1
        },
    .commands =
        {
            .start_bodies = {nullptr, "$PAIR004", "$PAIR005", "$PAIR006", "$PAIR007"},
            .restart_report = "$PAIR011",
            .time_address = "$PAIR590",
            .pos_address = "$PAIR600",
            .clear_address = "$PAIR472",
            .record_address = "$PAIR471",
            .time_body = time_body,
            .pos_body = pos_body,
            .record_body = record_body,
            .check_ack = AG33XX_CheckNmeaCmdRsp,
            .check_report = AG33XX_CheckNmeaRpt,
        },
    .texts =
        {
            .start_log = " cmd:%s\n",
            .command_log = " cmd: %s\n",
            .clear_log = " cmd: %s\n",
            .lat_lon_line = "[INFO] lat: %0.6f,lon: %0.6f,altitude:%0.6f\n",
        },
    .online =
        {
            .entry_line = "[INFO] enter AG33XX AgnssOnline\n",
            .options = {.optstring = "m:o:p:b:f::b:s::u::l::R:T:",
                        .start_ways = kStartWays,
                        .pos_enable_format = kPosEnable,
                        .file_list = true},
            .usage = "./vk_agnss -m AG33XX -fEPO_GPS_3_1.DAT -p COM3 -b 115200 -o online",
        },
    .offline =
        {
            .entry_line = "[INFO] enter AG33XX Agnss Offline\n",
            .options = {.optstring = "m:o:p:b:f::b:s::cu::l::R:T:",
                        .start_ways = kStartWays,
                        .pos_enable_format = kPosEnable,
                        .clear_message = "[INFO] Need to clear eph in flash\n",
                        .file_list = true},
            .usage = "./vk_agnss -m AG33XX -fEPO_GPS_3_1.DAT -p COM3 -b 115200 -o offline",
            .open_failed = "[ERROR] Fail to open uart %s\n",
        },
};

uint32_t AG33XX_AgnssOnline(int argc, char **argv) {
    return epo_run_online(&AG33XX_Dialect, argc, argv);
}

uint32_t AG33XX_AgnssOffline(int argc, char **argv) {
    return epo_run_offline(&AG33XX_Dialect, argc, argv);
}

uint32_t AG33XX_AgnssGetFileInfo(int argc, char **argv) { return epo_run_file_info(argc, argv); }
