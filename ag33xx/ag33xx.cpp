#include "ag33xx/ag33xx.h"

#include <cstdio>

#include "toolkit/reply.h"

namespace {

const EpoNameRule kOfflineNames[] = {
    {"EPO_GPS_3_", 0, 3}, {"EPO_BDS_3.DAT", 3, 3}, {"EPO_GR_3_", 1, 3}, {"EPO_GAL_", 2, -1}};
const EpoNameRule kOnlineNames[] = {
    {"VGPS.DAT", 0, 0}, {"VBD2.DAT", 3, 0}, {"VGA.DAT", 2, 0}, {"VG_R.DAT", 1, 0}};
const EpoLetter kLetters[] = {{0, "G"}, {2, "E"}, {3, "C"}};
const EpoTypeValue kPlainLists[] = {{0, 32}};
const int32_t kHeaderTypes[] = {2, 3};
const int32_t kPairTypes[] = {1};
const EpoTypeValue kStatusSystems[] = {{0, 0}, {1, 0}, {2, 2}, {3, 3}};
// FULLCOLD is taken as COLD: the flows never send the full-cold restart.
const VkStartWayName kStartWays[] = {
    {"NONE", 0}, {"HOT", 1}, {"WARM", 2}, {"COLD", 3}, {"FULLCOLD", 3}};

const char kPosEnable[] = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,Accuracy:%s\n";
const char kClear[] = "[INFO] Need to clear eph in flash\n";

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

const EpoTypeValue AG33XX_EpoInfoTable[4] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}};

const EpoDialect AG33XX_Dialect = {
    "AG33XX",
    kOfflineNames,
    4,
    kOnlineNames,
    4,
    AG33XX_EpoInfoTable,
    4,
    kLetters,
    3,
    false,  // PRN rule keyed by type
    false,  // no PRN check before a record is sent
    kPlainLists,
    1,
    kHeaderTypes,
    2,
    kPairTypes,
    1,
    0,
    1,  // GPS records with mode 0, GLONASS records with mode & 1
    kStatusSystems,
    4,
    {nullptr, "$PAIR004", "$PAIR005", "$PAIR006", "$PAIR007"},
    " cmd:%s\n",
    " cmd: %s\n",
    "$PAIR011",
    "$PAIR590",
    "$PAIR600",
    "$PAIR472",
    " cmd: %s\n",
    "$PAIR470",
    true,
    "$PAIR471",
    "[INFO] lat: %0.6f,lon: %0.6f,altitude:%0.6f\n",
    time_body,
    pos_body,
    record_body,
    epo_check_pair_ack,
    epo_check_pair_report,
    false,
    "[INFO] enter AG33XX AgnssOnline\n",
    "[INFO] enter AG33XX Agnss Offline\n",
    {"m:o:p:b:f::b:s::u::l::R:T:", kStartWays, 5, 63, kPosEnable, nullptr, nullptr, false, false,
     true, false},
    {"m:o:p:b:f::b:s::cu::l::R:T:", kStartWays, 5, 63, kPosEnable, kClear, nullptr, false, false,
     true, false},
    "./vk_agnss -m AG33XX -f EPO_GPS_3_1.DAT -p COM3 -b 115200 -o online",
    "./vk_agnss -m AG33XX -f EPO_GPS_3_1.DAT -p COM3 -b 115200 -o offline",
};

EPO_DEFINE_NAMES(AG33XX, AG33XX_Dialect)

uint32_t AG33XX_AgnssGetFileInfo(int argc, char **argv) { return epo_run_file_info(argc, argv); }
