// converter.cpp - settings and queues of an open converter; workers.cpp runs it.
#include "platform/zvic/converter.h"

#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/limits.h"
#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

// Describes one side; until the first image is sent.
int Converter::setFormat(Side side, const ZVparams* p)
{
    ImageFormat format;
    if (readImageFormat(p, &format) != 0)
        return -1;
    std::lock_guard lock(mutex_);
    if (!workers_.empty() || stopping_)
        return recordError(ZV_ERROR_STATE, "the converter is running: its formats stay");
    const ImageFormat other = formats_[1 - side];
    if (formatSet_[1 - side]) {
        const ImageFormat& src = side == Src ? format : other;
        const ImageFormat& dst = side == Src ? other : format;
        if (src.width != dst.width || src.height != dst.height || !kind_.match(src, dst))
            return recordError(ZV_ERROR_UNSUPPORTED, "this %s does not convert between the two formats", kind_.name);
    }
    formats_[side] = format;
    formatSet_[side] = true;
    return 0;
}

// Takes the keys that the list has, or none of them.
int Converter::setSettings(const ZVparams* p)
{
    if (!paramsAlive(p))
        return -1;
    const auto has = [p](const char* key, int type) { return paramsGetType(p, key) == type; };
    std::lock_guard lock(mutex_);
    ConvertSettings settings = settings_;
    int queueMax = queueMax_;
    int workers = workersAsked_;
    if (has(ZV_IMAGE_QUALITY_SPATIAL, ZV_TYPE_FLOAT))
        settings.quality = paramsGetFloat(p, ZV_IMAGE_QUALITY_SPATIAL);
    if (has(ZV_IC_SPEED, ZV_TYPE_ENUM))
        settings.speed = paramsGetEnum(p, ZV_IC_SPEED);
    if (has(ZV_IC_FULL_RANGE, ZV_TYPE_INT))
        settings.fullRange = paramsGetInt(p, ZV_IC_FULL_RANGE) != 0;
    if (has(ZV_IC_BANDS, ZV_TYPE_INT))
        settings.bands = paramsGetInt(p, ZV_IC_BANDS);
    if (has(ZV_IC_QUEUE_MAX, ZV_TYPE_INT))
        queueMax = paramsGetInt(p, ZV_IC_QUEUE_MAX);
    if (has(ZV_IC_WORKERS, ZV_TYPE_INT))
        workers = paramsGetInt(p, ZV_IC_WORKERS);
    if (!(settings.quality >= 0 && settings.quality <= 1))
        return recordError(ZV_ERROR_ARGUMENT, "%s %g is not within 0 and 1", ZV_IMAGE_QUALITY_SPATIAL,
                           settings.quality);
    if (settings.bands < 0 || settings.bands > BandPlan::most)
        return recordError(ZV_ERROR_ARGUMENT, "%s %d is not within 0 and %d", ZV_IC_BANDS, settings.bands,
                           BandPlan::most);
    if (queueMax < 0 || workers < 0)
        return recordError(ZV_ERROR_ARGUMENT, "%s %d and %s %d must not be negative", ZV_IC_QUEUE_MAX, queueMax,
                           ZV_IC_WORKERS, workers);
    settings_ = settings;
    queueMax_ = queueMax;
    workersAsked_ = workers;
    return 0;
}

// Workers that it has, or will have.
int Converter::workerCount() const
{
    if (!workers_.empty())
        return int(workers_.size());
    int count = workersAsked_;
    if (count == 0) {
        cpu_set_t cores;
        count = sched_getaffinity(0, sizeof cores, &cores) == 0 ? CPU_COUNT(&cores) : 1;
    }
    return std::clamp(count, 1, std::max(1, kivLimits()->converterWorkers));
}

int Converter::raisePoolParams(Side side, ZVparams* p)
{
    std::lock_guard lock(mutex_);
    if (!formatSet_[side])
        return recordError(ZV_ERROR_STATE, "the %s image is not set", side == Src ? "source" : "destination");
    const long long held = workerCount() + 1LL;
    const long long count = std::min<long long>(std::max(0, paramsGetInt(p, ZV_BUFFER_COUNT)) + held, INT_MAX);
    const int size = std::max(paramsGetInt(p, ZV_BUFFER_SIZE), imageBytesMax(formats_[side]));
    if (paramsSetInt(p, ZV_BUFFER_COUNT, int(count)) != 0)
        return -1;
    return paramsSetInt(p, ZV_BUFFER_SIZE, size);
}

// From here on output comes from this pool; an image that waits for the old one tries again.
int Converter::setPool(ZVbufferpool pool)
{
    if (poolFree(pool) < 0)
        return -1;
    std::lock_guard lock(mutex_);
    pool_ = pool;
    if (wakeFd_)
        eventfd_write(wakeFd_.get(), 1);
    return 0;
}

int Converter::send(ZVbuffer in)
{
    std::unique_lock lock(mutex_);
    if (stopping_)
        return recordError(ZV_ERROR_STATE, "the converter is closed");
    if (workers_.empty() && startWorkers() != 0)
        return -1;
    waiting_.reserve(waiting_.size() + 1);
    results_.reserve(results_.size() + waiting_.size() + 1);  // so that workers need no memory
    if (bufferAttach(in) != 0)
        return -1;
    while (queueMax_ > 0 && int(waiting_.size()) >= queueMax_)
        dropOldest();
    waiting_.pushBack(in);
    ++stats_.sent;
    lock.unlock();
    work_.notify_one();
    return 0;
}

void Converter::dropOldest()
{
    bufferFree(waiting_.popFront());
    ++stats_.dropped;
}

int Converter::receive(ZVbuffer* out)
{
    std::lock_guard lock(mutex_);
    if (ready_ == 0)
        return recordError(ZV_ERROR_EMPTY, "no converted image waits");
    const Result& result = results_[0];
    *out = result.out;
    if (result.out == nullptr)
        recordError(result.number, "%s", result.detail);
    results_.discardFront();
    ++firstResult_;
    if (--ready_ == 0)
        unsignal();
    return *out != nullptr ? 0 : -1;
}

int Converter::descriptor()
{
    std::lock_guard lock(mutex_);
    if (stopping_)
        return recordError(ZV_ERROR_STATE, "the converter is closed");
    if (!queueFd_) {
        const int fd = eventfd(ready_ > 0 ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (fd < 0)
            return recordSystemError(ZV_ERROR_SYSTEM, "eventfd");
        queueFd_ = selectableFd(fd);
    }
    return queueFd_.get();
}

void Converter::signal()
{
    if (queueFd_)
        eventfd_write(queueFd_.get(), 1);
}

void Converter::unsignal()
{
    eventfd_t count = 0;
    if (queueFd_)
        eventfd_read(queueFd_.get(), &count);
}

int Converter::unfinished()
{
    std::lock_guard lock(mutex_);
    return int(waiting_.size()) + running_;
}

int Converter::finished()
{
    std::lock_guard lock(mutex_);
    return int(ready_);
}

int Converter::stats(ZVicStats* stats)
{
    std::lock_guard lock(mutex_);
    *stats = stats_;
    return 0;
}

void Converter::close()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        if (wakeFd_)
            eventfd_write(wakeFd_.get(), 1);
    }
    work_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();

    std::lock_guard lock(mutex_);
    while (!waiting_.empty())
        bufferFree(waiting_.popFront());
    for (; !results_.empty(); results_.discardFront()) {
        if (results_[0].out != nullptr)
            bufferFree(results_[0].out);
    }
    ready_ = 0;
    queueFd_.reset();
}

}  // namespace kiv
