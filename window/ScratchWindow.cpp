// ScratchWindow.cpp - see ScratchWindow.h.
#include "window/ScratchWindow.h"

#include <GL/gl.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/Frame.h>
#include <Xm/Protocols.h>
#include <Xm/Xm.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cassert>
#include <cstring>
#include <mutex>
#include <vector>

#include "core/kivUtil.h"
#include "platform/glx/internal.h"
#include "window/glwDrawingArea.h"
#include "window/serverLoss.h"

namespace {

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

void closeLoop(XtPointer appContext, int*, XtInputId*) { XtAppSetExitFlag(static_cast<XtAppContext>(appContext)); }

}  // namespace

// The loop does not look at flags while it waits, but at inputs: this is one, raised
// when the connection breaks. It stays with the application context.
struct Loss {
    int wakeFD;
    std::atomic<bool> lost{false};
};

static void serverGone(Display* display, void* loss)
{
    static_cast<Loss*>(loss)->lost = true;
    eventfd_write(static_cast<Loss*>(loss)->wakeFD, 1);
    kiv::glx::goOnWithout(display);
}

// A lost server ends the window's loop as closing the window does.
static Loss* endWithServer(XtAppContext appContext, Display* display)
{
    Loss* loss = new Loss{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    if (loss->wakeFD >= 0)
        XtAppAddInput(appContext, loss->wakeFD, reinterpret_cast<XtPointer>(XtInputReadMask), closeLoop, appContext);
    kiv::surviveServerLoss(display, serverGone, loss);
    return loss;
}

ScratchWindow* ScratchWindow::create(Display*, int width, int height, int* argc, char** argv)
{
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
    if (!openToolkit(argc, argv))
        return;
    if (!openWindow()) {
        kiv::forgetServer(XtDisplay(topLevel));
        XtDestroyApplicationContext(appCtx);  // and with it the connection and all widgets
        close(loss->wakeFD);
        delete loss;
        loss = nullptr;
        return;
    }
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
    loss = endWithServer(appCtx, display);

    // Closing the window ends eventLoop, never the process.
    topLevel
        = XtVaAppCreateShell(nullptr, className, applicationShellWidgetClass, display, XtNargc, int(command.size()),
                             XtNargv, command.data(), XmNdeleteResponse, XmDO_NOTHING, nullptr);
    XmAddWMProtocolCallback(topLevel, XInternAtom(display, "WM_DELETE_WINDOW", False), closeWindow, appCtx);
    return true;
}

bool scratchWindow::openWindow()
{
    Display* display = XtDisplay(topLevel);
    char frameName[] = "frame";
    frame = XmCreateFrame(topLevel, frameName, nullptr, 0);
    XtManageChild(frame);

    visInfo = glXChooseVisual(display, DefaultScreen(display), glAttribs);
    if (visInfo == nullptr) {
        kivPrintError("Scratch window - can't get visual\n");
        return false;
    }
    XFree(visInfo);  // it served only as a check: the drawing area picks its own

    glArea = XtVaCreateManagedWidget("glxwidget", glwMDrawingAreaWidgetClass, frame, GLwNrgba, True, GLwNdepthSize, 8,
                                     GLwNdoublebuffer, True, XtNwidth, winWidth, XtNheight, winHeight, nullptr);
    XtRealizeWidget(topLevel);
    XtVaGetValues(glArea, GLwNvisualInfo, &visInfo, nullptr);
    if (visInfo != nullptr)
        context = glXCreateContext(display, visInfo, nullptr, True);
    if (context == nullptr) {
        kivPrintError("Scratch window - can't get visual\n");
        return false;
    }
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
    if (windowValid && !XtAppGetExitFlag(appCtx))
        XtAppMainLoop(appCtx);
}

void scratchWindow::addInput(int fd, XtInputCallbackProc func, void* data)
{
    if (windowValid)
        inputs.emplace_back(fd, XtAppAddInput(appCtx, fd, reinterpret_cast<XtPointer>(XtInputReadMask), func, data));
}

int scratchWindow::isValid() { return windowValid; }

XtAppContext scratchWindow::getAppContext() { return windowValid ? appCtx : nullptr; }

Widget scratchWindow::getDrawingArea() { return windowValid ? glArea : nullptr; }

void scratchWindow::setTitle(const char* title)
{
    if (windowValid)
        XtVaSetValues(topLevel, XtNtitle, title, nullptr);
}

int scratchWindow::getEventFD() { return windowValid ? ConnectionNumber(XtDisplay(glArea)) : -1; }

bool scratchWindow::handleEvents()
{
    if (!windowValid)
        return false;
    constexpr XtInputMask mine = XtIMXEvent | XtIMTimer;
    while (!XtAppGetExitFlag(appCtx) && (XtAppPending(appCtx) & mine) != 0)
        XtAppProcessEvent(appCtx, mine);
    return !XtAppGetExitFlag(appCtx) && hasServer();
}

void scratchWindow::removeInput(int fd)
{
    std::erase_if(inputs, [fd](const auto& input) {
        if (input.first == fd)
            XtRemoveInput(input.second);
        return input.first == fd;
    });
}

void scratchWindow::endLoop()
{
    if (windowValid)
        XtAppSetExitFlag(appCtx);
}

bool scratchWindow::hasServer() { return loss != nullptr && !loss->lost; }
