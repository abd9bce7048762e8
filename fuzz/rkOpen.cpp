// rkOpen.cpp - any bytes as a movie file: opens, walks the first frames, closes.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/limits.h"
#include "platform/rk/rk.h"

namespace {

void readFrames(RKtrack track)
{
    static std::string room(4 << 20, '\0');
    const int frames = std::min(rkGetTrackLength(track), 8);
    for (int i = frames; i-- > 0;) {
        rkGetCompressedImageSize(track, i);
        rkReadCompressedImage(track, i, int(room.size()), room.data());
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    kivLimits()->imageWidth = kivLimits()->imageHeight = 512;  // decoders then take little time and memory
    kivLimits()->movieFrames = 1 << 16;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const int fd = memfd_create("movie", MFD_CLOEXEC);
    if (write(fd, data, size) == ssize_t(size)) {
        char name[32];
        snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
        RKmovie movie = nullptr;
        RKtrack track = nullptr;
        if (rkOpenFile(name, 0, &movie) == 0 && rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track) == 0)
            readFrames(track);
        rkClose(movie);
    }
    close(fd);
    return 0;
}
