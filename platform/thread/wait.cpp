// wait.cpp - the blocking calls that a stop request ends.
#include <cerrno>

#include <linux/futex.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/support/error.h"
#include "platform/thread/record.h"

namespace kiv {

namespace {

constexpr uint64_t nsPerTick = 1000000;
constexpr uint64_t nsPerSecond = 1000000000;

// Null: no deadline.
timespec* remaining(uint64_t deadlineNs, timespec& space)
{
    if (deadlineNs == 0)
        return nullptr;
    const uint64_t now = monotonicNs();
    const uint64_t left = deadlineNs > now ? deadlineNs - now : 0;
    space.tv_sec = time_t(left / nsPerSecond);
    space.tv_nsec = long(left % nsPerSecond);
    return &space;
}

long futex(const WakeCount& word, int operation, uint32_t value)
{
    static_assert(sizeof word == 4 && WakeCount::is_always_lock_free);
    return syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

}  // namespace

int currentThread() { return selfRecord() != nullptr ? selfRecord()->id : 0; }

bool stopAsked() { return selfRecord() != nullptr && selfRecord()->stop.load(); }

int stopDescriptor() { return selfRecord() != nullptr ? selfRecord()->stopFd.get() : -1; }

int pollFd(int fd, short events, uint64_t deadlineNs)
{
    pollfd fds[2]
        = {{.fd = stopDescriptor(), .events = POLLIN, .revents = 0}, {.fd = fd, .events = events, .revents = 0}};
    timespec left;
    int ready = 0;
    do {
        ready = ppoll(fds, 2, remaining(deadlineNs, left), nullptr);
    } while (ready < 0 && errno == EINTR);

    if (ready < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "descriptor %d cannot be waited for", fd);
    if (fds[0].revents != 0) {
        recordError(ZV_ERROR_STOPPED, "a stop request ended the wait for descriptor %d", fd);
        return THREAD_POLL_STOP;
    }
    if (fds[1].revents & POLLNVAL)
        return recordError(ZV_ERROR_ARGUMENT, "%d is not an open descriptor", fd);
    return ready > 0 ? THREAD_POLL_READY : THREAD_POLL_TIMEOUT;
}

int nap(int ticks)
{
    const uint64_t length = ticks > 0 ? uint64_t(ticks) * nsPerTick : 0;
    return pollFd(-1, 0, monotonicNs() + length) == THREAD_POLL_TIMEOUT ? 0 : -1;
}

void sleepOn(const WakeCount& word, uint32_t seen) { futex(word, FUTEX_WAIT, seen); }

void wakeSleepers(WakeCount& word, int most)
{
    word.fetch_add(1);
    futex(word, FUTEX_WAKE, uint32_t(most));
}

StoppableSleep::StoppableSleep(WakeCount& word) : record_(selfRecord())
{
    if (record_ != nullptr)
        record_->sleepsOn.store(&word);
}

StoppableSleep::~StoppableSleep()
{
    if (record_ != nullptr)
        record_->sleepsOn.store(nullptr);
}

bool StoppableSleep::stopped() const { return record_ != nullptr && record_->stop.load(); }

}  // namespace kiv
