// v4l2Output.cpp - pictures of a graph out to a device.
//
// The driver holds the picture that is shown and the next one, never more than it
// takes to start. A newer picture replaces one that still waits here. While nothing
// new comes the last one stays, and is told as shown every period, so that a picture
// that comes late finds somebody to send it.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <utility>

#include "platform/kp/v4l2/v4l2Pictures.h"
#include "platform/kp/v4l2/v4l2Stream.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

constexpr int maxSlots = 32;  // driver buffers

// One reference to a picture, or none.
class Held {
public:
    Held() = default;
    ~Held() { drop(); }
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    ZVbuffer get() const { return buffer_; }
    void keep(ZVbuffer buffer)  // attaches
    {
        bufferAttach(buffer);
        take(buffer);
    }
    void take(ZVbuffer buffer)  // takes a reference over
    {
        drop();
        buffer_ = buffer;
    }
    ZVbuffer release() { return std::exchange(buffer_, nullptr); }
    void drop()
    {
        if (buffer_ != nullptr)
            bufferFree(std::exchange(buffer_, nullptr));
    }

private:
    ZVbuffer buffer_ = nullptr;
};

class V4l2Output final : public V4l2Stream {
public:
    using V4l2Stream::V4l2Stream;
    ~V4l2Output() override { end(); }

    int poolCount() override { return 4; }  // waiting, next, shown, and the one before until it is given back
    int registerPool(ZVbufferpool) override { return 0; }  // pictures come from any pool
    int send(ZVbuffer frame) override;

private:
    struct Slot {
        bool queued = false;
        void* data = nullptr;  // of a mapped buffer
        size_t length = 0;
        Held picture;  // while queued without a copy
    };

    int prepare() override;
    void run() override;
    bool restart() override;
    void release() override;

    bool prepareMode(int mode);
    bool start();
    bool play();
    bool startMode(int mode) { return prepareMode(mode) && queuePicture(0); }
    bool queuePicture(int slot);
    bool queueHeld(int slot, int bytes);
    int freeSlot() const;
    bool collect(bool broken);
    void tell();
    bool copies() const { return mode_ != KP_MEMORY_USERPTR && mode_ != KP_MEMORY_DMABUF; }
    uint32_t memory() const
    {
        return mode_ == KP_MEMORY_USERPTR ? V4L2_MEMORY_USERPTR
            : mode_ == KP_MEMORY_DMABUF   ? V4L2_MEMORY_DMABUF
                                          : V4L2_MEMORY_MMAP;
    }
    uint32_t nextField();

    UniqueFd kick_;  // readable when a picture was sent
    std::mutex lock_;
    Held next_;  // guarded by lock_

    // The thread's own while it runs.
    V4l2Pictures pictures_;
    std::array<Slot, maxSlots> slots_;
    int numSlots_ = 0;
    int numQueued_ = 0;
    int toStart_ = 1;  // buffers that the driver wants before it shows the first one
    bool streaming_ = false;
    bool quiet_ = false;
    bool lent_ = false;  // what the mode was chosen for: memory of another device
    Held shown_;  // sent last
    uint32_t field_ = V4L2_FIELD_NONE;
    uint64_t tellAt_ = 0;
    int64_t msc_ = -1;
};

int V4l2Output::send(ZVbuffer frame)
{
    if (!alive())
        return recordError(ZV_ERROR_PEER, "'%s' is gone", node_.card().c_str());
    if (!kick_)
        return recordError(ZV_ERROR_STATE, "the transfer is not running");
    if (bufferSize(frame) < 0)
        return -1;
    if (bufferSize(frame) < frameBytes_)
        return recordError(ZV_ERROR_ARGUMENT, "a picture of %d bytes: '%s' shows %d x %d, %d bytes", bufferSize(frame),
                           node_.card().c_str(), format_.width, format_.height, frameBytes_);
    if (bufferAttach(frame) != 0)
        return -1;
    {
        std::lock_guard lock(lock_);
        next_.take(frame);
    }
    eventfd_write(kick_.get(), 1);
    return 0;
}

