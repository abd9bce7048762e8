// kivGLPaintBuffer.h - a drawing surface whose pixels lie in a media buffer.
#pragma once

#include "gl/kivGLCtx.h"

// Loop-bound. grab, makeCurrent, draw, release: the children then receive what was
// drawn. The first grab feeds the node a buffer of its own pool of ten; buffers that
// are received, from a parent or from the application, take its place.
class KIV_API kivGLPaintBuffer : public kivGLCtx {
public:
    kivGLPaintBuffer();
    ~kivGLPaintBuffer() override;

    int init(kivParams* params) override;
    int grab() override;

    int createPool();

    ZVparams* poolParams;  // owned
    ZVbuffer paintBuffer;  // what the first grab was fed, no reference; null before
    int doDoubleBuffer;  // not used
};
