// renderTest.cpp - movies drawn with OpenGL: each frame is the picture that ffmpeg makes of it.
#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <thread>

#include "platform/zv/errors.h"
#include "tests/platform/rk/glScreen.h"
#include "tests/platform/rk/openMovie.h"
#include "tests/support/clips.h"

namespace {

constexpr int billion = 1'000'000'000;

// Draws frame i by its own time, cut to whole nanoseconds.
int render(const OpenMovie& movie, int i)
{
    const double time = i * (1.0 / rkGetImageRate(movie.track)) * 1e9;
    return rkRenderMovieToOpenGL(movie.movie, (long long)time, billion);
}

std::string rendered(const GLScreen& screen, const OpenMovie& movie, int i, int width = 64, int height = 48)
{
    screen.clear();
    EXPECT_EQ(render(movie, i), 0) << lastDetail();
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    return screen.pixels(0, 0, width, height);
}

// From the first to the last, then some back again.
void expectFramesAreThePictures(const GLScreen& screen, const std::string& path, int width = 64, int height = 48)
{
    SCOPED_TRACE(path);
    const OpenMovie movie(path);
    const std::vector<std::string> wanted = decodedRgba(path, width, height);
    ASSERT_EQ(int(wanted.size()), movie.length());
    int most = 0;
    for (int k = 0; k < movie.length() + 4; ++k) {
        const int i = k < movie.length() ? k : (17 - k) * 2;
        most = std::max(most, difference(rendered(screen, movie, i, width, height), wanted[size_t(i)]));
    }
    EXPECT_LE(most, 2);
}

constexpr int frames = 12;

std::string pattern(const std::string& filters, const std::string& codec)
{
    return testPattern("64x48", "30000/1001", frames) + " -vf noise=alls=40:allf=t,format=yuv444p" + filters + codec;
}

const std::string jpeg = " -c:v mjpeg -q:v 2 -pix_fmt ";
const std::string lossless = " -c:v ffv1 -pix_fmt ";

std::string stored() { return clip("render.mov", pattern("", jpeg + "yuvj420p")); }

TEST(render, EachFrameIsThePictureOfTheFile)
{
    const GLScreen screen(80, 64);
    for (const char* layout : {"yuvj420p", "yuvj422p", "yuvj444p"})
        expectFramesAreThePictures(screen, clip("render.mov", pattern("", jpeg + layout)));
    expectFramesAreThePictures(screen, clip("render.avi", pattern("", jpeg + "yuvj422p")));
    const std::string h264 = " -c:v libx264 -preset veryfast -crf 12 -g 5 -bf 2 -pix_fmt yuv420p";
    expectFramesAreThePictures(screen, clip("render.mp4", pattern("", h264)));
    const std::string hd = ",scale=out_color_matrix=bt709:out_range=";
    const std::string marks = " -colorspace bt709 -color_primaries bt709 -color_trc bt709 -color_range ";
    expectFramesAreThePictures(screen, clip("render.mp4", pattern(hd + "tv", h264 + marks + "tv")));
    for (const char* layout : {"yuv420p", "yuv422p", "yuv444p"}) {
        expectFramesAreThePictures(screen, clip("render.mkv", pattern("", lossless + layout)));
        expectFramesAreThePictures(screen, clip("render.mkv", pattern(hd + "pc", lossless + layout + marks + "pc")));
    }
}

TEST(render, OddSizesAndOtherLayoutsToo)
{
    const GLScreen screen(80, 64);
    for (const char* layout : {"yuvj420p", "yuvj422p"})
        expectFramesAreThePictures(screen, clip("odd.mov", pattern(",crop=63:47", jpeg + layout)), 62, 46);
    expectFramesAreThePictures(screen, clip("odd.mov", pattern(",crop=63:47", jpeg + "yuvj444p")), 63, 47);
    expectFramesAreThePictures(screen, clip("rle.mov", pattern("", " -c:v qtrle")));
    expectFramesAreThePictures(screen, clip("deep.mkv", pattern("", lossless + "yuv444p10le")));
    expectFramesAreThePictures(screen, clip("grey.mkv", pattern("", lossless + "gray")));
}

TEST(render, LiesInItsRectangleWithTheTopRowFirst)
{
    const GLScreen screen(200, 160);
    const OpenMovie movie(stored());
    const std::string whole = rendered(screen, movie, 3);
    const std::string around = screen.pixels(64, 0, 8, 48);
    screen.clear();
    EXPECT_EQ(difference(screen.pixels(64, 0, 8, 48), around), 0);

    const RKrect moved = {10, 20, 74, 68};
    EXPECT_EQ(rkSetMovieRect(movie.movie, &moved), 0);
    EXPECT_EQ(render(movie, 3), 0);
    EXPECT_EQ(difference(screen.pixels(10, 20, 64, 48), whole), 0);
    EXPECT_EQ(difference(screen.pixels(2, 20, 8, 48), around), 0);

    const RKrect twice = {10, 20, 138, 116}, outside = {-32, -24, 32, 24};
    screen.clear();
    EXPECT_EQ(rkSetMovieRect(movie.movie, &twice), 0);
    EXPECT_EQ(render(movie, 3), 0);
    EXPECT_EQ(difference(screen.pixels(2, 20, 8, 48), around), 0);
    EXPECT_EQ(difference(screen.pixels(138, 20, 8, 48), around), 0);
    EXPECT_LE(difference(screen.pixels(10, 20, 1, 1), whole.substr(0, 4)), 40);
    EXPECT_EQ(rkSetMovieRect(movie.movie, &outside), 0);
    EXPECT_EQ(render(movie, 3), 0);
    EXPECT_EQ(difference(screen.pixels(0, 0, 32, 1), whole.substr(4 * (24 * 64 + 32), 4 * 32)), 0);

    EXPECT_EQ(rkSetMovieRect(movie.movie, nullptr), 0);
    EXPECT_EQ(difference(rendered(screen, movie, 3), whole), 0);
    const RKrect nowhere = {0, 0, std::numeric_limits<float>::infinity(), 10};
    EXPECT_EQ(rkSetMovieRect(movie.movie, &nowhere), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(difference(rendered(screen, movie, 3), whole), 0);
}

// Enlarged, neighbours mix: a ramp stays one, without steps of two pixels.
TEST(render, EnlargedPicturesAreSmooth)
{
    const GLScreen screen(256, 32);
    const std::string ramp = "-f lavfi -i color=black:size=64x16:rate=25 -frames:v 1 -vf geq=lum=16+3*X:cb=128:cr=128";
    const OpenMovie movie(clip("ramp.mkv", ramp + lossless + "yuv420p"));
    const RKrect wide = {0, 0, 256, 32};
    EXPECT_EQ(rkSetMovieRect(movie.movie, &wide), 0);
    ASSERT_EQ(render(movie, 0), 0);
    const std::string row = screen.pixels(0, 10, 256, 1);
    for (size_t x = 8; x < 248; ++x)
        EXPECT_LE(difference(row.substr(4 * x, 4), row.substr(4 * x + 4, 4)), 2) << x;
}

TEST(render, TimesLeadToTheFrameThatIsShown)
{
    const GLScreen screen(80, 64);
    const OpenMovie movie(stored());  // 30000/1001 frames a second
    const std::string second = rendered(screen, movie, 2), third = rendered(screen, movie, 3);
    ASSERT_GT(difference(second, third), 20);
    const auto at = [&](long long time, int scale) {
        EXPECT_EQ(rkRenderMovieToOpenGL(movie.movie, time, scale), 0);
        return screen.pixels(0, 0, 64, 48);
    };
    EXPECT_EQ(difference(at(100'099'100, billion), third), 0);  // 0.9 us before it begins
    EXPECT_EQ(difference(at(100'098'000, billion), second), 0);
    EXPECT_EQ(difference(at(133'465'666, billion), third), 0);
    EXPECT_EQ(difference(at(3003, 30000), third), 0);
    EXPECT_EQ(difference(at(3002, 30000), second), 0);
    EXPECT_EQ(difference(at(-5, 1), rendered(screen, movie, 0)), 0);
    EXPECT_EQ(difference(at(std::numeric_limits<long long>::max(), billion), rendered(screen, movie, 11)), 0);
}

TEST(render, LeavesTheContextAsItWas)
{
    const GLScreen screen(80, 64);
    const OpenMovie movie(stored());
    const std::string plain = rendered(screen, movie, 1);
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, texture);
    for (const GLenum on : {GL_BLEND, GL_CULL_FACE, GL_DEPTH_TEST, GL_SCISSOR_TEST, GL_ALPHA_TEST})
        glEnable(on);
    glScissor(3, 4, 5, 6);
    glViewport(1, 2, 30, 40);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glPixelTransferf(GL_RED_SCALE, 0.5f);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 7);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    glScalef(0.1f, 0.1f, 0.1f);
    glGetError();

