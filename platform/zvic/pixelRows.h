// pixelRows.h - rows of luma and chroma, and their way from and to RGB.
#pragma once

#include <cstdint>

namespace kiv {

// One row with all components at full width.
struct YccRow {
    uint8_t* y = nullptr;
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    uint8_t* alpha = nullptr;
};

// Bytes a pixel of the packings of this family: CbYCr, CbYCrA, CbYCrY, LUMINANCE,
// LUMINANCE_ALPHA; 0 for others.
int yccBytes(int packing);

// What a packing lacks is read as alpha 255 and chroma 128. CbYCrY repeats its
// chroma for two pixels, and is made with the rounded mean of each pair.
void loadYcc(int packing, const uint8_t* in, const YccRow& row, int width);
void storeYcc(int packing, const YccRow& row, uint8_t* out, int width);

// BT.601; B G R A bytes as libyuv's ARGB has them.
void yccRowToArgb(const YccRow& row, uint8_t* argb, int width, bool fullRange);
void argbRowToYcc(const uint8_t* argb, const YccRow& row, int width, bool fullRange);

void setOpaque(uint8_t* argb, int width);

}  // namespace kiv
