// The network sender, and both ends over real sockets.
#include <gtest/gtest.h>

#include <cstring>

#include "network/kivNetworkHeader.h"
#include "network/kivNetworkRecv.h"
#include "network/kivNetworkSend.h"
#include "tests/core/slots.h"
#include "tests/network/scriptedPeer.h"
#include "tests/support/capture.h"
#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"

namespace {

struct Sender : testing::Test {
    ScriptedPeer peer;
    PoolFixture pool{2, 64};
    kivNetworkSend node;

    Sender() { node.setName("send"); }

    ZVbuffer frame(const std::string& bytes, USTMSCpair stamp)
    {
        ZVbuffer buffer = pool.take();
        memcpy(zvBufferMapData(buffer), bytes.data(), bytes.size());
        zvBufferSetSize(buffer, int(bytes.size()));
        zvBufferSetUSTMSCpair(buffer, stamp);
        return buffer;
    }
};

TEST_F(Sender, NeedsAConnectionToStart)
{
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.start(1), kivErrNetwork); }).err,
              "kivNetworkSend::Start occured before setting data obj\n");
    EXPECT_EQ(node.isStarted(), 0);
    node.setWispData(&peer);
    EXPECT_EQ(node.init(nullptr), kivErrNone);
    EXPECT_EQ(node.start(1), kivErrNone);
    EXPECT_EQ(node.getFD(), -1);
    EXPECT_EQ(handle(node), kivErrNone);
    EXPECT_EQ(node.easyToAdd(), 1);
}

TEST_F(Sender, SendsHeaderAndBytesWhileStarted)
{
    node.setWispData(&peer);
    const ZVbuffer buffer = frame("bytes of a frame", {0x0102030405060708, 99});
    EXPECT_EQ(node.receive(buffer), kivErrNone);
    EXPECT_EQ(peer.sent, 0);
    EXPECT_EQ(node.counter, 0);

    node.start(1);
    EXPECT_EQ(node.setHeaderValue(7), 7);
    EXPECT_EQ(node.receive(buffer), kivErrNone);
    EXPECT_EQ(peer.sent, 1);
    EXPECT_EQ(node.counter, 1);
    EXPECT_EQ(peer.sentData, "bytes of a frame");
    ASSERT_EQ(peer.sentHeader.size(), 24u);
    kivNetworkHeader header;
    memcpy(&header, peer.sentHeader.data(), sizeof header);
    EXPECT_EQ(header.headerVal, 7);
    EXPECT_EQ(header.headerTimePair.ust, 0x0102030405060708);
    EXPECT_EQ(header.headerTimePair.msc, 99);
    EXPECT_EQ(peer.sentHeader.substr(4, 4), std::string(4, '\0'));
    EXPECT_EQ(poolReferences(pool.pool), 1);

    peer.sendResult = -1;
    EXPECT_EQ(node.receive(buffer), kivErrNone);
    EXPECT_EQ(node.sendFailures(), 1);
    node.setWispData(nullptr);
    EXPECT_EQ(node.receive(buffer), kivErrNone);
    EXPECT_EQ(node.sendFailures(), 2);
    EXPECT_EQ(node.stop(), kivErrNone);
    EXPECT_EQ(node.receive(buffer), kivErrNone);
    EXPECT_EQ(node.counter, 3);
    EXPECT_EQ(poolReferences(pool.pool), 1);
}

TEST_F(Sender, ABufferWithoutDataIsToldAndNotSent)
{
    node.setWispData(&peer);
    node.start(1);
    EXPECT_EQ(capture([&] { EXPECT_EQ(node.receive(nullptr), kivErrNetwork); }).err, "send BAD BUFFER!!!\n");
    EXPECT_EQ(peer.sent, 0);
    EXPECT_EQ(node.counter, 1);
}

TEST(Network, KeepsTheSlotsThatApplicationsWereBuiltAgainst)
{
    EXPECT_EQ(slotOf(&kivNetworkRecv::isInitialized), 15);
    EXPECT_EQ(slotOf(&kivNetworkRecv::setup), 16);
    EXPECT_EQ(slotOf(&kivNetworkSend::lockData), 17);
    EXPECT_EQ(slotOf(&kivNetworkSend::unlockData), 18);
}

}  // namespace
