/* rk.h - the movie-file service: QuickTime, MP4, AVI and Matroska files.
 *
 * One movie, one image track (the first that moves), frames by index in order of
 * presentation; what an edit list hides and AVI chunks without bytes are no
 * frames. The index is built once, at opening: from the file's header where that
 * proves right, else by reading the file once (Matroska, fragments, a lost index,
 * codecs other than JPEG). Thread-safe: frames that are JPEG in the file are read
 * without a lock, others are made one at a time. `int` results are 0 or -1 unless
 * said otherwise; zvGetError tells why and names the file.
 *
 * No other file or address that a movie names is ever opened. The first opening
 * silences the log of FFmpeg's libraries, which is one for the whole process. */
#ifndef KIV_PLATFORM_RK_H
#define KIV_PLATFORM_RK_H

#include "platform/api.h"

KIV_C_BEGIN

typedef struct RKmovieRec* RKmovie; /* 0 = none */
typedef struct RKtrackRec* RKtrack; /* 0 = none; ends with its movie */

enum { RK_MEDIUM_IMAGE = 200 };

/* What rkGetImageInterlacing answers. */
enum {
    RK_INTERLACING_UNKNOWN = 0,
    RK_INTERLACING_PROGRESSIVE = 1,
    RK_INTERLACING_TOP_FIRST = 2, /* fields, the top one earlier in time */
    RK_INTERLACING_BOTTOM_FIRST = 3
};

/* Opens a regular file for reading (mode 0). */
KIV_API int rkOpenFile(const char* name, int mode, RKmovie* movie);
KIV_API int rkClose(RKmovie movie);
KIV_API int rkFindTrackByMedium(RKmovie movie, int medium, RKtrack* track);

KIV_API int rkGetTrackLength(RKtrack track); /* frames; -1 on failure */
KIV_API double rkGetImageRate(RKtrack track); /* frames per second; 0.0 on failure */
KIV_API int rkGetImageWidth(RKtrack track); /* pixels; -1 on failure */
KIV_API int rkGetImageHeight(RKtrack track); /* pixels; -1 on failure */
KIV_API int rkGetImageInterlacing(RKtrack track);

/* Bytes of frame `index` as JPEG; -1 outside [0, length), and for a frame that the
 * file does not hold whole. A frame of another codec is made by this call, and
 * kept for the read that follows. */
KIV_API int rkGetCompressedImageSize(RKtrack track, int index);
/* Upper bound over all frames, bytes; -1 on failure. The largest frame itself
 * where frames are JPEG; for other codecs 6 bytes a pixel, which no frame made
 * here exceeds. */
KIV_API int rkGetLargestCompressedImageSize(RKtrack track);
/* Reads at most `size` bytes of frame `index` as JPEG to `addr`. Frames that are
 * JPEG in the file come from it straight; others are decoded and encoded again,
 * at high quality, full range and the colour matrix of JPEG. After a failure the
 * bytes at `addr` mean nothing. */
KIV_API int rkReadCompressedImage(RKtrack track, int index, int size, void* addr);

typedef struct RKtrackInfo {
    char container[32]; /* short name of the file format */
    char codec[32]; /* short name of the image codec */
    char pixelFormat[32]; /* as the codec stores it, "" if unknown */
    int width, height; /* pixels */
    int rateNumerator, rateDenominator; /* frames per second */
    int frames;
    int jpeg; /* 1: frames are JPEG in the file and read without work */
    int interlacing; /* RK_INTERLACING_... */
    long long bytes; /* of the file */
    int cutShort; /* 1: an AVI or Matroska container that says it is longer than the file */
} RKtrackInfo;
KIV_API int rkGetTrackInfo(RKtrack track, RKtrackInfo* info);

KIV_C_END

#endif
