// pixelTest.cpp - packings and colours of uncompressed pictures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/platform/zvic/converterRig.h"

namespace {

struct Packing {
    int packing, bytes, r, g, b, a;  // a < 0: no fourth byte
    bool alpha;
};
constexpr Packing rgbPackings[] = {
    {ZV_IMAGE_PACKING_RGB, 3, 0, 1, 2, -1, false}, {ZV_IMAGE_PACKING_BGR, 3, 2, 1, 0, -1, false},
    {ZV_IMAGE_PACKING_RGBA, 4, 0, 1, 2, 3, true},  {ZV_IMAGE_PACKING_RGBX, 4, 0, 1, 2, 3, false},
    {ZV_IMAGE_PACKING_ABGR, 4, 3, 2, 1, 0, true},  {ZV_IMAGE_PACKING_XBGR, 4, 3, 2, 1, 0, false},
    {ZV_IMAGE_PACKING_ARGB, 4, 1, 2, 3, 0, true},  {ZV_IMAGE_PACKING_XRGB, 4, 1, 2, 3, 0, false},
};

constexpr int width = 37;
constexpr int height = 5;

// The picture in a packing; the fourth byte counts pixels.
Bytes pack(const Pixels& picture, const Packing& packing)
{
    const size_t pixels = picture.bytes.size() / 3;
    Bytes out(pixels * size_t(packing.bytes));
    for (size_t i = 0; i < pixels; ++i) {
        uint8_t* pixel = out.data() + i * size_t(packing.bytes);
        pixel[packing.r] = picture.bytes[3 * i];
        pixel[packing.g] = picture.bytes[3 * i + 1];
        pixel[packing.b] = picture.bytes[3 * i + 2];
        if (packing.a >= 0)
            pixel[packing.a] = uint8_t(i);
    }
    return out;
}

struct Colour {
    double y, cb, cr;
};

// BT.601 by its definition.
Colour toYcc(const uint8_t* rgb, bool fullRange)
{
    const double y = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
    const double cb = (rgb[2] - y) / 1.772;
    const double cr = (rgb[0] - y) / 1.402;
    if (fullRange)
        return {y, 128 + cb, 128 + cr};
    return {16 + y * 219 / 255, 128 + cb * 224 / 255, 128 + cr * 224 / 255};
}

TEST(zvicPixels, RgbPackingsMoveBytesAndKeepAlpha)
{
    const Pixels picture = testPicture(width, height);
    for (const Packing& from : rgbPackings) {
        for (const Packing& to : rgbPackings) {
            Bytes expected = pack(picture, to);
            if (to.a >= 0 && from.packing != to.packing && !from.alpha) {
                for (size_t i = size_t(to.a); i < expected.size(); i += 4)
                    expected[i] = 255;  // no alpha to take over: opaque
            }
            ConverterRig rig(width, height, packed(from.packing), packed(to.packing));
            EXPECT_TRUE(rig.convert(pack(picture, from)) == expected) << from.packing << " to " << to.packing;
        }
    }
}

TEST(zvicPixels, ColoursFollowBt601InBothRanges)
{
    const Pixels picture = testPicture(width, height, 3);
    for (const bool full : {false, true}) {
        for (const int packing : {ZV_IMAGE_PACKING_CbYCr, ZV_IMAGE_PACKING_CbYCrA}) {
            ConverterRig there(width, height, packed(ZV_IMAGE_PACKING_RGB), packed(packing));
            there.set(ZV_IC_FULL_RANGE, full);
            const Bytes ycc = there.convert(picture.bytes);
            const size_t bytes = packing == ZV_IMAGE_PACKING_CbYCr ? 3 : 4;
            ASSERT_EQ(ycc.size(), size_t(width * height) * bytes);
            for (size_t i = 0; i < size_t(width * height); ++i) {
                const Colour colour = toYcc(&picture.bytes[3 * i], full);
                ASSERT_NEAR(ycc[bytes * i], colour.cb, 1.0);
                ASSERT_NEAR(ycc[bytes * i + 1], colour.y, 1.0);
                ASSERT_NEAR(ycc[bytes * i + 2], colour.cr, 1.0);
                if (bytes == 4) {
                    ASSERT_EQ(ycc[bytes * i + 3], 255);
                }
            }
            ConverterRig back(width, height, packed(packing), packed(ZV_IMAGE_PACKING_RGB));
            back.set(ZV_IC_FULL_RANGE, full);
            const Bytes rgb = back.convert(ycc);
            for (size_t i = 0; i < rgb.size(); ++i)
                ASSERT_NEAR(rgb[i], picture.bytes[i], 3) << "byte " << i << " full range " << full;
        }
    }
}

TEST(zvicPixels, CbYCrYComesAndGoesInBothRanges)
{
    // Pairs of equal pixels, so that halving chroma loses nothing; an odd width ends with one.
    Pixels picture = testPicture(width, height, 5);
    for (int i = 1; i < width * height; ++i) {
        if ((i % width) % 2 == 1)
            std::copy_n(&picture.bytes[size_t(3 * i - 3)], 3, &picture.bytes[size_t(3 * i)]);
    }
    for (const bool full : {false, true}) {
        ConverterRig there(width, height, packed(ZV_IMAGE_PACKING_BGR), cbycry);
        there.set(ZV_IC_FULL_RANGE, full);
        const Bytes yuv = there.convert(pack(picture, rgbPackings[1]));
        ASSERT_EQ(yuv.size(), size_t(width * height * 2));
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const Colour colour = toYcc(&picture.bytes[size_t(3 * (y * width + x))], full);
                const uint8_t* pixel = &yuv[size_t(2 * (y * width + x))];
                ASSERT_NEAR(pixel[1], colour.y, 2.0) << x << "," << y;
                ASSERT_NEAR(pixel[0], x % 2 == 0 ? colour.cb : colour.cr, 2.0) << x << "," << y;
            }
        }
        ConverterRig back(width, height, cbycry, packed(ZV_IMAGE_PACKING_RGBA));
        back.set(ZV_IC_FULL_RANGE, full);
        const Bytes rgba = back.convert(yuv);
        for (int i = 0; i < width * height; ++i) {
            if (i % width == width - 1)
                continue;  // its Cr is its neighbour's
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(rgba[size_t(4 * i + c)], picture.bytes[size_t(3 * i + c)], 5) << i;
            ASSERT_EQ(rgba[size_t(4 * i + 3)], 255);
        }
    }
}

