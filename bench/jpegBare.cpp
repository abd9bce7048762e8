// jpegBare.cpp - see jpegBare.h. Widths are multiples of 16, heights of 8.
#include "bench/jpegBare.h"

#include <cstdlib>

#include <libyuv/planar_functions.h>

namespace {

constexpr int groupRows = DCTSIZE;

struct Rows {
    JSAMPROW rows[3][groupRows];
    JSAMPARRAY arrays[3] = {rows[0], rows[1], rows[2]};

    Rows(uint8_t* planes, int width)
    {
        for (int i = 0; i < groupRows; ++i) {
            rows[0][i] = planes + i * width;
            rows[1][i] = planes + groupRows * width + i * width / 2;
            rows[2][i] = rows[1][i] + groupRows * width / 2;
        }
    }
};

}  // namespace

BareEncoder::BareEncoder(int width, int height, int quality, J_DCT_METHOD transform)
    : width_(width), height_(height), planes_(size_t(width) * groupRows * 2),
      capacity_(static_cast<unsigned long>(width) * static_cast<unsigned long>(height) * 2),
      out_(static_cast<unsigned char*>(malloc(capacity_)))
{
    cinfo_.err = jpeg_std_error(&errors_);
    jpeg_create_compress(&cinfo_);
    cinfo_.image_width = JDIMENSION(width);
    cinfo_.image_height = JDIMENSION(height);
    cinfo_.input_components = 3;
    cinfo_.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&cinfo_);
    jpeg_set_quality(&cinfo_, quality, TRUE);
    cinfo_.comp_info[0].v_samp_factor = 1;
    cinfo_.raw_data_in = TRUE;
    cinfo_.dct_method = transform;
}

BareEncoder::~BareEncoder()
{
    jpeg_destroy_compress(&cinfo_);
    free(out_);
}

size_t BareEncoder::encode(const uint8_t* cbycry)
{
    unsigned long size = capacity_;
    jpeg_mem_dest(&cinfo_, &out_, &size);
    jpeg_start_compress(&cinfo_, TRUE);
    Rows group(planes_.data(), width_);
    for (int y = 0; y < height_; y += groupRows) {
        libyuv::UYVYToI422(cbycry + ptrdiff_t(y) * width_ * 2, width_ * 2, group.rows[0][0], width_, group.rows[1][0],
                           width_ / 2, group.rows[2][0], width_ / 2, width_, groupRows);
        jpeg_write_raw_data(&cinfo_, group.arrays, groupRows);
    }
    jpeg_finish_compress(&cinfo_);
    return size;
}

BareDecoder::BareDecoder(int width, int height) : width_(width), height_(height), planes_(size_t(width) * groupRows * 2)
{
    cinfo_.err = jpeg_std_error(&errors_);
    jpeg_create_decompress(&cinfo_);
}

BareDecoder::~BareDecoder() { jpeg_destroy_decompress(&cinfo_); }

void BareDecoder::toCbYCrY(const uint8_t* jpeg, size_t size, uint8_t* out)
{
    jpeg_mem_src(&cinfo_, jpeg, static_cast<unsigned long>(size));
    jpeg_read_header(&cinfo_, TRUE);
    cinfo_.raw_data_out = TRUE;
    jpeg_start_decompress(&cinfo_);
    Rows group(planes_.data(), width_);
    for (int y = 0; y < height_; y += groupRows) {
        jpeg_read_raw_data(&cinfo_, group.arrays, groupRows);
        libyuv::I422ToUYVY(group.rows[0][0], width_, group.rows[1][0], width_ / 2, group.rows[2][0], width_ / 2,
                           out + ptrdiff_t(y) * width_ * 2, width_ * 2, width_, groupRows);
    }
    jpeg_finish_decompress(&cinfo_);
}

void BareDecoder::toRgba(const uint8_t* jpeg, size_t size, uint8_t* out)
{
    jpeg_mem_src(&cinfo_, jpeg, static_cast<unsigned long>(size));
    jpeg_read_header(&cinfo_, TRUE);
    cinfo_.out_color_space = JCS_EXT_RGBA;
    jpeg_start_decompress(&cinfo_);
    while (cinfo_.output_scanline < cinfo_.output_height) {
        JSAMPROW row = out + size_t(cinfo_.output_scanline) * size_t(width_) * 4;
        jpeg_read_scanlines(&cinfo_, &row, 1);
    }
    jpeg_finish_decompress(&cinfo_);
}
