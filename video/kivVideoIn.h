// kivVideoIn.h - captures live video into buffers of its own pool.
#pragma once

#include "video/kivVideo.h"

// Loop-bound. A root source: construct, setup, controls, init, start, events.
class KIV_API kivVideoIn : public kivVideo {
public:
    kivVideoIn();
    ~kivVideoIn() override;

    int init(kivParams* params) override;  // pool of ten frames and what the path and the children need
    int handleEvents(fd_set fdSet) override;  // one event: 1011 frame, 1012/1013 other, 9 none

    // `source`: number of a jack; `srcClass`: 1 video, 4 device-specific.
    int setup(int source, int srcClass);
    int setDefaultControls();  // best effort: the zoom's result

    int setTiming(int timing) { return setIntControl(path, drainNode, KP_CONTROL_TIMING, timing); }
    int setPacking(int packing) { return setIntControl(path, drainNode, KP_CONTROL_PACKING, packing); }
    int setCaptureType(int capType) { return setIntControl(path, drainNode, KP_CONTROL_CAPTURE_TYPE, capType); }
    int setFormat(int format) { return setIntControl(path, drainNode, KP_CONTROL_FORMAT, format); }
    int setLayout(int layout) { return setIntControl(path, drainNode, KP_CONTROL_LAYOUT, layout); }
    int setZoom(int numerator, int denom)
    {
        return setFractControl(path, drainNode, KP_CONTROL_ZOOM, numerator, denom);
    }

    ZVparams* poolParams;  // of the pool; kept for the node's life
    int xfersize;  // bytes of one frame

private:
    int makePool();
    int keepPool(ZVbufferpool earlier);
    int takeFrame(KPEvent* event);
};
