// The reader thread of a movie: its clock, its one waiting frame, its ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <thread>
#include <vector>

#include "tests/movie/movieFakes.h"
#include "tests/support/capture.h"

#if defined(__SANITIZE_THREAD__)
constexpr int windows = 1000;
#else
constexpr int windows = 3000;
#endif

namespace {

struct MovieReader : testing::Test {
    MovieFakes fakes;
    PoolFixture pool{4, 64};
    RecordingSink sink;
    FakeMovie movie{pool};

    MovieReader()
    {
        setTrace(0);
        sink.keepBytes = false;
        movie.addObject(&sink);
        movie.init(nullptr);
    }
    ~MovieReader() override { setTrace(1); }
};

// Calls of the frame operations, and what they answer. The reader's until `over`.
struct Script {
    struct Step {
        unsigned long long then;  // the clock after the call
        int result;
    };
    explicit Script(std::vector<Step> all) : steps(std::move(all)) { }

    int call(long long argument)
    {
        if (arguments.size() == steps.size()) {
            over = true;
            return kivErrFrameNotYet;
        }
        arguments.push_back(argument);
        fakeNow = steps[arguments.size() - 1].then;
        return steps[arguments.size() - 1].result;
    }

    const std::vector<Step> steps;
    std::vector<long long> arguments;
    std::atomic<bool> over{false};
};

constexpr unsigned long long t0 = 1'000'000'000'000;  // when the fake clock starts

TEST_F(MovieReader, StartAndEndPrintTheirLines)
{
    setTrace(1);
    movie.onTime = [&](long long) {
        untilStopped();
        return kivErrFrameNotYet;
    };
    const std::string printed = capture([&] {
                                    EXPECT_EQ(movie.start(0), kivErrNone);
                                    movie.endReader();
                                    movie.endReader();
                                }).err;
    EXPECT_TRUE(hasLine(printed, "Starting:No name"));
    EXPECT_TRUE(hasLine(printed, "Starting movieIn readLoop thread"));
    EXPECT_TRUE(printed.ends_with("\nExiting movie read loop\n")) << printed;
    EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), 3);
    EXPECT_EQ(movie.isStarted(), 1);
    EXPECT_EQ(movie.isPlaying, 1);
    EXPECT_EQ(movie.readThreadPID, -1);
    EXPECT_EQ(movie.readerAlive(), 0);
}

TEST_F(MovieReader, EachStepOfStartHasItsIdAndLineAndStartWorksAfterwards)
{
    const struct {
        Fault& fault;
        int id;
        const char* line;
    } steps[] = {{fault_yqnewpollsema, kivErrSemaphore, "Unable to create semaphore for movie read thread\n"},
                 {fault_yqopenpollsema, kivErrSemaphore, "Unable to attach FD to semaphore\n"},
                 {fault_yqpsema, kivErrSemaphore, "yqpsema error\n"},
                 {fault_threadStart, kivErrMovieThread, "Unable to start read thread\n"}};
    for (const auto& step : steps) {
        step.fault.failAt(1);
        EXPECT_EQ(capture([&] { EXPECT_EQ(movie.start(0), step.id); }).err, step.line);
        EXPECT_EQ(movie.readThreadPID, -1);
        EXPECT_EQ(movie.isStarted(), 0);
        EXPECT_EQ(handle(movie), kivErrNotReady);
    }
    EXPECT_EQ(movie.start(0), kivErrNone);
    EXPECT_EQ(serve(movie), kivErrNone);
}

TEST_F(MovieReader, ALoopingMovieTakesTheRemainderOfTheClock)
{
    movie.durationTime = 1000;
    movie.timeScale = 2.0;
    fakeNow = t0;
    Script script({{t0 + 400, 0}, {t0 + 500, 0}, {t0 + 1750, 0}, {t0 + 7, 0}});
    movie.onTime = [&](long long t) { return script.call(t); };
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return script.over.load(); }));
    EXPECT_EQ(script.arguments, (std::vector<long long>{0, 800, 0, 500}));
}

