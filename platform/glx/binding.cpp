// binding.cpp - contexts made current, with an eye on which pbuffer is drawn into.
#include "platform/glx/binding.h"

#include "platform/glx/contexts.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/pbuffer.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

Pbuffer* currentPbuffer() { return findPbuffer(glXGetCurrentDrawable(), glXGetCurrentDisplay()); }

// What is current now is left for something else: its connection is remembered, and
// what it drew becomes anybody's.
void leave(const Pbuffer* next)
{
    noteCurrentContext();
    Pbuffer* pbuffer = currentPbuffer();
    if (pbuffer != nullptr && pbuffer != next)
        endDrawing(*pbuffer);
}

bool isCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    return glXGetCurrentContext() == context && glXGetCurrentDrawable() == draw && glXGetCurrentReadDrawable() == read
        && glXGetCurrentDisplay() == dpy;
}

// The connection on which the context lives; null, with an error recorded, when it
// cannot be used.
Display* connectionFor(Display* dpy, GLXContext context)
{
    Display* on = glXGetCurrentContext() == context ? glXGetCurrentDisplay() : contextFacts(context, dpy).dpy;
    return needAlive(on) ? on : nullptr;
}

Bool bind(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    Display* on = connectionFor(dpy, context);
    if (on == nullptr)
        return False;
    Pbuffer* drawn = findPbuffer(draw, on);
    if (drawn != nullptr && drawn->dpy != on) {
        recordError(ZV_ERROR_ARGUMENT, "a pbuffer is drawn into on its own connection only");
        return False;
    }
    Pbuffer* seen = findPbuffer(read, dpy, on);
    GLXDrawable readHere = read;
    if (seen != nullptr && seen != drawn)
        readHere = readable(*seen, on, contextDepth(on, context));
    if (seen != nullptr && readHere == None)
        return False;
    leave(drawn);
    if (drawn != nullptr && beginDrawing(*drawn) < 0)
        return False;
    if (isCurrent(on, draw, readHere, context))
        return True;
    if (glXMakeContextCurrent(on, draw, readHere, context))
        return True;
    recordError(ZV_ERROR_SYSTEM, "GLX cannot make the context current");
    return False;
}

Bool bindOrRelease(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    const int given = (draw != None) + (read != None) + (context != nullptr);
    if (given == 3)
        return bind(dpy, draw, read, context);
    if (given != 0) {
        recordError(ZV_ERROR_ARGUMENT, "a context needs drawables, and drawables a context");
        return False;
    }
    releaseCurrent();
    return True;
}

}  // namespace

void releaseCurrent()
{
    leave(nullptr);
    if (Display* dpy = glXGetCurrentDisplay(); dpy != nullptr)
        glXMakeContextCurrent(dpy, None, None, nullptr);
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// Both on the thread that will draw. They block while a picture is copied, where one is
// due.
extern "C" Bool glXMakeCurrentQTN(Display* dpy, GLXDrawable drawable, GLXContext context)
{
    return bindOrRelease(dpy, drawable, drawable, context);
}

extern "C" Bool glXMakeCurrentReadQTN(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    return bindOrRelease(dpy, draw, read, context);
}

// The thread that draws. Pbuffers have no screen to go to.
extern "C" void glXSwapBuffersQTN(GLXDrawable drawable)
{
    Display* dpy = glXGetCurrentDisplay();
    const bool current = drawable != None && drawable == glXGetCurrentDrawable();
    if (current && isAlive(dpy) && currentPbuffer() == nullptr)
        glXSwapBuffers(dpy, drawable);
}
