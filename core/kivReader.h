// kivReader.h - a source's reader thread, and the one frame between it and the loop.
#pragma once

#include <atomic>
#include <thread>

#include "core/kivError.h"
#include "platform/yq/yq.h"
#include "platform/zv/zv.h"

// A plain field of a node that another thread touches as well.
template <class T> std::atomic_ref<T> kivShared(T& field) { return std::atomic_ref<T>(field); }

// What a source with a reader thread of its own is made of. The reader fills
// buffers and publishes them, the loop takes them: at most one waits, and the
// newest wins. The state is the node's, in its public fields; `canRead` is a
// polled semaphore of value -1 while nothing waits and 0 while a frame does, so
// its descriptor is readable exactly then.
//
// Each operation says which of the two threads it belongs to.
class KIV_API kivReader {
public:
    struct Fields {
        yqsema_t*& canRead;
        int& canReadFD;
        yqsema_t*& currentLock;  // count 1; guards the next three
        int& firstFrameHappened;
        int& handledCurrent;
        ZVbuffer& currentBuffer;
        ZVbuffer& readBuffer;  // the reader's own
        int& readerID;  // -1: none
    };
    explicit kivReader(const Fields& node);
    kivReader(const kivReader&) = delete;
    kivReader& operator=(const kivReader&) = delete;

    // Loop thread.
    int arm();
    int run(void (*entry)(void*), void* node);
    void end();
    void reset();
    void takeBack();
    ZVbuffer begin();
    int finish(ZVbuffer frame);
    bool handling() const;

    // Reader thread.
    bool allocate(ZVbufferpool pool, int poolFD, const char* className);
    bool lockForReader();
    int publish();
    bool waitTaken();
    void drop();
    void retire();
    void leave();

    // Thread-safe.
    int alive() const { return alive_.load(); }
    long long published() const { return published_.load(std::memory_order_relaxed); }
    long long dropped() const { return dropped_.load(std::memory_order_relaxed); }

private:
    void dropWaiting();
    void markTaken();

    const Fields node_;
    int joinID_ = -1;  // the thread to wait for; stays when it ended by itself
    yqsema_t* lockTaken_ = nullptr;  // the two semaphores of the frame in hand
    yqsema_t* armed_ = nullptr;
    std::atomic<std::thread::id> handler_{};  // the thread between begin and finish
    std::atomic<int> alive_{0};
    std::atomic<int> left_{0};
    std::atomic<long long> published_{0};
    std::atomic<long long> dropped_{0};  // published, and never taken by the loop
    yqsema_t* taken_ = nullptr;  // what waitTaken sleeps on; made when first needed
    std::atomic<int> wantsTaken_{0};
};

// Asks a thread of the layer to end.
constexpr int kivStopSignal = 15;

// Frees a semaphore, if there is one, and forgets it.
KIV_API void kivFreeSemaphore(yqsema_t*& semaphore);
