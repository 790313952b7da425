// Deterministic ".hdb" ephemeris sample data for the HD8XXX platform: GPS
// and BDS ephemeris records packed into binary frames, with optional damage
// for the readers' failure paths, and a small frame splitter that reads such
// files back.
//
// Frame layout (multi-byte fields little-endian):
//   byte 0, 1    sync F1 D9
//   byte 2       class 0B
//   byte 3       id: 0x32 ('2') GPS records of 65 bytes, 0x33 ('3') BDS
//                records of 92 bytes
//   byte 4, 5    payload length
//   payload      1..5 records
//   2 bytes      8-bit Fletcher sum (A, then B) over the class byte up to
//                the last payload byte
//
// Every frame of a system but its last carries exactly 5 records, because
// the receiving side cuts a system's frames in fixed slices of 5 records +
// 8 bytes (333 bytes GPS, 468 BDS); the last may be shorter. A combined
// file holds every GPS frame, then every BDS frame. Within a system the
// records run set by set (set 0 satellites 1..N, set 1 satellites 1..N...)
// across frame boundaries.
//
// Record layout (offsets in the record; a frame's first record starts at
// frame offset 6):
//   GPS, 65 bytes: byte 0 satellite (1..32); 16-17 toe / 16; 58-59 GPS
//                  week - 2048
//   BDS, 92 bytes: byte 0 satellite (1..63); 16-19 toe / 8; 86-87 BDS week
// Every other byte is opaque to the tool (the records are passed on as they
// are) and seed-driven here.
//
// Known consequence for the tool's reader (the files follow the layout; this
// is the reader's behaviour, not a generator fault): dividing a combined file
// reads each frame's length through the hexadecimal digits of its two bytes,
// so a GPS frame of 4 records (payload 260, bytes 04 01) reads as 0x14 and
// the division loses step. Besides the four-record damage on a GPS frame,
// this happens whenever a combined file's GPS record count (satellites x
// sets) leaves 4 for its last frame, e.g. 32 satellites x 2 sets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

constexpr uint8_t HDB_SYNC1 = 0xF1;
constexpr uint8_t HDB_SYNC2 = 0xD9;
constexpr uint8_t HDB_CLASS = 0x0B;
constexpr uint8_t HDB_ID_GPS = 0x32;
constexpr uint8_t HDB_ID_BDS = 0x33;
constexpr uint8_t HDB_ID_UNKNOWN = 0x34;    // what the unknown-id damage writes
constexpr uint32_t HDB_HEADER_BYTES = 6;    // sync, class, id, length
constexpr uint32_t HDB_FRAME_OVERHEAD = 8;  // header + 2 checksum bytes
constexpr uint32_t HDB_RECORDS_PER_FRAME = 5;
constexpr uint32_t HDB_MAX_PAYLOAD = 0xFFFF;
constexpr uint32_t HDB_GPS_RECORD_BYTES = 65;
constexpr uint32_t HDB_BDS_RECORD_BYTES = 92;
// A full frame: 5 records + 8 bytes.
constexpr uint32_t HDB_GPS_FULL_FRAME_BYTES = 5 * HDB_GPS_RECORD_BYTES + HDB_FRAME_OVERHEAD;  // 333
constexpr uint32_t HDB_BDS_FULL_FRAME_BYTES = 5 * HDB_BDS_RECORD_BYTES + HDB_FRAME_OVERHEAD;  // 468
// Field offsets in a record.
constexpr uint32_t HDB_GPS_TOE_OFFSET = 16;   // u16, toe / 16
constexpr uint32_t HDB_GPS_WEEK_OFFSET = 58;  // u16, GPS week - 2048
constexpr uint32_t HDB_BDS_TOE_OFFSET = 16;   // u32, toe / 8
constexpr uint32_t HDB_BDS_WEEK_OFFSET = 86;  // u16, BDS week
constexpr uint32_t HDB_GPS_WEEK_BASE = 2048;
// The usual GPS week range: the tool rebuilds the week as
// (high byte << 8) | (low byte + 2048), which gives the week back only while
// the stored value week - 2048 stays below 2048.
constexpr uint32_t HDB_GPS_WEEK_MIN = 2048;
constexpr uint32_t HDB_GPS_WEEK_MAX = 4095;
constexpr int HDB_GPS_MAX_SAT = 32;
constexpr int HDB_BDS_MAX_SAT = 63;
constexpr uint32_t HDB_SET_INTERVAL = 7200;  // seconds between ephemeris sets

