// claimedSize.h - how long a movie file says that it is.
#pragma once

#include "platform/rk/file/movieFile.h"

namespace kiv::rk {

// Whether the container's outermost element goes on beyond the end of the file: the
// file was cut. AVI and Matroska only, whose frames before the cut can still be
// played without a word from the demuxer.
bool isCutShort(const MovieFile& file);

}  // namespace kiv::rk
