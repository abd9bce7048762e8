// jpegPlanes.cpp - see jpegPlanes.h.
#include "platform/zvic/jpegPlanes.h"

#include <cstring>

#include <libyuv/planar_functions.h>

namespace kiv {

namespace {

constexpr int bankRows = 2 * DCTSIZE;

}  // namespace

// Two banks of three planes, and a pair of rows at half width; kept until the
// decoder goes. In libjpeg's permanent memory, so that failure jumps like any other.
void JpegPlanes::makeScratch(j_decompress_ptr cinfo)
{
    if (scratch_ != nullptr)
        return;
    stride_ = (width_ + 63) & ~63;
    const size_t plane = size_t(stride_) * bankRows;
    const size_t bytes = plane * 8;
    scratch_
        = static_cast<uint8_t*>(cinfo->mem->alloc_large(reinterpret_cast<j_common_ptr>(cinfo), JPOOL_PERMANENT, bytes));
    memset(scratch_, 128, bytes);
    uint8_t* next = scratch_;
    for (Bank& bank : banks_) {
        for (auto& rows : bank.rows) {
            for (int i = 0; i < bankRows; ++i, next += stride_)
                rows[i] = next;
        }
        bank.y = bank.rows[0][0];
        bank.cb = bank.rows[1][0];
        bank.cr = bank.rows[2][0];
        bank.yStride = bank.cStride = stride_;
    }
    half_.cb = next;
    half_.cr = next + plane;
    half_.cStride = stride_;
}

// True for the samplings that are read as planes: luma is the finest, both
// chroma planes alike, at full or half size each way, and row groups fit a bank.
bool JpegPlanes::regular(const jpeg_decompress_struct& cinfo) const
{
    const jpeg_component_info* c = cinfo.comp_info;
    const int h = c[0].h_samp_factor;
    const int v = c[0].v_samp_factor;
    const auto half = [](int factor, int of) { return factor == of || 2 * factor == of; };
    return h == cinfo.max_h_samp_factor && v == cinfo.max_v_samp_factor && h <= 2 && v <= 2
        && half(c[1].h_samp_factor, h) && half(c[1].v_samp_factor, v) && c[2].h_samp_factor == c[1].h_samp_factor
        && c[2].v_samp_factor == c[1].v_samp_factor;
}

void JpegPlanes::choose(j_decompress_ptr cinfo, bool smooth)
{
    makeScratch(cinfo);
    height_ = int(cinfo->image_height);
    smooth_ = smooth;
    if (cinfo->jpeg_color_space == JCS_GRAYSCALE) {
        way_ = Way::Grey;
        cinfo->out_color_space = JCS_GRAYSCALE;
        return;
    }
    cinfo->out_color_space = JCS_YCbCr;
    way_ = regular(*cinfo) ? Way::Planes : Way::Pixels;
    if (way_ == Way::Pixels) {
        cinfo->do_fancy_upsampling = boolean(smooth);
        return;
    }
    cinfo->raw_data_out = TRUE;
    fullColumns_ = cinfo->comp_info[1].h_samp_factor == cinfo->max_h_samp_factor;
    halfRows_ = cinfo->comp_info[1].v_samp_factor != cinfo->max_v_samp_factor;
    groupRows_ = cinfo->max_v_samp_factor * DCTSIZE;
}

void JpegPlanes::read(j_decompress_ptr cinfo, uint8_t* out)
{
    if (way_ == Way::Grey)
        readGrey(cinfo, out);
    else if (way_ == Way::Pixels)
        readPixels(cinfo, out);
    else if (halfRows_ && smooth_)
        readSmooth(cinfo, out);
    else
        readPlanes(cinfo, out);
}

void JpegPlanes::readGroup(j_decompress_ptr cinfo, Bank& bank)
{
    JSAMPARRAY groups[3] = {bank.rows[0], bank.rows[1], bank.rows[2]};
    jpeg_read_raw_data(cinfo, groups, JDIMENSION(groupRows_));
}

void JpegPlanes::readPlanes(j_decompress_ptr cinfo, uint8_t* out)
{
    for (int y = 0; y < height_; y += groupRows_) {
        readGroup(cinfo, banks_[0]);
        emitGroup(banks_[0], out, y, height_ - y < groupRows_ ? height_ - y : groupRows_);
    }
}

// Rows of one group, each chroma row as it is or for two rows of luma.
void JpegPlanes::emitGroup(const Bank& bank, uint8_t* out, int y, int rows)
{
    const ptrdiff_t stride = 2 * ptrdiff_t(width_);
    PlaneRows planes = bank;
    if (fullColumns_) {
        for (int i = 0; i < (halfRows_ ? (rows + 1) / 2 : rows); ++i) {
            halveRow(bank.rows[1][i], half_.cb + i * half_.cStride, width_);
            halveRow(bank.rows[2][i], half_.cr + i * half_.cStride, width_);
        }
        planes.cb = half_.cb;
        planes.cr = half_.cr;
    }
    uint8_t* dst = out + y * stride;
    if (!halfRows_) {
        packCbYCrY(planes, dst, stride, width_, rows);
        return;
    }
    planes.yStride = 2 * stride_;
    packCbYCrY(planes, dst, 2 * stride, width_, (rows + 1) / 2);
    planes.y += stride_;
    packCbYCrY(planes, dst + stride, 2 * stride, width_, rows / 2);
}

// Half the chroma rows, smooth: the last luma row of a group waits for the first
// chroma row of the next.
void JpegPlanes::readSmooth(j_decompress_ptr cinfo, uint8_t* out)
{
    int emitted = 0;
    for (int y = 0, group = 0; y < height_; y += groupRows_, group ^= 1) {
        readGroup(cinfo, banks_[group]);
        const int known = y + groupRows_ < height_ ? y + groupRows_ - 1 : height_;
        while (emitted < known)
            emitSmoothRow(out, emitted++);
    }
}

void JpegPlanes::emitSmoothRow(uint8_t* out, int y)
{
    const int last = (height_ - 1) / 2;
    const int near = y / 2;
    int next = (y & 1) ? near + 1 : near - 1;
    next = next < 0 ? 0 : next > last ? last : next;
    const int chromaRows = groupRows_ / 2;
    const auto chroma
        = [&](int plane, int row) { return banks_[(row / chromaRows) & 1].rows[plane][row % chromaRows]; };
    const int columns = fullColumns_ ? width_ : (width_ + 1) / 2;
    uint8_t* mixed[2] = {half_.cb, half_.cr};
    for (int i = 0; i < 2; ++i) {
        libyuv::InterpolatePlane(chroma(i + 1, near), 0, chroma(i + 1, next), 0, mixed[i], 0, columns, 1, 64);
        if (fullColumns_) {
            halveRow(mixed[i], mixed[i] + half_.cStride, width_);
            mixed[i] += half_.cStride;
        }
    }
    PlaneRows row = half_;
    row.y = banks_[(y / groupRows_) & 1].rows[0][y % groupRows_];
    row.yStride = stride_;
    row.cb = mixed[0];
    row.cr = mixed[1];
    packCbYCrY(row, out + ptrdiff_t(y) * 2 * width_, 2 * ptrdiff_t(width_), width_, 1);
}

void JpegPlanes::readGrey(j_decompress_ptr cinfo, uint8_t* out)
{
    const ptrdiff_t stride = 2 * ptrdiff_t(width_);
    memset(half_.cb, 128, size_t(stride_));
    PlaneRows planes = banks_[0];
    planes.cb = planes.cr = half_.cb;
    planes.cStride = 0;
    for (int y = 0; y < height_; ++y) {
        jpeg_read_scanlines(cinfo, banks_[0].rows[0], 1);
        packCbYCrY(planes, out + y * stride, stride, width_, 1);
    }
}

void JpegPlanes::readPixels(j_decompress_ptr cinfo, uint8_t* out)
{
    const ptrdiff_t stride = 2 * ptrdiff_t(width_);
    JSAMPROW row = banks_[0].rows[0][0];  // three bytes a pixel: runs over the rows behind it
    for (int y = 0; y < height_; ++y) {
        jpeg_read_scanlines(cinfo, &row, 1);
        packCbYCrYFromYCC(row, out + y * stride, width_);
    }
}

}  // namespace kiv
