// kivMovieIn.cpp - the movie, and what the loop thread does; kivMovieInReader.cpp
// holds the reader thread's side.
#include "movie/kivMovieIn.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "movie/movieTime.h"
#include "platform/thread/thread.h"

using kiv::seekNone;

kivMovieIn::kivMovieIn()
    : reader_({canRead, readThreadFD, currentLock, firstFrameHappened, handledCurrent, currentBuffer, readBuffer,
               readThreadPID}),
      sought_(seekNone), derived_(seekNone)
{
}

// Ends the reader, then gives back what it left behind.
kivMovieIn::~kivMovieIn()
{
    endReader();
    reader_.reset();
    kivFreeSemaphore(currentLock);
    if (poolParams != nullptr)
        zvParamsDestroy(poolParams);
    free(fileName);
    if (movieID != nullptr)
        rkClose(movieID);
}

int kivMovieIn::init(kivParams*) { return kivErrVirtual; }

int kivMovieIn::getFD() { return readThreadFD; }

int kivMovieIn::easyToAdd() { return 0; }

// Opens a movie, in place of an earlier one, and takes over its sizes. Loop
// thread, before init; reads the file's index. 0 or 4002.
int kivMovieIn::setup(char* movieFile)
{
    if (movieFile == nullptr) {
        kivPrintError("kivMovieIn::setup - invalid file name\n");
        return kivErrMovieIO;
    }
    endReader();
    char* const copy = strdup(movieFile);  // before the free: it may be our own
    free(fileName);
    fileName = copy;
    if (const int err = openMovie(); err != kivErrNone)
        return err;

    readDuration();
    imageSizeX = rkGetImageWidth(imageTrack);
    imageSizeY = rkGetImageHeight(imageTrack);
    bufferSizeX = roundToPower(imageSizeX);
    bufferSizeY = roundToPower(imageSizeY);
    setTexCoordScales();
    interlacing = rkGetImageInterlacing(imageTrack);
    return kivErrNone;
}

int kivMovieIn::openMovie()
{
    if (movieID != nullptr)
        rkClose(movieID);
    if (rkOpenFile(fileName, 0, &movieID) != 0) {
        kivPrintError("kivMovieIn::setup - can't open file '%s'", fileName);
        return kivErrMovieIO;
    }
    if (rkFindTrackByMedium(movieID, RK_MEDIUM_IMAGE, &imageTrack) != 0) {
        kivPrintError("Unable to find image track in movie!\n");
        rkClose(movieID);
        return kivErrMovieIO;
    }
    return kivErrNone;
}

// The last frame's index and time. A movie of one frame, or without a usable
// rate, has no duration.
void kivMovieIn::readDuration()
{
    numFrames = rkGetTrackLength(imageTrack) - 1;
    frameRate = rkGetImageRate(imageTrack);
    const double nanoseconds = numFrames * (1.0 / frameRate) * 1e9;
    durationTime = std::isfinite(nanoseconds) ? kiv::toMovieTime(nanoseconds) : 0;
    kivTrace("duration of the movie is:%lld\n", static_cast<long long>(durationTime));
    kivTrace("duration of the movie is:%lf\n", nanoseconds);
    kivTrace("duration of the movie is:%lf\n", numFrames * (1.0 / frameRate));
}

void kivMovieIn::setTexCoordScales()
{
    texCoordScaleXD = double(imageSizeX) / bufferSizeX;
    texCoordScaleYD = double(imageSizeY) / bufferSizeY;
    texCoordScaleXF = float(texCoordScaleXD);
    texCoordScaleYF = float(texCoordScaleYD);
}

// Sets the size of the buffers, between setup and init. 4006 when the image does
// not fit, and nothing changed.
int kivMovieIn::setBufferDimensions(int x, int y)
{
    if (x < imageSizeX || y < imageSizeY)
        return kivErrBufferTooSmall;
    bufferSizeX = x;
    bufferSizeY = y;
    setTexCoordScales();
    return kivErrNone;
}

