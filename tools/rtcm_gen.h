// Deterministic RTCM 3 ephemeris sample data: GPS 1019, GLONASS 1020,
// BeiDou 1042, QZSS 1044 and Galileo I/NAV 1046 messages with plausible,
// seed-driven field values, wrapped in RTCM 3 transport frames (0xD3, 6
// reserved bits, 10-bit length, payload, CRC-24Q). Optional damage makes
// broken files for the readers' failure paths. A small frame splitter reads
// such files back.
//
// For the STA8100 and TQ934N platforms a file may also carry:
// - the extended ephemeris messages 1919 (GPS), 1920 (GLONASS), 1942
//   (BeiDou) and 1946 (Galileo). These are not standard messages: each
//   carries the layout of its standard counterpart (1019, 1020, 1042,
//   1046) under the other number, so the GPS week sits in bits 18-27 and
//   toe / 16 in payload bytes 36-37 of a 1919 frame as of a 1019 frame;
// - a leading 'B' 'K' aid-time frame ahead of the first RTCM frame (the
//   bytes a TQ934N file may start with, passed to the receiver as its time);
// - 1029 text frames: one long frame whose length field exceeds 255, and
//   filler frames that bring the file to an exact size;
// - zero bytes after the last frame.
//
// Bit positions are counted from the most significant bit of the first
// payload byte (the first bit of the 12-bit message number is bit 0).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------
// Bit writer and transport frames

// Writes the low len bits (1..64) of value at bit pos, most significant bit
// first. Bits outside the field are left alone.
void rtcm_setbitu(uint8_t *buf, uint32_t pos, uint32_t len, uint64_t value);
// Reads len bits (1..64) from bit pos, most significant first.
uint64_t rtcm_getbitu(const uint8_t *buf, uint32_t pos, uint32_t len);
// The same, sign-extended from len bits.
int64_t rtcm_getbits(const uint8_t *buf, uint32_t pos, uint32_t len);

constexpr uint8_t RTCM_PREAMBLE = 0xD3;
constexpr uint32_t RTCM_MAX_PAYLOAD = 1023;
constexpr uint32_t RTCM_FRAME_OVERHEAD = 6;  // 3 header bytes + 3 CRC bytes

// Appends one frame: D3, 6 zero bits + 10-bit length, the payload, and the
// CRC-24Q of header and payload, most significant byte first.
// Returns false (and appends nothing) for a payload over 1023 bytes.
bool rtcm_append_frame(std::vector<uint8_t> &out, const uint8_t *payload, uint32_t len);

// ---------------------------------------------------------------------------
// Ephemeris message layouts

