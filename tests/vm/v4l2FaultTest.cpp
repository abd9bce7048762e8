// v4l2FaultTest.cpp - what a real driver can do wrong, and that it can be used again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"
#include "tests/vm/driver.h"

namespace {

class V4l2Fault : public testing::Test {
protected:
    void SetUp() override { hand = {}; }
    void TearDown() override { hand = {}; }

    static std::unique_ptr<TestPath> camera()
    {
        auto path = std::make_unique<TestPath>("Webcam", false);
        EXPECT_TRUE(path->taken()) << lastWords();
        EXPECT_EQ(path->setSize(320, 180), 0) << lastWords();
        return path;
    }
    static std::unique_ptr<TestPath> runningCamera()
    {
        auto path = camera();
        path->makePool();
        EXPECT_EQ(path->begin(), 0) << lastWords();
        EXPECT_TRUE(path->captureInARow(3, 100));
        return path;
    }
    static void expectWorks() { runningCamera(); }
};

bool writeTo(const char* file, const char* text)
{
    const int fd = open(file, O_WRONLY | O_CLOEXEC);
    const bool done = fd >= 0 && write(fd, text, strlen(text)) == ssize_t(strlen(text));
    close(fd);
    return done;
}

}  // namespace

TEST_F(V4l2Fault, LostPicturesAreCountedAndToldAbout)
{
    auto path = runningCamera();
    path->lost = 0;
    const int64_t before = path->stamps.back().msc;
    setDriver(captureFile, "Percentage of Dropped Buffers", 50);
    int delivered = 0;
    int64_t last = before;
    for (; delivered < 20; ++delivered) {
        ZVbuffer buffer = path->frame();
        ASSERT_NE(buffer, nullptr);
        last = zvBufferGetUSTMSCpair(buffer).msc;
        zvBufferFree(buffer);
    }
    setDriver(captureFile, "Percentage of Dropped Buffers", 0);
    EXPECT_GT(path->lost, 3);
    EXPECT_GE(path->lost, last - before - delivered);  // one that came unread may be counted already
    EXPECT_TRUE(path->captureInARow(5, 100));
}

TEST_F(V4l2Fault, AStreamThatStallsIsToldOnceAndGoesOn)
{
    auto path = runningCamera();
    setDriver(captureFile, "Percentage of Dropped Buffers", 100);
    EXPECT_EQ(path->until(KPSyncLost).reason, KPSyncLost);
    EXPECT_EQ(path->until(KPSyncLost, 500).reason, 0);
    setDriver(captureFile, "Percentage of Dropped Buffers", 0);
    EXPECT_TRUE(path->captureInARow(5, 100));
    EXPECT_EQ(path->get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_USERPTR);
}

TEST_F(V4l2Fault, ErrorsWhileItRunsAreToldAndSurvived)
{
    for (const char* fault :
         {"Inject V4L2_BUF_FLAG_ERROR", "Inject VIDIOC_QBUF Error", "Inject Fatal Streaming Error"}) {
        SCOPED_TRACE(fault);
        auto path = runningCamera();
        path->errors = 0;
        const int64_t before = path->stamps.back().msc;
        setDriver(captureFile, fault, 1);
        EXPECT_EQ(path->until(KPTransferError).reason, KPTransferError);
        EXPECT_TRUE(path->captureInARow(5, 100));
        EXPECT_GT(path->stamps.front().msc, before);
        path.reset();
        expectWorks();
    }
}

TEST_F(V4l2Fault, ErrorsAtTheStartFailItAndTheNextOneWorks)
{
    for (const char* fault :
         {"Inject VIDIOC_REQBUFS Error", "Inject VIDIOC_QBUF Error", "Inject VIDIOC_STREAMON Error"}) {
        SCOPED_TRACE(fault);
        auto path = camera();
        path->makePool();
        setDriver(captureFile, fault, 1);
        EXPECT_NE(path->begin(), 0);
        EXPECT_NE(lastWords().find("vivid"), std::string::npos) << lastWords();
        EXPECT_EQ(path->begin(), 0) << lastWords();
        EXPECT_TRUE(path->captureInARow(3, 100));
    }
    // What a driver does not take with the pool is done another way.
    setDriver(captureFile, "Inject VIDIOC_QBUF Error", 1);
    auto path = runningCamera();
    EXPECT_EQ(path->get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_DMABUF);
}

TEST_F(V4l2Fault, ADeviceInUseIsBusy)
{
    {
        auto path = camera();
        TestPath second("TV", false);  // another jack of the same device
        EXPECT_FALSE(second.taken());
        EXPECT_NE(lastWords().find("busy"), std::string::npos) << lastWords();
    }
    const int other = open(captureFile, O_RDWR | O_CLOEXEC);
    v4l2_requestbuffers request = {};
    request.count = 1;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(ioctl(other, VIDIOC_REQBUFS, &request), 0);
    {
        TestPath path("Webcam", false);
        EXPECT_FALSE(path.taken());
        EXPECT_NE(lastWords().find("busy"), std::string::npos) << lastWords();
    }
    close(other);
    expectWorks();
}

