// v4l2CaptureTest.cpp - capture from a real driver.
//
// The driver keeps real time on a machine that may be busy: pictures that it could not
// make are gaps in its own counter. "Without loss" is therefore a row of pictures.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "convert/kivICjdecoder.h"
#include "convert/kivICjencoder.h"
#include "network/kivNetworkRecv.h"
#include "network/kivNetworkSend.h"
#include "platform/wisp/wispSocket.h"
#include "tests/support/jpegReference.h"
#include "tests/support/recordingSink.h"
#include "tests/vm/driver.h"
#include "video/kivVideoIn.h"

namespace {

class V4l2Capture : public testing::Test {
protected:
    void SetUp() override
    {
        hand = {};
        setTrace(0);
    }
    void TearDown() override
    {
        setTrace(1);
        hand = {};
    }
};

using Picture = std::vector<uint8_t>;

// The still test picture of the driver, without its clock, as captured in some way.
Picture stillPicture(int memoryMode)
{
    setDriver(captureFile, "OSD Text Mode", 2);
    TestPath path("Webcam", false);
    EXPECT_EQ(path.setSize(640, 360), 0) << lastWords();
    path.makePool();
    EXPECT_EQ(path.begin(), 0) << lastWords();
    EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, memoryMode);
    const Picture picture = path.picture();
    setDriver(captureFile, "OSD Text Mode", 0);
    return picture;
}

// Share of bytes that differ by more than `most`.
double different(const Picture& a, const Picture& b, int most)
{
    if (a.size() != b.size() || a.empty())
        return 1;
    size_t n = 0;
    for (size_t i = 0; i < a.size(); ++i)
        n += std::abs(a[i] - b[i]) > most;
    return double(n) / double(a.size());
}

}  // namespace

TEST_F(V4l2Capture, NamesItsJacks)
{
    const KPServer server = kpOpenVideo("");
    KPDevList list = {};
    ASSERT_EQ(kpGetDeviceList(server, &list), 0);
    std::string names;
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n) {
            const KPNodeDesc& node = list.devices[d].nodes[n];
            names += std::string(node.name) + "\n";
            EXPECT_TRUE(strncmp(node.name, "vivid", 5) != 0 || kpGetNodeMode(server, node.id, 0) != nullptr)
                << node.name;
        }
    for (const char* name : {"vivid Webcam 0 in\n", "vivid TV 0 in\n", "vivid S-Video 0 in\n", "vivid HDMI 0 in\n",
                             "vivid S-Video 0 out\n", "vivid HDMI 0 out\n"})
        EXPECT_NE(names.find(name), std::string::npos) << name << "in\n" << names;
    EXPECT_LT(names.find("vivid HDMI 0 out"), names.find("vivid Webcam 0 in"));
    kpCloseVideo(server);
}

TEST_F(V4l2Capture, FillsThePoolsBuffersWithoutACopy)
{
    struct {
        const char* jack;
        int width, height, rate;
    } const modes[] = {{"Webcam", 640, 480, 25}, {"HDMI", 1920, 1080, 25}};
    for (const auto& mode : modes) {
        SCOPED_TRACE(mode.jack);
        hand = {};
        TestPath path(mode.jack, false);
        ASSERT_TRUE(path.taken()) << lastWords();
        ASSERT_EQ(path.setSize(mode.width, mode.height), 0) << lastWords();
        ASSERT_EQ(path.setRate(mode.rate, 1), 0) << lastWords();
        EXPECT_EQ(path.bytes(), mode.width * mode.height * 2);
        EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_NONE);
        path.makePool();
        ASSERT_EQ(path.begin(), 0) << lastWords();
        EXPECT_NE(path.setSize(320, 180), 0);  // not while a pool is registered
        // On a busy machine the driver itself misses large pictures; what counts there is
        // that it gets each buffer back before the next one is taken.
        const bool inARow = path.captureInARow(10, 300);
        EXPECT_TRUE(inARow || mode.height > 480) << path.lost << " lost";
        EXPECT_EQ(hand.starved, 0);
        ASSERT_GE(hand.fields.size(), 10u);
        if (inARow) {
            const double period
                = double(path.stamps.back().ust - path.stamps.front().ust) / 1e6 / double(path.stamps.size() - 1);
            EXPECT_NEAR(period, 1000.0 / mode.rate, 300.0 / mode.rate);
        }
        EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_USERPTR);
        EXPECT_EQ(path.end(), 0);
        EXPECT_GE(hand.queuedUserPointers, 10);
        EXPECT_EQ(hand.queuedMapped, 0);
        printf("%s: %lld pictures lost by the driver\n", mode.jack, path.lost);
    }
}

