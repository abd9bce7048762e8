// stillWriters.cpp - see stillWriters.h.
#include "apps/kiv/files/stillWriters.h"

#include <png.h>

#include "apps/kiv/support/text.h"
#include "platform/zv/zv.h"

StillWriter::StillWriter(const std::string& pattern) : pattern_(pattern), path_(pattern) { }

std::string StillWriter::write(const uint8_t* data, int size)
{
    path_ = numberedPath(pattern_, ++number_);
    OutputFile file;
    std::string wrong = file.open(path_);
    if (wrong.empty())
        wrong = writeStill(file, data, size);
    return wrong.empty() ? file.close() : wrong;
}

std::string JpgWriter::writeStill(OutputFile& file, const uint8_t* data, int size)
{
    return file.write(data, size_t(size));
}

PpmWriter::PpmWriter(const std::string& pattern, const PictureFormat& format)
    : StillWriter(pattern), format_(format) { }

std::string PpmWriter::writeStill(OutputFile& file, const uint8_t* data, int)
{
    std::string header = text("P6\n%d %d\n255\n", format_.width, format_.height);
    std::string wrong = file.write(header.data(), header.size());
    return wrong.empty() ? file.write(data, size_t(frameBytes(format_))) : wrong;
}

PngWriter::PngWriter(const std::string& pattern, const PictureFormat& format)
    : StillWriter(pattern), format_(format) { }

// The simplified interface of libpng reports errors in the image, without jumps.
std::string PngWriter::writeStill(OutputFile& file, const uint8_t* data, int)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = png_uint_32(format_.width);
    image.height = png_uint_32(format_.height);
    image.flags = PNG_IMAGE_FLAG_FAST;
    image.format = format_.packing == ZV_IMAGE_PACKING_LUMINANCE ? PNG_FORMAT_GRAY
        : format_.packing == ZV_IMAGE_PACKING_RGBA               ? PNG_FORMAT_RGBA
                                                                 : PNG_FORMAT_RGB;
    png_alloc_size_t bytes = PNG_IMAGE_PNG_SIZE_MAX(image);
    out_.resize(bytes);
    if (png_image_write_to_memory(&image, out_.data(), &bytes, 0, data, 0, nullptr) == 0)
        return image.message;
    return file.write(out_.data(), bytes);
}
