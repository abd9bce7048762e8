// bufferTest.cpp - buffers and pools on one thread: what is free, who holds what.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/limits.h"
#include "tests/platform/zv/poolTools.h"
#include "tests/support/poolFixture.h"

namespace {

// Every call refuses that buffer handle.
void expectDead(ZVbuffer buffer)
{
    int fd = 0, capacity = 0;
    long long offset = 0;
    EXPECT_EQ(zvBufferAttach(buffer), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_EQ(zvBufferFree(buffer), ZV_FAILURE);
    EXPECT_EQ(zvBufferMapData(buffer), nullptr);
    EXPECT_EQ(zvBufferGetSize(buffer), -1);
    EXPECT_EQ(zvBufferSetSize(buffer, 0), ZV_FAILURE);
    EXPECT_EQ(zvBufferGetUSTMSCpair(buffer).ust, 0);
    EXPECT_EQ(zvBufferSetUSTMSCpair(buffer, {1, 1}), ZV_FAILURE);
    EXPECT_EQ(zvBufferGetMemory(buffer, &fd, &offset, &capacity), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
}

void expectDead(ZVbufferpool pool)
{
    ZVbuffer buffer = reinterpret_cast<ZVbuffer>(16);
    EXPECT_EQ(zvBufferAllocate(pool, &buffer), ZV_FAILURE);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    ZVpoolLedger ledger = {};
    ledger.count = 77;
    EXPECT_EQ(zvBufferGetPoolLedger(pool, &ledger), ZV_FAILURE);
    EXPECT_EQ(ledger.count, 77);
    EXPECT_EQ(zvBufferGetPoolFree(pool), -1);
    EXPECT_EQ(zvBufferGetPoolFD(pool), -1);
    EXPECT_EQ(zvBufferSetPoolSelectSize(pool, 0), ZV_FAILURE);
    EXPECT_EQ(zvBufferDestroyPool(pool), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
}

TEST(Buffer, AFreshOneHasOneReferenceFullSizeAndNoStamp)
{
    PoolFixture pool(1, 5000);
    ZVbuffer buffer = pool.takeOwned();
    zvBufferSetSize(buffer, 17);
    zvBufferSetUSTMSCpair(buffer, {123, -4});
    EXPECT_EQ(zvBufferGetSize(buffer), 17);
    EXPECT_EQ(zvBufferGetUSTMSCpair(buffer).ust, 123);
    EXPECT_EQ(zvBufferGetUSTMSCpair(buffer).msc, -4);
    EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);

    ZVbuffer again = pool.take();
    EXPECT_EQ(zvBufferGetSize(again), 5000);
    EXPECT_EQ(zvBufferGetUSTMSCpair(again).ust, 0);
    EXPECT_EQ(zvBufferGetUSTMSCpair(again).msc, 0);
    EXPECT_EQ(poolReferences(pool.pool), 1);
    EXPECT_EQ(zvBufferSetSize(again, 5001), ZV_FAILURE);
    EXPECT_EQ(zvBufferSetSize(again, -1), ZV_FAILURE);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(zvBufferSetSize(again, 5000), ZV_SUCCESS);
    EXPECT_EQ(zvBufferSetSize(again, 0), ZV_SUCCESS);
    EXPECT_EQ(zvBufferGetSize(again), 0);
}

TEST(Buffer, EveryBufferHasItsOwnZeroPagesToTheEnd)
{
    PoolFixture pool(5, 4097);
    std::vector<unsigned char*> data;
    for (int i = 0; i < 5; ++i) {
        auto* bytes = static_cast<unsigned char*>(zvBufferMapData(pool.take()));
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % 4096, 0u);
        EXPECT_EQ(std::count(bytes, bytes + 4097, 0), 4097) << "buffer " << i << " is not fresh";
        memset(bytes, i + 1, 4097);
        data.push_back(bytes);
    }
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::count(data[i], data[i] + 4097, i + 1), 4097) << "buffer " << i << " is shared";
}

TEST(Buffer, GoesBackWithItsLastReferenceOnly)
{
    PoolFixture pool(1);
    ZVbuffer buffer = pool.takeOwned();
    EXPECT_EQ(zvBufferAttach(buffer), ZV_SUCCESS);
    EXPECT_EQ(poolReferences(pool.pool), 2);
    EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
    ZVbuffer none = buffer;
    EXPECT_EQ(zvBufferAllocate(pool.pool, &none), ZV_FAILURE);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_EMPTY);
    EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 1);
}

