// jpegReference.cpp - see jpegReference.h.
#include "tests/support/jpegReference.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <jpeglib.h>

Pixels testPicture(int width, int height, unsigned seed)
{
    Pixels picture{width, height, 3, Bytes(size_t(width) * size_t(height) * 3)};
    std::mt19937 random(seed);
    uint8_t* out = picture.bytes.data();
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double wave = 60 * std::sin((x + 3.0 * seed) / 17.0) * std::cos(y / 23.0);
            const int edge = ((x / 32 + y / 24 + int(seed)) & 3) * 30;
            for (int c = 0; c < 3; ++c) {
                const int level = int(90 + wave * (c == 1 ? -1 : 1)) + edge * (c + 1) / 3 + int(random() % 13);
                *out++ = uint8_t(std::clamp(level, 0, 255));
            }
        }
    }
    return picture;
}

Pixels noisePicture(int width, int height, unsigned seed, bool binary)
{
    Pixels picture{width, height, 3, Bytes(size_t(width) * size_t(height) * 3)};
    std::mt19937 random(seed);
    for (uint8_t& byte : picture.bytes)
        byte = binary ? uint8_t(random() & 1 ? 255 : 0) : uint8_t(random());
    return picture;
}

namespace {

void setColor(jpeg_compress_struct& cinfo, const JpegOptions& options)
{
    cinfo.in_color_space = options.color == JpegColor::Cmyk ? JCS_CMYK : JCS_RGB;
    cinfo.input_components = options.color == JpegColor::Cmyk ? 4 : 3;
    jpeg_set_defaults(&cinfo);
    if (options.color == JpegColor::Grey)
        jpeg_set_colorspace(&cinfo, JCS_GRAYSCALE);
    if (options.color == JpegColor::Rgb)
        jpeg_set_colorspace(&cinfo, JCS_RGB);
    if (options.color != JpegColor::YCbCr)
        return;
    for (int i = 0; i < 3; ++i) {
        cinfo.comp_info[i].h_samp_factor = i == 0 ? options.h : options.ch;
        cinfo.comp_info[i].v_samp_factor = i == 0 ? options.v : options.cv;
    }
}

// CMYK input is the picture and a black of 200.
Bytes inputRow(const Pixels& rgb, int y, bool cmyk)
{
    const uint8_t* row = rgb.bytes.data() + size_t(y) * size_t(rgb.width) * 3;
    Bytes bytes;
    for (int x = 0; x < rgb.width; ++x) {
        bytes.insert(bytes.end(), row + 3 * x, row + 3 * x + 3);
        if (cmyk)
            bytes.push_back(200);
    }
    return bytes;
}

}  // namespace

Bytes makeJpeg(const Pixels& rgb, const JpegOptions& options)
{
    jpeg_error_mgr errors;
    jpeg_compress_struct cinfo = {};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &memory, &size);
    cinfo.image_width = JDIMENSION(rgb.width);
    cinfo.image_height = JDIMENSION(rgb.height);
    setColor(cinfo, options);
    jpeg_set_quality(&cinfo, options.quality, TRUE);
    cinfo.optimize_coding = boolean(options.optimized);
    cinfo.restart_in_rows = options.restartRows;
    static constexpr jpeg_scan_info separate[3] = {{1, {0}, 0, 63, 0, 0}, {1, {1}, 0, 63, 0, 0}, {1, {2}, 0, 63, 0, 0}};
    if (options.separateScans) {
        cinfo.scan_info = separate;
        cinfo.num_scans = 3;
    }
    if (options.progressive)
        jpeg_simple_progression(&cinfo);
    jpeg_start_compress(&cinfo, TRUE);
    for (int y = 0; y < rgb.height; ++y) {
        Bytes bytes = inputRow(rgb, y, options.color == JpegColor::Cmyk);
        JSAMPROW row = bytes.data();
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    Bytes jpeg(memory, memory + size);
    jpeg_destroy_compress(&cinfo);
    free(memory);
    return jpeg;
}

