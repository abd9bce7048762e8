// clipTest.cpp - files played as a camera: which pictures, in which order, for ever.
#include "tests/platform/kp/videoRig.h"
#include "tests/support/clips.h"

namespace {

constexpr int width = 160, height = 96, frameBytes = width * height * 2, frames = 5;

// The pictures of a movie as ffmpeg sees them, CbYCrY.
std::vector<std::string> decoded(const std::string& movie)
{
    const std::string raw = scratchFolder() + "/decoded.uyvy";
    EXPECT_EQ(runCommand("ffmpeg -v error -y -i " + movie + " -f rawvideo -pix_fmt uyvy422 " + raw), "");
    const std::string all = readFile(raw);
    std::vector<std::string> pictures;
    for (size_t at = 0; at + frameBytes <= all.size(); at += frameBytes)
        pictures.push_back(all.substr(at, frameBytes));
    return pictures;
}

std::string luma(const std::string& cbycry)
{
    std::string plane;
    for (size_t i = 1; i < cbycry.size(); i += 2)
        plane += cbycry[i];
    return plane;
}

// Free-running, three rounds of the file.
std::vector<std::string> played(const std::string& file)
{
    PoolFixture pool(4, frameBytes);
    Rig rig("clip", width, height, 0);
    EXPECT_EQ(rig.text(KP_TEXT_CLIP, file), 0);
    EXPECT_EQ(rig.get(KP_CONTROL_SIZE).xyVal.x, width);
    EXPECT_EQ(rig.set(KP_CONTROL_RATE, 0, 1), 0);
    EXPECT_EQ(rig.registerPool(pool), 0);
    EXPECT_EQ(rig.begin(), 0);
    std::vector<std::string> pictures;
    while (pictures.size() < 3 * frames) {
        const KPEvent event = rig.next();
        EXPECT_EQ(event.reason, KPTransferComplete);
        if (event.reason != KPTransferComplete)
            break;
        EXPECT_EQ(event.stamp.msc, (long long)pictures.size());
        pictures.push_back(Picture(event).data());
    }
    return pictures;
}

TEST(kpClip, PlaysUncompressedFilesExactlyAndAgain)
{
    const std::string pattern = testPattern("160x96", "25", frames);
    const std::string y4m422 = clip("kp422.y4m", pattern + " -pix_fmt yuv422p");
    const std::vector<std::string> expected = decoded(y4m422);
    ASSERT_EQ(expected.size(), size_t(frames));
    std::string raw;
    for (const std::string& picture : expected)
        raw += picture;
    const std::string uyvy = scratchFolder() + "/clip.uyvy";
    writeFile(uyvy, raw);
    for (const std::string& file : {y4m422, uyvy}) {
        SCOPED_TRACE(file);
        const auto pictures = played(file);
        ASSERT_EQ(pictures.size(), size_t(3 * frames));
        for (size_t i = 0; i < pictures.size(); ++i)
            EXPECT_TRUE(pictures[i] == expected[i % frames]) << i;
    }
}

TEST(kpClip, RepeatsTheRowsOfHalfChroma)
{
    const std::string y4m = clip("kp420.y4m", testPattern("160x96", "25", frames) + " -pix_fmt yuv420p");
    const std::string planar = scratchFolder() + "/planar.yuv";
    EXPECT_EQ(runCommand("ffmpeg -v error -y -i " + y4m + " -f rawvideo -pix_fmt yuv420p " + planar), "");
    const std::string planes = readFile(planar);
    const auto pictures = played(y4m);
    ASSERT_EQ(pictures.size(), size_t(3 * frames));
    for (size_t i = 0; i < pictures.size(); ++i) {
        const char* luma = planes.data() + i % frames * (width * height * 3 / 2);
        const char* cb = luma + width * height;
        const char* cr = cb + width * height / 4;
        std::string expected;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                expected += {(x % 2 == 0 ? cb : cr)[y / 2 * width / 2 + x / 2], luma[y * width + x]};
        EXPECT_TRUE(pictures[i] == expected) << i;
    }
}

TEST(kpClip, PlaysMovies)
{
    const std::string movie
        = clip("kpClip.mov", testPattern("160x96", "25", frames) + " -c:v mjpeg -q:v 2 -pix_fmt yuvj422p");
    const auto expected = decodedLuma(movie, width, height);
    const auto pictures = played(movie);
    ASSERT_EQ(pictures.size(), size_t(3 * frames));
    for (size_t i = 0; i < pictures.size(); ++i)
        EXPECT_GT(psnr(luma(pictures[i]), expected[i % frames]), 40) << i;
}

TEST(kpClip, TakesSizeAndRateFromTheFile)
{
    Rig rig("clip", 64, 48);
    const std::string file = clip("kp422.y4m", testPattern("160x96", "25", frames) + " -pix_fmt yuv422p");
    ASSERT_EQ(rig.text(KP_TEXT_CLIP, file), 0);
    EXPECT_EQ(rig.get(KP_CONTROL_SIZE).xyVal.y, height);
    EXPECT_EQ(rig.get(KP_CONTROL_RATE).fractVal.numerator, 25);
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, 64, 48), -1);
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, width, height), 0);
    EXPECT_EQ(rig.set(KP_CONTROL_RATE, 50, 1), 0);
}

