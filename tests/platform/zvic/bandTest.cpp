// bandTest.cpp - images shared in bands: the bytes of one worker, whatever comes in.
#include <gtest/gtest.h>

#include <random>

#include "tests/platform/zvic/converterRig.h"

namespace {

long long sharedBy(const ConverterRig& rig)
{
    ZVicStats stats = {};
    EXPECT_EQ(zvICGetStats(rig.ic, &stats), 0);
    return stats.shared;
}

// Until the other worker was idle when the image came.
Bytes convertShared(ConverterRig& rig, const Bytes& image)
{
    const long long before = sharedBy(rig);
    Bytes out;
    for (int i = 0; i < 10000 && sharedBy(rig) == before; ++i)
        out = rig.convert(image);
    EXPECT_GT(sharedBy(rig), before) << "never converted in bands";
    return out;
}

// What one worker makes of it, an error's number and text in place of bytes.
std::string outcome(ConverterRig& rig, const Bytes& image)
{
    Bytes out;
    rig.send(image);
    if (rig.receive(&out) == 0)
        return std::string(out.begin(), out.end());
    char text[ZV_ERROR_DETAIL_MAX] = "";
    int number = 0;
    zvGetError(&number, text);
    return "error " + std::to_string(number) + " " + text;
}

// Encoding: CbYCrY, RGB and grey; an odd width, a last band that is shorter.
TEST(zvicBands, AnEncodedPictureIsTheLibrarysOwnWithRestartMarkers)
{
    constexpr int width = 101;
    for (const int height : {67, 16, 130}) {
        for (const int bands : {2, 3, 16}) {
            SCOPED_TRACE(testing::Message() << height << " rows in " << bands);
            const Pixels picture = testPicture(width, height);
            const int groups = (height + 7) / 8;
            const int each = (groups + bands - 1) / bands;
            JpegOptions options;
            options.restartRows = each < groups ? each : 0;
            ConverterRig rgb(width, height, packed(ZV_IMAGE_PACKING_RGB), jpegFormat);
            ASSERT_EQ(rgb.set(ZV_IC_BANDS, bands), 0);
            EXPECT_TRUE(convertShared(rgb, picture.bytes) == makeJpeg(picture, options));
            for (const RigFormat format : {cbycry, packed(ZV_IMAGE_PACKING_LUMINANCE)}) {
                ConverterRig one(width, height, format, jpegFormat, {.workers = 1});
                ConverterRig two(width, height, format, jpegFormat, {.workers = 2});
                one.set(ZV_IC_BANDS, bands);
                two.set(ZV_IC_BANDS, bands);
                const int bytes = width * height * (format.packing == ZV_IMAGE_PACKING_LUMINANCE ? 1 : 2);
                const Bytes in(picture.bytes.begin(), picture.bytes.begin() + bytes);
                EXPECT_TRUE(convertShared(two, in) == one.convert(in)) << format.packing;
            }
        }
    }
}

TEST(zvicBands, TheHeightDecidesUnlessTheSettingDoes)
{
    constexpr struct {
        int height, asked, each;
    } cases[] = {{472, 0, 0}, {480, 0, 30}, {1080, 0, 68}, {1200, 0, 38}, {1200, 1, 0}, {480, 4, 15}};
    for (const auto& c : cases) {
        const Pixels picture = testPicture(32, c.height);
        ConverterRig rig(32, c.height, packed(ZV_IMAGE_PACKING_RGB), jpegFormat, {.workers = 1});
        ASSERT_EQ(rig.set(ZV_IC_BANDS, c.asked), 0);
        JpegOptions options;
        options.restartRows = c.each;
        EXPECT_TRUE(rig.convert(picture.bytes) == makeJpeg(picture, options)) << c.height << " asked " << c.asked;
        EXPECT_EQ(rig.set(ZV_IC_BANDS, 17), -1);
        EXPECT_EQ(rig.set(ZV_IC_BANDS, -1), -1);
    }
}

// Bands get equal rooms in the buffer: a picture whose detail is all in one of them
// does not fit there, and is coded whole.
TEST(zvicBands, ABandThatOverflowsItsRoomCostsNothingButTime)
{
    Bytes picture = noisePicture(128, 128, 5).bytes;
    picture.resize(128 * 128 * 2);
    std::fill(picture.begin(), picture.begin() + 128 * 128, 60);
    ConverterRig one(128, 128, cbycry, jpegFormat, {.workers = 1});
    ConverterRig two(128, 128, cbycry, jpegFormat);
    one.set(ZV_IC_BANDS, 2);
    two.set(ZV_IC_BANDS, 2);
    const Bytes whole = one.convert(picture);
    PoolFixture exact(1, int(whole.size()) + 1);
    ASSERT_EQ(zvICSetDstPool(two.ic, exact.pool), 0);
    EXPECT_TRUE(convertShared(two, picture) == whole);
    PoolFixture small(1, int(whole.size()) - 1);
    ASSERT_EQ(zvICSetDstPool(two.ic, small.pool), 0);
    EXPECT_NE(outcome(two, picture).find("does not fit"), std::string::npos);
}

// Every sampling, packing and speed; rows of chroma that need their neighbours stay whole.
TEST(zvicBands, ADecodedPictureIsTheSameAsOneWorkers)
{
    constexpr struct {
        int h, v, ch, cv;
        bool grey;
    } samplings[] = {{2, 1, 1, 1, false}, {2, 2, 1, 1, false}, {1, 1, 1, 1, false}, {1, 2, 1, 1, false},
                     {2, 2, 1, 2, false}, {4, 1, 1, 1, false}, {1, 1, 1, 1, true}};
    for (const auto& s : samplings) {
        for (const int rows : {1, 3}) {
            JpegOptions options;
            options.h = s.h, options.v = s.v, options.ch = s.ch, options.cv = s.cv;
            options.color = s.grey ? JpegColor::Grey : JpegColor::YCbCr;
            options.restartRows = rows;
            const Bytes jpeg = makeJpeg(testPicture(101, 167), options);
            for (const int speed : {ZV_IC_SPEED_REALTIME, ZV_IC_SPEED_NONREALTIME}) {
                for (const RigFormat format :
                     {cbycry, packed(ZV_IMAGE_PACKING_RGB), packed(ZV_IMAGE_PACKING_LUMINANCE)}) {
                    SCOPED_TRACE(testing::Message() << s.h << s.v << s.ch << s.cv << " rows " << rows << " speed "
                                                    << speed << " packing " << format.packing);
                    ConverterRig one(101, 167, jpegFormat, format, {.workers = 1});
                    ConverterRig two(101, 167, jpegFormat, format);
                    one.set(ZV_IC_SPEED, speed);
                    two.set(ZV_IC_SPEED, speed);
                    const bool smooth = format.packing != ZV_IMAGE_PACKING_CbYCrY || speed != ZV_IC_SPEED_REALTIME;
                    const bool whole = s.v != s.cv && !s.grey && smooth;
                    EXPECT_TRUE((whole ? two.convert(jpeg) : convertShared(two, jpeg)) == one.convert(jpeg));
                }
            }
        }
    }
}

// Bits turned, bytes cut out, markers moved: the same result, or the same error.
TEST(zvicBands, ADamagedPictureEndsAsOneWorkerEndsIt)
{
    JpegOptions options;
    options.restartRows = 2;
    const Bytes good = makeJpeg(testPicture(160, 120), options);
    ConverterRig one(160, 120, jpegFormat, cbycry, {.workers = 1});
    ConverterRig four(160, 120, jpegFormat, cbycry, {.workers = 4});
    std::mt19937 random(1);
    for (int i = 0; i < 600; ++i) {
        Bytes jpeg = good;
        for (int n = 1 + int(random() % 2); n > 0; --n) {
            const size_t at = random() % jpeg.size();
            switch (random() % 4) {
            case 0:
                jpeg[at] ^= uint8_t(1 << random() % 8);
                break;
            case 1:
                jpeg.erase(jpeg.begin() + long(at));
                break;
            case 2:
                jpeg.insert(jpeg.begin() + long(at), {0xff, uint8_t(0xd0 + random() % 10)});
                break;
            default:
                jpeg.resize(at);
            }
            jpeg.resize(std::max<size_t>(jpeg.size(), 1));
        }
        ASSERT_EQ(outcome(four, jpeg), outcome(one, jpeg)) << "round " << i;
    }
    EXPECT_TRUE(convertShared(four, good) == one.convert(good)) << "and the workers are as good as new";
}

}  // namespace
