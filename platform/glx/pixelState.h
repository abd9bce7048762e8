// pixelState.h - pictures drawn in an application's context, which stays as it was.
#pragma once

#include <GL/gl.h>
#include <GL/glx.h>

namespace kiv::glx {

// Rows without gaps, from memory: GL's own way to read pictures is put aside.
class TightRows {
public:
    TightRows();
    ~TightRows();
    TightRows(const TightRows&) = delete;
    TightRows& operator=(const TightRows&) = delete;

private:
    GLint buffer_ = 0;
    GLint values_[6];
};

// A picture whose rows are in memory without gaps.
struct Image {
    int width, height;
    GLenum format;  // one of core GL
    const void* data;
};

// As glDrawPixels, but with the k-th zoomed row in the k-th other row. 0 or -1.
int drawInterlaced(GLXContext context, const Image& image);

}  // namespace kiv::glx
