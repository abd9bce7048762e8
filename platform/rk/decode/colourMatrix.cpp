// colourMatrix.cpp - luma and chroma of one matrix as those of another, without a detour through RGB.
#include "platform/rk/decode/colourMatrix.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kiv::rk {

namespace {

struct Weights {
    double red, blue;  // of luma; green has the rest
};

constexpr Weights bt601 = {0.299, 0.114};
constexpr int unityBits = 14;

Weights weightsOf(int space)
{
    switch (space) {
    case AVCOL_SPC_BT709:
        return {0.2126, 0.0722};
    case AVCOL_SPC_SMPTE240M:
        return {0.212, 0.087};
    case AVCOL_SPC_BT2020_NCL:
        return {0.2627, 0.0593};
    default:
        return bt601;
    }
}

int fixedPoint(double value) { return int(std::lround(value * (1 << unityBits))); }

int rounded(int value) { return (value + (1 << (unityBits - 1))) >> unityBits; }

unsigned char clamped(int value) { return (unsigned char)std::clamp(value, 0, 255); }

}  // namespace

// Red and blue as luma plus their chroma, then luma and chroma of BT.601 from
// them: all of it is linear, so one step of Cb and one of Cr tell everything.
ColourMatrix::ColourMatrix(int space)
{
    const Weights from = weightsOf(space), to = bt601;
    needed_ = from.red != to.red;
    const double green = 1 - from.red - from.blue, toGreen = 1 - to.red - to.blue;
    const double redOfCr = 2 * (1 - from.red), blueOfCb = 2 * (1 - from.blue);
    const double lumaOfCb = to.blue * blueOfCb - toGreen * from.blue * blueOfCb / green;
    const double lumaOfCr = to.red * redOfCr - toGreen * from.red * redOfCr / green;
    cbToLuma_ = fixedPoint(lumaOfCb);
    crToLuma_ = fixedPoint(lumaOfCr);
    cbToCb_ = fixedPoint((blueOfCb - lumaOfCb) / (2 * (1 - to.blue)));
    crToCb_ = fixedPoint(-lumaOfCr / (2 * (1 - to.blue)));
    cbToCr_ = fixedPoint(-lumaOfCb / (2 * (1 - to.red)));
    crToCr_ = fixedPoint((redOfCr - lumaOfCr) / (2 * (1 - to.red)));
}

// One row; `luma` gets what is to be added to the luma under each sample.
void ColourMatrix::turnChroma(unsigned char* cb, unsigned char* cr, short* luma, int samples) const
{
    for (int x = 0; x < samples; ++x) {
        const int blue = cb[x] - 128, red = cr[x] - 128;
        luma[x] = short(rounded(cbToLuma_ * blue + crToLuma_ * red));
        cb[x] = clamped(128 + rounded(cbToCb_ * blue + crToCb_ * red));
        cr[x] = clamped(128 + rounded(cbToCr_ * blue + crToCr_ * red));
    }
}

void ColourMatrix::apply(AVFrame& picture) const
{
    const bool halfWidth = picture.format != AV_PIX_FMT_YUVJ444P, halfHeight = picture.format == AV_PIX_FMT_YUVJ420P;
    const int samples = halfWidth ? (picture.width + 1) / 2 : picture.width;
    std::vector<short> added(static_cast<size_t>(samples));
    for (int y = 0; y < picture.height; ++y) {
        const int chromaRow = halfHeight ? y / 2 : y;
        if (!halfHeight || y % 2 == 0)
            turnChroma(picture.data[1] + (long long)chromaRow * picture.linesize[1],
                       picture.data[2] + (long long)chromaRow * picture.linesize[2], added.data(), samples);
        unsigned char* luma = picture.data[0] + (long long)y * picture.linesize[0];
        for (int x = 0; x < picture.width; ++x)
            luma[x] = clamped(luma[x] + added[size_t(halfWidth ? x / 2 : x)]);
    }
}

}  // namespace kiv::rk
