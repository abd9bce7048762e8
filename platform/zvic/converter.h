// converter.h - an open converter: its queues, its workers, its descriptor.
#pragma once

#include <sched.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/support/fd.h"
#include "platform/zvic/codec.h"
#include "platform/zvic/ring.h"

namespace kiv {

// Thread-safe. Images wait in `waiting_`; a worker that begins one takes the
// destination buffer first, one worker at a time and in input order, so that
// later images never hold all buffers while the oldest wants one. Each begun
// image has its place in `results_`, where it becomes a good or a failed result;
// those at the front that are done can be received.
//
// An image behind which none waits is shared in bands with the workers that have
// nothing to do: that is the shortest way for the one image, while with more of them
// waiting an image for each worker is. Whoever ends the last band ends the image.
class Converter {
public:
    explicit Converter(const ConverterKind& kind) : kind_(kind) { }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    enum Side { Src, Dst };
    int setFormat(Side side, const ZVparams* p);
    int setSettings(const ZVparams* p);
    int raisePoolParams(Side side, ZVparams* p);
    int setPool(ZVbufferpool pool);

    int send(ZVbuffer in);
    int receive(ZVbuffer* out);
    int descriptor();
    int unfinished();
    int finished();
    int stats(ZVicStats* stats);

    // Ends the workers and drops all references; later calls fail. Once only.
    void close();

private:
    struct Result {
        bool done = false;
        ZVbuffer out = nullptr;  // null: failed
        int number = ZV_ERROR_NONE;
        char detail[ZV_ERROR_DETAIL_MAX];
    };
    struct Task {
        ZVbuffer in = nullptr;
        ZVbuffer out = nullptr;  // null: no buffer to be had, the error is the worker's last
        long long sequence = 0;
        ConvertSettings settings;
    };

    // An image that is being converted in bands.
    struct Shared {
        Task task;
        ConvertJob job;
        BandPlan plan;
        int begun = 0;  // bands
        int unfinished = 0;  // bands; 0: free for another image
        bool failed = false;
    };
    struct Worker {
        std::unique_ptr<ConvertEngine> engine;
        Shared shared;  // the image that it has begun; may outlast its own part in it
        long long cpuNs = 0;  // counted so far
        int thread = 0;  // of the system; 0: has not begun
        cpu_set_t cores = {};  // that it was given
        int avoids = -1;  // the one core of these that it is kept from

        long long newCpuNs();
        void avoid(int core);
    };

    int workerCount() const;
    int startWorkers();
    void work(Worker& me);
    bool begin(Worker& me, Task* task, int* helpers);
    bool nextWork(std::unique_lock<std::mutex>& lock, Worker& me);
    void takeBuffer(std::unique_lock<std::mutex>& lock, ZVbuffer* out);
    int awaitPool(ZVbufferpool pool);
    static int prepare(const Task& task, ConvertJob* job);
    void convertTask(Worker& me, const Task& task, int helpers);
    bool share(Worker& me, const Task& task, const ConvertJob& job, int helpers);
    void convertBands(Worker& me, Shared& shared);
    void spread(const Worker& me);
    bool takeBand(Shared& shared, int* band);
    bool endBand(Worker& me, Shared& shared, bool good);
    void end(Worker& me, const Task& task, int bytes);
    void finish(const Task& task, bool good, long long cpuNs);
    void dropOldest();
    void signal();
    void unsignal();

    const ConverterKind& kind_;
    std::atomic<bool> stopping_{false};  // written under mutex_

    std::mutex mutex_;  // guards all that follows; held for a few instructions only
    std::condition_variable work_;
    ImageFormat formats_[2];
    bool formatSet_[2] = {};
    ConvertSettings settings_;
    int queueMax_ = 0;  // images waiting at most, 0 = no limit
    int workersAsked_ = 0;  // 0 = one per core
    ZVbufferpool pool_ = nullptr;

    Ring<ZVbuffer> waiting_;
    Ring<Result> results_;
    long long firstResult_ = 0;  // sequence of results_[0]
    size_t ready_ = 0;  // done results at the front
    int running_ = 0;  // images begun and not done
    bool beginning_ = false;  // a worker is taking a destination buffer
    int idle_ = 0;  // workers that wait for something to do
    Shared* open_ = nullptr;  // has bands that nobody has begun
    ZVicStats stats_ = {};
    UniqueFd queueFd_;  // readable while ready_ > 0; made when asked for
    UniqueFd wakeFd_;  // ends a wait for the pool; made with the workers

    std::vector<Worker> states_;
    std::vector<std::thread> workers_;
};

}  // namespace kiv
