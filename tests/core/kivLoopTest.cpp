// kivLoopTest.cpp - passes, timers, wake-ups and failures of the loop.
#include "core/kivLoop.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/support/fd.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/replace.h"

using testing::ElementsAre;

namespace {

std::atomic<int> selects{0};  // calls of select in this process
std::atomic<int> interrupts{0};  // how many of the next ones are interrupted

}  // namespace

KIV_API int select(int n, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, timeval* timeout)
{
    ++selects;
    if (interrupts > 0) {
        --interrupts;
        errno = EINTR;
        return -1;
    }
    return realFunction("select", select)(n, readSet, writeSet, exceptSet, timeout);
}

namespace {

unsigned long long later(int ms)
{
    unsigned long long ns = 0;
    zvGetUST(&ns);
    return ns + ms * 1000000ull;
}

// A node with a pipe: ready while bytes are in it, takes one when it is called.
class PipeNode : public FakeNode {
public:
    PipeNode(CallLog& log, const char* id, int bytes = 0) : FakeNode(log, id)
    {
        EXPECT_EQ(pipe(ends_), 0);
        fd = ends_[0];
        put(bytes);
        onReady = [this] {
            char byte;
            EXPECT_EQ(read(fd, &byte, 1), 1);
        };
    }
    ~PipeNode() override
    {
        for (const int end : ends_)
            close(end);
    }
    void put(int bytes)
    {
        while (bytes-- > 0)
            EXPECT_EQ(write(ends_[1], "x", 1), 1);
    }

private:
    int ends_[2];
};

// The calls that did something, in order.
CallLog served(const CallLog& log)
{
    CallLog calls;
    for (const std::string& call : log)
        if (call.find("handleEvents") != std::string::npos)
            calls.push_back(call.substr(0, call.find('.')));
    return calls;
}

class kivLoopTest : public testing::Test {
protected:
    void link(kivChain& chain, kivObj& head) { chain.setChain(&head), loop.addChain(&chain); }

