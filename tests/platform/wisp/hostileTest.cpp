// hostileTest.cpp - peers that lie, fall silent or die, and readers that are asked to stop.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <thread>

#include "platform/thread/thread.h"
#include "tests/platform/wisp/wispPeers.h"

namespace {

struct Current {
    char header[LINE_MAX] = {};
    int size = -1;
};

TEST(Receiver, RefusesSizesThatCannotBeBeforeItReadsOn)
{
    for (const long long size : {-1LL, (long long)INT_MIN, kivLimits()->messageBytes + 1, (long long)INT_MAX}) {
        RawPair pair;
        pair.write(wire(headerOf('h'), int32_t(size), "data"));
        Current got;
        ASSERT_EQ(pair.ours->getHeader(got.header), 0);
        EXPECT_EQ(pair.ours->getSize(&got.size), -1) << size;
        EXPECT_EQ(lastError(), ZV_ERROR_LIMIT);
        EXPECT_NE(lastErrorText().find("messageBytes"), std::string::npos);
        EXPECT_EQ(got.size, -1) << "untouched on failure";
        char data[4];
        EXPECT_EQ(pair.ours->getData(data), -1);
        EXPECT_EQ(pair.ours->getHeader(got.header), -1);
        EXPECT_TRUE(becomesReadable(pair.ours->getEndFD()));
        EXPECT_EQ(pair.ours->sendData(got.header, data, 4), -1);
    }
}

TEST(Receiver, TakesTheLargestSizeAndNone)
{
    LimitsGuard guard;
    kivLimits()->messageBytes = 5;
    RawPair pair;
    pair.write(wire(headerOf('a'), 5, "12345") + wire(headerOf('b'), 0) + wire(headerOf('c'), 1, "6"));
    Current got;
    char data[6] = "";
    ASSERT_EQ(pair.ours->getHeader(got.header), 0);
    ASSERT_EQ(pair.ours->getSize(&got.size), 0);
    ASSERT_EQ(pair.ours->getData(data), 0);
    EXPECT_STREQ(data, "12345");
    ASSERT_EQ(pair.ours->getHeader(got.header), 0);
    ASSERT_EQ(pair.ours->getSize(&got.size), 0);
    EXPECT_EQ(got.size, 0);
    ASSERT_EQ(pair.ours->getData(data), 0);
    EXPECT_STREQ(data, "12345");
    ASSERT_EQ(pair.ours->getHeader(got.header), 0);
    EXPECT_STREQ(got.header, headerOf('c').c_str());
    EXPECT_EQ(pair.ours->stats().received, 2);
}

// Wherever the reader left the last message, the next header is the next message's.
TEST(Receiver, SkipsTheUnreadRestOfAMessage)
{
    RawPair pair;
    const std::string large(300'000, 'x');
    Current got;
    const std::function<void()> leaveAt[] = {
        [] {},
        [&] { EXPECT_EQ(pair.ours->getSize(&got.size), 0); },
        [&] {
            std::string data(large.size(), '\0');
            EXPECT_EQ(pair.ours->getSize(&got.size), 0);
            EXPECT_EQ(pair.ours->getData(data.data()), 0);
            EXPECT_TRUE(data == large);
            EXPECT_EQ(pair.ours->getData(data.data()), -1) << "the data comes once";
        },
    };
    for (const auto& leave : leaveAt) {
        std::thread writer([&] { pair.write(wire(headerOf('1'), int(large.size()), large) + wire(headerOf('2'), 0)); });
        ASSERT_EQ(pair.ours->getHeader(got.header), 0);
        EXPECT_STREQ(got.header, headerOf('1').c_str());
        leave();
        ASSERT_EQ(pair.ours->getHeader(got.header), 0) << lastErrorText();
        EXPECT_STREQ(got.header, headerOf('2').c_str());
        writer.join();
    }
}

TEST(Receiver, KeepsItsOrderOfCallsAndItsHeaderSize)
{
    RawPair pair;
    Current got;
    char data[8] = "";
    EXPECT_EQ(pair.ours->getSize(&got.size), -1);
    EXPECT_EQ(pair.ours->getData(data), -1);
    EXPECT_EQ(pair.ours->getHeader(nullptr), -1);
    EXPECT_EQ(pair.ours->setHeaderSize(-1), -1);
    EXPECT_EQ(pair.ours->setHeaderSize(1 << 20), -1);

    ASSERT_EQ(pair.ours->setHeaderSize(3), 0);
    pair.write(wire("abc", 2, "de"));
    ASSERT_EQ(pair.ours->getHeader(got.header), 0);
    EXPECT_STREQ(got.header, "abc");
    EXPECT_EQ(pair.ours->getData(data), -1) << "nothing is read before its size is known";
    ASSERT_EQ(pair.ours->setHeaderSize(0), 0) << "what is current stays what it is";
    pair.write(wire("", 1, "f"));
    ASSERT_EQ(pair.ours->getSize(&got.size), 0);
    EXPECT_EQ(got.size, 2);
    ASSERT_EQ(pair.ours->getHeader(got.header), 0);
    ASSERT_EQ(pair.ours->getSize(&got.size), 0);
    ASSERT_EQ(pair.ours->getData(data), 0);
    EXPECT_STREQ(data, "f");

    ASSERT_EQ(pair.ours->sendData(nullptr, data, 1), 0);
    EXPECT_EQ(pair.read(5), wire("", 1, "f"));
    ASSERT_EQ(pair.ours->setHeaderSize(24), 0);
    ASSERT_EQ(pair.ours->sendData(headerOf('h').data(), data, 1), 0);
    EXPECT_EQ(pair.read(29), wire(headerOf('h'), 1, "f"));
}

// Cut anywhere inside a message, silence ends it; between messages it does not.
TEST(Receiver, GivesUpHalfAMessageAndThenSilence)
{
    LimitsGuard guard;
    kivLimits()->idleMs = 20;
    const std::string whole = wire(headerOf('h'), 8, "12345678");
    for (const size_t cut : {1, 10, 23, 24, 26, 28, 30, 35}) {
        RawPair pair;
        pair.write(whole);
        Current got;
        char data[8];
        ASSERT_EQ(pair.ours->getHeader(got.header) | pair.ours->getSize(&got.size) | pair.ours->getData(data), 0);
        pair.write(whole.substr(0, cut));
        int failures = pair.ours->getHeader(got.header);
        if (failures == 0)
            failures = pair.ours->getSize(&got.size);
        if (failures == 0)
            failures = pair.ours->getData(data);
        EXPECT_EQ(failures, -1) << cut;
        EXPECT_EQ(lastError(), ZV_ERROR_PEER);
        EXPECT_NE(lastErrorText().find("idleMs"), std::string::npos) << lastErrorText();
        EXPECT_TRUE(becomesReadable(pair.ours->getEndFD()));
    }
}

// A peer that lets a message drip has its time too, and the reader's own does not count.
TEST(Receiver, GivesUpAMessageThatDrips)
{
    LimitsGuard guard;
    kivLimits()->idleMs = 20000;
    kivLimits()->recvMs = 50;
    RawPair pair;
    Current got;
    char data[8];
    const std::string whole = wire(headerOf('h'), 8, "12345678");
    for (int i = 0; i < 3; ++i) {
        pair.write(whole.substr(0, 28));
        ASSERT_EQ(pair.ours->getHeader(got.header) | pair.ours->getSize(&got.size), 0);
        poll(nullptr, 0, 60);  // the reader takes its time
        pair.write(whole.substr(28));
        ASSERT_EQ(pair.ours->getData(data), 0) << lastErrorText();
    }
    pair.write(wire(headerOf('d'), 1 << 20, ""));
    std::vector<char> into(1 << 20);
    ASSERT_EQ(pair.ours->getHeader(got.header) | pair.ours->getSize(&got.size), 0);
    std::thread dripping([&] {
        while (send(pair.raw.get(), "x", 1, MSG_NOSIGNAL) == 1)
            poll(nullptr, 0, 1);
    });
    EXPECT_EQ(pair.ours->getData(into.data()), -1);
    EXPECT_NE(lastErrorText().find("recvMs"), std::string::npos) << lastErrorText();
    dripping.join();
    EXPECT_EQ(pair.ours->getHeader(got.header), -1);
}

// A stop request ends every wait, and a later reader goes on where the stream stands.
TEST(Receiver, StopRequestEndsEveryWaitAndLosesNothing)
{
    const std::string data(8, 'd');
    const std::string whole = wire(headerOf('1'), 8, data);
    for (const size_t cut : {0, 1, 23, 24, 26, 28, 30, 35}) {
        RawPair pair;
        Current got;
        char into[8];
        pair.write(whole.substr(0, cut));
        auto work = [&] {
            EXPECT_NE(pair.ours->getHeader(got.header) | pair.ours->getSize(&got.size) | pair.ours->getData(into), 0);
            pair.ours->getHeader(got.header);  // the wait of a skip, where the header had come
            EXPECT_EQ(lastError(), ZV_ERROR_STOPPED) << cut << lastErrorText();
        };
        const int id = threadStart(reader<decltype(work)>, &work);
        threadKill(id, 15);
        ASSERT_EQ(threadWait(id, nullptr), 0);
        pair.write(whole.substr(cut) + wire(headerOf('2'), 0));
        for (got.header[0] = '1'; got.header[0] == '1';)
            ASSERT_EQ(pair.ours->getHeader(got.header), 0) << lastErrorText();
        EXPECT_STREQ(got.header, headerOf('2').c_str());
        EXPECT_FALSE(isReadable(pair.ours->getEndFD()));
    }
}

TEST(Connection, CloseEndsTheReaderAndEveryLaterCall)
{
    Pair pair;
    std::thread waiting([&] {
        Current got;
        EXPECT_EQ(pair.a->getHeader(got.header), -1);
    });
    EXPECT_EQ(pair.a->close(0), 0);
    waiting.join();
    Current got;
    int fd = -1;
    EXPECT_EQ(pair.a->getFD(&fd), -1);
    EXPECT_EQ(pair.a->getEndFD(), -1);
    EXPECT_EQ(pair.a->getHeader(got.header), -1);
    EXPECT_EQ(pair.a->getSize(&got.size), -1);
    EXPECT_EQ(sendNumbered(*pair.a, 1, 1), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_STATE);
    EXPECT_TRUE(becomesReadable(pair.b->getEndFD()));
    EXPECT_TRUE(becomesReadable(messageFd(*pair.b)));
}

// What came before the end is still there to be read.
TEST(Connection, EndDescriptorTellsOfThePeerAloneAndLosesNoMessage)
{
    Pair pair;
    const int end = pair.b->getEndFD();
    EXPECT_EQ(pair.b->getEndFD(), end);
    EXPECT_GE(end, 3);
    ASSERT_EQ(sendNumbered(*pair.a, 1, 1000), 0);
    ASSERT_TRUE(becomesReadable(messageFd(*pair.b)));
    EXPECT_FALSE(isReadable(end)) << "a message is not an end";
    ASSERT_EQ(sendNumbered(*pair.a, 2, 100'000), 0);
    pair.a.reset();
    EXPECT_TRUE(becomesReadable(end));
    EXPECT_EQ(receiveNumbered(*pair.b), 1);
    EXPECT_EQ(receiveNumbered(*pair.b), 2);
    Current got;
    EXPECT_EQ(pair.b->getHeader(got.header), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_PEER);
    EXPECT_EQ(sendNumbered(*pair.b, 1, 1), -1);
}

// A process that connects, writes some bytes and is then killed.
class Victim {
public:
    Victim(const char* url, const std::string& bytes)
    {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        pid_ = fork();
        if (pid_ == 0) {
            const int fd = rawConnect(url);
            const bool sent = write(fd, bytes.data(), bytes.size()) == ssize_t(bytes.size());
            if (!sent || write(ready[1], "", 1) != 1)
                _exit(1);
            for (;;)
                pause();
        }
        char c;
        EXPECT_EQ(read(ready[0], &c, 1), 1);
        ::close(ready[0]);
        ::close(ready[1]);
    }
    void kill()
    {
        ::kill(pid_, SIGKILL);
        EXPECT_EQ(waitpid(pid_, nullptr, 0), pid_);
    }

private:
    pid_t pid_ = -1;
};

TEST(Connection, KilledPeerIsNoticedInEveryState)
{
    const std::string whole = wire(headerOf('h'), 8, "12345678");
    for (const size_t cut : {size_t(0), size_t(10), size_t(26), size_t(30), whole.size()}) {
        for (const int pendingBytes : {0, 16 << 20}) {
            auto listener = wispListener::open("tcp://:0");
            Victim victim(listener->url(), whole.substr(0, cut));
            ASSERT_TRUE(becomesReadable(listener->getFD()));
            auto ours = listener->accept();
            ASSERT_TRUE(ours);
            if (pendingBytes > 0) {
                ASSERT_EQ(sendNumbered(*ours, 1, pendingBytes), 0);
            }
            const int end = ours->getEndFD();
            EXPECT_FALSE(isReadable(end));
            victim.kill();
            EXPECT_TRUE(becomesReadable(end));
            Current got;
            char data[8];
            const bool all
                = ours->getHeader(got.header) == 0 && ours->getSize(&got.size) == 0 && ours->getData(data) == 0;
            EXPECT_FALSE(all && cut < whole.size());
            EXPECT_EQ(ours->getHeader(got.header), -1);
            EXPECT_EQ(lastError(), ZV_ERROR_PEER) << lastErrorText();
            EXPECT_EQ(sendNumbered(*ours, 2, 10), -1);
            EXPECT_EQ(ours->close(10000), pendingBytes > 0 ? -1 : 0);
        }
    }
}

}  // namespace
