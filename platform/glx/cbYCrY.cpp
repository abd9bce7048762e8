// cbYCrY.cpp - see cbYCrY.h. The libraries' own conversion is up to 3 off in saturated
// colours; so only taking apart and putting together is theirs. Sixteen bits an element
// in between, for the vectoriser.
#include "platform/glx/cbYCrY.h"

#include <libyuv.h>

#include <algorithm>

namespace kiv::glx {

namespace {

// In units of 1/16384; what is taken away, in 1/64, with the half for rounding in it.
struct Matrix {
    uint16_t y, rCr, gCb, gCr, bCb;
    uint16_t rLess, gMore, bLess;
};

constexpr Matrix matrix(double luma, double black, double chroma)
{
    const double rCr = 1.402 * chroma;
    const double bCb = 1.772 * chroma;
    const double gCb = 1.772 * 0.114 / 0.587 * chroma;
    const double gCr = 1.402 * 0.299 / 0.587 * chroma;
    const auto fixed = [](double value) { return uint16_t(value * 16384 + 0.5); };
    const auto term = [](double value) { return uint16_t(value * 64 + 0.5); };
    return {fixed(luma),
            fixed(rCr),
            fixed(gCb),
            fixed(gCr),
            fixed(bCb),
            term(luma * black + 128 * rCr - 0.5),
            term(128 * (gCb + gCr) - luma * black + 0.5),
            term(luma * black + 128 * bCb - 0.5)};
}

constexpr Matrix studio = matrix(255.0 / 219, 16, 255.0 / 224);
constexpr Matrix full = matrix(1, 0, 1);

uint16_t times(uint8_t value, uint16_t factor) { return uint16_t(uint32_t(uint16_t(value << 8)) * factor >> 16); }
uint16_t less(uint16_t value, uint16_t by) { return uint16_t(std::max(value, by) - by); }
uint8_t colour(uint16_t value) { return uint8_t(std::min<uint16_t>(value >> 6, 255)); }

// One after the other in memory, so that every loop takes many at once.
constexpr int columns = 1024;
struct Planes {
    alignas(64) uint8_t y[columns], cb[columns], cr[columns];
    alignas(64) uint8_t red[columns], green[columns], blue[columns];
};

void repeatEach(const uint8_t* __restrict in, uint8_t* __restrict out, int count)
{
    for (int i = 0; i < count; ++i) {
        out[2 * i] = in[i];
        out[2 * i + 1] = in[i];
    }
}

void toRgb(Planes& __restrict p, int width, const Matrix m)
{
    for (int i = 0; i < width; ++i) {
        const uint16_t y = times(p.y[i], m.y);
        const uint16_t green = uint16_t(times(p.cb[i], m.gCb) + times(p.cr[i], m.gCr));
        p.blue[i] = colour(less(uint16_t(y + times(p.cb[i], m.bCb)), m.bLess));
        p.green[i] = colour(less(uint16_t(y + m.gMore), green));
        p.red[i] = colour(less(uint16_t(y + times(p.cr[i], m.rCr)), m.rLess));
    }
}

// An even number of pixels of one row.
void pairs(const uint8_t* in, uint8_t* out, int width, const Matrix& m)
{
    Planes p;
    uint8_t cb[columns / 2], cr[columns / 2];
    for (int x = 0; x < width; x += columns) {
        const int n = std::min(columns, width - x);
        libyuv::UYVYToI422(in + 2 * x, 2 * n, p.y, n, cb, n / 2, cr, n / 2, n, 1);
        repeatEach(cb, p.cb, n / 2);
        repeatEach(cr, p.cr, n / 2);
        toRgb(p, n, m);
        libyuv::MergeARGBPlane(p.red, n, p.green, n, p.blue, n, nullptr, 0, out + 4 * x, 4 * n, n, 1);
    }
}

void lastOfOddRow(const uint8_t* in, uint8_t* out, int width, const Matrix& m)
{
    const uint8_t* last = in + 2 * (width - 1);
    const uint8_t pair[4] = {last[0], last[1], width > 1 ? last[-2] : uint8_t(128), last[1]};
    uint8_t pixels[8];
    pairs(pair, pixels, 2, m);
    std::copy(pixels, pixels + 4, out + 4 * (width - 1));
}

}  // namespace

void cbYCrYToBgra(const uint8_t* in, uint8_t* out, int width, int height, bool fullRange)
{
    const Matrix& m = fullRange ? full : studio;
    for (; height > 0; --height, in += 2 * width, out += 4 * width) {
        pairs(in, out, width & ~1, m);
        if (width & 1)
            lastOfOddRow(in, out, width, m);
    }
}

}  // namespace kiv::glx
