// monitorStream.cpp - takes what is played out, a picture a period, and may keep it.
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/kp/builtin/captureStream.h"
#include "platform/support/error.h"
#include "platform/thread/internal.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

// Writes 4:2:2 pictures to a .y4m file, or the last one alone to any other file.
// The stream's thread.
class Recorder {
public:
    int open(const std::string& path, const Settings& settings)
    {
        file_.reset(fopen(path.c_str(), "we"));
        if (!file_)
            return recordSystemError(ZV_ERROR_SYSTEM, "record '%s'", path.c_str());
        movie_ = path.size() > 4 && path.compare(path.size() - 4, 4, ".y4m") == 0;
        width_ = size_t(settings.width);
        height_ = size_t(settings.height);
        if (movie_)
            fprintf(file_.get(), "YUV4MPEG2 W%d H%d F%d:%d Ip A1:1 C422\n", settings.width, settings.height,
                    settings.rateNumerator, settings.rateDenominator);
        planes_.resize(movie_ ? width_ * height_ * 2 : 0);
        return 0;
    }

    bool write(const uint8_t* picture)
    {
        if (!file_)
            return true;
        if (!movie_) {
            rewind(file_.get());
            return fwrite(picture, 2, width_ * height_, file_.get()) == width_ * height_ && fflush(file_.get()) == 0;
        }
        uint8_t* luma = planes_.data();
        uint8_t* cb = luma + width_ * height_;
        uint8_t* cr = cb + width_ / 2 * height_;
        for (size_t pair = 0; pair < width_ / 2 * height_; ++pair, picture += 4) {
            *cb++ = picture[0];
            *luma++ = picture[1];
            *cr++ = picture[2];
            *luma++ = picture[3];
        }
        return fputs("FRAME\n", file_.get()) >= 0
            && fwrite(planes_.data(), 1, planes_.size(), file_.get()) == planes_.size();
    }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> file_{nullptr, fclose};
    bool movie_ = false;
    size_t width_ = 0, height_ = 0;
    std::vector<uint8_t> planes_;
};

class MonitorStream final : public Stream {
public:
    explicit MonitorStream(std::shared_ptr<Presence> presence) : presence_(std::move(presence))
    {
        settings_.mayRunFree = false;
    }
    ~MonitorStream() override { end(); }

    int setControl(int control, const KPControlValue& value) override { return settings_.set(control, value); }
    int getControl(int control, KPControlValue* value) override { return settings_.get(control, value); }
    int transferSize() override { return settings_.frameBytes(); }
    int poolCount() override { return 2; }  // shown and next
    int registerPool(ZVbufferpool) override { return 0; }
    bool alive() override { return !presence_->away(); }

    int setText(const char* key, const char* value) override
    {
        if (strcmp(key, KP_TEXT_FAULTS) == 0)
            return Faults::parse(value, &settings_.faults);
        if (strcmp(key, KP_TEXT_RECORD) != 0)
            return recordError(ZV_ERROR_UNSUPPORTED, "the monitor has no text '%s'", key);
        record_ = value;
        return 0;
    }

    int begin(StreamEvents& events) override
    {
        if (!alive())
            return recordError(ZV_ERROR_PEER, "the device is gone");
        recorder_ = Recorder();
        if (!record_.empty() && recorder_.open(record_, settings_) != 0)
            return -1;
        if (next_ != nullptr && bufferSize(next_) < settings_.frameBytes())
            drop(next_);  // the size has been set since
        events_ = &events;
        period_ = settings_.periodNs();
        faults_ = settings_.faults;
        settings_.sizeFixed = true;
        thread_ = startThread([](void* self) { static_cast<MonitorStream*>(self)->run(); }, this);
        return thread_ < 0 ? -1 : 0;
    }

    void end() override
    {
        if (thread_ >= 0) {
            askStop(thread_);
            joinThread(thread_, nullptr);
            thread_ = -1;
        }
        recorder_ = Recorder();
        settings_.sizeFixed = false;
        std::lock_guard lock(lock_);
        drop(next_);
        drop(shown_);
    }

    int send(ZVbuffer frame) override
    {
        if (!alive())
            return recordError(ZV_ERROR_PEER, "the device is gone");
        const int size = bufferSize(frame);
        if (size < 0)
            return -1;
        if (size < settings_.frameBytes())
            return recordError(ZV_ERROR_ARGUMENT, "a picture of %d bytes: the monitor shows %d x %d, %d bytes", size,
                               settings_.width, settings_.height, settings_.frameBytes());
        if (bufferAttach(frame) != 0)
            return -1;
        std::lock_guard lock(lock_);
        drop(next_);
        next_ = frame;
        return 0;
    }

private:
    static void drop(ZVbuffer& frame)
    {
        if (frame != nullptr)
            bufferFree(frame);
        frame = nullptr;
    }

    // What is shown is told again every period, so that a picture that comes late
    // finds somebody to send it. A period that has passed already is left out, and told.
    void run()
    {
        uint64_t due = now() + period_;
        for (int64_t frame = 0; pollFd(-1, 0, due) != THREAD_POLL_STOP; ++frame, due += period_) {
            const uint64_t time = now();
            const uint64_t late = time > due ? (time - due) / period_ : 0;
            frame += int64_t(late);
            due += late * period_;
            if (late > 0 && shown_ != nullptr)  // with nothing on it, nothing is missed
                events_->happened(KPSequenceLost, (long long)late);
            if (!tick(frame))
                return;
        }
    }

    bool tick(int64_t frame)
    {
        using At = Faults::AtFrame;
        const bool unplugged = faults_.take(At::Unplug, frame) >= 0;
        if (unplugged)
            presence_->leave(faults_.returnMs);
        if (unplugged || !alive()) {
            events_->happened(KPDeviceEvent, 1);
            return false;
        }
        const int64_t stalled = faults_.take(At::Stall, frame);
        if (stalled >= 0 && !stallStream(*events_, stalled, period_))
            return false;
        if (const int64_t lost = faults_.take(At::Lose, frame); lost > 0)
            events_->happened(KPSequenceLost, lost);
        if (faults_.drops(frame))
            events_->happened(KPSequenceLost, 1);
        else
            show(frame);
        return true;
    }

    void show(int64_t frame)
    {
        const bool fresh = takeNext();
        if (shown_ == nullptr)
            return;
        if (fresh && !recorder_.write(static_cast<const uint8_t*>(bufferMap(shown_))))
            events_->happened(KPTransferFailed, 1);
        events_->frameShown({int64_t(now()), frame});
    }

    bool takeNext()
    {
        std::lock_guard lock(lock_);
        if (next_ == nullptr)
            return false;
        drop(shown_);
        shown_ = std::exchange(next_, nullptr);
        return true;
    }

    const std::shared_ptr<Presence> presence_;
    Settings settings_;
    std::string record_;
    int thread_ = -1;

    std::mutex lock_;
    ZVbuffer next_ = nullptr;  // guarded by lock_; one reference

    // The thread's own while it runs.
    StreamEvents* events_ = nullptr;
    Recorder recorder_;
    ZVbuffer shown_ = nullptr;  // one reference
    Faults faults_;
    uint64_t period_ = 0;  // ns
};

}  // namespace

std::unique_ptr<Stream> makeMonitorStream(std::shared_ptr<Presence> presence)
{
    return std::make_unique<MonitorStream>(std::move(presence));
}

}  // namespace kiv
