// decodedTest.cpp - movies of other codecs: frame i is the i-th picture that ffmpeg decodes.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "platform/zv/errors.h"
#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

// Reads the frames in the order given; their luma, decoded by ffmpeg.
std::vector<std::string> lumaOf(const OpenMovie& movie, const std::vector<int>& order)
{
    std::string stream;
    for (int i : order)
        stream += movie.frame(i);
    writeFile(scratchFolder() + "/read.mjpeg", stream);
    return decodedLuma(scratchFolder() + "/read.mjpeg", movie.info.width, movie.info.height);
}

// Each picture read is its own, and not its neighbour.
void expectPictures(const std::vector<std::string>& read, const std::vector<std::string>& wanted,
                    const std::vector<int>& order)
{
    ASSERT_EQ(read.size(), order.size());
    for (size_t k = 0; k < order.size(); ++k) {
        const size_t i = size_t(order[k]);
        const double own = psnr(read[k], wanted[i]);
        EXPECT_GT(own, 35) << "frame " << i;
        for (const size_t neighbour : {i - 1, i + 1}) {
            if (neighbour < wanted.size()) {
                EXPECT_GT(own, psnr(read[k], wanted[neighbour]) + 3) << "frame " << i << " or " << neighbour;
            }
        }
    }
}

void expectExactAccess(const std::string& path)
{
    SCOPED_TRACE(path);
    OpenMovie movie(path);
    EXPECT_EQ(movie.info.jpeg, 0);
    const std::vector<std::string> wanted = decodedLuma(path, movie.info.width, movie.info.height);
    ASSERT_EQ(movie.length(), int(wanted.size()));
    ASSERT_GT(wanted.size(), 0u);

    const int count = movie.length();
    std::vector<int> order(size_t(2 * count));  // from the first to the last, and then anyhow
    std::iota(order.begin(), order.begin() + count, 0);
    std::iota(order.begin() + count, order.end(), 0);
    std::mt19937 random(7);
    std::shuffle(order.begin() + count, order.end(), random);
    expectPictures(lumaOf(movie, order), wanted, order);
}

const std::string moving = testPattern("160x96", "30000/1001", 50);
const std::string h264 = " -c:v libx264 -preset veryfast -crf 18 -pix_fmt yuv420p -g 12 -bf 3 ";

TEST(decodedFrames, ExactInH264WithClosedAndOpenGroups)
{
    expectExactAccess(clip("closed.mp4", moving + h264));
    expectExactAccess(clip("closed.mkv", moving + h264));
    expectExactAccess(clip("open.mp4", moving + h264 + "-x264-params open-gop=1:b-pyramid=normal"));
    expectExactAccess(clip("open.mkv", moving + h264 + "-x264-params open-gop=1:b-pyramid=normal"));
    expectExactAccess(clip("fragments.mp4", moving + h264 + "-movflags frag_keyframe+empty_moov"));
}

TEST(decodedFrames, ExactBehindAnEditList)
{
    const std::string whole = clip("closed.mp4", moving + h264);
    expectExactAccess(clip("cut.mp4", "-ss 0.77 -i '" + whole + "' -c copy"));
    expectExactAccess(clip("cut.mov", "-ss 1.2 -i '" + whole + "' -c copy"));
}

TEST(decodedFrames, ExactInOtherCodecs)
{
    expectExactAccess(clip("ten.mov", moving + " -c:v prores_ks -profile:v 2 -pix_fmt yuv422p10le"));
    expectExactAccess(clip("old.mp4", moving + " -c:v mpeg4 -q:v 3 -bf 2 -g 12"));
    expectExactAccess(clip("raw.avi", moving + " -frames:v 20 -c:v rawvideo -pix_fmt yuv420p"));
    expectExactAccess(clip("raw.mov", moving + " -frames:v 20 -c:v rawvideo -pix_fmt uyvy422"));
    expectExactAccess(clip("lossless.mkv", moving + " -frames:v 20 -c:v ffv1 -pix_fmt yuv444p"));
    expectExactAccess(clip(
        "odd.mkv", testPattern("160x96", "25", 20) + " -vf format=yuv444p,crop=159:95 -c:v ffv1 -pix_fmt yuv420p"));
}

TEST(decodedFrames, AreDescribedAsTheyAre)
{
    OpenMovie movie(clip("closed.mp4", moving + h264));
    EXPECT_STREQ(movie.info.codec, "h264");
    EXPECT_STREQ(movie.info.pixelFormat, "yuv420p");
    EXPECT_EQ(movie.info.rateNumerator, 30000);
    EXPECT_EQ(movie.info.rateDenominator, 1001);
    EXPECT_EQ(movie.info.interlacing, RK_INTERLACING_PROGRESSIVE);
    const std::string fields = "-flags +ildct+ilme -x264-params tff=1";
    EXPECT_EQ(OpenMovie(clip("fields.mp4", moving + h264 + fields)).info.interlacing, RK_INTERLACING_TOP_FIRST);
}

// JPEG has one colour matrix; HD movies have another.
TEST(decodedFrames, KeepTheirColours)
{
    const auto rgb = [](const std::string& movie, const std::string& format) {
        const std::string raw = scratchFolder() + "/rgb.raw";
        EXPECT_EQ(runCommand("ffmpeg -v error -y " + format + " -i '" + movie
                             + "' -frames:v 1 -pix_fmt rgb24 -f rawvideo " + raw),
                  "");
        return readFile(raw);
    };
    const auto tagged = [](const std::string& matrix, const std::string& more) {
        return " -vf gblur=3,scale=out_color_matrix=" + matrix + ",format=" + more + " -colorspace " + matrix;
    };
    const std::string ways[] = {"",
                                tagged("bt709", "yuv444p"),
                                tagged("bt709", "yuv444p") + " -color_range pc",
                                tagged("bt709", "yuv422p"),
                                tagged("bt709", "yuv420p,crop=159:95"),
                                tagged("bt2020nc", "yuv420p"),
                                tagged("smpte240m", "yuv420p")};
    for (const std::string& way : ways) {
        const std::string path
            = clip("colours.mkv", "-f lavfi -i smptebars=size=160x96 -frames:v 1" + way + " -c:v ffv1");
        writeFile(scratchFolder() + "/colours.mjpeg", OpenMovie(path).frame(0));
        EXPECT_GT(psnr(rgb(scratchFolder() + "/colours.mjpeg", "-f mjpeg"), rgb(path, "")), 36) << way;
    }
}

TEST(decodedFrames, NoiseStaysBelowTheLargestSize)
{
    const std::string noise = "-f lavfi -i nullsrc=size=96x64:rate=25 -frames:v 3 -vf "
                              "geq=lum='random(1)*255':cb='random(2)*255':cr='random(3)*255'";
    OpenMovie movie(clip("noise.mkv", noise + " -c:v ffv1 -pix_fmt yuv444p"));
    for (int i = 0; i < movie.length(); ++i)
        EXPECT_GT(movie.frame(i).size(), 3000u);  // frame() checks it against the largest
}

TEST(decodedFrames, UnknownOrderIsRefused)
{
    EXPECT_NE(openError(clip("order.avi", moving + h264)).find("times of presentation"), std::string::npos);
    EXPECT_EQ(lastError(), ZV_ERROR_UNSUPPORTED);
}

}  // namespace
