// The "PSTMEPHEM" ephemeris text generator, its readers' view and its
// command line.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/fingerprint.h"
#include "tests/unit/gen_test_util.h"
#include "tools/pstm_gen.h"

namespace {

using gen_test::make_temp_file;
using gen_test::read_file;

// The XOR of the characters between '$' and '*', worked out here apart from
// the generator: two upper-case hex digits.
std::string xor_digits(const std::string &s, size_t from, size_t to) {
    unsigned x = 0;
    for (size_t i = from; i < to; ++i) x ^= static_cast<unsigned char>(s[i]);
    char buf[3];
    std::snprintf(buf, sizeof buf, "%02X", x);
    return buf;
}

// A generated line's own checksum digits are the XOR of its body.
void expect_checksum_right(const std::string &line) {
    const size_t from = line[0] == '$' ? 1 : 0;
    const size_t star = line.find('*');
    ASSERT_NE(star, std::string::npos) << line;
    ASSERT_EQ(line.size(), star + 5) << line;  // *CS\r\n
    EXPECT_EQ(line.substr(star + 1, 2), xor_digits(line, from, star)) << line;
    EXPECT_EQ(line.substr(star + 3), "\r\n");
}

// Bytes of the hex field of a well-formed line.
std::vector<uint8_t> block_of(const std::string &line) {
    size_t at = 0;
    for (int n = 0; n < 3; ++n) at = line.find(',', at) + 1;
    const size_t star = line.find('*');
    std::vector<uint8_t> b;
    for (size_t i = at; i + 1 < star; i += 2)
        b.push_back(static_cast<uint8_t>(std::stoul(line.substr(i, 2), nullptr, 16)));
    return b;
}

std::string text_of(const std::vector<uint8_t> &b) { return std::string(b.begin(), b.end()); }

int run_cli(std::vector<std::string> args, std::string *out, std::string *err) {
    args.insert(args.begin(), "vkagnss-pstmgen");
    std::vector<char *> argv;
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int rc = pstmgen_main(int(args.size()), argv.data());
    *out = testing::internal::GetCapturedStdout();
    *err = testing::internal::GetCapturedStderr();
    return rc;
}

}  // namespace

// ---------------------------------------------------------------------------
// One line

TEST(PstmGenLine, HandComputedFields) {
    const std::string line = pstmgen_make_line(1, 1, 2400, 345600);
    // Week 2400 = 0x0960 and toe / 16 = 21600 = 0x5460, each low byte first;
    // then toc (the same as toe) and satellite 01.
    EXPECT_EQ(line.substr(0, 30), "$PSTMEPHEM,1,64,60096054605401");
    EXPECT_EQ(line.size(), 149u);  // 16 + 128 hex digits + "*CS" + CR LF
    const size_t star = line.find('*');
    EXPECT_EQ(star, 16u + 128u);
    for (size_t i = 16; i < star; ++i) {
        const char c = line[i];
        EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << i;
    }
    expect_checksum_right(line);
    // Two-digit satellites make the line one longer.
    const std::string l12 = pstmgen_make_line(1, 12, 2400, 345600);
    EXPECT_EQ(l12.substr(0, 31), "$PSTMEPHEM,12,64,6009605460540C");
    EXPECT_EQ(l12.size(), 150u);
    expect_checksum_right(l12);
    // Another week and toe: 2401 = 0x0961, 7200 / 16 = 450 = 0x01C2.
    const std::string other = pstmgen_make_line(1, 3, 2401, 7200);
    EXPECT_EQ(other.substr(0, 30), "$PSTMEPHEM,3,64,6109C201C20103");
}

