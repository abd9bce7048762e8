// settings.h - the controls of a built-in device.
#pragma once

#include "platform/kp/builtin/faults.h"
#include "platform/kp/kp.h"

namespace kiv {

// Thread: the path's lock. A running transfer works on a copy taken at begin.
struct Settings {
    int width = 640;  // pixels
    int height = 480;
    int rateNumerator = 30;  // frames per second; 0 = as fast as they are taken
    int rateDenominator = 1;
    int timing = 0, captureType = 1, packing = 22, format = 2, layout = 0;
    bool sizeFixed = false;  // a pool is registered, a transfer runs, or a file says the size
    bool mayRunFree = true;  // rate 0 is allowed
    Faults faults;

    int setRate(int numerator, int denominator);
    int set(int control, const KPControlValue& value);
    int get(int control, KPControlValue* value) const;

    int frameBytes() const { return width * height * 2; }
    uint64_t periodNs() const;  // 0 = free-running

private:
    int setSize(int x, int y);
    const int* plain(int control) const;
};

}  // namespace kiv
