// v4l2Pictures.cpp - see v4l2Pictures.h.
#include "platform/kp/v4l2/v4l2Pictures.h"

#include <cstring>

#include <libyuv/convert.h>
#include <libyuv/convert_from.h>
#include <libyuv/planar_functions.h>

namespace kiv {

namespace {

long long leastBytes(const V4l2Format& format)
{
    const long long luma = (long long)format.stride * format.height;
    const long long chromaRows = (format.height + 1) / 2;
    switch (format.fourcc) {
    case V4L2_PIX_FMT_NV12:
        return luma + format.stride * chromaRows;
    case V4L2_PIX_FMT_YUV420:
        return luma + 2 * (format.stride / 2) * chromaRows;
    case V4L2_PIX_FMT_MJPEG:
        return 1;
    default:
        return luma;
    }
}

int leastStride(const V4l2Format& format)
{
    switch (format.fourcc) {
    case V4L2_PIX_FMT_MJPEG:
        return 0;
    case V4L2_PIX_FMT_NV12:
    case V4L2_PIX_FMT_YUV420:
        return format.width;
    default:
        return format.width * 2;
    }
}

// Y Cb Y Cr from and to Cb Y Cr Y.
void swapBytes(const uint8_t* in, uint8_t* out, int pixels)
{
    for (int i = 0; i < pixels * 2; i += 2) {
        out[i] = in[i + 1];
        out[i + 1] = in[i];
    }
}

}  // namespace

bool picturesFit(const V4l2Format& format)
{
    return format.stride >= leastStride(format) && format.bytes >= leastBytes(format);
}

int V4l2Pictures::open(const V4l2Format& format)
{
    format_ = format;
    chroma_.resize(size_t(format.width));
    jpeg_.reset();
    if (format.fourcc != V4L2_PIX_FMT_MJPEG)
        return 0;
    const ImageFormat picture = {false, format.width, format.height, ZV_IMAGE_PACKING_CbYCrY};
    ImageFormat jpeg = picture;
    jpeg.jpeg = true;
    jpeg_ = openConvertEngine(jpeg, picture);
    return jpeg_ != nullptr ? 0 : -1;
}

bool V4l2Pictures::load(const uint8_t* in, int bytes, uint8_t* out) const
{
    const int width = format_.width;
    const int height = format_.height;
    const int stride = format_.stride;
    const int rowBytes = width * 2;
    if (bytes < leastBytes(format_))
        return false;
    switch (format_.fourcc) {
    case V4L2_PIX_FMT_MJPEG: {
        ConvertJob job;
        job.in = in;
        job.inSize = size_t(bytes);
        job.out = out;
        job.outCapacity = size_t(rowBytes) * size_t(height);
        return jpeg_->convert(job) >= 0;
    }
    case V4L2_PIX_FMT_NV12:
        return loadNv12(in, out);
    case V4L2_PIX_FMT_YUV420: {
        const uint8_t* cb = in + size_t(stride) * size_t(height);
        const uint8_t* cr = cb + size_t(stride / 2) * size_t((height + 1) / 2);
        return libyuv::I420ToUYVY(in, stride, cb, stride / 2, cr, stride / 2, out, rowBytes, width, height) == 0;
    }
    case V4L2_PIX_FMT_YUYV:
        for (int row = 0; row < height; ++row, in += stride, out += rowBytes)
            swapBytes(in, out, width);
        return true;
    default:
        libyuv::CopyPlane(in, stride, out, rowBytes, rowBytes, height);
        return true;
    }
}

// Two rows share one row of chroma.
bool V4l2Pictures::loadNv12(const uint8_t* in, uint8_t* out) const
{
    const int width = format_.width;
    uint8_t* const cb = chroma_.data();
    uint8_t* const cr = cb + width / 2;
    const uint8_t* both = in + size_t(format_.stride) * size_t(format_.height);
    for (int row = 0; row < format_.height; ++row, in += format_.stride, out += width * 2) {
        if (row % 2 == 0) {
            libyuv::SplitUVPlane(both, 0, cb, 0, cr, 0, width / 2, 1);
            both += format_.stride;
        }
        libyuv::I422ToUYVY(in, 0, cb, 0, cr, 0, out, 0, width, 1);
    }
    return true;
}

void V4l2Pictures::store(const uint8_t* in, uint8_t* out) const
{
    const int width = format_.width;
    const int height = format_.height;
    const int stride = format_.stride;
    const int rowBytes = width * 2;
    uint8_t* const chroma = out + size_t(stride) * size_t(height);
    switch (format_.fourcc) {
    case V4L2_PIX_FMT_NV12:
        libyuv::UYVYToNV12(in, rowBytes, out, stride, chroma, stride, width, height);
        break;
    case V4L2_PIX_FMT_YUV420:
        libyuv::UYVYToI420(in, rowBytes, out, stride, chroma, stride / 2,
                           chroma + size_t(stride / 2) * size_t((height + 1) / 2), stride / 2, width, height);
        break;
    case V4L2_PIX_FMT_YUYV:
        for (int row = 0; row < height; ++row, in += rowBytes, out += stride)
            swapBytes(in, out, width);
        break;
    default:
        libyuv::CopyPlane(in, rowBytes, out, stride, rowBytes, height);
    }
}

}  // namespace kiv