TEST_F(V4l2Capture, CopiesOrConvertsOnceWhereItMust)
{
    const Picture direct = stillPicture(KP_MEMORY_USERPTR);
    hand = {};
    hand.refuseUserPointers = true;
    EXPECT_EQ(different(direct, stillPicture(KP_MEMORY_DMABUF), 0), 0);
    hand.refuseExport = true;
    EXPECT_EQ(different(direct, stillPicture(KP_MEMORY_MMAP), 0), 0);
    EXPECT_GT(hand.queuedMapped, 0);
    EXPECT_EQ(hand.queuedUserPointers, 0);
    hand.refusedFormats = {V4L2_PIX_FMT_UYVY};
    EXPECT_EQ(different(direct, stillPicture(KP_MEMORY_CONVERT), 0), 0);
    hand.refusedFormats.push_back(V4L2_PIX_FMT_YUYV);
    EXPECT_LT(different(direct, stillPicture(KP_MEMORY_CONVERT), 2), 0.01);
    hand.refusedFormats.push_back(V4L2_PIX_FMT_NV12);
    EXPECT_LT(different(direct, stillPicture(KP_MEMORY_CONVERT), 2), 0.01);
    hand.refusedFormats.push_back(V4L2_PIX_FMT_YUV420);
    TestPath path("Webcam", false);
    EXPECT_FALSE(path.taken());
    EXPECT_NE(lastWords().find("4:2:2"), std::string::npos) << lastWords();
}

Picture greyPicture(int luma)
{
    Picture picture(320 * 180 * 2, uint8_t(luma));
    for (size_t i = 0; i < picture.size(); i += 2)
        picture[i] = 128;
    return picture;
}

Bytes greyJpeg(int luma, int height = 180)
{
    return makeJpeg({320, height, 3, Bytes(size_t(320 * height * 3), uint8_t(luma))}, {});
}

Bytes twice(Bytes jpeg)
{
    const Bytes once = jpeg;
    jpeg.insert(jpeg.end(), once.begin(), once.end());
    return jpeg;
}

// The driver has no JPEG; what it would fill in comes from here.
TEST_F(V4l2Capture, DecodesJpegAndTellsOfWhatIsNone)
{
    hand.refusedFormats = {V4L2_PIX_FMT_UYVY, V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUV420};
    Bytes cut = greyJpeg(90), noHeader = greyJpeg(90);
    cut.resize(cut.size() / 2);
    noHeader[0] = 0;
    hand.jpegs = {greyJpeg(60)};
    TestPath path("Webcam", false);
    ASSERT_TRUE(path.taken()) << lastWords();
    ASSERT_EQ(path.setSize(320, 180), 0) << lastWords();
    ASSERT_EQ(path.setRate(25, 1), 0) << lastWords();
    path.makePool();
    EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_CONVERT);
    for (const Bytes& bad : {cut, noHeader, twice(greyJpeg(90, 90)), twice(greyJpeg(90))}) {
        hand.jpegs = {greyJpeg(60), bad, greyJpeg(200)};
        ASSERT_EQ(path.begin(), 0) << lastWords();
        path.errors = 0;
        for (int i = 0; i < 6 || path.errors < 2; ++i) {
            ASSERT_LT(i, 100) << "a damaged picture was not told";
            ZVbuffer buffer = path.frame();
            ASSERT_NE(buffer, nullptr);
            const auto* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
            const Picture picture(data, data + zvBufferGetSize(buffer));
            EXPECT_TRUE(different(picture, greyPicture(60), 3) == 0 || different(picture, greyPicture(200), 3) == 0)
                << "a picture of " << int(picture[1]);
            zvBufferFree(buffer);
        }
        ASSERT_EQ(path.end(), 0);
    }
}

TEST_F(V4l2Capture, TakesTheFormatThatHasTheRate)
{
    hand.jpegs = {greyJpeg(60)};
    hand.rateNeedsJpeg = true;
    TestPath path("Webcam", false);
    ASSERT_EQ(path.setSize(320, 180), 0) << lastWords();
    ASSERT_EQ(path.setRate(path.rate() == "50/1" ? 25 : 50, 1), 0) << lastWords();
    EXPECT_EQ(path.size(), "320x180");
    EXPECT_NE(path.setRate(500, 1), 0);
    path.makePool();
    EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, KP_MEMORY_CONVERT);
    ASSERT_EQ(path.begin(), 0) << lastWords();
    EXPECT_EQ(different(path.picture(), greyPicture(60), 3), 0);
}

