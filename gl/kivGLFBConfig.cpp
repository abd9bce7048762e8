// kivGLFBConfig.cpp - see kivGLFBConfig.h.
#include "gl/kivGLFBConfig.h"

#include "core/kivUtil.h"

namespace {

struct NamedValue {
    int value;
    const char* name;
};

constexpr NamedValue printed[] = {
    {GLX_BUFFER_SIZE, "GLX_BUFFER_SIZE"},
    {GLX_LEVEL, "GLX_LEVEL"},
    {GLX_DOUBLEBUFFER, "GLX_DOUBLEBUFFER"},
    {GLX_AUX_BUFFERS, "GLX_AUX_BUFFERS"},
    {GLX_RED_SIZE, "GLX_RED_SIZE"},
    {GLX_GREEN_SIZE, "GLX_GREEN_SIZE"},
    {GLX_BLUE_SIZE, "GLX_BLUE_SIZE"},
    {GLX_ALPHA_SIZE, "GLX_ALPHA_SIZE"},
    {GLX_DEPTH_SIZE, "GLX_DEPTH_SIZE"},
    {GLX_DRAWABLE_TYPE_QTNX, "GLX_DRAWABLE_TYPE_QTNX"},
    {GLX_RENDER_TYPE_QTNX, "GLX_RENDER_TYPE_QTNX"},
    {GLX_X_RENDERABLE_QTNX, "GLX_X_RENDERABLE_QTNX"},
    {GLX_MAX_PBUFFER_WIDTH_QTNX, "GLX_MAX_PBUFFER_WIDTH_QTNX"},
    {GLX_MAX_PBUFFER_HEIGHT_QTNX, "GLX_MAX_PBUFFER_HEIGHT_QTNX"},
};

struct Sizes {
    int red, green, blue, alpha;  // bits
};

bool hasExactly(Display* dpy, GLXFBConfigQTNX config, const Sizes& wanted)
{
    const int attributes[][2] = {{GLX_ALPHA_SIZE, wanted.alpha},
                                 {GLX_RED_SIZE, wanted.red},
                                 {GLX_GREEN_SIZE, wanted.green},
                                 {GLX_BLUE_SIZE, wanted.blue}};
    for (const auto& [attribute, bits] : attributes) {
        int value = -1;
        glXGetFBConfigAttribQTNX(dpy, config, attribute, &value);
        if (value != bits)
            return false;
    }
    return true;
}

}  // namespace

int setupFBConfig(Display* dpy, int red, int green, int blue, int alpha, GLXFBConfigQTNX* config)
{
    constexpr int rgbaBit = 1, windowAndPbufferBits = 5;
    const int attributes[] = {GLX_RENDER_TYPE_QTNX,
                              rgbaBit,
                              GLX_DRAWABLE_TYPE_QTNX,
                              windowAndPbufferBits,
                              GLX_ALPHA_SIZE,
                              alpha,
                              GLX_RED_SIZE,
                              red,
                              GLX_GREEN_SIZE,
                              green,
                              GLX_BLUE_SIZE,
                              blue,
                              GLX_DEPTH_SIZE,
                              8,
                              GLX_X_RENDERABLE_QTNX,
                              True,
                              0};
    *config = nullptr;
    if (dpy == nullptr)
        return kivErrGLConfig;
    int count = 0;
    GLXFBConfigQTNX* const found = glXChooseFBConfigQTNX(dpy, DefaultScreen(dpy), attributes, &count);
    if (found == nullptr || count == 0)
        return kivErrGLConfig;

    // The layer lists what has at least these sizes.
    for (int i = 0; i < count; ++i) {
        if (!hasExactly(dpy, found[i], {red, green, blue, alpha}))
            continue;
        *config = found[i];
        XFree(found);
        return kivErrNone;
    }
    return kivErrGLConfig;  // the list is kept
}

void printFBConfig(Display* dpy, GLXFBConfigQTNX config)
{
    int value = 0;
    for (const auto& [attribute, name] : printed) {
        if (glXGetFBConfigAttribQTNX(dpy, config, attribute, &value) != 0)
            kivPrintError("glXGetFBConfigAttribQTNX failed");
        kivPrintOut("    %24s = %d\n", name, value);
    }
}
