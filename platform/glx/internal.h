// internal.h - the GL layer for the services and nodes of this library: hidden symbols.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

// Brings what the calling thread has drawn into its current pbuffer into the pbuffer's
// buffer, after which other threads may look at it. The pbuffer stays current: what is
// drawn next comes with the next sync. 0, also when no such pbuffer is current; or -1.
int syncCurrentDraw();

// A connection that is not known to be gone. Asks no server and never blocks, but sees
// a hang-up; the first to see it prints a line. Null is not alive.
bool isAlive(Display* dpy);

// For the exit handler of a connection that is lost, when the process goes on: puts
// Xlib's locks back to where the call that met the loss expects them.
void goOnWithout(Display* dpy);

}  // namespace kiv::glx
