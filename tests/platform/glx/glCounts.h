// glCounts.h - pixels that go from memory into GL and back, whoever makes them go: the
// calls are replaced by ones that count.
#pragma once

struct GLCounts {
    long long in, out;  // pixels
};

// Since the call before.
GLCounts takeGLCounts();
