// kivNetworkRecvReader.cpp - the reader thread of kivNetworkRecv.
#include "network/kivNetworkHeader.h"
#include "network/kivNetworkRecv.h"
#include "platform/thread/thread.h"

// Reads messages into buffers and hands them over, until it is asked to end, the
// node is stopped, the connection fails or a message does not fit.
void kivNetworkRecv::readLoop()
{
    while (!stopRequested()) {
        if (!reader_.allocate(bufferPool, poolFD, "kivNetworkRecv"))
            continue;
        if (!waitForMessage() || !readMessage())
            break;
    }
    reader_.leave();
}

// Waits until a message arrives. A connection without a descriptor is left to the
// read that follows. False when the thread is to end.
bool kivNetworkRecv::waitForMessage()
{
    wispData* const from = kivShared(dataObj).load();
    int fd = -1;
    if (from == nullptr || from->getFD(&fd) != 0 || fd < 0)
        return true;
    return threadPoll(fd, 0) != THREAD_POLL_STOP;
}

// The connection to read from, null when the reader has to end. The lock is held
// for the look only: a peer may take its time with a message, the loop may not.
wispData* kivNetworkRecv::connection()
{
    if (!reader_.lockForReader())
        return nullptr;
    wispData* const from = kivShared(dataObj).load();
    const bool running = mayGoOn();
    if (running && from == nullptr)
        giveUp("no data obj.. bye!\n");
    yqvsema(currentLock);
    return running ? from : nullptr;
}

// One message into readBuffer, then handed over.
bool kivNetworkRecv::readMessage()
{
    wispData* const from = connection();
    int size = 0;
    return from != nullptr && readHeader(*from) && readSize(*from, &size) && readData(*from, size) && publish();
}

bool kivNetworkRecv::readHeader(wispData& from)
{
    kivTrace("%s: reading the header\n", getName());
    kivNetworkHeader header = {};
    const int err = from.getHeader(&header);
    kivShared(lastHeaderVal).store(header.headerVal);
    zvBufferSetUSTMSCpair(readBuffer, header.headerTimePair);
    return err == 0 || giveUp("no data header\n");
}

// The size comes from the peer: what does not fit the buffer is not read.
bool kivNetworkRecv::readSize(wispData& from, int* size)
{
    kivTrace("%s: reading the dataSize\n", getName());
    const int capacity = zvBufferGetSize(readBuffer);  // of a fresh buffer
    if (from.getSize(size) != 0 || *size <= 0 || *size > capacity)
        return giveUp("no data size\n");
    kivTrace("%s: dataSize:%d\n", getName(), *size);
    return true;
}

bool kivNetworkRecv::readData(wispData& from, int size)
{
    kivTrace("%s: reading the data\n", getName());
    if (from.getData(zvBufferMapData(readBuffer)) != 0)
        return giveUp("no data \n");
    zvBufferSetSize(readBuffer, size);
    return true;
}

// Hands readBuffer over, unless the node was stopped while the message came in.
bool kivNetworkRecv::publish()
{
    if (!reader_.lockForReader())
        return false;
    if (mayGoOn()) {
        reader_.publish();
        return true;
    }
    yqvsema(currentLock);
    return false;
}

// Is the node started, and nobody asks for the end? Under the lock, so that a
// stop that has returned sees no frame afterwards.
bool kivNetworkRecv::mayGoOn()
{
    if (stopRequested())
        return false;
    if (isStarted())
        return true;
    kivTrace("I should stop \n");
    reader_.retire();
    return false;
}

// Says why the reader ends; not when it was asked to, since that fails every read
// on its way. Always false.
bool kivNetworkRecv::giveUp(const char* line)
{
    if (!stopRequested())
        kivPrintError("%s", line);
    reader_.retire();
    return false;
}
