// ffmpeg.h - FFmpeg's libraries, and owners for what they hand out.
#pragma once

#include <memory>

#include "platform/rk/file/ffmpegCalls.h"

namespace kiv::rk {

struct Deleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using PacketPtr = std::unique_ptr<AVPacket, Deleter>;
using FramePtr = std::unique_ptr<AVFrame, Deleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, Deleter>;
using ParametersPtr = std::unique_ptr<AVCodecParameters, Deleter>;
using ScalerPtr = std::unique_ptr<SwsContext, Deleter>;

// Throw std::bad_alloc, which the public calls turn into ZV_ERROR_MEMORY.
PacketPtr newPacket();
FramePtr newFrame();

// What FFmpeg says about a negative result.
struct AvText {
    explicit AvText(int result) { av_strerror(result, text, sizeof text); }
    char text[96] = "";
};

}  // namespace kiv::rk
