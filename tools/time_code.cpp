#include "time_code.h"

#include <algorithm>
#include <cstring>

namespace {

const int kBits = 32;

} // namespace

void drawTimeCode(unsigned char* rgb, int width, int height, uint32_t milliseconds)
{
    const int rows = std::max(1, height / 16);
    for (int bit = 0; bit < kBits; ++bit) {
        const unsigned char value = (milliseconds >> (kBits - 1 - bit)) & 1 ? 255 : 0;
        const int x0 = bit * width / kBits, x1 = (bit + 1) * width / kBits;
        for (int y = 0; y < rows; ++y)
            std::memset(rgb + (static_cast<size_t>(y) * width + x0) * 3, value, static_cast<size_t>(x1 - x0) * 3);
    }
}

uint32_t readTimeCode(const unsigned char* gray, int width, int height, int stride)
{
    // The middle of each cell: away from the blur an encoder leaves at edges.
    const int rows = std::max(1, height / 16);
    uint32_t value = 0;
    for (int bit = 0; bit < kBits; ++bit) {
        const int x0 = bit * width / kBits, x1 = (bit + 1) * width / kBits;
        const int left = x0 + (x1 - x0) / 4, right = std::max(left + 1, x1 - (x1 - x0) / 4);
        unsigned sum = 0, count = 0;
        for (int y = rows / 4; y < std::max(rows / 4 + 1, rows * 3 / 4); ++y)
            for (int x = left; x < right; ++x, ++count)
                sum += gray[static_cast<size_t>(y) * stride + x];
        value = (value << 1) | (count && sum / count > 127 ? 1u : 0u);
    }
    return value;
}
