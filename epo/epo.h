// The EPO engine shared by the two extended-orbit platforms, AG33XX and
// RZ610MXXXX: file decoding and summary, the sentence command layer with its
// acknowledgement and report checks, the binary framing and both transfers,
// and the online, offline and file-information flows.
//
// The platforms differ only in data and a few small functions, gathered in an
// EpoDialect: file-name tables, the type-to-mode table, system letters, the
// PRN rule, the command sentences, the acknowledgement rule and the wording
// of a few messages. Each platform's entries pass its dialect.
#pragma once

#include <cstdint>
#include <algorithm>
#include <cstdio>
#include <string>

#include <span>

#include "core/options.h"
#include "toolkit/reply.h"
#include "toolkit/session.h"
#include "toolkit/text.h"

enum : uint32_t {
    EPO_RECORD_SIZE = 72,
    EPO_GPS_SEGMENT = 32 * EPO_RECORD_SIZE,        // 2304 bytes
    EPO_GR_SEGMENT = (32 + 24) * EPO_RECORD_SIZE,  // 4032 bytes
    EPO_SEGMENT_SECONDS = 6 * 3600,
    EPO_FRAME_CAPACITY = 101,
    EPO_MAX_SATS = 64,
    EPO_ACK_ID = 1000,  // the receiver's acknowledgement frame
    EPO_ACK_SIZE = 13,
};

// Result codes of this engine beyond the shared ones.
enum : uint32_t {
    EPO_ERR_WRITE_TIME = 0x201,  // short write of the time or the clear command
    EPO_ERR_ACK = 0x202,  // acknowledgement malformed, refused or short write of the position
    EPO_ERR_WRITE_RECORD = 0x203,  // short write of a record
    EPO_ERR_OPEN = 0x204,          // file cannot be opened
    EPO_ERR_READ = 0x205,          // a record read returned nothing
    EPO_ERR_FRAME = 0x206,         // begin or end frame failed, or the header is unreadable
};

// EPO types: 0 GPS, 1 GPS+GLONASS, 2 Galileo, 3 BeiDou, -1 not recognised;
// RZ610MXXXX adds 4 GLONASS, 5 QZSS (offline) and 10..15 (online names).
struct EpoInfo {
    int32_t type;
    uint32_t file_size;
    uint32_t segment_count;
    float valid_days;
    uint64_t start_time;  // GPS seconds of the first segment
    uint64_t end_time;
};

struct EpoNameRule {
    const char *text;  // substring of the file name
    int32_t type;
    int32_t days;  // -1: the number read eight characters after the match
};

struct EpoTypeValue {
    int32_t type;
    int32_t value;
};

struct EpoLetter {
    int32_t type;
    const char *letter;
};

// File names and the types they stand for, and what each type means for
// the transfer. Every table is searched in order, first match wins.
struct EpoFiles {
    std::span<const EpoNameRule> offline_names;
    std::span<const EpoNameRule> online_names;  // days unused
    std::span<const EpoTypeValue> modes;        // type -> transfer mode
    std::span<const EpoLetter> letters;         // type -> system letter of begin/end frames
    // Satellite lists of types without a header: type -> count (1 .. count); others 32.
    std::span<const EpoTypeValue> plain_lists;
    std::span<const int32_t> header_types;  // types whose files start with a header record
    std::span<const int32_t> pair_types;    // GPS+GLONASS types sent as 32 + 24 records
    int32_t pair_gps_mask = 0;              // mode & mask: the mode of the GPS records
    int32_t pair_glo_mask = 0;              // mode & mask: the mode of the GLONASS records
    bool prn_by_mode = false;               // the record PRN rule is keyed by mode, not type
    bool check_prn = false;                 // refuse a record whose PRN is not the expected one
};

// The command sentences and how their replies are judged.
struct EpoCommands {
    const char *start_bodies[5] = {};  // index 1..4; null: no such start way
    const char *restart_report = "";   // the report that shows the restart is done
    const char *time_address = "";
    const char *pos_address = "";
    const char *clear_address = "";
    const char *record_address = "";
    // Builds the time sentence body from the date (year .. second) and the time aid.
    void (*time_body)(char *out, size_t size, const int *ymdhms, const VkTimeAid *time) = nullptr;
    void (*pos_body)(char *out, size_t size, double lat, double lon, double alt) = nullptr;
    void (*record_body)(char *out, size_t size, int mode, int prn, const uint8_t *record) = nullptr;
    // Judges one read for the acknowledgement of the command at address.
    VkReplyCheck check_ack = nullptr;
    // Judges one read for a report.
    VkReplyCheck check_report = nullptr;
};

