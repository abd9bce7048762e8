/* limits.h - every number that the platform layer sets against one from outside. */
#ifndef KIV_PLATFORM_LIMITS_H
#define KIV_PLATFORM_LIMITS_H

#include "platform/api.h"

KIV_C_BEGIN

/* One struct for the process, with working defaults.  An application that wants
 * other limits writes them before it opens or creates anything; the layer reads
 * them without a lock.  An error about a limit names the field. */
typedef struct KivLimits {
    long long messageBytes;  /* largest message on a connection: 64 MiB */
    int imageWidth;          /* widest picture, pixels: 16384 */
    int imageHeight;         /* tallest picture, pixels: 16384 */
    long long poolBytes;     /* address space reserved by all pools together: 4 GiB */
    int poolBuffers;         /* buffers in one pool: 4096; never more than 65520 */
    int paramsElements;      /* elements in one parameter list: 4096 */
    long long arenaBytes;    /* address space of one semaphore arena: 64 MiB */
    int movieFrames;         /* frames in a movie's index: 16 Mi */
    long long frameBytes;    /* one compressed frame in a movie file: 64 MiB */
    int converterWorkers;    /* worker threads of one converter: 64 */
    int connectMs;           /* connecting to a peer, ms: 5000 */
    /* Deadlines in milliseconds; 0 leaves no time at all. */
    int sendMs;              /* something waits to be sent, and nothing is taken for that long: 10000 */
    int idleMs;              /* half a message and then silence: 2000 */
    int recvMs;              /* waiting for the rest of one message, all waits together: 60000 */
} KivLimits;

/* The limits in force; never null.  Thread-safe as long as nobody writes. */
KIV_API KivLimits* kivLimits(void);

KIV_C_END

#endif