Bytes withoutSegments(const Bytes& jpeg, int marker)
{
    Bytes out(jpeg.begin(), jpeg.begin() + 2);
    size_t at = 2;
    while (jpeg[at + 1] != 0xda) {
        const size_t length = 2 + size_t(jpeg[at + 2] << 8 | jpeg[at + 3]);
        if (jpeg[at + 1] != marker)
            out.insert(out.end(), jpeg.begin() + long(at), jpeg.begin() + long(at + length));
        at += length;
    }
    out.insert(out.end(), jpeg.begin() + long(at), jpeg.end());
    return out;
}

std::vector<RawPlane> rawDecode(const Bytes& jpeg)
{
    jpeg_error_mgr errors;
    jpeg_decompress_struct cinfo = {};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&cinfo, TRUE);
    cinfo.raw_data_out = TRUE;
    cinfo.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&cinfo);

    const int numPlanes = cinfo.num_components;
    std::vector<Bytes> padded(static_cast<size_t>(numPlanes));
    std::vector<std::vector<JSAMPROW>> rows(static_cast<size_t>(numPlanes));
    std::vector<JSAMPARRAY> arrays(static_cast<size_t>(numPlanes));
    for (size_t i = 0; i < padded.size(); ++i) {
        const size_t stride = cinfo.comp_info[i].width_in_blocks * DCTSIZE + 64;
        const size_t groups = (cinfo.image_height + 7) / 8 + 4;
        padded[i].resize(stride * groups * DCTSIZE * 4);
        for (size_t y = 0; y < groups * DCTSIZE * 4; ++y)
            rows[i].push_back(padded[i].data() + y * stride);
    }
    for (JDIMENSION group = 0; cinfo.output_scanline < cinfo.output_height; ++group) {
        for (size_t i = 0; i < arrays.size(); ++i)
            arrays[i] = rows[i].data() + group * JDIMENSION(cinfo.comp_info[i].v_samp_factor) * DCTSIZE;
        jpeg_read_raw_data(&cinfo, arrays.data(), JDIMENSION(cinfo.max_v_samp_factor * DCTSIZE));
    }
    std::vector<RawPlane> planes(padded.size());
    for (size_t i = 0; i < planes.size(); ++i) {
        planes[i].width = int(cinfo.comp_info[i].downsampled_width);
        planes[i].height = int(cinfo.comp_info[i].downsampled_height);
        for (int y = 0; y < planes[i].height; ++y)
            planes[i].bytes.insert(planes[i].bytes.end(), rows[i][size_t(y)], rows[i][size_t(y)] + planes[i].width);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return planes;
}

Pixels djpeg(const Bytes& jpeg, const std::string& arguments)
{
    char name[] = "/tmp/kiv-djpeg-XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_EQ(write(fd, jpeg.data(), jpeg.size()), ssize_t(jpeg.size()));
    close(fd);
    FILE* out = popen(("djpeg -dct int -pnm " + arguments + " " + name).c_str(), "r");
    Pixels picture;
    char kind = 0;
    int depth = 0;
    if (fscanf(out, "P%c %d %d %d", &kind, &picture.width, &picture.height, &depth) == 4 && fgetc(out) != EOF) {
        picture.channels = kind == '6' ? 3 : 1;
        picture.bytes.resize(size_t(picture.width) * size_t(picture.height) * size_t(picture.channels));
        EXPECT_EQ(fread(picture.bytes.data(), 1, picture.bytes.size(), out), picture.bytes.size());
    }
    EXPECT_EQ(pclose(out), 0) << "djpeg (package libjpeg-turbo-progs) failed";
    unlink(name);
    return picture;
}

double psnr(const Bytes& a, const Bytes& b)
{
    EXPECT_EQ(a.size(), b.size());
    double sum = 0;
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(a.size()) / sum);
}
