// cameraToWindow - a camera in a window, served inside the window's own loop.
//   cameraToWindow [CAMERA] [FRAMES]        (pattern, until the window is closed)
#include <core/kivChain.h>
#include <gl/kivGLDisplay.h>
#include <video/kivVideoIn.h>
#include <window/ScratchWindow.h>

#include <cstdio>
#include <cstdlib>

// A display that shows each picture at once, not each pair of fields.
class PictureDisplay : public kivGLDisplay {
public:
    int receive(ZVbuffer buffer) override
    {
        const int err = kivGLDisplay::receive(buffer);  // draws
        if (field == 0)
            glXSwapBuffersQTN(glXGetCurrentDrawable());
        field = -1;
        if (++frames == wanted)
            static_cast<scratchWindow*>(window)->endLoop();
        return err;
    }

    int frames = 0, wanted = 0;
};

// The window's loop calls this when the camera's descriptor is readable.
static void serve(XtPointer chain, int* fd, XtInputId*)
{
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(*fd, &ready);
    static_cast<kivChain*>(chain)->handleEvents(ready);
}

int main(int argc, char** argv)
{
    setTrace(0);
    kivVideoIn camera;
    PictureDisplay display;
    display.wanted = argc > 2 ? atoi(argv[2]) : 0;
    if (camera.setup(kivVideo::getTypeByName(argc > 1 ? argv[1] : "pattern"), KP_KIND_VIDEO) != kivErrNone)
        return 1;
    camera.getXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, &display.imageSizeX, &display.imageSizeY);
    display.packing = GL_CBYCRY_422_QTN;  // drawn as it comes, converted by the GL layer
    if (display.setup(0) != kivErrNone)
        return 1;
    camera.addObject(&display);
    kivChain chain;
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;
    display.window->addInput(camera.getFD(), serve, &chain);
    display.window->eventLoop();  // until the window is closed
    camera.stop();
    printf("%d frames of %d x %d\n", display.frames, display.imageSizeX, display.imageSizeY);
}
