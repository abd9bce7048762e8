/* thread.h - reader threads that end when they are asked to, and naps.
 *
 * A stop request is a flag and a wake descriptor: no signal is sent or handled,
 * nothing is cancelled. Every blocking call of the platform layer on that thread
 * returns early, and the thread's own code then ends it. Ids are positive, never
 * reused, and mean nothing to the system. Thread-safe. */
#ifndef KIV_PLATFORM_THREAD_H
#define KIV_PLATFORM_THREAD_H

#include "platform/api.h"

KIV_C_BEGIN

/* Starts a thread; its id, or -1. Signals are blocked on it, but for those that a
 * fault raises. Wait for it or not: what has ended is cleared away either way. */
KIV_API int threadStart(void (*entry)(void* arg), void* arg);
/* Asks a thread to end. `signal` must be 15. 0, also for a thread that has
 * ended already; -1 for another signal or an id never given. Does not wait. */
KIV_API int threadKill(int id, int signal);
/* Waits until the thread has ended; at once for one that has. `status`, if given,
 * gets what endThread was called with, 0 after a plain return; it is remembered for
 * the last 64 threads that ended, older ones read 0. Nothing of the thread is left
 * then. Any number of callers. -1 for an id never given, for a thread that waits
 * for itself, and on a layer thread that is asked to stop meanwhile. */
KIV_API int threadWait(int id, int* status);

/* On the thread itself: */
KIV_API int threadSelf(void);          /* its id; 0 on a thread that is not the layer's */
KIV_API int stopRequested(void);       /* 1 once a stop was asked for; 0 elsewhere */
/* A descriptor that is readable once a stop was asked for; -1 elsewhere. For poll() beside others. */
KIV_API int threadStopFD(void);
/* Ends this thread: does not return, destructors of its frames run. No noexcept
 * function may lie between, and a catch (...) there must rethrow. On a thread that
 * is not the layer's: returns -1. */
KIV_API int endThread(int status);

/* threadPoll: waits until `fd` is readable, ended or broken (read() tells which), at
 * most until `deadlineNs` on the clock of zvGetUST (0: no deadline; one in the past
 * only looks). fd < 0 waits for the deadline or the stop alone. EINTR is retried.
 * Anywhere; a stop request ends it only on a thread of the layer, and goes before
 * data. */
enum { THREAD_POLL_STOP = -2, THREAD_POLL_ERROR = -1, THREAD_POLL_TIMEOUT = 0, THREAD_POLL_READY = 1 };
KIV_API int threadPoll(int fd, unsigned long long deadlineNs);
KIV_API int threadPollWrite(int fd, unsigned long long deadlineNs); /* the same until writable */

/* Naps that many ticks of 1 ms (none for ticks < 1); a stop request ends the nap.
 * Returns 0, or -1 when a stop was asked for. */
KIV_API int qtnnap(int ticks);

KIV_C_END

#endif
