// The network receiver: what it prints and answers, bad peers, its one waiting
// frame, and its ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <memory>

#include "network/kivNetworkRecv.h"
#include "platform/thread/thread.h"
#include "tests/network/scriptedPeer.h"
#include "tests/support/capture.h"
#include "tests/support/faults.h"
#include "tests/support/lifeCycle.h"
#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"

#if defined(__SANITIZE_THREAD__)
constexpr int windows = 2000;
#else
constexpr int windows = 10000;
#endif

KIV_FAULT(yqsema_t*, yqnewpollsema, (yqptr_t arena, int count), (arena, count), nullptr)
KIV_FAULT(int, yqopenpollsema, (yqsema_t * sema, int mode), (sema, mode), -1)
KIV_FAULT(int, yqpsema, (yqsema_t * sema), (sema), -1)
KIV_FAULT(int, threadStart, (void (*entry)(void*), void* arg), (entry, arg), -1)
KIV_FAULT(int, zvParamsCreate, (ZVparams * *p), (p), (*p = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferSetPoolDefaults, (ZVparams * p, int count, int size, int cacheable, int mapped),
          (p, count, size, cacheable, mapped), ZV_FAILURE)
KIV_FAULT(int, zvBufferCreatePool, (const ZVparams* p, ZVbufferpool* pool), (p, pool), (*pool = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferAllocate, (ZVbufferpool pool, ZVbuffer* out), (pool, out), (*out = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferGetPoolFD, (ZVbufferpool pool), (pool), -1)

namespace {

constexpr int capacity = 16 * 16 * 2;

struct Receiver : testing::Test {
    ScriptedPeer peer;
    RecordingSink sink;
    kivNetworkRecv node{16, 16};

    Receiver()
    {
        setTrace(0);
        node.setName("recv");
        node.addObject(&sink);
        node.setWispData(&peer);
        EXPECT_EQ(node.init(nullptr), kivErrNone);
    }
    ~Receiver() override
    {
        node.endReader();
        setTrace(1);
    }
    int free() { return zvBufferGetPoolFree(node.bufferPool); }
    bool ended()
    {
        return eventually([this] { return !node.readerAlive(); });
    }
    // Starts and waits until the reader has ended by itself; what was printed.
    std::string printedUntilItEnds()
    {
        return capture([this] {
                   EXPECT_EQ(node.start(0), kivErrNone);
                   EXPECT_TRUE(ended());
                   node.endReader();
               })
            .err;
    }
};

TEST_F(Receiver, BeginsAsDocumented)
{
    kivNetworkRecv fresh(320, 240);
    EXPECT_EQ(fresh.imageSizeX, 320);
    EXPECT_EQ(fresh.imageSizeY, 240);
    EXPECT_EQ(fresh.packing, 1008);
    EXPECT_EQ(fresh.readLoopPID, -1);
    EXPECT_EQ(fresh.getFD(), -1);
    EXPECT_EQ(fresh.receive(nullptr), kivErrNone);
    EXPECT_EQ(fresh.easyToAdd(), 1);
    EXPECT_EQ(fresh.addSrcConstraints(nullptr), kivErrNone);
    EXPECT_EQ(fresh.addDstConstraints(nullptr), kivErrNone);
    EXPECT_EQ(fresh.setup(), kivErrNone);
    EXPECT_EQ(handle(fresh), kivErrNotReady);
    EXPECT_EQ(fresh.stop(), kivErrNone);  // also without lock and semaphore
    EXPECT_EQ(peer.headerSize, 24);

    kivNetwork bare;
    EXPECT_EQ(bare.init(nullptr), kivErrVirtual);
    EXPECT_EQ(bare.receive(nullptr), kivErrVirtual);
    EXPECT_EQ(handle(bare), kivErrVirtual);
    EXPECT_EQ(bare.getFD(), -1);
    EXPECT_EQ(bare.setWispData(nullptr), kivErrNone);
}

TEST_F(Receiver, WithoutAConnectionItDoesNotStart)
{
    node.setWispData(nullptr);
    const int threads = runningThreads();
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.start(1), kivErrNetwork); }).err,
              "kivNetworkRecv::Start occured before setting data obj\n");
    EXPECT_EQ(runningThreads(), threads);
    EXPECT_EQ(node.isStarted(), 0);
}

