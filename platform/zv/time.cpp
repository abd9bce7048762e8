// time.cpp - the clock of all stamps, and the last error of a thread.
#include <cstring>
#include <ctime>

#include "platform/support/error.h"
#include "platform/zv/internal.h"

namespace kiv {

namespace {

const char* errorText(int number)
{
    switch (number) {
    case ZV_ERROR_NONE:
        return "no error";
    case ZV_ERROR_HANDLE:
        return "bad handle";
    case ZV_ERROR_ARGUMENT:
        return "bad argument";
    case ZV_ERROR_LIMIT:
        return "over a limit";
    case ZV_ERROR_MEMORY:
        return "out of memory";
    case ZV_ERROR_EMPTY:
        return "nothing there";
    case ZV_ERROR_SYSTEM:
        return "system call failed";
    case ZV_ERROR_UNSUPPORTED:
        return "not supported";
    case ZV_ERROR_DATA:
        return "damaged data";
    case ZV_ERROR_STATE:
        return "not in this state";
    case ZV_ERROR_PEER:
        return "peer gone or too slow";
    case ZV_ERROR_STOPPED:
        return "stopped";
    default:
        return "unknown error";
    }
}

}  // namespace

uint64_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return uint64_t(time.tv_sec) * 1'000'000'000u + uint64_t(time.tv_nsec);
}

}  // namespace kiv

using namespace kiv;

extern "C" int zvGetUST(unsigned long long* ns)
{
    if (ns == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "no place for the time");
    *ns = now();
    return ZV_SUCCESS;
}

// Of the calling thread; the text is constant, the detail is copied out.
extern "C" const char* zvGetError(int* number, char* detail)
{
    if (number != nullptr)
        *number = lastErrorNumber();
    if (detail != nullptr)
        strncpy(detail, lastErrorDetail(), ZV_ERROR_DETAIL_MAX);
    return errorText(lastErrorNumber());
}
