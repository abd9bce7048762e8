// pool.cpp - making, watching and retiring pools.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"
#include "platform/zv/poolTable.h"

namespace kiv {

namespace {

// A pool whose handle is good, locked: it cannot be retired meanwhile. Empty,
// with an error recorded, for any other handle.
class LockedPool {
public:
    LockedPool(ZVbufferpool handle, const char* what) : pool_(poolBehind(handle))
    {
        if (pool_ != nullptr) {
            lock_ = std::unique_lock(pool_->lock);
            const uint64_t generation = pool_->generation.load(std::memory_order_relaxed);
            if (generation == generationOf(handle) && (generation & 1) != 0)
                return;
            lock_.unlock();
            pool_ = nullptr;
        }
        badHandle(what, handle);
    }
    explicit operator bool() const { return pool_ != nullptr; }
    Pool* operator->() const { return pool_; }
    Pool& operator*() const { return *pool_; }

private:
    Pool* pool_;
    std::unique_lock<std::mutex> lock_;
};

bool checkCounts(int count, int size)
{
    if (count < 1 || size < 0) {
        recordError(ZV_ERROR_ARGUMENT, "a pool of %d buffers of %d bytes", count, size);
        return false;
    }
    if (count > kivLimits()->poolBuffers || unsigned(count) > FreeList::maxBuffers) {
        recordError(ZV_ERROR_LIMIT, "a pool of %d buffers: poolBuffers allows %d, at most %u", count,
                    kivLimits()->poolBuffers, FreeList::maxBuffers);
        return false;
    }
    return true;
}

// Pages are zero and appear when touched. The seals keep whoever gets the
// descriptor from cutting the file under our mapping.
bool mapPool(Pool& pool)
{
    const int fd = memfd_create("kiv-pool", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    UniqueFd file = selectableFd(fd);
    if (fd >= 0 && !file)
        return false;
    if (!file || ftruncate(file.get(), off_t(pool.bytes())) < 0
        || fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) < 0) {
        recordSystemError(ZV_ERROR_MEMORY, "no memory file of %zu bytes for a pool", pool.bytes());
        return false;
    }
    void* base = mmap(nullptr, pool.bytes(), PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (base == MAP_FAILED) {
        recordSystemError(ZV_ERROR_MEMORY, "no address space of %zu bytes for a pool", pool.bytes());
        return false;
    }
    pool.base = static_cast<std::byte*>(base);
    pool.memory = std::move(file);
    return true;
}

void unmapPool(Pool& pool)
{
    munmap(pool.base, pool.bytes());
    for (unsigned i = 0; i < pool.count && pool.lent.load(); ++i)
        UniqueFd(bufferSlot(pool.first + i).lent.exchange(0) - 1);
    pool.lent.store(false);
    pool.base = nullptr;
    pool.memory.reset();
}

// Strings the buffers together; generations go on where they were.
void fillSlots(Pool& pool)
{
    pool.firstGenerations = 0;
    for (unsigned i = 0; i < pool.count; ++i) {
        BufferSlot& slot = bufferSlot(pool.first + i);
        slot.pool.store(&pool, std::memory_order_relaxed);
        slot.data.store(pool.base + i * pool.stride, std::memory_order_relaxed);
        slot.index.store(i, std::memory_order_relaxed);
        slot.next.store(i + 1 < pool.count ? i + 1 : FreeList::none, std::memory_order_relaxed);
        pool.firstGenerations += slot.state.load(std::memory_order_relaxed) >> referenceBits;
    }
}

ZVbufferpool openPool(Pool& pool)
{
    fillSlots(pool);
    std::lock_guard guard(pool.lock);
    pool.selectSize = 0;
    pool.failures.store(0, std::memory_order_relaxed);
    pool.leastFree.store(pool.count, std::memory_order_relaxed);
    const FreeList before(pool.head.load(std::memory_order_relaxed));
    pool.head.store(FreeList(before.tag + 1, pool.count, 0).word());
    const uint64_t generation = (pool.generation.load(std::memory_order_relaxed) + 1) & poolGenerationMask;
    pool.generation.store(generation);
    return poolHandle(pool.place, generation);
}

// From here on buffers only come back. True when none is out.
bool retireList(Pool& pool)
{
    uint64_t head = pool.head.load();
    FreeList next(0);
    do {
        const FreeList list(head);
        next = FreeList(list.tag + 1, list.free, FreeList::retired);
    } while (!pool.head.compare_exchange_weak(head, next.word()));
    return next.free == pool.count;
}

void countSlots(const Pool& pool, ZVpoolLedger& ledger)
{
    uint64_t generations = 0;
    for (unsigned i = 0; i < pool.count; ++i) {
        const uint64_t state = bufferSlot(pool.first + i).state.load(std::memory_order_relaxed);
        generations += state >> referenceBits;
        ledger.references += (long long)(state & referenceMask);
    }
    ledger.allocated = (long long)((generations - pool.firstGenerations) & bufferGenerationMask);
}

}  // namespace

int poolCreate(const ZVparams* p, ZVbufferpool* out)
{
    if (out == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the new pool");
    *out = nullptr;
    if (!paramsAlive(p))
        return ZV_FAILURE;
    const int count = paramsGetInt(p, ZV_BUFFER_COUNT);
    const int size = paramsGetInt(p, ZV_BUFFER_SIZE);
    if (!checkCounts(count, size))
        return ZV_FAILURE;
    Pool* pool = claimPool(unsigned(count), size);
    if (pool == nullptr)
        return ZV_FAILURE;
    if (!mapPool(*pool)) {
        returnPool(*pool);
        return ZV_FAILURE;
    }
    *out = openPool(*pool);
    return ZV_SUCCESS;
}

int poolDestroy(ZVbufferpool handle)
{
    Pool* pool = nullptr;
    {
        LockedPool locked(handle, "pool");
        if (!locked)
            return ZV_FAILURE;
        pool = &*locked;
        pool->generation.store((generationOf(handle) + 1) & poolGenerationMask);
        pool->watched.store(false);
        pool->signal.close();
    }
    if (retireList(*pool))
        reclaimPool(*pool);
    return ZV_SUCCESS;
}

void reclaimPool(Pool& pool)
{
    unmapPool(pool);
    returnPool(pool);
}

// The lock is the pool's; the level follows the free count read here, so that
// of several edges at once the last one to come decides.
static void setLevel(Pool& pool)
{
    const FreeList list(pool.head.load());
    pool.signal.set(list.index != FreeList::retired && list.free > 0 && pool.selectSize <= pool.size);
}

void updateSignal(Pool& pool)
{
    std::lock_guard guard(pool.lock);
    setLevel(pool);
}

int poolFd(ZVbufferpool handle)
{
    LockedPool pool(handle, "pool");
    if (!pool)
        return -1;
    if (!pool->signal) {
        if (pool->signal.open() < 0)
            return -1;
        pool->watched.store(true);  // before the count is read: an edge after that sees it
        setLevel(*pool);
    }
    return pool->signal.fd();
}

int poolSetSelectSize(ZVbufferpool handle, int size)
{
    LockedPool pool(handle, "pool");
    if (!pool)
        return ZV_FAILURE;
    if (size < 0)
        return recordError(ZV_ERROR_ARGUMENT, "a select size of %d bytes", size);
    pool->selectSize = size;
    setLevel(*pool);
    return ZV_SUCCESS;
}

int poolFree(ZVbufferpool handle)
{
    Pool* pool = poolBehind(handle);
    if (pool == nullptr)
        return badHandle("pool", handle);
    const FreeList list(pool->head.load(std::memory_order_acquire));
    if (pool->generation.load(std::memory_order_acquire) != generationOf(handle) || list.index == FreeList::retired)
        return badHandle("pool", handle);
    return int(list.free);
}

int poolBuffers(ZVbufferpool handle)
{
    LockedPool pool(handle, "pool");
    return pool ? int(pool->count) : -1;
}

static int poolLedger(ZVbufferpool handle, ZVpoolLedger* out)
{
    LockedPool pool(handle, "pool");
    if (!pool)
        return ZV_FAILURE;
    if (out == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the ledger");
    ZVpoolLedger ledger = {};
    ledger.count = int(pool->count);
    ledger.size = pool->size;
    ledger.free = int(FreeList(pool->head.load()).free);
    ledger.inUse = ledger.count - ledger.free;
    ledger.peak = ledger.count - int(pool->leastFree.load(std::memory_order_relaxed));
    ledger.failures = pool->failures.load(std::memory_order_relaxed);
    countSlots(*pool, ledger);
    *out = ledger;
    return ZV_SUCCESS;
}

}  // namespace kiv

using namespace kiv;

// A pool of the count and size that the list names. Makes one memory file and
// one mapping; may block in the kernel for that.
extern "C" int zvBufferCreatePool(const ZVparams* p, ZVbufferpool* pool) { return poolCreate(p, pool); }

// Ends the handle and its descriptor; buffers that are out stay usable, and the
// memory goes with the last of them, on whatever thread frees it.
extern "C" int zvBufferDestroyPool(ZVbufferpool pool) { return poolDestroy(pool); }

// The pool's own descriptor, made on the first call. Never blocks.
extern "C" int zvBufferGetPoolFD(ZVbufferpool pool) { return poolFd(pool); }

extern "C" int zvBufferSetPoolSelectSize(ZVbufferpool pool, int size) { return poolSetSelectSize(pool, size); }

// One atomic load; no lock.
extern "C" int zvBufferGetPoolFree(ZVbufferpool pool) { return poolFree(pool); }

// Exact when nobody allocates or frees meanwhile; walks over the buffers.
extern "C" int zvBufferGetPoolLedger(ZVbufferpool pool, ZVpoolLedger* ledger) { return poolLedger(pool, ledger); }
