// clipStream.cpp - a movie, a .y4m or a raw picture file played as a camera, for ever.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/kp/builtin/captureStream.h"
#include "platform/limits.h"
#include "platform/rk/internal.h"
#include "platform/support/error.h"
#include "platform/zvic/internal.h"

namespace kiv {

namespace {

bool endsWith(const std::string& text, const char* end)
{
    const size_t length = strlen(end);
    return text.size() >= length && text.compare(text.size() - length, length, end) == 0;
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// What stands in a clip before its first picture.
struct ClipFacts {
    int width = 0, height = 0;
    int rateNumerator = 30, rateDenominator = 1;
};

// JPEG frames of a movie, decoded on the stream's thread.
class MovieSource final : public PictureSource {
public:
    ~MovieSource() override
    {
        if (movie_ != nullptr)
            rk::close(movie_);
    }

    int open(const char* path, ClipFacts* facts)
    {
        if (rk::openFile(path, 0, &movie_) != 0 || rk::findTrack(movie_, RK_MEDIUM_IMAGE, &track_) != 0
            || rk::trackInfo(track_, &info_) != 0)
            return -1;
        if (info_.frames < 1 || info_.width % 2 != 0)
            return recordError(ZV_ERROR_UNSUPPORTED, "'%s': %d pictures of %d x %d cannot be played as a camera", path,
                               info_.frames, info_.width, info_.height);
        *facts = {info_.width, info_.height, info_.rateNumerator, info_.rateDenominator};
        const int packing = ZV_IMAGE_PACKING_CbYCrY;
        decoder_ = openConvertEngine({true, info_.width, info_.height, packing},
                                     {false, info_.width, info_.height, packing});
        return decoder_ != nullptr ? 0 : -1;
    }

    bool draw(uint8_t* data, int64_t frame, uint64_t) override
    try {
        const int index = int(frame % info_.frames);
        const int size = rk::compressedSize(track_, index);
        if (size < 0)
            return false;
        jpeg_.resize(size_t(size));
        if (rk::readCompressed(track_, index, size, jpeg_.data()) != 0)
            return false;
        ConvertJob job;
        job.in = jpeg_.data();
        job.inSize = jpeg_.size();
        job.out = data;
        job.outCapacity = size_t(info_.width) * size_t(info_.height) * 2;
        return decoder_->convert(job) >= 0;
    } catch (const std::bad_alloc&) {
        recordError(ZV_ERROR_MEMORY, "no memory for a picture of the clip");
        return false;
    }

private:
    RKmovie movie_ = nullptr;
    RKtrack track_ = nullptr;
    RKtrackInfo info_ = {};
    std::unique_ptr<ConvertEngine> decoder_;
    std::vector<uint8_t> jpeg_;
};

// Uncompressed pictures in a row: raw CbYCrY of the size that was set, or .y4m in
// 4:2:0 or 4:2:2.
class RawSource final : public PictureSource {
public:
    // The size of a raw file is the application's; a .y4m file says its own.
    int open(const char* path, ClipFacts* facts)
    {
        file_.reset(fopen(path, "re"));
        struct stat about = {};
        if (!file_ || fstat(fileno(file_.get()), &about) != 0 || !S_ISREG(about.st_mode))
            return recordSystemError(ZV_ERROR_SYSTEM, "clip '%s'", path);
        char line[512] = "";
        y4m_ = endsWith(path, ".y4m");
        if (y4m_ && (fgets(line, sizeof line, file_.get()) == nullptr || !readHeader(line, facts)))
            return recordError(ZV_ERROR_UNSUPPORTED, "clip '%s': not an 8-bit 4:2:0 or 4:2:2 .y4m of even width", path);
        width_ = size_t(facts->width);
        height_ = size_t(facts->height);
        start_ = y4m_ ? ftell(file_.get()) : 0;
        pictureBytes_ = y4m_ ? width_ * height_ + 2 * width_ / 2 * chromaRows() : width_ * height_ * 2;
        if (about.st_size - start_ < int64_t(pictureBytes_))
            return recordError(ZV_ERROR_DATA, "clip '%s': no whole picture of %d x %d", path, facts->width,
                               facts->height);
        fseek(file_.get(), start_, SEEK_SET);
        planes_.resize(y4m_ ? pictureBytes_ : 0);
        return 0;
    }

    bool draw(uint8_t* data, int64_t, uint64_t) override
    {
        uint8_t* into = y4m_ ? planes_.data() : data;
        for (int tries = 0; tries < 2; ++tries) {
            char line[128] = "";
            const bool headed = !y4m_ || (fgets(line, sizeof line, file_.get()) && strncmp(line, "FRAME", 5) == 0);
            if (headed && fread(into, 1, pictureBytes_, file_.get()) == pictureBytes_) {
                if (y4m_)
                    interleave(data);
                return true;
            }
            fseek(file_.get(), start_, SEEK_SET);  // from the start again
        }
        recordError(ZV_ERROR_DATA, "the clip has become shorter");
        return false;
    }

private:
    bool readHeader(char* line, ClipFacts* facts)
    {
        if (strncmp(line, "YUV4MPEG2 ", 10) != 0)
            return false;
        bool known = true;
        char* rest = nullptr;
        for (char* word = strtok_r(line + 10, " \n", &rest); word != nullptr; word = strtok_r(nullptr, " \n", &rest)) {
            if (*word == 'W')
                facts->width = atoi(word + 1);
            else if (*word == 'H')
                facts->height = atoi(word + 1);
            else if (*word == 'F')
                known = sscanf(word + 1, "%d:%d", &facts->rateNumerator, &facts->rateDenominator) == 2;
            else if (*word == 'C' && !readColours(word))
                return false;
        }
        return known && facts->width >= 2 && facts->width % 2 == 0 && facts->height >= 1
            && facts->width <= kivLimits()->imageWidth && facts->height <= kivLimits()->imageHeight;
    }

    bool readColours(const char* word)
    {
        half_ = strncmp(word, "C420", 4) == 0 && strncmp(word, "C420p1", 6) != 0;  // p10 and up: two bytes a sample
        return half_ || strcmp(word, "C422") == 0;
    }

    size_t chromaRows() const { return half_ ? (height_ + 1) / 2 : height_; }

    void interleave(uint8_t* out) const
    {
        const uint8_t* luma = planes_.data();
        const uint8_t* cb = luma + width_ * height_;
        const uint8_t* cr = cb + width_ / 2 * chromaRows();
        for (size_t row = 0; row < height_; ++row) {
            const size_t chroma = (half_ ? row / 2 : row) * (width_ / 2);
            for (size_t x = 0; x < width_ / 2; ++x, out += 4, luma += 2) {
                out[0] = cb[chroma + x];
                out[1] = luma[0];
                out[2] = cr[chroma + x];
                out[3] = luma[1];
            }
        }
    }

    File file_{nullptr, fclose};
    long start_ = 0;
    bool y4m_ = false;
    bool half_ = true;  // 4:2:0, which is what a header without a word about it means
    size_t width_ = 0, height_ = 0, pictureBytes_ = 0;
    std::vector<uint8_t> planes_;
};

class ClipStream final : public CaptureStream {
public:
    using CaptureStream::CaptureStream;

    // A movie or .y4m file says size and rate; a raw one has the camera's. The rate
    // may be changed afterwards.
    int setText(const char* key, const char* value) override
    {
        if (strcmp(key, KP_TEXT_CLIP) != 0)
            return CaptureStream::setText(key, value);
        ClipFacts facts = {settings_.width, settings_.height, settings_.rateNumerator, settings_.rateDenominator};
        if (open(value, &facts) == nullptr)
            return -1;
        const bool resized = facts.width != settings_.width || facts.height != settings_.height;
        if (resized && pool_ != nullptr)
            return recordError(ZV_ERROR_STATE, "clip '%s' is %d x %d, the camera's pool is not", value, facts.width,
                               facts.height);
        path_ = value;
        settings_.width = facts.width;
        settings_.height = facts.height;
        settings_.sizeFixed = pool_ != nullptr || !isRaw(path_);
        if (facts.rateNumerator < 1 || settings_.setRate(facts.rateNumerator, facts.rateDenominator) != 0)
            settings_.setRate(30, 1);  // the file does not know
        return 0;
    }

private:
    std::unique_ptr<PictureSource> makeSource() override
    {
        if (path_.empty()) {
            recordError(ZV_ERROR_STATE, "the clip camera has no file yet");
            return nullptr;
        }
        ClipFacts facts = {settings_.width, settings_.height, settings_.rateNumerator, settings_.rateDenominator};
        std::unique_ptr<PictureSource> source = open(path_, &facts);
        if (source != nullptr && (facts.width != settings_.width || facts.height != settings_.height)) {
            recordError(ZV_ERROR_STATE, "clip '%s' is %d x %d, the camera %d x %d", path_.c_str(), facts.width,
                        facts.height, settings_.width, settings_.height);
            return nullptr;
        }
        return source;
    }

    static bool isRaw(const std::string& path) { return endsWith(path, ".uyvy") || endsWith(path, ".raw"); }

    static std::unique_ptr<PictureSource> open(const std::string& path, ClipFacts* facts)
    {
        if (endsWith(path, ".y4m") || isRaw(path))
            return opened(std::make_unique<RawSource>(), path, facts);
        return opened(std::make_unique<MovieSource>(), path, facts);
    }

    template <class Source>
    static std::unique_ptr<PictureSource> opened(std::unique_ptr<Source> source, const std::string& path,
                                                 ClipFacts* facts)
    {
        if (source->open(path.c_str(), facts) != 0)
            return nullptr;
        return source;
    }

    std::string path_;
};

}  // namespace

std::unique_ptr<Stream> makeClipStream(std::shared_ptr<Presence> presence)
{
    return std::make_unique<ClipStream>(std::move(presence));
}

}  // namespace kiv
