/* zv.h - the media-buffer service: parameter lists, buffer pools, buffers, time.
 *
 * All calls are thread-safe. A null, stale or foreign handle gives the failure
 * value, changes nothing and records an error (zvGetError). `int` results are
 * ZV_SUCCESS or ZV_FAILURE unless said otherwise; a call that makes something
 * stores null on failure. */
#ifndef KIV_PLATFORM_ZV_H
#define KIV_PLATFORM_ZV_H

#include <stdint.h>

#include "platform/api.h"
#include "platform/zv/errors.h"

KIV_C_BEGIN

#define ZV_SUCCESS 0
#define ZV_FAILURE (-1)

/* Handles. They are never dereferenced: only these calls look behind them. */
typedef struct ZVparams ZVparams; /* used as ZVparams* */
typedef struct ZVbufferRec* ZVbuffer; /* a reference-counted buffer */
typedef struct ZVbufferpoolRec* ZVbufferpool; /* a pool of equal buffers */

typedef struct USTMSCpair {
    int64_t ust; /* unadjusted system time, ns, the clock of zvGetUST */
    int64_t msc; /* media stream count: frame number */
} USTMSCpair;

typedef struct ZVfract {
    int numerator;
    int denominator;
} ZVfract;

/* Element types of a list. */
enum {
    ZV_TYPE_NONE = 0, /* no element of that key or index */
    ZV_TYPE_ENUM = 100,
    ZV_TYPE_INT = 101,
    ZV_TYPE_STRING = 102,
    ZV_TYPE_FLOAT = 103,
    ZV_TYPE_FRACTION = 104,
    ZV_TYPE_PARAMS = 105,
    ZV_TYPE_TOC_ENTRY = 106,
    ZV_TYPE_LONG_LONG = 107,
    ZV_TYPE_BINARY = 108,
    ZV_TYPE_ENUM_ARRAY = 110,
    ZV_TYPE_INT_ARRAY = 111,
    ZV_TYPE_STRING_ARRAY = 112,
    ZV_TYPE_FLOAT_ARRAY = 113,
    ZV_TYPE_FRACTION_ARRAY = 114,
    ZV_TYPE_INT_RANGE = 121,
    ZV_TYPE_FLOAT_RANGE = 123,
    ZV_TYPE_FRACTION_RANGE = 124
};

/* Pixel packings: the order of the bytes in memory, first byte first. */
typedef enum ZVimagepacking {
    ZV_IMAGE_PACKING_BGR = 1000,
    ZV_IMAGE_PACKING_ABGR = 1002,
    ZV_IMAGE_PACKING_XBGR = 1003,
    ZV_IMAGE_PACKING_LUMINANCE = 1005,
    ZV_IMAGE_PACKING_CbYCr = 1006, /* 4:4:4, 3 bytes a pixel */
    ZV_IMAGE_PACKING_CbYCrA = 1007, /* 4:4:4:4, 4 bytes a pixel */
    ZV_IMAGE_PACKING_CbYCrY = 1008, /* 4:2:2, 2 bytes a pixel; an odd row ends after Cb Y */
    ZV_IMAGE_PACKING_CbYCrYYY = 1009, /* 4:1:1, 6 bytes for 4 pixels */
    ZV_IMAGE_PACKING_BGR233 = 1010,
    ZV_IMAGE_PACKING_LUMINANCE_ALPHA = 1011,
    ZV_IMAGE_PACKING_XRGB = 1090,
    ZV_IMAGE_PACKING_ARGB = 1091,
    ZV_IMAGE_PACKING_XRGB1555 = 1092,
    ZV_IMAGE_PACKING_RGB = 2000,
    ZV_IMAGE_PACKING_RGBA = 2001,
    ZV_IMAGE_PACKING_RGBX = 2002,
    ZV_IMAGE_PACKING_RBG323 = 2003,
    ZV_IMAGE_PACKING_RGB332 = 2004,
    ZV_IMAGE_PACKING_RGBA5551 = 2005
} ZVimagepacking;

/* Values of ZV_IMAGE_ORIENTATION and ZV_IMAGE_LAYOUT. */
enum {
    ZV_IMAGE_ORIENTATION_TOP_TO_BOTTOM = 1100, /* memory row 0 is the top row of the picture */
    ZV_IMAGE_LAYOUT_GRAPHICS = 1
};

