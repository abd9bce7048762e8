// xErrors.h - what the X server refuses of this layer is a failed call, not the end of
// the process.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

// While it stands, errors of what this thread asks of `dpy` are kept from Xlib's error
// handler, whose default ends the process. Errors of others reach theirs as before.
class CatchXErrors {
public:
    explicit CatchXErrors(Display* dpy);
    ~CatchXErrors();
    CatchXErrors(const CatchXErrors&) = delete;
    CatchXErrors& operator=(const CatchXErrors&) = delete;

    bool caught() const { return caught_; }

private:
    static int onError(Display* dpy, XErrorEvent* event);
    static bool install();

    Display* const dpy_;
    const unsigned long last_;  // the request before ours; GLX reports with that number, too
    CatchXErrors* const outer_;
    bool caught_ = false;
};

// glXMakeContextCurrent. False, with nothing current, for what is destroyed or was never
// there.
bool makeCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context);

// glXCreatePbuffer, and the server's answer; None when it has no room.
GLXPbuffer createPbuffer(Display* dpy, GLXFBConfig config, const int* attributes);

}  // namespace kiv::glx
