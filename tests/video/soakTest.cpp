// soakTest.cpp - ten minutes of a consumer that is too slow. KIV_SOAK_SECONDS changes the length.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "core/kivLoop.h"
#include "tests/support/replace.h"
#include "tests/support/resources.h"
#include "video/kivVideoIn.h"

namespace {

constexpr int width = 1280, height = 720, rate = 30;
constexpr unsigned long long period = 1000000000ull / rate;  // ns
constexpr unsigned long long work = period * 10 / 8;  // ns: the consumer has 80 % of the camera's speed

long long toldLost = 0;  // frames, by the events that the node took

unsigned long long now()
{
    unsigned long long ust = 0;
    zvGetUST(&ust);
    return ust;
}

long residentKb()
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("VmRSS:"))
            return strtol(line.c_str() + 6, nullptr, 10);
    return 0;
}

// Looks at each frame for as long as it is told, and keeps account.
class SlowSink : public kivObj {
public:
    int addSrcConstraints(ZVparams*) override { return kivErrNone; }
    int addDstConstraints(ZVparams*) override { return kivErrNone; }
    int handleEvents(fd_set) override { return kivErrNotReady; }
    int receive(ZVbuffer frame) override
    {
        const unsigned long long begun = now();
        const USTMSCpair stamp = zvBufferGetUSTMSCpair(frame);
        unsigned number = 0;
        wrong += kpReadTestPicture(zvBufferMapData(frame), width, height, &number) != 0 || number != stamp.msc;
        const long long before = missing;
        missing += stamp.msc - newest - 1;
        unaccounted += toldLost < before || toldLost > missing;
        newest = stamp.msc;
        ++frames;
        const unsigned long long looked = now() - begun;
        usleep(unsigned((work - std::min(work, looked)) / 1000));  // what else it would do
        const unsigned long long own = now() - begun;
        const unsigned long long age = now() - (unsigned long long)stamp.ust;
        ages.push_back(double(age - std::min(age, own)) / double(period));
        return kivErrNone;
    }

    long long frames = 0, wrong = 0, missing = 0, unaccounted = 0, newest = -1;
    std::vector<double> ages;  // without the work here, in periods
};

// How late a thread that only sleeps wakes up: what the machine itself stands still.
class Standstill {
public:
    ~Standstill() { worst(); }
    double worst()  // ends it; periods
    {
        done_ = true;
        if (sleeper_.joinable())
            sleeper_.join();
        return double(worst_) / double(period);
    }

private:
    void sleep()
    {
        while (!done_) {
            const unsigned long long before = now();
            usleep(1000);
            worst_ = std::max(worst_, now() - before - 1000000);
        }
    }

    std::atomic<bool> done_{false};
    unsigned long long worst_ = 0;  // ns; the sleeper's until it is joined
    std::thread sleeper_{[this] { sleep(); }};
};

}  // namespace

// In place of the service's: counts what the node is told.
int kpEventRecv(KPServer server, int path, KPEvent* event)
{
    static const auto real = realFunction("kpEventRecv", kpEventRecv);
    const int result = real(server, path, event);
    if (result == 0 && event->reason == KPSequenceLost)
        toldLost += event->count;
    return result;
}

TEST(SlowConsumer, GetsFreshFramesAndIsToldOfEveryOther)
{
    const char* const wish = getenv("KIV_SOAK_SECONDS");
    const unsigned long long seconds = wish != nullptr ? strtoull(wish, nullptr, 10) : 600;
    ASSERT_GT(seconds, 0u);
    setTrace(0);
    kivObj arenaMaker;  // so that its descriptor is not counted as the camera's
    const int descriptors = openDescriptors();
    const int threads = runningThreads();
    SlowSink sink;
    double standstill = 0;
    {
        kivVideoIn in;
        ASSERT_EQ(in.setup(kivVideo::getTypeByName("builtin pattern in"), KP_KIND_VIDEO), kivErrNone);
        ASSERT_EQ(in.setXYControl(in.path, in.drainNode, KP_CONTROL_SIZE, width, height), kivErrNone);
        ASSERT_EQ(in.setFractControl(in.path, in.drainNode, KP_CONTROL_RATE, rate, 1), kivErrNone);
        in.addObject(&sink);
        kivChain chain;
        kivLoop loop;
        chain.setChain(&in);
        ASSERT_EQ(chain.init(nullptr), kivErrNone);
        ASSERT_EQ(chain.start(1), kivErrNone);
        loop.addChain(&chain);
        Standstill machine;
        const unsigned long long begun = now();
        long settled = 0;  // KiB, when every buffer has been used
        loop.addTimer(begun + std::min(seconds * 100000000ull, 30000000000ull), [&] { settled = residentKb(); });
        loop.addTimer(begun + seconds * 1000000000ull, [&] { loop.quit(); });
        ASSERT_EQ(loop.run(), kivErrNone);
        standstill = machine.worst();
        EXPECT_LT(residentKb() - settled, 4096) << "KiB more than in the beginning";
        chain.stop();
        EXPECT_EQ(kpEndTransfer(kivVideo::server, in.path), 0);
        EXPECT_EQ(zvBufferGetPoolFree(in.bufferPool), zvParamsGetInt(in.poolParams, ZV_BUFFER_COUNT));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(runningThreads(), threads);
    setTrace(1);

    EXPECT_EQ(sink.wrong, 0);
    EXPECT_EQ(sink.unaccounted, 0) << "each loss is told before the next frame but one, and none that was not";
    EXPECT_GT(sink.frames, (long long)(seconds * rate / 2));
    EXPECT_GT(sink.missing, sink.frames / 10) << "the consumer was too fast";
    std::sort(sink.ages.begin(), sink.ages.end());
    const double oldest = sink.ages.back();
    const double nearly = sink.ages[sink.ages.size() * 99 / 100];
    printf("%lld frames, %lld lost; age in periods, without the work on it: p50 %.2f, p99 %.2f, oldest %.2f; "
           "the machine stood still for %.2f\n",
           sink.frames, sink.missing, sink.ages[sink.ages.size() / 2], nearly, oldest, standstill);
    EXPECT_LT(nearly, 2);
    EXPECT_LT(oldest, 2 + standstill);
}