// Every field any of the four messages carries. Systems reuse a slot where
// the meaning matches: F_URA holds GPS/QZSS URA, BeiDou URAI and Galileo
// SISA; F_IODE holds BeiDou AODE and Galileo IODnav; F_IODC holds BeiDou
// AODC; F_TGD holds BeiDou TGD1 and Galileo BGD E5a/E1; F_TGD2 holds
// BeiDou TGD2 and Galileo BGD E5b/E1; F_HEALTH holds GPS/QZSS SV health,
// BeiDou SatH1, Galileo E5b signal health and the GLONASS health flag (the
// most significant bit of Bn); F_RESERVED holds the reserved bits at the end
// of the Galileo and GLONASS messages. The F_GLO_ fields are GLONASS's own,
// in the order of message 1020.
enum RtcmEphField {
    F_MSG,
    F_SAT,
    F_WEEK,
    F_URA,
    F_L2CODE,
    F_IDOT,
    F_IODE,
    F_TOC,
    F_AF2,
    F_AF1,
    F_AF0,
    F_IODC,
    F_CRS,
    F_DN,
    F_M0,
    F_CUC,
    F_E,
    F_CUS,
    F_SQRTA,
    F_TOE,
    F_CIC,
    F_OMEGA0,
    F_CIS,
    F_I0,
    F_CRC,
    F_OMEGA,
    F_OMEGADOT,
    F_TGD,
    F_TGD2,
    F_HEALTH,
    F_L2P,
    F_FIT,
    F_E5B_DV,
    F_E1B_HS,
    F_E1B_DV,
    F_RESERVED,
    F_GLO_FREQ,        // frequency channel number + 7 (0..13)
    F_GLO_ALM_HEALTH,  // almanac health
    F_GLO_ALM_AVAIL,   // almanac health availability indicator
    F_GLO_P1,          // P1: interval between adjacent tb values
    F_GLO_TK,          // tk: 5 bits hours, 6 bits minutes, 1 bit 30 s
    F_GLO_P2,          // P2: tb odd (1) or even (0)
    F_GLO_TB,          // tb: reference time of day (Moscow time), 15-minute units
    F_GLO_XDOT,        // velocity, 2^-20 km/s
    F_GLO_X,           // position, 2^-11 km (PZ-90)
    F_GLO_XDDOT,       // luni-solar acceleration, 2^-30 km/s^2
    F_GLO_YDOT,
    F_GLO_Y,
    F_GLO_YDDOT,
    F_GLO_ZDOT,
    F_GLO_Z,
    F_GLO_ZDDOT,
    F_GLO_P3,      // number of almanac satellites in the frame: 5 (1) or 4 (0)
    F_GLO_GAMMA,   // relative frequency bias, 2^-40
    F_GLO_P,       // time correction source
    F_GLO_LN3,     // health flag of the third string
    F_GLO_TAU,     // clock correction tau_n, 2^-30 s
    F_GLO_DTAU,    // L1/L2 delay difference, 2^-30 s
    F_GLO_EN,      // age of the data, days
    F_GLO_P4,      // updated-parameters flag
    F_GLO_FT,      // accuracy index
    F_GLO_NT,      // day within the four-year interval (1..1461)
    F_GLO_M,       // satellite type: 01 for the modernised satellites
    F_GLO_ADD,     // the additional data below are given
    F_GLO_NA,      // day of the almanac within the four-year interval
    F_GLO_TAUC,    // GLONASS time scale correction to UTC(SU), 2^-31 s
    F_GLO_N4,      // four-year interval since 1996 (1..31)
    F_GLO_TAUGPS,  // GLONASS to GPS time correction, 2^-30 s
    F_GLO_LN5,     // health flag of the fifth string
    F_COUNT
};

struct RtcmFieldDef {
    RtcmEphField field;
    uint8_t width;     // bits
    bool is_signed;    // two's complement (or sign-magnitude, below)
    const char *name;  // the name the message's own definition uses
    // The GLONASS message writes its signed values as a sign bit (1 =
    // negative) and a magnitude of width - 1 bits; is_signed is then true
    // too.
    bool sign_magnitude = false;
};

// The field table of message 1019, 1020, 1042, 1044 or 1046 in
// transmission order, and of the extended messages 1919, 1920, 1942 and
// 1946 (their counterparts' tables); null (count 0) for any other number.
const RtcmFieldDef *rtcm_eph_layout(uint32_t msg, size_t *count);
// Sum of the field widths: 488 (1019), 360 (1020), 511 (1042), 485 (1044),
// 504 (1046); 0 for other numbers.
uint32_t rtcm_eph_layout_bits(uint32_t msg);
// Payload bytes: 61, 45, 64, 61, 63.
uint32_t rtcm_eph_payload_bytes(uint32_t msg);
// Bit offset of a field in the message, -1 if the message lacks it.
int32_t rtcm_eph_field_pos(uint32_t msg, RtcmEphField field);
// Width of a field in the message, 0 if the message lacks it.
uint32_t rtcm_eph_field_width(uint32_t msg, RtcmEphField field);
// Decodes one field of a payload with the layout (sign-extended when the
// field is signed, negated by its sign bit when it is sign-magnitude). The
// payload must hold the message's bits.
int64_t rtcm_eph_get(uint32_t msg, const uint8_t *payload, RtcmEphField field);

// Raw (already scaled) integer values, indexed by RtcmEphField.
struct RtcmEph {
    int64_t v[F_COUNT];
};

