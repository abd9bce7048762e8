// glCounts.cpp - see glCounts.h.
#include "tests/platform/glx/glCounts.h"

#include <GL/gl.h>
#include <dlfcn.h>

#include <atomic>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

std::atomic<long long> in{0}, out{0};

template <class Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

EXPORTED void glDrawPixels(GLsizei width, GLsizei height, GLenum format, GLenum type, const GLvoid* data)
{
    static const auto call = real<decltype(glDrawPixels)>("glDrawPixels");
    in += (long long)width * height;
    call(width, height, format, type, data);
}

EXPORTED void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                              GLenum format, GLenum type, const GLvoid* data)
{
    static const auto call = real<decltype(glTexSubImage2D)>("glTexSubImage2D");
    in += (long long)width * height;
    call(target, level, x, y, width, height, format, type, data);
}

EXPORTED void glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type, GLvoid* data)
{
    static const auto call = real<decltype(glReadPixels)>("glReadPixels");
    out += (long long)width * height;
    call(x, y, width, height, format, type, data);
}

GLCounts takeGLCounts() { return {in.exchange(0), out.exchange(0)}; }
