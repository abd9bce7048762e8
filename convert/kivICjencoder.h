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

    // Restart intervals of each JPEG, 0 to 16, which cores code and decode side by
    // side while no other frame waits; 0: by the height. After setup, also while
    // running. Returns 2000, 5, 2015 or 2007.
    int setBands(int bands);

    float quality;  // 0.0 lowest to 1.0; setup tells the converter
};
