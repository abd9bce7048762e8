// wispLink.h - one open socket, shared by the sending and the reading side.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/support/fd.h"
#include "platform/wisp/wispUrl.h"

namespace kiv {

// Nanoseconds on the layer's clock, `ms` from now.
uint64_t deadlineIn(int ms);

// A non-blocking stream socket for this family, fit for select(); empty, with
// an error recorded, on failure.
UniqueFd openWispSocket(int family);

// Thread-safe. The descriptor lives as long as the object: ending a connection
// shuts it down, which wakes everybody who waits for it, and frees no number
// that somebody may still be waiting on.
class WispLink {
public:
    static constexpr int maxHeaderBytes = 1024;

    WispLink(UniqueFd socket, std::string peer);

    int fd() const { return socket_.get(); }
    const char* peer() const { return peer_.c_str(); }

    // Readable once the peer is gone or the link has ended; made at the first
    // call. -1 on failure.
    int endFd();

    // Ends the connection for both sides; the first reason is kept. `why` lives for ever.
    void end(const char* why);
    bool ended() const { return why_.load(std::memory_order_acquire) != nullptr; }
    // Ends the connection and records why: `number` and the words. Always -1.
    int fail(int number, const char* why);
    // The same for a failed system call, by errno: the peer is gone, or something else is wrong.
    int failSystem(const char* what);
    // Records that the connection has ended, and why. Always -1.
    int recordEnded() const;

    // Set by close() alone: what the peer has sent before is not read any more.
    void setClosed();
    bool closed() const { return closed_.load(std::memory_order_acquire); }

    std::atomic<int> headerBytes{24};

private:
    UniqueFd socket_;
    std::string peer_;
    std::atomic<const char*> why_{nullptr};
    std::atomic<bool> closed_{false};
    std::mutex endFdMutex_;
    UniqueFd endFd_;  // guarded by endFdMutex_
};

}  // namespace kiv
