// config.cpp - frame-buffer configurations and contexts.
#include "platform/glx/config.h"

#include <X11/Xutil.h>

#include <algorithm>
#include <iterator>

#include "platform/glx/binding.h"
#include "platform/glx/connection.h"
#include "platform/glx/contexts.h"
#include "platform/glx/glxqtn.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

constexpr int maxAttributes = 64;

// What every configuration of the layer has. Single-buffered pbuffers end the process
// when the rasteriser brings them to the server.
constexpr int ours[] = {GLX_DOUBLEBUFFER, True, GLX_X_VISUAL_TYPE, GLX_TRUE_COLOR, GLX_SAMPLE_BUFFERS, 0};

bool isOurs(int attribute)
{
    for (size_t i = 0; i < std::size(ours); i += 2)
        if (ours[i] == attribute)
            return true;
    return false;
}

// The caller's list with ours in place of its own values.
bool mergeAttributes(const int* attributes, int* out)
{
    int n = 0;
    for (int i = 0; attributes != nullptr && attributes[i] != None; i += 2) {
        if (isOurs(attributes[i]))
            continue;
        if (n + 2 + int(std::size(ours)) >= maxAttributes)
            return false;
        out[n++] = attributes[i];
        out[n++] = attributes[i + 1];
    }
    out = std::copy(std::begin(ours), std::end(ours), out + n);
    *out = None;
    return true;
}

}  // namespace

int configValue(Display* dpy, GLXFBConfig config, int attribute)
{
    int value = 0;
    return glXGetFBConfigAttrib(dpy, config, attribute, &value) == 0 ? value : -1;
}

GLXFBConfig* chooseConfigs(Display* dpy, int screen, const int* attributes, int* n)
{
    *n = 0;
    int list[maxAttributes];
    if (!mergeAttributes(attributes, list)) {
        recordError(ZV_ERROR_ARGUMENT, "more than %d configuration attributes", maxAttributes / 2);
        return nullptr;
    }
    GLXFBConfig* found = glXChooseFBConfig(dpy, screen, list, n);
    if (found == nullptr || *n == 0) {
        recordError(ZV_ERROR_UNSUPPORTED, "no such frame-buffer configuration");
        return found;
    }
    // Lists ask for at least so many samples. A context draws nothing, silently, where
    // the depth size is another than its own. The best come first: they stay.
    const int depth = configValue(dpy, found[0], GLX_DEPTH_SIZE);
    GLXFBConfig* end = std::remove_if(found, found + *n, [dpy, depth](GLXFBConfig config) {
        return configValue(dpy, config, GLX_DEPTH_SIZE) != depth || configValue(dpy, config, GLX_SAMPLE_BUFFERS) != 0;
    });
    *n = int(end - found);
    return found;
}

GLXFBConfig configWithDepth(Display* dpy, int screen, int depth)
{
    const int attributes[] = {GLX_DRAWABLE_TYPE,
                              GLX_PBUFFER_BIT,
                              GLX_RED_SIZE,
                              8,
                              GLX_GREEN_SIZE,
                              8,
                              GLX_BLUE_SIZE,
                              8,
                              GLX_ALPHA_SIZE,
                              8,
                              None};
    int list[maxAttributes];
    mergeAttributes(attributes, list);
    int n = 0;
    GLXFBConfig* found = glXChooseFBConfig(dpy, screen, list, &n);
    GLXFBConfig* end = found + n;
    GLXFBConfig* fits = std::find_if(found, end, [dpy, depth](GLXFBConfig config) {
        return configValue(dpy, config, GLX_DEPTH_SIZE) == depth && configValue(dpy, config, GLX_RED_SIZE) == 8
            && configValue(dpy, config, GLX_ALPHA_SIZE) == 8;
    });
    GLXFBConfig config = fits != end ? *fits : nullptr;
    if (found != nullptr)
        XFree(found);
    return config;
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// Any thread; blocks for the server's answer the first time. The caller frees the array.
extern "C" GLXFBConfigQTNX* glXChooseFBConfigQTNX(Display* dpy, int screen, const int* attribs, int* n)
{
    int count = 0;
    GLXFBConfig* found = needAlive(dpy) ? chooseConfigs(dpy, screen, attribs, &count) : nullptr;
    if (n != nullptr)
        *n = count;
    return found;
}

extern "C" int glXGetFBConfigAttribQTNX(Display* dpy, GLXFBConfigQTNX config, int attribute, int* value)
{
    if (dpy == nullptr || config == nullptr || value == nullptr) {
        recordError(ZV_ERROR_ARGUMENT, "no display, configuration or place for a value");
        return GLX_BAD_VALUE;
    }
    return glXGetFBConfigAttrib(dpy, config, attribute, value);
}

// Any thread. The caller destroys it with glXDestroyContextQTN.
extern "C" GLXContext glXCreateContextWithConfigQTNX(Display* dpy, GLXFBConfigQTNX config, int renderType,
                                                     GLXContext share, Bool direct)
{
    if (!needAlive(dpy))
        return nullptr;
    if (config == nullptr || renderType != GLX_RGBA_TYPE) {
        recordError(ZV_ERROR_ARGUMENT, "a context of render type %d%s", renderType,
                    config == nullptr ? ", without a configuration" : "");
        return nullptr;
    }
    GLXContext context = glXCreateNewContext(dpy, config, renderType, share, direct);
    if (context != nullptr)
        noteContext(context, {.dpy = dpy});
    else
        recordError(ZV_ERROR_SYSTEM, "GLX gives no context");
    return context;
}

// The thread where it is current, or any when it is current nowhere.
extern "C" void glXDestroyContextQTN(Display* dpy, GLXContext context)
{
    if (context == nullptr)
        return;
    if (glXGetCurrentContext() == context)
        releaseCurrent();
    Display* on = contextFacts(context, nullptr).dpy;
    if (on == nullptr) {
        recordError(ZV_ERROR_HANDLE, "no context %p of this layer, on display %p", static_cast<void*>(context),
                    static_cast<void*>(dpy));
        return;
    }
    forgetContext(context);
    if (isAlive(on))
        glXDestroyContext(on, context);
}
