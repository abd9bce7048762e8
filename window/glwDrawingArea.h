// glwDrawingArea.h - an OpenGL drawing area for Motif.
//
// A subclass of the Motif primitive that picks its own visual, depth and colormap
// before it is realised, so that it can stand inside a window of another visual.
//
// Resources: "rgba" (Boolean, True), "depthSize" (int, 8), "doublebuffer"
// (Boolean, True) choose the visual at creation; "visualInfo" (XVisualInfo*) names
// one outright, or is read for the one chosen: it stays the widget's.
// Callback resources: "ginitCallback" once, when the window exists and before the
// first expose; "exposeCallback", "resizeCallback" only while realised;
// "inputCallback" for keys and buttons. Call data is GLwDrawingAreaCallbackStruct.
#pragma once

#include <GL/glx.h>
#include <X11/Intrinsic.h>

#include "platform/api.h"

#define GLwNrgba "rgba"
#define GLwNdepthSize "depthSize"
#define GLwNdoublebuffer "doublebuffer"
#define GLwNvisualInfo "visualInfo"
#define GLwNginitCallback "ginitCallback"
#define GLwNexposeCallback "exposeCallback"
#define GLwNresizeCallback "resizeCallback"
#define GLwNinputCallback "inputCallback"

enum { GLwCR_EXPOSE = 38, GLwCR_RESIZE = 39, GLwCR_INPUT = 40, GLwCR_GINIT = 32135 };

struct GLwDrawingAreaCallbackStruct {
    int reason;  // GLwCR_...
    XEvent* event;  // null for resize and ginit
    Dimension width, height;  // pixels
};

extern "C" {

extern KIV_API WidgetClass glwMDrawingAreaWidgetClass;

// Makes `context` current on the widget's window. Only after it is realised; on
// the thread that runs the widget's application context.
KIV_API void GLwDrawingAreaMakeCurrent(Widget widget, GLXContext context);
}
