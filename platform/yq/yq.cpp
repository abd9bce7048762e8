// yq.cpp - the public calls, and the handles they take.
#include "platform/yq/yq.h"

#include <new>

#include "platform/support/error.h"
#include "platform/support/handle.h"
#include "platform/yq/semaphore.h"

namespace kiv {

SemaphoreRef refOf(const yqsema_t* handle)
{
    const auto word = reinterpret_cast<uintptr_t>(handle);
    if (handleKind(handle) == HandleKind::Semaphore) {
        Arena* const arena = arenas[word >> (tagBits + slotBits) & (maxArenas - 1)].load(std::memory_order_acquire);
        const auto index = uint32_t(word >> tagBits) & (maxSlots - 1);
        if (arena != nullptr && arena->reaches(index))
            return {arena, index, Tag(word & ((1u << tagBits) - 1)) | liveTag};
    }
    recordError(ZV_ERROR_HANDLE, "null or foreign semaphore %p", static_cast<const void*>(handle));
    return {};
}

yqsema_t* handleOf(const SemaphoreRef& ref)
{
    const uint64_t word = uint64_t(HandleKind::Semaphore) << 60 | uint64_t(ref.arena->number) << (tagBits + slotBits)
        | uint64_t(ref.index) << tagBits | (ref.tag & ~liveTag);
    return reinterpret_cast<yqsema_t*>(static_cast<uintptr_t>(word));
}

int recordStale(const SemaphoreRef& ref)
{
    return recordError(ZV_ERROR_HANDLE, "stale semaphore %p", static_cast<void*>(handleOf(ref)));
}

SemaphoreRef newSlot(Arena& arena, Tag kind, int value)
{
    for (uint32_t index = arena.takeSlot(); index != maxSlots; index = arena.takeSlot()) {
        uint64_t word = arena.slots[index].word.load();
        const uint32_t generation = tagOf(word) & lastGeneration;
        const Tag tag = liveTag | kind | (generation + 1);
        // In a damaged file the slot may be in use or used up: left alone.
        if ((tagOf(word) & liveTag) == 0 && generation != lastGeneration
            && arena.slots[index].word.compare_exchange_strong(word, slotWord(tag, value)))
            return {&arena, index, tag};
    }
    return {};
}

bool endSlot(const SemaphoreRef& ref)
{
    Slot& slot = ref.slot();
    uint64_t word = slot.word.load();
    do {
        if (tagOf(word) != ref.tag)
            return false;
    } while (!slot.word.compare_exchange_weak(word, slotWord(ref.tag & lastGeneration, 0)));
    if (slot.sleepers.load() != 0)
        wakeSleepers(slot.wakes, everySleeper);
    ref.arena->giveSlot(ref.index);
    return true;
}

namespace {

yqsema_t* make(yqptr_t handle, Tag kind, int count)
{
    Arena* const arena = arenaOf(handle);
    if (arena == nullptr)
        return nullptr;
    if (count < 0) {
        recordError(ZV_ERROR_ARGUMENT, "a semaphore cannot start at %d", count);
        return nullptr;
    }
    const SemaphoreRef ref = newSlot(*arena, kind, kind == polledTag ? 0 : count);
    if (!ref)
        return nullptr;
    if (ref.polled())
        beginPolled(ref, count);
    return handleOf(ref);
}

}  // namespace

}  // namespace kiv

using namespace kiv;

extern "C" int yqconfig(int, int) { return 0; }

extern "C" yqptr_t yqinit(const char* file)
try {
    if (file == nullptr) {
        recordError(ZV_ERROR_ARGUMENT, "an arena needs a file");
        return nullptr;
    }
    const Arena* const arena = openArena(file);
    return arena != nullptr ? handleOf(*arena) : nullptr;
} catch (const std::bad_alloc&) {
    recordError(ZV_ERROR_MEMORY, "no memory for an arena");
    return nullptr;
}

extern "C" yqsema_t* yqnewsema(yqptr_t arena, int count) { return make(arena, 0, count); }

extern "C" yqsema_t* yqnewpollsema(yqptr_t arena, int count) { return make(arena, polledTag, count); }

extern "C" int yqopenpollsema(yqsema_t* sema, int)
{
    const SemaphoreRef ref = refOf(sema);
    if (!ref)
        return -1;
    if (!ref.polled())
        return recordError(ZV_ERROR_ARGUMENT, "an ordinary semaphore has no descriptor");
    return openPolled(ref);
}

extern "C" int yqpsema(yqsema_t* sema)
{
    const SemaphoreRef ref = refOf(sema);
    if (!ref)
        return -1;
    return ref.polled() ? addPolled(ref, -1) : takeOrdinary(ref);
}

extern "C" int yqvsema(yqsema_t* sema)
{
    const SemaphoreRef ref = refOf(sema);
    if (!ref)
        return -1;
    return ref.polled() ? addPolled(ref, +1) : giveOrdinary(ref);
}

extern "C" int yqtestsema(yqsema_t* sema)
{
    const SemaphoreRef ref = refOf(sema);
    if (!ref)
        return -1;
    return ref.polled() ? testPolled(ref) : testOrdinary(ref);
}

extern "C" int yqfreesema(yqsema_t* sema, yqptr_t arena)
{
    const Arena* const home = arenaOf(arena);
    const SemaphoreRef ref = refOf(sema);
    if (home == nullptr || !ref)
        return -1;
    if (ref.arena != home)
        return recordError(ZV_ERROR_ARGUMENT, "the semaphore belongs to another arena");
    if (ref.polled() && endPolled(ref) != 0)
        return -1;
    return endSlot(ref) ? 0 : recordStale(ref);
}
