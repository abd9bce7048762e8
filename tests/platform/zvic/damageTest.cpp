// damageTest.cpp - what is not one whole picture of the right size is a failed result.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/platform/zvic/converterRig.h"

namespace {

JpegOptions plain420()
{
    JpegOptions options;
    options.v = 2;
    return options;
}

std::string lastDetail()
{
    char detail[ZV_ERROR_DETAIL_MAX] = "";
    int number = 0;
    zvGetError(&number, detail);
    EXPECT_EQ(number, ZV_ERROR_DATA);
    return detail;
}

class ZvicDamage : public testing::TestWithParam<bool> {
protected:
    static RigFormat output() { return GetParam() ? cbycry : packed(ZV_IMAGE_PACKING_RGBA); }
};
INSTANTIATE_TEST_SUITE_P(, ZvicDamage, testing::Values(true, false));

TEST_P(ZvicDamage, AJpegCutAtAnyByteFailsAndTheNextOneIsRight)
{
    JpegOptions progressive = plain420();
    progressive.progressive = true;
    for (const JpegOptions& options : {plain420(), progressive}) {
        const Bytes jpeg = makeJpeg(testPicture(48, 40), options);
        ConverterRig rig(48, 40, jpegFormat, output());
        const Bytes whole = rig.convert(jpeg);
        ASSERT_FALSE(whole.empty());
        for (size_t length = 0; length < jpeg.size(); ++length) {
            Bytes out;
            ASSERT_EQ(rig.send(Bytes(jpeg.begin(), jpeg.begin() + long(length))), 0);
            ASSERT_EQ(rig.receive(&out), -1) << "cut at " << length << " of " << jpeg.size();
            if (length % 16 == 0) {
                ASSERT_TRUE(rig.convert(jpeg) == whole) << "after the cut at " << length;
            }
        }
        ASSERT_TRUE(rig.convert(jpeg) == whole);
    }
}

TEST_P(ZvicDamage, FlippedBytesNeverHarmTheNextPicture)
{
    const Bytes jpeg = makeJpeg(testPicture(64, 48), plain420());
    ConverterRig rig(64, 48, jpegFormat, output(), {.workers = 1});
    const Bytes whole = rig.convert(jpeg);
    std::mt19937 random(7);
    int failed = 0;
    for (int round = 0; round < 1500; ++round) {
        Bytes damaged = jpeg;
        for (unsigned n = 1 + random() % 8; n > 0; --n)
            damaged[random() % (round % 2 ? damaged.size() : 700)] = uint8_t(random());
        Bytes out;
        ASSERT_EQ(rig.send(damaged), 0);
        failed += rig.receive(&out) != 0;
        ASSERT_TRUE(out.empty() || out.size() == whole.size());
        if (round % 10 == 0) {
            ASSERT_TRUE(rig.convert(jpeg) == whole) << "after round " << round;
        }
    }
    EXPECT_GT(failed, 500);
}

TEST_P(ZvicDamage, AnotherSizeIsRefusedWithBothSizesNamed)
{
    ConverterRig rig(64, 48, jpegFormat, output());
    for (const auto& [width, height] : {std::pair{65, 48}, {64, 47}, {48, 64}, {8000, 48}, {64, 6000}}) {
        EXPECT_TRUE(rig.convert(makeJpeg(testPicture(width, height), plain420())).empty());
        const std::string detail = lastDetail();
        EXPECT_NE(detail.find(std::to_string(width) + "x" + std::to_string(height)), std::string::npos) << detail;
        EXPECT_NE(detail.find("64x48"), std::string::npos) << detail;
    }
    EXPECT_TRUE(rig.convert({}).empty());
    EXPECT_FALSE(rig.convert(makeJpeg(testPicture(64, 48), plain420())).empty());
}

// As interlaced Motion-JPEG comes: each field a JPEG of half the height.
TEST_P(ZvicDamage, TwoFieldsInOneBufferAreReported)
{
    const Bytes field = makeJpeg(testPicture(64, 24), plain420());
    Bytes both = field;
    both.insert(both.end(), field.begin(), field.end());
    ConverterRig frames(64, 48, jpegFormat, output());
    EXPECT_TRUE(frames.convert(both).empty());
    EXPECT_NE(lastDetail().find("field"), std::string::npos);

    ConverterRig fields(64, 24, jpegFormat, output());
    EXPECT_TRUE(fields.convert(both).empty());
    EXPECT_NE(lastDetail().find("field"), std::string::npos);
    Bytes apart = field;
    apart.insert(apart.end(), 37, 0);
    apart.insert(apart.end(), field.begin(), field.end());
    EXPECT_TRUE(fields.convert(apart).empty());
    Bytes padded = field;
    padded.insert(padded.end(), 100, 0);
    EXPECT_TRUE(fields.convert(padded) == fields.convert(field)) << "padding alone is no field";
}

// What many cameras leave between the last block and the end marker harms no pixel.
TEST_P(ZvicDamage, StrayBytesBeforeTheEndMarkerAreAccepted)
{
    const Bytes jpeg = makeJpeg(testPicture(64, 48), plain420());
    Bytes stray = jpeg;
    stray.insert(stray.end() - 2, {0x12, 0x34, 0x00});
    ConverterRig rig(64, 48, jpegFormat, output());
    EXPECT_TRUE(rig.convert(stray) == rig.convert(jpeg));
}

// Any number of scans is legal, and each costs a pass over the whole picture.
TEST(zvicDamage, EndlessScansAreCutOff)
{
    JpegOptions options;
    options.separateScans = true;
    const Bytes jpeg = makeJpeg(testPicture(32, 16), options);
    size_t last = 0;
    for (size_t i = 0; i + 1 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xff && jpeg[i + 1] == 0xda)
            last = i;
    }
    Bytes bomb(jpeg.begin(), jpeg.end() - 2);
    for (int i = 0; i < 200; ++i)
        bomb.insert(bomb.end(), jpeg.begin() + long(last), jpeg.end() - 2);
    bomb.insert(bomb.end(), {0xff, 0xd9});
    ConverterRig rig(32, 16, jpegFormat, cbycry);
    EXPECT_FALSE(rig.convert(jpeg).empty());
    EXPECT_TRUE(rig.convert(bomb).empty());
    EXPECT_NE(lastDetail().find("scans"), std::string::npos);
}

}  // namespace
