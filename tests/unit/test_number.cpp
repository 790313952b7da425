// Integers read from text: the same values on every OS, those glibc gives.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/number.h"

namespace {

const char *const kTexts[] = {"",
                              "   ",
                              "12",
                              "  12abc",
                              "\t\n-7",
                              "+7",
                              "-",
                              "+",
                              "x1",
                              "0x10",
                              "2147483647",
                              "2147483648",
                              "-2147483648",
                              "-2147483649",
                              "4294967297",
                              "99999999999",
                              "-99999999999",
                              "9223372036854775807",
                              "9223372036854775808",
                              "-9223372036854775809",
                              "99999999999999999999999",
                              "-99999999999999999999999"};

}  // namespace

#ifdef __GLIBC__
// On glibc the C library's own atoi and sscanf are the reference.
TEST(Number, AtoiIsGlibcs) {
    for (const char *t : kTexts) EXPECT_EQ(vk_atoi(t), std::atoi(t)) << '"' << t << '"';
}

TEST(Number, ScanIsGlibcsSscanf) {
    const std::string dates[] = {"2026-01-08-09:59:17",
                                 "2026-01-08-09:59:17:250",
                                 "99999999999-01-08-09:59:17",
                                 "2026-99999999999999999999999-8-9:5:7",
                                 "-2147483649--5- 8 -9:5:7",
                                 "2026-01-08",
                                 "2026/01/08",
                                 "2026-01-08-09-59-17",
                                 "",
                                 "   ",
                                 "x",
                                 "00"};
    for (const std::string &d : dates) {
        int a[7] = {-1, -1, -1, -1, -1, -1, -1};
        int b[7] = {-1, -1, -1, -1, -1, -1, -1};
        const char *fmt = "%d-%d-%d-%d:%d:%d:%d";
        int na = vk_scan_ints(d.c_str(), fmt, &a[0], &a[1], &a[2], &a[3], &a[4], &a[5], &a[6]);
        int nb = std::sscanf(d.c_str(), fmt, &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6]);
        EXPECT_EQ(na, nb) << '"' << d << '"';
        for (int i = 0; i < 7; ++i) EXPECT_EQ(a[i], b[i]) << '"' << d << "\" field " << i;
    }
}
#endif

// The values themselves, for an OS whose library would differ.
TEST(Number, BeyondThirtyTwoBitsTheLowBitsAreKept) {
    EXPECT_EQ(vk_atoi("4294967297"), 1);
    EXPECT_EQ(vk_atoi("99999999999"), 1215752191);
    EXPECT_EQ(vk_atoi("-99999999999"), -1215752191);
    EXPECT_EQ(vk_atoi("2147483648"), -2147483647 - 1);
}

TEST(Number, BeyondSixtyFourBitsTheLargestValueStands) {
    EXPECT_EQ(vk_atoi("99999999999999999999999"), -1);  // 0x7FFF...FFFF kept to 32 bits
    EXPECT_EQ(vk_atoi("-99999999999999999999999"), 0);  // 0x8000...0000 kept to 32 bits
}

TEST(Number, ScanStopsAtTheFirstMismatch) {
    int y = 0, m = 0, d = 0;
    EXPECT_EQ(vk_scan_ints("2026-01/08", "%d-%d-%d", &y, &m, &d), 2);
    EXPECT_EQ(y, 2026);
    EXPECT_EQ(m, 1);
    EXPECT_EQ(d, 0);
    EXPECT_EQ(vk_scan_ints("", "%d-%d-%d", &y, &m, &d), -1);
    EXPECT_EQ(vk_scan_ints("x", "%d-%d-%d", &y, &m, &d), 0);
    EXPECT_EQ(vk_scan_ints("99999999999-1-2", "%d-%d-%d", &y, &m, &d), 3);
    EXPECT_EQ(y, 1215752191);
}
