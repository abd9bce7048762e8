// painter.cpp - planes as textures, one quad, and the colours in the shader.
#include "platform/rk/draw/painter.h"

#include <cmath>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/rk/draw/glCalls.h"
#include "platform/support/error.h"

namespace kiv::rk {

namespace {

constexpr int maxPlanes = 3;

// Positions are pixels, whatever the matrices; gl_MultiTexCoord0 counts pixels of the picture.
const char* const vertexText = R"(#version 110
uniform vec2 pixel;
void main()
{
    gl_Position = vec4(gl_Vertex.xy * pixel - 1.0, 0.0, 1.0);
    gl_TexCoord[0] = gl_MultiTexCoord0;
}
)";

// `mark` tells our program from others that bear the same number in other contexts;
// `rgba` is the mark for a picture of one plane.
const char* const fragmentText = R"(#version 110
uniform sampler2D plane0, plane1, plane2;
uniform vec2 size0, size1, size2;
uniform float luma;
uniform vec4 steps;
uniform vec3 black;
uniform int rgba, mark;
void main()
{
    vec2 at = gl_TexCoord[0].st;
    vec4 first = texture2D(plane0, at * size0);
    if (rgba == mark) {
        gl_FragColor = first;
        return;
    }
    float cb = texture2D(plane1, at * size1).r, cr = texture2D(plane2, at * size2).r;
    vec3 rgb = luma * first.r + black;
    gl_FragColor = vec4(rgb.r + steps.x * cr, rgb.g + steps.y * cb + steps.z * cr, rgb.b + steps.w * cb, 1.0);
}
)";

GLuint compile(GLenum kind, const char* text)
{
    const GLuint shader = glCreateShader(kind);
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    return shader;
}

// 0, with an error recorded that has the driver's words, when it does not link.
GLuint link()
{
    const GLuint program = glCreateProgram();
    for (const GLuint shader : {compile(GL_VERTEX_SHADER, vertexText), compile(GL_FRAGMENT_SHADER, fragmentText)}) {
        glAttachShader(program, shader);
        glDeleteShader(shader);  // once the program is
    }
    glLinkProgram(program);
    GLint linked = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (linked)
        return program;
    char log[200] = "";
    glGetProgramInfoLog(program, sizeof log, nullptr, log);
    glDeleteProgram(program);
    recordError(ZV_ERROR_UNSUPPORTED, "the shader for movies does not link: %s", log);
    return 0;
}

// Keeps all that is set below, and puts it back.
class StateKeeper {
public:
    StateKeeper()
    {
        glGetIntegerv(GL_CURRENT_PROGRAM, &program_);
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        glPushClientAttrib(GL_CLIENT_PIXEL_STORE_BIT);
        glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
        for (const GLenum off : {GL_ALPHA_TEST, GL_BLEND, GL_COLOR_LOGIC_OP, GL_CULL_FACE, GL_DEPTH_TEST, GL_DITHER,
                                 GL_POLYGON_STIPPLE, GL_SCISSOR_TEST, GL_STENCIL_TEST})
            glDisable(off);
        glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
        for (const GLenum zero : {GL_RED_BIAS, GL_GREEN_BIAS, GL_BLUE_BIAS, GL_ALPHA_BIAS, GL_MAP_COLOR})
            glPixelTransferf(zero, 0);
        for (const GLenum one : {GL_RED_SCALE, GL_GREEN_SCALE, GL_BLUE_SCALE, GL_ALPHA_SCALE})
            glPixelTransferf(one, 1);
        for (const GLenum zero : {GL_UNPACK_SKIP_ROWS, GL_UNPACK_SKIP_PIXELS, GL_UNPACK_SWAP_BYTES})
            glPixelStorei(zero, 0);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    }
    ~StateKeeper()
    {
        glPopClientAttrib();
        glPopAttrib();
        glUseProgram(GLuint(program_));
    }
    StateKeeper(const StateKeeper&) = delete;
    StateKeeper& operator=(const StateKeeper&) = delete;

    static bool fits()
    {
        return has(GL_ATTRIB_STACK_DEPTH, GL_MAX_ATTRIB_STACK_DEPTH)
            && has(GL_CLIENT_ATTRIB_STACK_DEPTH, GL_MAX_CLIENT_ATTRIB_STACK_DEPTH);
    }

private:
    static bool has(GLenum depth, GLenum most)
    {
        GLint values[2] = {};
        glGetIntegerv(depth, &values[0]);
        glGetIntegerv(most, &values[1]);
        return values[0] < values[1];
    }

