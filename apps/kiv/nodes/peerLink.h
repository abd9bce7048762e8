// peerLink.h - a connection with what a graph wants to know about it.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "apps/kiv/support/eventFd.h"
#include "platform/wisp/wispSocket.h"

// Stands between a network node and its connection. Reader: when nothing more comes,
// it says why, raises endFD and waits there for the stop request, so that the loop
// decides what becomes of the node. Sender: remembers a message that did not go.
class PeerLink final : public wispData {
public:
    explicit PeerLink(std::unique_ptr<wispSocket> connection);

    int setHeaderSize(int bytes) override { return connection_->setHeaderSize(bytes); }
    int getFD(int* fd) override { return connection_->getFD(fd); }
    int getHeader(void* header) override;
    int getSize(int* size) override;
    int getData(void* data) override;
    int sendData(void* header, void* data, int size) override;

    // Reader: messages above `bytes` end the connection. Set before the node starts.
    void setMaxBytes(int bytes) { maxBytes_ = bytes; }
    // Reader: called before each message, on the reader's thread; may wait. False: stop.
    void setGate(std::function<bool()> gate) { gate_ = std::move(gate); }

    int endFD() const { return ended_.fd(); }  // readable once nothing more can be read
    bool over() const { return over_; }  // what endFD says; the next two stand from then on
    bool broken() const { return broken_; }  // ended within a message, or by one that is refused
    bool sendFailed() const { return sendFailed_; }  // loop thread
    const std::string& reason() const { return reason_; }  // also after sendFailed
    std::string lastWords();  // of an ended connection: who, and why
    wispSocket& connection() { return *connection_; }
    long long messages() const { return messages_; }  // read whole

private:
    int end(bool broken, const std::string& reason);

    std::unique_ptr<wispSocket> connection_;
    EventFd ended_;
    std::atomic<bool> over_ = false;
    std::atomic<bool> broken_ = false;
    bool sendFailed_ = false;
    std::string reason_;
    int maxBytes_ = 0;
    std::function<bool()> gate_;
    std::atomic<long long> messages_ = 0;
};
