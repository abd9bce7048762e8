// connection.h - the X connections that the layer has seen.
#pragma once

#include <GL/glx.h>

#include <atomic>
#include <mutex>

#include "platform/glx/internal.h"

namespace kiv::glx {

class Porter;

// One connection, from first sight until XCloseDisplay. Thread-safe, but for closing
// the connection while others still use it.
struct Connection {
    Display* dpy = nullptr;
    std::atomic<bool> gone{false};  // the server has hung up
    bool survives = false;  // when its server goes, the process stays
    std::mutex lock;  // guards the list
    Porter* porters = nullptr;
    Connection* next = nullptr;  // guarded by the lock of all connections
};

// Makes it known if it is new; null without memory.
Connection* connectionOf(Display* dpy);

// Has the layer seen it, and is it not closed?
bool isKnown(Display* dpy);

// isAlive that records an error when it is not.
bool needAlive(Display* dpy);

// Guards the lists of the layer; held for look-ups only.
extern std::mutex listLock;

// Somebody closes `dpy`: whoever has something on it lets it go. Called once, while
// the connection can still be used; not under listLock.
void forgetContextsOn(Display* dpy);
void forgetPbuffersOn(Display* dpy);

}  // namespace kiv::glx
