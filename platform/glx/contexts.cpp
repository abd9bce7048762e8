// contexts.cpp - see contexts.h. A few contexts a process: a list under a lock.
#include "platform/glx/contexts.h"

#include <new>

#include "platform/glx/config.h"
#include "platform/glx/connection.h"

namespace kiv::glx {

namespace {

struct Entry {
    GLXContext context;
    XID id;  // never the same for two contexts of a connection
    ContextFacts facts;
    Entry* next;
};
constinit Entry* entries = nullptr;  // guarded by listLock

XID idOf(GLXContext context)
{
    using Function = XID (*)(GLXContext);
    static const Function get
        = reinterpret_cast<Function>(glXGetProcAddress(reinterpret_cast<const GLubyte*>("glXGetContextIDEXT")));
    return get != nullptr ? get(context) : None;
}

// listLock is held.
Entry* find(GLXContext context, XID id)
{
    for (Entry* entry = entries; entry != nullptr; entry = entry->next)
        if (entry->context == context)
            return entry->id == id ? entry : nullptr;
    return nullptr;
}

GLXFBConfig askConfig(Display* dpy, GLXContext context)
{
    int id = 0;
    int screen = 0;
    if (glXQueryContext(dpy, context, GLX_FBCONFIG_ID, &id) != 0
        || glXQueryContext(dpy, context, GLX_SCREEN, &screen) != 0)
        return nullptr;
    const int attributes[] = {GLX_FBCONFIG_ID, id, None};
    int n = 0;
    GLXFBConfig* found = glXChooseFBConfig(dpy, screen, attributes, &n);
    const GLXFBConfig config = n > 0 ? found[0] : nullptr;
    if (found != nullptr)
        XFree(found);
    return config;
}

template <class Dead> void removeIf(Dead dead)
{
    std::lock_guard guard(listLock);
    for (Entry** place = &entries; *place != nullptr;) {
        Entry* entry = *place;
        if (dead(*entry)) {
            *place = entry->next;
            delete entry;
        } else {
            place = &entry->next;
        }
    }
}

}  // namespace

bool isContext(GLXContext context) { return idOf(context) != None; }

ContextFacts contextFacts(GLXContext context, Display* otherwise)
{
    const XID id = idOf(context);
    std::lock_guard guard(listLock);
    const Entry* entry = find(context, id);
    return entry != nullptr ? entry->facts : ContextFacts{.dpy = otherwise};
}

void noteContext(GLXContext context, const ContextFacts& facts)
{
    connectionOf(facts.dpy);  // so that we hear when it closes
    const XID id = idOf(context);
    {
        std::lock_guard guard(listLock);
        if (Entry* entry = find(context, id); entry != nullptr) {
            entry->facts = facts;
            return;
        }
    }
    forgetContext(context);
    Entry* entry = new (std::nothrow) Entry{context, id, facts, nullptr};
    if (entry == nullptr)
        return;  // it is taken for one never seen
    std::lock_guard guard(listLock);
    entry->next = entries;
    entries = entry;
}

void forgetContext(GLXContext context)
{
    removeIf([context](const Entry& entry) { return entry.context == context; });
}

void forgetContextsOn(Display* dpy)
{
    removeIf([dpy](const Entry& entry) { return entry.facts.dpy == dpy; });
}

GLXFBConfig contextConfig(Display* dpy, GLXContext context)
{
    ContextFacts facts = contextFacts(context, dpy);
    if (facts.config != nullptr)
        return facts.config;
    facts.config = askConfig(dpy, context);
    if (facts.config != nullptr)
        noteContext(context, facts);
    return facts.config;
}

int contextDepth(Display* dpy, GLXContext context)
{
    const GLXFBConfig config = contextConfig(dpy, context);
    return config != nullptr ? configValue(dpy, config, GLX_DEPTH_SIZE) : -1;
}

void noteCurrentContext()
{
    const GLXContext context = glXGetCurrentContext();
    if (context == nullptr)
        return;
    Display* dpy = glXGetCurrentDisplay();
    ContextFacts facts = contextFacts(context, nullptr);
    if (facts.dpy == dpy)
        return;
    facts.dpy = dpy;
    noteContext(context, facts);
}

}  // namespace kiv::glx
