// movie.cpp - opens a movie: which frames there are, and the road to them.
#include "platform/rk/movie.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "platform/limits.h"
#include "platform/rk/decode/jpegFacts.h"
#include "platform/rk/file/claimedSize.h"
#include "platform/rk/file/rate.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

const char* containerName(Container container)
{
    switch (container) {
    case Container::QuickTime:
        return "mov";
    case Container::Mp4:
        return "mp4";
    case Container::Avi:
        return "avi";
    case Container::Matroska:
        return "matroska";
    }
    return "";
}

template <size_t N> void setText(char (&to)[N], const char* text)
{
    snprintf(to, N, "%s", text == nullptr ? "" : text);
}

int interlacingOf(AVFieldOrder order)
{
    switch (order) {
    case AV_FIELD_PROGRESSIVE:
        return RK_INTERLACING_PROGRESSIVE;
    case AV_FIELD_TT:
    case AV_FIELD_BT:
        return RK_INTERLACING_TOP_FIRST;  // the second letter is the field shown first
    case AV_FIELD_BB:
    case AV_FIELD_TB:
        return RK_INTERLACING_BOTTOM_FIRST;
    default:
        return RK_INTERLACING_UNKNOWN;
    }
}

// Two fields without a word about their order count as top first, as decoders take them.
int interlacingOf(const JpegFacts& facts)
{
    if (facts.twoFields)
        return facts.polarity == 2 ? RK_INTERLACING_BOTTOM_FIRST : RK_INTERLACING_TOP_FIRST;
    if (facts.polarity == 0)
        return RK_INTERLACING_PROGRESSIVE;
    return RK_INTERLACING_UNKNOWN;
}

void describeTrack(Movie& movie, const AVStream* stream, const std::vector<long long>& times)
{
    const AVCodecParameters* codec = stream->codecpar;
    const AVRational rate = frameRate(stream, movie.file->container(), times);
    RKtrackInfo& info = movie.info;
    info.width = codec->width;
    info.height = codec->height;
    info.rateNumerator = rate.num;
    info.rateDenominator = rate.den;
    info.frames = int(times.size());
    info.jpeg = codec->codec_id == AV_CODEC_ID_MJPEG;
    info.interlacing = interlacingOf(codec->field_order);
    info.bytes = movie.file->bytes();
    info.cutShort = isCutShort(*movie.file) ? 1 : 0;
    setText(info.container, containerName(movie.file->container()));
    setText(info.codec, avcodec_get_name(codec->codec_id));
    setText(info.pixelFormat, av_get_pix_fmt_name(AVPixelFormat(codec->format)));
}

// What the first frame says of itself goes before what the container says of it.
void describeJpeg(Movie& movie)
{
    const int size = movie.frames->size(0);
    std::vector<unsigned char> frame(size_t(std::max(size, 0)));
    if (size <= 0 || movie.frames->read(0, size, frame.data()) != 0)
        return;
    const JpegFacts facts = readJpegFacts(frame.data(), size);
    setText(movie.info.pixelFormat, facts.pixelFormat);
    if (facts.width > 0 && facts.height > 0 && (!facts.twoFields || movie.info.height <= 0)) {
        movie.info.width = facts.width;
        movie.info.height = facts.height;
    }
    if (movie.info.interlacing == RK_INTERLACING_UNKNOWN)
        movie.info.interlacing = interlacingOf(facts);
}

int checkSize(const MovieFile& file, int width, int height)
{
    if (width <= 0 || height <= 0)
        return recordError(ZV_ERROR_DATA, "'%s': no picture size (%dx%d)", file.name(), width, height);
    if (width > kivLimits()->imageWidth)
        return recordError(ZV_ERROR_LIMIT, "'%s': %d pixels wide, more than imageWidth (%d)", file.name(), width,
                           kivLimits()->imageWidth);
    if (height > kivLimits()->imageHeight)
        return recordError(ZV_ERROR_LIMIT, "'%s': %d pixels high, more than imageHeight (%d)", file.name(), height,
                           kivLimits()->imageHeight);
    return 0;
}

