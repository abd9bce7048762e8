// arenaTest.cpp - the file behind the semaphores.
#include "tests/platform/yq/arenaFixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <vector>

#include "platform/limits.h"
#include "platform/yq/arena.h"

namespace {

std::atomic<bool> diskFull{false};

std::string contents(const std::string& path)
{
    std::string bytes(1 << 20, '\0');
    const int fd = open(path.c_str(), O_RDONLY);
    bytes.resize(size_t(read(fd, bytes.data(), bytes.size())));
    close(fd);
    return bytes;
}

void fill(const std::string& path, const std::string& bytes)
{
    const int fd = open(path.c_str(), O_WRONLY | O_TRUNC);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    close(fd);
}

// The bytes of an arena with some live and some freed semaphores. Made by
// a child, so that the arena is not mapped here.
std::string arenaBytes()
{
    TemporaryFile file;
    const int child = startChild([&] {
        const yqptr_t arena = yqinit(file.name());
        for (int i = 0; i < 20; ++i) {
            yqsema_t* const sema = yqnewsema(arena, i);
            if (i % 3 == 0)
                yqfreesema(sema, arena);
        }
        return 0;
    });
    EXPECT_EQ(endOfChild(child), 0);
    return contents(file.path);
}

// In a child, as the arena joined stays mapped: whether a file of those bytes is taken.
bool joins(const std::string& bytes)
{
    TemporaryFile file;
    fill(file.path, bytes);
    return endOfChild(startChild([&] { return yqinit(file.name()) != nullptr; })) == 1;
}

int makeAndUse(const char* name)
{
    const yqptr_t arena = yqinit(name);
    for (int i = 0; i < 3000 && arena != nullptr; ++i) {
        yqsema_t* const sema = i % 2 ? yqnewsema(arena, 1) : yqnewpollsema(arena, 1);
        yqpsema(sema);
        yqvsema(sema);
        if (i % 3 == 0)
            yqfreesema(sema, arena);
    }
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int posix_fallocate(int fd, off_t offset, off_t length)
{
    static const auto real = reinterpret_cast<decltype(&posix_fallocate)>(dlsym(RTLD_NEXT, "posix_fallocate"));
    return diskFull ? ENOSPC : real(fd, offset, length);
}

TEST(Arena, IsOnePerFile)
{
    EXPECT_EQ(yqconfig(16, 1), 0);
    ArenaFixture f;
    const std::string other = "/tmp/../" + f.file.path;
    EXPECT_EQ(yqinit(f.file.name()), f.arena);
    EXPECT_EQ(yqinit(other.c_str()), f.arena);
    ArenaFixture second;
    EXPECT_NE(second.arena, f.arena);
}

TEST(Arena, RefusesFilesThatAreNotItsUsersOwn)
{
    TemporaryFile file, link;
    EXPECT_EQ(yqinit(nullptr), nullptr);
    EXPECT_EQ(yqinit("/tmp"), nullptr);
    EXPECT_EQ(yqinit("/dev/null"), nullptr);
    EXPECT_EQ(yqinit((file.path + "-missing").c_str()), nullptr);
    unlink(link.name());
    ASSERT_EQ(symlink(file.name(), link.name()), 0);
    EXPECT_EQ(yqinit(link.name()), nullptr);
    unlink(link.name());
    ASSERT_EQ(mkfifo(link.name(), 0600), 0);
    EXPECT_EQ(yqinit(link.name()), nullptr);
    ASSERT_EQ(chmod(file.name(), 0620), 0);
    EXPECT_EQ(yqinit(file.name()), nullptr);
    ASSERT_EQ(chmod(file.name(), 0600), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(file.name(), 12345, 0), 0);
        EXPECT_EQ(yqinit(file.name()), nullptr);
        ASSERT_EQ(chown(file.name(), 0, 0), 0);
    }
    EXPECT_EQ(contents(file.path), "") << "a refused file was written";
    EXPECT_NE(yqinit(file.name()), nullptr);
}

TEST(Arena, RefusesFilesThatAreNoArena)
{
    const std::string good = arenaBytes();
    EXPECT_TRUE(joins(good));
    for (size_t at : {0, 7, 8, 12, 19}) {  // magic, version, size of a slot, number
        std::string bad = good;
        bad[at] = char(bad[at] ^ 0x40);
        EXPECT_FALSE(joins(bad)) << "byte " << at;
    }
    EXPECT_FALSE(joins("x"));
    EXPECT_FALSE(joins(good.substr(0, 4095)));
    EXPECT_FALSE(joins(std::string(100000, '\0')));
    EXPECT_TRUE(joins(good.substr(0, 4096))) << "slots that are not there are allocated again";
}

TEST(Arena, SurvivesDamageBehindItsHeader)
{
    const std::string good = arenaBytes();
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        std::string bad = good;
        for (int i = 0; i < 400; ++i)
            bad[20 + random() % (round % 2 ? 20 : 6000)] = char(random());
        TemporaryFile file;
        fill(file.path, bad);
        ASSERT_EQ(endOfChild(startChild([&] { return makeAndUse(file.name()); })), 0) << "round " << round;
    }
}

