// testPicture.cpp - see testPicture.h.
#include "platform/kp/builtin/testPicture.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kiv {

namespace {

constexpr int cells = 40;  // 32 of the number, 8 of the check, highest bit first
constexpr uint8_t black = 16;  // studio range
constexpr uint8_t white = 235;

struct Colour {
    uint8_t cb, y, cr;
};
constexpr Colour barColours[] = {{128, 180, 128}, {44, 162, 142}, {156, 131, 44}, {72, 112, 58},
                                 {184, 84, 198},  {100, 65, 212}, {212, 35, 114}, {128, 16, 128}};

// 5 x 7 dots: 0 to 9 and the colon, one byte a row, the leftmost dot in bit 4.
constexpr uint8_t font[11][7] = {
    {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},    {14, 17, 1, 2, 4, 8, 31},   {31, 2, 4, 2, 1, 17, 14},
    {2, 6, 10, 18, 31, 2, 2},     {31, 16, 30, 1, 1, 17, 14}, {6, 8, 16, 30, 17, 17, 14}, {31, 1, 2, 4, 8, 8, 8},
    {14, 17, 17, 14, 17, 17, 14}, {14, 17, 17, 15, 1, 2, 12}, {0, 4, 4, 0, 4, 4, 0},
};

uint8_t check(uint32_t number) { return uint8_t(0xa5 ^ number ^ (number >> 8) ^ (number >> 16) ^ (number >> 24)); }

int cellWidth(int width) { return width / cells & ~1; }

int cellHeight(int height) { return std::clamp(height / 16, 1, 32); }

}  // namespace

TestPicture::TestPicture(int width, int height) : width_(width), height_(height), bars_(size_t(width) * 2)
{
    for (int x = 0; x + 1 < width; x += 2) {
        const Colour& bar = barColours[int64_t(x) * 8 / width];
        const uint8_t pair[4] = {bar.cb, bar.y, bar.cr, bar.y};
        memcpy(&bars_[size_t(x) * 2], pair, sizeof pair);
    }
}

void TestPicture::draw(uint8_t* data, int64_t frame, uint64_t ust)
{
    for (int row = 0; row < height_; ++row)
        memcpy(data + size_t(row) * bars_.size(), bars_.data(), bars_.size());

    const int box = std::max(2, height_ / 8) & ~1;
    const int road = std::max(1, width_ - box);
    fill(data, int(frame % road * 8 % road), height_ / 2, box, box, white);

    const int scale = std::max(1, height_ / 160);
    const uint64_t ms = ust / 1000000;
    char text[48];
    snprintf(text, sizeof text, "%02d:%02d:%02d:%03d", int(ms / 3600000 % 100), int(ms / 60000 % 60),
             int(ms / 1000 % 60), int(ms % 1000));
    drawText(data, scale * 8, scale * 8, text, scale * 2);
    snprintf(text, sizeof text, "%lld", static_cast<long long>(frame));
    drawText(data, scale * 8, scale * 28, text, scale * 2);
    drawCells(data, uint32_t(frame));
}

// A grey rectangle; what lies outside the picture is left out. Edges are even.
void TestPicture::fill(uint8_t* data, int x, int y, int w, int h, uint8_t luma)
{
    const int left = std::max(0, x) & ~1;
    const int right = std::min(width_, x + w) & ~1;
    for (int row = std::max(0, y); row < std::min(height_, y + h); ++row) {
        uint8_t* out = data + size_t(row) * bars_.size() + size_t(left) * 2;
        for (int i = left; i < right; i += 2, out += 4) {
            out[0] = out[2] = 128;
            out[1] = out[3] = luma;
        }
    }
}

// The number runs along the lower edge.
void TestPicture::drawCells(uint8_t* data, uint32_t number)
{
    const uint64_t bits = uint64_t(number) << 8 | check(number);
    const int w = cellWidth(width_);
    const int h = cellHeight(height_);
    for (int i = 0; i < cells && w > 0; ++i)
        fill(data, i * w, height_ - h, w, h, bits >> (cells - 1 - i) & 1 ? white : black);
}

void TestPicture::drawText(uint8_t* data, int x, int y, const char* text, int scale)
{
    for (; *text != '\0'; ++text, x += 6 * scale) {
        const int glyph = *text == ':' ? 10 : *text - '0';
        fill(data, x - scale, y - scale, 7 * scale, 9 * scale, black);
        for (int row = 0; row < 7 && glyph >= 0 && glyph <= 10; ++row)
            for (int dot = 0; dot < 5; ++dot)
                if (font[glyph][row] >> (4 - dot) & 1)
                    fill(data, x + dot * scale, y + row * scale, scale, scale, white);
    }
}

bool readTestPicture(const uint8_t* data, int width, int height, uint32_t* number)
{
    const int w = cellWidth(width);
    if (w < 2 || height < 1)
        return false;
    uint64_t bits = 0;
    const size_t row = size_t(height - 1 - cellHeight(height) / 2) * size_t(width) * 2;
    for (int i = 0; i < cells; ++i) {
        const size_t x = size_t(i * w + w / 2);
        bits = bits << 1 | uint64_t(data[row + x * 2 + 1] >= 128);
    }
    const uint32_t read = uint32_t(bits >> 8);
    if (uint8_t(bits) != check(read))
        return false;
    *number = read;
    return true;
}

}  // namespace kiv
