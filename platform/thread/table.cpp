// table.cpp - starting, stopping and joining threads.
//
// A thread is joined by the first who waits for it, so nothing of it is left when
// threadWait returns. One that nobody waits for is joined by the next one that
// ends, and the last of those at exit: at most one ended thread lies about.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <list>
#include <mutex>
#include <new>

#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/support/error.h"
#include "platform/thread/record.h"

namespace kiv {

namespace {

constexpr size_t keptStatuses = 64;  // ended threads whose status is remembered

struct Table {
    std::mutex lock;  // guards what follows and the records' guarded fields
    std::list<ThreadRecord> live;  // not joined yet
    std::list<ThreadRecord> ended;  // joined, oldest first
    ThreadRecord* leftOver = nullptr;  // ended, nobody has taken on its join
    int lastId = 0;
    bool exiting = false;
    const pid_t process = getpid();
};

thread_local ThreadRecord* self = nullptr;

void joinLeftOverAtExit();

Table& table()
{
    // Never destroyed: threads may outlive main.
    static Table* const table = [] {
        Table* const fresh = new Table;
        atexit(joinLeftOverAtExit);
        return fresh;
    }();
    return *table;
}

ThreadRecord* find(std::list<ThreadRecord>& list, int id)
{
    for (ThreadRecord& record : list) {
        if (record.id == id)
            return &record;
    }
    return nullptr;
}

// Null for a thread that has been joined, and for one that stayed behind in the
// process this one was forked from.
ThreadRecord* findLive(Table& all, int id)
{
    ThreadRecord* const record = find(all.live, id);
    return record != nullptr && record->process == getpid() ? record : nullptr;
}

int checkGiven(const Table& all, int id)
{
    if (id > 0 && id <= all.lastId)
        return 0;
    return recordError(ZV_ERROR_HANDLE, "no thread ever had the id %d", id);
}

// The caller has set `joining` under the lock and released it.
void joinClaimed(Table& all, ThreadRecord& record)
{
    pthread_join(record.handle, nullptr);
    std::lock_guard lock(all.lock);
    record.state = ThreadRecord::State::Joined;
    for (auto it = all.live.begin(); it != all.live.end(); ++it) {
        if (&*it == &record) {
            all.ended.splice(all.ended.end(), all.live, it);
            break;
        }
    }
    wakeSleepers(record.changes, everySleeper);
}

// Under the lock: takes on the join of the thread that nobody waited for.
ThreadRecord* claimLeftOver(Table& all)
{
    ThreadRecord* const record = std::exchange(all.leftOver, nullptr);
    if (record == nullptr || record->process != getpid())
        return nullptr;
    record->joining = true;
    return record;
}

void joinLeftOverAtExit()
{
    Table& all = table();
    if (all.process != getpid())
        return;  // a forked child: the threads are not here, and who held the lock may not be either
    ThreadRecord* previous = nullptr;
    {
        std::lock_guard lock(all.lock);
        all.exiting = true;
        previous = claimLeftOver(all);
    }
    if (previous != nullptr)
        joinClaimed(all, *previous);
}

// The last of a thread's own work, on the plain way out and on that of endThread.
void finish(ThreadRecord& record)
{
    Table& all = table();
    ThreadRecord* previous = nullptr;
    {
        std::lock_guard lock(all.lock);
        record.state = ThreadRecord::State::Ended;
        record.stopFd.reset();
        previous = claimLeftOver(all);
        if (all.exiting) {
            record.joining = true;  // the process goes away; its record is not used again
            record.state = ThreadRecord::State::Joined;
            pthread_detach(pthread_self());
        } else {
            all.leftOver = &record;
        }
        wakeSleepers(record.changes, everySleeper);
    }
    if (previous != nullptr)
        joinClaimed(all, *previous);
}

struct Finisher {
    ThreadRecord& record;
    ~Finisher() { finish(record); }
};

void* runThread(void* arg)
{
    self = static_cast<ThreadRecord*>(arg);
    Finisher finisher{*self};
    self->entry(self->arg);
    return nullptr;
}

// Under the lock: a clean record at the end of the live ones.
ThreadRecord& takeRecord(Table& all)
{
    if (all.ended.size() <= keptStatuses)
        return all.live.emplace_back();
    all.live.splice(all.live.end(), all.ended, all.ended.begin());
    ThreadRecord& record = all.live.back();
    record.status = 0;
    record.state = ThreadRecord::State::Running;
    record.joining = false;
    record.stop = false;
    return record;
}

// Signals stay with the program's own threads, but for those that a fault
// raises: blocked, they would end the process without a word.
int createThread(ThreadRecord& record)
{
    sigset_t blocked;
    sigfillset(&blocked);
    for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&blocked, fault);

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setsigmask_np(&attributes, &blocked);
    const int rc = pthread_create(&record.handle, &attributes, runThread, &record);
    pthread_attr_destroy(&attributes);
    return rc;
}

// Under the lock, which the new thread's finish() also takes.
int launch(Table& all, ThreadRecord& record, void (*entry)(void*), void* arg)
{
    record.id = all.lastId + 1;
    record.process = getpid();
    record.entry = entry;
    record.arg = arg;
    record.stopFd = selectableFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!record.stopFd)
        return recordSystemError(ZV_ERROR_SYSTEM, "no wake descriptor for a thread");
    const int rc = createThread(record);
    if (rc == 0)
        return ++all.lastId;
    errno = rc;
    return recordSystemError(ZV_ERROR_SYSTEM, "a thread cannot be started");
}

}  // namespace

