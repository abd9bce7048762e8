// raceTest.cpp - threads that meet at one buffer, at one pool, at its end.
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>
#include <utility>

#include "platform/limits.h"
#include "tests/platform/zv/poolTools.h"
#include "tests/support/poolFixture.h"

namespace {

constexpr int rounds = 100'000;

// The owner stamps each buffer with its own handle. Whoever attaches by an old
// handle is refused, or holds exactly the buffer that he asked for.
TEST(BufferRace, AttachNeverRevivesABufferThatWentOn)
{
    PoolFixture pool(1);
    std::atomic<ZVbuffer> current{nullptr};
    std::atomic<bool> done{false};
    std::atomic<int> attached{0};
    std::thread other([&] {
        while (!done) {
            ZVbuffer buffer = current;
            if (zvBufferAttach(buffer) != ZV_SUCCESS)
                continue;
            ++attached;
            EXPECT_EQ(zvBufferGetUSTMSCpair(buffer).ust, reinterpret_cast<int64_t>(buffer));
            EXPECT_EQ(*static_cast<ZVbuffer*>(zvBufferMapData(buffer)), buffer);
            EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
        }
    });
    long long allocated = 0;
    while (allocated < rounds || attached < 100) {
        ZVbuffer buffer = nullptr;
        if (zvBufferAllocate(pool.pool, &buffer) != ZV_SUCCESS)
            continue;
        ++allocated;
        zvBufferSetUSTMSCpair(buffer, {reinterpret_cast<int64_t>(buffer), 0});
        *static_cast<ZVbuffer*>(zvBufferMapData(buffer)) = buffer;
        current = buffer;
        EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
    }
    done = true;
    other.join();
    const ZVpoolLedger ledger = ledgerOf(pool.pool);
    EXPECT_EQ(ledger.allocated, allocated);
    EXPECT_EQ(ledger.references, 0);
    EXPECT_EQ(ledger.free, 1);
}

// Of several that drop one reference too many, exactly one is refused.
TEST(BufferRace, OneReferenceIsDroppedOnce)
{
    PoolFixture pool(2);
    std::atomic<ZVbuffer> shared{nullptr};
    std::atomic<int> freed{0};
    for (int i = 0; i < 2000; ++i) {
        shared = pool.takeOwned();
        freed = 0;
        std::thread other([&] { freed += zvBufferFree(shared) == ZV_SUCCESS; });
        freed += zvBufferFree(shared) == ZV_SUCCESS;
        other.join();
        EXPECT_EQ(freed, 1);
    }
}

// Takes a buffer and marks it as its own.
ZVbuffer takeMarked(ZVbufferpool pool, int64_t mark)
{
    ZVbuffer buffer = nullptr;
    if (zvBufferAllocate(pool, &buffer) == ZV_SUCCESS)
        *static_cast<int64_t*>(zvBufferMapData(buffer)) = mark;
    return buffer;
}

void giveMarked(ZVbuffer buffer, int64_t mark)
{
    if (buffer == nullptr)
        return;
    EXPECT_EQ(*static_cast<int64_t*>(zvBufferMapData(buffer)), mark);
    EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
}

// Three are taken and go back in another order, so that the list's head comes
// again with the same count and another rest behind it: no buffer is handed out
// twice, and at the end none is lost.
TEST(PoolRace, ABufferHasOneOwner)
{
    PoolFixture pool(5);
    std::latch together(2);
    const auto run = [&](int64_t me) {
        together.arrive_and_wait();
        for (int64_t mark = me * rounds; mark < (me + 1) * rounds; ++mark) {
            ZVbuffer held[3];
            for (ZVbuffer& buffer : held)
                buffer = takeMarked(pool.pool, mark);
            for (int i : {1, 2, 0})
                giveMarked(held[i], mark);
        }
    };
    std::thread one(run, 1), two(run, 2);
    one.join();
    two.join();
    const ZVpoolLedger ledger = ledgerOf(pool.pool);
    EXPECT_EQ(ledger.allocated + ledger.failures, 6 * rounds);
    EXPECT_EQ(ledger.references, 0);
    for (int i = 0; i < 5; ++i)
        pool.take();
}

TEST(BufferRace, TwoHoldersSetAndReadAtOnce)
{
    PoolFixture pool(1);
    ZVbuffer buffer = pool.take();
    const auto run = [buffer](int me) {
        for (int i = 0; i < 20'000; ++i) {
            zvBufferSetSize(buffer, me);
            zvBufferSetUSTMSCpair(buffer, {me, me});
            const int size = zvBufferGetSize(buffer);
            EXPECT_TRUE(size == 1 || size == 2);
            zvBufferGetUSTMSCpair(buffer);
            zvBufferAttach(buffer);
            zvBufferFree(buffer);
        }
    };
    std::thread first(run, 1), second(run, 2);
    first.join();
    second.join();
    EXPECT_EQ(poolReferences(pool.pool), 1);
}

// Users go on with a handle while the pool ends and the next one takes its
// place, in turn. Nothing is taken from a pool that is gone, and all memory is
// given back.
TEST(PoolRace, EndsUnderItsUsers)
{
    const int files = openFiles();
    const long long limit = std::exchange(kivLimits()->poolBytes, 64 * 4096);
    std::atomic<ZVbufferpool> current{nullptr};
    std::atomic<bool> done{false};
    const auto run = [&] {
        while (!done) {
            ZVbuffer buffer = nullptr;
            ZVbufferpool pool = current;
            if (zvBufferAllocate(pool, &buffer) == ZV_SUCCESS) {
                *static_cast<int*>(zvBufferMapData(buffer)) = 1;
                zvBufferGetPoolFree(pool);
                EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
            }
        }
    };
    std::thread first(run), second(run);
    for (int i = 0; i < 3000; ++i) {
        ZVbufferpool pool = makePool(1 + i % 3, 1);
        ASSERT_NE(pool, nullptr);
        current = pool;
        EXPECT_GE(zvBufferGetPoolFD(pool), 3);
        ZVbuffer buffer = nullptr;
        while (i % 2 == 0 && zvBufferAllocate(pool, &buffer) != ZV_SUCCESS) { }
        EXPECT_EQ(zvBufferDestroyPool(pool), ZV_SUCCESS);
        if (buffer != nullptr) {
            EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
        }
    }
    done = true;
    first.join();
    second.join();
    EXPECT_EQ(openFiles(), files);
    EXPECT_EQ(poolMappings(), 0);
    ZVbufferpool all = makePool(64, 4096);
    EXPECT_NE(all, nullptr) << "bytes are still reserved";
    zvBufferDestroyPool(all);
    kivLimits()->poolBytes = limit;
}

TEST(PoolRace, OnlyOneOfTwoDestroysIt)
{
    for (int i = 0; i < 2000; ++i) {
        ZVbufferpool pool = makePool(2, 1);
        std::atomic<int> destroyed{0};
        std::thread other([&] { destroyed += zvBufferDestroyPool(pool) == ZV_SUCCESS; });
        destroyed += zvBufferDestroyPool(pool) == ZV_SUCCESS;
        other.join();
        EXPECT_EQ(destroyed, 1);
    }
    EXPECT_EQ(poolMappings(), 0);
}

}  // namespace
