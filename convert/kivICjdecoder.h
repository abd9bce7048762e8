// kivICjdecoder.h - JPEG in, uncompressed pictures out.
#pragma once

#include "convert/kivIC.h"

// Loop-bound, like kivIC; only presets differ.
class KIV_API kivICjdecoder : public kivIC {
public:
    kivICjdecoder();
    kivICjdecoder(int width, int height);  // pixels, not checked
    ~kivICjdecoder() override;
};
