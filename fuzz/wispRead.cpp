// wispRead.cpp - any bytes from a peer: what is read is what a plain parser reads.
//
// The first byte says how often a message is left unread; the rest is the stream.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/limits.h"
#include "platform/wisp/wispSocket.h"

namespace {

constexpr size_t headerBytes = 24;
constexpr int longest = 4096;

void require(bool good)
{
    if (!good)
        abort();
}

wispListener& listener()
{
    static const std::unique_ptr<wispListener> made = [] {
        kivLimits()->messageBytes = longest;
        char dir[] = "/tmp/wispfuzzXXXXXX";
        require(mkdtemp(dir) != nullptr);
        return wispListener::open((std::string("unix:") + dir + "/s").c_str());
    }();
    require(made != nullptr);
    return *made;
}

// A peer that says these bytes and goes.
std::unique_ptr<wispSocket> meet(const uint8_t* bytes, size_t count)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, listener().url() + strlen("unix:"));
    const int peer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(connect(peer, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
    require(count == 0 || send(peer, bytes, count, MSG_NOSIGNAL | MSG_DONTWAIT) == ssize_t(count));
    close(peer);
    return listener().accept();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count)
{
    if (count < 1 || count > 65536)
        return 0;
    const int leaveEvery = *bytes++ % 4;
    const uint8_t* const end = bytes + count - 1;
    const auto socket = meet(bytes, count - 1);
    require(socket != nullptr);

    for (int i = 1;; ++i) {
        char header[headerBytes];
        if (end - bytes < ptrdiff_t(headerBytes)) {
            require(socket->getHeader(header) == -1);
            return 0;
        }
        require(socket->getHeader(header) == 0 && memcmp(header, bytes, headerBytes) == 0);
        bytes += headerBytes;
        int32_t told = -1;
        if (end - bytes >= 4)
            memcpy(&told, bytes, 4);
        int size = -1;
        const bool leave = leaveEvery != 0 && i % leaveEvery == 0;
        if (!leave)
            require((socket->getSize(&size) == 0) == (told >= 0 && told <= longest));
        if (told < 0 || told > longest) {
            require(socket->getHeader(header) == -1);
            return 0;
        }
        bytes += 4;
        const bool whole = end - bytes >= told;
        if (!leave) {
            require(size == told);
            const auto data = std::make_unique<char[]>(size_t(size));  // exactly: a byte more is a report
            require((socket->getData(data.get()) == 0) == (whole || size == 0));
            require(!whole || memcmp(data.get(), bytes, size_t(size)) == 0);
        }
        if (!whole) {
            require(socket->getHeader(header) == -1);
            return 0;
        }
        bytes += told;
    }
}
