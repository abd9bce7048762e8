// transport.cpp - one connection's throughput, CPU time and latency, beside bare
// sockets doing the same work: as the system makes them, and with the send buffer
// that ours has, which is the limit. Rounds alternate, and the ratios within one
// round are what counts on a busy machine.
//
//   bench_transport [rounds] [message bytes]
#include <arpa/inet.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "platform/wisp/wispSocket.h"

namespace {

constexpr int headerBytes = 24;
constexpr int prefixBytes = headerBytes + 4;
constexpr int sendBuffer = 256 * 1024;

// One direction of a connection, ours or the limit's.
class Road {
public:
    virtual ~Road() = default;
    virtual void send(void* header, void* data, int size) = 0;
    virtual void receive(void* header, void* data) = 0;
};

void check(bool good, const char* what)
{
    if (good)
        return;
    perror(what);
    exit(1);
}

class Bare : public Road {
public:
    explicit Bare(int bufferBytes)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        check(bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && listen(listener, 1) == 0, "listen");
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
        from_ = socket(AF_INET, SOCK_STREAM, 0);
        if (bufferBytes > 0)
            setsockopt(from_, SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
        check(connect(from_, reinterpret_cast<sockaddr*>(&address), length) == 0, "connect");
        to_ = accept(listener, nullptr, nullptr);
        check(to_ >= 0, "accept");
        close(listener);
    }
    ~Bare() override
    {
        close(from_);
        close(to_);
    }
    void send(void* header, void* data, int size) override
    {
        iovec parts[3] = {{header, headerBytes}, {&size, sizeof size}, {data, size_t(size)}};
        msghdr head = {};
        head.msg_iov = parts;
        head.msg_iovlen = 3;
        check(sendmsg(from_, &head, MSG_NOSIGNAL) == prefixBytes + size, "sendmsg");
    }
    void receive(void* header, void* data) override
    {
        char prefix[prefixBytes];
        int size = 0;
        check(recv(to_, prefix, sizeof prefix, MSG_WAITALL) == prefixBytes, "recv");
        memcpy(header, prefix, headerBytes);
        memcpy(&size, prefix + headerBytes, sizeof size);
        check(recv(to_, data, size_t(size), MSG_WAITALL) == size, "recv");
    }

private:
    int from_ = -1;
    int to_ = -1;
};

class Ours : public Road {
public:
    explicit Ours(bool lossless)
    {
        auto listener = wispListener::open("tcp://:0");
        check(listener != nullptr, "listen");
        from_ = wispSocket::connect(listener->url());
        pollfd waiting = {listener->getFD(), POLLIN, 0};
        check(from_ && poll(&waiting, 1, 1000) == 1, "connect");
        to_ = listener->accept();
        check(to_ != nullptr, "accept");
        from_->setLossless(lossless);
    }
    void send(void* header, void* data, int size) override
    {
        check(from_->sendData(header, data, size) == 0, "sendData");
    }
    void receive(void* header, void* data) override
    {
        int size = 0;
        check(to_->getHeader(header) == 0 && to_->getSize(&size) == 0 && to_->getData(data) == 0, "receive");
    }

private:
    std::unique_ptr<wispSocket> from_;
    std::unique_ptr<wispSocket> to_;
};

double seconds(clockid_t clock)
{
    timespec t = {};
    clock_gettime(clock, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

struct Rate {
    double megabytesPerSecond;
    double cpuPerGigabyte;
};

Rate throughput(Road& road, int size, int count)
{
    std::vector<char> data(size_t(size), 'd');
    std::vector<char> into(data.size());
    char header[headerBytes] = {};
    const double wall = seconds(CLOCK_MONOTONIC);
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
    std::thread receiver([&] {
        char got[headerBytes];
        for (int i = 0; i < count; ++i)
            road.receive(got, into.data());
    });
    for (int i = 0; i < count; ++i)
        road.send(header, data.data(), size);
    receiver.join();
    const double bytes = double(size) * count;
    return {bytes / 1e6 / (seconds(CLOCK_MONOTONIC) - wall), (seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) / (bytes / 1e9)};
}

struct Delay {
    double p50;
    double p99;
};

// Microseconds from the call that sends to the last byte in the receiver's memory.
Delay latency(Road& road, int size, int frames)
{
    std::vector<char> data(size_t(size), 'd');
    std::vector<char> into(data.size());
    std::vector<double> delays;
    std::thread receiver([&] {
        for (int i = 0; i < frames; ++i) {
            double sent[headerBytes / sizeof(double)];
            road.receive(sent, into.data());
            delays.push_back((seconds(CLOCK_MONOTONIC) - sent[0]) * 1e6);
        }
    });
    timespec next = {};
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int i = 0; i < frames; ++i) {
        next.tv_nsec += 1'000'000'000 / 60;
        next.tv_sec += next.tv_nsec / 1'000'000'000;
        next.tv_nsec %= 1'000'000'000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        double header[headerBytes / sizeof(double)] = {seconds(CLOCK_MONOTONIC)};
        road.send(header, data.data(), size);
    }
    receiver.join();
    std::sort(delays.begin(), delays.end());
    return {delays[delays.size() / 2], delays[delays.size() * 99 / 100]};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void benchThroughput(int rounds, int size)
{
    const int count = int(1e9 / size);
    std::vector<double> speed[2];
    std::vector<double> cost[2];
    printf("%d-byte messages: MB/s, CPU-s/GB\n            as made       limit         ours          ours/made  "
           "ours/limit\n",
           size);
    for (int i = 0; i < rounds; ++i) {
        Bare made(0);
        Bare tuned(sendBuffer);
        Ours ours(true);
        const Rate bare[2] = {throughput(made, size, count), throughput(tuned, size, count)};
        const Rate got = throughput(ours, size, count);
        for (int k = 0; k < 2; ++k) {
            speed[k].push_back(got.megabytesPerSecond / bare[k].megabytesPerSecond);
            cost[k].push_back(got.cpuPerGigabyte / bare[k].cpuPerGigabyte);
        }
        printf("round %-3d", i);
        for (const Rate& rate : {bare[0], bare[1], got})
            printf(" %6.0f %.3f ", rate.megabytesPerSecond, rate.cpuPerGigabyte);
        printf("  %.2f %.2f  %.2f %.2f\n", speed[0].back(), cost[0].back(), speed[1].back(), cost[1].back());
    }
    printf("medians of the ratios: throughput %.2f, CPU %.2f as made; throughput %.2f, CPU %.2f to the limit\n\n",
           median(speed[0]), median(cost[0]), median(speed[1]), median(cost[1]));
}

void benchLatency(int rounds, int size)
{
    std::vector<double> middle;
    std::vector<double> tail;
    printf("one %d-byte frame, 60 a second, us\n            limit p50 p99   ours p50 p99   ours/limit\n", size);
    for (int i = 0; i < rounds; ++i) {
        Bare tuned(sendBuffer);
        Ours ours(false);
        const Delay limit = latency(tuned, size, 180);
        const Delay got = latency(ours, size, 180);
        middle.push_back(got.p50 / limit.p50);
        tail.push_back(got.p99 / limit.p99);
        printf("round %-3d   %6.0f %6.0f  %6.0f %6.0f    %.2f %.2f\n", i, limit.p50, limit.p99, got.p50, got.p99,
               middle.back(), tail.back());
    }
    printf("medians of the ratios: p50 %.2f, p99 %.2f\n", median(middle), median(tail));
}

}  // namespace

int main(int argc, char** argv)
{
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    const int size = argc > 2 ? std::max(1, atoi(argv[2])) : 150'000;
    benchThroughput(rounds, size);
    benchLatency(rounds, size);
    return 0;
}
