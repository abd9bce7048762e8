/* glxqtn.h - the GL layer: frame-buffer configurations, pbuffers, and media buffers
 * as their storage, on core GLX 1.3.
 *
 * A media buffer associated with a pbuffer is its picture: memory row 0 is row 0 of
 * the pbuffer and the top row of the picture; pixels are R, G, B, A bytes. Reads from
 * the pbuffer see the buffer's bytes; what GL draws into the pbuffer is in the buffer
 * after zvBufferSync, and at once for who maps it on the thread that draws. A buffer
 * that GL only read is never written; neither is one that was freed meanwhile: an
 * association holds no reference.
 *
 * When bytes move: an association moves none, unless the pbuffer is current. The picture
 * goes into the pbuffer when that is bound, once for any number of bindings; what
 * somebody writes to the buffer afterwards is seen with the next association. A binding
 * for drawing counts as drawing, until zvBufferSync; bind again, even what is bound, to
 * draw more after that. Any thread may sync once the drawing thread has let go of the
 * pbuffer through this layer; before that, another thread's sync fails with a line.
 *
 * GLX currency is per thread: the calls below act on the calling thread's. Bind
 * through this layer, so that it sees which pbuffer is drawn into. Handles are GLX's
 * own and belong to the connection that made them. Failures are recorded (zvGetError);
 * none of these calls ends the process or leaves a GL error behind. */
#ifndef KIV_PLATFORM_GLXQTN_H
#define KIV_PLATFORM_GLXQTN_H

#include <GL/gl.h>
#include <GL/glx.h>

#include "platform/zv/zv.h"

KIV_C_BEGIN

typedef GLXFBConfig GLXFBConfigQTNX;

/* Attributes and values of configurations and pbuffers, this layer's numbers. */
enum {
    GLX_DRAWABLE_TYPE_QTNX = 32784,
    GLX_RENDER_TYPE_QTNX = 32785,
    GLX_X_RENDERABLE_QTNX = 32786,
    GLX_RGBA_TYPE_QTNX = 32788,
    GLX_MAX_PBUFFER_WIDTH_QTNX = 32790,
    GLX_MAX_PBUFFER_HEIGHT_QTNX = 32791,
    GLX_PRESERVED_CONTENTS_QTNX = 32795,
    GLX_ZV_BUFFER_QTN = 32804, /* a pbuffer that takes media buffers */
    GL_INTERLACE_QTN = 32916, /* glEnableQTN: pixel drawing touches every other row */
    GL_CBYCRY_422_QTN = 33211 /* glDrawPixelsQTN: Cb Y Cr Y, 2 bytes a pixel, BT.601 */
};

/* --- Connections ---------------------------------------------------------
 * XOpenDisplay, safe for threads, and one whose server may die: then one line is
 * printed, and every call of this layer on it fails. Xlib has one handler for all
 * connections: the first call sets it (XSetIOErrorHandler), and passes on what befalls
 * others, which end the process as before.
 * Closed with XCloseDisplay, dead or alive, which frees what the layer keeps for it;
 * nothing of it may be current on other threads then. Null on failure. */
KIV_API Display* glXOpenDisplayQTN(const char* name);
/* 0 for null and when its server is gone. Sees a hang-up without asking the server. */
KIV_API int glXDisplayAliveQTN(Display* dpy);

/* --- Configurations ------------------------------------------------------
 * Those that match the list ((attribute, value) pairs, 0 at the end): double-buffered
 * TrueColor without multisampling, all of one depth size, nothing else. XFree frees
 * the array. Null, *n = 0 when there is none or no display. */
KIV_API GLXFBConfigQTNX* glXChooseFBConfigQTNX(Display* dpy, int screen, const int* attribs, int* n);
KIV_API int glXGetFBConfigAttribQTNX(Display* dpy, GLXFBConfigQTNX config, int attribute, int* value); /* 0 = ok */
KIV_API GLXContext glXCreateContextWithConfigQTNX(Display* dpy, GLXFBConfigQTNX config, int renderType,
                                                  GLXContext share, Bool direct); /* null on failure */
