// contexts.h - what the layer remembers of each GL context.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

struct ContextFacts {
    Display* dpy;  // the connection where it lives
    GLXFBConfig config = nullptr;  // null = not asked yet
    bool interlaced = false;  // pixel drawing touches every other row
    bool fullRange = false;  // levels of 4:2:2 pictures
    unsigned program = 0;  // that draws interlaced; 0 = none yet
    unsigned textureName = 0;  // of its texture, which no application takes
    int textureWidth = 0, textureHeight = 0;
};

// Does GLX know it? Not what was destroyed, nor what lived on a connection closed since.
bool isContext(GLXContext context);
// The facts as they are now; those of a context never seen, on `otherwise`. A context
// that took a dead one's address is told from it.
ContextFacts contextFacts(GLXContext context, Display* otherwise);
// Keeps them, for a context on the connection that they name.
void noteContext(GLXContext context, const ContextFacts& facts);
void forgetContext(GLXContext context);
// Null when GLX does not tell.
GLXFBConfig contextConfig(Display* dpy, GLXContext context);
// Bits of its depth buffer; -1 when GLX does not tell.
int contextDepth(Display* dpy, GLXContext context);
// Remembers the connection of what is current on this thread.
void noteCurrentContext();

}  // namespace kiv::glx
