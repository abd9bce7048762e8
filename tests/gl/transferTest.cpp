// transferTest.cpp - pictures converted by GL, and pictures drawn by it, byte by byte.
#include <gmock/gmock.h>

#include "gl/kivGLPaintBuffer.h"
#include "gl/kivGLPixelTrans.h"
#include "tests/gl/glFixture.h"
#include "tests/support/capture.h"
#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"

namespace {

constexpr int width = 64, height = 48;
constexpr size_t rgbaBytes = width * height * 4;

Bytes asBytes(const std::string& frame) { return Bytes(frame.begin(), frame.end()); }

int freeIn(ZVbufferpool pool)
{
    ZVpoolLedger ledger = {};
    zvBufferGetPoolLedger(pool, &ledger);
    return ledger.free;
}

// A node on the connection with a child that records, and what it is fed from.
template <class Node> class GLNodeTest : public testing::Test {
protected:
    GLNodeTest()
    {
        setTrace(0);
        node.addObject(&below);
        EXPECT_EQ(node.setup(connection(), width, height), 0);
        EXPECT_EQ(node.init(nullptr), 0);
        node.start(1);
        FD_ZERO(&none);
    }
    ~GLNodeTest() override
    {
        for (ZVbuffer held : {node.newBuffer, node.latchBuffer})
            if (held != nullptr && pooled(held))
                zvBufferFree(held);
        setTrace(1);
    }
    // Is it the test's, not the node's own?
    bool pooled(ZVbuffer buffer) const
    {
        for (const ZVbuffer one : sent)
            if (one == buffer)
                return true;
        return false;
    }
    void send(const Bytes& bytes, USTMSCpair stamp = {})
    {
        const ZVbuffer buffer = pool.takeOwned();
        fill(buffer, bytes);
        zvBufferSetUSTMSCpair(buffer, stamp);
        sent.push_back(buffer);
        node.receive(buffer);
        zvBufferFree(buffer);
    }

    PoolFixture pool{4, rgbaBytes};
    std::vector<ZVbuffer> sent;
    RecordingSink below;
    Node node;
    fd_set none;
};

using kivGLPixelTransTest = GLNodeTest<kivGLPixelTrans>;
using kivGLPaintBufferTest = GLNodeTest<kivGLPaintBuffer>;

TEST_F(kivGLPixelTransTest, ConvertsEveryHueWithinOneStep)
{
    const Bytes hues = hues422(width, height);
    for (const int full : {0, 1}) {
        node.setFullRange(full);
        send(hues, {1000 + full, 7});
        EXPECT_EQ(node.handleEvents(none), 0);
        ASSERT_EQ(below.frames.size(), size_t(full + 1));
        EXPECT_LE(farthest(asBytes(below.frames[full]), rgbaOf422(hues, full)), 1);
        EXPECT_EQ(below.stamps[full].ust, 1000 + full);
        EXPECT_EQ(below.stamps[full].msc, 7);
    }
    EXPECT_EQ(freeIn(node.bufferPool), 4);
    EXPECT_EQ(node.handleEvents(none), 9);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(kivGLPixelTransTest, TakesOtherFormatsAndSmallerPictures)
{
    node.setInputFormat(GL_RGBA);
    const Bytes whole = noise(rgbaBytes, 1);
    for (int i = 0; i < 4; ++i)  // each buffer of the pool once
        send(whole), node.handleEvents(none);
    EXPECT_EQ(asBytes(below.frames[3]), whole);

    constexpr int smallWidth = 20, smallHeight = 10;
    node.setImageDimensions(smallWidth, smallHeight);
    const Bytes part = noise(smallWidth * smallHeight * 4, 2);
    send(part);
    node.handleEvents(none);
    Bytes expected = whole;
    for (int row = 0; row < smallHeight; ++row)
        std::copy_n(part.begin() + row * smallWidth * 4, smallWidth * 4, expected.begin() + row * width * 4);
    EXPECT_EQ(asBytes(below.frames[4]), expected) << "the rest is left as it was";
}

TEST_F(kivGLPixelTransTest, DrawsNothingFromABufferThatIsTooShort)
{
    node.setInputFormat(GL_RGBA);
    for (int i = 0; i < 4; ++i)  // each buffer of the pool once
        send(noise(rgbaBytes, 1)), node.handleEvents(none);
    PoolFixture shortPool(1, 4096);
    const ZVbuffer tooShort = shortPool.take();
    node.receive(tooShort);
    EXPECT_EQ(node.handleEvents(none), 0);
    ASSERT_EQ(below.frames.size(), 5u);
    EXPECT_EQ(asBytes(below.frames[4]), noise(rgbaBytes, 1)) << "left as it was";
    send(noise(rgbaBytes, 2));
    node.handleEvents(none);
    EXPECT_EQ(asBytes(below.frames[5]), noise(rgbaBytes, 2));
}

// A child that keeps everything: what it has must not be drawn over.
TEST_F(kivGLPixelTransTest, LeavesOthersBuffersAloneWhenItsPoolIsEmpty)
{
    node.setInputFormat(GL_RGBA);
    std::vector<ZVbuffer> kept;
    below.onReceive = [&](ZVbuffer buffer) {
        zvBufferAttach(buffer);
        kept.push_back(buffer);
    };
    for (unsigned i = 0; i < 4; ++i)
        send(noise(rgbaBytes, i)), node.handleEvents(none);
    send(noise(rgbaBytes, 9));
    const Printed printed = capture([&] { EXPECT_EQ(node.handleEvents(none), 0); });
    EXPECT_EQ(printed.err, "Error in associate");
    ASSERT_EQ(kept.size(), 4u) << "nothing is handed on";
    for (unsigned i = 0; i < 4; ++i)
        EXPECT_EQ(bytesOf(kept[i], rgbaBytes), noise(rgbaBytes, i));
    for (const ZVbuffer buffer : kept)
        zvBufferFree(buffer);
    kept.clear();
    send(noise(rgbaBytes, 10));
    node.handleEvents(none);
    ASSERT_EQ(kept.size(), 1u);
    EXPECT_EQ(bytesOf(kept[0], rgbaBytes), noise(rgbaBytes, 10));
    zvBufferFree(kept[0]);
}

TEST_F(kivGLPixelTransTest, SaysWhatItDoes)
{
    setTrace(1);
    const Printed idle = capture([&] { EXPECT_EQ(node.handleEvents(none), 9); });
    EXPECT_EQ(idle.err, "kivGLPixelTrans::handleEvents()\n   no new buffer()\n");
    send(Bytes(rgbaBytes));
    const Printed busy = capture([&] { EXPECT_EQ(node.handleEvents(none), 0); });
    EXPECT_EQ(busy.err, "kivGLPixelTrans::handleEvents()\n   yes, new buffer()\n");
    EXPECT_EQ(node.mapDstBuffer(), nullptr) << "it is with the children now";

    kivGLPixelTrans another;
    another.setup(connection(), width, height);
    const Printed made = capture([&] { EXPECT_EQ(another.init(nullptr), 0); });
    EXPECT_THAT(made.err, testing::HasSubstr("kivGLPixelTrans: Create Pool\nParameters:\n"));
    EXPECT_EQ(freeIn(another.bufferPool), 4);
}

TEST_F(kivGLPixelTransTest, GivesBackWhatWasCurrentOnAnotherConnection)
{
    kivGLDisplay display;
    display.imageSizeX = width;
    display.imageSizeY = height;
    ASSERT_EQ(display.setup(0), 0);
    const GLXContext context = glXGetCurrentContext();
    const GLXDrawable drawable = glXGetCurrentDrawable();
    Display* const dpy = glXGetCurrentDisplay();
    ASSERT_NE(dpy, connection());
    for (unsigned i = 0; i < 3; ++i) {
        send(hues422(width, height));
        EXPECT_EQ(node.handleEvents(none), 0);
        EXPECT_EQ(glXGetCurrentContext(), context);
        EXPECT_EQ(glXGetCurrentDrawable(), drawable);
        EXPECT_EQ(glXGetCurrentDisplay(), dpy);
        glClearColor(0, float(i) / 2, 1, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        glXSwapBuffersQTN(drawable);  // an error of X here would end the process
    }
    EXPECT_EQ(shownBy(display), Colours(width * height, 0x00ffff));
}

// Inside a transfer of the application's own, a pass of the loop does not wait for it.
TEST_F(kivGLPixelTransTest, DoesNotWaitForItselfInTheLoop)
{
    node.setInputFormat(GL_RGBA);
    send(noise(rgbaBytes, 1));
    EXPECT_EQ(node.grab(), 0);
    EXPECT_EQ(bytesOf(node.dstBuffer, rgbaBytes), noise(rgbaBytes, 1));
    send(noise(rgbaBytes, 2));
    EXPECT_EQ(node.handleEvents(none), 9);
    node.release();
    EXPECT_EQ(node.handleEvents(none), 0);
    EXPECT_EQ(asBytes(below.frames.back()), noise(rgbaBytes, 2));
}

// A rectangle in rows from the picture's top.
void paint(int x, int y, int w, int h, const uint8_t (&rgba)[4], Bytes& expected)
{
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, y, w, h);
    glClearColor(float(rgba[0]) / 255, float(rgba[1]) / 255, float(rgba[2]) / 255, float(rgba[3]) / 255);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    for (int row = y; row < y + h; ++row)
        for (int column = x; column < x + w; ++column)
            std::copy_n(rgba, 4, expected.begin() + (row * width + column) * 4);
}

TEST_F(kivGLPaintBufferTest, HandsOnWhatWasDrawn)
{
    EXPECT_EQ(freeIn(node.bufferPool), 10);
    Bytes expected(rgbaBytes);
    for (unsigned frame = 0; frame < 3; ++frame) {
        ASSERT_EQ(node.grab(), 0);
        ASSERT_EQ(node.makeCurrent(), 1);
        // Each frame is drawn over the one before.
        paint(int(frame) * 5, int(frame) * 3, 20, 10, {10, uint8_t(50 + frame), 200, 77}, expected);
        EXPECT_EQ(bytesOf(node.latchBuffer, rgbaBytes), expected) << "mapped by who draws, before release";
        paint(30, int(frame), 3, 3, {255, 0, uint8_t(frame), 255}, expected);
        node.release();
        ASSERT_EQ(below.frames.size(), frame + 1);
        EXPECT_EQ(asBytes(below.frames[frame]), expected);
        EXPECT_EQ(freeIn(node.bufferPool), 9) << "the first grab alone takes one";
    }
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(kivGLPaintBufferTest, DrawsIntoBuffersThatCome)
{
    ASSERT_EQ(node.grab(), 0);
    node.release();
    Bytes picture = noise(rgbaBytes, 3);
    send(picture);
    ASSERT_EQ(node.grab(), 0);
    ASSERT_EQ(node.makeCurrent(), 1);
    paint(3, 40, 50, 8, {1, 2, 3, 4}, picture);
    node.release();
    EXPECT_EQ(asBytes(below.frames.back()), picture);
    EXPECT_EQ(freeIn(node.bufferPool), 10) << "its own buffer is back";
    EXPECT_EQ(node.grab(), 0);
    EXPECT_NE(node.paintBuffer, nullptr);
    EXPECT_EQ(freeIn(node.bufferPool), 10);
    node.release();
}

TEST_F(kivGLPaintBufferTest, ReadsWithoutWritingBack)
{
    ASSERT_EQ(node.grab(), 0);
    const ZVbuffer buffer = node.latchBuffer;
    kivGLCtx reader;
    ASSERT_EQ(reader.setup(connection(), width, height), 0);
    ASSERT_EQ(reader.init(nullptr), 0);
    const Bytes picture = noise(rgbaBytes, 4);
    fill(buffer, picture);
    ASSERT_EQ(reader.makeCurrent(), 1);
    ASSERT_EQ(node.makeCurrentRead(), 1);
    Bytes seen(rgbaBytes);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, seen.data());
    EXPECT_EQ(seen, picture);
    const Bytes later = noise(rgbaBytes, 5);
    fill(buffer, later);
    node.release();
    EXPECT_EQ(asBytes(below.frames.back()), later);
}

TEST(kivGLPaintBuffer, LeavesNothingOfItsPool)
{
    setTrace(0);
    ZVbuffer own = nullptr;
    {
        kivGLPaintBuffer node;
        ASSERT_EQ(node.setup(connection(), width, height), 0);
        ASSERT_EQ(node.init(nullptr), 0);
        ASSERT_EQ(node.grab(), 0);
        own = node.latchBuffer;
        EXPECT_NE(zvBufferMapData(own), nullptr);
    }
    EXPECT_EQ(zvBufferMapData(own), nullptr) << "somebody still holds it";
    setTrace(1);
}

}  // namespace
