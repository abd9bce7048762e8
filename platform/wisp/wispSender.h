// wispSender.h - the sending side of a connection: what the kernel does not take waits here.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/wisp/wispLink.h"
#include "platform/wisp/wispSocket.h"

struct iovec;

namespace kiv {

// One message as it is handed in: header, size and data, borrowed.
struct WispMessage {
    const void* header;
    size_t headerBytes;
    const void* data;
    int size;

    unsigned char wireSize[4];

    WispMessage(const void* header, size_t headerBytes, const void* data, int size);
    size_t bytes() const { return headerBytes + sizeof wireSize + size_t(size); }
    // What is left after the first `at` bytes; the number of pieces, at most 3.
    int pieces(size_t at, iovec out[3]) const;
};

// Thread-safe for one sender and one closer. Memory: two blocks as large as the
// largest message that ever had to wait.
class WispSender {
public:
    explicit WispSender(WispLink& link) : link_(link) { }
    ~WispSender() { close(0); }

    int send(const WispMessage& message);
    void setLossless(bool on) { lossless_.store(on, std::memory_order_relaxed); }
    // Flushes for at most that long, then ends the link and joins the writer.
    int close(int drainMs);
    void addStats(wispStats& stats);

private:
    // A copied message. What stands before `at` has gone to the kernel.
    struct Block {
        std::unique_ptr<char[]> memory;
        size_t capacity = 0;
        size_t size = 0;  // 0: nothing is in it
        size_t at = 0;
        int dataBytes = 0;
        bool begun = false;

        bool empty() const { return size == 0; }
        bool fill(const WispMessage& message, size_t from);
        void clear() { size = at = 0; }
    };
    using Lock = std::unique_lock<std::mutex>;

    bool pending() const { return !out_.empty() || !next_.empty(); }
    int sendNewest(Lock& lock, const WispMessage& message);
    int sendLossless(Lock& lock, const WispMessage& message);
    int waitForRoom(Lock& lock);
    ptrdiff_t write(const WispMessage& message, size_t at);
    int keepRest(const WispMessage& message, size_t at);
    int keepNewest(const WispMessage& message);
    int wakeWriter();
    void push(Lock& lock);
    bool pushOut(Lock& lock);
    void putBack();
    int wait(Lock& lock, uint64_t deadline);
    void countSent(int dataBytes);
    uint64_t stallDeadline() const;
    void runWriter();

    WispLink& link_;
    std::atomic<bool> lossless_{false};

    std::mutex mutex_;  // guards everything below
    std::condition_variable changed_;  // work for the writer, or `busy_` over
    Block out_;  // begun, or in somebody's hands: nothing replaces it
    Block next_;  // not begun: a newer one replaces it
    bool busy_ = false;  // somebody writes `out_` without the lock
    bool closing_ = false;
    int closeResult_ = 0;
    uint64_t progress_ = 0;  // when the kernel last took something, or something began to wait
    long long sent_ = 0;
    long long sentBytes_ = 0;
    long long dropped_ = 0;
    std::thread writer_;
};

}  // namespace kiv
