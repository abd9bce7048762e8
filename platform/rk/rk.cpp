// rk.cpp - the public calls: handles in, results and recorded errors out.
#include "platform/rk/rk.h"

#include <cmath>
#include <new>

#include "platform/glx/internal.h"
#include "platform/rk/file/ffmpegCalls.h"
#include "platform/rk/internal.h"
#include "platform/rk/movie.h"
#include "platform/support/error.h"
#include "platform/support/handle.h"

namespace kiv::rk {

namespace {

using Movies = HandleTable<Movie, HandleKind::Movie>;

// A track keeps its movie alive while a call is in it; its handle ends with the movie's.
struct Track {
    Movies::Pin movie;
};
using Tracks = HandleTable<Track, HandleKind::Track>;

constinit Movies movies;
constinit Tracks tracks;

// Nothing thrown crosses the C border.
template <class Call> int guarded(Call call)
{
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return recordError(ZV_ERROR_MEMORY, "no memory for the movie");
    }
}

// Calls `use` with the track's movie; `failure` for a handle that is not alive.
template <class Result, class Use> Result withTrack(RKtrack handle, Result failure, const char* what, Use use)
{
    const Tracks::Pin track = tracks.pin(handle, what);
    return track ? use(*track->movie) : failure;
}

// Takes the movie over. Its handle, or null with an error recorded.
RKmovie publish(std::unique_ptr<Movie> movie)
{
    auto track = movie->frames ? std::make_unique<Track>() : nullptr;
    Movie& opened = *movie;
    void* handle = movies.insert(std::move(movie));
    if (handle == nullptr || !track)
        return static_cast<RKmovie>(handle);
    track->movie = movies.pin(handle, "movie");
    opened.track = static_cast<RKtrack>(tracks.insert(std::move(track)));
    if (opened.track == nullptr) {
        movies.retire(handle, "movie");
        return nullptr;
    }
    return static_cast<RKmovie>(handle);
}

int checkIndex(const Movie& movie, int index)
{
    if (index >= 0 && index < movie.info.frames)
        return 0;
    return recordError(ZV_ERROR_ARGUMENT, "'%s': frame %d of %d is asked for", movie.file->name(), index,
                       movie.info.frames);
}

}  // namespace

