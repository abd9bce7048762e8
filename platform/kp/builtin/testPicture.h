// testPicture.h - the picture of the built-in camera, and how to read it.
#pragma once

#include <cstdint>
#include <vector>

namespace kiv {

// Colour bars (75 %, BT.601 studio range), a box that moves, the time and the
// frame number in digits, and the number once more as a row of black and white
// cells that a program reads, also after compression. CbYCrY, rows without gaps,
// an even width. One thread at a time.
class TestPicture {
public:
    TestPicture(int width, int height);

    // `frame` is the number in the cells, modulo 2^32; `ust` the time shown, ns.
    void draw(uint8_t* data, int64_t frame, uint64_t ust);

private:
    void fill(uint8_t* data, int x, int y, int w, int h, uint8_t luma);
    void drawCells(uint8_t* data, uint32_t number);
    void drawText(uint8_t* data, int x, int y, const char* text, int scale);

    const int width_, height_;
    std::vector<uint8_t> bars_;  // one row
};

// Reads the cells of a CbYCrY picture at least 80 pixels wide. False when they do
// not carry a number (the check bits are wrong).
bool readTestPicture(const uint8_t* data, int width, int height, uint32_t* number);

}  // namespace kiv
