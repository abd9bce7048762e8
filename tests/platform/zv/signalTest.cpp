// signalTest.cpp - the descriptor of a pool: a level that follows the free count.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <latch>
#include <thread>
#include <vector>

#include "tests/platform/zv/poolTools.h"
#include "tests/support/poolFixture.h"

namespace {

TEST(PoolSignal, IsReadyExactlyWhileABufferIsFree)
{
    PoolFixture pool(2);
    const int fd = zvBufferGetPoolFD(pool.pool);
    ASSERT_GE(fd, 3);
    EXPECT_EQ(zvBufferGetPoolFD(pool.pool), fd);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    for (int round = 0; round < 300; ++round) {  // more than the socket takes if anything stays in it
        EXPECT_TRUE(isReady(fd));
        ZVbuffer a = pool.takeOwned();
        EXPECT_TRUE(isReady(fd));
        ZVbuffer b = pool.takeOwned();
        EXPECT_FALSE(isReady(fd));
        ZVbuffer none = nullptr;
        zvBufferAllocate(pool.pool, &none);
        zvBufferAttach(a);
        zvBufferFree(a);
        EXPECT_FALSE(isReady(fd));
        zvBufferFree(b);
        EXPECT_TRUE(isReady(fd));
        zvBufferFree(a);
    }
}

TEST(PoolSignal, StartsAtTheLevelOfTheMoment)
{
    PoolFixture pool(1);
    ZVbuffer buffer = pool.takeOwned();
    const int fd = zvBufferGetPoolFD(pool.pool);
    EXPECT_FALSE(isReady(fd));
    zvBufferFree(buffer);
    EXPECT_TRUE(isReady(fd));
}

TEST(PoolSignal, FollowsTheSelectSize)
{
    PoolFixture pool(1, 100);
    EXPECT_EQ(zvBufferSetPoolSelectSize(pool.pool, 101), ZV_SUCCESS);
    const int fd = zvBufferGetPoolFD(pool.pool);
    EXPECT_FALSE(isReady(fd)) << "no buffer is that large";
    zvBufferFree(pool.takeOwned());
    EXPECT_FALSE(isReady(fd));
    EXPECT_EQ(zvBufferSetPoolSelectSize(pool.pool, 100), ZV_SUCCESS);
    EXPECT_TRUE(isReady(fd));
    EXPECT_EQ(zvBufferSetPoolSelectSize(pool.pool, -1), ZV_FAILURE);
    ZVbuffer buffer = pool.takeOwned();
    EXPECT_EQ(zvBufferSetPoolSelectSize(pool.pool, 0), ZV_SUCCESS);
    EXPECT_FALSE(isReady(fd));
    zvBufferSetPoolSelectSize(pool.pool, 101);
    zvBufferFree(buffer);
    EXPECT_FALSE(isReady(fd));
}

TEST(PoolSignal, IsForgottenByTheNextPoolInItsPlace)
{
    ZVbufferpool first = makePool(1, 1);
    zvBufferSetPoolSelectSize(first, 9);
    const int fd = zvBufferGetPoolFD(first);
    zvBufferDestroyPool(first);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    const int before = openFiles();
    PoolFixture second(1, 1);
    EXPECT_EQ(openFiles(), before + 1) << "the memory file alone";
    EXPECT_TRUE(isReady(zvBufferGetPoolFD(second.pool)));
}

TEST(PoolSignal, EndsWithThePoolThoughBuffersAreOut)
{
    ZVbufferpool pool = makePool(1, 1);
    const int fd = zvBufferGetPoolFD(pool);
    ZVbuffer buffer = nullptr;
    zvBufferAllocate(pool, &buffer);
    zvBufferDestroyPool(pool);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(zvBufferFree(buffer), ZV_SUCCESS);
}

TEST(PoolSignal, WakesWhoeverWaitsForABuffer)
{
    PoolFixture pool(1);
    const int fd = zvBufferGetPoolFD(pool.pool);
    for (short event : {POLLIN, POLLOUT}) {
        ZVbuffer buffer = pool.takeOwned();
        std::thread other([buffer] { zvBufferFree(buffer); });
        pollfd wait = {fd, event, 0};
        EXPECT_EQ(poll(&wait, 1, 10'000), 1);
        EXPECT_EQ(wait.revents, event);
        other.join();
    }
}

// Takes and gives back at random; what is left at the end is in `held`.
void hammer(ZVbufferpool pool, unsigned seed, int steps, std::vector<ZVbuffer>& held)
{
    for (int i = 0; i < steps; ++i) {
        seed = seed * 1664525 + 1013904223;
        ZVbuffer buffer = nullptr;
        if ((seed >> 20 & 1) != 0 && zvBufferAllocate(pool, &buffer) == ZV_SUCCESS) {
            held.push_back(buffer);
        } else if (!held.empty()) {
            EXPECT_EQ(zvBufferFree(held.back()), ZV_SUCCESS);
            held.pop_back();
        }
    }
}

// Two threads cross the edges all the time; the descriptor is made meanwhile.
void hammerOnce(unsigned round)
{
    PoolFixture pool(1 + round % 2);
    std::vector<ZVbuffer> held[2];
    std::latch together(3);
    const auto run = [&](int i) {
        together.arrive_and_wait();
        hammer(pool.pool, round * 2 + i, 40, held[i]);
    };
    std::thread first(run, 0), second(run, 1);
    together.arrive_and_wait();
    const int fd = zvBufferGetPoolFD(pool.pool);
    first.join();
    second.join();
    EXPECT_EQ(isReady(fd), zvBufferGetPoolFree(pool.pool) > 0) << "round " << round;
    EXPECT_EQ(ledgerOf(pool.pool).references, int(held[0].size() + held[1].size()));
    for (const auto& buffers : held) {
        for (ZVbuffer buffer : buffers)
            zvBufferFree(buffer);
    }
    EXPECT_TRUE(isReady(fd));
}

TEST(PoolSignal, IsRightAtRestHoweverTwoThreadsCrossed)
{
    for (unsigned round = 0; round < 2000 && !testing::Test::HasFailure(); ++round)
        hammerOnce(round);
}

TEST(PoolDescriptors, AvoidTheProgramsStreams)
{
    int saved[3];
    for (int stream = 0; stream < 3; ++stream) {
        saved[stream] = fcntl(stream, F_DUPFD_CLOEXEC, 10);
        close(stream);
    }
    ZVbufferpool pool = makePool(1, 1);
    const int signal = zvBufferGetPoolFD(pool);
    ZVbuffer buffer = nullptr;
    int memory = -1, capacity = 0;
    long long offset = 0;
    zvBufferAllocate(pool, &buffer);
    zvBufferGetMemory(buffer, &memory, &offset, &capacity);
    bool used = false;
    for (int stream = 0; stream < 3; ++stream) {
        used = used || fcntl(stream, F_GETFD) != -1;
        dup2(saved[stream], stream);
        close(saved[stream]);
    }
    EXPECT_FALSE(used);
    EXPECT_GE(signal, 3);
    EXPECT_GE(memory, 3);
    zvBufferFree(buffer);
    zvBufferDestroyPool(pool);
}

// Lowers the number of descriptors that this process may have, for a while.
class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t most)
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit lower = {most, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &lower), 0);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit before_;
};

