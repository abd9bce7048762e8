// path.cpp - see path.h.
#include "platform/kp/path.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

int notTaken() { return recordError(ZV_ERROR_STATE, "the path is not set up"); }

}  // namespace

Path::Path(std::shared_ptr<Device> device, int jack, bool output)
    : device_(std::move(device)), jack_(jack), output_(output)
{
}

Path::~Path() { giveUp(); }

int Path::take()
{
    std::lock_guard lock(streamLock_);
    if (stream_ != nullptr)
        return 0;
    stream_ = device_->open(jack_);
    if (stream_ == nullptr)
        return -1;
    std::lock_guard events(eventLock_);
    gone_ = false;
    return 0;
}

void Path::giveUp()
{
    end();
    std::lock_guard lock(streamLock_);
    stream_.reset();
    std::lock_guard events(eventLock_);
    dropQueued();
    dropDelivered(nullptr);
}

void Path::select(unsigned mask)
{
    std::lock_guard events(eventLock_);
    mask_ = mask == KP_EVENTS_ALL ? ~0u : mask;
}

int Path::setControl(int control, const KPControlValue& value)
{
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->setControl(control, value) : notTaken();
}

int Path::getControl(int control, KPControlValue* value)
{
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->getControl(control, value) : notTaken();
}

int Path::setText(const char* key, const char* value)
{
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->setText(key, value) : notTaken();
}

int Path::transferSize()
{
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->transferSize() : notTaken();
}

// Writes the count, raises the size.
int Path::poolParams(ZVparams* params)
{
    std::lock_guard lock(streamLock_);
    if (stream_ == nullptr)
        return notTaken();
    const int size = stream_->transferSize();
    if (size < 0 || !paramsAlive(params))
        return -1;
    const int count = stream_->poolCount() + (output_ ? 0 : 1);  // a captured one may wait beside
    if (paramsSetInt(params, ZV_BUFFER_COUNT, count) != 0)
        return -1;
    return paramsSetInt(params, ZV_BUFFER_SIZE, std::max(size, paramsGetInt(params, ZV_BUFFER_SIZE)));
}

int Path::registerPool(ZVbufferpool pool)
{
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->registerPool(pool) : notTaken();
}

int Path::begin()
{
    std::lock_guard lock(streamLock_);
    if (stream_ == nullptr)
        return notTaken();
    {
        std::lock_guard events(eventLock_);
        if (transferring_)
            return recordError(ZV_ERROR_STATE, "the transfer is running");
        transferring_ = true;
        gone_ = false;
    }
    int begun = -1;
    try {
        begun = stream_->begin(*this);
    } catch (const std::bad_alloc&) {
        recordError(ZV_ERROR_MEMORY, "no memory to begin the transfer");
    }
    if (begun == 0)
        return 0;
    std::lock_guard events(eventLock_);
    transferring_ = false;
    return -1;
}

// Waits for the stream's thread: afterwards it fills no buffer and posts nothing.
int Path::end()
{
    std::lock_guard lock(streamLock_);
    if (stream_ == nullptr)
        return notTaken();
    stream_->end();
    std::lock_guard events(eventLock_);
    transferring_ = false;
    dropQueued();
    return 0;
}

int Path::send(ZVbuffer frame)
{
    if (!output_)
        return recordError(ZV_ERROR_ARGUMENT, "the path captures: nothing can be sent on it");
    std::lock_guard lock(streamLock_);
    return stream_ != nullptr ? stream_->send(frame) : notTaken();
}

int Path::eventFd()
{
    std::lock_guard events(eventLock_);
    if (!fd_) {
        UniqueFd made = selectableFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
        if (!made)
            return -1;
        fd_ = std::move(made);
        readable_ = false;
        setReadable(numQueued_ > 0);
    }
    return fd_.get();
}

// eventLock_ is held. A system call only when the level changes.
void Path::setReadable(bool readable)
{
    if (!fd_ || readable == readable_)
        return;
    readable_ = readable;
    uint64_t word = 1;
    ssize_t done = readable ? write(fd_.get(), &word, sizeof word) : read(fd_.get(), &word, sizeof word);
    (void)done;
}

