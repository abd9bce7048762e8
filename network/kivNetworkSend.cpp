// kivNetworkSend.cpp - see kivNetworkSend.h.
#include "network/kivNetworkSend.h"

#include <cstring>

#include "network/kivNetworkHeader.h"

kivNetworkSend::kivNetworkSend() = default;

kivNetworkSend::~kivNetworkSend() = default;

int kivNetworkSend::init(kivParams*) { return kivObj::init(nullptr); }

// Loop thread. 7000 without a connection.
int kivNetworkSend::start(int withChildren)
{
    if (dataObj == nullptr) {
        kivPrintError("kivNetworkSend::Start occured before setting data obj\n");
        return kivErrNetwork;
    }
    return kivObj::start(withChildren);
}

int kivNetworkSend::handleEvents(fd_set) { return kivErrNone; }

int kivNetworkSend::setHeaderValue(int value)
{
    headerVal = value;
    return value;
}

// Sends a buffer; ignores it while not started. Loop thread; the caller keeps its
// reference. 7000 for a buffer without data, which keeps one reference more.
int kivNetworkSend::receive(ZVbuffer inBuffer)
{
    lockData();
    if (isStarted()) {
        ++counter;
        zvBufferAttach(inBuffer);
        const int bufferSize = zvBufferGetSize(inBuffer);
        void* const data = zvBufferMapData(inBuffer);
        if (data == nullptr) {
            kivPrintError("%s BAD BUFFER!!!\n", getName());
            return kivErrNetwork;
        }
        if (send(inBuffer, data, bufferSize) != 0)
            sendFailures_.fetch_add(1, std::memory_order_relaxed);
        zvBufferFree(inBuffer);
    }
    unlockData();
    return kivErrNone;
}

int kivNetworkSend::send(ZVbuffer inBuffer, void* data, int size)
{
    kivNetworkHeader header;
    std::memset(&header, 0, sizeof header);  // the padding goes out as well
    header.headerVal = headerVal;
    header.headerTimePair = zvBufferGetUSTMSCpair(inBuffer);
    return dataObj != nullptr ? dataObj->sendData(&header, data, size) : -1;
}
