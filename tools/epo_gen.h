// Deterministic EPO (extended-orbit) sample data: files of 72-byte satellite
// records grouped in 6-hour segments, for every file kind the EPO platforms
// read (GPS, GPS+GLONASS, Galileo and BeiDou with a presence header,
// GLONASS-only and QZSS-only extended files, 7-day files, online files).
// Optional damage makes broken files for the readers' failure paths.
//
// Record layout (all values little-endian):
//   bytes 0-2   GPS hour number (hours since 1980-01-06), byte 0 lowest
//   byte  3     SVID
//   bytes 4-71  orbit payload: opaque to the tool, seed-driven here
// Every record of segment k carries the hour start_hour + 6k.
//
// SVIDs written:
//   GPS       1..32        (PRN)
//   GLONASS   65..88       (64 + slot 1..24)
//   Galileo   101..136     (100 + satellite 1..36)
//   BeiDou    201..254     (200 + PRN 1..54) and 190..198 (135 + PRN 55..63)
//   QZSS      193..199     (192 + satellite 1..7, the QZSS PRNs 193..199)
//   255       the Galileo/BeiDou header record
//
// Galileo and BeiDou files start with one 72-byte header record: bytes 0-2
// the first segment's hour, byte 3 = 255, bytes 4-7 a u32 presence mask of
// satellites 1..32 (bit n: satellite n+1), bytes 16-19 a u32 mask of
// satellites 33..64, every other byte 0. Each segment then holds one record
// per present satellite, in ascending satellite order.
//
// Known consequences for the tool's readers (the files follow the record
// layout; these are the readers' behaviour, not generator faults):
//  - A GLONASS-only file holds SVIDs 65..88 in its second record, which the
//    file decoder maps to no type ("INVALID").
//  - A QZSS file's second record has SVID 194, which lies in the BeiDou
//    range 190..198, so the decoder takes the file for BeiDou; the PRN rule
//    of the QZSS mode gives 0 and refuses every QZSS record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

constexpr uint32_t EPO_RECORD_BYTES = 72;
constexpr uint32_t EPO_SEGMENT_HOURS = 6;
constexpr uint32_t EPO_SEGMENTS_PER_DAY = 4;
constexpr uint8_t EPO_HEADER_SVID = 255;
// GPS week 2400, day 0, hour 0 (2026-01-04).
constexpr uint32_t EPO_DEFAULT_START_HOUR = 2400u * 168u;
constexpr uint32_t EPO_MAX_HOUR = 0xFFFFFF;  // the hour field holds 24 bits

// What a segment holds.
enum class EpoGenSystem {
    Gps,         // 32 records, SVID 1..32
    GpsGlonass,  // 32 GPS records then 24 GLONASS records (SVID 65..88)
    Galileo,     // header, then one record per present satellite (101..136)
    Beidou,      // header, then one record per present satellite (190..198, 201..254)
    Glonass,     // 24 records, SVID 65..88, no header
    Qzss,        // 7 records, SVID 193..199, no header
};

// File kinds, each with its default name and default day count.
enum class EpoGenKind {
    // offline download set
    Gps,  // EPO_GPS_3_1.DAT
    Gr,   // EPO_GR_3_1.DAT
    Gal,  // EPO_GAL_<D>.DAT, 7 days by default
    Bds,  // EPO_BDS_3.DAT
    // online set
    VGps,  // VGPS.DAT
    VGr,   // VG_R.DAT
    VGal,  // VGA.DAT
    VBds,  // VBD2.DAT
    // extended offline set
    ElpoGps,   // ELPO_GPS_3.DAT
    ElpoGr,    // ELPO_GR3_1.DAT
    ElpoBds,   // ELPO_BDS_3.DAT
    ElpoGal,   // ELPO_GAL_3.DAT
    ElpoGlo,   // ELPO_GLO_3.DAT
    ElpoQzss,  // ELPO_QZSS_3.DAT
    // 7-day extended offline set
    ElpoGps7,   // ELPO_GPS_07days.DAT
    ElpoGlo7,   // ELPO_GLO_07days.DAT
    ElpoGal7,   // ELPO_GAL_07days.DAT
    ElpoBd7,    // ELPO_BD_07days.DAT
    ElpoQzss7,  // ELPO_QZSS_07days.DAT
    // extended online set
    VelpoGps,   // VELPO_GPS.DAT
    VelpoGlo,   // VELPO_GLO.DAT
    VelpoGal,   // VELPO_GAL.DAT
    VelpoBds,   // VELPO_BDS.DAT
    VelpoQzss,  // VELPO_QZSS.DAT
    VelpoGr,    // VELPO_GR.DAT
};
constexpr int EPO_GEN_KIND_COUNT = 25;

