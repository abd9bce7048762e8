// v4l2Stream.cpp - see v4l2Stream.h.
#include "platform/kp/v4l2/v4l2Stream.h"

#include <poll.h>

#include <cerrno>

#include "platform/support/error.h"
#include "platform/thread/internal.h"
#include "platform/zv/internal.h"

namespace kiv {

int V4l2Stream::setControl(int control, const KPControlValue& value) { return settings_.set(control, value); }

int V4l2Stream::getControl(int control, KPControlValue* value)
{
    if (control != KP_CONTROL_MEMORY_MODE)
        return settings_.get(control, value);
    value->intVal = mode_.load();
    return 0;
}

int V4l2Stream::setText(const char* key, const char*)
{
    return recordError(ZV_ERROR_UNSUPPORTED, "'%s' has no text '%s'", node_.card().c_str(), key);
}

int V4l2Stream::begin(StreamEvents& events)
{
    if (!alive())
        return recordError(ZV_ERROR_PEER, "'%s' is gone", node_.card().c_str());
    events_ = &events;
    format_ = settings_.format();
    singleFields_ = settings_.singleFields();
    direct_ = settings_.direct();
    frameBytes_ = settings_.frameBytes();
    period_ = settings_.periodNs();
    if (prepare() != 0) {
        release();
        return -1;
    }
    thread_ = startThread([](void* self) { static_cast<V4l2Stream*>(self)->run(); }, this);
    if (thread_ >= 0)
        return 0;
    release();
    return -1;
}

void V4l2Stream::end()
{
    if (thread_ < 0)
        return;
    askStop(thread_);
    joinThread(thread_, nullptr);
    thread_ = -1;
    release();
}

V4l2Stream::Woken V4l2Stream::wait(short events, int extra, short extraEvents, uint64_t deadline) const
{
    pollfd polled[] = {{stopDescriptor(), POLLIN, 0}, {node_.fd(), events, 0}, {extra, extraEvents, 0}};
    timespec left = {};
    const uint64_t time = now();
    if (deadline > time)
        left = {time_t((deadline - time) / 1000000000u), long((deadline - time) % 1000000000u)};
    if (ppoll(polled, 3, deadline == 0 ? nullptr : &left, nullptr) <= 0)
        return {};  // a signal counts as a deadline: what waits is looked at again
    const bool broken = (polled[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
    return {polled[0].revents != 0, polled[1].revents != 0, broken, polled[2].revents != 0};
}

bool V4l2Stream::answers()
{
    v4l2_capability what;
    if (node_.control(VIDIOC_QUERYCAP, &what) == 0)
        return true;
    gone();
    return false;
}

bool V4l2Stream::recover()
{
    constexpr int tries = 10;
    constexpr uint64_t between = 100000000;  // ns
    if (errno != ENODEV)
        events_->happened(KPTransferError, 1);
    for (int i = 0; i < tries && errno != ENODEV; ++i) {
        if (i > 0 && pollFd(-1, 0, now() + between) == THREAD_POLL_STOP)
            return false;
        if (restart())
            return true;
    }
    gone();
    return false;
}

void V4l2Stream::gone()
{
    alive_ = false;
    events_->happened(KPDeviceEvent, 1);
}

}  // namespace kiv
