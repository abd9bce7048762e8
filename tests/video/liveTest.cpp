// liveTest.cpp - the video nodes on the built-in devices, driven by a loop.
#include <gtest/gtest.h>

#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "core/kivLoop.h"
#include "tests/support/clips.h"
#include "tests/support/fakeNode.h"
#include "tests/support/lifeCycle.h"
#include "video/kivVideoIn.h"
#include "video/kivVideoOut.h"

namespace {

constexpr int width = 320, height = 240, frameBytes = width * height * 2;

int jack(const char* name) { return kivVideo::getTypeByName(name); }

long long numberIn(const SinkNode::Frame& frame)
{
    unsigned number = 0;
    return kpReadTestPicture(frame.data.data(), width, height, &number) == 0 ? (long long)number : -1;
}

class LiveVideo : public testing::Test {
protected:
    void SetUp() override
    {
        setTrace(0);
        ASSERT_EQ(in.setup(jack("builtin pattern in"), KP_KIND_VIDEO), 0);
        ASSERT_EQ(in.setXYControl(in.path, in.drainNode, KP_CONTROL_SIZE, width, height), 0);
        setRate(0);
    }
    void TearDown() override { setTrace(1); }

    void setRate(int rate) { EXPECT_EQ(in.setFractControl(in.path, in.drainNode, KP_CONTROL_RATE, rate, 1), 0); }
    void run(kivObj& head)
    {
        chain.setChain(&head);
        ASSERT_EQ(chain.init(nullptr), 0);
        ASSERT_EQ(chain.start(1), 0);
        loop.addChain(&chain);
        ASSERT_EQ(loop.run(), 0);
        chain.stop();
        loop.removeChain(&chain);
    }

    SinkNode sink;
    kivICjdecoder decoder{width, height};
    kivICjencoder encoder{width, height};
    kivVideoOut out;
    kivVideoIn in;  // gone first: a parent before its children
    kivChain chain;
    kivLoop loop;
};

TEST_F(LiveVideo, CapturesEveryFrameIntoItsOwnPool)
{
    in.addObject(&sink);
    sink.onFrame = [&] {
        if (sink.frames.size() == 100)
            loop.quit();
    };
    run(in);
    ASSERT_EQ(sink.frames.size(), 100u);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(sink.frames[i].stamp.msc, i);
        EXPECT_EQ(int(sink.frames[i].data.size()), frameBytes);
        EXPECT_EQ(numberIn(sink.frames[i]), i);
    }
    EXPECT_EQ(kpEndTransfer(kivVideo::server, in.path), 0);
    EXPECT_EQ(zvBufferGetPoolFree(in.bufferPool), zvParamsGetInt(in.poolParams, ZV_BUFFER_COUNT));
}

TEST_F(LiveVideo, GoesThroughJpegAndKeepsItsNumber)
{
    encoder.setup();
    decoder.setup();
    encoder.setQuality(50);
    in.addObject(&encoder);
    encoder.addObject(&decoder);
    decoder.addObject(&sink);
    setRate(200);
    sink.onFrame = [&] {
        if (sink.frames.size() == 50)
            loop.quit();
    };
    run(in);
    long long last = -1;
    for (const SinkNode::Frame& frame : sink.frames) {
        EXPECT_GT(frame.stamp.msc, last) << "in order";
        EXPECT_EQ(numberIn(frame), frame.stamp.msc) << "the right picture under each stamp";
        last = frame.stamp.msc;
    }
}

TEST_F(LiveVideo, PlaysOutWhatItCaptures)
{
    const std::string record = scratchFolder() + "/played.y4m";
    ASSERT_EQ(out.setup(jack("builtin monitor out")), 0);
    ASSERT_EQ(out.setXYControl(out.path, out.sourceNode, KP_CONTROL_SIZE, width, height), 0);
    ASSERT_EQ(out.setFractControl(out.path, out.sourceNode, KP_CONTROL_RATE, 200, 1), 0);
    ASSERT_EQ(kpSetPathText(kivVideo::server, out.path, KP_TEXT_RECORD, record.c_str()), 0);
    in.addObject(&sink);
    in.addObject(&out);  // the newest child is on the chain's path
    setRate(100);
    sink.onFrame = [&] {
        if (sink.frames.size() == 60)
            loop.quit();
    };
    run(in);
    EXPECT_EQ(kpEndTransfer(kivVideo::server, out.path), 0);

    // Shown in order, each once, and nearly all: the monitor is twice as fast.
    const std::string raw = scratchFolder() + "/played.uyvy";
    EXPECT_EQ(runCommand("ffmpeg -v error -y -i " + record + " -f rawvideo -pix_fmt uyvy422 " + raw), "");
    const std::string shown = readFile(raw);
    ASSERT_EQ(shown.size() % frameBytes, 0u);
    EXPECT_GE(shown.size() / frameBytes, 10u);
    long long last = -1;
    for (size_t at = 0; at < shown.size(); at += frameBytes) {
        unsigned number = 0;
        ASSERT_EQ(kpReadTestPicture(shown.data() + at, width, height, &number), 0);
        EXPECT_GT((long long)number, last);
        last = number;
    }
}

TEST_F(LiveVideo, EndsItsWaitWhenTheCameraGoes)
{
    in.addObject(&sink);
    ASSERT_EQ(kpSetPathText(kivVideo::server, in.path, KP_TEXT_FAULTS, "unplug 5"), 0);
    loop.setPassHandler([&] {
        KPEvent event = {};
        if (sink.frames.size() == 5 && kpEventRecv(kivVideo::server, in.path, &event) != 0 && kpGetErrno() == ENODEV)
            loop.quit();
        else if (event.reason == KPDeviceEvent)
            loop.quit();
    });
    loop.addTimer(0, [] {});
    run(in);
    EXPECT_EQ(sink.frames.size(), 5u);
    fd_set set;
    FD_ZERO(&set);
    kivFdAdd(in.getFD(), &set);
    EXPECT_EQ(in.handleEvents(set), kivErrVideoNoEvent) << "and does not nap for ever";
}

}  // namespace

template <> struct LifeCycleOf<kivVideoIn> {
    static std::unique_ptr<kivVideoIn> make() { return std::make_unique<kivVideoIn>(); }
    static void setup(kivVideoIn& node)
    {
        EXPECT_EQ(node.setup(jack("builtin pattern in"), 1), 0);
        node.setXYControl(node.path, node.drainNode, KP_CONTROL_SIZE, 80, 16);
    }
};

template <> struct LifeCycleOf<kivVideoOut> {
    static std::unique_ptr<kivVideoOut> make() { return std::make_unique<kivVideoOut>(); }
    static void setup(kivVideoOut& node) { EXPECT_EQ(node.setup(jack("builtin monitor out")), 0); }
};

using VideoNodes = testing::Types<kivVideoIn, kivVideoOut>;
INSTANTIATE_TYPED_TEST_SUITE_P(video, LifeCycle, VideoNodes);