TEST_F(Receiver, EachStepOfInitHasItsIdAndTheSixLinesIfAskedFor)
{
    const struct {
        Fault& fault;
        int call, id, lines;
    } steps[] = {{fault_zvParamsCreate, 2, kivErrPoolParams, 6},
                 {fault_zvBufferSetPoolDefaults, 1, kivErrPoolDefaults, 6},
                 {fault_zvBufferCreatePool, 1, kivErrPool, 6},
                 {fault_zvBufferGetPoolFD, 1, kivErrPool, 0}};
    for (const auto& step : steps) {
        for (int print : {0, 2, 1}) {
            node.setPrintReturnErr(print);
            step.fault.failAt(step.call);
            const std::string printed = capture([&] { EXPECT_EQ(node.init(nullptr), step.id); }).err;
            EXPECT_EQ(std::count(printed.begin(), printed.end(), '\n'), print == 1 ? step.lines : 0);
            if (!printed.empty()) {
                const std::string head = "kivIC error:" + std::to_string(step.id) + " (line:";
                EXPECT_TRUE(printed.starts_with(head)) << printed;
                EXPECT_NE(printed.find(" file:kivNetworkRecv) errno:"), std::string::npos);
                EXPECT_TRUE(hasLine(printed, "   object:recv"));
            }
        }
    }
    node.imageSizeX = -1;
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.init(nullptr), kivErrPoolDefaults); }).err.find("kivIC error:6 "), 0u);
    node.imageSizeX = 32;
    EXPECT_EQ(node.init(nullptr), kivErrNone);
    ZVpoolLedger ledger = {};
    zvBufferGetPoolLedger(node.bufferPool, &ledger);
    EXPECT_EQ(ledger.count, 2);
    EXPECT_EQ(ledger.size, 32 * 16 * 2);
}

TEST_F(Receiver, EachStepOfStartHasItsIdAndLineAndStartWorksAfterwards)
{
    const struct {
        Fault& fault;
        const char* line;
    } steps[] = {{fault_yqnewpollsema, "Unable to create semaphore for movie read thread\n"},
                 {fault_yqopenpollsema, "Unable to attach FD to semaphore\n"},
                 {fault_yqpsema, "yqpsema error\n"}};
    for (const auto& step : steps) {
        step.fault.failAt(1);
        EXPECT_EQ(capture([&] { EXPECT_EQ(node.start(0), kivErrSemaphore); }).err, step.line);
        EXPECT_EQ(node.readerAlive(), 0);
    }
    fault_threadStart.failAt(1);
    EXPECT_EQ(node.start(0), kivErrNone);
    EXPECT_EQ(node.readLoopPID, -1);
    EXPECT_EQ(node.readerAlive(), 0);

    peer.say("after all");
    EXPECT_EQ(node.start(0), kivErrNone);
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.frames.at(0), "after all");
}

TEST_F(Receiver, PrintsTheRoadOfAFrame)
{
    setTrace(1);
    PeerMessage message;
    message.headerVal = 7;
    message.ust = 11;
    message.msc = 22;
    message.bytes = "abcd";
    std::string startLines;
    const std::string printed = capture([&] {
                                    node.start(0);
                                    startLines = "network fd:" + std::to_string(node.canReadFD)
                                        + "\nnetRecv:readThreadPID: " + std::to_string(node.readLoopPID)
                                        + "\nStarting:recv\n";
                                    peer.say(message);
                                    EXPECT_EQ(serve(node), kivErrNone);
                                    node.stop();
                                }).err;
    EXPECT_EQ(printed,
              startLines
                  + "recv: reading the header\nrecv: reading the dataSize\nrecv: dataSize:4\nrecv: reading the data\n"
                    "network object handle events\npropagating network data\n"
                    "stopping netRecv read loop\nStopping:recv\nStopping:No name\n");
    EXPECT_EQ(sink.frames.at(0), "abcd");
    EXPECT_EQ(sink.stamps.at(0).ust, 11);
    EXPECT_EQ(sink.stamps.at(0).msc, 22);
    EXPECT_EQ(node.lastHeaderVal, 7);
    EXPECT_EQ(node.readLoopPID, -1);
}

TEST_F(Receiver, TheNewestFrameWinsAndTheDescriptorIsALevel)
{
    node.start(0);
    peer.say("first", 1);
    peer.say("second", 2);
    ASSERT_TRUE(eventually([&] { return node.framesReceived() == 2; }));
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_FALSE(waitReadable(node, 0));
    EXPECT_EQ(handle(node), kivErrNotReady);
    EXPECT_EQ(sink.frames, std::vector<std::string>{"second"});
    EXPECT_EQ(node.framesDropped(), 1);
    peer.say("third", 3);
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.frames.back(), "third");
}

