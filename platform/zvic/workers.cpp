// workers.cpp - the worker threads of an open converter.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

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

}  // namespace

// CPU time of the calling thread, the worker's, since it was last asked.
long long Converter::Worker::newCpuNs()
{
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    const long long now = (long long)(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
    return now - std::exchange(cpuNs, now);
}

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
    states_ = std::vector<Worker>(size_t(count));
    for (Worker& state : states_) {
        state.engine = kind_.open(formats_[Src], formats_[Dst]);
        if (state.engine == nullptr)
            return -1;
    }
    workers_.reserve(size_t(count));
    const SignalsBlocked blocked;
    try {
        for (Worker& state : states_)
            workers_.emplace_back([this, &state] { work(state); });
    } catch (const std::system_error& error) {
        if (workers_.empty())
            return recordError(ZV_ERROR_SYSTEM, "no worker thread: %s", error.what());
    }
    return 0;
}

void Converter::work(Worker& me)
{
    pthread_setname_np(pthread_self(), "kiv-convert");
    {
        std::lock_guard lock(mutex_);
        if (sched_getaffinity(0, sizeof me.cores, &me.cores) == 0)
            me.thread = gettid();
    }
    Task task;
    int helpers = 0;
    while (begin(me, &task, &helpers))
        convertTask(me, task, helpers);
}

// Waits for the next image and its destination buffer; false when the converter
// closes. `helpers` idle workers could take bands of the image.
bool Converter::begin(Worker& me, Task* task, int* helpers)
{
    std::unique_lock lock(mutex_);
    if (!nextWork(lock, me))
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
    *helpers = more || open_ != nullptr || me.shared.unfinished > 0 ? 0 : idle_;
    lock.unlock();
    if (more)
        work_.notify_one();
    return true;
}

// Until an image waits that this worker may begin; bands of another's image come first.
bool Converter::nextWork(std::unique_lock<std::mutex>& lock, Worker& me)
{
    for (;;) {
        ++idle_;
        work_.wait(lock, [this] { return stopping_ || open_ != nullptr || (!waiting_.empty() && !beginning_); });
        --idle_;
        if (open_ == nullptr)
            return !stopping_;
        Shared& shared = *open_;
        lock.unlock();
        convertBands(me, shared);
        lock.lock();
    }
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

int Converter::prepare(const Task& task, ConvertJob* job)
{
    if (task.out == nullptr)
        return -1;
    job->in = static_cast<const uint8_t*>(bufferMap(task.in));
    const int inSize = bufferSize(task.in);
    job->inSize = size_t(inSize);
    job->out = static_cast<uint8_t*>(bufferMap(task.out));
    job->outCapacity = size_t(bufferCapacity(task.out));
    job->settings = task.settings;
    return job->in == nullptr || job->out == nullptr || inSize < 0 ? -1 : 0;
}

void Converter::convertTask(Worker& me, const Task& task, int helpers)
{
    ConvertJob job;
    job.stop = &stopping_;
    const bool ready = prepare(task, &job) == 0;
    if (ready && helpers > 0 && share(me, task, job, helpers))
        return;
    end(me, task, ready ? me.engine->convert(job) : -1);
}

// Converts the image together with idle workers; false when it has no bands.
bool Converter::share(Worker& me, const Task& task, const ConvertJob& job, int helpers)
{
    Shared& shared = me.shared;
    if (!me.engine->plan(job, helpers + 1, &shared.plan))
        return false;
    {
        std::lock_guard lock(mutex_);
        if (open_ != nullptr || stopping_)
            return false;
        shared.task = task;
        shared.job = job;
        shared.begun = 0;
        shared.unfinished = shared.plan.count;
        shared.failed = false;
        open_ = &shared;
        ++stats_.shared;
        spread(me);
    }
    for (int i = 1; i < shared.plan.count && i <= helpers; ++i)
        work_.notify_one();
    convertBands(me, shared);
    return true;
}

// A thread that sleeps is often woken on the core of whoever wakes it, behind him,
// while another core has nothing to do. Under the lock.
void Converter::spread(const Worker& me)
{
    const int core = sched_getcpu();
    for (Worker& other : states_) {
        if (&other != &me)
            other.avoid(core);
    }
}

void Converter::Worker::avoid(int core)
{
    if (avoids == core || thread == 0 || core < 0)
        return;
    cpu_set_t others = cores;
    CPU_CLR(core, &others);
    if (CPU_COUNT(&others) > 0 && sched_setaffinity(thread, sizeof others, &others) == 0)
        avoids = core;
}

// Bands of the image until none is left to begin.
void Converter::convertBands(Worker& me, Shared& shared)
{
    int band = 0;
    while (takeBand(shared, &band)) {
        if (!endBand(me, shared, me.engine->convertBand(shared.job, shared.plan.bands[band]) == 0))
            continue;
        const Task task = shared.task;
        const int bytes = shared.failed ? me.engine->convert(shared.job) : me.engine->join(shared.job, shared.plan);
        {
            std::lock_guard lock(mutex_);
            shared.unfinished = 0;
        }
        end(me, task, bytes);
        return;
    }
}

bool Converter::takeBand(Shared& shared, int* band)
{
    std::lock_guard lock(mutex_);
    if (open_ != &shared)
        return false;
    *band = shared.begun++;
    if (shared.begun == shared.plan.count)
        open_ = nullptr;
    return true;
}

// True for the last one, which leaves the image to the caller.
bool Converter::endBand(Worker& me, Shared& shared, bool good)
{
    const long long cpuNs = me.newCpuNs();
    std::lock_guard lock(mutex_);
    stats_.cpuNs += cpuNs;
    shared.failed = shared.failed || !good;
    if (shared.unfinished > 1) {
        --shared.unfinished;
        return false;
    }
    return true;
}

// The image is `bytes` long now, or -1: its error is this thread's last.
void Converter::end(Worker& me, const Task& task, int bytes)
{
    const bool good
        = bytes >= 0 && bufferSetSize(task.out, bytes) == 0 && bufferSetStamp(task.out, bufferStamp(task.in)) == 0;
    bufferFree(task.in);
    if (!good && task.out != nullptr)
        bufferFree(task.out);
    finish(task, good, me.newCpuNs());
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
