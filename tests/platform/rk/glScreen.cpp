// glScreen.cpp - see glScreen.h.
#include "tests/platform/rk/glScreen.h"

GLScreen::GLScreen(int width, int height) : display_(XOpenDisplay(nullptr))
{
    const int wanted[] = {GLX_RENDER_TYPE,
                          GLX_RGBA_BIT,
                          GLX_DRAWABLE_TYPE,
                          GLX_PBUFFER_BIT,
                          GLX_RED_SIZE,
                          8,
                          GLX_ALPHA_SIZE,
                          8,
                          GLX_DOUBLEBUFFER,
                          True,
                          None};
    int count = 0;
    GLXFBConfig* const configs = glXChooseFBConfig(display_, DefaultScreen(display_), wanted, &count);
    const int size[] = {GLX_PBUFFER_WIDTH, width, GLX_PBUFFER_HEIGHT, height, None};
    pbuffer_ = glXCreatePbuffer(display_, configs[0], size);
    context_ = glXCreateNewContext(display_, configs[0], GLX_RGBA_TYPE, nullptr, True);
    XFree(configs);
    makeCurrent();
}

GLScreen::~GLScreen()
{
    if (glXGetCurrentContext() == context_)
        release();
    glXDestroyContext(display_, context_);
    glXDestroyPbuffer(display_, pbuffer_);
    XCloseDisplay(display_);
}

void GLScreen::makeCurrent() const { ASSERT_TRUE(glXMakeCurrent(display_, pbuffer_, context_)); }

void GLScreen::release() const { glXMakeCurrent(display_, None, nullptr); }

void GLScreen::clear() const
{
    glClearColor(0.4f, 0.2f, 0.6f, 0.8f);
    glClear(GL_COLOR_BUFFER_BIT);
}

std::string GLScreen::pixels(int x, int y, int width, int height) const
{
    std::string bytes(4 * size_t(width) * size_t(height), '\0');
    glReadPixels(x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE, bytes.data());
    return bytes;
}
