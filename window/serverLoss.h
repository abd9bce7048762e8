// serverLoss.h - a lost X server ends a window's work, not the process.
#pragma once

#include <X11/Xlib.h>

namespace kiv {

// From now on, when the connection of `display` breaks, `gone` is called on the thread
// that noticed, and the process lives on; calls on that display then do nothing. All
// other displays are left to whoever handled them before. Thread-safe.
void surviveServerLoss(Display* display, XIOErrorExitHandler gone, void* data);

// The display was closed.
void forgetServer(Display* display);

}  // namespace kiv
