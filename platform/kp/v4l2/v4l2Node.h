// v4l2Node.h - one opened video device file, single- or multi-planar alike.
#pragma once

#include <linux/videodev2.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/support/fd.h"

namespace kiv {

struct V4l2Format {
    uint32_t fourcc = 0;
    int width = 0;  // pixels
    int height = 0;  // rows of one picture; of one field where fields come alone
    uint32_t field = V4L2_FIELD_NONE;
    int stride = 0;  // bytes of a row in memory
    int bytes = 0;  // of one driver buffer
};

// A buffer that the driver has given back.
struct V4l2Done {
    int index = -1;
    int offset = 0;  // of the picture in the buffer
    int bytes = 0;  // of the picture
    uint32_t field = V4L2_FIELD_NONE;
    bool damaged = false;
    uint32_t sequence = 0;
    int64_t ust = 0;  // ns: the driver's stamp where it is monotonic, else now
};

struct V4l2Rate {
    int numerator = 0;  // pictures per second; 0 = unknown
    int denominator = 1;
};

// Calls return 0, or -1 with errno; none blocks or records an error. One thread at a
// time, but for control().
class V4l2Node {
public:
    bool open(const char* path);  // false with errno; ENOTSUP: no picture queue
    bool lock();  // false when another stream, of whatever process, holds the device

    int fd() const { return fd_.get(); }
    bool output() const { return output_; }
    uint32_t type() const { return type_; }
    const std::string& card() const { return card_; }

    int control(unsigned long request, void* argument) const;  // ioctl, taken up again after signals

    int getFormat(V4l2Format* format) const { return format_(VIDIOC_G_FMT, format); }
    int setFormat(V4l2Format* format) const { return format_(VIDIOC_S_FMT, format); }  // reads back what came of it
    V4l2Rate rate() const;
    int setRate(V4l2Rate rate) const;

    int requestBuffers(uint32_t memory, int count) const;  // granted, 0 gives all back; -1
    int queue(uint32_t memory, int index, void* data, int length, int used, uint32_t field) const;
    int queueShared(int index, int descriptor, int length, int used, uint32_t field) const;  // another device's memory
    int dequeue(uint32_t memory, V4l2Done* done) const;
    void* map(int index, size_t* length) const;  // null on failure
    UniqueFd exportBuffer(int index) const;  // one of the driver's own, for others; empty on failure
    int streamOn() const;
    int streamOff() const;

private:
    int format_(unsigned long request, V4l2Format* format) const;
    template <class Place> int queue_(v4l2_buffer& buffer, int length, int used, uint32_t field, Place&& place) const;

    UniqueFd fd_;
    uint32_t type_ = 0;
    bool output_ = false;
    bool planes_ = false;
    std::string card_;
};

std::string fourccText(uint32_t fourcc);

}  // namespace kiv
