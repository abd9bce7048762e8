// stopTest.cpp - a stop request ends a wait for a semaphore, and takes nothing.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <dlfcn.h>
#include <functional>

#include <linux/futex.h>
#include <sys/syscall.h>

#include "platform/thread/thread.h"
#include "platform/zv/zv.h"
#include "tests/platform/yq/arenaFixture.h"

namespace {

// Runs once, in the thread that is about to sleep, when it has looked for the last time.
std::function<void()> beforeSleep;

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

// What P says when `event` comes in its last moment awake, and the error it records.
int takeWhile(yqsema_t* sema, std::function<void()> event, int* error = nullptr)
{
    struct Job {
        yqsema_t* sema;
        int result, error;
    } job{sema, 99, 0};
    beforeSleep = std::move(event);
    const auto entry = [](void* arg) {
        Job* const each = static_cast<Job*>(arg);
        each->result = yqpsema(each->sema);
        zvGetError(&each->error, nullptr);
    };
    EXPECT_EQ(threadWait(threadStart(entry, &job), nullptr), 0);
    EXPECT_FALSE(beforeSleep) << "nobody was about to sleep";
    if (error != nullptr)
        *error = job.error;
    return job.result;
}

}  // namespace

// The layer sleeps in this call, which is the C library's.
extern "C" __attribute__((visibility("default"))) long syscall(long number, ...) noexcept
{
    static const auto real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    va_list list;
    va_start(list, number);
    long args[6];
    for (long& arg : args)
        arg = va_arg(list, long);
    va_end(list);
    if (number == SYS_futex && args[1] == FUTEX_WAIT && threadSelf() != 0 && beforeSleep)
        std::exchange(beforeSleep, nullptr)();
    return real(number, args[0], args[1], args[2], args[3], args[4], args[5]);
}

TEST(Stop, AndGiveAndFreeAreSeenInTheLastMomentBeforeSleep)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 0);
    int error = 0;
    EXPECT_EQ(takeWhile(
                  sema, [] { threadKill(threadSelf(), 15); }, &error),
              -1);
    EXPECT_EQ(error, ZV_ERROR_STOPPED);
    EXPECT_EQ(takeWhile(sema, [&] { yqvsema(sema); }), 0);
    EXPECT_EQ(takeWhile(sema,
                        [&] {
                            threadKill(threadSelf(), 15);
                            yqvsema(sema);
                        }),
              0);
    EXPECT_EQ(yqtestsema(sema), 0);
    EXPECT_EQ(takeWhile(
                  sema, [&] { yqfreesema(sema, f.arena); }, &error),
              -1);
    EXPECT_EQ(error, ZV_ERROR_HANDLE);
}

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
