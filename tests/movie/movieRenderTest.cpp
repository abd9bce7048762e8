// Movies rendered into buffers: the frames, their place, failures, and many lives.
#include <gtest/gtest.h>  // before the macros of X

#include <csignal>
#include <cstdio>
#include <set>

#include "movie/kivMovieInRender.h"
#include "tests/movie/movieFakes.h"
#include "tests/support/capture.h"
#include "tests/support/clips.h"
#include "tests/support/lifeCycle.h"

KIV_FAULT(int, glXAssociateZVPbufferQTNX, (Display * dpy, GLXPbuffer pbuffer, ZVparams* image, ZVbuffer buffer),
          (dpy, pbuffer, image, buffer), 0)
KIV_FAULT(GLXPbuffer, glXCreateGLXPbufferQTNX,
          (Display * dpy, GLXFBConfigQTNX config, unsigned width, unsigned height, int* attribs),
          (dpy, config, width, height, attribs), 0)
KIV_FAULT(GLXContext, glXCreateContextWithConfigQTNX,
          (Display * dpy, GLXFBConfigQTNX config, int renderType, GLXContext share, Bool direct),
          (dpy, config, renderType, share, direct), nullptr)

// Names that no server answers to, and the names asked for; "" is the default display.
static std::set<std::string> deadDisplays;
static std::vector<std::string> askedDisplays;

extern "C" Display* glXOpenDisplayQTN(const char* name)
{
    static const auto real = realFunction<Display*(const char*)>("glXOpenDisplayQTN");
    askedDisplays.push_back(name == nullptr ? "" : name);
    return deadDisplays.count(askedDisplays.back()) != 0 ? nullptr : real(name);
}

// The context that was made current last; null once it is let go.
static std::atomic<GLXContext> lastCurrent;

extern "C" Bool glXMakeCurrentQTN(Display* dpy, GLXDrawable drawable, GLXContext context)
{
    static const auto real = realFunction<Bool(Display*, GLXDrawable, GLXContext)>("glXMakeCurrentQTN");
    lastCurrent = context;
    return real(dpy, drawable, context);
}

namespace {

constexpr int width = 32, height = 24;

std::string movieFile(const std::string& name, const std::string& rate, int frames = 300)
{
    const std::string codec = name.ends_with(".mp4") ? " -c:v libx264 -preset veryfast -crf 15 -g 25 -pix_fmt yuv420p"
                                                     : " -c:v mjpeg -q:v 3 -pix_fmt yuvj422p";
    return clip(name,
                testPattern(std::to_string(width) + "x" + std::to_string(height), rate, frames)
                    + " -vf noise=alls=30:allf=t" + codec);
}

struct MovieRender : testing::Test {
    RecordingSink sink;
    kivMovieInRender movie;

    MovieRender()
    {
        setTrace(0);
        fakeFile.on = false;
        deadDisplays.clear();
        askedDisplays.clear();
        if (getenv("KIV_NO_DISPLAY_0") != nullptr)
            deadDisplays.insert(":0");
        movie.addObject(&sink);
    }
    ~MovieRender() override
    {
        movie.endReader();
        fakeNow = 0;
        setTrace(1);
    }

    void setup(std::string path) { ASSERT_EQ(movie.setup(path.data()), kivErrNone); }
    void open(const std::string& path)
    {
        ASSERT_NO_FATAL_FAILURE(setup(path));
        ASSERT_EQ(movie.init(nullptr), kivErrNone);
    }

    // The last frame received, or a part of it.
    std::string part(int x, int y, int columns, int rows)
    {
        std::string bytes;
        for (int row = y; row < y + rows; ++row)
            bytes += sink.frames.back().substr(4 * (size_t(row) * size_t(movie.bufferSizeX) + size_t(x)),
                                               4 * size_t(columns));
        return bytes;
    }

    // Takes what comes until the reader has found nothing new twice.
    void settle()
    {
        const long before = naps[1];
        while (naps[1] < before + 2)
            if (waitReadable(movie, 1))
                handle(movie);
        handle(movie);
    }