TEST(Arena, LeavesAFreeListThatRunsInACircle)
{
    std::string bytes = arenaBytes();
    auto* const header = reinterpret_cast<kiv::ArenaHeader*>(bytes.data());
    auto* const slots = reinterpret_cast<kiv::Slot*>(bytes.data() + kiv::headerBytes);
    header->freeList = 3;  // slots 2 and 1, which are in use
    slots[2].nextFree = 2;
    slots[1].nextFree = 3;
    TemporaryFile file;
    fill(file.path, bytes);
    const int child = startChild([&] {
        alarm(20);
        const yqptr_t arena = yqinit(file.name());
        return yqtestsema(yqnewsema(arena, 77)) == 77 ? 0 : 1;
    });
    EXPECT_EQ(endOfChild(child), 0);
}

TEST(Arena, IsSeenOnlySoFarAsTheProcessHasRoomForIt)
{
    TemporaryFile file;
    int word[2];
    ASSERT_EQ(pipe(word), 0);
    const int child = startChild([&] {
        yqsema_t* semas[2] = {};
        kivLimits()->arenaBytes = 4096 + 64 * 1000;
        if (read(word[0], semas, sizeof semas) != sizeof semas || yqinit(file.name()) == nullptr)
            return 1;
        return yqtestsema(semas[0]) == 5 && yqtestsema(semas[1]) == -1 ? 0 : 2;
    });
    const yqptr_t arena = yqinit(file.name());
    yqsema_t* semas[2] = {yqnewsema(arena, 5), nullptr};
    for (int i = 0; i < 5000; ++i)
        semas[1] = yqnewsema(arena, 0);
    ASSERT_EQ(write(word[1], semas, sizeof semas), ssize_t(sizeof semas));
    EXPECT_EQ(endOfChild(child), 0);
    close(word[0]);
    close(word[1]);
}

TEST(Arena, HoldsAsManySemaphoresAsItsBytes)
{
    const long long before = kivLimits()->arenaBytes;
    kivLimits()->arenaBytes = 4096 + 64 * 3000;
    ArenaFixture f;
    kivLimits()->arenaBytes = before;
    std::vector<yqsema_t*> semas;
    while (yqsema_t* const sema = yqnewsema(f.arena, 1))
        semas.push_back(sema);
    EXPECT_EQ(semas.size(), 3000u);
    EXPECT_EQ(yqfreesema(semas[1234], f.arena), 0);
    EXPECT_NE(yqnewpollsema(f.arena, 1), nullptr);
    EXPECT_EQ(yqnewpollsema(f.arena, 1), nullptr);
    for (size_t i = 0; i < semas.size(); ++i)
        ASSERT_EQ(yqtestsema(semas[i]), i == 1234 ? -1 : 1);

    kivLimits()->arenaBytes = 100;
    TemporaryFile tiny;
    EXPECT_EQ(yqinit(tiny.name()), nullptr);
    kivLimits()->arenaBytes = before;

    ArenaFixture large;
    for (int i = 0; i < 70000; ++i)
        ASSERT_NE(i % 2 ? yqnewsema(large.arena, 1) : yqnewpollsema(large.arena, 1), nullptr);
}

TEST(Arena, GivesNothingWhenTheDiskIsFullAndGoesOnAfterwards)
{
    TemporaryFile file;
    diskFull = true;
    EXPECT_EQ(yqinit(file.name()), nullptr);
    diskFull = false;
    const yqptr_t arena = yqinit(file.name());
    ASSERT_NE(arena, nullptr);
    diskFull = true;
    while (yqnewsema(arena, 1) != nullptr) { }
    diskFull = false;
    yqsema_t* const sema = yqnewsema(arena, 1);
    EXPECT_EQ(yqpsema(sema), 0);
}

TEST(Arena, IsRemovedByItsMakerAloneAndOnlyIfItIsStillThere)
{
    TemporaryFile kept, replaced;
    const auto makes = [&] {
        yqinit(kept.name());
        yqinit(replaced.name());
        unlink(replaced.name());
        close(open(replaced.name(), O_CREAT | O_WRONLY, 0600));
        if (endOfChild(startChild([]() -> int { exit(0); })) != 0 || access(kept.name(), F_OK) != 0)
            return 1;
        exit(0);
    };
    EXPECT_EQ(endOfChild(startChild(makes)), 0) << "a forked child removed the file";
    EXPECT_NE(access(kept.name(), F_OK), 0);
    EXPECT_EQ(access(replaced.name(), F_OK), 0) << "another's file was removed";
}
