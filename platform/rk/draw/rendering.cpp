// rendering.cpp - from a time to a frame, and from the frame to the screen.
#include "platform/rk/draw/rendering.h"

#include <algorithm>

#include "platform/rk/draw/painter.h"
#include "platform/support/error.h"

namespace kiv::rk {

// What this movie kept in the context goes with it where that can be done: on the
// thread where it is current. Else it waits there for the next movie.
Rendering::~Rendering()
{
    if (drawn_)
        forgetPictures();
}

void Rendering::place(const RKrect& rectangle)
{
    std::lock_guard guard(placeLock_);
    rectangle_ = rectangle;
}

void Rendering::placeWhole(const RKtrackInfo& info) { place({0, 0, float(info.width), float(info.height)}); }

RKrect Rendering::rectangle()
{
    std::lock_guard guard(placeLock_);
    return rectangle_;
}

int Rendering::load(FrameSource& frames, int index)
{
    if (!frame_)
        frame_ = newFrame();
    if (loaded_ == index)
        return 0;
    loaded_ = -1;
    av_frame_unref(frame_.get());
    if (frames.picture(index, frame_.get()) != 0)
        return -1;
    loaded_ = index;
    return 0;
}

int Rendering::draw(FrameSource& frames, int index)
{
    std::lock_guard guard(lock_);
    if (load(frames, index) != 0)
        return -1;
    ShownPicture picture;
    if (const int result = shower_.show(*frame_, picture); result < 0)
        return recordError(ZV_ERROR_UNSUPPORTED, "frame %d cannot be turned into RGBA: %s", index, AvText(result).text);
    drawn_ = true;
    return paintPicture(picture, rectangle());
}

// The last frame that begins at or before the time, which may have been cut to a
// whole nanosecond: a microsecond is forgiven.
int frameAt(const RKtrackInfo& info, long long time, int timeScale)
{
    constexpr __int128 slack = 1'000'000;  // microseconds in a second
    const __int128 units = slack * time + timeScale;  // of 1/(timeScale * 10^6) s
    const __int128 index = units * info.rateNumerator / (slack * timeScale * info.rateDenominator);
    return int(std::clamp<__int128>(index, 0, info.frames - 1));
}

}  // namespace kiv::rk
