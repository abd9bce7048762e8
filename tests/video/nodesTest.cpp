// nodesTest.cpp - ids, calls and printed lines of the video nodes.
#include <gmock/gmock.h>

#include "tests/core/slots.h"
#include "tests/support/capture.h"
#include "tests/support/fakeNode.h"
#include "tests/support/poolFixture.h"
#include "tests/video/fakeVideo.h"
#include "video/kivVideoIn.h"
#include "video/kivVideoOut.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

int camera() { return kivVideo::getTypeByName("builtin pattern in"); }
int monitor() { return kivVideo::getTypeByName("builtin monitor out"); }

class kivVideoTest : public testing::Test {
protected:
    void SetUp() override
    {
        FakeVideo::reset();
        setTrace(0);
    }
    void TearDown() override
    {
        FakeVideo::reset();
        setTrace(1);
    }
    // Printed by `code` with trace lines on.
    template <class Code> static std::string printed(Code&& code)
    {
        setTrace(1);
        const std::string lines = capture(code).err;
        setTrace(0);
        return lines;
    }
};

fd_set setOf(int fd)
{
    fd_set set;
    FD_ZERO(&set);
    kivFdAdd(fd, &set);
    return set;
}

TEST_F(kivVideoTest, SharesOneServer)
{
    EXPECT_EQ(printed([] {
                  auto first = std::make_unique<kivVideo>();
                  auto second = std::make_unique<kivVideoOut>();
                  EXPECT_EQ(kivVideo::nObjects, 2);
                  first.reset();
                  EXPECT_EQ(kivVideo::videoOpen, 1);
              }),
              "Opening video server\nClosing video server connection\n");
    EXPECT_THAT(FakeVideo::instance().calls, ElementsAre("kpOpenVideo ''", "kpCloseVideo"));
    EXPECT_EQ(kivVideo::videoOpen, 0);
    EXPECT_EQ(kivVideo::nObjects, 0);
}

TEST_F(kivVideoTest, TriesAServerAgainThatDidNotOpen)
{
    FakeVideo::instance().failing = "kpOpenVideo";
    std::unique_ptr<kivVideo> node;
    EXPECT_THAT(printed([&] { node = std::make_unique<kivVideo>(); }),
                StartsWith("Opening video server\nUnable to open video server\nVideo Error in openVideo: "));
    EXPECT_EQ(kivVideo::videoOpen, 0);
    kivVideoIn in;
    EXPECT_EQ(in.setup(0, 1), 1001);
    FakeVideo::reset();
    kivVideo another;
    EXPECT_EQ(kivVideo::videoOpen, 1);
}

TEST_F(kivVideoTest, FindsTheLastVideoJackOfAName)
{
    const KPNodeDesc first[] = {{3, "card one in", 1, 10, 1}, {4, "card two in", 1, 11, 1}};
    const KPNodeDesc second[] = {{5, "card one, later in", 1, 12, 1}, {6, "card one memory", 1, 13, 3}};
    const KPDevDesc devices[] = {{"a", 2, first}, {"b", 2, second}};
    const KPDevList list = {2, devices};
    FakeVideo::instance().devices = &list;
    EXPECT_EQ(kivVideo::getTypeByName("card one"), 12);
    EXPECT_EQ(kivVideo::getTypeByName("two"), 11);
    EXPECT_EQ(kivVideo::getTypeByName(""), 12);
    EXPECT_EQ(printed([] { EXPECT_EQ(kivVideo::getTypeByName("memory"), -1); }),
              "Unaable to locate requested video source type 'memory'\n");
    FakeVideo::reset();
    EXPECT_EQ(kivVideo::getTypeByName("builtin"), -1) << "no server is open";
    kivVideo node;
    EXPECT_GE(kivVideo::getTypeByName("builtin"), 0);
    EXPECT_EQ(kivVideo::getTypeByName(nullptr), -1);
}