TEST_F(V4l2Fault, AnOutputSurvivesWhatItsDriverInjects)
{
    constexpr int bytes = 720 * 576 * 2;
    for (const char* fault :
         {"Inject VIDIOC_STREAMON Error", "Inject VIDIOC_QBUF Error", "Inject Fatal Streaming Error"}) {
        SCOPED_TRACE(fault);
        PoolFixture pictures(4, bytes);
        TestPath out("S-Video", true);
        ASSERT_EQ(out.set(KP_CONTROL_TIMING, 2), 0) << lastWords();
        ASSERT_EQ(out.setSize(720, 576), 0) << lastWords();
        ASSERT_EQ(out.begin(), 0) << lastWords();
        const bool running = std::string(fault) == "Inject Fatal Streaming Error";
        if (!running)
            setDriver(outputFile, fault, 1);
        ZVbuffer sent = pictures.takeOwned();
        EXPECT_EQ(out.send(sent), 0) << lastWords();
        if (running) {
            EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
            setDriver(outputFile, fault, 1);
            EXPECT_EQ(out.send(sent), 0) << lastWords();
        }
        zvBufferFree(sent);
        const bool copiedInstead = std::string(fault) == "Inject VIDIOC_QBUF Error";
        EXPECT_TRUE(copiedInstead || out.until(KPTransferError).reason == KPTransferError);
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
    }
}

TEST_F(V4l2Fault, AJackWithoutASignalIsTakenAllTheSame)
{
    const struct {
        const char *jack, *control;
        int mode;
    } faults[] = {{"HDMI", "DV Timings Signal Mode", 1},
                  {"HDMI", "DV Timings Signal Mode", 3},
                  {"TV", "Standard Signal Mode", 1},
                  {"TV", "Standard Signal Mode", 2}};
    for (const auto& fault : faults) {
        SCOPED_TRACE(testing::Message() << fault.control << " " << fault.mode);
        setDriver(captureFile, fault.control, fault.mode);
        TestPath path(fault.jack, false);
        setDriver(captureFile, fault.control, 0);
        ASSERT_TRUE(path.taken()) << lastWords();
        path.makePool();
        ASSERT_EQ(path.begin(), 0) << lastWords();
        setDriver(captureFile, fault.control, fault.mode);
        EXPECT_TRUE(path.captureInARow(3, 100));
        setDriver(captureFile, fault.control, 0);
    }
}

TEST_F(V4l2Fault, CountersOfTheDriverMayWrap)
{
    setDriver(captureFile, "Wrap Sequence Number", 1);  // after 128 pictures
    setDriver(captureFile, "Wrap Timestamp", 1);
    auto path = camera();
    ASSERT_EQ(path->setRate(50, 1), 0) << lastWords();
    path->makePool();
    ASSERT_EQ(path->begin(), 0) << lastWords();
    for (int64_t last = -1; last < 150;) {
        ZVbuffer buffer = path->frame();
        ASSERT_NE(buffer, nullptr);
        const int64_t msc = zvBufferGetUSTMSCpair(buffer).msc;
        zvBufferFree(buffer);
        EXPECT_GT(msc, last);
        EXPECT_LT(msc, last + 100) << "a wrap is no loss";
        last = msc;
    }
    setDriver(captureFile, "Wrap Sequence Number", 0);
    setDriver(captureFile, "Wrap Timestamp", 0);
}

TEST_F(V4l2Fault, ADriverThatOnlyFailsIsGivenUp)
{
    auto path = runningCamera();
    hand.failure = EIO;
    hand.failingRequest = VIDIOC_QBUF;
    hand.failing = 1 << 30;
    setDriver(captureFile, "Inject Fatal Streaming Error", 1);
    EXPECT_EQ(path->until(KPDeviceEvent, 10000).reason, KPDeviceEvent);
    hand.failing = 0;
    EXPECT_NE(path->begin(), 0);
    path.reset();
    expectWorks();
}

// Last: the devices come back new. One that the driver only says is disconnected does
// so when nobody has it open any more, others when their driver finds them again.
TEST_F(V4l2Fault, UnpluggedIsToldOnceAndPluggedInWorksAgain)
{
    constexpr int bytes = 720 * 576 * 2;
    const char* const driver = "/sys/bus/platform/drivers/vivid";
    for (const bool disconnected : {true, true, false, false}) {
        SCOPED_TRACE(disconnected ? "disconnected" : "unbound");
        {
            PoolFixture pictures(4, bytes);
            auto in = runningCamera();
            TestPath out("S-Video", true);
            ASSERT_EQ(out.set(KP_CONTROL_TIMING, 2), 0) << lastWords();
            ASSERT_EQ(out.setSize(720, 576), 0) << lastWords();
            ASSERT_EQ(out.begin(), 0) << lastWords();
            ZVbuffer sent = pictures.takeOwned();
            EXPECT_EQ(out.send(sent), 0);
            zvBufferFree(sent);
            EXPECT_EQ(out.until(KPTransferComplete).reason, KPTransferComplete);
            if (disconnected) {
                setDriver(captureFile, "Disconnect", 1);
            } else {
                ASSERT_TRUE(writeTo((std::string(driver) + "/unbind").c_str(), "vivid.0"));
            }
            for (TestPath* path : {in.get(), &out}) {
                EXPECT_EQ(path->until(KPDeviceEvent).reason, KPDeviceEvent);
                EXPECT_EQ(path->until(KPDeviceEvent, 300).reason, 0);
                EXPECT_NE(kpGetErrno(), KP_ERRNO_NO_EVENT);
                EXPECT_EQ(path->end(), 0);
                EXPECT_NE(path->begin(), 0);
                EXPECT_NE(lastWords().find("gone"), std::string::npos) << lastWords();
            }
            TestPath absent("Webcam", false);
            EXPECT_FALSE(absent.taken());
        }
        if (!disconnected) {
            ASSERT_TRUE(writeTo((std::string(driver) + "/bind").c_str(), "vivid.0"));
        }
        ASSERT_TRUE(eventually([] { return access(captureFile, R_OK) == 0 && access(outputFile, R_OK) == 0; }));
        expectWorks();
    }
}
