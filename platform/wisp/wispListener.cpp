// wispListener.cpp - waiting for peers.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/support/error.h"
#include "platform/wisp/wispSocketImpl.h"

struct wispListener::Impl {
    ~Impl();

    kiv::UniqueFd socket;
    kiv::UniqueFd spare;  // given up for a moment to turn a peer away when no descriptor is left
    std::string url;
    std::string path;  // of a Unix socket, removed at the end if it is still this one
    dev_t device = 0;
    ino_t inode = 0;
};

namespace kiv {

namespace {

constexpr int backlog = 16;

// Who may connect is who may open the file: the owner. The mode must be right
// before bind() makes the file visible.
int bindUnix(int fd, const WispAddress& address)
{
    if (fchmod(fd, 0600) < 0)
        return -1;
    return bind(fd, address.get(), address.length);
}

// True when the file at this path is a socket that nobody listens on any more.
// Asked with the wrong type of socket: a live listener answers that the type is
// wrong, and never sees a peer.
bool isStale(const std::string& path, const WispAddress& address)
{
    struct stat status;
    if (lstat(path.c_str(), &status) < 0 || !S_ISSOCK(status.st_mode))
        return false;
    UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return probe && connect(probe.get(), address.get(), address.length) < 0 && errno == ECONNREFUSED;
}

int listenUnix(wispListener::Impl& impl, const WispUrl& url, const WispAddress& address)
{
    const char* path = url.path.c_str();
    int bound = bindUnix(impl.socket.get(), address);
    if (bound < 0 && errno == EADDRINUSE) {
        if (isStale(url.path, address) && unlink(path) == 0)
            bound = bindUnix(impl.socket.get(), address);
        else
            errno = EADDRINUSE;
    }
    if (bound < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "unix:%s", path);
    struct stat status;
    if (lstat(path, &status) == 0) {
        impl.path = url.path;
        impl.device = status.st_dev;
        impl.inode = status.st_ino;
    }
    return listen(impl.socket.get(), backlog) == 0 ? 0 : recordSystemError(ZV_ERROR_SYSTEM, "unix:%s", path);
}

int listenTcp(wispListener::Impl& impl, const WispAddress& address)
{
    const int one = 1;
    setsockopt(impl.socket.get(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (bind(impl.socket.get(), address.get(), address.length) < 0 || listen(impl.socket.get(), backlog) < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "%s", describeWispAddress(address).c_str());
    return 0;
}

int listenAt(wispListener::Impl& impl, const WispUrl& url)
{
    std::vector<WispAddress> addresses;
    if (resolveWispUrl(url, addresses) < 0)
        return -1;
    WispAddress& address = addresses.front();
    impl.socket = openWispSocket(address.family());
    if (!impl.socket)
        return -1;
    if ((url.kind == WispUrl::Kind::Unix ? listenUnix(impl, url, address) : listenTcp(impl, address)) < 0)
        return -1;
    address.length = sizeof address.bytes;
    if (getsockname(impl.socket.get(), address.get(), &address.length) < 0)
        return recordSystemError(ZV_ERROR_SYSTEM, "a listener without an address");
    impl.url = describeWispAddress(address);
    impl.spare.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return 0;
}

// With no descriptor left a waiting peer would keep the listener readable and its
// owner's loop spinning: it is taken and turned away at once.
void turnAway(wispListener::Impl& impl)
{
    impl.spare.reset();
    UniqueFd turned(accept4(impl.socket.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    turned.reset();
    impl.spare.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

// The next peer's socket; empty, with an error recorded, when none waits or none can be taken.
UniqueFd acceptPeer(wispListener::Impl& impl, WispAddress& address)
{
    for (;;) {
        address.length = sizeof address.bytes;
        const int fd = accept4(impl.socket.get(), address.get(), &address.length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0)
            return selectableFd(fd);
        const int error = errno;
        if (error == EINTR || error == ECONNABORTED)
            continue;
        if (error == EAGAIN) {
            recordError(ZV_ERROR_EMPTY, "%s: no peer waits", impl.url.c_str());
            return UniqueFd();
        }
        if (error == EMFILE || error == ENFILE)
            turnAway(impl);
        errno = error;
        recordSystemError(ZV_ERROR_SYSTEM, "%s: a peer cannot be taken", impl.url.c_str());
        return UniqueFd();
    }
}

}  // namespace

}  // namespace kiv

wispListener::Impl::~Impl()
{
    struct stat status;
    if (!path.empty() && lstat(path.c_str(), &status) == 0 && status.st_dev == device && status.st_ino == inode)
        unlink(path.c_str());
}

wispListener::wispListener(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { }

wispListener::~wispListener() = default;

// Any thread. Blocks only while the system looks a name up. A Unix socket's file
// that nobody listens on is replaced; one in use, or a file of another kind, is left alone.
std::unique_ptr<wispListener> wispListener::open(const char* url)
{
    try {
        kiv::WispUrl parsed;
        auto impl = std::make_unique<Impl>();
        if (kiv::parseWispUrl(url, parsed) < 0 || kiv::listenAt(*impl, parsed) < 0)
            return nullptr;
        return std::make_unique<wispListener>(std::move(impl));
    } catch (const std::bad_alloc&) {
        kiv::recordError(ZV_ERROR_MEMORY, "no memory for a listener");
        return nullptr;
    }
}

int wispListener::getFD() { return impl_->socket.get(); }

// One thread at a time. A peer that went while it waited is passed over.
std::unique_ptr<wispSocket> wispListener::accept()
{
    try {
        kiv::WispAddress address;
        kiv::UniqueFd socket = kiv::acceptPeer(*impl_, address);
        if (!socket)
            return nullptr;
        const bool local = address.family() == AF_UNIX;
        return kiv::makeWispSocket(std::move(socket), local ? impl_->url : kiv::describeWispAddress(address));
    } catch (const std::bad_alloc&) {
        kiv::recordError(ZV_ERROR_MEMORY, "no memory for a connection");
        return nullptr;
    }
}

const char* wispListener::url() { return impl_->url.c_str(); }
