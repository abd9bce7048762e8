// rendering.h - where a movie is drawn, and the frame that was drawn last.
#pragma once

#include <mutex>

#include "platform/rk/decode/frameSource.h"
#include "platform/rk/draw/shownPicture.h"
#include "platform/rk/rk.h"

namespace kiv::rk {

// Thread-safe; one frame is drawn at a time.
class Rendering {
public:
    Rendering() = default;
    ~Rendering();
    Rendering(const Rendering&) = delete;
    Rendering& operator=(const Rendering&) = delete;

    void place(const RKrect& rectangle);
    void placeWhole(const RKtrackInfo& info);
    // 0, or -1 with an error recorded.
    int draw(FrameSource& frames, int index);

private:
    int load(FrameSource& frames, int index);
    RKrect rectangle();

    std::mutex placeLock_;  // guards rectangle_: never held while a frame is made
    RKrect rectangle_ = {};
    std::mutex lock_;  // guards all below
    FramePtr frame_;
    int loaded_ = -1;  // the frame that frame_ holds
    bool drawn_ = false;
    PictureShower shower_;
};

// The frame that is shown at a time in units of 1/timeScale seconds.
int frameAt(const RKtrackInfo& info, long long time, int timeScale);

}  // namespace kiv::rk
