// demuxer.cpp - FFmpeg's demuxers on top of a MovieFile.
#include "platform/rk/file/demuxer.h"

#include <cerrno>
#include <new>

#include "platform/rk/file/atoms.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"

namespace kiv::rk {

namespace {

constexpr int ioBlock = 32 * 1024;

// FFmpeg logs to standard error; what concerns us comes back as a result.
void silenceFfmpeg()
{
    static const bool done = [] {
        av_log_set_callback([](void*, int, const char*, va_list) {});
        return true;
    }();
    (void)done;
}

// A movie may name other files and addresses; none of them is opened.
int refuseOther(AVFormatContext*, AVIOContext** io, const char*, int, AVDictionary**)
{
    *io = nullptr;
    return AVERROR(EACCES);
}

bool isQuickTime(Container container) { return container == Container::QuickTime || container == Container::Mp4; }

const AVInputFormat* inputFormat(Container container)
{
    if (container == Container::Avi)
        return av_find_input_format("avi");
    return av_find_input_format(container == Container::Matroska ? "matroska" : "mov");
}

bool isMovingImage(const AVStream* stream)
{
    return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO
        && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

}  // namespace

bool wasStopped(int result) { return result < 0 && stopAsked(); }

PacketPtr newPacket()
{
    PacketPtr packet(av_packet_alloc());
    return packet ? std::move(packet) : throw std::bad_alloc();
}

FramePtr newFrame()
{
    FramePtr frame(av_frame_alloc());
    return frame ? std::move(frame) : throw std::bad_alloc();
}

int Demuxer::onRead(void* self, uint8_t* to, int size)
{
    Demuxer* demuxer = static_cast<Demuxer*>(self);
    if (stopAsked())
        return AVERROR_EXIT;
    const int got = demuxer->file_.readSome(demuxer->position_, size, to);
    if (got < 0)
        return AVERROR(errno);
    demuxer->position_ += got;
    return got > 0 ? got : AVERROR_EOF;
}

int64_t Demuxer::onSeek(void* self, int64_t offset, int whence)
{
    Demuxer* demuxer = static_cast<Demuxer*>(self);
    if (whence == AVSEEK_SIZE)
        return demuxer->file_.bytes();
    if (whence == SEEK_CUR)
        offset += demuxer->position_;
    else if (whence == SEEK_END)
        offset += demuxer->file_.bytes();
    else if (whence != SEEK_SET)
        return AVERROR(EINVAL);
    return offset >= 0 ? demuxer->position_ = offset : AVERROR(EINVAL);
}

std::unique_ptr<Demuxer> Demuxer::open(const MovieFile& file)
{
    silenceFfmpeg();
    if (isQuickTime(file.container()) && checkClaimedFrames(file) != 0)
        return nullptr;
    std::unique_ptr<Demuxer> demuxer(new Demuxer(file));
    const int result = demuxer->start();
    if (result == 0)
        return demuxer;
    if (result == AVERROR(ENOMEM))
        throw std::bad_alloc();
    if (wasStopped(result))
        recordError(ZV_ERROR_STOPPED, "'%s': a stop request ended the opening", file.name());
    else
        recordError(ZV_ERROR_DATA, "'%s': the movie's header cannot be read: %s", file.name(), AvText(result).text);
    return nullptr;
}

int Demuxer::start()
{
    context_ = avformat_alloc_context();
    uint8_t* block = static_cast<uint8_t*>(av_malloc(ioBlock));
    io_ = block == nullptr ? nullptr : avio_alloc_context(block, ioBlock, 0, this, onRead, nullptr, onSeek);
    if (context_ == nullptr || io_ == nullptr) {
        if (io_ == nullptr)
            av_free(block);
        return AVERROR(ENOMEM);
    }
    context_->pb = io_;
    context_->io_open = refuseOther;
    context_->interrupt_callback = {[](void*) { return int(stopAsked()); }, nullptr};
    const int result
        = avformat_open_input(&context_, "", inputFormat(file_.container()), nullptr);  // frees it on failure
    if (result == 0)
        chooseImage();
    return result;
}

void Demuxer::chooseImage()
{
    for (unsigned i = 0; i < context_->nb_streams; ++i) {
        AVStream* stream = context_->streams[i];
        if (image_ == nullptr && isMovingImage(stream))
            image_ = stream;
        else
            stream->discard = AVDISCARD_ALL;
    }
}

Demuxer::~Demuxer()
{
    avformat_close_input(&context_);
    if (io_ != nullptr)
        av_free(io_->buffer);
    avio_context_free(&io_);
}

int Demuxer::next(AVPacket* packet)
{
    for (;;) {
        av_packet_unref(packet);
        const int result = av_read_frame(context_, packet);
        if (result < 0) {
            io_->error = 0;  // a stop request on one thread leaves the movie usable on another
            return result;
        }
        if (image_ != nullptr && packet->stream_index == image_->index)
            return 0;
    }
}

int Demuxer::seek(long long timestamp)
{
    const int result = av_seek_frame(context_, image_->index, timestamp, AVSEEK_FLAG_BACKWARD);
    return result < 0 ? result : 0;
}

}  // namespace kiv::rk