TEST(PstmGenLine, SentenceChecksumHandExamples) {
    EXPECT_EQ(pstm_sentence("A"), "$A*41\r\n");
    EXPECT_EQ(pstm_sentence("AB"), "$AB*03\r\n");
    // 'P' ^ 'S' ^ 'T' ^ 'M' ^ 'E' ^ 'P' ^ 'H' ^ 'E' ^ 'M' ^ ',' ^ '1' ^ ',' ^ '6' ^ '4' ^ ','
    EXPECT_EQ(pstm_sentence("PSTMEPHEM,1,64,"), "$PSTMEPHEM,1,64,*50\r\n");
    EXPECT_TRUE(pstm_checksum_ok("$AB*03\r\n"));
    EXPECT_TRUE(pstm_checksum_ok("AB*03\r\n"));  // no '$': from the line start
    EXPECT_FALSE(pstm_checksum_ok("$AB*04\r\n"));
    EXPECT_FALSE(pstm_checksum_ok("$AB*0"));
    EXPECT_FALSE(pstm_checksum_ok("$AB\r\n"));
    EXPECT_FALSE(pstm_checksum_ok("$AB*G3\r\n"));
}

TEST(PstmGenLine, BlockLayout) {
    uint8_t block[PSTM_BLOCK_BYTES];
    pstmgen_make_block(5, 17, 2400, 345600, block);
    EXPECT_EQ(block[0], 0x60);  // week, little-endian
    EXPECT_EQ(block[1], 0x09);
    EXPECT_EQ(block[2], 0x60);  // toe / 16
    EXPECT_EQ(block[3], 0x54);
    EXPECT_EQ(block[4], 0x60);  // toc / 16
    EXPECT_EQ(block[5], 0x54);
    EXPECT_EQ(block[6], 17);  // satellite
    const std::vector<uint8_t> from_line = block_of(pstmgen_make_line(5, 17, 2400, 345600));
    EXPECT_EQ(from_line, std::vector<uint8_t>(block, block + PSTM_BLOCK_BYTES));
    // The opaque bytes follow seed and satellite.
    uint8_t other[PSTM_BLOCK_BYTES];
    pstmgen_make_block(6, 17, 2400, 345600, other);
    EXPECT_EQ(std::vector<uint8_t>(other, other + 7), std::vector<uint8_t>(block, block + 7));
    EXPECT_NE(std::vector<uint8_t>(other + 8, other + 64),
              std::vector<uint8_t>(block + 8, block + 64));
}

TEST(PstmGenLine, HexFieldsLowByteFirstAndWhatTheToolReadsBack) {
    EXPECT_EQ(pstm_hex16_le(0x0960), "6009");
    EXPECT_EQ(pstm_hex16_le(21600), "6054");
    EXPECT_EQ(pstm_hex16_le(0x096A), "6A09");
    EXPECT_EQ(pstm_hex16_le(0), "0000");
    EXPECT_TRUE(pstm_digits_read_back(2400));
    EXPECT_TRUE(pstm_digits_read_back(21600));
    EXPECT_FALSE(pstm_digits_read_back(2410));   // 0x096A
    EXPECT_FALSE(pstm_digits_read_back(450));    // 0x01C2
    EXPECT_FALSE(pstm_digits_read_back(65536));  // no 16-bit value

    int32_t week = 0, toe = 0;
    ASSERT_TRUE(pstm_tool_week_toe(pstmgen_make_line(1, 1, 2400, 345600), &week, &toe));
    EXPECT_EQ(week, 2400);
    EXPECT_EQ(toe, 345600);
    // "6109": (6 << 4) + 1 + (0 << 12) + (9 << 8) = 2401. "C201": 'C' - '0' is
    // 19, so (19 << 4) + 2 + (0 << 12) + (1 << 8) = 562, toe 8992, not 7200.
    ASSERT_TRUE(pstm_tool_week_toe(pstmgen_make_line(1, 1, 2401, 7200), &week, &toe));
    EXPECT_EQ(week, 2401);
    EXPECT_EQ(toe, 8992);
    // Too few commas or characters.
    EXPECT_FALSE(pstm_tool_week_toe("$PSTMEPHEM,1,64", &week, &toe));
    EXPECT_FALSE(pstm_tool_week_toe("$PSTMEPHEM,1,64,6009605", &week, &toe));
    EXPECT_TRUE(pstm_tool_week_toe("$PSTMEPHEM,1,64,60096054", &week, &toe));
}

