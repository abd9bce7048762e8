// readySignal.cpp - see readySignal.h.
#include "platform/zv/readySignal.h"

#include <sys/socket.h>

#include "platform/support/error.h"

namespace kiv {

namespace {

constexpr char filler[2048] = {};  // more than a send side of the least size takes beside it

// Takes what waits at `end`, which never is more than a filler.
void drain(int end)
{
    char scrap[2 * sizeof filler];
    [[maybe_unused]] const ssize_t taken = recv(end, scrap, sizeof scrap, 0);
}

}  // namespace

int ReadySignal::open()
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "no socket pair for a pool's descriptor");
    outer_ = selectableFd(ends[0]);
    inner_ = selectableFd(ends[1]);
    const int least = 1;  // the kernel raises it to its minimum, some 4.5 KiB
    if (outer_ && inner_ && setsockopt(fd(), SOL_SOCKET, SO_SNDBUF, &least, sizeof least) < 0) {
        recordSystemError(ZV_ERROR_SYSTEM, "a pool's descriptor cannot be set up");
        inner_.reset();
    }
    if (!outer_ || !inner_) {
        close();
        return -1;
    }
    ready_ = false;
    send(fd(), filler, sizeof filler, MSG_NOSIGNAL);
    return 0;
}

void ReadySignal::close()
{
    outer_.reset();
    inner_.reset();
}

void ReadySignal::set(bool ready)
{
    if (!*this || ready == ready_)
        return;
    ready_ = ready;
    drain(ready ? inner_.get() : fd());
    if (ready)
        send(inner_.get(), "x", 1, MSG_NOSIGNAL);
    else
        send(fd(), filler, sizeof filler, MSG_NOSIGNAL);
}

}  // namespace kiv
