// binding.cpp - contexts made current, with an eye on which pbuffer is drawn into.
#include "platform/glx/binding.h"

#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "platform/glx/contexts.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/pbuffer.h"
#include "platform/glx/xErrors.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

// What a thread has bound through this layer.
struct Binding {
    Binding();
    ~Binding();
    Display* dpy = nullptr;
    GLXDrawable draw = None, read = None;
    Binding* next = nullptr;
};

// A pbuffer that is to be destroyed.
struct Doomed {
    Display* dpy;
    GLXPbuffer id;
    Doomed* next;
};

constinit std::mutex bindingLock;  // guards all these; held for look-ups only
constinit Binding* bindings = nullptr;
constinit Doomed* doomed = nullptr;
constinit std::atomic<bool> anyDoomed{false};

Binding::Binding()
{
    std::lock_guard guard(bindingLock);
    next = bindings;
    bindings = this;
}

// The thread ends. A context that stayed current on it could be neither used nor
// destroyed, and its drawing never be fetched. At the end of the process all stays.
Binding::~Binding()
{
    Display* current = glXGetCurrentDisplay();
    if (gettid() != getpid() && current != nullptr && isKnown(current))
        releaseCurrent();
    std::lock_guard guard(bindingLock);
    Binding** place = &bindings;
    while (*place != this)
        place = &(*place)->next;
    *place = next;
}

bool isBound(const Doomed& entry)
{
    for (const Binding* binding = bindings; binding != nullptr; binding = binding->next)
        if (binding->dpy == entry.dpy && (binding->draw == entry.id || binding->read == entry.id))
            return true;
    return false;
}

// Takes them off the list; bindingLock is held.
template <class Which> Doomed* takeDoomed(Which which)
{
    Doomed* taken = nullptr;
    for (Doomed** place = &doomed; *place != nullptr;) {
        Doomed* entry = *place;
        if (!which(*entry)) {
            place = &entry->next;
            continue;
        }
        *place = entry->next;
        entry->next = taken;
        taken = entry;
    }
    anyDoomed.store(doomed != nullptr);
    return taken;
}

void destroyDoomed()
{
    Doomed* entry = nullptr;
    {
        std::lock_guard guard(bindingLock);
        entry = takeDoomed([](const Doomed& one) { return !isBound(one); });
    }
    while (entry != nullptr) {
        const std::unique_ptr<Doomed> done(entry);
        entry = done->next;
        if (isAlive(done->dpy))
            glXDestroyPbuffer(done->dpy, done->id);
    }
}

Pbuffer* currentPbuffer() { return findPbuffer(glXGetCurrentDrawable(), glXGetCurrentDisplay()); }

// What is current now is left for something else: its connection is remembered, and
// what it drew becomes anybody's.
void leave(const Pbuffer* next)
{
    noteCurrentContext();
    Pbuffer* pbuffer = currentPbuffer();
    if (pbuffer != nullptr && pbuffer != next)
        endDrawing(*pbuffer);
}

bool isCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    return glXGetCurrentContext() == context && glXGetCurrentDrawable() == draw && glXGetCurrentReadDrawable() == read
        && glXGetCurrentDisplay() == dpy;
}

// The connection on which the context lives; null, with an error recorded, when it
// cannot be used.
Display* connectionFor(Display* dpy, GLXContext context)
{
    Display* on = glXGetCurrentDisplay();
    if (glXGetCurrentContext() != context) {
        if (!isContext(context)) {
            recordError(ZV_ERROR_HANDLE, "no context %p", static_cast<void*>(context));
            return nullptr;
        }
        on = contextFacts(context, dpy).dpy;
    }
    return needAlive(on) ? on : nullptr;
}

// Windows and the like: GLX would take one that is gone, and err when it is used.
bool exists(Display* dpy, GLXDrawable drawable)
{
    if (drawable == glXGetCurrentDrawable() || drawable == glXGetCurrentReadDrawable())
        return true;
    const CatchXErrors errors(dpy);
    unsigned width = 0;
    glXQueryDrawable(dpy, drawable, GLX_WIDTH, &width);
    if (errors.caught())
        recordError(ZV_ERROR_HANDLE, "no drawable 0x%lx", drawable);
    return !errors.caught();
}

