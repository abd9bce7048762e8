// jpegFacts.h - what the head of a JPEG frame tells without decoding it.
#pragma once

namespace kiv::rk {

struct JpegFacts {
    int width = 0, height = 0;  // of the whole picture; 0 = no frame header was found
    const char* pixelFormat = "";  // FFmpeg's name of the layout, "" when it is none of the usual
    bool twoFields = false;  // two JPEG images, one per field
    int polarity = -1;  // of an AVI1 mark: 0 whole picture, 1 odd lines, 2 even lines; -1 = no mark
};

JpegFacts readJpegFacts(const unsigned char* data, int size);

}  // namespace kiv::rk
