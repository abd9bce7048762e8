// jpegWriter.h - decoded frames to JPEG.
#pragma once

#include "platform/rk/decode/colourMatrix.h"
#include "platform/rk/file/ffmpeg.h"

namespace kiv::rk {

// Encodes frames of one picture size at a fixed high quality, with the range and
// the colour matrix that JPEG has. Chroma stays as dense as it was. Not thread-safe.
class JpegWriter {
public:
    JpegWriter(int width, int height) : width_(width), height_(height) { }

    // Replaces `jpeg`'s contents. 0 or an AVERROR. Never more bytes than bound().
    int encode(const AVFrame& frame, AVPacket* jpeg);
    int bound() const;

private:
    // What the scaler was made for.
    struct Source {
        int width, height, format, fullRange, matrix;
        bool operator==(const Source&) const = default;
    };

    int prepare(AVPixelFormat source);
    int makeScaler(const Source& source);
    int convert(const AVFrame& frame);
    int encodeAt(int quantiser, AVPacket* jpeg);

    const int width_, height_;  // of the pictures made
    static Source sourceOf(const AVFrame& frame);

    Source source_ = {};
    ScalerPtr scaler_;
    ColourMatrix matrix_{AVCOL_SPC_UNSPECIFIED};
    CodecPtr encoder_;
    FramePtr picture_;  // in the encoder's layout
};

}  // namespace kiv::rk
