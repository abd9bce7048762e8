// wispSocket.cpp - the operations of a connection; the work is its sender's and its receiver's.
#include "platform/wisp/wispSocket.h"

#include <new>
#include <utility>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/wisp/wispSocketImpl.h"

using kiv::recordError;

namespace kiv {

std::unique_ptr<wispSocket> makeWispSocket(UniqueFd socket, std::string peer)
{
    return std::make_unique<wispSocket>(std::make_unique<wispSocket::Impl>(std::move(socket), std::move(peer)));
}

}  // namespace kiv

wispSocket::wispSocket(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) { }

wispSocket::~wispSocket() = default;

// Before the first message, on the thread that makes the connection; later only
// between two messages. 0, or -1 for a size that no header has.
int wispSocket::setHeaderSize(int bytes)
{
    if (bytes < 0 || bytes > kiv::WispLink::maxHeaderBytes)
        return recordError(ZV_ERROR_ARGUMENT, "a header of %d bytes, at most %d fit", bytes,
                           kiv::WispLink::maxHeaderBytes);
    if (impl_->receiver.setHeaderBytes(bytes) < 0)
        return -1;
    impl_->link.headerBytes.store(bytes, std::memory_order_relaxed);
    return 0;
}

// The connection's own descriptor: for select() and poll(), not to be read or closed.
int wispSocket::getFD(int* fd)
{
    if (fd == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "getFD without a place for the descriptor");
    if (impl_->link.closed())
        return impl_->link.recordEnded();
    *fd = impl_->link.fd();
    return 0;
}

// Reader. Blocks until a message begins, for ever if need be; a stop request ends the wait.
int wispSocket::getHeader(void* header)
{
    if (header == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "getHeader without memory");
    return impl_->receiver.getHeader(header);
}

// Reader. A size below 0 or above kivLimits()->messageBytes ends the connection.
int wispSocket::getSize(int* size)
{
    if (size == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "getSize without a place for it");
    return impl_->receiver.getSize(size);
}

// Reader. Straight into the caller's memory, which takes as many bytes as getSize said.
int wispSocket::getData(void* data)
{
    if (data == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "getData without memory");
    return impl_->receiver.getData(data);
}

// Sender, any thread. Blocks only when lossless. 0 once the message is with the
// kernel or is kept; a kept one may still give way to a newer one.
int wispSocket::sendData(void* header, void* data, int size)
{
    const int headerBytes = impl_->link.headerBytes.load(std::memory_order_relaxed);
    if ((header == nullptr && headerBytes > 0) || (data == nullptr && size > 0) || size < 0)
        return recordError(ZV_ERROR_ARGUMENT, "a message without header or data, or of %d bytes", size);
    if (size > kivLimits()->messageBytes)
        return recordError(ZV_ERROR_LIMIT, "a message of %d bytes, messageBytes is %lld", size,
                           kivLimits()->messageBytes);
    return impl_->sender.send(kiv::WispMessage(header, size_t(headerBytes), data, size));
}

// Any thread; from the next message on.
int wispSocket::setLossless(int on)
{
    impl_->sender.setLossless(on != 0);
    return 0;
}

// Any thread. What the peer sent before it went can still be read.
int wispSocket::getEndFD()
{
    if (impl_->link.closed())
        return impl_->link.recordEnded();
    return impl_->link.endFd();
}

// Any thread; the first call decides, later ones repeat its result. Whoever waits
// in this connection wakes up; its descriptors live until it is destroyed.
int wispSocket::close(int drainMs) { return impl_->sender.close(drainMs); }

const char* wispSocket::peerName() { return impl_->link.peer(); }

wispStats wispSocket::stats()
{
    wispStats stats = {};
    impl_->sender.addStats(stats);
    impl_->receiver.addStats(stats);
    return stats;
}
