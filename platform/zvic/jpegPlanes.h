// jpegPlanes.h - the planes inside a JPEG to CbYCrY, row group by row group.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include <jpeglib.h>

#include "platform/zvic/rows.h"

namespace kiv {

// Luma passes as it is. Chroma, by what the JPEG holds:
//   4:2:2   passes as it is;
//   4:2:0, 4:4:0 (half the rows): `smooth` weighs the nearer row 3/4 and the
//           next one 1/4, rounded; otherwise each row serves two;
//   4:4:4, 4:4:0 (every column): the rounded mean of each pair of columns;
//   grey    is 128;
//   others  (4:1:1 and the like) libjpeg brings to full size, `smooth` or not,
//           and the mean of each pair is taken.
class JpegPlanes {
public:
    explicit JpegPlanes(int width) : width_(width) { }

    // Between jpeg_read_header and jpeg_start_decompress: sets what libjpeg shall
    // put out. Takes scratch memory through `cinfo` on the first use.
    void choose(j_decompress_ptr cinfo, bool smooth);
    // Reads the whole started picture into rows of CbYCrY. Jumps out on damage.
    void read(j_decompress_ptr cinfo, uint8_t* out);

private:
    enum class Way { Grey, Planes, Pixels };

    struct Bank : PlaneRows {
        JSAMPROW rows[3][2 * DCTSIZE];
    };

    void makeScratch(j_decompress_ptr cinfo);
    bool regular(const jpeg_decompress_struct& cinfo) const;
    void readGroup(j_decompress_ptr cinfo, Bank& bank);
    void readGrey(j_decompress_ptr cinfo, uint8_t* out);
    void readPixels(j_decompress_ptr cinfo, uint8_t* out);
    void readPlanes(j_decompress_ptr cinfo, uint8_t* out);
    void readSmooth(j_decompress_ptr cinfo, uint8_t* out);
    void emitGroup(const Bank& bank, uint8_t* out, int y, int rows);
    void emitSmoothRow(uint8_t* out, int y);

    int width_;
    int height_ = 0;  // of the picture, or the band of it, that is read
    Way way_ = Way::Grey;
    bool smooth_ = false;
    bool fullColumns_ = false;  // chroma has as many columns as luma
    bool halfRows_ = false;  // chroma has half as many rows
    int groupRows_ = DCTSIZE;  // luma rows of one read
    uint8_t* scratch_ = nullptr;
    int stride_ = 0;
    Bank banks_[2] = {};  // this row group and the one before it
    PlaneRows half_;  // chroma rows on their way out
};

}  // namespace kiv
