// Movies before they run: opening, durations, sizes, clock, pool.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/core/slots.h"
#include "tests/movie/movieFakes.h"
#include "tests/support/capture.h"

namespace {

struct MovieSetup : testing::Test {
    MovieFakes fakes;
    kivMovieInCompressed movie;
    char file[8] = "a.mov";
};

TEST_F(MovieSetup, KeepsTheSlotsThatApplicationsWereBuiltAgainst)
{
    EXPECT_EQ(slotOf(&kivMovieIn::isInitialized), 15);
    EXPECT_EQ(slotOf(&kivMovieIn::setup), 16);
    EXPECT_EQ(slotOf(&kivMovieIn::getImageFrameTime), 17);
    EXPECT_EQ(slotOf(&kivMovieIn::getImageFrameIndex), 18);
}

TEST_F(MovieSetup, TakesSizesAndRateAndPrintsTheDuration)
{
    int result = -1;
    const std::string printed = capture([&] { result = movie.setup(file); }).err;
    EXPECT_EQ(result, kivErrNone);
    EXPECT_EQ(printed,
              "hello\nduration of the movie is:9966666666\nduration of the movie is:9966666666.666666\n"
              "duration of the movie is:9.966667\n");
    EXPECT_EQ(movie.numFrames, 299);
    EXPECT_EQ(movie.frameRate, 30.0);
    EXPECT_EQ(movie.imageSizeX, 720);
    EXPECT_EQ(movie.imageSizeY, 576);
    EXPECT_EQ(movie.bufferSizeX, 1024);
    EXPECT_EQ(movie.bufferSizeY, 1024);
    EXPECT_EQ(movie.texCoordScaleXD, 720.0 / 1024);
    EXPECT_EQ(movie.texCoordScaleYF, 576.0f / 1024);
    EXPECT_EQ(movie.interlacing, 2);
}

TEST_F(MovieSetup, SaysWhatIsWrongWithAFile)
{
    int result = 0;
    EXPECT_EQ(capture([&] { result = movie.setup(nullptr); }).err, "hello\nkivMovieIn::setup - invalid file name\n");
    EXPECT_EQ(result, kivErrMovieIO);

    fakeFile.opening = -1;
    EXPECT_EQ(capture([&] { result = movie.setup(file); }).err, "hello\nkivMovieIn::setup - can't open file 'a.mov'");
    EXPECT_EQ(result, kivErrMovieIO);

    fakeFile.opening = 0;
    fakeFile.finding = -1;
    EXPECT_EQ(capture([&] { result = movie.setup(file); }).err, "hello\nUnable to find image track in movie!\n");
    EXPECT_EQ(result, kivErrMovieIO);
    EXPECT_EQ(fakeFile.closed, 1);
    EXPECT_NE(movie.movieID, nullptr);  // kept, and closed once more at the end
}

TEST_F(MovieSetup, OpensAnotherMovieInPlaceOfTheFirstEvenUnderItsOwnName)
{
    ASSERT_EQ(movie.setup(file), kivErrNone);
    ASSERT_EQ(movie.setup(movie.fileName), kivErrNone);
    EXPECT_EQ(fakeFile.openedName, "a.mov");
    EXPECT_STREQ(movie.fileName, "a.mov");
    EXPECT_EQ(fakeFile.opened, 2);
    EXPECT_EQ(fakeFile.closed, 1);
}

TEST_F(MovieSetup, DurationIsTheTimeOfTheLastFrame)
{
    const struct {
        int length;
        double rate;
        unsigned long long duration;
        int lastIndex;  // what that time gives back, by truncation
    } movies[] = {
        {300, 24.0, 12458333333, 298},
        {300, 30000.0 / 1001, 9976633333, 298},
        {301, 29.97, 10010010010, 299},
        {300, 30.0, 9966666666, 298},
        {301, 60.0, 5000000000, 300},
        {1, 30.0, 0, 0},
        {2, 0.0, 0, 0},
        {2, -5.0, 0, 0},
    };
    PoolFixture pool(1);
    movie.readBuffer = pool.take();
    for (const auto& m : movies) {
        fakeFile.length = m.length;
        fakeFile.rate = m.rate;
        ASSERT_EQ(movie.setup(file), kivErrNone);
        EXPECT_EQ(movie.durationTime, m.duration) << m.length << " frames at " << m.rate;
        movie.getImageFrameTime(static_cast<long long>(movie.durationTime));
        EXPECT_EQ(movie.currentFrameIndex, m.lastIndex) << m.length << " frames at " << m.rate;
    }
    movie.readBuffer = nullptr;
}

TEST_F(MovieSetup, BufferMayBeLargerThanTheImageNeverSmaller)
{
    ASSERT_EQ(movie.setup(file), kivErrNone);
    EXPECT_EQ(movie.setBufferDimensions(719, 600), kivErrBufferTooSmall);
    EXPECT_EQ(movie.setBufferDimensions(800, 575), kivErrBufferTooSmall);
    EXPECT_EQ(movie.bufferSizeX, 1024);
    EXPECT_EQ(movie.setBufferDimensions(720, 1152), kivErrNone);
    EXPECT_EQ(movie.bufferSizeX, 720);
    EXPECT_EQ(movie.texCoordScaleXD, 1.0);
    EXPECT_EQ(movie.texCoordScaleYD, 0.5);
    EXPECT_EQ(movie.texCoordScaleYF, 0.5f);
}

TEST_F(MovieSetup, GotoFrameClampsAndMovesTheClock)
{
    ASSERT_EQ(movie.setup(file), kivErrNone);
    const unsigned long long now = 50'000'000'000;
    fakeNow = now;
    const struct {
        int frame, index;
        long long offset;
    } jumps[] = {{304, 298, 9933333333}, {299, 298, 9933333333}, {298, 298, 9933333333}, {10, 10, 333333333}, {0, 0, 0},
                 {-3, -3, -100000000}};
    for (const auto& jump : jumps) {
        EXPECT_EQ(movie.gotoFrame(jump.frame), kivErrNone);
        EXPECT_EQ(movie.currentFrameIndex, jump.index) << jump.frame;
        EXPECT_EQ(static_cast<long long>(now - movie.startTime), jump.offset) << jump.frame;
    }
    movie.frameRate = 0.0;
    movie.gotoFrame(5);
    EXPECT_EQ(movie.startTime, now);
}

TEST_F(MovieSetup, InitMakesFiveBuffersThatHoldEveryFrame)
{
    RecordingSink sink;
    movie.addObject(&sink);
    fakeFile.width = fakeFile.height = 16;
    fakeFile.largest = 1305;  // more than the 512 bytes of the picture
    ASSERT_EQ(movie.setup(file), kivErrNone);
    int result = -1;
    const std::string printed = capture([&] { result = movie.init(nullptr); }).err;
    ASSERT_EQ(result, kivErrNone);
    EXPECT_EQ(printed.substr(0, printed.find("Contents")),
              "Enter MovieIn Init\nAdd Child Constraints \nCreate Pool\nParameters:\n");
    EXPECT_TRUE(hasLine(printed, "5\t(int)\tZV_BUFFER_COUNT"));
    EXPECT_TRUE(printed.ends_with("--------------------------------\nSet Select size\nGet FD\n"));
    ZVpoolLedger ledger = {};
    zvBufferGetPoolLedger(movie.bufferPool, &ledger);
    EXPECT_EQ(ledger.count, 5);
    EXPECT_EQ(ledger.size, 1305);
    EXPECT_EQ(ledger.inUse, 0);

    fakeFile.width = 64;
    ASSERT_EQ(movie.setup(file), kivErrNone);
    ASSERT_EQ(movie.init(nullptr), kivErrNone);  // the first pool makes room
    zvBufferGetPoolLedger(movie.bufferPool, &ledger);
    EXPECT_EQ(ledger.size, 64 * 16 * 2);
}

TEST_F(MovieSetup, EachStepOfInitHasItsId)
{
    ASSERT_EQ(movie.setup(file), kivErrNone);
    const struct {
        Fault& fault;
        int call, id;
        const char* line;
    } steps[] = {
        {fault_zvParamsCreate, 1, kivErrPoolParams, ""},
        {fault_zvParamsCreate, 2, kivErrPoolParams, ""},
        {fault_zvBufferSetPoolDefaults, 1, kivErrPoolDefaults, ""},
        {fault_zvParamsSetInt, 1, kivErrConstraints, ""},
        {fault_zvBufferCreatePool, 1, kivErrPool, "error:-1"},
        {fault_zvBufferAllocate, 1, kivErrPool, "zvbuffer allocate Failed\n"},
        {fault_zvBufferSetPoolSelectSize, 1, kivErrPool, "Set Select size\n"},
        {fault_zvBufferGetPoolFD, 1, kivErrPool, "Get FD\n"},
    };
    for (const auto& step : steps) {
        step.fault.failAt(step.call);
        int result = -1;
        const std::string printed = capture([&] { result = movie.init(nullptr); }).err;
        EXPECT_EQ(result, step.id) << step.line;
        EXPECT_TRUE(printed.ends_with(step.line)) << printed;
        EXPECT_EQ(step.fault.countdown, 0);
        EXPECT_EQ(movie.isInitialized(), 0);
        step.fault.failAt(0);
    }
    ASSERT_EQ(movie.init(nullptr), kivErrNone);
}

// The frame operations, on this thread.
struct CompressedFrames : MovieSetup {
    CompressedFrames()
    {
        fakeFile.width = fakeFile.height = 16;  // 512 bytes a buffer
        movie.setup(file);
        movie.init(nullptr);
        zvBufferAllocate(movie.bufferPool, &movie.readBuffer);
    }
    ~CompressedFrames() override
    {
        zvBufferFree(movie.readBuffer);
        movie.readBuffer = nullptr;
    }
};

TEST_F(CompressedFrames, TimeGivesTheIndexByTruncation)
{
    const struct {
        double rate;
        long long time;
        int index;
    } cases[]
        = {{30, 1000000000, 30}, {30, 33333333, 0},   {30, 33333334, 1},          {24, 41666666, 0},
           {24, 41666667, 1},    {25, 999999999, 24}, {25, 1000000000, 25},       {30000.0 / 1001, 1000000000, 29},
           {60, 33333333, 1},    {60, 999999999, 59}, {60, 3600000000000, 216000}};
    for (const auto& c : cases) {
        movie.frameRate = c.rate;
        movie.lastFrameIndex = -1;
        EXPECT_EQ(movie.getImageFrameTime(c.time), kivErrNone);
        EXPECT_EQ(movie.currentFrameIndex, c.index) << c.rate << " fps at " << c.time;
        EXPECT_EQ(movie.lastFrameIndex, c.index);
    }
}

TEST_F(CompressedFrames, TheFrameReadLastIsNotReadAgain)
{
    fakeFile.size = [](int index) { return 10 * index; };
    EXPECT_EQ(movie.getImageFrameIndex(7), kivErrNone);
    EXPECT_EQ(zvBufferGetSize(movie.readBuffer), 70);
    EXPECT_EQ(static_cast<const char*>(zvBufferMapData(movie.readBuffer))[69], 7);
    EXPECT_EQ(movie.getImageFrameIndex(7), kivErrFrameNotYet);
    EXPECT_EQ(movie.getImageFrameTime(7 * 33333334LL), kivErrFrameNotYet);
    EXPECT_EQ(fakeFile.read, 1);
}

TEST_F(CompressedFrames, NothingIsReadThatHasNoSizeOrNoRoom)
{
    fakeFile.size = [](int index) { return index == 1 ? 513 : index == 2 ? -1 : 512; };
    EXPECT_EQ(capture([&] { EXPECT_EQ(movie.getImageFrameIndex(1), kivErrNone); }).err,
              "No name: frame 1 has 513 bytes, the buffer only 512\n");
    EXPECT_EQ(zvBufferGetSize(movie.readBuffer), 0);
    zvBufferSetSize(movie.readBuffer, 512);
    EXPECT_EQ(movie.getImageFrameIndex(2), kivErrNone);
    EXPECT_EQ(fakeFile.read, 0);
    EXPECT_EQ(movie.getImageFrameIndex(3), kivErrNone);
    EXPECT_EQ(fakeFile.read, 1);
    EXPECT_EQ(zvBufferGetSize(movie.readBuffer), 512);
}

}  // namespace
