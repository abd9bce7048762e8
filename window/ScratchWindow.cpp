// ScratchWindow.cpp - see ScratchWindow.h.
#include "window/ScratchWindow.h"

#include <GL/gl.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/Frame.h>
#include <Xm/Protocols.h>
#include <Xm/Xm.h>
#include <sys/eventfd.h>

#include <cassert>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/kivUtil.h"
#include "window/glwDrawingArea.h"
#include "window/serverLoss.h"

namespace {

Display* theDisplay = nullptr;  // the connection of the newest window

char fallbackSchemes[] = "*useSchemes: all";
char fallbackMode[] = "*qtnmode:True";
char fallbackWidth[] = "*glxwidget*width: 640";
char fallbackHeight[] = "*glxwidget*height: 480";
char fallbackShadow[] = "*frame*shadowType: SHADOW_IN";
String fallbackResources[] = {fallbackSchemes, fallbackMode, fallbackWidth, fallbackHeight, fallbackShadow, nullptr};

int glAttribs[] = {GLX_RGBA, None};

char className[] = "libkivScratchWindow";
// The toolkit's tables are per process: windows are made one at a time, on
// whichever threads they will live.
std::mutex toolkitLock;

void closeWindow(Widget, XtPointer appContext, XtPointer) { XtAppSetExitFlag(static_cast<XtAppContext>(appContext)); }

// On the thread that noticed. The loop does not look at flags while it waits, but at inputs.
void serverGone(Display*, void* wakeFD) { eventfd_write(int(reinterpret_cast<intptr_t>(wakeFD)), 1); }

void endLoop(XtPointer appContext, int*, XtInputId*) { XtAppSetExitFlag(static_cast<XtAppContext>(appContext)); }

// A lost server ends the window's loop as closing the window does. The descriptor
// stays open with the application context.
void endWithServer(XtAppContext appContext, Display* display)
{
    const int wakeFD = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFD < 0)
        return;
    XtAppAddInput(appContext, wakeFD, reinterpret_cast<XtPointer>(XtInputReadMask), endLoop, appContext);
    kiv::surviveServerLoss(display, serverGone, reinterpret_cast<void*>(intptr_t(wakeFD)));
}

}  // namespace

ScratchWindow* ScratchWindow::create(Display* display, int width, int height, int* argc, char** argv)
{
    theDisplay = display;
    scratchWindow* window = new scratchWindow(width, height, argc, argv);
    if (!window->isValid()) {
        delete window;
        return nullptr;
    }
    return window;
}

scratchWindow::scratchWindow(int width, int height, int* argc, char** argv) : winWidth(width), winHeight(height)
{
    assert(0 < width);
    assert(0 < height);

    std::lock_guard lock(toolkitLock);
    if (!openToolkit(argc, argv) || !openWindow())
        return;
    clear();
    windowValid = true;
}

// The steps of the toolkit's one call for opening an application, taken singly:
// the one call ends the process where there is no display.
bool scratchWindow::openToolkit(int* argc, char** argv)
{
    static const bool threads = XtToolkitThreadInitialize();
    (void)threads;
    XtToolkitInitialize();
    appCtx = XtCreateApplicationContext();
    XtAppSetFallbackResources(appCtx, fallbackResources);

    int none = 0;
    if (argc == nullptr || argv == nullptr)
        argc = &none;
    std::vector<char*> command(argv, argv + *argc);  // as it was before the toolkit took its options
    Display* display = XtOpenDisplay(appCtx, nullptr, nullptr, className, nullptr, 0, argc, argv);
    if (display == nullptr) {
        kivPrintError("Scratch window - can't open display '%s'\n", XDisplayName(nullptr));
        XtDestroyApplicationContext(appCtx);
        appCtx = nullptr;
        return false;
    }
    theDisplay = display;
    endWithServer(appCtx, display);

    // Closing the window ends eventLoop, never the process.
    topLevel
        = XtVaAppCreateShell(nullptr, className, applicationShellWidgetClass, display, XtNargc, int(command.size()),
                             XtNargv, command.data(), XmNdeleteResponse, XmDO_NOTHING, nullptr);
    XmAddWMProtocolCallback(topLevel, XInternAtom(display, "WM_DELETE_WINDOW", False), closeWindow, appCtx);
    return true;
}

bool scratchWindow::openWindow()
{
    char frameName[] = "frame";
    frame = XmCreateFrame(topLevel, frameName, nullptr, 0);
    XtManageChild(frame);

    visInfo = glXChooseVisual(theDisplay, DefaultScreen(theDisplay), glAttribs);
    if (visInfo == nullptr) {
        kivPrintError("Scratch window - can't get visual\n");
        return false;
    }
    XFree(visInfo);  // it served only as a check: the drawing area picks its own

    glArea = XtVaCreateManagedWidget("glxwidget", glwMDrawingAreaWidgetClass, frame, GLwNrgba, True, GLwNdepthSize, 8,
                                     GLwNdoublebuffer, True, XtNwidth, winWidth, XtNheight, winHeight, nullptr);
    XtRealizeWidget(topLevel);
    XtVaGetValues(glArea, GLwNvisualInfo, &visInfo, nullptr);
    context = glXCreateContext(theDisplay, visInfo, nullptr, True);
    setContext();
    return true;
}

void scratchWindow::clear()
{
    glLoadIdentity();
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glFlush();
    const char* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (extensions == nullptr || strstr(extensions, "GL_EXT_abgr") == nullptr)
        kivPrintOut("ABGR extension is not present.\n");
}

scratchWindow::~scratchWindow()
{
    if (context == nullptr)
        return;
    Display* display = XtDisplay(topLevel);
    glXMakeCurrent(display, None, nullptr);
    glXDestroyContext(display, context);
    XFlush(display);
}

void scratchWindow::setContext() { GLwDrawingAreaMakeCurrent(glArea, context); }

int scratchWindow::getWidth() { return winWidth; }

int scratchWindow::getHeight() { return winHeight; }

int scratchWindow::getBufferSize() { return winWidth * winHeight * 4; }

GLXContext scratchWindow::getContext() { return context; }

void scratchWindow::addGLCallback(char* name, XtCallbackProc func, void* data)
{
    if (windowValid)
        XtAddCallback(glArea, name, func, data);
}

void scratchWindow::eventLoop()
{
    if (windowValid)
        XtAppMainLoop(appCtx);
}

void scratchWindow::addInput(int fd, XtInputCallbackProc func, void* data)
{
    if (windowValid)
        XtAppAddInput(appCtx, fd, reinterpret_cast<XtPointer>(XtInputReadMask), func, data);
}

int scratchWindow::isValid() { return windowValid; }

XtAppContext scratchWindow::getAppContext() { return windowValid ? appCtx : nullptr; }

Widget scratchWindow::getDrawingArea() { return windowValid ? glArea : nullptr; }
