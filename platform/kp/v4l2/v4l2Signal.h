// v4l2Signal.h - what comes or goes through a jack: its timings, its standard, its rate.
#pragma once

#include <string>

#include "platform/kp/v4l2/v4l2Node.h"

namespace kiv {

// One input or output of a device.
struct V4l2Jack {
    std::string name;
    int index = -1;  // -1: the only one, not to be selected
    bool timings = false;  // digital: the signal has DV timings
    v4l2_std_id standards = 0;  // analogue: those that it can have
};

double framesPerSecond(const v4l2_bt_timings& timings);  // whole frames, of two fields where interlaced

// Number `index` (from 0) of the timings that the selected jack can have.
bool timingsAt(const V4l2Node& node, int index, v4l2_bt_timings* timings);
// Sets the timings of that size nearest to the rate: those of the signal itself if
// they fit. False when there are none of that size, or the device is busy.
bool chooseTimings(const V4l2Node& node, int width, int frameLines, bool interlaced, double fps);
bool setTimings(const V4l2Node& node, const v4l2_bt_timings& timings);

// Sets a standard of that number of visible lines where there is one to be chosen.
void chooseStandard(const V4l2Node& node, const V4l2Jack& jack, int frameLines);
bool standardOf525Lines(const V4l2Node& node, const V4l2Jack& jack);

// Frames a second, from what the driver says about rate, timings or standard.
V4l2Rate signalRate(const V4l2Node& node, const V4l2Jack& jack);

}  // namespace kiv
