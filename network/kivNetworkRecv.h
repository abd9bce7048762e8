// kivNetworkRecv.h - source of the frames that a connection brings.
#pragma once

#include "core/kivReader.h"
#include "network/kivNetwork.h"

// Loop-bound, with a reader thread from start until stop, or until the connection
// or a bad message ends it: the node then stays started and silent. A frame that
// the loop has not taken when the next one is complete gives way to it.
//
// The first statement of the destructor of a class that derives from this one is
// endReader().
class KIV_API kivNetworkRecv : public kivNetwork {
public:
    kivNetworkRecv();
    kivNetworkRecv(int sizeX, int sizeY);  // of the image that comes, pixels
    ~kivNetworkRecv() override;

    int init(kivParams* params) override;
    int start(int withChildren) override;
    int stop() override;
    int getFD() override;
    int handleEvents(fd_set fdSet) override;
    int receive(ZVbuffer inBuffer) override;

    void readLoop();  // the reader thread's body
    int lockCurrentBuffer()
    {
        yqpsema(currentLock);
        return kivErrNone;
    }
    int unlockCurrentBuffer()
    {
        yqvsema(currentLock);
        return kivErrNone;
    }

    void endReader();  // ends the reader and waits for it; nothing when there is none

    // Thread-safe: is there a reader, frames read, those of them that the loop never took.
    int readerAlive() const { return reader_.alive(); }
    long long framesReceived() const { return reader_.published(); }
    long long framesDropped() const { return reader_.dropped(); }

    int firstFrameHappened = 0;
    int poolFD = -1;  // writable while a buffer is free
    int handledCurrent = 1;  // 1: currentBuffer has been propagated
    yqsema_t* canRead = nullptr;  // raised for each frame
    int canReadFD = -1;  // descriptor of canRead
    yqsema_t* currentLock = nullptr;  // guards currentBuffer and handledCurrent
    int readLoopPID = -1;  // -1: no reader
    int lastHeaderVal = 0;  // of the last header read; the reader writes it
    ZVbuffer currentBuffer = nullptr;  // the newest frame
    ZVbuffer readBuffer = nullptr;  // the one that the reader fills
    int packing = ZV_IMAGE_PACKING_CbYCrY;  // what a buffer has room for

protected:
    // Reader thread, in an operation of the connection: waits until the loop has taken
    // the last frame, for receivers that lose none. False on a stop request.
    bool waitTaken() { return reader_.waitTaken(); }

private:
    int frameBytes();
    int makePool();
    int report(int errorID, int line);
    bool waitForMessage();
    wispData* connection();
    bool readMessage();
    bool readHeader(wispData& from);
    bool readSize(wispData& from, int* size);
    bool readData(wispData& from, int size);
    bool publish();
    bool mayGoOn();
    bool giveUp(const char* line);

    kivReader reader_;
};
