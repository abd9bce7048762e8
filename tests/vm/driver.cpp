// driver.cpp - see driver.h.
#include "tests/vm/driver.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <mutex>

const char* const captureFile = "/dev/video0";
const char* const outputFile = "/dev/video1";

DriverHand hand;

namespace {

std::mutex countLock;  // a capture's thread and a playout's come here at the same time

using Ioctl = int (*)(int, unsigned long, ...);

int driverCall(int fd, unsigned long request, void* argument)
{
    static const Ioctl real = reinterpret_cast<Ioctl>(dlsym(RTLD_NEXT, "ioctl"));
    return real(fd, request, argument);
}

bool refused(uint32_t fourcc)
{
    if (fourcc == V4L2_PIX_FMT_MJPEG)
        return hand.jpegs.empty();
    return std::find(hand.refusedFormats.begin(), hand.refusedFormats.end(), fourcc) != hand.refusedFormats.end();
}

int refuse(int error)
{
    errno = error;
    return -1;
}

bool isCapture(const v4l2_buffer& buffer)
{
    return buffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
}

// Something of the driver's own of that size, called MJPG.
int setJpegFormat(int fd, v4l2_format& format)
{
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    const int result = driverCall(fd, VIDIOC_S_FMT, &format);
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_MJPEG;
    format.fmt.pix.bytesperline = 0;
    return result;
}

// What the driver filled in gives way to the next JPEG.
void fillInJpeg(int fd, v4l2_buffer& done)
{
    v4l2_buffer buffer = {};
    buffer.type = done.type;
    buffer.memory = done.memory;
    buffer.index = done.index;
    const auto& jpeg = hand.jpegs[done.sequence % hand.jpegs.size()];
    if (driverCall(fd, VIDIOC_QUERYBUF, &buffer) != 0 || buffer.length < jpeg.size())
        return;
    void* const memory = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, buffer.m.offset);
    memcpy(memory, jpeg.data(), jpeg.size());
    munmap(memory, buffer.length);
    done.bytesused = uint32_t(jpeg.size());
}

}  // namespace

// In place of the system's: the library's calls come here too.
extern "C" __attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list list;
    va_start(list, request);
    void* const argument = va_arg(list, void*);
    va_end(list);
    if (request == hand.failingRequest && hand.failing > 0) {
        --hand.failing;
        return refuse(hand.failure);
    }
    static std::atomic<bool> isJpeg{false};
    static std::atomic<int> captureQueued{0};  // buffers that the driver may fill
    if (request == VIDIOC_S_PARM && hand.rateNeedsJpeg && !isJpeg)
        return 0;
    if (request == VIDIOC_S_FMT) {
        auto& format = *static_cast<v4l2_format*>(argument);
        isJpeg = format.fmt.pix.pixelformat == V4L2_PIX_FMT_MJPEG;
        if (refused(format.fmt.pix.pixelformat))
            return refuse(EINVAL);
        if (format.fmt.pix.pixelformat == V4L2_PIX_FMT_MJPEG)
            return setJpegFormat(fd, format);
    }
    if (request == VIDIOC_EXPBUF && hand.refuseExport)
        return refuse(EINVAL);
    if (request == VIDIOC_REQBUFS && hand.refuseUserPointers
        && static_cast<v4l2_requestbuffers*>(argument)->memory == V4L2_MEMORY_USERPTR)
        return refuse(EINVAL);
    if (request == VIDIOC_STREAMOFF)
        captureQueued = 0;
    if (request == VIDIOC_QBUF) {
        captureQueued += isCapture(*static_cast<v4l2_buffer*>(argument));
        const auto memory = static_cast<v4l2_buffer*>(argument)->memory;
        std::lock_guard lock(countLock);
        hand.queuedUserPointers += memory == V4L2_MEMORY_USERPTR;
        hand.queuedMapped += memory == V4L2_MEMORY_MMAP;
        hand.queuedShared += memory == V4L2_MEMORY_DMABUF;
    }
    const int result = driverCall(fd, request, argument);
    if (request == VIDIOC_DQBUF && result == 0) {
        auto& done = *static_cast<v4l2_buffer*>(argument);
        std::lock_guard lock(countLock);
        hand.fields.push_back(done.field);
        hand.starved += isCapture(done) && --captureQueued < 2;
        if (!hand.jpegs.empty() && done.type == V4L2_BUF_TYPE_VIDEO_CAPTURE)
            fillInJpeg(fd, done);
    }
    return result;
}

namespace {

uint32_t controlId(int fd, const char* name)
{
    v4l2_queryctrl query = {};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    for (; driverCall(fd, VIDIOC_QUERYCTRL, &query) == 0; query.id |= V4L2_CTRL_FLAG_NEXT_CTRL)
        if (strcmp(reinterpret_cast<const char*>(query.name), name) == 0)
            return query.id;
    return 0;
}

}  // namespace

bool hasDriverControl(const char* file, const char* name)
{
    const int fd = open(file, O_RDWR | O_CLOEXEC);
    const bool found = controlId(fd, name) != 0;
    close(fd);
    return found;
}

void setDriver(const char* file, const char* name, int value)
{
    const int fd = open(file, O_RDWR | O_CLOEXEC);
    v4l2_control control = {controlId(fd, name), value};
    EXPECT_TRUE(control.id != 0 && driverCall(fd, VIDIOC_S_CTRL, &control) == 0) << name << ": " << strerror(errno);
    close(fd);
}

std::string lastWords()
{
    char detail[ZV_ERROR_DETAIL_MAX] = "";
    zvGetError(nullptr, detail);
    return detail;
}

