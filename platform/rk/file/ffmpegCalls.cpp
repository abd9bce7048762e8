// ffmpegCalls.cpp - see ffmpegCalls.h.
#include "platform/rk/file/ffmpegCalls.h"

#include <dlfcn.h>

#include <mutex>

#include "platform/support/error.h"

namespace kiv::rk {

#define KIV_DEFINE_CALL(name) decltype(&::name) name = nullptr;
KIV_AVUTIL_CALLS(KIV_DEFINE_CALL)
KIV_AVCODEC_CALLS(KIV_DEFINE_CALL)
KIV_AVFORMAT_CALLS(KIV_DEFINE_CALL)
KIV_SWSCALE_CALLS(KIV_DEFINE_CALL)
#undef KIV_DEFINE_CALL

namespace {

struct Call {
    const char* name;
    void* place;  // the pointer of that name
};

// The version is that of the headers: structures are shared with it.
#define KIV_LIBRARY(name, major) "lib" name ".so." AV_STRINGIFY(major)
#define KIV_LIST_CALL(name) Call{#name, &name},

int loadCalls(const char* library, std::initializer_list<Call> calls)
{
    void* const handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr)
        return recordError(ZV_ERROR_UNSUPPORTED, "movie files need %s: %s", library, dlerror());
    for (const Call& call : calls) {
        void* const found = dlsym(handle, call.name);
        if (found == nullptr)
            return recordError(ZV_ERROR_UNSUPPORTED, "movie files need '%s' of %s: %s", call.name, library, dlerror());
        *static_cast<void**>(call.place) = found;
    }
    return 0;
}

int loadAll()
{
    if (loadCalls(KIV_LIBRARY("avutil", LIBAVUTIL_VERSION_MAJOR), {KIV_AVUTIL_CALLS(KIV_LIST_CALL)}) != 0
        || loadCalls(KIV_LIBRARY("avcodec", LIBAVCODEC_VERSION_MAJOR), {KIV_AVCODEC_CALLS(KIV_LIST_CALL)}) != 0
        || loadCalls(KIV_LIBRARY("avformat", LIBAVFORMAT_VERSION_MAJOR), {KIV_AVFORMAT_CALLS(KIV_LIST_CALL)}) != 0)
        return -1;
    return loadCalls(KIV_LIBRARY("swscale", LIBSWSCALE_VERSION_MAJOR), {KIV_SWSCALE_CALLS(KIV_LIST_CALL)});
}

}  // namespace

int loadFfmpeg()
{
    static std::mutex lock;
    static bool loaded = false;  // guarded by lock; a failure is tried again
    std::lock_guard guard(lock);
    if (!loaded && loadAll() == 0)
        loaded = true;
    return loaded ? 0 : -1;
}

}  // namespace kiv::rk
