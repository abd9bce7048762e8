// frameDecoder.cpp - finds the key, decodes on, and knows each frame by the packet it came in.
#include "platform/rk/decode/frameDecoder.h"

#include <cerrno>

#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

// A seek may land behind its key, and a group may lean on the one before; what
// does not come out then is damaged, and decoding the whole movie would not help.
constexpr int groupsTried = 3;

}  // namespace

CodecPtr openDecoder(const MovieFile& file, const AVCodecParameters* parameters)
{
    const AVCodec* decoder = avcodec_find_decoder(parameters->codec_id);
    if (decoder == nullptr) {
        recordError(ZV_ERROR_UNSUPPORTED, "'%s': no decoder for %s", file.name(),
                    avcodec_get_name(parameters->codec_id));
        return nullptr;
    }
    CodecPtr codec(avcodec_alloc_context3(decoder));
    if (!codec || avcodec_parameters_to_context(codec.get(), parameters) < 0)
        throw std::bad_alloc();
    codec->thread_count = 1;  // a frame asked for out of order then waits for no other
    codec->max_pixels = (long long)kivLimits()->imageWidth * kivLimits()->imageHeight;
    const int result = avcodec_open2(codec.get(), decoder, nullptr);
    if (result >= 0)
        return codec;
    recordError(ZV_ERROR_UNSUPPORTED, "'%s': %s cannot be decoded: %s", file.name(), decoder->name,
                AvText(result).text);
    return nullptr;
}

int checkDecoded(const MovieFile& file, int index, int result)
{
    if (result == AVERROR(ENOMEM))
        throw std::bad_alloc();
    if (result >= 0)
        return 0;
    return recordError(wasStopped(result) ? ZV_ERROR_STOPPED : ZV_ERROR_DATA, "'%s': frame %d cannot be decoded: %s",
                       file.name(), index, AvText(result).text);
}

int FrameDecoder::open(const MovieFile& file)
{
    codec_ = openDecoder(file, parameters());
    if (!codec_)
        return -1;
    packet_ = newPacket();
    rank_.assign(reader_.list().packets.size(), -1);
    for (int i = 0; i < frames(); ++i)
        rank_[size_t(reader_.list().shown[size_t(i)])] = i;
    return 0;
}

// The last key at or before `packet` whose own picture is shown no later than `time`:
// what follows a key but is shown before it may need the group before.
int FrameDecoder::keyBefore(int packet, long long time) const
{
    const std::vector<PacketEntry>& packets = reader_.list().packets;
    while (packet > 0 && !(packets[size_t(packet)].key && packets[size_t(packet)].time <= time))
        --packet;
    return packet;
}

// Whether decoding on from here reaches the frame with no more work than from its key.
bool FrameDecoder::leadsTo(int key, int index) const
{
    return reader_.expected() >= 0 && index > last_ && key <= reader_.expected();
}

int FrameDecoder::restart(int key)
{
    avcodec_flush_buffers(codec_.get());
    draining_ = false;
    last_ = -1;
    return reader_.seek(key);
}

// Gives the decoder one more packet, or tells it that none is left. The packet's
// place travels as its time: the decoder hands it out again with the picture.
int FrameDecoder::feed()
{
    int at = -1;
    int result = draining_ ? AVERROR_EOF : reader_.next(packet_.get(), at);
    if (result < 0 && result != AVERROR_EOF)
        return result;
    if (result == AVERROR_EOF) {
        draining_ = true;
        result = avcodec_send_packet(codec_.get(), nullptr);
    } else {
        packet_->pts = packet_->dts = at;
        result = avcodec_send_packet(codec_.get(), packet_.get());
        av_packet_unref(packet_.get());
    }
    return result == AVERROR_INVALIDDATA ? 0 : result;  // a damaged packet shows nothing; others may be right
}

int FrameDecoder::decodeUpTo(int index, AVFrame* frame)
{
    for (;;) {
        const int result = avcodec_receive_frame(codec_.get(), frame);
        if (result == 0) {
            const long long place = frame->pts;
            if (place < 0 || place >= (long long)rank_.size())
                continue;
            last_ = rank_[size_t(place)];
            if (last_ >= index)
                return last_ == index ? 0 : AVERROR(ERANGE);
            continue;
        }
        if (result != AVERROR(EAGAIN) && result != AVERROR_INVALIDDATA)
            return result;
        const int fed = feed();
        if (fed < 0)
            return fed;
    }
}

int FrameDecoder::decode(int index, AVFrame* frame)
{
    const int packet = reader_.list().shown[size_t(index)];
    const long long time = reader_.list().packets[size_t(packet)].time;
    int key = keyBefore(packet, time);
    int result = leadsTo(key, index) ? 0 : restart(key);
    for (int groups = 1;; ++groups) {
        if (result == 0)
            result = decodeUpTo(index, frame);
        if (result == 0 || wasStopped(result) || result == AVERROR(ENOMEM) || key == 0 || groups == groupsTried)
            return result;
        key = keyBefore(key - 1, time);  // came out too late, or not at all: begin one group earlier
        result = restart(key);
    }
}

}  // namespace kiv::rk
