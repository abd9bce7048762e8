// xErrors.cpp - see xErrors.h. Xlib has one error handler for all connections and
// threads; changing it for the time of a call would race, so ours stays.
#include "platform/glx/xErrors.h"

#include <X11/Xlib.h>

namespace kiv::glx {

namespace {

constinit thread_local CatchXErrors* innermost = nullptr;
constinit XErrorHandler others = nullptr;

}  // namespace

int CatchXErrors::onError(Display* dpy, XErrorEvent* event)
{
    CatchXErrors* here = innermost;
    if (here == nullptr || here->dpy_ != dpy || event->serial < here->last_)
        return others(dpy, event);
    here->caught_ = true;
    return 0;
}

bool CatchXErrors::install()
{
    others = XSetErrorHandler(nullptr);
    XSetErrorHandler(onError);
    return true;
}

CatchXErrors::CatchXErrors(Display* dpy) : dpy_(dpy), last_(XNextRequest(dpy) - 1), outer_(innermost)
{
    static const bool installed = install();
    (void)installed;
    innermost = this;
}

CatchXErrors::~CatchXErrors() { innermost = outer_; }

bool makeCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    const CatchXErrors errors(dpy);
    const bool made = glXMakeContextCurrent(dpy, draw, read, context);
    if (made && !errors.caught())
        return true;
    if (Display* now = glXGetCurrentDisplay(); now != nullptr)
        glXMakeContextCurrent(now, None, None, nullptr);
    return false;
}

GLXPbuffer createPbuffer(Display* dpy, GLXFBConfig config, const int* attributes)
{
    const CatchXErrors errors(dpy);
    const GLXPbuffer id = glXCreatePbuffer(dpy, config, attributes);
    XSync(dpy, False);
    if (!errors.caught() || id == None)
        return id;
    glXDestroyPbuffer(dpy, id);
    XSync(dpy, False);
    return None;
}

}  // namespace kiv::glx
