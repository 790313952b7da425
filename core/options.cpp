#include "core/options.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/getopt.h"
#include "core/log.h"
#include "core/number.h"

namespace {

const VkStartWayName kCommonStartWays[] = {{"NONE", 0}, {"HOT", 1}, {"WARM", 2}, {"COLD", 3}};

const char kPosEnableFormat[] = "[INFO] Pos Enable:%d,Lat:%s,Lon:%s,Altitude:%s,PosAcc:%s";

// Copies at most keep characters of src into dst (which holds keep + 1).
void copy_text(char *dst, const char *src, size_t keep) {
    size_t n = strlen(src);
    if (n > keep) n = keep;
    memcpy(dst, src, n);
    dst[n] = '\0';
}

uint32_t count_commas(const char *text) {
    return uint32_t(std::count(text, text + strlen(text), ','));
}

bool equals_ignore_case(const char *a, const char *b) {
    for (; *a && *b; ++a, ++b) {
        char x = *a, y = *b;
        if (x >= 'a' && x <= 'z') x = char(x - 'a' + 'A');
        if (y >= 'a' && y <= 'z') y = char(y - 'a' + 'A');
        if (x != y) return false;
    }
    return *a == *b;
}

// strtok-style field walk over a comma list: empty fields are skipped, so a
// missing field shows up as the last ones running out.
const char *next_field(const char **cursor, size_t *len) {
    const char *p = *cursor;
    while (*p == ',') ++p;
    if (*p == '\0') {
        *cursor = p;
        return nullptr;
    }
    const char *start = p;
    while (*p && *p != ',') ++p;
    *len = size_t(p - start);
    *cursor = (*p == ',') ? p + 1 : p;
    return start;
}

void copy_field(char *dst, const char *src, size_t len, size_t keep) {
    if (len > keep) len = keep;
    memcpy(dst, src, len);
    dst[len] = '\0';
}

}  // namespace

int vk_parse_start_way(const char *text, const VkOptionRules *rules) {
    std::span<const VkStartWayName> names =
        rules->start_ways.empty() ? std::span(kCommonStartWays) : rules->start_ways;
    int way = -1;
    for (const VkStartWayName &n : names) {
        if (equals_ignore_case(text, n.name)) {
            way = n.value;
            break;
        }
    }
    if (way == -1) vk_log("[ERROR] Invalid start way:%s\n", text);
    vk_log("[INFO] Start way:%s\n", text);
    return way;
}

uint32_t vk_parse_location(const char *text, const VkOptionRules *rules, VkPosAid *pos) {
    if (strlen(text) > 63) {
        vk_log(" Location string too long: %s\n", text);
        return VK_ERR_PARAM;
    }
    char copy[64];
    copy_text(copy, text, 63);
    vk_log("[INFO] Ref position:%s\n", copy);
    const uint32_t fields = rules->location_type ? 5 : 4;
    uint32_t commas = count_commas(copy);
    if (commas != fields - 1) {
        // The count shown is the number of fields, not of commas.
        vk_log("[ERROR] Invalid location format, comma count: %d\n", int(commas + 1));
        return VK_ERR_PARAM;
    }
    if (!rules->skip_double_comma_check && strstr(copy, ",,")) {
        vk_log("[ERROR] Invalid location format, exist \",,\",missing at least one field\n");
        return VK_ERR_PARAM;
    }
    const char *cursor = copy;
    size_t len = 0;
    if (rules->location_type) {
        // With the ",," rule in force the first field is always there.
        const char *field = next_field(&cursor, &len);
        if (field == nullptr) {
            vk_log("[ERROR] Invalid location, missing Type field\n");
            return VK_ERR_PARAM;
        }
        char number[64];
        copy_field(number, field, len, sizeof number - 1);
        pos->type = vk_atoi(number);
    }
    const char *const names[4] = {"Lat", "Lon", "Altitude", rules->location_accuracy};
    char *const dst[4] = {pos->lat, pos->lon, pos->alt, pos->acc};
    for (int i = 0; i < 4; ++i) {
        const char *field = next_field(&cursor, &len);
        if (field == nullptr) {
            vk_log("[ERROR] Invalid location, missing %s field\n", names[i]);
            return VK_ERR_PARAM;
        }
        copy_field(dst[i], field, len, 17);
    }
    pos->enable = 1;
    const char *fmt = rules->pos_enable_format ? rules->pos_enable_format : kPosEnableFormat;
    vk_log(fmt, pos->enable, pos->lat, pos->lon, pos->alt, pos->acc);
    return VK_OK;
}

