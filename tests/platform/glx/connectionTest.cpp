// connectionTest.cpp - what is current where: several connections, several threads,
// nothing at all, and a server that dies.
#include <gtest/gtest.h>

#define GL_GLEXT_PROTOTYPES
#include "tests/platform/glx/glScene.h"

#include <GL/glext.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/capture.h"

namespace {

constexpr int width = 61, height = 37;
constexpr size_t bytes = size_t(width) * height * 4;

Bytes readFrom(GLXDrawable draw, const GLScene& scene, GLXPbuffer read, GLXContext context)
{
    EXPECT_TRUE(glXMakeCurrentReadQTN(scene.dpy, draw, read, context));
    return readBack(width, height);
}

TEST(Connections, ContextsOfAnotherConnectionReadTheBuffersBytes)
{
    GLScene owner, reader;
    PoolFixture pool(4, bytes);
    const ImageParams image(width, height);
    const GLXPbuffer pbuffer = owner.pbuffer(width, height);
    const Window window = reader.window(64, 64);
    const GLXContext context = reader.context();
    ASSERT_TRUE(glXMakeCurrentQTN(reader.dpy, window, context));
    clearTo(0, 1, 0, 1);
    for (int frame = 1; frame < 4; ++frame) {
        const ZVbuffer buffer = pool.take();
        fill(buffer, numbered(width, height, frame));
        ASSERT_TRUE(glXAssociateZVPbufferQTNX(owner.dpy, pbuffer, image, buffer));
        // Whichever connection the caller names: it is the context's that counts.
        EXPECT_TRUE(glXMakeCurrentReadQTN(frame & 1 ? owner.dpy : reader.dpy, window, pbuffer, context));
        EXPECT_EQ(readBack(width, height), numbered(width, height, frame)) << frame;
        EXPECT_EQ(glXGetCurrentDisplay(), reader.dpy);
    }
    glXMakeCurrentQTN(reader.dpy, window, context);
    EXPECT_EQ(readBack(1, 1), (Bytes{0, 255, 0, 255})) << "what was drawn in the window is lost";
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST(Connections, ASecondLookMakesNoSecondPbuffer)
{
    GLScene owner, reader;
    PoolFixture pool(3, bytes);
    const ImageParams image(width, height);
    const GLXPbuffer pbuffer = owner.pbuffer(width, height);
    const GLXPbuffer own = reader.pbuffer(8, 8);
    const GLXContext context = reader.context();
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(owner.dpy, pbuffer, image, pool.take()));
    ASSERT_TRUE(glXMakeCurrentReadQTN(owner.dpy, own, pbuffer, context));
    const GLXDrawable first = glXGetCurrentReadDrawable();
    ASSERT_TRUE(glXMakeCurrentQTN(reader.dpy, own, context));
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(owner.dpy, pbuffer, image, pool.take()));
    ASSERT_TRUE(glXMakeCurrentReadQTN(owner.dpy, own, pbuffer, context));
    EXPECT_EQ(glXGetCurrentReadDrawable(), first);

    const ZVbuffer next = pool.take();
    fill(next, numbered(width, height, 9));
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(owner.dpy, pbuffer, image, next));  // while it is read from
    EXPECT_EQ(glXGetCurrentReadDrawable(), first);
    EXPECT_EQ(readBack(width, height), numbered(width, height, 9));
}

// One like ours but for its depth size.
GLXFBConfig otherDepth(const GLScene& scene)
{
    const int wanted[] = {GLX_DRAWABLE_TYPE, GLX_PBUFFER_BIT, GLX_DOUBLEBUFFER, True, GLX_ALPHA_SIZE, 8, 0};
    int ours = 0, n = 0;
    glXGetFBConfigAttrib(scene.dpy, scene.config, GLX_DEPTH_SIZE, &ours);
    GLXFBConfig* all = glXChooseFBConfig(scene.dpy, 0, wanted, &n);
    GLXFBConfig found = nullptr;
    for (int i = 0; i < n && found == nullptr; ++i) {
        int depth = 0, samples = 0;
        glXGetFBConfigAttrib(scene.dpy, all[i], GLX_DEPTH_SIZE, &depth);
        glXGetFBConfigAttrib(scene.dpy, all[i], GLX_SAMPLE_BUFFERS, &samples);
        found = depth != ours && samples == 0 ? all[i] : nullptr;
    }
    XFree(all);
    return found;
}

