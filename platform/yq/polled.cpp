// polled.cpp - semaphores with a descriptor. Nothing of them is in the shared
// arena but the slot, which makes their handle unique.
//
// The descriptor is a level: readable exactly while the semaphore is armed and
// its value is 0 or more. Between a reader that posts after it unlocks and a loop
// that takes after it unlocks, an edge would be lost or seen twice.
#include <climits>

#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/support/error.h"
#include "platform/yq/semaphore.h"

namespace kiv {

namespace {

// Under the lock. A system call only when the level changes.
int setLevel(Polled& own)
{
    const bool readable = own.armed && own.value >= 0;
    if (own.fd < 0 || readable == own.readable)
        return 0;
    uint64_t count = 1;
    const ssize_t done = readable ? write(own.fd, &count, sizeof count) : read(own.fd, &count, sizeof count);
    if (done != ssize_t(sizeof count))
        return recordSystemError(ZV_ERROR_SYSTEM, "descriptor %d of a semaphore", own.fd);
    own.readable = readable;
    return 0;
}

}  // namespace

void beginPolled(const SemaphoreRef& ref, int value)
{
    Polled& own = ref.own();
    std::lock_guard lock(own.lock);
    own.tag = ref.tag;
    own.value = value;
    own.armed = false;
    own.readable = false;
    own.fd = -1;
}

int openPolled(const SemaphoreRef& ref)
{
    Polled& own = ref.own();
    std::lock_guard lock(own.lock);
    if (own.tag != ref.tag)
        return recordStale(ref);
    if (own.fd >= 0)
        return own.fd;
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (fd < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "no descriptor for a semaphore");
    own.fd = selectableFd(fd).release();
    if (own.fd < 0)
        return -1;
    return setLevel(own) == 0 ? own.fd : -1;
}

int addPolled(const SemaphoreRef& ref, int change)
{
    Polled& own = ref.own();
    std::lock_guard lock(own.lock);
    if (own.tag != ref.tag)
        return recordStale(ref);
    if (own.value == (change < 0 ? INT_MIN : INT_MAX))
        return recordError(ZV_ERROR_STATE, "a semaphore's value cannot pass %d", own.value);
    if (change < 0 && own.value <= 0)
        own.armed = true;
    own.value += change;
    return setLevel(own);
}

int testPolled(const SemaphoreRef& ref)
{
    Polled& own = ref.own();
    std::lock_guard lock(own.lock);
    return own.tag == ref.tag ? own.value : recordStale(ref);
}

int endPolled(const SemaphoreRef& ref)
{
    Polled& own = ref.own();
    std::lock_guard lock(own.lock);
    if (own.tag != ref.tag)
        return recordStale(ref);
    own.tag = 0;
    UniqueFd(own.fd).reset();
    return 0;
}

}  // namespace kiv
