// imageRows.h - images of any format as rows of B, G, R, A.
#pragma once

#include <GL/gl.h>

#include <cstddef>
#include <cstdint>

namespace kiv::glx {

// An image in memory, first row first. Borrows the data.
struct ImageRows {
    const uint8_t* data;
    ptrdiff_t stride;  // bytes from one row to the next
    int width, height;
    GLenum format;
    bool fullRange;  // levels of 4:2:2

    static bool knows(GLenum format);
    void read(int row, uint8_t* bgra) const;
};

// Each pixel `zoom` times.
void widen(const uint8_t* in, uint8_t* out, int width, int zoom);

}  // namespace kiv::glx
