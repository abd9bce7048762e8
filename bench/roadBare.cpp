// roadBare.cpp - the road's limit: bare loops over libjpeg and plain sockets, one
// thread in each of the two processes.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include "bench/jpegBare.h"
#include "bench/roadJob.h"

namespace {

struct Header {
    int64_t stamp;
    int64_t index;
    int32_t size;
};

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void waitUntil(int64_t ns)
{
    const timespec time = {ns / 1'000'000'000, ns % 1'000'000'000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

}  // namespace

void roadReceive(const RoadJob& job, Arrivals& arrivals, const std::function<void(const std::string&)>& listening)
{
    BareDecoder decoder(roadWidth, roadHeight);
    Bytes jpeg(roadFrameBytes), frame(roadFrameBytes);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof address;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    roadCheck(bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && listen(listener, 1) == 0, "listen");
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    listening(std::to_string(ntohs(address.sin_port)));
    const int from = accept(listener, nullptr, nullptr);
    roadCheck(from >= 0, "accept");
    roadBegin();
    for (int i = 0; i < job.count; ++i) {
        Header header = {};
        roadCheck(recv(from, &header, sizeof header, MSG_WAITALL) == sizeof header, "recv");
        roadCheck(recv(from, jpeg.data(), size_t(header.size), MSG_WAITALL) == header.size, "recv");
        decoder.toCbYCrY(jpeg.data(), size_t(header.size), frame.data());
        arrivals.add(header.stamp);
    }
    close(from);
    close(listener);
}

void roadSend(const RoadJob& job, const std::string& address, const std::function<void()>& awaitReceiver)
{
    const int numFrames = job.numFrames();
    std::vector<Bytes> frames(size_t(numFrames), Bytes(size_t{roadFrameBytes}));
    for (int i = 0; i < numFrames; ++i)
        job.read(i, frames[size_t(i)].data());
    BareEncoder encoder(roadWidth, roadHeight, roadQuality, JDCT_ISLOW);
    const int to = socket(AF_INET, SOCK_STREAM, 0);
    const int buffer = 256 * 1024;  // what the library's connections have
    setsockopt(to, SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    const sockaddr_in peer = loopback(std::stoi(address));
    roadCheck(connect(to, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0, "connect");
    roadBegin();
    int64_t due = roadNow();
    for (int i = 0; i < job.count; ++i) {
        if (job.rate > 0)
            waitUntil(due += int64_t(1e9 / job.rate));
        Header header = {roadNow(), i, 0};
        const size_t size = encoder.encode(frames[size_t(i % numFrames)].data());
        header.size = int32_t(size);
        iovec parts[2] = {{&header, sizeof header}, {const_cast<uint8_t*>(encoder.jpeg()), size}};
        msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        roadCheck(sendmsg(to, &message, MSG_NOSIGNAL) == ssize_t(sizeof header + size), "sendmsg");
    }
    awaitReceiver();
    close(to);
}

void roadEncodeOne(const RoadJob& job)
{
    Bytes frame(roadFrameBytes);
    job.read(0, frame.data());
    BareEncoder encoder(roadWidth, roadHeight, roadQuality, JDCT_ISLOW);
    roadCheck(encoder.encode(frame.data()) > 0, "encode");
}