std::vector<long long> timesOf(const PacketList& list)
{
    std::vector<long long> times;
    times.reserve(list.shown.size());
    for (int i : list.shown)
        times.push_back(list.packets[size_t(i)].time);
    return times;
}

std::vector<StoredFrame> storedFramesOf(const PacketList& list)
{
    std::vector<StoredFrame> frames;
    frames.reserve(list.shown.size());
    for (int i : list.shown)
        frames.push_back({list.packets[size_t(i)].data, list.packets[size_t(i)].size});
    return frames;
}

bool liesInFile(const PacketList& list)
{
    return std::all_of(list.shown.begin(), list.shown.end(), [&](int i) { return list.packets[size_t(i)].data >= 0; });
}

// All packets of a demuxer just opened. -1 with an error recorded, also when there is no frame.
int listPackets(const Movie& movie, Demuxer& demuxer, PacketList& list)
{
    if (scanPackets(demuxer, *movie.file, list) != 0)
        return -1;
    if (list.shown.empty())
        return recordError(ZV_ERROR_DATA, "'%s': no frame in the image track can be read", movie.file->name());
    return 0;
}

int openJpegTrack(Movie& movie, std::unique_ptr<Demuxer> demuxer)
{
    std::vector<StoredFrame> frames;
    std::vector<long long> times;
    const int fromHeader = indexFromHeader(*demuxer, *movie.file, frames, times);
    if (fromHeader < 0)
        return -1;
    if (fromHeader == 0) {
        describeTrack(movie, demuxer->image(), times);
        movie.frames = makeStoredFrames(*movie.file, demuxer->image()->codecpar, std::move(frames));
    } else {
        PacketList list;
        demuxer = Demuxer::open(*movie.file);  // afresh: not every demuxer comes back to its first packet
        if (!demuxer || listPackets(movie, *demuxer, list) != 0)
            return -1;
        describeTrack(movie, demuxer->image(), timesOf(list));
        movie.frames = liesInFile(list)
            ? makeStoredFrames(*movie.file, demuxer->image()->codecpar, storedFramesOf(list))
            : makePacketFrames(*movie.file, std::move(demuxer), std::move(list));
    }
    describeJpeg(movie);
    return checkSize(*movie.file, movie.info.width, movie.info.height);
}

int openOtherTrack(Movie& movie, std::unique_ptr<Demuxer> demuxer)
{
    avformat_find_stream_info(demuxer->context(), nullptr);  // field order and layout; what it misses shows below
    if (checkSize(*movie.file, demuxer->image()->codecpar->width, demuxer->image()->codecpar->height) != 0)
        return -1;
    PacketList list;
    if (listPackets(movie, *demuxer, list) != 0)
        return -1;
    describeTrack(movie, demuxer->image(), timesOf(list));
    movie.frames = makeDecodedFrames(*movie.file, std::move(demuxer), std::move(list));
    return movie.frames ? 0 : -1;
}

}  // namespace

std::unique_ptr<Movie> openMovie(const char* name)
{
    auto movie = std::make_unique<Movie>();
    movie->file = MovieFile::open(name);
    std::unique_ptr<Demuxer> demuxer = movie->file ? Demuxer::open(*movie->file) : nullptr;
    if (!demuxer)
        return nullptr;
    if (demuxer->image() == nullptr)
        return movie;
    const bool jpeg = demuxer->image()->codecpar->codec_id == AV_CODEC_ID_MJPEG;
    const int result = jpeg ? openJpegTrack(*movie, std::move(demuxer)) : openOtherTrack(*movie, std::move(demuxer));
    movie->rendering.placeWhole(movie->info);
    return result == 0 ? std::move(movie) : nullptr;
}

}  // namespace kiv::rk