TEST(Connections, ContextsOfAnotherDepthSizeReadThem)
{
    GLScene scene;
    PoolFixture pool(1, bytes);
    const GLXPbuffer pbuffer = scene.pbuffer(width, height);
    scene.config = otherDepth(scene);
    ASSERT_NE(scene.config, nullptr);
    const GLXPbuffer other = scene.pbuffer(16, 16);
    const GLXContext context = scene.context();
    const ZVbuffer buffer = pool.take();
    fill(buffer, numbered(width, height));
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, ImageParams(width, height), buffer));
    EXPECT_EQ(readFrom(other, scene, pbuffer, context), numbered(width, height));
}

// Drawn on one connection, read on another, with no buffer between or with one.
TEST(Connections, WhatWasDrawnOnOneIsReadOnAnother)
{
    GLScene owner, reader;
    const GLXPbuffer pbuffer = owner.pbuffer(width, height);
    const GLXContext context = reader.context();
    const GLXPbuffer own = reader.pbuffer(8, 8);
    ASSERT_TRUE(glXMakeCurrentQTN(owner.dpy, pbuffer, owner.context()));
    clearTo(1, 0, 0, 1);
    EXPECT_EQ(readFrom(own, reader, pbuffer, context), solid(width, height, 255, 0, 0, 255));
    PoolFixture pool(1, bytes);
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(owner.dpy, pbuffer, ImageParams(width, height), buffer));
    ASSERT_TRUE(glXMakeCurrentQTN(owner.dpy, pbuffer, owner.context()));
    clearTo(0, 0, 1, 1);
    EXPECT_EQ(readFrom(own, reader, pbuffer, context), solid(width, height, 0, 0, 255, 255));
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 0, 0, 255, 255));
}

// A node goes back to what was current before it, and names its own connection.
TEST(Connections, APairIsBoundAgainWhereItLives)
{
    GLScene windows, node;
    const Window window = windows.window(32, 32);
    const GLXContext context = windows.context();
    glXMakeContextCurrent(windows.dpy, window, window, context);  // not by this layer
    clearTo(1, 0, 0, 1);
    ASSERT_TRUE(glXMakeCurrentQTN(node.dpy, node.pbuffer(8, 8), node.context()));
    clearTo(0, 1, 0, 1);
    ASSERT_TRUE(glXMakeCurrentQTN(node.dpy, window, context));
    EXPECT_EQ(glXGetCurrentDisplay(), windows.dpy);
    EXPECT_EQ(readBack(1, 1), (Bytes{255, 0, 0, 255}));
    glXSwapBuffersQTN(window);
    XSync(windows.dpy, False);
    XImage* shown = XGetImage(windows.dpy, window, 5, 5, 1, 1, AllPlanes, ZPixmap);
    ASSERT_NE(shown, nullptr);
    EXPECT_EQ(XGetPixel(shown, 0, 0) & 0xffffff, 0xff0000u);
    XDestroyImage(shown);
}

TEST(Connections, HalfAPairAndNoDisplayChangeNothing)
{
    GLScene scene;
    const GLXPbuffer pbuffer = scene.pbuffer(8, 8);
    const GLXContext context = scene.context();
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
    EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, pbuffer, nullptr));
    EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, 0, context));
    EXPECT_FALSE(glXMakeCurrentReadQTN(scene.dpy, pbuffer, 0, context));
    EXPECT_FALSE(glXMakeCurrentReadQTN(scene.dpy, 0, pbuffer, context));
    EXPECT_EQ(glXGetCurrentContext(), context);
    glXSwapBuffersQTN(pbuffer);  // has no screen to go to
    glXSwapBuffersQTN(0);
    glXSwapBuffersQTN(pbuffer + 500);
    clearTo(1, 1, 1, 1);
    EXPECT_EQ(readBack(1, 1), (Bytes{255, 255, 255, 255}));

    int n = 7;
    const int attributes[] = {GLX_RED_SIZE, 8, 0};
    int value = 0;
    EXPECT_EQ(glXChooseFBConfigQTNX(nullptr, 0, attributes, &n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_NE(glXGetFBConfigAttribQTNX(nullptr, scene.config, GLX_RED_SIZE, &value), 0);
    EXPECT_EQ(glXCreateContextWithConfigQTNX(nullptr, scene.config, GLX_RGBA_TYPE_QTNX, nullptr, True), nullptr);
    EXPECT_EQ(glXCreateContextWithConfigQTNX(scene.dpy, nullptr, GLX_RGBA_TYPE_QTNX, nullptr, True), nullptr);
    EXPECT_EQ(glXCreateGLXPbufferQTNX(nullptr, scene.config, 8, 8, nullptr), GLXPbuffer(0));
    EXPECT_EQ(glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 0, 8, nullptr), GLXPbuffer(0));
    EXPECT_EQ(glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 20000, nullptr), GLXPbuffer(0));
    EXPECT_EQ(glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 16000, nullptr), GLXPbuffer(0));
    glXDestroyGLXPbufferQTNX(nullptr, pbuffer);
    glXDestroyGLXPbufferQTNX(scene.dpy, 4711);
    glXDestroyContextQTN(nullptr, nullptr);
    EXPECT_EQ(glXDisplayAliveQTN(nullptr), 0);
    EXPECT_EQ(glXDisplayAliveQTN(scene.dpy), 1);
    EXPECT_EQ(glXOpenDisplayQTN("nowhere:7"), nullptr);
    glXMakeCurrentQTN(scene.dpy, 0, nullptr);
    glXSwapBuffersQTN(pbuffer);
}

