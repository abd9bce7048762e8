// demo.h - `kiv demo`: the road of a frame, from a camera through a network to a check.
#pragma once

#include <string>

struct DemoOptions {
    double seconds = 10;
    std::string folder = "out";  // for the pictures left behind
    bool json = false;
};

// Runs camera, encoder and sender in another process and receives here. Returns an ExitCode.
int runDemo(const DemoOptions& options);
