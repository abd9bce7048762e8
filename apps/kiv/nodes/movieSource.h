// movieSource.h - a movie's frames at their rate, or each exactly once.
#pragma once

#include <atomic>

#include "apps/kiv/support/eventFd.h"
#include "movie/kivMovieInCompressed.h"

// What kiv needs beside the library's node: each frame carries its index and the
// time of its hand-over; the end is reported; and in `every` mode the reader waits
// until the loop took a frame before it hands over the next. Set the members
// before start. The clock is the node's startTime and timeScale.
class MovieSource : public kivMovieInCompressed {
public:
    ~MovieSource() override;

    int getImageFrameTime(long long movieTime) override;  // reader

    int endFD() const { return ended_.fd(); }  // readable once the loop took the last frame
    bool taken();  // no frame waits for the loop
    long long skipped();  // frames whose time had passed
    long long unreadable();  // frames that the file does not hold whole; they are left out

    // After a pause and gotoFrame: the frame after the current one is the next, at its time.
    void restartClock() { restarted_.store(true); }

    bool every = false;  // each frame once; else the clock decides, and late ones are left out
    bool loop = false;  // begin again at the end

private:
    int nextIndex();  // reader; -1: no further frame
    int indexByClock();  // reader
    bool readWhole(int index);  // reader
    void finish();  // reader

    EventFd ended_;
    std::atomic<bool> restarted_{false};
    int last_ = -1;  // reader: index that was read last
    long long clock_ = 0;  // reader: frame due next, counted through all rounds of a loop
    long long skipped_ = 0;  // reader writes
    long long unreadable_ = 0;  // reader writes
};
