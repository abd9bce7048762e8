// settings.cpp - see settings.h.
#include "platform/kp/builtin/settings.h"

#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv {

namespace {

constexpr int packing422 = 22;
constexpr int maxRate = 1000;  // frames per second

}  // namespace

int Settings::set(int control, const KPControlValue& value)
{
    if (faults.controlFails(control))
        return recordError(ZV_ERROR_UNSUPPORTED, "control %d fails by the fault script", control);
    switch (control) {
    case KP_CONTROL_SIZE:
        return setSize(value.xyVal.x, value.xyVal.y);
    case KP_CONTROL_RATE:
        return setRate(value.fractVal.numerator, value.fractVal.denominator);
    case KP_CONTROL_ZOOM:
        if (value.fractVal.numerator != value.fractVal.denominator || value.fractVal.denominator == 0)
            return recordError(ZV_ERROR_UNSUPPORTED, "a built-in device does not zoom");
        return 0;
    case KP_CONTROL_CLASS4:
    case KP_CONTROL_CLASS4_MODE:
        return 0;  // accepted: they mean nothing here
    case KP_CONTROL_PACKING:
        if (value.intVal != packing422)
            return recordError(ZV_ERROR_UNSUPPORTED, "packing %d: only %d (4:2:2)", value.intVal, packing422);
    }
    int* const setting = const_cast<int*>(plain(control));
    if (setting == nullptr)
        return recordError(ZV_ERROR_UNSUPPORTED, "no control %d that can be set", control);
    *setting = value.intVal;
    return 0;
}

int Settings::get(int control, KPControlValue* value) const
{
    switch (control) {
    case KP_CONTROL_SIZE:
        value->xyVal = {width, height};
        return 0;
    case KP_CONTROL_RATE:
        value->fractVal = {rateNumerator, rateDenominator};
        return 0;
    case KP_CONTROL_ZOOM:
        value->fractVal = {1, 1};
        return 0;
    case KP_CONTROL_MEMORY_MODE:
        value->intVal = KP_MEMORY_DIRECT;
        return 0;
    case KP_CONTROL_CLASS4:
    case KP_CONTROL_CLASS4_MODE:
        value->intVal = 0;
        return 0;
    }
    const int* const setting = plain(control);
    if (setting == nullptr)
        return recordError(ZV_ERROR_UNSUPPORTED, "no control %d", control);
    value->intVal = *setting;
    return 0;
}

const int* Settings::plain(int control) const
{
    switch (control) {
    case KP_CONTROL_TIMING:
        return &timing;
    case KP_CONTROL_CAPTURE_TYPE:
        return &captureType;
    case KP_CONTROL_PACKING:
        return &packing;
    case KP_CONTROL_FORMAT:
        return &format;
    case KP_CONTROL_LAYOUT:
        return &layout;
    default:
        return nullptr;
    }
}

int Settings::setSize(int x, int y)
{
    if (sizeFixed && (x != width || y != height))
        return recordError(ZV_ERROR_STATE, "the size is %d x %d and stays so", width, height);
    if (x < 2 || y < 1 || x % 2 != 0)
        return recordError(ZV_ERROR_ARGUMENT, "a 4:2:2 picture of %d x %d: the width must be even", x, y);
    if (x > kivLimits()->imageWidth || y > kivLimits()->imageHeight || int64_t(x) * y * 2 > INT32_MAX)
        return recordError(ZV_ERROR_LIMIT, "a picture of %d x %d: imageWidth x imageHeight is %d x %d", x, y,
                           kivLimits()->imageWidth, kivLimits()->imageHeight);
    width = x;
    height = y;
    return 0;
}

int Settings::setRate(int numerator, int denominator)
{
    const int least = mayRunFree ? 0 : 1;
    if (numerator < least || denominator < 1 || numerator / denominator > maxRate)
        return recordError(ZV_ERROR_ARGUMENT, "a rate of %d/%d: up to %d frames a second%s", numerator, denominator,
                           maxRate, mayRunFree ? ", or 0 for free-running" : "");
    rateNumerator = numerator;
    rateDenominator = denominator;
    return 0;
}

uint64_t Settings::periodNs() const
{
    return rateNumerator == 0 ? 0 : 1000000000ull * unsigned(rateDenominator) / unsigned(rateNumerator);
}

}  // namespace kiv
