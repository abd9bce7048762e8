// driver.h - the device driver of the virtual machine beside the library: its own
// controls, and a hand on what the library asks of it.
#pragma once

#include <linux/videodev2.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/kp/kp.h"

// The driver's device files: one captures, one plays out.
extern const char* const captureFile;
extern const char* const outputFile;

// Sets a control of the driver by its name; fails the test when it cannot.
void setDriver(const char* file, const char* name, int value);
bool hasDriverControl(const char* file, const char* name);

// What the library asks of the driver passes here; every field back to its default ends it.
struct DriverHand {
    std::vector<uint32_t> refusedFormats;  // given another format instead
    bool refuseUserPointers = false;
    bool refuseExport = false;
    // The capture side has MJPG, and fills in these in turn, whatever the driver makes.
    std::vector<std::vector<uint8_t>> jpegs;
    bool rateNeedsJpeg = false;  // in other formats it stays as it is
    int failing = 0;  // the next calls of that request fail
    unsigned long failingRequest = 0;
    int failure = 0;  // errno
    // Counted since the last reset:
    int queuedUserPointers = 0;
    int queuedMapped = 0;
    int queuedShared = 0;
    int starved = 0;  // pictures taken back while the driver had less than two more: not given back at once
    std::vector<uint32_t> fields;  // of the buffers taken back; read it after the transfer
};
extern DriverHand hand;

// A path of the service, by hand: for what a node does not show.
class TestPath {
public:
    TestPath(const char* jack, bool output);
    ~TestPath();
    TestPath(const TestPath&) = delete;
    TestPath& operator=(const TestPath&) = delete;

    bool taken() const { return taken_; }
    int set(int control, int value);
    int setSize(int width, int height);
    int setRate(int numerator, int denominator);
    int setZoom(int numerator, int denominator);
    KPControlValue get(int control) const;
    std::string size() const;  // "640x480"
    std::string rate() const;  // "25/1"

    // A pool of what the path asks for and some more, registered.
    void makePool(int more = 6);
    int begin() { return kpBeginTransfer(server_, path_, 0, nullptr); }
    int end() { return kpEndTransfer(server_, path_); }
    int send(ZVbuffer frame) { return kpZVBufferSend(server_, path_, frame); }
    int bytes() const { return kpGetTransferSize(server_, path_); }

    // The next event within `ms`; reason 0 when there is none.
    KPEvent next(int ms = 3000);
    // The next event of that reason, past all others, which it counts; reason 0 when
    // there is none within `ms`.
    KPEvent until(int reason, int ms = 3000);
    // The next frame, one reference; null when none comes within `ms`.
    ZVbuffer frame(int ms = 3000);
    // The bytes of the next frame, which is freed; empty, and a failed test, when none comes.
    std::vector<uint8_t> picture();
    // Frames in turn until `count` came one after the other without a gap; false when
    // `most` were not enough. Their stamps are in `stamps`.
    bool captureInARow(int count, int most);

    ZVbufferpool pool = nullptr;
    std::vector<USTMSCpair> stamps;
    long long lost = 0;  // counts of sequence-lost events seen
    int errors = 0;  // transfer-error events seen
    int shown = 0;  // transfer-complete events seen by until()

private:
    KPServer server_;
    int path_ = -1;
    int node_ = -1;
    bool taken_ = false;
};

std::string lastWords();  // what zvGetError says in detail
