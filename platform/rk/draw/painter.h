// painter.h - draws pictures with the OpenGL context that is current.
#pragma once

#include "platform/rk/draw/shownPicture.h"
#include "platform/rk/rk.h"

namespace kiv::rk {

// Draws into the rectangle, in pixels of the current drawable: the picture's top row
// at y0, its first column at x0. The context's state comes back as it was; textures
// and shader stay with the context for the next picture. 0, or -1 with an error
// recorded.
int paintPicture(const ShownPicture& picture, const RKrect& rectangle);

// Gives the memory of the textures in the current context back, if there are any.
void forgetPictures();

}  // namespace kiv::rk
