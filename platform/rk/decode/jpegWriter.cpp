// jpegWriter.cpp - swscale to full range, the matrix of JPEG, then the mjpeg encoder.
#include "platform/rk/decode/jpegWriter.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kiv::rk {

namespace {

constexpr int bestQuantiser = 2, worstQuantiser = 31;

// The layout of JPEG that keeps the source's chroma.
AVPixelFormat jpegLayout(AVPixelFormat source)
{
    const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(source);
    if (about == nullptr || about->nb_components < 3)
        return AV_PIX_FMT_YUVJ420P;
    if (about->log2_chroma_w == 0)
        return AV_PIX_FMT_YUVJ444P;
    return about->log2_chroma_h == 0 ? AV_PIX_FMT_YUVJ422P : AV_PIX_FMT_YUVJ420P;
}

CodecPtr openEncoder(int width, int height, AVPixelFormat layout)
{
    CodecPtr encoder(avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_MJPEG)));
    if (!encoder)
        return nullptr;
    encoder->width = width;
    encoder->height = height;
    encoder->pix_fmt = layout;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = {1, 1};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->thread_count = 1;  // so that a frame that goes in comes out
    return avcodec_open2(encoder.get(), nullptr, nullptr) == 0 ? std::move(encoder) : nullptr;
}

bool isRgb(const AVFrame& frame)
{
    const AVPixFmtDescriptor* about = av_pix_fmt_desc_get(AVPixelFormat(frame.format));
    return about != nullptr && (about->flags & AV_PIX_FMT_FLAG_RGB) != 0;
}

bool isFullRange(const AVFrame& frame) { return isRgb(frame) || frame.color_range == AVCOL_RANGE_JPEG; }

// The AVColorSpace; a picture that does not say is taken by its size, as players do.
int matrixOf(const AVFrame& frame)
{
    if (isRgb(frame))
        return AVCOL_SPC_SMPTE170M;  // the scaler makes it that of JPEG
    if (frame.colorspace == AVCOL_SPC_UNSPECIFIED)
        return frame.height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
    return frame.colorspace;
}

}  // namespace

// Twice the raw picture in the densest layout, whole blocks, and the headers:
// what does not fit is encoded again more coarsely.
int JpegWriter::bound() const
{
    const long long blocks = ((width_ + 15LL) & ~15LL) * ((height_ + 15LL) & ~15LL);
    const long long bytes = 6 * blocks + 4096;
    return bytes < INT32_MAX ? int(bytes) : INT32_MAX;
}

int JpegWriter::prepare(AVPixelFormat source)
{
    const AVPixelFormat layout = jpegLayout(source);
    if (encoder_ && encoder_->pix_fmt == layout)
        return 0;
    encoder_ = openEncoder(width_, height_, layout);
    picture_ = newFrame();
    picture_->width = width_;
    picture_->height = height_;
    picture_->format = layout;
    picture_->color_range = AVCOL_RANGE_JPEG;
    picture_->pts = 0;
    scaler_.reset();
    return encoder_ ? av_frame_get_buffer(picture_.get(), 0) : AVERROR_ENCODER_NOT_FOUND;
}

JpegWriter::Source JpegWriter::sourceOf(const AVFrame& frame)
{
    return {frame.width, frame.height, frame.format, isFullRange(frame), matrixOf(frame)};
}

int JpegWriter::makeScaler(const Source& source)
{
    scaler_.reset(sws_getContext(source.width, source.height, AVPixelFormat(source.format), width_, height_,
                                 AVPixelFormat(picture_->format), SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr,
                                 nullptr));
    if (!scaler_)
        return AVERROR(ENOSYS);
    const int* same = sws_getCoefficients(SWS_CS_ITU601);
    const int unity = 1 << 16;
    sws_setColorspaceDetails(scaler_.get(), same, source.fullRange, same, 1, 0, unity, unity);
    matrix_ = ColourMatrix(source.matrix);
    source_ = source;
    return 0;
}

int JpegWriter::convert(const AVFrame& frame)
{
    const Source source = sourceOf(frame);
    int result = scaler_ && source == source_ ? 0 : makeScaler(source);
    if (result == 0)
        result = av_frame_make_writable(picture_.get());  // the encoder may still hold the last one
    if (result < 0)
        return result;
    const int lines
        = sws_scale(scaler_.get(), frame.data, frame.linesize, 0, frame.height, picture_->data, picture_->linesize);
    if (lines < 0)
        return AVERROR_EXTERNAL;
    if (matrix_.isNeeded())
        matrix_.apply(*picture_);
    return 0;
}

int JpegWriter::encodeAt(int quantiser, AVPacket* jpeg)
{
    av_packet_unref(jpeg);
    picture_->quality = quantiser * FF_QP2LAMBDA;
    ++picture_->pts;
    const int result = avcodec_send_frame(encoder_.get(), picture_.get());
    return result < 0 ? result : avcodec_receive_packet(encoder_.get(), jpeg);
}

int JpegWriter::encode(const AVFrame& frame, AVPacket* jpeg)
{
    int result = prepare(AVPixelFormat(frame.format));
    if (result == 0)
        result = convert(frame);
    for (int quantiser = bestQuantiser; result == 0; quantiser *= 2) {
        result = encodeAt(quantiser, jpeg);
        if (result < 0 || jpeg->size <= bound())
            return result;
        if (quantiser > worstQuantiser)
            return AVERROR_BUFFER_TOO_SMALL;
    }
    return result;
}

}  // namespace kiv::rk
