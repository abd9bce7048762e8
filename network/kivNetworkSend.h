// kivNetworkSend.h - sends each buffer as one message.
#pragma once

#include <atomic>

#include "network/kivNetwork.h"

// Loop-bound. A leaf: buffers are not handed on. Whether sending can wait is the
// connection's affair; wispSocket does not, unless it is set lossless.
class KIV_API kivNetworkSend : public kivNetwork {
public:
    kivNetworkSend();
    ~kivNetworkSend() override;

    int init(kivParams* params) override;
    int start(int withChildren) override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;

    int setHeaderValue(int value);  // goes into every later message
    long long sendFailures() const { return sendFailures_.load(std::memory_order_relaxed); }  // thread-safe

    int counter = 0;  // buffers received while started
    int headerVal = 0;

private:
    int send(ZVbuffer inBuffer, void* data, int size);

    std::atomic<long long> sendFailures_{0};
};
