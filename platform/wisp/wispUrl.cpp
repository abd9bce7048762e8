// wispUrl.cpp - see wispUrl.h.
#include "platform/wisp/wispUrl.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>

#include <cstddef>
#include <cstring>

#include "platform/support/error.h"

namespace kiv {

namespace {

const char tcpScheme[] = "tcp://";
const char unixScheme[] = "unix:";

bool parsePort(const char* text, int& port)
{
    int value = 0;
    int digits = 0;
    for (; text[digits] >= '0' && text[digits] <= '9' && digits < 6; ++digits)
        value = value * 10 + (text[digits] - '0');
    if (digits == 0 || text[digits] != '\0' || value > 65535)
        return false;
    port = value;
    return true;
}

// Splits "host:port", "[v6]:port" or ":port"; the colon before the port, or null.
const char* splitHost(const char* text, const char* rest, std::string& host)
{
    if (*rest != '[') {
        const char* colon = strchr(rest, ':');
        if (colon == nullptr)
            recordError(ZV_ERROR_ARGUMENT, "\"%s\" has no port: tcp://host:port", text);
        else
            host.assign(rest, colon);
        return colon;
    }
    const char* bracket = strchr(rest, ']');
    if (bracket == nullptr || bracket[1] != ':') {
        recordError(ZV_ERROR_ARGUMENT, "\"%s\" has no \"]:port\" after its IPv6 address", text);
        return nullptr;
    }
    host.assign(rest + 1, bracket);
    return bracket + 1;
}

int parseTcp(const char* text, WispUrl& url)
{
    url.kind = WispUrl::Kind::Tcp;
    const char* colon = splitHost(text, text + strlen(tcpScheme), url.host);
    if (colon == nullptr)
        return -1;
    if (parsePort(colon + 1, url.port))
        return 0;
    if (strchr(colon + 1, ':') != nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "\"%s\": an IPv6 address stands in brackets, tcp://[::1]:port", text);
    return recordError(ZV_ERROR_ARGUMENT, "\"%s\": \"%s\" is no port, 0 to 65535", text, colon + 1);
}

int parseUnix(const char* text, WispUrl& url)
{
    url.kind = WispUrl::Kind::Unix;
    url.path = text + strlen(unixScheme);
    if (url.path.empty())
        return recordError(ZV_ERROR_ARGUMENT, "\"%s\" has no path: unix:path", text);
    const size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    if (url.path.size() > longest)
        return recordError(ZV_ERROR_ARGUMENT, "the path of a Unix socket has %zu bytes, at most %zu fit",
                           url.path.size(), longest);
    return 0;
}

WispAddress unixAddress(const std::string& path)
{
    WispAddress address;
    auto* name = reinterpret_cast<sockaddr_un*>(&address.bytes);
    name->sun_family = AF_UNIX;
    memcpy(name->sun_path, path.c_str(), path.size() + 1);
    address.length = socklen_t(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return address;
}

}  // namespace

int parseWispUrl(const char* text, WispUrl& url)
{
    if (text == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no URL: tcp://host:port or unix:path");
    if (strncmp(text, tcpScheme, strlen(tcpScheme)) == 0)
        return parseTcp(text, url);
    if (strncmp(text, unixScheme, strlen(unixScheme)) == 0)
        return parseUnix(text, url);
    return recordError(ZV_ERROR_ARGUMENT, "\"%s\" begins with neither tcp:// nor unix:", text);
}

int resolveWispUrl(const WispUrl& url, std::vector<WispAddress>& addresses)
{
    if (url.kind == WispUrl::Kind::Unix) {
        addresses.push_back(unixAddress(url.path));
        return 0;
    }
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    // This machine's own name is never looked up: who resolves it elsewhere would be believed.
    const bool loopback = url.host.empty() || url.host == "localhost";
    const char* host = loopback ? "127.0.0.1" : url.host.c_str();
    addrinfo* found = nullptr;
    const int failure = getaddrinfo(host, std::to_string(url.port).c_str(), &hints, &found);
    if (failure != 0)
        return recordError(ZV_ERROR_SYSTEM, "host \"%s\": %s", host, gai_strerror(failure));
    for (const addrinfo* a = found; a != nullptr; a = a->ai_next) {
        WispAddress& address = addresses.emplace_back();
        address.length = a->ai_addrlen;
        memcpy(&address.bytes, a->ai_addr, a->ai_addrlen);
    }
    freeaddrinfo(found);
    return 0;
}

std::string describeWispAddress(const WispAddress& address)
{
    if (address.family() == AF_UNIX) {
        const auto* name = reinterpret_cast<const sockaddr_un*>(&address.bytes);
        const bool named = address.length > offsetof(sockaddr_un, sun_path) && name->sun_path[0] != '\0';
        return std::string(unixScheme) + (named ? name->sun_path : "");
    }
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(address.get(), address.length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV)
        != 0)
        return "an unknown address";
    const bool six = address.family() == AF_INET6;
    return std::string(tcpScheme) + (six ? "[" : "") + host + (six ? "]:" : ":") + port;
}

bool sameEnds(int fd, bool withPort)
{
    WispAddress ends[2];
    for (WispAddress& end : ends)
        end.length = sizeof end.bytes;
    if (getsockname(fd, ends[0].get(), &ends[0].length) < 0 || getpeername(fd, ends[1].get(), &ends[1].length) < 0)
        return false;
    if (ends[0].family() == AF_UNIX || ends[0].length != ends[1].length)
        return false;
    for (WispAddress& end : ends) {
        if (!withPort)
            reinterpret_cast<sockaddr_in*>(&end.bytes)->sin_port = 0;  // at the same place in IPv6
    }
    return memcmp(&ends[0].bytes, &ends[1].bytes, ends[0].length) == 0;
}

}  // namespace kiv