TEST_F(MovieReader, WithoutLoopingTheLastFrameIsShownAndTheMoviePausesItself)
{
    movie.durationTime = 1000;
    movie.isLooping = 0;
    fakeNow = t0;
    Script script({{t0 + 1000, 0}, {t0 + 1001, 0}, {t0 + 1002, 0}, {t0 + 1003, 0}});
    movie.onTime = [&](long long t) { return script.call(t); };
    std::atomic<int> held{-1};
    movie.onIndex = [&](int index) {
        held = index;
        return kivErrFrameNotYet;
    };
    movie.currentFrameIndex = 29;
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return held != -1; }));
    EXPECT_EQ(script.arguments, (std::vector<long long>{0, 0, 1000}));
    EXPECT_EQ(kivShared(movie.isPlaying).load(), 0);
    EXPECT_EQ(held, 29);
}

TEST_F(MovieReader, TheRetryWrapsAlsoAtTheEndAndNapsTwoTicksATry)
{
    movie.durationTime = 1000;
    movie.isLooping = 0;
    fakeNow = t0;
    constexpr int notYet = kivErrFrameNotYet;
    Script script({{t0 + 1500, 0}, {t0 + 1600, notYet}, {t0 + 1700, notYet}, {t0 + 1800, 0}});
    movie.onTime = [&](long long t) { return script.call(t); };
    std::atomic<long> passes{0};
    movie.onIndex = [&](int) { return ++passes, kivErrFrameNotYet; };
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return passes > 3; }));
    EXPECT_EQ(script.arguments, (std::vector<long long>{0, 1000, 600, 700}));
    EXPECT_EQ(naps[2], 2);
    EXPECT_GE(naps[1], 3);  // one a pass while paused
    EXPECT_EQ(movie.framesPublished(), 2);
}

TEST_F(MovieReader, OddClocksNeitherDivideByZeroNorOverflow)
{
    const struct {
        unsigned long long duration, now;
        double scale;
        long long time;
    } cases[] = {{0, t0 + 77, 1.0, 0},
                 {1000, t0 - 5, 1.0, 0x7fffffffffffffff % 1000},  // the start lies in the future
                 {1000, t0 + 77, -1.0, 0},
                 {1000, t0 + 77, NAN, 0},
                 {1000, t0 + 77, INFINITY, 0x7fffffffffffffff % 1000}};
    for (const auto& c : cases) {
        movie.durationTime = c.duration;
        movie.timeScale = c.scale;
        fakeNow = t0;
        Script script({{c.now, 0}, {c.now, 0}});
        movie.onTime = [&](long long t) { return script.call(t); };
        movie.start(0);
        ASSERT_TRUE(eventually([&] { return script.over.load(); }));
        EXPECT_EQ(script.arguments[1], c.time) << c.scale;
        movie.endReader();
    }
}

TEST_F(MovieReader, PauseEndsTheRetryAndHoldsTheIndexThatWasSought)
{
    movie.numFrames = 100;
    movie.frameRate = 30;
    std::atomic<int> tries{0}, held{-1};
    movie.onTime = [&](long long) {
        movie.setFrameIndex(3);
        ++tries;
        return kivErrFrameNotYet;
    };
    movie.onIndex = [&](int index) {
        held = index;
        return kivErrFrameNotYet;
    };
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return tries > 2; }));
    for (int round = 0; round < 50; ++round) {
        movie.resume();
        const int seen = tries;
        ASSERT_TRUE(eventually([&] { return tries > seen; }));
        held = -1;
        movie.pause();
        movie.gotoFrame(40 + round % 7);
        // The reader may be about to store the index of the clock over ours.
        ASSERT_TRUE(eventually([&] { return held == 40 + round % 7; })) << round << " holds " << held;
    }
}

// An index written while a frame operation runs is the application's: it stays,
// although the operation derives another from movie time, as rendering does.
TEST_F(MovieReader, AnIndexWrittenUnderTheReaderStays)
{
    movie.numFrames = 299;
    movie.frameRate = 30;
    movie.onTime = [](long long) { return kivErrFrameNotYet; };
    std::atomic<int> last{-1};
    std::atomic<int> inside{0};
    movie.onIndex = [&](int index) {
        movie.setFrameIndex(index - 1);
        if (index == 20 && !inside.exchange(1))
            kivShared(movie.currentFrameIndex).store(50);
        last = index;
        return kivErrFrameNotYet;
    };
    movie.start(0);
    movie.pause();
    movie.gotoFrame(20);
    ASSERT_TRUE(eventually([&] { return last == 50; }));
}

