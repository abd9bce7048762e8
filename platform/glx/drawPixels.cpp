// drawPixels.cpp - pictures drawn in the current context.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>

#include <GL/glext.h>

#include <iterator>
#include <memory>
#include <new>

#include "platform/glx/cbYCrY.h"
#include "platform/glx/config.h"
#include "platform/glx/contexts.h"
#include "platform/glx/glxqtn.h"
#include "platform/glx/internal.h"
#include "platform/glx/pixelState.h"
#include "platform/limits.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

constexpr GLenum unpackValues[] = {GL_UNPACK_ALIGNMENT,   GL_UNPACK_ROW_LENGTH, GL_UNPACK_SKIP_ROWS,
                                   GL_UNPACK_SKIP_PIXELS, GL_UNPACK_SWAP_BYTES, GL_UNPACK_LSB_FIRST};

int bytesPerPixel(GLenum format)
{
    switch (format) {
    case GL_RGBA:
    case GL_BGRA:
    case GL_ABGR_EXT:
        return 4;
    case GL_RGB:
    case GL_BGR:
        return 3;
    case GL_CBYCRY_422_QTN:
    case GL_LUMINANCE_ALPHA:
    case GL_RG:
        return 2;
    case GL_LUMINANCE:
    case GL_RED:
    case GL_GREEN:
    case GL_BLUE:
    case GL_ALPHA:
        return 1;
    default:
        return 0;
    }
}

long long imageBytes(int width, int height, GLenum format)
{
    const int each = bytesPerPixel(format);
    if (each == 0)
        return recordError(ZV_ERROR_UNSUPPORTED, "no pixel format %u", format);
    if (width < 0 || height < 0 || width > kivLimits()->imageWidth || height > kivLimits()->imageHeight)
        return recordError(ZV_ERROR_LIMIT, "an image of %d x %d; imageWidth, imageHeight are %d, %d", width, height,
                           kivLimits()->imageWidth, kivLimits()->imageHeight);
    return (long long)width * height * each;
}

// Room for a picture in B, G, R, A, kept for the next one on this thread.
uint8_t* scratch(size_t bytes)
{
    thread_local std::unique_ptr<uint8_t[]> room;
    thread_local size_t size = 0;
    if (size < bytes) {
        room.reset(new (std::nothrow) uint8_t[bytes]);
        size = room != nullptr ? bytes : 0;
    }
    return room.get();
}

// Below, GL's own way costs less than changing contexts.
constexpr int leastPixels = 96 * 96;
constexpr int mostPixels = 16384;  // across, of a texture

// Who copies for the current context; null when its drawables are of another kind.
Porter* porterHere(GLXContext context)
{
    Display* dpy = glXGetCurrentDisplay();
    const GLXFBConfig config = contextConfig(dpy, context);
    if (config == nullptr || configValue(dpy, config, GLX_SAMPLE_BUFFERS) != 0
        || configValue(dpy, config, GLX_DOUBLEBUFFER) != 1 || configValue(dpy, config, GLX_RED_SIZE) != 8)
        return nullptr;
    return porterFor(dpy, config);
}

// The fast way, for what only needs copying. False when it is not that.
bool copyPlainly(GLXContext context, const ContextFacts& facts, const Image& image, int* result)
{
    Place place;
    if (image.width * image.height < leastPixels || !ImageRows::knows(image.format) || !drawsPlainly()
        || !plainPlace(image.height, facts.interlaced, &place))
        return false;
    if (image.width > mostPixels / place.zoomX || image.height > mostPixels / place.zoomY / 2)
        return false;
    Porter* porter = porterHere(context);
    if (porter == nullptr)
        return false;
    const ImageRows rows = {static_cast<const uint8_t*>(image.data),
                            ptrdiff_t(image.width) * bytesPerPixel(image.format),
                            image.width,
                            image.height,
                            image.format,
                            facts.fullRange};
    *result = porter->draw(glXGetCurrentDrawable(), rows, place);
    return true;
}

// GL's own way, which heeds all that the application has set.
int drawByGL(GLXContext context, const ContextFacts& facts, Image image)
{
    if (image.format == GL_CBYCRY_422_QTN) {
        uint8_t* converted = scratch(size_t(image.width) * size_t(image.height) * 4);
        if (converted == nullptr)
            return recordError(ZV_ERROR_MEMORY, "no memory to convert %d x %d", image.width, image.height);
        cbYCrYToBgra(static_cast<const uint8_t*>(image.data), converted, image.width, image.height, facts.fullRange);
        image.format = GL_BGRA;
        image.data = converted;
    }
    const TightRows rows;
    if (facts.interlaced)
        return drawInterlaced(context, image);
    glDrawPixels(image.width, image.height, image.format, GL_UNSIGNED_BYTE, image.data);
    return 0;
}

int draw(GLXContext context, const ContextFacts& facts, const Image& image)
{
    int result = 0;
    return copyPlainly(context, facts, image, &result) ? result : drawByGL(context, facts, image);
}

// Changes a fact of the current context.
template <class Change> void change(Change apply)
{
    const GLXContext context = glXGetCurrentContext();
    if (context == nullptr)
        return;
    ContextFacts facts = contextFacts(context, glXGetCurrentDisplay());
    apply(facts);
    noteContext(context, facts);
}

}  // namespace

TightRows::TightRows()
{
    for (size_t i = 0; i < std::size(unpackValues); ++i) {
        glGetIntegerv(unpackValues[i], &values_[i]);
        glPixelStorei(unpackValues[i], i == 0 ? 1 : 0);
    }
    glGetIntegerv(GL_PIXEL_UNPACK_BUFFER_BINDING, &buffer_);
    if (buffer_ != 0)
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
}

TightRows::~TightRows()
{
    for (size_t i = 0; i < std::size(unpackValues); ++i)
        glPixelStorei(unpackValues[i], values_[i]);
    if (buffer_ != 0)
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, GLuint(buffer_));
}

}  // namespace kiv::glx

using namespace kiv;
using namespace kiv::glx;

// All on the thread that draws.
extern "C" void glEnableQTN(GLenum capability)
{
    if (capability == GL_INTERLACE_QTN)
        change([](ContextFacts& facts) { facts.interlaced = true; });
    else if (glXGetCurrentContext() != nullptr)
        glEnable(capability);
}

extern "C" void glDisableQTN(GLenum capability)
{
    if (capability == GL_INTERLACE_QTN)
        change([](ContextFacts& facts) { facts.interlaced = false; });
    else if (glXGetCurrentContext() != nullptr)
        glDisable(capability);
}

extern "C" void glPixelRangeQTN(int fullRange)
{
    change([fullRange](ContextFacts& facts) { facts.fullRange = fullRange != 0; });
}

// The caller keeps `data`; it is not read any more when this returns.
extern "C" int glDrawPixelsQTN(int width, int height, GLenum format, const void* data, long long bytes)
{
    const GLXContext context = glXGetCurrentContext();
    if (context == nullptr)
        return recordError(ZV_ERROR_STATE, "no context is current");
    const long long need = imageBytes(width, height, format);
    if (need < 0)
        return -1;
    if (data == nullptr || bytes < need)
        return recordError(ZV_ERROR_ARGUMENT, "%lld bytes for an image of %d x %d", data == nullptr ? 0 : bytes, width,
                           height);
    if (!isAlive(glXGetCurrentDisplay()))
        return recordError(ZV_ERROR_PEER, "the X server is gone");
    return draw(context, contextFacts(context, nullptr), {width, height, format, data});
}

// Any thread.
extern "C" long long glImageBytesQTN(int width, int height, GLenum format) { return imageBytes(width, height, format); }
