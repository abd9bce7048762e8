// glFixture.h - a connection, windows read back, and pictures to compare.
#pragma once

#include <gtest/gtest.h>  // before what X defines as macros

#include <cstdint>
#include <vector>

#include "gl/kivGLDisplay.h"

using Bytes = std::vector<uint8_t>;
using Colours = std::vector<uint32_t>;  // 0xRRGGBB, rows from the top without gaps

// The connection of all pbuffer nodes of a program, opened on first use.
Display* connection();

// What the X server has for the node's window. The newest window lies on top.
Colours shownBy(const kivGLDisplay& display);
void moveWindow(const kivGLDisplay& display, int x, int y);

Bytes noise(size_t bytes, unsigned seed);
void fill(ZVbuffer buffer, const Bytes& bytes);
Bytes bytesOf(ZVbuffer buffer, size_t count);

Colours coloursOf(const Bytes& rgba);
// All hues, most of them at and beyond full saturation: Cb Y Cr Y, 2 bytes a pixel.
Bytes hues422(int width, int height);
// By the closed form of BT.601, rounded; A is 255.
Bytes rgbaOf422(const Bytes& cbycry, bool fullRange);
// Largest difference of two bytes at one place; 256 when the sizes differ.
int farthest(const Bytes& a, const Bytes& b);
Bytes bytesOfColours(const Colours& colours);  // R G B A, A is 255
