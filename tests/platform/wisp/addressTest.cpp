// addressTest.cpp - URLs, listeners, and what becomes of files and descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/thread/thread.h"
#include "tests/platform/wisp/wispPeers.h"

namespace {

TEST(Address, EveryFaultOfAUrlIsNamed)
{
    const std::string longPath = "unix:/" + std::string(200, 'p');
    const struct {
        const char* url;
        const char* says;
    } faults[] = {
        {nullptr, "no URL"},
        {"", "neither tcp:// nor unix:"},
        {"http://localhost:1", "neither tcp:// nor unix:"},
        {"tcp://localhost", "no port"},
        {"tcp://localhost:", "\"\" is no port"},
        {"tcp://localhost:x", "\"x\" is no port"},
        {"tcp://localhost:1x", "\"1x\" is no port"},
        {"tcp://localhost:65536", "\"65536\" is no port"},
        {"tcp://localhost:4294967297", "is no port"},
        {"tcp://localhost:-1", "is no port"},
        {"tcp://::1:5000", "stands in brackets"},
        {"tcp://[::1]", "]:port"},
        {"tcp://[::1:5", "]:port"},
        {"tcp://no such host:5", "no such host"},
        {"unix:", "no path"},
        {longPath.c_str(), "at most 107"},
    };
    for (const auto& fault : faults) {
        EXPECT_FALSE(wispSocket::connect(fault.url));
        EXPECT_NE(lastErrorText().find(fault.says), std::string::npos) << fault.says << " <- " << lastErrorText();
        EXPECT_FALSE(wispListener::open(fault.url));
        EXPECT_NE(lastErrorText().find(fault.says), std::string::npos) << fault.says << " <- " << lastErrorText();
    }
    EXPECT_FALSE(wispSocket::connect("tcp://localhost:0"));
    EXPECT_NE(lastErrorText().find("port 0"), std::string::npos);
}

TEST(Address, ListenerBindsToLoopbackUnlessToldOtherwise)
{
    const struct {
        const char* asked;
        const char* bound;
    } cases[] = {{"tcp://:0", "tcp://127.0.0.1:"},
                 {"tcp://localhost:0", "tcp://127.0.0.1:"},
                 {"tcp://0.0.0.0:0", "tcp://0.0.0.0:"},
                 {"tcp://[::1]:0", "tcp://[::1]:"},
                 {"tcp://[::]:0", "tcp://[::]:"}};
    for (const auto& c : cases) {
        Pair pair(c.asked);
        const std::string url = pair.listener->url();
        EXPECT_EQ(url.find(c.bound), 0u) << url;
        EXPECT_GT(atoi(strrchr(url.c_str(), ':') + 1), 0);
        EXPECT_EQ(std::string(pair.b->peerName()).find("tcp://"), 0u);
        ASSERT_EQ(sendNumbered(*pair.b, 3, 100), 0);
        EXPECT_EQ(receiveNumbered(*pair.a), 3);
    }
    auto named = wispListener::open("tcp://:0");
    const std::string port = strrchr(named->url(), ':');
    EXPECT_TRUE(wispSocket::connect(("tcp://localhost" + port).c_str())) << lastErrorText();
}

TEST(Address, RefusedAndTakenAddressesSaySo)
{
    std::string url;
    {
        auto listener = wispListener::open("tcp://:0");
        url = listener->url();
        EXPECT_FALSE(wispListener::open(url.c_str()));
        EXPECT_NE(lastErrorText().find("in use"), std::string::npos);
        EXPECT_FALSE(listener->accept());
        EXPECT_EQ(lastError(), ZV_ERROR_EMPTY);
    }
    EXPECT_FALSE(wispSocket::connect(url.c_str()));
    EXPECT_EQ(lastError(), ZV_ERROR_PEER);
    EXPECT_NE(lastErrorText().find(url), std::string::npos);
    EXPECT_NE(lastErrorText().find("refused"), std::string::npos);
    EXPECT_TRUE(wispListener::open(url.c_str())) << "bound again at once: " << lastErrorText();
}

TEST(UnixListener, ReplacesAStaleSocketAndNothingElse)
{
    TempDir dir;
    const std::string path = dir.file("s");
    const std::string url = dir.url("s");

    std::ofstream(path) << "precious";
    EXPECT_FALSE(wispListener::open(url.c_str()));
    EXPECT_NE(lastErrorText().find("in use"), std::string::npos);
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    std::filesystem::remove(path);

    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path.c_str());
    {
        RawFd dead(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(dead.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    auto listener = wispListener::open(url.c_str());
    ASSERT_TRUE(listener) << lastErrorText();
    EXPECT_EQ(listener->url(), url);
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);

    EXPECT_FALSE(wispListener::open(url.c_str())) << "somebody listens";
    EXPECT_NE(lastErrorText().find("in use"), std::string::npos);
    EXPECT_FALSE(isReadable(listener->getFD())) << "and sees no peer for it";
    EXPECT_TRUE(wispSocket::connect(url.c_str())) << lastErrorText();

    listener.reset();
    EXPECT_FALSE(std::filesystem::exists(path));
    listener = wispListener::open(url.c_str());
    std::filesystem::remove(path);
    std::ofstream(path) << "somebody else's";
    listener.reset();
    EXPECT_TRUE(std::filesystem::exists(path));
}

// Fills a listener's queue, so that the next connect has to wait.
template <class Address> std::vector<RawFd> fillQueue(const Address& address, int count)
{
    std::vector<RawFd> peers;
    for (int i = 0; i < count; ++i) {
        peers.emplace_back(socket(reinterpret_cast<const sockaddr*>(&address)->sa_family,
                                  SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        (void)connect(peers.back().get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    return peers;
}

TEST(Connecting, EndsAtItsDeadlineOrAtAStopRequest)
{
    LimitsGuard guard;
    TempDir dir;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, dir.file("s").c_str());
    RawFd full(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(full.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(full.get(), 0), 0);
    const auto unixPeers = fillQueue(address, 3);

    auto tcp = wispListener::open("tcp://:0");
    ASSERT_EQ(listen(tcp->getFD(), 0), 0);
    sockaddr_storage bound = {};
    socklen_t length = sizeof bound;
    ASSERT_EQ(getsockname(tcp->getFD(), reinterpret_cast<sockaddr*>(&bound), &length), 0);
    const auto tcpPeers = fillQueue(reinterpret_cast<sockaddr_in&>(bound), 3);

    for (const std::string& url : {dir.url("s"), std::string(tcp->url())}) {
        kivLimits()->connectMs = 20;
        EXPECT_FALSE(wispSocket::connect(url.c_str()));
        EXPECT_NE(lastErrorText().find("connectMs"), std::string::npos) << lastErrorText();
        kivLimits()->connectMs = 60000;
        auto work = [&] {
            EXPECT_FALSE(wispSocket::connect(url.c_str()));
            EXPECT_EQ(lastError(), ZV_ERROR_STOPPED) << lastErrorText();
        };
        const int id = threadStart(reader<decltype(work)>, &work);
        threadKill(id, 15);
        ASSERT_EQ(threadWait(id, nullptr), 0);
    }
}

TEST(Descriptors, AreAllGivenBack)
{
    TempDir dir;
    {
        Pair warm(dir.url("s").c_str());
    }
    const int before = openDescriptors();
    for (int i = 0; i < 1000; ++i) {
        Pair pair(i % 2 == 0 ? dir.url("s").c_str() : "tcp://:0");
        ASSERT_GE(pair.a->getEndFD(), 3);
        ASSERT_EQ(sendNumbered(*pair.a, i, i % 10 == 0 ? 1 << 20 : 10), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(Descriptors, StayClearOfTheProgramsStreams)
{
    const int input = dup(0);
    close(0);
    {
        Pair pair;
        EXPECT_GE(messageFd(*pair.a), 3);
        EXPECT_GE(messageFd(*pair.b), 3);
        EXPECT_GE(pair.a->getEndFD(), 3);
        EXPECT_GE(pair.listener->getFD(), 3);
        EXPECT_NE(fcntl(messageFd(*pair.b), F_GETFD) & FD_CLOEXEC, 0);
    }
    if (input >= 0) {
        dup2(input, 0);
        close(input);
    }
}

// The peer is turned away instead of keeping the listener readable for ever.
TEST(Descriptors, ListenerSurvivesHavingNoneLeft)
{
    auto listener = wispListener::open("tcp://:0");
    RawFd peer(rawConnect(listener->url()));
    ASSERT_TRUE(becomesReadable(listener->getFD()));

    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none = {rlim_t(dup(0)), limit.rlim_max};  // the lowest free number
    close(int(none.rlim_cur));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool taken = listener->accept() != nullptr;
    const std::string text = lastErrorText();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);

    EXPECT_FALSE(taken);
    EXPECT_NE(text.find("cannot be taken"), std::string::npos) << text;
    char c;
    EXPECT_EQ(recv(peer.get(), &c, 1, 0), 0) << "turned away";
    EXPECT_FALSE(isReadable(listener->getFD()));
    EXPECT_TRUE(wispSocket::connect(listener->url()));
    EXPECT_TRUE(becomesReadable(listener->getFD()));
    EXPECT_TRUE(listener->accept());
}

}  // namespace
