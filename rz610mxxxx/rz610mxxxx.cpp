#include "rz610mxxxx/rz610mxxxx.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "core/log.h"

namespace {

// "ELPO_GAL_3.DAT" reads its day count eight characters after the match,
// where "_3.DAT" stands, and so gets 0 days; kept as the receiver's tools do.
const EpoNameRule kOfflineNames[] = {
    {"EPO_GPS_3_", 0, 3},          {"ELPO_GPS_3.DAT", 0, 3},      {"EPO_BDS_3.DAT", 3, 3},
    {"ELPO_BDS_3.DAT", 3, 3},      {"EPO_GR_3_", 1, 3},           {"ELPO_GR3_", 1, 3},
    {"EPO_GAL_", 2, -1},           {"ELPO_GAL_3.DAT", 2, -1},     {"ELPO_GLO_3.DAT", 4, 3},
    {"ELPO_GPS_07days.DAT", 0, 7}, {"ELPO_GLO_07days.DAT", 4, 7}, {"ELPO_GAL_07days.DAT", 2, 7},
    {"ELPO_BD_07days.DAT", 3, 7},  {"ELPO_QZSS_3.DAT", 5, 3},     {"ELPO_QZSS_07days.DAT", 5, 7}};
const EpoNameRule kOnlineNames[] = {{"VGPS.DAT", 0, 0},        {"VBD2.DAT", 3, 0},
                                    {"VGA.DAT", 2, 0},         {"VG_R.DAT", 1, 0},
                                    {"VELPO_GPS.DAT", 10, 0},  {"VELPO_GLO.DAT", 11, 0},
                                    {"VELPO_GAL.DAT", 12, 0},  {"VELPO_BDS.DAT", 13, 0},
                                    {"VELPO_QZSS.DAT", 14, 0}, {"VELPO_GR.DAT", 15, 0}};
const EpoLetter kLetters[] = {{0, "G"}, {2, "E"}, {3, "C"}, {4, "R"}, {5, "J"}};
const EpoTypeValue kPlainLists[] = {{4, 24}, {5, 7}, {11, 24}, {14, 7}};
const int32_t kHeaderTypes[] = {2, 3, 12, 13};
const int32_t kPairTypes[] = {1, 15};
// Type -> mode; modes are 1-based system numbers: 1 GPS, 2 GLONASS, 3 Galileo,
// 4 BeiDou, 5 QZSS. GPS+GLONASS (1 and 15) is 3: bit 0 the GPS records' mode,
// bit 1 the GLONASS records'. That it shares 3 with Galileo is kept.
const EpoTypeValue kModes[] = {{0, 1},  {1, 3},  {2, 3},  {3, 4},  {10, 1}, {11, 2},
                               {12, 3}, {13, 4}, {14, 5}, {15, 3}, {-1, 0}};
const VkStartWayName kStartWays[] = {
    {"NONE", 0}, {"HOT", 1}, {"WARM", 2}, {"COLD", 3}, {"FULLCOLD", 3}};

const char kPosEnable[] = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n";

void time_body(char *out, size_t size, const int *t, const VkTimeAid *time) {
    // Time from the computer's clock carries no leap-second value: -1.
    int leap = time->type == 0 ? time->leap : -1;
    snprintf(out, size, "%s,%d,%d,%d,%d,%d,%d,%d,%d,%d,%.0d,%d", "$PVNKAIDTIME", 1, leap, t[0],
             t[1], t[2], t[3], t[4], t[5], 0, 0, 0);
}

void pos_body(char *out, size_t size, double lat, double lon, double alt) {
    snprintf(out, size, "%s,%d,%0.6f,%0.6f,%0.1f,%0.1f", "$PVNKAIDPOS", 1, lat, lon, alt, 0.0);
}

void record_body(char *out, size_t size, int mode, int prn, const uint8_t *rec) {
    int n = snprintf(out, size, "%s,%d,%d", "$PVNKEPO", mode, prn);
    epo_append_record_words(out, size, n, rec, true);
}

}  // namespace

