// shownPicture.h - a decoded picture in the form that the shader draws.
#pragma once

#include "platform/rk/file/ffmpeg.h"

namespace kiv::rk {

// Planar pictures of 8 bits a sample are drawn as they are, any other is turned
// into RGBA here. Plane p of a planar picture is width >> shiftX by height >> shiftY,
// rounded up.
struct ShownPicture {
    struct Plane {
        const unsigned char* data;
        int width, height;
        int stride;  // bytes from row to row
        int shiftX, shiftY;  // 0 or more: how much coarser than the picture
    };
    // What a step of each plane adds to red, green and blue, and what all three begin
    // with; samples and colours count from 0 to 1.
    struct Colours {
        float luma, redOfCr, greenOfCb, greenOfCr, blueOfCb;
        float black[3];
    };
    int width, height;
    int planes;  // 3: luma, Cb, Cr; 1: RGBA
    Plane plane[3];
    Colours colours;  // for 3 planes
};

// Makes the form of one picture after the other. Not thread-safe.
class PictureShower {
public:
    // `shown` lies in `frame` and in this object, until the next call. 0 or an AVERROR.
    int show(const AVFrame& frame, ShownPicture& shown);

private:
    struct Source {
        int width, height, format, fullRange, matrix;
        bool operator==(const Source&) const = default;
    };
    int toRgba(const AVFrame& frame);

    Source source_ = {};  // what the scaler was made for
    ScalerPtr scaler_;
    FramePtr rgba_;
};

}  // namespace kiv::rk
