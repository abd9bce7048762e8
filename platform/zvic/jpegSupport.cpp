// jpegSupport.cpp - error manager, progress monitor and colour spaces for libjpeg.
#include "platform/zvic/jpegSupport.h"

#include <cstdarg>

#include <jerror.h>

#include "platform/zvic/codec.h"

namespace kiv {

namespace {

// A picture sent in more scans than any encoder makes costs a whole pass each.
constexpr int maxScans = 100;

JpegErrors* errorsOf(j_common_ptr cinfo) { return reinterpret_cast<JpegErrors*>(cinfo->err); }

[[noreturn]] void errorExit(j_common_ptr cinfo)
{
    JpegErrors* errors = errorsOf(cinfo);
    errors->number = cinfo->err->msg_code == JERR_OUT_OF_MEMORY ? ZV_ERROR_MEMORY : ZV_ERROR_DATA;
    cinfo->err->format_message(cinfo, errors->text);
    longjmp(errors->escape, 1);
}

// Oddities that leave every pixel right: an unknown application marker, and the
// bytes that many cameras leave between the picture and its end marker.
bool harmless(int code)
{
    return code == JWRN_ADOBE_XFORM || code == JWRN_JFIF_MAJOR || code == JWRN_NOT_SEQUENTIAL
        || code == JWRN_EXTRANEOUS_DATA;
}

void emitMessage(j_common_ptr cinfo, int level)
{
    if (level < 0 && !harmless(cinfo->err->msg_code))
        errorExit(cinfo);
}

void outputMessage(j_common_ptr) { }

}  // namespace

jpeg_error_mgr* jpegErrorsInit(JpegErrors* errors)
{
    jpeg_std_error(&errors->base);
    errors->base.error_exit = errorExit;
    errors->base.emit_message = emitMessage;
    errors->base.output_message = outputMessage;
    return &errors->base;
}

void jpegFail(j_common_ptr cinfo, int number, const char* format, ...)
{
    JpegErrors* errors = errorsOf(cinfo);
    errors->number = number;
    va_list args;
    va_start(args, format);
    vsnprintf(errors->text, sizeof errors->text, format, args);
    va_end(args);
    longjmp(errors->escape, 1);
}

void jpegWatch(j_common_ptr cinfo)
{
    if (errorsOf(cinfo)->job->stopped())
        jpegFail(cinfo, ZV_ERROR_STOPPED, "the converter is being closed");
    if (cinfo->is_decompressor && reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > maxScans)
        jpegFail(cinfo, ZV_ERROR_DATA, "more than %d scans in one JPEG", maxScans);
}

bool jpegColorSpace(int packing, J_COLOR_SPACE* space, int* bytes)
{
    // An X byte is written as alpha is: 255, so that the same picture gives the same bytes.
    static constexpr struct {
        int packing;
        J_COLOR_SPACE space;
        int bytes;
    } spaces[] = {
        {ZV_IMAGE_PACKING_RGB, JCS_EXT_RGB, 3},         {ZV_IMAGE_PACKING_BGR, JCS_EXT_BGR, 3},
        {ZV_IMAGE_PACKING_RGBA, JCS_EXT_RGBA, 4},       {ZV_IMAGE_PACKING_RGBX, JCS_EXT_RGBA, 4},
        {ZV_IMAGE_PACKING_ABGR, JCS_EXT_ABGR, 4},       {ZV_IMAGE_PACKING_XBGR, JCS_EXT_ABGR, 4},
        {ZV_IMAGE_PACKING_ARGB, JCS_EXT_ARGB, 4},       {ZV_IMAGE_PACKING_XRGB, JCS_EXT_ARGB, 4},
        {ZV_IMAGE_PACKING_LUMINANCE, JCS_GRAYSCALE, 1},
    };
    for (const auto& entry : spaces) {
        if (entry.packing == packing) {
            *space = entry.space;
            *bytes = entry.bytes;
            return true;
        }
    }
    return false;
}

}  // namespace kiv
