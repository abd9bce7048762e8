// Both network nodes over real sockets, and a movie on its whole road.
#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>

#include "movie/kivMovieInCompressed.h"
#include "network/kivNetworkRecv.h"
#include "network/kivNetworkSend.h"
#include "platform/wisp/wispSocket.h"
#include "tests/support/capture.h"
#include "tests/support/clips.h"
#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"

namespace {

// Two ends of one connection.
struct Wire {
    explicit Wire(const std::string& url)
    {
        const auto listener = wispListener::open(url.c_str());
        EXPECT_NE(listener, nullptr);
        out = wispSocket::connect(listener->url());
        EXPECT_NE(out, nullptr);
        pollfd waits = {listener->getFD(), POLLIN, 0};
        EXPECT_EQ(poll(&waits, 1, 10000), 1);
        in = listener->accept();
        EXPECT_NE(in, nullptr);
    }
    std::unique_ptr<wispSocket> out, in;
};

constexpr int width = 160, height = 120, capacity = width * height * 2;

struct Road : testing::Test {
    PoolFixture pool{1, capacity + 1};
    Wire wire{"tcp://localhost:0"};
    kivNetworkSend sender;
    kivNetworkRecv receiver{width, height};
    RecordingSink sink;

    Road()
    {
        setTrace(0);
        sender.init(nullptr);
        receiver.addObject(&sink);
        receiver.init(nullptr);
        use(wire);
    }
    ~Road() override
    {
        receiver.endReader();
        setTrace(1);
    }
    void use(Wire& connection)
    {
        receiver.stop();
        sender.setWispData(connection.out.get());
        receiver.setWispData(connection.in.get());
        EXPECT_EQ(sender.start(1), kivErrNone);
        EXPECT_EQ(receiver.start(1), kivErrNone);
    }
    std::string send(int bytes, USTMSCpair stamp)
    {
        ZVbuffer buffer = pool.takeOwned();
        char* const data = static_cast<char*>(zvBufferMapData(buffer));
        for (int i = 0; i < bytes; ++i)
            data[i] = char(i * 31 + stamp.msc);
        zvBufferSetSize(buffer, bytes);
        zvBufferSetUSTMSCpair(buffer, stamp);
        EXPECT_EQ(sender.receive(buffer), kivErrNone);
        const std::string sent(data, size_t(bytes));
        zvBufferFree(buffer);
        return sent;
    }
};

TEST_F(Road, CarriesBytesStampsAndHeaderValue)
{
    Wire local("unix:" + scratchFolder() + "/road");
    for (Wire* connection : {&wire, &local}) {
        use(*connection);
        for (int bytes : {1, 2, 3, 1000, 1460, 9001, capacity - 1, capacity}) {
            const USTMSCpair stamp = {bytes * 1000003LL, bytes};
            sender.setHeaderValue(bytes);
            const std::string sent = send(bytes, stamp);
            ASSERT_EQ(serve(receiver), kivErrNone);
            EXPECT_TRUE(sink.frames.back() == sent) << bytes;
            EXPECT_EQ(sink.stamps.back().ust, stamp.ust);
            EXPECT_EQ(sink.stamps.back().msc, stamp.msc);
            EXPECT_EQ(kivShared(receiver.lastHeaderVal).load(), bytes);
        }
    }
    EXPECT_EQ(sender.sendFailures(), 0);
    EXPECT_EQ(receiver.framesDropped(), 0);
    receiver.stop();
    EXPECT_EQ(zvBufferGetPoolFree(receiver.bufferPool), 2);
}

TEST_F(Road, APeerThatGoesAndOneThatSendsTooMuchEndTheReaderOnly)
{
    const auto ended = [this] { return !receiver.readerAlive(); };
    for (int life = 0; life < 4; ++life) {
        EXPECT_EQ(capture([&] {
                      wire.out.reset();
                      EXPECT_TRUE(eventually(ended));
                  }).err,
                  "no data header\n");
        Wire next("tcp://localhost:0");
        use(next);
        const std::string sent = send(100, {0, life});
        ASSERT_EQ(serve(receiver), kivErrNone);
        EXPECT_EQ(sink.frames.back(), sent);
        EXPECT_EQ(capture([&] {
                      send(capacity + 1, {});
                      EXPECT_TRUE(eventually(ended));
                  }).err,
                  "no data size\n");
        receiver.stop();
        EXPECT_EQ(zvBufferGetPoolFree(receiver.bufferPool), 2);
        wire = Wire("tcp://localhost:0");
        use(wire);
    }
}

TEST_F(Road, AHeaderCutShortStopsNothing)
{
    char header[24] = {};
    wire.out->setHeaderSize(10);  // less than what the receiver waits for
    wire.out->sendData(header, header, 0);
    EXPECT_EQ(handle(receiver), kivErrNotReady);
    EXPECT_EQ(receiver.stop(), kivErrNone);
    EXPECT_EQ(receiver.readerAlive(), 0);
    EXPECT_EQ(zvBufferGetPoolFree(receiver.bufferPool), 2);
}

// Numbers the frames that pass.
struct Stamper : RecordingSink {
    int receive(ZVbuffer inBuffer) override
    {
        zvBufferSetUSTMSCpair(inBuffer, {0, received});
        RecordingSink::receive(inBuffer);
        return propagate(inBuffer);
    }
};

TEST_F(Road, AMovieArrivesFrameByFrame)
{
    std::string file = clip("road.mov", testPattern("160x120", "30", 30) + " -c:v mjpeg");
    kivMovieInCompressed movie;
    Stamper stamper;
    movie.addObject(&stamper);
    stamper.addObject(&sender);
    ASSERT_EQ(movie.setup(file.data()), kivErrNone);
    ASSERT_EQ(movie.init(nullptr), kivErrNone);
    movie.timeScale = 10.0;
    ASSERT_EQ(movie.start(1), kivErrNone);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(serve(movie), kivErrNone);
        ASSERT_EQ(serve(receiver), kivErrNone);
        ASSERT_EQ(sink.stamps.back().msc, i);
        ASSERT_TRUE(sink.frames.back() == stamper.frames.back()) << i;
    }
    movie.stop();
    movie.endReader();
}

}  // namespace
