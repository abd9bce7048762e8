// associationTest.cpp - media buffers as the pictures of pbuffers: what is read, what
// is written back, when, and what never is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>

#include "tests/platform/glx/glScene.h"
#include "tests/support/capture.h"

namespace {

constexpr int width = 61, height = 37;  // rows and columns that fill no block
constexpr size_t bytes = size_t(width) * height * 4;

class Association : public testing::Test {
protected:
    GLScene scene;
    PoolFixture pool{4, int(bytes)};
    ImageParams image{width, height};
    GLXPbuffer pbuffer = scene.pbuffer(width, height);
    GLXContext context = scene.context();

    int associate(ZVbuffer buffer) { return glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, buffer); }
    void bind() { EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context)); }
    void unbind() { EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, None, nullptr)); }
    // Reads the pbuffer from a context that draws elsewhere.
    Bytes seen()
    {
        EXPECT_TRUE(glXMakeCurrentReadQTN(scene.dpy, other_, pbuffer, context));
        return readBack(width, height);
    }

private:
    GLXPbuffer other_ = scene.pbuffer(width, height);
};

TEST_F(Association, ReadsSeeTheBytesOfTheBufferRowByRow)
{
    const ZVbuffer first = pool.take();
    const ZVbuffer second = pool.take();
    fill(first, numbered(width, height, 1));
    fill(second, numbered(width, height, 90));
    ASSERT_TRUE(associate(first));
    EXPECT_EQ(seen(), numbered(width, height, 1));
    ASSERT_TRUE(associate(second));  // while it is being read from
    EXPECT_EQ(readBack(width, height), numbered(width, height, 90));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(Association, WhatIsDrawnIsInTheBufferForEveryLaterMap)
{
    const ZVbuffer buffer = pool.take();
    fill(buffer, numbered(width, height));
    ASSERT_TRUE(associate(buffer));
    bind();
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, width, 3);  // the first three rows; the rest of the picture stays
    clearTo(0, 1, 0, 1);
    EXPECT_EQ(zvBufferSync(buffer), 0);

    Bytes expected = numbered(width, height);
    const Bytes green = solid(width, 3, 0, 255, 0, 255);
    std::copy(green.begin(), green.end(), expected.begin());
    elsewhere([&] { EXPECT_EQ(bytesOf(buffer, bytes), expected); });
    EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(Association, WhoMapsOnTheThreadThatDrawsSeesWhatIsThereSoFar)
{
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(associate(buffer));
    bind();
    clearTo(1, 0, 0, 1);
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 255, 0, 0, 255));
    clearTo(0, 0, 1, 1);
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 0, 0, 255, 255));
    zvBufferSync(buffer);

    // Synced, the bytes are the holders' again, though the context is still current.
    fill(buffer, numbered(width, height));
    EXPECT_EQ(bytesOf(buffer, bytes), numbered(width, height));
}

TEST_F(Association, ABufferThatIsOnlyReadIsNeverWritten)
{
    const ZVbuffer buffer = pool.take();
    fill(buffer, numbered(width, height));
    ASSERT_TRUE(associate(buffer));
    EXPECT_EQ(seen(), numbered(width, height));
    fill(buffer, solid(width, height, 1, 2, 3, 4));  // GL's copy is older now
    unbind();
    EXPECT_EQ(zvBufferSync(buffer), 0);
    ASSERT_TRUE(associate(pool.take()));
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 1, 2, 3, 4));
}

TEST_F(Association, HoldsNoReferenceAndNeverWritesWhatWentBack)
{
    PoolFixture one(1, bytes);
    ZVbuffer buffer = one.takeOwned();
    ASSERT_TRUE(associate(buffer));
    EXPECT_EQ(poolReferences(one.pool), 1);
    bind();
    clearTo(1, 1, 1, 1);
    zvBufferFree(buffer);

    const ZVbuffer again = one.take();  // the same memory
    fill(again, numbered(width, height));
    EXPECT_EQ(zvBufferSync(again), 0);
    EXPECT_EQ(zvBufferSync(buffer), -1);
    ASSERT_TRUE(associate(pool.take()));
    unbind();
    EXPECT_EQ(bytesOf(again, bytes), numbered(width, height));
}

