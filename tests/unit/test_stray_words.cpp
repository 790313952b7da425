// The warning about a word that ends the parse: which words count as stray,
// how the option before one is named, and that values of options are never
// taken for stray words.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/getopt.h"

namespace {

// argv built from words; argv[0] is the program.
struct Argv {
    std::vector<std::string> words;
    std::vector<char *> ptrs;
    explicit Argv(std::vector<std::string> w) : words(std::move(w)) {
        words.insert(words.begin(), "vkagnss");
        for (std::string &s : words) ptrs.push_back(&s[0]);
        ptrs.push_back(nullptr);
    }
    int argc() const { return int(words.size()); }
    char **argv() { return ptrs.data(); }
};

// Parses the words to the end with optstring; returns what went to stderr.
std::string parse(const std::vector<std::string> &words, const char *optstring) {
    Argv a(words);
    vk_getopt_reset();
    testing::internal::CaptureStderr();
    while (vk_getopt(a.argc(), a.argv(), optstring) != -1) {}
    return testing::internal::GetCapturedStderr();
}

const char kAttached[] = "m:o:p:b:f::b:s::cu::l::R:T:";  // AG33XX offline
const char kSeparate[] = "m:o:p:b:f:b:s:cu:l:R:T:q::";   // HD8XXX offline

}  // namespace

TEST(StrayWords, ValueWrittenApartFromAnAttachedOnlyLetter) {
    EXPECT_EQ(parse({"-m", "AG33XX", "-s", "COLD"}, kAttached),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
    EXPECT_EQ(
        parse({"-f", "/data/x.DAT"}, kAttached),
        "warning: '/data/x.DAT' was ignored: -f takes its value attached, as -f/data/x.DAT\n");
}

TEST(StrayWords, TheLastLetterOfAGroupIsTheOneNamed) {
    EXPECT_EQ(parse({"-cs", "COLD"}, kAttached),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
}

TEST(StrayWords, AfterAFlagAnAttachedValueOrASeparateValue) {
    EXPECT_EQ(parse({"-c", "x"}, kAttached), "warning: 'x' was ignored: -c takes no value\n");
    EXPECT_EQ(parse({"-sCOLD", "x"}, kAttached), "warning: 'x' was ignored: no option takes it\n");
    EXPECT_EQ(parse({"-p", "COM3", "x"}, kAttached),
              "warning: 'x' was ignored: no option takes it\n");
    EXPECT_EQ(parse({"x", "-p", "COM3"}, kAttached),
              "warning: 'x' was ignored: no option takes it\n"
              "warning: the options after 'x' were not read: -p COM3\n");
}

TEST(StrayWords, ALetterTakenAsAValueIsNotNamed) {
    // "-s" is the value of -p here, so COLD follows a value, not -s.
    EXPECT_EQ(parse({"-p", "-s", "COLD"}, kAttached),
              "warning: 'COLD' was ignored: no option takes it\n");
}

TEST(StrayWords, AfterAnUnknownLetter) {
    EXPECT_EQ(parse({"-x", "COLD"}, kAttached),
              "unknown option -- x\n"
              "warning: 'COLD' was ignored: no option takes it\n");
}

TEST(StrayWords, TheWordsNotReachedAreListedWithoutTheEntrysOptions) {
    EXPECT_EQ(parse({"-s", "COLD", "-m", "AG33XX", "-u0,x,18,5", "-o", "online", "-R", "1", "-T",
                     "0", "-fVGPS.DAT"},
                    kAttached),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n"
              "warning: the options after 'COLD' were not read: -u0,x,18,5 -fVGPS.DAT\n");
    EXPECT_EQ(parse({"-s", "COLD", "-o", "online"}, kAttached),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
}

TEST(StrayWords, DoubleDashAndLoneDash) {
    EXPECT_EQ(parse({"-c", "--"}, kAttached), "");
    EXPECT_EQ(parse({"--", "-p", "COM3"}, kAttached),
              "warning: the options after '--' were not read: -p COM3\n");
    EXPECT_EQ(parse({"-"}, kAttached), "warning: '-' was ignored: no option takes it\n");
}

TEST(StrayWords, SeparateValuesWhereTheLettersTakeThem) {
    EXPECT_EQ(parse({"-m",
                     "HD8XXX",
                     "-o",
                     "offline",
                     "-p",
                     "/dev/ttyUSB0",
                     "-b",
                     "115200",
                     "-c",
                     "-s",
                     "COLD",
                     "-u",
                     "0,2026-01-08-09:59:17,18,10",
                     "-l",
                     "31.5,121.25,10,5",
                     "-f",
                     "/data/EPH_GPS_BDS.rtcm",
                     "-R",
                     "1",
                     "-T",
                     "0"},
                    kSeparate),
              "");
    // -q takes only an attached value.
    EXPECT_EQ(parse({"-q", "yes"}, kSeparate),
              "warning: 'yes' was ignored: -q takes its value attached, as -qyes\n");
}

TEST(StrayWords, AttachedValuesAndAnEmptyLineSayNothing) {
    EXPECT_EQ(parse({"-m", "AG33XX", "-o", "offline", "-p", "COM3", "-b", "921600", "-c", "-sCOLD",
                     "-u0,2026-01-08-09:59:17,18,10", "-l31.5,121.25,10,5", "-fEPO_GPS_3_1.DAT"},
                    kAttached),
              "");
    EXPECT_EQ(parse({}, kAttached), "");
    EXPECT_EQ(parse({"-s"}, kAttached), "");
}

TEST(StrayWords, OneWarningPerParse) {
    Argv a({"-s", "COLD"});
    vk_getopt_reset();
    testing::internal::CaptureStderr();
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), kAttached), 's');
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), kAttached), -1);
    EXPECT_EQ(vk_getopt(a.argc(), a.argv(), kAttached), -1);  // asked again: said once
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
    // A new parse of the same words says it again.
    EXPECT_EQ(parse({"-s", "COLD"}, kAttached),
              "warning: 'COLD' was ignored: -s takes its value attached, as -sCOLD\n");
}
