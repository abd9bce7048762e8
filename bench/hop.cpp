// hop.cpp - one hop of a buffer from parent to child, beside what no hop can beat.
#include <benchmark/benchmark.h>

#include <atomic>

#include "core/kivStats.h"

namespace {

// Takes a reference and drops it, as a node that keeps the buffer for a while does.
class Keeper : public kivObj {
public:
    int receive(ZVbuffer inBuffer) override
    {
        ++seen;
        return zvBufferAttach(inBuffer) | zvBufferFree(inBuffer);
    }
    long seen = 0;
};

// Looks at the buffer and lets it go.
class Looker : public kivObj {
public:
    int receive(ZVbuffer) override
    {
        ++seen;
        return kivErrNone;
    }
    long seen = 0;
};

// The limit: a virtual call alone, and one that counts up and down.
class Bare {
public:
    virtual ~Bare() = default;
    virtual int receive(std::atomic<long>*)
    {
        ++seen;
        return 0;
    }
    long seen = 0;
};

class BareCounting : public Bare {
public:
    int receive(std::atomic<long>* count) override
    {
        ++seen;
        count->fetch_add(1, std::memory_order_relaxed);
        return count->fetch_sub(1, std::memory_order_acq_rel) <= 0;
    }
};

void plainCall(benchmark::State& state, Bare* child)
{
    benchmark::DoNotOptimize(child);  // so that the call stays virtual
    std::atomic<long> count{1};
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(child->receive(&count));
    }
}

template <class Child, bool counted = false> void hop(benchmark::State& state)
{
    setTrace(0);
    ZVparams* params = nullptr;
    ZVbufferpool pool = nullptr;
    ZVbuffer buffer = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, 1, 4096, 0, 0);
    zvBufferCreatePool(params, &pool);
    zvBufferAllocate(pool, &buffer);
    kivObj parent;
    Child child;
    parent.addObject(&child);
    STATSpage page = nullptr;
    statsCreate("hop", 2, &page);
    kivStats stats(page);
    stats.addNode(&parent, "parent", "", 1);
    stats.addNode(&child, "child", "", 2);
    kivSetObserver(counted ? &stats : nullptr);
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(parent.propagate(buffer));
    }
    kivSetObserver(nullptr);
    if (counted && stats.recordOf(&child)->in != child.seen)
        state.SkipWithError("a hop was not counted");
    statsClose(page);
    if (child.seen < long(state.iterations()) || zvBufferFree(buffer) != ZV_SUCCESS)
        state.SkipWithError("a hop was lost");
    zvBufferDestroyPool(pool);
    zvParamsDestroy(params);
}

Bare bare;
BareCounting bareCounting;

}  // namespace

BENCHMARK_CAPTURE(plainCall, call, &bare);
BENCHMARK(hop<Looker>)->Name("hop/call");
BENCHMARK((hop<Looker, true>))->Name("hop/call/counted");
BENCHMARK_CAPTURE(plainCall, reference, &bareCounting);
BENCHMARK(hop<Keeper>)->Name("hop/reference");
BENCHMARK((hop<Keeper, true>))->Name("hop/reference/counted");
