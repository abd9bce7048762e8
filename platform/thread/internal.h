// internal.h - threads and interruptible waits for the other services.
// The same code as the public entries, reached past them.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

#include "platform/thread/thread.h"

namespace kiv {

struct ThreadRecord;

int startThread(void (*entry)(void*), void* arg);
int askStop(int id);  // threadKill(id, 15)
int joinThread(int id, int* status);

int currentThread();  // 0 on a thread that is not the layer's
bool stopAsked();
int stopDescriptor();  // -1 on a thread that is not the layer's

// Waits for `events` on `fd` as threadPoll does, or for fd < 0 only for the
// deadline or a stop. Returns a THREAD_POLL_ value.
int pollFd(int fd, short events, uint64_t deadlineNs);
int nap(int ticks);

inline uint64_t monotonicNs()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000u + uint64_t(now.tv_nsec);
}

// A word whose only use is to sleep on: it counts the events that sleepers must
// look at. Whoever changes what they wait for increments it and then wakes.
using WakeCount = std::atomic<uint32_t>;

// Sleeps while `word` is `seen`; returns early for any reason whatever. Works
// across processes, as WakeCounts may lie in a shared arena.
void sleepOn(const WakeCount& word, uint32_t seen);
void wakeSleepers(WakeCount& word, int most);  // increments, then wakes up to `most`
constexpr int everySleeper = 0x7fffffff;

// While one lives, a stop request to this thread also increments and wakes `word`,
// so the loop
//     read word; test the condition; if (wait.stopped()) leave; sleepOn(word, what was read)
// loses no request: one that comes after stopped() was asked has not yet
// incremented when the word was read, so the sleep ends at once. The word must
// stay mapped for the life of the process. Does nothing on a foreign thread.
class StoppableSleep {
public:
    explicit StoppableSleep(WakeCount& word);
    ~StoppableSleep();
    StoppableSleep(const StoppableSleep&) = delete;
    StoppableSleep& operator=(const StoppableSleep&) = delete;

    bool stopped() const;

private:
    ThreadRecord* record_;
};

}  // namespace kiv
