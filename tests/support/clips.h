// clips.h - sample movies made by the `ffmpeg` program, and what it says is in them.
#pragma once

#include <string>
#include <vector>

// A movie made once, for all builds in this tree, by `ffmpeg <arguments> <file>`; its path. The
// name gives the container (`bars.mov`). Fails the test when ffmpeg does.
std::string clip(const std::string& name, const std::string& arguments);

// Moving bars with a running counter, as arguments for clip(): size as "320x240".
std::string testPattern(const std::string& size, const std::string& rate, int frames);

// A fresh folder of this process, removed at its end, for files that a test makes itself.
const std::string& scratchFolder();

// The packets of the image track, one string each, as a stream copy by ffmpeg writes them.
std::vector<std::string> copiedPackets(const std::string& movie);

// Decoded by ffmpeg: the luma planes, full range, of all frames in order.
std::vector<std::string> decodedLuma(const std::string& movie, int width, int height);

// Decoded by ffmpeg: R G B A of all frames in order, the upper left part of that size. A
// chroma sample is that of all pixels that it covers, provided that the size is even.
std::vector<std::string> decodedRgba(const std::string& movie, int width, int height);

double psnr(const std::string& a, const std::string& b);  // dB, of equal planes; 99 when they are the same

// The largest difference between two bytes of the same place; 256 when the sizes differ.
int difference(const std::string& a, const std::string& b);

// Runs a shell command: "" when it succeeds, else the command and what it printed.
std::string runCommand(const std::string& command);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
