// packing.h - pixel packings by their names, and sets of what may pass a link.
#pragma once

#include <span>
#include <string>

// Pixel packings by name ("CbYCrY"); 0 and "?" for none.
int packingByName(const std::string& name);
const char* packingName(int packing);
std::string packingNames();  // all, separated by blanks
std::string packingNames(std::span<const int> packings, const char* between = ", ");
std::span<const int> allPackings();  // the one to choose first stands first

// What a node takes or gives: JPEG, or pictures in some packings, the best one first.
struct FormatSet {
    bool jpeg = false;
    std::span<const int> packings;

    bool has(bool isJpeg, int packing) const;
    bool meets(const FormatSet& other) const;  // something of this is in the other
    std::string names() const;  // "JPEG", "RGB, RGBA"; "" for nothing
};

FormatSet noFormats();
FormatSet jpegOnly();
FormatSet anyPictures();
FormatSet anyFormats();
FormatSet cameraPictures();  // CbYCrY alone
