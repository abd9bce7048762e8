// semaphoreTest.cpp - ordinary semaphores, among threads and processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <random>
#include <thread>
#include <vector>

#include <sys/mman.h>

#include "tests/platform/yq/arenaFixture.h"

namespace {

template <class Body> void onThreads(int count, Body body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&body, i] { body(i); });
    for (std::thread& thread : threads)
        thread.join();
}

yqsema_t* wordPlus(yqsema_t* sema, uintptr_t change)
{
    return reinterpret_cast<yqsema_t*>(reinterpret_cast<uintptr_t>(sema) + change);
}

void expectDead(yqsema_t* sema, yqptr_t arena)
{
    EXPECT_EQ(yqpsema(sema), -1);
    EXPECT_EQ(yqvsema(sema), -1);
    EXPECT_EQ(yqtestsema(sema), -1);
    EXPECT_EQ(yqopenpollsema(sema, 0777), -1);
    EXPECT_EQ(yqfreesema(sema, arena), -1);
}

}  // namespace

TEST(Semaphore, CountsAndRefusesWhatIsNotOne)
{
    ArenaFixture f, other;
    yqsema_t* const sema = yqnewsema(f.arena, 2);
    EXPECT_EQ(yqpsema(sema), 0);
    EXPECT_EQ(yqpsema(sema), 0);
    EXPECT_EQ(yqtestsema(sema), 0);
    EXPECT_EQ(yqvsema(sema), 0);
    EXPECT_EQ(yqtestsema(sema), 1);
    EXPECT_EQ(yqopenpollsema(sema, 0777), -1);

    EXPECT_EQ(yqnewsema(nullptr, 1), nullptr);
    EXPECT_EQ(yqnewpollsema(nullptr, 1), nullptr);
    EXPECT_EQ(yqnewsema(reinterpret_cast<yqptr_t>(sema), 1), nullptr);
    EXPECT_EQ(yqnewsema(f.arena, -1), nullptr);
    EXPECT_EQ(yqfreesema(sema, nullptr), -1);
    EXPECT_EQ(yqfreesema(sema, other.arena), -1);
    expectDead(nullptr, f.arena);
    expectDead(reinterpret_cast<yqsema_t*>(&f), f.arena);
    expectDead(reinterpret_cast<yqsema_t*>(f.arena), f.arena);
    expectDead(wordPlus(sema, 1), f.arena);  // another generation
    expectDead(wordPlus(sema, 1u << 27), f.arena);  // the other kind
    expectDead(wordPlus(sema, uintptr_t(5) << 28), f.arena);  // a slot never used
    expectDead(wordPlus(sema, uintptr_t(0xfff00) << 28), f.arena);  // a slot beyond the file
    EXPECT_EQ(yqtestsema(sema), 1) << "one of the bad handles reached it";

    yqsema_t* const full = yqnewsema(f.arena, INT_MAX);
    EXPECT_EQ(yqvsema(full), -1);
    EXPECT_EQ(yqtestsema(full), INT_MAX);
}

TEST(Semaphore, OnceFreedNeverComesBack)
{
    ArenaFixture f;
    std::vector<yqsema_t*> dead;
    for (int i = 0; i < 1000; ++i) {
        yqsema_t* const sema = i % 2 ? yqnewsema(f.arena, 1) : yqnewpollsema(f.arena, 1);
        for (yqsema_t* old : dead)
            ASSERT_NE(old, sema);
        ASSERT_EQ(yqfreesema(sema, f.arena), 0);
        dead.push_back(sema);
    }
    yqsema_t* const alive = yqnewsema(f.arena, 1);
    for (yqsema_t* old : dead)
        expectDead(old, f.arena);
    EXPECT_EQ(yqtestsema(alive), 1);
}

TEST(Semaphore, SurvivesEveryForgedHandle)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 1);
    std::mt19937_64 random(1);
    for (int i = 0; i < 200000; ++i) {
        // Near the real one, so that arena and kind are mostly right.
        yqsema_t* const forged = wordPlus(sema, random() >> (4 + random() % 60));
        if (forged != sema) {
            ASSERT_EQ(yqvsema(forged), -1);
        }
    }
    EXPECT_EQ(yqtestsema(sema), 1);
}

TEST(Semaphore, ExcludesThreads)
{
    ArenaFixture f;
    yqsema_t* const lock = yqnewsema(f.arena, 1);
    int inside = 0, total = 0;
    onThreads(4, [&](int) {
        for (int i = 0; i < 20000; ++i) {
            ASSERT_EQ(yqpsema(lock), 0);
            ASSERT_EQ(++inside, 1);
            ++total;
            --inside;
            ASSERT_EQ(yqvsema(lock), 0);
        }
    });
    EXPECT_EQ(total, 80000);
    EXPECT_EQ(yqtestsema(lock), 1);
}

