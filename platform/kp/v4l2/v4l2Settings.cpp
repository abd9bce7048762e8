// v4l2Settings.cpp - see v4l2Settings.h.
#include "platform/kp/v4l2/v4l2Settings.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>
#include <numeric>

#include "platform/kp/v4l2/v4l2Pictures.h"
#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv {

namespace {

// In order of preference: what needs no work first.
constexpr uint32_t formats[]
    = {V4L2_PIX_FMT_UYVY, V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_MJPEG};

// By capture type.
constexpr uint32_t fields[]
    = {V4L2_FIELD_ALTERNATE,     V4L2_FIELD_INTERLACED, V4L2_FIELD_TOP,    V4L2_FIELD_BOTTOM, V4L2_FIELD_INTERLACED_TB,
       V4L2_FIELD_INTERLACED_BT, V4L2_FIELD_SEQ_TB,     V4L2_FIELD_SEQ_BT, V4L2_FIELD_NONE};
constexpr int wholeFrames = 1;

constexpr int maxRate = 1000;  // pictures per second
constexpr double rateTolerance = 0.01;

int linesOfFrame(int height, uint32_t field) { return V4L2_FIELD_HAS_T_OR_B(field) ? height * 2 : height; }

// What a driver says is a number from outside like any other.
bool usable(const V4l2Format& format)
{
    return format.width >= 2 && format.width % 2 == 0 && format.height >= 1 && format.width <= kivLimits()->imageWidth
        && format.height <= kivLimits()->imageHeight && (long long)format.width * format.height * 2 <= INT32_MAX
        && picturesFit(format);
}

}  // namespace

struct V4l2Settings::State {
    V4l2Format format;
    uint32_t fieldWish;
    V4l2Rate rate;
    bool timed;
    v4l2_dv_timings timings;
    v4l2_std_id standard;
};

V4l2Settings::State V4l2Settings::state() const
{
    State now = {format_, fieldWish_, node_.rate(), false, {}, 0};
    now.timed = jack_.timings && node_.control(VIDIOC_G_DV_TIMINGS, &now.timings) == 0;
    if (jack_.standards != 0)
        node_.control(VIDIOC_G_STD, &now.standard);
    return now;
}

// After a change that did not come out as asked. Keeps the recorded error.
void V4l2Settings::putBack(const State& before)
{
    if (before.timed)
        setTimings(node_, before.timings.bt);
    v4l2_std_id standard = before.standard;
    if (standard != 0)
        node_.control(VIDIOC_S_STD, &standard);
    fieldWish_ = before.fieldWish;
    format_ = before.format;
    node_.setFormat(&format_);
    if (before.rate.numerator > 0)
        node_.setRate(before.rate);
}

int V4l2Settings::select()
{
    int index = jack_.index;
    if (index >= 0 && node_.control(node_.output() ? VIDIOC_S_OUTPUT : VIDIOC_S_INPUT, &index) != 0)
        return recordSystemError(errno == EBUSY ? ZV_ERROR_STATE : ZV_ERROR_SYSTEM, "'%s' of '%s' cannot be selected",
                                 jack_.name.c_str(), node_.card().c_str());
    v4l2_dv_timings signal = {};
    if (jack_.timings && !node_.output() && node_.control(VIDIOC_QUERY_DV_TIMINGS, &signal) == 0)
        setTimings(node_, signal.bt);
    V4l2Format now;
    if (node_.getFormat(&now) != 0)
        now = {0, 640, 480, V4L2_FIELD_NONE, 0, 0};
    return negotiate(now.width, linesOfFrame(now.height, now.field), fieldWish_);
}

// Of formats that the driver has in just this size, else in any, the best one.
int V4l2Settings::negotiate(int width, int height, uint32_t field)
{
    for (const bool exact : {true, false}) {
        for (const uint32_t fourcc : formats) {
            if (node_.output() && fourcc == V4L2_PIX_FMT_MJPEG)
                continue;
            V4l2Format format = {fourcc, width, height, field, 0, 0};
            if (node_.setFormat(&format) != 0) {
                if (errno == EBUSY || errno == ENODEV)
                    return recordSystemError(errno == EBUSY ? ZV_ERROR_STATE : ZV_ERROR_PEER, "format of '%s'",
                                             node_.card().c_str());
                continue;
            }
            if (format.fourcc != fourcc || !usable(format))
                continue;
            if (exact && (format.width != width || format.height != height))
                continue;
            format_ = format;
            return 0;
        }
    }
    return recordError(ZV_ERROR_UNSUPPORTED, "'%s' has no picture format that can be turned into 4:2:2",
                       node_.card().c_str());
}

