// link.cpp - see link.h.
#include "apps/kiv/graph/link.h"

#include "apps/kiv/support/text.h"

namespace {

std::string remedy(const NodeText& node, const PictureFormat& offered, const FormatSet& wanted)
{
    if (offered.jpeg)
        return "put jpegdec between them";
    if (!wanted.packings.empty())
        return text("put 'convert packing=%s' between them", packingName(wanted.packings.front()));
    return node.kind->gives().packings.empty() ? "put jpegenc between them" : "leave it out";
}

// "node 1 'recv' with size=64x48", or the node alone when its members do not say.
std::string origin(const NodeText& node, const char* member)
{
    const Value& value = node.value(member);
    return node.place() + (value.given ? text(" with %s=%s", member, value.text.c_str()) : "");
}

}  // namespace

void checkLink(const NodeText& above, const NodeText& node, const PictureFormat& offered)
{
    const FormatSet wanted = wantsOf(node);
    if (wanted.has(offered.jpeg, offered.packing))
        return;
    const char* key = offered.jpeg || wanted.packings.empty() ? "format" : "packing";
    const std::string by = offered.kindBy == above.place() ? "" : ", set by " + offered.kindBy;
    throw GraphError(node,
                     text("wants %s %s; %s offers %s%s; %s", key, wanted.names().c_str(), above.place().c_str(),
                          describe(offered).c_str(), by.c_str(), remedy(node, offered, wanted).c_str()));
}

void noteOrigins(const NodeText& node, const PictureFormat& in, PictureFormat* out)
{
    const bool said = out->kindBy != in.kindBy;  // by the part itself
    if (!said && (in.kindBy.empty() || in.jpeg != out->jpeg || in.packing != out->packing))
        out->kindBy = origin(node, "packing");
    if (in.sizeBy.empty() || in.width != out->width || in.height != out->height)
        out->sizeBy = origin(node, "size");
    if (in.rateBy.empty() || in.rateNumerator != out->rateNumerator || in.rateDenominator != out->rateDenominator)
        out->rateBy = origin(node, "rate");
}

std::string describeLink(const PictureFormat& format)
{
    std::string words = describe(format);
    if (format.rateNumerator > 0 && format.rateDenominator == 1)
        words += text(", %d fps", format.rateNumerator);
    else if (format.rateNumerator > 0)
        words += text(", %d/%d fps", format.rateNumerator, format.rateDenominator);
    return words + (format.live ? ", live" : ", every frame");
}
