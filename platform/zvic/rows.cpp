// rows.cpp - loops over single rows of pixels.
#include "platform/zvic/rows.h"

#include <cstring>

#include <libyuv/planar_functions.h>

namespace kiv {

void packCbYCrY(const PlaneRows& planes, uint8_t* dst, ptrdiff_t stride, int width, int rows)
{
    if (width > 1)
        libyuv::I422ToUYVY(planes.y, planes.yStride, planes.cb, planes.cStride, planes.cr, planes.cStride, dst,
                           int(stride), width & ~1, rows);
    if ((width & 1) == 0)
        return;
    for (int row = 0; row < rows; ++row) {
        uint8_t* last = dst + row * stride + 2 * (width - 1);
        last[0] = planes.cb[row * planes.cStride + width / 2];
        last[1] = planes.y[row * planes.yStride + width - 1];
    }
}

void unpackCbYCrY(const uint8_t* src, ptrdiff_t stride, const PlaneRows& planes, int width, int rows)
{
    if (width > 1)
        libyuv::UYVYToI422(src, int(stride), planes.y, planes.yStride, planes.cb, planes.cStride, planes.cr,
                           planes.cStride, width & ~1, rows);
    if ((width & 1) == 0)
        return;
    const int pair = width / 2;
    for (int row = 0; row < rows; ++row) {
        const uint8_t* last = src + row * stride + 2 * (width - 1);
        uint8_t* cr = planes.cr + row * planes.cStride;
        planes.cb[row * planes.cStride + pair] = last[0];
        planes.y[row * planes.yStride + width - 1] = last[1];
        cr[pair] = pair > 0 ? cr[pair - 1] : 128;
    }
}

void halveRow(const uint8_t* __restrict src, uint8_t* __restrict dst, int width)
{
    const int pairs = width / 2;
    for (int i = 0; i < pairs; ++i)
        dst[i] = uint8_t((src[2 * i] + src[2 * i + 1] + 1) >> 1);
    if (width & 1)
        dst[pairs] = src[width - 1];
}

void packCbYCrYFromYCC(const uint8_t* ycc, uint8_t* dst, int width)
{
    for (int i = 0; i + 1 < width; i += 2, ycc += 6, dst += 4) {
        dst[0] = uint8_t((ycc[1] + ycc[4] + 1) >> 1);
        dst[1] = ycc[0];
        dst[2] = uint8_t((ycc[2] + ycc[5] + 1) >> 1);
        dst[3] = ycc[3];
    }
    if (width & 1) {
        dst[0] = ycc[1];
        dst[1] = ycc[0];
    }
}

void padRow(uint8_t* row, int width, int paddedWidth)
{
    if (paddedWidth > width)
        memset(row + width, row[width - 1], size_t(paddedWidth - width));
}

}  // namespace kiv
