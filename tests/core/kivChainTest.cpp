// kivChainTest.cpp - what the chain forwards, to whom, and along which path.
#include "core/kivChain.h"

#include <gmock/gmock.h>

#include "tests/core/slots.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"

using testing::ElementsAre;

namespace {

// A -> B -> C, and D beside them.
class kivChainTest : public testing::Test {
protected:
    kivChainTest()
    {
        setTrace(0);
        a.addObject(&b);
        b.addObject(&c);
        log.clear();
    }
    ~kivChainTest() override { setTrace(1); }

    void setFD(int propagate)
    {
        fd_set set;
        FD_ZERO(&set);
        int maxFD = 0;
        log.clear();
        EXPECT_EQ(chain.setFD(&set, &maxFD, propagate), 0);
    }
    void handleEvents()
    {
        fd_set set;
        FD_ZERO(&set);
        log.clear();
        EXPECT_EQ(chain.handleEvents(set), 0);
    }

    CallLog log;
    FakeNode a{log, "A"}, b{log, "B"}, c{log, "C"}, d{log, "D"};
    kivChain chain;
};

TEST_F(kivChainTest, AnswersNoChainBeforeSetChain)
{
    fd_set set;
    FD_ZERO(&set);
    int maxFD = 0;
    EXPECT_EQ(chain.init(nullptr), 5001);
    EXPECT_EQ(chain.start(1), 5001);
    EXPECT_EQ(chain.receive(nullptr), 5001);
    EXPECT_EQ(chain.addSrcConstraints(nullptr), 5001);
    EXPECT_EQ(chain.addDstConstraints(nullptr), 5001);
    EXPECT_EQ(chain.addObject(&a), 5001);
    EXPECT_EQ(chain.setFD(&set, &maxFD, 1), 5001);
    EXPECT_EQ(chain.handleEvents(set), 0);
    EXPECT_EQ(chain.getFD(), 5002);
    EXPECT_EQ(chain.setup(), 2);
    EXPECT_EQ(chain.setChain(nullptr), 5000);
    chain.chainTail = &a;
    EXPECT_EQ(chain.setFD(&set, &maxFD, 1), 0);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(slotOf(&kivChain::setup), 16);
}

TEST_F(kivChainTest, ForwardsToHeadOrTailAndReturnsTheirAnswer)
{
    EXPECT_EQ(chain.setChain(&a), 0);
    EXPECT_EQ(chain.chainTail, &c);
    a.result = 1003;
    c.result = 1004;
    kivParams params = {};
    EXPECT_EQ(chain.addSrcConstraints(nullptr), 1003);
    EXPECT_EQ(chain.addDstConstraints(nullptr), 1004);
    EXPECT_EQ(chain.start(1), 1003);
    EXPECT_THAT(log, ElementsAre("A.addSrc", "C.addDst", "A.start(1)", "B.start(1)", "C.start(1)"));
    log.clear();
    c.result = 0;
    EXPECT_EQ(chain.init(&params), 1003);
    EXPECT_EQ(chain.receive(nullptr), 1003);
    EXPECT_THAT(log, ElementsAre("A.init(params)", "B.init", "C.init", "A.receive", "B.receive", "C.receive"));
}

TEST_F(kivChainTest, WalksFromHeadToTailWithOnlyTheTailRecursive)
{
    chain.setChain(&a);
    setFD(1);
    EXPECT_THAT(log, ElementsAre("A.setFD(0)", "B.setFD(0)", "C.setFD(1)"));
    setFD(0);
    EXPECT_THAT(log, ElementsAre("A.setFD(0)", "B.setFD(0)", "C.setFD(0)"));
    handleEvents();
    EXPECT_THAT(log, ElementsAre("A.idle", "B.idle", "C.idle"));

    chain.setChain(&c);  // alone: head and tail, never recursive
    setFD(1);
    EXPECT_THAT(log, ElementsAre("C.setFD(0)"));
    handleEvents();
    EXPECT_THAT(log, ElementsAre("C.idle"));
}

TEST_F(kivChainTest, FollowsTheNewestChildOnly)
{
    a.addObject(&d);
    chain.setChain(&a);
    EXPECT_EQ(chain.chainTail, &d);
    handleEvents();
    EXPECT_THAT(log, ElementsAre("A.idle", "D.idle"));
}

TEST_F(kivChainTest, KeepsItsTailUntilSetAgain)
{
    chain.setChain(&a);
    EXPECT_EQ(chain.addObject(&d), 0);
    EXPECT_EQ(d.parent, &c);
    EXPECT_EQ(chain.chainTail, &c);
    setFD(1);  // D is waited for ...
    EXPECT_THAT(log, ElementsAre("A.setFD(0)", "B.setFD(0)", "C.setFD(1)", "D.setFD(1)"));
    handleEvents();  // ... and not called
    EXPECT_THAT(log, ElementsAre("A.idle", "B.idle", "C.idle"));
    chain.setChain(&a);
    EXPECT_EQ(chain.chainTail, &d);
}

TEST_F(kivChainTest, EndsAPathThatMissesTheTail)
{
    chain.setChain(&a);
    a.addObject(&d);  // D now stands before B
    setFD(1);
    EXPECT_THAT(log, ElementsAre("A.setFD(0)", "D.setFD(0)"));
    handleEvents();
    EXPECT_THAT(log, ElementsAre("A.idle", "D.idle"));
    EXPECT_EQ(chain.chainTail, &c);
}

TEST_F(kivChainTest, StopsOnlyItself)
{
    chain.setChain(&a);
    chain.start(1);
    log.clear();
    setTrace(1);
    EXPECT_EQ(capture([&] { chain.stop(); }).err, "Stopping:No name\n");
    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(a.isStarted());
}

}  // namespace
