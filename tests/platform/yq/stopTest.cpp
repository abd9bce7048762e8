// stopTest.cpp - a stop request ends a wait for a semaphore, and takes nothing.
#include <gtest/gtest.h>

#include <atomic>

#include "platform/thread/thread.h"
#include "tests/platform/yq/arenaFixture.h"

namespace {

struct Taker {
    yqsema_t* sema;
    std::atomic<int> result{99};
    int id = -1;

    explicit Taker(yqsema_t* s) : sema(s)
    {
        id = threadStart([](void* arg) { static_cast<Taker*>(arg)->result = yqpsema(static_cast<Taker*>(arg)->sema); },
                         this);
        EXPECT_GT(id, 0);
    }
    void stop() const { EXPECT_EQ(threadKill(id, 15), 0); }
    int end() const
    {
        EXPECT_EQ(threadWait(id, nullptr), 0);
        return result;
    }
};

// Moves the two sides against each other, so that every window is met.
void lose(int time)
{
    for (std::atomic<int> i{0}; i < time; ++i) { }
}

}  // namespace

TEST(Stop, EndsATakeInEveryWindowAndTheValueIsConserved)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 0);
    int given = 0, taken = 0;
    for (int i = 0; i < 10000; ++i) {
        Taker taker(sema);
        lose(i % 97 * 100);
        if (i % 3 == 1)
            given += yqvsema(sema) == 0;
        taker.stop();
        if (i % 3 == 2)
            given += yqvsema(sema) == 0;
        const int result = taker.end();
        ASSERT_TRUE(result == 0 || result == -1) << result;
        taken += result == 0;
        ASSERT_EQ(yqtestsema(sema), given - taken) << "cycle " << i;
        while (yqtestsema(sema) > 0)
            taken += yqpsema(sema) == 0;
    }
    EXPECT_GT(given, 6000);
}

TEST(Stop, DoesNotSwallowTheWakeOfAnotherSleeper)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 0);
    for (int i = 0; i < 2000; ++i) {
        Taker stopped(sema);
        Taker other(sema);
        lose(i % 61 * 100);
        ASSERT_EQ(yqvsema(sema), 0);
        stopped.stop();
        if (stopped.end() == 0) {
            ASSERT_EQ(yqvsema(sema), 0);
        }
        ASSERT_EQ(other.end(), 0);
        ASSERT_EQ(yqtestsema(sema), 0);
    }
}

TEST(Stop, LeavesPolledSemaphoresAndFreeOnesAlone)
{
    ArenaFixture f;
    struct Semas {
        yqsema_t* free;
        yqsema_t* polled;
    } semas{yqnewsema(f.arena, 1), yqnewpollsema(f.arena, 0)};
    const auto entry = [](void* arg) {
        threadPoll(-1, 0);
        const auto* each = static_cast<Semas*>(arg);
        EXPECT_EQ(yqpsema(each->free), 0) << "what can be taken at once counts as granted";
        EXPECT_EQ(yqpsema(each->free), -1);
        EXPECT_EQ(yqpsema(each->polled), 0);
    };
    const int id = threadStart(entry, &semas);
    threadKill(id, 15);
    threadWait(id, nullptr);
    EXPECT_EQ(yqtestsema(semas.polled), -1);
}
