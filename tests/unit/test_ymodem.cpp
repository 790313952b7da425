// The YMODEM sender against a scripted receiver in memory: the installed
// operations record what goes out and hand back the receiver's answers, and
// the delay only adds up the milliseconds it was asked for.
#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "hd8xxx/hd8xxx.h"
#include "hd8xxx/ymodem.h"
#include "tests/support/stamp_mask.h"
#include "toolkit/checksum.h"

namespace {

struct Script {
    bool nak_first_eot = false;   // answer the first EOT with NAK alone
    bool can_for_data = false;    // answer data packets with CAN
    bool nak_first_data = false;  // answer the first attempt of each data packet with NAK
    bool silent = false;
    bool drop_data = false;  // never answer a data packet
};

struct FakeReceiver {
    Script script;
    std::vector<std::vector<uint8_t>> sent;  // every send, as it went out
    std::deque<uint8_t> answers;
    uint32_t delayed_ms = 0;
    int eots = 0;
    int last_data_number = -1;
};
FakeReceiver g_rx;

void answer(std::initializer_list<uint8_t> bytes) {
    if (!g_rx.script.silent) g_rx.answers.insert(g_rx.answers.end(), bytes);
}

int fake_send(const uint8_t *data, uint32_t len) {
    g_rx.sent.emplace_back(data, data + len);
    if (len == 1 && data[0] == YMODEM_EOT) {
        if (g_rx.script.nak_first_eot && g_rx.eots++ == 0)
            answer({YMODEM_NAK});
        else
            answer({YMODEM_ACK, YMODEM_C});
    } else if (data[0] == YMODEM_SOH && data[1] == 0 && data[3] != 0) {
        answer({YMODEM_ACK, YMODEM_C});
    } else if (data[0] == YMODEM_STX) {
        if (g_rx.script.drop_data) {
        } else if (g_rx.script.can_for_data) {
            answer({YMODEM_CAN});
        } else if (g_rx.script.nak_first_data && g_rx.last_data_number != data[1]) {
            g_rx.last_data_number = data[1];
            answer({YMODEM_NAK});
        } else {
            answer({YMODEM_ACK});
        }
    } else {
        answer({YMODEM_ACK});
    }
    return int(len);
}

int fake_recv(uint8_t *buf, uint32_t len) {
    if (len == 0 || g_rx.answers.empty()) return 0;
    buf[0] = g_rx.answers.front();
    g_rx.answers.pop_front();
    return 1;
}

void fake_delay(uint32_t ms) { g_rx.delayed_ms += ms; }

std::vector<uint8_t> data_of(size_t n) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = uint8_t(i * 7 + 3);
    return v;
}

// The progress counter lives on after a successful run (it carries a divided
// download's percentage); a failed data packet is what sets it back to 0.
void start_progress_afresh() {
    g_rx = FakeReceiver();
    g_rx.script.drop_data = true;
    ymodem_io_init(fake_send, fake_recv, Vk_CRC16_Calc, fake_delay);
    const uint8_t one = 1;
    testing::internal::CaptureStdout();
    ymodem_file_transfer("x", &one, 1);
    testing::internal::GetCapturedStdout();
}

int transfer(const std::vector<uint8_t> &data, const Script &script = Script(),
             std::string *out = nullptr) {
    start_progress_afresh();
    g_rx = FakeReceiver();
    g_rx.script = script;
    ymodem_io_init(fake_send, fake_recv, Vk_CRC16_Calc, fake_delay);
    HD8XXX_SetOffEphTotalSize(uint32_t(data.size()));
    testing::internal::CaptureStdout();
    int r = ymodem_file_transfer("LTEPHGPS", data.data(), int32_t(data.size()));
    std::string text = mask_stamps(testing::internal::GetCapturedStdout());
    if (out) *out = text;
    return r;
}

std::vector<std::vector<uint8_t>> stx_packets() {
    std::vector<std::vector<uint8_t>> out;
    for (const auto &s : g_rx.sent)
        if (s[0] == YMODEM_STX) out.push_back(s);
    return out;
}

}  // namespace

TEST(YmodemSender, WholeSessionInOrder) {
    std::string out;
    ASSERT_EQ(transfer(data_of(1500), Script(), &out), 0);
    ASSERT_EQ(g_rx.sent.size(), 5u);  // header, two data packets, EOT, end packet
    EXPECT_EQ(g_rx.sent[0].size(), 133u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(g_rx.sent[0].data() + 3)), "LTEPHGPS");
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(g_rx.sent[0].data() + 12)), "1500");
    EXPECT_EQ(g_rx.sent[1][1], 1);
    EXPECT_EQ(g_rx.sent[2][1], 2);
    EXPECT_EQ(g_rx.sent[3], std::vector<uint8_t>{YMODEM_EOT});
    EXPECT_EQ(g_rx.sent[4].size(), 133u);
    EXPECT_EQ(g_rx.sent[4][1], 0);
    for (size_t i = 3; i < 131; ++i) ASSERT_EQ(g_rx.sent[4][i], 0) << i;
    EXPECT_EQ(out,
              "[SSS.mmm] ymodem: SOH send OK\n"
              "[SSS.mmm][PROGRESS] 0.00%\r\n"
              "[SSS.mmm][PROGRESS] 68.27%\r\n"
              "[SSS.mmm][PROGRESS] 100.00%\r\n"
              "[SSS.mmm] ymodem: STX send OK\n"
              "[SSS.mmm] ymodem: EOT send OK\n"
              "[SSS.mmm] ymodem: end-SOH send OK\n");
    // 100 ms after each of the five sends, nothing else: every answer was there at once.
    EXPECT_EQ(g_rx.delayed_ms, 500u);
}

