// wispSocket.h - messages over TCP (IPv4, IPv6) and Unix sockets.
//
// On the wire: the header block as it lies in memory, the data size as 32-bit
// little-endian, the data.
#pragma once

#include <memory>

#include "platform/wisp/wispData.h"

struct wispStats {
    long long sent;  // messages gone to the kernel whole
    long long sentBytes;  // of data
    long long dropped;  // messages that a newer one replaced before they were begun
    long long received;  // messages read whole
    long long receivedBytes;
    long long queuedBytes;  // copied and not yet gone
    int waiting;  // 0 or 1 messages not yet begun
};

// Thread-safe for one reader and one sender at a time.
class KIV_API wispSocket final : public wispData {
public:
    // Connects to "tcp://host:port", "tcp://[v6]:port" or "unix:path", within
    // kivLimits()->connectMs. Null on failure; zvGetError names what was wrong.
    static std::unique_ptr<wispSocket> connect(const char* url);
    ~wispSocket() override;  // close(0)

    int setHeaderSize(int bytes) override;
    int getFD(int* fd) override;
    int getHeader(void* header) override;
    int getSize(int* size) override;
    int getData(void* data) override;

    // Never blocks: one gather write; what the kernel does not take is copied and
    // flushed by a writer thread, and one newer message may wait behind it: the
    // newest wins, the one that gives way is counted. -1 once the peer is gone.
    // Lossless: waits until the kernel has the whole message, as long as the peer takes
    // something every kivLimits()->sendMs, else -1. A stop request ends the wait: -1 when
    // nothing of the message had gone, 0 when the writer finishes it.
    int sendData(void* header, void* data, int size) override;

    int setLossless(int on);
    // Readable once the peer is gone or the connection failed. The connection's own.
    int getEndFD();
    // Sends what is pending for at most that many milliseconds, then closes.
    // Returns 0 when everything went out.
    int close(int drainMs);
    // Address of the other side, for messages; never null.
    const char* peerName();
    wispStats stats();

    struct Impl;
    explicit wispSocket(std::unique_ptr<Impl> impl);

private:
    std::unique_ptr<Impl> impl_;
};

// Waits for peers. "tcp://:port" and "tcp://localhost:port" bind to loopback; any
// other address is bound as it is written; port 0 takes a free one.
class KIV_API wispListener {
public:
    static std::unique_ptr<wispListener> open(const char* url);
    ~wispListener();

    int getFD();  // readable when a peer waits
    std::unique_ptr<wispSocket> accept();  // never blocks; null when none waits
    const char* url();  // with the port that was taken

    struct Impl;
    explicit wispListener(std::unique_ptr<Impl> impl);

private:
    std::unique_ptr<Impl> impl_;
};
