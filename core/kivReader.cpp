// kivReader.cpp - see kivReader.h.
#include "core/kivReader.h"

#include "core/kivObj.h"
#include "platform/thread/thread.h"

kivReader::kivReader(const Fields& node) : node_(node) { }

// Makes the frame-ready semaphore and arms it, so that its descriptor turns
// readable with the first frame. Loop thread, no reader running. 0 or 4004; a
// failure leaves what was made for the next reset.
int kivReader::arm()
{
    node_.canRead = yqnewpollsema(kivObj::kivArena, 0);
    if (node_.canRead == nullptr) {
        kivPrintError("Unable to create semaphore for movie read thread\n");
        return kivErrSemaphore;
    }
    node_.canReadFD = yqopenpollsema(node_.canRead, 0777);
    if (node_.canReadFD < 0) {
        kivPrintError("Unable to attach FD to semaphore\n");
        return kivErrSemaphore;
    }
    if (yqpsema(node_.canRead) < 0) {
        kivPrintError("yqpsema error\n");
        return kivErrSemaphore;
    }
    return kivErrNone;
}

// Starts the reader thread; its id, or -1. Loop thread. The order against retire()
// makes sure that the id of a reader which is over already does not stay behind.
int kivReader::run(void (*entry)(void*), void* node)
{
    alive_.store(1);
    left_.store(0);
    joinID_ = threadStart(entry, node);
    kivShared(node_.readerID).store(joinID_);
    if (joinID_ < 0)
        alive_.store(0);
    else if (!alive_.load())
        kivShared(node_.readerID).store(-1);
    return joinID_;
}

// Ends the reader and waits for it; nothing when there is none. Loop thread. The
// reader may be waiting for the lock: that wait is interrupted. On the reader itself
// it only asks.
void kivReader::end()
{
    if (joinID_ < 0)
        return;
    threadKill(joinID_, kivStopSignal);
    if (threadSelf() == joinID_)
        return;
    kivShared(node_.readerID).store(-1);
    // A thread of the layer that is asked to end itself waits for no other; the
    // reader must have left the node all the same.
    if (threadWait(joinID_, nullptr) != 0)
        left_.wait(0);
    joinID_ = -1;
}

// Back to where arm() begins: no waiting frame, no frame-ready semaphore. Loop
// thread, no reader running.
void kivReader::reset()
{
    dropWaiting();
    node_.firstFrameHappened = 0;
    kivFreeSemaphore(node_.canRead);
    node_.canReadFD = -1;
    kivFreeSemaphore(taken_);
    wantsTaken_.store(0);
}

// Takes back a waiting frame together with its post. Loop thread, under the lock
// or with no reader running.
void kivReader::takeBack()
{
    dropWaiting();
    if (yqtestsema(node_.canRead) == 0)
        yqpsema(node_.canRead);
}

// A frame that a child's receive is looking at belongs to finish().
void kivReader::dropWaiting()
{
    if (kivShared(node_.handledCurrent).load())
        return;
    if (!handling()) {
        zvBufferFree(node_.currentBuffer);
        dropped_.fetch_add(1, std::memory_order_relaxed);
    }
    node_.currentBuffer = nullptr;
    kivShared(node_.handledCurrent).store(1);
}

// The waiting frame, with the lock held until finish(); null when there is none,
// also inside a child's receive. Loop thread; waits while the reader swaps.
ZVbuffer kivReader::begin()
{
    if (handling() || yqpsema(node_.currentLock) != 0)
        return nullptr;
    lockTaken_ = node_.currentLock;
    armed_ = node_.canRead;
    if (kivShared(node_.handledCurrent).load() || node_.currentBuffer == nullptr) {
        yqvsema(lockTaken_);
        return nullptr;
    }
    handler_.store(std::this_thread::get_id());
    return node_.currentBuffer;
}

// Drops the node's reference and re-arms the descriptor; the result of the latter.
// Loop thread. A child that started the node anew has left this frame to us, and
// the new semaphore is not the one that the frame was posted on.
int kivReader::finish(ZVbuffer frame)
{
    zvBufferFree(frame);
    const bool sameRun = node_.canRead == armed_;
    if (sameRun)
        markTaken();
    handler_.store({});
    yqvsema(lockTaken_);
    return sameRun ? yqpsema(armed_) : 0;
}

void kivReader::markTaken()
{
    kivShared(node_.handledCurrent).store(1);
    if (wantsTaken_.exchange(0))
        yqvsema(taken_);
}

// Is the calling thread inside begin ... finish, that is, in a child's receive?
bool kivReader::handling() const { return handler_.load() == std::this_thread::get_id(); }

// Waits for a free buffer of the pool and takes it into readBuffer. Reader thread.
// False on a stop request, and after a failure that was printed and slept upon.
bool kivReader::allocate(ZVbufferpool pool, int poolFD, const char* className)
{
    // Asking the pool first saves a system call for every frame.
    if (zvBufferGetPoolFree(pool) <= 0 && poolFD >= 0 && threadPollWrite(poolFD, 0) == THREAD_POLL_STOP)
        return false;
    if (zvBufferAllocate(pool, &node_.readBuffer) == ZV_SUCCESS)
        return true;
    node_.readBuffer = nullptr;
    kivPrintError("%s: ZVBuffer allocate Failed\n", className);
    qtnnap(1);
    return false;
}

// Takes the lock. Reader thread. False: not taken, because the thread is asked to end.
bool kivReader::lockForReader() { return yqpsema(node_.currentLock) == 0; }

// Makes readBuffer the waiting frame in place of one that nobody took, gives the
// lock back and posts; the result of the post. Reader thread, under the lock.
int kivReader::publish()
{
    if (!node_.firstFrameHappened) {
        node_.firstFrameHappened = 1;
    } else if (!kivShared(node_.handledCurrent).load()) {
        yqpsema(node_.canRead);
        zvBufferFree(node_.currentBuffer);
        dropped_.fetch_add(1, std::memory_order_relaxed);
    }
    node_.currentBuffer = node_.readBuffer;
    node_.readBuffer = nullptr;
    kivShared(node_.handledCurrent).store(0);
    published_.fetch_add(1, std::memory_order_relaxed);
    yqvsema(node_.currentLock);
    return yqvsema(node_.canRead);
}

// Waits until the loop has taken the last frame. Reader thread; for sources that
// lose none. False on a stop request.
bool kivReader::waitTaken()
{
    if (taken_ == nullptr)
        taken_ = yqnewsema(kivObj::kivArena, 0);
    while (!kivShared(node_.handledCurrent).load()) {
        wantsTaken_.store(1);
        if (!kivShared(node_.handledCurrent).load() && yqpsema(taken_) != 0)
            return false;
    }
    return true;
}

// Frees the buffer that was being filled. Reader thread.
void kivReader::drop()
{
    if (node_.readBuffer != nullptr)
        zvBufferFree(node_.readBuffer);
    node_.readBuffer = nullptr;
}

// Gives the buffer that was being filled back and says that the reader reads no
// more. Reader thread, on every road to its end.
void kivReader::retire()
{
    drop();
    alive_.store(0);
    kivShared(node_.readerID).store(-1);
}

// Reader thread, as its last touch of the node: from here on it may be destroyed.
void kivReader::leave()
{
    retire();
    left_.store(1);
    left_.notify_all();
}

void kivFreeSemaphore(yqsema_t*& semaphore)
{
    if (semaphore != nullptr)
        yqfreesema(semaphore, kivObj::kivArena);
    semaphore = nullptr;
}
