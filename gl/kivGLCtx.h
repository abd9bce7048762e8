// kivGLCtx.h - a pbuffer with a GL context of its own.
#pragma once

#include "gl/kivGLFBConfig.h"
#include "gl/kivGLPBuffer.h"

// Loop-bound; what makeCurrent binds, it binds on the calling thread. The makeCurrent
// operations answer as GLX does: 1 for done, 0 for not, never an error id. Not before
// init, and those that keep what is current not without anything current.
class KIV_API kivGLCtx : public kivGLPBuffer {
public:
    kivGLCtx();
    ~kivGLCtx() override;

    int init(kivParams* params) override;

    int createContext();  // after createPBuffer
    int makeCurrent();  // draws into the pbuffer and reads from it
    int makeCurrentWrite();  // draws into the pbuffer, reads from what is drawn into now
    int makeCurrentRead();  // goes on drawing where it draws now, reads from the pbuffer
    int makeCurrentRead(GLXDrawable draw);  // current context
    int makeCurrentRead(GLXDrawable draw, GLXContext ctx);

    GLXContext context;  // owned; null before init
};
