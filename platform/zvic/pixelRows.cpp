// pixelRows.cpp - rows of luma and chroma.
#include "platform/zvic/pixelRows.h"

#include "platform/zv/zv.h"

namespace kiv {

namespace {

// BT.601 in units of 1/65536.
struct Range {
    int black;  // luma of black
    int yToRgb, rCr, gCb, gCr, bCb;
    int yR, yG, yB;  // luma from RGB; their sum is what white takes above black
    int cbR, cbG, crG, crB, c;  // chroma from RGB; c weighs the colour itself
};
constexpr Range studio
    = {16, 76309, 104597, -25675, -53279, 132201, 16829, 33039, 6416, -9714, -19070, -24103, -4681, 28784};
constexpr Range full
    = {0, 65536, 91881, -22554, -46802, 116130, 19595, 38470, 7471, -11058, -21710, -27439, -5329, 32768};

uint8_t clamp(int value) { return uint8_t(value < 0 ? 0 : value > 255 ? 255 : value); }

void storeCbYCrY(const YccRow& row, uint8_t* out, int width)
{
    for (int i = 0; i + 1 < width; i += 2, out += 4) {
        out[0] = uint8_t((row.cb[i] + row.cb[i + 1] + 1) >> 1);
        out[1] = row.y[i];
        out[2] = uint8_t((row.cr[i] + row.cr[i + 1] + 1) >> 1);
        out[3] = row.y[i + 1];
    }
    if (width & 1) {
        out[0] = row.cb[width - 1];
        out[1] = row.y[width - 1];
    }
}

}  // namespace

int yccBytes(int packing)
{
    switch (packing) {
    case ZV_IMAGE_PACKING_LUMINANCE:
        return 1;
    case ZV_IMAGE_PACKING_LUMINANCE_ALPHA:
        return 2;
    case ZV_IMAGE_PACKING_CbYCrY:
        return 2;
    case ZV_IMAGE_PACKING_CbYCr:
        return 3;
    case ZV_IMAGE_PACKING_CbYCrA:
        return 4;
    default:
        return 0;
    }
}

void loadYcc(int packing, const uint8_t* in, const YccRow& row, int width)
{
    const bool luminance = packing == ZV_IMAGE_PACKING_LUMINANCE || packing == ZV_IMAGE_PACKING_LUMINANCE_ALPHA;
    const bool alpha = packing == ZV_IMAGE_PACKING_LUMINANCE_ALPHA || packing == ZV_IMAGE_PACKING_CbYCrA;
    const int bytes = yccBytes(packing);
    for (int i = 0; i < width; ++i) {
        const uint8_t* pixel = in + i * bytes;
        row.y[i] = luminance ? pixel[0] : pixel[1];
        if (packing == ZV_IMAGE_PACKING_CbYCrY) {
            // The last Cr of an odd row is the one before it.
            const uint8_t* pair = in + (i & ~1) * 2;
            row.cb[i] = pair[0];
            row.cr[i] = (i | 1) < width ? pair[2] : i > 0 ? pair[-2] : 128;
        } else {
            row.cb[i] = luminance ? 128 : pixel[0];
            row.cr[i] = luminance ? 128 : pixel[2];
        }
        row.alpha[i] = alpha ? pixel[bytes - 1] : 255;
    }
}

void storeYcc(int packing, const YccRow& row, uint8_t* out, int width)
{
    if (packing == ZV_IMAGE_PACKING_CbYCrY) {
        storeCbYCrY(row, out, width);
        return;
    }
    const int bytes = yccBytes(packing);
    for (int i = 0; i < width; ++i, out += bytes) {
        if (bytes <= 2) {
            out[0] = row.y[i];
        } else {
            out[0] = row.cb[i];
            out[1] = row.y[i];
            out[2] = row.cr[i];
        }
        if (bytes == 2 || bytes == 4)
            out[bytes - 1] = row.alpha[i];
    }
}

void yccRowToArgb(const YccRow& row, uint8_t* argb, int width, bool fullRange)
{
    const Range range = fullRange ? full : studio;
    for (int i = 0; i < width; ++i, argb += 4) {
        const int y = (row.y[i] - range.black) * range.yToRgb + (1 << 15);
        const int cb = row.cb[i] - 128;
        const int cr = row.cr[i] - 128;
        argb[0] = clamp((y + range.bCb * cb) >> 16);
        argb[1] = clamp((y + range.gCb * cb + range.gCr * cr) >> 16);
        argb[2] = clamp((y + range.rCr * cr) >> 16);
        argb[3] = row.alpha[i];
    }
}

void argbRowToYcc(const uint8_t* argb, const YccRow& row, int width, bool fullRange)
{
    const Range range = fullRange ? full : studio;
    constexpr int half = 1 << 15;
    for (int i = 0; i < width; ++i, argb += 4) {
        const int b = argb[0];
        const int g = argb[1];
        const int r = argb[2];
        row.y[i] = uint8_t(((range.yR * r + range.yG * g + range.yB * b + half) >> 16) + range.black);
        row.cb[i] = clamp(((range.cbR * r + range.cbG * g + range.c * b + half) >> 16) + 128);
        row.cr[i] = clamp(((range.c * r + range.crG * g + range.crB * b + half) >> 16) + 128);
        row.alpha[i] = argb[3];
    }
}

void setOpaque(uint8_t* argb, int width)
{
    for (int i = 0; i < width; ++i)
        argb[4 * i + 3] = 255;
}

}  // namespace kiv