// Record size of a frame id: 65 (GPS), 92 (BDS), 0 for any other id.
uint32_t hdb_record_bytes(uint8_t id);

// ---------------------------------------------------------------------------
// Generator

enum class HdbDamage {
    None,
    // Frame damage_frame, which must hold 5 records, carries only its first
    // 4 (the fifth is left out of the file; length and checksum match the
    // shorter payload). A reader cutting fixed 5-record slices then falls
    // out of step with the frames that follow.
    FourRecord,
    BadChecksum,  // the first checksum byte of frame damage_frame is inverted
    BadSync,      // the second sync byte of frame damage_frame is D8
    UnknownId,    // frame damage_frame has id 0x34 (checksum recomputed)
};

struct HdbGenConfig {
    // "G" (GPS only), "B" (BDS only) or "GB" (GPS frames, then BDS frames).
    std::string systems = "GB";
    int gps_sats = 32;  // satellites 1..N, N in 1..32
    int bds_sats = 14;  // satellites 1..N, N in 1..63
    // GPS week and time of week (seconds, a multiple of 16) of set 0; the
    // BDS time follows from them (see hdbgen_set_time).
    uint32_t week = 2400;
    uint32_t toe = 345600;
    int sets = 1;  // ephemeris sets, 2 hours apart
    uint64_t seed = 1;
    // Sets are added until the file holds at least this many bytes before
    // damage (0: no minimum). 36 sets cover 3 days.
    uint64_t min_size = 0;
    HdbDamage damage = HdbDamage::None;
    // Frame damaged, counted from 0 over the whole file; -1 means the last.
    int damage_frame = 0;
};

struct HdbGenStats {
    uint32_t sets = 0;    // sets generated (min_size may add some)
    uint32_t frames = 0;  // gps_frames + bds_frames
    uint32_t gps_frames = 0, bds_frames = 0;
    uint32_t gps_records = 0, bds_records = 0;  // the four-record damage removes one
    uint64_t bytes = 0;                         // final size, damage applied
};

// Times of set k, as written into the records.
struct HdbSetTime {
    uint32_t gps_week;  // full GPS week
    uint32_t gps_toe;   // seconds, a multiple of 16
    uint32_t bds_week;  // BDS week
    uint32_t bds_toe;   // seconds, a multiple of 7200
};
// GPS: set 0 at (week, toe), each further set 7200 s later, carried into
// later weeks. BDS: the set on the 2-hour grid of BDT nearest the GPS set's
// instant (BDT = GPS time - 14 s, BDS week 0 = GPS week 1356).
HdbSetTime hdbgen_set_time(const HdbGenConfig &cfg, int set);

bool hdbgen_has_gps(const HdbGenConfig &cfg);
bool hdbgen_has_bds(const HdbGenConfig &cfg);
// Sets generated under cfg: cfg.sets, or more when min_size asks for them.
uint32_t hdbgen_set_count(const HdbGenConfig &cfg);
// Records of one system in the undamaged file (0 for a system not chosen);
// sys is 'G' or 'B'.
uint32_t hdbgen_record_count(const HdbGenConfig &cfg, char sys);
// Frames of one system: records / 5, rounded up.
uint32_t hdbgen_frame_count(const HdbGenConfig &cfg, char sys);
// Size of the undamaged file.
uint64_t hdbgen_file_size(const HdbGenConfig &cfg);
// The usual name of cfg's file: "HD_GPS.hdb", "HD_BDS.hdb" or "HD_GPS_BDS.hdb";
// empty for an unknown system string.
std::string hdbgen_default_name(const HdbGenConfig &cfg);
// Whether the base name of path is one of the three usual names, exactly.
bool hdbgen_is_usual_name(const char *path);

// "none", "four-record", "bad-checksum", "bad-sync", "unknown-id".
const char *hdbgen_damage_token(HdbDamage damage);
// A token above (underscores accepted for dashes).
bool hdbgen_parse_damage(const char *text, HdbDamage *damage);

