// porter.cpp - see porter.h.
//
// The software rasteriser keeps pbuffers as B, G, R, A with the rows the other way
// round. A copy between a texture of just that form and a pbuffer is a copy of memory;
// anything else goes through shaders, at four times the cost. So we turn bytes and
// rows ourselves, a band of rows at a time, which stays in cache.
#define GL_GLEXT_PROTOTYPES
#include "platform/glx/porter.h"

#include <GL/glext.h>
#include <libyuv.h>

#include <algorithm>
#include <new>

#include "platform/glx/xErrors.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

constexpr int bandRows = 64;

}  // namespace

KeepCurrent::KeepCurrent(GLXDrawable used)
    : dpy_(glXGetCurrentDisplay()), draw_(glXGetCurrentDrawable()), read_(glXGetCurrentReadDrawable()),
      context_(glXGetCurrentContext())
{
    if (context_ != nullptr && (draw_ == used || read_ == used))
        glFinish();
}

KeepCurrent::~KeepCurrent()
{
    if (context_ == nullptr) {
        if (Display* now = glXGetCurrentDisplay(); now != nullptr)
            glXMakeContextCurrent(now, None, None, nullptr);
    } else if (!makeCurrent(dpy_, draw_, read_, context_)) {
        makeCurrent(dpy_, draw_, draw_, context_);  // somebody destroyed what was read
    }
}

Porter::~Porter()
{
    if (isAlive(dpy_))
        glXDestroyContext(dpy_, context_);
}

// The context current on the drawable, with a texture and a band of that size.
bool Porter::begin(GLXDrawable drawable, int width, int height)
{
    if (!makeCurrent(dpy_, drawable, drawable, context_)) {
        recordError(ZV_ERROR_SYSTEM, "a drawable cannot be made current");
        return false;
    }
    if (texture_ == 0) {
        glGenTextures(1, &texture_);
        glGenFramebuffers(1, &framebuffer_);
        glBindTexture(GL_TEXTURE_2D, texture_);
    }
    if (width > width_ || height > height_) {
        width_ = std::max(width, width_);
        height_ = std::max(height, height_);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width_, height_, 0, GL_BGRA, GL_UNSIGNED_BYTE, nullptr);
        band_.reset(new (std::nothrow) uint8_t[size_t(width_) * 4 * (bandRows + 1)]);
    }
    if (band_ != nullptr && glGetError() == GL_NO_ERROR)
        return true;
    width_ = height_ = 0;
    recordError(ZV_ERROR_MEMORY, "no texture of %d x %d", width, height);
    return false;
}

// The rows of the place as they are, into the texture.
void Porter::fetch(const ImageRows& image, const Place& place)
{
    const int w = image.width * place.zoomX;
    const int h = image.height * place.zoomY * 2;
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer_);
    glFramebufferTexture2D(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
    glBlitFramebuffer(place.x, place.top - h, place.x + w, place.top, 0, h, w, 0, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
}

// The image into the texture, the topmost row first.
void Porter::fillRows(const ImageRows& image, const Place& place)
{
    const int w = image.width * place.zoomX;
    const int n = image.height * place.zoomY;
    const int atOnce = place.everyOther ? 1 : bandRows;
    uint8_t* const spare = band_.get() + size_t(w) * 4 * bandRows;  // a row before it is widened
    for (int first = 0; first < n; first += atOnce) {
        const int rows = std::min(atOnce, n - first);
        uint8_t* out = band_.get();
        for (int i = first; i < first + rows; ++i, out += size_t(w) * 4) {
            const int row = (place.down ? i : n - 1 - i) / place.zoomY;
            image.read(row, place.zoomX == 1 ? out : spare);
            if (place.zoomX != 1)
                widen(spare, out, image.width, place.zoomX);
        }
        const int at = place.everyOther ? 2 * first : first;
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, at, w, rows, GL_BGRA, GL_UNSIGNED_BYTE, band_.get());
    }
}

int Porter::finish()
{
    glFinish();
    return glGetError() == GL_NO_ERROR ? 0 : recordError(ZV_ERROR_SYSTEM, "GL refuses a picture");
}

int Porter::draw(GLXDrawable drawable, const ImageRows& image, const Place& place)
{
    std::lock_guard guard(lock_);
    const KeepCurrent keep(drawable);
    const int w = image.width * place.zoomX;
    const int rows = image.height * place.zoomY;
    // The row after the last is one of those that are not drawn: it stays, with fetch.
    const int h = place.everyOther ? 2 * rows : rows;
    // Upwards the topmost row is drawn, and what is below the lowest is not.
    if (!begin(drawable, w, h))
        return -1;
    if (place.everyOther)
        fetch(image, place);
    fillRows(image, place);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer_);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
    glBlitFramebuffer(0, 0, w, h, place.x, place.top, place.x + w, place.top - h, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    return finish();
}

int Porter::upload(GLXDrawable drawable, const Picture& from)
{
    const ImageRows image = {from.bytes, from.stride, from.width, from.height, GL_RGBA, false};
    return draw(drawable, image, {0, from.height, 1, 1, false, false});
}

int Porter::download(GLXDrawable drawable, const Picture& to)
{
    std::lock_guard guard(lock_);
    const KeepCurrent keep(drawable);
    if (!makeCurrent(dpy_, drawable, drawable, context_))
        return recordError(ZV_ERROR_SYSTEM, "a pbuffer cannot be made current");
    glPixelStorei(GL_PACK_ROW_LENGTH, to.stride / 4);
    for (int y = 0; y < to.height; y += bandRows) {
        const int rows = std::min(bandRows, to.height - y);
        uint8_t* bytes = to.bytes + size_t(y) * to.stride;
        glReadPixels(0, y, to.width, rows, GL_BGRA, GL_UNSIGNED_BYTE, bytes);
        libyuv::ARGBToABGR(bytes, to.stride, bytes, to.stride, to.width, rows);
    }
    return finish();
}

Porter* porterFor(Display* dpy, GLXFBConfig config)
{
    int id = 0;
    Connection* connection = connectionOf(dpy);
    if (connection == nullptr || glXGetFBConfigAttrib(dpy, config, GLX_FBCONFIG_ID, &id) != 0)
        return nullptr;
    std::lock_guard guard(connection->lock);
    for (Porter* porter = connection->porters; porter != nullptr; porter = porter->next)
        if (porter->configId() == id)
            return porter;
    GLXContext context = glXCreateNewContext(dpy, config, GLX_RGBA_TYPE, nullptr, True);
    Porter* made = context != nullptr ? new (std::nothrow) Porter(dpy, context, id) : nullptr;
    if (made == nullptr) {
        recordError(ZV_ERROR_SYSTEM, "no context for transfers");
        return nullptr;
    }
    made->next = connection->porters;
    connection->porters = made;
    return made;
}

void destroyPorters(Connection& connection)
{
    while (Porter* porter = connection.porters) {
        connection.porters = porter->next;
        delete porter;
    }
}

}  // namespace kiv::glx
