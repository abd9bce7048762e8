/* errors.h - error numbers of the platform services, as zvGetError gives them. */
#ifndef KIV_PLATFORM_ZV_ERRORS_H
#define KIV_PLATFORM_ZV_ERRORS_H

#define ZV_ERROR_DETAIL_MAX 256 /* bytes that a caller of zvGetError provides */

enum {
    ZV_ERROR_NONE = 0,
    ZV_ERROR_HANDLE = 1, /* a null, stale or foreign handle */
    ZV_ERROR_ARGUMENT = 2, /* a value that cannot be meant */
    ZV_ERROR_LIMIT = 3, /* over a field of KivLimits */
    ZV_ERROR_MEMORY = 4, /* no memory, no address space, no slot */
    ZV_ERROR_EMPTY = 5, /* no free buffer, nothing waiting */
    ZV_ERROR_SYSTEM = 6, /* a system call failed; the detail ends in its text */
    ZV_ERROR_UNSUPPORTED = 7, /* nothing here can do this */
    ZV_ERROR_DATA = 8, /* a file, a frame or a message is damaged */
    ZV_ERROR_STATE = 9, /* not now: not set up, already running, closed */
    ZV_ERROR_PEER = 10, /* the other side is gone or too slow */
    ZV_ERROR_STOPPED = 11 /* a stop request ended the wait */
};

#endif
