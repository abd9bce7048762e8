// waitTest.cpp - blocking calls, and the stop request that ends them.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include "platform/thread/internal.h"
#include "platform/thread/thread.h"

namespace {

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
    int ends[2];
};

unsigned long long inMs(int ms) { return kiv::monotonicNs() + ms * 1000000ull; }

// Runs `call` on a layer thread and asks it to stop; what the call returned.
template <class Call> int resultWhenStopped(Call call)
{
    struct Job {
        Call& call;
        int result;
    } job{call, 99};
    const int id
        = threadStart([](void* arg) { static_cast<Job*>(arg)->result = static_cast<Job*>(arg)->call(); }, &job);
    EXPECT_EQ(threadKill(id, 15), 0);
    EXPECT_EQ(threadWait(id, nullptr), 0);
    return job.result;
}

}  // namespace

TEST(ThreadPoll, TellsDataTimeoutAndErrorApart)
{
    Pipe pipe;
    EXPECT_EQ(threadPoll(pipe.ends[0], inMs(2)), THREAD_POLL_TIMEOUT);
    EXPECT_EQ(threadPollWrite(pipe.ends[1], 0), THREAD_POLL_READY);
    ASSERT_EQ(write(pipe.ends[1], "x", 1), 1);
    EXPECT_EQ(threadPoll(pipe.ends[0], 0), THREAD_POLL_READY);
    EXPECT_EQ(threadPoll(pipe.ends[0], 1), THREAD_POLL_READY) << "data is seen although the deadline is long past";
    EXPECT_EQ(threadPoll(-1, inMs(1)), THREAD_POLL_TIMEOUT);
    EXPECT_EQ(threadPoll(1000000, 0), THREAD_POLL_ERROR);

    Pipe full;
    const char block[4096] = {};
    while (write(full.ends[1], block, sizeof block) > 0) { }
    EXPECT_EQ(threadPollWrite(full.ends[1], inMs(1)), THREAD_POLL_TIMEOUT);
    EXPECT_EQ(close(std::exchange(full.ends[1], -1)), 0);
    EXPECT_EQ(threadPoll(full.ends[0], 0), THREAD_POLL_READY) << "the end of the stream is for read() to tell";
}

TEST(ThreadPoll, KeepsItsDeadlineAcrossSignals)
{
    struct sigaction ignore = {}, before;
    ignore.sa_handler = [](int) {};
    sigaction(SIGALRM, &ignore, &before);
    const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const auto deadline = inMs(30);
    EXPECT_EQ(threadPoll(-1, deadline), THREAD_POLL_TIMEOUT);
    EXPECT_GE(kiv::monotonicNs(), deadline);
    EXPECT_EQ(qtnnap(10), 0);
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

TEST(ThreadPoll, ReturnsStopInEveryWindow)
{
    Pipe pipe;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(resultWhenStopped([&] { return threadPoll(pipe.ends[0], 0); }), THREAD_POLL_STOP);
        ASSERT_EQ(resultWhenStopped([&] { return qtnnap(3600000); }), -1);
    }
}

TEST(ThreadPoll, StopGoesBeforeData)
{
    Pipe pipe;
    ASSERT_EQ(write(pipe.ends[1], "x", 1), 1);
    EXPECT_EQ(resultWhenStopped([&] {
                  while (stopRequested() == 0)
                      EXPECT_NE(threadPoll(pipe.ends[0], 0), THREAD_POLL_TIMEOUT);
                  return threadPoll(pipe.ends[0], 0);
              }),
              THREAD_POLL_STOP);
}

TEST(ThreadWait, OfAReaderEndsWhenTheReaderIsStopped)
{
    const int other = threadStart([](void*) { threadPoll(-1, 0); }, nullptr);
    for (int i = 0; i < 500; ++i)
        ASSERT_EQ(resultWhenStopped([&] { return threadWait(other, nullptr); }), -1);
    threadKill(other, 15);
    EXPECT_EQ(threadWait(other, nullptr), 0);
}

TEST(Nap, LastsItsTicks)
{
    const auto begin = kiv::monotonicNs();
    EXPECT_EQ(qtnnap(5), 0);
    EXPECT_GE(kiv::monotonicNs() - begin, 5000000u);
    EXPECT_EQ(qtnnap(0), 0);
    EXPECT_EQ(qtnnap(-1), 0);
}
