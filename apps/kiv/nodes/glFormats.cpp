// glFormats.cpp - see glFormats.h.
#include "apps/kiv/nodes/glFormats.h"

#include <array>
#include <utility>

#include "apps/kiv/support/text.h"

namespace {

constexpr std::array<std::pair<int, GLenum>, 6> formats = {{
    {ZV_IMAGE_PACKING_CbYCrY, GL_CBYCRY_422_QTN},
    {ZV_IMAGE_PACKING_RGBA, GL_RGBA},
    {ZV_IMAGE_PACKING_RGB, GL_RGB},
    {ZV_IMAGE_PACKING_BGR, GL_BGR},
    {ZV_IMAGE_PACKING_ABGR, GL_ABGR_EXT},
    {ZV_IMAGE_PACKING_LUMINANCE, GL_LUMINANCE},
}};

constexpr auto packings = [] {
    std::array<int, formats.size()> all = {};
    for (size_t i = 0; i < all.size(); ++i)
        all[i] = formats[i].first;
    return all;
}();

}  // namespace

FormatSet drawablePictures() { return {false, packings}; }

GLenum glFormatOf(int packing)
{
    for (const auto& [known, format] : formats)
        if (known == packing)
            return format;
    return GL_NONE;
}

GLConnection::~GLConnection()
{
    if (display_ != nullptr)
        XCloseDisplay(display_);
}

std::string GLConnection::open()
{
    display_ = glXOpenDisplayQTN(nullptr);
    if (display_ != nullptr)
        return "";
    const std::string name = XDisplayName(nullptr);
    return name.empty() ? "DISPLAY is not set; this node needs an X server" : "there is no display '" + name + "'";
}