    GLint program_ = 0;
};

// Draws in one context. Its objects end with that context, unless it is asked to
// forget them while the context is current.
class Painter {
public:
    Painter(GLXContext context, int mark) : context_(context), mark_(mark) { }

    GLXContext context() const { return context_; }
    int paint(const ShownPicture& picture, const RKrect& rectangle);
    void forget();

private:
    bool isAlive() const;
    int prepare();
    int checkSize(const ShownPicture& picture) const;
    void upload(int index, const ShownPicture::Plane& plane, int bytes, bool exact);
    void setColours(const ShownPicture& picture) const;
    void drawQuad(const ShownPicture& picture, const RKrect& rectangle) const;
    int uniform(const char* name) const { return glGetUniformLocation(program_, name); }

    struct Texture {
        GLuint name = 0;
        int width = 0, height = 0, bytes = 0;
    };

    const GLXContext context_;
    const int mark_;
    GLuint program_ = 0;
    Texture textures_[maxPlanes];
};

// Whether the program of that number is ours: another context may have got the
// address, and the numbers, of one that is gone.
bool Painter::isAlive() const
{
    if (program_ == 0 || !glIsProgram(program_))
        return false;
    const int place = uniform("mark");
    GLint mark = 0;
    if (place >= 0)
        glGetUniformiv(program_, place, &mark);
    return mark == mark_;
}

int Painter::prepare()
{
    if (isAlive()) {
        glUseProgram(program_);
        return 0;
    }
    program_ = link();
    if (program_ == 0)
        return -1;
    for (Texture& texture : textures_) {
        texture = {};
        glGenTextures(1, &texture.name);
    }
    glUseProgram(program_);
    glUniform1i(uniform("mark"), mark_);
    glUniform1i(uniform("plane0"), 0);
    glUniform1i(uniform("plane1"), 1);
    glUniform1i(uniform("plane2"), 2);
    return 0;
}

int Painter::checkSize(const ShownPicture& picture) const
{
    GLint largest = 0;
    glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
    if (picture.width <= largest && picture.height <= largest)
        return 0;
    return recordError(ZV_ERROR_UNSUPPORTED, "a picture of %dx%d: textures have at most %d pixels a side",
                       picture.width, picture.height, largest);
}

// `exact`: every sample as it is, else what lies between two is mixed.
void Painter::upload(int index, const ShownPicture::Plane& plane, int bytes, bool exact)
{
    Texture& texture = textures_[index];
    const GLenum format = bytes == 4 ? GL_RGBA : GL_LUMINANCE;
    const GLint filter = exact ? GL_NEAREST : GL_LINEAR;
    glActiveTexture(GLenum(GL_TEXTURE0 + index));
    glBindTexture(GL_TEXTURE_2D, texture.name);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, plane.stride / bytes);
    if (texture.width == plane.width && texture.height == plane.height && texture.bytes == bytes) {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, plane.width, plane.height, format, GL_UNSIGNED_BYTE, plane.data);
        return;
    }
    glTexImage2D(GL_TEXTURE_2D, 0, bytes == 4 ? GL_RGBA8 : GL_LUMINANCE8, plane.width, plane.height, 0, format,
                 GL_UNSIGNED_BYTE, plane.data);
    texture.width = plane.width;
    texture.height = plane.height;
    texture.bytes = bytes;
}

void Painter::setColours(const ShownPicture& picture) const
{
    static const char* const sizes[maxPlanes] = {"size0", "size1", "size2"};
    for (int i = 0; i < picture.planes; ++i) {
        const ShownPicture::Plane& plane = picture.plane[i];
        glUniform2f(uniform(sizes[i]), 1.0f / float(plane.width << plane.shiftX),
                    1.0f / float(plane.height << plane.shiftY));
    }
    glUniform1i(uniform("rgba"), picture.planes == 1 ? mark_ : 0);
    if (picture.planes == 1)
        return;
    const ShownPicture::Colours& colours = picture.colours;
    glUniform1f(uniform("luma"), colours.luma);
    glUniform4f(uniform("steps"), colours.redOfCr, colours.greenOfCb, colours.greenOfCr, colours.blueOfCb);
    glUniform3f(uniform("black"), colours.black[0], colours.black[1], colours.black[2]);
}

