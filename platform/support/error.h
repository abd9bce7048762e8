// error.h - the last error of the calling thread, shared by all services.
// Hidden: applications read it with zvGetError.
#pragma once

#include "platform/zv/errors.h"

namespace kiv {

// Records an error of this thread: number, and what was wrong in words
// (cut at ZV_ERROR_DETAIL_MAX). Always returns -1, so that a failing call
// can end with `return recordError(...)`. Keeps errno.
int recordError(int number, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The same with ": <text of errno>" at the end.
int recordSystemError(int number, const char* format, ...) __attribute__((format(printf, 2, 3)));

int lastErrorNumber();
const char* lastErrorDetail();

}  // namespace kiv
