// scratchWindowTest.cpp - the ready-made window: what is on the screen, its events, its end.
#include <gtest/gtest.h>  // before X, whose macros it cannot stand

#include "window/ScratchWindow.h"

#include <GL/gl.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/replace.h"
#include "tests/x11/xPeer.h"
#include "window/glwDrawingArea.h"

namespace {

using Scratch = std::unique_ptr<scratchWindow>;

Scratch makeWindow(int width, int height)
{
    return Scratch(static_cast<scratchWindow*>(ScratchWindow::create(nullptr, width, height, nullptr, nullptr)));
}

void fill(ScratchWindow& window, float red, float green, float blue)
{
    window.setContext();
    glClearColor(red, green, blue, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glXSwapBuffers(glXGetCurrentDisplay(), glXGetCurrentDrawable());
    glFinish();
    XSync(glXGetCurrentDisplay(), False);
}

bool allOf(const WindowPicture& picture, uint32_t pixel)
{
    return std::ranges::all_of(picture.pixels, [pixel](uint32_t p) { return p == pixel; });
}

// Handles events until `done`; the test's own limit of time ends it otherwise.
template <class Done> void handleUntil(scratchWindow& window, Done done)
{
    while (window.handleEvents() && !done()) {
        pollfd one = {window.getEventFD(), POLLIN, 0};
        poll(&one, 1, -1);
    }
}

char exposeCallback[] = GLwNexposeCallback, resizeCallback[] = GLwNresizeCallback, inputCallback[] = GLwNinputCallback;

struct Seen {
    int reason = 0, type = 0, calls = 0;
    int width = 0, height = 0;
    unsigned keyOrButton = 0;
};

void remember(Widget, XtPointer to, XtPointer call)
{
    const auto& data = *static_cast<GLwDrawingAreaCallbackStruct*>(call);
    Seen& seen = *static_cast<Seen*>(to);
    ++seen.calls;
    seen.reason = data.reason;
    seen.type = data.event != nullptr ? data.event->type : 0;
    seen.width = data.width;
    seen.height = data.height;
    if (data.reason == GLwCR_INPUT)
        seen.keyOrButton = data.event->xkey.keycode;  // the button stands in the same place
}

TEST(ScratchWindow, ShowsWhatWasDrawnInTheSizeAskedFor)
{
    XPeer peer;
    const Scratch window = makeWindow(640, 480);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->getWidth(), 640);
    EXPECT_EQ(window->getHeight(), 480);
    EXPECT_EQ(window->getBufferSize(), 1228800);
    EXPECT_EQ(glXGetCurrentContext(), window->getContext());

    // The buffer that was cleared at creation comes to the screen with the first swap.
    const Window area = peer.drawingArea();
    glXSwapBuffers(glXGetCurrentDisplay(), glXGetCurrentDrawable());
    XSync(glXGetCurrentDisplay(), False);
    const WindowPicture black = peer.picture(area);
    EXPECT_EQ(black.width, 640);
    EXPECT_EQ(black.height, 480);
    EXPECT_TRUE(allOf(black, 0x000000));

    fill(*window, 1, 0.5F, 0);
    EXPECT_TRUE(allOf(peer.picture(area), 0xff8000));
}

TEST(ScratchWindow, HandsExposuresResizesAndInputToItsCallbacks)
{
    XPeer peer;
    const Scratch window = makeWindow(300, 200);
    const Window area = peer.drawingArea();
    Seen exposed, resized, input;
    window->addGLCallback(exposeCallback, remember, &exposed);
    window->addGLCallback(resizeCallback, remember, &resized);
    window->addGLCallback(inputCallback, remember, &input);

    handleUntil(*window, [&] { return exposed.calls > 0; });
    EXPECT_EQ(exposed.reason, GLwCR_EXPOSE);
    EXPECT_EQ(exposed.type, Expose);
    EXPECT_EQ(exposed.width, 300);
    EXPECT_EQ(exposed.height, 200);
    EXPECT_EQ(resized.calls, 0);

    for (KeySym key : {XK_space, XK_Left, XK_Right, XK_Tab}) {
        const int before = input.calls;
        peer.key(area, key);
        handleUntil(*window, [&] { return input.calls == before + 2; });
        EXPECT_EQ(input.reason, GLwCR_INPUT);
        EXPECT_EQ(input.type, KeyRelease);
        EXPECT_EQ(input.keyOrButton, XKeysymToKeycode(peer.display(), key));
    }
    peer.button(area, 3, 10, 20);
    handleUntil(*window, [&] { return input.type == ButtonRelease; });
    EXPECT_EQ(input.keyOrButton, 3U);

    // The frame around it keeps its width.
    XWindowAttributes shell;
    ASSERT_TRUE(XGetWindowAttributes(peer.display(), peer.shellOf(area), &shell));
    peer.resize(peer.shellOf(area), shell.width + 100, shell.height + 50);
    handleUntil(*window, [&] { return resized.calls > 0; });
    EXPECT_EQ(resized.width, 400);
    EXPECT_EQ(resized.height, 250);
    EXPECT_EQ(peer.picture(area).width, 400);
    EXPECT_EQ(window->getWidth(), 300) << "as requested";
}

TEST(ScratchWindow, LoopServesInputsAndEndsWhenTheWindowIsClosed)
{
    const Scratch window = makeWindow(100, 100);
    struct Service {
        int fd = eventfd(1, EFD_CLOEXEC);
        Window area = None;
        bool served = false;
    } service;
    service.area = XtWindow(window->getDrawingArea());
    window->addInput(
        service.fd,
        [](XtPointer data, int* fd, XtInputId*) {
            Service& one = *static_cast<Service*>(data);
            eventfd_t value;
            eventfd_read(*fd, &value);
            one.served = true;
            XPeer peer;
            peer.askToClose(peer.shellOf(one.area));
        },
        &service);
    window->eventLoop();
    EXPECT_TRUE(service.served);
    EXPECT_FALSE(window->handleEvents());
    EXPECT_TRUE(window->hasServer());
    window->eventLoop();  // returns at once from now on
    close(service.fd);
}

TEST(ScratchWindow, LoopCanBeEndedFromWithin)
{
    const Scratch window = makeWindow(100, 100);
    window->addGLCallback(
        exposeCallback, [](Widget, XtPointer w, XtPointer) { static_cast<scratchWindow*>(w)->endLoop(); },
        window.get());
    window->eventLoop();
}

struct Painter {
    Scratch window;
    uint32_t colour;
};

void paint(Widget, XtPointer painter, XtPointer)
{
    const Painter& one = *static_cast<Painter*>(painter);
    fill(*one.window, float(one.colour >> 16) / 255, float(one.colour >> 8 & 255) / 255, float(one.colour & 255) / 255);
}

// Two windows in one loop, until both are closed.
void showTwo(uint32_t colour)
{
    Painter painters[] = {{makeWindow(120, 80), colour}, {makeWindow(90, 60), ~colour & 0xffffff}};
    pollfd fds[2];
    for (int i = 0; i < 2; ++i) {
        painters[i].window->addGLCallback(exposeCallback, paint, &painters[i]);
        fds[i] = {painters[i].window->getEventFD(), POLLIN, 0};
    }
    for (bool open[] = {true, true}; open[0] || open[1]; poll(fds, 2, open[0] || open[1] ? -1 : 0))
        for (int i = 0; i < 2; ++i)
            if (open[i] && !(open[i] = painters[i].window->handleEvents()))
                fds[i].fd = -1;
}

TEST(ScratchWindow, WindowsOnSeveralThreadsShowEachItsOwn)
{
    XPeer peer;
    std::vector<std::thread> threads;
    for (uint32_t colour : {0xff0000U, 0x00ff00U, 0x0000ffU})
        threads.emplace_back(showTwo, colour);
    const std::vector<Window> areas = peer.drawingAreas(6);
    ASSERT_EQ(areas.size(), 6U);
    for (size_t i = 0; i < areas.size(); ++i)  // what lies over another window hurts it
        XMoveWindow(peer.display(), peer.shellOf(areas[i]), int(i) * 150, 0);

    const std::vector<uint32_t> expected = {0x0000ff, 0x00ff00, 0x00ffff, 0xff0000, 0xff00ff, 0xffff00};
    std::vector<uint32_t> shown;
    peer.pictureWhen(areas.front(), [&](const WindowPicture&) {
        shown.clear();
        for (Window area : areas)
            if (const WindowPicture picture = peer.picture(area); allOf(picture, picture.at(0, 0)))
                shown.push_back(picture.at(0, 0));
        std::ranges::sort(shown);
        return shown == expected;
    });
    EXPECT_EQ(shown, expected);
    for (Window area : areas)
        peer.askToClose(peer.shellOf(area));
    for (std::thread& thread : threads)
        thread.join();
}

TEST(ScratchWindow, TakesTheToolkitsOptionsAndLeavesTheRest)
{
    XPeer peer;
    std::string words[] = {"/usr/bin/camera", "-name", "north", "-title", "North gate", "--mine", "7"};
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int argc = int(std::size(words));
    const Scratch window(static_cast<scratchWindow*>(ScratchWindow::create(nullptr, 64, 48, &argc, argv.data())));
    ASSERT_NE(window, nullptr);
    ASSERT_EQ(argc, 3);
    EXPECT_STREQ(argv[0], "/usr/bin/camera");
    EXPECT_STREQ(argv[1], "--mine");
    EXPECT_STREQ(argv[2], "7");

    const Window shell = peer.shellOf(peer.drawingArea());
    XClassHint hint = {};
    char* title = nullptr;
    char** command = nullptr;
    int words_ = 0;
    ASSERT_TRUE(XGetClassHint(peer.display(), shell, &hint));
    EXPECT_STREQ(hint.res_name, "north");
    EXPECT_STREQ(hint.res_class, "libkivScratchWindow");
    ASSERT_TRUE(XFetchName(peer.display(), shell, &title));
    EXPECT_STREQ(title, "North gate");
    ASSERT_TRUE(XGetCommand(peer.display(), shell, &command, &words_));
    EXPECT_EQ(words_, 7) << "the whole command";
    XFreeStringList(command);
    for (char* text : {hint.res_name, hint.res_class, title})
        XFree(text);
}

TEST(ScratchWindow, WithoutADisplaySaysSoOnceAndDoesNothing)
{
    OtherDisplay none(":77");
    const Printed printed
        = capture([] { EXPECT_EQ(ScratchWindow::create(nullptr, 10, 10, nullptr, nullptr), nullptr); });
    EXPECT_EQ(printed.err, "Scratch window - can't open display ':77'\n");

    testing::internal::CaptureStderr();
    scratchWindow invalid(10, 10, nullptr, nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_FALSE(invalid.isValid());
    EXPECT_FALSE(invalid.hasServer());
    EXPECT_FALSE(invalid.handleEvents());
    EXPECT_EQ(invalid.getEventFD(), -1);
    EXPECT_EQ(invalid.getContext(), nullptr);
    EXPECT_EQ(invalid.getAppContext(), nullptr);
    invalid.addGLCallback(exposeCallback, remember, nullptr);
    invalid.addInput(0, nullptr, nullptr);
    invalid.endLoop();
    invalid.eventLoop();
}

TEST(ScratchWindow, OutlivesItsServer)
{
    XServer server;
    ASSERT_FALSE(server.name().empty());
    std::unique_ptr<OtherDisplay> there = std::make_unique<OtherDisplay>(server.name().c_str());
    Scratch window = makeWindow(100, 80);
    there.reset();
    const Printed printed = capture([&] {
        server.end();
        window->eventLoop();
    });
    EXPECT_EQ(printed.err, "X server " + server.name() + " is gone\n");
    EXPECT_FALSE(window->hasServer());
    EXPECT_FALSE(window->handleEvents());
    window.reset();

    // Another window is none the worse for it.
    XPeer peer;
    const Scratch next = makeWindow(50, 50);
    ASSERT_NE(next, nullptr);
    fill(*next, 0, 1, 0);
    EXPECT_TRUE(allOf(peer.picture(peer.drawingArea()), 0x00ff00));
}

TEST(ScratchWindowDeathTest, EndsTheProcessForASizeOfNothing)
{
    EXPECT_DEATH(makeWindow(0, 10), "0 < width");
    EXPECT_DEATH(makeWindow(10, -1), "0 < height");
}

// What the graphics library answers in place of itself; -1: it answers for itself.
int visualsLeft = -1;
bool withoutAbgr = false;

TEST(ScratchWindow, WithoutAVisualThereIsNoWindow)
{
    for (int left : {0, 1}) {  // none for the check, none for the drawing area
        visualsLeft = left;
        const Printed printed
            = capture([] { EXPECT_EQ(ScratchWindow::create(nullptr, 10, 10, nullptr, nullptr), nullptr); });
        visualsLeft = -1;
        EXPECT_TRUE(printed.err.ends_with("Scratch window - can't get visual\n")) << printed.err;
    }
    XPeer peer;
    EXPECT_EQ(peer.drawingAreas(1, 0).size(), 0U);
}

TEST(ScratchWindow, WithoutTheByteOrderExtensionItSaysSoAndWorks)
{
    withoutAbgr = true;
    Scratch window;
    const Printed printed = capture([&] { window = makeWindow(40, 30); });
    withoutAbgr = false;
    EXPECT_EQ(printed.out, "ABGR extension is not present.\n");
    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(window->isValid());
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) XVisualInfo* glXChooseVisual(Display* display, int screen, int* attributes)
{
    if (visualsLeft == 0)
        return nullptr;
    if (visualsLeft > 0)
        --visualsLeft;
    return realFunction("glXChooseVisual", glXChooseVisual)(display, screen, attributes);
}

__attribute__((visibility("default"))) const GLubyte* glGetString(GLenum name)
{
    if (withoutAbgr && name == GL_EXTENSIONS)
        return reinterpret_cast<const GLubyte*>("GL_EXT_bgra");
    return realFunction("glGetString", glGetString)(name);
}
}