uint32_t vk_parse_time(const char *text, const VkOptionRules *rules, VkTimeAid *time) {
    const char *word = rules->time_error_word;
    if (strlen(text) > 63) {
        vk_log(" Time string too long: %s\n", text);
        return VK_ERR_PARAM;
    }
    char copy[64];
    copy_text(copy, text, 63);
    vk_log("[INFO] time data:%s\n", copy);
    uint32_t commas = count_commas(copy);
    if (commas != 3) {
        vk_log("[ERROR] Invalid %s format, comma count: %d\n", word, int(commas));
        return VK_ERR_PARAM;
    }
    if (!rules->skip_double_comma_check && strstr(copy, ",,")) {
        vk_log("[ERROR] Invalid time format, exist \",,\",missing at least one field\n");
        return VK_ERR_PARAM;
    }
    static const char *const kNames[3] = {"Type", "UTC0", "LeapSec"};
    const char *fields[3];
    size_t lens[3];
    const char *cursor = copy;
    for (int i = 0; i < 3; ++i) {
        fields[i] = next_field(&cursor, &lens[i]);
        if (fields[i] == nullptr) {
            vk_log("[ERROR] Invalid %s, missing %s field\n", word, kNames[i]);
            return VK_ERR_PARAM;
        }
    }
    char number[64];
    copy_field(number, fields[0], lens[0], sizeof number - 1);
    time->type = vk_atoi(number);
    copy_field(time->utc, fields[1], lens[1], 33);
    copy_field(number, fields[2], lens[2], sizeof number - 1);
    time->leap = vk_atoi(number);
    copy_text(time->accuracy, cursor, 17);
    time->enable = 1;
    const char *fmt = rules->time_enable_format
                          ? rules->time_enable_format
                          : "[INFO] Time Enable:%d,Mode:%d,Time:%s, LeapSec:%d, Accuracy:%s\n";
    vk_log(fmt, time->enable, time->type, time->utc, time->leap, time->accuracy);
    return VK_OK;
}

uint32_t vk_parse_aidi(const char *text, VkAidInit *aidi) {
    if (strlen(text) > 127) {
        vk_log(" Aidi string too long: %s\n", text);
        return VK_ERR_PARAM;
    }
    char copy[128];
    copy_text(copy, text, 127);
    if (strstr(copy, ",,")) {
        vk_log("[ERROR] Invalid aidi format, exist \",,\",missing at least one field\n");
        return VK_ERR_PARAM;
    }
    static const char *const kNames[6] = {"Type", "Lat", "Lon", "Altitude", "UTC0", "LeapSec"};
    const char *fields[6];
    size_t lens[6];
    const char *cursor = copy;
    for (int i = 0; i < 6; ++i) {
        fields[i] = next_field(&cursor, &lens[i]);
        if (fields[i] == nullptr) {
            vk_log("[ERROR] Invalid aidi, missing %s field\n", kNames[i]);
            return VK_ERR_PARAM;
        }
        // Each accuracy is the text that follows the field before it.
        if (i == 3) copy_text(aidi->pos_acc, cursor, 17);
        if (i == 5) copy_text(aidi->time_acc, cursor, 17);
    }
    char number[128];
    copy_field(number, fields[0], lens[0], sizeof number - 1);
    aidi->type = vk_atoi(number);
    copy_field(aidi->lat, fields[1], lens[1], 17);
    copy_field(aidi->lon, fields[2], lens[2], 17);
    copy_field(aidi->alt, fields[3], lens[3], 17);
    copy_field(aidi->utc, fields[4], lens[4], 33);
    copy_field(number, fields[5], lens[5], sizeof number - 1);
    aidi->leap = vk_atoi(number);
    aidi->enable = 1;
    return VK_OK;
}

uint32_t vk_parse_file_list(const char *text, const VkOptionRules *rules, VkOptions *out) {
    copy_text(out->file_text, text, sizeof out->file_text - 1);
    vk_log("[INFO] all file: %s\n", out->file_text);
    uint32_t commas = count_commas(out->file_text);
    if (commas > VK_MAX_FILES - 1) {
        vk_log("[ERROR] Invalid filepath format, comma count: %d\n", int(commas));
        return VK_ERR_PARAM;
    }
    if (commas == 0) vk_log(" Only one epo file need to inject\n");
    const char *cursor = out->file_text;
    for (uint32_t i = 0; i <= commas; ++i) {
        size_t len = 0;
        const char *field = next_field(&cursor, &len);
        if (field == nullptr) {
            if (rules->file_missing_index)
                vk_log("[ERROR] Invalid filepath, missing field at index %d\n", int(i + 1));
            else
                vk_log("[ERROR] Invalid filepath, missing field\n");
            return VK_ERR_PARAM;
        }
        copy_field(out->files[i], field, len, sizeof out->files[i] - 1);
    }
    out->file_count = int(commas + 1);
    return VK_OK;
}