TEST_F(Association, AnotherBufferInItsPlaceGetsNothingAndTheFirstItsPicture)
{
    const ZVbuffer first = pool.take();
    const ZVbuffer second = pool.take();
    fill(second, numbered(width, height));
    ASSERT_TRUE(associate(first));
    bind();
    clearTo(1, 0, 0, 1);
    ASSERT_TRUE(associate(second));
    EXPECT_EQ(bytesOf(first, bytes), solid(width, height, 255, 0, 0, 255));
    EXPECT_EQ(readBack(width, height), numbered(width, height));
    clearTo(0, 1, 0, 1);
    zvBufferSync(second);
    EXPECT_EQ(bytesOf(second, bytes), solid(width, height, 0, 255, 0, 255));
    EXPECT_EQ(bytesOf(first, bytes), solid(width, height, 255, 0, 0, 255));
}

TEST_F(Association, TwoPbuffersPassOneBufferOn)
{
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(associate(buffer));
    bind();
    clearTo(1, 0, 0, 1);
    const GLXPbuffer next = scene.pbuffer(width, height);
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, next, image, buffer));
    EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, next, context));
    EXPECT_EQ(readBack(width, height), solid(width, height, 255, 0, 0, 255));
}

TEST_F(Association, DrawnIntoAndLeftItIsFetchedByAnyThread)
{
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(associate(buffer));
    bind();
    clearTo(1, 0, 1, 1);
    elsewhere([&] {
        // Current over there: no GL call.
        const Printed printed = capture([&] { EXPECT_EQ(zvBufferSync(buffer), -1); });
        EXPECT_EQ(printed.err, "glx: a buffer is wanted while another thread draws into it\n");
    });
    unbind();
    elsewhere([&] {
        EXPECT_EQ(zvBufferSync(buffer), 0);
        EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 255, 0, 255, 255));
    });
}

// The application goes back to its own pair without this layer.
TEST_F(Association, IsFetchedWhenItsContextIsCurrentNoMore)
{
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(associate(buffer));
    bind();
    clearTo(1, 1, 0, 1);
    const GLXPbuffer own = scene.pbuffer(8, 8);
    const GLXContext ownContext = scene.context();
    glXMakeContextCurrent(scene.dpy, own, own, ownContext);
    EXPECT_EQ(zvBufferSync(buffer), 0);
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 255, 255, 0, 255));
    EXPECT_EQ(glXGetCurrentDrawable(), own);
    EXPECT_EQ(glXGetCurrentContext(), ownContext);
}

TEST_F(Association, WhoDrawsAllIsSparedTheOldPicture)
{
    const ZVbuffer buffer = pool.take();
    fill(buffer, numbered(width, height));
    glXDrawsAllQTN(scene.dpy, pbuffer, 1);
    bind();
    clearTo(0, 0, 1, 1);
    ASSERT_TRUE(associate(buffer));
    bind();
    EXPECT_EQ(readBack(width, height), solid(width, height, 0, 0, 255, 255));  // nothing was brought
    zvBufferSync(buffer);
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 0, 0, 255, 255));
    fill(buffer, numbered(width, height));
    ASSERT_TRUE(associate(buffer));
    unbind();
    zvBufferSync(buffer);
    fill(buffer, numbered(width, height));
    ASSERT_TRUE(associate(buffer));
    EXPECT_EQ(seen(), numbered(width, height));  // reading brings it
}

TEST_F(Association, RefusesWhatCannotBeThePicture)
{
    PoolFixture small(1, int(bytes) - 1);
    EXPECT_FALSE(associate(nullptr));
    EXPECT_FALSE(associate(small.take()));
    ZVbuffer stale = pool.takeOwned();
    zvBufferFree(stale);
    EXPECT_FALSE(associate(stale));
    const ZVbuffer good = pool.take();
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, nullptr, good));
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(nullptr, pbuffer, image, good));
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer + 77, image, good));
    const ImageParams endless(width, height);  // its bytes are more than a number holds
    zvParamsSetInt(endless, ZV_IMAGE_WIDTH, INT_MAX);
    zvParamsSetInt(endless, ZV_IMAGE_HEIGHT, INT_MAX);
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, endless, good));
    const ImageParams larger(width, height + 1);
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, larger, good));
    EXPECT_TRUE(associate(good));
}

}  // namespace