    CallLog log;
    kivChain first, second;
    kivLoop loop;
};

TEST_F(kivLoopTest, ServesWhatIsReadyFromHeadToTail)
{
    PipeNode a(log, "A", 1), b(log, "B", 2);
    a.addObject(&b);
    link(first, a);
    int passes = 0;
    loop.setPassHandler([&] { ++passes == 2 ? loop.quit() : void(); });
    EXPECT_EQ(loop.run(), 0);
    EXPECT_THAT(served(log), ElementsAre("A", "B", "B"));
}

TEST_F(kivLoopTest, ShowsASharedNodeToOneChainOnly)
{
    PipeNode shared(log, "shared", 1), left(log, "left"), right(log, "right", 1);
    shared.addObject(&left);
    link(first, shared);
    shared.addObject(&right);
    link(second, shared);
    loop.pass();
    EXPECT_THAT(served(log), ElementsAre("shared", "right"));
}

// root - a - b, and beside them c - d below root and e below a: every node once, parents first.
TEST_F(kivLoopTest, ServesEveryNodeOfATreeOnce)
{
    PipeNode root(log, "root", 1), a(log, "a", 1), b(log, "b", 1), c(log, "c", 1), d(log, "d", 1), e(log, "e", 1);
    root.addObject(&c);
    root.addObject(&a);  // the newest child: on the first chain
    c.addObject(&d);
    a.addObject(&e);
    a.addObject(&b);
    EXPECT_EQ(loop.addTree(nullptr), 8);
    EXPECT_EQ(loop.addTree(&root), 0);
    loop.pass();
    EXPECT_THAT(served(log), ElementsAre("root", "a", "b", "c", "d", "e"));
    root.put(1);
    d.put(1);
    root.onReady = [&] { EXPECT_EQ(loop.removeTree(&root), 0); };
    loop.pass();
    EXPECT_EQ(served(log).back(), "root") << "a tree that was taken away is not served on";
    EXPECT_EQ(loop.removeTree(&root), 8);

    // Taken away and added again for ever, as where peers come and go, it leaves nothing behind.
    const int kept = kivObj::keptBlocks();
    for (int i = 0; i < 100; ++i) {
        loop.addTree(&root);
        loop.removeTree(&root);
        loop.wake();
        loop.pass();
    }
    EXPECT_EQ(kivObj::keptBlocks(), kept);
}

// As a window's loop uses it: that one waits, this one makes the passes.
TEST_F(kivLoopTest, TellsAnotherLoopWhatItWaitsFor)
{
    PipeNode node(log, "node");
    link(first, node);
    loop.passNow();  // with nothing to do it does not wait
    EXPECT_EQ(served(log).size(), 0U);

    const unsigned long long soon = later(1);
    int due = 0;
    loop.addTimer(later(60000), [] {});
    loop.addTimer(soon, [&] { ++due; });
    EXPECT_EQ(loop.deadline(), soon);
    fd_set waited;
    FD_ZERO(&waited);
    int top = -1;
    EXPECT_EQ(loop.setFD(&waited, &top), 0);
    EXPECT_TRUE(FD_ISSET(node.fd, &waited));
    EXPECT_GE(top, node.fd);
    EXPECT_EQ(loop.setFD(nullptr, &top), kivErrParams);

    node.put(1);
    loop.passNow();
    EXPECT_THAT(served(log), ElementsAre("node"));
    while (due == 0)
        loop.passNow();
    EXPECT_GT(loop.deadline(), soon);
    EXPECT_FALSE(loop.quitAsked());
    loop.wake();
    FD_ZERO(&waited);
    loop.setFD(&waited, &top);
    timeval none = {0, 0};
    EXPECT_GE(select(top + 1, &waited, nullptr, nullptr, &none), 1) << "a wake-up is among it";
    loop.quit();
    EXPECT_TRUE(loop.quitAsked());
}

TEST_F(kivLoopTest, DoesNotWaitForWhatNobodyServes)
{
    PipeNode a(log, "A"), beside(log, "beside", 1), below(log, "below", 1);
    FakeNode b(log, "B");
    a.addObject(&beside);
    a.addObject(&b);
    link(first, a);
    b.addObject(&below);  // ready, and never called
    const int before = selects;
    loop.addTimer(later(20), [&] { loop.quit(); });
    EXPECT_EQ(loop.run(), 0);
    EXPECT_LE(selects - before, 2);
    EXPECT_TRUE(served(log).empty());
}

TEST_F(kivLoopTest, CallsTimersInTimeAndOnce)
{
    std::string order;
    loop.addTimer(later(2), [&] { order += "2", loop.quit(); });
    loop.addTimer(1, [&] {
        order += "1";
        loop.addTimer(1, [&] { order += "r"; });  // already due: next pass, no endless loop
    });
    const int cancelled = loop.addTimer(1, [&] { order += "x"; });
    EXPECT_EQ(loop.cancelTimer(cancelled), 0);
    EXPECT_EQ(loop.cancelTimer(cancelled), 8);
    const unsigned long long end = later(2);
    EXPECT_EQ(loop.run(), 0);
    EXPECT_EQ(order, "1r2");
    EXPECT_GE(later(0) + 1000000, end);
}

TEST_F(kivLoopTest, CallsTheApplicationsDescriptorsAndToleratesChangesMeanwhile)
{
    PipeNode a(log, "A", 1), b(log, "B", 1);
    int calls = 0;
    EXPECT_EQ(loop.addFD(-1, [] {}), 8);
    EXPECT_EQ(loop.addFD(FD_SETSIZE, [] {}), 8);
    EXPECT_EQ(loop.addFD(a.fd,
                         [&] {
                             ++calls;
                             for (int i = 0; i < 100; ++i)  // grows the list while one of its handlers runs
                                 loop.addFD(b.fd, [&] { calls += 1000; });
                             EXPECT_EQ(loop.removeFD(a.fd), 0);
                             EXPECT_EQ(loop.removeFD(a.fd), 8);
                             EXPECT_EQ(loop.pass(), 5000) << "a handler ran the loop";
                         }),
              0);
    loop.pass();
    EXPECT_EQ(calls, 1);
    loop.pass();
    EXPECT_EQ(calls, 100001);
}

TEST_F(kivLoopTest, LetsAHandlerTakeChainsAway)
{
    PipeNode a(log, "A", 1), b(log, "B", 1);
    link(first, a);
    link(second, b);
    a.onReady = [&] {
        EXPECT_EQ(loop.removeChain(&first), 0);
        EXPECT_EQ(loop.removeChain(&second), 0);
    };
    loop.pass();
    EXPECT_THAT(served(log), ElementsAre("A"));
    EXPECT_EQ(loop.removeChain(&first), 8);
    EXPECT_EQ(loop.addChain(nullptr), 8);
    loop.quit();
    EXPECT_EQ(loop.run(), 0) << "a quit before run ends it";
}

TEST_F(kivLoopTest, IsWokenAndEndedFromAnotherThread)
{
    FakeNode a(log, "A");  // no descriptor: served because the loop is woken
    link(first, a);
    std::atomic<int> passes{0};
    loop.setPassHandler([&] { ++passes, passes.notify_one(); });
    std::thread other([&] {
        loop.wake();
        passes.wait(0);
        loop.quit();
    });
    EXPECT_EQ(loop.run(), 0);
    other.join();
    EXPECT_THAT(log, testing::Contains("A.idle"));
}

TEST_F(kivLoopTest, GoesOnAfterAnInterruption)
{
    PipeNode a(log, "A", 1);
    link(first, a);
    interrupts = 3;
    EXPECT_EQ(loop.pass(), 0);
    EXPECT_EQ(interrupts, 0);
    EXPECT_THAT(served(log), ElementsAre("A"));
}

TEST_F(kivLoopTest, NamesAClosedDescriptor)
{
    FakeNode a(log, "A");
    link(first, a);
    a.fd = dup(0);
    EXPECT_EQ(loop.badFD(), -1);
    EXPECT_EQ(capture([&] {
                  close(a.fd);
                  EXPECT_EQ(loop.run(), 5000);
              }).err,
              "kivLoop: descriptor " + std::to_string(a.fd) + " is closed\n");
    EXPECT_EQ(loop.badFD(), a.fd);
}

}  // namespace
