// kivMovieIn.h - reads a movie on a thread of its own, in step with the clock.
#pragma once

#include "core/kivReader.h"
#include "movie/kivMovie.h"
#include "platform/rk/rk.h"

// Loop-bound, with a reader thread that runs from start until the node is
// destroyed or started again: stop leaves it running. Movie time counts
// nanoseconds from the first frame; frame i lies at i / frameRate * 1e9.
//
// A derived class makes the pool in init and fills readBuffer with a frame in the
// two frame operations, which the reader thread calls. The first statement of the
// destructor of every class that overrides them is endReader(): after it the
// reader would meet a half-destroyed node.
class KIV_API kivMovieIn : public kivMovie {
public:
    kivMovieIn();
    ~kivMovieIn() override;

    int init(kivParams* params) override;  // derived classes make the pool
    int start(int withChildren) override;
    int getFD() override;
    int handleEvents(fd_set fdSet) override;
    int easyToAdd() override;

    virtual int setup(char* movieFile);
    virtual int getImageFrameTime(long long movieTime) = 0;  // reader: 4005 = the frame in hand
    virtual int getImageFrameIndex(int frameIndex) = 0;  // reader: the same

    int setBufferDimensions(int x, int y);  // at least the image
    void readLoop();  // the reader thread's body
    int pause();  // holds the frame at currentFrameIndex
    int resume();  // goes on where the clock says
    int gotoFrame(int frame);
    int lockCurrentBuffer();
    int unlockCurrentBuffer();

    void endReader();  // ends the reader and waits for it; nothing when there is none

    // Thread-safe: is there a reader, frames handed over, those that the loop never took.
    int readerAlive() const { return reader_.alive(); }
    long long framesPublished() const { return reader_.published(); }
    long long framesDropped() const { return reader_.dropped(); }

    double timeScale = 1.0;  // speed; written before start
    int isLooping = 1;  // 1: from the last frame on to the first; written before start
    ZVparams* poolParams = nullptr;
    int poolFD = -1;  // writable while a buffer is free
    yqsema_t* canRead = nullptr;  // raised for each frame handed over
    int firstFrameHappened = 0;
    ZVbuffer currentBuffer = nullptr;  // the newest frame, the node's until it is handled
    yqsema_t* currentLock = nullptr;  // guards currentBuffer, handledCurrent, firstFrameHappened
    int handledCurrent = 1;  // 1: currentBuffer has been propagated
    ZVbuffer readBuffer = nullptr;  // the one that the reader fills
    int readThreadFD = -1;  // descriptor of canRead
    int readThreadPID = -1;  // -1: no reader
    int isPlaying = 0;  // 0: paused
    char* fileName = nullptr;  // owned
    RKmovie movieID = nullptr;
    RKtrack imageTrack = nullptr;
    int numFrames = 0;  // index of the last frame
    int currentFrameIndex = 0;  // the frame asked for last
    double frameRate = 0.0;  // frames per second
    int interlacing = 0;
    unsigned long long durationTime = 0;  // movie time of the last frame, ns
    double texCoordScaleXD = 0.0;  // imageSizeX / bufferSizeX
    float texCoordScaleXF = 0.0f;
    double texCoordScaleYD = 0.0;
    float texCoordScaleYF = 0.0f;
    unsigned long long startTime = 0;  // zvGetUST of movie time 0, ns
    int lastFrameIndex = -1;  // the frame in the buffer read last; reader's

protected:
    int frameIndexAt(long long movieTime) const;
    void setFrameIndex(int index);
    bool waitTaken();
    int watchPool(bool traced);
    void (*onReaderEnd_)(kivMovieIn& movie) = nullptr;  // reader thread, as its last act; set before start

private:
    int openMovie();
    void readDuration();
    void setTexCoordScales();
    int readFrame();
    int readPlaying();
    int readPaused();
    void replaceDerived(int index);
    bool publish();
    unsigned long long movieNow();

    kivReader reader_;
    std::atomic<int> sought_;  // what gotoFrame asked for since the reader's last pass
    int derived_;  // what the reader wrote to currentFrameIndex in its last pass
};

// The reader thread's entry, and what it runs when it is asked to end.
KIV_API void startThread(void* node);
KIV_API void stopReadLoop(int signal);