TEST_F(kivVideoTest, IsAPlaceholderByItself)
{
    kivVideo node;
    int size = 77;
    EXPECT_EQ(node.setup(), 3);
    EXPECT_EQ(node.init(nullptr), 3);
    EXPECT_EQ(node.receive(nullptr), 3);
    EXPECT_EQ(node.handleEvents(setOf(-1)), 3);
    EXPECT_EQ(node.addSrcConstraints(nullptr), 2);
    EXPECT_EQ(node.easyToAdd(), 0);
    EXPECT_EQ(node.getFD(), -1);
    EXPECT_EQ(node.getBufferBytes(&size), 1010);
    EXPECT_EQ(size, 77);
    EXPECT_EQ(slotOf(&kivVideo::setup), -1) << "not virtual";
    kivVideoOut out;
    EXPECT_EQ(out.addSrcConstraints(nullptr), 0);
    EXPECT_EQ(kivVideoIn().addSrcConstraints(nullptr), 2);
}

TEST_F(kivVideoTest, SetsUpInItsOrder)
{
    kivVideoIn in;
    ASSERT_EQ(in.setup(camera(), 1), 0);
    const std::string onDrain = " on " + std::to_string(in.drainNode);
    EXPECT_THAT(FakeVideo::called("kpSe"),
                ElementsAre("kpSetupPaths 1 2 2", "kpSelectEvents 2097151", "kpSetControl 1 = 0" + onDrain,
                            "kpSetControl 7 = 22" + onDrain, "kpSetControl 6 = 1" + onDrain,
                            "kpSetControl 21 = 2" + onDrain, "kpSetControl 67 = 0" + onDrain,
                            "kpSetControl 44 = 1/1" + onDrain));
    EXPECT_THAT(FakeVideo::called("kpGetNode"), ElementsAre("kpGetNode 1 1", "kpGetNode 2 3"));
    EXPECT_THAT(FakeVideo::called("kpCreatePath"), ElementsAre("kpCreatePath 268435456"));

    FakeVideo::reset();
    kivVideoIn special;
    ASSERT_EQ(special.setup(camera(), 4), 0);
    const std::string onSource = " on " + std::to_string(special.sourceNode);
    const auto controls = FakeVideo::called("kpSetControl");
    ASSERT_EQ(controls.size(), 8u);
    EXPECT_EQ(controls[0], "kpSetControl 64 = 1" + onSource);
    EXPECT_EQ(controls[1], "kpSetControl 1297481740 = 0" + onSource);

    FakeVideo::reset();
    kivVideoOut out;
    EXPECT_EQ(printed([&] { EXPECT_EQ(out.setup(monitor()), 0); }),
              "Setting: VIDEOIN_DEFAULT_PACKING \nSetting: VIDEOIN_DEFAULT_CAP_TYPE \n"
              "Setting: VIDEOIN_DEFAULT_FORMAT \nSetting: VIDEOIN_DEFAULT_LAYOUT \nSetting: VIDEOIN_DEFAULT_ZOOM \n");
    const std::string on = " on " + std::to_string(out.sourceNode);
    EXPECT_THAT(FakeVideo::called("kpSe"),
                ElementsAre("kpSetupPaths 1 2 2", "kpSelectEvents 2097151", "kpSetControl 7 = 22" + on,
                            "kpSetControl 6 = 1" + on, "kpSetControl 21 = 2" + on, "kpSetControl 67 = 0" + on,
                            "kpSetControl 44 = 1/1" + on));
}

