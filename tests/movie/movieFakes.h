// movieFakes.h - movies without files, frame operations of the test's, a clock that stands.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>

#include "movie/kivMovieInCompressed.h"
#include "platform/thread/thread.h"
#include "tests/support/faults.h"
#include "tests/support/poolFixture.h"
#include "tests/support/recordingSink.h"

extern Fault fault_yqnewpollsema, fault_yqopenpollsema, fault_yqpsema, fault_threadStart;
extern Fault fault_zvParamsCreate, fault_zvBufferSetPoolDefaults, fault_zvParamsSetInt, fault_zvBufferCreatePool;
extern Fault fault_zvBufferAllocate, fault_zvBufferSetPoolSelectSize, fault_zvBufferGetPoolFD, fault_zvBufferFree;

// What zvGetUST answers to the library; 0: the real time.
extern std::atomic<unsigned long long> fakeNow;
// Naps of one and of two ticks.
extern std::atomic<long> naps[3];

// While `on`, the movie-file service of this program.
struct FakeFile {
    bool on = false;
    int opening = 0, finding = 0;  // results
    int length = 300;
    double rate = 30.0;
    int width = 720, height = 576, interlacing = 2;
    int largest = -1;
    std::function<int(int)> size = [](int) { return 100; };
    int opened = 0, closed = 0, read = 0;
    std::string openedName;
};
extern FakeFile fakeFile;

// Sets the fakes up and, at the end, everything back.
class MovieFakes {
public:
    MovieFakes();
    ~MovieFakes();
};

// A movie whose frame operations are the test's. The pool is a fixture's, which
// looks for missing buffers when all is over.
class FakeMovie : public kivMovieIn {
public:
    explicit FakeMovie(PoolFixture& pool);
    ~FakeMovie() override;

    int init(kivParams* params) override { return kivObj::init(params); }
    int getImageFrameTime(long long movieTime) override { return onTime(movieTime); }
    int getImageFrameIndex(int frameIndex) override { return onIndex(frameIndex); }
    using kivMovieIn::setFrameIndex;
    using kivMovieIn::waitTaken;

    // Reader thread; set before start. By default each frame is numbered and new.
    std::function<int(long long)> onTime = [this](long long) { return number(); };
    std::function<int(int)> onIndex = [](int) { return kivErrFrameNotYet; };
    int number();  // writes the next number into readBuffer
    int numbered = 0;
};

// The number in a frame of FakeMovie.
int numberIn(ZVbuffer buffer);
// Blocks a reader thread until it is asked to end.
void untilStopped();
