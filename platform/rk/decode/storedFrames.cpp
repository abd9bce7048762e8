// storedFrames.cpp - JPEG frames straight from the file, and those that the demuxer puts together.
#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/limits.h"
#include "platform/rk/decode/jpegFrames.h"
#include "platform/rk/file/packetReader.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

bool isOverLimit(int size) { return size > kivLimits()->frameBytes; }

int overLimit(const MovieFile& file, int index, int size)
{
    return recordError(ZV_ERROR_LIMIT, "'%s': frame %d has %d bytes, more than frameBytes (%lld)", file.name(), index,
                       size, kivLimits()->frameBytes);
}

class StoredFrames : public JpegFrames {
public:
    StoredFrames(const MovieFile& file, const AVCodecParameters* codec, std::vector<StoredFrame> frames)
        : JpegFrames(file, codec), frames_(std::move(frames))
    {
        for (const StoredFrame& frame : frames_) {
            if (isInFile(frame) && !isOverLimit(frame.size))
                largest_ = std::max(largest_, frame.size);
        }
    }

    int size(int index) override
    {
        const StoredFrame& frame = frames_[size_t(index)];
        if (isOverLimit(frame.size))
            return overLimit(file_, index, frame.size);
        if (!isInFile(frame))
            return recordError(ZV_ERROR_DATA, "'%s': frame %d lies behind the end of the file", file_.name(), index);
        return frame.size;
    }

    int largest() override { return largest_; }

    int read(int index, int room, void* to) override
    {
        const int bytes = size(index);
        return bytes < 0 ? -1 : file_.read(frames_[size_t(index)].position, std::min(bytes, room), to);
    }

private:
    bool isInFile(const StoredFrame& frame) const
    {
        return frame.position >= 0 && frame.position <= file_.bytes() - frame.size;
    }

    const std::vector<StoredFrame> frames_;
    int largest_ = 0;
};

class PacketFrames : public JpegFrames {
public:
    PacketFrames(const MovieFile& file, std::unique_ptr<Demuxer> demuxer, PacketList list)
        : JpegFrames(file, demuxer->image()->codecpar), reader_(std::move(demuxer), std::move(list)),
          packet_(newPacket())
    {
        for (int i : reader_.list().shown) {
            const int bytes = reader_.list().packets[size_t(i)].size;
            if (!isOverLimit(bytes))
                largest_ = std::max(largest_, bytes);
        }
    }

    int size(int index) override
    {
        const int bytes = reader_.list().packets[size_t(packetOf(index))].size;
        return isOverLimit(bytes) ? overLimit(file_, index, bytes) : bytes;
    }

    int largest() override { return largest_; }

    int read(int index, int room, void* to) override
    {
        std::lock_guard lock(lock_);
        if (size(index) < 0)
            return -1;
        const int result = fetch(packetOf(index));
        if (result != 0)
            return recordError(wasStopped(result) ? ZV_ERROR_STOPPED : ZV_ERROR_DATA,
                               "'%s': frame %d cannot be read: %s", file_.name(), index, AvText(result).text);
        memcpy(to, packet_->data, size_t(std::min(room, packet_->size)));
        return 0;
    }

private:
    int packetOf(int index) const { return reader_.list().shown[size_t(index)]; }

    // Puts packet `wanted` into packet_. 0 or an AVERROR.
    int fetch(int wanted)
    {
        int at = -1;
        int result = reader_.expected() == wanted ? 0 : reader_.seek(wanted);
        while (result == 0 && at < wanted)
            result = reader_.next(packet_.get(), at);
        return result != 0 || at == wanted ? result : AVERROR_INVALIDDATA;
    }

    std::mutex lock_;  // guards reader_'s place and packet_
    PacketReader reader_;
    PacketPtr packet_;
    int largest_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> makeStoredFrames(const MovieFile& file, const AVCodecParameters* codec,
                                              std::vector<StoredFrame> frames)
{
    return std::make_unique<StoredFrames>(file, codec, std::move(frames));
}

std::unique_ptr<FrameSource> makePacketFrames(const MovieFile& file, std::unique_ptr<Demuxer> demuxer, PacketList list)
{
    return std::make_unique<PacketFrames>(file, std::move(demuxer), std::move(list));
}

}  // namespace kiv::rk
