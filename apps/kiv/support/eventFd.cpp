// eventFd.cpp - see eventFd.h.
#include "apps/kiv/support/eventFd.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

// Never one of the three standard descriptors, even when those are closed.
EventFd::EventFd() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (fd_ < 0 || fd_ > 2)
        return;
    int low = fd_;
    fd_ = fcntl(low, F_DUPFD_CLOEXEC, 3);
    ::close(low);
}

EventFd::~EventFd()
{
    if (fd_ >= 0)
        ::close(fd_);
}

void EventFd::raise()
{
    uint64_t one = 1;
    [[maybe_unused]] ssize_t n = write(fd_, &one, sizeof one);
}

void EventFd::clear()
{
    uint64_t count;
    [[maybe_unused]] ssize_t n = read(fd_, &count, sizeof count);
}
