// pixelConverter.cpp - packings and colours of uncompressed pictures.
//
// Row by row through one intermediate row in cache: libyuv's ARGB for the RGB
// packings, planes of luma and full-width chroma for the others; one step between the
// two where the families differ. Colours are BT.601, by default in studio range
// (luma 16..235, chroma 16..240).
#include <cstring>
#include <new>

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>

#include "platform/support/error.h"
#include "platform/zvic/codec.h"
#include "platform/zvic/pixelRows.h"
#include "platform/zvic/rows.h"

namespace kiv {

namespace {

using libyuvRow = int (*)(const uint8_t* src, int srcStride, uint8_t* dst, int dstStride, int width, int height);

// libyuv names the bytes of a little-endian word from the highest: its ARGB is B G R A in memory.
struct RgbPacking {
    int packing;
    int bytes;
    bool opaque;  // what lies in the fourth byte is no alpha
    libyuvRow load;
    libyuvRow store;
};

constexpr RgbPacking rgbPackings[] = {
    {ZV_IMAGE_PACKING_RGB, 3, false, libyuv::RAWToARGB, libyuv::ARGBToRAW},
    {ZV_IMAGE_PACKING_BGR, 3, false, libyuv::RGB24ToARGB, libyuv::ARGBToRGB24},
    {ZV_IMAGE_PACKING_RGBA, 4, false, libyuv::ABGRToARGB, libyuv::ARGBToABGR},
    {ZV_IMAGE_PACKING_RGBX, 4, true, libyuv::ABGRToARGB, libyuv::ARGBToABGR},
    {ZV_IMAGE_PACKING_ABGR, 4, false, libyuv::RGBAToARGB, libyuv::ARGBToRGBA},
    {ZV_IMAGE_PACKING_XBGR, 4, true, libyuv::RGBAToARGB, libyuv::ARGBToRGBA},
    {ZV_IMAGE_PACKING_ARGB, 4, false, libyuv::BGRAToARGB, libyuv::ARGBToBGRA},
    {ZV_IMAGE_PACKING_XRGB, 4, true, libyuv::BGRAToARGB, libyuv::ARGBToBGRA},
};

const RgbPacking* rgbPacking(int packing)
{
    for (const RgbPacking& entry : rgbPackings) {
        if (entry.packing == packing)
            return &entry;
    }
    return nullptr;
}

bool pixelsMatch(const ImageFormat& src, const ImageFormat& dst)
{
    const auto known = [](int packing) { return rgbPacking(packing) != nullptr || yccBytes(packing) != 0; };
    return !src.jpeg && !dst.jpeg && (src.packing == dst.packing || (known(src.packing) && known(dst.packing)));
}

class PixelConverter final : public ConvertEngine {
public:
    PixelConverter(const ImageFormat& src, const ImageFormat& dst);
    int convert(const ConvertJob& job) override;

private:
    void convertRow(const uint8_t* in, uint8_t* out, bool fullRange);
    void loadRgb(const uint8_t* in);
    void rgbToYcc(uint8_t* out, bool fullRange);
    void yccToRgb(const uint8_t* in, bool fullRange);

    ImageFormat src_;
    ImageFormat dst_;
    size_t srcBytes_;
    size_t dstBytes_;
    const RgbPacking* srcRgb_;
    const RgbPacking* dstRgb_;
    std::unique_ptr<uint8_t[]> scratch_;
    uint8_t* argb_ = nullptr;
    YccRow ycc_;
};

PixelConverter::PixelConverter(const ImageFormat& src, const ImageFormat& dst)
    : src_(src), dst_(dst), srcBytes_(size_t(imageBytesMax(src))), dstBytes_(size_t(imageBytesMax(dst))),
      srcRgb_(rgbPacking(src.packing)), dstRgb_(rgbPacking(dst.packing))
{
    const size_t plane = (size_t(src.width) + 63) & ~size_t(63);
    scratch_.reset(new uint8_t[plane * 8]());
    argb_ = scratch_.get();
    ycc_.y = argb_ + plane * 4;
    ycc_.cb = ycc_.y + plane;
    ycc_.cr = ycc_.cb + plane;
    ycc_.alpha = ycc_.cr + plane;
}

int PixelConverter::convert(const ConvertJob& job)
{
    if (job.inSize < srcBytes_)
        return recordError(ZV_ERROR_DATA, "the image has %zu bytes of %zu", job.inSize, srcBytes_);
    if (job.outCapacity < dstBytes_)
        return recordError(ZV_ERROR_ARGUMENT, "the output buffer has %zu bytes of %zu", job.outCapacity, dstBytes_);
    if (src_.packing == dst_.packing) {
        memcpy(job.out, job.in, dstBytes_);
        return int(dstBytes_);
    }
    const size_t srcStride = srcBytes_ / size_t(src_.height);
    const size_t dstStride = dstBytes_ / size_t(dst_.height);
    for (int y = 0; y < src_.height; ++y)
        convertRow(job.in + y * srcStride, job.out + y * dstStride, job.settings.fullRange);
    return int(dstBytes_);
}

void PixelConverter::convertRow(const uint8_t* in, uint8_t* out, bool fullRange)
{
    if (srcRgb_ == nullptr && dstRgb_ == nullptr) {
        loadYcc(src_.packing, in, ycc_, src_.width);
        storeYcc(dst_.packing, ycc_, out, src_.width);
        return;
    }
    if (srcRgb_ != nullptr)
        loadRgb(in);
    else
        yccToRgb(in, fullRange);
    if (dstRgb_ != nullptr)
        dstRgb_->store(argb_, 0, out, 0, src_.width, 1);
    else
        rgbToYcc(out, fullRange);
}

void PixelConverter::loadRgb(const uint8_t* in)
{
    srcRgb_->load(in, 0, argb_, 0, src_.width, 1);
    if (srcRgb_->opaque)
        setOpaque(argb_, src_.width);
}

// CbYCrY is what moves in quantity: libyuv does it from half-width planes.
void PixelConverter::yccToRgb(const uint8_t* in, bool fullRange)
{
    if (src_.packing != ZV_IMAGE_PACKING_CbYCrY) {
        loadYcc(src_.packing, in, ycc_, src_.width);
        yccRowToArgb(ycc_, argb_, src_.width, fullRange);
        return;
    }
    unpackCbYCrY(in, 0, {ycc_.y, ycc_.cb, ycc_.cr, 0, 0}, src_.width, 1);
    libyuv::I422ToARGBMatrix(ycc_.y, 0, ycc_.cb, 0, ycc_.cr, 0, argb_, 0,
                             fullRange ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants, src_.width, 1);
}

void PixelConverter::rgbToYcc(uint8_t* out, bool fullRange)
{
    if (dst_.packing != ZV_IMAGE_PACKING_CbYCrY) {
        argbRowToYcc(argb_, ycc_, src_.width, fullRange);
        storeYcc(dst_.packing, ycc_, out, src_.width);
        return;
    }
    const auto split = fullRange ? libyuv::ARGBToJ422 : libyuv::ARGBToI422;
    split(argb_, 0, ycc_.y, 0, ycc_.cb, 0, ycc_.cr, 0, src_.width, 1);
    packCbYCrY({ycc_.y, ycc_.cb, ycc_.cr, 0, 0}, out, 0, src_.width, 1);
}

std::unique_ptr<ConvertEngine> openPixels(const ImageFormat& src, const ImageFormat& dst)
{
    return std::make_unique<PixelConverter>(src, dst);
}

}  // namespace

const ConverterKind pixelConverter = {"pixel converter", pixelsMatch, openPixels};

}  // namespace kiv