/* Keys. A list takes any key; these are the ones that the services read. */
#define ZV_IMAGE_WIDTH "ZV_IMAGE_WIDTH" /* int, pixels */
#define ZV_IMAGE_HEIGHT "ZV_IMAGE_HEIGHT" /* int, pixels */
#define ZV_IMAGE_PACKING "ZV_IMAGE_PACKING" /* enum ZVimagepacking */
#define ZV_IMAGE_COMPRESSION "ZV_IMAGE_COMPRESSION" /* string: one of the two below */
#define ZV_IMAGE_ORIENTATION "ZV_IMAGE_ORIENTATION" /* enum */
#define ZV_IMAGE_LAYOUT "ZV_IMAGE_LAYOUT" /* enum */
#define ZV_IMAGE_QUALITY_SPATIAL "ZV_IMAGE_QUALITY_SPATIAL" /* float, 0.0 lowest to 1.0 */
#define ZV_BUFFER_COUNT "ZV_BUFFER_COUNT" /* int, buffers in a pool */
#define ZV_BUFFER_SIZE "ZV_BUFFER_SIZE" /* int, bytes of each */
#define ZV_BUFFER_CACHEABLE "ZV_BUFFER_CACHEABLE" /* int, 0 or 1; a hint */
#define ZV_BUFFER_MAPPED "ZV_BUFFER_MAPPED" /* int, 0 or 1; a hint */

#define ZV_COMPRESSION_UNCOMPRESSED "Uncompressed Video"
#define ZV_COMPRESSION_JPEG "JPEG"

/* --- Parameter lists ---------------------------------------------------
 * Key/value pairs in the order in which they were first set; setting a key
 * again replaces value and type in place. Keys, strings, arrays and nested
 * lists are copied in. Pointers that a getter returns belong to the list and
 * stand until that element is set again or the list destroyed. A missing key,
 * or one of another type, reads 0, 0.0 or null. Lists nest 16 deep at most. */
KIV_API int zvParamsCreate(ZVparams** p);
KIV_API int zvParamsDestroy(ZVparams* p);

KIV_API int zvParamsSetInt(ZVparams* p, const char* key, int value);
KIV_API int zvParamsSetEnum(ZVparams* p, const char* key, int value);
KIV_API int zvParamsSetFloat(ZVparams* p, const char* key, double value);
KIV_API int zvParamsSetString(ZVparams* p, const char* key, const char* value);
KIV_API int zvParamsSetLongLong(ZVparams* p, const char* key, long long value);
KIV_API int zvParamsSetFract(ZVparams* p, const char* key, ZVfract value);
KIV_API int zvParamsSetParams(ZVparams* p, const char* key, const ZVparams* value);
KIV_API int zvParamsSetIntArray(ZVparams* p, const char* key, const int* values, int n);
KIV_API int zvParamsSetEnumArray(ZVparams* p, const char* key, const int* values, int n);
KIV_API int zvParamsSetFloatArray(ZVparams* p, const char* key, const double* values, int n);
KIV_API int zvParamsSetStringArray(ZVparams* p, const char* key, const char* const* values, int n);
KIV_API int zvParamsSetFractArray(ZVparams* p, const char* key, const ZVfract* values, int n);
KIV_API int zvParamsSetIntRange(ZVparams* p, const char* key, int low, int high);
KIV_API int zvParamsSetFloatRange(ZVparams* p, const char* key, double low, double high);
KIV_API int zvParamsSetFractRange(ZVparams* p, const char* key, ZVfract low, ZVfract high);

KIV_API int zvParamsGetInt(const ZVparams* p, const char* key);
KIV_API int zvParamsGetEnum(const ZVparams* p, const char* key);
KIV_API double zvParamsGetFloat(const ZVparams* p, const char* key);
KIV_API const char* zvParamsGetString(const ZVparams* p, const char* key);
KIV_API long long zvParamsGetLongLong(const ZVparams* p, const char* key);
KIV_API ZVfract zvParamsGetFract(const ZVparams* p, const char* key);
/* The nested list: its handle belongs to the outer list, zvParamsDestroy refuses it. */
KIV_API ZVparams* zvParamsGetParams(const ZVparams* p, const char* key);
/* Arrays: *n (if n is given) gets the number of elements, 0 with a null result. */
KIV_API const int* zvParamsGetIntArray(const ZVparams* p, const char* key, int* n);
KIV_API const int* zvParamsGetEnumArray(const ZVparams* p, const char* key, int* n);
KIV_API const double* zvParamsGetFloatArray(const ZVparams* p, const char* key, int* n);
KIV_API const char* const* zvParamsGetStringArray(const ZVparams* p, const char* key, int* n);
KIV_API const ZVfract* zvParamsGetFractArray(const ZVparams* p, const char* key, int* n);
/* Ranges: outputs stay as they were on failure. */
KIV_API int zvParamsGetIntRange(const ZVparams* p, const char* key, int* low, int* high);
KIV_API int zvParamsGetFloatRange(const ZVparams* p, const char* key, double* low, double* high);
KIV_API int zvParamsGetFractRange(const ZVparams* p, const char* key, ZVfract* low, ZVfract* high);

KIV_API int zvParamsGetNumElems(const ZVparams* p); /* 0 for no list */
KIV_API const char* zvParamsGetElem(const ZVparams* p, int index); /* key of element i */
KIV_API int zvParamsGetElemType(const ZVparams* p, int index); /* ZV_TYPE_NONE out of range */
KIV_API int zvParamsGetType(const ZVparams* p, const char* key); /* ZV_TYPE_NONE if missing */

