// kivGLPixelTrans.cpp - see kivGLPixelTrans.h.
#include "gl/kivGLPixelTrans.h"

#include "gl/glSupport.h"

kivGLPixelTrans::kivGLPixelTrans()
    : poolParams(nullptr), dstBuffer(nullptr), inputFormat(GL_CBYCRY_422_QTN), fullRange_(0)
{
}

kivGLPixelTrans::~kivGLPixelTrans()
{
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
}

int kivGLPixelTrans::addSrcConstraints(ZVparams*) { return kivErrNone; }

// Makes pbuffer, pool and context, then initialises the children; what they need of
// buffers is not asked. Returns 3001 to 3003 or 4 to 7.
int kivGLPixelTrans::init(kivParams* params)
{
    if (const int err = createPBuffer())
        return err;
    if (const int err = kiv::describeGLPool(gfxParams, 4, &poolParams))
        return err;
    kivTrace("kivGLPixelTrans: Create Pool\n");
    kivTrace("Parameters:\n");
    kivTraceZVParams(poolParams);
    if (const int err = kiv::createGLPool(poolParams, &bufferPool))
        return err;
    if (const int err = createContext())
        return err;
    return kivObj::init(params);
}

// One transfer, when a picture has come since the last. The set is not looked at.
// Returns 9 when there is none, or when this thread is inside a transfer.
int kivGLPixelTrans::handleEvents(fd_set)
{
    kivTrace("kivGLPixelTrans::handleEvents()\n");
    if (!std::atomic_ref(haveNewBuffer).load() || latchedHere()) {
        kivTrace("   no new buffer()\n");
        return kivErrNotReady;
    }
    kivTrace("   yes, new buffer()\n");
    const kiv::GLBinding before = kiv::GLBinding::current();
    grab();
    release();
    before.restore(dpy);
    return kivErrNone;
}

// Latches the newest picture and draws it into a fresh buffer, whose bytes are
// complete when this returns. Without a fresh buffer nothing is drawn: the pbuffer
// still stands for the one before, which others have. Blocks as the latch's own grab.
int kivGLPixelTrans::grab()
{
    kivLatch::grab();
    const void* data = mapBuffer();
    const int bytes = kiv::bytesAt(latchBuffer);
    zvBufferAllocate(bufferPool, &dstBuffer);
    glXDrawsAllQTN(dpy, pbuffer, coversAll(data, bytes));
    if (!glXAssociateZVPbufferQTNX(dpy, pbuffer, gfxParams, dstBuffer)) {
        kivPrintError("Error in associate");
        return kivErrNone;
    }
    if (!makeCurrent())
        return kivErrNone;  // what is current is another's
    glViewport(0, 0, bufferSizeX, bufferSizeY);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glOrtho(0, bufferSizeX, 0, bufferSizeY, 0, 1000);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    draw(data, bytes);
    return kivErrNone;
}

// Will the picture that has come leave no byte of the buffer as it was?
bool kivGLPixelTrans::coversAll(const void* data, int bytes) const
{
    const long long needed = glImageBytesQTN(imageSizeX, imageSizeY, GLenum(inputFormat));
    return data != nullptr && needed >= 0 && needed <= bytes && imageSizeX >= bufferSizeX && imageSizeY >= bufferSizeY;
}

// At the default raster position: the first row and column of the buffer.
void kivGLPixelTrans::draw(const void* data, int bytes)
{
    glPixelRangeQTN(fullRange_);
    glDrawPixelsQTN(imageSizeX, imageSizeY, GLenum(inputFormat), data, bytes);
    zvBufferSync(dstBuffer);
    zvBufferSetUSTMSCpair(dstBuffer, zvBufferGetUSTMSCpair(latchBuffer));
}

// Hands the buffer on and drops the node's reference. After a grab only.
int kivGLPixelTrans::release()
{
    if (dstBuffer != nullptr)
        kivObj::propagate(dstBuffer);
    zvBufferFree(dstBuffer);
    unlockLatchBuffer();
    return kivErrNone;
}

void* kivGLPixelTrans::mapDstBuffer() { return zvBufferMapData(dstBuffer); }

int kivGLPixelTrans::setImageDimensions(int x, int y)
{
    imageSizeX = x;
    imageSizeY = y;
    return kivErrNone;
}

int kivGLPixelTrans::setInputFormat(int format)
{
    inputFormat = format;
    return kivErrNone;
}

// From the next transfer on.
int kivGLPixelTrans::setFullRange(int on)
{
    fullRange_ = on;
    return kivErrNone;
}