TEST(zvicPixels, LumaPassesUntouchedBetweenLumaAndChromaPackings)
{
    const Bytes yuv = noisePicture(width, height, 9).bytes;
    const Bytes cbycr(yuv.begin(), yuv.begin() + width * height * 3);
    ConverterRig toPairs(width, height, packed(ZV_IMAGE_PACKING_CbYCr), cbycry);
    ConverterRig toLuminance(width, height, cbycry, packed(ZV_IMAGE_PACKING_LUMINANCE));
    ConverterRig toAlpha(width, height, packed(ZV_IMAGE_PACKING_LUMINANCE), packed(ZV_IMAGE_PACKING_LUMINANCE_ALPHA));
    ConverterRig toWide(width, height, cbycry, packed(ZV_IMAGE_PACKING_CbYCrA));
    const Bytes pairs = toPairs.convert(cbycr);
    const Bytes luma = toLuminance.convert(pairs);
    const Bytes withAlpha = toAlpha.convert(luma);
    const Bytes wide = toWide.convert(pairs);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const size_t i = size_t(y * width + x);
            const size_t other = x + 1 < width ? i + 1 : i;
            ASSERT_EQ(luma[i], cbycr[3 * i + 1]);
            ASSERT_EQ(withAlpha[2 * i], luma[i]);
            ASSERT_EQ(withAlpha[2 * i + 1], 255);
            ASSERT_EQ(wide[4 * i + 1], luma[i]);
            if (x % 2 == 0) {
                ASSERT_EQ(pairs[2 * i], (cbycr[3 * i] + cbycr[3 * other] + 1) / 2);
                ASSERT_EQ(wide[4 * i], pairs[2 * i]);
            } else {
                ASSERT_EQ(pairs[2 * i], (cbycr[3 * i - 1] + cbycr[3 * i + 2] + 1) / 2);
                ASSERT_EQ(wide[4 * i + 2], pairs[2 * i]);
            }
        }
        const size_t end = size_t((y + 1) * width - 1);
        ASSERT_EQ(wide[4 * end + 2], wide[4 * end - 2]) << "the last Cr of an odd row is the one before it";
    }
}

TEST(zvicPixels, EqualPackingsAreCopiedWhateverTheyAre)
{
    const Bytes picture = noisePicture(9, 9, 2).bytes;
    for (const int packing : {ZV_IMAGE_PACKING_CbYCrY, ZV_IMAGE_PACKING_RGB332, ZV_IMAGE_PACKING_RGBX}) {
        List list;
        zvSetImageDefaults(list, 8, 7, packing);
        const Bytes in(picture.begin(), picture.begin() + zvImageFrameSize(list));
        ConverterRig rig(8, 7, packed(packing), packed(packing));
        EXPECT_TRUE(rig.convert(in) == in) << packing;
    }
}

}  // namespace
