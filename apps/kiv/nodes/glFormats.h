// glFormats.h - what OpenGL parts of a graph have in common.
#pragma once

#include "apps/kiv/graph/packing.h"
#include "platform/glx/glxqtn.h"

#undef Below  // X's, for windows; it is a word of graphs here

// The packings that OpenGL draws as they come, the cheapest first.
FormatSet drawablePictures();
GLenum glFormatOf(int packing);

// A connection to an X server, closed with its owner.
class GLConnection {
public:
    GLConnection() = default;
    ~GLConnection();
    GLConnection(const GLConnection&) = delete;
    GLConnection& operator=(const GLConnection&) = delete;

    std::string open();  // the default display; "" or what is wrong
    Display* display() const { return display_; }
    bool alive() const { return glXDisplayAliveQTN(display_) != 0; }

private:
    Display* display_ = nullptr;
};
