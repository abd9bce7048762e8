// fd.cpp - owning descriptors.
#include "platform/support/fd.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include "platform/support/error.h"

namespace kiv {

void UniqueFd::reset(int fd)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

UniqueFd selectableFd(int fd)
{
    UniqueFd owned(fd);
    if (!owned)
        return owned;
    if (fd < 3)
        owned.reset(fcntl(fd, F_DUPFD_CLOEXEC, 3));  // descriptors 0 to 2 belong to the program's streams
    else if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0)
        owned.reset();
    if (!owned) {
        recordSystemError(ZV_ERROR_SYSTEM, "descriptor %d cannot be moved", fd);
        return owned;
    }
    if (owned.get() >= FD_SETSIZE) {
        recordError(ZV_ERROR_LIMIT, "descriptor %d does not fit select(), which ends at %d", owned.get(), FD_SETSIZE - 1);
        owned.reset();
    }
    return owned;
}

}  // namespace kiv
