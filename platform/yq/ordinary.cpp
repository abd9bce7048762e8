// ordinary.cpp - semaphores of the shared arena: one compare-and-swap when
// nobody has to wait, a futex when somebody has.
#include <climits>

#include "platform/support/error.h"
#include "platform/yq/semaphore.h"

namespace kiv {

namespace {

enum class Taken { Yes, Exhausted, Stale };

Taken tryTake(Slot& slot, Tag tag)
{
    uint64_t word = slot.word.load();
    while (tagOf(word) == tag) {
        if (valueOf(word) <= 0)
            return Taken::Exhausted;
        if (slot.word.compare_exchange_weak(word, slotWord(tag, valueOf(word) - 1)))
            return Taken::Yes;
    }
    return Taken::Stale;
}

struct Sleeper {
    explicit Sleeper(Slot& slot) : slot_(slot) { slot_.sleepers.fetch_add(1); }
    ~Sleeper() { slot_.sleepers.fetch_sub(1); }
    Slot& slot_;
};

// A giver raises the value and then looks for sleepers; a taker counts itself
// among them and then looks at the value: one of the two sees the other. The
// wakes are read before the value, so a wake between looking and sleeping is not
// slept through. The value is looked at before a stop: what was granted in the
// same moment counts.
int takeOrWait(Slot& slot, Tag tag)
{
    StoppableSleep sleep(slot.wakes);
    Sleeper sleeper(slot);
    for (;;) {
        const uint32_t seen = slot.wakes.load();
        const Taken taken = tryTake(slot, tag);
        if (taken == Taken::Yes)
            return 0;
        if (taken == Taken::Stale)
            return recordError(ZV_ERROR_HANDLE, "the semaphore was freed");
        if (sleep.stopped())
            return recordError(ZV_ERROR_STOPPED, "a stop request ended the wait for a semaphore");
        sleepOn(slot.wakes, seen);
    }
}

}  // namespace

int takeOrdinary(const SemaphoreRef& ref)
{
    switch (tryTake(ref.slot(), ref.tag)) {
    case Taken::Yes:
        return 0;
    case Taken::Stale:
        return recordStale(ref);
    case Taken::Exhausted:
        break;
    }
    return takeOrWait(ref.slot(), ref.tag);
}

int giveOrdinary(const SemaphoreRef& ref)
{
    Slot& slot = ref.slot();
    uint64_t word = slot.word.load();
    do {
        if (tagOf(word) != ref.tag)
            return recordStale(ref);
        if (valueOf(word) == INT_MAX)
            return recordError(ZV_ERROR_STATE, "a semaphore's value cannot pass %d", INT_MAX);
    } while (!slot.word.compare_exchange_weak(word, slotWord(ref.tag, valueOf(word) + 1)));

    if (slot.sleepers.load() != 0)
        wakeSleepers(slot.wakes, 1);
    return 0;
}

int testOrdinary(const SemaphoreRef& ref)
{
    const uint64_t word = ref.slot().word.load();
    return tagOf(word) == ref.tag ? valueOf(word) : recordStale(ref);
}

}  // namespace kiv
