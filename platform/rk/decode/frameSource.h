// frameSource.h - where the JPEG frames of a track come from.
#pragma once

#include <memory>
#include <vector>

#include "platform/rk/file/demuxer.h"
#include "platform/rk/file/packetList.h"

namespace kiv::rk {

// Frames by index in order of presentation; callers have checked the index.
// Thread-safe.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual int size(int index) = 0;  // bytes, -1 with an error recorded
    virtual int largest() = 0;  // no frame has more bytes
    // At most `room` bytes of the frame. 0, or -1 with an error recorded.
    virtual int read(int index, int room, void* to) = 0;
    // The decoded picture of the frame, in place of what `frame` held. The same results.
    virtual int picture(int index, AVFrame* frame) = 0;
};

// JPEG frames that lie in the file in one piece each: one pread a frame, no lock.
// `codec` is copied.
std::unique_ptr<FrameSource> makeStoredFrames(const MovieFile& file, const AVCodecParameters* codec,
                                              std::vector<StoredFrame> frames);

// JPEG frames that only the demuxer can put together (Matroska with packed headers).
std::unique_ptr<FrameSource> makePacketFrames(const MovieFile& file, std::unique_ptr<Demuxer> demuxer, PacketList list);

// Any other codec: frames are decoded and encoded as JPEG. Null with an error
// recorded when the codec cannot be decoded by frame.
std::unique_ptr<FrameSource> makeDecodedFrames(const MovieFile& file, std::unique_ptr<Demuxer> demuxer,
                                               PacketList list);

}  // namespace kiv::rk
