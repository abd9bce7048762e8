// association.cpp - the media buffer behind a pbuffer: its picture brought there and
// back. Nothing is copied before somebody reads or draws.
#include <algorithm>
#include <cstdio>

#include "platform/glx/contexts.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/pbuffer.h"
#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv::glx {

HeldPicture::HeldPicture(Pbuffer& pbuffer) : buffer_(pbuffer.buffer.load())
{
    if (buffer_ == nullptr || bufferAttach(buffer_) < 0)
        return;
    held_ = true;
    picture = {static_cast<uint8_t*>(bufferMapRaw(buffer_)), std::min(pbuffer.width, pbuffer.imageWidth),
               std::min(pbuffer.height, pbuffer.imageHeight), pbuffer.imageWidth * 4};
}

HeldPicture::~HeldPicture()
{
    if (held_)
        bufferFree(buffer_);
}

uint64_t thisThread()
{
    static constinit std::atomic<uint64_t> threads{0};
    thread_local const uint64_t number = ++threads;
    return number;
}

int bringPicture(Pbuffer& pbuffer)
{
    if (!pbuffer.uploadPending)
        return 0;
    pbuffer.uploadPending = false;
    const HeldPicture held(pbuffer);
    if (!held)
        return 0;  // it went back to its pool: there is no picture any more
    Porter* porter = porterFor(pbuffer.dpy, pbuffer.config);
    return porter != nullptr ? porter->upload(pbuffer.id, held.picture) : -1;
}

int bringDrawn(Pbuffer& pbuffer)
{
    const HeldPicture held(pbuffer);
    if (!held)
        return 0;
    if (!needAlive(pbuffer.dpy))
        return -1;
    Porter* porter = porterFor(pbuffer.dpy, pbuffer.config);
    ++pbuffer.version;
    return porter != nullptr ? porter->download(pbuffer.id, held.picture) : -1;
}

int writeBuffer(BufferWriter& self, ZVbuffer buffer, bool mapping)
{
    Pbuffer& pbuffer = static_cast<Pbuffer&>(self);
    if (pbuffer.buffer.load() != buffer || pbuffer.drawn.load() == Drawn::Nothing)
        return 0;
    const bool mine = pbuffer.drawer.load() == thisThread();
    if (!mine && (mapping || pbuffer.drawn.load() == Drawn::Settled))
        return 0;
    std::lock_guard guard(pbuffer.lock);
    if (pbuffer.buffer.load() != buffer || pbuffer.drawn.load() == Drawn::Nothing)
        return 0;
    if (!mine && pbuffer.bound) {
        fprintf(stderr, "glx: a buffer is wanted while another thread draws into it\n");
        return recordError(ZV_ERROR_STATE, "another thread draws into this buffer");
    }
    // Who maps while drawing goes on, sees what is there; the rest comes later.
    if (!mapping || !pbuffer.bound)
        pbuffer.drawn.store(Drawn::Nothing);
    return bringDrawn(pbuffer);
}

int beginDrawing(Pbuffer& pbuffer)
{
    std::lock_guard guard(pbuffer.lock);
    pbuffer.drawer.store(thisThread());
    pbuffer.bound = true;
    pbuffer.drawn.store(Drawn::Something);
    ++pbuffer.version;
    if (pbuffer.drawsAll)
        pbuffer.uploadPending = false;
    return bringPicture(pbuffer);
}

void endDrawing(Pbuffer& pbuffer)
{
    std::lock_guard guard(pbuffer.lock);
    if (!pbuffer.bound || pbuffer.drawer.load() != thisThread())
        return;
    if (pbuffer.drawn.load() == Drawn::Something)
        glFinish();  // any thread may fetch it from now on
    pbuffer.bound = false;
}

int syncCurrentDraw()
{
    Pbuffer* pbuffer = findPbuffer(glXGetCurrentDrawable(), glXGetCurrentDisplay());
    if (pbuffer == nullptr)
        return 0;
    std::lock_guard guard(pbuffer->lock);
    pbuffer->drawer.store(thisThread());
    pbuffer->drawn.store(Drawn::Settled);
    return bringDrawn(*pbuffer);
}

