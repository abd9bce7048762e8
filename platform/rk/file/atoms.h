// atoms.h - a look at the atoms of a QuickTime or MP4 file before a demuxer builds its tables from them.
#pragma once

#include "platform/rk/file/movieFile.h"

namespace kiv::rk {

// Whether the movie goes on in fragments, so that the header's index is not
// whole; true also where there are too many atoms to look at.
bool isFragmented(const MovieFile& file);

// -1 with an error recorded when an image track claims more frames than
// movieFrames. A few bytes can claim thousands of millions of them, and a demuxer
// takes memory for each.
int checkClaimedFrames(const MovieFile& file);

}  // namespace kiv::rk
