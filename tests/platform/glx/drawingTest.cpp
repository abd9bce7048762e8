// drawingTest.cpp - glDrawPixelsQTN: formats, levels, zoom, fields, and a state of GL
// that stays as it was.
#include <gtest/gtest.h>

#define GL_GLEXT_PROTOTYPES
#include "tests/platform/glx/glScene.h"

#include <GL/glext.h>

#include <algorithm>
#include <cmath>

namespace {

struct Rgb {
    int red, green, blue;
};

int clamped(double value) { return int(std::clamp(std::lround(value), 0l, 255l)); }

// BT.601 in closed form.
Rgb colourOf(int y, int cb, int cr, bool full)
{
    const double luma = full ? y : (y - 16) * 255.0 / 219;
    const double chroma = full ? 1 : 255.0 / 224;
    const double blue = 1.772 * chroma * (cb - 128);
    const double red = 1.402 * chroma * (cr - 128);
    return {clamped(luma + red), clamped(luma - (0.114 * blue + 0.299 * red) / 0.587), clamped(luma + blue)};
}

// A gradient of all three that meets every corner of the cube.
Bytes gradient422(int width, int height)
{
    Bytes bytes;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int chroma = x & 1 ? (x / 2) * 255 / std::max(1, (width - 1) / 2) : y * 255 / (height - 1);
            bytes.push_back(uint8_t(chroma));
            bytes.push_back(uint8_t((x * 31 + y * 17) % 3 == 0 ? 255 : x * y));
        }
    }
    return bytes;
}

class Drawing : public testing::Test {
protected:
    static constexpr int width = 336, height = 290;  // of the pbuffer

    void SetUp() override
    {
        ASSERT_TRUE(glXMakeCurrentQTN(scene.dpy, scene.pbuffer(width, height), scene.context()));
        glMatrixMode(GL_PROJECTION);
        glOrtho(0, width, 0, height, -1, 1);
        clearTo(0, 0, 0, 0);
    }
    void TearDown() override { EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR)); }

    static void draw(int w, int h, GLenum format, const Bytes& bytes)
    {
        EXPECT_EQ(glDrawPixelsQTN(w, h, format, bytes.data(), (long long)bytes.size()), 0);
    }
    static Rgb at(const Bytes& picture, int x, int y)
    {
        const uint8_t* pixel = &picture[(size_t(y) * width + x) * 4];
        return {pixel[0], pixel[1], pixel[2]};
    }
    // Every pixel of a 4:2:2 picture drawn at the origin, within one level.
    static void expectColours(const Bytes& image, int w, int h, bool full);

    // Puts the rows of an image into a picture of the pbuffer, from its top: the first
    // into row `first`, the next `step` below.
    static void placeRows(Bytes& picture, const Bytes& image, int w, int left, int first, int step);
    static void expectSame(const Bytes& expected);

    GLScene scene;
};

void Drawing::placeRows(Bytes& picture, const Bytes& image, int w, int left, int first, int step)
{
    const int rows = int(image.size() / 4) / w;
    for (int i = 0; i < rows; ++i) {
        const uint8_t* row = &image[size_t(i) * w * 4];
        std::copy(row, row + w * 4, &picture[(size_t(height - 1 - first - i * step) * width + left) * 4]);
    }
}

void Drawing::expectSame(const Bytes& expected)
{
    const Bytes picture = readBack(width, height);
    const auto [got, wanted] = std::mismatch(picture.begin(), picture.end(), expected.begin());
    if (got == picture.end())
        return;
    const long pixel = (got - picture.begin()) / 4;
    ADD_FAILURE() << "at " << pixel % width << ", " << pixel / width << " from below: " << int(*got) << ", not "
                  << int(*wanted);
}