int Path::nextEvent(KPEvent* event)
{
    std::lock_guard events(eventLock_);
    if (numQueued_ == 0) {
        recordError(ZV_ERROR_EMPTY, gone_ ? "the device is gone" : "no event waits");
        if (gone_)
            return ENODEV;
        return transferring_ ? int(KP_ERRNO_NO_EVENT) : EINVAL;
    }
    *event = queue_[0];
    std::move(queue_.begin() + 1, queue_.begin() + numQueued_, queue_.begin());
    --numQueued_;
    if (event->buffer != nullptr)
        dropDelivered(event->buffer);
    setReadable(numQueued_ > 0);
    if (event->reason == KPTransferComplete && std::exchange(takenWanted_, false))
        wakeSleepers(taken_, everySleeper);
    return 0;
}

// Hands the event's reference over, so the second try finds none.
int Path::frameOf(const KPEvent& event, ZVbuffer* out)
{
    std::lock_guard events(eventLock_);
    if (event.buffer == nullptr || event.buffer != delivered_)
        return recordError(ZV_ERROR_ARGUMENT, "the event has no picture, or it was not the last one received");
    *out = std::exchange(delivered_, nullptr);
    return 0;
}

KPEvent* Path::queued(int reason)
{
    for (int i = 0; i < numQueued_; ++i)
        if (queue_[i].reason == reason)
            return &queue_[i];
    return nullptr;
}

// eventLock_ is held. Another event of the same kind only counts.
void Path::post(const KPEvent& event)
{
    if (event.reason < 0 || event.reason >= maxReasons || (mask_ & (1u << event.reason)) == 0)
        return;
    if (KPEvent* waiting = queued(event.reason)) {
        waiting->count += event.count;
        waiting->stamp = event.stamp;
        return;
    }
    queue_[numQueued_++] = event;
    setReadable(true);
}

void Path::frameCaptured(ZVbuffer frame)
{
    std::lock_guard events(eventLock_);
    if ((mask_ & (1u << KPTransferComplete)) == 0) {
        bufferFree(frame);
        return;
    }
    const KPEvent event = {KPTransferComplete, 0, 1, bufferStamp(frame), frame};
    KPEvent* const waiting = queued(KPTransferComplete);
    if (waiting == nullptr) {
        post(event);
        return;
    }
    // The picture that waits gives way, and the new one keeps its place: behind the
    // report of the loss, it would never be the next for somebody who is slow.
    const KPEvent lost = std::exchange(*waiting, event);
    bufferFree(lost.buffer);
    post({KPSequenceLost, 0, 1, lost.stamp, nullptr});
}

void Path::frameShown(USTMSCpair stamp)
{
    std::lock_guard events(eventLock_);
    post({KPTransferComplete, 0, 1, stamp, nullptr});
}

void Path::happened(int reason, long long count)
{
    std::lock_guard events(eventLock_);
    gone_ = gone_ || reason == KPDeviceEvent;
    post({reason, 0, count, {0, 0}, nullptr});
}

// The stream's thread. Only the loop takes events, so one that was taken stays so.
bool Path::waitTaken()
{
    StoppableSleep sleep(taken_);
    for (;;) {
        const uint32_t seen = taken_.load();
        if (sleep.stopped())
            return false;
        {
            std::lock_guard events(eventLock_);
            if (queued(KPTransferComplete) == nullptr)
                return true;
            takenWanted_ = true;
        }
        sleepOn(taken_, seen);
    }
}

void Path::dropDelivered(ZVbuffer next)
{
    if (delivered_ != nullptr)
        bufferFree(delivered_);
    delivered_ = next;
}

void Path::dropQueued()
{
    for (int i = 0; i < numQueued_; ++i)
        if (queue_[i].buffer != nullptr)
            bufferFree(queue_[i].buffer);
    numQueued_ = 0;
    setReadable(false);
}

}  // namespace kiv
