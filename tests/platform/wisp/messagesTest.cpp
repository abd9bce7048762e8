// messagesTest.cpp - messages arrive whole; what waits, what gives way, what is counted.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstring>
#include <random>
#include <thread>

#include "platform/thread/thread.h"
#include "tests/platform/wisp/wispPeers.h"

namespace {

const char* const kinds[] = {"tcp://:0", "tcp://[::1]:0", "unix"};

// A pair over each kind of socket in turn.
class Messages : public testing::TestWithParam<const char*> {
protected:
    Pair make() { return Pair(strcmp(GetParam(), "unix") == 0 ? dir_.url("s").c_str() : GetParam()); }

private:
    TempDir dir_;
};

std::vector<int> manySizes()
{
    std::vector<int> sizes = {0, 1, 27, 28, 29, 4096, 65535, 65536, 8 << 20, 0};
    std::mt19937 random(1);
    for (int i = 0; i < 100; ++i)
        sizes.push_back(int(random() % (i % 10 == 0 ? 1'000'000 : 5'000)));
    return sizes;
}

void sendAll(wispSocket& socket, const std::vector<int>& sizes)
{
    for (size_t i = 0; i < sizes.size(); ++i)
        EXPECT_EQ(sendNumbered(socket, int(i), sizes[i]), 0) << lastErrorText();
}

void receiveAll(wispSocket& socket, const std::vector<int>& sizes)
{
    for (size_t i = 0; i < sizes.size(); ++i)
        ASSERT_EQ(receiveNumbered(socket), int(i));
}

TEST_P(Messages, LosslessArriveWholeAndInOrderBothWaysAtOnce)
{
    Pair pair = make();
    const std::vector<int> sizes = manySizes();
    for (wispSocket* end : {pair.a.get(), pair.b.get()}) {
        shrinkBuffers(*end);
        end->setLossless(1);
    }
    std::thread sendA([&] { sendAll(*pair.a, sizes); });
    std::thread sendB([&] { sendAll(*pair.b, sizes); });
    std::thread receiveB([&] { receiveAll(*pair.b, sizes); });
    receiveAll(*pair.a, sizes);
    for (std::thread* t : {&sendA, &sendB, &receiveB})
        t->join();

    const wispStats stats = pair.a->stats();
    const auto messages = (long long)sizes.size();
    EXPECT_EQ(stats.sent, messages);
    EXPECT_EQ(stats.received, messages);
    EXPECT_EQ(stats.sentBytes, pair.b->stats().receivedBytes);
    EXPECT_EQ(stats.dropped + stats.queuedBytes + stats.waiting, 0);
}

// The receiver does not read while the sender goes on.
TEST_P(Messages, NewestWinsAndEveryDropIsCounted)
{
    Pair pair = make();
    shrinkBuffers(*pair.a);
    shrinkBuffers(*pair.b);
    const int count = 50;
    const int size = 1 << 20;
    for (int i = 0; i < count; ++i)
        ASSERT_EQ(sendNumbered(*pair.a, i, size), 0);

    const wispStats asleep = pair.a->stats();
    EXPECT_EQ(asleep.sent, 0);
    EXPECT_EQ(asleep.waiting, 1);
    EXPECT_EQ(asleep.dropped, count - 2);
    EXPECT_GT(asleep.queuedBytes, size);
    EXPECT_LE(asleep.queuedBytes, 2 * (size + testHeaderBytes + 4));

    EXPECT_EQ(receiveNumbered(*pair.b), 0) << "a message once begun is finished";
    EXPECT_EQ(receiveNumbered(*pair.b), count - 1) << "the newest is the one that waited";
    EXPECT_EQ(pair.a->close(10000), 0);
    EXPECT_EQ(pair.a->stats().sent, 2);
    EXPECT_EQ(pair.a->stats().queuedBytes, 0);
}

TEST_P(Messages, SenderAtFullSpeedLosesOnlyWhatItCounts)
{
    Pair pair = make();
    shrinkBuffers(*pair.a);
    const int count = 1000;
    std::thread sender([&] {
        for (int i = 0; i < count; ++i)
            ASSERT_EQ(sendNumbered(*pair.a, i, 20'000 + i), 0);
        EXPECT_EQ(pair.a->close(10000), 0);
    });
    long long received = 0;
    int last = -1;
    while (last != count - 1) {
        const int seed = receiveNumbered(*pair.b);
        ASSERT_GT(seed, last);
        last = seed;
        ++received;
    }
    sender.join();
    EXPECT_EQ(pair.a->stats().sent, received);
    EXPECT_EQ(pair.a->stats().dropped, count - received);
}

TEST_P(Messages, CloseDrainsWhatIsPendingAndSaysWhenItCouldNot)
{
    {
        Pair pair = make();
        shrinkBuffers(*pair.a);
        ASSERT_EQ(sendNumbered(*pair.a, 1, 2 << 20), 0);
        ASSERT_EQ(sendNumbered(*pair.a, 2, 2 << 20), 0);
        std::thread receiver([&] {
            EXPECT_EQ(receiveNumbered(*pair.b), 1);
            EXPECT_EQ(receiveNumbered(*pair.b), 2);
            char header[testHeaderBytes];
            EXPECT_EQ(pair.b->getHeader(header), -1);
            EXPECT_EQ(lastError(), ZV_ERROR_PEER);
        });
        EXPECT_EQ(pair.a->close(10000), 0);
        EXPECT_EQ(pair.a->close(0), 0);
        receiver.join();
    }
    Pair asleep = make();
    shrinkBuffers(*asleep.a);
    ASSERT_EQ(sendNumbered(*asleep.a, 1, 2 << 20), 0);
    EXPECT_EQ(asleep.a->close(1), -1);
    EXPECT_EQ(asleep.a->close(1), -1);
}

INSTANTIATE_TEST_SUITE_P(Sockets, Messages, testing::ValuesIn(kinds), [](const auto& param) {
    return std::string(param.param[0] == 'u' ? "unix" : param.param[6] == '[' ? "ipv6" : "ipv4");
});

TEST(Sender, TakesNothingFromTheHeapOnceItsBlocksHaveTheirSize)
{
    if (heapAllocations() < 0)
        GTEST_SKIP() << "the sanitizer brings a heap of its own";
    Pair pair;
    shrinkBuffers(*pair.a);
    std::vector<char> header(testHeaderBytes);
    std::vector<char> data(400'000);
    std::vector<char> into(data.size());
    int sent = 0;
    const auto round = [&] {
        for (int i = 0; i < 4; ++i) {  // some go, one is begun, one waits, others give way
            memcpy(header.data(), &++sent, sizeof sent);
            ASSERT_EQ(pair.a->sendData(header.data(), data.data(), int(data.size()) - i), 0);
        }
        for (int seen = 0, size = 0; seen != sent; memcpy(&seen, header.data(), sizeof seen))
            ASSERT_EQ(pair.b->getHeader(header.data()) | pair.b->getSize(&size) | pair.b->getData(into.data()), 0);
    };
    round();
    round();
    const long before = heapAllocations();
    for (int i = 0; i < 100; ++i)
        round();
    EXPECT_EQ(heapAllocations(), before);
    EXPECT_GT(pair.a->stats().dropped, 0) << "nothing had to wait";
}

TEST(Sender, RefusesWhatIsNoMessage)
{
    LimitsGuard guard;
    kivLimits()->messageBytes = 1000;
    Pair pair;
    char bytes[testHeaderBytes] = {};
    EXPECT_EQ(pair.a->sendData(nullptr, bytes, 1), -1);
    EXPECT_EQ(pair.a->sendData(bytes, nullptr, 1), -1);
    EXPECT_EQ(pair.a->sendData(bytes, bytes, -1), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(pair.a->sendData(bytes, bytes, 1001), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
    EXPECT_NE(lastErrorText().find("messageBytes"), std::string::npos);
    EXPECT_EQ(sendNumbered(*pair.a, 5, 1000), 0);
    EXPECT_EQ(receiveNumbered(*pair.b), 5);
}

TEST(Sender, GivesUpAPeerThatTakesNothing)
{
    LimitsGuard guard;
    kivLimits()->sendMs = 50;
    Pair pair;
    shrinkBuffers(*pair.a);
    ASSERT_EQ(sendNumbered(*pair.a, 1, 4 << 20), 0);
    EXPECT_TRUE(becomesReadable(pair.a->getEndFD()));
    EXPECT_EQ(sendNumbered(*pair.a, 2, 10), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_PEER);
    EXPECT_NE(lastErrorText().find("sendMs"), std::string::npos);
    EXPECT_EQ(pair.a->close(100), -1);

    Pair lossless;
    shrinkBuffers(*lossless.a);
    lossless.a->setLossless(1);
    EXPECT_EQ(sendNumbered(*lossless.a, 1, 4 << 20), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_PEER);
}

// Whether the wait ends before or after the first byte went, the stream stays whole.
TEST(Sender, StopRequestEndsALosslessWaitAndTheMessageBegunIsFinished)
{
    Pair pair;
    shrinkBuffers(*pair.a);
    pair.a->setLossless(1);
    int results[3] = {1, 1, 1};
    auto work = [&] {
        for (int i = 0; i < 3; ++i)
            results[i] = sendNumbered(*pair.a, i, 1 << 20);
        EXPECT_EQ(lastError(), ZV_ERROR_STOPPED);
    };
    const int id = threadStart(reader<decltype(work)>, &work);
    ASSERT_TRUE(becomesReadable(messageFd(*pair.b)));  // the first is begun
    threadKill(id, 15);
    ASSERT_EQ(threadWait(id, nullptr), 0);
    EXPECT_EQ(results[0], 0) << "it is begun, so it is kept";
    EXPECT_EQ(results[1], -1);
    EXPECT_EQ(results[2], -1);
    EXPECT_EQ(receiveNumbered(*pair.b), 0);
    EXPECT_EQ(pair.a->stats().dropped, 0);
}

}  // namespace
