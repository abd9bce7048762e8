// handoff.cpp - what it costs to hand a buffer from a reader to the loop.
//
// The nodes' way: a slot under an ordinary semaphore, a polled semaphore whose
// descriptor the loop polls, newest buffer wins. The limit: a ring for one writer
// and one reader with an eventfd. Both with the same pool, alternating in one run.
//
//     handoff [hand-offs in a round] [rounds]
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/yq/yq.h"
#include "platform/zv/zv.h"

namespace {

ZVbufferpool makePool(int count)
{
    ZVparams* params = nullptr;
    ZVbufferpool pool = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, count, 4096, 0, 0);
    if (zvBufferCreatePool(params, &pool) != 0)
        exit(1);
    zvParamsDestroy(params);
    return pool;
}

bool waitFor(int fd)
{
    pollfd entry = {.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&entry, 1, -1) == 1;
}

// As a movie reader and the loop share it.
struct Semaphores {
    explicit Semaphores(yqptr_t arena) : lock(yqnewsema(arena, 1)), canRead(yqnewpollsema(arena, 0))
    {
        fd = yqopenpollsema(canRead, 0777);
        if (fd < 0 || yqpsema(canRead) != 0)
            exit(1);
    }

    // True if it went; false if it displaced one that the loop had not taken.
    bool publish(ZVbuffer buffer)
    {
        yqpsema(lock);
        const bool displaced = current != nullptr;
        if (displaced) {
            yqpsema(canRead);
            zvBufferFree(current);
        }
        current = buffer;
        yqvsema(lock);
        yqvsema(canRead);
        return !displaced;
    }

    int take()
    {
        yqpsema(lock);
        zvBufferFree(current);
        current = nullptr;
        yqvsema(lock);
        yqpsema(canRead);
        return 1;
    }

    yqsema_t* lock;
    yqsema_t* canRead;
    int fd = -1;
    ZVbuffer current = nullptr;
};

struct Ring {
    static constexpr unsigned size = 8;

    bool publish(ZVbuffer buffer)
    {
        const unsigned at = written.load(std::memory_order_relaxed);
        cells[at % size] = buffer;
        written.store(at + 1, std::memory_order_release);
        const uint64_t one = 1;
        return write(fd, &one, sizeof one) == sizeof one;
    }

    int take()
    {
        uint64_t count = 0;
        if (read(fd, &count, sizeof count) < 0)
            return 0;
        const unsigned end = written.load(std::memory_order_acquire);
        const int taken = int(end - done);
        for (; done != end; ++done)
            zvBufferFree(cells[done % size]);
        return taken;
    }

    int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    ZVbuffer cells[size] = {};
    alignas(64) std::atomic<unsigned> written{0};
    alignas(64) unsigned done = 0;
};

double cpuNs()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

struct Result {
    double perHandOff;  // CPU ns
    double taken;  // share of the buffers that the loop saw
};

ZVbuffer allocate(ZVbufferpool pool)
{
    ZVbuffer buffer = nullptr;
    while (zvBufferAllocate(pool, &buffer) != 0)
        std::this_thread::yield();
    return buffer;
}

// One thread posts and takes in turn: the cost of the calls, and of no wake-up.
template <class Slot> Result inTurn(Slot& slot, ZVbufferpool pool, int count)
{
    const double begin = cpuNs();
    for (int i = 0; i < count; ++i) {
        slot.publish(allocate(pool));
        if (!waitFor(slot.fd) || slot.take() != 1)
            exit(1);
    }
    return {(cpuNs() - begin) / count, 1};
}

// A reader beside a loop that polls, with a pause between two buffers, so that each
// one wakes the loop: mostly the cost of sleeping and waking.
template <class Slot> Result sideBySide(Slot& slot, ZVbufferpool pool, int count)
{
    const timespec pause = {.tv_sec = 0, .tv_nsec = 20000};
    std::atomic<int> gone{0};  // taken or displaced
    int taken = 0;
    const double begin = cpuNs();
    std::thread reader([&] {
        for (int i = 0; i < count; ++i) {
            if (!slot.publish(allocate(pool)))
                gone.fetch_add(1, std::memory_order_relaxed);
            nanosleep(&pause, nullptr);
        }
    });
    while (gone.load(std::memory_order_relaxed) < count && waitFor(slot.fd)) {
        const int now = slot.take();
        taken += now;
        gone.fetch_add(now, std::memory_order_relaxed);
    }
    reader.join();
    return {(cpuNs() - begin) / count, double(taken) / count};
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

struct Series {
    std::vector<double> ns, taken;
    void add(const Result& result)
    {
        ns.push_back(result.perHandOff);
        taken.push_back(result.taken);
    }
};

void print(const char* what, const Series& nodes, const Series& limit)
{
    printf("%-14s %9.0f ns %9.0f ns %8.2f %12.0f %% %9.0f %%\n", what, median(nodes.ns), median(limit.ns),
           median(nodes.ns) / median(limit.ns), 100 * median(nodes.taken), 100 * median(limit.taken));
}

}  // namespace

int main(int argc, char** argv)
{
    const int count = argc > 1 ? atoi(argv[1]) : 50000;
    const int rounds = argc > 2 ? atoi(argv[2]) : 11;
    char file[] = "/tmp/handoffXXXXXX";
    close(mkstemp(file));
    Semaphores semaphores(yqinit(file));
    Ring ring;
    ZVbufferpool pool = makePool(Ring::size);

    Series turn[2], paced[2];
    for (int i = 0; i < rounds; ++i) {
        turn[0].add(inTurn(semaphores, pool, count));
        turn[1].add(inTurn(ring, pool, count));
        paced[0].add(sideBySide(semaphores, pool, count / 50));
        paced[1].add(sideBySide(ring, pool, count / 50));
    }
    printf("CPU a buffer     semaphores         ring    ratio   loop saw: sem.      ring\n");
    print("in turn", turn[0], turn[1]);
    print("paced", paced[0], paced[1]);
    return 0;
}