TEST(YmodemSender, ExactBlocksAreNotPaddedAndOneByteIs) {
    std::vector<uint8_t> d = data_of(2048);
    ASSERT_EQ(transfer(d), 0);
    auto stx = stx_packets();
    ASSERT_EQ(stx.size(), 2u);
    EXPECT_EQ(std::vector<uint8_t>(stx[0].begin() + 3, stx[0].begin() + 1027),
              std::vector<uint8_t>(d.begin(), d.begin() + 1024));
    EXPECT_EQ(std::vector<uint8_t>(stx[1].begin() + 3, stx[1].begin() + 1027),
              std::vector<uint8_t>(d.begin() + 1024, d.end()));
    ASSERT_EQ(transfer(data_of(1)), 0);
    stx = stx_packets();
    ASSERT_EQ(stx.size(), 1u);
    EXPECT_EQ(stx[0][3], data_of(1)[0]);
    for (size_t i = 4; i < 1027; ++i) ASSERT_EQ(stx[0][i], 0x1A) << i;
}

TEST(YmodemSender, The256thDataPacketIsNumberedZero) {
    ASSERT_EQ(transfer(data_of(257 * 1024)), 0);
    auto stx = stx_packets();
    ASSERT_EQ(stx.size(), 257u);
    EXPECT_EQ(stx[254][1], 0xFF);
    EXPECT_EQ(stx[255][1], 0x00);
    EXPECT_EQ(stx[255][2], 0xFF);
    EXPECT_EQ(stx[256][1], 0x01);
}

TEST(YmodemSender, CanIsTakenAsAnAnswer) {
    Script s;
    s.can_for_data = true;
    ASSERT_EQ(transfer(data_of(3000), s), 0);
    EXPECT_EQ(stx_packets().size(), 3u);  // one attempt each
}

TEST(YmodemSender, EotRefusedOnceIsSentAgain) {
    Script s;
    s.nak_first_eot = true;
    std::string out;
    ASSERT_EQ(transfer(data_of(10), s, &out), 0);
    int eots = 0;
    for (const auto &p : g_rx.sent) eots += p == std::vector<uint8_t>{YMODEM_EOT};
    EXPECT_EQ(eots, 2);
    EXPECT_NE(out.find("[SSS.mmm] ymodem: wait ACK or C = 0x43 or 0x00 timeout\n"),
              std::string::npos);
    EXPECT_NE(out.find("[SSS.mmm] ymodem: EOT send OK\n"), std::string::npos);
}

TEST(YmodemSender, NakIsNotLookedForTheWaitRunsOnThenTheSecondAttempt) {
    Script s;
    s.nak_first_data = true;
    std::string out;
    ASSERT_EQ(transfer(data_of(10), s, &out), 0);
    auto stx = stx_packets();
    ASSERT_EQ(stx.size(), 2u);
    EXPECT_EQ(stx[0], stx[1]);
    // The refused attempt waited out its 2000 ms in 40 ms steps: 51 of them.
    EXPECT_EQ(g_rx.delayed_ms, 5u * 100 + 51u * 40);
}

TEST(YmodemSender, SilentReceiverFailsAfterThreeAttempts) {
    Script s;
    s.silent = true;
    std::string out;
    EXPECT_EQ(transfer(data_of(10), s, &out), -4);
    EXPECT_EQ(g_rx.sent.size(), 3u);  // the header, three times
    EXPECT_NE(out.find("[SSS.mmm] ymodem: retry end, error\n"
                       "[SSS.mmm] ymodem: start-SOH send failed\n"),
              std::string::npos);
}

TEST(YmodemSender, ProgressRunsOnOverTheSecondFileOfADivision) {
    std::vector<uint8_t> gps = data_of(1500), bds = data_of(700);
    start_progress_afresh();
    g_rx = FakeReceiver();
    ymodem_io_init(fake_send, fake_recv, Vk_CRC16_Calc, fake_delay);
    HD8XXX_SetOffEphTotalSize(uint32_t(gps.size() + bds.size()));
    testing::internal::CaptureStdout();
    ASSERT_EQ(ymodem_file_transfer("LTEPHGPS", gps.data(), int32_t(gps.size())), 0);
    ASSERT_EQ(ymodem_file_transfer("LTEPHBDS", bds.data(), int32_t(bds.size())), 0);
    std::string out = mask_stamps(testing::internal::GetCapturedStdout());
    EXPECT_NE(out.find("[SSS.mmm][PROGRESS] 0.00%\r\n"
                       "[SSS.mmm][PROGRESS] 46.55%\r\n"
                       "[SSS.mmm][PROGRESS] 68.18%\r\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("[SSS.mmm] ymodem: SOH send OK\n"
                       "[SSS.mmm][PROGRESS] 100.00%\r\n"),
              std::string::npos)
        << out;
    // Only one 0.00% line: the second file does not start the scale again.
    EXPECT_EQ(out.find("] 0.00%"), out.rfind("] 0.00%"));
}
