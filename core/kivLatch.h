// kivLatch.h - keeps the newest buffer for a consumer that works at its own pace.
#pragma once

#include <atomic>
#include <thread>

#include "core/kivObj.h"

// receive may run on a producer's thread, grab and release on a consumer's; the
// rest is loop-bound. Lock order: latch lock, then new-buffer lock. The latch holds
// up to two references, and still holds them when it is deleted.
class KIV_API kivLatch : public kivObj {
public:
    kivLatch();
    ~kivLatch() override;

    int addSrcConstraints(ZVparams* params) override;
    int addDstConstraints(ZVparams* params) override;
    int init(kivParams* params) override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;

    virtual int grab();
    virtual int release();
    virtual void* mapBuffer();
    virtual USTMSCpair getUSTMSC();

    int setup();
    // 0, or -1 after a line when there is no semaphore.
    int lockNewBuffer();
    int unlockNewBuffer();
    int lockLatchBuffer();
    int unlockLatchBuffer();

    ZVparams* gfxParams;  // for derived graphics classes
    yqsema_t* newBufferLock;  // guards newBuffer
    yqsema_t* latchBufferLock;  // held while a consumer works on latchBuffer
    int firstBufferIn;  // a first buffer has arrived
    int haveNewBuffer;  // one arrived since the last grab
    ZVbuffer newBuffer;  // one reference
    ZVbuffer latchBuffer;  // one reference

protected:
    // Has the calling thread grabbed the latch? A grab of it would then never return.
    bool latchedHere() const { return latchOwner_.load() == std::this_thread::get_id(); }

private:
    std::atomic<std::thread::id> latchOwner_;  // thread that took the latch lock; none when free
};
