// kivVideoIn.cpp - see kivVideoIn.h.
#include "video/kivVideoIn.h"

#include "platform/thread/thread.h"

kivVideoIn::kivVideoIn() : poolParams(nullptr), xfersize(0) { }

kivVideoIn::~kivVideoIn()
{
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
}

int kivVideoIn::setup(int source, int srcClass)
{
    sourceNode = kpGetNode(server, KP_TYPE_SOURCE, srcClass, source);
    if (sourceNode < 0)
        return kivErrVideoNode;
    drainNode = kpGetNode(server, KP_TYPE_DRAIN, KP_KIND_MEMORY, KP_ANY);
    if (drainNode < 0)
        return kivErrVideoNode;
    path = kpCreatePath(server, KP_ANY, sourceNode, drainNode);
    if (path < 0)
        return kivErrVideoPath;
    if (srcClass == KP_KIND_DEVICE) {
        setIntControl(path, sourceNode, KP_CONTROL_CLASS4, 1);
        setIntControl(path, sourceNode, KP_CONTROL_CLASS4_MODE, 0);
    }
    if (kpSetupPaths(server, &path, 1, 2, 2) != 0)
        return kivErrVideoSetup;
    kpSelectEvents(server, path, KP_EVENTS_ALL);
    return setDefaultControls();
}

// Best effort: setters answer 0 or 1004, so the comparison lets every one be tried.
int kivVideoIn::setDefaultControls()
{
    if (setTiming(0) < -1 || setPacking(22) < -1 || setCaptureType(1) < -1 || setFormat(2) < -1 || setLayout(0) < -1)
        return kivErrVideoControl;
    const int result = setZoom(1, 1);
    return result < -1 ? int(kivErrVideoControl) : result;
}

int kivVideoIn::init(kivParams* params)
{
    int width = 0;
    int height = 0;
    getXYControl(path, drainNode, KP_CONTROL_SIZE, &width, &height);
    kivTrace("SIZE: %d x %d\n", width, height);
    imageSizeX = bufferSizeX = width;
    imageSizeY = bufferSizeY = height;

    const ZVbufferpool earlier = bufferPool;
    if (const int err = makePool(); err != kivErrNone)
        return err;
    if (kpZVPoolRegister(server, path, drainNode, bufferPool) != 0)
        return keepPool(earlier);
    if (earlier != nullptr)
        zvBufferDestroyPool(earlier);  // of an earlier init
    kivTrace("parameters for video:\n");
    kivTraceZVParams(poolParams);
    return kivObj::init(params);
}

// A transfer that runs goes on with the pool it has.
int kivVideoIn::keepPool(ZVbufferpool earlier)
{
    if (earlier != nullptr) {
        zvBufferDestroyPool(bufferPool);
        bufferPool = earlier;
    }
    return kivErrVideoRegister;
}

int kivVideoIn::makePool()
{
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
    if (zvParamsCreate(&poolParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    xfersize = kpGetTransferSize(server, path);
    kivTrace("Xfersize:%d\n", xfersize);
    if (zvBufferSetPoolDefaults(poolParams, 10, xfersize, 0, 0) != ZV_SUCCESS)
        return kivErrPoolParams;
    zvSetImageDefaults(poolParams, imageSizeX, imageSizeY, ZV_IMAGE_PACKING_CbYCrY);
    if (addDstConstraints(poolParams) != kivErrNone)
        return kivErrConstraints;
    const int err = addChildConstraints(poolParams);
    if (err != kivErrNone)
        return err;
    ZVbufferpool pool = nullptr;
    if (zvBufferCreatePool(poolParams, &pool) != ZV_SUCCESS)
        return kivErrPool;
    bufferPool = pool;
    return kivErrNone;
}

// One event a call. Waits in naps of a tick while the service says that one is
// still to come; it says so only while a transfer runs on a live device.
int kivVideoIn::handleEvents(fd_set fdSet)
{
    if (!kivFdIsSet(getFD(), &fdSet))
        return kivErrNotReady;

    KPEvent event = {};
    int result = kpEventRecv(server, path, &event);
    while (result == -1 && kpGetErrno() == KP_ERRNO_NO_EVENT) {
        qtnnap(1);
        result = kpEventRecv(server, path, &event);
    }
    if (result < 0) {
        kivPrintError("VideoIn : couldn't get an event\n");
        return kivErrVideoNoEvent;
    }
    switch (event.reason) {
    case KPTransferComplete:
        return takeFrame(&event);
    case KPDeviceEvent:
        return kivErrVideoDeviceEvent;
    case KPSequenceLost:
        kivTrace("event: KPSequenceLost:\n");
        break;
    case KPTransferError:
        kivTrace("event: KPTransferErr:\n");
        break;
    default:
        if (event.reason < KPStreamBusy || event.reason > KPTransferError)
            kivTrace("Unknown event:%x", unsigned(event.reason));
    }
    return kivErrVideoOtherEvent;
}

int kivVideoIn::takeFrame(KPEvent* event)
{
    ZVbuffer frame = nullptr;
    if (kpEventToZVBuffer(event, &frame) < 0) {
        kivPrintError("Unable to convert video to zvbuffer\n");
        return kivErrVideoConvert;
    }
    propagate(frame);
    zvBufferFree(frame);
    return kivErrVideoTransferEvent;
}
