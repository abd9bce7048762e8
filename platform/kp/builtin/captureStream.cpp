// captureStream.cpp - see captureStream.h.
#include "platform/kp/builtin/captureStream.h"

#include <poll.h>

#include <algorithm>
#include <cstring>

#include "platform/kp/builtin/testPicture.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

constexpr int quietPeriods = 3;  // nothing for that long is an event

// Sleeps until then; false when the thread is to end.
bool sleepUntil(uint64_t deadline) { return pollFd(-1, 0, deadline) != THREAD_POLL_STOP; }

}  // namespace

bool Presence::away() const { return now() < awayUntil.load(); }

void Presence::leave(int64_t returnMs)
{
    awayUntil.store(returnMs < 0 ? UINT64_MAX : now() + uint64_t(returnMs) * 1000000u);
}

CaptureStream::~CaptureStream() { end(); }

int CaptureStream::setControl(int control, const KPControlValue& value) { return settings_.set(control, value); }

int CaptureStream::getControl(int control, KPControlValue* value)
{
    if (control == KP_CONTROL_MEMORY_MODE) {
        value->intVal = pool_ != nullptr ? KP_MEMORY_DIRECT : KP_MEMORY_NONE;
        return 0;
    }
    return settings_.get(control, value);
}

int CaptureStream::transferSize() { return settings_.frameBytes(); }

int CaptureStream::poolCount() { return 1; }  // the one that is being drawn

int CaptureStream::registerPool(ZVbufferpool pool)
{
    if (thread_ >= 0)
        return recordError(ZV_ERROR_STATE, "the transfer is running on another pool");
    if (poolFree(pool) < 0)
        return -1;
    pool_ = pool;
    settings_.sizeFixed = true;
    return 0;
}

int CaptureStream::begin(StreamEvents& events)
{
    if (pool_ == nullptr)
        return recordError(ZV_ERROR_STATE, "no pool is registered for the transfer");
    if (!alive())
        return recordError(ZV_ERROR_PEER, "the device is gone");
    source_ = makeSource();
    if (source_ == nullptr)
        return -1;
    events_ = &events;
    period_ = settings_.periodNs();
    frameBytes_ = settings_.frameBytes();
    faults_ = settings_.faults;
    jumped_ = 0;
    thread_ = startThread([](void* self) { static_cast<CaptureStream*>(self)->run(); }, this);
    return thread_ < 0 ? -1 : 0;
}

void CaptureStream::end()
{
    if (thread_ < 0)
        return;
    askStop(thread_);
    joinThread(thread_, nullptr);
    thread_ = -1;
}

int CaptureStream::send(ZVbuffer) { return recordError(ZV_ERROR_ARGUMENT, "a camera takes no pictures"); }

bool CaptureStream::alive() { return !presence_->away(); }

int CaptureStream::setText(const char* key, const char* value)
{
    if (strcmp(key, KP_TEXT_FAULTS) == 0)
        return Faults::parse(value, &settings_.faults);
    return recordError(ZV_ERROR_UNSUPPORTED, "this device has no text '%s'", key);
}

// One picture a period until the transfer ends or the device goes.
void CaptureStream::run()
{
    uint64_t due = now() + period_;
    for (int64_t frame = 0; waitTurn(&frame, &due); ++frame)
        if (!serveFaults(frame))
            return;
}

// Waits until picture *frame is due, or, free-running, until the one before was
// taken. Pictures whose whole period has passed already are counted as lost.
bool CaptureStream::waitTurn(int64_t* frame, uint64_t* due)
{
    if (period_ == 0)
        return events_->waitTaken();
    if (!sleepUntil(*due))
        return false;
    const uint64_t time = now();
    const uint64_t late = time > *due ? (time - *due) / period_ : 0;
    if (late > 0) {
        *frame += int64_t(late);
        *due += late * period_;
        events_->happened(KPSequenceLost, (long long)late);
    }
    *due += period_;
    return true;
}

// Picture `frame`, or what the fault script wants instead; false at the end.
bool CaptureStream::serveFaults(int64_t frame)
{
    using At = Faults::AtFrame;
    const bool unplugged = faults_.take(At::Unplug, frame) >= 0;
    if (unplugged)
        presence_->leave(faults_.returnMs);
    if (unplugged || presence_->away()) {
        events_->happened(KPDeviceEvent, 1);
        return false;
    }
    const int64_t stalled = faults_.take(At::Stall, frame);
    if (stalled >= 0 && !stallStream(*events_, stalled, period_))
        return false;
    if (faults_.drops(frame)) {
        events_->happened(KPSequenceLost, 1);
        return true;
    }
    const int64_t lost = faults_.take(At::Lose, frame);
    if (lost > 0) {
        jumped_ += lost;
        events_->happened(KPSequenceLost, lost);
    }
    const bool delivered = deliver(frame + jumped_);
    if (!delivered && period_ == 0)
        nap(1);  // nothing else slows it down
    return !stopAsked();
}

bool stallStream(StreamEvents& events, int64_t ms, uint64_t period)
{
    const uint64_t start = now();
    const uint64_t end = start + uint64_t(ms) * 1000000u;
    const uint64_t quiet = start + quietPeriods * std::max<uint64_t>(period, 1000000);
    if (end > quiet) {
        if (!sleepUntil(quiet))
            return false;
        events.happened(KPSyncLost, 1);
    }
    return sleepUntil(end);
}

// A buffer to draw into; null when the pool is empty: a camera does not wait, but
// for one that runs as fast as it is served.
ZVbuffer CaptureStream::emptyBuffer()
{
    ZVbuffer buffer = nullptr;
    if (period_ == 0 && poolFree(pool_) == 0 && pollFd(poolFd(pool_), POLLOUT, 0) == THREAD_POLL_STOP)
        return nullptr;
    return bufferAllocate(pool_, &buffer) == 0 ? buffer : nullptr;
}

bool CaptureStream::deliver(int64_t frame)
{
    ZVbuffer buffer = emptyBuffer();
    if (buffer == nullptr) {
        events_->happened(KPSequenceLost, 1);
        return false;
    }
    const uint64_t ust = now();
    if (bufferCapacity(buffer) < frameBytes_ || !source_->draw(static_cast<uint8_t*>(bufferMap(buffer)), frame, ust)) {
        bufferFree(buffer);
        events_->happened(KPTransferError, 1);
        return false;
    }
    bufferSetSize(buffer, frameBytes_);
    bufferSetStamp(buffer, {int64_t(ust), frame});
    events_->frameCaptured(buffer);
    return true;
}

namespace {

class PatternSource final : public PictureSource {
public:
    PatternSource(int width, int height) : picture_(width, height) { }
    bool draw(uint8_t* data, int64_t frame, uint64_t ust) override
    {
        picture_.draw(data, frame, ust);
        return true;
    }

private:
    TestPicture picture_;
};

class PatternStream final : public CaptureStream {
public:
    using CaptureStream::CaptureStream;

private:
    std::unique_ptr<PictureSource> makeSource() override
    {
        return std::make_unique<PatternSource>(settings_.width, settings_.height);
    }
};

}  // namespace

std::unique_ptr<Stream> makePatternStream(std::shared_ptr<Presence> presence)
{
    return std::make_unique<PatternStream>(std::move(presence));
}

}  // namespace kiv
