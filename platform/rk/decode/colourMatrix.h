// colourMatrix.h - from the colour matrix of a movie to the one that JPEG has.
#pragma once

#include "platform/rk/file/ffmpeg.h"

namespace kiv::rk {

// Turns full-range planar pictures of one matrix, 8 bits a sample, into BT.601 in
// place. Luma takes its correction from the chroma sample that covers it.
class ColourMatrix {
public:
    // `space` is an AVColorSpace. Does nothing for BT.601 and for what is no such matrix.
    explicit ColourMatrix(int space);

    bool isNeeded() const { return needed_; }
    // `picture` is 4:2:0, 4:2:2 or 4:4:4.
    void apply(AVFrame& picture) const;

private:
    void turnChroma(unsigned char* cb, unsigned char* cr, short* luma, int samples) const;

    bool needed_ = false;
    // What a step of Cb and of Cr adds to each, in 1/2^14.
    int cbToLuma_ = 0, crToLuma_ = 0, cbToCb_ = 0, crToCb_ = 0, cbToCr_ = 0, crToCr_ = 0;
};

}  // namespace kiv::rk