TEST_F(kivVideoTest, NamesTheStepOfSetupThatFailed)
{
    const struct {
        const char* call;
        int in, out;
    } cases[] = {{"kpGetNode 1 1", 1001, 0}, {"kpGetNode 2 3", 1001, 0},   {"kpGetNode 1 3", 0, 1001},
                 {"kpGetNode 2 1", 0, 1001}, {"kpCreatePath", 1002, 1002}, {"kpSetupPaths 1 2 2", 1003, 1003},
                 {"kpSelectEvents", 0, 0},   {"kpSetControl 6", 0, 0},     {"kpSetControl 44", 1004, 0},
                 {"kpSetControl", 1004, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.call);
        kivVideoIn in;
        kivVideoOut out;
        const int camera = ::camera();
        const int monitor = ::monitor();
        FakeVideo::instance() = FakeVideo{.failing = c.call, .calls = {}, .devices = nullptr, .events = {}};
        EXPECT_EQ(in.setup(camera, 1), c.in);
        EXPECT_EQ(out.setup(monitor), c.out);
        const bool triesControls = c.in == 0 || c.in == 1004;
        EXPECT_EQ(FakeVideo::called("kpSetControl").size(), (triesControls ? 6u : 0u) + (c.out == 0 ? 5u : 0u));
        FakeVideo::reset();
    }
    kivVideoIn in;
    EXPECT_EQ(in.setup(monitor(), 1), 1001) << "the other direction";
    EXPECT_EQ(kivVideoOut().setup(camera()), 1001);
}

TEST_F(kivVideoTest, ReadsAndWritesControls)
{
    kivVideoIn in;
    ASSERT_EQ(in.setup(camera(), 1), 0);
    int x = 1, y = 2, size = 3;
    FakeVideo::instance().failing = "kpGetControl";
    EXPECT_EQ(in.getXYControl(in.path, in.drainNode, 4, &x, &y), 1004);
    EXPECT_EQ(x, 1);
    EXPECT_EQ(y, 2);
    EXPECT_EQ(in.setXYControl(in.path, in.drainNode, 4, 200, 100), 0);
    FakeVideo::reset();
    EXPECT_EQ(in.getXYControl(in.path, in.drainNode, 4, &x, &y), 0);
    EXPECT_EQ(x, 200);
    EXPECT_EQ(y, 100);
    EXPECT_EQ(in.getBufferBytes(&size), 0);
    EXPECT_EQ(size, 40000);
    FakeVideo::instance().failing = "kpGetTransferSize";
    EXPECT_EQ(in.getBufferBytes(&size), 1004);
    EXPECT_EQ(size, 40000);
    FakeVideo::instance().failing = "kpSetControl";
    EXPECT_EQ(in.setTiming(0) + in.setZoom(1, 1), 2008);
    EXPECT_EQ(in.setDefaultControls(), 1004);
}

TEST_F(kivVideoTest, AddsThePathsBuffersToTheLists)
{
    kivVideoIn in;
    ASSERT_EQ(in.setup(camera(), 1), 0);
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    ASSERT_EQ(in.addDstConstraints(params), 0);
    const int own = zvParamsGetInt(params, ZV_BUFFER_COUNT);
    EXPECT_GT(own, 0);
    zvParamsSetInt(params, ZV_BUFFER_COUNT, 3);
    ASSERT_EQ(in.addDstConstraints(params), 0);
    EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_COUNT), own + 3);
    FakeVideo::instance().failing = "kpZVPoolGetParams";
    EXPECT_THAT(printed([&] { EXPECT_EQ(in.addDstConstraints(params), 4); }),
                testing::MatchesRegex("kivVideo - Error description:[^\n]*\n   detail:[^\n]*\n"));
    EXPECT_EQ(zvParamsGetInt(params, ZV_BUFFER_COUNT), 0);
    zvParamsDestroy(params);
}