TEST_F(MovieReader, AFailedFrameIsHandedOverAndSleptUpon)
{
    Script script({{t0, kivErrGLAssociate}, {t0, 0}});
    movie.durationTime = 1000;
    movie.onTime = [&](long long t) { return script.call(t); };
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return script.over.load(); }));
    EXPECT_EQ(movie.framesPublished(), 2);
    EXPECT_EQ(naps[1], 1);
}

TEST_F(MovieReader, AFailedAllocationIsPrintedAndTheReaderGoesOn)
{
    fault_zvBufferAllocate.failAt(1);
    EXPECT_EQ(capture([&] {
                  movie.start(0);
                  EXPECT_EQ(serve(movie), kivErrNone);
                  movie.endReader();
              }).err,
              "kivMovieIn: ZVBuffer allocate Failed\n");
    EXPECT_EQ(naps[1], 1);
}

TEST_F(MovieReader, TheNewestFrameWinsAndTheDescriptorIsALevel)
{
    std::atomic<int> allowed{3};
    movie.onTime = [&](long long) {
        if (movie.numbered >= allowed)
            return int(kivErrFrameNotYet);
        return movie.number();
    };
    int newest = -1;
    sink.onReceive = [&](ZVbuffer frame) { newest = numberIn(frame); };
    movie.start(0);
    ASSERT_TRUE(eventually([&] { return movie.framesPublished() == 3; }));
    EXPECT_EQ(serve(movie), kivErrNone);
    EXPECT_EQ(newest, 2);
    EXPECT_EQ(movie.framesDropped(), 2);
    EXPECT_FALSE(waitReadable(movie, 0));

    allowed = 4;
    fd_set ready;
    FD_ZERO(&ready);
    ASSERT_TRUE(waitReadable(movie, 10000));
    kivFdAdd(movie.getFD(), &ready);
    EXPECT_EQ(movie.handleEvents(ready), kivErrNone);
    EXPECT_EQ(movie.handleEvents(ready), kivErrNotReady);  // out of date: nothing is freed twice
    EXPECT_EQ(newest, 3);
    EXPECT_FALSE(waitReadable(movie, 0));
    EXPECT_EQ(sink.received, 2);
}

TEST_F(MovieReader, HandsOverAHundredThousandFramesToASpinningLoop)
{
    constexpr int frames = 100000;
    int last = -1;
    long backwards = 0;
    sink.onReceive = [&](ZVbuffer frame) {
        const int number = numberIn(frame);
        backwards += number <= last;
        last = number;
    };
    movie.start(0);
    while (movie.framesPublished() < frames)
        handle(movie);
    movie.endReader();
    const int waiting = 1 - movie.handledCurrent;
    EXPECT_EQ(backwards, 0);
    EXPECT_GT(sink.received, 0);
    EXPECT_EQ(sink.received + movie.framesDropped() + waiting, movie.framesPublished());
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 4 - waiting);
    EXPECT_EQ(poolReferences(pool.pool), waiting);
}

TEST_F(MovieReader, ASourceThatWaitsLosesNothing)
{
    constexpr int frames = 5000;
    movie.onTime = [&](long long) { return movie.waitTaken() ? movie.number() : int(kivErrFrameNotYet); };
    int expected = 0;
    sink.onReceive = [&](ZVbuffer frame) { EXPECT_EQ(numberIn(frame), expected++); };
    movie.start(0);
    while (sink.received < frames)
        ASSERT_EQ(serve(movie), kivErrNone);
    EXPECT_EQ(movie.framesDropped(), 0);
}

TEST_F(MovieReader, EndsInEveryWindowWithTheLockFree)
{
    for (int round = 0; round < windows; ++round) {
        ASSERT_EQ(movie.start(0), kivErrNone);
        const long long seen = movie.framesPublished();
        for (int i = 0; i < round % 5; ++i)
            handle(movie);
        if (round % 3 == 0)
            while (movie.framesPublished() == seen)
                std::this_thread::yield();
        movie.endReader();
        ASSERT_EQ(yqtestsema(movie.currentLock), 1) << round;
        ASSERT_EQ(zvBufferGetPoolFree(pool.pool), 4 - (1 - movie.handledCurrent)) << round;
    }
}

