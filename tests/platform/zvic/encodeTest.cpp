// encodeTest.cpp - JPEG encodes: bounded, right at the edges, of the quality asked for.
#include <gtest/gtest.h>

#include "tests/platform/zvic/converterRig.h"

namespace {

// CbYCrY as a raw-data decode of a 4:2:2 JPEG of the picture gives it.
Bytes cbycryOf(const Pixels& picture, int quality = 100)
{
    JpegOptions options;
    options.quality = quality;
    ConverterRig rig(picture.width, picture.height, jpegFormat, cbycry);
    return rig.convert(makeJpeg(picture, options));
}

Bytes noise(size_t size, unsigned seed, bool binary)
{
    Bytes bytes = noisePicture(int(size), 1, seed, binary).bytes;
    bytes.resize(size);
    return bytes;
}

TEST(zvicEncode, CbYCrYIsFourTwoTwoAndComesBackAlike)
{
    for (const auto& [width, height] : {std::pair{64, 48}, {101, 67}, {17, 9}, {1, 1}, {3, 2}, {722, 31}}) {
        SCOPED_TRACE(testing::Message() << width << "x" << height);
        const Bytes picture = cbycryOf(testPicture(width, height));
        ConverterRig encoder(width, height, cbycry, jpegFormat);
        encoder.setQuality(1.0);
        const Bytes jpeg = encoder.convert(picture);
        const std::vector<RawPlane> planes = rawDecode(jpeg);
        ASSERT_EQ(planes.size(), 3u);
        EXPECT_EQ(planes[0].width, width);
        EXPECT_EQ(planes[1].width, (width + 1) / 2);
        EXPECT_EQ(planes[1].height, height);
        ConverterRig decoder(width, height, jpegFormat, cbycry);
        EXPECT_GT(psnr(decoder.convert(jpeg), picture), 45.0);
    }
}

TEST(zvicEncode, EveryPackingGivesTheSameJpegAsThePictureItHolds)
{
    const Pixels picture = testPicture(53, 35);
    JpegOptions options;
    const Bytes expected = makeJpeg(picture, options);
    constexpr struct {
        int packing, bytes, r, g, b;
    } packings[] = {
        {ZV_IMAGE_PACKING_RGB, 3, 0, 1, 2},  {ZV_IMAGE_PACKING_BGR, 3, 2, 1, 0},  {ZV_IMAGE_PACKING_RGBA, 4, 0, 1, 2},
        {ZV_IMAGE_PACKING_RGBX, 4, 0, 1, 2}, {ZV_IMAGE_PACKING_ABGR, 4, 3, 2, 1}, {ZV_IMAGE_PACKING_XBGR, 4, 3, 2, 1},
        {ZV_IMAGE_PACKING_ARGB, 4, 1, 2, 3}, {ZV_IMAGE_PACKING_XRGB, 4, 1, 2, 3},
    };
    for (const auto& packing : packings) {
        Bytes in(53 * 35 * size_t(packing.bytes), 77);
        for (size_t i = 0; i < 53 * 35; ++i) {
            in[i * size_t(packing.bytes) + size_t(packing.r)] = picture.bytes[3 * i];
            in[i * size_t(packing.bytes) + size_t(packing.g)] = picture.bytes[3 * i + 1];
            in[i * size_t(packing.bytes) + size_t(packing.b)] = picture.bytes[3 * i + 2];
        }
        ConverterRig rig(53, 35, packed(packing.packing), jpegFormat);
        EXPECT_TRUE(rig.convert(in) == expected) << "packing " << packing.packing;
    }
    ConverterRig grey(53, 35, packed(ZV_IMAGE_PACKING_LUMINANCE), jpegFormat);
    grey.setQuality(1.0);
    const Bytes luma = djpeg(expected, "-grayscale").bytes;
    const Pixels back = djpeg(grey.convert(luma));
    EXPECT_EQ(back.channels, 1);
    EXPECT_GT(psnr(back.bytes, luma), 50.0);
}

// Noise at the highest quality takes more bytes than the picture itself.
TEST(zvicEncode, NoiseAtFullQualityFitsThePoolThatTheConverterAsksFor)
{
    for (const int side : {1, 16, 128, 250}) {
        for (const bool binary : {false, true}) {
            const Bytes yuv = noise(size_t(side) * size_t(side) * 2, 3, binary);
            const Bytes rgb = noise(size_t(side) * size_t(side) * 3, 4, binary);
            ConverterRig fromYuv(side, side, cbycry, jpegFormat);
            ConverterRig fromRgb(side, side, packed(ZV_IMAGE_PACKING_RGB), jpegFormat);
            fromYuv.setQuality(1.0);
            fromRgb.setQuality(1.0);
            EXPECT_FALSE(fromYuv.convert(yuv).empty()) << side << " binary " << binary;
            EXPECT_FALSE(fromRgb.convert(rgb).empty()) << side << " binary " << binary;
        }
    }
}

TEST(zvicEncode, WhatDoesNotFitItsBufferFailsAndStaysWithin)
{
    const Bytes picture = noise(128 * 128 * 2, 5, false);
    ConverterRig rig(128, 128, cbycry, jpegFormat, {.workers = 1});
    rig.setQuality(1.0);
    const size_t whole = rig.convert(picture).size();
    ASSERT_GT(whole, 20000u);
    for (const int capacity : {0, 1, 100, 600, 4096, 20000, int(whole) - 1}) {
        PoolFixture small(1, capacity);
        ASSERT_EQ(zvICSetDstPool(rig.ic, small.pool), 0);
        Bytes out;
        ASSERT_EQ(rig.send(picture), 0);
        EXPECT_EQ(rig.receive(&out), -1) << capacity;
    }
    PoolFixture exact(1, int(whole) + 1);  // libjpeg wants a byte more than it writes
    ASSERT_EQ(zvICSetDstPool(rig.ic, exact.pool), 0);
    EXPECT_EQ(rig.convert(picture).size(), whole);
    Bytes cut(picture.begin(), picture.end() - 1);
    EXPECT_TRUE(rig.convert(cut).empty()) << "a short source image";
}

TEST(zvicEncode, QualityMayChangeWhileItRuns)
{
    const Pixels picture = testPicture(160, 120);
    ConverterRig rig(160, 120, packed(ZV_IMAGE_PACKING_RGB), jpegFormat);
    for (const int percent : {75, 30, 100, 0, 99, 75}) {
        JpegOptions options;
        options.quality = percent;
        ASSERT_EQ(rig.setQuality(percent / 100.0), 0);
        EXPECT_TRUE(rig.convert(picture.bytes) == makeJpeg(picture, options)) << percent;
    }
    EXPECT_EQ(rig.setQuality(1.01), -1);
    EXPECT_EQ(rig.setQuality(-0.1), -1);
    EXPECT_TRUE(rig.convert(picture.bytes) == makeJpeg(picture, JpegOptions())) << "a refused quality changes nothing";
}

}  // namespace
