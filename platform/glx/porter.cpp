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
    if (context_ != nullptr)
        glXMakeContextCurrent(dpy_, draw_, read_, context_);
    else if (Display* now = glXGetCurrentDisplay(); now != nullptr)
        glXMakeContextCurrent(now, None, None, nullptr);
}

Porter::~Porter()
{
    if (isAlive(dpy_))
        glXDestroyContext(dpy_, context_);
}

bool Porter::prepareTexture(int width, int height)
{
    if (texture_ == 0) {
        glGenTextures(1, &texture_);
        glGenFramebuffers(1, &framebuffer_);
        glBindTexture(GL_TEXTURE_2D, texture_);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer_);
    }
    if (width > width_ || height > height_) {
        width_ = std::max(width, width_);
        height_ = std::max(height, height_);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width_, height_, 0, GL_BGRA, GL_UNSIGNED_BYTE, nullptr);
        glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
    }
    if (width > bandWidth_) {
        band_.reset(new (std::nothrow) uint8_t[size_t(width) * 4 * bandRows]);
        bandWidth_ = band_ != nullptr ? width : 0;
    }
    return bandWidth_ >= width && glCheckFramebufferStatus(GL_READ_FRAMEBUFFER) == GL_FRAMEBUFFER_COMPLETE;
}

bool Porter::blit(const Picture& from)
{
    const int w = from.width;
    const int h = from.height;
    for (int y = 0; y < h; y += bandRows) {
        const int rows = std::min(bandRows, h - y);
        libyuv::ABGRToARGB(from.bytes + size_t(y) * from.stride, from.stride, band_.get(), w * 4, w, -rows);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, h - y - rows, w, rows, GL_BGRA, GL_UNSIGNED_BYTE, band_.get());
    }
    glBlitFramebuffer(0, 0, w, h, 0, h, w, 0, GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glFinish();
    return glGetError() == GL_NO_ERROR;
}

int Porter::upload(GLXDrawable drawable, const Picture& from)
{
    std::lock_guard guard(lock_);
    const KeepCurrent keep(drawable);
    if (!glXMakeContextCurrent(dpy_, drawable, drawable, context_))
        return recordError(ZV_ERROR_SYSTEM, "a pbuffer cannot be made current");
    if (!prepareTexture(from.width, from.height))
        return recordError(ZV_ERROR_MEMORY, "no texture of %d x %d", from.width, from.height);
    return blit(from) ? 0 : recordError(ZV_ERROR_SYSTEM, "a picture did not reach its pbuffer");
}

int Porter::download(GLXDrawable drawable, const Picture& to)
{
    std::lock_guard guard(lock_);
    const KeepCurrent keep(drawable);
    if (!glXMakeContextCurrent(dpy_, drawable, drawable, context_))
        return recordError(ZV_ERROR_SYSTEM, "a pbuffer cannot be made current");
    glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    glPixelStorei(GL_PACK_ROW_LENGTH, to.stride / 4);
    for (int y = 0; y < to.height; y += bandRows) {
        const int rows = std::min(bandRows, to.height - y);
        uint8_t* bytes = to.bytes + size_t(y) * to.stride;
        glReadPixels(0, y, to.width, rows, GL_BGRA, GL_UNSIGNED_BYTE, bytes);
        libyuv::ARGBToABGR(bytes, to.stride, bytes, to.stride, to.width, rows);
    }
    glBindFramebuffer(GL_READ_FRAMEBUFFER, framebuffer_);
    return glGetError() == GL_NO_ERROR ? 0 : recordError(ZV_ERROR_SYSTEM, "a pbuffer cannot be read");
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