TEST_F(V4l2Capture, GivesFieldsInEveryWayThatTheDriverKnows)
{
    const uint32_t fields[]
        = {V4L2_FIELD_ALTERNATE,     V4L2_FIELD_INTERLACED,    V4L2_FIELD_TOP,    V4L2_FIELD_BOTTOM,
           V4L2_FIELD_INTERLACED_TB, V4L2_FIELD_INTERLACED_BT, V4L2_FIELD_SEQ_TB, V4L2_FIELD_SEQ_BT};
    for (const int lines : {576, 480}) {
        for (int type = 0; type < 8; ++type) {
            SCOPED_TRACE(testing::Message() << lines << " lines, capture type " << type);
            hand = {};
            TestPath path("TV", false);
            ASSERT_TRUE(path.taken()) << lastWords();
            ASSERT_EQ(path.setSize(720, lines), 0) << lastWords();
            ASSERT_EQ(path.set(KP_CONTROL_CAPTURE_TYPE, type), 0) << lastWords();
            EXPECT_EQ(path.get(KP_CONTROL_CAPTURE_TYPE).intVal, type);
            const bool halves = type == 0 || type == 2 || type == 3;
            EXPECT_EQ(path.size(), "720x" + std::to_string(halves ? lines / 2 : lines));
            const std::string frames = lines == 576 ? "25/1" : "30000/1001";
            EXPECT_EQ(path.rate(), type != 0 ? frames : lines == 576 ? "50/1" : "60000/1001");
            path.makePool();
            ASSERT_EQ(path.begin(), 0) << lastWords();
            EXPECT_TRUE(path.captureInARow(6, 100));
            path.end();
            ASSERT_GE(hand.fields.size(), 6u);
            if (type != 0) {
                EXPECT_EQ(hand.fields.back(), fields[type]);
                continue;
            }
            EXPECT_NE(std::count(hand.fields.begin(), hand.fields.end(), uint32_t(V4L2_FIELD_TOP)), 0);
            EXPECT_NE(std::count(hand.fields.begin(), hand.fields.end(), uint32_t(V4L2_FIELD_BOTTOM)), 0);
        }
    }
    TestPath path("HDMI", false);
    ASSERT_EQ(path.setSize(1920, 1080), 0) << lastWords();
    ASSERT_EQ(path.setRate(25, 1), 0) << lastWords();
    ASSERT_EQ(path.set(KP_CONTROL_CAPTURE_TYPE, 0), 0) << lastWords();
    EXPECT_EQ(path.size(), "1920x540");
    EXPECT_EQ(path.rate(), "50/1");
    path.makePool();
    ASSERT_EQ(path.begin(), 0) << lastWords();
    EXPECT_TRUE(path.captureInARow(6, 200));
}

TEST_F(V4l2Capture, AnswersControlsWithWhatTheDriverDoes)
{
    {
        TestPath webcam("Webcam", false);
        ASSERT_EQ(webcam.setSize(640, 480), 0) << lastWords();
        EXPECT_NE(webcam.setSize(1000, 1000), 0);
        EXPECT_NE(lastWords().find("1000 x 1000"), std::string::npos) << lastWords();
        EXPECT_EQ(webcam.size(), "640x480");
        ASSERT_EQ(webcam.setRate(15, 1), 0) << lastWords();
        EXPECT_NE(webcam.setRate(500, 1), 0);
        EXPECT_EQ(webcam.rate(), "15/1");
        EXPECT_EQ(webcam.setZoom(1, 1), 0);
        EXPECT_NE(webcam.setZoom(2, 1), 0);
        EXPECT_NE(webcam.set(KP_CONTROL_PACKING, 21), 0);
        EXPECT_NE(webcam.set(KP_CONTROL_TIMING, 1), 0);
        EXPECT_NE(webcam.set(KP_CONTROL_CAPTURE_TYPE, 0), 0);
        EXPECT_NE(webcam.set(4711, 0), 0);
        EXPECT_EQ(webcam.set(KP_CONTROL_CLASS4, 1), 0);
        EXPECT_EQ(webcam.size(), "640x480");
    }
    TestPath tv("TV", false);
    ASSERT_EQ(tv.set(KP_CONTROL_TIMING, 2), 0) << lastWords();
    ASSERT_EQ(tv.setSize(720, 576), 0) << lastWords();
    EXPECT_EQ(tv.setZoom(2, 1), 0) << lastWords();
    const auto zoom = tv.get(KP_CONTROL_ZOOM).fractVal;
    EXPECT_EQ(zoom.numerator, zoom.denominator * 2);
    EXPECT_EQ(tv.size(), "720x576");
    EXPECT_EQ(tv.setZoom(1, 1), 0) << lastWords();
    EXPECT_EQ(tv.get(KP_CONTROL_ZOOM).fractVal.numerator, tv.get(KP_CONTROL_ZOOM).fractVal.denominator);
}

