// internal.h - image conversion for the other services of this layer: engines
// that convert on the calling thread, without queue, pool or workers.
#pragma once

#include "platform/zvic/codec.h"

namespace kiv {

// The engine of the first kind that turns `src` into `dst`; null, recorded, when none does.
std::unique_ptr<ConvertEngine> openConvertEngine(const ImageFormat& src, const ImageFormat& dst);

}  // namespace kiv