TEST(Connections, ConfigurationsAreSafeForPbuffersAndOfOneDepth)
{
    GLScene scene;
    const int attributes[] = {GLX_RENDER_TYPE_QTNX,
                              1,
                              GLX_DRAWABLE_TYPE_QTNX,
                              5,
                              GLX_ALPHA_SIZE,
                              8,
                              GLX_RED_SIZE,
                              8,
                              GLX_DEPTH_SIZE,
                              8,
                              GLX_DOUBLEBUFFER,
                              0,
                              0};
    int n = 0;
    GLXFBConfigQTNX* found = glXChooseFBConfigQTNX(scene.dpy, 0, attributes, &n);
    ASSERT_GT(n, 0);
    const auto value = [&](int i, int attribute) {
        int got = -1;
        EXPECT_EQ(glXGetFBConfigAttribQTNX(scene.dpy, found[i], attribute, &got), 0);
        return got;
    };
    for (int i = 0; i < n; ++i) {
        EXPECT_EQ(value(i, GLX_DOUBLEBUFFER), 1);
        EXPECT_EQ(value(i, GLX_SAMPLE_BUFFERS), 0);
        EXPECT_EQ(value(i, GLX_DEPTH_SIZE), value(0, GLX_DEPTH_SIZE));
        EXPECT_GE(value(i, GLX_MAX_PBUFFER_WIDTH_QTNX), 1920);
    }
    XFree(found);
    const int impossible[] = {GLX_RED_SIZE, 77, 0};
    EXPECT_EQ(glXChooseFBConfigQTNX(scene.dpy, 0, impossible, &n), nullptr);
    EXPECT_EQ(n, 0);
}

// A pbuffer that is still current for reading or drawing, and a context that is.
TEST(Connections, WhatIsCurrentCanBeDestroyed)
{
    GLScene scene;
    const GLXPbuffer stays = scene.pbuffer(8, 8);
    const GLXContext context = scene.context();
    const GLXPbuffer read = glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 8, nullptr);
    ASSERT_TRUE(glXMakeCurrentReadQTN(scene.dpy, stays, read, context));
    glXDestroyGLXPbufferQTNX(scene.dpy, read);
    EXPECT_EQ(glXGetCurrentReadDrawable(), stays);
    const GLXPbuffer drawn = glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 8, nullptr);
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, drawn, context));
    glXDestroyGLXPbufferQTNX(scene.dpy, drawn);
    EXPECT_EQ(glXGetCurrentContext(), nullptr);
    const GLXContext passing
        = glXCreateContextWithConfigQTNX(scene.dpy, scene.config, GLX_RGBA_TYPE_QTNX, nullptr, True);
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, stays, passing));
    glXDestroyContextQTN(scene.dpy, passing);
    EXPECT_EQ(glXGetCurrentContext(), nullptr);
}

// What is not there, or not any more, is a failed call.
TEST(Connections, WhatIsGoneIsNotBound)
{
    GLScene scene;
    const GLXPbuffer stays = scene.pbuffer(8, 8);
    const GLXContext context = scene.context();
    const GLXPbuffer gone = glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 8, nullptr);
    glXDestroyGLXPbufferQTNX(scene.dpy, gone);
    for (const GLXDrawable never : {GLXDrawable(gone), GLXDrawable(0xdeadbeef)}) {
        EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, never, context));
        EXPECT_FALSE(glXMakeCurrentReadQTN(scene.dpy, stays, never, context));
    }
    const GLXContext ended = glXCreateContextWithConfigQTNX(scene.dpy, scene.config, GLX_RGBA_TYPE_QTNX, nullptr, True);
    glXDestroyContextQTN(scene.dpy, ended);
    glXDestroyContextQTN(scene.dpy, ended);
    EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, stays, ended));
    EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, stays, context));
}

