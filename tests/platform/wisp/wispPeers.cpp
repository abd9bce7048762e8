// wispPeers.cpp - see wispPeers.h.
#include "tests/platform/wisp/wispPeers.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "platform/zv/zv.h"

RawFd::~RawFd()
{
    if (fd_ >= 0)
        close(fd_);
}

int lastError()
{
    int number = 0;
    zvGetError(&number, nullptr);
    return number;
}

std::string lastErrorText()
{
    char detail[ZV_ERROR_DETAIL_MAX];
    zvGetError(nullptr, detail);
    return detail;
}

bool becomesReadable(int fd, int boundMs)
{
    pollfd p = {fd, POLLIN, 0};
    return poll(&p, 1, boundMs) == 1 && (p.revents & POLLIN) != 0;
}

bool isReadable(int fd) { return becomesReadable(fd, 0); }

int openDescriptors()
{
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

TempDir::TempDir()
{
    char name[] = "/tmp/wispXXXXXX";
    EXPECT_NE(mkdtemp(name), nullptr);
    path_ = name;
}

TempDir::~TempDir() { std::filesystem::remove_all(path_); }

Pair::Pair(const char* url)
{
    listener = wispListener::open(url);
    if (!listener)
        throw std::runtime_error(lastErrorText());
    a = wispSocket::connect(listener->url());
    EXPECT_TRUE(a) << lastErrorText();
    EXPECT_TRUE(becomesReadable(listener->getFD()));
    b = listener->accept();
    EXPECT_TRUE(b) << lastErrorText();
}

RawPair::RawPair()
{
    listener = wispListener::open("tcp://:0");
    EXPECT_TRUE(listener) << lastErrorText();
    raw = RawFd(rawConnect(listener->url()));
    EXPECT_TRUE(becomesReadable(listener->getFD()));
    ours = listener->accept();
    EXPECT_TRUE(ours) << lastErrorText();
}

void RawPair::write(const void* bytes, size_t count)
{
    EXPECT_EQ(send(raw.get(), bytes, count, MSG_NOSIGNAL), ssize_t(count));
}

std::string RawPair::read(size_t count)
{
    std::string bytes(count, '\0');
    const ssize_t got = recv(raw.get(), bytes.data(), count, MSG_WAITALL);
    bytes.resize(got < 0 ? 0 : size_t(got));
    return bytes;
}

int rawConnect(const char* tcpUrl)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(atoi(strrchr(tcpUrl, ':') + 1)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

std::string wire(const std::string& header, int32_t size, const std::string& data)
{
    std::string bytes = header;
    for (int i = 0; i < 4; ++i)
        bytes += char(uint32_t(size) >> (8 * i));
    return bytes + data;
}

std::string headerOf(char fill) { return std::string(testHeaderBytes, fill); }

std::vector<char> pattern(int seed, int size)
{
    std::vector<char> bytes(size_t(size) + 8);  // whole words; size 0 has an address too
    uint64_t state = uint64_t(seed) * 0x9e3779b97f4a7c15ull + 1;
    for (size_t at = 0; at < size_t(size); at += sizeof state) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        memcpy(&bytes[at], &state, sizeof state);
    }
    bytes.resize(size_t(size) + 1);
    bytes.back() = 0;
    return bytes;
}

int messageFd(wispSocket& socket)
{
    int fd = -1;
    EXPECT_EQ(socket.getFD(&fd), 0);
    return fd;
}

void shrinkBuffers(wispSocket& socket, int bytes)
{
    const int fd = messageFd(socket);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

int sendNumbered(wispSocket& socket, int seed, int size)
{
    char header[testHeaderBytes] = {};
    memcpy(header, &seed, sizeof seed);
    std::vector<char> data = pattern(seed, size);
    const int result = socket.sendData(header, data.data(), size);
    std::fill(data.begin(), data.end(), char(0x55));  // borrowed until it returns, and not longer
    return result;
}

int receiveNumbered(wispSocket& socket)
{
    char header[testHeaderBytes];
    int size = -1;
    if (socket.getHeader(header) != 0 || socket.getSize(&size) != 0) {
        ADD_FAILURE() << lastErrorText();
        return -1;
    }
    int seed = -1;
    memcpy(&seed, header, sizeof seed);
    std::vector<char> data(size_t(size) + 1);
    EXPECT_EQ(socket.getData(data.data()), 0) << lastErrorText();
    data.back() = 0;
    EXPECT_TRUE(data == pattern(seed, size)) << "message " << seed << " of " << size << " bytes is damaged";
    return seed;
}
