// xPeer.h - what another program sees of an X server: windows, their pixels, events for them.
#pragma once

#include <X11/Xlib.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// What a window shows.
struct WindowPicture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;  // 0xRRGGBB, top row first
    uint32_t at(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
};

// A connection of the test's own, for one thread.
class XPeer {
public:
    XPeer();  // to the default display
    ~XPeer();
    XPeer(const XPeer&) = delete;
    XPeer& operator=(const XPeer&) = delete;

    Display* display() const { return display_; }
    // The drawing areas of the scratch windows on the screen that were not there when this
    // was made, when there are `count` of them; fewer when the limit passes.
    std::vector<Window> drawingAreas(size_t count, int limitMs = 20000);
    // The only one; None without.
    Window drawingArea();
    Window shellOf(Window window);  // the child of the root around it
    WindowPicture picture(Window window);  // empty when it cannot be read; raises it first
    // Reads until `good` likes the picture; the last one read.
    WindowPicture pictureWhen(Window window, const std::function<bool(const WindowPicture&)>& good,
                              int limitMs = 20000);

    void key(Window window, KeySym key);  // pressed and let go
    void button(Window window, int button, int x, int y);
    void expose(Window window, int x, int y, int width, int height);
    void resize(Window shell, int width, int height);
    void askToClose(Window shell);  // what a window manager does

private:
    Display* display_;
    std::vector<Window> before_;  // children of the root
    int (*others_)(Display*, XErrorEvent*);
};

// An X server of its own, besides the one that the test runs under.
class XServer {
public:
    XServer();
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    const std::string& name() const { return name_; }  // ":1"; empty when none could be started
    void end();  // at once

private:
    std::string name_;
    pid_t pid_ = -1;
};

// Gives the environment variable DISPLAY another value while it stands; null takes it away.
class OtherDisplay {
public:
    explicit OtherDisplay(const char* name);
    ~OtherDisplay();

private:
    std::string before_;
};
