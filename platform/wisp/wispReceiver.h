// wispReceiver.h - the reading side of a connection: cuts the stream into messages.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/wisp/wispLink.h"
#include "platform/wisp/wispSocket.h"

namespace kiv {

// One reader at a time; addStats anywhere. Header and size come in with one
// read and never a byte beyond, so data goes straight to the caller's memory.
class WispReceiver {
public:
    explicit WispReceiver(WispLink& link) : link_(link) { }

    int setHeaderBytes(int bytes);
    int getHeader(void* header);
    int getSize(int* size);
    int getData(void* data);
    void addStats(wispStats& stats) const;

private:
    static constexpr int sizeBytes = 4;

    bool usable() const;
    int prefixBytes() const { return headerBytes_ + sizeBytes; }
    int skipRest();
    int readPrefix(int atLeast);
    int readSize();
    int refuseSize(int size);
    int readData(char* to);
    int readSome(char* to, int bytes);
    int wait();
    int damaged(int number, const char* why);
    bool begun() const { return have_ > 0; }
    void endMessage();

    WispLink& link_;
    int headerBytes_ = 24;
    int have_ = 0;  // bytes of header and size that have come
    bool headerGiven_ = false;  // the message is the current one
    bool sizeKnown_ = false;
    bool damaged_ = false;  // where the next message begins is not known any more
    int size_ = 0;
    int left_ = 0;  // data bytes not yet read
    uint64_t waited_ = 0;  // ns: for the rest of this message
    char prefix_[WispLink::maxHeaderBytes + sizeBytes];

    std::atomic<long long> received_{0};
    std::atomic<long long> receivedBytes_{0};
};

}  // namespace kiv