// Makes the pool's descriptor tell when a whole buffer is free. Loop thread, after the pool was
// made; `traced` prints the steps. 0, or 7 with the pool destroyed from its second step on.
int kivMovieIn::watchPool(bool traced)
{
    if (zvBufferAllocate(bufferPool, &readBuffer) != ZV_SUCCESS) {
        kivPrintError("zvbuffer allocate Failed\n");
        return kivErrPool;
    }
    const int size = zvBufferGetSize(readBuffer);
    zvBufferFree(readBuffer);
    readBuffer = nullptr;

    if (traced)
        kivTrace("Set Select size\n");
    if (zvBufferSetPoolSelectSize(bufferPool, size) != ZV_SUCCESS) {
        zvBufferDestroyPool(bufferPool);
        return kivErrPool;
    }
    if (traced)
        kivTrace("Get FD\n");
    poolFD = zvBufferGetPoolFD(bufferPool);
    if (poolFD < 0) {
        zvBufferDestroyPool(bufferPool);
        return kivErrPool;
    }
    return kivErrNone;
}

// The thread's entries are functions of this file: an application may have a
// startThread or a stopReadLoop of its own, which the linker would prefer.
static void exitReader()
{
    kivTrace("Exiting movie read loop\n");
    if (endThread(0) < 0)
        exit(0);
}

static void runReader(void* node)
{
    static_cast<kivMovieIn*>(node)->readLoop();
    exitReader();
}

// Reads on the calling thread until that is asked to end, and ends it.
void startThread(void* node) { runReader(node); }

// Ends the calling thread; on a thread that is not the layer's, the process.
void stopReadLoop(int) { exitReader(); }

// Starts the reader at movie time 0; a reader that runs already ends first. Loop
// thread. 4004 without semaphores, 4001 without a thread, else what kivObj::start
// returns.
int kivMovieIn::start(int withChildren)
{
    endReader();
    reader_.reset();
    kivFreeSemaphore(currentLock);
    if (const int err = reader_.arm(); err != kivErrNone)
        return err;
    kivShared(isPlaying).store(1);
    currentLock = yqnewsema(kivArena, 1);

    unsigned long long now = 0;
    zvGetUST(&now);
    kivShared(startTime).store(now);
    if (reader_.run(runReader, this) < 0) {
        kivPrintError("Unable to start read thread\n");
        return kivErrMovieThread;
    }
    return kivObj::start(withChildren);
}

// Propagates the waiting frame and drops the node's reference. Loop thread. 9 when
// no frame waits, 2 when the descriptor could not be armed again.
int kivMovieIn::handleEvents(fd_set fdSet)
{
    if (!kivFdIsSet(readThreadFD, &fdSet))
        return kivErrNotReady;
    const ZVbuffer frame = reader_.begin();
    if (frame == nullptr)
        return kivErrNotReady;
    propagate(frame);
    return reader_.finish(frame) == 0 ? kivErrNone : kivErrNotImplemented;
}

int kivMovieIn::pause()
{
    kivShared(isPlaying).store(0);
    return kivErrNone;
}

int kivMovieIn::resume()
{
    kivShared(isPlaying).store(1);
    return kivErrNone;
}

// Selects a frame and sets the clock so that playback goes on from it. A frame
// from the last one on selects the one before the last. Loop thread.
int kivMovieIn::gotoFrame(int frame)
{
    const int index = frame >= numFrames ? numFrames - 1 : frame;
    kivShared(currentFrameIndex).store(index);
    sought_.store(index);
    unsigned long long now = 0;
    zvGetUST(&now);
    kivShared(startTime).store(now - kiv::toOffset(index / frameRate * 1e9));
    return kivErrNone;
}

int kivMovieIn::lockCurrentBuffer()
{
    yqpsema(currentLock);
    return kivErrNone;
}

int kivMovieIn::unlockCurrentBuffer()
{
    yqvsema(currentLock);
    return kivErrNone;
}

// Loop thread, idempotent. The reader may be anywhere: each of its waits ends.
void kivMovieIn::endReader() { reader_.end(); }