void Drawing::expectColours(const Bytes& image, int w, int h, bool full)
{
    const Bytes picture = readBack(width, height);
    int worst = 0;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const uint8_t* pair = &image[(size_t(y) * w + (x & ~1)) * 2];
            const int cr = (x | 1) < w ? pair[2] : x > 0 ? pair[-2] : 128;
            const Rgb wanted = colourOf(image[(size_t(y) * w + x) * 2 + 1], pair[0], cr, full);
            const Rgb got = at(picture, x, y);
            worst = std::max({worst, std::abs(wanted.red - got.red), std::abs(wanted.green - got.green),
                              std::abs(wanted.blue - got.blue)});
        }
    }
    EXPECT_LE(worst, 1) << w << " x " << h << (full ? " full" : " studio");
}

TEST_F(Drawing, FourTwoTwoHasTheColoursOfTheClosedForm)
{
    for (const bool full : {false, true}) {
        glPixelRangeQTN(full);
        for (const int w : {336, 335, 60, 2, 1}) {
            const Bytes image = gradient422(w, height);
            clearTo(0, 0, 0, 0);
            draw(w, height, GL_CBYCRY_422_QTN, image);
            expectColours(image, w, height, full);
        }
    }
}

TEST_F(Drawing, FormatsOfCoreGLComeAsTheyAre)
{
    const auto expectDrawn = [](int w, int h, GLenum format, const Bytes& image, const Bytes& expected) {
        clearTo(0, 0, 0, 0);
        draw(w, h, format, image);
        EXPECT_EQ(readBack(w, h), expected) << w << " x " << h << std::hex << " format " << format;
    };
    for (const auto& [w, h] : {std::pair(33, 21), std::pair(333, 221)}) {
        const Bytes image = numbered(w, h);
        Bytes rgb, bgr, bgra, abgr, grey, opaque, greys;
        for (size_t i = 0; i < image.size(); i += 4) {
            const uint8_t r = image[i], g = image[i + 1], b = image[i + 2], a = image[i + 3];
            rgb.insert(rgb.end(), {r, g, b});  // rows without gaps
            bgr.insert(bgr.end(), {b, g, r});
            bgra.insert(bgra.end(), {b, g, r, a});
            abgr.insert(abgr.end(), {a, b, g, r});
            grey.push_back(g);
            opaque.insert(opaque.end(), {r, g, b, 255});
            greys.insert(greys.end(), {g, g, g, 255});
        }
        expectDrawn(w, h, GL_RGBA, image, image);
        expectDrawn(w, h, GL_BGRA, bgra, image);
        expectDrawn(w, h, GL_ABGR_EXT, abgr, image);
        expectDrawn(w, h, GL_RGB, rgb, opaque);
        expectDrawn(w, h, GL_BGR, bgr, opaque);
        expectDrawn(w, h, GL_LUMINANCE, grey, greys);
    }
}

// Small pictures and large ones: they take two roads.
constexpr std::pair<int, int> sizes[] = {{20, 10}, {105, 93}};

Bytes zoomed(const Bytes& image, int w, int h, int zoom)
{
    Bytes larger;
    larger.reserve(image.size() * zoom * zoom);
    for (int y = 0; y < h * zoom; ++y)
        for (int x = 0; x < w * zoom; ++x) {
            const uint8_t* pixel = &image[(size_t(y / zoom) * w + x / zoom) * 4];
            larger.insert(larger.end(), pixel, pixel + 4);
        }
    return larger;
}

TEST_F(Drawing, TopRowComesFirstWithANegativeZoom)
{
    for (const auto& [w, h] : sizes) {
        const Bytes image = numbered(w, h);
        for (const int zoom : {1, 2, 3}) {
            Bytes expected(size_t(width) * height * 4);
            placeRows(expected, zoomed(image, w, h, zoom), w * zoom, 0, 0, 1);
            clearTo(0, 0, 0, 0);
            glRasterPos2i(0, height);
            glPixelZoom(float(zoom), float(-zoom));
            draw(w, h, GL_RGBA, image);
            expectSame(expected);
        }
    }
}

