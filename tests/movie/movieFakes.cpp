// movieFakes.cpp - see movieFakes.h.
#include "tests/movie/movieFakes.h"

#include <cstring>

KIV_FAULT(yqsema_t*, yqnewpollsema, (yqptr_t arena, int count), (arena, count), nullptr)
KIV_FAULT(int, yqopenpollsema, (yqsema_t * sema, int mode), (sema, mode), -1)
KIV_FAULT(int, yqpsema, (yqsema_t * sema), (sema), -1)
KIV_FAULT(int, threadStart, (void (*entry)(void*), void* arg), (entry, arg), -1)
KIV_FAULT(int, zvParamsCreate, (ZVparams * *p), (p), (*p = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferSetPoolDefaults, (ZVparams * p, int count, int size, int cacheable, int mapped),
          (p, count, size, cacheable, mapped), ZV_FAILURE)
KIV_FAULT(int, zvParamsSetInt, (ZVparams * p, const char* key, int value), (p, key, value), ZV_FAILURE)
KIV_FAULT(int, zvBufferCreatePool, (const ZVparams* p, ZVbufferpool* pool), (p, pool), (*pool = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferAllocate, (ZVbufferpool pool, ZVbuffer* out), (pool, out), (*out = nullptr, ZV_FAILURE))
KIV_FAULT(int, zvBufferSetPoolSelectSize, (ZVbufferpool pool, int size), (pool, size), ZV_FAILURE)
KIV_FAULT(int, zvBufferGetPoolFD, (ZVbufferpool pool), (pool), -1)
KIV_FAULT(int, zvBufferFree, (ZVbuffer buffer), (buffer), ZV_FAILURE)

std::atomic<unsigned long long> fakeNow{0};
std::atomic<long> naps[3];
FakeFile fakeFile;

extern "C" int zvGetUST(unsigned long long* ns)
{
    static const auto real = realFunction<int(unsigned long long*)>("zvGetUST");
    const unsigned long long now = fakeNow.load();
    if (now == 0)
        return real(ns);
    *ns = now;
    return ZV_SUCCESS;
}

extern "C" int qtnnap(int ticks)
{
    static const auto real = realFunction<int(int)>("qtnnap");
    if (ticks == 1 || ticks == 2)
        ++naps[ticks];
    return real(ticks);
}

// --- The movie-file service ---------------------------------------------------

static const RKmovie movie = reinterpret_cast<RKmovie>(0x10);
static const RKtrack track = reinterpret_cast<RKtrack>(0x20);

extern "C" int rkOpenFile(const char* name, int mode, RKmovie* out)
{
    if (!fakeFile.on)
        return realFunction<int(const char*, int, RKmovie*)>("rkOpenFile")(name, mode, out);
    fakeFile.opened += fakeFile.opening == 0;
    fakeFile.openedName = name;
    *out = fakeFile.opening == 0 ? movie : nullptr;
    return fakeFile.opening;
}

extern "C" int rkClose(RKmovie open)
{
    if (!fakeFile.on)
        return realFunction<int(RKmovie)>("rkClose")(open);
    return ++fakeFile.closed, 0;
}

extern "C" int rkFindTrackByMedium(RKmovie open, int medium, RKtrack* out)
{
    if (!fakeFile.on)
        return realFunction<int(RKmovie, int, RKtrack*)>("rkFindTrackByMedium")(open, medium, out);
    *out = fakeFile.finding == 0 && medium == 200 ? track : nullptr;
    return fakeFile.finding;
}

#define FAKE_TRACK_VALUE(type, name, value)                                                                            \
    extern "C" type name(RKtrack of) { return fakeFile.on ? value : realFunction<type(RKtrack)>(#name)(of); }
FAKE_TRACK_VALUE(int, rkGetTrackLength, fakeFile.length)
FAKE_TRACK_VALUE(double, rkGetImageRate, fakeFile.rate)
FAKE_TRACK_VALUE(int, rkGetImageWidth, fakeFile.width)
FAKE_TRACK_VALUE(int, rkGetImageHeight, fakeFile.height)
FAKE_TRACK_VALUE(int, rkGetImageInterlacing, fakeFile.interlacing)
FAKE_TRACK_VALUE(int, rkGetLargestCompressedImageSize, fakeFile.largest)

extern "C" int rkGetCompressedImageSize(RKtrack of, int index)
{
    if (!fakeFile.on)
        return realFunction<int(RKtrack, int)>("rkGetCompressedImageSize")(of, index);
    return fakeFile.size(index);
}

extern "C" int rkReadCompressedImage(RKtrack of, int index, int size, void* addr)
{
    if (!fakeFile.on)
        return realFunction<int(RKtrack, int, int, void*)>("rkReadCompressedImage")(of, index, size, addr);
    ++fakeFile.read;
    memset(addr, index & 0xff, size_t(size));
    return 0;
}

// --- The fixtures ---------------------------------------------------------------

MovieFakes::MovieFakes()
{
    fakeFile = FakeFile();
    fakeFile.on = true;
    fakeNow = 0;
    naps[1] = naps[2] = 0;
}

MovieFakes::~MovieFakes()
{
    fakeFile.on = false;
    fakeNow = 0;
    for (Fault* fault :
         {&fault_yqnewpollsema, &fault_yqopenpollsema, &fault_yqpsema, &fault_threadStart, &fault_zvParamsCreate,
          &fault_zvBufferSetPoolDefaults, &fault_zvParamsSetInt, &fault_zvBufferCreatePool, &fault_zvBufferAllocate,
          &fault_zvBufferSetPoolSelectSize, &fault_zvBufferGetPoolFD, &fault_zvBufferFree})
        fault->failAt(0);
}

FakeMovie::FakeMovie(PoolFixture& pool)
{
    bufferPool = pool.pool;
    poolFD = zvBufferGetPoolFD(pool.pool);
}

FakeMovie::~FakeMovie()
{
    endReader();
    bufferPool = nullptr;  // the fixture's
}

int FakeMovie::number()
{
    memcpy(zvBufferMapData(readBuffer), &numbered, sizeof numbered);
    ++numbered;
    return kivErrNone;
}

int numberIn(ZVbuffer buffer)
{
    int number = -1;
    if (const void* data = zvBufferMapData(buffer))
        memcpy(&number, data, sizeof number);
    return number;
}

void untilStopped()
{
    while (!stopRequested())
        threadPoll(threadStopFD(), 0);
}
