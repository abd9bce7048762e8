// v4l2Settings.h - the controls of a stream on a device, as far as its driver has them.
#pragma once

#include "platform/kp/kp.h"
#include "platform/kp/v4l2/v4l2Signal.h"

namespace kiv {

// Thread: the path's lock. Controls are answered with what the driver made of them;
// what it cannot do exactly is refused and the setting before it put back.
//   timing        0: as the device is; n: number n-1 of the jack's digital timings, or on an
//                 analogue jack 1: 525 lines, 2: 625 lines
//   size          of one picture; a digital jack changes to timings of that size
//   capture type  0: every field a picture of its own, of half the lines; 1: whole frames, the
//                 fields interleaved; 2, 3: top, bottom fields only; 4, 5: interleaved,
//                 top, bottom first in time; 6, 7: fields one above the other, top,
//                 bottom first; 8: progressive
//   packing 22, format 2, layout 0: CbYCrY pictures, rows without gaps
//   zoom          of the middle of the picture, by cropping
class V4l2Settings {
public:
    explicit V4l2Settings(V4l2Node& node, const V4l2Jack& jack) : node_(node), jack_(jack) { }

    int select();  // the jack, and a format that we can read or write; -1, recorded
    int set(int control, const KPControlValue& value);
    int get(int control, KPControlValue* value) const;

    const V4l2Format& format() const { return format_; }  // of the driver's buffers
    int frameBytes() const { return format_.width * format_.height * 2; }  // of a CbYCrY picture
    bool direct() const;  // the driver's pictures are as the pool's
    bool singleFields() const { return format_.field == V4L2_FIELD_ALTERNATE; }
    uint32_t firstField() const;  // in time, of a frame
    V4l2Rate rate() const;  // pictures per second
    uint64_t periodNs() const;  // of one picture

    bool sizeFixed = false;  // a pool is registered

private:
    struct State;
    State state() const;
    void putBack(const State& before);

    int negotiate(int width, int height, uint32_t field);
    int setSize(int x, int y);
    int setRate(int numerator, int denominator);
    bool rateInAnotherFormat(V4l2Rate rate, double wanted);
    int setTiming(int timing);
    int setCaptureType(int type);
    int captureType() const;
    int setZoom(int numerator, int denominator);
    int zoom(KPControlValue* value) const;
    bool rateIs(double wanted) const;

    V4l2Node& node_;
    const V4l2Jack jack_;
    V4l2Format format_;
    uint32_t fieldWish_ = V4L2_FIELD_INTERLACED;
    int timing_ = 0;
    double rateAsked_ = 0;  // pictures per second; 0 = none
};

}  // namespace kiv
