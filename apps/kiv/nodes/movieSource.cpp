// movieSource.cpp - see movieSource.h.
#include "apps/kiv/nodes/movieSource.h"

#include <algorithm>

#include "apps/kiv/graph/tally.h"
#include "platform/thread/thread.h"

// The reader must be gone before this class's part of the node is.
MovieSource::~MovieSource() { endReader(); }

// Reader thread. Reads the next frame into the node's buffer and stamps it with now
// and its index. Waits until it is due, or until the frame before was taken; a stop
// request ends the wait. Returns 0, or 4005 when there is no further frame and for one
// that cannot be read.
int MovieSource::getImageFrameTime(long long)
{
    const int index = nextIndex();
    if (index < 0 || !kivShared(isPlaying).load())  // paused while it waited: the picture stands still
        return kivErrFrameNotYet;

    last_ = index;
    kivShared(currentFrameIndex).store(index);
    if (!readWhole(index)) {
        kivShared(unreadable_).fetch_add(1);
        return kivErrFrameNotYet;
    }
    if (every && !waitTaken())
        return kivErrFrameNotYet;

    zvBufferSetUSTMSCpair(readBuffer, {nowNs(), index});
    return kivErrNone;
}

// False when the file does not hold the frame. The library's node would hand the
// buffer on as it is, with what an earlier frame has left in it.
bool MovieSource::readWhole(int index)
{
    const int size = rkGetCompressedImageSize(imageTrack, index);
    return size > 0 && size <= zvBufferGetSize(readBuffer)
        && rkReadCompressedImage(imageTrack, index, size, zvBufferMapData(readBuffer)) == 0
        && zvBufferSetSize(readBuffer, size) == 0;
}

int MovieSource::nextIndex()
{
    if (!every)
        return indexByClock();
    if (last_ < numFrames)
        return last_ + 1;
    if (loop)
        return 0;
    finish();
    return -1;
}

// The frame that is due now, or the next one, for whose time it waits.
int MovieSource::indexByClock()
{
    const long long length = numFrames + 1;
    const double perFrame = 1e9 / (frameRate * timeScale);
    const double start = double(kivShared(startTime).load());
    long long due = (long long)((double(nowNs()) - start) / perFrame);
    if (restarted_.exchange(false))
        clock_ = due + 1;
    if (!loop && clock_ >= length) {
        finish();
        return -1;
    }
    if (due < clock_) {
        const double when = start + double(clock_) * perFrame;
        if (threadPoll(threadStopFD(), (unsigned long long)(when)) != THREAD_POLL_TIMEOUT)
            return -1;
        due = clock_;
    }
    due = loop ? due : std::min(due, length - 1);
    kivShared(skipped_).fetch_add(due - clock_);
    clock_ = due + 1;
    return int(due % length);
}

// Waits until the last frame was taken, says so, and then waits for the stop request.
void MovieSource::finish()
{
    if (!waitTaken())
        return;
    ended_.raise();
    threadPoll(threadStopFD(), 0);
}

bool MovieSource::taken() { return kivShared(handledCurrent).load() != 0; }
long long MovieSource::skipped() { return kivShared(skipped_).load(); }
long long MovieSource::unreadable() { return kivShared(unreadable_).load(); }
