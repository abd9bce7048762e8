// v4l2Capture.cpp - pictures from a device into a pool.
//
// Where the driver makes pictures as the pool has them and takes user pointers, the
// pool's own buffers are queued and nothing is copied. Where it does not take them but
// shares its own buffers, those are lent to the pool, one for each of the pool's, and
// nothing is copied either; an output can show them without a copy. Otherwise the
// driver's buffers are mapped and each picture is copied, or converted, once.
//
// Stamps: UST is the driver's, which may lie up to a period in the future; MSC counts
// pictures, those that were lost included. A frame whose fields come alone is two.
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include <sys/mman.h>

#include "platform/kp/v4l2/v4l2Pictures.h"
#include "platform/kp/v4l2/v4l2Stream.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

constexpr int maxSlots = 32;  // driver buffers
constexpr int userSlots = 24;  // so that a pool's buffers mostly keep theirs, and the driver their pages
constexpr int usualDepth = 4;  // buffers queued at once

class V4l2Capture final : public V4l2Stream {
public:
    using V4l2Stream::V4l2Stream;
    ~V4l2Capture() override { end(); }

    int poolCount() override { return depth(); }
    int registerPool(ZVbufferpool pool) override;
    int send(ZVbuffer) override { return recordError(ZV_ERROR_ARGUMENT, "an input takes no pictures"); }

private:
    struct Slot {
        bool queued = false;
        void* data = nullptr;  // of a mapped buffer, of the pool's that was here last, or of the one lent to
        size_t length = 0;
        ZVbuffer buffer = nullptr;  // of the pool, while queued; one reference
    };

    int prepare() override;
    void run() override;
    bool restart() override;
    void release() override;

    bool direct() const { return mode_ == KP_MEMORY_USERPTR || mode_ == KP_MEMORY_DMABUF; }
    uint32_t memory() const { return mode_ == KP_MEMORY_USERPTR ? V4L2_MEMORY_USERPTR : V4L2_MEMORY_MMAP; }
    int depth() const;
    bool takesUserPointers();
    bool sharesBuffers();
    int slotsWanted() const;
    bool lendSlots();
    int requestSlots();
    int mapSlots();
    bool refill();
    bool queueFree();
    Slot* slotFor(const void* data);
    void dropQueued();
    bool serve(bool broken);
    void deliver(const V4l2Done& done);
    ZVbuffer pictureOf(const V4l2Done& done);
    long long count(const V4l2Done& done);

    ZVbufferpool pool_ = nullptr;
    V4l2Pictures pictures_;
    std::array<Slot, maxSlots> slots_;
    int numSlots_ = 0;
    int numQueued_ = 0;
    int wantQueued_ = 0;

    // Counting; the stream's thread.
    uint32_t firstField_ = V4L2_FIELD_TOP;
    bool fresh_ = true;  // no picture since the queue was started
    uint32_t sequence_ = 0;
    bool second_ = false;  // the last one was a frame's second field
    int64_t msc_ = -1;
    int64_t ust_ = 0;
};

// What the driver keeps for itself, and two to be filled in turn.
int V4l2Capture::depth() const
{
    v4l2_control least = {V4L2_CID_MIN_BUFFERS_FOR_CAPTURE, 0};
    if (node_.control(VIDIOC_G_CTRL, &least) != 0)
        return usualDepth;
    return std::clamp(least.value + 2, usualDepth, maxSlots);
}

int V4l2Capture::registerPool(ZVbufferpool pool)
{
    if (running())
        return recordError(ZV_ERROR_STATE, "the transfer is running on another pool");
    if (poolFree(pool) < 0)
        return -1;
    pool_ = pool;
    settings_.sizeFixed = true;
    if (settings_.direct())
        mode_ = takesUserPointers() ? KP_MEMORY_USERPTR : sharesBuffers() ? KP_MEMORY_DMABUF : KP_MEMORY_MMAP;
    else
        mode_ = settings_.format().fourcc == V4L2_PIX_FMT_UYVY ? KP_MEMORY_MMAP : KP_MEMORY_CONVERT;
    return 0;
}

// Tried with one buffer of the pool: a driver may refuse this memory alone.
bool V4l2Capture::takesUserPointers()
{
    ZVbuffer buffer = nullptr;
    if (bufferAllocate(pool_, &buffer) != 0)
        return false;
    const int length = settings_.format().bytes;
    const bool taken = bufferCapacity(buffer) >= length && node_.requestBuffers(V4L2_MEMORY_USERPTR, 1) > 0
        && node_.queue(V4L2_MEMORY_USERPTR, 0, bufferMap(buffer), length, 0, 0) == 0;
    node_.streamOff();
    node_.requestBuffers(V4L2_MEMORY_USERPTR, 0);
    bufferFree(buffer);
    return taken;
}