// Encodes eph as message msg into payload (zero-filled first; the pad bits
// of the last byte stay 0). F_MSG is written as msg whatever eph holds.
// Returns the payload length in bytes, or 0 when msg has no layout, cap is
// too small, or a value does not fit its field.
uint32_t rtcm_eph_encode(uint32_t msg, const RtcmEph &eph, uint8_t *payload, uint32_t cap);

// ---------------------------------------------------------------------------
// 'B' 'K' aid-time frame
//
//   byte 0, 1    'B' 'K'
//   byte 2, 3    CRC-16/XMODEM (polynomial 0x1021, initial value 0) over
//                byte 4 to the end of the payload, high byte first
//   byte 4       class 0x18 (command)
//   byte 5       id 0x03 (aid time)
//   byte 6, 7    payload length, big-endian (12)
//   payload      GPS week, GPS time of week in whole seconds, leap seconds:
//                three 32-bit words, each little-endian

constexpr uint8_t RTCM_BK_CLASS_CMD = 0x18;
constexpr uint8_t RTCM_BK_ID_TIME = 0x03;
constexpr uint32_t RTCM_TIME_FRAME_BYTES = 20;

// The 20 bytes of the aid-time frame.
std::vector<uint8_t> rtcmgen_time_frame(uint32_t week, uint32_t tow, uint32_t leap_seconds);

// The first index i below len - 2 where data[i] is 0xD3 and data[i + 1] has
// its top six bits clear: where a reader that looks for the start of the
// RTCM data takes it to be. len when there is none.
size_t rtcm_first_frame_start(const uint8_t *data, size_t len);

// ---------------------------------------------------------------------------
// 1029 text frames
//
// Payload: 12 bits 1029, 12 bits station ID (0 here), 16 bits Modified
// Julian Day and 17 bits seconds of the UTC day (of the file's reference
// time), 7 bits characters, 8 bits UTF-8 code units, then the code units.
// Readers of ephemeris files pass over the message (or name it unknown).

constexpr uint32_t RTCM_TEXT_MSG = 1029;
constexpr uint32_t RTCM_TEXT_HEADER_BYTES = 9;
// Filler frames carry 0..127 ASCII characters: 15..142 bytes a frame.
constexpr uint32_t RTCM_FILL_FRAME_MIN = RTCM_TEXT_HEADER_BYTES + RTCM_FRAME_OVERHEAD;
constexpr uint32_t RTCM_FILL_FRAME_MAX = RTCM_FILL_FRAME_MIN + 127;
// The long frame carries 127 two-byte characters (Greek small letters):
// 254 code units, payload 263 (length bytes 01 07), 269 bytes on the wire.
constexpr uint32_t RTCM_LONG_PAYLOAD = RTCM_TEXT_HEADER_BYTES + 254;
constexpr uint32_t RTCM_LONG_FRAME_BYTES = RTCM_LONG_PAYLOAD + RTCM_FRAME_OVERHEAD;

// ---------------------------------------------------------------------------
// Generator

enum class RtcmDamage {
    None,
    BadCrc,        // one CRC byte of frame damage_frame is inverted
    Truncate,      // the file ends in the middle of the last frame
    Trailing,      // 1 or 2 bytes of a further frame header follow the last frame
    ReservedBits,  // a reserved header bit of frame damage_frame is set (CRC recomputed)
};

// How an exact file size is reached.
enum class RtcmPad {
    // 1029 text frames of 15..142 bytes after the last ephemeris frame: the
    // file stays a clean run of frames. A shortfall of 1..14 bytes cannot
    // be filled this way and is refused.
    Frames,
    // Zero bytes after the last frame (they join any tail_bytes).
    Zeros,
};

