// kivGLPBuffer.h - a latch whose newest buffer is the picture of an off-screen drawable.
#pragma once

#include "core/kivLatch.h"
#include "platform/glx/glxqtn.h"

// Loop-bound, but for receive. The connection is the application's: it opens it
// before setup and closes it after the node is gone. setup, then init, then a grab
// before each use of the newest buffer by GL and a release after it.
class KIV_API kivGLPBuffer : public kivLatch {
public:
    kivGLPBuffer();
    ~kivGLPBuffer() override;

    int addSrcConstraints(ZVparams* poolParams) override;  // buffers that GL takes
    int addDstConstraints(ZVparams* poolParams) override;  // the same
    int init(kivParams* params) override;
    int grab() override;

    int setup(Display* dpy, int width, int height);  // pixels, of image and buffer
    int createPBuffer();

    Display* dpy;  // not owned
    GLXFBConfigQTNX fbConfig;
    GLXPbuffer pbuffer;  // owned; 0 = none
    ZVparams* gfxParams;  // the image that the pbuffer takes; not the latch's member of that name
};
