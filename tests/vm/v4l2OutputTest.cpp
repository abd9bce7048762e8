// v4l2OutputTest.cpp - playout through a real driver, looped back into its own input.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"
#include "tests/vm/driver.h"
#include "video/kivVideoIn.h"
#include "video/kivVideoOut.h"

namespace {

constexpr int width = 720, height = 576, bytes = width * height * 2;

// Picture number n: legal levels, no two alike.
void paint(ZVbuffer buffer, int n)
{
    auto* data = static_cast<uint8_t*>(zvBufferMapData(buffer));
    for (int i = 0; i < bytes; i += 4) {
        data[i] = uint8_t(0x40 + n);
        data[i + 1] = uint8_t(0x30 + (i / 4 + n) % 0x90);
        data[i + 2] = uint8_t(0xc0 - n);
        data[i + 3] = uint8_t(0x31 + (i / 4 + n) % 0x90);
    }
    zvBufferSetSize(buffer, bytes);
}

class V4l2Output : public testing::Test {
protected:
    void SetUp() override
    {
        hand = {};
        setTrace(0);
        setDriver(captureFile, "OSD Text Mode", 2);
    }
    void TearDown() override
    {
        setDriver(captureFile, "Loop Video", 0);
        setDriver(captureFile, "OSD Text Mode", 0);
        setTrace(1);
        hand = {};
    }

    // A picture sent, until it comes back in just the same bytes.
    static bool comesBack(TestPath& out, TestPath& in, PoolFixture& pictures, int n)
    {
        ZVbuffer sent = pictures.takeOwned();
        paint(sent, n);
        const auto* data = static_cast<const uint8_t*>(zvBufferMapData(sent));
        const std::vector<uint8_t> wanted(data, data + bytes);
        EXPECT_EQ(out.send(sent), 0) << lastWords();
        zvBufferFree(sent);
        for (int i = 0; i < 50; ++i)
            if (in.picture() == wanted)
                return true;
        return false;
    }

    static void loop()
    {
        PoolFixture pictures(6, bytes);
        TestPath out("S-Video", true);
        TestPath in("S-Video", false);
        ASSERT_TRUE(out.taken() && in.taken()) << lastWords();
        for (TestPath* path : {&out, &in}) {
            ASSERT_EQ(path->set(KP_CONTROL_TIMING, 2), 0) << lastWords();
            ASSERT_EQ(path->setSize(width, height), 0) << lastWords();
        }
        setDriver(captureFile, "Loop Video", 1);
        in.makePool();
        ASSERT_EQ(out.begin(), 0) << lastWords();
        ASSERT_EQ(in.begin(), 0) << lastWords();
        for (int n = 0; n < 8; ++n)
            EXPECT_TRUE(comesBack(out, in, pictures, n)) << "picture " << n;
        mode = out.get(KP_CONTROL_MEMORY_MODE).intVal;
        setDriver(captureFile, "Loop Video", 0);
    }

    static int mode;
};

int V4l2Output::mode = 0;

}  // namespace

TEST_F(V4l2Output, PlaysWhatComesBackBitForBit)
{
    loop();
    EXPECT_EQ(mode, KP_MEMORY_USERPTR);
    EXPECT_EQ(hand.queuedMapped, 0);
}

TEST_F(V4l2Output, CopiesOrConvertsOnceWhereItMust)
{
    hand.refuseUserPointers = true;
    loop();
    EXPECT_EQ(mode, KP_MEMORY_MMAP);
    hand.refusedFormats = {V4L2_PIX_FMT_UYVY};
    loop();
    EXPECT_EQ(mode, KP_MEMORY_CONVERT);
}

// The capture side's own buffers are shown, and captured again through the loop.
TEST_F(V4l2Output, ShowsWhatADriverSharesWithoutACopy)
{
    hand.refuseUserPointers = true;
    PoolFixture pictures(4, bytes);
    TestPath out("S-Video", true);
    TestPath in("S-Video", false);
    for (TestPath* path : {&out, &in}) {
        ASSERT_EQ(path->set(KP_CONTROL_TIMING, 2), 0) << lastWords();
        ASSERT_EQ(path->setSize(width, height), 0) << lastWords();
    }
    in.makePool();
    ASSERT_EQ(out.begin(), 0) << lastWords();
    for (int round = 0; round < 2; ++round) {
        ASSERT_EQ(in.begin(), 0) << lastWords();
        EXPECT_EQ(in.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_DMABUF);
        ZVbuffer frame = in.frame();
        ASSERT_NE(frame, nullptr);
        auto* data = static_cast<uint8_t*>(zvBufferMapData(frame));
        memset(data + bytes / 2, 0x60 + round, 1000);  // no test picture has that
        const std::vector<uint8_t> wanted(data, data + bytes);
        ASSERT_EQ(out.send(frame), 0) << lastWords();
        EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
        EXPECT_EQ(out.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_DMABUF);
        setDriver(captureFile, "Loop Video", 1);
        bool came = false;
        for (int i = 0; i < 50 && !came; ++i)
            came = in.picture() == wanted;
        EXPECT_TRUE(came);

        // A picture of another kind makes it begin anew.
        hand.refuseUserPointers = round == 0;
        EXPECT_GT(hand.queuedShared, 0);
        EXPECT_TRUE(comesBack(out, in, pictures, round));
        setDriver(captureFile, "Loop Video", 0);
        const int other = out.get(KP_CONTROL_MEMORY_MODE).intVal;
        EXPECT_TRUE(other == KP_MEMORY_MMAP || (round == 1 && other == KP_MEMORY_USERPTR)) << other;
        if (other == KP_MEMORY_USERPTR) {  // not where buffers must lie in one piece
            ASSERT_EQ(out.send(frame), 0) << lastWords();
            for (int i = 0; i < 50 && out.get(KP_CONTROL_MEMORY_MODE).intVal != KP_MEMORY_DMABUF; ++i)
                EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
            EXPECT_EQ(out.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_DMABUF);
        }
        zvBufferFree(frame);
        ASSERT_EQ(out.end(), 0);
        ASSERT_EQ(in.end(), 0);
        ASSERT_EQ(out.begin(), 0) << lastWords();
    }
    // A buffer that somebody holds cannot change its memory.
    ASSERT_EQ(out.end(), 0);
    ZVbuffer held = nullptr;
    ASSERT_EQ(zvBufferAllocate(in.pool, &held), 0);
    ASSERT_EQ(in.begin(), 0) << lastWords();
    EXPECT_EQ(in.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_MMAP);
    EXPECT_EQ(in.picture().size(), size_t(bytes));
    zvBufferFree(held);
}