enum class EpoGenDamage {
    None,
    // The file is cut to damage_value bytes (default 100: less than two
    // records). Must be less than the undamaged size.
    Short,
    // The SVID of the record at offset 72 (the second record; the first data
    // record after a header) is set to damage_value (0..255, default 0).
    UnknownSvid,
    // Galileo/BeiDou only: both presence masks of the header are 0; the
    // records stay as generated.
    EmptyHeader,
    // damage_value bytes (default 72) of seed-driven filler are appended, so
    // the size is no longer a whole number of segments.
    ExtraBytes,
    // GPS only, at least 2 segments: the SVID of the record at offset 2304
    // (the first record of segment 1, where a GPS+GLONASS file has its first
    // GLONASS record) is set to damage_value (default 65). With 7 segments the
    // file is 16128 bytes = 4 x 4032, the case where a reader looks at that
    // record to tell GPS-only from GPS+GLONASS.
    GpsInGlonassSlot,
};

struct EpoGenConfig {
    EpoGenKind kind = EpoGenKind::Gps;
    int days = 0;      // 0: the kind's default (7 for Gal and the 7-day kinds, else 3)
    int segments = 0;  // 0: days x 4; otherwise exactly this many segments
    uint32_t start_hour = EPO_DEFAULT_START_HOUR;  // GPS hour of segment 0
    uint64_t seed = 1;
    // Galileo/BeiDou present satellites (Galileo 1..36, BeiDou 1..63), any
    // order, duplicates ignored. Empty: the system's default set. Must stay
    // empty for the other systems.
    std::vector<int> sats;
    EpoGenDamage damage = EpoGenDamage::None;
    int64_t damage_value = -1;  // -1: the damage's default (see EpoGenDamage)
};

struct EpoGenStats {
    uint32_t segments = 0;
    uint32_t records_per_segment = 0;
    uint32_t records = 0;  // records of the undamaged file, header included
    bool header = false;
    uint64_t header_mask = 0;  // (bytes 16-19 << 32) | bytes 4-7, as written
    uint32_t first_hour = 0;   // hour of segment 0
    uint32_t last_hour = 0;    // hour of the last segment
    uint64_t bytes = 0;        // final size, damage applied
};

// ---------------------------------------------------------------------------
// Kinds and names

EpoGenSystem epogen_kind_system(EpoGenKind kind);
// 7 for Gal and the *_07days kinds, 3 for every other kind.
int epogen_default_days(EpoGenKind kind);
// The kind's file name; days is used by Gal only (EPO_GAL_<days>.DAT; 0 or
// less: the default 7).
std::string epogen_default_name(EpoGenKind kind, int days = 0);
// The file name of cfg's kind with cfg's day count.
std::string epogen_default_name(const EpoGenConfig &cfg);
// The command-line token of a kind: "gps", "gr", "gal", "bds", "vgps", "vgr",
// "vga", "vbd2", "elpo-gps", "elpo-gr", "elpo-bds", "elpo-gal", "elpo-glo",
// "elpo-qzss", "elpo-gps-7", "elpo-glo-7", "elpo-gal-7", "elpo-bd-7",
// "elpo-qzss-7", "velpo-gps", "velpo-glo", "velpo-gal", "velpo-bds",
// "velpo-qzss", "velpo-gr".
const char *epogen_kind_token(EpoGenKind kind);
// A kind from its token, from the aliases "glo" (elpo-glo) and "qzss"
// (elpo-qzss), or from a file name (see epogen_kind_from_name).
bool epogen_parse_kind(const char *text, EpoGenKind *kind);
// The kind whose default name the base name of path has. The numbered
// names accept any number: EPO_GPS_3_<n>.DAT, EPO_GR_3_<n>.DAT,
// ELPO_GR3_<n>.DAT; EPO_GAL_<D>.DAT stores D in *days (if days is given).
bool epogen_kind_from_name(const char *path, EpoGenKind *kind, int *days = nullptr);
// Every kind, in declaration order.
EpoGenKind epogen_kind_at(int index);

const char *epogen_damage_token(EpoGenDamage damage);  // "none", "short", ...
// "none", "short", "unknown-svid", "empty-header", "extra-bytes",
// "gps-in-glonass-slot" (underscores accepted too).
bool epogen_parse_damage(const char *text, EpoGenDamage *damage);
// damage_value as used: cfg's value, or the damage's default when it is -1.
int64_t epogen_damage_value(const EpoGenConfig &cfg);

