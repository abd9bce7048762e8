// textureTest.cpp - the newest buffer as a texture, and as long as a loop runs.
#include <gmock/gmock.h>

#include "core/kivLoop.h"
#include "gl/kivGLTex2d.h"
#include "tests/gl/glFixture.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"

namespace {

constexpr int width = 48, height = 20;
constexpr size_t rgbaBytes = width * height * 4;

class kivGLTex2dTest : public testing::Test {
protected:
    kivGLTex2dTest()
    {
        setTrace(0);
        display.imageSizeX = 16;
        display.imageSizeY = 16;
        EXPECT_EQ(display.setup(0), 0);
        texture.addObject(&below);
        EXPECT_EQ(texture.setup(connection(), width, height), 0);
        EXPECT_EQ(texture.init(nullptr), 0);
    }
    ~kivGLTex2dTest() override
    {
        for (ZVbuffer held : {texture.newBuffer, texture.latchBuffer})
            if (held != nullptr)
                zvBufferFree(held);
        setTrace(1);
    }
    void send(const Bytes& bytes)
    {
        const ZVbuffer buffer = pool.takeOwned();
        ASSERT_NE(buffer, nullptr);
        fill(buffer, bytes);
        texture.receive(buffer);
        zvBufferFree(buffer);
    }
    Bytes texels()
    {
        Bytes bytes(rgbaBytes);
        glBindTexture(GL_TEXTURE_2D, GLuint(texture.texID));
        glGetTexImage(GL_TEXTURE_2D, 0, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
        return bytes;
    }

    PoolFixture pool{4, rgbaBytes};
    CallLog log;
    FakeNode below{log, "below"};
    kivGLDisplay display;
    kivGLTex2d texture;
};

TEST_F(kivGLTex2dTest, DefinesThenCopiesTheNewestBuffer)
{
    setTrace(1);
    const GLXContext context = glXGetCurrentContext();
    Printed printed = capture([&] { EXPECT_EQ(texture.defineTex2D(), 0); });
    EXPECT_EQ(printed.err, "");
    EXPECT_FALSE(glIsTexture(GLuint(texture.texID)));

    const Bytes pictures[] = {noise(rgbaBytes, 0), noise(rgbaBytes, 1), noise(rgbaBytes, 2)};
    send(pictures[0]);
    printed = capture([&] { EXPECT_EQ(texture.defineTex2D(), 0); });
    EXPECT_EQ(printed.err, "Initialize ID " + std::to_string(texture.texID) + "\n");
    EXPECT_EQ(texture.texInitialized, 1);
    EXPECT_EQ(texture.gotPBuffer, 0);
    GLint sizes[3] = {};
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &sizes[0]);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &sizes[1]);
    glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_INTERNAL_FORMAT, &sizes[2]);
    EXPECT_THAT(sizes, testing::ElementsAre(width, height, 0x8058));

    printed = capture([&] { EXPECT_EQ(texture.defineTex2D(), 0); });
    EXPECT_EQ(printed.err, "");
    EXPECT_EQ(texels(), pictures[0]);
    EXPECT_EQ(below.lastBuffer, nullptr) << "it stays grabbed";
    for (int i = 1; i < 3; ++i) {
        const ZVbuffer grabbed = texture.latchBuffer;
        send(pictures[i]);
        EXPECT_EQ(texture.defineTex2D(), 0);
        EXPECT_EQ(below.lastBuffer, grabbed) << "released by the call after it";
        EXPECT_EQ(texels(), pictures[i]);
    }
    EXPECT_EQ(glXGetCurrentContext(), context);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    display.receive(texture.latchBuffer);  // the caller's drawable can still be swapped
    display.receive(texture.latchBuffer);
}

TEST_F(kivGLTex2dTest, HandsOutIdsInOrder)
{
    kivGLTex2d next, afterNext;
    EXPECT_EQ(next.texID, texture.texID + 1);
    EXPECT_EQ(afterNext.texID, texture.texID + 2);
}

TEST_F(kivGLTex2dTest, GoesOnAfterABufferThatGLDoesNotTake)
{
    PoolFixture smallPool(2, 64);
    auto refuse = [&] {
        const Printed printed = capture([&] { EXPECT_EQ(texture.defineTex2D(), 3004); });
        EXPECT_EQ(printed.err, "Error in associatedefine tex failed\n");
    };
    ZVbuffer bad = smallPool.takeOwned();
    texture.receive(bad);
    EXPECT_EQ(texture.defineTex2D(), 0);
    refuse();  // the first grab of all
    refuse();
    send(noise(rgbaBytes, 1));
    EXPECT_EQ(texture.defineTex2D(), 0);
    EXPECT_EQ(texels(), noise(rgbaBytes, 1));
    texture.receive(bad);
    refuse();  // a later one
    EXPECT_EQ(texels(), noise(rgbaBytes, 1)) << "the texture stays as it was";
    refuse();
    send(noise(rgbaBytes, 2));
    EXPECT_EQ(texture.defineTex2D(), 0);
    EXPECT_EQ(texels(), noise(rgbaBytes, 2));
    zvBufferFree(bad);
}

// The node stands on the chain's path while a buffer stays grabbed between two
// drawings: the loop must neither wait for itself nor lose a frame or a buffer.
TEST_F(kivGLTex2dTest, StandsOnAChainsPathForAThousandPasses)
{
    FakeNode source(log, "source");
    source.kivObj::addObject(&texture);
    kivChain chain;
    chain.setChain(&source);
    ASSERT_EQ(chain.chainTail, &below);
    kivLoop loop;
    loop.addChain(&chain);
    int drawn = 0, wrong = 0;
    loop.setPassHandler([&] {
        const Bytes picture = noise(rgbaBytes, unsigned(drawn));
        send(picture);
        ASSERT_EQ(texture.defineTex2D(), 0);
        wrong += drawn > 0 && texels() != picture;
        ++drawn;
    });
    for (int pass = 0; pass < 1000; ++pass) {
        loop.wake();
        loop.pass();
    }
    EXPECT_EQ(drawn, 1000);
    EXPECT_EQ(wrong, 0);
}

}  // namespace
