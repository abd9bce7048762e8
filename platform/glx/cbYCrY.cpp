// cbYCrY.cpp - see cbYCrY.h.
#include "platform/glx/cbYCrY.h"

#include <libyuv.h>

namespace kiv::glx {

namespace {

constexpr int columns = 1024;  // at a time, on the stack

// An even number of pixels of one row.
void fullRangePairs(const uint8_t* in, uint8_t* out, int width)
{
    uint8_t y[columns], cb[columns / 2], cr[columns / 2];
    for (int x = 0; x < width; x += columns) {
        const int n = width - x < columns ? width - x : columns;
        libyuv::UYVYToI422(in + 2 * x, 2 * n, y, n, cb, n / 2, cr, n / 2, n, 1);
        libyuv::I422ToARGBMatrix(y, n, cb, n / 2, cr, n / 2, out + 4 * x, 4 * n, &libyuv::kYuvJPEGConstants, n, 1);
    }
}

void pairs(const uint8_t* in, uint8_t* out, int width, bool fullRange)
{
    if (fullRange)
        fullRangePairs(in, out, width);
    else
        libyuv::UYVYToARGB(in, 2 * width, out, 4 * width, width, 1);
}

void lastOfOddRow(const uint8_t* in, uint8_t* out, int width, bool fullRange)
{
    const uint8_t* last = in + 2 * (width - 1);
    const uint8_t pair[4] = {last[0], last[1], width > 1 ? last[-2] : uint8_t(128), last[1]};
    uint8_t pixels[8];
    pairs(pair, pixels, 2, fullRange);
    for (int i = 0; i < 4; ++i)
        out[4 * (width - 1) + i] = pixels[i];
}

}  // namespace

void cbYCrYToBgra(const uint8_t* in, uint8_t* out, int width, int height, bool fullRange)
{
    for (; height > 0; --height, in += 2 * width, out += 4 * width) {
        if (width > 1)
            pairs(in, out, width & ~1, fullRange);
        if (width & 1)
            lastOfOddRow(in, out, width, fullRange);
    }
}

}  // namespace kiv::glx
