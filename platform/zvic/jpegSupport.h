// jpegSupport.h - libjpeg without its habits: errors return, nothing is printed.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

namespace kiv {

struct ConvertJob;

// The error manager of one libjpeg object. Every failure, and every warning
// that means damage, jumps to `escape`, which the caller has set before it
// called the library. Only frames without destructors may lie in between.
struct JpegErrors {
    jpeg_error_mgr base;  // first: libjpeg's pointer to it is a pointer to this
    jmp_buf escape;
    int number;  // ZV_ERROR_*
    const ConvertJob* job;  // what the progress monitor watches
    char text[JMSG_LENGTH_MAX];
};

jpeg_error_mgr* jpegErrorsInit(JpegErrors* errors);

// Ends the conversion from within: `text` becomes the error's detail.
[[noreturn]] void jpegFail(j_common_ptr cinfo, int number, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

// Called by libjpeg at every row group and scan: ends stopped jobs, and pictures
// that come in too many scans.
void jpegWatch(j_common_ptr cinfo);

// Packing of an uncompressed side as libjpeg names it: colour space and bytes a
// pixel; false when libjpeg has no such packing.
bool jpegColorSpace(int packing, J_COLOR_SPACE* space, int* bytes);

}  // namespace kiv
