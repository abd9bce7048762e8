// v4l2Signal.cpp - see v4l2Signal.h.
#include "platform/kp/v4l2/v4l2Signal.h"

#include <cmath>

namespace kiv {

namespace {

constexpr int maxTimings = 1000;  // what a driver may list before it is not believed

bool sameRaster(const v4l2_bt_timings& timings, int width, int lines, bool interlaced)
{
    return int(timings.width) == width && int(timings.height) == lines && (timings.interlaced != 0) == interlaced;
}

}  // namespace

double framesPerSecond(const v4l2_bt_timings& timings)
{
    const double raster = double(V4L2_DV_BT_FRAME_WIDTH(&timings)) * double(V4L2_DV_BT_FRAME_HEIGHT(&timings));
    return raster > 0 ? double(timings.pixelclock) / raster : 0;
}

bool timingsAt(const V4l2Node& node, int index, v4l2_bt_timings* timings)
{
    v4l2_enum_dv_timings entry = {};
    entry.index = uint32_t(index);
    if (index < 0 || index >= maxTimings || node.control(VIDIOC_ENUM_DV_TIMINGS, &entry) != 0)
        return false;
    *timings = entry.timings.bt;
    return true;
}

bool setTimings(const V4l2Node& node, const v4l2_bt_timings& timings)
{
    v4l2_dv_timings data = {};
    data.type = V4L2_DV_BT_656_1120;
    data.bt = timings;
    return node.control(VIDIOC_S_DV_TIMINGS, &data) == 0;
}

bool chooseTimings(const V4l2Node& node, int width, int frameLines, bool interlaced, double fps)
{
    constexpr double tolerance = 0.01;
    v4l2_dv_timings signal = {};
    if (!node.output() && node.control(VIDIOC_QUERY_DV_TIMINGS, &signal) == 0
        && sameRaster(signal.bt, width, frameLines, interlaced)
        && std::abs(framesPerSecond(signal.bt) - fps) < tolerance * fps)
        return setTimings(node, signal.bt);

    v4l2_bt_timings best = {};
    double distance = HUGE_VAL;
    v4l2_bt_timings timings = {};
    for (int i = 0; timingsAt(node, i, &timings); ++i) {
        const double off = std::abs(framesPerSecond(timings) - fps);
        if (!sameRaster(timings, width, frameLines, interlaced) || off >= distance)
            continue;
        best = timings;
        distance = off;
    }
    return distance < HUGE_VAL && setTimings(node, best);
}

void chooseStandard(const V4l2Node& node, const V4l2Jack& jack, int frameLines)
{
    const v4l2_std_id family = frameLines == 576 ? V4L2_STD_625_50
        : frameLines == 480 || frameLines == 486 ? V4L2_STD_525_60
                                                 : 0;
    v4l2_std_id current = 0;
    if ((jack.standards & family) == 0
        || (node.control(VIDIOC_G_STD, &current) == 0 && (current & family) == current && current != 0))
        return;
    const v4l2_std_id usual = family & (V4L2_STD_PAL | V4L2_STD_NTSC) & jack.standards;
    v4l2_std_id wish = usual != 0 ? usual : family & jack.standards;
    node.control(VIDIOC_S_STD, &wish);
}

bool standardOf525Lines(const V4l2Node& node, const V4l2Jack& jack)
{
    v4l2_std_id current = 0;
    return jack.standards != 0 && node.control(VIDIOC_G_STD, &current) == 0 && (current & V4L2_STD_525_60) != 0;
}

V4l2Rate signalRate(const V4l2Node& node, const V4l2Jack& jack)
{
    const V4l2Rate told = node.rate();
    if (told.numerator > 0)
        return told;
    v4l2_dv_timings timings = {};
    if (jack.timings && node.control(VIDIOC_G_DV_TIMINGS, &timings) == 0 && framesPerSecond(timings.bt) > 0)
        return {int(std::lround(framesPerSecond(timings.bt) * 1000)), 1000};
    return standardOf525Lines(node, jack) ? V4l2Rate{30000, 1001} : V4l2Rate{25, 1};
}

}  // namespace kiv
