// pool.cpp - what a buffer costs: taken and given back, alone and with company.
#include <benchmark/benchmark.h>

#include "platform/zv/zv.h"

namespace {

// Made on first use and kept, so that all threads of a run share it.
ZVbufferpool pool()
{
    static const ZVbufferpool made = [] {
        ZVparams* params = nullptr;
        ZVbufferpool fresh = nullptr;
        zvParamsCreate(&params);
        zvBufferSetPoolDefaults(params, 16, 1 << 20, 0, 0);
        zvBufferCreatePool(params, &fresh);
        zvParamsDestroy(params);
        return fresh;
    }();
    return made;
}

void allocateFree(benchmark::State& state)
{
    const ZVbufferpool from = pool();
    for (auto step : state) {
        (void)step;
        ZVbuffer buffer = nullptr;
        if (zvBufferAllocate(from, &buffer) != ZV_SUCCESS || zvBufferFree(buffer) != ZV_SUCCESS)
            state.SkipWithError("a buffer could not be taken or given back");
    }
}
BENCHMARK(allocateFree);
BENCHMARK(allocateFree)->Threads(2)->UseRealTime();

void attachFree(benchmark::State& state)
{
    ZVbuffer buffer = nullptr;
    zvBufferAllocate(pool(), &buffer);
    for (auto step : state) {
        (void)step;
        if (zvBufferAttach(buffer) != ZV_SUCCESS || zvBufferFree(buffer) != ZV_SUCCESS)
            state.SkipWithError("a reference could not be taken or dropped");
    }
    zvBufferFree(buffer);
}
BENCHMARK(attachFree);

// What a node does with a frame besides: map, size, stamp.
void describe(benchmark::State& state)
{
    ZVbuffer buffer = nullptr;
    zvBufferAllocate(pool(), &buffer);
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(zvBufferMapData(buffer));
        zvBufferSetSize(buffer, 1000);
        zvBufferSetUSTMSCpair(buffer, {1, 2});
        benchmark::DoNotOptimize(zvBufferGetSize(buffer));
        benchmark::DoNotOptimize(zvBufferGetUSTMSCpair(buffer));
    }
    zvBufferFree(buffer);
}
BENCHMARK(describe);

// A pool of one whose descriptor is watched: every step crosses both edges.
void watchedEdges(benchmark::State& state)
{
    ZVparams* params = nullptr;
    ZVbufferpool one = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, 1, 4096, 0, 0);
    zvBufferCreatePool(params, &one);
    zvParamsDestroy(params);
    if (zvBufferGetPoolFD(one) < 0)
        state.SkipWithError("no descriptor");
    for (auto step : state) {
        (void)step;
        ZVbuffer buffer = nullptr;
        zvBufferAllocate(one, &buffer);
        zvBufferFree(buffer);
    }
    zvBufferDestroyPool(one);
}
BENCHMARK(watchedEdges);

void readParameter(benchmark::State& state)
{
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvSetImageDefaults(params, 1920, 1080, ZV_IMAGE_PACKING_CbYCrY);
    for (auto step : state) {
        (void)step;
        benchmark::DoNotOptimize(zvParamsGetEnum(params, ZV_IMAGE_PACKING));
    }
    zvParamsDestroy(params);
}
BENCHMARK(readParameter);

}  // namespace
