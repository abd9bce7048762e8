// decodedFrames.cpp - JPEG frames made from another codec's pictures.
#include <algorithm>
#include <cstring>
#include <mutex>

#include "platform/rk/decode/frameDecoder.h"
#include "platform/rk/decode/frameSource.h"
#include "platform/rk/decode/jpegWriter.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

// Keeps the last frame it made: who asks for a size reads that frame next.
class DecodedFrames : public FrameSource {
public:
    DecodedFrames(const MovieFile& file, PacketReader reader)
        : file_(file), decoder_(std::move(reader)),
          writer_(decoder_.parameters()->width, decoder_.parameters()->height), frame_(newFrame()), jpeg_(newPacket())
    {
    }

    int open() { return decoder_.open(file_); }

    int size(int index) override
    {
        std::lock_guard lock(lock_);
        return make(index) == 0 ? jpeg_->size : -1;
    }

    int largest() override { return writer_.bound(); }

    int read(int index, int room, void* to) override
    {
        std::lock_guard lock(lock_);
        if (make(index) != 0)
            return -1;
        memcpy(to, jpeg_->data, size_t(std::min(room, jpeg_->size)));
        return 0;
    }

    int picture(int index, AVFrame* frame) override
    {
        std::lock_guard lock(lock_);
        return checkDecoded(file_, index, decoder_.decode(index, frame));
    }

private:
    int make(int index)
    {
        if (made_ == index)
            return 0;
        made_ = -1;
        int result = decoder_.decode(index, frame_.get());
        if (result == 0)
            result = writer_.encode(*frame_, jpeg_.get());
        av_frame_unref(frame_.get());
        if (checkDecoded(file_, index, result) != 0)
            return -1;
        made_ = index;
        return 0;
    }

    const MovieFile& file_;
    std::mutex lock_;  // guards all below
    FrameDecoder decoder_;
    JpegWriter writer_;
    FramePtr frame_;
    PacketPtr jpeg_;
    int made_ = -1;  // the frame that jpeg_ holds
};

// Without times of presentation, and with a codec that shows pictures in another
// order than it codes them, nobody can say which picture is frame i.
bool isOrderKnown(const PacketReader& reader, AVCodecID codec)
{
    const AVCodecDescriptor* about = avcodec_descriptor_get(codec);
    const bool reorders = about == nullptr
        || (about->props & (AV_CODEC_PROP_REORDER | AV_CODEC_PROP_INTRA_ONLY)) != AV_CODEC_PROP_INTRA_ONLY;
    const std::vector<PacketEntry>& packets = reader.list().packets;
    return !reorders
        || std::all_of(packets.begin(), packets.end(), [](const PacketEntry& packet) { return packet.timed; });
}

}  // namespace

std::unique_ptr<FrameSource> makeDecodedFrames(const MovieFile& file, std::unique_ptr<Demuxer> demuxer, PacketList list)
{
    const AVCodecID codec = demuxer->image()->codecpar->codec_id;
    PacketReader reader(std::move(demuxer), std::move(list));
    if (!isOrderKnown(reader, codec)) {
        recordError(ZV_ERROR_UNSUPPORTED, "'%s': %s without times of presentation", file.name(),
                    avcodec_get_name(codec));
        return nullptr;
    }
    auto frames = std::make_unique<DecodedFrames>(file, std::move(reader));
    return frames->open() == 0 ? std::move(frames) : nullptr;
}

}  // namespace kiv::rk