TestPath::TestPath(const char* jack, bool output) : server_(kpOpenVideo(""))
{
    KPDevList list = {};
    kpGetDeviceList(server_, &list);
    int video = -1;
    for (int d = 0; d < list.numDevices; ++d)
        for (int n = 0; n < list.devices[d].numNodes; ++n) {
            const KPNodeDesc& node = list.devices[d].nodes[n];
            if (node.type == (output ? KP_TYPE_DRAIN : KP_TYPE_SOURCE) && strstr(node.name, jack) != nullptr)
                video = node.id;
        }
    node_ = kpGetNode(server_, output ? KP_TYPE_SOURCE : KP_TYPE_DRAIN, KP_KIND_MEMORY, KP_ANY);
    path_ = output ? kpCreatePath(server_, KP_ANY, node_, video) : kpCreatePath(server_, KP_ANY, video, node_);
    taken_ = path_ > 0 && kpSetupPaths(server_, &path_, 1, 2, 2) == 0;
    kpSelectEvents(server_, path_, KP_EVENTS_ALL);
}

TestPath::~TestPath()
{
    kpDestroyPath(server_, path_);
    if (pool != nullptr) {
        ZVpoolLedger ledger = {};
        zvBufferGetPoolLedger(pool, &ledger);
        EXPECT_EQ(ledger.free, ledger.count) << "a buffer is missing";
        zvBufferDestroyPool(pool);
    }
    kpCloseVideo(server_);
}

int TestPath::set(int control, int value)
{
    KPControlValue setting = {};
    setting.intVal = value;
    return kpSetControl(server_, path_, node_, control, &setting);
}

int TestPath::setSize(int width, int height)
{
    KPControlValue setting = {};
    setting.xyVal = {width, height};
    return kpSetControl(server_, path_, node_, KP_CONTROL_SIZE, &setting);
}

int TestPath::setRate(int numerator, int denominator)
{
    KPControlValue setting = {};
    setting.fractVal = {numerator, denominator};
    return kpSetControl(server_, path_, node_, KP_CONTROL_RATE, &setting);
}

int TestPath::setZoom(int numerator, int denominator)
{
    KPControlValue setting = {};
    setting.fractVal = {numerator, denominator};
    return kpSetControl(server_, path_, node_, KP_CONTROL_ZOOM, &setting);
}

KPControlValue TestPath::get(int control) const
{
    KPControlValue value = {};
    EXPECT_EQ(kpGetControl(server_, path_, node_, control, &value), 0) << control;
    return value;
}

std::string TestPath::size() const
{
    const KPControlValue value = get(KP_CONTROL_SIZE);
    return std::to_string(value.xyVal.x) + "x" + std::to_string(value.xyVal.y);
}

std::string TestPath::rate() const
{
    const KPControlValue value = get(KP_CONTROL_RATE);
    return std::to_string(value.fractVal.numerator) + "/" + std::to_string(value.fractVal.denominator);
}

void TestPath::makePool(int more)
{
    ZVparams* params = nullptr;
    ASSERT_EQ(zvParamsCreate(&params), 0);
    ASSERT_EQ(zvBufferSetPoolDefaults(params, 1, bytes(), 0, 0), 0);
    ASSERT_EQ(kpZVPoolGetParams(server_, path_, node_, params), 0);
    zvParamsSetInt(params, ZV_BUFFER_COUNT, zvParamsGetInt(params, ZV_BUFFER_COUNT) + more);
    ASSERT_EQ(zvBufferCreatePool(params, &pool), 0);
    zvParamsDestroy(params);
    ASSERT_EQ(kpZVPoolRegister(server_, path_, node_, pool), 0) << lastWords();
}

KPEvent TestPath::next(int ms)
{
    int fd = -1;
    kpPathGetFD(server_, path_, &fd);
    pollfd polled = {fd, POLLIN, 0};
    KPEvent event = {};
    if (poll(&polled, 1, ms) <= 0 || kpEventRecv(server_, path_, &event) != 0)
        return {};
    lost += event.reason == KPSequenceLost ? event.count : 0;
    errors += event.reason == KPTransferError ? int(event.count) : 0;
    shown += event.reason == KPTransferComplete;
    return event;
}

KPEvent TestPath::until(int reason, int ms)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        const KPEvent event = next(std::max(int(left.count()), 0));
        if (event.reason != reason && left.count() <= 0)
            return {};
        if (event.reason == reason || event.reason == 0)
            return event;
    }
}

ZVbuffer TestPath::frame(int ms)
{
    KPEvent event = until(KPTransferComplete, ms);
    ZVbuffer buffer = nullptr;
    if (event.reason != 0 && kpEventToZVBuffer(&event, &buffer) != 0)
        ADD_FAILURE() << lastWords();
    return buffer;
}

std::vector<uint8_t> TestPath::picture()
{
    ZVbuffer buffer = frame();
    EXPECT_NE(buffer, nullptr) << "no frame";
    if (buffer == nullptr)
        return {};
    const auto* data = static_cast<const uint8_t*>(zvBufferMapData(buffer));
    std::vector<uint8_t> copy(data, data + zvBufferGetSize(buffer));
    zvBufferFree(buffer);
    return copy;
}

bool TestPath::captureInARow(int count, int most)
{
    stamps.clear();
    for (int i = 0; i < most && int(stamps.size()) < count; ++i) {
        ZVbuffer buffer = frame();
        if (buffer == nullptr)
            return false;
        const USTMSCpair stamp = zvBufferGetUSTMSCpair(buffer);
        if (zvBufferGetSize(buffer) != bytes())
            ADD_FAILURE() << "a frame of " << zvBufferGetSize(buffer) << " bytes";
        zvBufferFree(buffer);
        if (!stamps.empty() && stamp.msc != stamps.back().msc + 1)
            stamps.clear();
        stamps.push_back(stamp);
    }
    return int(stamps.size()) == count;
}
