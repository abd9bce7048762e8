// packing.cpp - see packing.h.
#include "apps/kiv/graph/packing.h"

#include <algorithm>
#include <array>

#include "platform/zv/zv.h"

namespace {

struct PackingName {
    int packing;
    const char* name;
};
constexpr PackingName packings[] = {
    {ZV_IMAGE_PACKING_CbYCrY, "CbYCrY"},
    {ZV_IMAGE_PACKING_CbYCr, "CbYCr"},
    {ZV_IMAGE_PACKING_CbYCrA, "CbYCrA"},
    {ZV_IMAGE_PACKING_RGB, "RGB"},
    {ZV_IMAGE_PACKING_RGBA, "RGBA"},
    {ZV_IMAGE_PACKING_RGBX, "RGBX"},
    {ZV_IMAGE_PACKING_BGR, "BGR"},
    {ZV_IMAGE_PACKING_ABGR, "ABGR"},
    {ZV_IMAGE_PACKING_XBGR, "XBGR"},
    {ZV_IMAGE_PACKING_ARGB, "ARGB"},
    {ZV_IMAGE_PACKING_XRGB, "XRGB"},
    {ZV_IMAGE_PACKING_LUMINANCE, "LUMINANCE"},
    {ZV_IMAGE_PACKING_LUMINANCE_ALPHA, "LUMINANCE_ALPHA"},
};

constexpr auto numbers = [] {
    std::array<int, std::size(packings)> all = {};
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = packings[i].packing;
    return all;
}();

constexpr int camera[] = {ZV_IMAGE_PACKING_CbYCrY};

}  // namespace

int packingByName(const std::string& name)
{
    for (const PackingName& one : packings)
        if (one.name == name)
            return one.packing;
    return 0;
}

const char* packingName(int packing)
{
    for (const PackingName& one : packings)
        if (one.packing == packing)
            return one.name;
    return "?";
}

std::string packingNames() { return packingNames(numbers, " "); }

std::string packingNames(std::span<const int> some, const char* between)
{
    std::string names;
    for (const int packing : some)
        names += (names.empty() ? "" : between) + std::string(packingName(packing));
    return names;
}

std::span<const int> allPackings() { return numbers; }

bool FormatSet::has(bool isJpeg, int packing) const
{
    return isJpeg ? jpeg : std::ranges::find(packings, packing) != packings.end();
}

bool FormatSet::meets(const FormatSet& other) const
{
    return (jpeg && other.jpeg) || std::ranges::find_first_of(packings, other.packings) != packings.end();
}

std::string FormatSet::names() const
{
    const bool all = packings.size() == numbers.size();
    const std::string pictures = all ? "pictures" : packingNames(packings);
    return !jpeg ? pictures : pictures.empty() ? "JPEG" : "JPEG, " + pictures;
}

FormatSet noFormats() { return {}; }
FormatSet jpegOnly() { return {true, {}}; }
FormatSet anyPictures() { return {false, numbers}; }
FormatSet anyFormats() { return {true, numbers}; }
FormatSet cameraPictures() { return {false, camera}; }
