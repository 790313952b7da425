// Deterministic RTCM 3 ephemeris sample data: GPS 1019, BeiDou 1042,
// QZSS 1044 and Galileo I/NAV 1046 messages with plausible, seed-driven
// field values, wrapped in RTCM 3 transport frames (0xD3, 6 reserved bits,
// 10-bit length, payload, CRC-24Q). Optional damage makes broken files for
// the readers' failure paths. A small frame splitter reads such files back.
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
// BeiDou SatH1 and Galileo E5b signal health.
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
    F_COUNT
};

struct RtcmFieldDef {
    RtcmEphField field;
    uint8_t width;     // bits
    bool is_signed;    // two's complement
    const char *name;  // the name the message's own definition uses
};

// The field table of message 1019, 1042, 1044 or 1046 in transmission
// order; null (count 0) for any other number.
const RtcmFieldDef *rtcm_eph_layout(uint32_t msg, size_t *count);
// Sum of the field widths: 488, 511, 485, 504; 0 for other numbers.
uint32_t rtcm_eph_layout_bits(uint32_t msg);
// Payload bytes: 61, 64, 61, 63.
uint32_t rtcm_eph_payload_bytes(uint32_t msg);
// Bit offset of a field in the message, -1 if the message lacks it.
int32_t rtcm_eph_field_pos(uint32_t msg, RtcmEphField field);
// Width of a field in the message, 0 if the message lacks it.
uint32_t rtcm_eph_field_width(uint32_t msg, RtcmEphField field);
// Decodes one field of a payload with the layout (sign-extended when the
// field is signed). The payload must hold the message's bits.
int64_t rtcm_eph_get(uint32_t msg, const uint8_t *payload, RtcmEphField field);

// Raw (already scaled) integer values, indexed by RtcmEphField.
struct RtcmEph {
    int64_t v[F_COUNT];
};

// Encodes eph as message msg into payload (zero-filled first; the pad bits
// of the last byte stay 0). F_MSG is written as msg whatever eph holds.
// Returns the payload length in bytes, or 0 when msg is not one of the four,
// cap is too small, or a value does not fit its field.
uint32_t rtcm_eph_encode(uint32_t msg, const RtcmEph &eph, uint8_t *payload, uint32_t cap);

// ---------------------------------------------------------------------------
// Generator

enum class RtcmDamage {
    None,
    BadCrc,        // one CRC byte of frame damage_frame is inverted
    Truncate,      // the file ends in the middle of the last frame
    Trailing,      // 1 or 2 bytes of a further frame header follow the last frame
    ReservedBits,  // a reserved header bit of frame damage_frame is set (CRC recomputed)
};

struct RtcmGenConfig {
    // Any mix of 'G' (GPS, 1019), 'C' (BeiDou, 1042), 'J' (QZSS, 1044),
    // 'E' (Galileo, 1046), each at most once; frames of one epoch follow
    // this order.
    std::string systems = "GCJE";
    // 0: every system's default set (G 32, C 10, J 4, E 24). Otherwise this
    // many satellites per system, IDs 1..N, limited to the system's largest
    // ID (G 32, C 63, J 10, E 36).
    int sats = 0;
    int epochs = 1;         // 2-hour steps from the reference time
    uint32_t week = 2400;   // reference GPS week (full, not cut to 10 bits)
    uint32_t tow = 345600;  // reference GPS time of week, seconds (0..604799)
    uint64_t seed = 1;
    // Epochs are added until the undamaged file holds at least this many
    // bytes (0: no minimum).
    uint64_t min_size = 0;
    RtcmDamage damage = RtcmDamage::None;
    // Frame index for BadCrc and ReservedBits, counted from 0; -1 means the
    // last frame.
    int damage_frame = 0;
    int trailing_bytes = 1;  // Trailing: 1 (D3) or 2 (D3 00)
};

struct RtcmGenStats {
    uint32_t frames = 0;  // frames generated (a truncated last one counts)
    uint32_t epochs = 0;  // epochs generated (min_size may add some)
    uint32_t count_1019 = 0, count_1042 = 0, count_1044 = 0, count_1046 = 0;
    uint64_t bytes = 0;  // final size, damage applied
};

// Message number of a system letter, 0 for an unknown letter.
uint32_t rtcmgen_msg_of_system(char sys);
// Satellites generated for a system under cfg (0 for an unknown letter).
int rtcmgen_sat_count(const RtcmGenConfig &cfg, char sys);
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
