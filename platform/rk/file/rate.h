// rate.h - frames per second of a track, as an exact fraction.
#pragma once

#include <vector>

#include "platform/rk/file/ffmpeg.h"
#include "platform/rk/file/movieFile.h"

namespace kiv::rk {

// `times` are those of all frames in order, in the stream's unit. What the
// container claims counts only as long as it leads to the right frame at the end
// of the movie; a single frame without a claim lasts one second.
AVRational frameRate(const AVStream* stream, Container container, const std::vector<long long>& times);

}  // namespace kiv::rk
