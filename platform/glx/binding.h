// binding.h - what is current on the calling thread.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

// Nothing is current on this thread afterwards.
void releaseCurrent();

// makeCurrent for an application's binding, which is remembered: False when GLX refuses.
bool bindHere(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context);
// glXDestroyPbuffer, once no thread has it bound any more: the rasteriser would go on
// in freed memory.
void destroyUnbound(Display* dpy, GLXPbuffer pbuffer);
// The connection closes, and its pbuffers go with it.
void forgetBindingsOn(Display* dpy);

}  // namespace kiv::glx
