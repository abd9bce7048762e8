// drawingAreaTest.cpp - the drawing area: the visual it picks, and more than one of it.
#include <gtest/gtest.h>  // before X, whose macros it cannot stand

#include "window/glwDrawingArea.h"

#include <GL/gl.h>
#include <X11/Shell.h>
#include <X11/StringDefs.h>
#include <Xm/RowColumn.h>

#include "tests/support/capture.h"

namespace {

// A toolkit of its own with a shell that holds drawing areas side by side.
struct Toolkit {
    Toolkit()
    {
        XtToolkitThreadInitialize();
        XtToolkitInitialize();
        context = XtCreateApplicationContext();
        static char resources[] = "*deep*depthSize: 24";
        static String fallbacks[] = {resources, nullptr};
        XtAppSetFallbackResources(context, fallbacks);
        int argc = 0;
        display = XtOpenDisplay(context, nullptr, "areas", "Areas", nullptr, 0, &argc, nullptr);
        shell = XtVaAppCreateShell(nullptr, "Areas", topLevelShellWidgetClass, display, nullptr);
        row = XtVaCreateManagedWidget("row", xmRowColumnWidgetClass, shell, nullptr);
    }
    // The connection stays: Motif remembers fonts by its address, which another one may get.
    ~Toolkit() { XtDestroyWidget(shell); }

    XtAppContext context;
    Display* display;
    Widget shell, row;
};

XVisualInfo* visualOf(Widget area)
{
    XVisualInfo* visual = nullptr;
    XtVaGetValues(area, GLwNvisualInfo, &visual, nullptr);
    return visual;
}

int configOf(Display* display, XVisualInfo* visual, int attribute)
{
    int value = -1;
    glXGetConfig(display, visual, attribute, &value);
    return value;
}

TEST(DrawingArea, PicksAVisualForItsResourcesBeforeItIsRealised)
{
    Toolkit toolkit;
    const Widget plain = XtVaCreateManagedWidget("plain", glwMDrawingAreaWidgetClass, toolkit.row, nullptr);
    const Widget single
        = XtVaCreateManagedWidget("single", glwMDrawingAreaWidgetClass, toolkit.row, GLwNdoublebuffer, False, nullptr);
    const Widget deep = XtVaCreateManagedWidget("deep", glwMDrawingAreaWidgetClass, toolkit.row, nullptr);
    ASSERT_NE(visualOf(plain), nullptr);
    EXPECT_EQ(configOf(toolkit.display, visualOf(plain), GLX_RGBA), 1);
    EXPECT_EQ(configOf(toolkit.display, visualOf(plain), GLX_DOUBLEBUFFER), 1);
    EXPECT_GE(configOf(toolkit.display, visualOf(plain), GLX_DEPTH_SIZE), 8);
    EXPECT_EQ(configOf(toolkit.display, visualOf(single), GLX_DOUBLEBUFFER), 0);
    EXPECT_GE(configOf(toolkit.display, visualOf(deep), GLX_DEPTH_SIZE), 24);

    Dimension width = 0, height = 0;
    XtVaGetValues(plain, XtNwidth, &width, XtNheight, &height, nullptr);
    EXPECT_EQ(width, 100);
    EXPECT_EQ(height, 100);
}

// A visual of 32 bits is not the parent's: window, colormap and border must all fit it.
TEST(DrawingArea, TakesAVisualThatIsNotItsParents)
{
    Toolkit toolkit;
    XVisualInfo wanted = {};
    wanted.depth = 32;
    wanted.screen = DefaultScreen(toolkit.display);
    int count = 0;
    XVisualInfo* found = XGetVisualInfo(toolkit.display, VisualDepthMask | VisualScreenMask, &wanted, &count);
    XVisualInfo* deep = nullptr;
    for (int i = 0; i < count && deep == nullptr; ++i)
        if (configOf(toolkit.display, &found[i], GLX_USE_GL) == 1
            && configOf(toolkit.display, &found[i], GLX_RGBA) == 1)
            deep = &found[i];
    ASSERT_NE(deep, nullptr);
    const Widget area
        = XtVaCreateManagedWidget("area", glwMDrawingAreaWidgetClass, toolkit.row, GLwNvisualInfo, deep, nullptr);
    EXPECT_EQ(visualOf(area), deep);
    XtRealizeWidget(toolkit.shell);
    XWindowAttributes attributes;
    ASSERT_TRUE(XGetWindowAttributes(toolkit.display, XtWindow(area), &attributes));
    EXPECT_EQ(attributes.depth, 32);
    EXPECT_EQ(attributes.visual->visualid, deep->visualid);
    XtDestroyWidget(area);  // leaves the visual to its owner
    XFree(found);
}

TEST(DrawingArea, DrawsInEachOfSeveralWithAContextOfItsOwn)
{
    Toolkit toolkit;
    struct Init {
        int calls = 0;
        Window window = None;
    } init;
    char ginit[] = GLwNginitCallback;
    Widget areas[2];
    GLXContext contexts[2];
    for (Widget& area : areas)
        area = XtVaCreateManagedWidget("area", glwMDrawingAreaWidgetClass, toolkit.row, XtNwidth, 16, XtNheight, 8,
                                       nullptr);
    XtAddCallback(
        areas[0], ginit,
        [](Widget w, XtPointer to, XtPointer) {
            ++static_cast<Init*>(to)->calls;
            static_cast<Init*>(to)->window = XtWindow(w);
        },
        &init);
    XtRealizeWidget(toolkit.shell);
    EXPECT_EQ(init.calls, 1);
    EXPECT_EQ(init.window, XtWindow(areas[0]));

    for (int i = 0; i < 2; ++i) {
        contexts[i] = glXCreateContext(toolkit.display, visualOf(areas[i]), nullptr, True);
        GLwDrawingAreaMakeCurrent(areas[i], contexts[i]);
        EXPECT_EQ(glXGetCurrentDrawable(), XtWindow(areas[i]));
        glClearColor(i == 0 ? 1 : 0, 0, i == 0 ? 0 : 1, 1);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    for (int i = 0; i < 2; ++i) {
        GLwDrawingAreaMakeCurrent(areas[i], contexts[i]);
        unsigned char pixel[4] = {};
        glReadPixels(15, 7, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel);
        EXPECT_EQ(pixel[0], i == 0 ? 255 : 0);
        EXPECT_EQ(pixel[2], i == 0 ? 0 : 255);
    }
    glXMakeCurrent(toolkit.display, None, nullptr);
    for (GLXContext context : contexts)
        glXDestroyContext(toolkit.display, context);
}

}  // namespace
