/* zvic.h - the image-converter service: JPEG encode and decode, packings, colours.
 *
 * An open converter has worker threads; images go in by zvICSend and come out in
 * the same order by zvICReceive. All calls are thread-safe; `int` results are 0
 * or -1 unless said otherwise, the reason is in zvGetError.
 *
 * JPEG comes from and goes to CbYCrY, RGB, BGR, RGBA, RGBX, ABGR, XBGR, ARGB, XRGB
 * and LUMINANCE; between these, and CbYCr, CbYCrA and LUMINANCE_ALPHA, pixels are
 * converted by BT.601. A JPEG holds levels 0..255, and CbYCrY passes into and out
 * of it untouched: say ZV_IC_FULL_RANGE to a pixel converter of such CbYCrY.
 *
 * Bands: a JPEG is encoded in bands of whole rows of blocks with a restart marker
 * between two (two bands from 480 rows on, four above 1088, unless ZV_IC_BANDS says
 * otherwise; none where an interval would be longer than 65535 blocks of 16x8).
 * While no other image waits, idle workers take bands of it. So they do in decoding,
 * whoever made the JPEG, when its restart intervals are whole rows and no row of
 * chroma is made from its neighbours (4:2:0 to RGB is decoded whole). Neither the
 * bytes nor the samples depend on how many workers there were.
 *
 * Encoding: colour becomes 4:2:2, LUMINANCE becomes grey; the accurate transform in
 * both speeds (the fast one saved 4 % of the time and cost 0.03 dB).
 * Decoding: the accurate transform in both speeds. RGB packings and LUMINANCE are
 * the same in both, byte for byte as djpeg -dct int makes them. CbYCrY takes 4:2:2
 * chroma untouched, the rounded mean of two columns of 4:4:4, 128 for grey. The
 * missing rows of 4:2:0 repeat the row above in real time; ZV_IC_SPEED_NONREALTIME
 * weighs the nearer row 3/4 and the other 1/4 (0.3 dB better, 1 % slower).
 * A JPEG that is damaged or not whole (its end marker included), of another size
 * than is set, in RGB where CbYCrY is asked for, in CMYK, or one of two fields in
 * the same buffer is a failed result. */
#ifndef KIV_PLATFORM_ZVIC_H
#define KIV_PLATFORM_ZVIC_H

#include "platform/zv/zv.h"

KIV_C_BEGIN

typedef struct ZVimageconverterRec* ZVimageconverter; /* 0 = none */

typedef enum ZVicspeed { ZV_IC_SPEED_UNDEFINED = 0, ZV_IC_SPEED_REALTIME = 1, ZV_IC_SPEED_NONREALTIME = 2 } ZVicspeed;

typedef enum ZVcodedirection {
    ZV_IC_CODE_DIRECTION_UNDEFINED = 0,
    ZV_IC_CODE_DIRECTION_ENCODE = 1,
    ZV_IC_CODE_DIRECTION_DECODE = 2
} ZVcodedirection;

#define ZV_IC_SPEED "ZV_IC_SPEED" /* enum ZVicspeed, conversion key */
#define ZV_IC_QUEUE_MAX "ZV_IC_QUEUE_MAX" /* int, conversion key: images waiting at most; 0 = no limit */
#define ZV_IC_WORKERS "ZV_IC_WORKERS" /* int, conversion key, before the first image: threads; 0 = one per core */
#define ZV_IC_BANDS "ZV_IC_BANDS" /* int, conversion key: bands of a JPEG encoded, 0 to 16; 0 = by its height */
#define ZV_IC_FULL_RANGE "ZV_IC_FULL_RANGE" /* int, conversion key: 1 = CbYCr and LUMINANCE levels are 0..255 */

/* The first converter that turns `src` images into `dst` images under `conv`:
 * its id, 0 or more; -1 when none does (sizes below 1 or unequal, unknown
 * compression or packing). */
KIV_API int zvICChooseConverter(const ZVparams* src, const ZVparams* dst, const ZVparams* conv);
KIV_API int zvICCreate(int id, ZVimageconverter* ic);
/* Stops and joins the workers, drops all queued references, closes the descriptor. */
KIV_API int zvICDestroy(ZVimageconverter ic);

KIV_API int zvICSetSrcParams(ZVimageconverter ic, const ZVparams* p);
KIV_API int zvICSetDstParams(ZVimageconverter ic, const ZVparams* p);
/* Merges the keys given; quality, speed and queue limit may change while running,
 * and hold for the images not yet begun. Quality, 0 to 1, is the JPEG library's
 * percentage; 0.75 unless set. */
KIV_API int zvICSetConvParams(ZVimageconverter ic, const ZVparams* p);

/* Raise the list's ZV_BUFFER_SIZE and ZV_BUFFER_COUNT to what the converter needs
 * of the pool on that side: room for the worst JPEG of that image on a JPEG side,
 * and a buffer more for each worker and one that waits. Missing keys count as 0. */
KIV_API int zvICGetSrcPoolParams(ZVimageconverter ic, ZVparams* p);
KIV_API int zvICGetDstPoolParams(ZVimageconverter ic, ZVparams* p);
KIV_API int zvICSetDstPool(ZVimageconverter ic, ZVbufferpool pool);

/* Queues one image; never blocks. The converter takes its own reference. With
 * ZV_IC_QUEUE_MAX reached, the oldest image not yet begun is dropped and counted.
 * The two trailing arguments are reserved: 0 and null. */
KIV_API int zvICSend(ZVimageconverter ic, ZVbuffer in, int n, void* data);
/* Takes the next result; never blocks. The caller owns one reference. -1 with
 * *out null when nothing waits (ZV_ERROR_EMPTY) or when that image could not be
 * converted (ZV_ERROR_DATA and others); a failed result is consumed. */
KIV_API int zvICReceive(ZVimageconverter ic, ZVbuffer* out);
/* Readable exactly while a result, good or failed, waits. The converter's own. */
KIV_API int zvICGetDstQueueFD(ZVimageconverter ic);
KIV_API int zvICGetSrcQueueFilled(ZVimageconverter ic); /* images waiting or being converted */
KIV_API int zvICGetDstQueueFilled(ZVimageconverter ic); /* results waiting */

typedef struct ZVicStats {
    long long sent; /* images accepted */
    long long converted; /* good results */
    long long failed; /* failed results */
    long long dropped; /* images that gave way under ZV_IC_QUEUE_MAX */
    long long cpuNs; /* CPU time of its worker threads */
    long long shared;    /* images that workers took in bands */
} ZVicStats;
KIV_API int zvICGetStats(ZVimageconverter ic, ZVicStats* stats);

KIV_C_END

#endif
