// pbuffer.cpp - pbuffers made, found and destroyed, and their shadows.
#include "platform/glx/pbuffer.h"

#include <new>

#include "platform/glx/binding.h"
#include "platform/glx/config.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/xErrors.h"
#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

constinit Pbuffer* pbuffers = nullptr;  // guarded by listLock; entries stay

constexpr int maxAttributes = 32;

// The caller's list without what only this layer knows, and with the size.
bool pbufferAttributes(const int* attributes, unsigned width, unsigned height, int* out)
{
    int n = 0;
    for (int i = 0; attributes != nullptr && attributes[i] != None; i += 2) {
        const int attribute = attributes[i];
        if (attribute == GLX_ZV_BUFFER_QTN || attribute == GLX_PBUFFER_WIDTH || attribute == GLX_PBUFFER_HEIGHT)
            continue;
        if (n + 8 > maxAttributes) {
            recordError(ZV_ERROR_ARGUMENT, "more than %d pbuffer attributes", maxAttributes / 2 - 3);
            return false;
        }
        out[n++] = attribute;
        out[n++] = attributes[i + 1];
    }
    out[n++] = GLX_PBUFFER_WIDTH;
    out[n++] = int(width);
    out[n++] = GLX_PBUFFER_HEIGHT;
    out[n++] = int(height);
    out[n] = None;
    return true;
}

// More than the server takes would end the process.
bool sizeFits(Display* dpy, GLXFBConfig config, unsigned width, unsigned height)
{
    if (width == 0 || height == 0 || width > unsigned(kivLimits()->imageWidth)
        || height > unsigned(kivLimits()->imageHeight)) {
        recordError(ZV_ERROR_LIMIT, "a pbuffer of %u x %u; imageWidth, imageHeight are %d, %d", width, height,
                    kivLimits()->imageWidth, kivLimits()->imageHeight);
        return false;
    }
    const int maxWidth = configValue(dpy, config, GLX_MAX_PBUFFER_WIDTH);
    const int maxHeight = configValue(dpy, config, GLX_MAX_PBUFFER_HEIGHT);
    if (int(width) <= maxWidth && int(height) <= maxHeight)
        return true;
    recordError(ZV_ERROR_UNSUPPORTED, "a pbuffer of %u x %u; the server has %d x %d", width, height, maxWidth,
                maxHeight);
    return false;
}

constexpr GLXPbuffer taken = ~GLXPbuffer(0);  // an entry that is being filled

// One that nobody uses, taken.
Pbuffer* takeEntry()
{
    std::lock_guard guard(listLock);
    for (Pbuffer* entry = pbuffers; entry != nullptr; entry = entry->next) {
        if (entry->id.load() != None)
            continue;
        entry->id.store(taken);
        return entry;
    }
    Pbuffer* made = new (std::nothrow) Pbuffer;
    if (made == nullptr)
        return nullptr;
    made->write = writeBuffer;
    made->id.store(taken);
    made->next = pbuffers;
    pbuffers = made;
    return made;
}

bool enterPbuffer(Display* dpy, GLXFBConfig config, int width, int height, GLXPbuffer id)
{
    Pbuffer* entry = takeEntry();
    if (entry == nullptr)
        return false;
    std::lock_guard guard(entry->lock);
    entry->dpy = dpy;
    entry->config = config;
    entry->depth = configValue(dpy, config, GLX_DEPTH_SIZE);
    entry->width = width;
    entry->height = height;
    entry->bound = entry->uploadPending = entry->drawsAll = false;
    entry->id.store(id);
    return true;
}

// The entry is free to be used again; GLX's pbuffer stands. Its lock is held.
void retire(Pbuffer& pbuffer)
{
    pbuffer.buffer.store(nullptr);
    pbuffer.drawn.store(Drawn::Nothing);
    dropShadows(pbuffer);
    pbuffer.id.store(None);
}

bool isOn(Pbuffer& pbuffer, Display* dpy)
{
    std::lock_guard guard(pbuffer.lock);
    const GLXPbuffer id = pbuffer.id.load();
    return id != None && id != taken && pbuffer.dpy == dpy;  // a taken one is somebody else's
}

// Reads from where it draws, on this thread; nothing is current when that ends too.
void stopReading(Pbuffer& pbuffer)
{
    Display* dpy = glXGetCurrentDisplay();
    if (dpy == nullptr)
        return;
    const GLXDrawable draw = glXGetCurrentDrawable();
    if (draw == pbuffer.id && dpy == pbuffer.dpy)
        releaseCurrent();
    else if (isReadHere(pbuffer))
        bindHere(dpy, draw, draw, glXGetCurrentContext());
}

}  // namespace

Pbuffer* findPbuffer(GLXDrawable id, Display* dpy, Display* otherwise)
{
    if (id == None || id == taken)
        return nullptr;
    std::lock_guard guard(listLock);
    Pbuffer* found = nullptr;
    for (Pbuffer* entry = pbuffers; entry != nullptr; entry = entry->next) {
        if (entry->id.load() != id)
            continue;
        if (entry->dpy == dpy)
            return entry;
        if (found == nullptr || entry->dpy == otherwise)
            found = entry;
    }
    return found;
}

void forgetPbuffersOn(Display* dpy)
{
    Pbuffer* entry = nullptr;
    {
        std::lock_guard guard(listLock);
        entry = pbuffers;
    }
    for (; entry != nullptr; entry = entry->next) {  // entries stay, and new ones are not ours
        const bool closes = isOn(*entry, dpy);
        if (closes)
            stopReading(*entry);
        std::lock_guard guard(entry->lock);
        if (closes)
            retire(*entry);
        else
            dropShadows(*entry, dpy);
    }
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// Any thread. Its pixels are undefined until something is drawn or associated.
extern "C" GLXPbuffer glXCreateGLXPbufferQTNX(Display* dpy, GLXFBConfigQTNX config, unsigned width, unsigned height,
                                              int* attribs)
{
    int list[maxAttributes];
    if (!needAlive(dpy) || connectionOf(dpy) == nullptr)
        return None;
    if (config == nullptr) {
        recordError(ZV_ERROR_ARGUMENT, "a pbuffer without a configuration");
        return None;
    }
    if (!sizeFits(dpy, config, width, height) || !pbufferAttributes(attribs, width, height, list))
        return None;
    const GLXPbuffer id = createPbuffer(dpy, config, list);
    if (id == None) {
        recordError(ZV_ERROR_SYSTEM, "GLX gives no pbuffer");
    } else if (!enterPbuffer(dpy, config, int(width), int(height), id)) {
        recordError(ZV_ERROR_MEMORY, "no memory for a pbuffer");
        glXDestroyPbuffer(dpy, id);
        return None;
    }
    return id;
}

// Any thread; on the one that draws or reads there it is not current afterwards.
extern "C" void glXDestroyGLXPbufferQTNX(Display* dpy, GLXPbuffer id)
{
    Pbuffer* pbuffer = findPbuffer(id, dpy);
    if (pbuffer == nullptr || pbuffer->dpy != dpy) {
        recordError(ZV_ERROR_HANDLE, "no pbuffer 0x%lx of this layer on that display", id);
        return;
    }
    stopReading(*pbuffer);
    {
        std::lock_guard guard(pbuffer->lock);
        retire(*pbuffer);
    }
    destroyUnbound(dpy, id);
}
