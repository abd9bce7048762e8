// buffer.cpp - the road of every frame: allocate, attach, free and what a
// buffer carries. No lock and no system call but at the edge of a watched pool.
#include <sys/mman.h>

#include "platform/support/error.h"
#include "platform/zv/internal.h"
#include "platform/zv/poolTable.h"

namespace kiv {

namespace {

bool isLive(uint64_t state, uint64_t generation)
{
    return state >> referenceBits == generation && (state & referenceMask) != 0;
}

// The slot of a buffer that somebody holds; null, with an error recorded.
BufferSlot* liveSlot(ZVbuffer handle)
{
    BufferSlot* slot = slotBehind(handle);
    if (slot != nullptr && isLive(slot->state.load(std::memory_order_acquire), generationOf(handle)))
        return slot;
    badHandle("buffer", handle);
    return nullptr;
}

int capacityOf(const BufferSlot& slot)
{
    return slot.pool.load(std::memory_order_relaxed)->size.load(std::memory_order_relaxed);
}

void noteTaken(Pool& pool, unsigned freeNow)
{
    unsigned least = pool.leastFree.load(std::memory_order_relaxed);
    while (freeNow < least && !pool.leastFree.compare_exchange_weak(least, freeNow, std::memory_order_relaxed)) { }
    if (freeNow == 0 && pool.watched.load())
        updateSignal(pool);
}

ZVbuffer noneFree(Pool& pool)
{
    pool.failures.fetch_add(1, std::memory_order_relaxed);
    recordError(ZV_ERROR_EMPTY, "no buffer is free");
    return nullptr;
}

// Makes a taken slot a fresh buffer. It is nobody else's: no handle of its new
// generation exists, and without references the old ones are refused.
ZVbuffer freshBuffer(unsigned number, int size)
{
    BufferSlot& slot = bufferSlot(number);
    const uint64_t generation
        = ((slot.state.load(std::memory_order_relaxed) >> referenceBits) + 1) & bufferGenerationMask;
    slot.size.store(size, std::memory_order_relaxed);
    slot.ust.store(0, std::memory_order_relaxed);
    slot.msc.store(0, std::memory_order_relaxed);
    slot.writer.store(nullptr, std::memory_order_relaxed);
    slot.state.store(generation << referenceBits | 1, std::memory_order_release);
    return bufferHandle(number, generation);
}

// Takes the first free buffer; null, with an error recorded. The handle is
// checked after the list is read: a pool retired later changes the list's tag,
// so the exchange fails.
ZVbuffer takeBuffer(Pool& pool, ZVbufferpool handle)
{
    uint64_t head = pool.head.load(std::memory_order_acquire);
    while (pool.generation.load(std::memory_order_acquire) == generationOf(handle)) {
        const FreeList list(head);
        if (list.index == FreeList::none)
            return noneFree(pool);
        if (list.index == FreeList::retired)
            break;
        const unsigned number = pool.first.load(std::memory_order_relaxed) + list.index;
        const unsigned next = bufferSlot(number).next.load(std::memory_order_relaxed);
        if (pool.head.compare_exchange_weak(head, FreeList(list.tag + 1, list.free - 1, next).word())) {
            noteTaken(pool, list.free - 1);
            return freshBuffer(number, pool.size.load(std::memory_order_relaxed));
        }
    }
    badHandle("pool", handle);
    return nullptr;
}

// Back to the pool, or home to a retired one: the last to come takes it down.
void giveBack(BufferSlot& slot)
{
    Pool& pool = *slot.pool.load(std::memory_order_relaxed);
    const unsigned index = slot.index.load(std::memory_order_relaxed);
    const unsigned count = pool.count;  // once the buffer is back, the pool may be another
    uint64_t head = pool.head.load(std::memory_order_relaxed);
    FreeList next(0);
    do {
        const FreeList list(head);
        next = FreeList(list.tag + 1, list.free + 1, list.index == FreeList::retired ? FreeList::retired : index);
        slot.next.store(list.index, std::memory_order_relaxed);
    } while (!pool.head.compare_exchange_weak(head, next.word()));

    if (next.index == FreeList::retired) {
        if (next.free == count)
            reclaimPool(pool);
    } else if (next.free == 1 && pool.watched.load()) {
        updateSignal(pool);
    }
}

}  // namespace

int bufferAllocate(ZVbufferpool handle, ZVbuffer* out)
{
    if (out == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the buffer");
    *out = nullptr;
    Pool* pool = poolBehind(handle);
    if (pool == nullptr)
        return badHandle("pool", handle);
    *out = takeBuffer(*pool, handle);
    return *out != nullptr ? ZV_SUCCESS : ZV_FAILURE;
}

int bufferAttach(ZVbuffer handle)
{
    BufferSlot* slot = slotBehind(handle);
    if (slot == nullptr)
        return badHandle("buffer", handle);
    uint64_t state = slot->state.load(std::memory_order_relaxed);
    do {
        if (!isLive(state, generationOf(handle)))
            return badHandle("buffer", handle);
        if ((state & referenceMask) == referenceMask)
            return recordError(ZV_ERROR_STATE, "a buffer has all the references that can be counted");
    } while (
        !slot->state.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed));
    return ZV_SUCCESS;
}

int bufferFree(ZVbuffer handle)
{
    BufferSlot* slot = slotBehind(handle);
    if (slot == nullptr)
        return badHandle("buffer", handle);
    uint64_t state = slot->state.load(std::memory_order_relaxed);
    do {
        if (!isLive(state, generationOf(handle)))
            return badHandle("buffer", handle);
    } while (
        !slot->state.compare_exchange_weak(state, state - 1, std::memory_order_acq_rel, std::memory_order_relaxed));
    if ((state & referenceMask) == 1)
        giveBack(*slot);
    return ZV_SUCCESS;
}

void* bufferMap(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return nullptr;
    if (BufferWriter* writer = slot->writer.load(std::memory_order_acquire); writer != nullptr)
        writer->write(*writer, handle, true);
    return slot->data.load(std::memory_order_relaxed);
}

void* bufferMapRaw(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    return slot != nullptr ? slot->data.load(std::memory_order_relaxed) : nullptr;
}

int bufferSetWriter(ZVbuffer handle, BufferWriter* writer)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return ZV_FAILURE;
    slot->writer.store(writer, std::memory_order_release);
    return ZV_SUCCESS;
}

