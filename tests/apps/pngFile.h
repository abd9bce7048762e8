// pngFile.h - a PNG file as 0xRRGGBB pixels.
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

struct PngPicture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;
    uint32_t at(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
};

inline PngPicture readPng(const std::string& path)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        ADD_FAILURE() << path << ": " << image.message;
        return {};
    }
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> bytes(PNG_IMAGE_SIZE(image));
    EXPECT_NE(png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr), 0) << path;
    PngPicture picture = {int(image.width), int(image.height), {}};
    for (size_t i = 0; i < bytes.size(); i += 3)
        picture.pixels.push_back(uint32_t(bytes[i]) << 16 | uint32_t(bytes[i + 1]) << 8 | bytes[i + 2]);
    return picture;
}

// The largest difference of two pixels in a channel.
inline int apart(uint32_t a, uint32_t b)
{
    int most = 0;
    for (int shift = 0; shift < 24; shift += 8)
        most = std::max(most, abs(int(a >> shift & 255) - int(b >> shift & 255)));
    return most;
}
