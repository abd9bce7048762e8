// glSupport.h - what several GL nodes do alike. Not installed.
#pragma once

#include "core/kivObj.h"
#include "platform/glx/glxqtn.h"

namespace kiv {

// What is current on the calling thread, and on which connection: a context that is
// bound again on another connection than its own is lost to its owner.
struct GLBinding {
    static GLBinding current();
    // Draws and reads there again; `otherwise`: the connection when nothing was current.
    void restore(Display* otherwise) const;

    Display* dpy;
    GLXDrawable draw;
    GLXContext context;
};

// Describes a pool of `count` buffers for images as in `gfxParams`. The list is made
// anew, and the caller's. Returns 5, 6, 7 or 4, in the order of the steps.
int describeGLPool(const ZVparams* gfxParams, int count, ZVparams** poolParams);

// Makes it the node's pool in place of an earlier one. Prints a failure and returns 7.
int createGLPool(const ZVparams* poolParams, ZVbufferpool* pool);

// Bytes that there are at a buffer's data; 0 for no buffer.
int bytesAt(ZVbuffer buffer);

}  // namespace kiv
