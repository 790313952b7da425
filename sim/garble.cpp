// What a UART at one rate makes of a line signal sent at another.
#include <cmath>
#include <cstdint>
#include <vector>

#include "sim/sim.h"

namespace {

// The line level in sent bit k: 8N1 frames back to back, high outside them.
int level(const std::vector<uint8_t> &sent, int64_t k) {
    if (k < 0 || k >= int64_t(sent.size()) * 10) return 1;
    int64_t frame = k / 10;
    int bit = int(k % 10);
    if (bit == 0) return 0;  // start bit
    if (bit == 9) return 1;  // stop bit
    return (sent[size_t(frame)] >> (bit - 1)) & 1;
}

}  // namespace

std::vector<uint8_t> sim_garble(const std::vector<uint8_t> &sent, uint32_t sent_baud,
                                uint32_t heard_baud) {
    std::vector<uint8_t> heard;
    if (sent_baud == 0 || heard_baud == 0) return heard;
    const double sent_bit = 1.0 / double(sent_baud);
    const double heard_bit = 1.0 / double(heard_baud);
    const int64_t end = int64_t(sent.size()) * 10;
    auto level_at = [&](double t) { return level(sent, int64_t(std::floor(t / sent_bit))); };
    double from = 0;  // the receiver looks for a falling edge from here
    for (;;) {
        // Edges fall on sent bit boundaries: the first k at or after "from"
        // where the line goes from high to low.
        int64_t k = int64_t(std::ceil(from / sent_bit - 1e-9));
        while (k < end && !(level(sent, k - 1) == 1 && level(sent, k) == 0)) ++k;
        if (k >= end) break;
        const double edge = double(k) * sent_bit;
        if (level_at(edge + 0.5 * heard_bit) != 0) {  // a glitch, not a start bit
            from = edge + sent_bit;
            continue;
        }
        uint8_t byte = 0;
        for (int i = 0; i < 8; ++i)
            if (level_at(edge + (1.5 + i) * heard_bit)) byte |= uint8_t(1u << i);
        heard.push_back(byte);
        from = edge + 9.5 * heard_bit;  // the stop bit's sample
    }
    return heard;
}
