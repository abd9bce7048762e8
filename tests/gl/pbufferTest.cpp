// pbufferTest.cpp - configurations, ids, printed lines and bindings of the pbuffer nodes.
#include <gmock/gmock.h>

#include <cstdlib>

#include "gl/kivGLPaintBuffer.h"
#include "gl/kivGLPixelTrans.h"
#include "gl/kivGLTex2d.h"
#include "tests/core/slots.h"
#include "tests/gl/glFixture.h"
#include "tests/support/capture.h"
#include "tests/support/poolFixture.h"
#include "tests/support/replace.h"

namespace {

// Configurations as a test says them, in place of the layer's.
struct Offered {
    int red, green, blue, alpha;  // bits
};
std::vector<Offered> offered;
bool offering = false;

}  // namespace

// The services as the nodes see them; all others call them past these.
int zvParamsCreate(ZVparams** p) { return replaced("zvParamsCreate", zvParamsCreate, p); }
int zvSetImageDefaults(ZVparams* p, int width, int height, int packing)
{
    return replaced("zvSetImageDefaults", zvSetImageDefaults, p, width, height, packing);
}
int zvParamsSetEnum(ZVparams* p, const char* key, int value)
{
    return replaced("zvParamsSetEnum", zvParamsSetEnum, p, key, value);
}
int zvParamsSetInt(ZVparams* p, const char* key, int value)
{
    return replaced("zvParamsSetInt", zvParamsSetInt, p, key, value);
}
int zvBufferSetPoolDefaults(ZVparams* p, int count, int size, int cacheable, int mapped)
{
    return replaced("zvBufferSetPoolDefaults", zvBufferSetPoolDefaults, p, count, size, cacheable, mapped);
}
int zvBufferGetGLPoolParams(const ZVparams* image, ZVparams* pool)
{
    return replaced("zvBufferGetGLPoolParams", zvBufferGetGLPoolParams, image, pool);
}
int zvBufferCreatePool(const ZVparams* p, ZVbufferpool* pool)
{
    return replaced("zvBufferCreatePool", zvBufferCreatePool, p, pool);
}
GLXFBConfigQTNX* glXChooseFBConfigQTNX(Display* dpy, int screen, const int* attribs, int* n)
{
    if (!offering)
        return realFunction("glXChooseFBConfigQTNX", glXChooseFBConfigQTNX)(dpy, screen, attribs, n);
    // Kept for good: without an exact match the list is not freed.
    static auto* const lists = new std::vector<GLXFBConfigQTNX*>;
    *n = int(offered.size());
    auto* list = static_cast<GLXFBConfigQTNX*>(malloc(sizeof(GLXFBConfigQTNX) * (offered.size() + 1)));
    for (size_t i = 0; i < offered.size(); ++i)
        list[i] = reinterpret_cast<GLXFBConfigQTNX>(&offered[i]);
    lists->push_back(list);
    return list;
}
int glXGetFBConfigAttribQTNX(Display* dpy, GLXFBConfigQTNX config, int attribute, int* value)
{
    if (!offering)
        return replaced("glXGetFBConfigAttribQTNX", glXGetFBConfigAttribQTNX, dpy, config, attribute, value);
    const auto* sizes = reinterpret_cast<const Offered*>(config);
    *value = attribute == GLX_RED_SIZE ? sizes->red
        : attribute == GLX_GREEN_SIZE  ? sizes->green
        : attribute == GLX_BLUE_SIZE   ? sizes->blue
                                       : sizes->alpha;
    return 0;
}
GLXContext glXCreateContextWithConfigQTNX(Display* dpy, GLXFBConfigQTNX config, int type, GLXContext share, Bool direct)
{
    if (Replacements::instance().failing == "glXCreateContextWithConfigQTNX")
        return nullptr;
    return realFunction("glXCreateContextWithConfigQTNX", glXCreateContextWithConfigQTNX)(dpy, config, type, share,
                                                                                          direct);
}
GLXPbuffer glXCreateGLXPbufferQTNX(Display* dpy, GLXFBConfigQTNX config, unsigned width, unsigned height, int* attribs)
{
    if (Replacements::instance().failing == "glXCreateGLXPbufferQTNX")
        return 0;
    return realFunction("glXCreateGLXPbufferQTNX", glXCreateGLXPbufferQTNX)(dpy, config, width, height, attribs);
}

