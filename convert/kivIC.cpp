// kivIC.cpp - see kivIC.h.
#include "convert/kivIC.h"

#include <utility>

kivIC::kivIC()
    : bufferSize(0), imgConvCtx(nullptr), fd(-1), speed(ZV_IC_SPEED_REALTIME),
      direction(ZV_IC_CODE_DIRECTION_UNDEFINED), srcPacking(ZV_IMAGE_PACKING_CbYCrY),
      dstPacking(ZV_IMAGE_PACKING_CbYCrY), srcCompression(ZV_COMPRESSION_UNCOMPRESSED),
      dstCompression(ZV_COMPRESSION_UNCOMPRESSED), printReturnErr(0)
{
}

// Ends the converter's threads and drops what it still holds.
kivIC::~kivIC()
{
    if (imgConvCtx != nullptr)
        zvICDestroy(imgConvCtx);
}

int kivIC::fail(int errorID, int line, const char* file)
{
    if (printReturnErr == 1)
        kivReportService(errorID, file, line, getName());
    return errorID;
}

// One side's image: both have the node's size, the converter never scales.
int kivIC::describe(ZVparams* params, ZVimagepacking packing, const char* compression)
{
    if (zvSetImageDefaults(params, imageSizeX, imageSizeY, packing) != ZV_SUCCESS)
        return fail(kivErrICImageDefaults, __LINE__);
    if (zvParamsSetString(params, ZV_IMAGE_COMPRESSION, compression) != ZV_SUCCESS)
        return fail(kivErrICString, __LINE__);
    if (zvParamsSetEnum(params, ZV_IMAGE_ORIENTATION, ZV_IMAGE_ORIENTATION_TOP_TO_BOTTOM) != ZV_SUCCESS)
        return fail(kivErrICEnum, __LINE__);
    return kivErrNone;
}

// Opens the converter and tells it both sides and the settings.
int kivIC::configure(const ZVparams* src, const ZVparams* dst, const ZVparams* conv)
{
    const int id = zvICChooseConverter(src, dst, conv);
    if (id < 0)
        return fail(kivErrICNoMatch, __LINE__);
    if (zvICCreate(id, &imgConvCtx) != ZV_SUCCESS)
        return fail(kivErrICCreate, __LINE__);
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);

    if (direction == ZV_IC_CODE_DIRECTION_ENCODE)
        bufferSize = zvImageFrameSize(src);
    else if (direction == ZV_IC_CODE_DIRECTION_DECODE)
        bufferSize = zvImageFrameSize(dst);

    if (zvICSetSrcParams(imgConvCtx, src) != ZV_SUCCESS)
        return fail(kivErrICSrcParams, __LINE__);
    if (zvICSetDstParams(imgConvCtx, dst) != ZV_SUCCESS)
        return fail(kivErrICDstParams, __LINE__);
    if (zvICSetConvParams(imgConvCtx, conv) != ZV_SUCCESS)
        return fail(kivErrICConvParams, __LINE__);
    return kivErrNone;
}

// Builds the converter from the members; once in a node's life. After a failure the
// lists stay with their service and an opened converter stays until the destructor.
// Returns 5, 2000-2003, 2008, 2009, 2013, 2015 or 2016 on failure.
int kivIC::setup()
{
    ZVparams* srcParams = nullptr;
    ZVparams* dstParams = nullptr;
    ZVparams* convParams = nullptr;
    if (zvParamsCreate(&srcParams) != ZV_SUCCESS || zvParamsCreate(&dstParams) != ZV_SUCCESS
        || zvParamsCreate(&convParams) != ZV_SUCCESS)
        return fail(kivErrPoolParams, __LINE__);

    if (const int err = describe(srcParams, srcPacking, srcCompression))
        return err;
    if (const int err = describe(dstParams, dstPacking, dstCompression))
        return err;
    if (zvParamsSetEnum(convParams, ZV_IC_SPEED, speed) != ZV_SUCCESS)
        return fail(kivErrICEnum, __LINE__);
    if (const int err = configure(srcParams, dstParams, convParams))
        return err;

    zvParamsDestroy(srcParams);
    zvParamsDestroy(dstParams);
    zvParamsDestroy(convParams);
    return kivErrNone;
}

