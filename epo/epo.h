// The EPO engine shared by the two extended-orbit platforms, AG33XX and
// RZ610MXXXX: file decoding and summary, the sentence command layer with its
// acknowledgement and report checks, the binary framing and both transfers,
// and the online, offline and file-information flows.
//
// The platforms differ only in data and a few small functions, gathered in an
// EpoDialect: file-name tables, the type-to-mode table, system letters, the
// PRN rule, the command sentences, the acknowledgement rule and the wording
// of a few messages. Each platform's named functions are thin entries that
// pass its dialect.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/options.h"
#include "toolkit/text.h"

enum : uint32_t {
    EPO_RECORD_SIZE = 72,
    EPO_GPS_SEGMENT = 32 * EPO_RECORD_SIZE,        // 2304 bytes
    EPO_GR_SEGMENT = (32 + 24) * EPO_RECORD_SIZE,  // 4032 bytes
    EPO_SEGMENT_SECONDS = 6 * 3600,
    EPO_FRAME_CAPACITY = 101,
    EPO_MAX_SATS = 64,
};

// Result codes of this engine beyond the shared ones.
enum : uint32_t {
    EPO_ERR_WRITE_TIME = 0x201,  // short write of the time or the clear command
    EPO_ERR_ACK = 0x202,  // acknowledgement malformed, refused or short write of the position
    EPO_ERR_WRITE_RECORD = 0x203,  // short write of a record
    EPO_ERR_OPEN = 0x204,          // file cannot be opened
    EPO_ERR_READ = 0x205,          // a record read returned nothing
    EPO_ERR_FRAME = 0x206,         // begin or end frame failed, or the header is unreadable
    EPO_ERR_NO_DATA = 0x300,       // the receiver holds no EPO data
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

// How one platform speaks. Every table is searched in order, first match wins.
struct EpoDialect {
    const char *platform;  // "AG33XX" in step lines such as "AG33XX Send Time ret"

    // File names and types.
    const EpoNameRule *offline_names;
    int offline_name_count;
    const EpoNameRule *online_names;  // days unused
    int online_name_count;
    const EpoTypeValue *modes;  // type -> transfer mode
    int mode_count;
    const EpoLetter *letters;  // type -> system letter of begin/end frames
    int letter_count;
    bool prn_by_mode;  // the record PRN rule is keyed by mode, not type
    bool check_prn;    // refuse a record whose PRN is not the expected one
    // Satellite lists of types without a header: type -> count (1 .. count).
    const EpoTypeValue *plain_lists;
    int plain_list_count;
    const int32_t *header_types;  // types whose files start with a header record
    int header_type_count;
    const int32_t *pair_types;  // GPS+GLONASS types sent as 32 + 24 records
    int pair_type_count;
    int32_t pair_gps_mask;               // mode & mask: the mode of the GPS records
    int32_t pair_glo_mask;               // mode & mask: the mode of the GLONASS records
    const EpoTypeValue *status_systems;  // type -> first system number of the status query
    int status_system_count;

    // Commands.
    const char *start_bodies[5];  // index 1..4; null: no such start way
    const char *start_log;        // log format of the restart, "%s" is the sentence
    const char *command_log;      // log format of the other commands
    const char *restart_report;   // the report that shows the restart is done
    const char *time_address;
    const char *pos_address;
    const char *clear_address;
    const char *clear_log;
    const char *status_address;
    bool status_full_expect;  // the status report repeats "<address>,<system>"
    const char *record_address;
    const char *lat_lon_line;  // logged before the position is sent
    // Builds the time sentence body into out from the date and the time aid.
    void (*time_body)(char *out, size_t size, const int *ymdhms, const VkTimeAid *time);
    // Builds the position sentence body.
    void (*pos_body)(char *out, size_t size, double lat, double lon, double alt);
    // Builds the record sentence body.
    void (*record_body)(char *out, size_t size, int mode, int prn, const uint8_t *record);
    // Judges one read for the acknowledgement of the command at address.
    uint32_t (*check_ack)(const char *buf, uint32_t len, const char *address, uint32_t current);
    // Judges one read for a report.
    uint32_t (*check_report)(const char *buf, uint32_t len, const char *expected, uint32_t current);
    bool log_record_after_write;  // "[DEBUG] Send VEPO cmd: %s\n"