int V4l2Output::prepare()
{
    kick_.reset(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!kick_)
        return recordSystemError(ZV_ERROR_SYSTEM, "eventfd for '%s'", node_.card().c_str());
    toStart_ = node_.requestBuffers(V4L2_MEMORY_MMAP, 1);
    if (toStart_ < 1)
        return recordSystemError(errno == EBUSY ? ZV_ERROR_STATE : ZV_ERROR_SYSTEM, "no buffers of '%s'%s",
                                 node_.card().c_str(), errno == EBUSY ? ", it is busy" : "");
    toStart_ = std::min(toStart_, maxSlots);
    node_.requestBuffers(V4L2_MEMORY_MMAP, 0);
    streaming_ = quiet_ = false;
    msc_ = -1;
    settings_.sizeFixed = true;
    return pictures_.open(format_);
}

void V4l2Output::release()
{
    const int error = errno;
    prepareMode(KP_MEMORY_NONE);
    streaming_ = false;
    settings_.sizeFixed = false;
    shown_.drop();
    {
        std::lock_guard lock(lock_);
        next_.drop();
    }
    kick_.reset();
    errno = error;
}

// Gives all driver buffers back and asks for those of another mode.
bool V4l2Output::prepareMode(int mode)
{
    node_.streamOff();
    for (Slot& slot : slots_) {
        if (slot.length > 0)
            munmap(slot.data, slot.length);
        slot.picture.drop();
        slot.queued = false;
        slot.length = 0;
    }
    numSlots_ = numQueued_ = 0;
    if (mode_ != KP_MEMORY_NONE)
        node_.requestBuffers(memory(), 0);
    mode_ = mode;
    if (mode == KP_MEMORY_NONE)
        return true;
    numSlots_ = std::min(node_.requestBuffers(memory(), std::max(toStart_, 2)), maxSlots);
    for (int i = 0; i < numSlots_ && copies(); ++i) {
        slots_[i].data = node_.map(i, &slots_[i].length);
        if (slots_[i].data == nullptr)
            return false;
    }
    return numSlots_ >= toStart_;
}

// Shows the first picture: as another device shares it, or by user pointer, where the
// driver takes that.
bool V4l2Output::start()
{
    if (mode_ == KP_MEMORY_NONE) {
        lent_ = bufferLent(shown_.get()) >= 0;
        const bool shared = direct_ && lent_ && startMode(KP_MEMORY_DMABUF);
        const bool direct = shared || (direct_ && startMode(KP_MEMORY_USERPTR));
        if (!direct && !startMode(format_.fourcc == V4L2_PIX_FMT_UYVY ? KP_MEMORY_MMAP : KP_MEMORY_CONVERT))
            return false;
    }
    while (numQueued_ < toStart_)
        if (!queuePicture(freeSlot()))
            return false;
    streaming_ = node_.streamOn() == 0;
    tellAt_ = now() + quietPeriods * period_;
    return streaming_;
}

bool V4l2Output::restart()
{
    node_.streamOff();
    for (Slot& slot : slots_) {
        slot.picture.drop();
        slot.queued = false;
    }
    numQueued_ = 0;
    streaming_ = false;
    return shown_.get() == nullptr || start();
}

int V4l2Output::freeSlot() const
{
    for (int i = 0; i < numSlots_; ++i)
        if (!slots_[i].queued)
            return i;
    return -1;
}

// Fields go out in turn where the driver wants them alone.
uint32_t V4l2Output::nextField()
{
    if (!singleFields_)
        return format_.field;
    field_ = field_ == V4L2_FIELD_TOP ? V4L2_FIELD_BOTTOM : V4L2_FIELD_TOP;
    return field_;
}

// Queues the picture sent last.
bool V4l2Output::queuePicture(int slot)
{
    errno = EINVAL;
    if (slot < 0)
        return false;
    const int bytes = format_.bytes;
    if (!copies()) {
        if (!queueHeld(slot, bytes))
            return false;
    } else {
        const auto* data = static_cast<const uint8_t*>(bufferMap(shown_.get()));
        if (slots_[slot].length < size_t(bytes))
            return false;
        pictures_.store(data, static_cast<uint8_t*>(slots_[slot].data));
        if (node_.queue(V4L2_MEMORY_MMAP, slot, nullptr, bytes, bytes, nextField()) != 0)
            return false;
    }
    slots_[slot].queued = true;
    ++numQueued_;
    return true;
}

