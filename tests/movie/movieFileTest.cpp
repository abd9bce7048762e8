// Real movies through the compressed source: every frame is the file's packet.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/movie/movieFakes.h"
#include "tests/support/clips.h"

namespace {

struct MovieFile : testing::Test {
    RecordingSink sink;
    kivMovieInCompressed movie;

    MovieFile()
    {
        fakeFile.on = false;
        setTrace(0);
        movie.addObject(&sink);
    }
    ~MovieFile() override { setTrace(1); }

    void open(const std::string& path)
    {
        std::string name = path;
        ASSERT_EQ(movie.setup(name.data()), kivErrNone);
        ASSERT_EQ(movie.init(nullptr), kivErrNone);
    }
};

std::string mjpegClip(const std::string& name)
{
    return clip(name, testPattern("160x120", "30", 20) + " -c:v mjpeg -q:v 4");
}

TEST_F(MovieFile, GivesThePacketsOfEachContainer)
{
    for (const char* name : {"steps.mov", "steps.avi", "steps.mp4", "steps.mkv"}) {
        SCOPED_TRACE(name);
        const std::string path = mjpegClip(name);
        const std::vector<std::string> packets = copiedPackets(path);
        ASSERT_EQ(packets.size(), 20u);
        ASSERT_NO_FATAL_FAILURE(open(path));
        EXPECT_EQ(movie.numFrames, 19);
        EXPECT_EQ(movie.frameRate, 30.0);
        EXPECT_EQ(movie.imageSizeX, 160);
        EXPECT_EQ(movie.bufferSizeY, 128);
        movie.timeScale = 0.0;  // the clock stands: the first frame, then nothing
        movie.lastFrameIndex = -1;
        sink.frames.clear();
        ASSERT_EQ(movie.start(1), kivErrNone);
        for (int i = 0; i <= movie.numFrames; ++i) {
            if (i > 0)
                kivShared(movie.currentFrameIndex).store(i);
            ASSERT_EQ(serve(movie), kivErrNone);
            ASSERT_EQ(sink.frames.size(), size_t(i) + 1);
            EXPECT_TRUE(sink.frames.back() == packets[size_t(i)]) << "frame " << i;
            movie.pause();
        }
        EXPECT_EQ(movie.framesDropped(), 0);
        movie.endReader();
    }
}

TEST_F(MovieFile, PlaysInOrderInStepWithTheClockAndHoldsItsEnd)
{
    const std::string path = mjpegClip("steps.mov");
    const std::vector<std::string> packets = copiedPackets(path);
    ASSERT_NO_FATAL_FAILURE(open(path));
    movie.isLooping = 0;
    movie.timeScale = 4.0;
    ASSERT_EQ(movie.start(1), kivErrNone);
    while (kivShared(movie.isPlaying).load())
        if (waitReadable(movie, 1))
            handle(movie);
    size_t next = 0;
    int wraps = 0;
    for (const std::string& frame : sink.frames) {
        const auto at = std::find(packets.begin() + long(next), packets.end(), frame);
        if (at == packets.end()) {
            ++wraps;  // a retry that runs past the end takes the remainder: once while playing, once at the end
            continue;
        }
        next = size_t(at - packets.begin()) + 1;
    }
    EXPECT_GT(sink.frames.size(), 5u);
    EXPECT_LE(wraps, 2);
}

TEST_F(MovieFile, FramesOfOtherCodecsComeAsJPEG)
{
    ASSERT_NO_FATAL_FAILURE(open(clip("coded.mov", testPattern("64x48", "25", 10) + " -c:v qtrle")));
    ASSERT_EQ(movie.start(1), kivErrNone);
    ASSERT_EQ(serve(movie), kivErrNone);
    EXPECT_EQ(sink.frames.at(0).substr(0, 2), "\xff\xd8");
    EXPECT_EQ(sink.frames.at(0).substr(sink.frames.at(0).size() - 2), "\xff\xd9");
}

TEST_F(MovieFile, WhatIsNoMovieIsRefused)
{
    const std::string path = scratchFolder() + "/no.mov";
    writeFile(path, "this is no movie");
    std::string name = path;
    EXPECT_EQ(movie.setup(name.data()), kivErrMovieIO);
    EXPECT_EQ(movie.init(nullptr), kivErrNone);  // an empty pool, as nothing is known
    EXPECT_EQ(movie.start(1), kivErrNone);
    movie.pause();
    EXPECT_EQ(serve(movie), kivErrNone);
    movie.endReader();
    EXPECT_EQ(sink.frames.at(0), "");
}

}  // namespace