TEST(Buffer, AStaleHandleNeverMeetsTheNextUseOfItsSlot)
{
    PoolFixture pool(1);
    ZVbuffer old = pool.takeOwned();
    zvBufferFree(old);
    expectDead(old);
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 1) << "freed twice";
    ZVbuffer next = pool.take();
    EXPECT_NE(old, next);
    zvBufferSetUSTMSCpair(next, {5, 6});
    expectDead(old);
    EXPECT_EQ(poolReferences(pool.pool), 1);
    EXPECT_EQ(zvBufferGetUSTMSCpair(next).msc, 6);
    EXPECT_EQ(zvBufferGetSize(next), 4096);
}

TEST(Buffer, ForeignAndNullHandlesAreRefused)
{
    PoolFixture pool(1);
    ZVbuffer held = pool.take();
    int onStack = 0;
    expectDead(static_cast<ZVbuffer>(nullptr));
    expectDead(reinterpret_cast<ZVbuffer>(pool.pool));
    expectDead(reinterpret_cast<ZVbuffer>(&onStack));
    expectDead(reinterpret_cast<ZVbuffer>(reinterpret_cast<uintptr_t>(held) + (1ull << 40)));
    expectDead(reinterpret_cast<ZVbuffer>(reinterpret_cast<uintptr_t>(held) + 1));
    expectDead(reinterpret_cast<ZVbuffer>(~0ull));
    expectDead(static_cast<ZVbufferpool>(nullptr));
    expectDead(reinterpret_cast<ZVbufferpool>(held));
    expectDead(reinterpret_cast<ZVbufferpool>(&onStack));
    expectDead(reinterpret_cast<ZVbufferpool>(reinterpret_cast<uintptr_t>(pool.pool) + 1));
    expectDead(reinterpret_cast<ZVbufferpool>(reinterpret_cast<uintptr_t>(pool.pool) + (1ull << 44)));
    for (uint64_t place = 0; place < 4; ++place)
        expectDead(reinterpret_cast<ZVbufferpool>(2ull << 60 | place << 44));
    EXPECT_EQ(zvBufferAllocate(pool.pool, nullptr), ZV_FAILURE);
    EXPECT_EQ(zvBufferGetMemory(held, nullptr, nullptr, nullptr), ZV_FAILURE);
    EXPECT_EQ(poolReferences(pool.pool), 1);
}

TEST(Pool, LedgerCountsWhatHappened)
{
    PoolFixture pool(3, 100);
    ZVbuffer a = pool.takeOwned(), b = pool.takeOwned();
    zvBufferAttach(a);
    zvBufferFree(b);
    b = pool.takeOwned();
    ZVpoolLedger now = ledgerOf(pool.pool);
    EXPECT_EQ(now.count, 3);
    EXPECT_EQ(now.size, 100);
    EXPECT_EQ(now.free, 1);
    EXPECT_EQ(now.inUse, 2);
    EXPECT_EQ(now.peak, 2);
    EXPECT_EQ(now.allocated, 3);
    EXPECT_EQ(now.references, 3);
    EXPECT_EQ(now.failures, 0);
    pool.take();
    ZVbuffer none = nullptr;
    zvBufferAllocate(pool.pool, &none);
    zvBufferAllocate(pool.pool, &none);
    for (ZVbuffer buffer : {a, a, b})
        zvBufferFree(buffer);
    now = ledgerOf(pool.pool);
    EXPECT_EQ(now.peak, 3);
    EXPECT_EQ(now.failures, 2);
    EXPECT_EQ(now.allocated, 4);
    EXPECT_EQ(now.references, 1);
    EXPECT_EQ(zvBufferGetPoolFree(pool.pool), 2);
    EXPECT_EQ(zvBufferGetPoolLedger(pool.pool, nullptr), ZV_FAILURE);
}

