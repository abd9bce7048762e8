// peerLink.cpp - see peerLink.h.
#include "apps/kiv/nodes/peerLink.h"

#include "apps/kiv/support/text.h"
#include "platform/thread/thread.h"
#include "platform/zv/zv.h"

PeerLink::PeerLink(std::unique_ptr<wispSocket> connection) : connection_(std::move(connection)) { }

// Reader thread. The words stand before over_ does; after that they do not change.
int PeerLink::end(bool broken, const std::string& reason)
{
    if (stopRequested() != 0)
        return -1;
    reason_ = reason;
    broken_ = broken;
    over_ = true;
    ended_.raise();
    threadPoll(threadStopFD(), 0);
    return -1;
}

// Between two messages the peer may go; what arrives of a message must arrive whole.
int PeerLink::getHeader(void* header)
{
    if (gate_ && !gate_())
        return -1;
    if (connection_->getHeader(header) == 0)
        return 0;
    int number = 0;
    zvGetError(&number, nullptr);
    return end(number != ZV_ERROR_PEER, serviceError());
}

int PeerLink::getSize(int* size)
{
    if (connection_->getSize(size) != 0)
        return end(true, serviceError());
    if (*size <= 0)
        return end(true, "an empty message came");
    if (*size > maxBytes_)
        return end(true, text("a frame of %d bytes is too large for pictures of this size", *size));
    return 0;
}

int PeerLink::getData(void* data)
{
    if (connection_->getData(data) != 0)
        return end(true, serviceError());
    ++messages_;
    return 0;
}

// Loop thread.
int PeerLink::sendData(void* header, void* data, int size)
{
    if (sendFailed_)
        return -1;
    if (connection_->sendData(header, data, size) == 0)
        return 0;
    reason_ = serviceError();
    sendFailed_ = true;
    return -1;
}

// An ended connection refuses every message with the reason of its end.
std::string PeerLink::lastWords()
{
    char header[64] = {};
    return connection_->sendData(header, nullptr, 0) != 0 ? serviceError()
                                                          : text("%s has gone", connection_->peerName());
}
