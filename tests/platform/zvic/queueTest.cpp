// queueTest.cpp - order, waiting, dropping and ending of an open converter.
#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

#include "tests/platform/zvic/converterRig.h"

namespace {

constexpr int width = 160;
constexpr int height = 120;

bool readable(int fd)
{
    pollfd ready = {fd, POLLIN, 0};
    return poll(&ready, 1, 0) == 1;
}

Bytes flatPicture() { return Bytes(width * height * 2, 60); }

Bytes hardPicture()
{
    Bytes picture = noisePicture(width, height, 1).bytes;
    picture.resize(width * height * 2);
    return picture;
}

ZVicStats statsOf(const ConverterRig& rig)
{
    ZVicStats stats = {};
    EXPECT_EQ(zvICGetStats(rig.ic, &stats), 0);
    return stats;
}

// Easy, hard and impossible images in turn, on more workers than cores.
TEST(zvicQueue, ResultsComeInInputOrderWithTheirStamps)
{
    ConverterRig rig(width, height, cbycry, jpegFormat, {.workers = 4, .srcCount = 32, .dstCount = 6});
    const Bytes kinds[] = {hardPicture(), flatPicture(), Bytes(100), flatPicture(), hardPicture()};
    long long sent = 0;
    long long received = 0;
    while (received < 300) {
        while (sent < 300 && rig.send(kinds[sent % 5], sent) == 0)
            ++sent;
        Bytes out;
        long long msc = received;
        const bool good = rig.receive(&out, &msc) == 0;
        ASSERT_EQ(msc, received);
        ASSERT_EQ(good, received % 5 != 2) << received;
        ++received;
    }
    const ZVicStats stats = statsOf(rig);
    EXPECT_EQ(stats.sent, 300);
    EXPECT_EQ(stats.converted, 240);
    EXPECT_EQ(stats.failed, 60);
    EXPECT_EQ(stats.dropped, 0);
    EXPECT_EQ(zvICGetSrcQueueFilled(rig.ic), 0);
}

TEST(zvicQueue, DescriptorIsReadableExactlyWhileAResultWaits)
{
    ConverterRig rig(width, height, cbycry, jpegFormat);
    const int fd = zvICGetDstQueueFD(rig.ic);
    EXPECT_EQ(zvICGetDstQueueFD(rig.ic), fd);
    EXPECT_FALSE(readable(fd));
    for (int round = 0; round < 20; ++round) {
        const Bytes image = round % 2 ? flatPicture() : Bytes(7);
        ASSERT_EQ(rig.send(image), 0);
        ASSERT_EQ(rig.send(image), 0);
        while (zvICGetDstQueueFilled(rig.ic) < 2)
            std::this_thread::yield();
        for (int left = 2; left > 0; --left) {
            EXPECT_TRUE(readable(fd));
            ZVbuffer out = nullptr;
            EXPECT_EQ(zvICReceive(rig.ic, &out), round % 2 ? 0 : -1);
            if (out != nullptr)
                zvBufferFree(out);
        }
        EXPECT_FALSE(readable(fd));
        ZVbuffer none = nullptr;
        EXPECT_EQ(zvICReceive(rig.ic, &none), -1);
        EXPECT_FALSE(readable(fd));
    }
}

TEST(zvicQueue, ADescriptorAskedForLateShowsWhatWaits)
{
    ConverterRig rig(width, height, cbycry, jpegFormat);
    ASSERT_EQ(rig.send(flatPicture()), 0);
    while (zvICGetDstQueueFilled(rig.ic) == 0)
        std::this_thread::yield();
    EXPECT_TRUE(readable(zvICGetDstQueueFD(rig.ic)));
}

// No destination buffer is free, so nothing can begin: what waits is known exactly.
TEST(zvicQueue, WithALimitTheOldestUnstartedGivesWay)
{
    ConverterRig rig(width, height, cbycry, jpegFormat, {.workers = 2, .srcCount = 8, .dstCount = 1});
    ZVbuffer taken = nullptr;
    ASSERT_EQ(zvBufferAllocate(rig.dst->pool, &taken), 0);
    ASSERT_EQ(rig.set(ZV_IC_QUEUE_MAX, 2), 0);
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(rig.send(flatPicture(), i), 0);
    EXPECT_EQ(zvICGetSrcQueueFilled(rig.ic), 2);
    EXPECT_EQ(statsOf(rig).dropped, 3);
    EXPECT_EQ(zvBufferGetPoolFree(rig.src->pool), 6) << "dropped images are freed at once";
    ASSERT_EQ(rig.set(ZV_IC_QUEUE_MAX, 1), 0);
    ASSERT_EQ(rig.send(flatPicture(), 5), 0);
    EXPECT_EQ(statsOf(rig).dropped, 5);
    ASSERT_EQ(rig.set(ZV_IC_QUEUE_MAX, 0), 0);
    ASSERT_EQ(rig.send(flatPicture(), 6), 0);

    zvBufferFree(taken);
    for (const long long expected : {5, 6}) {
        Bytes out;
        long long msc = 0;
        ASSERT_EQ(rig.receive(&out, &msc), 0);
        EXPECT_EQ(msc, expected);
    }
    EXPECT_EQ(statsOf(rig).converted, 2);
    EXPECT_EQ(rig.set(ZV_IC_QUEUE_MAX, -1), -1);
}

// Results that nobody takes hold every buffer; each one freed lets the next image through.
TEST(zvicQueue, WorkersWaitForDestinationBuffersAndGoOn)
{
    ConverterRig rig(width, height, cbycry, jpegFormat, {.workers = 3, .srcCount = 20, .dstCount = 1});
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(rig.send(i % 2 ? flatPicture() : hardPicture(), i), 0);
    for (int i = 0; i < 20; ++i) {
        Bytes out;
        long long msc = -1;
        ASSERT_EQ(rig.receive(&out, &msc), 0);
        ASSERT_EQ(msc, i);
    }
}

TEST(zvicQueue, AnotherPoolWakesWhoWaitsForTheOld)
{
    ConverterRig rig(width, height, cbycry, jpegFormat, {.workers = 2, .srcCount = 4, .dstCount = 1});
    ZVbuffer taken = nullptr;
    ASSERT_EQ(zvBufferAllocate(rig.dst->pool, &taken), 0);
    ASSERT_EQ(rig.send(flatPicture(), 1), 0);
    PoolFixture other(1, 300000);
    ASSERT_EQ(zvICSetDstPool(rig.ic, other.pool), 0);
    Bytes out;
    EXPECT_EQ(rig.receive(&out), 0);
    zvBufferFree(taken);
}

TEST(zvicQueue, ADestroyedPoolIsAFailedResult)
{
    ConverterRig rig(width, height, cbycry, jpegFormat);
    List list;
    zvBufferSetPoolDefaults(list, 1, 300000, 0, 0);
    ZVbufferpool pool = nullptr;
    ZVbuffer taken = nullptr;
    ASSERT_EQ(zvBufferCreatePool(list, &pool), 0);
    ASSERT_EQ(zvICSetDstPool(rig.ic, pool), 0);
    ASSERT_EQ(zvBufferAllocate(pool, &taken), 0);
    ASSERT_EQ(rig.send(flatPicture(), 1), 0);
    ASSERT_EQ(zvBufferDestroyPool(pool), 0);
    ASSERT_EQ(zvBufferFree(taken), 0);
    ASSERT_EQ(rig.send(flatPicture(), 2), 0);
    Bytes out;
    EXPECT_EQ(rig.receive(&out), -1);
    EXPECT_EQ(rig.receive(&out), -1);
    int number = 0;
    zvGetError(&number, nullptr);
    EXPECT_EQ(number, ZV_ERROR_HANDLE);
}

// Ended with images waiting, under way, waiting for a buffer and not yet received:
// the rig finds every buffer back in its pool.
TEST(zvicQueue, DestroyAtAnyMomentLosesNoBuffer)
{
    for (int round = 0; round < 120; ++round) {
        ConverterRig rig(width, height, cbycry, jpegFormat,
                         {.workers = 1 + round % 3, .srcCount = 8, .dstCount = 1 + round % 4});
        for (int i = 0; i < 1 + round % 8; ++i)
            ASSERT_EQ(rig.send(i % 2 ? flatPicture() : hardPicture(), i), 0);
        Bytes out;
        for (int i = 0; i < round % 3 && i < 1 + round % 8; ++i)
            ASSERT_EQ(rig.receive(&out), 0);
    }
}

TEST(zvicQueue, LoopReceivesWhileAnotherThreadSendsAndSettingsChange)
{
    ConverterRig rig(width, height, cbycry, jpegFormat, {.workers = 3, .srcCount = 6, .dstCount = 4});
    std::thread sender([&rig] {
        for (long long i = 0; i < 200;) {
            if (rig.send(i % 3 ? flatPicture() : hardPicture(), i) == 0)
                ++i;
            else
                std::this_thread::yield();
        }
    });
    for (long long i = 0; i < 200; ++i) {
        Bytes out;
        long long msc = -1;
        EXPECT_EQ(rig.setQuality(double(i % 101) / 100), 0);
        EXPECT_EQ(rig.receive(&out, &msc), 0);
        EXPECT_EQ(msc, i);
    }
    sender.join();
}

}  // namespace