// The viewport is the largest there is: pixels outside the drawable are dropped, and
// nobody has to ask the server how large that is.
void Painter::drawQuad(const ShownPicture& picture, const RKrect& rectangle) const
{
    GLint view[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, view);
    glViewport(0, 0, view[0], view[1]);
    glUniform2f(uniform("pixel"), 2.0f / float(view[0]), 2.0f / float(view[1]));
    const auto width = float(picture.width), height = float(picture.height);
    glBegin(GL_QUADS);
    glTexCoord2f(0, 0);
    glVertex2f(rectangle.x0, rectangle.y0);
    glTexCoord2f(width, 0);
    glVertex2f(rectangle.x1, rectangle.y0);
    glTexCoord2f(width, height);
    glVertex2f(rectangle.x1, rectangle.y1);
    glTexCoord2f(0, height);
    glVertex2f(rectangle.x0, rectangle.y1);
    glEnd();
}

// Whether each sample of the picture falls on one pixel.
bool isExact(const ShownPicture& picture, const RKrect& at)
{
    return at.x1 - at.x0 == float(picture.width) && at.y1 - at.y0 == float(picture.height) && at.x0 == std::floor(at.x0)
        && at.y0 == std::floor(at.y0);
}

int Painter::paint(const ShownPicture& picture, const RKrect& rectangle)
{
    if (!StateKeeper::fits())
        return recordError(ZV_ERROR_STATE, "GL has no room to keep the context's state: its attribute stack is full");
    const StateKeeper keeper;
    if (prepare() != 0 || checkSize(picture) != 0)
        return -1;
    const bool exact = isExact(picture, rectangle);
    for (int i = 0; i < picture.planes; ++i)
        upload(i, picture.plane[i], picture.planes == 1 ? 4 : 1, exact);
    setColours(picture);
    drawQuad(picture, rectangle);
    return 0;
}

void Painter::forget()
{
    if (isAlive()) {
        for (Texture& texture : textures_)
            glDeleteTextures(1, &texture.name);
        glDeleteProgram(program_);
    }
    program_ = 0;
}

// One for each context that ever drew a picture; never destroyed, as readers may
// outlive main. A context is current on one thread at most, and so is its painter used.
struct Painters {
    std::mutex lock;  // guards `all`
    std::vector<std::unique_ptr<Painter>> all;

    Painter* find(GLXContext context)
    {
        for (const auto& painter : all)
            if (painter->context() == context)
                return painter.get();
        return nullptr;
    }
};

Painters& painters()
{
    static Painters& painters = *new Painters;
    return painters;
}

Painter& painterOf(GLXContext context)
{
    Painters& made = painters();
    std::lock_guard guard(made.lock);
    if (Painter* found = made.find(context))
        return *found;
    made.all.push_back(std::make_unique<Painter>(context, int(made.all.size()) + 1));
    return *made.all.back();
}

// The first of GL's errors in hand; none is left.
GLenum takeErrors()
{
    const GLenum first = glGetError();
    for (int left = 100; left > 0 && glGetError() != GL_NO_ERROR; --left) { }
    return first;
}

}  // namespace

int paintPicture(const ShownPicture& picture, const RKrect& rectangle)
{
    const GLXContext context = glXGetCurrentContext();
    if (context == nullptr)
        return recordError(ZV_ERROR_ARGUMENT, "a movie is drawn without a current context");
    if (loadGLCalls() != 0)
        return -1;
    takeErrors();
    const int result = painterOf(context).paint(picture, rectangle);
    const GLenum error = takeErrors();
    if (result == 0 && error != GL_NO_ERROR)
        return recordError(ZV_ERROR_MEMORY, "a picture of %dx%d cannot be drawn: GL error %#x", picture.width,
                           picture.height, error);
    return result;
}

void forgetPictures()
{
    const GLXContext context = glXGetCurrentContext();
    if (context == nullptr)
        return;
    Painters& made = painters();
    std::unique_lock guard(made.lock);
    Painter* const painter = made.find(context);
    guard.unlock();
    if (painter != nullptr)
        painter->forget();
}

}  // namespace kiv::rk
