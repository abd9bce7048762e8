// glScene.h - a connection with contexts, pbuffers and media buffers for the tests.
#pragma once

#include <GL/gl.h>
#include <GL/glx.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/glx/glxqtn.h"
#include "platform/zv/zv.h"
#include "tests/support/poolFixture.h"

using Bytes = std::vector<uint8_t>;

// A picture in which every pixel tells its place.
Bytes numbered(int width, int height, int seed = 1);

// One connection of the layer, one configuration.
class GLScene {
public:
    explicit GLScene(int depth = 8);
    ~GLScene();
    GLScene(const GLScene&) = delete;
    GLScene& operator=(const GLScene&) = delete;

    GLXContext context();  // destroyed with the scene
    GLXPbuffer pbuffer(int width, int height);  // destroyed with the scene
    Window window(int width, int height);  // mapped

    Display* dpy;
    GLXFBConfig config = nullptr;

private:
    std::vector<GLXContext> contexts_;
    std::vector<GLXPbuffer> pbuffers_;
};

// The image description of that size, RGBA.
class ImageParams {
public:
    ImageParams(int width, int height);
    ~ImageParams();
    operator ZVparams*() const { return params_; }

private:
    ZVparams* params_ = nullptr;
};

// What is in the buffer, seen as somebody who maps it sees it.
Bytes bytesOf(ZVbuffer buffer, size_t bytes);
void fill(ZVbuffer buffer, const Bytes& bytes);
// What the current context reads, rows upwards.
Bytes readBack(int width, int height);
void clearTo(float red, float green, float blue, float alpha);
Bytes solid(int width, int height, uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha);
// In another thread, to its end.
void elsewhere(const std::function<void()>& work);
