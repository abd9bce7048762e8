// kivGLPBuffer.cpp - see kivGLPBuffer.h.
#include "gl/kivGLPBuffer.h"

#include <utility>

#include "gl/kivGLFBConfig.h"

kivGLPBuffer::kivGLPBuffer() : dpy(nullptr), fbConfig(nullptr), pbuffer(0), gfxParams(nullptr) { }

// The description of the image stays with its service: pools may still be shaped by it.
kivGLPBuffer::~kivGLPBuffer()
{
    if (pbuffer != 0)
        glXDestroyGLXPbufferQTNX(dpy, pbuffer);
}

// Records connection and size and describes the image. Before init. Returns 5 or 6.
int kivGLPBuffer::setup(Display* display, int width, int height)
{
    kivLatch::setup();
    dpy = display;
    imageSizeX = bufferSizeX = width;
    imageSizeY = bufferSizeY = height;
    if (zvParamsCreate(&gfxParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    if (zvSetImageDefaults(gfxParams, bufferSizeX, bufferSizeY, ZV_IMAGE_PACKING_RGBA) != ZV_SUCCESS)
        return kivErrPoolDefaults;
    if (zvParamsSetEnum(gfxParams, ZV_IMAGE_LAYOUT, ZV_IMAGE_LAYOUT_GRAPHICS) != ZV_SUCCESS)
        return kivErrPoolDefaults;
    return kivErrNone;
}

// Makes the pbuffer, then initialises the children. Returns 3001 or 3002.
int kivGLPBuffer::init(kivParams* params)
{
    if (const int err = createPBuffer())
        return err;
    return kivObj::init(params);
}

// Chooses the configuration and makes the pbuffer, in place of one made before.
// Returns 3001 or 3002.
int kivGLPBuffer::createPBuffer()
{
    int attributes[] = {GLX_PRESERVED_CONTENTS_QTNX, True, GLX_ZV_BUFFER_QTN, True, 0};
    if (const int err = setupFBConfig(dpy, 8, 8, 8, 8, &fbConfig))
        return err;
    kivTrace("FBConfig used to create pbuffer:\n");
    if (getTrace())
        printFBConfig(dpy, fbConfig);

    const GLXPbuffer made
        = glXCreateGLXPbufferQTNX(dpy, fbConfig, unsigned(bufferSizeX), unsigned(bufferSizeY), attributes);
    if (const GLXPbuffer old = std::exchange(pbuffer, made); old != 0)
        glXDestroyGLXPbufferQTNX(dpy, old);
    if (pbuffer == 0)
        return kivErrGLPBuffer;
    kivTrace("zvparams (gfxparams) used for pbuffer:\n");
    kivTraceZVParams(gfxParams);
    return kivErrNone;
}

// Latches the newest buffer and makes it the pbuffer's picture; blocks as the
// latch's own grab. Returns 3004, with the buffer latched, when GL does not take it.
int kivGLPBuffer::grab()
{
    kivLatch::grab();
    if (!glXAssociateZVPbufferQTNX(dpy, pbuffer, gfxParams, latchBuffer)) {
        kivPrintError("Error in associate");
        return kivErrGLAssociate;
    }
    return kivErrNone;
}

// Returns 4.
int kivGLPBuffer::addSrcConstraints(ZVparams* poolParams)
{
    return zvBufferGetGLPoolParams(gfxParams, poolParams) == ZV_SUCCESS ? kivErrNone : kivErrConstraints;
}

int kivGLPBuffer::addDstConstraints(ZVparams* poolParams) { return kivGLPBuffer::addSrcConstraints(poolParams); }