TEST(kpClip, RefusesWhatItCannotPlay)
{
    PoolFixture pool(2, frameBytes);
    Rig rig("clip", width, height);
    ASSERT_EQ(rig.registerPool(pool), 0);
    EXPECT_EQ(rig.begin(), -1) << "no file yet";
    const std::string folder = scratchFolder();
    const std::string picture(width * height * 2, 'x');
    const struct {
        const char* name;
        std::string bytes;
    } bad[] = {
        {"short.uyvy", "too short"},
        {"none.y4m", picture},
        {"ten.y4m", "YUV4MPEG2 W160 H96 F25:1 C420p10\nFRAME\n" + picture},
        {"444.y4m", "YUV4MPEG2 W160 H96 F25:1 C444\nFRAME\n" + picture + picture},
        {"odd.y4m", "YUV4MPEG2 W161 H96 F25:1\nFRAME\n" + picture},
        {"huge.y4m", "YUV4MPEG2 W999998 H96 F25:1\nFRAME\n" + picture},
        {"minus.y4m", "YUV4MPEG2 W-2 H96 F25:1\nFRAME\n" + picture},
        {"other.y4m", "YUV4MPEG2 W80 H48 F25:1 C422\nFRAME\n" + picture},  // the pool has its size
        {"text.mov", "this is no movie"},
    };
    for (const auto& file : bad) {
        writeFile(folder + "/" + file.name, file.bytes);
        EXPECT_EQ(rig.text(KP_TEXT_CLIP, folder + "/" + file.name), -1) << file.name;
    }
    EXPECT_EQ(rig.text(KP_TEXT_CLIP, "/no/such/file.mov"), -1);
    EXPECT_EQ(rig.text(KP_TEXT_CLIP, folder), -1);
    EXPECT_EQ(rig.begin(), -1);
}

TEST(kpClip, TellsAPictureThatCannotBeHad)
{
    PoolFixture pool(3, frameBytes);
    Rig rig("clip", width, height, 200);
    const std::string file = scratchFolder() + "/shrinks.uyvy";
    writeFile(file, std::string(frameBytes, 'a'));
    ASSERT_EQ(rig.text(KP_TEXT_CLIP, file), 0);
    ASSERT_EQ(rig.registerPool(pool), 0);
    ASSERT_EQ(rig.begin(), 0);
    EXPECT_EQ(Picture(rig.next(KPTransferComplete)).data(), std::string(frameBytes, 'a'));
    writeFile(file, "gone");
    EXPECT_EQ(rig.next(KPTransferError).reason, KPTransferError);
}

}  // namespace
