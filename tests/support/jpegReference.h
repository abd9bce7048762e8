// jpegReference.h - JPEG made and read by libjpeg and its program alone, to
// compare the converters with.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

// A picture, rows without gaps, `channels` bytes a pixel.
struct Pixels {
    int width = 0;
    int height = 0;
    int channels = 3;
    Bytes bytes;
};

// Smooth shapes, edges and some noise in R G B; another seed, another picture.
Pixels testPicture(int width, int height, unsigned seed = 1);
// Every byte random; `binary`: 0 or 255.
Pixels noisePicture(int width, int height, unsigned seed, bool binary = false);

enum class JpegColor { YCbCr, Grey, Rgb, Cmyk };

struct JpegOptions {
    int quality = 75;
    int h = 2, v = 1;  // sampling factors of luma
    int ch = 1, cv = 1;  // of both chroma components
    JpegColor color = JpegColor::YCbCr;
    bool progressive = false;
    bool optimized = false;  // Huffman tables of its own
    bool separateScans = false;  // each component in its own
    int restartRows = 0;
};
Bytes makeJpeg(const Pixels& rgb, const JpegOptions& options);

// The same JPEG without its segments of one kind (0xc4: Huffman tables).
Bytes withoutSegments(const Bytes& jpeg, int marker);

// Planes as libjpeg's raw-data interface gives them, accurate integer transform.
struct RawPlane {
    int width = 0;
    int height = 0;
    Bytes bytes;
    int at(int x, int y) const { return bytes[size_t(y) * size_t(width) + size_t(x)]; }
};
std::vector<RawPlane> rawDecode(const Bytes& jpeg);

// What `djpeg -dct int -pnm ARGUMENTS` writes; empty when it fails.
Pixels djpeg(const Bytes& jpeg, const std::string& arguments = "");

double psnr(const Bytes& a, const Bytes& b);
