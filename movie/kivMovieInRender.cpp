// kivMovieInRender.cpp - see kivMovieInRender.h.
#include "movie/kivMovieInRender.h"

#include <cstdint>
#include <cstdlib>

#include "gl/glSupport.h"
#include "gl/kivGLFBConfig.h"
#include "movie/movieTime.h"
#include "platform/glx/internal.h"
#include "platform/thread/thread.h"

namespace {

constexpr int poolCount = 25;  // in the pool, whatever the children ask for
constexpr int inNanoseconds = 1'000'000'000;

// ":0" before what the environment names. Null, with a line, when neither answers.
Display* openDisplay()
{
    Display* display = glXOpenDisplayQTN(":0");
    if (display == nullptr)
        display = glXOpenDisplayQTN(nullptr);
    kivTrace("xdisplay:%x\n", static_cast<unsigned>(reinterpret_cast<uintptr_t>(display)));
    if (display == nullptr)
        kivPrintError("kivMovieIn::init - no X server answers, neither as \":0\" nor as the default display\n");
    return display;
}

// The context cannot be destroyed, nor used elsewhere, while it is a dead thread's.
void releaseContext(kivMovieIn& movie)
{
    if (Display* const display = static_cast<kivMovieInRender&>(movie).display; display != nullptr)
        glXMakeCurrentQTN(display, None, nullptr);
}

}  // namespace

kivMovieInRender::kivMovieInRender() { onReaderEnd_ = releaseContext; }

kivMovieInRender::~kivMovieInRender()
{
    endReader();
    closeGL();
}

// Where the picture lies in the buffers, from the next frame on. Loop thread, after
// setup. 0, or 4002 when there is no movie or the numbers are no place.
int kivMovieInRender::setImageOffset(float x, float y)
{
    offsetX = x;
    offsetY = y;
    return setMovieRect();
}

int kivMovieInRender::setImageZoom(float x, float y)
{
    zoomX = x;
    zoomY = y;
    return setMovieRect();
}

int kivMovieInRender::setMovieRect()
{
    const RKrect rectangle
        = {offsetX, offsetY, offsetX + zoomX * float(imageSizeX), offsetY + zoomY * float(imageSizeY)};
    return rkSetMovieRect(movieID, &rectangle) == 0 ? kivErrNone : kivErrMovieIO;
}

// Makes connection, pbuffer, context and pool, in place of earlier ones, and
// initialises the children. Loop thread, after setup. Returns 3001, 3002 or 4 to 7 by
// the step that failed; without a context the process ends with status 255.
int kivMovieInRender::init(kivParams* params)
{
    endReader();
    closeGL();
    setMovieRect();  // the movie may be another than the one that was told
    int err = describeImages();
    if (err == kivErrNone)
        err = openGL();
    if (err == kivErrNone)
        err = kiv::describeGLPool(glParams, poolCount, &poolParams);
    if (err == kivErrNone)
        err = kiv::createGLPool(poolParams, &bufferPool);
    if (err == kivErrNone)
        err = watchPool(false);
    return err == kivErrNone ? kivObj::init(params) : err;
}

int kivMovieInRender::describeImages()
{
    if (zvParamsCreate(&glParams) != ZV_SUCCESS)
        return kivErrPoolParams;
    if (zvSetImageDefaults(glParams, bufferSizeX, bufferSizeY, ZV_IMAGE_PACKING_RGBA) != ZV_SUCCESS)
        return kivErrPoolParams;
    if (zvParamsSetEnum(glParams, ZV_IMAGE_LAYOUT, ZV_IMAGE_LAYOUT_GRAPHICS) != ZV_SUCCESS)
        return kivErrPoolParams;
    return addChildConstraints(glParams) == kivErrNone ? kivErrNone : kivErrConstraints;
}

int kivMovieInRender::openGL()
{
    int attributes[] = {GLX_PRESERVED_CONTENTS_QTNX, True, GLX_ZV_BUFFER_QTN, True, 0};
    display = openDisplay();
    if (const int err = setupFBConfig(display, 8, 8, 8, 8, &fbConfig); err != kivErrNone) {
        kivPrintError("kivMovieIn::init - Unable to setup fb config\n");
        return err;
    }
    pbuffer = glXCreateGLXPbufferQTNX(display, fbConfig, unsigned(bufferSizeX), unsigned(bufferSizeY), attributes);
    if (pbuffer == 0)
        return kivErrGLPBuffer;
    glXDrawsAllQTN(display, pbuffer, 1);
    context = glXCreateContextWithConfigQTNX(display, fbConfig, GLX_RGBA_TYPE_QTNX, nullptr, True);
    if (context == nullptr) {
        kivPrintError("Unable to create context \n");
        exit(-1);
    }
    return kivErrNone;
}

// Undoes openGL and describeImages, as far as they came, the other way round. Loop
// thread, no reader running.
void kivMovieInRender::closeGL()
{
    if (context != nullptr)
        glXDestroyContextQTN(display, context);
    if (pbuffer != 0)
        glXDestroyGLXPbufferQTNX(display, pbuffer);
    if (display != nullptr)
        XCloseDisplay(display);
    if (glParams != nullptr)
        zvParamsDestroy(glParams);
    context = nullptr;
    pbuffer = 0;
    fbConfig = nullptr;
    display = nullptr;
    glParams = nullptr;
}

// Draws the frame of a movie time into readBuffer. Reader thread. 4005 when it is the
// one drawn last; 3004, and the buffer is gone, when GL does not take it: children then
// get a stale handle. After the X server's end the reader ends, too.
int kivMovieInRender::getImageFrameTime(long long movieTime)
{
    const int index = frameIndexAt(movieTime);
    setFrameIndex(index);
    if (index == kivShared(lastFrameIndex).load())
        return kivErrFrameNotYet;
    if (!glXAssociateZVPbufferQTNX(display, pbuffer, glParams, readBuffer)) {
        kivPrintError("\nglxAssociate Failed\n");
        zvBufferFree(readBuffer);
        if (!kiv::glx::isAlive(display))
            threadKill(threadSelf(), kivStopSignal);
        return kivErrGLAssociate;
    }
    glXMakeCurrentQTN(display, pbuffer, context);
    glClearColor(0, 0, 0, 0);
    glClear(GL_COLOR_BUFFER_BIT);
    rkRenderMovieToOpenGL(movieID, movieTime, inNanoseconds);
    kivShared(lastFrameIndex).store(index);
    return kivErrNone;
}

// The same for the time at which a frame begins, cut to whole nanoseconds: for some
// indices that is the frame before by name, and the right one by its picture.
int kivMovieInRender::getImageFrameIndex(int frameIndex)
{
    const double time = frameIndex * (1.0 / frameRate) * 1e9;
    return getImageFrameTime(static_cast<long long>(kiv::toOffset(time)));
}
