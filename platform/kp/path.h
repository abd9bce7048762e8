// path.h - one path: a jack's stream, its controls and its events.
#pragma once

#include <array>
#include <memory>
#include <mutex>

#include "platform/kp/device.h"
#include "platform/support/fd.h"
#include "platform/thread/internal.h"

namespace kiv {

// Thread-safe. Two locks: streamLock_ serialises what the application does to the
// stream; eventLock_ guards the queue and is all that the stream's thread takes.
class Path final : public StreamEvents {
public:
    // The stream is opened by take(); until then the path only names its jack.
    Path(std::shared_ptr<Device> device, int jack, bool output);
    ~Path();

    int take();  // opens the jack; 0 when it is taken already
    void giveUp();  // ends the transfer and closes the jack
    void select(unsigned mask);

    int setControl(int control, const KPControlValue& value);
    int getControl(int control, KPControlValue* value);
    int setText(const char* key, const char* value);
    int transferSize();
    int poolParams(ZVparams* params);
    int registerPool(ZVbufferpool pool);
    int begin();
    int end();
    int send(ZVbuffer frame);

    int eventFd();  // made on the first call
    int nextEvent(KPEvent* event);  // 0, or the kpGetErrno number
    int frameOf(const KPEvent& event, ZVbuffer* out);

    void frameCaptured(ZVbuffer frame) override;
    void frameShown(USTMSCpair stamp) override;
    void happened(int reason, long long count) override;
    bool waitTaken() override;

private:
    // Every reason at most once, so that the queue is bounded by what there is.
    static constexpr int maxReasons = KPTransferError + 1;

    void post(const KPEvent& event);
    KPEvent* queued(int reason);
    void dropQueued();
    void dropDelivered(ZVbuffer next);
    void setReadable(bool readable);

    const std::shared_ptr<Device> device_;
    const int jack_;
    const bool output_;

    std::mutex streamLock_;
    std::unique_ptr<Stream> stream_;  // guarded by streamLock_

    std::mutex eventLock_;  // guards all below; taken inside streamLock_ or alone
    std::array<KPEvent, maxReasons> queue_ = {};
    int numQueued_ = 0;
    unsigned mask_ = 0;
    bool transferring_ = false;
    bool gone_ = false;
    bool readable_ = false;
    ZVbuffer delivered_ = nullptr;  // of the event received last, until frameOf hands it over; one reference
    UniqueFd fd_;
    bool takenWanted_ = false;  // the stream's thread sleeps on taken_
    WakeCount taken_{0};
};

}  // namespace kiv