// Without a copy; the picture is held until the driver gives it back.
bool V4l2Output::queueHeld(int slot, int bytes)
{
    const ZVbuffer picture = shown_.get();
    if (bufferCapacity(picture) < bytes)
        return false;
    void* const data = bufferMap(picture);  // whoever still draws into it is done then
    const int done = mode_ == KP_MEMORY_DMABUF
        ? node_.queueShared(slot, bufferLent(picture), bufferCapacity(picture), bytes, nextField())
        : node_.queue(V4L2_MEMORY_USERPTR, slot, data, bytes, bytes, nextField());
    if (done == 0)
        slots_[slot].picture.keep(picture);
    return done == 0;
}

void V4l2Output::run()
{
    for (;;) {
        const Woken woken = wait(numQueued_ > 0 ? POLLOUT : 0, kick_.get(), POLLIN, streaming_ ? tellAt_ : 0);
        if (woken.stop)
            return;
        eventfd_t sent;
        if (woken.extra)
            eventfd_read(kick_.get(), &sent);
        if ((woken.device && !collect(woken.broken)) || (!play() && !recover()))
            return;
        if (streaming_ && now() >= tellAt_) {
            if (!answers())
                return;
            tell();
        }
    }
}

// Gives the newest picture to the driver if it has room; false when it refuses.
bool V4l2Output::play()
{
    if (streaming_ && (numQueued_ >= std::max(toStart_, 2) || freeSlot() < 0))
        return true;
    {
        std::lock_guard lock(lock_);
        if (next_.get() == nullptr)
            return true;
        shown_.take(next_.release());
    }
    if (streaming_ && !copies() && (bufferLent(shown_.get()) >= 0) != lent_)
        streaming_ = !prepareMode(KP_MEMORY_NONE);  // another kind of picture: begin anew
    if (!streaming_)
        return start();
    if (!queuePicture(freeSlot()))
        return false;
    if (numQueued_ > 1)
        tellAt_ = std::max(tellAt_, now() + quietPeriods * period_);
    return true;
}

// Takes back what was shown; false when the stream's thread is to end.
bool V4l2Output::collect(bool broken)
{
    V4l2Done done;
    bool any = false;
    while (streaming_ && node_.dequeue(memory(), &done) == 0) {
        any = true;
        if (done.index < 0 || done.index >= numSlots_ || !slots_[done.index].queued)
            continue;
        slots_[done.index].queued = false;
        slots_[done.index].picture.drop();
        --numQueued_;
        quiet_ = false;
        if (done.damaged)
            events_->happened(KPTransferError, 1);
        events_->frameShown({done.ust, ++msc_});
        tellAt_ = now() + (numQueued_ > 1 ? quietPeriods * period_ : period_ + period_ / 4);
    }
    const bool idle = streaming_ ? errno == EAGAIN && (any || !broken) : !broken;
    if (!idle)
        return streaming_ ? recover() : answers();
    if (!streaming_ || numQueued_ > 0)
        return true;
    std::unique_lock lock(lock_);
    const bool repeat = next_.get() == nullptr;
    lock.unlock();
    return !repeat || queuePicture(freeSlot()) || recover();  // a driver that keeps nothing is given it again
}

// A period has passed without the driver giving anything back: it holds the picture,
// or, when it has a newer one too, it stands still.
void V4l2Output::tell()
{
    if (numQueued_ > std::max(1, toStart_ - 1) && !quiet_) {
        quiet_ = true;
        events_->happened(KPSyncLost, 1);
    }
    events_->frameShown({int64_t(now()), ++msc_});
    tellAt_ = std::max(tellAt_ + period_, now());
}

}  // namespace

std::unique_ptr<V4l2Stream> makeV4l2Output(V4l2Node node, const V4l2Jack& jack)
{
    return std::make_unique<V4l2Output>(std::move(node), jack);
}

}  // namespace kiv
