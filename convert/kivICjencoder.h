// kivICjencoder.h - uncompressed pictures in, JPEG out, at a quality that may change.
#pragma once

#include "convert/kivIC.h"

// Loop-bound, like kivIC.
class KIV_API kivICjencoder : public kivIC {
public:
    kivICjencoder();
    kivICjencoder(int width, int height);  // pixels, not checked
    ~kivICjencoder() override;

    int setup() override;

    int setQuality(int percent);  // 0 to 100; after setup, also while running

    float quality;  // 0.0 lowest to 1.0; setup tells the converter
};
