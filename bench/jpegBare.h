// jpegBare.h - JPEG by a bare loop over libjpeg: the limit that the converters are held against.
#pragma once

#include <cstdint>
#include <cstdio>
#include <vector>

#include <jpeglib.h>

using Bytes = std::vector<uint8_t>;

// One picture after the other through one library object, raw data a row of
// blocks at a time where the pixels are CbYCrY; libyuv takes them apart and together.
class BareEncoder {
public:
    BareEncoder(int width, int height, int quality, J_DCT_METHOD transform);
    ~BareEncoder();
    size_t encode(const uint8_t* cbycry);  // bytes of the JPEG
    const uint8_t* jpeg() const { return out_; }

private:
    int width_;
    int height_;
    jpeg_error_mgr errors_;
    jpeg_compress_struct cinfo_ = {};
    Bytes planes_;
    unsigned long capacity_;
    unsigned char* out_;
};

class BareDecoder {
public:
    BareDecoder(int width, int height);
    ~BareDecoder();
    void toCbYCrY(const uint8_t* jpeg, size_t size, uint8_t* out);  // 4:2:2 only
    void toRgba(const uint8_t* jpeg, size_t size, uint8_t* out);

private:
    int width_;
    int height_;
    jpeg_error_mgr errors_;
    jpeg_decompress_struct cinfo_ = {};
    Bytes planes_;
};
