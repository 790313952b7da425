// The option grammar every backend entry parses again from the unchanged
// argument vector: -m -p -b -f -s -c -u -l (and o, R, T accepted and ignored).
// Backends differ only in data: their option string, start-way names, how many
// characters of the module name they keep and a few message variants.
#pragma once

#include <cstdint>
#include <span>

#include "core/log.h"
#include "core/result.h"

// -u: what the aiding steps need of the time string.
struct VkTimeAid {
    int enable;
    int type;      // 0: use utc below, 1: use the computer's current UTC
    char utc[34];  // year-month-day-hour:minute:second
    int leap;
    char accuracy[18];
};

// -l: latitude, longitude, altitude and accuracy as decimal texts.
struct VkPosAid {
    int enable;
    int type;  // the leading Type field, for grammars that have one (else 0)
    char lat[18];
    char lon[18];
    char alt[18];
    char acc[18];
};

// -A: one initial-aiding text with position and time. The two accuracies are
// no fields of their own: each is the text that follows the field before it
// (position accuracy: from UTC0 on; time accuracy: after LeapSec).
struct VkAidInit {
    int enable;
    int type;  // 0: no initial aiding is sent
    char lat[18];
    char lon[18];
    char alt[18];
    char pos_acc[18];
    char utc[34];
    int leap;
    char time_acc[18];
};

enum { VK_MAX_FILES = 3 };

struct VkOptions {
    char module[64];
    char port[100];
    int baud;
    char file[256];
    // -f as a list of up to three comma-separated paths (backends that take one)
    char file_text[772];
    int file_count;
    char files[VK_MAX_FILES][257];
    int start_way;  // 0 NONE, 1 HOT, 2 WARM, 3 COLD (or as the backend's names say); -1 invalid
    int clear;
    int query;            // -q: print the file summary and stop
    int module_protocol;  // the value the module table gives -m; -1: no row matches
    VkTimeAid time;
    VkPosAid pos;
    VkAidInit aidi;
};

// A row of a module table: every row whose prefix starts the -m value sets
// the value (so the last matching row wins).
struct VkModuleRow {
    const char *prefix;
    int value;
};

struct VkStartWayName {
    const char *name;
    int value;
};

struct VkOptionRules {
    const char *optstring = "";
    std::span<const VkStartWayName> start_ways;  // empty: NONE, HOT, WARM, COLD
    uint32_t module_keep = 63;                   // characters of -m kept
    const char *pos_enable_format = nullptr;     // logged after a valid -l; null: the common line
    const char *time_enable_format = nullptr;    // logged after a valid -u; null: the common line
    bool location_type = false;                  // -l starts with an integer Type field
    std::span<const VkModuleRow> module_table;   // matched against -m, logged per matching row
    const char *location_accuracy = "PosAcc";    // the name of the last -l field in messages
    const char *clear_message = nullptr;         // logged for -c; null: nothing
    const char *time_error_word = "time";        // how time errors name what is wrong
    bool skip_double_comma_check = false;        // ",," is caught only as a missing field
    bool log_each_option = false;                // "[DEBUG] Option -%c with argument: %s\n"
    bool file_list = false;                      // -f takes up to three comma-separated paths
    bool file_missing_index = false;             // a missing path is reported with its index
};

// Parses argv with the backend's rules into *out (zeroed first).
// Returns 0, or 0x102 at the first parameter error (after its message).
uint32_t vk_parse_options(int argc, char **argv, const VkOptionRules *rules, VkOptions *out);

// Pieces of the grammar, for backends whose options go beyond the common set.
uint32_t vk_parse_location(const char *text, const VkOptionRules *rules, VkPosAid *pos);
uint32_t vk_parse_time(const char *text, const VkOptionRules *rules, VkTimeAid *time);
int vk_parse_start_way(const char *text, const VkOptionRules *rules);
uint32_t vk_parse_file_list(const char *text, const VkOptionRules *rules, VkOptions *out);
uint32_t vk_parse_aidi(const char *text, VkAidInit *aidi);

// The time an aiding step sends: type 0 the -u text (year-month-day-hour:
// minute:second, 0 ms), any other type the computer's current UTC.
void vk_aid_time(const VkTimeAid *time, VkDateTime *out);

// What the backends with a grammar of their own (STA8100, TQ934N) read alike.
struct VkBasicSettings {
    char module[20];
    char port[100];
    int baud;
    char file[256];
    int query;
};
// Takes -b, -f, -m (19 characters kept), -p and -q with their log lines;
// false for any other letter.
bool vk_basic_option(int c, const char *value, VkBasicSettings *s);
// The next comma field of a text split in place, empty fields skipped (the
// field's comma becomes its end); null when none is left.
char *vk_next_field(char **cursor);

// What those grammars check first in a comma-separated text: at most 63
// characters (too_long, "%s": the text), the text logged with log, exactly
// commas commas (reported as the location's comma count, whatever the text),
// and a copy to split into copy. 0, or 0x102 after the message.
uint32_t vk_comma_text(const char *text, const char *too_long, const char *log, int commas,
                       char (&copy)[64]);

// Splits copy into missing.size() comma fields (empty ones skipped) into
// fields; the first one missing logs its message (a "%s" in it shows the text
// not yet split) and gives 0x102.
uint32_t vk_take_fields(char *copy, std::span<const char *const> missing, const char **fields);

// Port given, baud rate non-zero, start way valid, time type 0 or 1.
bool vk_options_complete(const VkOptions *opts);
// "[ERROR] Failed.Please input parameters correctly, such as <example>, FAIL"
void vk_print_usage(const char *example);
// 0 when path can be opened for reading, else 0x103 after its message.
uint32_t vk_check_file_access(const char *path);