TEST(Pool, ALaterPoolInTheSamePlaceStartsItsLedgerAgain)
{
    for (int round = 0; round < 3; ++round) {
        PoolFixture pool(2);
        ZVpoolLedger fresh = ledgerOf(pool.pool);
        EXPECT_EQ(fresh.allocated, 0);
        EXPECT_EQ(fresh.peak, 0);
        EXPECT_EQ(fresh.failures, 0);
        EXPECT_EQ(fresh.free, 2);
        for (int i = 0; i < 5; ++i)
            zvBufferFree(pool.takeOwned());
        ZVbuffer none = nullptr;
        pool.take();
        pool.take();
        zvBufferAllocate(pool.pool, &none);
    }
}

TEST(Pool, BuffersOutliveItAndStayWhole)
{
    ZVbufferpool pool = makePool(2, 8192);
    ZVbuffer a = nullptr, b = nullptr;
    zvBufferAllocate(pool, &a);
    zvBufferAllocate(pool, &b);
    EXPECT_EQ(zvBufferDestroyPool(pool), ZV_SUCCESS);
    expectDead(pool);
    PoolFixture other(2, 8192);
    zvBufferFree(a);
    expectDead(a);

    auto* data = static_cast<unsigned char*>(zvBufferMapData(b));
    memset(data, 7, 8192);
    zvBufferSetSize(b, 9);
    EXPECT_EQ(zvBufferAttach(b), ZV_SUCCESS);
    zvBufferFree(b);
    EXPECT_EQ(zvBufferGetSize(b), 9);
    EXPECT_EQ(zvBufferMapData(b), data);
    EXPECT_EQ(data[8191], 7);
    int fd = -1, capacity = 0;
    long long offset = -1;
    EXPECT_EQ(zvBufferGetMemory(b, &fd, &offset, &capacity), ZV_SUCCESS);
    unsigned char byte = 0;
    EXPECT_EQ(pread(fd, &byte, 1, offset), 1);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(zvBufferFree(b), ZV_SUCCESS);
    expectDead(b);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the memory file goes with the last buffer";
    EXPECT_EQ(msync(data, 4096, MS_ASYNC), -1) << "and so does the mapping";
}

TEST(Pool, MemoryFileShowsEveryBufferAndCannotBeCut)
{
    PoolFixture pool(3, 5000);
    for (int i = 0; i < 3; ++i) {
        ZVbuffer buffer = pool.take();
        auto* data = static_cast<unsigned char*>(zvBufferMapData(buffer));
        data[4999] = (unsigned char)(10 + i);
        int fd = -1, capacity = 0;
        long long offset = -1;
        ASSERT_EQ(zvBufferGetMemory(buffer, &fd, &offset, &capacity), ZV_SUCCESS);
        EXPECT_EQ(capacity, 5000);
        EXPECT_EQ(offset % 4096, 0);
        EXPECT_GE(fd, 3);
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
        unsigned char byte = 0;
        EXPECT_EQ(pread(fd, &byte, 1, offset + 4999), 1);
        EXPECT_EQ(byte, 10 + i);
        EXPECT_EQ(ftruncate(fd, 0), -1);
    }
    EXPECT_EQ(poolReferences(pool.pool), 3);
}

TEST(Pool, SizeZeroIsLegalAndCanBeMapped)
{
    PoolFixture pool(2, 0);
    ZVbuffer buffer = pool.take();
    EXPECT_EQ(zvBufferGetSize(buffer), 0);
    EXPECT_EQ(zvBufferSetSize(buffer, 1), ZV_FAILURE);
    EXPECT_NE(zvBufferMapData(buffer), nullptr);
    EXPECT_NE(zvBufferMapData(buffer), zvBufferMapData(pool.take()));
}

