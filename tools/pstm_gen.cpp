// Deterministic "PSTMEPHEM" ephemeris text files. See pstm_gen.h.
#include "tools/pstm_gen.h"

#include <cstdio>
#include <cstring>

#include "tools/gen_common.h"
#include "tools/tool_cli.h"

namespace {

constexpr uint32_t kWeekSeconds = 604800;

bool fail(std::string *err, const std::string &text) {
    if (err) *err = text;
    return false;
}

void put_u16(uint8_t *p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

const char kHex[] = "0123456789ABCDEF";

void append_hex(std::string &s, uint8_t b) {
    s += kHex[b >> 4];
    s += kHex[b & 0x0F];
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

uint8_t xor_of(const std::string &s, size_t from, size_t to) {
    uint8_t x = 0;
    for (size_t i = from; i < to; ++i) x = static_cast<uint8_t>(x ^ static_cast<uint8_t>(s[i]));
    return x;
}

// Position of the third comma, npos when there are fewer.
size_t third_comma(const std::string &line) {
    size_t pos = std::string::npos;
    for (int n = 0; n < 3; ++n) {
        pos = line.find(',', pos == std::string::npos ? 0 : pos + 1);
        if (pos == std::string::npos) return pos;
    }
    return pos;
}

// Index of the satellite line written at file line i when a blank line
// stands at blank (or -1 for none); -1 for the blank line itself.
int sat_of_line(int i, int blank) {
    if (blank < 0 || i < blank) return i + 1;
    if (i == blank) return -1;
    return i;
}

// The text between '$' and '*' of a generated line.
std::string body_of(const std::string &line) {
    const size_t star = line.find('*');
    return line.substr(1, star - 1);
}

const struct {
    const char *name;
    PstmDamage kind;
} kDamageNames[] = {
    // the first name of a kind is the one the summary line prints
    {"none", PstmDamage::None},
    {"no-tag", PstmDamage::NoTag},
    {"blank-line", PstmDamage::BlankLine},
    {"no-dollar", PstmDamage::NoDollar},
    {"letters", PstmDamage::Letters},
};

}  // namespace

const char *pstmgen_damage_token(PstmDamage damage) {
    for (const auto &k : kDamageNames)
        if (k.kind == damage) return k.name;
    return "?";
}

bool pstmgen_parse_damage(const char *text, PstmDamage *damage) {
    std::string t = text ? text : "";
    for (char &c : t)
        if (c == '_') c = '-';
    for (const auto &k : kDamageNames)
        if (t == k.name) {
            *damage = k.kind;
            return true;
        }
    return false;
}

// ---------------------------------------------------------------------------
// Lines

void pstmgen_make_block(uint64_t seed, int sat, uint32_t week, uint32_t toe,
                        uint8_t out[PSTM_BLOCK_BYTES]) {
    uint64_t state = seed * 0xD1B54A32D192ED03ull;
    state ^= static_cast<uint64_t>(sat) << 48;
    state ^= static_cast<uint64_t>(week) * kWeekSeconds + toe;
    for (uint32_t i = 0; i < PSTM_BLOCK_BYTES; i += 8) {
        const uint64_t v = gen_splitmix64(state);
        for (uint32_t b = 0; b < 8 && i + b < PSTM_BLOCK_BYTES; ++b)
            out[i + b] = static_cast<uint8_t>(v >> 8 * b);
    }
    put_u16(out + PSTM_WEEK_OFFSET, week);
    put_u16(out + PSTM_TOE_OFFSET, toe / 16);
    put_u16(out + PSTM_TOC_OFFSET, toe / 16);
    out[PSTM_SAT_OFFSET] = static_cast<uint8_t>(sat);
    // out[PSTM_IODE_OFFSET] keeps its seed-driven value
}

std::string pstm_sentence(const std::string &body) {
    std::string s = "$" + body + "*";
    append_hex(s, xor_of(body, 0, body.size()));
    s += "\r\n";
    return s;
}

std::string pstmgen_make_line(uint64_t seed, int sat, uint32_t week, uint32_t toe) {
    uint8_t block[PSTM_BLOCK_BYTES];
    pstmgen_make_block(seed, sat, week, toe, block);
    std::string body = std::string(PSTM_TAG) + "," + std::to_string(sat) + "," +
                       std::to_string(PSTM_BLOCK_BYTES) + ",";
    for (uint8_t b : block) append_hex(body, b);
    return pstm_sentence(body);
}

std::string pstm_hex16_le(uint32_t value) {
    std::string s;
    append_hex(s, static_cast<uint8_t>(value));
    append_hex(s, static_cast<uint8_t>(value >> 8));
    return s;
}

bool pstm_digits_read_back(uint32_t value) {
    if (value > 0xFFFF) return false;
    for (char c : pstm_hex16_le(value))
        if (c < '0' || c > '9') return false;
    return true;
}

// ---------------------------------------------------------------------------
// The file

bool pstmgen_validate(const PstmGenConfig &cfg, std::string *err) {
    if (cfg.sats < 1 || cfg.sats > PSTM_MAX_SAT) return fail(err, "satellites must be 1..32");
    if (cfg.week > PSTM_MAX_WEEK) return fail(err, "week must be 0..65535");
    if (cfg.toe >= kWeekSeconds || cfg.toe % 16 != 0)
        return fail(err, "toe must be a multiple of 16 below 604800");
    if (cfg.damage != PstmDamage::None) {
        const int lines = cfg.sats + (cfg.damage == PstmDamage::BlankLine ? 1 : 0);
        if (cfg.damage_line < -1) return fail(err, "damaged line index must be -1 or more");
        if (cfg.damage_line >= lines) return fail(err, "damaged line index beyond the last line");
    }
    return true;
}

std::string pstmgen_generate(const PstmGenConfig &cfg, PstmGenStats *stats) {
    PstmGenStats st;
    std::string text;
    if (!pstmgen_validate(cfg, nullptr)) {
        if (stats) *stats = st;
        return text;
    }
    const bool blank = cfg.damage == PstmDamage::BlankLine;
    const int lines = cfg.sats + (blank ? 1 : 0);
    const int damaged = cfg.damage_line < 0 ? lines - 1 : cfg.damage_line;
    for (int i = 0; i < lines; ++i) {
        const int sat = sat_of_line(i, blank ? damaged : -1);
        if (sat < 0) {
            text += "\r\n";
            ++st.lines;
            continue;
        }
        std::string line = pstmgen_make_line(cfg.seed, sat, cfg.week, cfg.toe);
        if (i == damaged) {
            switch (cfg.damage) {
                case PstmDamage::None:
                case PstmDamage::BlankLine: break;
                case PstmDamage::NoTag: {
                    std::string body = body_of(line);
                    body.replace(0, std::strlen(PSTM_TAG), "PSTMDUMMY");
                    line = pstm_sentence(body);
                    break;
                }
                case PstmDamage::NoDollar: line.erase(0, 1); break;
                case PstmDamage::Letters: {
                    std::string body = body_of(line);
                    const size_t at = third_comma(body) + 1;
                    body.replace(at, 8, "XXXXXXXX");
                    line = pstm_sentence(body);
                    break;
                }
            }
        }
        text += line;
        ++st.lines;
        ++st.sat_lines;
    }
    st.bytes = text.size();
    if (stats) *stats = st;
    return text;
}

bool pstmgen_write_file(const PstmGenConfig &cfg, const char *path, PstmGenStats *stats,
                        std::string *err) {
    if (!pstmgen_validate(cfg, err)) return false;
    const std::string text = pstmgen_generate(cfg, stats);
    if (text.empty()) return fail(err, "generation failed");
    return gen_write_bytes(path, std::vector<uint8_t>(text.begin(), text.end()), err);
}

bool pstmgen_is_usual_name(const char *path) {
    return path && std::strstr(path, ".txt") != nullptr;
}

// ---------------------------------------------------------------------------
// The readers' view

std::vector<std::string> pstm_split_lines(const std::string &text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        const size_t nl = text.find('\n', start);
        const size_t end = nl == std::string::npos ? text.size() : nl + 1;
        lines.push_back(text.substr(start, end - start));
        start = end;
    }
    return lines;
}

bool pstm_summary_takes(const std::string &line) {
    return line.find(PSTM_TAG) != std::string::npos && third_comma(line) != std::string::npos;
}

bool pstm_sender_takes(const std::string &line) { return !line.empty() && line[0] == '$'; }

bool pstm_checksum_ok(const std::string &line) {
    const size_t from = !line.empty() && line[0] == '$' ? 1 : 0;
    const size_t star = line.find('*', from);
    if (star == std::string::npos || star + 2 >= line.size()) return false;
    const int hi = hex_value(line[star + 1]);
    const int lo = hex_value(line[star + 2]);
    if (hi < 0 || lo < 0) return false;
    return xor_of(line, from, star) == static_cast<uint8_t>(hi << 4 | lo);
}

bool pstm_tool_week_toe(const std::string &line, int32_t *week, int32_t *toe) {
    const size_t i = third_comma(line);
    if (i == std::string::npos || line.size() < i + 9) return false;
    auto field = [&](size_t at) {
        const int32_t c1 = line[at] - '0', c2 = line[at + 1] - '0';
        const int32_t c3 = line[at + 2] - '0', c4 = line[at + 3] - '0';
        return (c1 << 4) + c2 + (c3 << 12) + (c4 << 8);
    };
    if (week) *week = field(i + 1);
    if (toe) *toe = field(i + 5) * 16;
    return true;
}

// ---------------------------------------------------------------------------
// Command line

static void usage(std::FILE *to) {
    std::fprintf(
        to,
        "usage: vkagnss-pstmgen -o FILE [options]\n"
        "Writes a \"PSTMEPHEM\" ephemeris text file for the STA8100 (firmware type nmea):\n"
        "one line \"$PSTMEPHEM,<sat>,64,<128 hex digits>*CS\" per GPS satellite, the\n"
        "block's first bytes the GPS week and toe / 16, each 16-bit little-endian (so\n"
        "their hex digits come low byte first), the rest deterministic. The tool takes\n"
        "only files whose name holds \".txt\", and reads the week and toe right only\n"
        "while their hex digits are all 0-9 (week 2400 and toe 345600 are).\n"
        "  -o FILE               output file (required)\n"
        "  --sats N              GPS satellites 1..N, N up to 32 (default 32)\n"
        "  --week W              GPS week, 0..65535 (default 2400)\n"
        "  --toe S               toe in seconds, a multiple of 16 (default 345600)\n"
        "  --seed N              block seed (default 1)\n"
        "  --damage KIND         none, no-tag (another sentence name), blank-line (an\n"
        "                        empty line), no-dollar (no leading '$'), letters (week\n"
        "                        and toe digits 'X') (default none)\n"
        "  --damage-line K       line damaged, from 0; -1 = the last (default 0); a blank\n"
        "                        line may also follow the last satellite's (K = N)\n"
        "  --help                this text\n");
}

int pstmgen_main(int argc, char **argv) {
    PstmGenConfig cfg;
    const char *out_path = nullptr;

    CliArgs args = cli_args("vkagnss-pstmgen", usage, argc, argv);
    CliOption o;
    CliRead r;
    while ((r = cli_read(args, &o)) == CliRead::Option) {
        const char *v = o.value;
        bool ok = true;
        if (o.name == "-o" || o.name == "--output") {
            out_path = v;
        } else if (o.name == "--sats") {
            ok = cli_parse_int(v, 1, PSTM_MAX_SAT, &cfg.sats);
        } else if (o.name == "--week") {
            ok = cli_parse_int(v, 0, PSTM_MAX_WEEK, &cfg.week);
        } else if (o.name == "--toe") {
            ok = cli_parse_int(v, 0, kWeekSeconds - 1, &cfg.toe) && cfg.toe % 16 == 0;
        } else if (o.name == "--seed") {
            ok = cli_parse_u64(v, &cfg.seed);
        } else if (o.name == "--damage") {
            ok = pstmgen_parse_damage(v, &cfg.damage);
        } else if (o.name == "--damage-line") {
            ok = cli_parse_int(v, -1, 100000000, &cfg.damage_line);
        } else {
            return cli_usage_error(args, "unknown option " + o.name);
        }
        if (!ok) return cli_bad_value(args, o);
    }
    if (r != CliRead::End) return cli_exit_status(r);
    if (!out_path) return cli_usage_error(args, "-o FILE is required");

    std::string err;
    if (!pstmgen_validate(cfg, &err)) return cli_usage_error(args, err);
    PstmGenStats st;
    if (!pstmgen_write_file(cfg, out_path, &st, &err)) return cli_fail(args, err, 1);
    if (!pstmgen_is_usual_name(out_path))
        std::fprintf(stderr,
                     "vkagnss-pstmgen: note: the tool takes only files whose name holds"
                     " \".txt\"\n");

    // What the tool's summary will make of the file: it takes the times from
    // the first line, and only when it accepts that line.
    const std::string text = pstmgen_generate(cfg);
    const std::vector<std::string> lines = pstm_split_lines(text);
    std::string reads;
    int32_t w = 0, t = 0;
    if (lines.empty() || !pstm_summary_takes(lines[0]) || !pstm_tool_week_toe(lines[0], &w, &t))
        reads = "; the tool's summary rejects the first line";
    else if (w != static_cast<int32_t>(cfg.week) || t != static_cast<int32_t>(cfg.toe))
        reads = "; the tool reads week " + std::to_string(w) + " toe " + std::to_string(t);
    std::printf("%s: %u lines (%u satellites), %llu bytes, week %u toe %u, damage %s%s\n", out_path,
                st.lines, st.sat_lines, static_cast<unsigned long long>(st.bytes), cfg.week,
                cfg.toe, pstmgen_damage_token(cfg.damage), reads.c_str());
    return 0;
}
