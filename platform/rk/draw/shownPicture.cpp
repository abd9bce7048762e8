// shownPicture.cpp - which pictures the shader takes, their colours, and RGBA for the rest.
#include "platform/rk/draw/shownPicture.h"

namespace kiv::rk {

namespace {

bool isFullRange(const AVFrame& frame)
{
    switch (frame.format) {
    case AV_PIX_FMT_YUVJ411P:
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
        return frame.color_range != AVCOL_RANGE_MPEG;
    default:
        return frame.color_range == AVCOL_RANGE_JPEG;
    }
}

// Three planes of bytes, rows from the top down.
bool isPlanarBytes(const AVFrame& frame)
{
    const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    constexpr uint64_t others = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM
        | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_BAYER | AV_PIX_FMT_FLAG_FLOAT;
    if (about == nullptr || about->nb_components != 3 || (about->flags & others) != 0)
        return false;
    for (int i = 0; i < 3; ++i) {
        const AVComponentDescriptor& component = about->comp[i];
        if (component.plane != i || component.depth != 8 || component.step != 1 || frame.linesize[i] <= 0)
            return false;
    }
    return true;
}

int roundedUp(int size, int shift) { return -(-size >> shift); }

// The scaler's own numbers, so that both ways give the same colours: what a step of
// Cr adds to red and so on, in 1/2^16, for studio range.
ShownPicture::Colours coloursOf(const AVFrame& frame)
{
    const int* steps = sws_getCoefficients(frame.colorspace);
    const bool full = isFullRange(frame);
    const float chroma = (full ? 224.0f / 255.0f : 1.0f) / 65536.0f;
    ShownPicture::Colours colours;
    colours.luma = full ? 1.0f : 255.0f / 219.0f;
    colours.redOfCr = chroma * float(steps[0]);
    colours.greenOfCb = -chroma * float(steps[2]);
    colours.greenOfCr = -chroma * float(steps[3]);
    colours.blueOfCb = chroma * float(steps[1]);
    const float black = full ? 0.0f : colours.luma * 16 / 255, middle = 128.0f / 255;
    colours.black[0] = -black - middle * colours.redOfCr;
    colours.black[1] = -black - middle * (colours.greenOfCb + colours.greenOfCr);
    colours.black[2] = -black - middle * colours.blueOfCb;
    return colours;
}

void showPlanes(const AVFrame& frame, ShownPicture& shown)
{
    const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    shown.planes = 3;
    for (int i = 0; i < 3; ++i) {
        const int shiftX = i == 0 ? 0 : about->log2_chroma_w, shiftY = i == 0 ? 0 : about->log2_chroma_h;
        shown.plane[i] = {
            frame.data[i], roundedUp(frame.width, shiftX), roundedUp(frame.height, shiftY), frame.linesize[i], shiftX,
            shiftY};
    }
    shown.colours = coloursOf(frame);
}

}  // namespace

int PictureShower::toRgba(const AVFrame& frame)
{
    const Source source = {frame.width, frame.height, frame.format, isFullRange(frame), frame.colorspace};
    if (!scaler_ || source != source_) {
        constexpr int exact = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP;
        scaler_.reset(sws_getContext(frame.width, frame.height, AVPixelFormat(frame.format), frame.width, frame.height,
                                     AV_PIX_FMT_RGBA, exact, nullptr, nullptr, nullptr));
        if (!scaler_)
            return AVERROR(ENOSYS);
        const int* steps = sws_getCoefficients(frame.colorspace);
        sws_setColorspaceDetails(scaler_.get(), steps, source.fullRange, steps, 0, 0, 1 << 16, 1 << 16);
        source_ = source;
        rgba_ = newFrame();
        rgba_->width = frame.width;
        rgba_->height = frame.height;
        rgba_->format = AV_PIX_FMT_RGBA;
        if (const int result = av_frame_get_buffer(rgba_.get(), 0); result < 0) {
            scaler_.reset();
            return result;
        }
    }
    const int rows
        = sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, rgba_->data, rgba_->linesize);
    return rows < 0 ? rows : 0;
}

int PictureShower::show(const AVFrame& frame, ShownPicture& shown)
{
    shown.width = frame.width;
    shown.height = frame.height;
    if (isPlanarBytes(frame)) {
        showPlanes(frame, shown);
        return 0;
    }
    shown.planes = 1;
    const int result = toRgba(frame);
    if (result == 0)
        shown.plane[0] = {rgba_->data[0], frame.width, frame.height, rgba_->linesize[0], 0, 0};
    return result;
}

}  // namespace kiv::rk