namespace {

using testing::HasSubstr;

class kivGLPBufferTest : public testing::Test {
protected:
    ~kivGLPBufferTest() override
    {
        offering = false;
        Replacements::reset();
        setTrace(1);
    }
};

GLXFBConfigQTNX chosenFrom(std::vector<Offered> list, int id)
{
    offered = std::move(list);
    offering = true;
    GLXFBConfigQTNX config = reinterpret_cast<GLXFBConfigQTNX>(&config);
    EXPECT_EQ(setupFBConfig(connection(), 8, 8, 8, 8, &config), id);
    offering = false;
    return config;
}

TEST_F(kivGLPBufferTest, ChoosesTheFirstExactConfiguration)
{
    const auto second = chosenFrom({{8, 8, 8, 16}, {8, 8, 8, 8}, {8, 8, 8, 8}}, 0);
    EXPECT_EQ(second, reinterpret_cast<GLXFBConfigQTNX>(&offered[1]));
    EXPECT_EQ(chosenFrom({{10, 8, 8, 8}, {8, 10, 8, 8}, {8, 8, 10, 8}, {8, 8, 8, 10}}, 3001), nullptr);
    EXPECT_EQ(chosenFrom({}, 3001), nullptr);
    GLXFBConfigQTNX config = second;
    EXPECT_EQ(setupFBConfig(nullptr, 8, 8, 8, 8, &config), 3001);
    EXPECT_EQ(config, nullptr);
}

TEST_F(kivGLPBufferTest, PrintsFourteenAttributes)
{
    GLXFBConfigQTNX config = nullptr;
    ASSERT_EQ(setupFBConfig(connection(), 8, 8, 8, 8, &config), 0);
    const Printed printed = capture([&] { printFBConfig(connection(), config); });
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(printed.out,
                HasSubstr("             GLX_BUFFER_SIZE = 32\n"
                          "                   GLX_LEVEL = 0\n"
                          "            GLX_DOUBLEBUFFER = 1\n"));
    EXPECT_THAT(printed.out, HasSubstr("\n    GLX_MAX_PBUFFER_HEIGHT_QTNX = "));
    EXPECT_THAT(printed.out, HasSubstr("\n        GLX_RENDER_TYPE_QTNX = 1\n"));
    EXPECT_EQ(std::count(printed.out.begin(), printed.out.end(), '\n'), 14);

    Replacements::fail("glXGetFBConfigAttribQTNX", 1, 1);
    const Printed failed = capture([&] { printFBConfig(connection(), config); });
    EXPECT_EQ(failed.err, "glXGetFBConfigAttribQTNX failed");
    EXPECT_THAT(failed.out, HasSubstr("GLX_LEVEL = 32\n")) << "the value before it";
}

TEST_F(kivGLPBufferTest, PrintsWhatItMade)
{
    kivGLPBuffer node;
    EXPECT_EQ(node.setup(connection(), 64, 48), 0);
    EXPECT_EQ(node.imageSizeX, 64);
    EXPECT_EQ(node.bufferSizeY, 48);
    const Printed printed = capture([&] { EXPECT_EQ(node.init(nullptr), 0); });
    EXPECT_THAT(printed.err,
                testing::StartsWith("FBConfig used to create pbuffer:\nzvparams (gfxparams) used for pbuffer:\n"));
    EXPECT_THAT(printed.err, HasSubstr("ZV_IMAGE_LAYOUT"));
    EXPECT_EQ(std::count(printed.out.begin(), printed.out.end(), '\n'), 14);
    setTrace(0);
    const Printed quiet = capture([&] { EXPECT_EQ(node.init(nullptr), 0); });
    EXPECT_EQ(quiet.err + quiet.out, "");
}

struct Failure {
    const char* function;
    int skip;
    int id;
};

// Setup, then init: each failing call has its id, and no later step is taken.
template <class Node> void expectIds(const std::vector<Failure>& failures)
{
    setTrace(0);
    for (const Failure& failure : failures) {
        SCOPED_TRACE(failure.function);
        Node node;
        Replacements::fail(failure.function, failure.skip);
        int id = 0;
        const Printed printed = capture([&] {
            id = node.setup(connection(), 32, 16);
            if (id == 0)
                id = node.init(nullptr);
        });
        Replacements::reset();
        EXPECT_EQ(id, failure.id);
        EXPECT_EQ(printed.err, failure.function == std::string("zvBufferCreatePool") ? "error:-1" : "");
        EXPECT_EQ(node.isInitialized(), 0);
    }
}

TEST_F(kivGLPBufferTest, AnswersAnIdForEachFailingStep)
{
    const std::vector<Failure> pbuffer = {{"zvParamsCreate", 0, 5},
                                          {"zvSetImageDefaults", 0, 6},
                                          {"zvParamsSetEnum", 0, 6},
                                          {"glXCreateGLXPbufferQTNX", 0, 3002}};
    expectIds<kivGLPBuffer>(pbuffer);
    expectIds<kivGLTex2d>(pbuffer);
    expectIds<kivGLCtx>({{"glXCreateGLXPbufferQTNX", 0, 3002}, {"glXCreateContextWithConfigQTNX", 0, 3003}});
    const std::vector<Failure> pool
        = {{"glXCreateGLXPbufferQTNX", 0, 3002},       {"zvParamsCreate", 1, 5}, {"zvBufferSetPoolDefaults", 0, 6},
           {"zvBufferGetGLPoolParams", 0, 7},          {"zvParamsSetInt", 0, 4}, {"zvBufferCreatePool", 0, 7},
           {"glXCreateContextWithConfigQTNX", 0, 3003}};
    expectIds<kivGLPixelTrans>(pool);
    expectIds<kivGLPaintBuffer>(pool);

    kivGLCtx early;
    EXPECT_EQ(early.init(nullptr), 3001) << "there is no connection before setup";
}

TEST_F(kivGLPBufferTest, AsksForBuffersThatGLTakes)
{
    kivGLPBuffer node;
    ASSERT_EQ(node.setup(connection(), 64, 48), 0);
    for (auto constraints : {&kivGLPBuffer::addSrcConstraints, &kivGLPBuffer::addDstConstraints}) {
        ZVparams* params = nullptr;
        zvParamsCreate(&params);
        zvBufferSetPoolDefaults(params, 0, 0, 0, 0);
        EXPECT_EQ((node.*constraints)(params), 0);
        EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_SIZE), 64 * 48 * 4);
        zvParamsDestroy(params);
        EXPECT_EQ((node.*constraints)(params), 4);
    }
    kivGLPixelTrans trans;
    EXPECT_EQ(trans.addSrcConstraints(nullptr), 0) << "it takes any picture";
}

