// roadJob.h - what the two road programs share: the task, the two processes, the figures.
//
// A road is raw CbYCrY frames -> JPEG -> a TCP connection -> another process ->
// raw frames. roadJob.cpp has main; each program brings its own three parts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#ifdef KIV_ROAD_720
constexpr int roadWidth = 1280;
constexpr int roadHeight = 720;
#else
constexpr int roadWidth = 1920;
constexpr int roadHeight = 1080;
#endif
constexpr int roadFrameBytes = roadWidth * roadHeight * 2;
constexpr int roadQuality = 75;

struct RoadJob {
    std::string frames;  // file of raw frames, one after the other
    int count = 0;  // frames to send
    double rate = 0;  // frames a second; 0 = as fast as the road takes them

    int numFrames() const;  // in the file
    void read(int index, void* into) const;  // frame index modulo numFrames
};

// The receiver's side of the measurement.
class Arrivals {
public:
    void add(int64_t captureNs);  // now, stamped then
    int count() const { return int(delays_.size()); }
    int64_t lastNs() const { return lastNs_; }
    int64_t firstCaptureNs() const { return firstCaptureNs_; }
    double percentileMs(int percent) const;

private:
    std::vector<int64_t> delays_;
    int64_t firstCaptureNs_ = 0;
    int64_t lastNs_ = 0;
};

int64_t roadNow();  // ns, monotonic
void roadBegin();  // set up: CPU time of this process counts from here
void roadCheck(bool good, const char* what);  // ends the process when not good

// --- Each program's own -------------------------------------------------------------
// Receives until the last frame has come; tells `listening` its address first.
void roadReceive(const RoadJob& job, Arrivals& arrivals, const std::function<void(const std::string&)>& listening);
// Sends count frames; calls `awaitReceiver` before it closes.
void roadSend(const RoadJob& job, const std::string& address, const std::function<void()>& awaitReceiver);
// Encodes the first frame, for what starting costs.
void roadEncodeOne(const RoadJob& job);