// Tried with one buffer; a pool of more than the driver can have is not lent to.
bool V4l2Capture::sharesBuffers()
{
    const bool shared
        = poolBuffers(pool_) <= maxSlots && node_.requestBuffers(V4L2_MEMORY_MMAP, 1) > 0 && node_.exportBuffer(0);
    node_.requestBuffers(V4L2_MEMORY_MMAP, 0);
    return shared;
}

int V4l2Capture::slotsWanted() const
{
    if (mode_ == KP_MEMORY_DMABUF)
        return poolBuffers(pool_);
    return mode_ == KP_MEMORY_USERPTR ? userSlots : wantQueued_;
}

// A driver buffer in the place of each buffer of the pool. False when one is held by
// somebody, or cannot be had.
bool V4l2Capture::lendSlots()
{
    std::array<ZVbuffer, maxSlots> all = {};
    int lent = 0;
    bool good = numSlots_ == slotsWanted() && poolFree(pool_) == numSlots_;
    for (; lent < numSlots_ && good; ++lent) {
        good = bufferAllocate(pool_, &all[lent]) == 0 && format_.bytes <= bufferCapacity(all[lent])
            && bufferLend(all[lent], node_.exportBuffer(lent));
        slots_[lent].data = bufferMap(all[lent]);
    }
    for (ZVbuffer buffer : all)
        if (buffer != nullptr)
            bufferFree(buffer);
    return good;
}

int V4l2Capture::prepare()
{
    if (pool_ == nullptr)
        return recordError(ZV_ERROR_STATE, "no pool is registered for the transfer");
    wantQueued_ = depth();
    firstField_ = settings_.firstField();
    fresh_ = true;
    msc_ = -1;
    numQueued_ = 0;
    slots_ = {};
    if (pictures_.open(format_) != 0 || requestSlots() != 0)
        return -1;
    if (mode_ == KP_MEMORY_DMABUF && !lendSlots()) {
        node_.requestBuffers(memory(), 0);
        mode_ = KP_MEMORY_MMAP;  // somebody holds a buffer of the pool, or the driver has too few
        slots_ = {};
        if (requestSlots() != 0)
            return -1;
    }
    if (!direct() && mapSlots() != 0)
        return -1;
    if (refill() && node_.streamOn() == 0)
        return 0;
    return recordSystemError(ZV_ERROR_SYSTEM, "'%s' does not start", node_.card().c_str());
}

int V4l2Capture::requestSlots()
{
    numSlots_ = node_.requestBuffers(memory(), slotsWanted());
    if (numSlots_ < 1)
        return recordSystemError(errno == EBUSY ? ZV_ERROR_STATE : ZV_ERROR_SYSTEM, "no buffers of '%s'%s",
                                 node_.card().c_str(), errno == EBUSY ? ", it is busy" : "");
    numSlots_ = std::min(numSlots_, maxSlots);
    return 0;
}

int V4l2Capture::mapSlots()
{
    for (int i = 0; i < numSlots_; ++i) {
        slots_[i].data = node_.map(i, &slots_[i].length);
        if (slots_[i].data == nullptr)
            return recordSystemError(ZV_ERROR_MEMORY, "buffer %d of '%s' is not mapped", i, node_.card().c_str());
    }
    return 0;
}

void V4l2Capture::release()
{
    const int error = errno;
    node_.streamOff();
    dropQueued();
    for (Slot& slot : slots_)
        if (slot.length > 0)
            munmap(slot.data, slot.length);
    slots_ = {};
    numSlots_ = 0;
    node_.requestBuffers(memory(), 0);
    errno = error;
}

void V4l2Capture::dropQueued()
{
    for (Slot& slot : slots_) {
        if (slot.buffer != nullptr)
            bufferFree(std::exchange(slot.buffer, nullptr));
        slot.queued = false;
    }
    numQueued_ = 0;
}

bool V4l2Capture::restart()
{
    node_.streamOff();
    dropQueued();
    fresh_ = true;
    return refill() && node_.streamOn() == 0;
}

// Queues what can be queued now; false when the driver refuses.
bool V4l2Capture::refill()
{
    if (direct()) {
        while (numQueued_ < wantQueued_ && poolFree(pool_) > 0)
            if (!queueFree())
                return false;
        return true;
    }
    for (int i = 0; i < numSlots_; ++i) {
        if (slots_[i].queued)
            continue;
        if (node_.queue(V4L2_MEMORY_MMAP, i, nullptr, 0, 0, 0) != 0)
            return false;
        slots_[i].queued = true;
        ++numQueued_;
    }
    return true;
}

bool V4l2Capture::queueFree()
{
    ZVbuffer buffer = nullptr;
    if (bufferAllocate(pool_, &buffer) != 0)
        return true;  // another was faster
    void* const data = bufferMap(buffer);
    Slot* slot = slotFor(data);
    if (node_.queue(memory(), int(slot - slots_.data()), data, format_.bytes, 0, 0) != 0) {
        bufferFree(buffer);
        return false;
    }
    *slot = {true, data, 0, buffer};
    ++numQueued_;
    return true;
}

