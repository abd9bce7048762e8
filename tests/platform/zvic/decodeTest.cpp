// decodeTest.cpp - JPEG decodes against libjpeg's own program and a raw-data decode.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/platform/zvic/converterRig.h"

namespace {

struct Sample {
    const char* name;
    JpegOptions options;
};

JpegOptions sampled(int h, int v, int ch = 1, int cv = 1)
{
    JpegOptions options;
    options.h = h;
    options.v = v;
    options.ch = ch;
    options.cv = cv;
    return options;
}

JpegOptions grey()
{
    JpegOptions options;
    options.color = JpegColor::Grey;
    return options;
}

JpegOptions with(JpegOptions options, bool JpegOptions::*flag)
{
    options.*flag = true;
    return options;
}

const Sample samples[] = {
    {"4:2:0", sampled(2, 2)},
    {"4:2:2", sampled(2, 1)},
    {"4:2:2 in double groups", sampled(2, 2, 1, 2)},
    {"4:4:4", sampled(1, 1)},
    {"4:4:4 in double groups", sampled(1, 2, 1, 2)},
    {"4:4:0", sampled(1, 2)},
    {"4:1:1", sampled(4, 1)},
    {"grey", grey()},
    {"progressive 4:2:0", with(sampled(2, 2), &JpegOptions::progressive)},
    {"own tables 4:2:2", with(sampled(2, 1), &JpegOptions::optimized)},
};

constexpr struct {
    int width, height;
} sizes[] = {{64, 48}, {101, 67}, {17, 33}, {1, 1}, {2, 1}, {7, 16}, {160, 31}};

int clampTo(int value, int last) { return value < 0 ? 0 : value > last ? last : value; }

// Chroma of pixel pair `pair` in row y by the documented filter, from raw planes.
int expectedChroma(const RawPlane& plane, const JpegOptions& options, bool smooth, int width, int pair, int y)
{
    const bool halfRows = options.v != options.cv;
    const bool full = options.h == options.ch;
    const auto column = [&](int x) {
        if (!halfRows)
            return plane.at(x, y);
        const int near = y / 2;
        const int next = clampTo((y & 1) ? near + 1 : near - 1, plane.height - 1);
        return smooth ? (3 * plane.at(x, near) + plane.at(x, next) + 2) >> 2 : plane.at(x, near);
    };
    if (!full)
        return column(pair);
    const int x = 2 * pair;
    return x + 1 < width ? (column(x) + column(x + 1) + 1) >> 1 : column(x);
}

Bytes expectedCbYCrY(const Bytes& jpeg, const JpegOptions& options, bool smooth)
{
    const std::vector<RawPlane> planes = rawDecode(jpeg);
    const Pixels luma = djpeg(jpeg, "-grayscale");
    Bytes out;
    for (int y = 0; y < luma.height; ++y) {
        for (int x = 0; x < luma.width; ++x) {
            const RawPlane& plane = planes.size() == 1 ? planes[0] : planes[1 + size_t(x & 1)];
            const int chroma = planes.size() == 1 ? 128 : expectedChroma(plane, options, smooth, luma.width, x / 2, y);
            out.push_back(uint8_t(chroma));
            out.push_back(luma.bytes[size_t(y) * size_t(luma.width) + size_t(x)]);
        }
    }
    return out;
}

TEST(zvicDecode, RgbAndGreyEqualTheLibrarysProgramInBothSpeeds)
{
    for (const Sample& sample : samples) {
        for (const auto& size : sizes) {
            SCOPED_TRACE(testing::Message() << sample.name << " " << size.width << "x" << size.height);
            const Bytes jpeg = makeJpeg(testPicture(size.width, size.height), sample.options);
            ConverterRig rgb(size.width, size.height, jpegFormat, packed(ZV_IMAGE_PACKING_RGB));
            ConverterRig luminance(size.width, size.height, jpegFormat, packed(ZV_IMAGE_PACKING_LUMINANCE));
            const Bytes expected = djpeg(jpeg, "-rgb").bytes;
            EXPECT_TRUE(rgb.convert(jpeg) == expected);
            EXPECT_EQ(rgb.set(ZV_IC_SPEED, ZV_IC_SPEED_NONREALTIME), 0);
            EXPECT_TRUE(rgb.convert(jpeg) == expected);
            EXPECT_TRUE(luminance.convert(jpeg) == djpeg(jpeg, "-grayscale").bytes);
        }
    }
}

TEST(zvicDecode, CbYCrYIsLumaAndTheDocumentedChroma)
{
    for (const Sample& sample : samples) {
        if (sample.options.h == 4)
            continue;
        for (const auto& size : sizes) {
            for (const int speed : {ZV_IC_SPEED_REALTIME, ZV_IC_SPEED_NONREALTIME}) {
                SCOPED_TRACE(testing::Message()
                             << sample.name << " " << size.width << "x" << size.height << " speed " << speed);
                const Bytes jpeg = makeJpeg(testPicture(size.width, size.height), sample.options);
                ConverterRig rig(size.width, size.height, jpegFormat, cbycry);
                rig.set(ZV_IC_SPEED, speed);
                EXPECT_TRUE(rig.convert(jpeg)
                            == expectedCbYCrY(jpeg, sample.options, speed == ZV_IC_SPEED_NONREALTIME));
            }
        }
    }
}

TEST(zvicDecode, FourOneOneRepeatsEachChromaSampleForTwoPairs)
{
    const Bytes jpeg = makeJpeg(testPicture(101, 20), sampled(4, 1));
    const std::vector<RawPlane> planes = rawDecode(jpeg);
    ConverterRig rig(101, 20, jpegFormat, cbycry);
    const Bytes out = rig.convert(jpeg);
    ASSERT_EQ(out.size(), 101u * 20 * 2);
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 101; ++x) {
            ASSERT_EQ(out[size_t(y * 202 + 2 * x)], planes[1 + size_t(x & 1)].at(x / 4, y)) << x << "," << y;
            ASSERT_EQ(out[size_t(y * 202 + 2 * x + 1)], planes[0].at(x, y));
        }
    }
}

