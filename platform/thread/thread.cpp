// thread.cpp - the public calls.
#include "platform/thread/thread.h"

#include <poll.h>
#include <pthread.h>

#include "platform/support/error.h"
#include "platform/thread/record.h"

using namespace kiv;

extern "C" int threadStart(void (*entry)(void* arg), void* arg) { return startThread(entry, arg); }

extern "C" int threadKill(int id, int signal)
{
    constexpr int stopSignal = 15;
    if (signal != stopSignal)
        return recordError(ZV_ERROR_ARGUMENT, "threads take %d, not signal %d", stopSignal, signal);
    return askStop(id);
}

extern "C" int threadWait(int id, int* status) { return joinThread(id, status); }

extern "C" int threadSelf(void) { return currentThread(); }

extern "C" int stopRequested(void) { return stopAsked() ? 1 : 0; }

extern "C" int threadStopFD(void) { return stopDescriptor(); }

// Unwinds this thread's frames; a catch (...) on the way must rethrow. The record
// is finished by the outermost frame. Foreign threads: -1, nothing happens.
extern "C" int endThread(int status)
{
    ThreadRecord* const record = selfRecord();
    if (record == nullptr)
        return recordError(ZV_ERROR_STATE, "not a thread of this layer");
    record->status = status;
    pthread_exit(nullptr);
}

extern "C" int threadPoll(int fd, unsigned long long deadlineNs) { return pollFd(fd, POLLIN, deadlineNs); }

extern "C" int threadPollWrite(int fd, unsigned long long deadlineNs) { return pollFd(fd, POLLOUT, deadlineNs); }

extern "C" int qtnnap(int ticks) { return nap(ticks); }
