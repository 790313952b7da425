// Deterministic "PSTMEPHEM" ephemeris text files for the STA8100 platform's
// "nmea" firmware type: one NMEA-style sentence per GPS satellite, with
// optional damage for the readers' failure paths, and the readers' own view
// of such lines (which lines they take, the week and toe they compute).
//
// Line layout (one line per satellite, satellites 1..N in order):
//
//   $PSTMEPHEM,<sat>,<bytes>,<hex>*<CS>\r\n
//
//   <sat>    satellite number, decimal without leading zeros (1..32)
//   <bytes>  bytes in the block, decimal: 64
//   <hex>    the ephemeris block, two upper-case hex digits per byte in
//            block order (128 digits)
//   <CS>     two upper-case hex digits: the XOR of every character between
//            '$' and '*'
//
// Block layout (multi-byte fields little-endian, so each field's hex
// digits come low byte first):
//   byte 0, 1   GPS week (full, not cut to 10 bits)
//   byte 2, 3   toe / 16
//   byte 4, 5   toc / 16 (equal to toe)
//   byte 6      satellite number
//   byte 7      IODE
//   byte 8..63  seed-driven, opaque to the tool (passed on as they are)
//
// The week therefore starts right after the third comma: week 2400 (0x0960)
// reads "6009", toe 345600 (21600 = 0x5460) "6054".
//
// How the tool reads these lines back: the summary takes the four
// characters after the third comma as c1 c2 c3 c4 and computes
// (c1 << 4) + c2 + (c3 << 12) + (c4 << 8) with each c = character - '0',
// and toe the same way from the next four, times 16. That gives the right
// numbers only while every hex digit of the field is 0-9: weeks and toes
// whose hex digits hold A-F are misread (see pstm_tool_week_toe). The
// sender passes each line on as it is, reading lines of up to 199
// characters; every line here has 149 or 150 (one or two satellite digits).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

constexpr const char *PSTM_TAG = "PSTMEPHEM";
constexpr uint32_t PSTM_BLOCK_BYTES = 64;
constexpr uint32_t PSTM_WEEK_OFFSET = 0;  // u16 in the block
constexpr uint32_t PSTM_TOE_OFFSET = 2;   // u16, toe / 16
constexpr uint32_t PSTM_TOC_OFFSET = 4;   // u16, toc / 16
constexpr uint32_t PSTM_SAT_OFFSET = 6;
constexpr uint32_t PSTM_IODE_OFFSET = 7;
// The longest line (line end included) the sender reads whole.
constexpr uint32_t PSTM_SENDER_MAX_LINE = 199;
constexpr int PSTM_MAX_SAT = 32;
constexpr uint32_t PSTM_MAX_WEEK = 0xFFFF;  // the field has 16 bits

// ---------------------------------------------------------------------------
// Generator

enum class PstmDamage {
    None,
    // Line damage_line names another sentence ("$PSTMDUMMY"): still a '$'
    // line with its fields and a right checksum, but without the tag.
    NoTag,
    // An empty line ("\r\n") stands at index damage_line; the satellites'
    // lines fill the others (one line more than satellites).
    BlankLine,
    // Line damage_line lacks its leading '$' (it starts with "PSTMEPHEM";
    // the checksum, which never covers the '$', still matches).
    NoDollar,
    // The eight week and toe characters of line damage_line are 'X', which
    // is no hex digit (checksum recomputed, so the letters are the line's
    // only fault).
    Letters,
};

struct PstmGenConfig {
    int sats = 32;          // GPS satellites 1..N, N in 1..32
    uint32_t week = 2400;   // GPS week, 0..65535
    uint32_t toe = 345600;  // seconds, a multiple of 16 below 604800
    uint64_t seed = 1;
    PstmDamage damage = PstmDamage::None;
    // Index of the damaged line in the written file, from 0; -1 means the
    // last line. A blank line may also stand after the last satellite's
    // line (index sats).
    int damage_line = 0;
};

struct PstmGenStats {
    uint32_t lines = 0;      // lines in the file (a blank line counts)
    uint32_t sat_lines = 0;  // lines carrying a satellite's block
    uint64_t bytes = 0;      // final size
};

// "none", "no-tag", "blank-line", "no-dollar", "letters".
const char *pstmgen_damage_token(PstmDamage damage);
// A token above (underscores accepted for dashes).
bool pstmgen_parse_damage(const char *text, PstmDamage *damage);

// The block of one satellite: week, toe, toc, satellite and IODE where the
// layout puts them, every other byte from seed and satellite alone.
void pstmgen_make_block(uint64_t seed, int sat, uint32_t week, uint32_t toe,
                        uint8_t out[PSTM_BLOCK_BYTES]);
// "$" + body + "*CS\r\n" for a body (the text between '$' and '*').
std::string pstm_sentence(const std::string &body);
// One satellite's whole line, line end included.
std::string pstmgen_make_line(uint64_t seed, int sat, uint32_t week, uint32_t toe);
// Four hex digits of a 16-bit value, low byte first: 0x0960 -> "6009".
std::string pstm_hex16_le(uint32_t value);
// Whether the tool reads value's four digits back as value: all are 0-9.
bool pstm_digits_read_back(uint32_t value);

// Checks cfg; on failure returns false and, if err is given, a reason.
bool pstmgen_validate(const PstmGenConfig &cfg, std::string *err);
// The file's text. Empty when cfg does not validate.
std::string pstmgen_generate(const PstmGenConfig &cfg, PstmGenStats *stats = nullptr);
// Validates, generates and writes in one step. False with a reason on failure.
bool pstmgen_write_file(const PstmGenConfig &cfg, const char *path, PstmGenStats *stats,
                        std::string *err);
// Whether the tool takes a file of this path: it must contain ".txt".
bool pstmgen_is_usual_name(const char *path);

// The whole command line of vkagnss-pstmgen (argv[0] is skipped): parses,
// writes the file, prints the summary line. Returns the exit status: 0 done
// (or --help), 1 the file could not be made, 2 a usage error.
int pstmgen_main(int argc, char **argv);

// ---------------------------------------------------------------------------
// The readers' view

// The file cut into lines, each with its line end ("\n" or "\r\n"); a last
// line without one is kept as it is.
std::vector<std::string> pstm_split_lines(const std::string &text);
// The summary takes a line when it holds the tag and at least three commas.
bool pstm_summary_takes(const std::string &line);
// The sender passes a line on when it starts with '$'.
bool pstm_sender_takes(const std::string &line);
// Whether the line's "*CS" matches the XOR of the characters between '$'
// (or the line start) and '*'. False when there is no '*' followed by two
// hex digits.
bool pstm_checksum_ok(const std::string &line);
// The week and toe as the tool's summary computes them from a line: the
// four characters after the third comma with (c1 << 4) + c2 + (c3 << 12) +
// (c4 << 8), c = character - '0' (letters and other characters included
// as they fall), and toe from the next four the same way, times 16. False
// when the line has fewer than three commas or fewer than eight characters
// after the third.
bool pstm_tool_week_toe(const std::string &line, int32_t *week, int32_t *toe);