// Both fields of a frame, as a display draws them.
TEST_F(Drawing, InterlacedFieldsFillEveryOtherRowAndNoOther)
{
    glEnableQTN(GL_INTERLACE_QTN);
    for (const auto& [w, h] : sizes) {
        const Bytes top = numbered(w, h, 5);
        const Bytes bottom = numbered(w, h, 99);
        for (const int zoom : {1, 2, 3}) {
            if (2 * h * zoom > height)
                continue;
            Bytes expected(size_t(width) * height * 4);
            clearTo(0, 0, 0, 0);
            glPixelZoom(float(zoom), float(-zoom));
            glRasterPos2i(3, height);
            draw(w, h, GL_RGBA, top);
            placeRows(expected, zoomed(top, w, h, zoom), w * zoom, 3, 0, 2);
            expectSame(expected);
            glBitmap(0, 0, 0, 0, 0, -1, nullptr);
            draw(w, h, GL_RGBA, bottom);
            placeRows(expected, zoomed(bottom, w, h, zoom), w * zoom, 3, 1, 2);
            expectSame(expected);
        }
    }
}

TEST_F(Drawing, InterlacedUpwardsStartsAtTheRasterPosition)
{
    glEnableQTN(GL_INTERLACE_QTN);
    for (const int w : {1, 336}) {
        Bytes image;
        for (int y = 0; y < 100; ++y)
            image.insert(image.end(), size_t(w), uint8_t(50 + y));
        clearTo(0, 0, 0, 0);
        glRasterPos2i(0, 10);
        draw(w, 100, GL_LUMINANCE, image);
        const Bytes picture = readBack(width, height);
        for (int y = 0; y < height; ++y)
            EXPECT_EQ(at(picture, 0, y).red, y < 10 || y > 208 || y & 1 ? 0 : 50 + (y - 10) / 2) << y;
    }
    glDisableQTN(GL_INTERLACE_QTN);
    draw(1, 1, GL_LUMINANCE, {1});
}

// Whatever state the application has: it counts where it counts for glDrawPixels, and
// is the same afterwards.
TEST_F(Drawing, LeavesTheApplicationsStateAsItWas)
{
    GLuint names[3];
    glGenTextures(1, names);
    EXPECT_EQ(names[0], 1u) << "the layer took a name of the application's";
    glBindTexture(GL_TEXTURE_2D, names[0]);
    glActiveTexture(GL_TEXTURE1);
    glGenBuffers(1, names + 1);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, names[1]);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 1000);
    glPixelStorei(GL_UNPACK_SKIP_PIXELS, 5);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 8);
    glEnable(GL_CULL_FACE);
    glCullFace(GL_FRONT_AND_BACK);
    glEnable(GL_CLIP_PLANE0);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 4, height);
    for (const bool interlaced : {false, true}) {
        (interlaced ? glEnableQTN : glDisableQTN)(GL_INTERLACE_QTN);
        glDisable(GL_SCISSOR_TEST);
        clearTo(0, 0, 0, 0);
        glEnable(GL_SCISSOR_TEST);
        draw(8, 1, GL_LUMINANCE, {1, 2, 3, 4, 5, 6, 7, 8});
        const Bytes picture = readBack(8, 1);
        glDisable(GL_SCISSOR_TEST);
        draw(width, 100, GL_LUMINANCE, Bytes(size_t(width) * 100, 9));
        EXPECT_EQ(readBack(1, 1)[0], 9);
        glEnable(GL_SCISSOR_TEST);
        EXPECT_EQ(picture[3 * 4], 4);
        EXPECT_EQ(picture[4 * 4], 0) << "outside the scissors";
        const std::pair<GLenum, GLint> values[] = {{GL_ACTIVE_TEXTURE, GL_TEXTURE1},
                                                   {GL_PIXEL_UNPACK_BUFFER_BINDING, GLint(names[1])},
                                                   {GL_UNPACK_ROW_LENGTH, 1000},
                                                   {GL_UNPACK_SKIP_PIXELS, 5},
                                                   {GL_UNPACK_ALIGNMENT, 8},
                                                   {GL_CULL_FACE, 1},
                                                   {GL_CLIP_PLANE0, 1},
                                                   {GL_CURRENT_PROGRAM, 0},
                                                   {GL_TEXTURE_BINDING_2D, 0},
                                                   {GL_ATTRIB_STACK_DEPTH, 0}};
        for (const auto& [name, expected] : values) {
            GLint value = -1;
            glGetIntegerv(name, &value);
            EXPECT_EQ(value, expected) << std::hex << name << (interlaced ? " interlaced" : "");
        }
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        EXPECT_EQ(viewport[2], width);
    }
    glActiveTexture(GL_TEXTURE0);
    GLint bound = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &bound);
    EXPECT_EQ(bound, GLint(names[0]));
}

