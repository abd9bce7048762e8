// v4l2Stream.h - what capture and playout on a device share: controls and a thread.
#pragma once

#include <atomic>
#include <memory>

#include "platform/kp/device.h"
#include "platform/kp/v4l2/v4l2Settings.h"

namespace kiv {

class V4l2Stream : public Stream {
public:
    V4l2Stream(V4l2Node node, const V4l2Jack& jack) : node_(std::move(node)), settings_(node_, jack) { }

    int open() { return settings_.select(); }  // -1, recorded

    int setControl(int control, const KPControlValue& value) override;
    int getControl(int control, KPControlValue* value) override;
    int transferSize() override { return settings_.frameBytes(); }
    int begin(StreamEvents& events) override;
    void end() override;
    bool alive() override { return alive_.load(); }
    int setText(const char* key, const char* value) override;

protected:
    static constexpr int quietPeriods = 3;  // nothing for that long is an event

    virtual int prepare() = 0;  // driver buffers; -1, recorded
    virtual void run() = 0;  // on the stream's thread
    // On the stream's thread: sets a queue that has failed going again; false with errno.
    virtual bool restart() = 0;
    virtual void release() = 0;  // the thread has ended: gives every buffer back

    struct Woken {
        bool stop, device, broken, extra;  // none: the deadline has passed
    };
    // Waits for `events` of the device, for `extra` (-1: none), and for the deadline (0: none).
    Woken wait(short events, int extra, short extraEvents, uint64_t deadline) const;
    // After a call of the driver failed: false when the stream's thread is to end.
    bool recover();
    // True when the driver still answers; a device that has gone does not always wake its waiters.
    bool answers();

    bool running() const { return thread_ >= 0; }

    V4l2Node node_;
    V4l2Settings settings_;
    std::atomic<int> mode_{KP_MEMORY_NONE};
    // The thread's own while it runs; taken from the settings when it begins.
    StreamEvents* events_ = nullptr;
    V4l2Format format_;
    bool singleFields_ = false;
    bool direct_ = false;  // the driver's pictures are as the pool's
    int frameBytes_ = 0;  // of a CbYCrY picture
    uint64_t period_ = 0;  // ns, of one picture

private:
    void gone();

    int thread_ = -1;
    std::atomic<bool> alive_{true};
};

std::unique_ptr<V4l2Stream> makeV4l2Capture(V4l2Node node, const V4l2Jack& jack);
std::unique_ptr<V4l2Stream> makeV4l2Output(V4l2Node node, const V4l2Jack& jack);

}  // namespace kiv
