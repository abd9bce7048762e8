// filterParts.cpp - see filterParts.h.
#include "apps/kiv/nodes/filterParts.h"

#include <algorithm>

#include "apps/kiv/support/text.h"

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

// The packing that the first node below likes best among those that all of them take;
// what none has in common is said of the node that does not take it. CbYCrY is the
// shortest way from and to JPEG.
static int packingFor(const Below& below)
{
    if (below.empty())
        return ZV_IMAGE_PACKING_CbYCrY;
    const FormatSet first = wantsOf(*below.front());
    auto allTake = [&](int packing) {
        return std::ranges::all_of(below, [&](const NodeText* node) { return wantsOf(*node).has(false, packing); });
    };
    const auto common = std::ranges::find_if(first.packings, allTake);
    return common != first.packings.end() ? *common
        : first.packings.empty()          ? int(ZV_IMAGE_PACKING_CbYCrY)
                                          : first.packings.front();
}

PictureFormat DecoderPart::configure(const PictureFormat& in, const Below& below)
{
    PictureFormat out = in;
    out.jpeg = false;
    out.packing = packingFor(below);
    if (!below.empty() && !wantsOf(*below.front()).jpeg)
        out.kindBy = "the wish of " + below.front()->place();
    out.fullRange = true;
    return setUp(in, out);
}

PictureFormat EncoderPart::configure(const PictureFormat& in, const Below&)
{
    PictureFormat out = in;
    out.jpeg = true;
    encoder_.quality = float(text_.value("quality").number / 100.0);
    out = setUp(in, out);
    encoder_.setQuality(int(text_.value("quality").number));  // the percentage as it was written
    encoder_.setBands(int(text_.value("bands").number));
    return out;
}

PictureFormat ConvertPart::configure(const PictureFormat& in, const Below&)
{
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
