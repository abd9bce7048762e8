// binding.h - what is current on the calling thread.
#pragma once

#include <GL/glx.h>

namespace kiv::glx {

// Nothing is current on this thread afterwards.
void releaseCurrent();

}  // namespace kiv::glx
