// kivMovieInRender.h - movie source whose frames are drawn with OpenGL, placed and scaled.
#pragma once

#include "movie/kivMovieIn.h"
#include "platform/glx/glxqtn.h"

// Loop-bound, with the reader thread of kivMovieIn, which alone draws: on a connection
// and in a context of the node's own. Each buffer holds bufferSizeX x bufferSizeY
// pixels of R G B A, top row first; outside the picture all is 0.
class KIV_API kivMovieInRender : public kivMovieIn {
public:
    kivMovieInRender();
    ~kivMovieInRender() override;

    int init(kivParams* params) override;
    int getImageFrameTime(long long movieTime) override;
    int getImageFrameIndex(int frameIndex) override;

    int setImageOffset(float x, float y);  // of the upper left corner, in pixels
    int setImageZoom(float x, float y);  // times the size of the image

    float offsetX = 0.0f;
    float offsetY = 0.0f;
    float zoomX = 1.0f;
    float zoomY = 1.0f;
    ZVparams* glParams = nullptr;  // describes the buffers to GL
    Display* display = nullptr;
    GLXFBConfigQTNX fbConfig = nullptr;
    GLXPbuffer pbuffer = 0;
    GLXContext context = nullptr;

private:
    int setMovieRect();
    int describeImages();
    int openGL();
    void closeGL();
};
