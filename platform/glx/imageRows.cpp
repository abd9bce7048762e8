// imageRows.cpp - see imageRows.h.
#include "platform/glx/imageRows.h"

#include <GL/glext.h>
#include <libyuv.h>

#include <cstring>
#include <initializer_list>

#include "platform/glx/cbYCrY.h"
#include "platform/glx/glxqtn.h"

namespace kiv::glx {

bool ImageRows::knows(GLenum format)
{
    for (GLenum known : {GLenum(GL_RGBA), GLenum(GL_BGRA), GLenum(GL_ABGR_EXT), GLenum(GL_RGB), GLenum(GL_BGR),
                         GLenum(GL_LUMINANCE), GLenum(GL_CBYCRY_422_QTN)})
        if (format == known)
            return true;
    return false;
}

void ImageRows::read(int row, uint8_t* bgra) const
{
    const uint8_t* in = data + row * stride;
    switch (format) {
    case GL_RGBA:
        libyuv::ABGRToARGB(in, 0, bgra, 0, width, 1);
        break;
    case GL_BGRA:
        memcpy(bgra, in, size_t(width) * 4);
        break;
    case GL_ABGR_EXT:
        libyuv::RGBAToARGB(in, 0, bgra, 0, width, 1);
        break;
    case GL_RGB:
        libyuv::RAWToARGB(in, 0, bgra, 0, width, 1);
        break;
    case GL_BGR:
        libyuv::RGB24ToARGB(in, 0, bgra, 0, width, 1);
        break;
    case GL_LUMINANCE:
        libyuv::J400ToARGB(in, 0, bgra, 0, width, 1);
        break;
    case GL_CBYCRY_422_QTN:
        cbYCrYToBgra(in, bgra, width, 1, fullRange);
        break;
    }
}

void widen(const uint8_t* in, uint8_t* out, int width, int zoom)
{
    for (int x = 0; x < width; ++x, in += 4)
        for (int i = 0; i < zoom; ++i, out += 4)
            memcpy(out, in, 4);
}

}  // namespace kiv::glx
