// wispReceiver.cpp - see wispReceiver.h.
#include "platform/wisp/wispReceiver.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"

namespace kiv {

// Refused while a header is half read, for then nobody knows which length it has.
int WispReceiver::setHeaderBytes(int bytes)
{
    if (bytes == headerBytes_)
        return 0;
    if (begun() && !sizeKnown_ && (have_ < prefixBytes() || readSize() < 0))
        return recordError(ZV_ERROR_STATE, "%s: a header is half read and keeps its size", link_.peer());
    headerBytes_ = bytes;
    if (begun())
        have_ = prefixBytes();
    return 0;
}

// Also for the waits below it: blocks until a message comes, in the layer's
// interruptible wait alone.
int WispReceiver::getHeader(void* header)
{
    if (!usable() || skipRest() < 0 || readPrefix(headerBytes_) < 0)
        return -1;
    memcpy(header, prefix_, size_t(headerBytes_));
    headerGiven_ = true;
    return 0;
}

int WispReceiver::getSize(int* size)
{
    if (!usable() || readSize() < 0)
        return -1;
    *size = size_;
    return 0;
}

int WispReceiver::getData(void* data)
{
    if (!usable())
        return -1;
    if (!sizeKnown_)
        return recordError(ZV_ERROR_STATE, "%s: getData before getSize", link_.peer());
    if (left_ < size_)
        return recordError(ZV_ERROR_STATE, "%s: getData a second time", link_.peer());
    return left_ == 0 ? 0 : readData(static_cast<char*>(data));
}

bool WispReceiver::usable() const
{
    if (link_.closed() || damaged_)
        link_.recordEnded();
    return !link_.closed() && !damaged_;
}

// Leaves the last message behind, so that the stream stands where one begins.
int WispReceiver::skipRest()
{
    if (!headerGiven_)
        return 0;
    if (readSize() < 0)
        return -1;
    char scratch[16384];
    while (left_ > 0) {
        const int count = readSome(scratch, std::min(left_, int(sizeof scratch)));
        if (count < 0)
            return -1;
        left_ -= count;
    }
    have_ = 0;
    waited_ = 0;
    headerGiven_ = sizeKnown_ = false;
    return 0;
}

int WispReceiver::readPrefix(int atLeast)
{
    while (have_ < atLeast) {
        const int count = readSome(prefix_ + have_, prefixBytes() - have_);
        if (count < 0)
            return -1;
        have_ += count;
    }
    return 0;
}

int WispReceiver::readSize()
{
    if (sizeKnown_)
        return 0;
    if (!headerGiven_)
        return recordError(ZV_ERROR_STATE, "%s: getSize before getHeader", link_.peer());
    if (readPrefix(prefixBytes()) < 0)
        return -1;
    unsigned size = 0;
    for (int i = 0; i < sizeBytes; ++i)
        size |= unsigned((unsigned char)prefix_[headerBytes_ + i]) << (8 * i);
    if (int(size) < 0 || int(size) > kivLimits()->messageBytes)
        return refuseSize(int(size));
    size_ = left_ = int(size);
    sizeKnown_ = true;
    if (size_ == 0)
        endMessage();
    return 0;
}

int WispReceiver::refuseSize(int size)
{
    damaged_ = true;
    link_.end("a message of a size that cannot be");
    return recordError(ZV_ERROR_LIMIT, "%s: a message of %d bytes, messageBytes is %lld", link_.peer(), size,
                       kivLimits()->messageBytes);
}

int WispReceiver::readData(char* to)
{
    while (left_ > 0) {
        const int count = readSome(to, left_);
        if (count < 0)
            return -1;
        to += count;
        left_ -= count;
    }
    endMessage();
    return 0;
}

void WispReceiver::endMessage()
{
    received_.fetch_add(1, std::memory_order_relaxed);
    receivedBytes_.fetch_add(size_, std::memory_order_relaxed);
}

// At least one byte, at most `bytes`; waits for it.
int WispReceiver::readSome(char* to, int bytes)
{
    for (;;) {
        const ssize_t count = recv(link_.fd(), to, size_t(bytes), MSG_DONTWAIT);
        if (count > 0)
            return int(count);
        if (count == 0)
            return damaged(ZV_ERROR_PEER,
                           begun() ? "the peer has gone in the middle of a message" : "the peer has gone");
        if (errno == EAGAIN) {
            if (wait() < 0)
                return -1;
        } else if (errno != EINTR) {
            damaged_ = true;
            return link_.failSystem("a message cannot be read");
        }
    }
}

// Silence is allowed for ever between two messages. Inside one it may last idleMs, and
// all silences together recvMs, so that a peer that lets it drip does not stay for ever.
// What the reader itself takes its time for does not count.
int WispReceiver::wait()
{
    const uint64_t begin = monotonicNs();
    const uint64_t idle = deadlineIn(kivLimits()->idleMs);
    const uint64_t whole = deadlineIn(kivLimits()->recvMs) - waited_;
    const bool inside = begun();
    const int ready = pollFd(link_.fd(), POLLIN, inside ? std::max(std::min(idle, whole), uint64_t(1)) : 0);
    if (inside)
        waited_ += monotonicNs() - begin;
    if (ready == THREAD_POLL_READY)
        return 0;
    if (ready == THREAD_POLL_TIMEOUT && whole < idle)
        return damaged(ZV_ERROR_PEER, "a message was not whole within recvMs");
    if (ready == THREAD_POLL_STOP)
        return recordError(ZV_ERROR_STOPPED, "%s: a stop request ended the wait for a message", link_.peer());
    if (ready == THREAD_POLL_TIMEOUT)
        return damaged(ZV_ERROR_PEER, "half a message and then silence for idleMs");
    damaged_ = true;
    return link_.failSystem("the wait for a message failed");
}

int WispReceiver::damaged(int number, const char* why)
{
    damaged_ = true;
    return link_.fail(number, why);
}

void WispReceiver::addStats(wispStats& stats) const
{
    stats.received = received_.load(std::memory_order_relaxed);
    stats.receivedBytes = receivedBytes_.load(std::memory_order_relaxed);
}

}  // namespace kiv
