// config.h - choosing frame-buffer configurations.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

int configValue(Display* dpy, GLXFBConfig config, int attribute);  // -1 on failure

// As glXChooseFBConfigQTNX, on a connection that is alive.
GLXFBConfig* chooseConfigs(Display* dpy, int screen, const int* attributes, int* n);

// One for pbuffers of 8 bits a colour with just that depth size; null when there is none.
GLXFBConfig configWithDepth(Display* dpy, int screen, int depth);

}  // namespace kiv::glx