uint32_t RZ610MXXXX_CheckNmeaCmdRsp(const char *buf, uint32_t len, const char *address, uint32_t) {
    if (len == 0) {
        vk_log("[ERROR] recv nothing");
        return VK_ERR_NO_REPLY;
    }
    const char *found = Vk_FindText(buf, len, address);
    if (found == nullptr) return VK_ERR_NO_REPLY;
    std::string text = vk_reply_line(found, buf, len);
    if (text.empty()) {
        vk_log("[ERROR] format wrong,buf:%s\n", buf);
        return RZ610MXXXX_ERR_ACK;
    }
    std::string body;
    if (!vk_split_and_check(text, &body, EPO_CHECKSUM_DIFF)) return RZ610MXXXX_ERR_ACK;
    if (body.find("OK") != std::string::npos) {
        vk_log("[DEBUG] command execution success: %s\n", body.c_str());
        return 0;
    }
    vk_log("[ERROR] coammand execution failed: %s\n", body.c_str());
    return RZ610MXXXX_ERR_ACK;
}

uint32_t RZ610MXXXX_CheckNmeaRpt(const char *buf, uint32_t len, const char *expected, uint32_t) {
    if (len == 0) return VK_ERR_NO_REPLY;
    // Position sentences again mean the restart is done.
    if (strncmp(expected, "GGA", 3) == 0)
        return Vk_FindText(buf, len, expected) ? uint32_t(0) : uint32_t(VK_ERR_NO_REPLY);
    return VK_ERR_NO_REPLY;
}

const EpoDialect RZ610MXXXX_Dialect = {
    .platform = "RZ610MXXXX",
    .files =
        {
            .offline_names = kOfflineNames,
            .online_names = kOnlineNames,
            .modes = kModes,
            .letters = kLetters,
            .plain_lists = kPlainLists,
            .header_types = kHeaderTypes,
            .pair_types = kPairTypes,
            .pair_gps_mask = 1,  // GPS records with mode & 1
            .pair_glo_mask = 2,  // GLONASS records with mode & 2
            .prn_by_mode = true,
            .check_prn = true,  // a record whose PRN is not the expected satellite is not sent
        },
    .commands =
        {
            .start_bodies = {nullptr, "$PVNKHOT", "$PVNKWARM", "$PVNKCOLD", nullptr},
            .restart_report = "GGA",  // position sentences again mean the restart is done
            .time_address = "$PVNKAIDTIME",
            .pos_address = "$PVNKAIDPOS",
            .clear_address = "$PVNKEPOCLR",
            .record_address = "$PVNKEPO",
            .time_body = time_body,
            .pos_body = pos_body,
            .record_body = record_body,
            .check_ack = RZ610MXXXX_CheckNmeaCmdRsp,
            .check_report = RZ610MXXXX_CheckNmeaRpt,
        },
    .texts =
        {
            .start_log = "[INFO] send cmd:%s\n",
            .command_log = "[INFO] send cmd: %s\n",
            .clear_log = " cmd: %s\n",
            .lat_lon_line = "[DEBUG] lat: %0.6f,lon: %0.6f,altitude:%0.6f\n",
            .record_log_after = "[DEBUG] Send VEPO cmd: %s\n",
        },
    .online =
        {
            .entry_line = "[INFO] enter RZ610MXXXX AgnssOnline\n",
            .options = {.optstring = "m:o:p:b:f::s::u::l::R:T:",
                        .start_ways = kStartWays,
                        .module_keep = 15,
                        .pos_enable_format = kPosEnable,
                        .skip_double_comma_check = true,
                        .log_each_option = true,
                        .file_list = true},
            .usage = "-m RZ610Mxxxx -f firmware -p COM1 -b 115200",
        },
    .offline =
        {
            .entry_line = "[INFO] enter RZ610MXXXX Agnss Offline\n",
            .options = {.optstring = "m:o:p:b:f::b:s::cu::l::R:T:",
                        .start_ways = kStartWays,
                        .module_keep = 9,
                        .pos_enable_format = kPosEnable,
                        .clear_message = "[INFO] Need to clear eph in flash\n",
                        .time_error_word = "location",
                        .skip_double_comma_check = true,
                        .file_list = true},
            .usage = "./vk_agnss -m AG33XX -fEPO_GPS_3_1.DAT -p COM3 -b 115200 -o offline",
            .open_failed = "[ERROR] Fail to open uart %s\n",
        },
};

uint32_t RZ610MXXXX_AgnssOnline(int argc, char **argv) {
    return epo_run_online(&RZ610MXXXX_Dialect, argc, argv);
}

uint32_t RZ610MXXXX_AgnssOffline(int argc, char **argv) {
    return epo_run_offline(&RZ610MXXXX_Dialect, argc, argv);
}
