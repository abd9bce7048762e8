// kivGLTex2d.h - the newest buffer as a GL texture.
#pragma once

#include "gl/kivGLPBuffer.h"

// Loop-bound, but for receive. The application calls defineTex2D once per frame that
// it draws, with its own drawable and context current, and binds texID in that
// context. Texture coordinate t = 0 is the top row of the picture.
//
// The ids 1, 2, 3, ... are not asked of GL: they may be names that the application
// got from it. Make the nodes first, and take names above theirs.
class KIV_API kivGLTex2d : public kivGLPBuffer {
public:
    kivGLTex2d();
    ~kivGLTex2d() override;

    int defineTex2D();

    int gotPBuffer;  // a buffer has been grabbed; the next call releases it
    int texID;  // name of the texture, in order of construction
    int texInitialized;  // the texture is defined: frames are copied

    static int nextFreeID;  // of the next node
};
