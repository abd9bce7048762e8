// kivUtil.h - what every node uses: printing, reports, descriptor sets, list printers.
#pragma once

#include <sys/select.h>

#include <cstdio>

#include "core/kivError.h"
#include "platform/zv/zv.h"

// --- Lines -------------------------------------------------------------------
// Every line that a node prints goes through one of these. Thread-safe.

// Switches progress and trace lines off (0) or on (1, the default). Errors,
// "no data ..." and "BAD BUFFER" lines, and printers that somebody calls are not
// progress: they are always printed.
KIV_API void setTrace(int on);
KIV_API int getTrace();

// Progress and trace, to standard error, if switched on.
KIV_API void kivTrace(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Errors, to standard error, always.
KIV_API void kivPrintError(const char* format, ...) __attribute__((format(printf, 1, 2)));
// What belongs on standard output, always.
KIV_API void kivPrintOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The two-line report of a failed inner call: where, then what. The first line is
// printed before the id is looked up, because a fatal id ends the process there.
KIV_API void kivReport(int errorID, const char* file, int line);
#define KIV_REPORT(errorID) kivReport((errorID), kivBaseName(__FILE__), __LINE__)

// The part of a path after the last slash.
constexpr const char* kivBaseName(const char* path)
{
    const char* base = path;
    for (const char* p = path; *p != '\0'; ++p)
        if (*p == '/')
            base = p + 1;
    return base;
}

// The six-line block of the image-conversion and network nodes: id, line, file
// word, errno, then what the service said last on this thread, and the node's name.
KIV_API void kivReportService(int errorID, const char* file, int line, const char* objectName);

// --- Descriptor sets ------------------------------------------------------------
// FD_SET and FD_ISSET that ignore everything outside 0 .. FD_SETSIZE-1.
KIV_API void kivFdAdd(int fd, fd_set* set);
KIV_API bool kivFdIsSet(int fd, const fd_set* set);

// --- Parameter lists -------------------------------------------------------------
// One line per element to standard error: value, type in parentheses, key.
KIV_API void printZVParams(const ZVparams* params);
// The same as a progress line: what a node prints of its own accord.
KIV_API void kivTraceZVParams(const ZVparams* params);
// The callback that prints one element; returns 0 and leaves *pstop alone.
KIV_API int PrintParam(const ZVparams* params, const char* paramName, void* arg, int* pstop);
// The earlier printer: listing to standard output, progress dots to standard error.
KIV_API void oldPrintZVParams(const ZVparams* params);

// The smallest power of two not below n; 1 for n < 1, n itself above 2^30.
KIV_API int roundToPower(int n);
