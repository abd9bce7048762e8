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

/* Where a movie is drawn, in pixels of the GL drawable: columns x0 to x1 from the
 * left, rows y0 to y1 with the picture's top row at y0. Row 0 is GL's row 0, which is
 * the first row in the memory of an associated buffer. */
typedef struct RKrect {
    float x0, y0, x1, y1;
} RKrect;
/* Copies the rectangle, for this and all later drawing; null: the size of the picture,
 * at 0, 0, which also holds before the first call. Any thread. */
KIV_API int rkSetMovieRect(RKmovie movie, const struct RKrect* rectangle);
/* Draws the frame that is shown at `time`, in units of 1/timeScale seconds, into the
 * current drawable, and brings the result into the buffer that is associated with it.
 * A time up to 1 us before a frame is that frame's, so that a frame's own time, cut to
 * whole units, leads to it; times outside the movie are those of its ends. GL's state
 * is as before, and no GL error is left. Blocks on the file and the decoder. On the
 * thread where the context is current; -1 when none is, or when the frame cannot be
 * decoded, and then nothing is drawn. */
KIV_API int rkRenderMovieToOpenGL(RKmovie movie, long long time, int timeScale);

KIV_C_END

#endif
