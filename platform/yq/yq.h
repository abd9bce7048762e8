/* yq.h - counting semaphores in a shared arena file, some with a descriptor.
 *
 * Handles are generation-checked and never dereferenced by the caller. A null,
 * stale or foreign semaphore gives -1 from every call and changes nothing.
 * Thread-safe. */
#ifndef KIV_PLATFORM_YQ_H
#define KIV_PLATFORM_YQ_H

#include "platform/api.h"

KIV_C_BEGIN

typedef struct yqarenaRec* yqptr_t; /* an arena */
typedef struct yqsemaRec yqsema_t;  /* used as yqsema_t* */

/* Option 16 is the arena's file mode policy; every option is accepted and the
 * arena is always private (0600). Returns 0. */
KIV_API int yqconfig(int option, int value);
/* Makes (file empty) or joins the arena in `file`, a regular file that belongs to
 * this user and is open to nobody else. Null on failure. The arena lives as long as
 * the process; joining the same file again gives the same arena. The process that
 * made it removes the file at a normal exit; a forked child does not. */
KIV_API yqptr_t yqinit(const char* file);

/* An ordinary semaphore: shared by every process that joined the arena, under the
 * same handle. As many as the arena has bytes for (arenaBytes, 64 a semaphore);
 * null beyond that, on a full disk and for a negative count. A process that dies
 * keeps what it has taken, and locks nobody out of the arena. */
KIV_API yqsema_t* yqnewsema(yqptr_t arena, int count);
/* A polled semaphore: never blocks; value = count + Vs - Ps and may be negative.
 * Serves the process that made it; in a forked child its handle is stale. */
KIV_API yqsema_t* yqnewpollsema(yqptr_t arena, int count);
/* Its descriptor, readable exactly while some P has found it exhausted and the
 * value is 0 or more. The same one each time, `mode` means nothing; -1 on failure.
 * The semaphore owns it: only wait for it. */
KIV_API int yqopenpollsema(yqsema_t* sema, int mode);
/* Takes one. Ordinary: blocks; on a thread of the layer a stop request ends the
 * wait with -1 and nothing taken; what is there to be taken at once is taken, stop
 * or no stop. Polled: returns at once, the claim is queued. 0 on success. */
KIV_API int yqpsema(yqsema_t* sema);
KIV_API int yqvsema(yqsema_t* sema);    /* gives one; 0 on success */
KIV_API int yqtestsema(yqsema_t* sema); /* the signed value (waiters not counted); -1 for none */
/* Ends the semaphore and closes its descriptor; blocked callers of P get -1. */
KIV_API int yqfreesema(yqsema_t* sema, yqptr_t arena);

KIV_C_END

#endif
