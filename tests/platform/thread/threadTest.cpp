// threadTest.cpp - ids, ends and what is left of a thread.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/thread/thread.h"
#include "platform/zv/errors.h"

namespace {

std::atomic<bool> failCreate{false};

int entries(const char* folder)
{
    int count = 0;
    DIR* const dir = opendir(folder);
    while (readdir(dir) != nullptr)
        ++count;
    closedir(dir);
    return count;
}

void doNothing(void*) { }
void waitForStop(void*) { threadPoll(-1, 0); }

int run(void (*entry)(void*), void* arg = nullptr)
{
    const int id = threadStart(entry, arg);
    EXPECT_GT(id, 0);
    int status = -1;
    EXPECT_EQ(threadWait(id, &status), 0);
    return status;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* arg)
{
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return failCreate ? EAGAIN : real(thread, attributes, entry, arg);
}

TEST(Thread, KnowsOnlyIdsThatItGave)
{
    const int first = threadStart(doNothing, nullptr);
    ASSERT_GT(first, 0);
    EXPECT_EQ(threadWait(first, nullptr), 0);
    for (int id : {0, -1, -11, first + 1, 2147483647}) {
        EXPECT_EQ(threadKill(id, 15), -1) << id;
        EXPECT_EQ(threadWait(id, nullptr), -1) << id;
    }
    EXPECT_EQ(threadKill(first, 9), -1);
    EXPECT_EQ(threadKill(first, 15), 0);
    EXPECT_EQ(threadWait(first, nullptr), 0);
    EXPECT_EQ(threadSelf(), 0);
    EXPECT_EQ(stopRequested(), 0);
    EXPECT_EQ(threadStopFD(), -1);
}

TEST(Thread, NeverReusesAnId)
{
    int last = 0;
    for (int i = 0; i < 300; ++i) {
        const int id = threadStart(doNothing, nullptr);
        ASSERT_GT(id, last);
        last = id;
        ASSERT_EQ(threadWait(id, nullptr), 0);
        if (i > 200) {
            EXPECT_EQ(threadKill(id - 200, 15), 0) << "a stop for a thread long gone meets nobody";
        }
    }
}

TEST(Thread, FailsToStartWithExactlyMinusOneAndForgetsIt)
{
    const int before = threadStart(doNothing, nullptr);
    ASSERT_EQ(threadWait(before, nullptr), 0);
    const int fds = entries("/proc/self/fd");
    failCreate = true;
    EXPECT_EQ(threadStart(doNothing, nullptr), -1);
    failCreate = false;
    EXPECT_EQ(threadStart(nullptr, nullptr), -1);
    EXPECT_EQ(entries("/proc/self/fd"), fds);
    EXPECT_EQ(threadWait(before + 1, nullptr), -1);
    const int after = threadStart(doNothing, nullptr);
    EXPECT_GT(after, before);
    EXPECT_EQ(threadWait(after, nullptr), 0);
}

TEST(Thread, EndsWithItsStatusAndRunsDestructors)
{
    struct Set {
        bool* flag;
        ~Set() { *flag = true; }
    };
    bool unwound = false;
    const auto endsEarly = [](void* flag) {
        Set set{static_cast<bool*>(flag)};
        endThread(42);
        ADD_FAILURE() << "endThread returned";
    };
    EXPECT_EQ(run(endsEarly, &unwound), 42);
    EXPECT_TRUE(unwound);
    EXPECT_EQ(run(doNothing), 0);
    EXPECT_EQ(endThread(1), -1);
    std::thread([] { EXPECT_EQ(endThread(1), -1); }).join();
}

TEST(Thread, TellsItsStatusToSeveralWaitersAndLater)
{
    const auto endsWhenAsked = [](void*) {
        threadPoll(-1, 0);
        endThread(7);
    };
    const int id = threadStart(endsWhenAsked, nullptr);
    int status[3] = {};
    std::vector<std::thread> waiters;
    for (int& each : status)
        waiters.emplace_back([id, &each] { EXPECT_EQ(threadWait(id, &each), 0); });
    EXPECT_EQ(threadKill(id, 15), 0);
    for (std::thread& waiter : waiters)
        waiter.join();
    EXPECT_EQ(status[0] + status[1] + status[2], 21);
    int again = 0;
    EXPECT_EQ(threadWait(id, &again), 0);
    EXPECT_EQ(again, 7);
}

TEST(Thread, DoesNotWaitForItself)
{
    const auto waitsForItself = [](void*) { endThread(threadWait(threadSelf(), nullptr) == -1 ? 1 : 0); };
    EXPECT_EQ(run(waitsForItself), 1);
}

TEST(Thread, LeavesNothingBehindEvenIfNobodyWaits)
{
    run(doNothing);
    const int threads = entries("/proc/self/task");
    const int fds = entries("/proc/self/fd");
    std::vector<int> ids;
    for (int i = 0; i < 50; ++i)
        ids.push_back(threadStart(i % 2 ? doNothing : waitForStop, nullptr));
    for (int id : ids)
        EXPECT_EQ(threadKill(id, 15), 0);
    for (size_t i = 0; i < ids.size(); i += 3)
        EXPECT_EQ(threadWait(ids[i], nullptr), 0);
    // The kernel lists a joined thread for a moment longer; those that nobody
    // waits for go one after the other, the last with the next thread.
    while (entries("/proc/self/task") > threads)
        run(doNothing);
    run(doNothing);
    EXPECT_EQ(entries("/proc/self/fd"), fds);
}

TEST(Thread, LeavesTheProgramsSignalsAlone)
{
    struct sigaction before, after;
    sigaction(SIGTERM, nullptr, &before);
    const auto looksAtItsMask = [](void*) {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (int signal : {SIGTERM, SIGINT, SIGUSR1, SIGCHLD, SIGALRM})
            EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
        EXPECT_EQ(sigismember(&mask, SIGSEGV), 0);
        threadPoll(-1, 0);
    };
    const int id = threadStart(looksAtItsMask, nullptr);
    threadKill(id, 15);
    threadWait(id, nullptr);
    sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0);
}

TEST(Thread, StopDescriptorFitsSelectWhenStdinIsClosed)
{
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
    close(0);
    const auto checksDescriptor = [](void*) {
        const int fd = threadStopFD();
        EXPECT_GE(fd, 3);
        EXPECT_LT(fd, FD_SETSIZE);
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        EXPECT_EQ(threadPoll(fd, 1), THREAD_POLL_TIMEOUT);
        threadKill(threadSelf(), 15);
        EXPECT_EQ(stopRequested(), 1);
        EXPECT_EQ(threadPoll(fd, 0), THREAD_POLL_STOP);
    };
    run(checksDescriptor);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 was taken";
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }
}

TEST(Thread, OfTheParentIsGoneInAForkedChild)
{
    const int id = threadStart(waitForStop, nullptr);
    const pid_t child = fork();
    if (child == 0)
        _exit(threadKill(id, 15) == 0 && threadWait(id, nullptr) == 0 ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    threadKill(id, 15);
    EXPECT_EQ(threadWait(id, nullptr), 0);
}