TEST_F(Receiver, SizesThatCannotBeEndTheReaderBeforeAnythingIsRead)
{
    for (int size : {-1, 0, capacity + 1, INT_MAX, INT_MIN}) {
        PeerMessage bad;
        bad.bytes = "x";
        bad.size = size;
        peer.say(bad);
        EXPECT_EQ(printedUntilItEnds(), "no data size\n") << size;
        EXPECT_EQ(node.readLoopPID, -1);
        EXPECT_EQ(node.isStarted(), 1);
        EXPECT_EQ(free(), 2) << size;
    }
    peer.say(std::string(capacity, 'y'));
    node.start(0);
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.frames.at(0), std::string(capacity, 'y'));
}

TEST_F(Receiver, EachFailedReadHasItsLine)
{
    const struct {
        At at;
        const char* line;
    } steps[] = {{At::header, "no data header\n"}, {At::size, "no data size\n"}, {At::data, "no data \n"}};
    for (const auto& step : steps) {
        PeerMessage bad;
        bad.headerVal = 41;
        bad.bytes = "x";
        bad.fail = step.at;
        peer.say(bad);
        EXPECT_EQ(printedUntilItEnds(), step.line);
        EXPECT_EQ(node.lastHeaderVal, 41);
        EXPECT_EQ(free(), 2);
    }
    // A descriptor that cannot be had is left to the read.
    peer.descriptorResult = -1;
    EXPECT_EQ(printedUntilItEnds(), "no data header\n");
}

TEST_F(Receiver, AConnectionTakenAwayEndsTheReader)
{
    EXPECT_EQ(capture([&] {
                  node.start(0);
                  node.setWispData(nullptr);
                  peer.say("unread");
                  EXPECT_TRUE(ended());
              }).err,
              "no data obj.. bye!\n");
    EXPECT_EQ(free(), 2);
}

TEST_F(Receiver, AReaderThatFindsTheNodeStoppedEnds)
{
    for (At late : {At::data, At::nowhere}) {
        setTrace(1);
        const std::string printed = capture([&] {
                                        node.start(0);
                                        PeerMessage message;
                                        message.bytes = "late";
                                        message.silent = late;
                                        if (late == At::data) {
                                            peer.say(message);
                                            ASSERT_TRUE(peer.untilSilent());
                                            node.kivObj::stop();
                                            peer.resume();
                                        } else {
                                            node.kivObj::stop();
                                            peer.say(message);
                                        }
                                        EXPECT_TRUE(ended());
                                    }).err;
        setTrace(0);
        EXPECT_TRUE(printed.ends_with("I should stop \n")) << printed;
        EXPECT_EQ(node.framesReceived(), 0);
        EXPECT_EQ(free(), 2);
    }
}

// Half a header, a size, half the data, and then nothing: the loop goes on, and
// stop does not wait for the peer.
TEST_F(Receiver, ASilentPeerHoldsNeitherTheLoopNorStop)
{
    for (At at : {At::header, At::size, At::data}) {
        PeerMessage half;
        half.bytes = "x";
        half.silent = at;
        EXPECT_EQ(capture([&] {
                      node.start(0);
                      peer.say("whole");
                      EXPECT_EQ(serve(node), kivErrNone);
                      peer.say(half);
                      ASSERT_TRUE(peer.untilSilent());
                      EXPECT_EQ(handle(node), kivErrNotReady);
                      EXPECT_EQ(node.stop(), kivErrNone);
                  }).err,
                  "");
        EXPECT_EQ(free(), 2);
        EXPECT_EQ(yqtestsema(node.currentLock), 1);
    }
    EXPECT_EQ(sink.frames.size(), 3u);
}

TEST_F(Receiver, DeadConnectionsDoNotUseThePoolUp)
{
    for (int i = 0; i < 5; ++i) {
        peer.say("frame");
        PeerMessage end;
        end.fail = At::header;
        peer.say(end);
        EXPECT_EQ(printedUntilItEnds(), "no data header\n");
        EXPECT_EQ(serve(node), kivErrNone);  // what came before the end is not lost
    }
    EXPECT_EQ(sink.frames.size(), 5u);
    EXPECT_EQ(free(), 2);
}

TEST_F(Receiver, StopFreesAWaitingFrameAndNoneOtherwise)
{
    for (bool waiting : {true, false}) {
        node.start(0);
        peer.say("frame");
        ASSERT_TRUE(waitReadable(node, 10000));
        if (!waiting)
            handle(node);
        EXPECT_EQ(node.stop(), kivErrNone);
        EXPECT_EQ(yqtestsema(node.canRead), -1);
        EXPECT_EQ(free(), 2);
        EXPECT_FALSE(waitReadable(node, 0));
        EXPECT_EQ(handle(node), kivErrNotReady);
        EXPECT_EQ(node.isStarted(), 0);
    }
    EXPECT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(node.framesDropped(), 1);
}

