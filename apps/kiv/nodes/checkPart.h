// checkPart.h - a sink that knows the built-in camera's picture.
#pragma once

#include "apps/kiv/nodes/sinkParts.h"

// Compares the number that stands in each picture with the number that came with
// it: a picture that is another one, or cannot be read, fails the run.
class CheckPart : public NullPart {
public:
    using NullPart::NullPart;
    PictureFormat configure(const PictureFormat& in, const Below& below) override;
    Counters counters() override;
    long long dropped() override { return missing_; }

protected:
    void take(ZVbuffer buffer) override;

private:
    void keep(const uint8_t* picture);

    PictureFormat format_;
    std::unique_ptr<FrameWriter> writer_;
    std::vector<uint8_t> rgb_;
    long long right_ = 0, wrong_ = 0;
    long long missing_ = 0;  // by the numbers: lost on the way
    long long last_ = -1;
};
