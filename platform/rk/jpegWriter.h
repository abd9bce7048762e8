// jpegWriter.h - decoded frames to JPEG.
#pragma once

#include "platform/rk/ffmpeg.h"

namespace kiv::rk {

// Encodes frames of one picture size at a fixed high quality, with full-range
// samples as JPEG has them. Chroma stays as dense as it was. Not thread-safe.
class JpegWriter {
public:
    JpegWriter(int width, int height) : width_(width), height_(height) { }

    // Replaces `jpeg`'s contents. 0 or an AVERROR. Never more bytes than bound().
    int encode(const AVFrame& frame, AVPacket* jpeg);
    int bound() const;

private:
    int prepare(AVPixelFormat source);
    int convert(const AVFrame& frame);
    int encodeAt(int quantiser, AVPacket* jpeg);

    const int width_, height_;  // of the pictures made
    AVPixelFormat source_ = AV_PIX_FMT_NONE;
    int sourceWidth_ = 0, sourceHeight_ = 0, sourceRange_ = -1;
    ScalerPtr scaler_;
    CodecPtr encoder_;
    FramePtr picture_;  // in the encoder's layout
};

}  // namespace kiv::rk
