// zvic.cpp - the public calls of the image-converter service.
#include "platform/zvic/zvic.h"

#include <new>

#include "platform/support/error.h"
#include "platform/support/handle.h"
#include "platform/zvic/converter.h"

namespace {

using kiv::Converter;
constinit kiv::HandleTable<Converter, kiv::HandleKind::Converter> converters;

// Runs `call` on a live converter; -1, recorded, when there is none or no memory.
template <class Call> int withConverter(ZVimageconverter ic, const char* what, Call call)
{
    try {
        auto converter = converters.pin(ic, what);
        return converter ? call(*converter) : -1;
    } catch (const std::bad_alloc&) {
        return kiv::recordError(ZV_ERROR_MEMORY, "%s: no memory", what);
    }
}

int missing(const char* what) { return kiv::recordError(ZV_ERROR_ARGUMENT, "%s: no place for the result", what); }

}  // namespace

// Any thread, does not block. The conversion list is not looked at: no kind depends on it.
int zvICChooseConverter(const ZVparams* src, const ZVparams* dst, const ZVparams*)
{
    kiv::ImageFormat from;
    kiv::ImageFormat to;
    if (kiv::readImageFormat(src, &from) != 0 || kiv::readImageFormat(dst, &to) != 0)
        return -1;
    return kiv::chooseConverter(from, to);
}

// Any thread, does not block: threads start with the first image.
int zvICCreate(int id, ZVimageconverter* ic)
{
    if (ic == nullptr)
        return missing("zvICCreate");
    *ic = nullptr;
    const kiv::ConverterKind* kind = kiv::converterKind(id);
    if (kind == nullptr)
        return -1;
    try {
        *ic = static_cast<ZVimageconverter>(converters.insert(std::make_unique<Converter>(*kind)));
    } catch (const std::bad_alloc&) {
        kiv::recordError(ZV_ERROR_MEMORY, "zvICCreate: no memory");
    }
    return *ic != nullptr ? 0 : -1;
}

// Any thread. Blocks until conversions under way have come to their next row group.
int zvICDestroy(ZVimageconverter ic)
{
    auto converter = converters.retire(ic, "zvICDestroy");
    if (!converter)
        return -1;
    converter->close();
    return 0;
}

// Any thread, until the first image; does not block.
int zvICSetSrcParams(ZVimageconverter ic, const ZVparams* p)
{
    return withConverter(ic, "zvICSetSrcParams", [p](Converter& c) { return c.setFormat(Converter::Src, p); });
}

// As zvICSetSrcParams.
int zvICSetDstParams(ZVimageconverter ic, const ZVparams* p)
{
    return withConverter(ic, "zvICSetDstParams", [p](Converter& c) { return c.setFormat(Converter::Dst, p); });
}

// Any thread, any time, does not block. Holds for images that are not yet begun.
int zvICSetConvParams(ZVimageconverter ic, const ZVparams* p)
{
    return withConverter(ic, "zvICSetConvParams", [p](Converter& c) { return c.setSettings(p); });
}

// Any thread, does not block.
int zvICGetSrcPoolParams(ZVimageconverter ic, ZVparams* p)
{
    return withConverter(ic, "zvICGetSrcPoolParams",
                         [p](Converter& c) { return c.raisePoolParams(Converter::Src, p); });
}

// Any thread, does not block.
int zvICGetDstPoolParams(ZVimageconverter ic, ZVparams* p)
{
    return withConverter(ic, "zvICGetDstPoolParams",
                         [p](Converter& c) { return c.raisePoolParams(Converter::Dst, p); });
}

// Any thread, any time, does not block. The pool stays the caller's.
int zvICSetDstPool(ZVimageconverter ic, ZVbufferpool pool)
{
    return withConverter(ic, "zvICSetDstPool", [pool](Converter& c) { return c.setPool(pool); });
}

// Any thread, does not block. On success the converter has a reference of its own.
int zvICSend(ZVimageconverter ic, ZVbuffer in, int, void*)
{
    return withConverter(ic, "zvICSend", [in](Converter& c) { return c.send(in); });
}

// Any thread, does not block. On success the caller owns one reference to *out.
int zvICReceive(ZVimageconverter ic, ZVbuffer* out)
{
    if (out == nullptr)
        return missing("zvICReceive");
    *out = nullptr;
    return withConverter(ic, "zvICReceive", [out](Converter& c) { return c.receive(out); });
}

// Any thread, does not block. The descriptor stays the converter's.
int zvICGetDstQueueFD(ZVimageconverter ic)
{
    return withConverter(ic, "zvICGetDstQueueFD", [](Converter& c) { return c.descriptor(); });
}

// Any thread, does not block; -1 for no converter.
int zvICGetSrcQueueFilled(ZVimageconverter ic)
{
    return withConverter(ic, "zvICGetSrcQueueFilled", [](Converter& c) { return c.unfinished(); });
}

// Any thread, does not block; -1 for no converter.
int zvICGetDstQueueFilled(ZVimageconverter ic)
{
    return withConverter(ic, "zvICGetDstQueueFilled", [](Converter& c) { return c.finished(); });
}

// Any thread, does not block.
int zvICGetStats(ZVimageconverter ic, ZVicStats* stats)
{
    if (stats == nullptr)
        return missing("zvICGetStats");
    return withConverter(ic, "zvICGetStats", [stats](Converter& c) { return c.stats(stats); });
}