struct RtcmGenConfig {
    // Any mix of 'G' (GPS, 1019), 'R' (GLONASS, 1020), 'C' (BeiDou, 1042),
    // 'J' (QZSS, 1044), 'E' (Galileo, 1046) and the extended messages 'g'
    // (1919), 'r' (1920), 'c' (1942), 'e' (1946), each at most once; frames
    // of one epoch follow this order.
    std::string systems = "GCJE";
    // 0: every system's default set (G 32, R 24, C 10, J 4, E 24; the
    // extended ones as their upper-case letter). Otherwise this many
    // satellites per system, IDs 1..N, limited to the system's largest ID
    // (G 32, R 24, C 63, J 10, E 36).
    int sats = 0;
    int epochs = 1;         // 2-hour steps from the reference time
    uint32_t week = 2400;   // reference GPS week (full, not cut to 10 bits)
    uint32_t tow = 345600;  // reference GPS time of week, seconds (0..604799)
    uint64_t seed = 1;
    // Epochs are added until the ephemeris frames alone hold at least this
    // many bytes (0: no minimum).
    uint64_t min_size = 0;
    RtcmDamage damage = RtcmDamage::None;
    // Frame index for BadCrc and ReservedBits, counted from 0 over the RTCM
    // frames of the file (the long frame and filler frames included, the
    // 'B' 'K' frame not); -1 means the last frame.
    int damage_frame = 0;
    int trailing_bytes = 1;  // Trailing: 1 (D3) or 2 (D3 00)

    // The 'B' 'K' aid-time frame first, with the reference week and time of
    // week and these leap seconds.
    bool time_frame = false;
    uint32_t leap_seconds = 18;
    // One long 1029 frame (payload 263 bytes), placed before ephemeris frame
    // long_frame_at (counted from 0); -1 (or the number of ephemeris frames)
    // puts it after the last one.
    bool long_frame = false;
    int long_frame_at = -1;
    // Zero bytes after the last frame.
    uint32_t tail_bytes = 0;
    // 0: no exact size. Otherwise the whole file holds exactly this many
    // bytes, reached as pad says; it cannot be combined with the Truncate
    // and Trailing damage, and the frames alone must not exceed it.
    uint64_t exact_size = 0;
    RtcmPad pad = RtcmPad::Frames;
};

struct RtcmGenStats {
    uint32_t frames = 0;  // RTCM frames generated (a truncated last one counts)
    uint32_t epochs = 0;  // epochs generated (min_size may add some)
    uint32_t count_1019 = 0, count_1042 = 0, count_1044 = 0, count_1046 = 0;
    uint32_t count_1020 = 0;
    uint32_t count_1919 = 0, count_1920 = 0, count_1942 = 0, count_1946 = 0;
    uint32_t count_1029 = 0;        // the long frame and the filler frames
    uint32_t fill_frames = 0;       // filler frames written for exact_size
    uint64_t time_frame_bytes = 0;  // 20 with the 'B' 'K' frame, else 0
    // Offset of the long frame's D3 byte (only meaningful with cfg.long_frame).
    uint64_t long_frame_offset = 0;
    uint64_t zero_bytes = 0;  // zero bytes after the last frame (tail and padding)
    uint64_t bytes = 0;       // final size, damage applied
};

// Message number of a system letter, 0 for an unknown letter.
uint32_t rtcmgen_msg_of_system(char sys);
// Satellites generated for a system under cfg (0 for an unknown letter).
int rtcmgen_sat_count(const RtcmGenConfig &cfg, char sys);
// Ephemeris frames of one epoch.
uint32_t rtcmgen_frames_per_epoch(const RtcmGenConfig &cfg);
// Epochs generated: cfg.epochs, or more when min_size asks for them.
uint64_t rtcmgen_epoch_count(const RtcmGenConfig &cfg);
// Bytes of the file before exact_size is reached: the 'B' 'K' frame, the
// ephemeris frames, the long frame and tail_bytes (no damage).
uint64_t rtcmgen_content_size(const RtcmGenConfig &cfg);
// Checks cfg; on failure returns false and, if err is given, a reason.
bool rtcmgen_validate(const RtcmGenConfig &cfg, std::string *err);

