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

// One buffer. Relaxed atomics throughout: two holders may set and get at once.
// The rest of its cache line is for what a later layer registers per buffer.
struct alignas(64) BufferSlot {
    std::atomic<uint64_t> state;  // generation (40) | references (24); changed by one CAS
    std::atomic<Pool*> pool;
    std::atomic<std::byte*> data;
    std::atomic<int64_t> ust;
    std::atomic<int64_t> msc;
    std::atomic<int> size;  // valid bytes
    std::atomic<uint32_t> next;  // index in the pool of the next free buffer
};
static_assert(sizeof(BufferSlot) == 64);

constexpr unsigned bufferSlots = 1u << 20;
constexpr int referenceBits = 24;
constexpr uint64_t referenceMask = (1ull << referenceBits) - 1;
constexpr uint64_t bufferGenerationMask = (1ull << 40) - 1;

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

BufferSlot& bufferSlot(unsigned slot);

// What a handle points at, whether it is alive or not; null for another kind of
// handle and for a slot never used.
Pool* poolBehind(ZVbufferpool handle);
BufferSlot* slotBehind(ZVbuffer handle);

ZVbufferpool poolHandle(const Pool& pool);
ZVbuffer bufferHandle(const BufferSlot& slot, uint64_t generation);

constexpr uint64_t poolGenerationMask = (1ull << 44) - 1;
inline uint64_t generationOf(ZVbufferpool handle) { return reinterpret_cast<uintptr_t>(handle) & poolGenerationMask; }
inline uint64_t generationOf(ZVbuffer handle) { return reinterpret_cast<uintptr_t>(handle) & bufferGenerationMask; }

// Brings the descriptor to the level that the free list has now. Any thread.
void updateSignal(Pool& pool);

// Gives everything of a retired pool back, once its last buffer has come home.
void reclaimPool(Pool& pool);

int badHandle(const char* what, const void* handle);  // records the error; -1

}  // namespace kiv
