// ScratchWindow.h - a ready-made OpenGL window in a Motif frame.
#pragma once

#include <GL/glx.h>
#include <X11/Intrinsic.h>

#include <utility>
#include <vector>

#include "platform/api.h"

// Loop-bound: everything runs on the thread that created the window.
class KIV_API ScratchWindow {
public:
    // Opens the default display (`display` is not used), a window of that many pixels
    // and a direct context, made current and cleared to black. Options that the toolkit
    // knows are taken out of argc/argv; argc may be null. Null, with one line on standard
    // error, when there is no display or no visual.
    static ScratchWindow* create(Display* display, int width, int height, int* argc, char** argv);

    virtual ~ScratchWindow() = default;

    virtual void setContext() = 0;  // makes the window's context current
    virtual int getWidth() = 0;  // pixels, as requested
    virtual int getHeight() = 0;
    virtual int getBufferSize() = 0;  // bytes of the window as 32-bit pixels
    virtual GLXContext getContext() = 0;
    // `name`: a callback resource of the drawing area ("exposeCallback", ...).
    virtual void addGLCallback(char* name, XtCallbackProc func, void* data) = 0;
    virtual void eventLoop() = 0;  // returns when the window is closed
    virtual void addInput(int fd, XtInputCallbackProc func, void* data) = 0;  // func when fd is readable
};

// The only implementation. Widgets and application context stay until the process ends.
class KIV_API scratchWindow : public ScratchWindow {
public:
    scratchWindow(int width, int height, int* argc, char** argv);
    ~scratchWindow() override;

    void setContext() override;
    int getWidth() override;
    int getHeight() override;
    int getBufferSize() override;
    GLXContext getContext() override;
    void addGLCallback(char* name, XtCallbackProc func, void* data) override;
    void eventLoop() override;
    void addInput(int fd, XtInputCallbackProc func, void* data) override;

    int isValid();
    XtAppContext getAppContext();  // for an application's own timers; null when not valid
    Widget getDrawingArea();  // null when not valid
    void setTitle(const char* title);  // for the window's frame

    // For a loop of the application's own, in place of eventLoop.
    int getEventFD();  // readable when events have come; -1 when not valid
    // Handles the window's events and timers that have come, without waiting; inputs are
    // the business of such a loop. Events may also have come while something
    // was drawn or asked: such a loop calls this after each of its passes. False once the
    // window is closed or its server is gone.
    bool handleEvents();
    void removeInput(int fd);  // all that addInput has added for it
    void endLoop();  // as closing the window does
    bool hasServer();  // false: the X server is gone, or there never was one

private:
    bool openToolkit(int* argc, char** argv);
    bool openWindow();
    void clear();

    bool windowValid = false;
    int winWidth, winHeight;  // pixels
    GLXContext context = nullptr;
    XtAppContext appCtx = nullptr;
    XVisualInfo* visInfo = nullptr;  // the drawing area's own
    Widget topLevel = nullptr;
    Widget frame = nullptr;
    Widget glArea = nullptr;
    std::vector<std::pair<int, XtInputId>> inputs;
    struct Loss* loss = nullptr;  // what happens when the server goes; stays with the widgets
};