TEST(Semaphore, WakesAsManyAsAreGiven)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 0);
    for (int round = 0; round < 300; ++round) {
        onThreads(6, [&](int i) { ASSERT_EQ(i < 3 ? yqpsema(sema) : yqvsema(sema), 0); });
        ASSERT_EQ(yqtestsema(sema), 0);
    }
}

TEST(Semaphore, FreedUnderItsSleepersSendsThemAllAway)
{
    ArenaFixture f;
    for (int round = 0; round < 300; ++round) {
        yqsema_t* const sema = yqnewsema(f.arena, 0);
        onThreads(4, [&](int i) { ASSERT_EQ(i < 3 ? yqpsema(sema) : yqfreesema(sema, f.arena) - 1, -1); });
    }
}

TEST(Semaphore, IsFreedByOneOfMany)
{
    ArenaFixture f;
    std::atomic<int> freed{0};
    for (int round = 0; round < 200; ++round) {
        yqsema_t* const sema = yqnewsema(f.arena, 1);
        onThreads(3, [&](int) { freed += yqfreesema(sema, f.arena) == 0; });
    }
    EXPECT_EQ(freed, 200);
}

TEST(Semaphore, HasASlotOfItsOwnHoweverManyThreadsMakeAndFree)
{
    ArenaFixture f;
    onThreads(4, [&](int i) {
        for (int round = 0; round < 20000; ++round) {
            yqsema_t* const semas[3] = {yqnewsema(f.arena, i), yqnewsema(f.arena, i + 10), yqnewsema(f.arena, i + 20)};
            for (int each = 0; each < 3; ++each) {
                ASSERT_EQ(yqtestsema(semas[each]), i + 10 * each);
                ASSERT_EQ(yqfreesema(semas[each], f.arena), 0);
            }
        }
    });
    // Slots went round: no more were ever used than were alive at once.
    std::vector<uintptr_t> words(12);
    for (uintptr_t& word : words)
        word = reinterpret_cast<uintptr_t>(yqnewsema(f.arena, 0)) >> 28 & 0xfffff;
    std::sort(words.begin(), words.end());
    EXPECT_EQ(std::adjacent_find(words.begin(), words.end()), words.end());
    EXPECT_LT(words.back(), 12u);
}

TEST(Semaphore, IsSharedWithAForkedChild)
{
    ArenaFixture f;
    yqsema_t* const ping = yqnewsema(f.arena, 0);
    yqsema_t* const pong = yqnewsema(f.arena, 0);
    constexpr int rounds = 3000;
    const int child = startChild([&] {
        for (int i = 0; i < rounds; ++i) {
            if (yqpsema(ping) != 0 || yqvsema(pong) != 0)
                return 1;
        }
        return 0;
    });
    for (int i = 0; i < rounds; ++i) {
        ASSERT_EQ(yqvsema(ping), 0);
        ASSERT_EQ(yqpsema(pong), 0);
    }
    EXPECT_EQ(endOfChild(child), 0);
    EXPECT_EQ(yqtestsema(ping) + yqtestsema(pong), 0);
}

TEST(Semaphore, MadeByOneProcessServesAnotherThatJoinedByName)
{
    TemporaryFile file;
    int word[2];
    ASSERT_EQ(pipe(word), 0);
    const int child = startChild([&] {  // forked before the arena is there
        yqsema_t* semas[2] = {};
        if (read(word[0], semas, sizeof semas) != sizeof semas)
            return 1;
        if (yqpsema(semas[0]) != -1 || yqinit(file.name()) == nullptr)
            return 2;
        return yqpsema(semas[0]) == 0 && yqvsema(semas[1]) == 0 ? 0 : 3;
    });
    const yqptr_t arena = yqinit(file.name());
    yqsema_t* semas[2] = {};
    for (int i = 0; i < 5000; ++i)  // beyond what the file begins with
        semas[1] = yqnewsema(arena, 0);
    semas[0] = yqnewsema(arena, 0);
    ASSERT_EQ(write(word[1], semas, sizeof semas), ssize_t(sizeof semas));
    EXPECT_EQ(yqvsema(semas[0]), 0);
    EXPECT_EQ(yqpsema(semas[1]), 0);
    EXPECT_EQ(endOfChild(child), 0);
    close(word[0]);
    close(word[1]);
}

TEST(Semaphore, OfAKilledProcessStaysUsable)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewsema(f.arena, 0);
    yqsema_t* const there = yqnewsema(f.arena, 0);
    const int child = startChild([&] {
        yqvsema(there);
        return yqpsema(sema);
    });
    EXPECT_EQ(yqpsema(there), 0);
    kill(child, SIGKILL);
    EXPECT_EQ(endOfChild(child), -1);
    EXPECT_EQ(yqvsema(sema), 0);
    EXPECT_EQ(yqpsema(sema), 0);
    EXPECT_EQ(yqfreesema(sema, f.arena), 0);
}