bool V4l2Settings::direct() const { return format_.fourcc == V4L2_PIX_FMT_UYVY && format_.stride == format_.width * 2; }

uint32_t V4l2Settings::firstField() const
{
    return standardOf525Lines(node_, jack_) ? V4L2_FIELD_BOTTOM : V4L2_FIELD_TOP;
}

V4l2Rate V4l2Settings::rate() const
{
    V4l2Rate rate = signalRate(node_, jack_);
    if (singleFields())
        rate.numerator *= 2;
    const int common = std::gcd(rate.numerator, rate.denominator);
    return {rate.numerator / common, rate.denominator / common};
}

uint64_t V4l2Settings::periodNs() const
{
    const V4l2Rate pictures = rate();
    return 1000000000ull * unsigned(pictures.denominator) / unsigned(pictures.numerator);
}

int V4l2Settings::set(int control, const KPControlValue& value)
{
    switch (control) {
    case KP_CONTROL_SIZE:
        return setSize(value.xyVal.x, value.xyVal.y);
    case KP_CONTROL_RATE:
        return setRate(value.fractVal.numerator, value.fractVal.denominator);
    case KP_CONTROL_TIMING:
        return setTiming(value.intVal);
    case KP_CONTROL_CAPTURE_TYPE:
        return setCaptureType(value.intVal);
    case KP_CONTROL_ZOOM:
        return setZoom(value.fractVal.numerator, value.fractVal.denominator);
    case KP_CONTROL_CLASS4:
    case KP_CONTROL_CLASS4_MODE:
        return 0;  // accepted: they mean nothing here
    }
    KPControlValue only;
    if (control == KP_CONTROL_MEMORY_MODE || get(control, &only) != 0)
        return recordError(ZV_ERROR_UNSUPPORTED, "no control %d that can be set", control);
    if (value.intVal != only.intVal)
        return recordError(ZV_ERROR_UNSUPPORTED, "control %d is %d here and cannot be %d", control, only.intVal,
                           value.intVal);
    return 0;
}

int V4l2Settings::get(int control, KPControlValue* value) const
{
    switch (control) {
    case KP_CONTROL_SIZE:
        value->xyVal = {format_.width, format_.height};
        return 0;
    case KP_CONTROL_RATE:
        value->fractVal = {rate().numerator, rate().denominator};
        return 0;
    case KP_CONTROL_TIMING:
        value->intVal = timing_;
        return 0;
    case KP_CONTROL_CAPTURE_TYPE:
        value->intVal = captureType();
        return 0;
    case KP_CONTROL_ZOOM:
        return zoom(value);
    case KP_CONTROL_PACKING:
        value->intVal = 22;  // CbYCrY 4:2:2
        return 0;
    case KP_CONTROL_FORMAT:
        value->intVal = 2;
        return 0;
    case KP_CONTROL_LAYOUT:
        value->intVal = 0;
        return 0;
    default:
        return recordError(ZV_ERROR_UNSUPPORTED, "no control %d", control);
    }
}

