// interlace.cpp - pictures drawn into every other row: a textured rectangle whose
// shader leaves the rows between alone. It finds the texel by the pixel's place, so no
// filter and none of the fixed texture state counts.
#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>

#include <GL/glext.h>

#include <algorithm>
#include <atomic>
#include <cmath>

#include "platform/glx/contexts.h"
#include "platform/glx/pixelState.h"
#include "platform/support/error.h"

namespace kiv::glx {

namespace {

// Far from what glGenTextures gives, and from small names that applications choose.
constexpr unsigned firstTexture = 0x6b000000;
constexpr float viewSize = 16384;  // pixels: more than any drawable has

constexpr const char* vertexText = "#version 130\n"
                                   "void main() { gl_Position = gl_Vertex; }\n";
// `place`: raster position, then zoom.
constexpr const char* fragmentText = "#version 130\n"
                                     "uniform sampler2D image;\n"
                                     "uniform vec4 place;\n"
                                     "void main()\n"
                                     "{\n"
                                     "    vec2 from = (gl_FragCoord.xy - place.xy) * sign(place.zw);\n"
                                     "    int row = int(floor(from.y));\n"
                                     "    if ((row & 1) != 0)\n"
                                     "        discard;\n"
                                     "    vec2 at = vec2(from.x, float(row / 2) + 0.5) / abs(place.zw);\n"
                                     "    gl_FragColor = texelFetch(image, ivec2(at), 0);\n"
                                     "}\n";

bool addShader(GLuint program, GLenum kind, const char* text)
{
    const GLuint shader = glCreateShader(kind);
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    GLint good = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &good);
    glAttachShader(program, shader);
    glDeleteShader(shader);  // it goes with the program
    return good != 0;
}

GLuint makeProgram()
{
    const GLuint program = glCreateProgram();
    GLint good = 0;
    if (addShader(program, GL_VERTEX_SHADER, vertexText) && addShader(program, GL_FRAGMENT_SHADER, fragmentText)) {
        glLinkProgram(program);
        glGetProgramiv(program, GL_LINK_STATUS, &good);
    }
    if (good)
        return program;
    glDeleteProgram(program);
    return 0;
}

// What the rectangle touches, put back at the end.
class KeepState {
public:
    KeepState()
    {
        glGetIntegerv(GL_CURRENT_PROGRAM, &program_);
        glGetIntegerv(GL_ACTIVE_TEXTURE, &unit_);
        glActiveTexture(GL_TEXTURE0);
        glGetIntegerv(GL_TEXTURE_BINDING_2D, &texture_);
        glPushAttrib(GL_ENABLE_BIT | GL_POLYGON_BIT | GL_VIEWPORT_BIT);
    }
    ~KeepState()
    {
        glPopAttrib();
        glBindTexture(GL_TEXTURE_2D, GLuint(texture_));
        glActiveTexture(GLenum(unit_));
        glUseProgram(GLuint(program_));
    }
    KeepState(const KeepState&) = delete;
    KeepState& operator=(const KeepState&) = delete;

    static bool fits()
    {
        GLint depth = 0;
        GLint most = 0;
        glGetIntegerv(GL_ATTRIB_STACK_DEPTH, &depth);
        glGetIntegerv(GL_MAX_ATTRIB_STACK_DEPTH, &most);
        return depth < most;
    }

private:
    GLint program_ = 0, unit_ = 0, texture_ = 0;
};

// Rectangles arrive whole; what happens to single pixels stays the application's.
void plainRectangles()
{
    for (GLenum test : {GL_CULL_FACE, GL_POLYGON_STIPPLE, GL_POLYGON_SMOOTH, GL_POLYGON_OFFSET_FILL})
        glDisable(test);
    GLint planes = 0;
    glGetIntegerv(GL_MAX_CLIP_PLANES, &planes);
    for (int i = 0; i < planes; ++i)
        glDisable(GLenum(GL_CLIP_PLANE0 + i));
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glViewport(0, 0, GLsizei(viewSize), GLsizei(viewSize));
    glDepthRange(0, 1);
}

void loadTexture(ContextFacts& facts, const Image& image)
{
    glBindTexture(GL_TEXTURE_2D, facts.textureName);
    if (facts.textureWidth < image.width || facts.textureHeight < image.height) {
        facts.textureWidth = std::max(facts.textureWidth, image.width);
        facts.textureHeight = std::max(facts.textureHeight, image.height);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, facts.textureWidth, facts.textureHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     nullptr);
    }
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, image.width, image.height, image.format, GL_UNSIGNED_BYTE, image.data);
}

struct Zoom {
    GLfloat x, y;
};

void rectangle(const GLfloat* raster, const Zoom& zoom, const Image& image)
{
    const float rows = std::round(std::abs(zoom.y) * float(image.height));
    const float half = viewSize / 2;
    const float x0 = raster[0] / half - 1;
    const float x1 = (raster[0] + zoom.x * float(image.width)) / half - 1;
    const float y0 = raster[1] / half - 1;
    // The row after the last is one of those between.
    const float y1 = (raster[1] + std::copysign(2 * rows - 1, zoom.y)) / half - 1;
    const float z = 2 * raster[2] - 1;
    glBegin(GL_QUADS);
    glVertex3f(x0, y0, z);
    glVertex3f(x1, y0, z);
    glVertex3f(x1, y1, z);
    glVertex3f(x0, y1, z);
    glEnd();
}

// The program, made once for the context; 0 when GL has none.
bool prepare(GLXContext context, ContextFacts& facts)
{
    static constinit std::atomic<unsigned> names{firstTexture};
    if (facts.program != 0)
        return true;
    facts.program = makeProgram();
    facts.textureName = names.fetch_add(1);
    noteContext(context, facts);
    return facts.program != 0;
}

}  // namespace

int drawInterlaced(GLXContext context, const Image& image)
{
    GLboolean valid = GL_FALSE;
    GLfloat raster[4];
    Zoom zoom;
    glGetBooleanv(GL_CURRENT_RASTER_POSITION_VALID, &valid);
    glGetFloatv(GL_CURRENT_RASTER_POSITION, raster);
    glGetFloatv(GL_ZOOM_X, &zoom.x);
    glGetFloatv(GL_ZOOM_Y, &zoom.y);
    if (!valid || zoom.x == 0 || zoom.y == 0 || image.width == 0 || image.height == 0)
        return 0;
    ContextFacts facts = contextFacts(context, glXGetCurrentDisplay());
    if (!prepare(context, facts) || !KeepState::fits())
        return recordError(ZV_ERROR_UNSUPPORTED, "GL cannot draw interlaced");
    const KeepState keep;
    plainRectangles();
    const int before = facts.textureWidth * facts.textureHeight;
    loadTexture(facts, image);
    if (before != facts.textureWidth * facts.textureHeight)
        noteContext(context, facts);
    glUseProgram(facts.program);
    glUniform4f(glGetUniformLocation(facts.program, "place"), raster[0], raster[1], zoom.x, zoom.y);
    rectangle(raster, zoom, image);
    return 0;
}

}  // namespace kiv::glx