// What counts for single pixels counts for large pictures too, and where they end.
TEST_F(Drawing, BlendsMasksShiftsAndClips)
{
    const auto drawAll = [](uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha) {
        draw(width, height, GL_RGBA, solid(width, height, red, green, blue, alpha));
    };
    const auto expectAll = [](uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha) {
        EXPECT_EQ(readBack(width, height), solid(width, height, red, green, blue, alpha));
    };
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    drawAll(10, 20, 30, 40);
    drawAll(1, 2, 3, 4);
    expectAll(11, 22, 33, 44);
    glDisable(GL_BLEND);
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_TRUE);
    drawAll(5, 5, 5, 5);
    expectAll(5, 22, 5, 5);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glPixelTransferf(GL_RED_BIAS, 1);
    drawAll(5, 6, 7, 8);
    expectAll(255, 6, 7, 8);
    glPixelTransferf(GL_RED_BIAS, 0);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    drawAll(1, 1, 1, 1);
    expectAll(255, 6, 7, 8);
    glDisable(GL_DEPTH_TEST);

    // Beyond the edges, and after something of the application's that is not finished.
    const Bytes image = numbered(width, height);
    clearTo(1, 1, 1, 1);
    glRasterPos2i(0, 0);
    glBitmap(0, 0, 0, 0, -40, 30, nullptr);
    draw(width, height, GL_RGBA, image);
    const Bytes picture = readBack(width, height);
    EXPECT_EQ(at(picture, 0, 29).green, 255);
    EXPECT_EQ(at(picture, 0, 30).red, image[40 * 4]);
    EXPECT_EQ(at(picture, 7, height - 1).green, image[(size_t(height - 31) * width + 47) * 4 + 1]);
    EXPECT_EQ(at(picture, width - 41, 200).green, image[(size_t(170) * width + width - 1) * 4 + 1]);
    EXPECT_EQ(at(picture, width - 40, 200).green, 255);
}

TEST_F(Drawing, RefusesWhatItCannotDraw)
{
    const Bytes image(100);
    EXPECT_EQ(glImageBytesQTN(1920, 1080, GL_CBYCRY_422_QTN), 1920 * 1080 * 2);
    EXPECT_EQ(glImageBytesQTN(3, 2, GL_RGB), 18);
    EXPECT_EQ(glImageBytesQTN(1, 1, GL_CURRENT_BIT + 77777), -1);
    EXPECT_EQ(glImageBytesQTN(-1, 1, GL_RGBA), -1);
    EXPECT_EQ(glDrawPixelsQTN(5, 5, GL_RGBA, image.data(), 99), -1);
    EXPECT_EQ(glDrawPixelsQTN(5, 5, GL_RGBA, nullptr, 1000), -1);
    EXPECT_EQ(glDrawPixelsQTN(17000, 0, GL_RGBA, image.data(), 100), -1);
    EXPECT_EQ(readBack(1, 1), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(glDrawPixelsQTN(5, 5, GL_RGBA, image.data(), 100), 0);
    glXMakeCurrentQTN(scene.dpy, None, nullptr);
    EXPECT_EQ(glDrawPixelsQTN(5, 5, GL_RGBA, image.data(), 100), -1);
    glXMakeCurrentQTN(scene.dpy, scene.pbuffer(4, 4), scene.context());
}

}  // namespace