// ---------------------------------------------------------------------------
// The file

TEST(PstmGen, DefaultFileIs32LinesBothReadersTake) {
    PstmGenStats st;
    const std::string text = pstmgen_generate(PstmGenConfig(), &st);
    EXPECT_EQ(st.lines, 32u);
    EXPECT_EQ(st.sat_lines, 32u);
    EXPECT_EQ(text.size(), 9u * 149u + 23u * 150u);
    EXPECT_EQ(st.bytes, text.size());
    const std::vector<std::string> lines = pstm_split_lines(text);
    ASSERT_EQ(lines.size(), 32u);
    size_t total = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string &l = lines[i];
        SCOPED_TRACE(l);
        EXPECT_EQ(l.rfind("$PSTMEPHEM," + std::to_string(i + 1) + ",64,", 0), 0u);
        EXPECT_LE(l.size(), PSTM_SENDER_MAX_LINE);
        EXPECT_TRUE(pstm_summary_takes(l));
        EXPECT_TRUE(pstm_sender_takes(l));
        EXPECT_TRUE(pstm_checksum_ok(l));
        expect_checksum_right(l);
        int32_t week = 0, toe = 0;
        ASSERT_TRUE(pstm_tool_week_toe(l, &week, &toe));
        EXPECT_EQ(week, 2400);
        EXPECT_EQ(toe, 345600);
        EXPECT_EQ(l, pstmgen_make_line(1, int(i + 1), 2400, 345600));
        const std::vector<uint8_t> b = block_of(l);
        ASSERT_EQ(b.size(), 64u);
        EXPECT_EQ(b[6], i + 1);
        total += l.size();
    }
    // The lines, line ends included, add up to the file: what the sender
    // counts against the file size.
    EXPECT_EQ(total, text.size());
}

TEST(PstmGen, SatellitesWeekAndToe) {
    PstmGenConfig cfg;
    cfg.sats = 3;
    cfg.week = 2350;  // 0x092E: the tool misreads it
    cfg.toe = 0;
    const std::string text = pstmgen_generate(cfg);
    const std::vector<std::string> lines = pstm_split_lines(text);
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string &l : lines) {
        const std::vector<uint8_t> b = block_of(l);
        EXPECT_EQ(b[0] | b[1] << 8, 2350);
        EXPECT_EQ(b[2] | b[3] << 8, 0);
    }
    EXPECT_EQ(lines[0].substr(16, 8), "2E090000");
    int32_t week = 0, toe = 0;
    ASSERT_TRUE(pstm_tool_week_toe(lines[0], &week, &toe));
    // '2' (2 << 4) + 'E' (21) + '0' (0 << 12) + '9' (9 << 8) = 32 + 21 + 2304
    EXPECT_EQ(week, 2357);
    EXPECT_EQ(toe, 0);
}

TEST(PstmGen, FixedSeedGivesFixedText) {
    // Pins the generator: the same configuration gives the same text on
    // every platform and library. Recorded when the generator was written.
    const std::string all = pstmgen_generate(PstmGenConfig());
    ASSERT_EQ(all.size(), 4791u);
    EXPECT_EQ(fingerprint_crc32(reinterpret_cast<const uint8_t *>(all.data()), all.size()),
              0xBBF3EC02u);
    PstmGenConfig one;
    one.sats = 1;
    one.seed = 7;
    const std::string l = pstmgen_generate(one);
    ASSERT_EQ(l.size(), 149u);
    EXPECT_EQ(fingerprint_crc32(reinterpret_cast<const uint8_t *>(l.data()), l.size()),
              0x12B18083u);
    EXPECT_EQ(pstmgen_generate(one), l);
}