int V4l2Settings::setSize(int x, int y)
{
    if (x == format_.width && y == format_.height)
        return 0;
    if (sizeFixed)
        return recordError(ZV_ERROR_STATE, "the size is %d x %d and stays so", format_.width, format_.height);
    if (x < 2 || y < 1 || x % 2 != 0)
        return recordError(ZV_ERROR_ARGUMENT, "a 4:2:2 picture of %d x %d: the width must be even", x, y);
    if (x > kivLimits()->imageWidth || y > kivLimits()->imageHeight)
        return recordError(ZV_ERROR_LIMIT, "a picture of %d x %d: imageWidth x imageHeight is %d x %d", x, y,
                           kivLimits()->imageWidth, kivLimits()->imageHeight);
    const State before = state();
    const V4l2Rate frames = signalRate(node_, jack_);
    const bool single = V4L2_FIELD_HAS_T_OR_B(fieldWish_);
    const double fps
        = rateAsked_ > 0 ? rateAsked_ / (single ? 2 : 1) : double(frames.numerator) / double(frames.denominator);
    if (jack_.timings)
        chooseTimings(node_, x, linesOfFrame(y, fieldWish_), single, fps);
    chooseStandard(node_, jack_, linesOfFrame(y, fieldWish_));
    if (negotiate(x, y, fieldWish_) == 0 && format_.width == x && format_.height == y)
        return 0;
    recordError(ZV_ERROR_UNSUPPORTED, "'%s' makes %d x %d where %d x %d is asked", node_.card().c_str(), format_.width,
                format_.height, x, y);
    putBack(before);
    return -1;
}

bool V4l2Settings::rateIs(double wanted) const
{
    const V4l2Rate now = rate();
    return std::abs(double(now.numerator) / double(now.denominator) - wanted) <= wanted * rateTolerance;
}

// Many a camera has its high rates only in a format that needs more work.
bool V4l2Settings::rateInAnotherFormat(V4l2Rate rate, double wanted)
{
    const V4l2Format now = format_;
    for (const uint32_t fourcc : formats) {
        V4l2Format format = {fourcc, now.width, now.height, fieldWish_, 0, 0};
        if (fourcc == now.fourcc || (node_.output() && fourcc == V4L2_PIX_FMT_MJPEG) || node_.setFormat(&format) != 0
            || format.fourcc != fourcc || format.width != now.width || format.height != now.height || !usable(format))
            continue;
        format_ = format;
        node_.setRate(rate);
        if (rateIs(wanted))
            return true;
    }
    return false;
}

int V4l2Settings::setRate(int numerator, int denominator)
{
    if (numerator < 1 || denominator < 1 || numerator / denominator > maxRate)
        return recordError(ZV_ERROR_ARGUMENT, "a rate of %d/%d: up to %d frames a second", numerator, denominator,
                           maxRate);
    const double wanted = double(numerator) / double(denominator);
    if (!rateIs(wanted)) {
        const State before = state();
        const bool single = V4L2_FIELD_HAS_T_OR_B(format_.field);
        const int perFrame = singleFields() ? 2 : 1;
        const V4l2Format size = format_;
        if (jack_.timings
            && chooseTimings(node_, size.width, linesOfFrame(size.height, size.field), single, wanted / perFrame))
            negotiate(size.width, size.height, fieldWish_);
        else
            node_.setRate({numerator, denominator * perFrame});
        if (!rateIs(wanted) && !jack_.timings && !sizeFixed)
            rateInAnotherFormat({numerator, denominator * perFrame}, wanted);
        if (!rateIs(wanted) || format_.width != size.width || format_.height != size.height) {
            const V4l2Rate got = rate();
            recordError(ZV_ERROR_UNSUPPORTED, "'%s' runs at %d/%d where %d/%d frames a second are asked",
                        node_.card().c_str(), got.numerator, got.denominator, numerator, denominator);
            putBack(before);
            return -1;
        }
    }
    rateAsked_ = wanted;
    return 0;
}

int V4l2Settings::setTiming(int timing)
{
    if (timing == timing_ || timing == 0) {
        timing_ = timing;
        return 0;
    }
    if (sizeFixed)
        return recordError(ZV_ERROR_STATE, "the timing is %d and stays so", timing_);
    v4l2_bt_timings timings = {};
    v4l2_std_id standard = jack_.standards & (timing == 1 ? V4L2_STD_NTSC : timing == 2 ? V4L2_STD_PAL : 0);
    const bool done = jack_.timings ? timingsAt(node_, timing - 1, &timings) && setTimings(node_, timings)
                                    : standard != 0 && node_.control(VIDIOC_S_STD, &standard) == 0;
    if (!done)
        return recordError(ZV_ERROR_UNSUPPORTED, "'%s' of '%s' has no timing %d", jack_.name.c_str(),
                           node_.card().c_str(), timing);
    timing_ = timing;
    V4l2Format now = format_;
    node_.getFormat(&now);  // the size that came with it
    return negotiate(now.width, now.height, fieldWish_);
}

