// kivMovieInCompressed.h - movie source that hands on the frames still compressed, as JPEG.
#pragma once

#include "movie/kivMovieIn.h"

// Loop-bound, with the reader thread of kivMovieIn, which runs the two frame
// operations. Takes no copy: frames are read from the file into pool buffers.
class KIV_API kivMovieInCompressed : public kivMovieIn {
public:
    kivMovieInCompressed();
    ~kivMovieInCompressed() override;

    int init(kivParams* params) override;
    int setup(char* movieFile) override;
    int getImageFrameTime(long long movieTime) override;
    int getImageFrameIndex(int frameIndex) override;

private:
    int frameBytes(int* bytes);
    int makePoolParams();
    int makePool();
};
