// kivGLCtx.cpp - see kivGLCtx.h.
#include "gl/kivGLCtx.h"

#include <utility>

kivGLCtx::kivGLCtx() : context(nullptr) { }

kivGLCtx::~kivGLCtx()
{
    if (context != nullptr)
        glXDestroyContextQTN(dpy, context);
}

// Makes pbuffer and context, then initialises the children. Returns 3001 to 3003.
int kivGLCtx::init(kivParams* params)
{
    if (const int err = createPBuffer())
        return err;
    if (const int err = createContext())
        return err;
    return kivObj::init(params);
}

// In place of one made before; shares nothing with others. Returns 3003.
int kivGLCtx::createContext()
{
    const GLXContext made = glXCreateContextWithConfigQTNX(dpy, fbConfig, GLX_RGBA_TYPE_QTNX, nullptr, True);
    if (const GLXContext old = std::exchange(context, made); old != nullptr)
        glXDestroyContextQTN(dpy, old);
    return context != nullptr ? kivErrNone : kivErrGLPBufferSetup;
}

int kivGLCtx::makeCurrent() { return glXMakeCurrentQTN(dpy, pbuffer, context); }

int kivGLCtx::makeCurrentWrite() { return glXMakeCurrentReadQTN(dpy, pbuffer, glXGetCurrentDrawable(), context); }

int kivGLCtx::makeCurrentRead()
{
    return glXMakeCurrentReadQTN(dpy, glXGetCurrentDrawable(), pbuffer, glXGetCurrentContext());
}

int kivGLCtx::makeCurrentRead(GLXDrawable draw)
{
    return glXMakeCurrentReadQTN(dpy, draw, pbuffer, glXGetCurrentContext());
}

int kivGLCtx::makeCurrentRead(GLXDrawable draw, GLXContext ctx)
{
    return glXMakeCurrentReadQTN(dpy, draw, pbuffer, ctx);
}