// The next number that a new descriptor gets.
int nextDescriptor()
{
    const int next = dup(0);
    close(next);
    return next;
}

TEST(PoolDescriptors, RunningOutGivesFailureAndLeavesNothing)
{
    PoolFixture pool(1);
    const int before = openFiles();
    for (int spare : {0, 1}) {
        const DescriptorLimit limit{rlim_t(nextDescriptor() + spare)};
        EXPECT_EQ(zvBufferGetPoolFD(pool.pool), -1);
        EXPECT_EQ(lastError(), ZV_ERROR_SYSTEM);
    }
    {
        const DescriptorLimit limit{rlim_t(nextDescriptor())};
        EXPECT_EQ(makePool(1, 1), nullptr);
        EXPECT_EQ(lastError(), ZV_ERROR_MEMORY);
    }
    EXPECT_EQ(openFiles(), before);
    EXPECT_EQ(poolMappings(), 1);
    EXPECT_TRUE(isReady(zvBufferGetPoolFD(pool.pool)));
}

TEST(PoolDescriptors, BeyondSelectAreRefused)
{
    PoolFixture pool(1);
    std::vector<int> others;
    const DescriptorLimit limit(FD_SETSIZE + 100);
    while (others.empty() || others.back() < FD_SETSIZE - 2)
        others.push_back(dup(0));
    const int before = openFiles();
    for (int below = 1; below >= 0; --below) {  // one number is left, then none
        EXPECT_EQ(zvBufferGetPoolFD(pool.pool), -1);
        EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
        EXPECT_EQ(openFiles(), before + 1 - below);
        others.push_back(dup(0));
    }
    EXPECT_EQ(makePool(1, 1), nullptr);
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
    for (int other : others)
        close(other);
    EXPECT_TRUE(isReady(zvBufferGetPoolFD(pool.pool)));
}

}  // namespace