// ---------------------------------------------------------------------------
// Satellites and layout

// The default present-satellite set: Galileo 1..36 without 17, 20, 22, 28
// and 32 (31 satellites); BeiDou 1..16, 19..46 and 56..62 (51 satellites).
// GPS 1..32, GLONASS 1..24, QZSS 1..7; GPS+GLONASS: empty.
std::vector<int> epogen_default_sats(EpoGenSystem sys);
// SVID of satellite sat of a one-system kind: GPS sat, GLONASS 64 + sat,
// Galileo 100 + sat, BeiDou 200 + sat (1..54) or 135 + sat (55..63),
// QZSS 192 + sat. -1 for a satellite outside the system's range or for
// GpsGlonass.
int epogen_svid_of(EpoGenSystem sys, int sat);
// Parses "1,2,5-9" into a list (ascending ranges only, numbers 1..64).
bool epogen_parse_sat_list(const char *text, std::vector<int> *out);

bool epogen_has_header(EpoGenKind kind);
int epogen_days(const EpoGenConfig &cfg);  // days as used
uint32_t epogen_segment_count(const EpoGenConfig &cfg);
uint32_t epogen_records_per_segment(const EpoGenConfig &cfg);
uint32_t epogen_segment_bytes(const EpoGenConfig &cfg);
// All records of the undamaged file, the header record included.
uint32_t epogen_record_count(const EpoGenConfig &cfg);
// Size of the undamaged file.
uint64_t epogen_file_size(const EpoGenConfig &cfg);
// The present satellites whose records a segment of a Galileo/BeiDou file
// holds (the header's list), ascending; empty for the other kinds.
std::vector<int> epogen_header_prns(const EpoGenConfig &cfg);
// The header's 64-bit presence mask (bit n: satellite n+1); 0 for kinds
// without a header. Damage is not applied.
uint64_t epogen_header_mask(const EpoGenConfig &cfg);
// SVIDs of one segment, in file order.
std::vector<int> epogen_segment_svids(const EpoGenConfig &cfg);
// SVID of record i of the undamaged file (i counted from 0, the header being
// record 0 where there is one: 255); -1 past the end.
int epogen_expected_svid(const EpoGenConfig &cfg, uint32_t i);
// GPS hour of record i (the header carries segment 0's); 0 past the end.
uint32_t epogen_expected_hour(const EpoGenConfig &cfg, uint32_t i);

// ---------------------------------------------------------------------------
// Generation

// Fills one record: hour, SVID and the payload that depends only on seed,
// hour and SVID (so a satellite's record is the same in every kind). The
// payload is the little-endian bytes of successive splitmix64 outputs (the
// last one cut to 4 bytes) from the state
// seed * 0xD1B54A32D192ED03 ^ (hour << 8 | svid).
void epogen_make_record(uint64_t seed, uint32_t hour, uint8_t svid, uint8_t out[EPO_RECORD_BYTES]);

// Checks cfg; on failure returns false and, if err is given, a reason.
bool epogen_validate(const EpoGenConfig &cfg, std::string *err);
// The file's bytes. Empty when cfg does not validate (a Short damage to 0
// bytes also gives an empty file: validate first to tell them apart).
std::vector<uint8_t> epogen_generate(const EpoGenConfig &cfg, EpoGenStats *stats = nullptr);
// Writes bytes to path (created or truncated). False with a reason on failure.
bool epogen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err);
// Validates, generates and writes in one step.
bool epogen_write_file(const EpoGenConfig &cfg, const char *path, EpoGenStats *stats,
                       std::string *err);

// ---------------------------------------------------------------------------
// Reading records back

inline uint32_t epo_record_hour(const uint8_t *rec) {
    return static_cast<uint32_t>(rec[0]) | (static_cast<uint32_t>(rec[1]) << 8) |
           (static_cast<uint32_t>(rec[2]) << 16);
}
inline uint8_t epo_record_svid(const uint8_t *rec) { return rec[3]; }
// Little-endian 32-bit word k (0..17) of a record; word 0 holds hour and SVID.
inline uint32_t epo_record_word(const uint8_t *rec, int k) {
    const uint8_t *p = rec + 4 * k;
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
// The header's 64-bit presence mask: (bytes 16-19 << 32) | bytes 4-7.
inline uint64_t epo_header_mask(const uint8_t *hdr) {
    return (static_cast<uint64_t>(epo_record_word(hdr, 4)) << 32) | epo_record_word(hdr, 1);
}