TEST(Connections, WhatLivedOnAClosedConnectionIsRefused)
{
    PoolFixture pool(1, bytes);
    const ImageParams image(width, height);
    const ZVbuffer buffer = pool.take();
    Display* dpy = nullptr;
    GLXPbuffer pbuffer = None;
    GLXContext context = nullptr;
    {
        GLScene scene;
        dpy = scene.dpy;
        pbuffer = glXCreateGLXPbufferQTNX(dpy, scene.config, width, height, nullptr);
        context = glXCreateContextWithConfigQTNX(dpy, scene.config, GLX_RGBA_TYPE_QTNX, nullptr, True);
        ASSERT_TRUE(glXAssociateZVPbufferQTNX(dpy, pbuffer, image, buffer));
    }
    EXPECT_EQ(zvBufferSync(buffer), 0);
    EXPECT_FALSE(glXAssociateZVPbufferQTNX(dpy, pbuffer, image, buffer));
    glXDestroyContextQTN(dpy, context);
    glXDestroyGLXPbufferQTNX(dpy, pbuffer);
}

// Destroyed here while another thread draws into it, or reads it on a connection of its own.
TEST(Connections, WhatAnotherThreadHasCurrentStaysUntilItLetsGo)
{
    GLScene scene, others;
    for (const bool draws : {true, false}) {
        GLScene& there = draws ? scene : others;
        const GLXPbuffer own = there.pbuffer(width, height);
        const GLXContext context = there.context();
        const GLXPbuffer passing = glXCreateGLXPbufferQTNX(scene.dpy, scene.config, width, height, nullptr);
        std::atomic<int> step{0};
        std::thread thread([&] {
            EXPECT_TRUE(glXMakeCurrentReadQTN(scene.dpy, draws ? passing : own, passing, context));
            step.store(1);
            step.notify_one();
            step.wait(1);
            const Bytes picture(size_t(128) * 128 * 4, 7);
            EXPECT_EQ(glDrawPixelsQTN(128, 128, GL_RGBA, picture.data(), (long long)picture.size()), 0);
            EXPECT_EQ(readBack(1, 1).size(), 4u);
            EXPECT_TRUE(glXMakeCurrentQTN(there.dpy, own, context));
            glXMakeCurrentQTN(there.dpy, None, nullptr);
        });
        step.wait(0);
        glXDestroyGLXPbufferQTNX(scene.dpy, passing);
        step.store(2);
        step.notify_one();
        thread.join();
        EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, passing, scene.context()));
    }
}

// Its context and what it drew are anybody's then.
TEST(Connections, AThreadThatEndsLetsGo)
{
    GLScene scene;
    PoolFixture pool(1, bytes);
    const ImageParams image(width, height);
    const ZVbuffer buffer = pool.take();
    const GLXPbuffer pbuffer = scene.pbuffer(width, height);
    const GLXContext context = scene.context();
    elsewhere([&] {
        EXPECT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, buffer));
        EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
        clearTo(1, 0, 0, 1);
    });
    EXPECT_EQ(zvBufferSync(buffer), 0);
    EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 255, 0, 0, 255));
    EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
}

// A reader draws while the loop's thread reads what it published; nobody waits for GL.
TEST(Connections, EachThreadDrawsAndReadsOnItsOwn)
{
    PoolFixture pool(1, bytes);
    const ImageParams image(width, height);
    const ZVbuffer buffer = pool.take();
    std::atomic<int> published{0}, seen{0};
    std::thread reader([&] {
        GLScene scene;
        const GLXPbuffer pbuffer = scene.pbuffer(width, height);
        const GLXContext context = scene.context();
        for (int frame = 1; frame <= 20; ++frame) {
            EXPECT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, buffer));
            EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
            clearTo(float(frame) / 255, 0, 0, 1);
            EXPECT_EQ(glXSyncDrawQTN(), 0);
            published.store(frame);
            published.notify_one();
            seen.wait(frame - 1);
        }
    });
    GLScene scene;
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, scene.pbuffer(width, height), scene.context()));
    const Printed printed = capture([&] {
        for (int frame = 1; frame <= 20; ++frame) {
            published.wait(frame - 1);
            EXPECT_EQ(zvBufferSync(buffer), 0);  // the reader's context is still current there
            EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, uint8_t(frame), 0, 0, 255));
            clearTo(0, 0, float(frame) / 255, 1);
            EXPECT_EQ(readBack(1, 1), (Bytes{0, 0, uint8_t(frame), 255}));
            seen.store(frame);
            seen.notify_one();
        }
    });
    reader.join();
    EXPECT_EQ(printed.err, "");
}

