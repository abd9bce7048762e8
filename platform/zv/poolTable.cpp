// poolTable.cpp - places for pools and slots for their buffers.
#include "platform/zv/poolTable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv {

constinit std::atomic<BufferSlot*> bufferTable{nullptr};
constinit std::atomic<Pool*> poolTable[maxPools] = {};

namespace {

constinit std::mutex tableLock;  // guards the rest
constinit unsigned placesUsed = 0;
constinit Pool* unusedPools = nullptr;
constinit Pool* poolsBySlot = nullptr;  // those that hold slots, lowest first
constinit size_t reservedBytes = 0;

size_t roundToPages(size_t bytes)
{
    static const size_t page = size_t(sysconf(_SC_PAGESIZE));
    return std::max<size_t>((bytes + page - 1) / page, 1) * page;
}

bool reserveSlots()
{
    if (bufferTable.load(std::memory_order_relaxed) != nullptr)
        return true;
    void* table = mmap(nullptr, bufferSlots * sizeof(BufferSlot), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (table == MAP_FAILED) {
        recordSystemError(ZV_ERROR_MEMORY, "no address space for the table of buffers");
        return false;
    }
    bufferTable.store(static_cast<BufferSlot*>(table), std::memory_order_release);
    return true;
}

Pool* unusedPool()
{
    if (unusedPools != nullptr)
        return std::exchange(unusedPools, unusedPools->nextPool);
    if (placesUsed == maxPools) {
        recordError(ZV_ERROR_MEMORY, "no handle is left: %u pools are alive", maxPools);
        return nullptr;
    }
    Pool* pool = new (std::nothrow) Pool;
    if (pool == nullptr) {
        recordError(ZV_ERROR_MEMORY, "no memory for a pool");
        return nullptr;
    }
    pool->place = placesUsed;
    poolTable[placesUsed++].store(pool, std::memory_order_release);
    return pool;
}

// Puts the pool where the first gap of its size is.
bool takeSlots(Pool& pool)
{
    unsigned end = 0;
    Pool** link = &poolsBySlot;
    while (*link != nullptr && (*link)->first - end < pool.count) {
        end = (*link)->first + (*link)->count;
        link = &(*link)->nextPool;
    }
    if (bufferSlots - end < pool.count) {
        recordError(ZV_ERROR_MEMORY, "no slots are left for %u buffers", pool.count);
        return false;
    }
    pool.first.store(end, std::memory_order_relaxed);
    pool.nextPool = std::exchange(*link, &pool);
    return true;
}

bool fitsLimit(size_t bytes)
{
    const size_t limit = size_t(std::max(kivLimits()->poolBytes, 0LL));
    if (bytes <= limit && reservedBytes <= limit - bytes)
        return true;
    recordError(ZV_ERROR_LIMIT, "%zu bytes for a pool and %zu for the others: poolBytes allows %zu", bytes,
                reservedBytes, limit);
    return false;
}

}  // namespace

Pool* claimPool(unsigned count, int size)
{
    const size_t stride = roundToPages(size_t(size));
    std::lock_guard guard(tableLock);
    Pool* pool = fitsLimit(stride * count) && reserveSlots() ? unusedPool() : nullptr;
    if (pool == nullptr)
        return nullptr;
    pool->count = count;
    pool->stride = stride;
    pool->size.store(size, std::memory_order_relaxed);
    if (!takeSlots(*pool)) {
        pool->nextPool = std::exchange(unusedPools, pool);
        return nullptr;
    }
    reservedBytes += pool->bytes();
    return pool;
}

void returnPool(Pool& pool)
{
    std::lock_guard guard(tableLock);
    Pool** link = &poolsBySlot;
    while (*link != &pool)
        link = &(*link)->nextPool;
    *link = pool.nextPool;
    reservedBytes -= pool.bytes();
    pool.nextPool = std::exchange(unusedPools, &pool);
}

int badHandle(const char* what, const void* handle)
{
    return recordError(ZV_ERROR_HANDLE, "%s: null, stale or foreign handle %p", what, handle);
}

}  // namespace kiv
