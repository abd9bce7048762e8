// v4l2Modes.h - what a jack can do, in words.
#pragma once

#include <string>
#include <vector>

#include "platform/kp/v4l2/v4l2Signal.h"

namespace kiv {

// Formats with sizes and rates, timings with their numbers. Selecting another jack
// would disturb the device, so only the selected one tells everything.
std::vector<std::string> describeModes(const V4l2Node& node, const V4l2Jack& jack);

}  // namespace kiv
