// kivLatch.cpp - see kivLatch.h.
#include "core/kivLatch.h"

namespace {

int checked(int result, const char* message)
{
    if (result < 0)
        kivPrintError("%s", message);
    return result;
}

}  // namespace

kivLatch::kivLatch()
    : gfxParams(nullptr), newBufferLock(nullptr), latchBufferLock(nullptr), firstBufferIn(0), haveNewBuffer(0),
      newBuffer(nullptr), latchBuffer(nullptr), latchOwner_(std::thread::id())
{
}

// Buffers still referenced are not freed.
kivLatch::~kivLatch()
{
    if (newBufferLock != nullptr)
        yqfreesema(newBufferLock, kivArena);
    if (latchBufferLock != nullptr)
        yqfreesema(latchBufferLock, kivArena);
}

// Makes the two semaphores; call it before the first buffer can arrive. The latch
// lock starts taken, so that a grab waits for the first buffer; a second setup
// frees the old pair and leaves the latch as it was, not grabbed.
int kivLatch::setup()
{
    if (newBufferLock != nullptr)
        yqfreesema(newBufferLock, kivArena);
    if (latchBufferLock != nullptr)
        yqfreesema(latchBufferLock, kivArena);
    latchBufferLock = yqnewsema(kivArena, 0);
    newBufferLock = yqnewsema(kivArena, 1);
    if (firstBufferIn)
        unlockLatchBuffer();
    return kivErrNone;
}

int kivLatch::init(kivParams* params) { return kivObj::init(params); }

int kivLatch::addSrcConstraints(ZVparams* params) { return addChildConstraints(params); }

int kivLatch::addDstConstraints(ZVparams* params)
{
    return parent != nullptr ? parent->addDstConstraints(params) : kivErrNone;
}

// Makes `inBuffer` the newest one, with a reference of the latch's own; the one
// before it loses the latch's reference. The first buffer also becomes the latched
// one and lets waiting grabs in. Producer's thread; waits only while a grab swaps.
int kivLatch::receive(ZVbuffer inBuffer)
{
    lockNewBuffer();
    if (firstBufferIn)
        zvBufferFree(newBuffer);
    newBuffer = inBuffer;
    zvBufferAttach(newBuffer);
    if (!firstBufferIn) {
        std::atomic_ref(firstBufferIn).store(1);  // a texture node asks without the lock
        latchBuffer = newBuffer;
        zvBufferAttach(latchBuffer);
        unlockLatchBuffer();
    }
    unlockNewBuffer();
    std::atomic_ref(haveNewBuffer).store(1);
    return kivErrNone;
}

// Makes the newest buffer the latched one and holds the latch until release.
// Blocks until a first buffer has arrived and no other consumer holds the latch;
// so a second grab on one thread never returns.
int kivLatch::grab()
{
    lockLatchBuffer();
    lockNewBuffer();
    zvBufferFree(latchBuffer);
    latchBuffer = newBuffer;
    zvBufferAttach(latchBuffer);
    unlockNewBuffer();
    // A buffer that arrived since the unlock stays unflagged until the next one.
    std::atomic_ref(haveNewBuffer).store(0);
    return kivErrNone;
}

// Hands the latched buffer, with all that was drawn into it, to the children, then
// lets the latch go. The reference stays until the next grab.
int kivLatch::release()
{
    if (latchBuffer != nullptr) {
        zvBufferSync(latchBuffer);
        propagate(latchBuffer);
    }
    unlockLatchBuffer();
    return kivErrNone;
}

// Address of the latched buffer's data; null before the first buffer.
void* kivLatch::mapBuffer() { return zvBufferMapData(latchBuffer); }

// Stamp of the latched buffer; a zero pair while nothing is grabbed.
USTMSCpair kivLatch::getUSTMSC()
{
    if (yqtestsema(latchBufferLock) != 0)
        return {0, 0};
    return zvBufferGetUSTMSCpair(latchBuffer);
}

// Passes a new buffer on; there is no descriptor, so the set is not looked at.
// Waits while another thread holds the latch. When this very thread holds it, the
// wait would never end: 9, and the buffer goes on after the release.
int kivLatch::handleEvents(fd_set)
{
    if (!std::atomic_ref(haveNewBuffer).load())
        return kivErrNotReady;
    if (latchedHere())
        return kivErrNotReady;
    grab();
    release();
    return kivErrNone;
}

int kivLatch::lockNewBuffer() { return checked(yqpsema(newBufferLock), "kivLatch::lockNewBuffer failed !\n"); }

int kivLatch::unlockNewBuffer() { return checked(yqvsema(newBufferLock), "kivLatch::unlockNewBuffer failed.\n"); }

int kivLatch::lockLatchBuffer()
{
    const int result = checked(yqpsema(latchBufferLock), "kivLatch::lockLatchBuffer failed !\n");
    if (result == 0)
        latchOwner_.store(std::this_thread::get_id());
    return result;
}

int kivLatch::unlockLatchBuffer()
{
    latchOwner_.store(std::thread::id());
    return checked(yqvsema(latchBufferLock), "kivLatchBuffer::unlockLatchBuffer failed.\n");
}
