// badFileTest.cpp - what is no movie, or no longer a whole one: a clear line each time, and right frames where there
// are some.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/limits.h"
#include "platform/zv/errors.h"
#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

using testing::AnyOf;
using testing::HasSubstr;

const std::string bars = testPattern("64x48", "25", 30) + " -c:v mjpeg -q:v 5";
const std::string h264 = testPattern("64x48", "25", 30) + " -c:v libx264 -preset veryfast -g 10 -pix_fmt yuv420p";

std::string written(const std::string& name, const std::string& bytes)
{
    writeFile(scratchFolder() + "/" + name, bytes);
    return scratchFolder() + "/" + name;
}

TEST(badFile, WhatIsNoMovieSaysWhy)
{
    EXPECT_THAT(openError("/nowhere/x.mov"), HasSubstr("'/nowhere/x.mov': No such file"));
    EXPECT_THAT(openError(scratchFolder()), HasSubstr("a folder"));
    EXPECT_THAT(openError(written("empty.mov", "")), HasSubstr("empty"));
    EXPECT_THAT(openError(written("text.mov", "Far out in the uncharted backwaters\n")), HasSubstr("not a movie"));
    EXPECT_THAT(openError(written("short.avi", "RIFF")), HasSubstr("not a movie"));
    EXPECT_THAT(openError(written("playlist.mov", "#EXTM3U\n#EXTINF:1,\n/etc/passwd\n")), HasSubstr("not a movie"));
    EXPECT_THAT(openError(written("head.avi", std::string("RIFF\0\0\0\0AVI LIST", 16))),
                HasSubstr("header cannot be read"));
    EXPECT_THAT(openError(written("head.mkv", std::string("\x1A\x45\xDF\xA3", 4) + std::string(40, 'x'))),
                HasSubstr("'"));

    RKmovie movie = nullptr;
    EXPECT_EQ(rkOpenFile(nullptr, 0, &movie), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(rkOpenFile("x.mov", 1, &movie), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(rkOpenFile("x.mov", 0, nullptr), -1);
}

TEST(badFile, AFifoNeverBlocks)
{
    const std::string fifo = scratchFolder() + "/fifo.mov";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_THAT(openError(fifo), HasSubstr("not a regular file"));
    EXPECT_THAT(openError("/dev/zero"), HasSubstr("not a regular file"));
}

TEST(badFile, SoundAloneHasNoImageTrack)
{
    RKmovie movie = nullptr;
    const std::string path = clip("sound.mp4", "-f lavfi -i sine=duration=1 -c:a aac");
    ASSERT_EQ(rkOpenFile(path.c_str(), 0, &movie), 0);
    RKtrack track = reinterpret_cast<RKtrack>(&movie);
    EXPECT_EQ(rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track), -1);
    EXPECT_EQ(track, nullptr);
    EXPECT_EQ(lastDetail(), "'" + path + "': no image track");
    EXPECT_EQ(rkClose(movie), 0);
}

// Cut anywhere, a movie opens or says why not; what it still gives is right.
void expectCutIsSafe(const std::string& name, const std::string& path)
{
    const std::string whole = readFile(path);
    OpenMovie original(path);
    std::vector<std::string> frames;
    for (int i = 0; i < original.length(); ++i)
        frames.push_back(original.frame(i));
    int opened = 0, right = 0;
    for (size_t part = 1; part < 24; ++part) {
        const std::string cut = written(name, whole.substr(0, whole.size() * part / 24));
        RKmovie movie = nullptr;
        if (rkOpenFile(cut.c_str(), 0, &movie) != 0) {
            EXPECT_THAT(lastDetail(), HasSubstr("'" + cut + "': "));
            continue;
        }
        rkClose(movie);
        const OpenMovie rest(cut);
        ++opened;
        ASSERT_LE(rest.length(), int(frames.size()));
        for (int i = 0; i < rest.length(); ++i) {
            const std::string frame = rest.frame(i);
            EXPECT_THAT(frame, AnyOf(frames[size_t(i)], "")) << "part " << part << ", frame " << i;
            EXPECT_TRUE(!frame.empty() || lastError() == ZV_ERROR_DATA);
            right += frame == frames[size_t(i)];
        }
    }
    EXPECT_GT(opened, 15) << name;
    EXPECT_GT(right, 100) << name;
}

TEST(badFile, TruncatedMoviesGiveTheFramesThatAreLeft)
{
    const std::string headerFirst = " -movflags +faststart";
    expectCutIsSafe("cut.mov", clip("cut.mov", bars + headerFirst));
    expectCutIsSafe("cut.mp4", clip("cut.mp4", bars + " -movflags frag_keyframe+empty_moov"));
    expectCutIsSafe("cut.avi", clip("cut.avi", bars));
    expectCutIsSafe("cut.mkv", clip("cut.mkv", bars));
    EXPECT_THAT(openError(written("tail.mov", readFile(clip("tail.mov", bars)).substr(0, 9000))), HasSubstr("'"));
}

// The file shrinks while it is open.
TEST(badFile, AShrinkingFileFailsTheRead)
{
    const std::string path = written("shrink.mov", readFile(clip("cut.mov", bars + " -movflags +faststart")));
    const OpenMovie movie(path);
    ASSERT_EQ(truncate(path.c_str(), 4000), 0);
    EXPECT_GT(rkGetCompressedImageSize(movie.track, 29), 0);
    EXPECT_EQ(movie.frame(29), "");
    EXPECT_EQ(lastError(), ZV_ERROR_DATA);
}

TEST(badFile, TruncatedH264GivesTheRightPictures)
{
    const std::string path = clip("cutter.mp4", h264 + " -movflags +faststart");
    const std::string whole = readFile(path);
    const OpenMovie original(path), rest(written("half.mp4", whole.substr(0, whole.size() * 2 / 3)));
    ASSERT_GT(rest.length(), 8);
    ASSERT_LT(rest.length(), original.length());
    for (int i : {0, 5, rest.length() / 2})
        EXPECT_EQ(rest.frame(i), original.frame(i));
}

// Values of limits for the length of a test.
class LimitsFor {
public:
    LimitsFor() : saved_(*kivLimits()) { }
    ~LimitsFor() { *kivLimits() = saved_; }

private:
    const KivLimits saved_;
};

TEST(badFile, LimitsAreNamed)
{
    LimitsFor restored;
    const std::string paths[]
        = {clip("limit.mov", bars), clip("limit.avi", bars), clip("limit.mkv", bars), clip("limit.mp4", h264)};
    for (const std::string& path : paths) {
        const KivLimits before = *kivLimits();
        kivLimits()->movieFrames = 29;
        EXPECT_THAT(openError(path), HasSubstr("movieFrames"));
        kivLimits()->movieFrames = 30;
        kivLimits()->imageWidth = 63;
        EXPECT_THAT(openError(path), HasSubstr("imageWidth"));
        kivLimits()->imageWidth = 64;
        kivLimits()->imageHeight = 47;
        EXPECT_THAT(openError(path), HasSubstr("imageHeight"));
        EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
        *kivLimits() = before;
    }
    kivLimits()->frameBytes = 1000;
    const OpenMovie movie(clip("limit.mov", bars));
    EXPECT_EQ(rkGetCompressedImageSize(movie.track, 0), -1);
    EXPECT_THAT(lastDetail(), HasSubstr("frameBytes"));
}

// A table of a few bytes that claims 20 million frames of one byte each.
TEST(badFile, ClaimedFramesMeetTheLimitFirst)
{
    std::string bytes = readFile(clip("limit.mov", bars));
    const size_t sizes = bytes.find("stsz"), chunks = bytes.find("stsc");
    ASSERT_NE(sizes, std::string::npos);
    const std::string many("\x01\x31\x2D\x00", 4), one("\0\0\0\1", 4);
    bytes.replace(sizes + 8, 8, one + many);
    bytes.replace(chunks + 16, 4, many);
    EXPECT_THAT(openError(written("claim.mov", bytes)), HasSubstr("20000000 frames, more than movieFrames"));
}

}  // namespace