uint32_t vk_parse_options(int argc, char **argv, const VkOptionRules *rules, VkOptions *out) {
    memset(out, 0, sizeof *out);
    out->module_protocol = -1;
    vk_getopt_reset();
    int c;
    while ((c = vk_getopt(argc, argv, rules->optstring)) != -1) {
        // A letter whose optional value is not attached arrives without one;
        // it then counts as not given (no file, default start way, no aiding).
        const char *value = vk_optarg;
        if (rules->log_each_option && c != '?')
            vk_log("[DEBUG] Option -%c with argument: %s\n", c, value ? value : "");
        uint32_t ret = VK_OK;
        switch (c) {
            case 'b':
                out->baud = vk_atoi(value);
                vk_log("[INFO] Baud rate:%d\n", out->baud);
                break;
            case 'q': out->query = 1; break;
            case 'A':
                if (!value) break;
                ret = vk_parse_aidi(value, &out->aidi);
                break;
            case 'c':
                out->clear = 1;
                if (rules->clear_message) vk_log("%s", rules->clear_message);
                break;
            case 'f':
                if (!value) break;
                if (rules->file_list) {
                    ret = vk_parse_file_list(value, rules, out);
                    break;
                }
                copy_text(out->file, value, sizeof out->file - 1);
                vk_log("[INFO] File: %s\n", out->file);
                break;
            case 'm':
                copy_text(out->module, value, rules->module_keep);
                vk_log("[INFO] Module: %s\n", out->module);
                for (const VkModuleRow &row : rules->module_table) {
                    if (strncmp(row.prefix, out->module, strlen(row.prefix)) != 0) continue;
                    out->module_protocol = row.value;
                    vk_log("[INFO] %s, %s\n", row.prefix, out->module);
                }
                break;
            case 'p':
                snprintf(out->port, sizeof out->port, "%s", value);
                vk_log("[INFO] Port: %s\n", out->port);
                break;
            case 's':
                if (!value) break;
                out->start_way = vk_parse_start_way(value, rules);
                break;
            case 'l':
                if (!value) break;
                ret = vk_parse_location(value, rules, &out->pos);
                break;
            case 'u':
                if (!value) break;
                ret = vk_parse_time(value, rules, &out->time);
                break;
            default:  // o, R, T, t belong to the entry; unknown letters were reported
                break;
        }
        if (ret != VK_OK) return ret;
    }
    return VK_OK;
}

bool vk_options_complete(const VkOptions *opts) {
    return opts->port[0] != '\0' && opts->baud != 0 && opts->start_way != -1 &&
           (opts->time.type == 0 || opts->time.type == 1);
}

void vk_print_usage(const char *example) {
    vk_log("[ERROR] Failed.Please input parameters correctly, such as %s, FAIL\n", example);
}

uint32_t vk_check_file_access(const char *path) {
    FILE *f = vk_fopen_regular(path);
    if (f != nullptr) {
        fclose(f);
        return VK_OK;
    }
    int err = errno;
    vk_log("[ERROR] Fail to access %s, errno: %d (%s)\n", path, err, strerror(err));
    return VK_ERR_FILE_ACCESS;
}

void vk_aid_time(const VkTimeAid *time, VkDateTime *out) {
    *out = VkDateTime{};
    if (time->type != 0) {
        Vk_GetCurrentDateTime(out);
        return;
    }
    vk_scan_ints(time->utc, "%d-%d-%d-%d:%d:%d", &out->year, &out->month, &out->day, &out->hour,
                 &out->minute, &out->second);
}

bool vk_basic_option(int c, const char *value, VkBasicSettings *s) {
    switch (c) {
        case 'b':
            s->baud = vk_atoi(value);
            vk_log("[INFO] Baud rate:%d\n", s->baud);
            return true;
        case 'f':
            snprintf(s->file, sizeof s->file, "%.255s", value);
            vk_log("[INFO] File: %s\n", s->file);
            return true;
        case 'm':
            snprintf(s->module, sizeof s->module, "%.19s", value);
            vk_log("[INFO] Module: %s\n", s->module);
            return true;
        case 'p':
            snprintf(s->port, sizeof s->port, "%s", value);
            vk_log("[INFO] Port: %s\n", s->port);
            return true;
        case 'q': s->query = 1; return true;
        default: return false;
    }
}

char *vk_next_field(char **cursor) {
    const char *p = *cursor;
    size_t len = 0;
    const char *field = next_field(&p, &len);
    if (field == nullptr) {
        *cursor += strlen(*cursor);
        return nullptr;
    }
    char *start = *cursor + (field - *cursor);
    char *end = start + len;
    *cursor = *end == ',' ? end + 1 : end;
    *end = '\0';
    return start;
}

uint32_t vk_comma_text(const char *text, const char *too_long, const char *log, int commas,
                       char (&copy)[64]) {
    if (strlen(text) > 63) {
        vk_log(too_long, text);
        return VK_ERR_PARAM;
    }
    vk_log(log, text);
    const int count = int(count_commas(text));
    if (count != commas) {
        vk_log("[ERROR] Invalid location format, comma count: %d\n", count);
        return VK_ERR_PARAM;
    }
    snprintf(copy, sizeof copy, "%s", text);
    return VK_OK;
}

uint32_t vk_take_fields(char *copy, std::span<const char *const> missing, const char **fields) {
    char *cursor = copy;
    for (size_t i = 0; i < missing.size(); ++i) {
        const char *rest = cursor;
        fields[i] = vk_next_field(&cursor);
        if (fields[i] == nullptr) {
            vk_log(missing[i], rest);
            return VK_ERR_PARAM;
        }
    }
    return VK_OK;
}