// The slot that had this memory before, so that the driver need not pin it anew; else
// one that never had any; else any.
V4l2Capture::Slot* V4l2Capture::slotFor(const void* data)
{
    Slot* any = nullptr;
    for (Slot* slot = slots_.data(); slot < slots_.data() + numSlots_; ++slot) {
        if (slot->queued)
            continue;
        if (slot->data == data)
            return slot;
        if (any == nullptr || (any->data != nullptr && slot->data == nullptr))
            any = slot;
    }
    return any;
}

void V4l2Capture::run()
{
    const int freed = direct() ? poolFd(pool_) : -1;
    bool refused = false;
    bool quiet = false;
    uint64_t frameAt = now();
    for (;;) {
        const bool starved = direct() && numQueued_ < wantQueued_ && !refused;
        const uint64_t deadline = refused || quiet ? now() + period_ : frameAt + quietPeriods * period_;
        const Woken woken = wait(POLLIN, starved ? freed : -1, POLLOUT, deadline);
        if (woken.stop)
            return;
        if (woken.device) {
            if (!serve(woken.broken))
                return;
            frameAt = now();
            quiet = false;
        } else if (!woken.extra) {
            if (!answers())
                return;
            if (!quiet && numQueued_ > 0 && now() >= frameAt + quietPeriods * period_) {
                quiet = true;
                events_->happened(KPSyncLost, 1);
            }
        }
        refused = !refill();
        if (refused)
            events_->happened(KPTransferError, 1);
    }
}

// Takes what is done; false when the stream's thread is to end.
bool V4l2Capture::serve(bool broken)
{
    V4l2Done done;
    bool any = false;
    while (node_.dequeue(memory(), &done) == 0) {
        any = true;
        if (done.index >= 0 && done.index < numSlots_ && slots_[done.index].queued)
            deliver(done);
        if (!refill())  // at once: when several are done, the driver has none left to fill
            events_->happened(KPTransferError, 1);
    }
    if (errno == EAGAIN && (any || !broken))
        return true;
    return recover();
}

void V4l2Capture::deliver(const V4l2Done& done)
{
    slots_[done.index].queued = false;
    --numQueued_;
    const long long lost = count(done);
    if (lost > 0)
        events_->happened(KPSequenceLost, lost);
    ZVbuffer buffer = pictureOf(done);
    if (buffer == nullptr)
        return;
    bufferSetSize(buffer, frameBytes_);
    bufferSetStamp(buffer, {done.ust, msc_});
    events_->frameCaptured(buffer);
}

// The picture in a buffer of the pool; null, told, when there is none.
ZVbuffer V4l2Capture::pictureOf(const V4l2Done& done)
{
    Slot& slot = slots_[done.index];
    ZVbuffer buffer = std::exchange(slot.buffer, nullptr);
    bool good = !done.damaged;
    if (direct()) {
        good = good && done.offset == 0 && done.bytes >= frameBytes_;
    } else if (good) {
        if (poolFree(pool_) <= 0 || bufferAllocate(pool_, &buffer) != 0) {
            events_->happened(KPSequenceLost, 1);
            return nullptr;
        }
        good = bufferCapacity(buffer) >= frameBytes_
            && pictures_.load(static_cast<const uint8_t*>(slot.data) + done.offset,
                              std::min(done.bytes, int(slot.length) - done.offset),
                              static_cast<uint8_t*>(bufferMap(buffer)));
    }
    if (good)
        return buffer;
    if (buffer != nullptr)
        bufferFree(buffer);
    events_->happened(KPTransferError, 1);
    return nullptr;
}

// Counts one picture; those that were lost before it. The driver's own counter says,
// or, for the first one after the queue was set going again, the time.
long long V4l2Capture::count(const V4l2Done& done)
{
    const bool second = singleFields_ && done.field != firstField_;
    long long step = 1;
    if (!fresh_) {
        step = int32_t(done.sequence - sequence_);
        if (singleFields_)
            step = step * 2 + (second ? 1 : 0) - (second_ ? 1 : 0);
    } else if (msc_ >= 0) {
        step = (done.ust - ust_ + int64_t(period_ / 2)) / int64_t(period_);
    }
    step = std::max(step, 1ll);  // a counter that stands still does not count
    fresh_ = false;
    sequence_ = done.sequence;
    second_ = second;
    ust_ = done.ust;
    msc_ += step;
    return step - 1;
}

}  // namespace

std::unique_ptr<V4l2Stream> makeV4l2Capture(V4l2Node node, const V4l2Jack& jack)
{
    return std::make_unique<V4l2Capture>(std::move(node), jack);
}

}  // namespace kiv
