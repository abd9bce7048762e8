// wispUrl.h - addresses of the transport: "tcp://host:port", "tcp://[v6]:port", "unix:path".
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <vector>

namespace kiv {

struct WispUrl {
    enum class Kind { Tcp, Unix };

    Kind kind = Kind::Tcp;
    std::string host;  // without brackets; empty: this machine alone
    int port = 0;
    std::string path;
};

// What connect() and bind() take.
struct WispAddress {
    sockaddr_storage bytes = {};
    socklen_t length = 0;

    int family() const { return bytes.ss_family; }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&bytes); }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&bytes); }
};

// Takes a URL apart; -1, with what is wrong and where in it, when it is none of the three forms.
int parseWispUrl(const char* text, WispUrl& url);

// The addresses that a URL stands for, best first. A name is looked up, which
// blocks as long as the system's resolver does. -1 when there is none.
int resolveWispUrl(const WispUrl& url, std::vector<WispAddress>& addresses);

// As a URL with numbers for names.
std::string describeWispAddress(const WispAddress& address);

// True when both ends of a connected TCP socket have one address, so that the peer
// is on this machine; with the port as well, the socket is its own peer.
bool sameEnds(int fd, bool withPort);

}  // namespace kiv
