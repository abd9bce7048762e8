// demuxer.h - packets of the image track of one movie file.
#pragma once

#include <memory>

#include "platform/rk/file/ffmpeg.h"
#include "platform/rk/file/movieFile.h"

namespace kiv::rk {

// Whether a negative result is due to a stop request on this thread; demuxers do
// not always hand on the reason that a read gave them.
bool wasStopped(int result);

// Not thread-safe; whoever owns one locks around it. Its reads fail once a stop
// was asked for on the calling thread.
class Demuxer {
public:
    // Reads the header. Null with an error recorded. `file` must outlive it.
    static std::unique_ptr<Demuxer> open(const MovieFile& file);
    ~Demuxer();
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;

    AVFormatContext* context() { return context_; }
    AVStream* image() { return image_; }  // the first moving image track; null if there is none

    // The next packet of the image track: 0, AVERROR_EOF or another AVERROR.
    int next(AVPacket* packet);
    // Goes to the nearest place at or before `timestamp`, in the track's unit. 0 or an AVERROR.
    int seek(long long timestamp);

private:
    explicit Demuxer(const MovieFile& file) : file_(file) { }
    int start();
    void chooseImage();
    static int onRead(void* self, uint8_t* to, int size);
    static int64_t onSeek(void* self, int64_t offset, int whence);

    const MovieFile& file_;
    long long position_ = 0;
    AVIOContext* io_ = nullptr;
    AVFormatContext* context_ = nullptr;
    AVStream* image_ = nullptr;
};

}  // namespace kiv::rk
