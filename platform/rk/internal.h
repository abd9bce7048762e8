// internal.h - the movie service for the other services: what the public calls do, as hidden symbols.
#pragma once

#include "platform/rk/rk.h"

namespace kiv::rk {

int openFile(const char* name, int mode, RKmovie* movie);
int close(RKmovie movie);
int findTrack(RKmovie movie, int medium, RKtrack* track);
int trackInfo(RKtrack track, RKtrackInfo* info);
int compressedSize(RKtrack track, int index);
int largestCompressedSize(RKtrack track);
int readCompressed(RKtrack track, int index, int size, void* addr);
int setMovieRect(RKmovie movie, const RKrect* rectangle);
int renderMovie(RKmovie movie, long long time, int timeScale);

}  // namespace kiv::rk