TEST(PstmGen, SeedChangesOnlyTheOpaqueBytes) {
    PstmGenConfig a;
    a.sats = 4;
    PstmGenConfig b = a;
    b.seed = 2;
    const std::vector<std::string> la = pstm_split_lines(pstmgen_generate(a));
    const std::vector<std::string> lb = pstm_split_lines(pstmgen_generate(b));
    ASSERT_EQ(la.size(), 4u);
    ASSERT_EQ(lb.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        const std::vector<uint8_t> ba = block_of(la[i]), bb = block_of(lb[i]);
        EXPECT_EQ(std::vector<uint8_t>(ba.begin(), ba.begin() + 7),
                  std::vector<uint8_t>(bb.begin(), bb.begin() + 7));
        EXPECT_NE(std::vector<uint8_t>(ba.begin() + 8, ba.end()),
                  std::vector<uint8_t>(bb.begin() + 8, bb.end()));
        EXPECT_EQ(la[i].size(), lb[i].size());
    }
}

// ---------------------------------------------------------------------------
// Damage

namespace {

// The damaged file against the undamaged one: every line but the damaged
// one (for the blank line: with it taken out) is the same.
void expect_others_unchanged(const std::vector<std::string> &good,
                             const std::vector<std::string> &bad, size_t damaged, bool inserted) {
    ASSERT_EQ(bad.size(), good.size() + (inserted ? 1 : 0));
    for (size_t i = 0, j = 0; i < bad.size(); ++i) {
        if (i == damaged) {
            if (!inserted) ++j;
            continue;
        }
        EXPECT_EQ(bad[i], good[j]) << "line " << i;
        ++j;
    }
}

}  // namespace

TEST(PstmGenDamage, NoTagIsAnotherSentenceTheSummaryRefuses) {
    PstmGenConfig cfg;
    cfg.sats = 5;
    const std::vector<std::string> good = pstm_split_lines(pstmgen_generate(cfg));
    cfg.damage = PstmDamage::NoTag;
    for (int k : {0, 2, 4, -1}) {
        SCOPED_TRACE(k);
        cfg.damage_line = k;
        PstmGenStats st;
        const std::vector<std::string> bad = pstm_split_lines(pstmgen_generate(cfg, &st));
        const size_t d = k < 0 ? 4 : size_t(k);
        expect_others_unchanged(good, bad, d, false);
        EXPECT_EQ(st.lines, 5u);
        const std::string &l = bad[d];
        EXPECT_EQ(l.find("PSTMEPHEM"), std::string::npos);
        EXPECT_EQ(l.rfind("$PSTMDUMMY,", 0), 0u);
        EXPECT_EQ(l.substr(10, l.find('*') - 10), good[d].substr(10, good[d].find('*') - 10));
        expect_checksum_right(l);
        EXPECT_FALSE(pstm_summary_takes(l));
        EXPECT_TRUE(pstm_sender_takes(l));
    }
}

TEST(PstmGenDamage, BlankLineStandsAtItsIndex) {
    PstmGenConfig cfg;
    cfg.sats = 5;
    const std::vector<std::string> good = pstm_split_lines(pstmgen_generate(cfg));
    cfg.damage = PstmDamage::BlankLine;
    for (int k : {0, 3, 5, -1}) {
        SCOPED_TRACE(k);
        cfg.damage_line = k;
        PstmGenStats st;
        const std::string text = pstmgen_generate(cfg, &st);
        const std::vector<std::string> bad = pstm_split_lines(text);
        const size_t d = k < 0 ? 5 : size_t(k);
        expect_others_unchanged(good, bad, d, true);
        EXPECT_EQ(bad[d], "\r\n");
        EXPECT_EQ(st.lines, 6u);
        EXPECT_EQ(st.sat_lines, 5u);
        EXPECT_EQ(text.size(), 5u * 149u + 2u);
        EXPECT_FALSE(pstm_summary_takes(bad[d]));
        EXPECT_FALSE(pstm_sender_takes(bad[d]));
    }
}

