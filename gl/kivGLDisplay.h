// kivGLDisplay.h - shows every picture in a window.
#pragma once

#include "core/kivObj.h"
#include "platform/glx/glxqtn.h"

class ScratchWindow;

// Loop-bound: every operation runs on the thread that called setup. Set the image
// size, the zoom and the packing, then setup; receive draws. The window is brought to
// the screen after every second buffer, field by field or not: the second one is drawn
// a row lower. Window and connection stay when the node goes.
class KIV_API kivGLDisplay : public kivObj {
public:
    kivGLDisplay();
    ~kivGLDisplay() override;

    int addSrcConstraints(ZVparams* params) override;  // none
    int addDstConstraints(ZVparams* params) override;  // none
    int getFD() override;  // 0, none: fed through receive alone
    int handleEvents(fd_set fdSet) override;  // does nothing
    int receive(ZVbuffer buffer) override;
    int easyToAdd() override;  // 1

    int setup(int interlaced);  // 1: a buffer is a field, and the window twice as high

    int winSizeX, winSizeY;  // pixels, from setup
    int zoomX, zoomY;  // window pixels for one of the image's
    Display* xDisplay;  // the node's own connection
    XVisualInfo* xVisInfo;  // not set: the window has its own
    GLXContext glxCtx;  // the same
    Window win;  // the same
    int packing;  // of the buffers, as for glDrawPixelsQTN
    ScratchWindow* window;
    int field;  // which comes next: -1 the first of a frame, 0 the second
};