/* Calls fn for each element in order until it returns non-zero or sets *pstop.
 * fn may read and set the list. Returns 0, fn's non-zero result, or ZV_FAILURE
 * for no list. */
typedef int (*ZVparamsScanFn)(const ZVparams* p, const char* key, void* arg, int* pstop);
KIV_API int zvParamsScan(const ZVparams* p, ZVparamsScanFn fn, void* arg);

/* --- Images --------------------------------------------------------------
 * Sets width, height, packing, "Uncompressed Video", orientation 1100 and
 * layout 1. Refuses sizes below 0 and above the limits, and unknown packings. */
KIV_API int zvSetImageDefaults(ZVparams* p, int width, int height, int packing);
/* Bytes of one uncompressed frame of that width, height and packing, whatever
 * the compression says; -1 when it does not fit an int or the list has no image. */
KIV_API int zvImageFrameSize(const ZVparams* p);

/* --- Pools ---------------------------------------------------------------
 * A pool is one memory file cut into page-aligned buffers of equal size; fresh
 * buffers are zero. Refuses negative numbers. */
KIV_API int zvBufferSetPoolDefaults(ZVparams* p, int count, int size, int cacheable, int mapped);
/* Adds what GL pixel transfer of `image` needs: size at least one frame, count at least 1. */
KIV_API int zvBufferGetGLPoolParams(const ZVparams* image, ZVparams* pool);
/* Count must be at least 1, size at least 0. 4096 pools and 1 Mi buffers at once
 * are what the process has handles for. */
KIV_API int zvBufferCreatePool(const ZVparams* p, ZVbufferpool* pool);
/* Retires the handle at once and closes its descriptor; the memory lives until
 * the last buffer is freed. */
KIV_API int zvBufferDestroyPool(ZVbufferpool pool);
/* A descriptor that is readable and writable exactly while a buffer of at least
 * the select size is free, and neither otherwise. It belongs to the pool: do not
 * read, write or close it. Made on the first call; -1 on failure. */
KIV_API int zvBufferGetPoolFD(ZVbufferpool pool);
KIV_API int zvBufferSetPoolSelectSize(ZVbufferpool pool, int size); /* bytes; 0 (default) = any */

typedef struct ZVpoolLedger {
    int count; /* buffers in the pool */
    int size; /* bytes of each */
    int free; /* free now */
    int inUse; /* handed out now */
    int peak; /* most handed out at once */
    long long allocated; /* buffers handed out since creation */
    long long references; /* references held now, over all buffers */
    long long failures; /* allocations that found no buffer */
} ZVpoolLedger;
KIV_API int zvBufferGetPoolLedger(ZVbufferpool pool, ZVpoolLedger* ledger);
/* Buffers free now; -1 for no pool. One atomic load: cheap enough to ask before waiting. */
KIV_API int zvBufferGetPoolFree(ZVbufferpool pool);
/* The memory file of a pool, or what a device shares for this buffer, and where the
 * buffer lies in it, for handing it to a device or to another process. The descriptor
 * stays the pool's. */
KIV_API int zvBufferGetMemory(ZVbuffer buffer, int* fd, long long* offset, int* capacity);

/* --- Buffers -------------------------------------------------------------
 * Allocate never blocks: a free buffer with one reference, size = capacity and
 * stamp 0/0, or null. The bytes are those of the buffer's last use. */
KIV_API int zvBufferAllocate(ZVbufferpool pool, ZVbuffer* out);
KIV_API int zvBufferAttach(ZVbuffer buffer); /* one more reference */
KIV_API int zvBufferFree(ZVbuffer buffer); /* one less; the last returns it to its pool */
KIV_API void* zvBufferMapData(ZVbuffer buffer); /* page-aligned, capacity bytes; null on failure */
/* Brings what a graphics context has drawn for the buffer into its bytes, before it
 * is handed on; nothing to do for most buffers. On the thread that draws. */
KIV_API int zvBufferSync(ZVbuffer buffer);
KIV_API int zvBufferGetSize(ZVbuffer buffer); /* valid bytes; -1 on failure */
KIV_API int zvBufferSetSize(ZVbuffer buffer, int size); /* refuses < 0 and > capacity */
KIV_API USTMSCpair zvBufferGetUSTMSCpair(ZVbuffer buffer); /* zero pair on failure */
KIV_API int zvBufferSetUSTMSCpair(ZVbuffer buffer, USTMSCpair stamp);

/* --- Time and errors -----------------------------------------------------*/
KIV_API int zvGetUST(unsigned long long* ns); /* monotonic nanoseconds */
/* Describes the calling thread's last error of any service here. Both pointers
 * may be null; `detail` has room for ZV_ERROR_DETAIL_MAX bytes. Never null. */
KIV_API const char* zvGetError(int* number, char* detail);

KIV_C_END

#endif
