// rows.h - loops over single rows of pixels, for what libyuv does not offer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kiv {

// Planar rows of one picture: luma, and chroma at half its width (or at its width).
struct PlaneRows {
    uint8_t* y = nullptr;
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    int yStride = 0;  // bytes from row to row
    int cStride = 0;
};

// `rows` rows of CbYCrY, `width` pixels wide and `stride` bytes apart, from and to
// planes with half-width chroma, rounded up. An odd row of CbYCrY ends after
// Cb Y: its last Cr is not stored, and is read as that of the pair before it
// (128 in a picture one pixel wide).
void packCbYCrY(const PlaneRows& planes, uint8_t* dst, ptrdiff_t stride, int width, int rows);
void unpackCbYCrY(const uint8_t* src, ptrdiff_t stride, const PlaneRows& planes, int width, int rows);

// Half the width of a row, each sample the rounded mean of two; the last of an odd row stands alone.
void halveRow(const uint8_t* src, uint8_t* dst, int width);

// One row of CbYCrY from interleaved Y Cb Cr at full width; chroma as halveRow does it.
void packCbYCrYFromYCC(const uint8_t* ycc, uint8_t* dst, int width);

// Repeats the sample at `width` - 1 up to `paddedWidth`.
void padRow(uint8_t* row, int width, int paddedWidth);

}  // namespace kiv
