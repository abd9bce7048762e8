// image.cpp - what a list says about a picture, and about the pool for it.
#include <algorithm>
#include <climits>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

// Bytes of a row in memory; 0 for an unknown packing.
long long rowBytes(long long width, int packing)
{
    switch (packing) {
    case ZV_IMAGE_PACKING_LUMINANCE:
    case ZV_IMAGE_PACKING_BGR233:
    case ZV_IMAGE_PACKING_RGB332:
    case ZV_IMAGE_PACKING_RBG323:
        return width;
    case ZV_IMAGE_PACKING_CbYCrY:
    case ZV_IMAGE_PACKING_LUMINANCE_ALPHA:
    case ZV_IMAGE_PACKING_XRGB1555:
    case ZV_IMAGE_PACKING_RGBA5551:
        return width * 2;
    case ZV_IMAGE_PACKING_BGR:
    case ZV_IMAGE_PACKING_RGB:
    case ZV_IMAGE_PACKING_CbYCr:
        return width * 3;
    case ZV_IMAGE_PACKING_ABGR:
    case ZV_IMAGE_PACKING_XBGR:
    case ZV_IMAGE_PACKING_XRGB:
    case ZV_IMAGE_PACKING_ARGB:
    case ZV_IMAGE_PACKING_RGBA:
    case ZV_IMAGE_PACKING_RGBX:
    case ZV_IMAGE_PACKING_CbYCrA:
        return width * 4;
    case ZV_IMAGE_PACKING_CbYCrYYY:
        return (width + 3) / 4 * 6;
    default:
        return 0;
    }
}

bool fitsLimits(int width, int height)
{
    const KivLimits& limits = *kivLimits();
    if (width < 0 || height < 0)
        recordError(ZV_ERROR_ARGUMENT, "a picture of %d x %d", width, height);
    else if (width > limits.imageWidth)
        recordError(ZV_ERROR_LIMIT, "a picture %d wide: imageWidth allows %d", width, limits.imageWidth);
    else if (height > limits.imageHeight)
        recordError(ZV_ERROR_LIMIT, "a picture %d high: imageHeight allows %d", height, limits.imageHeight);
    else
        return true;
    return false;
}

bool isPacking(int packing)
{
    if (rowBytes(1, packing) > 0)
        return true;
    recordError(ZV_ERROR_ARGUMENT, "no pixel packing has the number %d", packing);
    return false;
}

int glPoolParams(const ZVparams* image, ZVparams* pool)
{
    const int frame = imageFrameSize(image);
    if (frame < 0 || !paramsAlive(pool))
        return ZV_FAILURE;
    const int count = std::max(paramsGetInt(pool, ZV_BUFFER_COUNT), 1);
    const int size = std::max(paramsGetInt(pool, ZV_BUFFER_SIZE), frame);
    if (paramsSetInt(pool, ZV_BUFFER_COUNT, count) < 0)
        return ZV_FAILURE;
    return paramsSetInt(pool, ZV_BUFFER_SIZE, size);
}

}  // namespace

int frameBytes(int width, int height, int packing)
{
    if (width < 0 || height < 0)
        return recordError(ZV_ERROR_ARGUMENT, "a picture of %d x %d", width, height);
    if (!isPacking(packing))
        return -1;
    const long long row = rowBytes(width, packing);
    if (row != 0 && height > INT_MAX / row)
        return recordError(ZV_ERROR_LIMIT, "a frame of %d x %d, packing %d, has more than %d bytes", width, height,
                           packing, INT_MAX);
    return int(row * height);
}

int imageFrameSize(const ZVparams* p)
{
    if (!paramsAlive(p))
        return -1;
    if (paramsGetType(p, ZV_IMAGE_WIDTH) != ZV_TYPE_INT || paramsGetType(p, ZV_IMAGE_HEIGHT) != ZV_TYPE_INT)
        return recordError(ZV_ERROR_ARGUMENT, "the list has no picture size");
    return frameBytes(paramsGetInt(p, ZV_IMAGE_WIDTH), paramsGetInt(p, ZV_IMAGE_HEIGHT),
                      paramsGetEnum(p, ZV_IMAGE_PACKING));
}

int setImageDefaults(ZVparams* p, int width, int height, int packing)
{
    if (!paramsAlive(p) || !fitsLimits(width, height) || !isPacking(packing))
        return ZV_FAILURE;
    const bool set = paramsSetInt(p, ZV_IMAGE_WIDTH, width) == 0 && paramsSetInt(p, ZV_IMAGE_HEIGHT, height) == 0
        && paramsSetEnum(p, ZV_IMAGE_PACKING, packing) == 0
        && paramsSetString(p, ZV_IMAGE_COMPRESSION, ZV_COMPRESSION_UNCOMPRESSED) == 0
        && paramsSetEnum(p, ZV_IMAGE_ORIENTATION, ZV_IMAGE_ORIENTATION_TOP_TO_BOTTOM) == 0
        && paramsSetEnum(p, ZV_IMAGE_LAYOUT, ZV_IMAGE_LAYOUT_GRAPHICS) == 0;
    return set ? ZV_SUCCESS : ZV_FAILURE;
}

int setPoolDefaults(ZVparams* p, int count, int size, int cacheable, int mapped)
{
    if (count < 0 || size < 0 || cacheable < 0 || mapped < 0)
        return recordError(ZV_ERROR_ARGUMENT, "a pool of %d buffers of %d bytes, cacheable %d, mapped %d", count, size,
                           cacheable, mapped);
    const bool set = paramsSetInt(p, ZV_BUFFER_COUNT, count) == 0 && paramsSetInt(p, ZV_BUFFER_SIZE, size) == 0
        && paramsSetInt(p, ZV_BUFFER_CACHEABLE, cacheable) == 0 && paramsSetInt(p, ZV_BUFFER_MAPPED, mapped) == 0;
    return set ? ZV_SUCCESS : ZV_FAILURE;
}

}  // namespace kiv

using namespace kiv;

// Fills the image keys for an uncompressed picture, top row first.
extern "C" int zvSetImageDefaults(ZVparams* p, int width, int height, int packing)
{
    return setImageDefaults(p, width, height, packing);
}

extern "C" int zvImageFrameSize(const ZVparams* p) { return imageFrameSize(p); }

extern "C" int zvBufferSetPoolDefaults(ZVparams* p, int count, int size, int cacheable, int mapped)
{
    return setPoolDefaults(p, count, size, cacheable, mapped);
}

extern "C" int zvBufferGetGLPoolParams(const ZVparams* image, ZVparams* pool) { return glPoolParams(image, pool); }
