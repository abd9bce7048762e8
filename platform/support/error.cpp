// error.cpp - per-thread error record.
#include "platform/support/error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace kiv {

namespace {

struct ErrorRecord {
    int number = ZV_ERROR_NONE;
    char detail[ZV_ERROR_DETAIL_MAX] = "";
};

thread_local ErrorRecord record;

void writeRecord(int number, const char* format, va_list args)
{
    record.number = number;
    vsnprintf(record.detail, sizeof record.detail, format, args);
}

}  // namespace

int recordError(int number, const char* format, ...)
{
    const int saved = errno;
    va_list args;
    va_start(args, format);
    writeRecord(number, format, args);
    va_end(args);
    errno = saved;
    return -1;
}

int recordSystemError(int number, const char* format, ...)
{
    const int saved = errno;
    va_list args;
    va_start(args, format);
    writeRecord(number, format, args);
    va_end(args);

    const size_t used = strlen(record.detail);
    char text[128];
    snprintf(record.detail + used, sizeof record.detail - used, ": %s", strerror_r(saved, text, sizeof text));
    errno = saved;
    return -1;
}

int lastErrorNumber() { return record.number; }

const char* lastErrorDetail() { return record.detail; }

}  // namespace kiv