TEST(Pool, RefusesCountsAndSizesThatCannotBeMeant)
{
    EXPECT_EQ(makePool(0, 100), nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(makePool(-1, 100), nullptr);
    EXPECT_EQ(makePool(1, -1), nullptr);
    ZVbufferpool pool = reinterpret_cast<ZVbufferpool>(1);
    EXPECT_EQ(zvBufferCreatePool(nullptr, &pool), ZV_FAILURE);
    EXPECT_EQ(pool, nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
}

TEST(Pool, LimitsBoundAllPoolsTogetherUntilTheirMemoryIsGone)
{
    char detail[ZV_ERROR_DETAIL_MAX];
    const KivLimits before = *kivLimits();
    kivLimits()->poolBytes = 10 * 4096;
    kivLimits()->poolBuffers = 8;
    EXPECT_EQ(makePool(9, 1), nullptr);
    zvGetError(nullptr, detail);
    EXPECT_THAT(detail, testing::HasSubstr("poolBuffers"));
    ZVbufferpool first = makePool(6, 4096);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(makePool(5, 1), nullptr);
    zvGetError(nullptr, detail);
    EXPECT_THAT(detail, testing::HasSubstr("poolBytes"));
    ZVbuffer held = nullptr;
    zvBufferAllocate(first, &held);
    zvBufferDestroyPool(first);
    EXPECT_EQ(makePool(5, 1), nullptr) << "a buffer still holds the memory";
    zvBufferFree(held);
    ZVbufferpool second = makePool(5, 1);
    EXPECT_NE(second, nullptr);
    zvBufferDestroyPool(second);
    *kivLimits() = before;
    EXPECT_EQ(makePool(4096, 0x7fffffff), nullptr) << "8 TiB";
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
}

TEST(Pool, PlacesAndSlotsAreFoundAgain)
{
    std::vector<ZVbufferpool> pools;
    const long long before = std::exchange(kivLimits()->poolBytes, 1LL << 40);
    while (ZVbufferpool pool = makePool(4096, 1))
        pools.push_back(pool);
    EXPECT_EQ(lastError(), ZV_ERROR_MEMORY);
    EXPECT_EQ(pools.size(), (1u << 20) / 4096) << "1 Mi buffers";
    zvBufferDestroyPool(pools[3]);
    zvBufferDestroyPool(pools[7]);
    pools[3] = makePool(4000, 1);
    pools[7] = makePool(4096, 1);
    ASSERT_NE(pools[3], nullptr);
    ASSERT_NE(pools[7], nullptr);
    pools.push_back(makePool(96, 1));
    EXPECT_EQ(makePool(1, 1), nullptr) << "the gap of 96 is full";
    for (ZVbufferpool pool : pools) {
        ZVbuffer buffer = nullptr;
        EXPECT_EQ(zvBufferAllocate(pool, &buffer), ZV_SUCCESS);
        EXPECT_EQ(ledgerOf(pool).references, 1);
        EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
        EXPECT_EQ(zvBufferDestroyPool(pool), ZV_SUCCESS);
    }
    kivLimits()->poolBytes = before;
}

TEST(Time, IsTheMonotonicClock)
{
    timespec clock = {};
    unsigned long long first = 0, second = 0;
    EXPECT_EQ(zvGetUST(&first), ZV_SUCCESS);
    clock_gettime(CLOCK_MONOTONIC, &clock);
    EXPECT_EQ(zvGetUST(&second), ZV_SUCCESS);
    const unsigned long long between = 1000000000ull * clock.tv_sec + clock.tv_nsec;
    EXPECT_LE(first, between);
    EXPECT_LE(between, second);
    EXPECT_EQ(zvGetUST(nullptr), ZV_FAILURE);
}

}  // namespace