// Time fields of one epoch, as they are written into the messages.
struct RtcmEpochTime {
    uint32_t gps_week;  // full GPS week of the epoch
    uint32_t gps_tow;   // seconds
    uint32_t bdt_week;  // gps_week - 1356, one less when the BDT second falls before the week start
    uint32_t bdt_sow;   // gps_tow - 14, wrapped into the BDT week
    uint32_t gst_week;  // gps_week - 1024
    // Raw field values (the scaled integers in the messages):
    uint32_t gps_week10;  // gps_week % 1024 (1019, 1044)
    uint32_t gps_toe16;   // gps_tow / 16 (1019, 1044 toe and toc)
    uint32_t bdt_week13;  // bdt_week % 8192 (1042)
    uint32_t bdt_toe8;    // bdt_sow / 8 (1042 toe and toc)
    uint32_t gst_week12;  // gst_week % 4096 (1046)
    uint32_t gst_toe60;   // gps_tow / 60 (1046 toe and toc)
    // GLONASS (1020), in Moscow time (UTC + 3 h, UTC = GPS time - leap
    // seconds of the configuration): the reference time is the hh:15 or
    // hh:45 point nearest the epoch, the frame time 15 minutes before it.
    uint32_t glo_tod;  // seconds of the Moscow day at the epoch
    uint32_t glo_tb;   // tb field: 1, 3, .. 95 (15-minute units)
    uint32_t glo_tk;   // tk field: hours << 7 | minutes << 1 | 30-s flag
    uint32_t glo_nt;   // day within the four-year interval, 1..1461
    uint32_t glo_n4;   // four-year interval from 1996, 1..
    // UTC date of the epoch for the 1029 frames.
    uint32_t utc_mjd;  // Modified Julian Day
    uint32_t utc_sod;  // seconds of the day
};
// Times of epoch k: reference time + k x 7200 s, carried into later weeks.
// Times that are not a multiple of a field's scale are cut down to one.
RtcmEpochTime rtcmgen_epoch_time(const RtcmGenConfig &cfg, int epoch);

// The ephemeris of one satellite at one epoch, as generate() writes it.
RtcmEph rtcmgen_make_eph(const RtcmGenConfig &cfg, char sys, int sat, int epoch);

// The file's bytes. Empty when cfg does not validate.
std::vector<uint8_t> rtcmgen_generate(const RtcmGenConfig &cfg, RtcmGenStats *stats = nullptr);
// Writes bytes to path (created or truncated). False with a reason on failure.
bool rtcmgen_write_bytes(const char *path, const std::vector<uint8_t> &bytes, std::string *err);
// Generates and writes in one step.
bool rtcmgen_write_file(const RtcmGenConfig &cfg, const char *path, RtcmGenStats *stats,
                        std::string *err);

// ---------------------------------------------------------------------------
// Frame list reader

struct RtcmFrameInfo {
    size_t offset;         // of the D3 byte
    uint32_t payload_len;  // 10-bit length field
    uint32_t msg;          // first 12 payload bits (0 when the payload is shorter)
    bool reserved_clear;   // the six reserved header bits are 0
    bool crc_ok;           // stored CRC equals CRC-24Q over header and payload
};

enum class RtcmSplitEnd {
    Complete,    // the buffer ends exactly after a frame (or is empty)
    Incomplete,  // it ends inside a header, payload or CRC
    NotAFrame,   // a byte other than D3 where a frame should start
};

struct RtcmSplit {
    std::vector<RtcmFrameInfo> frames;  // whole frames only
    RtcmSplitEnd end = RtcmSplitEnd::Complete;
    size_t consumed = 0;  // bytes covered by the whole frames
};

// Splits a buffer into frames from offset 0, strictly (no resynchronisation).
// A frame with reserved bits set is still taken with its 10-bit length and
// flagged. Stops at the first byte that is not a D3 preamble.
RtcmSplit rtcm_split_frames(const uint8_t *data, size_t len);
// Pointer to a frame's payload inside the buffer given to rtcm_split_frames.
inline const uint8_t *rtcm_frame_payload(const uint8_t *data, const RtcmFrameInfo &f) {
    return data + f.offset + 3;
}
