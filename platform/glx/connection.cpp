// connection.cpp - connections: opened, watched, and let go when they close.
#include "platform/glx/connection.h"

#include <X11/Xlib.h>
#include <X11/Xlibint.h>
#undef min
#undef max
#include <poll.h>

#include <cstdio>
#include <new>

#include "platform/glx/binding.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/porter.h"
#include "platform/support/error.h"

namespace kiv::glx {

constinit std::mutex listLock;

namespace {

constinit Connection* connections = nullptr;  // guarded by listLock

void markGone(Connection& connection)
{
    if (!connection.gone.exchange(true))
        fprintf(stderr, "X server %s is gone\n", DisplayString(connection.dpy));
}

Connection* findConnection(Display* dpy)
{
    std::lock_guard guard(listLock);
    Connection* found = connections;
    while (found != nullptr && found->dpy != dpy)
        found = found->next;
    return found;
}

XIOErrorHandler otherHandler = nullptr;  // what others get whose server dies

// What XCloseDisplay is closing on this thread, when its server's end is no end of the
// process: it asks once more after we let it go.
constinit thread_local Display* closing = nullptr;

// Xlib has one of these for all connections; ours go on, others end as they did.
int onIOError(Display* dpy)
{
    Connection* connection = findConnection(dpy);
    if (connection == nullptr && dpy == closing)
        return 0;
    if (connection == nullptr || !connection->survives)
        return otherHandler(dpy);
    markGone(*connection);
    return 0;
}

// Where the process would end otherwise. What is called on the connection afterwards
// does nothing.
void afterIOError(Display* dpy, void*) { goOnWithout(dpy); }

bool prepareXlib()
{
    XInitThreads();
    otherHandler = XSetIOErrorHandler(onIOError);
    return true;
}

Connection* unlink(Display* dpy)
{
    std::lock_guard guard(listLock);
    for (Connection** place = &connections; *place != nullptr; place = &(*place)->next) {
        if ((*place)->dpy != dpy)
            continue;
        Connection* found = *place;
        *place = found->next;
        return found;
    }
    return nullptr;
}

// Runs within XCloseDisplay, before GLX lets go of the connection.
int onClose(Display* dpy, XExtCodes*)
{
    forgetPbuffersOn(dpy);
    forgetContextsOn(dpy);
    forgetBindingsOn(dpy);
    if (Connection* connection = findConnection(dpy); connection != nullptr) {
        destroyPorters(*connection);
        closing = connection->survives ? dpy : nullptr;
    }
    delete unlink(dpy);
    return 0;
}

bool hungUp(Display* dpy)
{
    pollfd fd = {ConnectionNumber(dpy), 0, 0};
    return poll(&fd, 1, 0) == 1 && (fd.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

bool isKnown(Display* dpy) { return findConnection(dpy) != nullptr; }

Connection* connectionOf(Display* dpy)
{
    if (Connection* known = findConnection(dpy); known != nullptr)
        return known;
    Connection* made = new (std::nothrow) Connection;
    if (made == nullptr) {
        recordError(ZV_ERROR_MEMORY, "no memory for an X connection");
        return nullptr;
    }
    made->dpy = dpy;
    if (closing == dpy)
        closing = nullptr;  // that one is closed, and this one has its address
    glXQueryExtensionsString(dpy, DefaultScreen(dpy));  // GLX meets the connection before us, so it leaves after us
    if (XExtCodes* codes = XAddExtension(dpy); codes != nullptr)
        XESetCloseDisplay(dpy, codes->extension, onClose);
    std::lock_guard guard(listLock);
    made->next = connections;
    connections = made;
    return made;
}

bool isAlive(Display* dpy)
{
    if (dpy == nullptr)
        return false;
    Connection* connection = findConnection(dpy);
    if (connection != nullptr && connection->gone.load(std::memory_order_relaxed))
        return false;
    if (!hungUp(dpy))
        return true;
    if (connection == nullptr)
        connection = connectionOf(dpy);
    if (connection != nullptr)
        markGone(*connection);
    return false;
}

bool needAlive(Display* dpy)
{
    if (isAlive(dpy))
        return true;
    recordError(ZV_ERROR_PEER, dpy == nullptr ? "no X display" : "the X server is gone");
    return false;
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// Any thread; blocks for the server's answer. The caller closes it with XCloseDisplay.
extern "C" Display* glXOpenDisplayQTN(const char* name)
{
    static const bool prepared = prepareXlib();
    (void)prepared;
    Display* dpy = XOpenDisplay(name);
    if (dpy == nullptr) {
        recordError(ZV_ERROR_PEER, "no X server answers at '%s'", XDisplayName(name));
        return nullptr;
    }
    Connection* connection = connectionOf(dpy);
    if (connection == nullptr) {
        XCloseDisplay(dpy);
        return nullptr;
    }
    connection->survives = true;
    XSetIOErrorExitHandler(dpy, afterIOError, nullptr);
    return dpy;
}

// Any thread, never blocks.
extern "C" int glXDisplayAliveQTN(Display* dpy) { return isAlive(dpy); }