int bufferSync(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return ZV_FAILURE;
    BufferWriter* writer = slot->writer.load(std::memory_order_acquire);
    return writer == nullptr ? ZV_SUCCESS : writer->write(*writer, handle, false);
}

int bufferSize(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    return slot != nullptr ? slot->size.load(std::memory_order_relaxed) : -1;
}

int bufferCapacity(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    return slot != nullptr ? capacityOf(*slot) : -1;
}

int bufferSetSize(ZVbuffer handle, int size)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return ZV_FAILURE;
    if (size < 0 || size > capacityOf(*slot))
        return recordError(ZV_ERROR_ARGUMENT, "a size of %d in a buffer of %d bytes", size, capacityOf(*slot));
    slot->size.store(size, std::memory_order_relaxed);
    return ZV_SUCCESS;
}

USTMSCpair bufferStamp(ZVbuffer handle)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return {0, 0};
    return {slot->ust.load(std::memory_order_relaxed), slot->msc.load(std::memory_order_relaxed)};
}

int bufferSetStamp(ZVbuffer handle, USTMSCpair stamp)
{
    BufferSlot* slot = liveSlot(handle);
    if (slot == nullptr)
        return ZV_FAILURE;
    slot->ust.store(stamp.ust, std::memory_order_relaxed);
    slot->msc.store(stamp.msc, std::memory_order_relaxed);
    return ZV_SUCCESS;
}

int bufferMemory(ZVbuffer handle, int* fd, long long* offset, int* capacity)
{
    if (fd == nullptr || offset == nullptr || capacity == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for what describes the memory");
    if (bufferAttach(handle) < 0)  // keeps the pool as it is while we look
        return ZV_FAILURE;
    const BufferSlot& slot = *slotBehind(handle);
    const Pool& pool = *slot.pool.load(std::memory_order_relaxed);
    const int lent = slot.lent.load(std::memory_order_relaxed) - 1;
    *fd = lent >= 0 ? lent : pool.memory.get();
    *offset = lent >= 0 ? 0 : slot.data.load(std::memory_order_relaxed) - pool.base;
    *capacity = pool.size;
    return bufferFree(handle);
}

bool bufferLend(ZVbuffer handle, UniqueFd memory)
{
    if (bufferAttach(handle) < 0)
        return false;
    BufferSlot& slot = *slotBehind(handle);
    Pool& pool = *slot.pool.load(std::memory_order_relaxed);
    void* const place = slot.data.load(std::memory_order_relaxed);
    // Elsewhere first: a fixed mapping that fails may leave a hole.
    void* const found = mmap(nullptr, pool.stride, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(), 0);
    const bool mapped = found != MAP_FAILED
        && mremap(found, pool.stride, pool.stride, MREMAP_MAYMOVE | MREMAP_FIXED, place) != MAP_FAILED;
    if (mapped) {
        pool.lent.store(true);
        UniqueFd(slot.lent.exchange(memory.release() + 1) - 1);
    }
    bufferFree(handle);
    return mapped;
}

int bufferLent(ZVbuffer handle)
{
    const BufferSlot* slot = slotBehind(handle);
    return slot != nullptr ? slot->lent.load(std::memory_order_relaxed) - 1 : -1;
}

}  // namespace kiv

using namespace kiv;

// Any thread. Never blocks; the caller owns the one reference. Three locked
// instructions with the free that follows, and no system call but at an edge.
extern "C" int zvBufferAllocate(ZVbufferpool pool, ZVbuffer* out) { return bufferAllocate(pool, out); }

// Any thread, by somebody who holds a reference or has looked the handle up: a
// buffer that went back meanwhile is refused.
extern "C" int zvBufferAttach(ZVbuffer buffer) { return bufferAttach(buffer); }

// Any thread. The last reference of a retired pool's last buffer unmaps the pool.
extern "C" int zvBufferFree(ZVbuffer buffer) { return bufferFree(buffer); }

// The calls below are for holders of a reference; they take none and never block.
extern "C" void* zvBufferMapData(ZVbuffer buffer) { return bufferMap(buffer); }
extern "C" int zvBufferSync(ZVbuffer buffer) { return bufferSync(buffer); }
extern "C" int zvBufferGetSize(ZVbuffer buffer) { return bufferSize(buffer); }
extern "C" int zvBufferSetSize(ZVbuffer buffer, int size) { return bufferSetSize(buffer, size); }
extern "C" USTMSCpair zvBufferGetUSTMSCpair(ZVbuffer buffer) { return bufferStamp(buffer); }
extern "C" int zvBufferSetUSTMSCpair(ZVbuffer buffer, USTMSCpair stamp) { return bufferSetStamp(buffer, stamp); }
extern "C" int zvBufferGetMemory(ZVbuffer buffer, int* fd, long long* offset, int* capacity)
{
    return bufferMemory(buffer, fd, offset, capacity);
}
