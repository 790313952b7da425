// EPO files: decoding, summary, and the name and type tables.
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/log.h"
#include "core/number.h"
#include "epo/epo.h"
#include "toolkit/gnss_time.h"

namespace {

int32_t g_current_type = -1;

uint32_t le32(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

int bit_count(uint32_t v) {
    int n = 0;
    for (; v; v &= v - 1) ++n;
    return n;
}

int32_t type_of_svid(uint8_t s) {
    if (s >= 1 && s <= 32) return 0;
    if (s >= 101 && s <= 136) return 2;
    if ((s >= 201 && s <= 254) || (s >= 190 && s <= 198)) return 3;
    return -1;
}

// The six summary lines, at INFO (flushed) or DEBUG (not flushed) level.
void print_lines(const EpoInfo *info, const char *level, bool flush) {
    vk_print_epo_summary(level, flush, epo_type_text(info->type), info->file_size,
                         info->segment_count, info->valid_days, info->start_time, info->end_time);
}

}  // namespace

const char *epo_type_text(int32_t type) {
    switch (type) {
        case 0: return "GPS ONLY";
        case 1: return "GPS + GLONASS";
        case 2: return "GALILEO ONLY";
        case 3: return "BDS ONLY";
        case -1: return "INVALID";
        default: return "";
    }
}

EpoInfo *epo_decode_file(EpoInfo *info, const char *path) {
    EpoInfo r{};
    r.type = -1;
    vk_log("[DEBUG] Get epo info from file, Path: %s\r\n", path);
    FILE *f = vk_fopen_regular(path);
    if (f == nullptr) {
        perror("fopen");
    } else {
        uint8_t rec[EPO_RECORD_SIZE];
        fseek(f, 0, SEEK_END);
        r.file_size = uint32_t(ftell(f));
        fseek(f, EPO_RECORD_SIZE, SEEK_SET);
        size_t got = fread(rec, 1, EPO_RECORD_SIZE, f);
        if (got < EPO_RECORD_SIZE) {
            vk_log("[ERROR] data_head_len = %d,is wrong\n", int(got));
            goto done;
        }
        {
            uint32_t hour = uint32_t(rec[0]) | uint32_t(rec[1]) << 8 | uint32_t(rec[2]) << 16;
            r.start_time =
                uint32_t(hour * 3600u);  // wraps modulo 2^32, as the receiver's own tools do
            r.type = type_of_svid(rec[3]);
        }
        if (r.type == 0 && r.file_size % EPO_GR_SEGMENT == 0) {
            fseek(f, EPO_GPS_SEGMENT, SEEK_SET);
            got = fread(rec, 1, EPO_RECORD_SIZE, f);
            if (got < EPO_RECORD_SIZE) {
                vk_log("[ERROR] Read GR sat data_head_len = %d,is wrong\n", int(got));
                goto done;
            }
            if (rec[3] >= 65 && rec[3] <= 88) r.type = 1;
        }
        if (r.type == 0) {
            r.segment_count = r.file_size / EPO_GPS_SEGMENT;
        } else if (r.type == 1) {
            r.segment_count = r.file_size / EPO_GR_SEGMENT;
        } else if (r.type == 2 || r.type == 3) {
            fseek(f, 0, SEEK_SET);
            got = fread(rec, 1, EPO_RECORD_SIZE, f);
            if (got < EPO_RECORD_SIZE) {
                vk_log("[ERROR] Read BSD/GAL header data_head_len = %d,is wrong\n", int(got));
                goto done;
            }
            int sats = bit_count(le32(rec + 4)) + bit_count(le32(rec + 16));
            vk_log("[DEBUG] svid = %d\n", sats);
            if (sats == 0) {
                // A header that lists no satellite describes no data at all.
                vk_log("[ERROR] EPO header lists no satellite\n");
                r.type = -1;
            } else {
                r.segment_count =
                    (r.file_size - EPO_RECORD_SIZE) / (uint32_t(sats) * EPO_RECORD_SIZE);
            }
        }
        if (r.type == -1) {
            r.start_time = 0;
            r.end_time = 0;
            r.segment_count = 0;
        } else {
            r.end_time = r.start_time + uint64_t(r.segment_count) * EPO_SEGMENT_SECONDS;
        }
        r.valid_days = float(r.segment_count * 6.0 / 24.0);
    }
done:
    print_lines(&r, "DEBUG", false);
    if (f) fclose(f);
    *info = r;
    return info;
}

void epo_print_info(const EpoInfo *info) { print_lines(info, "INFO", true); }

void epo_to_agnss_info(const EpoInfo *epo, VkAgnssInfo *agnss) {
    agnss->file_size = epo->file_size;
    agnss->segment_count = epo->segment_count;
    agnss->valid_days = epo->valid_days;
    agnss->start_gps_s = epo->start_time;
    agnss->end_gps_s = epo->end_time;
    switch (epo->type) {
        case 0: agnss->sys_mask = 1; break;
        case 1: agnss->sys_mask = 3; break;
        case 2: agnss->sys_mask = 4; break;
        case 3: agnss->sys_mask = 8; break;
        default: agnss->sys_mask = 0; break;
    }
}

void epo_set_type(int32_t type) { g_current_type = type; }
int32_t epo_get_type() { return g_current_type; }

int32_t epo_prn_of_record(int32_t key, const uint8_t *record) {
    int32_t s = record[3];
    switch (key) {
        case 0: return s;
        case 1: return s - 64;
        case 2: return s == 255 ? 255 : s - 100;
        case 3: return s == 255 ? 255 : (s < 200 ? s - 135 : s - 200);
        default: return 0;
    }
}

int32_t epo_record_prn(const EpoDialect *d, int32_t type_or_mode, const uint8_t *record) {
    return epo_prn_of_record(d->files.prn_by_mode ? type_or_mode - 1 : type_or_mode, record);
}

void epo_parse_header(const char *hex_text, uint8_t *sv_list, int max_bits, int *count) {
    uint8_t header[EPO_RECORD_SIZE] = {0};
    size_t chars = strlen(hex_text);
    for (size_t i = 0; i < EPO_RECORD_SIZE && 2 * i + 1 < chars; ++i) {
        char pair[3] = {hex_text[2 * i], hex_text[2 * i + 1], '\0'};
        header[i] = uint8_t(strtoul(pair, nullptr, 16));
    }
    uint64_t mask = uint64_t(le32(header + 16)) << 32 | le32(header + 4);
    int n = 0;
    for (int bit = 0; bit < max_bits && bit < 64; ++bit)
        if (mask >> bit & 1u) sv_list[n++] = uint8_t(bit + 1);
    *count = n;
}

int32_t epo_system_letter(const EpoDialect *d, int32_t type, char *dst, size_t size) {
    for (const EpoLetter &l : d->files.letters) {
        if (l.type != type) continue;
        if (size > 0) snprintf(dst, size, "%s", l.letter);
        return 0;
    }
    vk_log("[ERROR] Invalid EPO type\n");
    return VK_ERR_PARAM;
}

int32_t epo_offline_type(const EpoDialect *d, const char *file_name, int32_t *day_count) {
    if (file_name == nullptr) return -1;
    for (const EpoNameRule &rule : d->files.offline_names) {
        const char *at = strstr(file_name, rule.text);
        if (at == nullptr) continue;
        // The day count of a numbered name follows its eight-character prefix.
        *day_count = rule.days >= 0 ? rule.days : vk_atoi(at + 8);
        vk_log(" EPO type:%d,day count:%d\n", rule.type, *day_count);
        return rule.type;
    }
    return -1;
}

int32_t epo_online_type(const EpoDialect *d, const char *file_name) {
    if (file_name == nullptr) {
        vk_log("[ERROR] invalid Filename parameter");
        return -1;
    }
    for (const EpoNameRule &rule : d->files.online_names)
        if (strstr(file_name, rule.text)) return rule.type;
    vk_log("[ERROR] Invalid EPO file name: %s\n", file_name);
    return -1;
}

int32_t epo_mode_of_type(const EpoDialect *d, int32_t type) {
    for (const EpoTypeValue &m : d->files.modes)
        if (m.type == type) return m.value;
    vk_log("[ERROR] get mode failed with type[%d]", type);
    return -1;
}
