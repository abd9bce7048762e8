// monitorTest.cpp - what is played out: held, newest first, one waiting, recorded.
#include <cstring>
#include <fstream>

#include "tests/platform/kp/videoRig.h"
#include "tests/support/clips.h"

namespace {

constexpr int width = 64, height = 48, frameBytes = width * height * 2;

class kpMonitor : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(rig.path, -1); }
    // A picture that is one number all over.
    ZVbuffer picture(int number)
    {
        ZVbuffer buffer = pool.takeOwned();
        memset(zvBufferMapData(buffer), number, frameBytes);
        return buffer;
    }
    void send(int number)
    {
        ZVbuffer buffer = picture(number);
        EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, buffer), 0);
        zvBufferFree(buffer);
    }

    // Until what was sent last is shown: one report may wait from before, and one
    // be on its way.
    void waitShown()
    {
        for (int i = 0; i < 3; ++i)
            rig.next(KPTransferComplete);
    }

    PoolFixture pool{8, frameBytes};
    Rig rig{"monitor", width, height, 250};
};

TEST_F(kpMonitor, HoldsTheLastPictureAndGoesOnTelling)
{
    ASSERT_EQ(rig.begin(), 0);
    const int fd = rig.fd();
    send(1);
    long long last = -1;
    for (int i = 0; i < 10; ++i) {
        const KPEvent event = rig.next();
        if (event.reason != KPTransferComplete) {
            EXPECT_EQ(event.reason, KPSequenceLost) << "of a period, when the machine is busy";
            continue;
        }
        EXPECT_GT(event.stamp.msc, last) << "one of each period";
        EXPECT_EQ(event.buffer, nullptr);
        last = event.stamp.msc;
        EXPECT_EQ(poolReferences(pool.pool), 1) << "the picture it shows";
    }
    send(2);
    EXPECT_LE(poolReferences(pool.pool), 2);
    waitShown();
    EXPECT_EQ(poolReferences(pool.pool), 1) << "the next took its place";
    EXPECT_EQ(rig.end(), 0);
    EXPECT_EQ(poolReferences(pool.pool), 0);
    EXPECT_FALSE(readableNow(fd));
}

TEST_F(kpMonitor, QueuesOneAndPlaysTheNewest)
{
    const std::string record = scratchFolder() + "/last.uyvy";
    ASSERT_EQ(rig.text(KP_TEXT_RECORD, record), 0);
    for (int i = 1; i <= 7; ++i) {
        send(i);
        EXPECT_EQ(poolReferences(pool.pool), 1) << "nothing queued beyond one";
    }
    ASSERT_EQ(rig.begin(), 0);
    rig.next(KPTransferComplete);
    EXPECT_EQ(readFile(record), std::string(frameBytes, char(7)));
}

TEST_F(kpMonitor, TellsNothingBeforeTheFirstPicture)
{
    ASSERT_EQ(rig.begin(), 0);
    pollfd waiting = {rig.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 20), 0) << "five periods";
    KPEvent event = {};
    EXPECT_EQ(kpEventRecv(rig.server, rig.path, &event), -1);
    EXPECT_EQ(kpGetErrno(), KP_ERRNO_NO_EVENT);
}

TEST_F(kpMonitor, JoinsEventsThatNobodyTakes)
{
    ASSERT_EQ(rig.begin(), 0);
    send(1);
    const KPEvent first = rig.next(KPTransferComplete);
    unsigned long long start = 0;
    unsigned long long now = 0;
    zvGetUST(&start);
    do
        zvGetUST(&now);
    while (now - start < 40000000);  // ten periods
    KPEvent event = rig.next(KPTransferComplete);
    EXPECT_GT(event.stamp.msc, first.stamp.msc + 1);
    EXPECT_GT(event.count, 1);
    EXPECT_EQ(rig.end(), 0);
    EXPECT_FALSE(readableNow(rig.fd()));
}

TEST_F(kpMonitor, RefusesWhatIsNoPictureOfItsSize)
{
    PoolFixture small(1, 64);
    EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, small.take()), -1);
    EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, nullptr), -1);
    send(1);
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, 128, 96), 0);
    const std::string record = scratchFolder() + "/grown.uyvy";
    ASSERT_EQ(rig.text(KP_TEXT_RECORD, record), 0);
    ASSERT_EQ(rig.begin(), 0);
    EXPECT_EQ(poolReferences(pool.pool), 0) << "it waited with the old size";
    EXPECT_EQ(rig.set(KP_CONTROL_SIZE, 64, 48), -1) << "not while it runs";
    EXPECT_EQ(rig.end(), 0);
    ASSERT_EQ(rig.text(KP_TEXT_RECORD, "/no/such/folder/x.y4m"), 0);
    EXPECT_EQ(rig.begin(), -1);
}

// Each picture is shown, and so written, before the next is sent.
TEST_F(kpMonitor, RecordsWhatFfmpegReads)
{
    const std::string record = scratchFolder() + "/shown.y4m";
    ASSERT_EQ(rig.text(KP_TEXT_RECORD, record), 0);
    ASSERT_EQ(rig.begin(), 0);
    std::string sent;
    for (int i = 0; i < 12; ++i) {
        ZVbuffer buffer = pool.takeOwned();
        auto* bytes = static_cast<unsigned char*>(zvBufferMapData(buffer));
        for (int b = 0; b < frameBytes; ++b)
            bytes[b] = (unsigned char)(16 + (b * 7 + b / 128 * 3 + i * 31) % 220);
        sent.append(reinterpret_cast<char*>(bytes), frameBytes);
        EXPECT_EQ(kpZVBufferSend(rig.server, rig.path, buffer), 0);
        zvBufferFree(buffer);
        waitShown();
    }
    EXPECT_EQ(rig.end(), 0);
    const std::string raw = scratchFolder() + "/shown.uyvy";
    EXPECT_EQ(runCommand("ffmpeg -v error -y -i " + record + " -f rawvideo -pix_fmt uyvy422 " + raw), "");
    EXPECT_EQ(readFile(raw), sent);
}

}  // namespace