    ASSERT_EQ(render(movie, 1), 0);
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
    GLint value[4] = {};
    const auto read = [&](GLenum name) { return glGetIntegerv(name, value), value[0]; };
    EXPECT_EQ(read(GL_ACTIVE_TEXTURE), GL_TEXTURE1);
    EXPECT_EQ(GLuint(read(GL_TEXTURE_BINDING_2D)), texture);
    EXPECT_EQ(read(GL_UNPACK_ROW_LENGTH), 7);
    EXPECT_EQ(read(0x8B8D /* current program */), 0);
    EXPECT_EQ(read(GL_VIEWPORT), 1);
    EXPECT_EQ(value[3], 40);
    EXPECT_EQ(read(GL_COLOR_WRITEMASK), GL_FALSE);
    EXPECT_EQ(read(GL_ATTRIB_STACK_DEPTH), 0);
    for (const GLenum on : {GL_BLEND, GL_CULL_FACE, GL_DEPTH_TEST, GL_SCISSOR_TEST, GL_ALPHA_TEST})
        EXPECT_TRUE(glIsEnabled(on));
    glPixelTransferf(GL_RED_SCALE, 1);  // holds for reading, too
    EXPECT_EQ(difference(screen.pixels(0, 0, 64, 48), plain), 0);
}

