// framesTest.cpp - two windows and four GL nodes side by side for many frames.
#include <gtest/gtest.h>

#include <cstdlib>

#include "gl/kivGLPaintBuffer.h"
#include "gl/kivGLPixelTrans.h"
#include "gl/kivGLTex2d.h"
#include "tests/gl/glFixture.h"
#include "tests/support/poolFixture.h"
#include "window/ScratchWindow.h"

namespace {

constexpr int width = 32, height = 24;
constexpr size_t rgbaBytes = width * height * 4;

int wantedFrames()
{
    const char* frames = getenv("KIV_GL_FRAMES");
    return frames != nullptr ? atoi(frames) : 500;
}

// What frame i is painted with, each differing from the one before.
uint32_t colourOf(int i) { return uint32_t(i * 7 % 256) << 16 | uint32_t(i % 251) << 8 | uint32_t(255 - i % 256); }

// paint -> painted window, texture, another pbuffer; 4:2:2 pictures -> transfer -> converted window.
class ManyFramesTest : public testing::Test {
protected:
    void SetUp() override
    {
        setTrace(0);
        for (kivGLDisplay* window : {&paintedWindow, &convertedWindow}) {
            window->imageSizeX = width;
            window->imageSizeY = height;
            ASSERT_EQ(window->setup(0), 0);
        }
        moveWindow(convertedWindow, 300, 0);
        for (kivObj* child : std::initializer_list<kivObj*>{&paintedWindow, &texture, &another})
            paint.addObject(child);
        transfer.addObject(&convertedWindow);
        ASSERT_EQ(paint.setup(connection(), width, height), 0);
        ASSERT_EQ(texture.setup(connection(), width, height), 0);
        ASSERT_EQ(another.setup(connection(), width, height), 0);
        ASSERT_EQ(transfer.setup(connection(), width, height), 0);
        ASSERT_EQ(paint.init(nullptr), 0);  // and what is below it
        ASSERT_EQ(transfer.init(nullptr), 0);
        ASSERT_TRUE(texture.isInitialized() && another.isInitialized());
        FD_ZERO(&none);
    }
    void TearDown() override { setTrace(1); }

    void paintFrame(int i)
    {
        ASSERT_EQ(paint.grab(), 0);
        ASSERT_EQ(paint.makeCurrent(), 1);
        const uint32_t colour = colourOf(i);
        glClearColor(float(colour >> 16) / 255, float(colour >> 8 & 255) / 255, float(colour & 255) / 255, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        paint.release();
        EXPECT_EQ(another.handleEvents(none), 0);
    }
    void convertFrame(ZVbuffer picture)
    {
        transfer.receive(picture);
        EXPECT_EQ(transfer.handleEvents(none), 0);
    }
    Colours texels()
    {
        Bytes bytes(rgbaBytes);
        glBindTexture(GL_TEXTURE_2D, GLuint(texture.texID));
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
        return coloursOf(bytes);
    }

    kivGLDisplay paintedWindow, convertedWindow;
    kivGLPaintBuffer paint;
    kivGLTex2d texture;
    kivGLPBuffer another;
    kivGLPixelTrans transfer;
    fd_set none;
};

TEST_F(ManyFramesTest, AreAllAliveToTheEnd)
{
    PoolFixture pool(2, rgbaBytes);
    ZVbuffer pictures[2] = {pool.take(), pool.take()};
    fill(pictures[0], Bytes(width * height * 2, 128));  // grey
    fill(pictures[1], hues422(width, height));
    const Bytes hues = rgbaOf422(hues422(width, height), false);

    const int frames = wantedFrames();
    for (int i = 0; i < frames && !HasFailure(); ++i) {
        paintFrame(i);
        convertFrame(pictures[i % 2]);
        paintedWindow.window->setContext();
        EXPECT_EQ(texture.defineTex2D(), 0);
        if (i % 50 != 49)
            continue;
        EXPECT_EQ(texels(), Colours(width * height, colourOf(i)));
        Colours painted(width * height, colourOf(i));
        std::fill_n(painted.begin(), width, colourOf(i - 1));  // the second picture lies a row lower
        EXPECT_EQ(shownBy(paintedWindow), painted);
        const Bytes converted = bytesOfColours(shownBy(convertedWindow));
        const Bytes lower(converted.begin() + width * 4, converted.end());
        EXPECT_LE(farthest(lower, Bytes(hues.begin(), hues.end() - width * 4)), 1);
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    }
    for (kivLatch* node : std::initializer_list<kivLatch*>{&transfer})
        for (ZVbuffer held : {node->newBuffer, node->latchBuffer})
            zvBufferFree(held);
}

}  // namespace
