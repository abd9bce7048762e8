// jpegTables.h - tables of a reused decoder, put back before each picture.
#pragma once

#include <cstdio>

#include <jpeglib.h>

namespace kiv {

// A libjpeg decoder keeps the tables of the picture before. A picture must not
// depend on which one its worker happened to decode last, so before each:
// Huffman tables are the standard ones (Motion-JPEG frames often leave them
// out), and quantisation tables are marked as missing.
class JpegTables {
public:
    // Takes the standard tables from a compressor's defaults, and makes all table
    // slots of `cinfo`. Libjpeg's errors go where `cinfo` sends them.
    void prepare(j_decompress_ptr cinfo);
    void reset(j_decompress_ptr cinfo) const;

    // True when a component of a started picture has no quantisation table of its own.
    static bool missing(const jpeg_decompress_struct& cinfo);

private:
    JHUFF_TBL dc_[NUM_HUFF_TBLS];
    JHUFF_TBL ac_[NUM_HUFF_TBLS];
};

}  // namespace kiv