TEST_F(MovieReader, ARestartWithAFrameLeftOverDeliversAgain)
{
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(movie.start(0), kivErrNone);
        ASSERT_TRUE(waitReadable(movie, 10000)) << round;
    }
    EXPECT_EQ(movie.start(0), kivErrNone);
    EXPECT_EQ(serve(movie), kivErrNone);
}

TEST_F(MovieReader, AChildMayRestartTheMovieThatFeedsIt)
{
    int restarts = 0;
    sink.onReceive = [&](ZVbuffer) {
        if (restarts < 100) {
            ++restarts;
            EXPECT_EQ(movie.start(0), kivErrNone);
            EXPECT_EQ(handle(movie), kivErrNotReady);  // a loop within the loop has nothing to take
        }
    };
    movie.start(0);
    while (restarts < 100)
        ASSERT_EQ(serve(movie), kivErrNone);
    EXPECT_EQ(serve(movie), kivErrNone);
    movie.endReader();
    EXPECT_EQ(yqtestsema(movie.currentLock), 1);
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 4 - (1 - movie.handledCurrent));
}

// A loop on a thread of the layer that is asked to end: its waits are cut short, but
// not the one for the reader.
TEST_F(MovieReader, IsNeverDestroyedUnderItsReader)
{
    struct Loop {
        PoolFixture& pool;
        std::atomic<int> inFrame{0}, left{0}, leftBeforeTheNode{-1};
    } loop{pool};
    const auto body = [](void* argument) {
        Loop& state = *static_cast<Loop*>(argument);
        {
            FakeMovie one(state.pool);
            one.onTime = [&](long long) {
                state.inFrame = 1;
                untilStopped();
                std::this_thread::sleep_for(std::chrono::milliseconds(20));  // a frame that takes its time
                ++one.numbered;
                state.left = 1;
                return int(kivErrFrameNotYet);
            };
            one.start(0);
            untilStopped();
        }
        state.leftBeforeTheNode = state.left.load();
    };
    const int thread = threadStart(body, &loop);
    ASSERT_TRUE(eventually([&] { return loop.inFrame == 1; }));
    threadKill(thread, 15);
    threadWait(thread, nullptr);
    EXPECT_EQ(loop.leftBeforeTheNode, 1);
}

TEST_F(MovieReader, AnExhaustedPoolHoldsTheReaderBackUntilAFrameIsFreed)
{
    std::vector<ZVbuffer> held;
    sink.onReceive = [&](ZVbuffer frame) {
        zvBufferAttach(frame);
        held.push_back(frame);
    };
    movie.start(0);
    while (held.size() < 4)
        ASSERT_EQ(serve(movie), kivErrNone);
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 0);
    EXPECT_FALSE(waitReadable(movie, 0));
    sink.onReceive = nullptr;
    for (ZVbuffer frame : held)
        zvBufferFree(frame);
    EXPECT_EQ(serve(movie), kivErrNone);
}

TEST(StopReadLoop, EndsTheProcessOnAThreadOfItsOwn)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(stopReadLoop(15), testing::ExitedWithCode(0), "^Exiting movie read loop\n$");
}

TEST(CompressedMovie, OfOneFrameShowsItOnceWhetherItLoopsOrNot)
{
    MovieFakes fakes;
    fakeFile.length = 1;
    char file[] = "one.mov";
    for (int looping : {1, 0}) {
        kivMovieInCompressed movie;
        RecordingSink sink;
        movie.addObject(&sink);
        movie.isLooping = looping;
        ASSERT_EQ(movie.setup(file), kivErrNone);
        ASSERT_EQ(movie.init(nullptr), kivErrNone);
        ASSERT_EQ(movie.start(1), kivErrNone);
        EXPECT_EQ(serve(movie), kivErrNone);
        const long before = naps[1] + naps[2];
        ASSERT_TRUE(eventually([&] { return naps[1] + naps[2] > before + 5; }));
        EXPECT_EQ(movie.framesPublished(), 1);
        movie.pause();
        movie.gotoFrame(5);
        EXPECT_EQ(kivShared(movie.currentFrameIndex).load(), -1);
    }
}

}  // namespace
