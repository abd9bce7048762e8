// copiesTest.cpp - how often a frame goes from memory into GL and back.
#include <gtest/gtest.h>

#include "tests/platform/glx/glCounts.h"
#include "tests/platform/glx/glScene.h"

namespace {

constexpr int width = 320, height = 240;
constexpr long long frame = width * height;
constexpr size_t bytes = size_t(frame) * 4;

class Copies : public testing::Test {
protected:
    GLScene scene;
    PoolFixture pool{2, int(bytes)};
    ImageParams image{width, height};
    GLXPbuffer pbuffer = scene.pbuffer(width, height);
    GLXContext context = scene.context();

    void expectCopies(long long in, long long out)
    {
        const GLCounts counts = takeGLCounts();
        EXPECT_EQ(counts.in, in * frame);
        EXPECT_EQ(counts.out, out * frame);
    }
    int associate(ZVbuffer buffer) { return glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, buffer); }
};

TEST_F(Copies, AFrameOnTheScreenIsCopiedOnce)
{
    const Window window = scene.window(width, 2 * height);
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, window, context));
    glOrtho(0, width, 0, 2 * height, -1, 1);
    glPixelZoom(1, -1);
    glRasterPos2i(0, 2 * height);
    const Bytes picture = numbered(width, height);
    takeGLCounts();
    for (const bool interlaced : {false, true}) {
        (interlaced ? glEnableQTN : glDisableQTN)(GL_INTERLACE_QTN);
        glDrawPixelsQTN(width, height, GL_RGBA, picture.data(), (long long)picture.size());
        glXSwapBuffersQTN(window);
        expectCopies(1, 0);
    }
}

TEST_F(Copies, ATransferThatCoversAllIsDrawnAndReadBack)
{
    const Bytes picture(size_t(frame) * 2, 128);
    glXDrawsAllQTN(scene.dpy, pbuffer, 1);
    takeGLCounts();
    for (int i = 0; i < 3; ++i) {
        const ZVbuffer buffer = pool.takeOwned();
        ASSERT_TRUE(associate(buffer));
        ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
        glDrawPixelsQTN(width, height, GL_CBYCRY_422_QTN, picture.data(), (long long)picture.size());
        EXPECT_EQ(zvBufferSync(buffer), 0);
        expectCopies(1, 1);
        bytesOf(buffer, 4);
        zvBufferSync(buffer);
        glXMakeCurrentQTN(scene.dpy, 0, nullptr);
        expectCopies(0, 0);
        zvBufferFree(buffer);
    }
}

TEST_F(Copies, APictureIsBroughtOnceForAnyNumberOfLooks)
{
    const GLXPbuffer other = scene.pbuffer(8, 8);
    takeGLCounts();
    ASSERT_TRUE(associate(pool.take()));
    ASSERT_TRUE(associate(pool.take()));  // nobody looked
    expectCopies(0, 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(glXMakeCurrentReadQTN(scene.dpy, other, pbuffer, context));
        expectCopies(i == 0, 0);
        glXMakeCurrentQTN(scene.dpy, other, context);
    }
}

TEST_F(Copies, FromAnotherConnectionTooOnce)
{
    GLScene reader;
    const GLXPbuffer own = reader.pbuffer(8, 8);
    const GLXContext looking = reader.context();
    ASSERT_TRUE(associate(pool.take()));
    takeGLCounts();
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(glXMakeCurrentReadQTN(reader.dpy, own, pbuffer, looking));
        expectCopies(i == 0, 0);
        glXMakeCurrentQTN(reader.dpy, own, looking);
    }
}

}  // namespace