TEST_F(kivVideoTest, InitsItsPoolStepByStep)
{
    kivVideoIn in;
    ASSERT_EQ(in.setup(camera(), 1), 0);
    in.setXYControl(in.path, in.drainNode, 4, 64, 32);
    const std::string lines = printed([&] { EXPECT_EQ(in.init(nullptr), 0); });
    EXPECT_THAT(lines, StartsWith("SIZE: 64 x 32\nXfersize:4096\nparameters for video:\n"));
    EXPECT_THAT(FakeVideo::called("zvBufferSetPoolDefaults"), ElementsAre("zvBufferSetPoolDefaults 10 4096 0 0"));
    EXPECT_EQ(in.xfersize, 4096);
    EXPECT_EQ(in.imageSizeX + in.bufferSizeX, 128);
    EXPECT_EQ(in.imageSizeY + in.bufferSizeY, 64);
    EXPECT_EQ(zvParamsGetInt(in.poolParams, ZV_IMAGE_WIDTH), 64);
    EXPECT_EQ(zvParamsGetEnum(in.poolParams, ZV_IMAGE_PACKING), 1008);
    EXPECT_EQ(zvBufferGetPoolFree(in.bufferPool), 12);
    EXPECT_TRUE(in.isInitialized());

    const struct {
        const char* call;
        int id;
    } cases[] = {{"zvParamsCreate", 5},     {"zvBufferSetPoolDefaults", 5}, {"kpZVPoolGetParams", 4},
                 {"zvBufferCreatePool", 7}, {"kpZVPoolRegister", 1005},     {"kpGetControl", 0}};
    for (const auto& c : cases) {
        kivVideoIn other;
        ASSERT_EQ(other.setup(camera(), 1), 0);
        FakeVideo::instance().failing = c.call;
        EXPECT_EQ(other.init(nullptr), c.id) << c.call;
        EXPECT_EQ(other.isInitialized(), c.id == 0);
        FakeVideo::reset();
    }
    EXPECT_EQ(kivVideoIn().init(nullptr), 5) << "before setup there is no size";
}

TEST_F(kivVideoTest, IsInitialisedAgainWithAPoolOfItsOwn)
{
    kivVideoIn in;
    ASSERT_EQ(in.setup(camera(), 1), 0);
    ASSERT_EQ(in.init(nullptr), 0);
    const ZVbufferpool first = in.bufferPool;
    ASSERT_EQ(in.init(nullptr), 0);
    EXPECT_EQ(zvBufferGetPoolFree(first), -1);
    EXPECT_EQ(zvBufferGetPoolFree(in.bufferPool), 12);
    const ZVbufferpool second = in.bufferPool;
    ASSERT_EQ(in.start(1), 0);
    EXPECT_EQ(in.init(nullptr), 1005) << "a transfer runs on the pool";
    EXPECT_EQ(in.bufferPool, second);
    EXPECT_GE(zvBufferGetPoolFree(second), 0);
}

TEST_F(kivVideoTest, StartsOnce)
{
    kivVideoIn in;
    EXPECT_EQ(printed([&] { EXPECT_EQ(in.start(1), 1006); }), "\n\nFAILED TO START VIDEO TRANSFER\n");
    EXPECT_FALSE(in.isStarted());
    EXPECT_EQ(in.transferStarted, 0);
    ASSERT_EQ(in.setup(camera(), 1), 0);
    ASSERT_EQ(in.init(nullptr), 0);
    ASSERT_EQ(in.start(1), 0);
    FakeVideo::reset();
    EXPECT_EQ(in.start(1), 1007);
    EXPECT_THAT(FakeVideo::instance().calls, IsEmpty());
    in.stop();
    EXPECT_EQ(in.start(1), 1007) << "the transfer goes on";
    EXPECT_FALSE(in.isStarted());
}

TEST_F(kivVideoTest, GivesItsPathUpQuietly)
{
    {
        kivVideoIn in;
        const int camera = ::camera();
        FakeVideo::instance() = FakeVideo{.failing = "kpCreatePath", .calls = {}, .devices = nullptr, .events = {}};
        EXPECT_EQ(in.setup(camera, 1), 1002);
        EXPECT_EQ(in.path, -1);
        FakeVideo::reset();
    }
    EXPECT_THAT(FakeVideo::instance().calls,
                ElementsAre("kpSetupPaths 1 0 0", "kpEndTransfer", "kpDestroyPath", "kpCloseVideo"));
}

