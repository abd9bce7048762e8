// kivICjencoder.cpp - see kivICjencoder.h.
#include "convert/kivICjencoder.h"

namespace {

constexpr const char* fileWord = "kivICjencoder";

// Whole percent, towards zero; what no int could hold becomes -1, which is refused.
int percentOf(float quality)
{
    const float product = quality * 100.0f;
    return product > -1e6f && product < 1e6f ? int(product) : -1;
}

}  // namespace

kivICjencoder::kivICjencoder() : quality(0.75f)
{
    direction = ZV_IC_CODE_DIRECTION_ENCODE;
    srcCompression = ZV_COMPRESSION_UNCOMPRESSED;
    dstCompression = ZV_COMPRESSION_JPEG;
}

kivICjencoder::kivICjencoder(int width, int height) : kivICjencoder()
{
    imageSizeX = width;
    imageSizeY = height;
}

kivICjencoder::~kivICjencoder() = default;

// Builds the converter and gives it the quality. Every failure is 1; what failed
// inside is printed by its own block.
int kivICjencoder::setup()
{
    if (kivIC::setup() != kivErrNone)
        return fail(kivErrGeneric, __LINE__, fileWord);
    if (setQuality(percentOf(quality)) != kivErrNone)
        return fail(kivErrGeneric, __LINE__, fileWord);
    return kivErrNone;
}

// Frames sent from now on have this quality. The member changes before the service
// is told, and stays so when that fails. Returns 2000, 2004, 5, 2015 or 2007.
int kivICjencoder::setQuality(int percent)
{
    if (imgConvCtx == nullptr)
        return fail(kivErrICNone, __LINE__, fileWord);
    if (percent > 100 || percent < 0)
        return fail(kivErrICQuality, __LINE__, fileWord);
    quality = float(double(float(percent)) / 100.0);

    ZVparams* convParams = nullptr;
    if (zvParamsCreate(&convParams) != ZV_SUCCESS)
        return fail(kivErrPoolParams, __LINE__, fileWord);
    if (zvParamsSetFloat(convParams, ZV_IMAGE_QUALITY_SPATIAL, double(quality)) != ZV_SUCCESS)
        return fail(kivErrICString, __LINE__, fileWord);
    if (zvICSetConvParams(imgConvCtx, convParams) != ZV_SUCCESS)
        return fail(kivErrICSetConv, __LINE__, fileWord);
    zvParamsDestroy(convParams);
    return kivErrNone;
}

// Frames not yet begun have so many bands.
int kivICjencoder::setBands(int bands) { return setConversion(ZV_IC_BANDS, bands, fileWord); }
