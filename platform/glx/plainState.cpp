// plainState.cpp - is drawing a picture in the current context no more than copying it?
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>

#include <GL/glext.h>

#include <cmath>
#include <initializer_list>

#include "platform/glx/pixelState.h"

namespace kiv::glx {

namespace {

// Whatever changes single pixels on their way.
constexpr GLenum changes[] = {
    GL_ALPHA_TEST, GL_BLEND,     GL_DEPTH_TEST,       GL_STENCIL_TEST,       GL_SCISSOR_TEST,         GL_COLOR_LOGIC_OP,
    GL_FOG,        GL_COLOR_SUM, GL_FRAMEBUFFER_SRGB, GL_VERTEX_PROGRAM_ARB, GL_FRAGMENT_PROGRAM_ARB, GL_MAP_COLOR};
constexpr GLenum scales[] = {GL_RED_SCALE, GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE};
constexpr GLenum biases[] = {GL_RED_BIAS, GL_GREEN_BIAS, GL_BLUE_BIAS, GL_ALPHA_BIAS};

GLint number(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

GLfloat real(GLenum name)
{
    GLfloat value = 0;
    glGetFloatv(name, &value);
    return value;
}

bool changesNothing()
{
    for (GLenum change : changes)
        if (number(change) != 0)
            return false;
    for (GLenum scale : scales)
        if (real(scale) != 1)
            return false;
    for (GLenum bias : biases)
        if (real(bias) != 0)
            return false;
    GLboolean mask[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    return mask[0] && mask[1] && mask[2] && mask[3];
}

bool texturesNothing()
{
    if (number(GL_CURRENT_PROGRAM) != 0 || number(GL_PROGRAM_PIPELINE_BINDING) != 0)
        return false;
    const GLint active = number(GL_ACTIVE_TEXTURE);
    bool none = true;
    for (GLint unit = number(GL_MAX_TEXTURE_UNITS); unit-- > 0 && none;) {
        glActiveTexture(GLenum(GL_TEXTURE0 + unit));
        for (GLenum target : {GL_TEXTURE_1D, GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP, GL_TEXTURE_RECTANGLE})
            none = none && !glIsEnabled(target);
    }
    glActiveTexture(GLenum(active));
    return none;
}

bool isWhole(float value) { return value == std::round(value) && std::abs(value) < 32768; }

}  // namespace

bool drawsPlainly()
{
    return number(GL_DRAW_FRAMEBUFFER_BINDING) == 0 && number(GL_DRAW_BUFFER) == GL_BACK
        && number(GL_RENDER_MODE) == GL_RENDER && changesNothing() && texturesNothing();
}

bool plainPlace(int height, bool everyOther, Place* place)
{
    GLfloat raster[4];
    glGetFloatv(GL_CURRENT_RASTER_POSITION, raster);
    const float zoomX = real(GL_ZOOM_X);
    const float zoomY = real(GL_ZOOM_Y);
    if (number(GL_CURRENT_RASTER_POSITION_VALID) == 0 || !isWhole(raster[0]) || !isWhole(raster[1]) || !isWhole(zoomX)
        || !isWhole(zoomY) || zoomX < 1 || zoomY == 0)
        return false;
    *place = {int(raster[0]), int(raster[1]), int(zoomX), int(std::abs(zoomY)), zoomY < 0, everyOther};
    if (!place->down)
        place->top += place->zoomY * height * (everyOther ? 2 : 1) - (everyOther ? 1 : 0);
    return true;
}

}  // namespace kiv::glx
