// xPeer.cpp - see xPeer.h.
#include <gtest/gtest.h>  // before X, whose macros it cannot stand

#include "tests/x11/xPeer.h"

#include <X11/Xutil.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

Display* peerDisplay = nullptr;  // whose errors are expected: windows come and go
int (*otherErrors)(Display*, XErrorEvent*) = nullptr;

int ignorePeerErrors(Display* display, XErrorEvent* error)
{
    return display == peerDisplay ? 0 : otherErrors(display, error);
}

long long nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void waitForEvents(Display* display, long long untilMs)
{
    pollfd one = {ConnectionNumber(display), POLLIN, 0};
    poll(&one, 1, int(std::max(0LL, untilMs - nowMs())));
    XEvent event;
    while (XPending(display) > 0)
        XNextEvent(display, &event);
}

std::vector<Window> childrenOf(Display* display, Window window)
{
    Window root, parent, *list = nullptr;
    unsigned count = 0;
    if (!XQueryTree(display, window, &root, &parent, &list, &count))
        return {};
    std::vector<Window> children(list, list + count);
    XFree(list);
    return children;
}

}  // namespace

XPeer::XPeer() : display_(XOpenDisplay(nullptr)), others_(nullptr)
{
    if (display_ == nullptr)
        abort();
    peerDisplay = display_;
    otherErrors = others_ = XSetErrorHandler(ignorePeerErrors);
    XSelectInput(display_, DefaultRootWindow(display_), SubstructureNotifyMask);
    before_ = childrenOf(display_, DefaultRootWindow(display_));
}

XPeer::~XPeer()
{
    XSetErrorHandler(others_);
    XCloseDisplay(display_);
}

static Window innermost(Display* display, Window window)
{
    const std::vector<Window> children = childrenOf(display, window);
    return children.empty() ? window : innermost(display, children.front());
}

static bool isScratchWindow(Display* display, Window shell)
{
    XWindowAttributes attributes;
    XClassHint hint = {};
    if (!XGetWindowAttributes(display, shell, &attributes) || attributes.map_state != IsViewable
        || !XGetClassHint(display, shell, &hint))
        return false;
    const bool is = strcmp(hint.res_class, "libkivScratchWindow") == 0;
    XFree(hint.res_name);
    XFree(hint.res_class);
    return is;
}

std::vector<Window> XPeer::drawingAreas(size_t count, int limitMs)
{
    const long long until = nowMs() + limitMs;
    for (;;) {
        std::vector<Window> found;
        for (Window shell : childrenOf(display_, DefaultRootWindow(display_)))
            if (std::ranges::count(before_, shell) == 0 && isScratchWindow(display_, shell))
                found.push_back(innermost(display_, shell));
        if (found.size() >= count || nowMs() > until)
            return found;
        waitForEvents(display_, until);
    }
}

Window XPeer::drawingArea()
{
    const std::vector<Window> found = drawingAreas(1);
    EXPECT_EQ(found.size(), 1U) << "scratch windows on the screen";
    return found.empty() ? Window(None) : found.front();
}

Window XPeer::shellOf(Window window)
{
    Window root = None, parent = window, *list = nullptr;
    unsigned count = 0;
    while (parent != None && parent != root) {
        window = parent;
        if (!XQueryTree(display_, window, &root, &parent, &list, &count))
            return None;
        XFree(list);
    }
    return window;
}

WindowPicture XPeer::picture(Window window)
{
    XWindowAttributes attributes;
    XRaiseWindow(display_, shellOf(window));
    if (!XGetWindowAttributes(display_, window, &attributes) || attributes.map_state != IsViewable)
        return {};
    XImage* image = XGetImage(display_, window, 0, 0, unsigned(attributes.width), unsigned(attributes.height),
                              AllPlanes, ZPixmap);
    if (image == nullptr)
        return {};
    WindowPicture picture = {image->width, image->height, {}};
    for (int y = 0; y < image->height; ++y)
        for (int x = 0; x < image->width; ++x)
            picture.pixels.push_back(uint32_t(XGetPixel(image, x, y)) & 0xffffff);
    XDestroyImage(image);
    return picture;
}

