// glFixture.cpp - see glFixture.h.
#include "tests/gl/glFixture.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "window/ScratchWindow.h"

Display* connection()
{
    static Display* const dpy = XOpenDisplay(nullptr);
    EXPECT_NE(dpy, nullptr) << "run under an X server";
    return dpy;
}

namespace {

uint8_t level(double value) { return uint8_t(std::lround(std::clamp(value, 0.0, 255.0))); }

// Calls `act` with the connection and the X window of the node, and binds again what
// was current.
template <class Act> void withWindow(const kivGLDisplay& display, Act act)
{
    Display* const dpy = glXGetCurrentDisplay();
    const GLXDrawable draw = glXGetCurrentDrawable(), read = glXGetCurrentReadDrawable();
    const GLXContext context = glXGetCurrentContext();
    display.window->setContext();
    act(glXGetCurrentDisplay(), glXGetCurrentDrawable());
    glXMakeCurrentReadQTN(dpy, draw, read, context);
}

}  // namespace

// Over the window's own connection, after all that was sent there.
Colours shownBy(const kivGLDisplay& display)
{
    Colours colours;
    withWindow(display, [&](Display* dpy, Window window) {
        const unsigned width = unsigned(display.winSizeX), height = unsigned(display.winSizeY);
        XImage* image = XGetImage(dpy, window, 0, 0, width, height, AllPlanes, ZPixmap);
        ASSERT_NE(image, nullptr);
        for (int y = 0; y < display.winSizeY; ++y)
            for (int x = 0; x < display.winSizeX; ++x)
                colours.push_back(uint32_t(XGetPixel(image, x, y)) & 0xffffff);
        XDestroyImage(image);
    });
    return colours;
}

// The outermost of the windows that hold it moves.
void moveWindow(const kivGLDisplay& display, int x, int y)
{
    withWindow(display, [&](Display* dpy, Window window) {
        Window root = None, parent = window;
        while (parent != root) {
            Window* children = nullptr;
            unsigned count = 0;
            window = parent;
            XQueryTree(dpy, window, &root, &parent, &children, &count);
            XFree(children);
        }
        XMoveWindow(dpy, window, x, y);
        XSync(dpy, False);
    });
}

Bytes noise(size_t bytes, unsigned seed)
{
    std::mt19937 random(seed);
    Bytes all(bytes);
    for (uint8_t& byte : all)
        byte = uint8_t(random());
    return all;
}

void fill(ZVbuffer buffer, const Bytes& bytes) { std::memcpy(zvBufferMapData(buffer), bytes.data(), bytes.size()); }

Bytes bytesOf(ZVbuffer buffer, size_t count)
{
    const auto* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    return data != nullptr ? Bytes(data, data + count) : Bytes();
}

Colours coloursOf(const Bytes& rgba)
{
    Colours colours;
    for (size_t i = 0; i + 3 < rgba.size(); i += 4)
        colours.push_back(uint32_t(rgba[i]) << 16 | uint32_t(rgba[i + 1]) << 8 | rgba[i + 2]);
    return colours;
}

Bytes bytesOfColours(const Colours& colours)
{
    Bytes rgba;
    for (const uint32_t colour : colours)
        rgba.insert(rgba.end(), {uint8_t(colour >> 16), uint8_t(colour >> 8), uint8_t(colour), 255});
    return rgba;
}

Bytes hues422(int width, int height)
{
    std::mt19937 random(5);
    Bytes bytes;
    for (int y = 0; y < height; ++y)
        for (int pair = 0; pair < width / 2; ++pair)
            bytes.insert(bytes.end(),
                         {uint8_t(255 * pair / (width / 2 - 1)), uint8_t(random()), uint8_t(255 * y / (height - 1)),
                          uint8_t(random())});
    return bytes;
}

Bytes rgbaOf422(const Bytes& cbycry, bool fullRange)
{
    const double luma = fullRange ? 1.0 : 255.0 / 219, chroma = fullRange ? 1.0 : 255.0 / 224;
    Bytes rgba;
    for (size_t i = 0; i + 3 < cbycry.size(); i += 4) {
        const double cb = (cbycry[i] - 128) * chroma, cr = (cbycry[i + 2] - 128) * chroma;
        for (const size_t at : {i + 1, i + 3}) {
            const double y = (cbycry[at] - (fullRange ? 0 : 16)) * luma;
            const double green = y - (0.114 * 1.772 * cb + 0.299 * 1.402 * cr) / 0.587;
            rgba.insert(rgba.end(), {level(y + 1.402 * cr), level(green), level(y + 1.772 * cb), 255});
        }
    }
    return rgba;
}

int farthest(const Bytes& a, const Bytes& b)
{
    if (a.size() != b.size())
        return 256;
    int most = 0;
    for (size_t i = 0; i < a.size(); ++i)
        most = std::max(most, std::abs(a[i] - b[i]));
    return most;
}
