// displayTest.cpp - what stands in the window is what was sent.
#include <gtest/gtest.h>

#include "platform/glx/glxqtn.h"
#include "tests/gl/glFixture.h"
#include "tests/support/capture.h"
#include "tests/support/faults.h"
#include "tests/support/poolFixture.h"

// A screen without a visual that will do.
#pragma GCC visibility push(default)
KIV_FAULT(XVisualInfo*, glXChooseVisual, (Display * dpy, int screen, int* attribs), (dpy, screen, attribs), nullptr)
#pragma GCC visibility pop

namespace {

constexpr int width = 40, height = 30;
constexpr size_t pictureBytes = width * height * 4;

// The window after two pictures: fields fill every other row; without interlace the
// second lies a row lower, over all of the first but its top row.
Colours expected(const Bytes& first, const Bytes& second, int zoom, bool interlaced)
{
    const Colours pictures[] = {coloursOf(first), coloursOf(second)};
    const int rows = height * zoom * (interlaced ? 2 : 1);
    Colours window;
    for (int row = 0; row < rows; ++row) {
        const int which = interlaced ? row % 2 : row > 0;
        const int from = (interlaced ? row / 2 : std::max(row - 1, 0)) / zoom;
        for (int x = 0; x < width * zoom; ++x)
            window.push_back(pictures[which][size_t(from * width + x / zoom)]);
    }
    return window;
}

class kivGLDisplayTest : public testing::Test {
protected:
    kivGLDisplayTest()
    {
        display.imageSizeX = width;
        display.imageSizeY = height;
    }
    ZVbuffer picture(const Bytes& bytes)
    {
        ZVbuffer buffer = pool.take();
        fill(buffer, bytes);
        return buffer;
    }

    PoolFixture pool{4, pictureBytes};
    kivGLDisplay display;
};

class kivGLDisplayZoomTest : public kivGLDisplayTest, public testing::WithParamInterface<std::tuple<int, bool>> { };

TEST_P(kivGLDisplayZoomTest, ShowsEveryPixelAfterEverySecondBuffer)
{
    const auto [zoom, interlaced] = GetParam();
    display.zoomX = display.zoomY = zoom;
    ASSERT_EQ(display.setup(interlaced), 0);
    EXPECT_EQ(display.winSizeX, width * zoom);
    EXPECT_EQ(display.winSizeY, height * zoom * (interlaced ? 2 : 1));

    Bytes pictures[4];
    for (unsigned i = 0; i < 4; ++i)
        pictures[i] = noise(pictureBytes, i);
    for (int i = 0; i < 4; i += 2) {
        const Colours before = shownBy(display);
        EXPECT_EQ(display.receive(picture(pictures[i])), 0);
        EXPECT_EQ(display.field, 0);
        EXPECT_EQ(shownBy(display), before) << "the first of two is not brought to the screen";
        EXPECT_EQ(display.receive(picture(pictures[i + 1])), 0);
        EXPECT_EQ(display.field, -1);
        EXPECT_EQ(shownBy(display), expected(pictures[i], pictures[i + 1], zoom, interlaced));
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    EXPECT_EQ(poolReferences(pool.pool), 4) << "the window keeps none";
}

INSTANTIATE_TEST_SUITE_P(zooms, kivGLDisplayZoomTest,
                         testing::Combine(testing::Values(1, 2, 3), testing::Values(false, true)));

TEST_F(kivGLDisplayTest, ShowsOtherPackings)
{
    display.packing = GL_CBYCRY_422_QTN;
    ASSERT_EQ(display.setup(1), 0);
    const Bytes hues = hues422(width, height);
    const ZVbuffer field = picture(hues);
    display.receive(field);
    display.receive(field);
    const Bytes rgba = rgbaOf422(hues, false);
    EXPECT_LE(farthest(bytesOfColours(shownBy(display)), bytesOfColours(expected(rgba, rgba, 1, true))), 1);

    display.packing = GL_LUMINANCE;
    const Bytes grey = noise(width * height, 1);
    Bytes greys;
    for (const uint8_t value : grey)
        greys.insert(greys.end(), {value, value, value, 255});
    fill(field, grey);
    display.receive(field);
    display.receive(field);
    EXPECT_EQ(shownBy(display), expected(greys, greys, 1, true));
}

TEST_F(kivGLDisplayTest, RefusesBadBuffersAndGoesOnAfterShortOnes)
{
    const ZVbuffer good = picture(noise(pictureBytes, 1));
    EXPECT_EQ(display.receive(good), 1) << "there is no window yet";
    ASSERT_EQ(display.setup(0), 0);
    display.receive(good);
    const Printed printed = capture([&] { EXPECT_EQ(display.receive(nullptr), 1); });
    EXPECT_EQ(printed.err, "BAD BUFFER!!!\n");
    EXPECT_EQ(display.field, 0);
    display.receive(good);
    const Colours shown = shownBy(display);

    // Nothing is read beyond the end of a buffer that is too small; fields alternate on.
    PoolFixture shortPool(1, 4096);
    const ZVbuffer tooShort = shortPool.take();
    EXPECT_EQ(display.receive(good), 0);
    EXPECT_EQ(display.receive(tooShort), 0);
    EXPECT_EQ(display.field, -1);
    EXPECT_EQ(display.receive(good), 0);
    EXPECT_EQ(display.receive(good), 0);
    EXPECT_EQ(shownBy(display), shown);
}

TEST_F(kivGLDisplayTest, IsFedThroughReceiveAlone)
{
    fd_set none;
    FD_ZERO(&none);
    EXPECT_EQ(display.getFD(), 0);
    EXPECT_EQ(display.handleEvents(none), 0);
    EXPECT_EQ(display.addSrcConstraints(nullptr), 0);
    EXPECT_EQ(display.addDstConstraints(nullptr), 0);
    kivObj source;
    source.init(nullptr);
    EXPECT_EQ(source.addObject(&display), 0) << "a display may join a running graph";
}

TEST_F(kivGLDisplayTest, SaysWhenThereIsNoWindow)
{
    fault_glXChooseVisual.failAt(1);
    const Printed printed = capture([&] { EXPECT_EQ(display.setup(0), 1); });
    EXPECT_EQ(printed.err, "Scratch window - can't get visual\nUnable to create window for kivGLdisplay\n");
    EXPECT_EQ(display.receive(picture(noise(pictureBytes, 1))), 1);
}

TEST_F(kivGLDisplayTest, EndsTheProcessWithoutADisplay)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            unsetenv("DISPLAY");
            display.setup(0);
        },
        testing::ExitedWithCode(1), "^XOpenDisplay failed\n$");
}

}  // namespace