TEST_F(V4l2Output, HoldsTheLastPictureAndTellsSoAtItsRate)
{
    PoolFixture pictures(4, bytes);
    TestPath out("S-Video", true);
    ASSERT_EQ(out.set(KP_CONTROL_TIMING, 2), 0) << lastWords();
    ASSERT_EQ(out.setSize(width, height), 0) << lastWords();
    ASSERT_EQ(out.begin(), 0) << lastWords();
    EXPECT_EQ(out.next(300).reason, 0) << "an event before the first picture";
    ZVbuffer sent = pictures.takeOwned();
    paint(sent, 1);
    ASSERT_EQ(out.send(sent), 0) << lastWords();
    zvBufferFree(sent);
    int64_t first = 0, last = 0;
    constexpr int events = 30;
    for (int i = 0; i < events; ++i) {
        const KPEvent event = out.until(KPTransferComplete);
        ASSERT_EQ(event.reason, KPTransferComplete);
        (i == 0 ? first : last) = event.stamp.ust;
    }
    EXPECT_GT(double(last - first) / (events - 1) / 1e6, 30);  // 40 ms each; never faster than the driver
    // As many as are sent, no more are held than: waiting, next, shown, and on its way back.
    for (int n = 0; n < 3; ++n) {
        ZVbuffer more = pictures.takeOwned();
        ASSERT_NE(more, nullptr);
        paint(more, n);
        EXPECT_EQ(out.send(more), 0);
        zvBufferFree(more);
    }
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
    EXPECT_GE(zvBufferGetPoolFree(pictures.pool), 3);  // the newest alone is held
    ZVbuffer small = pictures.takeOwned();
    zvBufferSetSize(small, bytes - 1);
    EXPECT_NE(out.send(small), 0);
    zvBufferFree(small);
}

TEST_F(V4l2Output, TheNodesTakeAPictureThroughTheLoop)
{
    RecordingSink sink;
    kivVideoOut out;
    kivVideoIn in;
    KPDevList list = {};
    kpGetDeviceList(kivVideo::server, &list);
    int number = -1;
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n)
            if (strstr(list.devices[d].nodes[n].name, "S-Video 0 out") != nullptr)
                number = list.devices[d].nodes[n].number;
    ASSERT_EQ(out.setup(number), kivErrNone);
    ASSERT_EQ(in.setup(kivVideo::getTypeByName("S-Video"), KP_KIND_VIDEO), kivErrNone);
    for (kivVideo* node : {static_cast<kivVideo*>(&out), static_cast<kivVideo*>(&in)}) {
        const int memory = node == &out ? out.sourceNode : in.drainNode;
        ASSERT_EQ(node->setIntControl(node->path, memory, KP_CONTROL_TIMING, 2), kivErrNone);
        ASSERT_EQ(node->setXYControl(node->path, memory, KP_CONTROL_SIZE, width, height), kivErrNone);
    }
    setDriver(captureFile, "Loop Video", 1);
    in.addObject(&sink);
    ASSERT_EQ(out.init(nullptr), kivErrNone);
    ASSERT_EQ(in.init(nullptr), kivErrNone);
    ASSERT_EQ(out.start(1), kivErrNone);
    ASSERT_EQ(in.start(1), kivErrNone);
    PoolFixture pictures(6, bytes);
    for (int n = 0; n < 5; ++n) {
        ZVbuffer sent = pictures.takeOwned();
        ASSERT_NE(sent, nullptr);
        paint(sent, n);
        const std::string wanted(static_cast<const char*>(zvBufferMapData(sent)), bytes);
        EXPECT_EQ(out.receive(sent), kivErrNone);
        zvBufferFree(sent);
        bool came = false;
        for (int i = 0; i < 200 && !came; ++i) {
            if (waitReadable(out, 0))
                handle(out);
            waitReadable(in, 3000);
            handle(in);
            came = !sink.frames.empty() && sink.frames.back() == wanted;
            sink.frames.resize(sink.frames.empty() ? 0 : 1);
        }
        EXPECT_TRUE(came) << "picture " << n;
    }
    setDriver(captureFile, "Loop Video", 0);
    kpEndTransfer(kivVideo::server, out.path);
}