TEST_F(Receiver, StopsInEveryWindow)
{
    sink.keepBytes = false;
    for (int round = 0; round < windows; ++round) {
        ASSERT_EQ(node.start(0), kivErrNone);
        const long long before = node.framesReceived();
        for (int i = 0; i < round % 4; ++i)
            peer.say("frame");
        if (round % 3 == 0)
            handle(node);
        if (round % 4 != 0 && round % 5 == 0)
            while (node.framesReceived() == before)
                std::this_thread::yield();
        ASSERT_EQ(node.stop(), kivErrNone);
        const long long received = node.framesReceived();
        ASSERT_EQ(yqtestsema(node.currentLock), 1) << round;
        ASSERT_EQ(yqtestsema(node.canRead), -1) << round;
        ASSERT_EQ(free(), 2) << round;
        ASSERT_EQ(node.handledCurrent, 1);
        ASSERT_EQ(handle(node), kivErrNotReady);
        ASSERT_EQ(node.framesReceived(), received);
    }
    EXPECT_EQ(sink.received + node.framesDropped(), node.framesReceived());
}

TEST_F(Receiver, AChildMayStopOrRestartTheNodeThatFeedsIt)
{
    bool restart = false;
    sink.onReceive = [&](ZVbuffer) {
        EXPECT_EQ(node.stop(), kivErrNone);
        if (restart) {
            EXPECT_EQ(node.start(0), kivErrNone);
        }
    };
    node.start(0);
    peer.say("one");
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(node.isStarted(), 0);
    EXPECT_EQ(node.readerAlive(), 0);
    EXPECT_EQ(free(), 2);
    EXPECT_EQ(yqtestsema(node.currentLock), 1);

    restart = true;
    node.start(0);
    for (int i = 0; i < 100; ++i) {
        peer.say("more");
        ASSERT_EQ(serve(node), kivErrNone) << i;
    }
    sink.onReceive = nullptr;
    peer.say("last");
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.frames.back(), "last");
    node.stop();
    EXPECT_EQ(free(), 2);
    EXPECT_EQ(yqtestsema(node.currentLock), 1);
}

TEST_F(Receiver, RestartsWithAFrameLeftOverAndKeepsOneReader)
{
    const int threads = runningThreads();
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(node.start(0), kivErrNone);
        EXPECT_EQ(runningThreads(), threads + 1);
        peer.say("left over");
        ASSERT_TRUE(waitReadable(node, 10000)) << round;
    }
    node.start(0);
    peer.say("taken");
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.frames, std::vector<std::string>{"taken"});
}

TEST_F(Receiver, AThousandLivesLeaveNoDescriptorOrThread)
{
    const int descriptors = openDescriptors();
    const int threads = runningThreads();
    for (int life = 0; life < 1000; ++life) {
        kivNetworkRecv one(16, 16);
        one.setWispData(&peer);
        one.init(nullptr);
        ASSERT_EQ(one.start(0), kivErrNone);
        if (life % 2 == 0) {
            one.stop();
            ASSERT_EQ(one.start(0), kivErrNone);
        }
        if (life % 4 == 0) {
            peer.say("frame");
            ASSERT_TRUE(waitReadable(one, 10000));
        }
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(runningThreads(), threads);
}

TEST_F(Receiver, AFailedAllocationIsPrintedAndTheReaderGoesOn)
{
    fault_zvBufferAllocate.failAt(1);
    peer.say("frame");
    EXPECT_EQ(capture([&] {
                  node.start(0);
                  EXPECT_EQ(serve(node), kivErrNone);
              }).err,
              "kivNetworkRecv: ZVBuffer allocate Failed\n");
}

TEST_F(Receiver, AFullPoolHoldsTheReaderBackNotTheLoop)
{
    std::vector<ZVbuffer> held;
    sink.onReceive = [&](ZVbuffer frame) {
        zvBufferAttach(frame);
        held.push_back(frame);
    };
    node.start(0);
    for (int i = 0; i < 2; ++i) {
        peer.say("frame", i);
        EXPECT_EQ(serve(node), kivErrNone);
    }
    EXPECT_EQ(free(), 0);
    peer.say("frame", 2);
    EXPECT_EQ(handle(node), kivErrNotReady);
    zvBufferFree(held[0]);
    sink.onReceive = nullptr;
    EXPECT_EQ(serve(node), kivErrNone);
    EXPECT_EQ(sink.stamps.back().msc, 2);
    zvBufferFree(held[1]);
    node.stop();
    EXPECT_EQ(free(), 2);
}

}  // namespace
