// picture.h - what runs on the line between two nodes of a graph.
#pragma once

#include <string>

struct PictureFormat {
    bool jpeg = false;
    int packing = 0;  // of uncompressed pictures
    int width = 0, height = 0;  // pixels
    int rateNumerator = 0, rateDenominator = 1;  // frames per second; 0 = unknown
    int interlacing = 0;  // RK_INTERLACING_...
    bool fullRange = false;  // CbYCr levels are 0..255, as JPEG has them; else studio range, as cameras do
    bool live = false;  // late frames give way to newer ones

    // Who said so, for messages: "node 1 'recv' with size=64x48".
    std::string kindBy;  // JPEG or the packing
    std::string sizeBy;
    std::string rateBy;
};

int frameBytes(const PictureFormat& format);  // of an uncompressed picture
std::string describe(const PictureFormat& format);  // "JPEG 1280x720"