// Drawn, synced, drawn on: the second sync on the same thread brings the rest.
TEST(Connections, DrawingGoesOnAfterTheCurrentIsSynced)
{
    GLScene scene;
    PoolFixture pool(1, bytes);
    const GLXPbuffer pbuffer = scene.pbuffer(width, height);
    const ZVbuffer buffer = pool.take();
    ASSERT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, ImageParams(width, height), buffer));
    ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, scene.context()));
    clearTo(1, 0, 0, 1);
    EXPECT_EQ(glXSyncDrawQTN(), 0);
    elsewhere([&] { EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 255, 0, 0, 255)); });
    clearTo(0, 1, 0, 1);
    EXPECT_EQ(zvBufferSync(buffer), 0);
    elsewhere([&] { EXPECT_EQ(bytesOf(buffer, bytes), solid(width, height, 0, 255, 0, 255)); });
}

// A second X server, which this process can kill.
class Server {
public:
    Server()
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const std::string fd = std::to_string(ends[1]);
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(open("/dev/null", O_WRONLY), 2);
            execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-nolisten", "tcp", "-nolock", "-screen", "0",
                   "640x480x24", nullptr);
            _exit(127);
        }
        close(ends[1]);
        char digit = 0;
        while (read(ends[0], &digit, 1) == 1 && digit != '\n')
            name += digit;
        close(ends[0]);
    }
    ~Server() { end(); }
    void end()
    {
        if (pid_ <= 0)
            return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
    std::string name = ":";

private:
    pid_t pid_ = 0;
};

TEST(Connections, AServerThatDiesIsOneLineAndFailedCalls)
{
    Server server;
    ASSERT_GT(server.name.size(), 1u);
    const std::string before = getenv("DISPLAY");
    setenv("DISPLAY", server.name.c_str(), 1);
    const Printed printed = capture([&] {
        GLScene scene;
        PoolFixture pool(2, bytes);
        const ImageParams image(width, height);
        const GLXPbuffer pbuffer = scene.pbuffer(width, height);
        const Window window = scene.window(32, 32);
        const GLXContext context = scene.context();
        const ZVbuffer buffer = pool.take();
        EXPECT_TRUE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, buffer));
        EXPECT_TRUE(glXMakeCurrentQTN(scene.dpy, pbuffer, context));
        clearTo(1, 0, 0, 1);
        server.end();
        EXPECT_EQ(glXDisplayAliveQTN(scene.dpy), 0);
        EXPECT_FALSE(glXAssociateZVPbufferQTNX(scene.dpy, pbuffer, image, pool.take()));
        EXPECT_EQ(zvBufferSync(buffer), -1);
        EXPECT_EQ(glDrawPixelsQTN(1, 1, GL_RGBA, "abcd", 4), -1);
        EXPECT_FALSE(glXMakeCurrentQTN(scene.dpy, window, context));
        glXSwapBuffersQTN(glXGetCurrentDrawable());
        EXPECT_EQ(glXCreateGLXPbufferQTNX(scene.dpy, scene.config, 8, 8, nullptr), GLXPbuffer(0));
        // Somebody else finds out the hard way, and the connection can be closed all the same.
        elsewhere([&] { XSync(scene.dpy, False); });
    });
    setenv("DISPLAY", before.c_str(), 1);
    const std::string line = "X server " + server.name + " is gone\n";
    const size_t first = printed.err.find(line);
    EXPECT_NE(first, std::string::npos) << printed.err;
    EXPECT_EQ(printed.err.find(line, first + 1), std::string::npos) << printed.err;

    GLScene alive;  // others go on
    ASSERT_TRUE(glXMakeCurrentQTN(alive.dpy, alive.pbuffer(8, 8), alive.context()));
    clearTo(0, 1, 0, 1);
    EXPECT_EQ(readBack(1, 1), (Bytes{0, 255, 0, 255}));
}

}  // namespace