TEST_F(V4l2Capture, DropsWhenThePoolIsEmptyAndGoesOn)
{
    for (const int mode : {KP_MEMORY_USERPTR, KP_MEMORY_DMABUF, KP_MEMORY_MMAP}) {
        SCOPED_TRACE(mode);
        hand.refuseUserPointers = mode != KP_MEMORY_USERPTR;
        hand.refuseExport = mode == KP_MEMORY_MMAP;
        TestPath path("Webcam", false);
        ASSERT_EQ(path.setSize(320, 180), 0) << lastWords();
        ASSERT_EQ(path.setRate(25, 1), 0) << lastWords();
        path.makePool(0);
        EXPECT_EQ(path.get(KP_CONTROL_MEMORY_MODE).intVal, mode);
        ASSERT_EQ(path.begin(), 0) << lastWords();
        std::vector<ZVbuffer> kept;
        ZVbuffer next = nullptr;
        while ((next = path.frame(500)) != nullptr)
            kept.push_back(next);
        EXPECT_EQ(zvBufferGetPoolFree(path.pool), 0);
        const int64_t last = zvBufferGetUSTMSCpair(kept.back()).msc;
        for (ZVbuffer buffer : kept)
            zvBufferFree(buffer);
        next = path.frame();
        ASSERT_NE(next, nullptr);
        EXPECT_GT(zvBufferGetUSTMSCpair(next).msc, last + 5);
        EXPECT_GT(path.lost, 5);
        zvBufferFree(next);
        EXPECT_TRUE(path.captureInARow(5, 100));
    }
}

TEST_F(V4l2Capture, FeedsAGraphOverTheNetworkAndBack)
{
    constexpr int width = 320, height = 180;
    setDriver(captureFile, "OSD Text Mode", 2);
    const auto listener = wispListener::open("tcp://localhost:0");
    ASSERT_NE(listener, nullptr);
    const auto out = wispSocket::connect(listener->url());
    pollfd waits = {listener->getFD(), POLLIN, 0};
    ASSERT_EQ(poll(&waits, 1, 10000), 1);
    const auto in = listener->accept();

    RecordingSink shown, sent;
    kivICjdecoder decoder(width, height);
    kivNetworkRecv receiver(width, height);
    kivNetworkSend sender;
    kivICjencoder encoder(width, height);
    kivVideoIn camera;
    ASSERT_EQ(camera.setup(kivVideo::getTypeByName("Webcam"), KP_KIND_VIDEO), kivErrNone);
    ASSERT_EQ(camera.setXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, width, height), kivErrNone);
    ASSERT_EQ(encoder.setup(), kivErrNone);
    ASSERT_EQ(decoder.setup(), kivErrNone);
    sender.setWispData(out.get());
    receiver.setWispData(in.get());
    camera.addObject(&sent);
    camera.addObject(&encoder);
    encoder.addObject(&sender);
    receiver.addObject(&decoder);
    decoder.addObject(&shown);
    ASSERT_EQ(receiver.init(nullptr), kivErrNone);
    ASSERT_EQ(camera.init(nullptr), kivErrNone);
    ASSERT_EQ(receiver.start(1), kivErrNone);
    ASSERT_EQ(camera.start(1), kivErrNone);

    kivObj* const nodes[] = {&camera, &encoder, &receiver, &decoder};
    while (shown.received < 20) {
        fd_set set;
        FD_ZERO(&set);
        int maxFD = -1;
        for (kivObj* node : nodes)
            node->setFD(&set, &maxFD, 0);
        timeval limit = {10, 0};
        ASSERT_GT(select(maxFD + 1, &set, nullptr, nullptr, &limit), 0) << shown.received << " frames";
        for (kivObj* node : nodes)
            node->handleEvents(set);
    }
    camera.stop();
    receiver.stop();
    receiver.endReader();
    setDriver(captureFile, "OSD Text Mode", 0);
    const Picture before(sent.frames[0].begin(), sent.frames[0].end());
    const Picture after(shown.frames[0].begin(), shown.frames[0].end());
    EXPECT_LT(different(before, after, 24), 0.02);
    for (size_t i = 1; i < shown.stamps.size(); ++i)
        EXPECT_GT(shown.stamps[i].msc, shown.stamps[i - 1].msc);
}
