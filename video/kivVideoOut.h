// kivVideoOut.h - plays buffers out to a video jack, the newest one at a time.
#pragma once

#include "video/kivVideo.h"

// Loop-bound; receive may also be called on a parent's thread. A leaf.
class KIV_API kivVideoOut : public kivVideo {
public:
    kivVideoOut();
    ~kivVideoOut() override;

    int addSrcConstraints(ZVparams* params) override;
    int init(kivParams* params) override;
    int handleEvents(fd_set fdSet) override;  // one event: 0 frame shown, 1008 other, 9 none
    // The first buffer is sent at once, later ones wait for the frame before them; a newer one replaces it.
    int receive(ZVbuffer inBuffer) override;

    int setup(int destDevice);  // number of a jack
    int setDefaultControls();  // best effort

    int setPacking(int packing) { return setIntControl(path, sourceNode, KP_CONTROL_PACKING, packing); }
    int setCaptureType(int capType) { return setIntControl(path, sourceNode, KP_CONTROL_CAPTURE_TYPE, capType); }
    int setFormat(int format) { return setIntControl(path, sourceNode, KP_CONTROL_FORMAT, format); }
    int setLayout(int layout) { return setIntControl(path, sourceNode, KP_CONTROL_LAYOUT, layout); }
    int setZoom(int numerator, int denom)
    {
        return setFractControl(path, sourceNode, KP_CONTROL_ZOOM, numerator, denom);
    }

    int lockNewBuffer();
    int unlockNewBuffer();
    int lockCurrentBuffer();  // gives the lock
    int unlockCurrentBuffer();  // takes it: this pair is wired the other way round

    yqsema_t* newLock;  // guards newBuffer
    ZVbuffer newBuffer;  // newest frame waiting; one reference, or null
    int gotFirstFrame;

private:
    int frameShown();
};
