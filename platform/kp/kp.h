/* kp.h - the video-device service: cameras and video outputs, real and built in.
 *
 * A server lists devices; a device has nodes: video jacks, and memory that
 * pictures go to or come from. A path joins a source to a drain: jack to memory
 * captures, memory to jack plays out. What happens on a path arrives as events.
 *
 * Thread-safe. `int` results are 0 or -1 unless said otherwise; the reason is in
 * kpGetErrno (a number) and zvGetError (words), both per thread. */
#ifndef KIV_PLATFORM_KP_H
#define KIV_PLATFORM_KP_H

#include "platform/zv/zv.h"

KIV_C_BEGIN

typedef struct KPServerRec* KPServer; /* 0 = none */

enum { KP_TYPE_SOURCE = 1, KP_TYPE_DRAIN = 2 };
enum { KP_KIND_VIDEO = 1, KP_KIND_MEMORY = 3, KP_KIND_DEVICE = 4 };
enum { KP_ANY = 0x10000000 }; /* any device, any number */
enum { KP_EVENTS_ALL = 0x1fffff }; /* event mask; taken as "all" although reasons run to 23 */
enum { KP_ERRNO_NO_EVENT = 34 }; /* kpGetErrno: a transfer runs, no event waits yet */

/* Controls of the memory node of a path. */
enum {
    KP_CONTROL_TIMING = 1, /* int */
    KP_CONTROL_SIZE = 4, /* xy, pixels; set before the pool is registered */
    KP_CONTROL_CAPTURE_TYPE = 6, /* int */
    KP_CONTROL_PACKING = 7, /* int, 22 = CbYCrY 4:2:2 */
    KP_CONTROL_FORMAT = 21, /* int */
    KP_CONTROL_ZOOM = 44, /* fraction; by cropping, as far as the device can */
    KP_CONTROL_CLASS4 = 64, /* int, accepted and ignored where it means nothing */
    KP_CONTROL_LAYOUT = 67, /* int */
    KP_CONTROL_CLASS4_MODE = 0x4D56000C, /* the same */
    /* Our own, from 0x4B560000 on. */
    KP_CONTROL_RATE = 0x4B560001, /* fraction, frames per second; 0/1 = free-running (built-in only) */
    KP_CONTROL_MEMORY_MODE = 0x4B560002 /* int, read only: KP_MEMORY_... in use */
};

/* Texts of built-in devices, for kpSetPathText after kpSetupPaths. */
#define KP_TEXT_CLIP "clip" /* clip: the file to play, a movie, .y4m or raw picture file */
#define KP_TEXT_RECORD "record" /* monitor: .y4m file to write what is shown to; "" = none */
#define KP_TEXT_FAULTS "faults" /* any of them: a fault script, see docs/devices.md */

/* How pictures meet the pool's buffers. */
enum {
    KP_MEMORY_NONE = 0, /* no pool is registered */
    KP_MEMORY_USERPTR = 1, /* the device writes the pool's buffers: no copy */
    KP_MEMORY_DMABUF = 2, /* the device's buffers shared with another device: no copy */
    KP_MEMORY_MMAP = 3, /* the driver's buffers, one copy */
    KP_MEMORY_CONVERT = 4, /* one pass that converts to 4:2:2 */
    KP_MEMORY_DIRECT = 5 /* a built-in device works on the pool's buffers */
};

typedef union KPControlValue {
    int intVal;
    struct {
        int numerator, denominator;
    } fractVal;
    struct {
        int x, y;
    } xyVal;
} KPControlValue;

typedef struct KPNodeDesc {
    int id; /* for kpCreatePath */
    const char* name; /* "<card> <jack> in" or "... out", unique */
    int type; /* KP_TYPE_... */
    int number; /* for kpGetNode; unique over devices and directions */
    int kind; /* KP_KIND_... */
} KPNodeDesc;

typedef struct KPDevDesc {
    const char* name;
    int numNodes;
    const KPNodeDesc* nodes;
} KPDevDesc;

typedef struct KPDevList {
    int numDevices;
    const KPDevDesc* devices; /* the server's; stands until it is closed */
} KPDevList;

