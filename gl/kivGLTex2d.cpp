// kivGLTex2d.cpp - see kivGLTex2d.h.
#define GL_GLEXT_PROTOTYPES
#include "gl/kivGLTex2d.h"

#include <GL/glext.h>

#include "gl/glSupport.h"

int kivGLTex2d::nextFreeID = 1;

kivGLTex2d::kivGLTex2d() : gotPBuffer(0), texID(std::atomic_ref(nextFreeID).fetch_add(1)), texInitialized(0) { }

// Neither releases a grabbed buffer nor deletes the texture, which is the context's.
kivGLTex2d::~kivGLTex2d() = default;

namespace {

// An empty texture of exactly the image's size.
void defineTexture(int texID, int width, int height)
{
    glBindTextureEXT(GL_TEXTURE_2D, GLuint(texID));
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8_EXT, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP);
    glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, float(GL_REPLACE_EXT));
    kivTrace("Initialize ID %d\n", texID);
}

}  // namespace

// Brings the newest buffer into the texture. The first call after the first buffer
// only defines the texture, empty; each one after that releases the buffer of the call
// before it and copies the newest, which stays grabbed and bound for reading. Blocks
// only while another thread holds the latch. Returns 3004, with the texture as it was,
// when the buffer cannot be the pbuffer's picture.
int kivGLTex2d::defineTex2D()
{
    const kiv::GLBinding callers = kiv::GLBinding::current();
    callers.restore(dpy);
    const bool filled = std::atomic_ref(firstBufferIn).load();  // once: it may come meanwhile
    const bool defines = filled && !texInitialized;
    if (defines)
        defineTexture(texID, imageSizeX, imageSizeY);
    if (gotPBuffer)
        kivLatch::release();
    if (defines)
        texInitialized = 1;
    if (defines || !filled)
        return kivErrNone;

    glBindTextureEXT(GL_TEXTURE_2D, GLuint(texID));
    if (kivGLPBuffer::grab() != kivErrNone) {
        kivPrintError("define tex failed\n");
        if (!gotPBuffer)  // otherwise the next call releases it
            unlockLatchBuffer();
        return kivErrGLAssociate;
    }
    gotPBuffer = 1;
    glXMakeCurrentReadQTN(callers.dpy != nullptr ? callers.dpy : dpy, callers.draw, pbuffer, callers.context);
    glCopyTexSubImage2DEXT(GL_TEXTURE_2D, 0, 0, 0, 0, 0, imageSizeX, imageSizeY);
    return kivErrNone;
}
