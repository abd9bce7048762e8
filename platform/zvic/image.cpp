// image.cpp - formats of images: reading them from lists, and their sizes.
#include <climits>
#include <cstring>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"
#include "platform/zvic/codec.h"

namespace kiv {

namespace {

int checkSide(const char* what, int value, const char* limitName, int limit)
{
    if (value < 1)
        return recordError(ZV_ERROR_ARGUMENT, "image %s %d is below 1", what, value);
    if (value > limit)
        return recordError(ZV_ERROR_LIMIT, "image %s %d is over the limit %s of %d", what, value, limitName, limit);
    return 0;
}

// Room for a JPEG of that size however noisy it is: six bytes a pixel are three
// times what three full components hold, and one block of noise at quality 100
// takes less; an APP segment and the tables come on top.
int jpegBytesMax(int width, int height)
{
    const long long padded = ((width + 15LL) & ~15LL) * ((height + 15LL) & ~15LL);
    const long long bytes = padded * 6 + (64 << 10) + 2048;
    return bytes > INT_MAX ? INT_MAX : int(bytes);
}

}  // namespace

int readImageFormat(const ZVparams* p, ImageFormat* format)
{
    if (!paramsAlive(p))
        return -1;
    const KivLimits& limits = *kivLimits();
    ImageFormat read;
    read.width = paramsGetInt(p, ZV_IMAGE_WIDTH);
    read.height = paramsGetInt(p, ZV_IMAGE_HEIGHT);
    read.packing = paramsGetEnum(p, ZV_IMAGE_PACKING);
    const char* compression = paramsGetString(p, ZV_IMAGE_COMPRESSION);
    if (compression == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "the list does not say %s", ZV_IMAGE_COMPRESSION);
    read.jpeg = strcmp(compression, ZV_COMPRESSION_JPEG) == 0;
    if (!read.jpeg && strcmp(compression, ZV_COMPRESSION_UNCOMPRESSED) != 0)
        return recordError(ZV_ERROR_UNSUPPORTED, "unknown compression \"%.64s\"", compression);
    if (checkSide("width", read.width, "imageWidth", limits.imageWidth) != 0
        || checkSide("height", read.height, "imageHeight", limits.imageHeight) != 0)
        return -1;
    if (imageBytesMax(read) < 0)
        return -1;
    *format = read;
    return 0;
}

int imageBytesMax(const ImageFormat& format)
{
    if (format.jpeg)
        return jpegBytesMax(format.width, format.height);
    return frameBytes(format.width, format.height, format.packing);
}

}  // namespace kiv
