// filterParts.cpp - see filterParts.h.
#include "apps/kiv/filterParts.h"

#include "apps/kiv/frameWriter.h"
#include "apps/kiv/text.h"

template <class Base> int WatchedIC<Base>::receive(ZVbuffer inBuffer)
{
    const int err = Base::receive(inBuffer);
    if (err == kivErrICSend)
        refused = serviceError();
    return err;
}

template <class Base> int WatchedIC<Base>::handleEvents(fd_set readySet)
{
    const int err = Base::handleEvents(readySet);
    if (err == kivErrICReceive)
        wrong = serviceError();
    return err;
}

PictureFormat ConverterPart::setUp(const PictureFormat& in, PictureFormat out)
{
    kivIC& ic = converter();
    ic.imageSizeX = in.width;
    ic.imageSizeY = in.height;
    if (!in.jpeg)
        ic.srcPacking = ZVimagepacking(in.packing);
    if (!out.jpeg)
        ic.dstPacking = ZVimagepacking(out.packing);
    if (ic.setup() != kivErrNone)
        throw GraphError(
            text_,
            text("cannot turn %s into %s: %s", describe(in).c_str(), describe(out).c_str(), serviceError().c_str()));
    if (in.live)
        ic.setQueueMax(1);  // a late frame adds no delay
    return out;
}

// What is under way inside shows first in one queue, then in the other.
bool ConverterPart::idle()
{
    return zvICGetSrcQueueFilled(converter().imgConvCtx) == 0 && zvICGetDstQueueFilled(converter().imgConvCtx) == 0;
}

ZVicStats ConverterPart::stats()
{
    ZVicStats stats = {};
    converter().getStats(&stats);
    return stats;
}

void ConverterPart::afterPass(RunContext& run)
{
    if (failureSaid_ || (wrong().empty() && refused().empty()))
        return;
    failureSaid_ = true;
    if (!refused().empty())
        return run.failed(place() + ": takes no frame: " + refused(), true);
    run.failed(place() + ": a frame cannot be converted: " + wrong(), false);
}

Counters ConverterPart::counters()
{
    const ZVicStats s = stats();
    return {{"converted", s.converted}, {"dropped", s.dropped}, {"failed", s.failed}};
}

long long ConverterPart::dropped() { return stats().dropped; }

// What the node below likes best; CbYCrY is the shortest way from and to JPEG.
static int packingFor(const NodeText* next)
{
    if (next == nullptr || std::string(next->kind->name) != "file")
        return ZV_IMAGE_PACKING_CbYCrY;
    const std::vector<int> packings = packingsOf(fileKindOf(next->value("PATH").text));
    return packings.empty() ? int(ZV_IMAGE_PACKING_CbYCrY) : packings.front();
}

PictureFormat DecoderPart::configure(const PictureFormat& in, const NodeText* next)
{
    if (!in.jpeg)
        throw GraphError(text_, text("takes JPEG, and %s comes in; leave it out", describe(in).c_str()));
    PictureFormat out = in;
    out.jpeg = false;
    out.packing = packingFor(next);
    out.fullRange = true;
    return setUp(in, out);
}

PictureFormat EncoderPart::configure(const PictureFormat& in, const NodeText*)
{
    needPictures(text_, in);
    PictureFormat out = in;
    out.jpeg = true;
    encoder_.quality = float(text_.value("quality").number / 100.0);
    out = setUp(in, out);
    encoder_.setQuality(int(text_.value("quality").number));  // the percentage as it was written
    return out;
}

PictureFormat ConvertPart::configure(const PictureFormat& in, const NodeText*)
{
    needPictures(text_, in);
    PictureFormat out = in;
    out.packing = int(text_.value("packing").number);
    out = setUp(in, out);
    sayRange(in.fullRange);
    return out;
}

// Which levels the pictures have; without a word the converter takes a camera's.
void ConvertPart::sayRange(bool fullRange)
{
    ZVparams* levels = nullptr;
    zvParamsCreate(&levels);
    zvParamsSetInt(levels, ZV_IC_FULL_RANGE, fullRange ? 1 : 0);
    zvICSetConvParams(converter_.imgConvCtx, levels);
    zvParamsDestroy(levels);
}
