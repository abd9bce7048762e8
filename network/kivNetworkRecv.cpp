// kivNetworkRecv.cpp - what the loop thread does; kivNetworkRecvReader.cpp holds
// the reader thread's side.
#include "network/kivNetworkRecv.h"

#include <cstdlib>

#include "platform/thread/thread.h"

kivNetworkRecv::kivNetworkRecv() : kivNetworkRecv(0, 0) { }

kivNetworkRecv::kivNetworkRecv(int sizeX, int sizeY)
    : reader_(
        {canRead, canReadFD, currentLock, firstFrameHappened, handledCurrent, currentBuffer, readBuffer, readLoopPID})
{
    imageSizeX = sizeX;
    imageSizeY = sizeY;
}

// Ends the reader, then gives back what it left behind.
kivNetworkRecv::~kivNetworkRecv()
{
    endReader();
    reader_.reset();
    kivFreeSemaphore(currentLock);
}

int kivNetworkRecv::getFD() { return canReadFD; }

// A source takes no input.
int kivNetworkRecv::receive(ZVbuffer) { return kivErrNone; }

// Makes a pool of two frames and initialises the children. Loop thread. Returns 4
// to 7 by the step that failed.
int kivNetworkRecv::init(kivParams*)
{
    endReader();
    if (const int err = makePool(); err != kivErrNone)
        return err;
    poolFD = zvBufferGetPoolFD(bufferPool);
    if (poolFD < 0) {
        zvBufferDestroyPool(bufferPool);
        return kivErrPool;
    }
    kivFreeSemaphore(currentLock);
    currentLock = yqnewsema(kivArena, 1);
    return kivObj::init(nullptr);
}

// Bytes of an image as it was configured; -1 when there is no such image.
int kivNetworkRecv::frameBytes()
{
    ZVparams* imageParams = nullptr;
    zvParamsCreate(&imageParams);
    zvSetImageDefaults(imageParams, imageSizeX, imageSizeY, packing);
    const int bytes = zvImageFrameSize(imageParams);
    zvParamsDestroy(imageParams);
    return bytes;
}

int kivNetworkRecv::makePool()
{
    const int bufferSize = frameBytes();
    ZVparams* poolParams = nullptr;
    if (zvParamsCreate(&poolParams) != ZV_SUCCESS)
        return report(kivErrPoolParams, __LINE__);
    int err = kivErrNone;
    if (zvBufferSetPoolDefaults(poolParams, 2, bufferSize, false, false) != ZV_SUCCESS)
        err = report(kivErrPoolDefaults, __LINE__);
    else if (addChildConstraints(poolParams) != kivErrNone)
        err = report(kivErrConstraints, __LINE__);
    if (err == kivErrNone && bufferPool != nullptr)
        zvBufferDestroyPool(bufferPool);  // of an earlier init
    if (err == kivErrNone && zvBufferCreatePool(poolParams, &bufferPool) != ZV_SUCCESS)
        err = report(kivErrPool, __LINE__);
    zvParamsDestroy(poolParams);
    return err;
}

// Prints what the service said, if that was asked for; the id.
int kivNetworkRecv::report(int errorID, int line)
{
    if (printReturnErr == 1)
        kivReportService(errorID, "kivNetworkRecv", line, getName());
    return errorID;
}

// The reader thread's entry, and how it ends when it was asked to.
static void runReader(void* node)
{
    static_cast<kivNetworkRecv*>(node)->readLoop();
    if (stopRequested())
        kivTrace("stopping netRecv read loop\n");
    endThread(0);
}

// Starts the reader; one that runs already ends first, and a frame that nobody
// took is freed. Loop thread. 7000 without a connection, 4004 without semaphores.
int kivNetworkRecv::start(int withChildren)
{
    if (dataObj == nullptr) {
        kivPrintError("kivNetworkRecv::Start occured before setting data obj\n");
        return kivErrNetwork;
    }
    endReader();
    reader_.reset();
    kivShared(started).store(1);  // before the thread: the reader looks at it first
    if (const int err = reader_.arm(); err != kivErrNone)
        return err;
    kivTrace("network fd:%d\n", canReadFD);
    kivTrace("netRecv:readThreadPID: %d\n", reader_.run(runReader, this));
    return kivNetwork::start(withChildren);
}

// Propagates the waiting frame and drops the node's reference. Loop thread. 9 when
// no frame waits.
int kivNetworkRecv::handleEvents(fd_set fdSet)
{
    kivTrace("network object handle events\n");
    if (!isStarted() || !kivFdIsSet(canReadFD, &fdSet))
        return kivErrNotReady;
    const ZVbuffer frame = reader_.begin();
    if (frame == nullptr)
        return kivErrNotReady;
    kivTrace("propagating network data\n");
    propagate(frame);
    reader_.finish(frame);
    return kivErrNone;
}

// Frees a frame that nobody took and ends the reader, which may be waiting for the
// lock held here: that wait is interrupted. Loop thread. In a child's receive the
// lock is held already, and the frame is handleEvents' own.
int kivNetworkRecv::stop()
{
    const bool inReceive = reader_.handling();
    const bool locked = !inReceive && yqpsema(currentLock) == 0;
    if (locked && yqtestsema(canRead) == 0)
        reader_.takeBack();
    endReader();
    if (!inReceive)
        reader_.takeBack();  // the reader may have been about to post
    const int err = kivNetwork::stop();
    if (locked)
        yqvsema(currentLock);
    return err;
}

// Loop thread, idempotent. The reader may be anywhere: each of its waits ends.
void kivNetworkRecv::endReader() { reader_.end(); }
