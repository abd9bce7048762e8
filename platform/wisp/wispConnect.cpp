// wispConnect.cpp - reaching a peer by its URL.
#include <poll.h>

#include <cerrno>
#include <new>
#include <vector>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"
#include "platform/wisp/wispSocketImpl.h"

namespace kiv {

namespace {

// Waits for the outcome of a connect that is under way; 0, or an errno.
int finishConnect(int fd, uint64_t deadline)
{
    const int ready = pollFd(fd, POLLOUT, deadline);
    if (ready == THREAD_POLL_STOP)
        return ECANCELED;
    if (ready == THREAD_POLL_TIMEOUT)
        return ETIMEDOUT;
    int error = errno;
    socklen_t length = sizeof error;
    if (ready == THREAD_POLL_READY)
        getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length);
    return error;
}

// One attempt; 0, or an errno. A Unix listener whose queue is full says EAGAIN
// and cannot be waited for, so that is asked again every tick.
int tryConnect(int fd, const WispAddress& address, uint64_t deadline)
{
    while (::connect(fd, address.get(), address.length) < 0) {
        if (errno == EINPROGRESS)
            return finishConnect(fd, deadline);
        if (errno != EAGAIN && errno != EINTR)
            return errno;
        if (monotonicNs() >= deadline)
            return ETIMEDOUT;
        if (nap(1) < 0)
            return ECANCELED;
    }
    return 0;
}

// Opens one address; an empty holder with errno set on failure.
UniqueFd openPeer(const WispAddress& address, uint64_t deadline)
{
    UniqueFd socket = openWispSocket(address.family());
    if (!socket)
        return socket;
    int error = tryConnect(socket.get(), address, deadline);
    if (error == 0 && sameEnds(socket.get(), true))
        error = ECONNREFUSED;  // a port of the system's own choice met itself: nobody else is there
    if (error == 0)
        return socket;
    errno = error;
    const std::string name = describeWispAddress(address);
    if (error == ECANCELED)
        recordError(ZV_ERROR_STOPPED, "%s: a stop request ended the connecting", name.c_str());
    else if (error == ETIMEDOUT)
        recordError(ZV_ERROR_PEER, "%s: no answer within connectMs, %d ms", name.c_str(), kivLimits()->connectMs);
    else
        recordSystemError(ZV_ERROR_PEER, "%s", name.c_str());
    socket.reset();
    errno = error;
    return socket;
}

// Each address gets an equal part of the time that is left, so that one that
// never answers does not keep the others from being tried.
std::unique_ptr<wispSocket> connectFirst(const std::vector<WispAddress>& addresses)
{
    const uint64_t end = deadlineIn(kivLimits()->connectMs);
    size_t untried = addresses.size();
    for (const WispAddress& address : addresses) {
        const uint64_t start = monotonicNs();
        const uint64_t deadline = start < end ? start + (end - start) / untried : start;
        --untried;
        UniqueFd socket = openPeer(address, deadline);
        if (socket)
            return makeWispSocket(std::move(socket), describeWispAddress(address));
        if (errno == ECANCELED)
            break;
    }
    return nullptr;
}

}  // namespace

}  // namespace kiv

// Any thread. Blocks while the system looks a name up (numbers and localhost need
// no looking up), then at most kivLimits()->connectMs; a stop request ends it.
std::unique_ptr<wispSocket> wispSocket::connect(const char* url)
{
    try {
        kiv::WispUrl parsed;
        std::vector<kiv::WispAddress> addresses;
        if (kiv::parseWispUrl(url, parsed) < 0)
            return nullptr;
        if (parsed.kind == kiv::WispUrl::Kind::Tcp && parsed.port == 0) {
            kiv::recordError(ZV_ERROR_ARGUMENT, "\"%s\": port 0 cannot be connected to", url);
            return nullptr;
        }
        if (kiv::resolveWispUrl(parsed, addresses) < 0)
            return nullptr;
        return kiv::connectFirst(addresses);
    } catch (const std::bad_alloc&) {
        kiv::recordError(ZV_ERROR_MEMORY, "no memory for a connection");
        return nullptr;
    }
}
