// TQ934N pure parts: the 'B' 'K' frame of polGenCmd, the reply check and the
// RTCM file summary with its start search and transfer mode.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/harness.h"
#include "tests/support/ref_crc16.h"
#include "tests/support/stamp_mask.h"
#include "tools/rtcm_gen.h"
#include "tq934n/tq934n.h"

TEST(Tq934nFrame, ThreeWordsGiveLength12AndACrcOver16Bytes) {
    const uint32_t words[3] = {2400, 345600, 18};
    polGenCmd(words, 3, 0);
    EXPECT_EQ(gCmd[0], 'B');
    EXPECT_EQ(gCmd[1], 'K');
    EXPECT_EQ(gCmd[4], 0x18);
    EXPECT_EQ(gCmd[5], 0x03);
    EXPECT_EQ(gCmd[6], 0x00);
    EXPECT_EQ(gCmd[7], 0x0C);
    // The words little-endian.
    EXPECT_EQ((std::vector<uint8_t>(gCmd + 8, gCmd + 20)),
              (std::vector<uint8_t>{0x60, 0x09, 0, 0, 0x00, 0x46, 0x05, 0, 18, 0, 0, 0}));
    const uint16_t crc = ref_crc16_xmodem(gCmd + 4, 16);
    EXPECT_EQ(gCmd[2], crc >> 8);
    EXPECT_EQ(gCmd[3], crc & 0xFF);
    for (size_t i = 20; i < TQ934N_CMD_SIZE; ++i) EXPECT_EQ(gCmd[i], 0) << i;
}

TEST(Tq934nFrame, ExtraBytesComeMostSignificantFirst) {
    const uint32_t words[2] = {0x01020304, 0xA1B2C3D4};
    polGenCmd(words, 1, 2);
    EXPECT_EQ(gCmd[7], 6);
    EXPECT_EQ((std::vector<uint8_t>(gCmd + 8, gCmd + 14)),
              (std::vector<uint8_t>{0x04, 0x03, 0x02, 0x01, 0xA1, 0xB2}));
}

TEST(Tq934nReply, ErrorToTheTimeCountsAsSuccess) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(TQ934N_CheckNmeaCmdRsp("$PVNKAIDTIME,ERROR*00\r\n", 0, "$PVNKAIDTIME"), 0u);
    EXPECT_EQ(TQ934N_CheckNmeaCmdRsp("$PVNKAIDPOS,ERROR*00\r\n", 0, "$PVNKAIDPOS"), 0x107u);
    EXPECT_EQ(TQ934N_CheckNmeaCmdRsp("$PVNKCLRADAT,OK*00\r\n", 0, "$PVNKCLRADAT"), 0u);
    EXPECT_EQ(mask_stamps(testing::internal::GetCapturedStdout()),
              "[SSS.mmm] Send $PVNKAIDPOS error.\n");
}

namespace {

std::string info(const std::vector<uint8_t> &bytes, const char *name, uint32_t *result) {
    std::string dir = make_temp_dir();
    std::string path = dir + "/" + name;
    write_file(path, bytes);
    rtcm_start_pos = -1;
    testing::internal::CaptureStdout();
    *result = TQ934N_GetRtcmEphInfo(path.c_str());
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    remove_tree(dir);
    return out;
}

}  // namespace

TEST(Tq934nSummary, StartsDirectlyWithAFrame) {
    RtcmGenConfig g;
    g.systems = "G";
    g.sats = 2;
    uint32_t r = 1;
    std::string out = info(rtcmgen_generate(g), "eph.rtcm3", &r);
    EXPECT_EQ(r, 0u);
    EXPECT_EQ(rtcm_start_pos, 0);
    EXPECT_EQ(AGNSS_MODE, 1);
    EXPECT_EQ(out.rfind("00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n"
                        "[SSS.mmm] Found RTCM message at position: 0\n",
                        0),
              0u);
    EXPECT_NE(out.find("Type: GPS\r\n"), std::string::npos);
}

TEST(Tq934nSummary, ModeFollowsTheSize) {
    RtcmGenConfig g;
    g.systems = "G";
    std::vector<uint8_t> bytes = rtcmgen_generate(g);  // 32 frames of 67 bytes
    ASSERT_GT(bytes.size(), 2000u);
    uint32_t r = 1;
    // Trailing bytes pad the file to the size wanted; the walk passes over them.
    std::vector<uint8_t> a = bytes;
    a.resize(3999, 0x00);
    info(a, "eph.rtcm3", &r);
    EXPECT_EQ(AGNSS_MODE, 1);
    a.resize(4000, 0x00);
    info(a, "eph.rtcm3", &r);
    EXPECT_EQ(AGNSS_MODE, 2);
}

TEST(Tq934nSummary, GlonassIsGolAndOtherNamesRefused) {
    std::string path = VK_REAL_DATA_DIR "/rtcm/igs-stream-2016-04-06-eph.rtcm3";
    std::vector<uint8_t> bytes = read_file(path);
    if (bytes.empty()) GTEST_SKIP() << "the real recordings are not here";
    uint32_t r = 1;
    std::string out = info(bytes, "igs.rtcm3", &r);
    EXPECT_EQ(r, 0u);
    EXPECT_NE(out.find("+GOL"), std::string::npos) << out;
    EXPECT_NE(out.find("Segment: 88\r\n"), std::string::npos);
    EXPECT_EQ(AGNSS_MODE, 2);
}

TEST(Tq934nSummary, NameWithoutRtcm3IsRefused) {
    uint32_t r = 0;
    std::string out = info(std::vector<uint8_t>(10, 0xD3), "eph.rtcm", &r);
    EXPECT_EQ(r, 0x107u);
    EXPECT_EQ(out, "[SSS.mmm][ERROR] File format error\n");
}