class kivVideoEvents : public kivVideoTest {
protected:
    void SetUp() override
    {
        kivVideoTest::SetUp();
        ASSERT_EQ(in.setup(camera(), 1), 0);
        ASSERT_EQ(out.setup(monitor()), 0);
        out.setXYControl(out.path, out.sourceNode, 4, 32, 32);
        ASSERT_EQ(out.init(nullptr), 0);
        in.addObject(&sink);
        FakeVideo::reset();
        FakeVideo::instance().ownEvents = true;
    }
    static void arrive(int reason, ZVbuffer buffer = nullptr)
    {
        FakeVideo::instance().events = {{reason, 0, 1, {0, 0}, buffer}};
    }
    int handleIn() { return in.handleEvents(setOf(in.getFD())); }
    int handleOut() { return out.handleEvents(setOf(out.getFD())); }
    ZVbuffer frame(int number)
    {
        ZVbuffer buffer = pool.takeOwned();
        zvBufferSetUSTMSCpair(buffer, {0, number});
        return buffer;
    }
    void receive(int number)
    {
        ZVbuffer buffer = frame(number);
        EXPECT_EQ(out.receive(buffer), 0);
        zvBufferFree(buffer);
    }

    PoolFixture pool{8, 2048};
    SinkNode sink;
    kivVideoIn in;
    kivVideoOut out;
};

TEST_F(kivVideoEvents, AnswerByReasonWhenCapturing)
{
    for (int reason = 0; reason <= 31; ++reason) {
        if (reason == KPTransferComplete)
            continue;
        arrive(reason);
        std::string line;
        if (reason < 2 || reason > 23) {
            char hex[40];
            snprintf(hex, sizeof hex, "Unknown event:%x", unsigned(reason));
            line = hex;
        }
        line = reason == 9 ? "event: KPSequenceLost:\n" : reason == 23 ? "event: KPTransferErr:\n" : line;
        EXPECT_EQ(printed([&] { EXPECT_EQ(handleIn(), reason == 16 ? 1013 : 1012) << reason; }), line);
    }
    EXPECT_TRUE(sink.frames.empty());
}

TEST_F(kivVideoEvents, HandTheFrameOnAndKeepNone)
{
    ZVbuffer captured = frame(42);
    arrive(KPTransferComplete, captured);
    EXPECT_EQ(handleIn(), 1011);
    ASSERT_EQ(sink.frames.size(), 1u);
    EXPECT_EQ(sink.frames[0].stamp.msc, 42);
    EXPECT_EQ(poolReferences(pool.pool), 1) << "the event's own";

    arrive(KPTransferComplete, captured);
    FakeVideo::instance().failing = "kpEventToZVBuffer";
    EXPECT_EQ(printed([&] { EXPECT_EQ(handleIn(), 1009); }), "Unable to convert video to zvbuffer\n");
    EXPECT_EQ(sink.frames.size(), 1u);
    zvBufferFree(captured);
}

TEST_F(kivVideoEvents, AreWaitedForOnlyWhileOneMayCome)
{
    arrive(KPSequenceLost);
    EXPECT_EQ(in.handleEvents(setOf(-1)), 9);
    EXPECT_EQ(FakeVideo::called("kpEventRecv").size(), 0u);
    FakeVideo::instance().notYet = 3;
    EXPECT_EQ(handleIn(), 1012);
    EXPECT_EQ(FakeVideo::called("kpEventRecv").size(), 4u);
    EXPECT_EQ(printed([&] { EXPECT_EQ(handleIn(), 1008); }), "VideoIn : couldn't get an event\n");
}

