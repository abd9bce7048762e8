// kivMovieInCompressed.cpp - see kivMovieInCompressed.h.
#include "movie/kivMovieInCompressed.h"

#include <algorithm>

namespace {
constexpr int poolCount = 5;  // in the pool, whatever the children ask for
}

kivMovieInCompressed::kivMovieInCompressed() = default;

kivMovieInCompressed::~kivMovieInCompressed() { endReader(); }

int kivMovieInCompressed::setup(char* movieFile)
{
    kivTrace("hello\n");
    return kivMovieIn::setup(movieFile);
}

// Makes the pool and initialises the children. Loop thread, after setup. Returns 4
// to 7 by the step that failed; a pool that came too far is destroyed.
int kivMovieInCompressed::init(kivParams* params)
{
    kivTrace("Enter MovieIn Init\n");
    endReader();
    int err = makePoolParams();
    if (err == kivErrNone)
        err = makePool();
    if (err == kivErrNone)
        err = watchPool(true);
    return err == kivErrNone ? kivObj::init(params) : err;
}

// Bytes of a buffer that takes every frame: of the uncompressed picture, or of the
// track's largest frame where that is more, as it can be for small pictures.
int kivMovieInCompressed::frameBytes(int* bytes)
{
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
    if (zvParamsCreate(&poolParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    zvSetImageDefaults(poolParams, bufferSizeX, bufferSizeY, ZV_IMAGE_PACKING_CbYCrY);
    zvParamsSetString(poolParams, ZV_IMAGE_COMPRESSION, ZV_COMPRESSION_JPEG);
    zvParamsSetEnum(poolParams, ZV_IMAGE_ORIENTATION, ZV_IMAGE_ORIENTATION_TOP_TO_BOTTOM);
    const int uncompressed = zvImageFrameSize(poolParams);
    zvParamsDestroy(poolParams);
    poolParams = nullptr;
    *bytes = uncompressed < 0 ? uncompressed : std::max(uncompressed, rkGetLargestCompressedImageSize(imageTrack));
    return kivErrNone;
}

int kivMovieInCompressed::makePoolParams()
{
    int bytes = 0;
    if (const int err = frameBytes(&bytes); err != kivErrNone)
        return err;
    if (zvParamsCreate(&poolParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    if (zvBufferSetPoolDefaults(poolParams, 2, bytes, 0, 0) != ZV_SUCCESS)
        return kivErrPoolDefaults;
    kivTrace("Add Child Constraints \n");
    if (addChildConstraints(poolParams) != kivErrNone)
        return kivErrConstraints;
    if (zvParamsSetInt(poolParams, ZV_BUFFER_COUNT, poolCount) != ZV_SUCCESS)
        return kivErrConstraints;
    return kivErrNone;
}

int kivMovieInCompressed::makePool()
{
    kivTrace("Create Pool\n");
    kivTrace("Parameters:\n");
    kivTraceZVParams(poolParams);
    if (bufferPool != nullptr)
        zvBufferDestroyPool(bufferPool);  // of an earlier init
    if (const int result = zvBufferCreatePool(poolParams, &bufferPool); result != ZV_SUCCESS) {
        kivPrintError("error:%d", result);
        return kivErrPool;
    }
    return kivErrNone;
}

// Reads the frame of a movie time. Reader thread. 0 or 4005.
int kivMovieInCompressed::getImageFrameTime(long long movieTime)
{
    const int index = frameIndexAt(movieTime);
    setFrameIndex(index);
    return getImageFrameIndex(index);
}

// Reads one frame into readBuffer; 4005 when it is the one that was read last.
// Reader thread. A frame that cannot be read leaves the buffer as it is, one that
// does not fit leaves it empty, and both are handed on: nothing is cut.
int kivMovieInCompressed::getImageFrameIndex(int frameIndex)
{
    if (frameIndex == kivShared(lastFrameIndex).load())
        return kivErrFrameNotYet;
    int size = rkGetCompressedImageSize(imageTrack, frameIndex);
    const int capacity = zvBufferGetSize(readBuffer);  // of a fresh buffer
    if (size > capacity) {
        kivPrintError("%s: frame %d has %d bytes, the buffer only %d\n", getName(), frameIndex, size, capacity);
        size = 0;
    } else if (size >= 0) {
        rkReadCompressedImage(imageTrack, frameIndex, size, zvBufferMapData(readBuffer));
    }
    zvBufferSetSize(readBuffer, size);
    kivShared(lastFrameIndex).store(frameIndex);
    return kivErrNone;
}