int V4l2Settings::setCaptureType(int type)
{
    const bool known = type >= 0 && type < int(std::size(fields));
    if (!known || (node_.output() && V4L2_FIELD_HAS_T_OR_B(fields[type])))
        return recordError(ZV_ERROR_UNSUPPORTED, "no capture type %d", type);
    if (type == captureType()) {
        fieldWish_ = fields[type];
        return 0;
    }
    if (sizeFixed)
        return recordError(ZV_ERROR_STATE, "the capture type is %d and stays so", captureType());
    const State before = state();
    fieldWish_ = fields[type];
    const int lines = linesOfFrame(format_.height, format_.field);
    const bool single = V4L2_FIELD_HAS_T_OR_B(fieldWish_);
    const V4l2Rate frames = signalRate(node_, jack_);
    if (jack_.timings)
        chooseTimings(node_, format_.width, lines, single, double(frames.numerator) / double(frames.denominator));
    if (negotiate(format_.width, single ? lines / 2 : lines, fieldWish_) == 0 && captureType() == type)
        return 0;
    putBack(before);
    return recordError(ZV_ERROR_UNSUPPORTED, "'%s' has no capture type %d on '%s'", node_.card().c_str(), type,
                       jack_.name.c_str());
}

// A progressive picture is a whole frame too.
int V4l2Settings::captureType() const
{
    if (format_.field == V4L2_FIELD_NONE && fieldWish_ != V4L2_FIELD_NONE)
        return wholeFrames;
    return int(std::find(std::begin(fields), std::end(fields), format_.field) - std::begin(fields));
}

int V4l2Settings::setZoom(int numerator, int denominator)
{
    if (denominator < 1 || numerator < denominator)
        return recordError(ZV_ERROR_UNSUPPORTED, "a zoom of %d/%d: 1 or more", numerator, denominator);
    KPControlValue now;
    if (zoom(&now) == 0
        && (long long)now.fractVal.numerator * denominator == (long long)now.fractVal.denominator * numerator)
        return 0;
    v4l2_selection whole = {};
    whole.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;  // of multi-planar queues too
    whole.target = V4L2_SEL_TGT_CROP_DEFAULT;
    if (node_.output() || node_.control(VIDIOC_G_SELECTION, &whole) != 0)
        return recordError(ZV_ERROR_UNSUPPORTED, "'%s' does not zoom", node_.card().c_str());
    whole.target = V4L2_SEL_TGT_CROP;
    v4l2_selection crop = whole;
    crop.r.width = uint32_t((long long)whole.r.width * denominator / numerator);
    crop.r.height = uint32_t((long long)whole.r.height * denominator / numerator);
    crop.r.left += int(whole.r.width - crop.r.width) / 2;
    crop.r.top += int(whole.r.height - crop.r.height) / 2;
    const V4l2Format size = format_;
    V4l2Format after = size;
    if (node_.control(VIDIOC_S_SELECTION, &crop) == 0 && node_.getFormat(&after) == 0 && after.width == size.width
        && after.height == size.height && after.fourcc == size.fourcc)
        return 0;
    node_.control(VIDIOC_S_SELECTION, &whole);
    format_ = size;
    node_.setFormat(&format_);
    return recordError(ZV_ERROR_UNSUPPORTED, "'%s' does not zoom to %d/%d at %d x %d", node_.card().c_str(), numerator,
                       denominator, size.width, size.height);
}

int V4l2Settings::zoom(KPControlValue* value) const
{
    value->fractVal = {1, 1};
    v4l2_selection whole = {};
    whole.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    whole.target = V4L2_SEL_TGT_CROP_DEFAULT;
    v4l2_selection crop = whole;
    crop.target = V4L2_SEL_TGT_CROP;
    if (node_.output() || node_.control(VIDIOC_G_SELECTION, &whole) != 0
        || node_.control(VIDIOC_G_SELECTION, &crop) != 0 || crop.r.width == 0 || crop.r.width >= whole.r.width)
        return 0;
    value->fractVal = {int(whole.r.width), int(crop.r.width)};
    return 0;
}

}  // namespace kiv