TEST(PstmGenDamage, NoDollarTheSummaryTakesAndTheSenderRefuses) {
    PstmGenConfig cfg;
    cfg.sats = 5;
    const std::vector<std::string> good = pstm_split_lines(pstmgen_generate(cfg));
    cfg.damage = PstmDamage::NoDollar;
    for (int k : {0, 1, -1}) {
        SCOPED_TRACE(k);
        cfg.damage_line = k;
        const std::vector<std::string> bad = pstm_split_lines(pstmgen_generate(cfg));
        const size_t d = k < 0 ? 4 : size_t(k);
        expect_others_unchanged(good, bad, d, false);
        EXPECT_EQ(bad[d], good[d].substr(1));
        EXPECT_EQ(bad[d].rfind("PSTMEPHEM,", 0), 0u);
        EXPECT_TRUE(pstm_checksum_ok(bad[d]));  // the checksum never covered the '$'
        EXPECT_TRUE(pstm_summary_takes(bad[d]));
        EXPECT_FALSE(pstm_sender_takes(bad[d]));
    }
}

TEST(PstmGenDamage, LettersInTheWeekAndToeDigits) {
    PstmGenConfig cfg;
    cfg.sats = 5;
    const std::vector<std::string> good = pstm_split_lines(pstmgen_generate(cfg));
    cfg.damage = PstmDamage::Letters;
    for (int k : {0, 2, -1}) {
        SCOPED_TRACE(k);
        cfg.damage_line = k;
        const std::vector<std::string> bad = pstm_split_lines(pstmgen_generate(cfg));
        const size_t d = k < 0 ? 4 : size_t(k);
        expect_others_unchanged(good, bad, d, false);
        const std::string &l = bad[d];
        // "$PSTMEPHEM,N,64," then eight 'X' where "60096054" stood.
        const size_t at = l.find(",64,") + 4;
        EXPECT_EQ(l.substr(at, 8), "XXXXXXXX");
        EXPECT_EQ(good[d].substr(at, 8), "60096054");
        const size_t star = l.find('*');
        EXPECT_EQ(l.substr(0, at), good[d].substr(0, at));
        EXPECT_EQ(l.substr(at + 8, star - at - 8), good[d].substr(at + 8, star - at - 8));
        expect_checksum_right(l);
        EXPECT_TRUE(pstm_summary_takes(l));
        EXPECT_TRUE(pstm_sender_takes(l));
        // 'X' - '0' = 40: (40 << 4) + 40 + (40 << 12) + (40 << 8) = 174760,
        // and the toe the same times 16.
        int32_t week = 0, toe = 0;
        ASSERT_TRUE(pstm_tool_week_toe(l, &week, &toe));
        EXPECT_EQ(week, 174760);
        EXPECT_EQ(toe, 2796160);
    }
}

TEST(PstmGenDamage, TokensAndIndexes) {
    for (PstmDamage d : {PstmDamage::None, PstmDamage::NoTag, PstmDamage::BlankLine,
                         PstmDamage::NoDollar, PstmDamage::Letters}) {
        PstmDamage back = PstmDamage::None;
        ASSERT_TRUE(pstmgen_parse_damage(pstmgen_damage_token(d), &back));
        EXPECT_EQ(back, d);
    }
    PstmDamage d = PstmDamage::None;
    EXPECT_TRUE(pstmgen_parse_damage("blank_line", &d));
    EXPECT_EQ(d, PstmDamage::BlankLine);
    EXPECT_FALSE(pstmgen_parse_damage("blank", &d));
    EXPECT_FALSE(pstmgen_parse_damage("", &d));

    PstmGenConfig cfg;
    cfg.sats = 3;
    cfg.damage = PstmDamage::NoTag;
    cfg.damage_line = 3;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.damage = PstmDamage::BlankLine;  // may follow the last line
    EXPECT_TRUE(pstmgen_validate(cfg, nullptr));
    cfg.damage_line = 4;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.damage_line = -2;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.damage = PstmDamage::None;  // no index checked without damage
    EXPECT_TRUE(pstmgen_validate(cfg, nullptr));
}

