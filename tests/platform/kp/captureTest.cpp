// captureTest.cpp - pictures of the built-in camera: which, how many, and when.
#include "tests/platform/kp/videoRig.h"

namespace {

constexpr int width = 320, height = 240, frameBytes = width * height * 2;

class kpCapture : public testing::Test {
protected:
    // Pools of one more than the device and the queue hold at once.
    PoolFixture pool{4, frameBytes};
    Rig rig{"pattern", width, height, 500};
};

TEST_F(kpCapture, DeliversEveryPictureOnceWhenFreeRunning)
{
    rig.set(KP_CONTROL_RATE, 0, 1);
    ASSERT_EQ(rig.registerPool(pool), 0);
    ASSERT_EQ(rig.begin(), 0);
    long long last = 0;
    for (int i = 0; i < 500; ++i) {
        const KPEvent event = rig.next();
        ASSERT_EQ(event.reason, KPTransferComplete) << "nothing is lost by waiting";
        EXPECT_EQ(event.stamp.msc, i);
        EXPECT_GE(event.stamp.ust, last);
        last = event.stamp.ust;
        const Picture picture(event);
        EXPECT_EQ(picture.size, frameBytes);
        EXPECT_EQ(picture.number(width, height), i);
        EXPECT_EQ(zvBufferGetUSTMSCpair(picture.buffer).msc, i);
    }
    EXPECT_EQ(rig.end(), 0);
}

void workFor(unsigned long long ns)
{
    unsigned long long start = 0;
    unsigned long long now = 0;
    zvGetUST(&start);
    do
        zvGetUST(&now);
    while (now - start < ns);
}

// Every number that does not arrive is told as lost.
TEST_F(kpCapture, KeepsTheNewestForASlowTakerAndTellsTheLoss)
{
    ASSERT_EQ(rig.registerPool(pool), 0);
    ASSERT_EQ(rig.begin(), 0);
    long long told = 0;  // pictures taken and lost
    long long newest = -1;
    const auto takeOne = [&] {
        const KPEvent event = rig.next();
        if (event.reason == KPSequenceLost)
            told += event.count;
        if (event.reason != KPTransferComplete)
            return false;
        EXPECT_GT(event.stamp.msc, newest);
        EXPECT_EQ(Picture(event).number(width, height), event.stamp.msc);
        newest = event.stamp.msc;
        ++told;
        return true;
    };
    for (int pictures = 0, events = 0; pictures < 10; ++events) {
        ASSERT_LE(events, 30) << "one event of each kind waits, and none is passed over";
        workFor(20000000);  // ten periods
        pictures += takeOne();
    }
    EXPECT_GE(newest, 50);
    // Quick again: as soon as nothing waits, all is accounted for.
    for (int i = 0; readableNow(rig.fd()) || told != newest + 1; ++i) {
        ASSERT_LT(i, 1000) << told << " told up to " << newest;
        takeOne();
        EXPECT_TRUE(readableNow(rig.fd()) || told > newest);
    }
    EXPECT_EQ(rig.end(), 0);
}

TEST_F(kpCapture, DropsPicturesWhenThePoolIsEmpty)
{
    ASSERT_EQ(rig.registerPool(pool), 0);
    ZVbuffer held[4] = {};
    for (ZVbuffer& buffer : held)
        buffer = pool.takeOwned();
    ASSERT_EQ(rig.begin(), 0);
    EXPECT_EQ(rig.next().reason, KPSequenceLost);
    zvBufferFree(held[0]);
    const KPEvent event = rig.next(KPTransferComplete);
    EXPECT_GE(event.stamp.msc, 1);
    EXPECT_EQ(Picture(event).number(width, height), event.stamp.msc);
    for (int i = 1; i < 4; ++i)
        zvBufferFree(held[i]);
    EXPECT_EQ(rig.end(), 0);
}

TEST_F(kpCapture, HandsOverOneReferenceAndDropsWhatIsNotFetched)
{
    rig.set(KP_CONTROL_RATE, 0, 1);
    ASSERT_EQ(rig.registerPool(pool), 0);
    ASSERT_EQ(rig.begin(), 0);
    KPEvent event = rig.next();
    ZVbuffer mine = nullptr;
    ASSERT_EQ(kpEventToZVBuffer(&event, &mine), 0);
    ZVbuffer twice = mine;
    EXPECT_EQ(kpEventToZVBuffer(&event, &twice), -1);
    EXPECT_EQ(twice, nullptr);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(rig.next().reason, KPTransferComplete) << "events whose pictures nobody wants";
    KPEvent none = {};
    EXPECT_EQ(kpEventToZVBuffer(&none, &twice), -1);
    EXPECT_EQ(kpEventToZVBuffer(nullptr, &twice), -1);
    EXPECT_EQ(rig.end(), 0);
    EXPECT_EQ(rig.giveUp(), 0);
    EXPECT_EQ(poolReferences(pool.pool), 1);
    EXPECT_EQ(zvBufferFree(mine), 0);
}

TEST_F(kpCapture, IsReadableExactlyWhileAnEventWaits)
{
    rig.set(KP_CONTROL_RATE, 0, 1);
    ASSERT_EQ(rig.registerPool(pool), 0);
    const int fd = rig.fd();
    EXPECT_FALSE(readableNow(fd));
    ASSERT_EQ(rig.begin(), 0);
    for (int i = 0; i < 20; ++i) {
        pollfd waiting = {fd, POLLIN, 0};
        ASSERT_EQ(poll(&waiting, 1, 20000), 1);
        KPEvent event = {};
        ASSERT_EQ(kpEventRecv(rig.server, rig.path, &event), 0);
    }
    EXPECT_EQ(rig.end(), 0);
    EXPECT_FALSE(readableNow(fd)) << "what was not taken went with the transfer";
    KPEvent event = {};
    EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
    EXPECT_NE(kpGetErrno(), KP_ERRNO_NO_EVENT) << "none can come";
    EXPECT_EQ(rig.fd(), fd);
    ASSERT_EQ(rig.begin(), 0) << "again on the same path";
    EXPECT_EQ(rig.next().stamp.msc, 0);
}

TEST(kpTestPicture, IsNotReadFromWhatCarriesNone)
{
    std::string grey(frameBytes, char(128));
    unsigned number = 99;
    EXPECT_EQ(kpReadTestPicture(grey.data(), width, height, &number), -1);
    EXPECT_EQ(kpReadTestPicture(grey.data(), 40, height, &number), -1) << "too narrow";
    EXPECT_EQ(kpReadTestPicture(nullptr, width, height, &number), -1);
    EXPECT_EQ(kpReadTestPicture(grey.data(), width, height, nullptr), -1);
    EXPECT_EQ(number, 99u);
}

TEST(kpTestPicture, IsDrawnAtAnySize)
{
    for (const auto& [w, h] : {std::pair(2, 1), {78, 3}, {80, 2}, {642, 17}, {1920, 1080}}) {
        SCOPED_TRACE(w);
        PoolFixture pool(3, w * h * 2);
        Rig rig("pattern", w, h, 0);
        ASSERT_EQ(rig.registerPool(pool), 0);
        ASSERT_EQ(rig.begin(), 0);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Picture(rig.next()).number(w, h), w >= 80 ? i : -1);
    }
}

}  // namespace
