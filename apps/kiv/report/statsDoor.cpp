// statsDoor.cpp - see statsDoor.h.
#include "apps/kiv/report/statsDoor.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "apps/kiv/support/text.h"

namespace {

bool addressOf(const std::string& path, sockaddr_un* address)
{
    address->sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address->sun_path)
        return false;
    memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

// One byte with a descriptor beside it.
struct Parcel {
    char byte = 'k';
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec data = {&byte, 1};
    msghdr message = {};

    Parcel()
    {
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }
};

int connectTo(const std::string& path)
{
    sockaddr_un address = {};
    if (!addressOf(path, &address)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval second = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return fd;
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
}

}  // namespace

// Takes the place of a socket that nobody listens at any more.
std::string StatsDoor::open(kivLoop& loop, const std::string& path, STATSpage page)
{
    sockaddr_un address = {};
    if (!addressOf(path, &address))
        return text("a path has 1 to %zu bytes", sizeof address.sun_path - 1);
    struct stat facts;
    const int other = connectTo(path);
    if (other >= 0) {
        ::close(other);
        return "somebody listens there already";
    }
    if (stat(path.c_str(), &facts) == 0 && S_ISSOCK(facts.st_mode))
        unlink(path.c_str());
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd_, 8) != 0
        || loop.addFD(fd_, [this] { answer(); }) != kivErrNone) {
        const std::string wrong = strerror(errno);
        ::close(fd_);
        fd_ = -1;
        return wrong;
    }
    loop_ = &loop;
    path_ = path;
    page_ = page;
    return "";
}

void StatsDoor::answer()
{
    const int peer = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (peer < 0)
        return;
    Parcel parcel;
    const int page = statsGetFD(page_);
    cmsghdr* head = CMSG_FIRSTHDR(&parcel.message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(head), &page, sizeof page);
    sendmsg(peer, &parcel.message, MSG_NOSIGNAL);  // a peer that has left gets nothing
    ::close(peer);
}

void StatsDoor::close()
{
    if (fd_ < 0)
        return;
    loop_->removeFD(fd_);
    unlink(path_.c_str());
    ::close(fd_);
    fd_ = -1;
}

std::string fetchPage(const std::string& path, STATSpage* page)
{
    const int peer = connectTo(path);
    if (peer < 0)
        return strerror(errno);
    Parcel parcel;
    const ssize_t got = recvmsg(peer, &parcel.message, MSG_CMSG_CLOEXEC);
    const int error = errno;
    ::close(peer);
    const cmsghdr* head = got == 1 ? CMSG_FIRSTHDR(&parcel.message) : nullptr;
    if (head == nullptr || head->cmsg_type != SCM_RIGHTS || head->cmsg_len != CMSG_LEN(sizeof(int)))
        return got < 0 ? strerror(error) : "no kiv answers there";
    int fd = -1;
    memcpy(&fd, CMSG_DATA(head), sizeof fd);
    const int wrong = statsOpenFD(fd, page);
    ::close(fd);
    return wrong == 0 ? "" : serviceError();
}
