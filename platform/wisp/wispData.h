// wispData.h - a connection that carries whole messages: header, size, data.
#pragma once

#include "platform/api.h"

// The six operations that the network nodes use. Applications may derive their
// own transport. All return 0 on success. Reading and sending may happen on two
// threads at once; neither on more than one.
//
// An implementation may block nowhere but in threadPoll (platform/thread), or a
// reader thread that waits in it cannot be stopped.
class KIV_API wispData {
public:
    virtual ~wispData();

    // Bytes of the header block of every message, both ways.
    virtual int setHeaderSize(int bytes) = 0;
    // A descriptor that is readable when a message begins to arrive or the peer is gone.
    virtual int getFD(int* fd) = 0;
    // Reads the next message's header block; skips what is unread of the last message.
    virtual int getHeader(void* header) = 0;
    // Reads the data size of the current message, in bytes.
    virtual int getSize(int* size) = 0;
    // Reads the current message's data: as many bytes as getSize said.
    virtual int getData(void* data) = 0;
    // Sends one whole message. Header and data are borrowed until it returns.
    virtual int sendData(void* header, void* data, int size) = 0;
};
