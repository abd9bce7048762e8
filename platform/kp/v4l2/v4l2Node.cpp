// v4l2Node.cpp - see v4l2Node.h.
#include "platform/kp/v4l2/v4l2Node.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "platform/zv/internal.h"

namespace kiv {

namespace {

constexpr uint32_t capture = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE;
constexpr uint32_t playout = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_VIDEO_OUTPUT_MPLANE;
constexpr uint32_t memoryToMemory = V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;

}  // namespace

bool V4l2Node::open(const char* path)
{
    fd_.reset(::open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    v4l2_capability what = {};
    if (!fd_ || control(VIDIOC_QUERYCAP, &what) != 0)
        return false;
    const uint32_t caps = (what.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? what.device_caps : what.capabilities;
    errno = ENOTSUP;
    if ((caps & V4L2_CAP_STREAMING) == 0 || (caps & memoryToMemory) != 0 || (caps & (capture | playout)) == 0)
        return false;
    output_ = (caps & capture) == 0;
    planes_ = (caps & (output_ ? V4L2_CAP_VIDEO_OUTPUT : V4L2_CAP_VIDEO_CAPTURE)) == 0;
    if (output_)
        type_ = planes_ ? V4L2_BUF_TYPE_VIDEO_OUTPUT_MPLANE : V4L2_BUF_TYPE_VIDEO_OUTPUT;
    else
        type_ = planes_ ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE;
    card_.assign(reinterpret_cast<const char*>(what.card),
                 strnlen(reinterpret_cast<const char*>(what.card), sizeof what.card));
    return true;
}

// The kernel lets everybody open and set up an idle device; this keeps ours apart.
bool V4l2Node::lock() { return flock(fd_.get(), LOCK_EX | LOCK_NB) == 0; }

int V4l2Node::control(unsigned long request, void* argument) const
{
    int result;
    do
        result = ioctl(fd_.get(), request, argument);
    while (result < 0 && errno == EINTR);
    return result;
}

// Pictures whose planes lie in several buffers are refused: EINVAL.
int V4l2Node::format_(unsigned long request, V4l2Format* format) const
{
    v4l2_format data = {};
    data.type = type_;
    auto fill = [&](auto& picture) {
        picture.width = uint32_t(format->width);
        picture.height = uint32_t(format->height);
        picture.pixelformat = format->fourcc;
        picture.field = format->field;
    };
    if (planes_) {
        fill(data.fmt.pix_mp);
        data.fmt.pix_mp.num_planes = 1;
    } else {
        fill(data.fmt.pix);
    }
    if (control(request, &data) != 0)
        return -1;
    auto read = [&](const auto& picture, const auto& memory) {
        *format = {picture.pixelformat, int(picture.width),       int(picture.height),
                   picture.field,       int(memory.bytesperline), int(memory.sizeimage)};
    };
    if (!planes_) {
        read(data.fmt.pix, data.fmt.pix);
        return 0;
    }
    read(data.fmt.pix_mp, data.fmt.pix_mp.plane_fmt[0]);
    errno = EINVAL;
    return data.fmt.pix_mp.num_planes == 1 ? 0 : -1;
}

V4l2Rate V4l2Node::rate() const
{
    v4l2_streamparm data = {};
    data.type = type_;
    if (control(VIDIOC_G_PARM, &data) != 0)
        return {};
    const v4l2_fract& frame = output_ ? data.parm.output.timeperframe : data.parm.capture.timeperframe;
    if (frame.numerator == 0 || frame.denominator == 0)
        return {};
    return {int(frame.denominator), int(frame.numerator)};
}

int V4l2Node::setRate(V4l2Rate rate) const
{
    v4l2_streamparm data = {};
    data.type = type_;
    (output_ ? data.parm.output.timeperframe : data.parm.capture.timeperframe)
        = {uint32_t(rate.denominator), uint32_t(rate.numerator)};
    return control(VIDIOC_S_PARM, &data);
}

int V4l2Node::requestBuffers(uint32_t memory, int count) const
{
    v4l2_requestbuffers data = {};
    data.type = type_;
    data.memory = memory;
    data.count = uint32_t(count);
    return control(VIDIOC_REQBUFS, &data) == 0 ? int(data.count) : -1;
}

// `place` writes where the memory is.
template <class Place>
int V4l2Node::queue_(v4l2_buffer& buffer, int length, int used, uint32_t field, Place&& place) const
{
    v4l2_plane plane = {};
    buffer.type = type_;
    buffer.field = output_ ? field : uint32_t(V4L2_FIELD_ANY);
    if (planes_) {
        plane.bytesused = uint32_t(used);
        plane.length = uint32_t(length);
        place(plane.m);
        buffer.m.planes = &plane;
        buffer.length = 1;
    } else {
        buffer.bytesused = uint32_t(used);
        buffer.length = uint32_t(length);
        place(buffer.m);
    }
    return control(VIDIOC_QBUF, &buffer);
}

int V4l2Node::queue(uint32_t memory, int index, void* data, int length, int used, uint32_t field) const
{
    v4l2_buffer buffer = {};
    buffer.memory = memory;
    buffer.index = uint32_t(index);
    return queue_(buffer, length, used, field, [&](auto& m) { m.userptr = reinterpret_cast<unsigned long>(data); });
}

int V4l2Node::queueShared(int index, int descriptor, int length, int used, uint32_t field) const
{
    v4l2_buffer buffer = {};
    buffer.memory = V4L2_MEMORY_DMABUF;
    buffer.index = uint32_t(index);
    return queue_(buffer, length, used, field, [&](auto& m) { m.fd = descriptor; });
}

int V4l2Node::dequeue(uint32_t memory, V4l2Done* done) const
{
    v4l2_plane plane = {};
    v4l2_buffer buffer = {};
    buffer.type = type_;
    buffer.memory = memory;
    if (planes_) {
        buffer.m.planes = &plane;
        buffer.length = 1;
    }
    if (control(VIDIOC_DQBUF, &buffer) != 0)
        return -1;
    const bool monotonic = (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    *done = {int(buffer.index),
             int(plane.data_offset),
             int(planes_ ? plane.bytesused - plane.data_offset : buffer.bytesused),
             buffer.field,
             (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0 || plane.data_offset > plane.bytesused,
             buffer.sequence,
             monotonic ? int64_t(buffer.timestamp.tv_sec) * 1000000000 + int64_t(buffer.timestamp.tv_usec) * 1000
                       : int64_t(now())};
    return 0;
}

void* V4l2Node::map(int index, size_t* length) const
{
    v4l2_plane plane = {};
    v4l2_buffer buffer = {};
    buffer.type = type_;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = uint32_t(index);
    if (planes_) {
        buffer.m.planes = &plane;
        buffer.length = 1;
    }
    if (control(VIDIOC_QUERYBUF, &buffer) != 0)
        return nullptr;
    *length = planes_ ? plane.length : buffer.length;
    const off_t offset = planes_ ? plane.m.mem_offset : buffer.m.offset;
    void* data = mmap(nullptr, *length, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), offset);
    return data != MAP_FAILED ? data : nullptr;
}

UniqueFd V4l2Node::exportBuffer(int index) const
{
    v4l2_exportbuffer data = {};
    data.type = type_;
    data.index = uint32_t(index);
    data.flags = O_CLOEXEC | O_RDWR;
    return control(VIDIOC_EXPBUF, &data) == 0 ? selectableFd(data.fd) : UniqueFd();
}

int V4l2Node::streamOn() const
{
    uint32_t type = type_;
    return control(VIDIOC_STREAMON, &type);
}

int V4l2Node::streamOff() const
{
    uint32_t type = type_;
    return control(VIDIOC_STREAMOFF, &type);
}

std::string fourccText(uint32_t fourcc)
{
    std::string text;
    for (int i = 0; i < 4; ++i)
        text += char(fourcc >> (8 * i) & 0x7f);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

}  // namespace kiv