// Addresses and numbers of what is gone come again, in other contexts.
TEST(render, ContextsComeAndGoAndMoviesCloseAnywhere)
{
    RKmovie movie = nullptr;
    ASSERT_EQ(rkOpenFile(stored().c_str(), 0, &movie), 0);
    const auto draw = [&](const GLScreen& screen) {
        screen.clear();
        EXPECT_EQ(rkRenderMovieToOpenGL(movie, 5 * 1001, 30000), 0) << lastDetail();
        return screen.pixels(0, 0, 64, 48);
    };
    std::string wanted;
    std::set<GLXContext> used;
    bool again = false;
    for (int i = 0; i < 200 && !again; ++i) {
        const GLScreen screen(80, 64);
        again = !used.insert(screen.context()).second;
        wanted = i == 0 ? draw(screen) : wanted;
        EXPECT_EQ(difference(draw(screen), wanted), 0);
    }
    EXPECT_TRUE(again);

    const GLScreen screen(80, 64), other(80, 64);
    EXPECT_EQ(difference(draw(other), wanted), 0);
    screen.makeCurrent();
    EXPECT_EQ(difference(draw(screen), wanted), 0);
    EXPECT_EQ(difference(rendered(screen, OpenMovie(stored()), 5), wanted), 0);  // and closes
    EXPECT_EQ(difference(draw(screen), wanted), 0);
    std::thread([&] { EXPECT_EQ(rkClose(movie), 0); }).join();
    EXPECT_EQ(difference(rendered(screen, OpenMovie(stored()), 5), wanted), 0);
}

TEST(render, WhatCannotBeDrawnIsToldAndDrawsNothing)
{
    const OpenMovie movie(stored());
    EXPECT_EQ(render(movie, 0), -1);
    EXPECT_NE(lastDetail().find("context"), std::string::npos);
    const GLScreen screen(80, 64);
    EXPECT_EQ(rkRenderMovieToOpenGL(nullptr, 0, billion), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_HANDLE);
    EXPECT_EQ(rkRenderMovieToOpenGL(movie.movie, 0, 0), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_ARGUMENT);
    EXPECT_EQ(rkSetMovieRect(nullptr, nullptr), -1);

    std::string broken = readFile(stored());
    const std::string frame = movie.frame(4);
    broken.replace(broken.find(frame), frame.size(), std::string(frame.size(), 'x'));
    const std::string path = scratchFolder() + "/broken.mov";
    writeFile(path, broken);
    const OpenMovie damaged(path);
    screen.clear();
    const std::string before = screen.pixels(0, 0, 80, 64);
    EXPECT_EQ(render(damaged, 4), -1);
    EXPECT_EQ(lastError(), ZV_ERROR_DATA);
    EXPECT_EQ(difference(screen.pixels(0, 0, 80, 64), before), 0);
    EXPECT_EQ(difference(rendered(screen, damaged, 5), rendered(screen, movie, 5)), 0);
}

}  // namespace
