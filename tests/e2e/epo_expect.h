// Expected console text and wire content of EPO runs, computed here from the
// file bytes, independently of the tool.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "tests/support/epo_frames.h"
#include "tests/support/harness.h"
#include "tools/epo_gen.h"

struct EpoFile {
    std::string path;
    std::string name;
    std::vector<uint8_t> bytes;
};

inline EpoFile make_epo(const std::string &dir, const EpoGenConfig &cfg, std::string name = "") {
    EpoFile f;
    f.name = name.empty() ? epogen_default_name(cfg) : name;
    f.path = dir + "/" + f.name;
    f.bytes = epogen_generate(cfg);
    write_file(f.path, f.bytes);
    return f;
}

inline EpoGenConfig epo_cfg(EpoGenKind kind, int segments = 0) {
    EpoGenConfig c;
    c.kind = kind;
    c.segments = segments;
    return c;
}

inline std::vector<uint8_t> record_at(const std::vector<uint8_t> &bytes, size_t offset) {
    return std::vector<uint8_t>(bytes.begin() + long(offset), bytes.begin() + long(offset + 72));
}

// The records of a file from offset on, in file order.
inline std::vector<std::vector<uint8_t>> records_of(const std::vector<uint8_t> &bytes,
                                                    size_t offset = 0) {
    std::vector<std::vector<uint8_t>> out;
    for (size_t o = offset; o + 72 <= bytes.size(); o += 72) out.push_back(record_at(bytes, o));
    return out;
}

inline uint32_t le32_at(const uint8_t *p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

// What the summary says of a file, worked out from its bytes.
struct EpoSummary {
    const char *type_text = "INVALID";
    int type = -1;
    int header_sats = -1;  // satellites a Galileo or BeiDou header lists
    uint32_t size = 0, segments = 0;
    double days = 0;
    uint64_t start = 0, end = 0;
};

inline EpoSummary summarize(const std::vector<uint8_t> &b) {
    EpoSummary s;
    s.size = uint32_t(b.size());
    if (b.size() < 144) return s;
    uint8_t svid = b[75];
    uint32_t hour = uint32_t(b[72]) | uint32_t(b[73]) << 8 | uint32_t(b[74]) << 16;
    int type = -1;
    if (svid >= 1 && svid <= 32)
        type = 0;
    else if (svid >= 101 && svid <= 136)
        type = 2;
    else if ((svid >= 201 && svid <= 254) || (svid >= 190 && svid <= 198))
        type = 3;
    if (type == 0 && b.size() % 4032 == 0 && b.size() >= 2304 + 72 && b[2307] >= 65 &&
        b[2307] <= 88)
        type = 1;
    uint32_t segs = 0;
    if (type == 0) segs = s.size / 2304;
    if (type == 1) segs = s.size / 4032;
    if (type == 2 || type == 3) {
        int n = __builtin_popcount(le32_at(&b[4])) + __builtin_popcount(le32_at(&b[16]));
        s.header_sats = n;
        if (n == 0)
            type = -1;
        else
            segs = (s.size - 72) / (uint32_t(n) * 72);
    }
    static const char *const kText[] = {"GPS ONLY", "GPS + GLONASS", "GALILEO ONLY", "BDS ONLY"};
    s.type = type;
    if (type < 0) return s;
    s.type_text = kText[type];
    s.segments = segs;
    s.days = segs * 6.0 / 24.0;
    s.start = uint32_t(hour * 3600u);
    s.end = s.start + uint64_t(segs) * 21600;
    return s;
}

// The six "[EPO INFO]" lines at a level, with the given type text.
inline std::string summary_lines(const char *level, const std::string &type_text,
                                 const EpoSummary &s) {
    auto utc = [](uint64_t gps) {
        time_t t = time_t(gps + 315964800);
        struct tm u {};
        gmtime_r(&t, &u);
        char buf[64];
        snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:00:00", u.tm_year + 1900, u.tm_mon + 1,
                 u.tm_mday, u.tm_hour);
        return std::string(buf);
    };
    char buf[512];
    std::string out;
    snprintf(buf, sizeof buf, "[SSS.mmm][%s] [EPO INFO] Type: %s\r\n", level, type_text.c_str());
    out += buf;
    snprintf(buf, sizeof buf, "[SSS.mmm][%s] [EPO INFO] File Size: %u\r\n", level, s.size);
    out += buf;
    snprintf(buf, sizeof buf, "[SSS.mmm][%s] [EPO INFO] Segment: %u\r\n", level, s.segments);
    out += buf;
    snprintf(buf, sizeof buf, "[SSS.mmm][%s] [EPO INFO] Valid Days: %.2f\r\n", level, s.days);
    out += buf;
    snprintf(buf, sizeof buf,
             "[SSS.mmm][%s] [EPO INFO] GPST: (Week %llu Tow %llu)~(Week %llu Tow %llu)\r\n", level,
             (unsigned long long)(s.start / 604800), (unsigned long long)(s.start % 604800),
             (unsigned long long)(s.end / 604800), (unsigned long long)(s.end % 604800));
    out += buf;
    out += "[SSS.mmm][" + std::string(level) + "] [EPO INFO] UTC: (" + utc(s.start) + ")~(" +
           utc(s.end) + ")\n";
    return out;
}

// What decoding a file prints: its path, the header count, the summary.
inline std::string decode_lines(const EpoFile &f) {
    EpoSummary s = summarize(f.bytes);
    std::string out = "[SSS.mmm][DEBUG] Get epo info from file, Path: " + f.path + "\r\n";
    if (s.header_sats >= 0)
        out += "[SSS.mmm][DEBUG] svid = " + std::to_string(s.header_sats) + "\n";
    if (s.header_sats == 0) out += "[SSS.mmm][ERROR] EPO header lists no satellite\n";
    return out + summary_lines("DEBUG", s.type_text, s);
}

// The decode lines and the summary a transfer prints before it starts.
inline std::string decode_block(const EpoFile &f) {
    EpoSummary s = summarize(f.bytes);
    return decode_lines(f) + summary_lines("INFO", s.type_text, s);
}

inline std::string epo_progress(uint32_t sent, uint32_t total) {
    char buf[64];
    snprintf(buf, sizeof buf, "[SSS.mmm][PROGRESS] %.2f%%\r\n",
             double(float(100.0f * float(sent) / float(total))));
    return buf;
}

// Progress lines after each of count records of 72 bytes, against total.
inline std::string progress_run(uint32_t count, uint32_t total, uint32_t sent_before = 0) {
    std::string out;
    for (uint32_t i = 1; i <= count; ++i) out += epo_progress(sent_before + 72 * i, total);
    return out;
}

// The payload of a begin or end frame: the system letter, zero-padded.
inline std::vector<uint8_t> marker_payload(char letter, size_t len) {
    std::vector<uint8_t> p(len, 0);
    p[0] = uint8_t(letter);
    return p;
}
