// kivGLPaintBuffer.cpp - see kivGLPaintBuffer.h.
#include "gl/kivGLPaintBuffer.h"

#include "gl/glSupport.h"

kivGLPaintBuffer::kivGLPaintBuffer() : poolParams(nullptr), paintBuffer(nullptr), doDoubleBuffer(0) { }

// The latch keeps what it holds; the buffer that this node fed to itself nobody else
// can free, and with it goes the memory of the pool.
kivGLPaintBuffer::~kivGLPaintBuffer()
{
    for (ZVbuffer held : {newBuffer, latchBuffer})
        if (held != nullptr && held == paintBuffer)
            zvBufferFree(held);
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
}

// Makes pbuffer, context and pool, then initialises the children. Returns 3001 to
// 3003 or 4 to 7.
int kivGLPaintBuffer::init(kivParams* params)
{
    if (const int err = createPBuffer())
        return err;
    if (const int err = createContext())
        return err;
    if (const int err = createPool())
        return err;
    return kivObj::init(params);
}

// Ten buffers that GL takes. Returns 4 to 7.
int kivGLPaintBuffer::createPool()
{
    if (const int err = kiv::describeGLPool(gfxParams, 10, &poolParams))
        return err;
    return kiv::createGLPool(poolParams, &bufferPool);
}

// Latches the newest buffer for drawing; only the first one in the node's life comes
// from here. Returns 3004.
int kivGLPaintBuffer::grab()
{
    if (paintBuffer == nullptr) {
        zvBufferAllocate(bufferPool, &paintBuffer);
        receive(paintBuffer);
        zvBufferFree(paintBuffer);
    }
    return kivGLPBuffer::grab();
}