TEST(PstmGen, RejectsBadConfigurations) {
    std::string err;
    PstmGenConfig cfg;
    EXPECT_TRUE(pstmgen_validate(cfg, &err)) << err;
    cfg.sats = 0;
    EXPECT_FALSE(pstmgen_validate(cfg, &err));
    EXPECT_FALSE(err.empty());
    EXPECT_TRUE(pstmgen_generate(cfg).empty());
    cfg.sats = 33;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg = PstmGenConfig();
    cfg.week = 65536;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.week = 65535;
    EXPECT_TRUE(pstmgen_validate(cfg, nullptr));
    cfg = PstmGenConfig();
    cfg.toe = 17;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.toe = 604800;
    EXPECT_FALSE(pstmgen_validate(cfg, nullptr));
    cfg.toe = 604784;
    EXPECT_TRUE(pstmgen_validate(cfg, nullptr));
}

TEST(PstmGen, SplitLinesKeepsLineEnds) {
    const std::vector<std::string> l = pstm_split_lines("a\r\n\nb\nc");
    ASSERT_EQ(l.size(), 4u);
    EXPECT_EQ(l[0], "a\r\n");
    EXPECT_EQ(l[1], "\n");
    EXPECT_EQ(l[2], "b\n");
    EXPECT_EQ(l[3], "c");
    EXPECT_TRUE(pstm_split_lines("").empty());
    EXPECT_FALSE(pstm_summary_takes("$PSTMEPHEM,1,2\r\n"));  // two commas
    EXPECT_TRUE(pstm_summary_takes("x PSTMEPHEM,,,\r\n"));
}

// ---------------------------------------------------------------------------
// File and command line

TEST(PstmGenFile, WritesTheGeneratedText) {
    const std::string tmp = make_temp_file("vk_pstmgen");
    ASSERT_FALSE(tmp.empty());
    PstmGenConfig cfg;
    cfg.sats = 4;
    cfg.seed = 9;
    PstmGenStats st;
    std::string err;
    ASSERT_TRUE(pstmgen_write_file(cfg, tmp.c_str(), &st, &err)) << err;
    EXPECT_EQ(text_of(read_file(tmp)), pstmgen_generate(cfg));
    EXPECT_EQ(read_file(tmp).size(), st.bytes);
    std::remove(tmp.c_str());
    EXPECT_FALSE(pstmgen_write_file(cfg, "/nonexistent-dir/eph.txt", nullptr, &err));
    EXPECT_NE(err.find("cannot open"), std::string::npos) << err;
    cfg.sats = 0;
    EXPECT_FALSE(pstmgen_write_file(cfg, tmp.c_str(), nullptr, &err));
    EXPECT_TRUE(pstmgen_is_usual_name("/tmp/eph.txt"));
    EXPECT_TRUE(pstmgen_is_usual_name("eph.txt.bak"));  // the tool looks for the text anywhere
    EXPECT_FALSE(pstmgen_is_usual_name("eph.nmea"));
    EXPECT_FALSE(pstmgen_is_usual_name(nullptr));
}

TEST(PstmGenCli, WritesTheFileAndOneSummaryLine) {
    const std::string base = make_temp_file("vk_pstmgen_cli");
    ASSERT_FALSE(base.empty());
    const std::string tmp = base + ".txt";
    std::string out, err;
    int rc = run_cli({"-o", tmp, "--sats", "6", "--week", "2401", "--toe", "345600", "--seed", "3",
                      "--damage", "no-dollar", "--damage-line", "-1"},
                     &out, &err);
    EXPECT_EQ(rc, 0) << err;
    EXPECT_EQ(err, "");
    PstmGenConfig cfg;
    cfg.sats = 6;
    cfg.week = 2401;
    cfg.seed = 3;
    cfg.damage = PstmDamage::NoDollar;
    cfg.damage_line = -1;
    EXPECT_EQ(text_of(read_file(tmp)), pstmgen_generate(cfg));
    EXPECT_EQ(out, tmp +
                       ": 6 lines (6 satellites), 893 bytes, week 2401 toe 345600, damage"
                       " no-dollar\n");

    // Digits the tool misreads, and a first line its summary refuses.
    rc = run_cli({"-o", tmp, "--sats", "1", "--toe", "7200"}, &out, &err);
    EXPECT_EQ(rc, 0) << err;
    EXPECT_EQ(out, tmp +
                       ": 1 lines (1 satellites), 149 bytes, week 2400 toe 7200, damage none;"
                       " the tool reads week 2400 toe 8992\n");
    rc = run_cli({"-o", tmp, "--sats", "2", "--damage", "blank-line"}, &out, &err);
    EXPECT_EQ(rc, 0) << err;
    EXPECT_EQ(out, tmp +
                       ": 3 lines (2 satellites), 300 bytes, week 2400 toe 345600, damage"
                       " blank-line; the tool's summary rejects the first line\n");
    EXPECT_EQ(read_file(tmp).size(), 300u);
    std::remove(tmp.c_str());
    std::remove(base.c_str());
}

