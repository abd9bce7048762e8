// wispLink.cpp - see wispLink.h.
#include "platform/wisp/wispLink.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>

#include <cerrno>
#include <utility>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"

namespace kiv {

namespace {

void setOption(int fd, int level, int option, int value) { setsockopt(fd, level, option, &value, sizeof value); }

// What may wait in the kernel. A deeper queue makes a slow receiver's picture
// old, and on one machine it costs speed too: what does not stay in the cache is
// fetched from memory twice. Still a frame of 260 KB goes in one write.
constexpr int queueBytes = 256 * 1024;

// Small writes leave at once, and a peer whose machine has died is noticed: by
// probes while the line is silent, by unanswered data otherwise. Across a network
// the kernel sizes the send buffer to the line; only what has not left is bounded.
void tuneTcp(int fd)
{
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, queueBytes);
    if (sameEnds(fd, false))
        setOption(fd, SOL_SOCKET, SO_SNDBUF, queueBytes);
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, 5);
    setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, 2);
    setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, 3);
    setOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, kivLimits()->sendMs);
}

}  // namespace

uint64_t deadlineIn(int ms) { return monotonicNs() + uint64_t(ms < 0 ? 0 : ms) * 1'000'000; }

UniqueFd openWispSocket(int family)
{
    const int fd = socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        recordSystemError(ZV_ERROR_SYSTEM, "a socket cannot be made");
    return selectableFd(fd);
}

WispLink::WispLink(UniqueFd socket, std::string peer) : socket_(std::move(socket)), peer_(std::move(peer))
{
    int family = AF_UNIX;
    socklen_t length = sizeof family;
    getsockopt(fd(), SOL_SOCKET, SO_DOMAIN, &family, &length);
    if (family == AF_UNIX)
        setOption(fd(), SOL_SOCKET, SO_SNDBUF, queueBytes);
    else
        tuneTcp(fd());
}

// An epoll descriptor that watches for the other side's end alone: nobody has to
// read or send for it to become readable, and arriving data leaves it silent.
int WispLink::endFd()
{
    std::lock_guard lock(endFdMutex_);
    if (endFd_)
        return endFd_.get();
    const int made = epoll_create1(EPOLL_CLOEXEC);
    if (made < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "no descriptor for the end of a connection");
    UniqueFd watch = selectableFd(made);
    if (!watch)
        return -1;
    epoll_event event = {.events = EPOLLRDHUP, .data = {}};
    if (epoll_ctl(watch.get(), EPOLL_CTL_ADD, fd(), &event) < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "the end of a connection cannot be watched");
    endFd_ = std::move(watch);
    return endFd_.get();
}

void WispLink::end(const char* why)
{
    const char* none = nullptr;
    if (why_.compare_exchange_strong(none, why, std::memory_order_acq_rel))
        shutdown(fd(), SHUT_RDWR);
}

int WispLink::fail(int number, const char* why)
{
    end(why);
    return recordError(number, "%s: %s", peer(), why_.load(std::memory_order_acquire));
}

int WispLink::failSystem(const char* what)
{
    if (errno == EPIPE || errno == ECONNRESET)
        return fail(ZV_ERROR_PEER, "the peer has gone");
    if (errno == ETIMEDOUT || errno == EHOSTUNREACH || errno == ENETUNREACH)
        return fail(ZV_ERROR_PEER, "the peer does not answer");
    const int saved = errno;
    end(what);
    errno = saved;
    return recordSystemError(ZV_ERROR_SYSTEM, "%s: %s", peer(), what);
}

int WispLink::recordEnded() const
{
    const char* why = why_.load(std::memory_order_acquire);
    const bool here = closed();
    return recordError(here ? ZV_ERROR_STATE : ZV_ERROR_PEER, "%s: %s", peer(),
                       here || why == nullptr ? "the connection is closed" : why);
}

void WispLink::setClosed()
{
    closed_.store(true, std::memory_order_release);
    end("the connection is closed");
}

}  // namespace kiv