int openFile(const char* name, int mode, RKmovie* movie)
{
    if (movie == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the movie's handle");
    *movie = nullptr;
    if (mode != 0)
        return recordError(ZV_ERROR_ARGUMENT, "mode %d: movies are opened for reading, mode 0", mode);
    if (loadFfmpeg() != 0)
        return -1;
    return guarded([&] {
        std::unique_ptr<Movie> opened = openMovie(name);
        if (opened)
            *movie = publish(std::move(opened));
        return *movie != nullptr ? 0 : -1;
    });
}

int close(RKmovie handle)
{
    const Movies::Pin movie = movies.retire(handle, "rkClose");
    if (!movie)
        return -1;
    if (movie->track != nullptr)
        tracks.retire(movie->track, "rkClose");
    return 0;
}

int findTrack(RKmovie handle, int medium, RKtrack* track)
{
    if (track == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the track's handle");
    *track = nullptr;
    const Movies::Pin movie = movies.pin(handle, "rkFindTrackByMedium");
    if (!movie)
        return -1;
    if (medium != RK_MEDIUM_IMAGE || movie->track == nullptr)
        return recordError(ZV_ERROR_DATA, "'%s': no %s track", movie->file->name(),
                           medium == RK_MEDIUM_IMAGE ? "image" : "such");
    *track = movie->track;
    return 0;
}

int trackInfo(RKtrack track, RKtrackInfo* info)
{
    if (info == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the track's description");
    return withTrack(track, -1, "rkGetTrackInfo", [&](const Movie& movie) {
        *info = movie.info;
        return 0;
    });
}

int compressedSize(RKtrack track, int index)
{
    return withTrack(track, -1, "rkGetCompressedImageSize", [&](Movie& movie) {
        return checkIndex(movie, index) != 0 ? -1 : guarded([&] { return movie.frames->size(index); });
    });
}

int largestCompressedSize(RKtrack track)
{
    return withTrack(track, -1, "rkGetLargestCompressedImageSize",
                     [](Movie& movie) { return movie.frames->largest(); });
}

int readCompressed(RKtrack track, int index, int size, void* addr)
{
    return withTrack(track, -1, "rkReadCompressedImage", [&](Movie& movie) {
        if (checkIndex(movie, index) != 0)
            return -1;
        if (addr == nullptr || size < 0)
            return recordError(ZV_ERROR_ARGUMENT, "'%s': room of %d bytes at %p", movie.file->name(), size, addr);
        return guarded([&] { return movie.frames->read(index, size, addr); });
    });
}

int setMovieRect(RKmovie handle, const RKrect* rectangle)
{
    const Movies::Pin movie = movies.pin(handle, "rkSetMovieRect");
    if (!movie)
        return -1;
    if (rectangle == nullptr) {
        movie->rendering.placeWhole(movie->info);
        return 0;
    }
    for (const float edge : {rectangle->x0, rectangle->y0, rectangle->x1, rectangle->y1})
        if (!std::isfinite(edge))
            return recordError(ZV_ERROR_ARGUMENT, "'%s': a rectangle with an edge at %g", movie->file->name(),
                               double(edge));
    movie->rendering.place(*rectangle);
    return 0;
}

int renderMovie(RKmovie handle, long long time, int timeScale)
{
    const Movies::Pin movie = movies.pin(handle, "rkRenderMovieToOpenGL");
    if (!movie)
        return -1;
    if (!movie->frames)
        return recordError(ZV_ERROR_DATA, "'%s': no image track", movie->file->name());
    if (timeScale <= 0)
        return recordError(ZV_ERROR_ARGUMENT, "'%s': time in units of 1/%d s", movie->file->name(), timeScale);
    const int drawn
        = guarded([&] { return movie->rendering.draw(*movie->frames, frameAt(movie->info, time, timeScale)); });
    return glx::syncCurrentDraw() == 0 ? drawn : -1;  // also what the caller drew before a frame that failed
}

}  // namespace kiv::rk

using namespace kiv::rk;

// Opens a movie file and builds its index; blocks on the file. The caller owns
// the handle and closes it with rkClose. *movie is null on failure. Any thread.
int rkOpenFile(const char* name, int mode, RKmovie* movie) { return openFile(name, mode, movie); }

// Ends the movie's handle and its track's. A call that another thread is in
// finishes first on its own; the file closes with the last of them. Any thread.
int rkClose(RKmovie movie) { return close(movie); }

// The movie's image track; the handle is the movie's own, and always the same. Any thread, never blocks.
int rkFindTrackByMedium(RKmovie movie, int medium, RKtrack* track) { return findTrack(movie, medium, track); }

// What the opening found out. Any thread, never blocks.
int rkGetTrackLength(RKtrack track)
{
    return withTrack(track, -1, "rkGetTrackLength", [](const Movie& movie) { return movie.info.frames; });
}

double rkGetImageRate(RKtrack track)
{
    return withTrack(track, 0.0, "rkGetImageRate",
                     [](const Movie& movie) { return double(movie.info.rateNumerator) / movie.info.rateDenominator; });
}

int rkGetImageWidth(RKtrack track)
{
    return withTrack(track, -1, "rkGetImageWidth", [](const Movie& movie) { return movie.info.width; });
}

int rkGetImageHeight(RKtrack track)
{
    return withTrack(track, -1, "rkGetImageHeight", [](const Movie& movie) { return movie.info.height; });
}

int rkGetImageInterlacing(RKtrack track)
{
    return withTrack(track, -1, "rkGetImageInterlacing", [](const Movie& movie) { return movie.info.interlacing; });
}

int rkGetTrackInfo(RKtrack track, RKtrackInfo* info) { return trackInfo(track, info); }

// The bytes of one frame as JPEG. At once where the file holds JPEG; otherwise
// decodes and encodes the frame, and keeps it for the read that follows. Any thread.
int rkGetCompressedImageSize(RKtrack track, int index) { return compressedSize(track, index); }

// Room that holds any frame. Any thread, never blocks.
int rkGetLargestCompressedImageSize(RKtrack track) { return largestCompressedSize(track); }

// Copies at most `size` bytes of one frame to `addr`; blocks on the file. A frame
// that lies in the file is read without a lock; others are made one at a time. A
// frame that the file does not hold whole fails, and `addr` is then undefined. Any thread.
int rkReadCompressedImage(RKtrack track, int index, int size, void* addr)
{
    return readCompressed(track, index, size, addr);
}

// Takes effect with the next frame that is drawn. Any thread, never blocks.
int rkSetMovieRect(RKmovie movie, const struct RKrect* rectangle) { return setMovieRect(movie, rectangle); }

// Decodes and draws one frame; blocks on the file. On the thread of the context.
int rkRenderMovieToOpenGL(RKmovie movie, long long time, int timeScale) { return renderMovie(movie, time, timeScale); }
