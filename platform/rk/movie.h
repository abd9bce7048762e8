// movie.h - one open movie: its file, what is known of its image track, and the frames.
#pragma once

#include <memory>

#include "platform/rk/decode/frameSource.h"
#include "platform/rk/draw/rendering.h"
#include "platform/rk/file/movieFile.h"
#include "platform/rk/rk.h"

namespace kiv::rk {

struct Movie {
    std::unique_ptr<MovieFile> file;
    std::unique_ptr<FrameSource> frames;  // null: the movie has no image track
    RKtrackInfo info = {};
    RKtrack track = nullptr;  // the handle that ends with the movie
    Rendering rendering;
};

// Opens and indexes. Null with an error recorded.
std::unique_ptr<Movie> openMovie(const char* name);

}  // namespace kiv::rk
