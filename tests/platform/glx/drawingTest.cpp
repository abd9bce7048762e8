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
    static constexpr int width = 96, height = 80;  // of the pbuffer

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

    GLScene scene;
};

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
        for (const int w : {96, 95, 2, 1}) {
            const Bytes image = gradient422(w, height);
            clearTo(0, 0, 0, 0);
            draw(w, height, GL_CBYCRY_422_QTN, image);
            expectColours(image, w, height, full);
        }
    }
}

TEST_F(Drawing, FormatsOfCoreGLComeAsTheyAre)
{
    const Bytes image = numbered(33, 21);
    draw(33, 21, GL_RGBA, image);
    EXPECT_EQ(readBack(33, 21), image);

    Bytes rgb, abgr, opaque = image;
    for (size_t i = 0; i < image.size(); i += 4) {
        rgb.insert(rgb.end(), {image[i], image[i + 1], image[i + 2]});
        abgr.insert(abgr.end(), {image[i + 3], image[i + 2], image[i + 1], image[i]});
        opaque[i + 3] = 255;
    }
    draw(33, 21, GL_RGB, rgb);  // rows of 99 bytes, without gaps
    EXPECT_EQ(readBack(33, 21), opaque);
    draw(33, 21, GL_ABGR_EXT, abgr);
    EXPECT_EQ(readBack(33, 21), image);
    draw(3, 1, GL_LUMINANCE, {7, 8, 9});
    EXPECT_EQ(readBack(3, 1), (Bytes{7, 7, 7, 255, 8, 8, 8, 255, 9, 9, 9, 255}));
}

TEST_F(Drawing, TopRowComesFirstWithANegativeZoom)
{
    const Bytes image = numbered(20, 10);
    for (const int zoom : {1, 2, 3}) {
        glRasterPos2i(0, height);
        glPixelZoom(float(zoom), float(-zoom));
        draw(20, 10, GL_RGBA, image);
        const Bytes picture = readBack(width, height);
        for (int y = 0; y < 10 * zoom; ++y)
            for (int x = 0; x < 20 * zoom; ++x)
                ASSERT_EQ(at(picture, x, height - 1 - y).red, image[(size_t(y / zoom) * 20 + x / zoom) * 4])
                    << x << ", " << y << " zoom " << zoom;
    }
}

// The two fields of a frame, one after the other, as a display draws them.
TEST_F(Drawing, InterlacedFieldsFillEveryOtherRowAndNoOther)
{
    glEnableQTN(GL_INTERLACE_QTN);
    for (const int zoom : {1, 2, 3}) {
        clearTo(0, 0, 0, 0);
        const Bytes top = numbered(20, 10, 5);
        const Bytes bottom = numbered(20, 10, 99);
        glPixelZoom(float(zoom), float(-zoom));
        glRasterPos2i(3, height);
        draw(20, 10, GL_RGBA, top);
        const Bytes one = readBack(width, height);
        glBitmap(0, 0, 0, 0, 0, -1, nullptr);
        draw(20, 10, GL_RGBA, bottom);
        const Bytes both = readBack(width, height);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                const int row = y / 2 / zoom;
                const int column = (x - 3) / zoom;
                const bool inside = row < 10 && x >= 3 && column < 20;
                const auto expected
                    = [&](const Bytes& field) { return inside ? field[(size_t(row) * 20 + column) * 4 + 1] : 0; };
                const int green = at(both, x, height - 1 - y).green;
                ASSERT_EQ(green, expected(y & 1 ? bottom : top)) << x << ", " << y << " zoom " << zoom;
                ASSERT_EQ(at(one, x, height - 1 - y).green, y & 1 ? 0 : expected(top)) << x << ", " << y;
            }
        }
    }
    glDisableQTN(GL_INTERLACE_QTN);
    draw(2, 1, GL_LUMINANCE, {1, 2});
}

TEST_F(Drawing, InterlacedUpwardsStartsAtTheRasterPosition)
{
    glEnableQTN(GL_INTERLACE_QTN);
    glRasterPos2i(0, 10);
    draw(1, 3, GL_LUMINANCE, {50, 60, 70});
    const Bytes picture = readBack(width, height);
    for (int y = 0; y < height; ++y)
        EXPECT_EQ(at(picture, 0, y).red, y == 10 ? 50 : y == 12 ? 60 : y == 14 ? 70 : 0) << y;
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
    glScissor(0, 0, 4, 80);
    for (const bool interlaced : {false, true}) {
        (interlaced ? glEnableQTN : glDisableQTN)(GL_INTERLACE_QTN);
        clearTo(0, 0, 0, 0);
        draw(8, 1, GL_LUMINANCE, {1, 2, 3, 4, 5, 6, 7, 8});
        const Bytes picture = readBack(8, 1);
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

// What counts for single pixels counts for pictures too.
TEST_F(Drawing, BlendsMasksAndTextures)
{
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    draw(1, 1, GL_RGBA, {10, 20, 30, 40});
    draw(1, 1, GL_RGBA, {1, 2, 3, 4});
    EXPECT_EQ(readBack(1, 1), (Bytes{11, 22, 33, 44}));
    glDisable(GL_BLEND);
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_TRUE);
    draw(1, 1, GL_RGBA, {5, 5, 5, 5});
    EXPECT_EQ(readBack(1, 1), (Bytes{5, 22, 5, 5}));
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glPixelTransferf(GL_RED_BIAS, 1);
    draw(1, 1, GL_RGBA, {5, 6, 7, 8});
    EXPECT_EQ(readBack(1, 1), (Bytes{255, 6, 7, 8}));
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
