// kivGLFBConfig.h - the frame-buffer configuration of the GL nodes, chosen and printed.
#pragma once

#include "platform/glx/glxqtn.h"

// Thread-safe where the connection is.

// Stores a configuration for windows and pbuffers whose sizes in bits are exactly
// these, the first that the layer lists. 0; 3001 with null stored when there is none,
// or no display.
KIV_API int setupFBConfig(Display* dpy, int red, int green, int blue, int alpha, GLXFBConfigQTNX* config);

// Prints 14 attributes to standard output, a line each. What cannot be read is
// reported on standard error, and the value before it printed again.
KIV_API void printFBConfig(Display* dpy, GLXFBConfigQTNX config);
