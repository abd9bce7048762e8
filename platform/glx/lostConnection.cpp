// lostConnection.cpp - Xlib's locks after a connection was lost.
#include <X11/Xlibint.h>
// Xlibint's words for the least and the most, which C++ has its own of.
#undef min
#undef max

#include "platform/glx/internal.h"

// Before it asks the exit handler, Xlib lets go of the connection's lock and takes the
// application's lock for the thread that is about to end the process. This one goes on:
// the caller will let go of the first once more, and others would wait for the second
// for ever.
void kiv::glx::goOnWithout(Display* dpy)
{
    XUnlockDisplay(dpy);
    LockDisplay(dpy);
}
