// gl.cpp - what a frame of 1080p costs on its way through the GL layer, beside the bare
// calls: bench_gl [FRAMES], under tests/x11/with-x. CPU time of this process, medians;
// both take turns. `in` and `out`: how often the frame goes from memory into GL and back.
#include <GL/gl.h>
#include <GL/glx.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <vector>

#include "platform/glx/glxqtn.h"
#include "platform/zv/zv.h"
#include "tests/platform/glx/glCounts.h"

namespace {

constexpr int width = 1920, height = 1080;
constexpr long long pixels = width * height;

using Work = std::function<void()>;

double cpuMs()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

double timed(const Work& work)
{
    const double begin = cpuMs();
    work();
    return cpuMs() - begin;
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + long(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void compare(const char* name, int frames, const Work& bare, const Work& ours)
{
    bare();
    ours();
    takeGLCounts();
    ours();
    const GLCounts counts = takeGLCounts();
    std::vector<double> bareMs, oursMs;
    for (int i = 0; i < frames; ++i) {
        bareMs.push_back(timed(bare));
        oursMs.push_back(timed(ours));
    }
    printf("%-22s bare %7.3f  ours %7.3f  in %.2f  out %.2f\n", name, median(bareMs), median(oursMs),
           double(counts.in) / pixels, double(counts.out) / pixels);
}

struct Scene {
    Display* dpy = glXOpenDisplayQTN(nullptr);
    GLXFBConfig config = nullptr;
    GLXContext context = nullptr;
    GLXPbuffer pbuffer = 0, small = 0;
    Window window = 0;
    ZVparams* image = nullptr;
    ZVbufferpool pool = nullptr;
    ZVbuffer buffer = nullptr;

    Scene();
    void makeWindow();
    void makeBuffer();
    void bind(GLXDrawable drawable) { glXMakeCurrentQTN(dpy, drawable, context); }
    void bindBare(GLXDrawable draw, GLXDrawable read) { glXMakeContextCurrent(dpy, draw, read, context); }
    void associate() { glXAssociateZVPbufferQTNX(dpy, pbuffer, image, buffer); }
};

Scene::Scene()
{
    const int attributes[] = {GLX_RENDER_TYPE_QTNX,
                              1,
                              GLX_DRAWABLE_TYPE_QTNX,
                              5,
                              GLX_ALPHA_SIZE,
                              8,
                              GLX_RED_SIZE,
                              8,
                              GLX_GREEN_SIZE,
                              8,
                              GLX_BLUE_SIZE,
                              8,
                              GLX_DEPTH_SIZE,
                              8,
                              0};
    int n = 0;
    GLXFBConfigQTNX* found = glXChooseFBConfigQTNX(dpy, 0, attributes, &n);
    if (n == 0) {
        fprintf(stderr, "bench_gl: %s\n", zvGetError(nullptr, nullptr));
        exit(1);
    }
    config = found[0];
    XFree(found);
    context = glXCreateContextWithConfigQTNX(dpy, config, GLX_RGBA_TYPE_QTNX, nullptr, True);
    pbuffer = glXCreateGLXPbufferQTNX(dpy, config, width, height, nullptr);
    small = glXCreateGLXPbufferQTNX(dpy, config, 16, 16, nullptr);
    makeWindow();
    makeBuffer();
}

void Scene::makeWindow()
{
    XVisualInfo* visual = glXGetVisualFromFBConfig(dpy, config);
    XSetWindowAttributes values = {};
    values.colormap = XCreateColormap(dpy, DefaultRootWindow(dpy), visual->visual, AllocNone);
    window = XCreateWindow(dpy, DefaultRootWindow(dpy), 0, 0, width, height, 0, visual->depth, InputOutput,
                           visual->visual, CWColormap | CWBorderPixel, &values);
    XMapWindow(dpy, window);
    XSync(dpy, False);
    XFree(visual);
}

void Scene::makeBuffer()
{
    zvParamsCreate(&image);
    zvSetImageDefaults(image, width, height, ZV_IMAGE_PACKING_RGBA);
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvBufferSetPoolDefaults(params, 1, width * height * 4, 0, 0);
    zvBufferCreatePool(params, &pool);
    zvBufferAllocate(pool, &buffer);
    zvParamsDestroy(params);
}

void display(Scene& scene, int frames, const std::vector<uint8_t>& rgba, bool fields)
{
    const int rows = fields ? height / 2 : height;
    const auto place = [&] {
        glRasterPos2f(-1, -1);
        glBitmap(0, 0, 0, 0, 0, height, nullptr);
    };
    scene.bind(scene.window);
    glPixelZoom(1, -1);
    const Work bare = [&] {
        place();
        glDrawPixels(width, rows, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        glXSwapBuffers(scene.dpy, scene.window);
    };
    const Work ours = [&] {
        place();
        glDrawPixelsQTN(width, rows, GL_RGBA, rgba.data(), (long long)rgba.size());
        glXSwapBuffersQTN(scene.window);
    };
    if (fields)
        glEnableQTN(GL_INTERLACE_QTN);
    compare(fields ? "display, a field" : "display", frames, bare, ours);
    glDisableQTN(GL_INTERLACE_QTN);
    glPixelZoom(1, 1);
}

void upload(Scene& scene, int frames, const std::vector<uint8_t>& rgba)
{
    const Work bare = [&] {
        scene.bindBare(scene.pbuffer, scene.pbuffer);
        glRasterPos2f(-1, -1);
        glDrawPixels(width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        glFinish();
        scene.bindBare(scene.small, scene.small);
    };
    scene.bind(scene.small);
    compare("upload", frames, bare, [&] {
        scene.associate();
        glXMakeCurrentReadQTN(scene.dpy, scene.small, scene.pbuffer, scene.context);
        scene.bind(scene.small);
    });
    compare(
        "association alone", frames, [] {}, [&] { scene.associate(); });
}

void transfer(Scene& scene, int frames, const std::vector<uint8_t>& picture, GLenum format, const char* name)
{
    std::vector<uint8_t> result(size_t(pixels) * 4);
    glXDrawsAllQTN(scene.dpy, scene.pbuffer, 1);
    scene.bind(scene.small);
    const Work bare = [&] {
        scene.bindBare(scene.pbuffer, scene.pbuffer);
        glRasterPos2f(-1, -1);
        glDrawPixels(width, height, GL_RGBA, GL_UNSIGNED_BYTE, picture.data());
        glReadPixels(0, 0, width, height, GL_RGBA, GL_UNSIGNED_BYTE, result.data());
        scene.bindBare(scene.small, scene.small);
    };
    const Work ours = [&] {
        scene.associate();
        scene.bind(scene.pbuffer);
        glRasterPos2f(-1, -1);
        glDrawPixelsQTN(width, height, format, picture.data(), (long long)picture.size());
        zvBufferSync(scene.buffer);
        scene.bind(scene.small);
    };
    compare(name, frames, bare, ours);
    glXDrawsAllQTN(scene.dpy, scene.pbuffer, 0);
}

void texture(Scene& scene, int frames, const std::vector<uint8_t>& rgba)
{
    scene.bind(scene.small);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    const auto copy = [] {
        glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, width, height);
        glFinish();
    };
    const Work bare = [&] {
        scene.bindBare(scene.pbuffer, scene.pbuffer);
        glRasterPos2f(-1, -1);
        glDrawPixels(width, height, GL_RGBA, GL_UNSIGNED_BYTE, rgba.data());
        scene.bindBare(scene.small, scene.pbuffer);
        copy();
        scene.bindBare(scene.small, scene.small);
    };
    compare("texture copy", frames, bare, [&] {
        scene.associate();
        glXMakeCurrentReadQTN(scene.dpy, scene.small, scene.pbuffer, scene.context);
        copy();
        scene.bind(scene.small);
    });
}

}  // namespace

int main(int argc, char** argv)
{
    const int frames = argc > 1 ? std::max(1, atoi(argv[1])) : 20;
    std::vector<uint8_t> rgba(size_t(pixels) * 4);
    for (size_t i = 0; i < rgba.size(); ++i)
        rgba[i] = uint8_t(i * 2654435761u >> 24);
    Scene scene;
    display(scene, frames, rgba, false);
    display(scene, frames, rgba, true);
    upload(scene, frames, rgba);
    transfer(scene, frames, rgba, GL_RGBA, "transfer RGBA");
    transfer(scene, frames, rgba, GL_CBYCRY_422_QTN, "transfer CbYCrY");
    texture(scene, frames, rgba);
    return 0;
}