TEST(PstmGenCli, NamesWithoutTxtAreWrittenWithANote) {
    const std::string tmp = make_temp_file("vk_pstmgen_name");
    ASSERT_FALSE(tmp.empty());
    std::string out, err;
    EXPECT_EQ(run_cli({"-o", tmp, "--sats", "1"}, &out, &err), 0);
    EXPECT_NE(err.find("\".txt\""), std::string::npos) << err;
    EXPECT_EQ(read_file(tmp).size(), 149u);
    std::remove(tmp.c_str());
}

TEST(PstmGenCli, HelpNamesTheFileNameRule) {
    std::string out, err;
    EXPECT_EQ(run_cli({"--help"}, &out, &err), 0);
    EXPECT_NE(out.find("usage: vkagnss-pstmgen -o FILE"), std::string::npos);
    EXPECT_NE(out.find("\".txt\""), std::string::npos);
    EXPECT_NE(out.find("no-tag"), std::string::npos);
    EXPECT_EQ(err, "");
}

TEST(PstmGenCli, UsageErrorsExitWith2) {
    const std::string tmp = make_temp_file("vk_pstmgen_bad");
    ASSERT_FALSE(tmp.empty());
    std::string out, err;
    EXPECT_EQ(run_cli({}, &out, &err), 2);
    EXPECT_NE(err.find("vkagnss-pstmgen: -o FILE is required"), std::string::npos) << err;
    const std::vector<std::vector<std::string>> bad = {
        {"--sats", "0"},          {"--sats", "33"},        {"--sats", "x"},     {"--week", "65536"},
        {"--week", "-1"},         {"--toe", "17"},         {"--toe", "604800"}, {"--seed", "-1"},
        {"--damage", "truncate"}, {"--damage-line", "-2"},
    };
    for (const auto &opt : bad) {
        SCOPED_TRACE(opt[0] + " " + opt[1]);
        std::vector<std::string> args = {"-o", tmp};
        args.insert(args.end(), opt.begin(), opt.end());
        EXPECT_EQ(run_cli(args, &out, &err), 2);
        EXPECT_NE(err.find("bad value for " + opt[0]), std::string::npos) << err;
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(run_cli({"-o", tmp, "--epochs", "3"}, &out, &err), 2);
    EXPECT_NE(err.find("unknown option --epochs"), std::string::npos) << err;
    EXPECT_EQ(run_cli({"-o", tmp, "--week"}, &out, &err), 2);
    EXPECT_NE(err.find("--week needs a value"), std::string::npos) << err;
    // Fine one by one, not together.
    EXPECT_EQ(run_cli({"-o", tmp, "--sats", "2", "--damage", "letters", "--damage-line", "2"}, &out,
                      &err),
              2);
    EXPECT_NE(err.find("beyond the last line"), std::string::npos) << err;
    EXPECT_TRUE(read_file(tmp).empty());
    std::remove(tmp.c_str());
    EXPECT_EQ(run_cli({"-o", "/nonexistent-dir/eph.txt"}, &out, &err), 1);
    EXPECT_NE(err.find("cannot open"), std::string::npos) << err;
}
