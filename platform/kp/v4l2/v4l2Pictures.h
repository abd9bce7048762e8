// v4l2Pictures.h - pictures in a driver's format from and to CbYCrY without gaps.
#pragma once

#include <memory>
#include <vector>

#include "platform/kp/v4l2/v4l2Node.h"
#include "platform/zvic/internal.h"

namespace kiv {

// The row length and the buffer size of a format are enough for its pictures.
bool picturesFit(const V4l2Format& format);

// UYVY, YUYV, NV12, YU12, and for capture MJPG. One pass over a picture, what lies
// between stays in the cache. One thread.
class V4l2Pictures {
public:
    int open(const V4l2Format& format);  // -1, recorded
    // False when the driver's `bytes` are no whole picture.
    bool load(const uint8_t* in, int bytes, uint8_t* out) const;
    void store(const uint8_t* in, uint8_t* out) const;

private:
    bool loadNv12(const uint8_t* in, uint8_t* out) const;

    V4l2Format format_;
    std::unique_ptr<ConvertEngine> jpeg_;
    mutable std::vector<uint8_t> chroma_;  // a row of Cb, a row of Cr
};

}  // namespace kiv
