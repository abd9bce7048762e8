// glSupport.cpp - see glSupport.h.
#include "gl/glSupport.h"

#include <utility>

namespace kiv {

GLBinding GLBinding::current() { return {glXGetCurrentDisplay(), glXGetCurrentDrawable(), glXGetCurrentContext()}; }

void GLBinding::restore(Display* otherwise) const
{
    glXMakeCurrentQTN(dpy != nullptr ? dpy : otherwise, draw, context);
}

int describeGLPool(const ZVparams* gfxParams, int count, ZVparams** poolParams)
{
    if (*poolParams != nullptr)
        zvParamsDestroy(*poolParams);
    if (zvParamsCreate(poolParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    if (zvBufferSetPoolDefaults(*poolParams, 0, 0, 0, 0) != ZV_SUCCESS)
        return kivErrPoolDefaults;
    if (zvBufferGetGLPoolParams(gfxParams, *poolParams) != ZV_SUCCESS)
        return kivErrPool;
    if (zvParamsSetInt(*poolParams, ZV_BUFFER_COUNT, count) != ZV_SUCCESS)
        return kivErrConstraints;
    return kivErrNone;
}

int createGLPool(const ZVparams* poolParams, ZVbufferpool* pool)
{
    ZVbufferpool made = nullptr;
    const int result = zvBufferCreatePool(poolParams, &made);
    if (const ZVbufferpool old = std::exchange(*pool, made); old != nullptr)
        zvBufferDestroyPool(old);
    if (result != ZV_SUCCESS) {
        kivPrintError("error:%d", result);
        return kivErrPool;
    }
    return kivErrNone;
}

int bytesAt(ZVbuffer buffer)
{
    int fd = -1, capacity = 0;
    long long offset = 0;
    return zvBufferGetMemory(buffer, &fd, &offset, &capacity) == ZV_SUCCESS ? capacity : 0;
}

}  // namespace kiv
