// pixelState.h - pictures drawn in an application's context, which stays as it was.
#pragma once

#include <GL/gl.h>
#include <GL/glx.h>

#include "platform/glx/porter.h"

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

// Drawing a picture here would copy it: nothing that the application has set changes a
// pixel on its way, and the zoom is in whole pixels.
bool drawsPlainly();
// Where a picture of so many rows would go; false when that is between pixels.
bool plainPlace(int height, bool everyOther, Place* place);

// As glDrawPixels, but with the k-th zoomed row in the k-th other row. 0 or -1.
int drawInterlaced(GLXContext context, const Image& image);

}  // namespace kiv::glx