// Nothing tells a client what another one has drawn: it looks again and again.
WindowPicture XPeer::pictureWhen(Window window, const std::function<bool(const WindowPicture&)>& good, int limitMs)
{
    const long long until = nowMs() + limitMs;
    for (;;) {
        WindowPicture seen = picture(window);
        if ((!seen.pixels.empty() && good(seen)) || nowMs() > until)
            return seen;
        waitForEvents(display_, std::min(until, nowMs() + 10));
    }
}

void XPeer::key(Window window, KeySym key)
{
    XEvent event = {};
    event.xkey.window = window;
    event.xkey.root = DefaultRootWindow(display_);
    event.xkey.keycode = XKeysymToKeycode(display_, key);
    event.xkey.same_screen = True;
    event.type = KeyPress;
    XSendEvent(display_, window, False, KeyPressMask, &event);
    event.type = KeyRelease;
    XSendEvent(display_, window, False, KeyReleaseMask, &event);
    XSync(display_, False);
}

void XPeer::button(Window window, int button, int x, int y)
{
    XEvent event = {};
    event.xbutton.window = window;
    event.xbutton.root = DefaultRootWindow(display_);
    event.xbutton.button = unsigned(button);
    event.xbutton.x = x;
    event.xbutton.y = y;
    event.xbutton.same_screen = True;
    event.type = ButtonPress;
    XSendEvent(display_, window, False, ButtonPressMask, &event);
    event.type = ButtonRelease;
    XSendEvent(display_, window, False, ButtonReleaseMask, &event);
    XSync(display_, False);
}

void XPeer::expose(Window window, int x, int y, int width, int height)
{
    XEvent event = {};
    event.type = Expose;
    event.xexpose.window = window;
    event.xexpose.x = x;
    event.xexpose.y = y;
    event.xexpose.width = width;
    event.xexpose.height = height;
    XSendEvent(display_, window, False, ExposureMask, &event);
    XSync(display_, False);
}

void XPeer::resize(Window shell, int width, int height)
{
    XResizeWindow(display_, shell, unsigned(width), unsigned(height));
    XSync(display_, False);
}

void XPeer::askToClose(Window shell)
{
    XEvent event = {};
    event.type = ClientMessage;
    event.xclient.window = shell;
    event.xclient.message_type = XInternAtom(display_, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = long(XInternAtom(display_, "WM_DELETE_WINDOW", False));
    event.xclient.data.l[1] = CurrentTime;
    XSendEvent(display_, shell, False, NoEventMask, &event);
    XSync(display_, False);
}

XServer::XServer()
{
    int numberPipe[2];
    if (pipe(numberPipe) != 0)
        abort();
    const pid_t parent = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
        dup2(numberPipe[1], STDOUT_FILENO);
        close(numberPipe[0]);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        execlp("Xvfb", "Xvfb", "-displayfd", "1", "-screen", "0", "640x480x24", "-noreset", "-nolisten", "tcp",
               nullptr);
        _exit(127);
    }
    close(numberPipe[1]);
    char c;
    while (read(numberPipe[0], &c, 1) == 1 && c != '\n')
        name_ += c;
    close(numberPipe[0]);
    if (!name_.empty())
        name_ = ":" + name_;
}

XServer::~XServer() { end(); }

void XServer::end()
{
    if (pid_ <= 0)
        return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

static void setDisplay(const char* name)
{
    if (name != nullptr)
        setenv("DISPLAY", name, 1);
    else
        unsetenv("DISPLAY");
}

OtherDisplay::OtherDisplay(const char* name) : before_(getenv("DISPLAY") != nullptr ? getenv("DISPLAY") : "")
{
    setDisplay(name);
}

OtherDisplay::~OtherDisplay() { setDisplay(before_.c_str()); }
