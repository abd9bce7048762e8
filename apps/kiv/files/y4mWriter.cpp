// y4mWriter.cpp - see y4mWriter.h.
#include "apps/kiv/files/y4mWriter.h"

#include <cstring>

#include "apps/kiv/support/text.h"
#include "platform/rk/rk.h"
#include "platform/zv/zv.h"

static constexpr char frameMark[] = "FRAME\n";
static constexpr size_t markBytes = sizeof frameMark - 1;

Y4mWriter::Y4mWriter(const std::string& path, const PictureFormat& format) : path_(path), format_(format)
{
    size_t luma = size_t(format.width) * size_t(format.height);
    size_t chroma = size_t((format.width + 1) / 2) * size_t(format.height);
    out_.resize(markBytes + luma + (format.packing == ZV_IMAGE_PACKING_CbYCrY ? 2 * chroma : 0));
    memcpy(out_.data(), frameMark, markBytes);
}

std::string y4mHeader(const PictureFormat& format)
{
    char interlacing = format.interlacing == RK_INTERLACING_TOP_FIRST ? 't'
        : format.interlacing == RK_INTERLACING_BOTTOM_FIRST           ? 'b'
                                                                      : 'p';
    const char* colour = format.packing == ZV_IMAGE_PACKING_LUMINANCE ? "mono" : "422";
    return text("YUV4MPEG2 W%d H%d F%d:%d I%c A1:1 C%s XCOLORRANGE=%s\n", format.width, format.height,
                format.rateNumerator, format.rateDenominator, interlacing, colour,
                format.fullRange ? "FULL" : "LIMITED");
}

std::string Y4mWriter::open()
{
    std::string wrong = file_.open(path_);
    if (!wrong.empty())
        return wrong;
    std::string header = y4mHeader(format_);
    return file_.write(header.data(), header.size());
}

// One row of Cb Y Cr Y ... to three planes. The last column of an odd width has no
// Cr of its own; it takes that of its left neighbour.
static void splitRow(const uint8_t* row, int width, uint8_t* y, uint8_t* cb, uint8_t* cr)
{
    int pairs = width / 2;
    for (int i = 0; i < pairs; ++i) {
        cb[i] = row[4 * i];
        y[2 * i] = row[4 * i + 1];
        cr[i] = row[4 * i + 2];
        y[2 * i + 1] = row[4 * i + 3];
    }
    if (width % 2 == 0)
        return;
    cb[pairs] = row[4 * pairs];
    y[2 * pairs] = row[4 * pairs + 1];
    cr[pairs] = pairs > 0 ? cr[pairs - 1] : 128;
}

std::string Y4mWriter::write(const uint8_t* data, int)
{
    size_t width = size_t(format_.width), height = size_t(format_.height), half = (width + 1) / 2;
    uint8_t* y = out_.data() + markBytes;
    if (format_.packing == ZV_IMAGE_PACKING_LUMINANCE) {
        memcpy(y, data, width * height);
        return file_.write(out_.data(), out_.size());
    }
    uint8_t* cb = y + width * height;
    uint8_t* cr = cb + half * height;
    for (size_t row = 0; row < height; ++row)
        splitRow(data + 2 * width * row, format_.width, y + width * row, cb + half * row, cr + half * row);
    return file_.write(out_.data(), out_.size());
}