// Makes the output pool from the converter's and the children's needs, then
// initialises the children. Returns 2000, 4 to 7 or 2012 on failure.
int kivIC::init(kivParams*)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    ZVparams* zvicParams = nullptr;
    if (zvParamsCreate(&zvicParams) != ZV_SUCCESS)
        return fail(kivErrPoolParams, __LINE__);
    if (zvBufferSetPoolDefaults(zvicParams, numBuffers, bufferSize, 0, 0) != ZV_SUCCESS)
        return fail(kivErrPoolDefaults, __LINE__);
    if (addDstConstraints(zvicParams) != kivErrNone)
        return fail(kivErrConstraints, __LINE__);
    if (addChildConstraints(zvicParams) != kivErrNone)
        return fail(kivErrConstraints, __LINE__);

    kivTrace("%s::init: pool creation params\n", getName());
    kivTraceZVParams(zvicParams);

    ZVbufferpool pool = nullptr;
    if (zvBufferCreatePool(zvicParams, &pool) != ZV_SUCCESS)
        return fail(kivErrPool, __LINE__);
    const ZVbufferpool oldPool = std::exchange(bufferPool, pool);
    if (zvICSetDstPool(imgConvCtx, bufferPool) != ZV_SUCCESS)
        return fail(kivErrICDrain, __LINE__);
    if (oldPool != nullptr)  // a node below two parents is initialised twice
        zvBufferDestroyPool(oldPool);
    zvParamsDestroy(zvicParams);
    return kivObj::init(nullptr);
}

int kivIC::addSrcConstraints(ZVparams* params)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    if (params == nullptr)
        return fail(kivErrParams, __LINE__);
    if (zvICGetSrcPoolParams(imgConvCtx, params) != ZV_SUCCESS)
        return fail(kivErrICSrcPool, __LINE__);
    return kivErrNone;
}

int kivIC::addDstConstraints(ZVparams* params)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    if (params == nullptr)
        return fail(kivErrParams, __LINE__);
    if (zvICGetDstPoolParams(imgConvCtx, params) != ZV_SUCCESS)
        return fail(kivErrICDstPool, __LINE__);
    return kivErrNone;
}

int kivIC::getFD()
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    if (fd == -1)
        fd = zvICGetDstQueueFD(imgConvCtx);
    return fd;
}

// Queues one buffer; never blocks. The converter takes its own reference, the node
// none. Dropped silently while stopped. Returns 8, 2000 or 2005 on failure.
int kivIC::receive(ZVbuffer buf)
{
    if (buf == nullptr)
        return fail(kivErrParams, __LINE__);
    if (!isStarted())
        return kivErrNone;
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);

    // The levels decide nothing; they are asked for whoever watches the service.
    zvICGetDstQueueFilled(imgConvCtx);
    zvICGetSrcQueueFilled(imgConvCtx);
    const int sent = zvICSend(imgConvCtx, buf, 0, nullptr);
    zvICGetDstQueueFilled(imgConvCtx);
    zvICGetSrcQueueFilled(imgConvCtx);
    return sent == ZV_SUCCESS ? kivErrNone : fail(kivErrICSend, __LINE__);
}

// Takes one result and hands it to the children. Returns 9 when stopped or not
// ready; 2000, 2006 (an image that could not be converted), 1 or 2017 on failure.
int kivIC::handleEvents(fd_set readySet)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    if (!isStarted() || !kivFdIsSet(fd, &readySet))
        return kivErrNotReady;

    ZVbuffer out = nullptr;
    if (zvICReceive(imgConvCtx, &out) != ZV_SUCCESS)
        return fail(kivErrICReceive, __LINE__);
    if (propagate(out) != kivErrNone)
        return fail(kivErrGeneric, __LINE__);
    if (zvBufferFree(out) != ZV_SUCCESS)
        return fail(kivErrICFree, __LINE__);
    return kivErrNone;
}

int kivIC::setPrintReturnErr(int value)
{
    printReturnErr = value;
    return kivErrNone;
}

// Lets the oldest waiting image give way to the newest once so many wait: a slow
// converter below a live source then adds no delay. Any time after setup. Returns
// 8, 2000, 5, 2015 or 2007 on failure.
int kivIC::setQueueMax(int images)
{
    if (imgConvCtx != nullptr && images < 0)
        return fail(kivErrParams, __LINE__);
    return setConversion(ZV_IC_QUEUE_MAX, images);
}

// One key of the conversion, for images not yet begun. Returns 2000, 5, 2015 or 2007.
int kivIC::setConversion(const char* key, int value, const char* file)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__, file);
    ZVparams* convParams = nullptr;
    if (zvParamsCreate(&convParams) != ZV_SUCCESS)
        return fail(kivErrPoolParams, __LINE__, file);
    int err = kivErrNone;
    if (zvParamsSetInt(convParams, key, value) != ZV_SUCCESS)
        err = fail(kivErrICString, __LINE__, file);
    else if (zvICSetConvParams(imgConvCtx, convParams) != ZV_SUCCESS)
        err = fail(kivErrICSetConv, __LINE__, file);
    zvParamsDestroy(convParams);
    return err;
}

// Counts since setup. Returns 8, 2000 or 1 on failure.
int kivIC::getStats(ZVicStats* stats)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__);
    if (stats == nullptr)
        return fail(kivErrParams, __LINE__);
    if (zvICGetStats(imgConvCtx, stats) != ZV_SUCCESS)
        return fail(kivErrGeneric, __LINE__);
    return kivErrNone;
}
