// fieldDisplay - shows a camera field by field: every second row of the window is the
// first field's, the others are the second's.
//   fieldDisplay [CAMERA] [FRAMES]        (pattern, 250)
#include <core/kivLoop.h>
#include <gl/kivGLDisplay.h>
#include <video/kivVideoIn.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    setTrace(0);
    if (getenv("DISPLAY") == nullptr) {
        fprintf(stderr, "fieldDisplay: no X display\n");
        return 1;
    }
    // Capture type 0: each field is a picture of its own, half as high as the frame.
    kivVideoIn camera;
    if (camera.setup(kivVideo::getTypeByName(argc > 1 ? argv[1] : "pattern"), KP_KIND_VIDEO) != kivErrNone
        || camera.setCaptureType(0) != kivErrNone)
        return 1;
    kivGLDisplay display;
    camera.getXYControl(camera.path, camera.drainNode, KP_CONTROL_SIZE, &display.imageSizeX, &display.imageSizeY);
    display.packing = GL_CBYCRY_422_QTN;  // shown as the camera gives it
    if (display.setup(1) != kivErrNone)
        return 1;

    camera.addObject(&display);
    kivChain chain;
    chain.setChain(&camera);
    if (chain.init(nullptr) != kivErrNone || chain.start(1) != kivErrNone)
        return 1;

    kivLoop loop;
    loop.addChain(&chain);
    const int wanted = argc > 2 ? atoi(argv[2]) : 250;
    int frames = 0;
    while (frames < wanted) {
        const int before = display.field;
        if (loop.pass() != kivErrNone)
            break;
        frames += before == 0 && display.field == -1;  // the second field brings both to the screen
    }
    camera.stop();
    printf("%d frames of %d x %d\n", frames, display.winSizeX, display.winSizeY);
}
