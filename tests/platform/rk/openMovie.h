// openMovie.h - a movie that is open for the length of a test.
#pragma once

#include <string>

#include "platform/rk/rk.h"

struct OpenMovie {
    explicit OpenMovie(const std::string& path);  // fails the test when it does not open
    ~OpenMovie();
    OpenMovie(const OpenMovie&) = delete;
    OpenMovie& operator=(const OpenMovie&) = delete;

    std::string frame(int index) const;  // its bytes; "" when it cannot be read
    int length() const { return rkGetTrackLength(track); }

    RKmovie movie = nullptr;
    RKtrack track = nullptr;
    RKtrackInfo info = {};
};

// What zvGetError says: the number, and the detail.
int lastError();
std::string lastDetail();

// Opening must fail; the detail.
std::string openError(const std::string& path);
