// kivUtil.cpp - lines, reports and descriptor sets; see kivUtil.h.
#include "core/kivUtil.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {
constinit std::atomic<int> traceOn{1};
}

void setTrace(int on) { traceOn.store(on != 0, std::memory_order_relaxed); }

int getTrace() { return traceOn.load(std::memory_order_relaxed); }

void kivTrace(const char* format, ...)
{
    if (!getTrace())
        return;
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
}

void kivPrintError(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
}

void kivPrintOut(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vfprintf(stdout, format, args);
    va_end(args);
}

// Thread-safe. Ends the process when the id is a fatal one.
void kivReport(int errorID, const char* file, int line)
{
    kivPrintError("Error: file:%s on line:%d\n", file, line);
    const char* text = getErrorString(errorID);
    kivPrintError("Error:%d:%s\n", errorID, text);
}

// Call it on the thread of the failing call and right after it: errno and the
// service's last error are per thread. Leaves errno as it was.
void kivReportService(int errorID, const char* file, int line, const char* objectName)
{
    const int systemError = errno;
    int serviceError = 0;
    char detail[ZV_ERROR_DETAIL_MAX] = "";
    const char* description = zvGetError(&serviceError, detail);

    kivPrintError("kivIC error:%d (line:%d file:%s) errno:%d\n", errorID, line, file, systemError);
    kivPrintError("Error description:%s\n", description);
    kivPrintError("   kiv errorNum:%d\n", serviceError);
    kivPrintError("   detail:%s\n", detail);
    kivPrintError("   object:%s\n", objectName);
    kivPrintError("   errno:%d\n", systemError);
    errno = systemError;
}

void kivFdAdd(int fd, fd_set* set)
{
    if (fd >= 0 && fd < FD_SETSIZE)
        FD_SET(fd, set);
}

bool kivFdIsSet(int fd, const fd_set* set) { return fd >= 0 && fd < FD_SETSIZE && FD_ISSET(fd, set); }

int roundToPower(int n)
{
    constexpr int largestPower = 1 << 30;
    if (n > largestPower)
        return n;
    unsigned result = 1;
    while (int(result) < n)
        result <<= 1;
    return int(result);
}