TEST_F(kivVideoEvents, AnswerByReasonWhenPlaying)
{
    const char* names[]
        = {"StreamBusy",     "StreamPreempted",     "AdvanceMissed",      "StreamAvailable",      "SyncLost",
           "StreamStarted",  "StreamStopped",       "SequenceLost",       "ControlChanged",       "",
           "TransferFailed", "EvenVerticalRetrace", "OddVerticalRetrace", "FrameVerticalRetrace", "DeviceEvent",
           "DefaultSource",  "ControlRangeChanged", "ControlPreempted",   "ControlAvailable",     "DefaultDrain",
           "StreamChanged",  "TransferErr"};
    for (int reason = 0; reason <= 26; ++reason) {
        std::string line = "videoOut::handleEvents\n";
        if (reason == KPTransferComplete)
            line += "ERROR - Got kp event before sending first frame\n";
        else if (reason >= 2 && reason <= 23)
            line += std::string("event: KP") + names[reason - 2] + ":\n";
        arrive(reason);
        EXPECT_EQ(printed([&] { EXPECT_EQ(handleOut(), 1008) << reason; }), line);
    }
    EXPECT_EQ(printed([&] { EXPECT_EQ(handleOut(), 1008); }),
              "videoOut::handleEvents\nVideoOut: couldn't get an event\n");
    EXPECT_EQ(printed([&] { EXPECT_EQ(out.handleEvents(setOf(-1)), 9); }), "videoOut::handleEvents\n");
}

TEST_F(kivVideoEvents, SendTheFirstFrameThenTheNewest)
{
    FakeVideo::instance().failing = "kpZVBufferSend";
    EXPECT_EQ(printed([&] { receive(1); }), "error sending frame\n");
    EXPECT_EQ(out.gotFirstFrame, 0);
    EXPECT_EQ(poolReferences(pool.pool), 0) << "not kept";
    FakeVideo::instance().failing = "";
    EXPECT_EQ(printed([&] { receive(2); }), "receive sent first frame\n");
    EXPECT_EQ(out.gotFirstFrame, 1);
    for (int number : {3, 4, 5})
        receive(number);
    EXPECT_EQ(poolReferences(pool.pool), 2) << "what plays and the newest";

    arrive(KPTransferComplete);
    EXPECT_EQ(printed([&] { EXPECT_EQ(handleOut(), 0); }),
              "videoOut::handleEvents\nVIDEOOUT event: TRANSFER COMPLETE:\n");
    EXPECT_EQ(out.newBuffer, nullptr);
    arrive(KPTransferComplete);
    EXPECT_EQ(handleOut(), 0) << "nothing newer: holds its frame";
    receive(6);
    FakeVideo::instance().failing = "kpZVBufferSend";
    arrive(KPTransferComplete);
    EXPECT_EQ(printed([&] { EXPECT_EQ(handleOut(), 0); }),
              "videoOut::handleEvents\nVIDEOOUT event: TRANSFER COMPLETE:\nerror sending frame\n");
    EXPECT_EQ(out.newBuffer, nullptr) << "freed all the same";
    EXPECT_THAT(FakeVideo::called("kpZVBufferSend"),
                ElementsAre("kpZVBufferSend 1", "kpZVBufferSend 2", "kpZVBufferSend 5", "kpZVBufferSend 6"));
    receive(7);  // freed with the node
}

TEST_F(kivVideoEvents, LockIsWiredBothWays)
{
    EXPECT_EQ(yqtestsema(out.newLock), 1);
    EXPECT_EQ(out.lockNewBuffer(), 0);
    EXPECT_EQ(yqtestsema(out.newLock), 0);
    EXPECT_EQ(out.unlockNewBuffer(), 0);
    EXPECT_EQ(out.lockCurrentBuffer(), 0);
    EXPECT_EQ(yqtestsema(out.newLock), 2);
    EXPECT_EQ(out.unlockCurrentBuffer(), 0);
    EXPECT_EQ(yqtestsema(out.newLock), 1);
}

}  // namespace
