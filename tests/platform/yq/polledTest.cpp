// polledTest.cpp - semaphores with a descriptor.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <thread>
#include <unistd.h>

#include "tests/platform/yq/arenaFixture.h"

namespace {

bool readable(int fd)
{
    pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&entry, 1, 0) == 1;
}

struct Model {
    int value;
    bool armed = false;
    void take()
    {
        armed = armed || value <= 0;
        --value;
    }
    void give() { ++value; }
    bool readable() const { return armed && value >= 0; }
};

// One sequence of P (0), V (1) and open (2), six digits to the base of 3.
void follow(yqptr_t arena, int start, int sequence)
{
    SCOPED_TRACE(testing::Message() << "from " << start << ", sequence " << sequence);
    yqsema_t* const sema = yqnewpollsema(arena, start);
    Model model{start};
    int fd = -1;
    for (int step = 0; step < 6; ++step, sequence /= 3) {
        if (sequence % 3 == 0) {
            ASSERT_EQ(yqpsema(sema), 0);
            model.take();
        } else if (sequence % 3 == 1) {
            ASSERT_EQ(yqvsema(sema), 0);
            model.give();
        } else {
            const int again = yqopenpollsema(sema, 0777);
            ASSERT_TRUE(fd == -1 || fd == again);
            fd = again;
        }
        ASSERT_EQ(yqtestsema(sema), model.value);
        if (fd >= 0) {
            ASSERT_EQ(readable(fd), model.readable()) << "after step " << step;
        }
    }
    ASSERT_EQ(yqfreesema(sema, arena), 0);
    if (fd >= 0) {
        ASSERT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor outlived its semaphore";
    }
}

// A reader and a loop that share one slot, as the reading nodes do: the reader
// posts after it has unlocked, the loop takes after it has unlocked.
struct Slot {
    yqsema_t* lock;
    yqsema_t* canRead;
    int current = 0;
    bool handled = true;
    int dropped = 0;

    void publish(int frame)
    {
        yqpsema(lock);
        if (!handled) {
            yqpsema(canRead);
            ++dropped;
        }
        current = frame;
        handled = false;
        yqvsema(lock);
        yqvsema(canRead);
    }
    bool handle(int& frame)
    {
        yqpsema(lock);
        const bool twice = std::exchange(handled, true);
        frame = current;
        yqvsema(lock);
        yqpsema(canRead);
        return !twice;
    }
};

}  // namespace

TEST(Polled, DescriptorIsTheLevelInEveryShortSequence)
{
    ArenaFixture f;
    for (int start = 0; start <= 2; ++start) {
        for (int sequence = 0; sequence < 729; ++sequence)
            follow(f.arena, start, sequence);
    }
}

TEST(Polled, HandsEachFrameOverOnceAndLosesNoWakeUp)
{
    ArenaFixture f;
    Slot slot{yqnewsema(f.arena, 1), yqnewpollsema(f.arena, 0)};
    const int fd = yqopenpollsema(slot.canRead, 0777);
    ASSERT_EQ(yqpsema(slot.canRead), 0);
    constexpr int frames = 50000;
    std::jthread reader([&] {
        for (int i = 1; i <= frames; ++i)
            slot.publish(i);
    });
    int last = 0, handled = 0;
    while (last != frames) {
        pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
        ASSERT_EQ(poll(&entry, 1, 20000), 1) << "a wake-up was lost after frame " << last;
        int frame = 0;
        ASSERT_TRUE(slot.handle(frame)) << "frame " << frame << " came twice";
        ASSERT_GT(frame, last);
        last = frame;
        ++handled;
    }
    reader.join();
    EXPECT_EQ(handled + slot.dropped, frames);
    EXPECT_EQ(yqtestsema(slot.canRead), -1);
    EXPECT_FALSE(readable(fd));
}

TEST(Polled, KeepsItsCountUnderThreads)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewpollsema(f.arena, 0);
    const int fd = yqopenpollsema(sema, 0777);
    std::jthread giver([&] {
        for (int i = 0; i < 30000; ++i)
            EXPECT_EQ(yqvsema(sema), 0);
    });
    for (int i = 0; i < 30000; ++i)
        EXPECT_EQ(yqpsema(sema), 0);
    giver.join();
    EXPECT_EQ(yqtestsema(sema), 0);
    EXPECT_EQ(yqpsema(sema), 0);
    EXPECT_FALSE(readable(fd));
    EXPECT_EQ(yqvsema(sema), 0);
    EXPECT_TRUE(readable(fd));
}

TEST(Polled, DescriptorFitsSelectOrThereIsNone)
{
    ArenaFixture f;
    const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
    close(0);
    const int fd = yqopenpollsema(yqnewpollsema(f.arena, 0), 0777);
    EXPECT_GE(fd, 3);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 was taken";
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    }

    int filler[FD_SETSIZE];
    int count = 0;
    while ((filler[count] = fcntl(2, F_DUPFD_CLOEXEC, 3)) < FD_SETSIZE && filler[count] >= 0)
        ++count;
    yqsema_t* const late = yqnewpollsema(f.arena, 0);
    EXPECT_EQ(yqopenpollsema(late, 0777), -1);
    close(filler[count]);
    close(filler[--count]);
    EXPECT_EQ(yqopenpollsema(late, 0777), filler[count]) << "it can be asked again";
    while (count > 0)
        close(filler[--count]);
}

TEST(Polled, IsUnknownToAForkedChild)
{
    ArenaFixture f;
    yqsema_t* const sema = yqnewpollsema(f.arena, 0);
    const int fd = yqopenpollsema(sema, 0777);
    yqpsema(sema);
    const int child = startChild([&] {
        if (yqvsema(sema) != -1 || yqopenpollsema(sema, 0777) != -1 || yqfreesema(sema, f.arena) != -1)
            return 1;
        yqsema_t* const own = yqnewpollsema(f.arena, 3);
        return yqpsema(own) == 0 && yqtestsema(own) == 2 ? 0 : 2;
    });
    EXPECT_EQ(endOfChild(child), 0);
    EXPECT_EQ(yqtestsema(sema), -1);
    EXPECT_FALSE(readable(fd));
    EXPECT_EQ(yqvsema(sema), 0);
    EXPECT_TRUE(readable(fd));
}
