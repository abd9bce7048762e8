// jpegFrames.h - frames that are JPEG in the file, whichever way they are read.
#pragma once

#include <mutex>

#include "platform/rk/decode/frameSource.h"

namespace kiv::rk {

// Each frame is whole in itself: its picture comes from its bytes alone.
class JpegFrames : public FrameSource {
public:
    int picture(int index, AVFrame* frame) override;

protected:
    JpegFrames(const MovieFile& file, const AVCodecParameters* codec);

    const MovieFile& file_;

private:
    int load(int index);
    int decode(int index, AVFrame* frame);

    const ParametersPtr parameters_;
    std::mutex lock_;  // guards the two below
    CodecPtr decoder_;  // made for the first picture
    PacketPtr packet_;
};

}  // namespace kiv::rk