    void expectEachStepShowsItsFrame(const std::string& path);
    void expectEachMomentShowsItsFrame(const std::string& path);
};

// Paused, by index: an application that steps also forgets the frame in hand.
void MovieRender::expectEachStepShowsItsFrame(const std::string& path)
{
    SCOPED_TRACE(path);
    const std::vector<std::string> wanted = decodedRgba(path, width, height);
    ASSERT_EQ(wanted.size(), 300u);
    open(path);
    ASSERT_EQ(movie.start(1), kivErrNone);
    movie.pause();
    settle();
    for (int i = 0; i < 300; ++i) {
        sink.frames.clear();
        kivShared(movie.currentFrameIndex).store(i);
        kivShared(movie.lastFrameIndex).store(-1);
        settle();
        ASSERT_FALSE(sink.frames.empty()) << i;
        ASSERT_LE(difference(part(0, 0, width, height), wanted[size_t(i)]), 2) << i;
        // The reader, looking again, may just now have derived another one from the time.
        EXPECT_TRUE(eventually([&] { return kivShared(movie.currentFrameIndex).load() == i; })) << i;
    }
    movie.endReader();
}

// Playing, in the middle of each frame's time.
void MovieRender::expectEachMomentShowsItsFrame(const std::string& path)
{
    SCOPED_TRACE(path);
    const std::vector<std::string> wanted = decodedRgba(path, width, height);
    open(path);
    constexpr unsigned long long t0 = 1'000'000'000'000;
    fakeNow = t0;
    movie.lastFrameIndex = -1;
    ASSERT_EQ(movie.start(1), kivErrNone);
    for (int i = 0; i < movie.numFrames; ++i) {
        fakeNow = t0 + (unsigned long long)((i + 0.5) / movie.frameRate * 1e9);
        ASSERT_EQ(serve(movie), kivErrNone) << i;
        ASSERT_LE(difference(part(0, 0, width, height), wanted[size_t(i)]), 2) << i;
    }
    EXPECT_EQ(movie.framesDropped(), 0);
    movie.endReader();
}

TEST_F(MovieRender, EachStepShowsItsFrameAtEveryRate)
{
    for (const char* rate : {"24", "25", "30000/1001", "30", "60"})
        expectEachStepShowsItsFrame(movieFile("steps.mov", rate));
    expectEachStepShowsItsFrame(movieFile("steps.mp4", "30000/1001"));
}

TEST_F(MovieRender, EachMomentShowsItsFrameAtEveryRate)
{
    for (const char* rate : {"24", "25", "30000/1001", "30", "60"})
        expectEachMomentShowsItsFrame(movieFile("steps.mov", rate));
    expectEachMomentShowsItsFrame(movieFile("steps.mp4", "30000/1001"));
}

TEST_F(MovieRender, LiesWhereOffsetAndZoomPutIt)
{
    setup(movieFile("place.mov", "25", 2));
    ASSERT_EQ(movie.setBufferDimensions(100, 90), kivErrNone);
    EXPECT_EQ(movie.setImageOffset(10, 20), kivErrNone);
    EXPECT_EQ(movie.setImageZoom(2, 2), kivErrNone);
    ASSERT_EQ(movie.init(nullptr), kivErrNone);
    movie.timeScale = 0;
    ASSERT_EQ(movie.start(1), kivErrNone);
    ASSERT_EQ(serve(movie), kivErrNone);
    ASSERT_EQ(sink.frames.back().size(), 4u * 100 * 90);
    for (int y = 0; y < 90; ++y)
        for (int x = 0; x < 100; ++x) {
            const bool inside = x >= 10 && x < 10 + 2 * width && y >= 20 && y < 20 + 2 * height;
            ASSERT_EQ(part(x, y, 1, 1)[3], inside ? '\xff' : '\0') << x << "," << y;
        }
    EXPECT_EQ(lastCurrent, movie.context);
    movie.pause();
    movie.setImageZoom(1, 1);
    kivShared(movie.lastFrameIndex).store(-1);
    ASSERT_EQ(serve(movie), kivErrNone);
    EXPECT_LE(difference(part(10, 20, width, height), decodedRgba(movie.fileName, width, height)[0]), 2);
    EXPECT_EQ(part(0, 0, 100, 20), std::string(4 * 100 * 20, '\0'));
    movie.endReader();
    EXPECT_EQ(lastCurrent, nullptr);
}

TEST_F(MovieRender, TwoMoviesRenderAtOnce)
{
    open(movieFile("steps.mov", "60"));
    const std::string path = movieFile("steps.mp4", "30000/1001");
    const std::vector<std::string> wanted[]
        = {decodedRgba(movie.fileName, width, height), decodedRgba(path, width, height)};
    kivMovieInRender other;
    RecordingSink otherSink;
    other.addObject(&otherSink);
    std::string name = path;
    ASSERT_EQ(other.setup(name.data()), kivErrNone);
    ASSERT_EQ(other.init(nullptr), kivErrNone);
    movie.timeScale = other.timeScale = 3;
    ASSERT_EQ(movie.start(1), kivErrNone);
    ASSERT_EQ(other.start(1), kivErrNone);
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(serve(movie), kivErrNone);
        ASSERT_EQ(serve(other), kivErrNone);
    }
    movie.endReader();
    other.endReader();
    // In order, each of them whole.
    const auto expectFramesOf = [](const std::vector<std::string>& all, const std::vector<std::string>& seen) {
        size_t next = 0;
        for (const std::string& frame : seen) {
            std::string picture;
            for (int y = 0; y < height; ++y)
                picture += frame.substr(4 * size_t(y) * 32, 4 * width);
            while (next < all.size() && difference(picture, all[next]) > 2)
                ++next;
        }
        EXPECT_LT(next, all.size());
        EXPECT_GT(next, 25u);
    };
    expectFramesOf(wanted[0], sink.frames);
    expectFramesOf(wanted[1], otherSink.frames);
}

