// picture.cpp - see picture.h.
#include "apps/kiv/graph/picture.h"

#include "apps/kiv/graph/grammar.h"
#include "apps/kiv/support/text.h"
#include "platform/zv/zv.h"

int frameBytes(const PictureFormat& format)
{
    ZVparams* params = nullptr;
    zvParamsCreate(&params);
    zvSetImageDefaults(params, format.width, format.height, format.packing);
    int bytes = zvImageFrameSize(params);
    zvParamsDestroy(params);
    return bytes;
}

std::string describe(const PictureFormat& format)
{
    const char* kind = format.jpeg ? "JPEG" : packingName(format.packing);
    return text("%s %dx%d", kind, format.width, format.height);
}
