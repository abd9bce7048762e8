// kivGLDisplay.cpp - see kivGLDisplay.h.
#include "gl/kivGLDisplay.h"

#include <atomic>
#include <cstdlib>

#include "gl/glSupport.h"
#include "window/ScratchWindow.h"

namespace {

// Windows outlive their nodes. They stay reachable, for leak checkers.
struct Kept {
    ScratchWindow* window;
    Kept* next;
};
constinit std::atomic<Kept*> kept{nullptr};

void keep(ScratchWindow* window)
{
    Kept* entry = new Kept{window, kept.load()};
    while (!kept.compare_exchange_weak(entry->next, entry)) { }
}

}  // namespace

kivGLDisplay::kivGLDisplay()
    : winSizeX(0), winSizeY(0), zoomX(1), zoomY(1), xDisplay(nullptr), xVisInfo(nullptr), glxCtx(nullptr), win(0),
      packing(GL_RGBA), window(nullptr), field(-1)
{
}

kivGLDisplay::~kivGLDisplay() = default;

int kivGLDisplay::addSrcConstraints(ZVparams*) { return kivErrNone; }

int kivGLDisplay::addDstConstraints(ZVparams*) { return kivErrNone; }

// Opens connection and window, both on the default display. Ends the process with
// status 1 where there is none. Returns 1 without a window.
int kivGLDisplay::setup(int interlaced)
{
    winSizeX = imageSizeX * zoomX;
    winSizeY = imageSizeY * zoomY * (interlaced ? 2 : 1);
    xDisplay = glXOpenDisplayQTN(nullptr);
    if (xDisplay == nullptr) {
        kivPrintError("XOpenDisplay failed\n");
        exit(1);
    }
    int argc = 0;
    window = ScratchWindow::create(xDisplay, winSizeX, winSizeY, &argc, nullptr);
    if (window == nullptr) {
        kivPrintError("Unable to create window for kivGLdisplay\n");
        return kivErrGeneric;
    }
    keep(window);
    if (interlaced)
        glEnableQTN(GL_INTERLACE_QTN);
    glViewport(0, 0, winSizeX, winSizeY);
    glOrtho(0, winSizeX, 0, winSizeY, -1, 1);
    glPixelZoom(float(zoomX), float(-zoomY));  // top row first, downwards
    field = -1;
    return kivErrNone;
}

int kivGLDisplay::getFD() { return 0; }

int kivGLDisplay::handleEvents(fd_set) { return kivErrNone; }

// Draws one picture or field; the second of each pair brings the window to the
// screen. Keeps no reference. A buffer with less than the picture needs is not drawn.
// Returns 1 for a bad buffer, without a window, and once the X server is gone.
int kivGLDisplay::receive(ZVbuffer inBuffer)
{
    const void* data = zvBufferMapData(inBuffer);
    if (data == nullptr) {
        kivPrintError("BAD BUFFER!!!\n");
        return kivErrGeneric;
    }
    if (window == nullptr || !glXDisplayAliveQTN(xDisplay))
        return kivErrGeneric;
    window->setContext();
    const bool second = field == 0;
    glRasterPos2i(0, winSizeY);
    if (second)
        glBitmap(0, 0, 0, 0, 0, -1, nullptr);  // one row down
    glDrawPixelsQTN(imageSizeX, imageSizeY, GLenum(packing), data, kiv::bytesAt(inBuffer));
    if (second)
        glXSwapBuffersQTN(glXGetCurrentDrawable());
    field = second ? -1 : 0;
    return kivErrNone;
}

int kivGLDisplay::easyToAdd() { return 1; }