TEST_F(MovieRender, HasTwentyFiveBuffersOfTheBuffersSize)
{
    open(movieFile("place.mov", "25", 2));
    ZVpoolLedger ledger = {};
    zvBufferGetPoolLedger(movie.bufferPool, &ledger);
    EXPECT_EQ(ledger.count, 25);
    EXPECT_EQ(ledger.size, 4 * 32 * 32);
    EXPECT_EQ(ledger.inUse, 0);
    ASSERT_EQ(movie.init(nullptr), kivErrNone);  // in place of all that
    zvBufferGetPoolLedger(movie.bufferPool, &ledger);
    EXPECT_EQ(ledger.count, 25);
}

TEST_F(MovieRender, EachStepOfInitHasItsId)
{
    setup(movieFile("place.mov", "25", 2));
    const struct {
        Fault& fault;
        int call, id;
        const char* line;
    } steps[] = {
        {fault_zvParamsCreate, 1, kivErrPoolParams, ""},
        {fault_glXCreateGLXPbufferQTNX, 1, kivErrGLPBuffer, ""},
        {fault_zvParamsCreate, 2, kivErrPoolParams, ""},
        {fault_zvBufferSetPoolDefaults, 1, kivErrPoolDefaults, ""},
        {fault_zvParamsSetInt, 1, kivErrConstraints, ""},
        {fault_zvBufferCreatePool, 1, kivErrPool, "error:-1"},
        {fault_zvBufferAllocate, 1, kivErrPool, "zvbuffer allocate Failed\n"},
        {fault_zvBufferSetPoolSelectSize, 1, kivErrPool, ""},
        {fault_zvBufferGetPoolFD, 1, kivErrPool, ""},
    };
    for (const auto& step : steps) {
        step.fault.failAt(step.call);
        EXPECT_EQ(capture([&] { EXPECT_EQ(movie.init(nullptr), step.id); }).err, step.line);
        EXPECT_EQ(step.fault.countdown, 0) << step.id;
        step.fault.failAt(0);
    }
    EXPECT_EQ(movie.init(nullptr), kivErrNone);
}

TEST_F(MovieRender, WithoutAContextTheProcessEnds)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    setup(movieFile("place.mov", "25", 2));
    EXPECT_EXIT(
        {
            fault_glXCreateContextWithConfigQTNX.failAt(1);
            movie.init(nullptr);
        },
        testing::ExitedWithCode(255), "^Unable to create context \n$");
}

