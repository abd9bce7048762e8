// poolTable.h - what stands behind the handles of pools and buffers.
//
// Both live in tables that are never unmapped, so that any handle, however old,
// meets a slot and is told by its generation. Allocate and free touch nothing
// but atomics; the rest of a pool is under its lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "platform/support/fd.h"
#include "platform/support/handle.h"
#include "platform/zv/readySignal.h"
#include "platform/zv/zv.h"

namespace kiv {

struct Pool;
struct BufferWriter;

// One buffer. Relaxed atomics throughout: two holders may set and get at once.
struct alignas(64) BufferSlot {
    std::atomic<uint64_t> state;  // generation (40) | references (24); changed by one CAS
    std::atomic<Pool*> pool;
    std::atomic<std::byte*> data;
    std::atomic<int64_t> ust;
    std::atomic<int64_t> msc;
    std::atomic<int> size;  // valid bytes
    std::atomic<uint32_t> index;  // its place in the pool
    std::atomic<uint32_t> next;  // that of the next free buffer
    std::atomic<int> lent;  // 1 + the descriptor of a device's memory that lies here; 0 = the pool's own
    std::atomic<BufferWriter*> writer;  // null for most
};
static_assert(sizeof(BufferSlot) == 64);

constexpr unsigned bufferSlots = 1u << 20;
constexpr int referenceBits = 24;
constexpr uint64_t referenceMask = (1ull << referenceBits) - 1;
constexpr int bufferGenerationBits = 40;
constexpr uint64_t bufferGenerationMask = (1ull << bufferGenerationBits) - 1;
constexpr int poolGenerationBits = 44;
constexpr uint64_t poolGenerationMask = (1ull << poolGenerationBits) - 1;

// The free list of a pool in one word, so that one CAS moves a buffer and
// counts it: tag (32) | free buffers (16) | index of the first (16). The tag
// never starts again, also not when another pool takes the place over.
struct FreeList {
    static constexpr unsigned none = 0xffff;  // no buffer is free
    static constexpr unsigned retired = 0xfffe;  // the handle is gone; buffers only come back
    static constexpr unsigned maxBuffers = 0xfff0;

    constexpr explicit FreeList(uint64_t word)
        : tag(uint32_t(word >> 32)), free(word >> 16 & 0xffff), index(word & 0xffff)
    {
    }
    constexpr FreeList(uint32_t t, unsigned f, unsigned i) : tag(t), free(f), index(i) { }
    constexpr uint64_t word() const { return uint64_t(tag) << 32 | uint64_t(free) << 16 | index; }

    uint32_t tag;
    unsigned free;
    unsigned index;
};

// One pool. Made once and then recycled, never deleted.
struct Pool {
    alignas(64) std::atomic<uint64_t> head{
        FreeList(0, 0, FreeList::retired).word()};  // what allocate and free fight for

    alignas(64) std::atomic<uint64_t> generation{0};  // odd while the handle is good
    std::atomic<unsigned> first{0};  // its first buffer slot
    std::atomic<int> size{0};  // bytes of a buffer
    std::atomic<unsigned> leastFree{0};
    std::atomic<bool> watched{false};  // has a descriptor: tell of the edges
    // Set at creation, and stable while a buffer is out.
    unsigned count = 0;
    unsigned place = 0;  // index in the table of pools
    size_t stride = 0;  // bytes from one buffer to the next
    std::byte* base = nullptr;
    UniqueFd memory;
    std::atomic<bool> lent{false};  // some of its memory is a device's
    uint64_t firstGenerations = 0;  // sum over the buffers at creation

    alignas(64) std::mutex lock;  // guards the two below, and the end of the generation
    ReadySignal signal;
    int selectSize = 0;
    std::atomic<long long> failures{0};

    Pool* nextPool = nullptr;  // guarded by the table's lock
    size_t bytes() const { return stride * count; }
};

// Reserves a place, `count` buffer slots in a row and the bytes within the
// limits; null, with an error recorded. The pool is not open yet.
Pool* claimPool(unsigned count, int size);
void returnPool(Pool& pool);

// The tables behind the handles. They are filled from the front and never taken
// down, so that what is here once can be looked at for ever.
constexpr unsigned maxPools = 4096;
extern std::atomic<BufferSlot*> bufferTable;  // null before the first pool
extern std::atomic<Pool*> poolTable[maxPools];

// Bounded by the mask: a stale allocate may ask for a slot of a pool that has
// moved, before its exchange fails.
inline BufferSlot& bufferSlot(unsigned slot)
{
    return bufferTable.load(std::memory_order_acquire)[slot & (bufferSlots - 1)];
}

// What a handle points at, whether it is alive or not; null for another kind of
// handle and for a place never used.
inline BufferSlot* slotBehind(ZVbuffer handle)
{
    BufferSlot* table = bufferTable.load(std::memory_order_acquire);
    if (handleKind(handle) != HandleKind::Buffer || table == nullptr)
        return nullptr;
    return table + (reinterpret_cast<uintptr_t>(handle) >> bufferGenerationBits & (bufferSlots - 1));
}

inline Pool* poolBehind(ZVbufferpool handle)
{
    const unsigned place = unsigned(reinterpret_cast<uintptr_t>(handle) >> poolGenerationBits & 0xffff);
    if (handleKind(handle) != HandleKind::Pool || place >= maxPools)
        return nullptr;
    return poolTable[place].load(std::memory_order_acquire);
}

inline uint64_t generationOf(ZVbuffer handle) { return reinterpret_cast<uintptr_t>(handle) & bufferGenerationMask; }
inline uint64_t generationOf(ZVbufferpool handle) { return reinterpret_cast<uintptr_t>(handle) & poolGenerationMask; }

inline ZVbuffer bufferHandle(unsigned slot, uint64_t generation)
{
    return reinterpret_cast<ZVbuffer>(uint64_t(HandleKind::Buffer) << 60 | uint64_t(slot) << bufferGenerationBits
                                      | generation);
}

inline ZVbufferpool poolHandle(unsigned place, uint64_t generation)
{
    return reinterpret_cast<ZVbufferpool>(uint64_t(HandleKind::Pool) << 60 | uint64_t(place) << poolGenerationBits
                                          | generation);
}

// Brings the descriptor to the level that the free list has now. Any thread.
void updateSignal(Pool& pool);

// Gives everything of a retired pool back, once its last buffer has come home.
void reclaimPool(Pool& pool);

int badHandle(const char* what, const void* handle);  // records the error; -1

}  // namespace kiv
