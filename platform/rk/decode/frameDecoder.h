// frameDecoder.h - exact random access to the pictures of a compressed track.
#pragma once

#include "platform/rk/file/packetReader.h"

namespace kiv::rk {

// Opens the codec of a track, for one picture after the other. Null with an error
// recorded. Throws std::bad_alloc.
CodecPtr openDecoder(const MovieFile& file, const AVCodecParameters* parameters);

// 0 for a frame that was decoded, else -1 with the AVERROR recorded. Throws
// std::bad_alloc where that is the reason.
int checkDecoded(const MovieFile& file, int index, int result);

// Decodes frame i, whatever was decoded before: on from where it is when that
// leads there, else from the key picture before it. Not thread-safe.
class FrameDecoder {
public:
    explicit FrameDecoder(PacketReader reader) : reader_(std::move(reader)) { }

    // Opens the codec. 0, or -1 with an error recorded.
    int open(const MovieFile& file);
    // Puts frame `index` into `frame`. 0 or an AVERROR.
    int decode(int index, AVFrame* frame);

    int frames() const { return int(reader_.list().shown.size()); }
    const AVCodecParameters* parameters() { return reader_.demuxer().image()->codecpar; }

private:
    int keyBefore(int packet, long long time) const;
    bool leadsTo(int key, int index) const;
    int restart(int key);
    int decodeUpTo(int index, AVFrame* frame);
    int feed();

    PacketReader reader_;
    CodecPtr codec_;
    PacketPtr packet_;
    std::vector<int> rank_;  // frame that packet k shows; -1 = hidden
    int last_ = -1;  // frame that came out last; valid while the reader has a place
    bool draining_ = false;
};

}  // namespace kiv::rk
