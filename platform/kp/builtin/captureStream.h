// captureStream.h - what the built-in cameras share: a thread that draws at a rate.
#pragma once

#include <atomic>
#include <memory>

#include "platform/kp/builtin/settings.h"
#include "platform/kp/device.h"

namespace kiv {

// Shared by all streams of a built-in device: until when it is away.
struct Presence {
    std::atomic<uint64_t> awayUntil{0};  // on the clock of stamps, ns

    bool away() const;
    void leave(int64_t returnMs);  // -1: for good
};

// On the stream's thread: nothing for that long, told as KPSyncLost after three
// periods. False when the thread is to end.
bool stallStream(StreamEvents& events, int64_t ms, uint64_t period);

// Draws a camera's pictures, on the stream's thread.
class PictureSource {
public:
    virtual ~PictureSource() = default;

    // Fills one CbYCrY picture of the stream's size; `frame` counts from 0. False,
    // with an error recorded, when this one cannot be had.
    virtual bool draw(uint8_t* data, int64_t frame, uint64_t ust) = 0;
};

class CaptureStream : public Stream {
public:
    explicit CaptureStream(std::shared_ptr<Presence> presence) : presence_(std::move(presence)) { }
    ~CaptureStream() override;

    int setControl(int control, const KPControlValue& value) override;
    int getControl(int control, KPControlValue* value) override;
    int transferSize() override;
    int poolCount() override;
    int registerPool(ZVbufferpool pool) override;
    int begin(StreamEvents& events) override;
    void end() override;
    int send(ZVbuffer frame) override;
    bool alive() override;
    int setText(const char* key, const char* value) override;

protected:
    // Null, with an error recorded, when there is nothing to show.
    virtual std::unique_ptr<PictureSource> makeSource() = 0;

    ZVbufferpool pool_ = nullptr;
    Settings settings_;

private:
    void run();
    bool serveFaults(int64_t frame);
    bool waitTurn(int64_t* frame, uint64_t* due);
    ZVbuffer emptyBuffer();
    bool deliver(int64_t frame);

    const std::shared_ptr<Presence> presence_;
    int thread_ = -1;
    // The thread's own, set before it starts.
    StreamEvents* events_ = nullptr;
    std::unique_ptr<PictureSource> source_;
    Faults faults_;
    int64_t jumped_ = 0;  // how far the numbers are ahead of the pictures
    uint64_t period_ = 0;  // ns; 0 = free-running
    int frameBytes_ = 0;
};

// The cameras themselves.
std::unique_ptr<Stream> makePatternStream(std::shared_ptr<Presence> presence);
std::unique_ptr<Stream> makeClipStream(std::shared_ptr<Presence> presence);
std::unique_ptr<Stream> makeMonitorStream(std::shared_ptr<Presence> presence);

}  // namespace kiv