// Fills one record. Byte 0 and the time fields come from the arguments;
// every other byte depends only on seed, system, satellite and the set's
// time, so a satellite's record is the same in a one-system and in a
// combined file.
void hdbgen_make_gps_record(uint64_t seed, int sat, uint32_t gps_week, uint32_t gps_toe,
                            uint8_t out[HDB_GPS_RECORD_BYTES]);
void hdbgen_make_bds_record(uint64_t seed, int sat, uint32_t bds_week, uint32_t bds_toe,
                            uint8_t out[HDB_BDS_RECORD_BYTES]);

// Appends one frame: F1 D9 0B id, the length, the payload and the checksum.
// False (nothing appended) for a payload over 65535 bytes.
bool hdb_append_frame(std::vector<uint8_t> &out, uint8_t id, const uint8_t *payload, uint32_t len);
// The checksum a frame of frame_len bytes should carry (A | B << 8), taken
// from the class byte to the last payload byte. 0 when frame_len < 8.
uint16_t hdb_frame_checksum(const uint8_t *frame, size_t frame_len);

// Checks cfg; on failure returns false and, if err is given, a reason.
bool hdbgen_validate(const HdbGenConfig &cfg, std::string *err);
// The file's bytes. Empty when cfg does not validate.
std::vector<uint8_t> hdbgen_generate(const HdbGenConfig &cfg, HdbGenStats *stats = nullptr);
// Validates, generates and writes in one step. False with a reason on failure.
bool hdbgen_write_file(const HdbGenConfig &cfg, const char *path, HdbGenStats *stats,
                       std::string *err);

// The whole command line of vkagnss-hdbgen (argv[0] is skipped): parses,
// writes the file, prints the summary line. Returns the exit status: 0 done
// (or --help), 1 the file could not be made, 2 a usage error.
int hdbgen_main(int argc, char **argv);

// ---------------------------------------------------------------------------
// Frame list reader

struct HdbFrameInfo {
    size_t offset;         // of the F1 byte
    uint8_t id;            // byte 3
    uint32_t payload_len;  // bytes 4-5
    bool sync_ok;          // bytes 0-1 are F1 D9
    bool class_ok;         // byte 2 is 0B
    bool checksum_ok;      // stored checksum equals the sum over class .. payload
    // Whole records in the payload for a GPS or BDS id; 0 for another id or
    // a payload that is not a whole number of records.
    uint32_t records;
};

// A frame the tool takes as it is: sync, class and checksum right, a GPS or
// BDS id, 1..5 whole records.
bool hdb_frame_ok(const HdbFrameInfo &f);

enum class HdbSplitEnd {
    Complete,    // the buffer ends exactly after a frame (or is empty)
    Incomplete,  // it ends inside a header, payload or checksum
    NotAFrame,   // a byte other than F1 where a frame should start
};

struct HdbSplit {
    std::vector<HdbFrameInfo> frames;  // whole frames only
    HdbSplitEnd end = HdbSplitEnd::Complete;
    size_t consumed = 0;  // bytes covered by the whole frames
};

// Splits a buffer into frames from offset 0, strictly (no resynchronisation).
// A frame is taken on its first sync byte and its length field; a wrong
// second sync byte, class, id or checksum is flagged, not skipped.
HdbSplit hdb_split_frames(const uint8_t *data, size_t len);
inline const uint8_t *hdb_frame_payload(const uint8_t *data, const HdbFrameInfo &f) {
    return data + f.offset + HDB_HEADER_BYTES;
}

// The time fields of a frame's first record, read as the tool reads them
// (frame points at the F1 byte).
// GPS week: (frame[65] << 8) | (frame[64] + 2048).
uint32_t hdb_frame_gps_week(const uint8_t *frame);
// GPS toe: the u16 at frame offset 22, times 16.
uint32_t hdb_frame_gps_toe(const uint8_t *frame);
// BDS week: the u16 at frame offset 92.
uint32_t hdb_frame_bds_week(const uint8_t *frame);
// BDS toe: the u32 at frame offset 22, times 8.
uint32_t hdb_frame_bds_toe(const uint8_t *frame);
