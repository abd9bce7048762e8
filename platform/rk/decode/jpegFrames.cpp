// jpegFrames.cpp - see jpegFrames.h.
#include "platform/rk/decode/jpegFrames.h"

#include "platform/rk/decode/frameDecoder.h"

namespace kiv::rk {

JpegFrames::JpegFrames(const MovieFile& file, const AVCodecParameters* codec)
    : file_(file), parameters_(avcodec_parameters_alloc())
{
    if (!parameters_ || avcodec_parameters_copy(parameters_.get(), codec) < 0)
        throw std::bad_alloc();
}

// Puts the frame's bytes into packet_. 0, or -1 with an error recorded.
int JpegFrames::load(int index)
{
    const int bytes = size(index);
    if (bytes < 0)
        return -1;
    if (!packet_)
        packet_ = newPacket();
    av_packet_unref(packet_.get());
    if (av_new_packet(packet_.get(), bytes) < 0)
        throw std::bad_alloc();
    return read(index, bytes, packet_->data);
}

int JpegFrames::decode(int index, AVFrame* frame)
{
    int result = avcodec_send_packet(decoder_.get(), packet_.get());
    if (result >= 0)
        result = avcodec_receive_frame(decoder_.get(), frame);
    avcodec_flush_buffers(decoder_.get());  // nothing of this frame reaches the next
    return checkDecoded(file_, index, result);
}

int JpegFrames::picture(int index, AVFrame* frame)
{
    std::lock_guard guard(lock_);
    if (load(index) != 0)
        return -1;
    if (!decoder_)
        decoder_ = openDecoder(file_, parameters_.get());
    return decoder_ ? decode(index, frame) : -1;
}

}  // namespace kiv::rk