Bool bind(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    Display* on = connectionFor(dpy, context);
    if (on == nullptr)
        return False;
    Pbuffer* drawn = findPbuffer(draw, on);
    if (drawn != nullptr && drawn->dpy != on) {
        recordError(ZV_ERROR_ARGUMENT, "a pbuffer is drawn into on its own connection only");
        return False;
    }
    Pbuffer* seen = findPbuffer(read, dpy, on);
    GLXDrawable readHere = read;
    if (seen != nullptr && seen != drawn)
        readHere = readable(*seen, on, contextDepth(on, context));
    if (seen != nullptr && readHere == None)
        return False;
    if ((drawn == nullptr && !exists(on, draw)) || (seen == nullptr && read != draw && !exists(on, read)))
        return False;
    leave(drawn);
    if (drawn != nullptr && beginDrawing(*drawn) < 0)
        return False;
    if (isCurrent(on, draw, readHere, context))
        return True;
    if (bindHere(on, draw, readHere, context))
        return True;
    if (drawn != nullptr)
        endDrawing(*drawn);
    recordError(ZV_ERROR_SYSTEM, "GLX cannot make the context current");
    return False;
}

Bool bindOrRelease(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    const int given = (draw != None) + (read != None) + (context != nullptr);
    if (given == 3)
        return bind(dpy, draw, read, context);
    if (given != 0) {
        recordError(ZV_ERROR_ARGUMENT, "a context needs drawables, and drawables a context");
        return False;
    }
    releaseCurrent();
    return True;
}

}  // namespace

void releaseCurrent()
{
    leave(nullptr);
    if (Display* dpy = glXGetCurrentDisplay(); dpy != nullptr)
        bindHere(dpy, None, None, nullptr);
}

bool bindHere(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    const bool made = makeCurrent(dpy, draw, read, context);
    thread_local Binding here;
    {
        std::lock_guard guard(bindingLock);
        here.dpy = dpy;
        here.draw = made ? draw : None;
        here.read = made ? read : None;
    }
    if (anyDoomed.load())
        destroyDoomed();
    return made;
}

void destroyUnbound(Display* dpy, GLXPbuffer pbuffer)
{
    Doomed* entry = new (std::nothrow) Doomed{dpy, pbuffer, nullptr};
    if (entry == nullptr)
        return;  // the server frees it with the connection
    {
        std::lock_guard guard(bindingLock);
        entry->next = doomed;
        doomed = entry;
        anyDoomed.store(true);
    }
    destroyDoomed();
}

void forgetBindingsOn(Display* dpy)
{
    std::lock_guard guard(bindingLock);
    for (Binding* binding = bindings; binding != nullptr; binding = binding->next)
        if (binding->dpy == dpy)
            binding->draw = binding->read = None;
    Doomed* entry = takeDoomed([dpy](const Doomed& one) { return one.dpy == dpy; });
    while (entry != nullptr)
        entry = std::unique_ptr<Doomed>(entry)->next;
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// Both on the thread that will draw. They block while a picture is copied, where one is
// due.
extern "C" Bool glXMakeCurrentQTN(Display* dpy, GLXDrawable drawable, GLXContext context)
{
    return bindOrRelease(dpy, drawable, drawable, context);
}

extern "C" Bool glXMakeCurrentReadQTN(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context)
{
    return bindOrRelease(dpy, draw, read, context);
}

// The thread that draws. Pbuffers have no screen to go to.
extern "C" void glXSwapBuffersQTN(GLXDrawable drawable)
{
    Display* dpy = glXGetCurrentDisplay();
    const bool current = drawable != None && drawable == glXGetCurrentDrawable();
    if (current && isAlive(dpy) && currentPbuffer() == nullptr)
        glXSwapBuffers(dpy, drawable);
}