    // Entries.
    const char *online_entry_line;
    const char *offline_entry_line;
    VkOptionRules online_rules;
    VkOptionRules offline_rules;
    const char *online_usage;
    const char *offline_usage;
};

// --- files (decoding, names, tables) ------------------------------------------
EpoInfo *epo_decode_file(EpoInfo *info, const char *path);
void epo_print_info(const EpoInfo *info);
void epo_to_agnss_info(const EpoInfo *epo, VkAgnssInfo *agnss);
void epo_set_type(int32_t type);
int32_t epo_get_type();
int32_t epo_prn_of_record(int32_t key, const uint8_t *record);
void epo_parse_header(const char *hex_text, uint8_t *sv_list, int max_bits, int *count);
int32_t epo_system_letter(const EpoDialect *d, int32_t type, char *dst, size_t size);
int32_t epo_offline_type(const EpoDialect *d, const char *file_name, int32_t *day_count);
int32_t epo_online_type(const EpoDialect *d, const char *file_name);
int32_t epo_mode_of_type(const EpoDialect *d, int32_t type);
const char *epo_type_text(int32_t type);

// --- sentence commands -----------------------------------------------------------
uint32_t epo_wait_ack(const EpoDialect *d, uint64_t port, const char *address, uint32_t timeout_ms);
uint32_t epo_wait_report(const EpoDialect *d, uint64_t port, const char *expected,
                         uint32_t timeout_ms);
uint32_t epo_send_start_way(const EpoDialect *d, uint64_t port, int way);
uint32_t epo_send_time(const EpoDialect *d, uint64_t port, const VkTimeAid *time);
uint32_t epo_send_pos(const EpoDialect *d, uint64_t port, const VkPosAid *pos);
uint32_t epo_query_status(const EpoDialect *d, uint64_t port);
uint32_t epo_clear(const EpoDialect *d, uint64_t port);
uint32_t epo_send_record(const EpoDialect *d, uint64_t port, const uint8_t *record, int mode,
                         int expected_sv);
// The acknowledgement and report checks of the two dialects.
uint32_t epo_check_pair_ack(const char *buf, uint32_t len, const char *address, uint32_t current);
uint32_t epo_check_pair_report(const char *buf, uint32_t len, const char *expected,
                               uint32_t current);
uint32_t epo_check_pvnk_ack(const char *buf, uint32_t len, const char *address, uint32_t current);
uint32_t epo_check_pvnk_report(const char *buf, uint32_t len, const char *expected,
                               uint32_t current);
// Appends a record's 18 little-endian words to the text of length len in out,
// each as ",%X" or, with fixed_width, ",%08X".
void epo_append_record_words(char *out, size_t size, int len, const uint8_t *record,
                             bool fixed_width);
// The weak checksum comparison of acknowledgements: both texts read as decimal.
bool epo_checksum_matches(const char *body, const char *received);

// --- binary framing and transfers --------------------------------------------------
uint16_t epo_msg_id(int bin_type);
uint32_t epo_package_frame(uint16_t msg_id, const uint8_t *payload, uint32_t len, uint8_t *out,
                           uint32_t *inout_len);
uint32_t epo_wait_bin_ack(uint64_t port, uint8_t *reply, uint16_t msg_id);
uint32_t epo_send_frame(uint64_t port, const uint8_t *frame, uint32_t len, uint16_t msg_id);
uint32_t epo_send_begin_end(uint64_t port, const uint8_t *payload, uint32_t len, int bin_type);
uint32_t epo_read_sv_list(const EpoDialect *d, FILE *f, int32_t type, uint8_t *list, int size,
                          int *count, uint32_t *header_bytes);
uint32_t epo_send_file_offline(const EpoDialect *d, uint64_t port, const char *path);
uint32_t epo_send_file_online(const EpoDialect *d, uint64_t port, const char *path);

// --- flows -------------------------------------------------------------------------
uint32_t epo_run_online(const EpoDialect *d, int argc, char **argv);
uint32_t epo_run_offline(const EpoDialect *d, int argc, char **argv);
uint32_t epo_run_file_info(int argc, char **argv);
