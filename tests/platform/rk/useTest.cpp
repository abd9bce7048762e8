// useTest.cpp - handles, ranges, descriptors and threads.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/thread/thread.h"
#include "platform/zv/errors.h"
#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

std::string stored() { return clip("use.mov", testPattern("64x48", "25", 30) + " -c:v mjpeg"); }

std::string decoded()
{
    return clip("use.mp4", testPattern("64x48", "25", 30) + " -c:v libx264 -preset veryfast -g 10 -pix_fmt yuv420p");
}

int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

// Every call on a handle that is not alive fails, and says so.
void expectDead(RKmovie movie, RKtrack track)
{
    char room[16] = "untouched";
    RKtrack found = nullptr;
    RKtrackInfo info = {};
    EXPECT_EQ(rkClose(movie), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_EQ(rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &found), -1);
    EXPECT_EQ(rkGetTrackLength(track), -1);
    EXPECT_EQ(rkGetImageRate(track), 0.0);
    EXPECT_EQ(rkGetImageWidth(track), -1);
    EXPECT_EQ(rkGetImageHeight(track), -1);
    EXPECT_EQ(rkGetImageInterlacing(track), -1);
    EXPECT_EQ(rkGetTrackInfo(track, &info), -1);
    EXPECT_EQ(rkGetCompressedImageSize(track, 0), -1);
    EXPECT_EQ(rkGetLargestCompressedImageSize(track), -1);
    EXPECT_EQ(rkReadCompressedImage(track, 0, sizeof room, room), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_STREQ(room, "untouched");
}

TEST(rk, DeadHandlesAreTold)
{
    expectDead(nullptr, nullptr);
    RKmovie movie = nullptr;
    RKtrack track = nullptr;
    ASSERT_EQ(rkOpenFile(stored().c_str(), 0, &movie), 0);
    ASSERT_EQ(rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track), 0);
    ASSERT_EQ(rkClose(movie), 0);
    expectDead(movie, track);
    const OpenMovie another(stored());  // takes the same slot
    expectDead(movie, track);
    expectDead(reinterpret_cast<RKmovie>(another.track), reinterpret_cast<RKtrack>(another.movie));
}

TEST(rk, IndicesOutsideTheMovieFail)
{
    for (const std::string& path : {stored(), decoded()}) {
        const OpenMovie movie(path);
        char room[16];
        for (int index : {-1, 30, INT32_MAX, INT32_MIN}) {
            EXPECT_EQ(rkGetCompressedImageSize(movie.track, index), -1);
            EXPECT_EQ(rkReadCompressedImage(movie.track, index, sizeof room, room), -1);
            EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
        }
        RKtrack track = nullptr;
        EXPECT_EQ(rkFindTrackByMedium(movie.movie, 100, &track), -1);
        EXPECT_EQ(rkReadCompressedImage(movie.track, 0, -1, room), -1);
        EXPECT_EQ(rkReadCompressedImage(movie.track, 0, 4, nullptr), -1);
    }
}

TEST(rk, NeverWritesBeyondTheRoomGiven)
{
    for (const std::string& path : {stored(), decoded()}) {
        const OpenMovie movie(path);
        const std::string whole = movie.frame(3);
        ASSERT_GT(whole.size(), 100u);
        for (int room : {0, 1, 99}) {
            std::string small(100, '#');
            EXPECT_EQ(rkReadCompressedImage(movie.track, 3, room, small.data()), 0);
            EXPECT_EQ(small, whole.substr(0, size_t(room)) + std::string(size_t(100 - room), '#'));
        }
        std::string large(whole.size() + 50, '#');
        EXPECT_EQ(rkReadCompressedImage(movie.track, 3, int(large.size()), large.data()), 0);
        EXPECT_EQ(large, whole + std::string(50, '#'));
    }
}

TEST(rk, ThousandOpeningsLeaveNoDescriptor)
{
    const std::string text = scratchFolder() + "/text.mov";
    writeFile(text, "no movie at all");
    const int before = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        OpenMovie movie(stored());
        ASSERT_EQ(openDescriptors(), before + 1);
        if (i % 20 == 0)
            OpenMovie other(decoded());
        openError(text);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(rk, ThreadsReadTheSameMovieAtOnce)
{
    for (const std::string& path : {stored(), decoded()}) {
        const OpenMovie movie(path);
        std::vector<std::string> frames;
        for (int i = 0; i < movie.length(); ++i)
            frames.push_back(movie.frame(i));
        std::atomic<int> wrong = 0;
        const auto read = [&](int step) {
            for (int i = 0; i < 60; ++i) {
                const int index = i * step % movie.length();
                wrong += movie.frame(index) != frames[size_t(index)];
            }
        };
        std::thread other(read, 7);
        read(11);
        other.join();
        EXPECT_EQ(wrong, 0);
    }
}

// What a reader that was asked to stop meets, and leaves behind.
struct StoppedReader {
    RKtrack track;
    int readError = 0, openError = 0;

    static void run(void* self)
    {
        StoppedReader& reader = *static_cast<StoppedReader*>(self);
        char room[16];
        RKmovie movie = nullptr;
        EXPECT_EQ(threadKill(threadSelf(), 15), 0);
        EXPECT_EQ(rkReadCompressedImage(reader.track, 20, sizeof room, room), -1);
        reader.readError = lastError();
        EXPECT_EQ(rkOpenFile(decoded().c_str(), 0, &movie), -1);
        reader.openError = lastError();
    }
};

TEST(rk, AStopRequestEndsTheReadButNotTheMovie)
{
    // Far larger than what a demuxer holds: the read has to go to the file.
    const std::string large
        = testPattern("320x240", "25", 30) + " -vf noise=alls=40:allf=t -c:v libx264 -preset veryfast -crf 10 -g 10";
    const OpenMovie movie(clip("large.mp4", large)), untouched(clip("large.mp4", large));
    StoppedReader reader = {movie.track};
    const int id = threadStart(StoppedReader::run, &reader);
    ASSERT_EQ(threadWait(id, nullptr), 0);
    EXPECT_EQ(reader.readError, ZV_ERROR_STOPPED);
    EXPECT_EQ(reader.openError, ZV_ERROR_STOPPED);
    for (int i : {20, 3, 29})
        EXPECT_EQ(movie.frame(i), untouched.frame(i));
}

// A read that has begun is right; one that comes too late is told so.
TEST(rk, ClosingUnderAReaderIsSafe)
{
    const std::string wanted = OpenMovie(stored()).frame(5);
    for (int round = 0; round < 200; ++round) {
        RKmovie movie = nullptr;
        RKtrack track = nullptr;
        ASSERT_EQ(rkOpenFile(stored().c_str(), 0, &movie), 0);
        ASSERT_EQ(rkFindTrackByMedium(movie, RK_MEDIUM_IMAGE, &track), 0);
        std::atomic<bool> reading = false;
        std::thread reader([&] {
            std::string room(wanted.size(), '\0');
            while (rkReadCompressedImage(track, 5, int(room.size()), room.data()) == 0) {
                EXPECT_EQ(room, wanted);
                reading = true;
            }
            EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
        });
        while (!reading)
            std::this_thread::yield();
        EXPECT_EQ(rkClose(movie), 0);
        reader.join();
    }
}

}  // namespace
