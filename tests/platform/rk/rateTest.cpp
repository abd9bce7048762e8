// rateTest.cpp - frame rates come out as exact fractions, whatever the container makes of them.
#include <gtest/gtest.h>

#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

std::pair<int, int> rateOf(const std::string& path)
{
    const OpenMovie movie(path);
    return {movie.info.rateNumerator, movie.info.rateDenominator};
}

std::string mjpegAt(const std::string& rate, int frames)
{
    return testPattern("64x48", rate, frames) + " -c:v mjpeg -q:v 9";
}

TEST(frameRate, IsExactInEachContainer)
{
    const std::pair<int, int> rates[] = {{12, 1}, {24000, 1001}, {25, 1}, {60000, 1001}};
    for (const auto& rate : rates) {
        for (const char* name : {"rate.mov", "rate.avi", "rate.mp4", "rate.mkv"}) {
            for (int frames : {2, 40}) {
                const std::string text = std::to_string(rate.first) + "/" + std::to_string(rate.second);
                EXPECT_EQ(rateOf(clip(name, mjpegAt(text, frames))), rate) << name << " " << text << " " << frames;
            }
        }
    }
}

// The copied header claims 50, or counts each frame twice.
TEST(frameRate, OfACopyIntoAviIsThatOfItsFrames)
{
    const std::string source = clip("ticks.mp4", mjpegAt("25", 50) + " -video_track_timescale 12800");
    EXPECT_EQ(rateOf(clip("copy.avi", "-i '" + source + "' -c copy")), std::pair(25, 1));
}

TEST(frameRate, OfUnevenTimesIsTheAverage)
{
    const std::string uneven = testPattern("64x48", "30", 60)
        + " -vf \"select='not(mod(n,3))+not(mod(n,4))'\" -vsync passthrough -c:v mjpeg";
    const OpenMovie movie(clip("uneven.mov", uneven + " -frames:v 25"));
    EXPECT_EQ(movie.length(), 25);
    EXPECT_NEAR(rkGetImageRate(movie.track), 15.0, 0.7);  // half of 30 are left
}

TEST(frameRate, OfASingleFrameIsNotZero)
{
    for (const char* name : {"one.mov", "one.avi", "one.mp4", "one.mkv"}) {
        const OpenMovie movie(clip(name, mjpegAt("25", 1)));
        EXPECT_EQ(movie.length(), 1);
        EXPECT_GT(rkGetImageRate(movie.track), 0.9);
        EXPECT_NE(movie.frame(0), "");
    }
}

}  // namespace