TEST_F(kivGLPBufferTest, KeepsABufferLatchedThatGLDoesNotTake)
{
    setTrace(0);
    kivGLPBuffer node;
    ASSERT_EQ(node.setup(connection(), 64, 48), 0);
    ASSERT_EQ(node.init(nullptr), 0);
    PoolFixture tooSmall(1, 64 * 48);
    const ZVbuffer buffer = tooSmall.take();
    node.receive(buffer);
    const Printed printed = capture([&] { EXPECT_EQ(node.grab(), 3004); });
    EXPECT_EQ(printed.err, "Error in associate");
    EXPECT_EQ(node.latchBuffer, buffer);
    EXPECT_EQ(yqtestsema(node.latchBufferLock), 0);
    node.release();
    zvBufferFree(node.newBuffer);
    zvBufferFree(node.latchBuffer);
}

TEST_F(kivGLPBufferTest, BindsForWritingAndReading)
{
    setTrace(0);
    kivGLCtx a, b;
    for (kivGLCtx* node : {&a, &b}) {
        ASSERT_EQ(node->setup(connection(), 32, 16), 0);
        ASSERT_EQ(node->init(nullptr), 0);
    }
    glXMakeCurrentQTN(connection(), 0, nullptr);
    EXPECT_EQ(a.makeCurrentRead(), 0) << "nothing is drawn into";
    EXPECT_EQ(a.makeCurrentWrite(), 0);
    EXPECT_EQ(a.makeCurrent(), 1);
    EXPECT_EQ(glXGetCurrentDrawable(), a.pbuffer);
    EXPECT_EQ(glXGetCurrentContext(), a.context);
    EXPECT_EQ(b.makeCurrentRead(), 1);
    EXPECT_EQ(glXGetCurrentDrawable(), a.pbuffer);
    EXPECT_EQ(glXGetCurrentReadDrawable(), b.pbuffer);
    EXPECT_EQ(glXGetCurrentContext(), a.context);
    EXPECT_EQ(b.makeCurrentWrite(), 1);
    EXPECT_EQ(glXGetCurrentDrawable(), b.pbuffer);
    EXPECT_EQ(glXGetCurrentReadDrawable(), a.pbuffer);
    EXPECT_EQ(glXGetCurrentContext(), b.context);
    EXPECT_EQ(a.makeCurrentRead(a.pbuffer), 1);
    EXPECT_EQ(glXGetCurrentContext(), b.context);
    EXPECT_EQ(b.makeCurrentRead(a.pbuffer, a.context), 1);
    EXPECT_EQ(glXGetCurrentDrawable(), a.pbuffer);
    EXPECT_EQ(glXGetCurrentReadDrawable(), b.pbuffer);
    EXPECT_EQ(glXGetCurrentContext(), a.context);
}

TEST_F(kivGLPBufferTest, KeepsTheOrderOfSlots)
{
    EXPECT_EQ(slotOf(&kivGLPBuffer::handleEvents), 10);
    EXPECT_EQ(slotOf(&kivGLPBuffer::grab), 16);
    EXPECT_EQ(slotOf(&kivGLPixelTrans::release), 17);
    EXPECT_EQ(slotOf(&kivGLCtx::getUSTMSC), 19);
    EXPECT_EQ(slotOf(&kivGLPixelTrans::mapDstBuffer), 20);
    EXPECT_EQ(slotOf(&kivGLPixelTrans::setImageDimensions), 21);
    EXPECT_EQ(slotOf(&kivGLPixelTrans::setInputFormat), 22);
    EXPECT_EQ(slotOf(&kivGLDisplay::easyToAdd), 13);
}

}  // namespace