namespace {

// The size of the picture in the list; the pbuffer's own where it says none.
bool imageSize(const Pbuffer& pbuffer, const ZVparams* image, int* width, int* height)
{
    if (!paramsAlive(image))
        return false;
    const int packing = paramsGetEnum(image, ZV_IMAGE_PACKING);
    if (packing != 0 && packing != ZV_IMAGE_PACKING_RGBA && packing != ZV_IMAGE_PACKING_RGBX) {
        recordError(ZV_ERROR_UNSUPPORTED, "a pbuffer's picture is RGBA, not packing %d", packing);
        return false;
    }
    *width = paramsGetInt(image, ZV_IMAGE_WIDTH);
    *height = paramsGetInt(image, ZV_IMAGE_HEIGHT);
    if (*width <= 0 || *height <= 0) {
        *width = pbuffer.width;
        *height = pbuffer.height;
    }
    if (*width <= kivLimits()->imageWidth && *height <= kivLimits()->imageHeight)
        return true;
    recordError(ZV_ERROR_LIMIT, "a picture of %d x %d; imageWidth, imageHeight are %d, %d", *width, *height,
                kivLimits()->imageWidth, kivLimits()->imageHeight);
    return false;
}

bool hasRoom(ZVbuffer buffer, int width, int height)
{
    const int capacity = bufferCapacity(buffer);
    if (capacity >= (long long)width * height * 4)
        return true;
    if (capacity >= 0)
        recordError(ZV_ERROR_ARGUMENT, "%d bytes for a picture of %d x %d", capacity, width, height);
    return false;
}

int link(Pbuffer& pbuffer, int width, int height, ZVbuffer buffer)
{
    std::lock_guard guard(pbuffer.lock);
    if (bufferSetWriter(buffer, &pbuffer) < 0)
        return -1;
    pbuffer.imageWidth = width;
    pbuffer.imageHeight = height;
    pbuffer.uploadPending = true;
    pbuffer.drawn.store(Drawn::Nothing);
    pbuffer.buffer.store(buffer);
    ++pbuffer.version;
    return 0;
}

// Whoever draws or reads on this thread already goes on with the new picture.
int takeUp(Pbuffer& pbuffer)
{
    Display* dpy = glXGetCurrentDisplay();
    if (dpy == nullptr)
        return 0;
    if (glXGetCurrentDrawable() == pbuffer.id && dpy == pbuffer.dpy)
        return beginDrawing(pbuffer);
    if (!isReadHere(pbuffer))
        return 0;
    return readable(pbuffer, dpy, contextDepth(dpy, glXGetCurrentContext())) != None ? 0 : -1;
}

int associate(Display* dpy, GLXPbuffer id, const ZVparams* image, ZVbuffer buffer)
{
    Pbuffer* pbuffer = findPbuffer(id, dpy);  // none on a connection that was closed
    if (pbuffer == nullptr || pbuffer->dpy != dpy)
        return recordError(ZV_ERROR_HANDLE, "no pbuffer 0x%lx of this layer on that display", id);
    if (!needAlive(dpy))
        return -1;
    int width = 0;
    int height = 0;
    if (!imageSize(*pbuffer, image, &width, &height) || !hasRoom(buffer, pbuffer->width, pbuffer->height)
        || !hasRoom(buffer, width, height))
        return -1;
    if (pbuffer->drawn.load() == Drawn::Something)
        writeBuffer(*pbuffer, pbuffer->buffer.load(), false);
    if (bufferSync(buffer) < 0 || link(*pbuffer, width, height, buffer) < 0)
        return -1;
    return takeUp(*pbuffer);
}

}  // namespace

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// The thread that draws into the pbuffer, or any while nobody does. Copies nothing
// unless the pbuffer is current here.
extern "C" int glXAssociateZVPbufferQTNX(Display* dpy, GLXPbuffer pbuffer, ZVparams* image, ZVbuffer buffer)
{
    return associate(dpy, pbuffer, image, buffer) == 0;
}

// The thread that draws; blocks while the picture is copied.
extern "C" int glXSyncDrawQTN() { return syncCurrentDraw(); }

// Any thread, before the association that it is meant for.
extern "C" void glXDrawsAllQTN(Display* dpy, GLXPbuffer id, int drawsAll)
{
    Pbuffer* pbuffer = findPbuffer(id, dpy);
    if (pbuffer == nullptr) {
        recordError(ZV_ERROR_HANDLE, "no pbuffer 0x%lx of this layer", id);
        return;
    }
    std::lock_guard guard(pbuffer->lock);
    pbuffer->drawsAll = drawsAll != 0;
}
