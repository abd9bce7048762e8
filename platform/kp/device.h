// device.h - what a kind of device implements, and what it may call.
// Hidden: a path (path.h) stands between it and the public calls.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/kp/kp.h"

namespace kiv {

// Where a stream reports what happens. Thread-safe; never blocks.
class StreamEvents {
public:
    // A captured picture, stamped and sized; the reference is taken over. Only the
    // newest waits: one that nobody has taken is dropped and reported as lost.
    virtual void frameCaptured(ZVbuffer frame) = 0;
    // A picture has been out for a frame period; unread ones become one.
    virtual void frameShown(USTMSCpair stamp) = 0;
    // Any other reason; unread ones of a kind become one, their counts added.
    virtual void happened(int reason, long long count) = 0;
    // Waits until no captured picture waits; false when the stream's thread is to end.
    virtual bool waitTaken() = 0;

protected:
    ~StreamEvents() = default;
};

// One jack taken by one path. Called under the path's lock, so never twice at once;
// a stream's own thread calls nothing here but StreamEvents.
class Stream {
public:
    virtual ~Stream() = default;  // the transfer has ended

    // 0, or -1 with an error recorded. A control that means nothing to the device
    // but is one of the documented ones is accepted and ignored.
    virtual int setControl(int control, const KPControlValue& value) = 0;
    virtual int getControl(int control, KPControlValue* value) = 0;

    virtual int transferSize() = 0;  // bytes of one picture as it meets the pool; -1
    virtual int poolCount() = 0;  // buffers that the device may hold at once
    virtual int registerPool(ZVbufferpool pool) = 0;
    virtual int begin(StreamEvents& events) = 0;
    virtual void end() = 0;  // joins the stream's thread; again is harmless
    // Outputs: the next picture, attached for as long as it is needed. At most one
    // waits; a newer one takes its place.
    virtual int send(ZVbuffer frame) = 0;
    virtual bool alive() = 0;  // false once the device is gone
    // Key/value text of a built-in device (file names, fault scripts).
    virtual int setText(const char* key, const char* value) = 0;
};

struct Jack {
    std::string name;  // without card and direction
    bool output;
};

class Device {
public:
    virtual ~Device() = default;

    virtual std::string name() const = 0;  // the card
    virtual std::vector<Jack> jacks() const = 0;
    // Takes a jack; null, with an error recorded: busy, gone, no permission.
    virtual std::unique_ptr<Stream> open(int jack) = 0;
    // What `kiv devices` shows: formats, sizes and rates, one text a line.
    virtual std::vector<std::string> modes(int jack) = 0;
};

using DeviceList = std::vector<std::shared_ptr<Device>>;

// In the order of their device paths. Never fail: what cannot be looked at is left out.
DeviceList findV4l2Devices();
DeviceList makeBuiltinDevices();

}  // namespace kiv
