// v4l2Modes.cpp - see v4l2Modes.h.
#include "platform/kp/v4l2/v4l2Modes.h"

#include <cstdio>

namespace kiv {

namespace {

constexpr uint32_t maxEntries = 256;  // of a list, before a driver is not believed

std::string rateText(double rate)
{
    char text[32];
    snprintf(text, sizeof text, "%.4g", rate);
    return text;
}

std::string ratesOf(const V4l2Node& node, uint32_t fourcc, uint32_t width, uint32_t height)
{
    std::string text;
    v4l2_frmivalenum entry = {};
    entry.pixel_format = fourcc;
    entry.width = width;
    entry.height = height;
    for (; entry.index < maxEntries && node.control(VIDIOC_ENUM_FRAMEINTERVALS, &entry) == 0; ++entry.index) {
        const auto rate = [](const v4l2_fract& frame) { return rateText(double(frame.denominator) / frame.numerator); };
        if (entry.type != V4L2_FRMIVAL_TYPE_DISCRETE)
            return " " + rate(entry.stepwise.max) + " to " + rate(entry.stepwise.min) + " fps";
        text += (text.empty() ? " " : ", ") + rate(entry.discrete);
    }
    return text.empty() ? text : text + " fps";
}

void addSizes(const V4l2Node& node, uint32_t fourcc, std::vector<std::string>& modes)
{
    const std::string name = fourccText(fourcc);
    v4l2_frmsizeenum entry = {};
    entry.pixel_format = fourcc;
    for (; entry.index < maxEntries && node.control(VIDIOC_ENUM_FRAMESIZES, &entry) == 0; ++entry.index) {
        const auto size = [](uint32_t x, uint32_t y) { return std::to_string(x) + "x" + std::to_string(y); };
        if (entry.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
            const auto& one = entry.discrete;
            modes.push_back(name + " " + size(one.width, one.height) + ratesOf(node, fourcc, one.width, one.height));
            continue;
        }
        const auto& range = entry.stepwise;
        modes.push_back(name + " " + size(range.min_width, range.min_height) + " to "
                        + size(range.max_width, range.max_height)
                        + ratesOf(node, fourcc, range.max_width, range.max_height));
        return;
    }
    if (entry.index == 0)
        modes.push_back(name);
}

void addTimings(const V4l2Node& node, std::vector<std::string>& modes)
{
    v4l2_bt_timings timings = {};
    for (int i = 0; timingsAt(node, i, &timings); ++i)
        modes.push_back("timing " + std::to_string(i + 1) + ": " + std::to_string(timings.width) + "x"
                        + std::to_string(timings.height) + (timings.interlaced != 0 ? "i" : "p") + " "
                        + rateText(framesPerSecond(timings)) + " fps");
}

bool readable(uint32_t fourcc)
{
    return fourcc == V4L2_PIX_FMT_UYVY || fourcc == V4L2_PIX_FMT_YUYV || fourcc == V4L2_PIX_FMT_NV12
        || fourcc == V4L2_PIX_FMT_YUV420 || fourcc == V4L2_PIX_FMT_MJPEG;
}

bool selected(const V4l2Node& node, const V4l2Jack& jack)
{
    int index = -1;
    return jack.index < 0
        || (node.control(node.output() ? VIDIOC_G_OUTPUT : VIDIOC_G_INPUT, &index) == 0 && index == jack.index);
}

}  // namespace

std::vector<std::string> describeModes(const V4l2Node& node, const V4l2Jack& jack)
{
    std::vector<std::string> modes;
    if (jack.standards != 0)
        modes.push_back("analogue:"
                        + std::string((jack.standards & V4L2_STD_525_60) != 0 ? " 525 lines (timing 1)" : "")
                        + ((jack.standards & V4L2_STD_625_50) != 0 ? " 625 lines (timing 2)" : ""));
    if (!selected(node, jack)) {
        modes.push_back("formats are known once it is selected");
        return modes;
    }
    v4l2_fmtdesc entry = {};
    entry.type = node.type();
    for (; entry.index < maxEntries && node.control(VIDIOC_ENUM_FMT, &entry) == 0; ++entry.index)
        if (readable(entry.pixelformat))
            addSizes(node, entry.pixelformat, modes);
    if (jack.timings)
        addTimings(node, modes);
    return modes;
}

}  // namespace kiv
