// record.h - what the service knows of one of its threads. Private to platform/thread.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>

#include "platform/support/fd.h"
#include "platform/thread/internal.h"

namespace kiv {

// Records stay mapped for the life of the process. One is used again after its
// thread has been joined, under a new id.
struct ThreadRecord {
    enum class State { Running, Ended, Joined };

    // Written while the thread does not run yet; then constant.
    int id = 0;
    pid_t process = 0;  // a forked child inherits the record, but not the thread
    pthread_t handle = {};
    void (*entry)(void*) = nullptr;
    void* arg = nullptr;

    // The thread's own until it has ended.
    int status = 0;

    // Guarded by the table's lock; the thread itself reads its stopFd without.
    State state = State::Running;
    bool joining = false;  // somebody has taken on the one pthread_join
    UniqueFd stopFd;

    std::atomic<bool> stop{false};
    std::atomic<WakeCount*> sleepsOn{nullptr};  // where a stop request must wake the thread
    WakeCount changes{0};  // sleepers in joinThread
};

// The record of the calling thread; null on a thread that is not the layer's.
ThreadRecord* selfRecord();

}  // namespace kiv
