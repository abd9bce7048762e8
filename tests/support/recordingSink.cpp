// recordingSink.cpp - see recordingSink.h.
#include "tests/support/recordingSink.h"

#include <poll.h>

#include <chrono>
#include <thread>

int RecordingSink::addSrcConstraints(ZVparams*) { return kivErrNone; }

int RecordingSink::addDstConstraints(ZVparams*) { return kivErrNone; }

int RecordingSink::handleEvents(fd_set) { return kivErrNotReady; }

int RecordingSink::receive(ZVbuffer inBuffer)
{
    if (onReceive)
        onReceive(inBuffer);
    ++received;
    if (keepBytes) {
        const int size = zvBufferGetSize(inBuffer);
        const void* data = zvBufferMapData(inBuffer);
        frames.emplace_back(static_cast<const char*>(data), data != nullptr && size > 0 ? size_t(size) : 0);
        stamps.push_back(zvBufferGetUSTMSCpair(inBuffer));
    }
    return kivErrNone;
}

bool waitReadable(kivObj& node, int milliseconds)
{
    pollfd ready = {node.getFD(), POLLIN, 0};
    return ready.fd >= 0 && poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLIN) != 0;
}

int handle(kivObj& node)
{
    fd_set set;
    FD_ZERO(&set);
    int maxFD = -1;
    node.setFD(&set, &maxFD, 0);
    return node.handleEvents(set);
}

int serve(kivObj& node) { return waitReadable(node, 10000) ? handle(node) : -1; }

bool eventually(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool hasLine(const std::string& text, const std::string& line)
{
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}
