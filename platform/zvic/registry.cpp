// registry.cpp - the kinds of converter, in the order in which they are searched.
#include "platform/support/error.h"
#include "platform/zvic/internal.h"

namespace kiv {

namespace {

// A further kind is one more line here; ids are not kept anywhere, so order may change.
const ConverterKind* const kinds[] = {&jpegEncoder, &jpegDecoder, &pixelConverter};
constexpr int numKinds = int(std::size(kinds));

}  // namespace

const ConverterKind* converterKind(int id)
{
    if (id >= 0 && id < numKinds)
        return kinds[id];
    recordError(ZV_ERROR_ARGUMENT, "no image converter has the id %d", id);
    return nullptr;
}

int chooseConverter(const ImageFormat& src, const ImageFormat& dst)
{
    if (src.width != dst.width || src.height != dst.height)
        return recordError(ZV_ERROR_UNSUPPORTED, "image converters do not scale: %dx%d to %dx%d", src.width, src.height,
                           dst.width, dst.height);
    for (int id = 0; id < numKinds; ++id) {
        if (kinds[id]->match(src, dst))
            return id;
    }
    return recordError(ZV_ERROR_UNSUPPORTED, "no image converter turns %spacking %d into %spacking %d",
                       src.jpeg ? "JPEG of " : "", src.packing, dst.jpeg ? "JPEG of " : "", dst.packing);
}

std::unique_ptr<ConvertEngine> openConvertEngine(const ImageFormat& src, const ImageFormat& dst)
{
    const int id = chooseConverter(src, dst);
    return id < 0 ? nullptr : kinds[id]->open(src, dst);
}

}  // namespace kiv