/* A context that was made or bound by this layer. Not current any more on this thread,
 * if it was. Null does nothing. */
KIV_API void glXDestroyContextQTN(Display* dpy, GLXContext context);

/* --- Pbuffers --------------------------------------------------------------
 * `attribs`: pairs, 0 at the end. 0 on failure. */
KIV_API GLXPbuffer glXCreateGLXPbufferQTNX(Display* dpy, GLXFBConfigQTNX config, unsigned width, unsigned height,
                                           int* attribs);
/* A pbuffer that this thread still reads from gives way to what it draws into. What
 * was drawn and not synced yet is lost. */
KIV_API void glXDestroyGLXPbufferQTNX(Display* dpy, GLXPbuffer pbuffer);
/* Makes `buffer` the pbuffer's picture, in place of an earlier one, which is synced
 * first. `image` describes it: ZV_IMAGE_WIDTH x ZV_IMAGE_HEIGHT, RGBA. Non-zero on
 * success; 0 for a bad handle, no `image`, or a buffer too small for the pbuffer. */
KIV_API int glXAssociateZVPbufferQTNX(Display* dpy, GLXPbuffer pbuffer, ZVparams* image, ZVbuffer buffer);

/* Non-zero: who draws there covers all of the picture, each time. What a buffer held
 * before its association is then not brought into the pbuffer for drawing, only for
 * reading. 0 (as made): it is brought before the pbuffer is drawn into, one copy of a
 * picture. For the associations that follow. */
KIV_API void glXDrawsAllQTN(Display* dpy, GLXPbuffer pbuffer, int drawsAll);

/* Brings what this thread has drawn so far into the buffer behind its current pbuffer:
 * other threads may look. zvBufferSync ends the drawing; here it goes on, and what is
 * drawn next comes with the next sync. 0, also without such a pbuffer; or -1. */
KIV_API int glXSyncDrawQTN(void);

/* --- Binding ---------------------------------------------------------------
 * True on success. What GLX refuses leaves nothing current. When a thread ends, it lets
 * go of what it has bound. Nothing is asked of GLX for what is current already on whichever
 * connection; 0, and nothing, when exactly some of drawables and context are null.
 * Reading from a pbuffer of another connection works. */
KIV_API Bool glXMakeCurrentQTN(Display* dpy, GLXDrawable drawable, GLXContext context);
KIV_API Bool glXMakeCurrentReadQTN(Display* dpy, GLXDrawable draw, GLXDrawable read, GLXContext context);
/* Swaps on the connection on which the drawable is current; nothing when none is. */
KIV_API void glXSwapBuffersQTN(GLXDrawable drawable);

/* --- Drawing ---------------------------------------------------------------
 * In the current context; nothing without one. */
/* glEnable and glDisable that know GL_INTERLACE_QTN. Interlaced, zoomed row k of
 * glDrawPixelsQTN goes to the k-th other row, the first at the raster position. */
KIV_API void glEnableQTN(GLenum capability);
KIV_API void glDisableQTN(GLenum capability);
/* Levels of GL_CBYCRY_422_QTN, whose matrix is BT.601 and whose chroma counts for both
 * pixels of a pair (an odd row ends after Cb Y and takes the Cr before): 0 (default) 16..235 and 16..240, 1 all of
 * 0..255. */
KIV_API void glPixelRangeQTN(int fullRange);
/* glDrawPixels of bytes at the raster position, with the pixel zoom: GL_RGBA, GL_RGB,
 * GL_LUMINANCE, GL_ABGR_EXT ..., and GL_CBYCRY_422_QTN. Rows have no gaps, whatever
 * glPixelStore says; all else that the application has set counts, and stays. With none
 * of that set and a whole zoom the picture is copied once, by a context of this layer's
 * own: a quarter of the time. `bytes` is the room at `data`: with less than the image
 * takes, or no data, nothing is drawn: -1. */
KIV_API int glDrawPixelsQTN(int width, int height, GLenum format, const void* data, long long bytes);
/* Bytes of an image of that format, 1 byte a component; -1 for an unknown format. */
KIV_API long long glImageBytesQTN(int width, int height, GLenum format);

KIV_C_END

#endif