ThreadRecord* selfRecord() { return self; }

int startThread(void (*entry)(void*), void* arg)
try {
    if (entry == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "a thread needs an entry");
    Table& all = table();
    std::lock_guard lock(all.lock);
    ThreadRecord& record = takeRecord(all);
    const int id = launch(all, record, entry, arg);
    if (id < 0) {
        record.id = 0;
        record.stopFd.reset();
        record.state = ThreadRecord::State::Joined;
        all.ended.splice(all.ended.begin(), all.live, std::prev(all.live.end()));
    }
    return id;
} catch (const std::bad_alloc&) {
    return recordError(ZV_ERROR_MEMORY, "no memory for a thread's record");
}

int askStop(int id)
{
    Table& all = table();
    std::lock_guard lock(all.lock);
    if (checkGiven(all, id) != 0)
        return -1;
    ThreadRecord* const record = findLive(all, id);
    if (record == nullptr || record->state != ThreadRecord::State::Running || record->stop.exchange(true))
        return 0;

    const uint64_t one = 1;
    if (write(record->stopFd.get(), &one, sizeof one) < 0)
        recordSystemError(ZV_ERROR_SYSTEM, "the wake descriptor of thread %d cannot be written", id);
    if (WakeCount* const word = record->sleepsOn.load())
        wakeSleepers(*word, everySleeper);
    return 0;
}

int joinThread(int id, int* status)
{
    Table& all = table();
    std::unique_lock lock(all.lock);
    if (checkGiven(all, id) != 0)
        return -1;
    if (self != nullptr && self->id == id)
        return recordError(ZV_ERROR_STATE, "thread %d waits for itself", id);

    ThreadRecord* record = findLive(all, id);
    if (record != nullptr) {
        StoppableSleep sleep(record->changes);
        while (record->id == id && record->state != ThreadRecord::State::Joined) {
            if (record->state == ThreadRecord::State::Ended && !record->joining) {
                record->joining = true;
                if (all.leftOver == record)
                    all.leftOver = nullptr;
                lock.unlock();
                joinClaimed(all, *record);
                lock.lock();
                break;
            }
            const uint32_t seen = record->changes.load();
            lock.unlock();
            if (sleep.stopped())
                return recordError(ZV_ERROR_STOPPED, "a stop request ended the wait for thread %d", id);
            sleepOn(record->changes, seen);
            lock.lock();
        }
    }
    record = find(all.ended, id);
    if (status != nullptr)
        *status = record != nullptr ? record->status : 0;
    return 0;
}

}  // namespace kiv