TEST_F(MovieRender, TakesTheDefaultDisplayWhereTheFirstOneIsNotAndTellsWhenThereIsNone)
{
    deadDisplays = {":0"};
    open(movieFile("place.mov", "25", 2));
    EXPECT_EQ(askedDisplays, (std::vector<std::string>{":0", ""}));
    ASSERT_EQ(movie.start(1), kivErrNone);
    EXPECT_EQ(serve(movie), kivErrNone);

    deadDisplays = {":0", ""};
    EXPECT_EQ(capture([&] { EXPECT_EQ(movie.init(nullptr), kivErrGLConfig); }).err,
              "kivMovieIn::init - no X server answers, neither as \":0\" nor as the default display\n"
              "kivMovieIn::init - Unable to setup fb config\n");
}

// The failed frame is gone before it is handed over: its handle must do no harm, also
// when the buffer is somebody else's by then.
TEST_F(MovieRender, AFrameThatGLDoesNotTakeHarmsNobody)
{
    open(movieFile("steps.mov", "60"));
    std::vector<ZVbuffer> held;
    int stale = 0;
    sink.keepBytes = false;
    sink.onReceive = [&](ZVbuffer frame) {
        if (zvBufferAttach(frame) == ZV_SUCCESS)
            held.push_back(frame);
        else
            ++stale;
        if (held.size() == 5 && stale == 1)
            fault_glXAssociateZVPbufferQTNX.failAt(1);
    };
    const std::string printed = capture([&] {
                                    fault_glXAssociateZVPbufferQTNX.failAt(1);
                                    EXPECT_EQ(movie.start(1), kivErrNone);
                                    while (held.size() < 10)
                                        ASSERT_EQ(serve(movie), kivErrNone);
                                    movie.endReader();
                                }).err;
    EXPECT_EQ(printed.substr(0, 20), "\nglxAssociate Failed");
    EXPECT_LE(stale, 2);  // one may have given way to the frame after it
    for (ZVbuffer frame : held)
        EXPECT_EQ(zvBufferFree(frame), ZV_SUCCESS);
    EXPECT_EQ(zvBufferGetPoolFree(movie.bufferPool), 25 - (1 - movie.handledCurrent));
}

// An X server of the test's own, killed under the running reader.
TEST_F(MovieRender, AServerThatDiesEndsTheReaderAndNothingElse)
{
    FILE* const server
        = popen("exec Xvfb -displayfd 1 -screen 0 64x64x24 -noreset -nolisten tcp 2>/dev/null & echo $!; wait", "r");
    int pid = 0, number = 0;
    ASSERT_EQ(fscanf(server, "%d %d", &pid, &number), 2);
    deadDisplays = {":0"};
    const std::string usual = getenv("DISPLAY");
    setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
    open(movieFile("steps.mov", "60"));
    setenv("DISPLAY", usual.c_str(), 1);
    ASSERT_EQ(movie.start(1), kivErrNone);
    ASSERT_EQ(serve(movie), kivErrNone);
    capture([&] {
        kill(pid, SIGKILL);
        EXPECT_TRUE(eventually([&] {
            handle(movie);
            return movie.readerAlive() == 0;
        }));
    });
    pclose(server);
    deadDisplays.clear();
    ASSERT_EQ(movie.init(nullptr), kivErrNone);
    ASSERT_EQ(movie.start(1), kivErrNone);
    sink.frames.clear();
    ASSERT_TRUE(eventually([&] {
        serve(movie);
        return !sink.frames.empty() && !sink.frames.back().empty();
    }));
}

}  // namespace

template <> struct LifeCycleOf<kivMovieInRender> {
    static std::unique_ptr<kivMovieInRender> make()
    {
        fakeFile.on = false;
        return std::make_unique<kivMovieInRender>();
    }
    static void setup(kivMovieInRender& movie)
    {
        std::string file = movieFile("place.mov", "25", 2);
        EXPECT_EQ(movie.setup(file.data()), kivErrNone);
    }
};

using RenderedMovies = testing::Types<kivMovieInRender>;
INSTANTIATE_TYPED_TEST_SUITE_P(rendered, LifeCycle, RenderedMovies);
