// kivLatchTest.cpp - who holds which buffer, and who waits for whom.
#include "core/kivLatch.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/core/slots.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"

namespace {

class kivLatchTest : public testing::Test {
protected:
    kivLatchTest()
    {
        latch.addObject(&below);
        latch.setup();
        FD_ZERO(&none);
    }
    ~kivLatchTest() override
    {
        // What a latch still holds when it goes is its user's to count.
        for (ZVbuffer held : {latch.newBuffer, latch.latchBuffer})
            if (held != nullptr)
                zvBufferFree(held);
    }

    ZVbuffer stamped(int64_t msc)
    {
        ZVbuffer buffer = pool.take();
        zvBufferSetUSTMSCpair(buffer, {msc * 10, msc});
        return buffer;
    }

    PoolFixture pool{4};
    CallLog log;
    FakeNode below{log, "below"};
    kivLatch latch;
    fd_set none;
};

TEST_F(kivLatchTest, LatchesTheNewestAndDropsTheOthers)
{
    EXPECT_EQ(latch.handleEvents(none), 9);
    ZVbuffer b[3] = {stamped(1), stamped(2), stamped(3)};
    latch.receive(b[0]);
    EXPECT_EQ(poolReferences(pool.pool), 5);  // ours, newest, latched
    latch.receive(b[1]);
    latch.receive(b[2]);
    EXPECT_EQ(poolReferences(pool.pool), 5);
    EXPECT_EQ(latch.newBuffer, b[2]);
    EXPECT_EQ(latch.latchBuffer, b[0]);
    EXPECT_EQ(latch.getUSTMSC().msc, 0) << "nothing is grabbed";

    EXPECT_EQ(latch.grab(), 0);
    EXPECT_EQ(latch.latchBuffer, b[2]);
    EXPECT_EQ(latch.haveNewBuffer, 0);
    EXPECT_EQ(latch.getUSTMSC().msc, 3);
    EXPECT_EQ(latch.getUSTMSC().ust, 30);
    EXPECT_EQ(latch.mapBuffer(), zvBufferMapData(b[2]));
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(latch.release(), 0);
    EXPECT_EQ(below.lastBuffer, b[2]);
    EXPECT_EQ(latch.latchBuffer, b[2]) << "held until the next grab";
    EXPECT_EQ(latch.getUSTMSC().msc, 0);
    EXPECT_EQ(latch.handleEvents(none), 9);
}

TEST_F(kivLatchTest, PassesANewBufferOnWithoutADescriptor)
{
    ZVbuffer buffer = stamped(1);
    latch.receive(buffer);
    EXPECT_EQ(latch.handleEvents(none), 0);
    EXPECT_EQ(below.lastBuffer, buffer);
    EXPECT_EQ(latch.handleEvents(none), 9);
    EXPECT_EQ(yqtestsema(latch.latchBufferLock), 1);
    EXPECT_EQ(yqtestsema(latch.newBufferLock), 1);
}

TEST_F(kivLatchTest, LetsAGrabWaitForTheFirstBuffer)
{
    int64_t msc = -1;
    std::thread consumer([&] {
        latch.grab();
        msc = latch.getUSTMSC().msc;
        latch.release();
    });
    latch.receive(stamped(7));
    consumer.join();
    EXPECT_EQ(msc, 7);
}

TEST_F(kivLatchTest, HandsOverBetweenThreadsWithoutLosingAReference)
{
    constexpr int frames = 20000;
    ZVbuffer b[3] = {stamped(1), stamped(2), stamped(3)};
    latch.receive(b[0]);
    setTrace(0);
    std::thread producer([&] {
        for (int i = 0; i < frames; ++i)
            latch.receive(b[i % 3]);
    });
    for (int i = 0; i < frames; ++i) {
        latch.grab();
        EXPECT_EQ(latch.latchBuffer, b[latch.getUSTMSC().msc - 1]);
        latch.release();
    }
    producer.join();
    setTrace(1);
    EXPECT_EQ(poolReferences(pool.pool), 5);
    EXPECT_EQ(log.size(), size_t(frames));
}

TEST_F(kivLatchTest, DoesNotWaitForItselfInTheLoop)
{
    latch.receive(stamped(1));
    latch.grab();
    ZVbuffer second = stamped(2);
    latch.receive(second);
    EXPECT_EQ(latch.handleEvents(none), 9);
    latch.release();
    EXPECT_EQ(latch.handleEvents(none), 0);
    EXPECT_EQ(below.lastBuffer, second);
}

TEST_F(kivLatchTest, WaitsInTheLoopForAnotherThread)
{
    latch.receive(stamped(1));
    std::thread consumer([&] { latch.grab(); });
    consumer.join();
    latch.receive(stamped(2));
    std::thread releaser([&] { latch.release(); });
    EXPECT_EQ(latch.handleEvents(none), 0);
    releaser.join();
    EXPECT_EQ(yqtestsema(latch.latchBufferLock), 1);
}

TEST_F(kivLatchTest, CanBeSetUpAgain)
{
    EXPECT_EQ(latch.setup(), 0);
    EXPECT_EQ(yqtestsema(latch.latchBufferLock), 0) << "the first buffer is still awaited";
    latch.receive(stamped(1));
    yqsema_t* old = latch.latchBufferLock;
    EXPECT_EQ(latch.setup(), 0);
    EXPECT_EQ(yqtestsema(old), -1);
    EXPECT_EQ(yqtestsema(latch.latchBufferLock), 1);
    EXPECT_EQ(latch.handleEvents(none), 0);
}

TEST_F(kivLatchTest, PassesConstraintsBothWays)
{
    log.clear();
    EXPECT_EQ(latch.addSrcConstraints(nullptr), 0);
    EXPECT_EQ(latch.addDstConstraints(nullptr), 0);
    FakeNode above(log, "above");
    above.kivObj::addObject(&latch);
    above.result = 1;
    EXPECT_EQ(latch.addDstConstraints(nullptr), 1);
    EXPECT_THAT(log, testing::ElementsAre("below.addSrc", "above.addDst"));
    EXPECT_EQ(latch.getFD(), -1);
    EXPECT_EQ(latch.easyToAdd(), 0);
    EXPECT_EQ(slotOf(&kivLatch::grab), 16);
    EXPECT_EQ(slotOf(&kivLatch::release), 17);
    EXPECT_EQ(slotOf(&kivLatch::mapBuffer), 18);
    EXPECT_EQ(slotOf(&kivLatch::getUSTMSC), 19);
}

TEST(kivLatchWithoutSemaphores, PrintsAndGoesOn)
{
    PoolFixture pool(1);
    ZVbuffer buffer = pool.take();
    kivLatch latch;
    const Printed printed = capture([&] {
        latch.receive(buffer);
        latch.grab();
        EXPECT_EQ(latch.getUSTMSC().msc, 0);
        latch.release();
    });
    EXPECT_EQ(printed.err,
              "kivLatch::lockNewBuffer failed !\n"
              "kivLatchBuffer::unlockLatchBuffer failed.\n"
              "kivLatch::unlockNewBuffer failed.\n"
              "kivLatch::lockLatchBuffer failed !\n"
              "kivLatch::lockNewBuffer failed !\n"
              "kivLatch::unlockNewBuffer failed.\n"
              "kivLatchBuffer::unlockLatchBuffer failed.\n");
    EXPECT_EQ(poolReferences(pool.pool), 3);
    zvBufferFree(buffer);
    zvBufferFree(buffer);
}

}  // namespace