TEST(zvicDecode, EveryPackingHoldsTheSamePixels)
{
    constexpr struct {
        int packing, bytes, r, g, b, alpha;
    } packings[] = {
        {ZV_IMAGE_PACKING_BGR, 3, 2, 1, 0, -1}, {ZV_IMAGE_PACKING_RGBA, 4, 0, 1, 2, 3},
        {ZV_IMAGE_PACKING_RGBX, 4, 0, 1, 2, 3}, {ZV_IMAGE_PACKING_ABGR, 4, 3, 2, 1, 0},
        {ZV_IMAGE_PACKING_XBGR, 4, 3, 2, 1, 0}, {ZV_IMAGE_PACKING_ARGB, 4, 1, 2, 3, 0},
        {ZV_IMAGE_PACKING_XRGB, 4, 1, 2, 3, 0},
    };
    const Bytes jpeg = makeJpeg(testPicture(37, 21), sampled(2, 1));
    const Bytes rgb = djpeg(jpeg).bytes;
    for (const auto& packing : packings) {
        Bytes expected(37 * 21 * size_t(packing.bytes), 255);
        for (size_t i = 0; i < 37 * 21; ++i) {
            expected[i * size_t(packing.bytes) + size_t(packing.r)] = rgb[3 * i];
            expected[i * size_t(packing.bytes) + size_t(packing.g)] = rgb[3 * i + 1];
            expected[i * size_t(packing.bytes) + size_t(packing.b)] = rgb[3 * i + 2];
        }
        ConverterRig rig(37, 21, jpegFormat, packed(packing.packing));
        EXPECT_TRUE(rig.convert(jpeg) == expected) << "packing " << packing.packing;
    }
}

// One worker decodes them in turn: its library object must not remember tables.
TEST(zvicDecode, MotionJpegWithoutTablesDecodesWhateverCameBefore)
{
    const Pixels picture = testPicture(96, 64);
    const Bytes plain = makeJpeg(picture, sampled(2, 1));
    const Bytes withoutTables = withoutSegments(plain, 0xc4);
    ASSERT_LT(withoutTables.size(), plain.size());
    JpegOptions other = with(sampled(2, 1), &JpegOptions::optimized);
    other.quality = 40;
    ConverterRig rig(96, 64, jpegFormat, cbycry, {.workers = 1});
    const Bytes expected = rig.convert(plain);
    EXPECT_TRUE(rig.convert(withoutTables) == expected);
    EXPECT_EQ(rig.convert(makeJpeg(picture, other)).size(), expected.size());
    EXPECT_TRUE(rig.convert(withoutTables) == expected);
    EXPECT_TRUE(rig.convert(withoutSegments(plain, 0xdb)).empty()) << "quantisation tables of another picture";
    EXPECT_TRUE(rig.convert(plain) == expected);
}

TEST(zvicDecode, RgbJpegGivesRgbAndIsRefusedForCbYCrYAsCmykIsForBoth)
{
    JpegOptions options;
    options.color = JpegColor::Rgb;
    const Bytes rgb = makeJpeg(testPicture(40, 24), options);
    options.color = JpegColor::Cmyk;
    const Bytes cmyk = makeJpeg(testPicture(40, 24), options);
    ConverterRig toRgb(40, 24, jpegFormat, packed(ZV_IMAGE_PACKING_RGB));
    ConverterRig toCbYCrY(40, 24, jpegFormat, cbycry);
    EXPECT_TRUE(toRgb.convert(rgb) == djpeg(rgb).bytes);
    int number = 0;
    EXPECT_TRUE(toCbYCrY.convert(rgb).empty());
    zvGetError(&number, nullptr);
    EXPECT_EQ(number, ZV_ERROR_UNSUPPORTED);
    EXPECT_TRUE(toCbYCrY.convert(cmyk).empty());
    EXPECT_TRUE(toRgb.convert(cmyk).empty());
    zvGetError(&number, nullptr);
    EXPECT_EQ(number, ZV_ERROR_UNSUPPORTED);
}

}  // namespace
