// glScene.cpp - see glScene.h.
#include <gtest/gtest.h>

#include "tests/platform/glx/glScene.h"

#include <X11/Xutil.h>

#include <cstring>
#include <thread>

Bytes numbered(int width, int height, int seed)
{
    Bytes bytes(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* pixel = &bytes[(size_t(y) * width + x) * 4];
            pixel[0] = uint8_t(x * 3 + seed);
            pixel[1] = uint8_t(y * 5 + seed);
            pixel[2] = uint8_t(x + y * 7);
            pixel[3] = uint8_t(255 - x - y);
        }
    }
    return bytes;
}

GLScene::GLScene(int depth) : dpy(glXOpenDisplayQTN(nullptr))
{
    const int attributes[] = {GLX_RENDER_TYPE_QTNX,
                              1,
                              GLX_DRAWABLE_TYPE_QTNX,
                              5,
                              GLX_ALPHA_SIZE,
                              8,
                              GLX_RED_SIZE,
                              8,
                              GLX_GREEN_SIZE,
                              8,
                              GLX_BLUE_SIZE,
                              8,
                              GLX_DEPTH_SIZE,
                              depth,
                              0};
    int n = 0;
    GLXFBConfigQTNX* found = glXChooseFBConfigQTNX(dpy, 0, attributes, &n);
    if (found == nullptr || n == 0) {
        ADD_FAILURE() << "no configuration: " << zvGetError(nullptr, nullptr);
        return;
    }
    config = found[0];
    XFree(found);
}

GLScene::~GLScene()
{
    glXMakeCurrentQTN(dpy, None, nullptr);
    for (GLXContext context : contexts_)
        glXDestroyContextQTN(dpy, context);
    for (GLXPbuffer pbuffer : pbuffers_)
        glXDestroyGLXPbufferQTNX(dpy, pbuffer);
    if (dpy != nullptr)
        XCloseDisplay(dpy);
}

GLXContext GLScene::context()
{
    contexts_.push_back(glXCreateContextWithConfigQTNX(dpy, config, GLX_RGBA_TYPE_QTNX, nullptr, True));
    EXPECT_NE(contexts_.back(), nullptr);
    return contexts_.back();
}

GLXPbuffer GLScene::pbuffer(int width, int height)
{
    int attributes[] = {GLX_PRESERVED_CONTENTS_QTNX, 1, GLX_ZV_BUFFER_QTN, 1, 0};
    pbuffers_.push_back(glXCreateGLXPbufferQTNX(dpy, config, unsigned(width), unsigned(height), attributes));
    EXPECT_NE(pbuffers_.back(), None);
    return pbuffers_.back();
}

Window GLScene::window(int width, int height)
{
    XVisualInfo* visual = glXGetVisualFromFBConfig(dpy, config);
    XSetWindowAttributes values = {};
    values.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    const Window made = XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, unsigned(width), unsigned(height), 0,
                                      visual->depth, InputOutput, visual->visual, CWColormap | CWBorderPixel, &values);
    XFree(visual);
    XMapWindow(dpy, made);
    XSync(dpy, False);
    return made;
}

ImageParams::ImageParams(int width, int height)
{
    zvParamsCreate(&params_);
    zvSetImageDefaults(params_, width, height, ZV_IMAGE_PACKING_RGBA);
}

ImageParams::~ImageParams() { zvParamsDestroy(params_); }

Bytes bytesOf(ZVbuffer buffer, size_t bytes)
{
    const uint8_t* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    return Bytes(data, data + bytes);
}

void fill(ZVbuffer buffer, const Bytes& bytes) { memcpy(zvBufferMapData(buffer), bytes.data(), bytes.size()); }

Bytes readBack(int width, int height)
{
    Bytes bytes(size_t(width) * height * 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    return bytes;
}

void clearTo(float red, float green, float blue, float alpha)
{
    glClearColor(red, green, blue, alpha);
    glClear(GL_COLOR_BUFFER_BIT);
}

Bytes solid(int width, int height, uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha)
{
    Bytes bytes(size_t(width) * height * 4);
    const uint8_t pixel[4] = {red, green, blue, alpha};
    for (size_t i = 0; i < bytes.size(); i += 4)
        memcpy(&bytes[i], pixel, 4);
    return bytes;
}

void elsewhere(const std::function<void()>& work) { std::thread(work).join(); }
