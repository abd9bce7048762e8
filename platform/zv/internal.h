// internal.h - the media-buffer service for the other services of this layer.
// Hidden twins of the public calls: the same code and the same contract, but
// not replaceable, so that a replaced public call is seen by applications and
// nodes alone.
#pragma once

#include <cstdint>

#include "platform/support/fd.h"
#include "platform/zv/zv.h"

namespace kiv {

uint64_t now();  // monotonic nanoseconds, the clock of all stamps

int paramsCreate(ZVparams** p);
int paramsDestroy(ZVparams* p);
// Sets every element of `from` in `into`, nested lists as deep copies; other
// elements of `into` stay. Nothing is set when it fails for a bad handle.
int paramsMerge(const ZVparams* from, ZVparams* into);
int paramsSetInt(ZVparams* p, const char* key, int value);
int paramsSetEnum(ZVparams* p, const char* key, int value);
int paramsSetFloat(ZVparams* p, const char* key, double value);
int paramsSetString(ZVparams* p, const char* key, const char* value);
bool paramsAlive(const ZVparams* p);  // records an error when not
int paramsGetInt(const ZVparams* p, const char* key);
int paramsGetEnum(const ZVparams* p, const char* key);
double paramsGetFloat(const ZVparams* p, const char* key);
const char* paramsGetString(const ZVparams* p, const char* key);
int paramsGetType(const ZVparams* p, const char* key);

int setImageDefaults(ZVparams* p, int width, int height, int packing);
int imageFrameSize(const ZVparams* p);
// Bytes of one frame, -1 when it does not fit an int or cannot be meant.
int frameBytes(int width, int height, int packing);
int setPoolDefaults(ZVparams* p, int count, int size, int cacheable, int mapped);

int poolCreate(const ZVparams* p, ZVbufferpool* pool);
int poolDestroy(ZVbufferpool pool);
int poolFd(ZVbufferpool pool);
int poolSetSelectSize(ZVbufferpool pool, int size);
int poolFree(ZVbufferpool pool);
int poolBuffers(ZVbufferpool pool);  // its buffers, free or not; -1 on failure

int bufferAllocate(ZVbufferpool pool, ZVbuffer* out);
int bufferAttach(ZVbuffer buffer);
int bufferFree(ZVbuffer buffer);
void* bufferMap(ZVbuffer buffer);
void* bufferMapRaw(ZVbuffer buffer);  // the same, without asking the writer: for the writer itself
int bufferSize(ZVbuffer buffer);
int bufferCapacity(ZVbuffer buffer);  // bytes that fit; -1 on failure
int bufferSetSize(ZVbuffer buffer, int size);
USTMSCpair bufferStamp(ZVbuffer buffer);
int bufferSetStamp(ZVbuffer buffer, USTMSCpair stamp);

// Somebody who keeps what belongs into a buffer elsewhere, and brings it there
// before others look. It holds no reference. Never freed: a thread may have just
// looked it up, so its maker keeps and reuses it.
struct BufferWriter {
    // Brings `buffer` up to date if it is still the one that this writer stands for,
    // else does nothing. Any thread that holds a reference. `mapping`: somebody only
    // maps the buffer, so only what this very thread drew is brought. 0 or -1.
    int (*write)(BufferWriter& self, ZVbuffer buffer, bool mapping);
};
// Null takes it away; a buffer that comes fresh from its pool has none.
int bufferSetWriter(ZVbuffer buffer, BufferWriter* writer);
int bufferSync(ZVbuffer buffer);
int bufferMemory(ZVbuffer buffer, int* fd, long long* offset, int* capacity);

// Puts the memory of a device in the place of a buffer's own until the pool goes, which
// then closes the descriptor. Only by somebody who holds the one reference. False with
// errno when it cannot be mapped; the buffer is as it was.
bool bufferLend(ZVbuffer buffer, UniqueFd memory);
int bufferLent(ZVbuffer buffer);  // the descriptor of the memory that was lent; -1 = the pool's own

}  // namespace kiv
