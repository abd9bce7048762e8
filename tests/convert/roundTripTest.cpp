// roundTripTest.cpp - pictures through encoder and decoder, driven by a loop.
#include <gtest/gtest.h>

#include <cmath>

#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "core/kivLoop.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"

namespace {

constexpr int width = 160, height = 96, frameBytes = width * height * 2;

// A smooth picture, another one for each number.
void draw(unsigned char* cbycry, int number)
{
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            *cbycry++ = (unsigned char)(x % 2 == 0 ? 64 + y : 192 - y);
            *cbycry++ = (unsigned char)(16 + (x + y + 3 * number) / 2);
        }
}

double psnr(const std::vector<unsigned char>& a, const std::vector<unsigned char>& b)
{
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return 10 * std::log10(255.0 * 255.0 * double(a.size()) / (sum + 1e-9));
}

// encoder -> decoder -> sink, fed by the test.
class RoundTrip : public testing::Test {
protected:
    void SetUp() override
    {
        setTrace(0);
        ASSERT_EQ(encoder.setup(), 0);
        ASSERT_EQ(decoder.setup(), 0);
        encoder.addObject(&decoder);
        decoder.addObject(&sink);
        chain.setChain(&encoder);
        ASSERT_EQ(chain.init(nullptr), 0);
        ASSERT_TRUE(decoder.isInitialized());
        chain.start(1);
        loop.addChain(&chain);
    }
    void TearDown() override
    {
        encoder.stop();
        setTrace(1);
    }

    void feed(int number)
    {
        ZVbuffer frame = nullptr;
        ASSERT_EQ(zvBufferAllocate(pool.pool, &frame), ZV_SUCCESS);
        draw(static_cast<unsigned char*>(zvBufferMapData(frame)), number);
        zvBufferSetUSTMSCpair(frame, {1000 + number, number});
        EXPECT_EQ(encoder.receive(frame), 0);
        zvBufferFree(frame);
    }

    PoolFixture pool{4, frameBytes};
    SinkNode sink;
    kivICjdecoder decoder{width, height};
    kivICjencoder encoder{width, height};
    kivChain chain;
    kivLoop loop;
};

TEST_F(RoundTrip, KeepsPicturesOrderAndStamps)
{
    constexpr int frames = 100;
    encoder.setQuality(95);
    sink.onFrame = [&] {
        const int done = int(sink.frames.size());
        if (done + 3 < frames)
            feed(done + 3);
        if (done == frames)
            loop.quit();
    };
    for (int i = 0; i < 4; ++i)
        feed(i);
    ASSERT_EQ(loop.run(), 0);

    std::vector<unsigned char> expected(frameBytes);
    for (int i = 0; i < frames; ++i) {
        const SinkNode::Frame& frame = sink.frames[i];
        EXPECT_EQ(frame.stamp.msc, i);
        EXPECT_EQ(frame.stamp.ust, 1000 + i);
        ASSERT_EQ(int(frame.data.size()), frameBytes);
        draw(expected.data(), i);
        EXPECT_GT(psnr(frame.data, expected), 40) << i;
    }
    ZVicStats stats = {};
    EXPECT_EQ(encoder.getStats(&stats), 0);
    EXPECT_EQ(stats.converted, frames);
    EXPECT_EQ(poolReferences(encoder.bufferPool), 0);
    EXPECT_EQ(poolReferences(decoder.bufferPool), 0);
}

TEST_F(RoundTrip, GoesOnAfterAFrameThatIsNoJpeg)
{
    ZVbuffer bad = pool.take();
    memset(zvBufferMapData(bad), 0x55, frameBytes);
    EXPECT_EQ(decoder.receive(bad), 0);
    feed(1);
    sink.onFrame = [&] { loop.quit(); };
    ASSERT_EQ(loop.run(), 0);
    ZVicStats stats = {};
    EXPECT_EQ(decoder.getStats(&stats), 0);
    EXPECT_EQ(stats.failed, 1);
    EXPECT_EQ(sink.frames.at(0).stamp.msc, 1);
}

TEST_F(RoundTrip, DropsTheOldestUnderAQueueLimit)
{
    // Nobody takes results, so the decoder's pool runs dry and its queue fills.
    EXPECT_EQ(decoder.setQueueMax(1), 0);
    kivICjencoder still(width, height);
    SinkNode jpegs;
    ASSERT_EQ(still.setup(), 0);
    still.addObject(&jpegs);
    ASSERT_EQ(still.init(nullptr), 0);
    still.start(1);
    kivChain alone;
    alone.setChain(&still);
    kivLoop encoding;
    encoding.addChain(&alone);
    jpegs.onFrame = [&] { encoding.quit(); };
    ZVbuffer picture = pool.take();
    draw(static_cast<unsigned char*>(zvBufferMapData(picture)), 1);
    still.receive(picture);
    ASSERT_EQ(encoding.run(), 0);

    ZVicStats stats = {};
    ZVbuffer jpeg = pool.take();
    memcpy(zvBufferMapData(jpeg), jpegs.frames[0].data.data(), jpegs.frames[0].data.size());
    zvBufferSetSize(jpeg, int(jpegs.frames[0].data.size()));
    for (int i = 0; i < 200 && stats.dropped < 10; ++i) {
        EXPECT_EQ(decoder.receive(jpeg), 0);
        decoder.getStats(&stats);
    }
    EXPECT_GE(stats.dropped, 10);
    EXPECT_TRUE(sink.frames.empty());
}

}  // namespace
