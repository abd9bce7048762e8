// cbYCrY.h - 4:2:2 pictures as B, G, R, A.
#pragma once

#include <cstdint>

namespace kiv::glx {

// Rows of Cb Y Cr Y, 2 bytes a pixel without gaps, to rows of B, G, R and an opaque A.
// BT.601; both pixels of a pair have its chroma. An odd row ends after Cb Y: its last
// pixel has the Cr before it. `levels`: full, or 16..235 and 16..240.
void cbYCrYToBgra(const uint8_t* in, uint8_t* out, int width, int height, bool fullRange);

}  // namespace kiv::glx