// How the commands are logged.
struct EpoTexts {
    const char *start_log = "";    // the restart sentence ("%s")
    const char *command_log = "";  // the other commands
    const char *clear_log = "";
    const char *lat_lon_line = "";           // logged before the position is sent
    const char *record_log_after = nullptr;  // each record sentence, after its write
};

// How one platform speaks.
struct EpoDialect {
    const char *platform = "";  // "AG33XX" in step lines such as "AG33XX Send Time ret"
    EpoFiles files;
    EpoCommands commands;
    EpoTexts texts;
    VkSessionRules online;  // entry line, option rules, usage and port messages
    VkSessionRules offline;
};

// --- files (decoding, names, tables) ------------------------------------------
EpoInfo *epo_decode_file(EpoInfo *info, const char *path);
void epo_print_info(const EpoInfo *info);
void epo_to_agnss_info(const EpoInfo *epo, VkAgnssInfo *agnss);
void epo_set_type(int32_t type);
int32_t epo_get_type();
int32_t epo_prn_of_record(int32_t key, const uint8_t *record);
// The PRN a record carries by the dialect's rule (keyed by type, or by the 1-based mode).
int32_t epo_record_prn(const EpoDialect *d, int32_t type_or_mode, const uint8_t *record);
void epo_parse_header(const char *hex_text, uint8_t *sv_list, int max_bits, int *count);
int32_t epo_system_letter(const EpoDialect *d, int32_t type, char *dst, size_t size);
int32_t epo_offline_type(const EpoDialect *d, const char *file_name, int32_t *day_count);
int32_t epo_online_type(const EpoDialect *d, const char *file_name);
int32_t epo_mode_of_type(const EpoDialect *d, int32_t type);
const char *epo_type_text(int32_t type);
inline bool epo_type_in(int32_t type, std::span<const int32_t> types) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

// --- sentence commands -----------------------------------------------------------
uint32_t epo_send_start_way(const EpoDialect *d, SerialPort port, int way);
uint32_t epo_send_time(const EpoDialect *d, SerialPort port, const VkTimeAid *time);
uint32_t epo_send_pos(const EpoDialect *d, SerialPort port, const VkPosAid *pos);
uint32_t epo_clear(const EpoDialect *d, SerialPort port);
uint32_t epo_send_record(const EpoDialect *d, SerialPort port, const uint8_t *record, int mode,
                         int expected_sv);
// The checksum mismatch line of the acknowledgement checks.
inline constexpr const char EPO_CHECKSUM_DIFF[] =
    "[ERROR] checksum_fix: %d,checksum_cacu:%d,is diff\n";
// Appends a record's 18 little-endian words to the text of length len in out,
// each as ",%X" or, with fixed_width, ",%08X".
void epo_append_record_words(char *out, size_t size, int len, const uint8_t *record,
                             bool fixed_width);

// --- binary framing and transfers --------------------------------------------------
uint16_t epo_msg_id(int bin_type);
uint32_t epo_package_frame(uint16_t msg_id, const uint8_t *payload, uint32_t len, uint8_t *out,
                           uint32_t *inout_len);
uint32_t epo_wait_bin_ack(SerialPort port, uint8_t *reply, uint16_t msg_id);
uint32_t epo_send_frame(SerialPort port, const uint8_t *frame, uint32_t len, uint16_t msg_id);
uint32_t epo_send_begin_end(SerialPort port, const uint8_t *payload, uint32_t len, int bin_type);
uint32_t epo_read_sv_list(const EpoDialect *d, FILE *f, int32_t type, uint8_t *list, int size,
                          int *count, uint32_t *header_bytes);
uint32_t epo_send_file_offline(const EpoDialect *d, SerialPort port, const char *path);
uint32_t epo_send_file_online(const EpoDialect *d, SerialPort port, const char *path);

// --- flows -------------------------------------------------------------------------
uint32_t epo_run_online(const EpoDialect *d, int argc, char **argv);
uint32_t epo_run_offline(const EpoDialect *d, int argc, char **argv);
uint32_t epo_run_file_info(int argc, char **argv);
