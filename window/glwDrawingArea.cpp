// glwDrawingArea.cpp - the drawing area's class record and methods.
#include "window/glwDrawingArea.h"

#include <X11/IntrinsicP.h>
#include <X11/StringDefs.h>
#include <Xm/PrimitiveP.h>
#include <Xm/XmP.h>

#include <cstddef>
#include <initializer_list>

#include "platform/glx/glxqtn.h"

namespace {

struct DrawingAreaPart {
    Boolean rgba;
    int depthSize;
    Boolean doublebuffer;
    XVisualInfo* visualInfo;
    Boolean ownsVisualInfo;
    Boolean ownsColormap;
    XtCallbackList ginitCallback;
    XtCallbackList exposeCallback;
    XtCallbackList resizeCallback;
    XtCallbackList inputCallback;
};

struct DrawingAreaRec {
    CorePart core;
    XmPrimitivePart primitive;
    DrawingAreaPart area;
};

struct DrawingAreaClassPart {
    XtPointer extension;
};

struct DrawingAreaClassRec {
    CoreClassPart core_class;
    XmPrimitiveClassPart primitive_class;
    DrawingAreaClassPart area_class;
};

DrawingAreaRec* areaOf(Widget widget) { return reinterpret_cast<DrawingAreaRec*>(widget); }

#define AREA_OFFSET(field) XtOffsetOf(DrawingAreaRec, area.field)

char rgbaName[] = GLwNrgba, rgbaClass[] = "Rgba";
char depthName[] = GLwNdepthSize, depthClass[] = "DepthSize";
char doubleName[] = GLwNdoublebuffer, doubleClass[] = "Doublebuffer";
char visualName[] = GLwNvisualInfo, visualClass[] = "VisualInfo";
char ginitName[] = GLwNginitCallback, exposeName[] = GLwNexposeCallback;
char resizeName[] = GLwNresizeCallback, inputName[] = GLwNinputCallback;
XtPointer immediate(long value) { return reinterpret_cast<XtPointer>(value); }

XtResource resources[] = {
    {rgbaName, rgbaClass, XtRBoolean, sizeof(Boolean), AREA_OFFSET(rgba), XtRImmediate, immediate(True)},
    {depthName, depthClass, XtRInt, sizeof(int), AREA_OFFSET(depthSize), XtRImmediate, immediate(8)},
    {doubleName, doubleClass, XtRBoolean, sizeof(Boolean), AREA_OFFSET(doublebuffer), XtRImmediate, immediate(True)},
    {visualName, visualClass, XtRPointer, sizeof(XtPointer), AREA_OFFSET(visualInfo), XtRImmediate, nullptr},
    {ginitName, XtCCallback, XtRCallback, sizeof(XtPointer), AREA_OFFSET(ginitCallback), XtRCallback, nullptr},
    {exposeName, XtCCallback, XtRCallback, sizeof(XtPointer), AREA_OFFSET(exposeCallback), XtRCallback, nullptr},
    {resizeName, XtCCallback, XtRCallback, sizeof(XtPointer), AREA_OFFSET(resizeCallback), XtRCallback, nullptr},
    {inputName, XtCCallback, XtRCallback, sizeof(XtPointer), AREA_OFFSET(inputCallback), XtRCallback, nullptr},
};

void callBack(Widget widget, XtCallbackList list, int reason, XEvent* event)
{
    GLwDrawingAreaCallbackStruct data = {reason, event, widget->core.width, widget->core.height};
    XtCallCallbackList(widget, list, &data);
}

// The translation table's only action: keys and buttons reach the application.
void inputAction(Widget widget, XEvent* event, String*, Cardinal*)
{
    callBack(widget, areaOf(widget)->area.inputCallback, GLwCR_INPUT, event);
}

char actionName[] = "glwInput";
XtActionsRec actions[] = {{actionName, inputAction}};
char translations[] = "<KeyDown>: glwInput()\n<KeyUp>: glwInput()\n<BtnDown>: glwInput()\n<BtnUp>: glwInput()\n"
                      "<BtnMotion>: glwInput()";

// The visual for what the resources ask; the depth size is a wish of at least.
XVisualInfo* chooseVisual(Widget widget)
{
    const DrawingAreaPart& area = areaOf(widget)->area;
    int attributes[16];
    int n = 0;
    if (area.rgba) {
        attributes[n++] = GLX_RGBA;
        for (int attribute : {GLX_RED_SIZE, GLX_GREEN_SIZE, GLX_BLUE_SIZE}) {
            attributes[n++] = attribute;
            attributes[n++] = 1;
        }
    }
    if (area.doublebuffer)
        attributes[n++] = GLX_DOUBLEBUFFER;
    attributes[n++] = GLX_DEPTH_SIZE;
    attributes[n++] = area.depthSize;
    attributes[n] = None;
    return glXChooseVisual(XtDisplay(widget), XScreenNumberOfScreen(XtScreen(widget)), attributes);
}

// Visual, depth and colormap stand before the window is made: a window whose
// depth is not its parent's needs all three, and a border pixel.
void initialize(Widget request, Widget created, ArgList, Cardinal*)
{
    DrawingAreaRec* w = areaOf(created);
    w->area.ownsVisualInfo = False;
    w->area.ownsColormap = False;
    if (request->core.width == 0)  // the primitive has put in the size of its shadows
        w->core.width = 100;
    if (request->core.height == 0)
        w->core.height = 100;
    w->core.border_width = 0;
    w->primitive.shadow_thickness = 0;
    w->primitive.highlight_thickness = 0;
    // The primitive has put its keys for walking from widget to widget before ours.
    XtOverrideTranslations(created, XtParseTranslationTable(translations));

    if (w->area.visualInfo == nullptr) {
        w->area.visualInfo = chooseVisual(created);
        w->area.ownsVisualInfo = w->area.visualInfo != nullptr;
    }
    if (w->area.visualInfo == nullptr)
        return;  // realize reports it
    w->core.depth = w->area.visualInfo->depth;
    w->core.colormap = XCreateColormap(XtDisplay(created), RootWindowOfScreen(XtScreen(created)),
                                       w->area.visualInfo->visual, AllocNone);
    w->area.ownsColormap = True;
    w->core.background_pixmap = XtUnspecifiedPixmap;
    w->core.border_pixmap = XtUnspecifiedPixmap;
    w->core.background_pixel = 0;
    w->core.border_pixel = 0;
}

void setColormapWindows(Widget widget)
{
    Widget shell = XtParent(widget);
    while (shell != nullptr && !XtIsShell(shell))
        shell = XtParent(shell);
    if (shell == nullptr)
        return;
    Widget list[] = {widget, shell};
    XtSetWMColormapWindows(shell, list, 2);
}

void realize(Widget widget, XtValueMask* mask, XSetWindowAttributes* attributes)
{
    DrawingAreaRec* w = areaOf(widget);
    if (w->area.visualInfo == nullptr) {
        XtAppWarning(XtWidgetToApplicationContext(widget), "drawing area: the display has no visual of that kind");
        XtCreateWindow(widget, InputOutput, static_cast<Visual*>(CopyFromParent), *mask, attributes);
        return;
    }
    // No background: the server would clear the window to it before every expose.
    *mask &= ~(CWBackPixmap | CWBorderPixmap | CWBackPixel);
    *mask |= CWBorderPixel | CWColormap;
    attributes->border_pixel = 0;
    attributes->colormap = w->core.colormap;
    XtCreateWindow(widget, InputOutput, w->area.visualInfo->visual, *mask, attributes);
    setColormapWindows(widget);
    callBack(widget, w->area.ginitCallback, GLwCR_GINIT, nullptr);
}

void resize(Widget widget)
{
    if (XtIsRealized(widget))
        callBack(widget, areaOf(widget)->area.resizeCallback, GLwCR_RESIZE, nullptr);
}

void expose(Widget widget, XEvent* event, Region)
{
    if (XtIsRealized(widget))
        callBack(widget, areaOf(widget)->area.exposeCallback, GLwCR_EXPOSE, event);
}

void destroy(Widget widget)
{
    DrawingAreaRec* w = areaOf(widget);
    if (w->area.ownsColormap)
        XFreeColormap(XtDisplay(widget), w->core.colormap);
    if (w->area.ownsVisualInfo)
        XFree(w->area.visualInfo);
}

char className[] = "GLwMDrawingArea";

DrawingAreaClassRec makeClassRecord()
{
    DrawingAreaClassRec record = {};
    CoreClassPart& core = record.core_class;
    core.superclass = reinterpret_cast<WidgetClass>(&xmPrimitiveClassRec);
    core.class_name = className;
    core.widget_size = sizeof(DrawingAreaRec);
    core.initialize = initialize;
    core.realize = realize;
    core.actions = actions;
    core.num_actions = XtNumber(actions);
    core.resources = resources;
    core.num_resources = XtNumber(resources);
    core.xrm_class = NULLQUARK;
    core.compress_motion = True;
    core.compress_exposure = XtExposeCompressMultiple;
    core.compress_enterleave = True;
    core.visible_interest = True;
    core.destroy = destroy;
    core.resize = resize;
    core.expose = expose;
    core.set_values_almost = XtInheritSetValuesAlmost;
    core.version = XtVersion;
    core.tm_table = translations;
    core.query_geometry = XtInheritQueryGeometry;
    core.display_accelerator = XtInheritDisplayAccelerator;
    record.primitive_class.border_highlight = XmInheritBorderHighlight;
    record.primitive_class.border_unhighlight = XmInheritBorderUnhighlight;
    record.primitive_class.translations = XtInheritTranslations;
    return record;
}

DrawingAreaClassRec classRecord = makeClassRecord();

}  // namespace

extern "C" {

WidgetClass glwMDrawingAreaWidgetClass = reinterpret_cast<WidgetClass>(&classRecord);

void GLwDrawingAreaMakeCurrent(Widget widget, GLXContext context)
{
    glXMakeCurrentQTN(XtDisplay(widget), XtWindow(widget), context);
}
}
