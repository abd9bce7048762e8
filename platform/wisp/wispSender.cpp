// wispSender.cpp - see wispSender.h.
#include "platform/wisp/wispSender.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"

namespace kiv {

namespace {

const char tookNothing[] = "the peer took nothing for sendMs";

}  // namespace

WispMessage::WispMessage(const void* h, size_t hBytes, const void* d, int s)
    : header(h), headerBytes(hBytes), data(d), size(s)
{
    for (int i = 0; i < 4; ++i)
        wireSize[i] = (unsigned char)(unsigned(s) >> (8 * i));
}

int WispMessage::pieces(size_t at, iovec out[3]) const
{
    const iovec all[3] = {{const_cast<void*>(header), headerBytes},
                          {const_cast<unsigned char*>(wireSize), sizeof wireSize},
                          {const_cast<void*>(data), size_t(size)}};
    int count = 0;
    for (const iovec& piece : all) {
        const size_t skip = std::min(at, piece.iov_len);
        at -= skip;
        if (piece.iov_len > skip)
            out[count++] = {static_cast<char*>(piece.iov_base) + skip, piece.iov_len - skip};
    }
    return count;
}

// Grows in steps, so that frames of nearly equal size settle in one block.
bool WispSender::Block::fill(const WispMessage& message, size_t from)
{
    const size_t need = message.bytes() - from;
    if (need > capacity) {
        const size_t rounded = (need + need / 4 + 65535) & ~size_t(65535);
        memory.reset();
        capacity = 0;
        memory.reset(new (std::nothrow) char[rounded]);
        if (!memory)
            return false;
        capacity = rounded;
    }
    iovec parts[3];
    const int count = message.pieces(from, parts);
    char* to = memory.get();
    for (int i = 0; i < count; ++i) {
        memcpy(to, parts[i].iov_base, parts[i].iov_len);
        to += parts[i].iov_len;
    }
    size = need;
    at = 0;
    dataBytes = message.size;
    begun = from > 0;
    return true;
}

int WispSender::send(const WispMessage& message)
{
    Lock lock(mutex_);
    if (link_.ended())
        return link_.recordEnded();
    return lossless_.load(std::memory_order_relaxed) ? sendLossless(lock, message) : sendNewest(lock, message);
}

int WispSender::sendNewest(Lock& lock, const WispMessage& message)
{
    if (pending() && !busy_)
        push(lock);  // the writer may not have run yet since there is room again
    if (link_.ended())
        return link_.recordEnded();
    if (pending())
        return keepNewest(message);
    const ptrdiff_t taken = write(message, 0);
    if (taken < 0)
        return -1;
    if (size_t(taken) == message.bytes())
        return 0;
    progress_ = monotonicNs();
    return taken == 0 ? keepNewest(message) : keepRest(message, size_t(taken));
}

// Writes from the caller's memory until all is gone. A message begun is never
// left half done: when a stop request ends the wait, the writer gets the rest.
int WispSender::sendLossless(Lock& lock, const WispMessage& message)
{
    if (waitForRoom(lock) < 0)
        return -1;
    progress_ = monotonicNs();
    for (size_t at = 0;;) {
        const ptrdiff_t taken = write(message, at);
        if (taken < 0)
            return -1;
        at += size_t(taken);
        if (at == message.bytes())
            return 0;
        if (taken > 0)
            progress_ = monotonicNs();
        const int ready = wait(lock, stallDeadline());
        if (ready == THREAD_POLL_READY)
            continue;
        if (at == 0 || link_.ended())
            return -1;
        return ready == THREAD_POLL_STOP ? keepRest(message, at) : link_.fail(ZV_ERROR_PEER, tookNothing);
    }
}

// Lossless: everything handed in before goes first.
int WispSender::waitForRoom(Lock& lock)
{
    while (pending()) {
        push(lock);
        if (link_.ended())
            return link_.recordEnded();
        if (pending() && wait(lock, stallDeadline()) != THREAD_POLL_READY)
            return -1;
    }
    return 0;
}

// One gather write; the bytes taken, 0 when there is no room, -1 when the link has failed.
ptrdiff_t WispSender::write(const WispMessage& message, size_t at)
{
    iovec parts[3];
    msghdr head = {};
    head.msg_iov = parts;
    head.msg_iovlen = size_t(message.pieces(at, parts));
    ptrdiff_t taken;
    do
        taken = sendmsg(link_.fd(), &head, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (taken < 0 && errno == EINTR);
    if (taken < 0)
        return errno == EAGAIN ? 0 : link_.failSystem("a message cannot be sent");
    if (at + size_t(taken) == message.bytes())
        countSent(message.size);
    return taken;
}

// Copies the rest of a message begun; the writer finishes it.
int WispSender::keepRest(const WispMessage& message, size_t at)
{
    if (!out_.fill(message, at)) {
        recordError(ZV_ERROR_MEMORY, "no memory for the rest of a message of %d bytes", message.size);
        link_.end("no memory for the rest of a message");
        return -1;
    }
    return wakeWriter();
}

// Copies a message that waits; the one that waited before gives way.
int WispSender::keepNewest(const WispMessage& message)
{
    const bool replaced = !next_.empty();
    next_.clear();
    if (replaced)
        ++dropped_;
    if (!next_.fill(message, 0))
        return recordError(ZV_ERROR_MEMORY, "no memory for a message of %d bytes that waits", message.size);
    return wakeWriter();
}

int WispSender::wakeWriter()
{
    if (closing_)
        return link_.recordEnded();
    if (writer_.joinable()) {
        changed_.notify_all();
        return 0;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the application's signals are not for the writer
    try {
        writer_ = std::thread(&WispSender::runWriter, this);
    } catch (const std::system_error&) {
        link_.fail(ZV_ERROR_SYSTEM, "the connection's writer thread does not start");
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return writer_.joinable() ? 0 : -1;
}

// Writes what is pending until the kernel takes no more or the link ends.
void WispSender::push(Lock& lock)
{
    changed_.wait(lock, [this] { return !busy_; });
    while (!link_.ended() && pending()) {
        if (out_.empty())
            std::swap(out_, next_);
        if (!pushOut(lock))
            return putBack();
    }
}

// One write of `out_`, without the lock, so that the loop never waits for the
// kernel behind the writer. False when there is no more room.
bool WispSender::pushOut(Lock& lock)
{
    const char* from = out_.memory.get() + out_.at;
    const size_t left = out_.size - out_.at;
    busy_ = true;
    lock.unlock();
    const ptrdiff_t taken = ::send(link_.fd(), from, left, MSG_NOSIGNAL | MSG_DONTWAIT);
    const int error = errno;
    lock.lock();
    busy_ = false;
    changed_.notify_all();
    if (taken < 0) {
        errno = error;
        if (error != EAGAIN && error != EINTR)
            link_.failSystem("a message cannot be sent");
        return error == EINTR;
    }
    progress_ = monotonicNs();
    out_.begun = true;
    out_.at += size_t(taken);
    if (size_t(taken) < left)
        return false;
    countSent(out_.dataBytes);
    out_.clear();
    return true;
}

// A message that was taken up and not begun waits again, or gives way to the newer one.
void WispSender::putBack()
{
    if (out_.empty() || out_.begun)
        return;
    if (next_.empty()) {
        std::swap(out_, next_);
        return;
    }
    out_.clear();
    ++dropped_;
}

// Waits without the lock until there may be room. A THREAD_POLL_ value; all but
// READY are recorded.
int WispSender::wait(Lock& lock, uint64_t deadline)
{
    lock.unlock();
    const int ready = pollFd(link_.fd(), POLLOUT, deadline);
    lock.lock();
    if (ready == THREAD_POLL_STOP)
        recordError(ZV_ERROR_STOPPED, "%s: a stop request ended the wait for room", link_.peer());
    else if (ready == THREAD_POLL_TIMEOUT)
        recordError(ZV_ERROR_PEER, "%s: no room for a message in time", link_.peer());
    else if (ready == THREAD_POLL_ERROR)
        link_.failSystem("the wait for room failed");
    return ready;
}

void WispSender::countSent(int dataBytes)
{
    ++sent_;
    sentBytes_ += dataBytes;
}

// When a peer that takes nothing is given up.
uint64_t WispSender::stallDeadline() const { return progress_ + uint64_t(kivLimits()->sendMs) * 1'000'000; }

// The connection's writer thread: sleeps until something is pending, then writes
// whenever there is room.
void WispSender::runWriter()
{
    Lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return closing_ || (pending() && !busy_ && !link_.ended()); });
        if (closing_)
            return;
        const uint64_t deadline = stallDeadline();
        lock.unlock();
        const int ready = pollFd(link_.fd(), POLLOUT, deadline);
        lock.lock();
        if (closing_)
            return;
        if (ready == THREAD_POLL_READY)
            push(lock);
        else if (pending() && (ready == THREAD_POLL_ERROR || monotonicNs() >= stallDeadline()))
            link_.end(tookNothing);
    }
}

int WispSender::close(int drainMs)
{
    Lock lock(mutex_);
    if (closing_)
        return closeResult_;
    const uint64_t deadline = deadlineIn(drainMs);
    while (pending() && !link_.ended()) {
        push(lock);
        if (pending() && !link_.ended() && wait(lock, deadline) != THREAD_POLL_READY)
            break;
    }
    closeResult_ = pending() ? recordError(ZV_ERROR_PEER, "%s: closed before everything had gone", link_.peer()) : 0;
    closing_ = true;
    link_.setClosed();
    changed_.notify_all();
    lock.unlock();
    if (writer_.joinable())
        writer_.join();
    return closeResult_;
}

void WispSender::addStats(wispStats& stats)
{
    std::lock_guard lock(mutex_);
    stats.sent = sent_;
    stats.sentBytes = sentBytes_;
    stats.dropped = dropped_;
    stats.queuedBytes = (long long)(out_.size - out_.at + next_.size - next_.at);
    stats.waiting = next_.empty() ? 0 : 1;
}

}  // namespace kiv
