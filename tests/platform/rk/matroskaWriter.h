// matroskaWriter.h - Matroska files of a kind that ffmpeg does not write.
#pragma once

#include <string>
#include <vector>

// A movie of JPEG packets, 25 a second. The first `stripped` bytes of each, which
// must be the same in all, stand once in the track's header (header stripping).
std::string matroskaMovie(const std::vector<std::string>& packets, int width, int height, size_t stripped);
