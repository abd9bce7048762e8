// glScreen.h - a pbuffer with a context that is current, on core GLX alone.
#pragma once

#include <gtest/gtest.h>  // before the macros of X

#include <string>

#include <GL/gl.h>
#include <GL/glx.h>

class GLScreen {
public:
    GLScreen(int width, int height);
    ~GLScreen();
    GLScreen(const GLScreen&) = delete;
    GLScreen& operator=(const GLScreen&) = delete;

    void makeCurrent() const;
    void release() const;
    void clear() const;  // to one colour that no test movie has
    std::string pixels(int x, int y, int width, int height) const;  // R G B A, from row y up
    GLXContext context() const { return context_; }

private:
    Display* display_;
    GLXPbuffer pbuffer_;
    GLXContext context_;
};