/* Reasons of events. */
enum {
    KPStreamBusy = 2,
    KPStreamPreempted = 3,
    KPAdvanceMissed = 4,
    KPStreamAvailable = 5,
    KPSyncLost = 6, /* no frame for three periods while a buffer is queued */
    KPStreamStarted = 7,
    KPStreamStopped = 8,
    KPSequenceLost = 9, /* frames were lost: by the device, or because none took them */
    KPControlChanged = 10,
    KPTransferComplete = 11, /* a frame is in memory, or has been shown */
    KPTransferFailed = 12,
    KPEvenVerticalRetrace = 13,
    KPOddVerticalRetrace = 14,
    KPFrameVerticalRetrace = 15,
    KPDeviceEvent = 16, /* the device is gone; once */
    KPDefaultSource = 17,
    KPControlRangeChanged = 18,
    KPControlPreempted = 19,
    KPControlAvailable = 20,
    KPDefaultDrain = 21,
    KPStreamChanged = 22,
    KPTransferError = 23
};

typedef struct KPEvent {
    int reason;
    int path;
    long long count; /* frames lost, for KPSequenceLost */
    USTMSCpair stamp; /* of the frame */
    ZVbuffer buffer; /* the service's own until kpEventToZVBuffer hands it over */
} KPEvent;

/* Finds the devices. `name`: "" for everything; "builtin" for the built-in ones
 * only. Null when it cannot. */
KIV_API KPServer kpOpenVideo(const char* name);
KIV_API int kpCloseVideo(KPServer server);
KIV_API void kpPerror(const char* text); /* "<text><what went wrong>\n" to standard error */
KIV_API int kpGetErrno(void);
KIV_API int kpGetDeviceList(KPServer server, KPDevList* list); /* an empty list on failure */
/* What a jack can do: format, size and rate in words, one mode an index; null at the end. */
KIV_API const char* kpGetNodeMode(KPServer server, int node, int index);

/* A node's id, or -1: number of the other direction, or unknown. */
KIV_API int kpGetNode(KPServer server, int type, int kind, int number);
KIV_API int kpCreatePath(KPServer server, int device, int source, int drain); /* 1 or more; -1 */
/* Usages 2, 2 take the device for control and transfer; 0, 0 give it up. */
KIV_API int kpSetupPaths(KPServer server, int* paths, int count, int controlUsage, int streamUsage);
KIV_API int kpSelectEvents(KPServer server, int path, unsigned mask);
KIV_API int kpSetControl(KPServer server, int path, int node, int control, KPControlValue* value);
KIV_API int kpGetControl(KPServer server, int path, int node, int control, KPControlValue* value);
KIV_API int kpSetPathText(KPServer server, int path, const char* key, const char* text);
KIV_API int kpGetTransferSize(KPServer server, int path); /* bytes of a frame; -1 */

/* Writes (not adds) the path's own buffer count, and raises the size. */
KIV_API int kpZVPoolGetParams(KPServer server, int path, int node, ZVparams* params);
KIV_API int kpZVPoolRegister(KPServer server, int path, int node, ZVbufferpool pool);
KIV_API int kpBeginTransfer(KPServer server, int path, int count, void* descriptors);
/* Ends the transfer and waits for the device's thread; frames not taken are dropped. */
KIV_API int kpEndTransfer(KPServer server, int path);
KIV_API int kpDestroyPath(KPServer server, int path);

/* Readable exactly while an event waits, for the path's life. The path's own. */
KIV_API int kpPathGetFD(KPServer server, int path, int* fd);
/* Takes the next event; never blocks. -1 with KP_ERRNO_NO_EVENT only while a
 * transfer runs and the device lives; with another number when none can come. */
KIV_API int kpEventRecv(KPServer server, int path, KPEvent* event);
/* The frame of the last KPTransferComplete event received, once: the event's
 * reference becomes the caller's. One not fetched is dropped with the next. */
KIV_API int kpEventToZVBuffer(KPEvent* event, ZVbuffer* buffer);
/* Plays a frame out; attaches for the transfer. Never blocks. At most one frame
 * waits: a newer one takes its place. */
KIV_API int kpZVBufferSend(KPServer server, int path, ZVbuffer buffer);

/* The number that the built-in pattern carries, read from a CbYCrY picture, also
 * after compression; 0, or -1 when it is no such picture. At least 80 pixels wide. */
KIV_API int kpReadTestPicture(const void* cbycry, int width, int height, unsigned* number);

KIV_C_END

#endif
