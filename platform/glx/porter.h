// porter.h - carries pictures between memory and pbuffers.
#pragma once

#include <GL/gl.h>
#include <GL/glx.h>

#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/glx/connection.h"
#include "platform/glx/imageRows.h"

namespace kiv::glx {

// Rows of R, G, B, A bytes in memory; memory row 0 is GL row 0.
struct Picture {
    uint8_t* bytes;
    int width, height;
    int stride;  // bytes
};

// Where a picture goes that needs no more than copying.
struct Place {
    int x, top;  // left column, and the row above the topmost one, of the drawable
    int zoomX, zoomY;  // 1 or more
    bool down;  // the first row is the topmost
    bool everyOther;  // one row is drawn, the next is not
};

// What is current on the calling thread, put back at the end. What the application
// drew into `used` is finished first, so that another context can read it.
class KeepCurrent {
public:
    explicit KeepCurrent(GLXDrawable used);
    ~KeepCurrent();
    KeepCurrent(const KeepCurrent&) = delete;
    KeepCurrent& operator=(const KeepCurrent&) = delete;

private:
    Display* dpy_;
    Display* workDpy_ = nullptr;
    GLXDrawable draw_, read_;
    GLXContext context_;
};

// A context of the layer's own, for drawables of one configuration on one connection.
// No state of an application's context is touched, no name of its is taken. One thread
// at a time: what comes while it works waits.
class Porter {
public:
    Porter(Display* dpy, GLXContext context, int configId) : dpy_(dpy), context_(context), configId_(configId) { }
    ~Porter();
    Porter(const Porter&) = delete;
    Porter& operator=(const Porter&) = delete;

    // Into the lower left corner of the drawable, and from there. 0 or -1.
    int upload(GLXDrawable drawable, const Picture& from);
    int download(GLXDrawable drawable, const Picture& to);
    // Pixel for pixel into a drawable that is current on this thread in another context.
    int draw(GLXDrawable drawable, const ImageRows& image, const Place& place);

    int configId() const { return configId_; }
    Porter* next = nullptr;

private:
    bool begin(GLXDrawable drawable, int width, int height);
    void fetch(const ImageRows& image, const Place& place);
    void fillRows(const ImageRows& image, const Place& place);
    int finish();

    Display* const dpy_;
    const GLXContext context_;
    const int configId_;
    std::mutex lock_;  // guards the context and what follows
    GLuint texture_ = 0, framebuffer_ = 0;
    int width_ = 0, height_ = 0;  // of the texture
    std::unique_ptr<uint8_t[]> band_;  // rows on their way, of that width
};

// Made on first use; null, with an error recorded, when it cannot be had.
Porter* porterFor(Display* dpy, GLXFBConfig config);
void destroyPorters(Connection& connection);

}  // namespace kiv::glx
