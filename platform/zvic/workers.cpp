// workers.cpp - the worker threads of an open converter.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <system_error>
#include <utility>

#include "platform/support/error.h"
#include "platform/zv/internal.h"
#include "platform/zvic/converter.h"

namespace kiv {

namespace {

// Threads of the library leave all signals to those of the application.
class SignalsBlocked {
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_;
};

// CPU time of the calling thread.
long long threadCpuNs()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return (long long)(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

// On the first image, under the lock. Fewer threads than wanted will do, none will not.
int Converter::startWorkers()
{
    if (!formatSet_[Src] || !formatSet_[Dst] || pool_ == nullptr)
        return recordError(ZV_ERROR_STATE, "the converter has no formats or no destination pool");
    if (!wakeFd_)
        wakeFd_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wakeFd_)
        return recordSystemError(ZV_ERROR_SYSTEM, "eventfd");
    const int count = workerCount();
    engines_.clear();
    for (int i = 0; i < count; ++i) {
        engines_.push_back(kind_.open(formats_[Src], formats_[Dst]));
        if (engines_.back() == nullptr)
            return -1;
    }
    workers_.reserve(size_t(count));
    const SignalsBlocked blocked;
    try {
        for (const auto& engine : engines_)
            workers_.emplace_back([this, &engine] { work(*engine); });
    } catch (const std::system_error& error) {
        if (workers_.empty())
            return recordError(ZV_ERROR_SYSTEM, "no worker thread: %s", error.what());
    }
    return 0;
}

void Converter::work(ConvertEngine& engine)
{
    pthread_setname_np(pthread_self(), "kiv-convert");
    Task task;
    long long counted = 0;
    while (begin(&task)) {
        const bool good = convert(engine, task) == 0;
        bufferFree(task.in);
        if (!good && task.out != nullptr)
            bufferFree(task.out);
        const long long cpu = threadCpuNs();
        finish(task, good, cpu - std::exchange(counted, cpu));
    }
}

// Waits for the next image and its destination buffer; false when the converter closes.
bool Converter::begin(Task* task)
{
    std::unique_lock lock(mutex_);
    work_.wait(lock, [this] { return stopping_ || (!waiting_.empty() && !beginning_); });
    if (stopping_)
        return false;
    beginning_ = true;
    takeBuffer(lock, &task->out);
    beginning_ = false;
    if (stopping_) {
        if (task->out != nullptr)
            bufferFree(task->out);
        return false;
    }
    // Taken only now: while it waited for a buffer it could still give way to a newer one.
    task->in = waiting_.popFront();
    task->sequence = firstResult_ + (long long)results_.size();
    task->settings = settings_;
    results_.pushBack();
    ++running_;
    const bool more = !waiting_.empty();
    lock.unlock();
    if (more)
        work_.notify_one();
    return true;
}

// Waits, unlocked, while the pool is empty. Leaves null when the converter closes
// or the pool can give none; that error is then this thread's last.
void Converter::takeBuffer(std::unique_lock<std::mutex>& lock, ZVbuffer* out)
{
    *out = nullptr;
    while (!stopping_) {
        const ZVbufferpool pool = pool_;
        if (poolFree(pool) != 0) {
            if (bufferAllocate(pool, out) == 0 || lastErrorNumber() != ZV_ERROR_EMPTY)
                return;
        }
        lock.unlock();
        const int waited = awaitPool(pool);
        lock.lock();
        if (waited != 0)
            return;
    }
}

// Until the pool has a buffer, or somebody wakes us.
int Converter::awaitPool(ZVbufferpool pool)
{
    pollfd fds[2] = {{poolFd(pool), POLLIN, 0}, {wakeFd_.get(), POLLIN, 0}};
    if (fds[0].fd < 0)
        return -1;
    if (poll(fds, 2, -1) < 0 && errno != EINTR)
        return recordSystemError(ZV_ERROR_SYSTEM, "waiting for a destination buffer");
    eventfd_t count = 0;
    if (fds[1].revents != 0)
        eventfd_read(wakeFd_.get(), &count);
    return 0;
}

int Converter::convert(ConvertEngine& engine, const Task& task)
{
    if (task.out == nullptr)
        return -1;
    ConvertJob job;
    job.in = static_cast<const uint8_t*>(bufferMap(task.in));
    const int inSize = bufferSize(task.in);
    job.inSize = size_t(inSize);
    job.out = static_cast<uint8_t*>(bufferMap(task.out));
    job.outCapacity = size_t(bufferCapacity(task.out));
    job.settings = task.settings;
    job.stop = &stopping_;
    if (job.in == nullptr || job.out == nullptr || inSize < 0)
        return -1;
    const int bytes = engine.convert(job);
    if (bytes < 0 || bufferSetSize(task.out, bytes) != 0)
        return -1;
    return bufferSetStamp(task.out, bufferStamp(task.in));
}

// Makes the result known; the error of a failed one is this thread's last.
void Converter::finish(const Task& task, bool good, long long cpuNs)
{
    std::lock_guard lock(mutex_);
    Result& result = results_[size_t(task.sequence - firstResult_)];
    result.done = true;
    result.out = good ? task.out : nullptr;
    if (!good) {
        result.number = lastErrorNumber();
        snprintf(result.detail, sizeof result.detail, "%s", lastErrorDetail());
    }
    ++(good ? stats_.converted : stats_.failed);
    stats_.cpuNs += cpuNs;
    --running_;
    const size_t readyBefore = ready_;
    while (ready_ < results_.size() && results_[ready_].done)
        ++ready_;
    if (readyBefore == 0 && ready_ > 0)
        signal();
}

}  // namespace kiv
