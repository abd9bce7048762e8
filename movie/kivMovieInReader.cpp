// kivMovieInReader.cpp - the reader thread of kivMovieIn.
#include <cstdlib>

#include "movie/kivMovieIn.h"
#include "movie/movieTime.h"
#include "platform/thread/thread.h"

using kiv::seekNone;

// Fills buffers and hands them over until it is asked to end. While a pool buffer
// is missing it waits for one, so it never runs ahead of the consumers by more
// than the pool holds.
void kivMovieIn::readLoop()
{
    kivTrace("Starting movieIn readLoop thread\n");
    while (!stopRequested()) {
        if (!reader_.allocate(bufferPool, poolFD, "kivMovieIn"))
            continue;
        const int rc = readFrame();
        if (rc == kivErrFrameNotYet) {
            reader_.drop();
            qtnnap(1);
            continue;
        }
        if (!publish())
            break;
        if (rc != kivErrNone)
            qtnnap(1);  // a frame that fails at once must not make this loop spin
    }
    if (onReaderEnd_ != nullptr)
        onReaderEnd_(*this);
    reader_.leave();
}

// One frame into readBuffer; 4005 when the right one has been handed over already.
int kivMovieIn::readFrame()
{
    const int sought = sought_.exchange(seekNone);
    const bool playing = kivShared(isPlaying).load() != 0;
    if (!playing && sought != seekNone)
        replaceDerived(sought);
    derived_ = seekNone;
    return playing ? readPlaying() : readPaused();
}

// The frame of the clock. At the end of a movie that does not loop: the last one,
// and then paused. The retry always wraps, also then.
int kivMovieIn::readPlaying()
{
    const unsigned long long movieTime = movieNow();
    const bool atEnd = !kivShared(isLooping).load() && movieTime > durationTime;
    int rc = getImageFrameTime(static_cast<long long>(atEnd ? durationTime : kiv::wrapTime(movieTime, durationTime)));
    if (atEnd)
        pause();
    // A pause by the application ends the retry; the one just above does not.
    while (rc == kivErrFrameNotYet && !stopRequested() && (atEnd || kivShared(isPlaying).load())) {
        rc = getImageFrameTime(static_cast<long long>(kiv::wrapTime(movieNow(), durationTime)));
        qtnnap(2);
    }
    return rc;
}

// The frame that is held. Frame operations that go through movie time come out one
// lower for some indices; putting the index back keeps a paused movie where it is.
int kivMovieIn::readPaused()
{
    const int held = kivShared(currentFrameIndex).load();
    derived_ = held;
    const int rc = getImageFrameIndex(held);
    replaceDerived(held);
    derived_ = seekNone;
    if (kivShared(currentFrameIndex).load() != held)
        kivShared(lastFrameIndex).store(-1);  // the application stepped; its own -1 may have come too early
    return rc;
}

// Puts an index in place of the one that the reader wrote itself; what the
// application wrote since then stays.
void kivMovieIn::replaceDerived(int index)
{
    int mine = derived_;
    if (kivShared(currentFrameIndex).compare_exchange_strong(mine, index))
        derived_ = index;
}

// Hands readBuffer over. False when the thread is to end: nothing was handed over.
bool kivMovieIn::publish()
{
    if (!reader_.lockForReader())
        return false;
    if (reader_.publish() < 0)
        kivPrintError("Unable to increment semaphore\n");
    return true;
}

// Movie time by the clock, in [0, 2^63) whatever the speed and the start.
unsigned long long kivMovieIn::movieNow()
{
    unsigned long long now = 0;
    zvGetUST(&now);
    const unsigned long long elapsed = now - kivShared(startTime).load();
    return kiv::toMovieTime(double(elapsed) * kivShared(timeScale).load());
}

// The frame that is shown at a movie time. For the frame operations.
int kivMovieIn::frameIndexAt(long long movieTime) const
{
    return kiv::toFrameIndex(frameRate * double(movieTime) / 1e9);
}

// Stores the index that a frame operation has derived from a movie time; while paused,
// only in place of the one that it was asked for. Reader thread.
void kivMovieIn::setFrameIndex(int index)
{
    if (derived_ != seekNone)
        return replaceDerived(index);
    derived_ = index;
    kivShared(currentFrameIndex).store(index);
}

// Waits until the loop has taken the last frame, for sources that lose none.
// Reader thread. False when it is asked to end.
bool kivMovieIn::waitTaken() { return reader_.waitTaken(); }
